#include "GETestGL.h"

#include "engine/GEManager.h"
#include "gl/GECommon.h"

GETestEGL::GETestEGL() {
    m_display = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    if (m_display == EGL_NO_DISPLAY || !eglInitialize(m_display, nullptr, nullptr)) {
        return;
    }
    EGLConfig config;
    EGLint n = 0;
    if (!eglChooseConfig(m_display, GEManager::kConfigAttribs, &config, 1, &n) || n < 1) {
        return;
    }
    const EGLint contextAttribs[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    const EGLint surfaceAttribs[] = {EGL_WIDTH, 1, EGL_HEIGHT, 1, EGL_NONE};
    m_context = eglCreateContext(m_display, config, EGL_NO_CONTEXT, contextAttribs);
    m_surface = eglCreatePbufferSurface(m_display, config, surfaceAttribs);
    if (m_context != EGL_NO_CONTEXT && m_surface != EGL_NO_SURFACE &&
        eglMakeCurrent(m_display, m_surface, m_surface, m_context)) {
        GESetEGLGlobals(m_display, m_context);
        m_bOk = true;
    }
}

GETestEGL::~GETestEGL() {
    if (m_display != EGL_NO_DISPLAY) {
        eglMakeCurrent(m_display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        eglDestroySurface(m_display, m_surface);
        eglDestroyContext(m_display, m_context);
        eglTerminate(m_display);
        GESetEGLGlobals(EGL_NO_DISPLAY, EGL_NO_CONTEXT);
    }
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

GETestTarget::GETestTarget(int w, int h, GLuint tex)
    : m_nW(w), m_nH(h), m_nTex(tex), m_bOwnTex(tex == 0) {
    if (m_bOwnTex) {
        glGenTextures(1, &m_nTex);
        glBindTexture(GL_TEXTURE_2D, m_nTex);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        glBindTexture(GL_TEXTURE_2D, 0);
    }
    glGenFramebuffers(1, &m_nFbo);
    glBindFramebuffer(GL_FRAMEBUFFER, m_nFbo);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, m_nTex, 0);
    glViewport(0, 0, w, h);
}

GETestTarget::~GETestTarget() {
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDeleteFramebuffers(1, &m_nFbo);
    if (m_bOwnTex) {
        glDeleteTextures(1, &m_nTex);
    }
}

void GETestTarget::Bind() {
    glBindFramebuffer(GL_FRAMEBUFFER, m_nFbo);
    glViewport(0, 0, m_nW, m_nH);
}

void GETestTarget::Fill(float r, float g, float b, float a) {
    Bind();
    glClearColor(r, g, b, a);
    glClear(GL_COLOR_BUFFER_BIT);
}

std::vector<unsigned char> GETestTarget::Read() {
    glFinish();
    return GETestReadTexture(m_nTex, m_nW, m_nH);
}

std::vector<unsigned char> GETestReadTexture(GLuint tex, int w, int h) {
    GLint oldFbo = 0;
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &oldFbo);
    GLuint fbo = 0;
    glGenFramebuffers(1, &fbo);
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, tex, 0);
    std::vector<unsigned char> pixels((size_t)w * h * 4, 0);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, w, h, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    glBindFramebuffer(GL_FRAMEBUFFER, (GLuint)oldFbo);
    glDeleteFramebuffers(1, &fbo);
    return pixels;
}

std::vector<unsigned char> GETestSampleTexture(GLuint tex, int w, int h) {
    // Fragment (x + 0.5, y + 0.5) reads the centre of texel (x, y).
    static const char* kVs = "attribute vec4 a_pos;\nvoid main() { gl_Position = a_pos; }\n";
    static const char* kFs =
        "precision highp float;\n"
        "uniform sampler2D s_tex;\n"
        "uniform vec2 u_size;\n"
        "void main() { gl_FragColor = texture2D(s_tex, gl_FragCoord.xy / u_size); }\n";
    GLuint prog = glCreateProgram();
    for (GLenum type : {(GLenum)GL_VERTEX_SHADER, (GLenum)GL_FRAGMENT_SHADER}) {
        GLuint sh = glCreateShader(type);
        const char* src = type == GL_VERTEX_SHADER ? kVs : kFs;
        glShaderSource(sh, 1, &src, nullptr);
        glCompileShader(sh);
        glAttachShader(prog, sh);
        glDeleteShader(sh);
    }
    glBindAttribLocation(prog, 0, "a_pos");
    glLinkProgram(prog);
    std::vector<unsigned char> out;
    {
        GETestTarget target(w, h);
        target.Fill(0.5f, 0.5f, 0.5f, 0.5f);  // poison: every pixel must be drawn
        glActiveTexture(GL_TEXTURE0);
        glBindTexture(GL_TEXTURE_2D, tex);
        GLint minFilter = 0, magFilter = 0;
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &minFilter);
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, &magFilter);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        glUseProgram(prog);
        glUniform1i(glGetUniformLocation(prog, "s_tex"), 0);
        glUniform2f(glGetUniformLocation(prog, "u_size"), (float)w, (float)h);
        const GLfloat pos[] = {-1, -1, 1, -1, -1, 1, 1, 1};
        glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, pos);
        glEnableVertexAttribArray(0);
        glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
        glDisableVertexAttribArray(0);
        glUseProgram(0);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, minFilter);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, magFilter);
        glBindTexture(GL_TEXTURE_2D, 0);
        out = target.Read();
    }
    glDeleteProgram(prog);
    EXPECT_EQ(glGetError(), (GLenum)GL_NO_ERROR);
    return out;
}
