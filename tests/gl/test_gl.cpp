// The GL toolkit where the effects do not reach it end to end: the error
// checks, texture kinds and their refusals, wrapped buffers,
// framebuffer bindings, program builds and their failures, the uniform and
// attribute helpers, and program binaries.
#include <EGL/egl.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <android/log.h>
#include <gralloc_priv.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <system/graphics.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "GETestFile.h"
#include "GETestGL.h"
#include "GETestLog.h"
#include "gl/GECommon.h"
#include "gl/GLFbo.h"
#include "gl/GLProgram.h"
#include "gl/GLQuad.h"
#include "gl/GLTexture.h"

namespace {

const int E = ANDROID_LOG_ERROR;
typedef std::vector<unsigned char> Pixels;

GLuint Bound(GLenum binding) {
    GLint v = -1;
    glGetIntegerv(binding, &v);
    return (GLuint)v;
}

using GLToolkitTest = GLTest;

EGLint s_value;  // not a surface either

// A failed check answers 0 with the error's name, consumes the error, and
// the next check answers 1.
TEST_F(GLToolkitTest, ErrorChecksNameTheErrorOnce) {
    GETestLog log;
    const struct {
        void (*provoke)();
        bool egl;
        const char* line;
    } cases[] = {
        {[] { glEnable(0x1234); }, false, "0x500 GL_INVALID_ENUM"},
        {[] { glViewport(0, 0, -1, 1); }, false, "0x501 GL_INVALID_VALUE"},
        {[] { glDrawArrays(GL_TRIANGLES, 0, -1); }, false, "0x501 GL_INVALID_VALUE"},
        {[] {
             glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 1, 1, 0, GL_RGBA, GL_UNSIGNED_SHORT_5_6_5,
                          nullptr);
         },
         false, "0x502 GL_INVALID_OPERATION"},
        {[] { eglQuerySurface(EGL_NO_DISPLAY, EGL_NO_SURFACE, EGL_WIDTH, &s_value); }, true,
         "0x3008 EGL_BAD_DISPLAY"},
        {[] { eglQuerySurface(eglGetCurrentDisplay(), &s_value, EGL_WIDTH, &s_value); }, true,
         "0x300D EGL_BAD_SURFACE"},
    };
    for (const auto& c : cases) {
        log.Clear();
        c.provoke();
        EXPECT_EQ(0u, c.egl ? CheckEGLError("W", "w") : CheckGLError("W", "w")) << c.line;
        EXPECT_EQ(1u, c.egl ? CheckEGLError("W", "w") : CheckGLError("W", "w")) << c.line;
        EXPECT_EQ(
            std::vector<std::string>{std::string("[W] ERROR, w failed with error: ") + c.line},
            log.Texts(E));
    }
}

