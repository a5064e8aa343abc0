// Helpers of the host platform tests: graphics buffers bound as textures
// through EGL images, the gralloc clean, and a second context.
#ifndef POSTEFFECT_TESTS_GETESTHOSTGL_H
#define POSTEFFECT_TESTS_GETESTHOSTGL_H

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <ui/GraphicBuffer.h>

// An EGL image over `gb` (EGL_NATIVE_BUFFER_ANDROID), as the library makes it.
EGLImageKHR HostMakeImage(android::GraphicBuffer* gb);

// A new texture bound to `image`, nearest filtering, clamped.
GLuint HostBindNewTexture(EGLImageKHR image);

// The gralloc clean (operation 3) on the whole of `gb`, through the
// allocation controller, as the library calls it.
int HostClean(android::GraphicBuffer* gb);

// A new ES 2 context of the current context's config and display, not
// current; the caller destroys it.
EGLContext HostOtherContext();

#endif
