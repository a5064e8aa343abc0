// libFuzzer entry for the BMP reader. Each input is a whole file, loaded with
// GLTexture::LoadBMP into a texture whose format, type and kind (normal or
// streaming) the input's last byte chooses, then deleted. The reader must
// fail cleanly on anything that is not a well-formed file: no read or write
// out of bounds, no huge allocation for a header that lies.
#include <EGL/egl.h>
#include <GLES2/gl2.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include "gl/GECommon.h"
#include "gl/GLTexture.h"

namespace {

int s_nFd = -1;
char s_szPath[64];

struct Target {
    unsigned format, type;
    unsigned char st;
};

const Target kTargets[] = {
    {GL_RGBA, GL_UNSIGNED_BYTE, 0},       {GL_RGB, GL_UNSIGNED_BYTE, 0},
    {GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 0}, {GL_LUMINANCE, GL_UNSIGNED_BYTE, 0},
    {GL_RGBA, GL_UNSIGNED_BYTE, 1},       {GL_RGB, GL_UNSIGNED_BYTE, 1},
    {GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 1}, {GL_RGBA, GL_UNSIGNED_SHORT_5_6_5, 0},
};

// An EGL context like the worker's, current for the whole run.
bool BringUpEGL() {
    EGLDisplay dpy = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    if (dpy == EGL_NO_DISPLAY || !eglInitialize(dpy, nullptr, nullptr)) {
        return false;
    }
    const EGLint configAttribs[] = {EGL_SURFACE_TYPE,
                                    EGL_WINDOW_BIT | EGL_PBUFFER_BIT,
                                    EGL_RED_SIZE,
                                    5,
                                    EGL_GREEN_SIZE,
                                    6,
                                    EGL_BLUE_SIZE,
                                    5,
                                    EGL_RENDERABLE_TYPE,
                                    EGL_OPENGL_ES2_BIT,
                                    EGL_NONE};
    EGLConfig config;
    EGLint n = 0;
    if (!eglChooseConfig(dpy, configAttribs, &config, 1, &n) || n < 1) {
        return false;
    }
    const EGLint contextAttribs[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    EGLContext ctx = eglCreateContext(dpy, config, EGL_NO_CONTEXT, contextAttribs);
    const EGLint surfaceAttribs[] = {EGL_WIDTH, 1, EGL_HEIGHT, 1, EGL_NONE};
    EGLSurface surface = eglCreatePbufferSurface(dpy, config, surfaceAttribs);
    if (ctx == EGL_NO_CONTEXT || surface == EGL_NO_SURFACE ||
        !eglMakeCurrent(dpy, surface, surface, ctx)) {
        return false;
    }
    g_eglDisplay = dpy;
    g_eglContext = ctx;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // Quiet: the reader's error lines would drown the fuzzer's output.
    setenv("POSTEFFECT_LOG", "*=0x00", 0);
    if (!BringUpEGL()) {
        fprintf(stderr, "fuzz_bmp: no EGL context\n");
        abort();
    }
    s_nFd = memfd_create("fuzz_bmp", 0);
    if (s_nFd < 0) {
        abort();
    }
    snprintf(s_szPath, sizeof(s_szPath), "/proc/self/fd/%d", s_nFd);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (ftruncate(s_nFd, 0) != 0 || (size > 0 && pwrite(s_nFd, data, size, 0) != (ssize_t)size)) {
        abort();
    }
    const Target& t = kTargets[size > 0 ? data[size - 1] % 8 : 0];
    GLTexture* tex = new GLTexture();
    tex->LoadBMP(s_szPath, t.format, t.type, t.st);
    delete tex;
    while (glGetError() != GL_NO_ERROR) {
    }
    return 0;
}