// Normal textures of every known pair and of luminance; streaming ones
// (RGB 565, RGB 888, RGBA 8888) over a 32-aligned graphics buffer; the
// refusals leave an object that holds nothing.
TEST_F(GLToolkitTest, TextureKinds) {
    const struct {
        unsigned char st;
        unsigned format, type, w, bpp, allocW;
        int hal;  // the graphics buffer's format; -1: refused
    } cases[] = {
        {0, GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 100, 2, 100, 0},
        {0, GL_RGB, GL_UNSIGNED_BYTE, 100, 3, 100, 0},
        {0, GL_RGBA, GL_UNSIGNED_BYTE, 100, 4, 100, 0},
        {0, GL_LUMINANCE, GL_UNSIGNED_BYTE, 100, 0, 100, 0},
        {1, GL_RGBA, GL_UNSIGNED_BYTE, 100, 4, 128, HAL_PIXEL_FORMAT_RGBA_8888},
        {1, GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 40, 2, 64, HAL_PIXEL_FORMAT_RGB_565},
        {1, GL_RGB, GL_UNSIGNED_BYTE, 32, 3, 32, HAL_PIXEL_FORMAT_RGB_888},
        {1, GL_RGBA, GL_UNSIGNED_SHORT_5_6_5, 16, 0, 0, -1},
        {1, GL_LUMINANCE, GL_UNSIGNED_BYTE, 16, 0, 0, -1},
        {1, GLTexture::kFormatYUV, GL_UNSIGNED_BYTE, 16, 0, 0, -1},
        {0, GL_RGBA, GL_UNSIGNED_SHORT_5_6_5, 16, 0, 0, -1},  // GL_INVALID_OPERATION
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(GETestFormat("st %d format 0x%x type 0x%x", c.st, c.format, c.type));
        GLTexture tex;
        if (c.hal < 0) {
            EXPECT_EQ(0, tex.Init(c.format, c.type, c.w, 6, c.st));
            EXPECT_TRUE(!tex.IsST() && tex.GetGraphicBuffer() == nullptr &&
                        tex.GetWidth() == 0xFFFFFFFFu);
            continue;
        }
        ASSERT_EQ(1, tex.Init(c.format, c.type, c.w, 6, c.st));
        EXPECT_EQ((std::vector<unsigned>{c.st, c.w, c.allocW, 6, c.bpp, c.format, c.type,
                                         tex.GetTexName()}),
                  (std::vector<unsigned>{tex.IsST(), tex.GetWidth(), tex.GetAllocWidth(),
                                         tex.GetHeight(), tex.GetBytesPerPixel(), tex.GetFormat(),
                                         tex.GetType(), Bound(GL_TEXTURE_BINDING_2D)}));
        android::sp<android::GraphicBuffer> gb = tex.GetGraphicBuffer();
        if (!c.st) {
            EXPECT_TRUE(tex.GetSTDataBuf() == nullptr && tex.GetStride() == 0 && gb == nullptr);
            EXPECT_EQ(0, tex.clean_buffer());
            continue;
        }
        ASSERT_NE(nullptr, gb);
        EXPECT_EQ((std::vector<int>{(int)c.allocW, 6, c.hal, 0x130, (int)gb->getStride()}),
                  (std::vector<int>{(int)gb->getWidth(), (int)gb->getHeight(), gb->getPixelFormat(),
                                    (int)gb->getUsage(), (int)tex.GetStride()}));
        EXPECT_EQ(reinterpret_cast<const private_handle_t*>(gb->handle)->base,
                  (uintptr_t)tex.GetSTDataBuf());
        EXPECT_EQ(1, tex.clean_buffer());
        EXPECT_EQ(0, tex.UpdateNormalTexture(tex.GetSTDataBuf(), c.w, 6));  // not for an ST
    }
    GETestLog log;
    GLTexture tex;
    ASSERT_EQ(1, tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, 4, 4, 0));
    EXPECT_EQ(1, tex.SetParameteri(GL_TEXTURE_MIN_FILTER, GL_NEAREST));
    EXPECT_EQ(0, tex.SetParameteri(GL_TEXTURE_MIN_FILTER, 0x1234));
    glBindTexture(GL_TEXTURE_2D, 0);
    EXPECT_EQ(1, tex.Bind());
    EXPECT_EQ(tex.GetTexName(), Bound(GL_TEXTURE_BINDING_2D));
    EXPECT_EQ(1, log.Count("glTexParameteri failed"));
}

TEST_F(GLToolkitTest, UpdateNormalTextureReplacesThePixelsOfItsSize) {
    GLTexture tex;
    ASSERT_EQ(1, tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, 3, 2, 0));
    const Pixels pixels = GETestPattern(3 * 2 * 4, 5);
    EXPECT_EQ(1, tex.UpdateNormalTexture(pixels.data(), 3, 2));
    EXPECT_EQ(pixels, GETestReadTexture(tex.GetTexName(), 3, 2));
    GETestLog log;
    const Pixels other(16 * 16 * 4, 0x55);
    EXPECT_EQ(0, tex.UpdateNormalTexture(other.data(), 4, 2));
    EXPECT_EQ(0, tex.UpdateNormalTexture(other.data(), 3, 5));
    EXPECT_TRUE(log.HasExact(E, "GLTexture",
                             "[UpdateNormalTexture] ERROR, wrong input size 3x5, tex size is 3x2"));
    EXPECT_EQ(pixels, GETestReadTexture(tex.GetTexName(), 3, 2));
    EXPECT_EQ(1, tex.UpdateNormalTexture(nullptr, 0, 7));  // width 0: no size test
}

