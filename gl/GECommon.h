// GL and EGL error checks, the millisecond clock, and the globals that the
// effect manager publishes for the rest of the library.
#ifndef POSTEFFECT_GL_GECOMMON_H
#define POSTEFFECT_GL_GECOMMON_H

#include <EGL/egl.h>
#include <stdint.h>

// Symbols the plug-in exports; everything else in the library is hidden.
#define GE_EXPORT __attribute__((visibility("default")))

// Reads the pending GL error once. GL_NO_ERROR: 1. Otherwise logs
// "[where] ERROR, what failed with error: 0x... NAME" under "GECommon" and
// returns 0.
uint32_t CheckGLError(const char* where, const char* what);
// The same for eglGetError, with EGL_SUCCESS as success.
uint32_t CheckEGLError(const char* where, const char* what);
// Wall-clock milliseconds, 32-bit: only differences of two readings mean
// anything, and they survive one wrap.
uint32_t GetTickCount();

// The display and context of the worker's EGL bring-up, zero when none.
// With several managers in the process (one per plug-in object) they name
// the newest one that is up.
extern GE_EXPORT EGLDisplay g_eglDisplay;
extern GE_EXPORT EGLContext g_eglContext;
// The screen size in landscape orientation (width the larger).
extern GE_EXPORT int g_Disp_Width;
extern GE_EXPORT int g_Disp_Height;

// The library reads and writes the globals only through these, so that two
// workers never race on them.
inline EGLDisplay GEGetEGLDisplay() {
    return __atomic_load_n(&g_eglDisplay, __ATOMIC_ACQUIRE);
}
inline EGLContext GEGetEGLContext() {
    return __atomic_load_n(&g_eglContext, __ATOMIC_ACQUIRE);
}
inline void GESetEGLGlobals(EGLDisplay display, EGLContext context) {
    __atomic_store_n(&g_eglDisplay, display, __ATOMIC_RELEASE);
    __atomic_store_n(&g_eglContext, context, __ATOMIC_RELEASE);
}
inline int GEGetDispWidth() {
    return __atomic_load_n(&g_Disp_Width, __ATOMIC_RELAXED);
}
inline int GEGetDispHeight() {
    return __atomic_load_n(&g_Disp_Height, __ATOMIC_RELAXED);
}
inline void GESetDispSize(int width, int height) {
    __atomic_store_n(&g_Disp_Width, width, __ATOMIC_RELAXED);
    __atomic_store_n(&g_Disp_Height, height, __ATOMIC_RELAXED);
}

// The context that the effect manager of the calling thread made current
// (each worker thread has its own), EGL_NO_CONTEXT on a thread without one.
// Textures are checked against it, since the global names only one of the
// workers' contexts.
EGLContext GEGetThreadContext();
void GESetThreadContext(EGLContext context);

#endif
