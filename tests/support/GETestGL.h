// GL helpers for tests:
// - GETestEGL / GLTest: an EGL context brought up the way the worker does it
//   (default display, 1 x 1 pbuffer, OpenGL ES 2), current on the calling
//   thread and published in g_eglDisplay / g_eglContext; GLTest makes a fresh
//   one per test and clears pending GL errors first;
// - GETestTarget: a framebuffer over a w x h RGBA texture of its own or the
//   caller's, bound with a w x h viewport while it lives, to fill and read;
// - GETestReadTexture: a colour-renderable texture's texels read through a
//   framebuffer: RGBA, rows bottom first;
// - GETestSampleTexture: any texture's texels as a sampling shader sees them
//   (luminance ones too).
#ifndef POSTEFFECT_TESTS_GETESTGL_H
#define POSTEFFECT_TESTS_GETESTGL_H

#include <EGL/egl.h>
#include <GLES2/gl2.h>
#include <gtest/gtest.h>

#include <vector>

class GETestEGL {
public:
    GETestEGL();
    ~GETestEGL();
    bool Ok() const { return m_bOk; }

private:
    EGLDisplay m_display = EGL_NO_DISPLAY;
    EGLSurface m_surface = EGL_NO_SURFACE;
    EGLContext m_context = EGL_NO_CONTEXT;
    bool m_bOk = false;
};

class GLTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    GETestEGL* m_pEGL = nullptr;
};

class GETestTarget {
public:
    GETestTarget(int w, int h, GLuint tex = 0);  // tex 0: a texture of its own
    ~GETestTarget();
    void Bind();
    // Clears the whole target to one colour.
    void Fill(float r, float g, float b, float a);
    std::vector<unsigned char> Read();

private:
    GETestTarget(const GETestTarget&) = delete;
    GETestTarget& operator=(const GETestTarget&) = delete;
    int m_nW, m_nH;
    GLuint m_nTex, m_nFbo = 0;
    bool m_bOwnTex;
};

std::vector<unsigned char> GETestReadTexture(GLuint tex, int w, int h);
// The w x h texels of a texture sampled at their centres with nearest
// filtering (its filters are restored), one texel per pixel of a target:
// RGBA, rows bottom first.
std::vector<unsigned char> GETestSampleTexture(GLuint tex, int w, int h);

#endif
