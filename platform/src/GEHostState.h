// State shared by the host platform's sources: the live graphics buffers, the
// EGL images made from them, the textures bound to those images, and the
// helpers that keep a buffer's CPU bytes and its textures in step.
//
// Everything here is guarded by one process-wide mutex, HostLock().
#ifndef POSTEFFECT_HOST_GEHOSTSTATE_H
#define POSTEFFECT_HOST_GEHOSTSTATE_H

#include <EGL/egl.h>
#include <GLES2/gl2.h>
#include <stddef.h>

#include <mutex>
#include <vector>

struct ANativeWindowBuffer;

namespace gehost {

struct HostImage;

// A texture that an EGL image over a graphics buffer was bound to, in the
// context that was current when glEGLImageTargetTexture2DOES ran.
struct TexBinding {
    EGLDisplay dpy;
    EGLContext ctx;
    GLuint tex;
    HostImage* pImage;
};

// How a buffer's pixels travel to and from GL. Bytes per pixel 0 means the
// format cannot back a texture (the YUV formats).
struct PixelLayout {
    GLenum glFormat;
    GLenum glType;
    int bytesPerPixel;
    int unpackAlignment;
};

// One live graphics buffer.
struct HostBuffer {
    const ANativeWindowBuffer* pNative;
    unsigned char* pData;  // the mapping's first byte
    size_t nSize;          // bytes of the mapping
    int nFd;
    int nWidth;
    int nHeight;
    int nStride;  // pixels per row
    int nFormat;  // HAL pixel format
    PixelLayout layout;
    // The bytes as they were when CPU and GPU last agreed.
    std::vector<unsigned char> snapshot;
    std::vector<TexBinding> bindings;
    // Read-back space, kept between cleans: the pixels in the buffer's format,
    // and RGBA rows for the formats that need converting.
    std::vector<unsigned char> readBack;
    std::vector<unsigned char> readRGBA;
};

// An EGL image over a host graphics buffer (target EGL_NATIVE_BUFFER_ANDROID).
struct HostImage {
    unsigned nMagic;
    EGLDisplay dpy;
    HostBuffer* pBuffer;
    const ANativeWindowBuffer* pNative;  // holds a reference while the image lives
};

std::mutex& HostLock();

// The GL layout of a HAL pixel format (bytesPerPixel 0 when there is none).
PixelLayout LayoutForFormat(int format);

// Registry of graphics buffers (the lock must be held).
void RegisterBuffer(HostBuffer* pBuffer);
void UnregisterBuffer(HostBuffer* pBuffer);
HostBuffer* FindBufferByNative(const ANativeWindowBuffer* pNative);
// The buffer whose mapping starts at `base` and whose memory is `fd`.
HostBuffer* FindBufferByMemory(const void* base, int fd);

// Registry of host images (the lock must be held).
bool IsHostImage(const void* image);

// Makes the CPU bytes and every texture bound to `pBuffer` (in the current
// context) agree, in whichever direction changed last. Returns 0 or a
// negative errno. The lock must be held.
int SyncBuffer(HostBuffer* pBuffer);

// Binds `pImage`'s buffer to texture `tex` (bound to GL_TEXTURE_2D in the
// current context): gives it the buffer's size, format and bytes.
void BindImageToTexture(HostImage* pImage, GLuint tex);

// Forgets bindings: of textures `names` in the current context; of one image;
// of every texture of a context; of every context of a display.
void ForgetTextures(EGLContext ctx, GLsizei n, const GLuint* names);
void ForgetImage(HostImage* pImage);
void ForgetContext(EGLContext ctx);
void ForgetDisplay(EGLDisplay dpy);

// Drops the NV fences of a context, or of every context of a display (the
// host lock must not be held).
void ForgetFences(EGLContext ctx);
void ForgetFenceDisplay(EGLDisplay dpy);

// Makes glGetError report `error` next, through a GL call that fails with it
// and has no other effect (GL_INVALID_ENUM, GL_INVALID_VALUE,
// GL_INVALID_OPERATION).
void RaiseGLError(GLenum error);

// The major version of the current context's OpenGL ES, 2 when unknown.
int CurrentGLESMajor();

// Sanitizer builds: keeps the loaded driver objects mapped for the leak
// report (GEHostSanitizer.cpp). Otherwise nothing.
void PinDrivers();

// Per-tag logging through the POSTEFFECT_LOG masks.
void HostLog(int priority, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace gehost

#endif
