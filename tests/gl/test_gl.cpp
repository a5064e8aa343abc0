// The GL toolkit where the effects do not reach it end to end: the error
// checks, texture kinds and their refusals, wrapped buffers, program builds
// and their failures, and program binaries.
#include <EGL/egl.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <android/log.h>
#include <binder/MemoryHeapBase.h>
#include <gralloc_priv.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
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

// A failed check answers 0 and logs the error by name; the error is
// consumed, so the next check answers 1.
TEST_F(GLToolkitTest, ErrorChecksNameTheErrorOnce) {
    GETestLog log;
    glEnable(0x1234);
    EXPECT_EQ(0u, CheckGLError("W", "w"));
    EXPECT_EQ(1u, CheckGLError("W", "w"));
    eglQuerySurface(EGL_NO_DISPLAY, EGL_NO_SURFACE, EGL_WIDTH, nullptr);
    EXPECT_EQ(0u, CheckEGLError("W", "w"));
    EXPECT_EQ(1u, CheckEGLError("W", "w"));
    EXPECT_EQ((std::vector<std::string>{"[W] ERROR, w failed with error: 0x500 GL_INVALID_ENUM",
                                        "[W] ERROR, w failed with error: 0x3008 EGL_BAD_DISPLAY"}),
              log.Texts(E));
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
}

// A wrapped buffer is the texture's storage; a second buffer is refused, the
// same one again accepted. A held reference lives as long as the texture.
TEST_F(GLToolkitTest, WrappedBuffers) {
    auto buffer = [](int format, void** vaddr) {
        android::sp<android::GraphicBuffer> gb = new android::GraphicBuffer(64, 8, format, 0x130);
        EXPECT_EQ(android::NO_ERROR, gb->lock(0x30, vaddr));
        gb->unlock();
        return gb;
    };
    void *a = nullptr, *b = nullptr;
    android::sp<android::GraphicBuffer> ga = buffer(HAL_PIXEL_FORMAT_RGBA_8888, &a);
    android::sp<android::GraphicBuffer> gbuf = buffer(HAL_PIXEL_FORMAT_RGBA_8888, &b);
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
}

// The host keeps the memory of a graphics buffer that goes for the next one
// of the same size. Such a buffer reads zero like a fresh one, whatever the
// last one held on either side, and stays coherent both ways.
TEST_F(GLToolkitTest, BuffersOverKeptMemoryStartClean) {
    const int w = 32, h = 4;
    const size_t n = (size_t)w * h * 4;
    const unsigned char* kept = nullptr;
    {
        GLTexture tex;
        ASSERT_EQ(1, tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, w, h, 1));
        GETestTarget(w, h, tex.GetTexName()).Fill(1.0f, 0.0f, 0.0f, 1.0f);  // the GPU wrote
        ASSERT_EQ(1, tex.clean_buffer());
        kept = tex.GetSTDataBuf();
        memset(tex.GetSTDataBuf(), 0xAB, n);  // and the CPU, never cleaned
    }
    GLTexture tex;
    ASSERT_EQ(1, tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, w, h, 1));
    unsigned char* p = tex.GetSTDataBuf();
    ASSERT_EQ(kept, p) << "the memory was not kept";
    EXPECT_EQ(Pixels(n, 0), Pixels(p, p + n));
    EXPECT_EQ(Pixels(n, 0), GETestReadTexture(tex.GetTexName(), w, h));
    memset(p, 0x40, n);
    ASSERT_EQ(1, tex.clean_buffer());
    EXPECT_EQ(Pixels(n, 0x40), GETestReadTexture(tex.GetTexName(), w, h));
    GETestTarget(w, h, tex.GetTexName()).Fill(0.0f, 1.0f, 0.0f, 1.0f);
    ASSERT_EQ(1, tex.clean_buffer());
    Pixels green(n, 0);
    for (size_t i = 0; i < n; i += 4) {
        green[i + 1] = green[i + 3] = 0xFF;
    }
    EXPECT_EQ(green, Pixels(p, p + n));
}