// A wrapped buffer is the texture's storage; a second buffer is refused, the
// same one again accepted. A YUV buffer makes an image but no texture. A
// held reference lives as long as the texture.
TEST_F(GLToolkitTest, WrappedBuffers) {
    auto buffer = [](int format, void** vaddr) {
        android::sp<android::GraphicBuffer> gb = new android::GraphicBuffer(64, 8, format, 0x130);
        EXPECT_EQ(android::NO_ERROR, gb->lock(0x30, vaddr));
        gb->unlock();
        return gb;
    };
    void *a = nullptr, *b = nullptr, *yuv = nullptr;
    android::sp<android::GraphicBuffer> ga = buffer(HAL_PIXEL_FORMAT_RGBA_8888, &a);
    android::sp<android::GraphicBuffer> gbuf = buffer(HAL_PIXEL_FORMAT_RGBA_8888, &b);
    android::sp<android::GraphicBuffer> gy = buffer(HAL_PIXEL_FORMAT_YCrCb_420_SP, &yuv);
    GLTexture* tex = new GLTexture();
    ASSERT_EQ(1, tex->Init(ga->getNativeBuffer(), GL_RGBA, GL_UNSIGNED_BYTE, 60, 8));
    EXPECT_EQ((std::vector<unsigned>{1, 60, 64, (unsigned)ga->getStride(), GL_TEXTURE_2D}),
              (std::vector<unsigned>{tex->IsST(), tex->GetWidth(), tex->GetAllocWidth(),
                                     tex->GetStride(), tex->GetTarget()}));
    EXPECT_EQ(a, (void*)tex->GetSTDataBuf());
    EXPECT_EQ(nullptr, tex->GetGraphicBuffer());
    EXPECT_EQ(0, tex->clean_buffer());  // only for a buffer it allocated
    EXPECT_EQ(0, tex->Init(gbuf->getNativeBuffer(), GL_RGBA, GL_UNSIGNED_BYTE, 60, 8));
    EXPECT_EQ(a, (void*)tex->GetSTDataBuf());
    EXPECT_EQ(1, tex->Init(ga->getNativeBuffer(), GL_RGBA, GL_UNSIGNED_BYTE, 60, 8));
    android::wp<android::GraphicBuffer> weak = gbuf;
    tex->HoldReference(1, gbuf);
    tex->HoldReference(2, gbuf);  // no such slot
    gbuf.clear();
    EXPECT_NE(nullptr, weak.promote());
    const GLuint name = tex->GetTexName();
    delete tex;
    EXPECT_FALSE(glIsTexture(name));
    EXPECT_EQ(nullptr, weak.promote());
    EXPECT_EQ(1, ga->getStrongCount()) << "the image gave its reference back";

    GETestLog log;
    GLTexture y;
    EXPECT_EQ(0, y.Init(gy->getNativeBuffer(), GLTexture::kFormatYUV, GL_UNSIGNED_BYTE, 64, 8));
    EXPECT_EQ(0xFFFFFFFFu, y.GetTarget());
    EXPECT_TRUE(log.Has(E, "GECommon", "[GLTexture::Init] ERROR, glBindTexture failed"));
}

