// GLFbo: creation, the binding behaviour of both attachment forms on complete
// and incomplete framebuffers, detaching, and teardown.
#include <GLES2/gl2.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "GETestGL.h"
#include "GETestLog.h"
#include "gl/GLFbo.h"
#include "gl/GLTexture.h"

namespace {

const int I = ANDROID_LOG_INFO;
const int E = ANDROID_LOG_ERROR;

GLuint BoundFbo() {
    GLint v = -1;
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &v);
    return (GLuint)v;
}

GLuint BoundTexture() {
    GLint v = -1;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &v);
    return (GLuint)v;
}

GLuint AttachedName() {
    GLint v = -1;
    glGetFramebufferAttachmentParameteriv(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0,
                                          GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &v);
    return (GLuint)v;
}

// Another framebuffer, complete, bound by the caller's code.
struct OtherFbo {
    GLuint fbo = 0, tex = 0;
    OtherFbo() {
        glGenTextures(1, &tex);
        glBindTexture(GL_TEXTURE_2D, tex);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 4, 4, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        glGenFramebuffers(1, &fbo);
        glBindFramebuffer(GL_FRAMEBUFFER, fbo);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, tex, 0);
        glBindTexture(GL_TEXTURE_2D, 0);
    }
    ~OtherFbo() {
        glDeleteFramebuffers(1, &fbo);
        glDeleteTextures(1, &tex);
    }
};

std::string Text(const char* fmt, unsigned n) {
    char s[160];
    snprintf(s, sizeof(s), fmt, n);
    return s;
}

using FboTest = GLTest;

TEST_F(FboTest, InitGeneratesAName) {
    GETestLog log;
    GLFbo fbo;
    EXPECT_EQ(fbo.GetFboName(), 0u);
    EXPECT_EQ(fbo.GetTexture(), nullptr);
    EXPECT_EQ(fbo.Init(), 1);
    EXPECT_NE(fbo.GetFboName(), 0u);
    EXPECT_TRUE(log.HasExact(I, "GLFbo", Text("[Init] fbo %u created", fbo.GetFboName())))
        << log.Dump();
    EXPECT_EQ(fbo.Bind(), 1);
    EXPECT_EQ(BoundFbo(), fbo.GetFboName());
    log.Clear();
    EXPECT_EQ(fbo.Unbind(), 1);
    EXPECT_EQ(BoundFbo(), 0u);
    std::vector<GETestLogLine> lines = log.Lines();
    ASSERT_EQ(lines.size(), 3u) << log.Dump();
    EXPECT_EQ(lines[0].text, "[Unbind] enter");
    EXPECT_EQ(lines[1].text, Text("[Unbind] Unbind fbo %u", fbo.GetFboName()));
    EXPECT_EQ(lines[2].text, "[Unbind] leave");
}

TEST_F(FboTest, CompleteAttachmentKeepsTheCallersBinding) {
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, 8, 4, 0), 1);
    GLFbo fbo;
    ASSERT_EQ(fbo.Init(), 1);

    // Another framebuffer bound: it is bound again afterwards.
    OtherFbo other;
    ASSERT_EQ(BoundFbo(), other.fbo);
    GETestLog log;
    EXPECT_EQ(fbo.SetColorAttachment(GL_TEXTURE_2D, tex.GetTexName()), 1);
    EXPECT_EQ(BoundFbo(), other.fbo);
    EXPECT_EQ(BoundTexture(), tex.GetTexName());  // the texture binding is left changed
    EXPECT_FALSE(log.Has(E, "GLFbo", "not complete")) << log.Dump();
    EXPECT_EQ(fbo.GetTexture(), nullptr);  // the raw form remembers nothing

    // The attachment is real: clearing through the framebuffer fills the texture.
    fbo.Bind();
    EXPECT_EQ(AttachedName(), tex.GetTexName());
    glViewport(0, 0, 8, 4);
    glClearColor(0.0f, 1.0f, 0.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    std::vector<unsigned char> px = GETestReadTexture(tex.GetTexName(), 8, 4);
    for (size_t i = 0; i < px.size(); i += 4) {
        ASSERT_EQ(px[i + 0], 0);
        ASSERT_EQ(px[i + 1], 255);
        ASSERT_EQ(px[i + 2], 0);
        ASSERT_EQ(px[i + 3], 255);
    }

    // Framebuffer 0 bound: 0 again afterwards.
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    EXPECT_EQ(fbo.SetColorAttachment(&tex), 1);
    EXPECT_EQ(BoundFbo(), 0u);
    EXPECT_EQ(fbo.GetTexture(), &tex);

    // This framebuffer bound: it stays bound.
    fbo.Bind();
    EXPECT_EQ(fbo.SetColorAttachment(&tex), 1);
    EXPECT_EQ(BoundFbo(), fbo.GetFboName());
}

