#include "GETestGL.h"

#include "gl/GECommon.h"

GETestEGL::GETestEGL() {
    m_display = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    if (m_display == EGL_NO_DISPLAY || !eglInitialize(m_display, nullptr, nullptr)) {
        return;
    }
    const EGLint configAttribs[] = {EGL_SURFACE_TYPE,
                                    EGL_WINDOW_BIT | EGL_PBUFFER_BIT,
                                    EGL_RED_SIZE,
                                    5,
                                    EGL_GREEN_SIZE,
                                    6,
                                    EGL_BLUE_SIZE,
                                    5,
                                    EGL_ALPHA_SIZE,
                                    EGL_DONT_CARE,
                                    EGL_DEPTH_SIZE,
                                    16,
                                    EGL_STENCIL_SIZE,
                                    4,
                                    EGL_RENDERABLE_TYPE,
                                    EGL_OPENGL_ES2_BIT,
                                    EGL_NONE};
    EGLConfig configs[10];
    EGLint n = 0;
    if (!eglChooseConfig(m_display, configAttribs, configs, 10, &n) || n < 1) {
        return;
    }
    const EGLint contextAttribs[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    m_context = eglCreateContext(m_display, configs[0], EGL_NO_CONTEXT, contextAttribs);
    const EGLint surfaceAttribs[] = {EGL_WIDTH, 1, EGL_HEIGHT, 1, EGL_NONE};
    m_surface = eglCreatePbufferSurface(m_display, configs[0], surfaceAttribs);
    if (m_context == EGL_NO_CONTEXT || m_surface == EGL_NO_SURFACE ||
        !eglMakeCurrent(m_display, m_surface, m_surface, m_context)) {
        return;
    }
    g_eglDisplay = m_display;
    g_eglContext = m_context;
    m_bOk = true;
}

GETestEGL::~GETestEGL() {
    if (m_display == EGL_NO_DISPLAY) {
        return;
    }
    eglMakeCurrent(m_display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    if (m_surface != EGL_NO_SURFACE) {
        eglDestroySurface(m_display, m_surface);
    }
    if (m_context != EGL_NO_CONTEXT) {
        eglDestroyContext(m_display, m_context);
    }
    eglTerminate(m_display);
    g_eglDisplay = EGL_NO_DISPLAY;
    g_eglContext = EGL_NO_CONTEXT;
}

void GLTest::SetUp() {
    m_pEGL = new GETestEGL();
    ASSERT_TRUE(m_pEGL->Ok()) << "no EGL context on this machine";
    while (glGetError() != GL_NO_ERROR) {
    }
}

void GLTest::TearDown() {
    delete m_pEGL;
    m_pEGL = nullptr;
}

std::vector<unsigned char> GETestReadTexture(GLuint tex, int w, int h) {
    GLint oldFbo = 0;
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &oldFbo);
    GLuint fbo = 0;
    glGenFramebuffers(1, &fbo);
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, tex, 0);
    std::vector<unsigned char> pixels((size_t)w * h * 4, 0);
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE) {
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        glReadPixels(0, 0, w, h, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    }
    glBindFramebuffer(GL_FRAMEBUFFER, (GLuint)oldFbo);
    glDeleteFramebuffers(1, &fbo);
    return pixels;
}
