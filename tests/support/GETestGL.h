// An EGL context brought up the way the worker does it (default display, a
// 1 x 1 pbuffer, an OpenGL ES 2 context), current on the calling thread and
// published in g_eglDisplay / g_eglContext, for tests of GL code.
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

// Renders nothing; reads back the RGBA texels of texture `tex` (w x h)
// through a temporary framebuffer.
std::vector<unsigned char> GETestReadTexture(GLuint tex, int w, int h);

#endif