TEST_F(FboTest, IncompleteAttachmentLeavesThisFramebufferBound) {
    // Luminance is not colour-renderable.
    GLTexture lum;
    ASSERT_EQ(lum.Init(GL_LUMINANCE, GL_UNSIGNED_BYTE, 8, 4, 0), 1);
    GLFbo fbo;
    ASSERT_EQ(fbo.Init(), 1);
    OtherFbo other;

    GETestLog log;
    EXPECT_EQ(fbo.SetColorAttachment(GL_TEXTURE_2D, lum.GetTexName()), 0);
    EXPECT_EQ(BoundFbo(), fbo.GetFboName());
    GLenum status = glCheckFramebufferStatus(GL_FRAMEBUFFER);
    ASSERT_NE(status, (GLenum)GL_FRAMEBUFFER_COMPLETE);
    EXPECT_TRUE(log.HasExact(
        E, "GLFbo", Text("[GLFbo::SetColorAttachment] ERROR, FBO not complete, status %u", status)))
        << log.Dump();

    // The GLTexture form returns 1 all the same, after the same line.
    glBindFramebuffer(GL_FRAMEBUFFER, other.fbo);
    log.Clear();
    EXPECT_EQ(fbo.SetColorAttachment(&lum), 1);
    EXPECT_EQ(fbo.GetTexture(), &lum);
    EXPECT_EQ(BoundFbo(), fbo.GetFboName());
    EXPECT_EQ(log.Count("ERROR, FBO not complete"), 1) << log.Dump();

    // A complete attachment afterwards restores nothing: the caller's binding
    // is now this framebuffer.
    GLTexture rgba;
    ASSERT_EQ(rgba.Init(GL_RGBA, GL_UNSIGNED_BYTE, 8, 4, 0), 1);
    EXPECT_EQ(fbo.SetColorAttachment(&rgba), 1);
    EXPECT_EQ(BoundFbo(), fbo.GetFboName());
    EXPECT_EQ(glCheckFramebufferStatus(GL_FRAMEBUFFER), (GLenum)GL_FRAMEBUFFER_COMPLETE);
}

TEST_F(FboTest, NullTextureIsRefused) {
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, 4, 4, 0), 1);
    GLFbo fbo;
    ASSERT_EQ(fbo.Init(), 1);
    ASSERT_EQ(fbo.SetColorAttachment(&tex), 1);
    GETestLog log;
    EXPECT_EQ(fbo.SetColorAttachment(nullptr), 0);
    EXPECT_TRUE(log.HasExact(E, "GLFbo", "[GLFbo::SetColorAttachment] invalid pTexture"));
    EXPECT_EQ(fbo.GetTexture(), &tex);
}

