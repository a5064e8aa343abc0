// GLFbo: the binding behaviour of both attachment forms on complete and
// incomplete framebuffers, detaching, teardown, and rendering into a
// streaming texture.
#include "gl/GLFbo.h"

#include <GLES2/gl2.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include "GETestGL.h"
#include "GETestLog.h"
#include "gl/GLTexture.h"

namespace {

const int E = ANDROID_LOG_ERROR;

GLuint Bound(GLenum binding) {
    GLint v = -1;
    glGetIntegerv(binding, &v);
    return (GLuint)v;
}

GLuint AttachedName() {
    GLint v = -1;
    glGetFramebufferAttachmentParameteriv(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0,
                                          GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &v);
    return (GLuint)v;
}

class FboTest : public GLTest {
protected:
    void SetUp() override {
        GLTest::SetUp();
        m_pTex.reset(new GLTexture());
        m_pFbo.reset(new GLFbo());
        ASSERT_EQ(m_pTex->Init(GL_RGBA, GL_UNSIGNED_BYTE, 8, 4, 0), 1);
        ASSERT_EQ(m_pFbo->Init(), 1);
        ASSERT_NE(m_pFbo->GetFboName(), 0u);
    }
    void TearDown() override {
        m_pFbo.reset();
        m_pTex.reset();
        GLTest::TearDown();
    }
    std::unique_ptr<GLTexture> m_pTex;
    std::unique_ptr<GLFbo> m_pFbo;
};

TEST_F(FboTest, CompleteAttachmentKeepsTheCallersBinding) {
    GETestTarget other(4, 4);  // the caller's framebuffer, bound
    GETestLog log;
    EXPECT_EQ(m_pFbo->SetColorAttachment(GL_TEXTURE_2D, m_pTex->GetTexName()), 1);
    EXPECT_EQ(Bound(GL_FRAMEBUFFER_BINDING), other.Fbo());
    EXPECT_EQ(Bound(GL_TEXTURE_BINDING_2D), m_pTex->GetTexName());  // left changed
    EXPECT_EQ(m_pFbo->GetTexture(), nullptr);  // the raw form remembers nothing
    EXPECT_EQ(log.Count("not complete"), 0) << log.Dump();

    // The attachment is real: a clear through the framebuffer fills the texture.
    ASSERT_EQ(m_pFbo->Bind(), 1);
    EXPECT_EQ(AttachedName(), m_pTex->GetTexName());
    glClearColor(0.0f, 1.0f, 0.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    std::vector<unsigned char> px = GETestReadTexture(m_pTex->GetTexName(), 8, 4);
    const unsigned char green[4] = {0, 255, 0, 255};
    for (size_t i = 0; i < px.size(); i += 4) {
        ASSERT_EQ(memcmp(&px[i], green, 4), 0) << i;
    }

    // Framebuffer 0 bound: 0 again afterwards; this one bound: it stays.
    ASSERT_EQ(m_pFbo->Unbind(), 1);
    EXPECT_EQ(m_pFbo->SetColorAttachment(m_pTex.get()), 1);
    EXPECT_EQ(Bound(GL_FRAMEBUFFER_BINDING), 0u);
    EXPECT_EQ(m_pFbo->GetTexture(), m_pTex.get());
    m_pFbo->Bind();
    EXPECT_EQ(m_pFbo->SetColorAttachment(m_pTex.get()), 1);
    EXPECT_EQ(Bound(GL_FRAMEBUFFER_BINDING), m_pFbo->GetFboName());

    // A null texture is refused and the remembered one kept.
    EXPECT_EQ(m_pFbo->SetColorAttachment(nullptr), 0);
    EXPECT_TRUE(log.HasExact(E, "GLFbo", "[GLFbo::SetColorAttachment] invalid pTexture"));
    EXPECT_EQ(m_pFbo->GetTexture(), m_pTex.get());
}

TEST_F(FboTest, IncompleteAttachmentLeavesThisFramebufferBound) {
    GLTexture lum;  // luminance is not colour-renderable
    ASSERT_EQ(lum.Init(GL_LUMINANCE, GL_UNSIGNED_BYTE, 8, 4, 0), 1);
    GETestTarget other(4, 4);
    GETestLog log;
    EXPECT_EQ(m_pFbo->SetColorAttachment(GL_TEXTURE_2D, lum.GetTexName()), 0);
    EXPECT_EQ(Bound(GL_FRAMEBUFFER_BINDING), m_pFbo->GetFboName());
    GLenum status = glCheckFramebufferStatus(GL_FRAMEBUFFER);
    ASSERT_NE(status, (GLenum)GL_FRAMEBUFFER_COMPLETE);
    std::string line =
        GETestFormat("[GLFbo::SetColorAttachment] ERROR, FBO not complete, status %u", status);
    EXPECT_EQ(log.Texts(), std::vector<std::string>{line});

    // The GLTexture form returns 1 all the same, after the same line.
    other.Bind();
    log.Clear();
    EXPECT_EQ(m_pFbo->SetColorAttachment(&lum), 1);
    EXPECT_EQ(m_pFbo->GetTexture(), &lum);
    EXPECT_EQ(Bound(GL_FRAMEBUFFER_BINDING), m_pFbo->GetFboName());
    EXPECT_EQ(log.Texts(E), std::vector<std::string>{line});
}

TEST_F(FboTest, ResetDetachesAndKeepsThisFramebufferBound) {
    ASSERT_EQ(m_pFbo->SetColorAttachment(m_pTex.get()), 1);
    GETestTarget other(4, 4);
    EXPECT_EQ(m_pFbo->ResetColorAttachment(), 1);
    EXPECT_EQ(Bound(GL_FRAMEBUFFER_BINDING), m_pFbo->GetFboName());
    EXPECT_EQ(AttachedName(), 0u);
    EXPECT_EQ(m_pFbo->GetTexture(), nullptr);
    EXPECT_TRUE(glIsTexture(m_pTex->GetTexName()));
}

// Deletion detaches, unbinds and deletes, in this order, and spares the
// texture; an uninitialised framebuffer makes no call at all.
TEST_F(FboTest, Deletion) {
    GLFbo* fbo = new GLFbo();
    ASSERT_EQ(fbo->Init(), 1);
    ASSERT_EQ(fbo->SetColorAttachment(m_pTex.get()), 1);
    GLuint name = fbo->GetFboName();
    GETestTarget other(4, 4);
    GETestLog log;
    delete fbo;
    EXPECT_FALSE(glIsFramebuffer(name));
    EXPECT_EQ(Bound(GL_FRAMEBUFFER_BINDING), 0u);
    EXPECT_TRUE(glIsTexture(m_pTex->GetTexName()));
    EXPECT_EQ(glGetError(), (GLenum)GL_NO_ERROR);
    std::vector<std::string> expected = {
        "[~GLFbo] enter",
        "[ResetColorAttachment] enter",
        GETestFormat("[ResetColorAttachment] attaching tex 0 to fbo %u", name),
        "[ResetColorAttachment] leave",
        "[Unbind] enter",
        GETestFormat("[Unbind] Unbind fbo %u", name),
        "[Unbind] leave",
        "[~GLFbo] leave",
    };
    EXPECT_EQ(log.Texts(), expected);

    other.Bind();
    log.Clear();
    delete new GLFbo();
    EXPECT_EQ(Bound(GL_FRAMEBUFFER_BINDING), other.Fbo());
    EXPECT_EQ(glGetError(), (GLenum)GL_NO_ERROR);
    EXPECT_EQ(log.Texts(), (std::vector<std::string>{"[~GLFbo] enter", "[~GLFbo] leave"}));
}

// A render through the framebuffer into a streaming texture reaches its
// buffer, at the buffer's stride, after the cache clean.
TEST_F(FboTest, RendersIntoAStreamingTexture) {
    const int w = 24, h = 6;
    GLTexture st;
    ASSERT_EQ(st.Init(GL_RGBA, GL_UNSIGNED_BYTE, w, h, 1), 1);
    const int allocW = (int)st.GetAllocWidth();
    const size_t pitch = (size_t)st.GetStride() * 4;
    unsigned char* data = st.GetSTDataBuf();
    ASSERT_NE(data, nullptr);
    memset(data, 0x5A, pitch * h);  // poison
    ASSERT_EQ(st.clean_buffer(), 1);

    ASSERT_EQ(m_pFbo->SetColorAttachment(&st), 1);
    m_pFbo->Bind();
    glViewport(0, 0, allocW, h);
    glClearColor(10 / 255.0f, 20 / 255.0f, 30 / 255.0f, 40 / 255.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    glEnable(GL_SCISSOR_TEST);
    glScissor(3, 1, 5, 2);
    glClearColor(1.0f, 128 / 255.0f, 0.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    glDisable(GL_SCISSOR_TEST);
    glFinish();
    m_pFbo->Unbind();

    ASSERT_EQ(st.clean_buffer(), 1);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < allocW; ++x) {
            bool inside = x >= 3 && x < 8 && y >= 1 && y < 3;
            const unsigned char want[4] = {
                (unsigned char)(inside ? 255 : 10), (unsigned char)(inside ? 128 : 20),
                (unsigned char)(inside ? 0 : 30), (unsigned char)(inside ? 255 : 40)};
            ASSERT_EQ(memcmp(data + y * pitch + x * 4, want, 4), 0) << x << "," << y;
        }
    }
}

}  // namespace