// The raw form keeps the caller's framebuffer bound when the attachment is
// complete and leaves this one bound when it is not; the GLTexture form
// remembers the texture and answers 1 either way, but refuses null. Reset
// detaches; deletion detaches, unbinds and deletes, sparing the texture.
TEST_F(GLToolkitTest, FramebufferAttachments) {
    GLTexture rgba, lum;
    ASSERT_EQ(1, rgba.Init(GL_RGBA, GL_UNSIGNED_BYTE, 8, 4, 0));
    ASSERT_EQ(1, lum.Init(GL_LUMINANCE, GL_UNSIGNED_BYTE, 8, 4, 0));  // not renderable
    GLFbo* fbo = new GLFbo();
    ASSERT_EQ(1, fbo->Init());
    const GLuint name = fbo->GetFboName();
    GETestTarget other(4, 4);
    EXPECT_EQ(1, fbo->SetColorAttachment(GL_TEXTURE_2D, rgba.GetTexName()));
    EXPECT_EQ(other.Fbo(), Bound(GL_FRAMEBUFFER_BINDING));
    EXPECT_EQ(nullptr, fbo->GetTexture());
    fbo->Bind();
    glClearColor(0.0f, 1.0f, 0.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    const Pixels green = GETestReadTexture(rgba.GetTexName(), 8, 4);
    for (size_t k = 0; k < green.size(); ++k) {
        ASSERT_EQ(k % 4 == 1 || k % 4 == 3 ? 255 : 0, green[k]) << k;
    }
    other.Bind();
    EXPECT_EQ(0, fbo->SetColorAttachment(GL_TEXTURE_2D, lum.GetTexName()));
    EXPECT_EQ(name, Bound(GL_FRAMEBUFFER_BINDING));
    other.Bind();
    EXPECT_EQ(1, fbo->SetColorAttachment(&lum));
    EXPECT_EQ(&lum, fbo->GetTexture());
    EXPECT_EQ(0, fbo->SetColorAttachment(nullptr));
    EXPECT_EQ(&lum, fbo->GetTexture());
    EXPECT_EQ(1, fbo->ResetColorAttachment());
    GLint attached = -1;
    glGetFramebufferAttachmentParameteriv(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0,
                                          GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &attached);
    EXPECT_TRUE(attached == 0 && fbo->GetTexture() == nullptr);
    EXPECT_EQ(name, Bound(GL_FRAMEBUFFER_BINDING));
    delete fbo;
    EXPECT_TRUE(!glIsFramebuffer(name) && Bound(GL_FRAMEBUFFER_BINDING) == 0);
    EXPECT_TRUE(glIsTexture(rgba.GetTexName()) && glIsTexture(lum.GetTexName()));
    other.Bind();
    delete new GLFbo();  // never made: makes no call
    EXPECT_EQ(other.Fbo(), Bound(GL_FRAMEBUFFER_BINDING));
    EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
}

const char kVsQuad[] =
    "attribute vec4 a_vertexCoord;\n"
    "attribute vec2 a_textureCoord;\n"
    "varying vec2 v_texCoord;\n"
    "void main() { gl_Position = a_vertexCoord; v_texCoord = a_textureCoord; }\n";
// The texture coordinate, and every uniform kind of the helpers.
const char kFsUniforms[] =
    "precision highp float;\n"
    "uniform int u_i;\n"
    "uniform float u_f, u_fv[2];\n"
    "uniform vec2 u_2f, u_2fv[2];\n"
    "uniform vec4 u_4f;\n"
    "varying vec2 v_texCoord;\n"
    "void main() {\n"
    "    vec4 u = u_4f + vec4(u_f, u_2f, float(u_i)) + vec4(u_fv[0], u_fv[1], u_2fv[0]) +\n"
    "             vec4(u_2fv[1], 0.0, 0.0);\n"
    "    gl_FragColor = vec4(v_texCoord, 0.0, 1.0) + step(1.0e9, dot(u, vec4(1.0))) * u;\n"
    "}\n";

enum { UNIFORM_I, UNIFORM_F, UNIFORM_2F, UNIFORM_4F, UNIFORM_FV, UNIFORM_2FV };

// A program over given sources that fetches the quad attributes and, when
// the shader has them, the test uniforms.
class GLProgTest : public GLProgram {
public:
    GLProgTest(const char* vs = kVsQuad, const char* fs = kFsUniforms) : m_szVs(vs), m_szFs(fs) {}
    using GLProgram::Load;
    using GLProgram::m_nAttribLoc;
    int Load() override { return GLProgram::Load(m_szVs, m_szFs) && FetchLocations(); }
    int FetchLocations() {
        int ok = GLPROG_ATTRIB_LOC(m_nVerCoordLoc, "a_vertexCoord") &&
                 GLPROG_ATTRIB_LOC(m_nTexCoordLoc, "a_textureCoord");
        const char* names[] = {"u_i", "u_f", "u_2f", "u_4f", "u_fv", "u_2fv"};
        for (int i = 0; ok && m_szFs == kFsUniforms && i < 6; ++i) {
            ok = FetchUniformLoc(m_nUniformLoc[i], names[i], names[i]);
        }
        return ok;
    }
    int FetchMissing() { return GLPROG_UNIFORM_LOC(m_nUniformLoc[9], "u_missing"); }

private:
    const char* m_szVs;
    const char* m_szFs;
};

// Shader and program objects among the names the next few objects would get.
int LiveObjects() {
    GLuint probe = glCreateShader(GL_VERTEX_SHADER);
    glDeleteShader(probe);
    int n = 0;
    for (GLuint name = 1; name <= probe + 32; name++) {
        n += (glIsShader(name) ? 1 : 0) + (glIsProgram(name) ? 1 : 0);
    }
    return n;
}

// A failed compile or link leaves no shader or program behind (a program
// loaded before is dropped too), Use then refuses, and a missing location
// is logged under the member's name. A good program is deleted with its
// object.
TEST_F(GLToolkitTest, ProgramBuildsAndTheirFailures) {
    const char kBroken[] = "void main() { this is not glsl; }\n";
    const char kVsVec2[] =  // the varying's type differs between the stages
        "attribute vec4 a_vertexCoord;\nvarying vec2 v_x;\n"
        "void main() { gl_Position = a_vertexCoord; v_x = a_vertexCoord.xy; }\n";
    const char kFsVec3[] =
        "precision mediump float;\nvarying vec3 v_x;\n"
        "void main() { gl_FragColor = vec4(v_x, 1.0); }\n";
    const struct {
        const char *vs, *fs, *line;
        int program;  // the name Use reports
    } cases[] = {
        {kBroken, kFsUniforms, "[Load] can't compile vertex shader", -1},
        {kVsQuad, kBroken, "[Load] can't compile fragment shader", -1},
        {kVsVec2, kFsVec3, "[Load] can't link program", 0},
        {nullptr, kFsUniforms, "[CompileShader] can't compile shader", -1},
    };
    ASSERT_EQ(0, LiveObjects());
    GETestLog log;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        GLProgTest prog(c.vs, c.fs);
        if (c.program == 0) {
            ASSERT_EQ(1, prog.Load(kVsQuad, kFsUniforms));
        }
        EXPECT_EQ(0, prog.Load(c.vs, c.fs));
        EXPECT_TRUE(log.HasExact(E, "GLProgram", c.line));
        EXPECT_EQ(0, LiveObjects());
        EXPECT_EQ(0, prog.Use());
        EXPECT_TRUE(
            log.HasExact(E, "GLProgram", GETestFormat("[Use] invalid program id %d", c.program)));
    }
    GLuint program = 0;
    {
        GLProgTest prog;
        ASSERT_EQ(1, prog.Load());
        program = prog.GetProgram();
        EXPECT_EQ(1, prog.Use());
        EXPECT_EQ(program, Bound(GL_CURRENT_PROGRAM));
        EXPECT_EQ(0, prog.FetchMissing());
        EXPECT_TRUE(log.HasExact(E, "GLProgram", "[LocIsValid] invalid m_nUniformLoc[9] == -1"));
        glUseProgram(0);
    }
    EXPECT_FALSE(glIsProgram(program));
    EXPECT_EQ(0, LiveObjects());
    EXPECT_EQ(1, GLProgram::LocIsValid("m", 0));
}

