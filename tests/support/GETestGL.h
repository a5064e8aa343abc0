// GL helpers for tests:
// - GETestEGL / GLTest: an EGL context brought up the way the worker does it
//   (default display, a 1 x 1 pbuffer, an OpenGL ES 2 context), current on the
//   calling thread and published in g_eglDisplay / g_eglContext;
// - GETestTarget: a framebuffer to render into, clear or paint, and read back;
// - GETestReadTexture / GETestSampleTexture: a texture's texels, read through
//   a framebuffer or as a sampling shader sees them.
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

// A fixture with a fresh context per test; pending GL errors are cleared
// before the test body runs.
class GLTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    GETestEGL* m_pEGL = nullptr;
};

// A framebuffer over a w x h RGBA texture of its own, or over the caller's
// texture `tex` (not owned). Construction leaves it bound with a w x h
// viewport; destruction binds framebuffer 0.
class GETestTarget {
public:
    GETestTarget(int w, int h);
    GETestTarget(GLuint tex, int w, int h);
    ~GETestTarget();

    bool Complete() const { return m_bComplete; }
    GLuint Fbo() const { return m_nFbo; }
    GLuint Tex() const { return m_nTex; }
    // Binds the framebuffer and sets the viewport to the whole target.
    void Bind();
    // Clears the whole target, or the rectangle (x, y, w, h) through the
    // scissor, to one colour; does not wait for the GPU.
    void Fill(float r, float g, float b, float a);
    void Fill(int x, int y, int w, int h, float r, float g, float b, float a);
    // The target's RGBA bytes, rows bottom first, after waiting for the GPU.
    std::vector<unsigned char> Read();

private:
    GETestTarget(const GETestTarget&) = delete;
    GETestTarget& operator=(const GETestTarget&) = delete;
    void Attach();

    int m_nW, m_nH;
    GLuint m_nTex = 0, m_nFbo = 0;
    bool m_bOwnTex = false;
    bool m_bComplete = false;
};

// Reads back the RGBA texels of texture `tex` (w x h) through a temporary
// framebuffer; the caller's framebuffer binding is kept.
std::vector<unsigned char> GETestReadTexture(GLuint tex, int w, int h);

// Texels (0, 0) to (w - 1, h - 1) of `tex` as a shader samples them at their
// centres with nearest filtering (the texture's filters are restored),
// drawn one texel per pixel into a w x h target: RGBA, rows bottom first.
// Framebuffer 0 is bound afterwards.
std::vector<unsigned char> GETestSampleTexture(GLuint tex, int w, int h);

#endif
