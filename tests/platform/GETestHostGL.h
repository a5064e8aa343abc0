// Helpers of the host platform tests: graphics buffers bound as textures
// through EGL images, the gralloc clean, and small GL programs that sample a
// texture or paint one.
#ifndef POSTEFFECT_TESTS_GETESTHOSTGL_H
#define POSTEFFECT_TESTS_GETESTHOSTGL_H

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <ui/GraphicBuffer.h>

#include <vector>

// An EGL image over `gb` (EGL_NATIVE_BUFFER_ANDROID), as the library makes it.
EGLImageKHR HostMakeImage(android::GraphicBuffer* gb);

// A new texture bound to `image`, nearest filtering, clamped.
GLuint HostBindNewTexture(EGLImageKHR image);

// The gralloc clean (operation 3) on the whole of `gb`, through the
// allocation controller, as the library calls it.
int HostClean(android::GraphicBuffer* gb);

// The RGBA texels a shader reads from `tex` (w x h), drawn one texel per
// pixel into a target texture and read back.
std::vector<unsigned char> HostSampleThroughShader(GLuint tex, int w, int h);

// Paints texel (x, y) of `tex` with colour `rgba[y * w + x]` (four floats per
// texel) by scissored clears through a framebuffer.
void HostPaintTexels(GLuint tex, int w, int h, const std::vector<float>& rgba);

// Fills `tex` (w x h) with one colour by drawing a quad with a shader.
void HostDrawColour(GLuint tex, int w, int h, float r, float g, float b, float a);

#endif