// The texture slots, each uniform helper's values in its uniform, and
// generic attributes drawing what the quad attributes draw.
TEST_F(GLToolkitTest, ProgramHelpers) {
    GLProgTest prog;
    int slot = 0;
    GLTexture* tex = reinterpret_cast<GLTexture*>(&slot);
    EXPECT_EQ(1, prog.SetTextures(7, tex));
    EXPECT_EQ(0, prog.SetTextures(8, tex));
    for (unsigned i = 0; i <= GLProgram::MAX_TEXTURES; i++) {
        EXPECT_EQ(i == 7 ? tex : nullptr, prog.GetTexture(i)) << i;
    }
    ASSERT_EQ(1, prog.Load());
    ASSERT_EQ(1, prog.Use());
    const float fv[2] = {0.15f, 0.35f}, f2v[4] = {0.55f, 0.65f, 0.8f, 0.95f};
    EXPECT_EQ(6, prog.Uniform1i(UNIFORM_I, 77) + prog.Uniform1f(UNIFORM_F, 0.2f) +
                     prog.Uniform2f(UNIFORM_2F, 0.45f, 0.7f) +
                     prog.Uniform4f(UNIFORM_4F, 0.1f, 0.3f, 0.6f, 0.9f) +
                     prog.Uniform1fv(UNIFORM_FV, 2, fv) + prog.Uniform2fv(UNIFORM_2FV, 2, f2v));
    const struct {
        const char* name;
        std::vector<float> want;
    } cases[] = {{"u_f", {0.2f}},
                 {"u_2f", {0.45f, 0.7f}},
                 {"u_4f", {0.1f, 0.3f, 0.6f, 0.9f}},
                 {"u_fv[0]", {0.15f}},
                 {"u_fv[1]", {0.35f}},
                 {"u_2fv[0]", {0.55f, 0.65f}},
                 {"u_2fv[1]", {0.8f, 0.95f}}};
    for (const auto& c : cases) {
        float got[4] = {-1, -1, -1, -1};
        glGetUniformfv(prog.GetProgram(), glGetUniformLocation(prog.GetProgram(), c.name), got);
        EXPECT_EQ(c.want, std::vector<float>(got, got + c.want.size())) << c.name;
    }
    GLint i = 0;
    glGetUniformiv(prog.GetProgram(), glGetUniformLocation(prog.GetProgram(), "u_i"), &i);
    EXPECT_EQ(77, i);
    EXPECT_EQ(0, prog.Uniform1f(UNIFORM_I, 1.0f));  // a float into an int
    EXPECT_EQ(0, prog.Uniform2fv(UNIFORM_F, 1, f2v));

    const int N = 8;
    GETestTarget target(N, N);
    prog.SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    prog.SetTextureCoord(g_nQuadTexCoordSize, g_fQuadTexCoord);
    prog.Draw();
    const Pixels quad = target.Read();
    for (int k = 0; k < N * N; k++) {  // (0, 0) at the bottom left
        EXPECT_NEAR((k % N + 0.5) / N * 255, quad[k * 4], 1) << k;
        EXPECT_NEAR((k / N + 0.5) / N * 255, quad[k * 4 + 1], 1) << k;
    }
    // Only the generic pointers can draw now.
    const GLfloat zeros[16] = {0};
    prog.SetVertexCoord(g_nQuadPosSize, zeros);
    prog.SetTextureCoord(g_nQuadTexCoordSize, zeros);
    target.Fill(0, 0, 0, 0);
    prog.m_nAttribLoc[0] = glGetAttribLocation(prog.GetProgram(), "a_vertexCoord");
    prog.m_nAttribLoc[1] = glGetAttribLocation(prog.GetProgram(), "a_textureCoord");
    prog.m_nAttribLoc[2] = -1;
    EXPECT_EQ(1, prog.VertexAttribPointer(0, g_nQuadPosSize, g_fQuadPos));
    EXPECT_EQ(1, prog.VertexAttribPointer(1, g_nQuadTexCoordSize, g_fQuadTexCoord));
    prog.Draw();
    EXPECT_EQ(quad, target.Read());
    EXPECT_EQ(0, prog.VertexAttribPointer(2, 2, g_fQuadTexCoord));
    EXPECT_EQ(0, prog.VertexAttribPointer(0, 5, g_fQuadPos));
}