// So does a capture's working heap over the memory of the last one.
TEST(HostMemory, HeapsOverKeptMemoryStartClean) {
    const size_t n = 3 * 4096;
    const void* kept = nullptr;
    {
        android::sp<android::MemoryHeapBase> heap = new android::MemoryHeapBase(n, 0x200);
        ASSERT_GE(heap->getHeapID(), 0);
        kept = heap->getBase();
        memset(heap->getBase(), 0xAB, n);
    }
    android::sp<android::MemoryHeapBase> heap = new android::MemoryHeapBase(n, 0x200);
    const unsigned char* p = static_cast<const unsigned char*>(heap->getBase());
    ASSERT_EQ(kept, p) << "the memory was not kept";
    EXPECT_EQ(Pixels(n, 0), Pixels(p, p + n));
}

const char kVsQuad[] =
    "attribute vec4 a_vertexCoord;\n"
    "attribute vec2 a_textureCoord;\n"
    "varying vec2 v_texCoord;\n"
    "void main() { gl_Position = a_vertexCoord; v_texCoord = a_textureCoord; }\n";
const char kFsQuad[] =
    "precision highp float;\n"
    "varying vec2 v_texCoord;\n"
    "void main() { gl_FragColor = vec4(v_texCoord, 0.0, 1.0); }\n";

// A program over given sources that fetches the quad attributes.
class GLProgTest : public GLProgram {
public:
    GLProgTest(const char* vs = kVsQuad, const char* fs = kFsQuad) : m_szVs(vs), m_szFs(fs) {}
    using GLProgram::Load;
    int Load() override { return GLProgram::Load(m_szVs, m_szFs) && FetchLocations(); }
    int FetchLocations() {
        return GLPROG_ATTRIB_LOC(m_nVerCoordLoc, "a_vertexCoord") &&
               GLPROG_ATTRIB_LOC(m_nTexCoordLoc, "a_textureCoord");
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
        {kBroken, kFsQuad, "[Load] can't compile vertex shader", -1},
        {kVsQuad, kBroken, "[Load] can't compile fragment shader", -1},
        {kVsVec2, kFsVec3, "[Load] can't link program", 0},
        {nullptr, kFsQuad, "[CompileShader] can't compile shader", -1},
    };
    ASSERT_EQ(0, LiveObjects());
    GETestLog log;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        GLProgTest prog(c.vs, c.fs);
        if (c.program == 0) {
            ASSERT_EQ(1, prog.Load(kVsQuad, kFsQuad));
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

// A saved binary (the driver's format, little-endian, then its bytes) loads
// into another object in place of its program; missing, short and damaged
// files are refused (a damaged one leaves an unlinked program that Use
// refuses), and an unlinked program saves nothing.
TEST_F(GLToolkitTest, ProgramBinaries) {
    const std::string path = testing::TempDir() + GETestFormat("posteffect_prog_%d", (int)getpid());
    GLProgTest original, restored;
    EXPECT_EQ(0, original.SaveBinary(path.c_str()));  // nothing loaded yet
    ASSERT_TRUE(original.Load() && restored.Load());
    EXPECT_EQ(0, original.SaveBinary("/nonexistent-posteffect-dir/prog.bin"));
    ASSERT_EQ(1, original.SaveBinary(path.c_str()));
    const GETestBytes good = GETestReadFile(path);
    GLint length = 0;
    glGetProgramiv(original.GetProgram(), GL_PROGRAM_BINARY_LENGTH_OES, &length);
    GETestBytes binary((size_t)length);
    GLenum format = 0;
    glGetProgramBinaryOES(original.GetProgram(), length, nullptr, &format, binary.data());
    ASSERT_EQ((size_t)length + 4, good.size());
    EXPECT_EQ((uint32_t)format, GETestGet32(good, 0));
    EXPECT_TRUE(binary == GETestBytes(good.begin() + 4, good.end()));
    const GLuint replaced = restored.GetProgram();
    ASSERT_EQ(1, restored.LoadBinary(path.c_str()));
    EXPECT_FALSE(glIsProgram(replaced));
    EXPECT_TRUE(restored.FetchLocations() && restored.Use());

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
        EXPECT_TRUE(glGetError() == GL_NO_ERROR && glIsProgram(restored.GetProgram()));
        EXPECT_EQ(0, restored.Use());
    }
    EXPECT_EQ(0, restored.SaveBinary((path + ".unlinked").c_str()));
    EXPECT_TRUE(GETestReadFile(path + ".unlinked").empty());
    remove(path.c_str());
}

}  // namespace
