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
extern GE_EXPORT EGLDisplay g_eglDisplay;
extern GE_EXPORT EGLContext g_eglContext;
// The screen size in landscape orientation (width the larger).
extern GE_EXPORT int g_Disp_Width;
extern GE_EXPORT int g_Disp_Height;

#endif