// A saved binary loads into another object and renders the same; missing,
// short and damaged files are refused (a damaged one leaves an unlinked
// program that Use refuses), and an unlinked program saves nothing.
TEST_F(GLToolkitTest, ProgramBinaries) {
    const std::string path = testing::TempDir() + GETestFormat("posteffect_prog_%d", (int)getpid());
    GETestTarget target(4, 4);
    GLProgTest original;
    EXPECT_EQ(0, original.SaveBinary(path.c_str()));  // nothing loaded yet
    ASSERT_EQ(1, original.Load());
    ASSERT_EQ(1, original.Use());
    original.SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    original.SetTextureCoord(g_nQuadTexCoordSize, g_fQuadTexCoord);
    original.Draw();
    const Pixels expected = target.Read();
    EXPECT_EQ(0, original.SaveBinary("/nonexistent-posteffect-dir/prog.bin"));
    ASSERT_EQ(1, original.SaveBinary(path.c_str()));
    // The driver's format, little-endian, then its binary.
    const GETestBytes good = GETestReadFile(path);
    GLint length = 0;
    glGetProgramiv(original.GetProgram(), GL_PROGRAM_BINARY_LENGTH_OES, &length);
    GETestBytes binary((size_t)length);
    GLenum format = 0;
    glGetProgramBinaryOES(original.GetProgram(), length, nullptr, &format, binary.data());
    ASSERT_EQ((size_t)length + 4, good.size());
    EXPECT_EQ((uint32_t)format, GETestGet32(good, 0));
    EXPECT_TRUE(binary == GETestBytes(good.begin() + 4, good.end()));

    GLProgTest restored;
    ASSERT_EQ(1, restored.Load());
    const GLuint replaced = restored.GetProgram();
    ASSERT_EQ(1, restored.LoadBinary(path.c_str()));
    EXPECT_FALSE(glIsProgram(replaced));
    ASSERT_EQ(1, restored.FetchLocations());
    target.Fill(0, 0, 0, 0);
    ASSERT_EQ(1, restored.Use());
    restored.SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    restored.SetTextureCoord(g_nQuadTexCoordSize, g_fQuadTexCoord);
    restored.Draw();
    EXPECT_EQ(expected, target.Read());

    const GLuint program = restored.GetProgram();
    EXPECT_EQ(0, restored.LoadBinary((path + ".missing").c_str()));
    for (size_t size = 0; size < 4; size++) {  // shorter than the format
        ASSERT_TRUE(GETestWriteFile(path, GETestBytes(size, 0x41)));
        EXPECT_EQ(0, restored.LoadBinary(path.c_str())) << size;
    }
    EXPECT_EQ(program, restored.GetProgram());
    GETestBytes damaged = good, unknown = good;
    damaged[good.size() / 2] ^= 0xFF;
    damaged[5] ^= 0xFF;
    unknown[0] ^= 0x01;
    for (const GETestBytes& bad : {GETestBytes(good.begin(), good.begin() + 4), damaged, unknown}) {
        ASSERT_TRUE(GETestWriteFile(path, bad));
        EXPECT_EQ(0, restored.LoadBinary(path.c_str()));
        EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
        EXPECT_TRUE(glIsProgram(restored.GetProgram()));
        EXPECT_EQ(0, restored.Use());
    }
    EXPECT_EQ(0, restored.SaveBinary((path + ".unlinked").c_str()));
    EXPECT_TRUE(GETestReadFile(path + ".unlinked").empty());
    EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
    remove(path.c_str());
}

}  // namespace