TEST_F(FboTest, ResetDetachesAndKeepsThisFramebufferBound) {
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, 4, 4, 0), 1);
    GLFbo fbo;
    ASSERT_EQ(fbo.Init(), 1);
    ASSERT_EQ(fbo.SetColorAttachment(&tex), 1);
    OtherFbo other;
    GETestLog log;
    EXPECT_EQ(fbo.ResetColorAttachment(), 1);
    EXPECT_EQ(BoundFbo(), fbo.GetFboName());
    EXPECT_EQ(AttachedName(), 0u);
    EXPECT_EQ(fbo.GetTexture(), nullptr);
    EXPECT_TRUE(glIsTexture(tex.GetTexName()));
    std::vector<GETestLogLine> lines = log.Lines();
    ASSERT_EQ(lines.size(), 3u) << log.Dump();
    EXPECT_EQ(lines[0].text, "[ResetColorAttachment] enter");
    EXPECT_EQ(lines[1].text,
              Text("[ResetColorAttachment] attaching tex 0 to fbo %u", fbo.GetFboName()));
    EXPECT_EQ(lines[2].text, "[ResetColorAttachment] leave");
}

TEST_F(FboTest, DeletionDetachesUnbindsAndSparesTheTexture) {
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, 4, 4, 0), 1);
    GLFbo* fbo = new GLFbo();
    ASSERT_EQ(fbo->Init(), 1);
    ASSERT_EQ(fbo->SetColorAttachment(&tex), 1);
    GLuint name = fbo->GetFboName();
    ASSERT_TRUE(glIsFramebuffer(name));
    OtherFbo other;

    GETestLog log;
    delete fbo;
    EXPECT_FALSE(glIsFramebuffer(name));
    EXPECT_EQ(BoundFbo(), 0u);
    EXPECT_TRUE(glIsTexture(tex.GetTexName()));
    EXPECT_EQ(glGetError(), (GLenum)GL_NO_ERROR);
    std::vector<std::string> texts;
    for (const GETestLogLine& l : log.Lines()) {
        texts.push_back(l.text);
    }
    std::vector<std::string> expected = {
        "[~GLFbo] enter",
        "[ResetColorAttachment] enter",
        Text("[ResetColorAttachment] attaching tex 0 to fbo %u", name),
        "[ResetColorAttachment] leave",
        "[Unbind] enter",
        Text("[Unbind] Unbind fbo %u", name),
        "[Unbind] leave",
        "[~GLFbo] leave",
    };
    EXPECT_EQ(texts, expected) << log.Dump();
}

TEST_F(FboTest, DeletingAnUninitialisedFramebufferTouchesNothing) {
    OtherFbo other;
    GETestLog log;
    GLFbo* fbo = new GLFbo();
    delete fbo;
    // No Bind, Reset or Unbind ran: the caller's framebuffer is still bound.
    EXPECT_EQ(BoundFbo(), other.fbo);
    EXPECT_TRUE(glIsFramebuffer(other.fbo));
    EXPECT_EQ(glGetError(), (GLenum)GL_NO_ERROR);
    std::vector<GETestLogLine> lines = log.Lines();
    ASSERT_EQ(lines.size(), 2u) << log.Dump();
    EXPECT_EQ(lines[0].text, "[~GLFbo] enter");
    EXPECT_EQ(lines[1].text, "[~GLFbo] leave");
}

TEST_F(FboTest, RendersIntoAStreamingTexture) {
    GLTexture st;
    ASSERT_EQ(st.Init(GL_RGBA, GL_UNSIGNED_BYTE, 32, 2, 1), 1);
    GLFbo fbo;
    ASSERT_EQ(fbo.Init(), 1);
    ASSERT_EQ(fbo.SetColorAttachment(&st), 1);
    fbo.Bind();
    glViewport(0, 0, 32, 2);
    glClearColor(1.0f, 0.0f, 1.0f, 0.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    glFinish();
    ASSERT_EQ(st.clean_buffer(), 1);
    const unsigned char* data = st.GetSTDataBuf();
    ASSERT_NE(data, nullptr);
    for (int y = 0; y < 2; ++y) {
        for (int x = 0; x < 32; ++x) {
            const unsigned char* p = data + (size_t)y * st.GetStride() * 4 + x * 4;
            ASSERT_EQ(p[0], 255);
            ASSERT_EQ(p[1], 0);
            ASSERT_EQ(p[2], 255);
            ASSERT_EQ(p[3], 0);
        }
    }
    fbo.Unbind();
}

}  // namespace
