#include "gl/GECommon.h"

// Published by the effect manager: the display and context when EGL comes up
// (zero again when it goes down), the screen size when it is brought up over
// a frame.
EGLDisplay g_eglDisplay = EGL_NO_DISPLAY;
EGLContext g_eglContext = EGL_NO_CONTEXT;
int g_Disp_Width = 0;
int g_Disp_Height = 0;

namespace {

thread_local EGLContext t_eglContext = EGL_NO_CONTEXT;

}  // namespace

EGLContext GEGetThreadContext() {
    return t_eglContext;
}

void GESetThreadContext(EGLContext context) {
    t_eglContext = context;
}
