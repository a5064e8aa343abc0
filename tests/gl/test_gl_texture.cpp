// GLTexture: normal and streaming textures, their creation refusals, updates,
// wrapping native buffers, CPU writes reaching the GPU, and teardown order.
#include "gl/GLTexture.h"

#include <EGL/egl.h>
#include <GLES2/gl2.h>
#include <android/log.h>
#include <gralloc_priv.h>
#include <gtest/gtest.h>
#include <inttypes.h>
#include <string.h>
#include <system/graphics.h>
#include <ui/GraphicBuffer.h>

#include <string>
#include <vector>

#include "GETestGL.h"
#include "GETestLog.h"
#include "gl/GECommon.h"

namespace {

const int I = ANDROID_LOG_INFO;
const int E = ANDROID_LOG_ERROR;
typedef std::vector<std::string> Lines;

std::string Decimal(const void* p) {
    return GETestFormat("%" PRIuPTR, (uintptr_t)p);
}

// The bound texture is `name`, with linear filters and repeating wraps.
void ExpectBoundWithDefaults(GLuint name) {
    GLint v = -1;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &v);
    EXPECT_EQ((GLuint)v, name);
    const GLenum pnames[] = {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER, GL_TEXTURE_WRAP_S,
                             GL_TEXTURE_WRAP_T};
    const GLint want[] = {GL_LINEAR, GL_LINEAR, GL_REPEAT, GL_REPEAT};
    for (int i = 0; i < 4; ++i) {
        glGetTexParameteriv(GL_TEXTURE_2D, pnames[i], &v);
        EXPECT_EQ(v, want[i]) << "parameter 0x" << std::hex << pnames[i];
    }
}

android::sp<android::GraphicBuffer> NewBuffer(int w, int h, int format, void** vaddr) {
    android::sp<android::GraphicBuffer> gb = new android::GraphicBuffer(w, h, format, 0x130);
    EXPECT_EQ(gb->initCheck(), android::NO_ERROR);
    EXPECT_EQ(gb->lock(0x30, vaddr), android::NO_ERROR);
    gb->unlock();
    return gb;
}

using TextureTest = GLTest;

// Each format of the table as a normal texture and as an ST; the luminance
// pair, outside the table, as a normal texture only.
TEST_F(TextureTest, NormalAndStreamingTextures) {
    const struct {
        unsigned char st;
        unsigned format, type, w, h, bpp, allocW;
        int hal;
    } cases[] = {
        {0, GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 100, 30, 2, 100, 0},
        {0, GL_RGB, GL_UNSIGNED_BYTE, 100, 30, 3, 100, 0},
        {0, GL_RGBA, GL_UNSIGNED_BYTE, 100, 30, 4, 100, 0},
        {0, GL_LUMINANCE, GL_UNSIGNED_BYTE, 100, 30, 0, 100, 0},  // left as it was
        {1, GL_RGBA, GL_UNSIGNED_BYTE, 100, 20, 4, 128, HAL_PIXEL_FORMAT_RGBA_8888},
        {1, GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 40, 6, 2, 64, HAL_PIXEL_FORMAT_RGB_565},
        {1, GL_RGB, GL_UNSIGNED_BYTE, 32, 6, 3, 32, HAL_PIXEL_FORMAT_RGB_888},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(GETestFormat("st %d format 0x%x type 0x%x", c.st, c.format, c.type));
        GETestLog log;
        GLTexture tex;
        ASSERT_EQ(tex.Init(c.format, c.type, c.w, c.h, c.st), 1) << log.Dump();
        EXPECT_EQ(tex.IsST(), c.st != 0);
        EXPECT_EQ(tex.GetWidth(), c.w);
        EXPECT_EQ(tex.GetAllocWidth(), c.allocW);
        EXPECT_EQ(tex.GetHeight(), c.h);
        EXPECT_EQ(tex.GetBytesPerPixel(), c.bpp);
        EXPECT_EQ(tex.GetFormat(), c.format);
        EXPECT_EQ(tex.GetType(), c.type);
        ExpectBoundWithDefaults(tex.GetTexName());
        EXPECT_TRUE(
            log.HasExact(I, "GLTexture",
                         GETestFormat("[Init] format=%u, type=%u, width=%u(%u), height=%u, ST=%d",
                                      c.format, c.type, c.w, (c.w + 31) / 32 * 32, c.h, c.st)));
        unsigned char* data = tex.GetSTDataBuf();
        if (!c.st) {
            EXPECT_TRUE(log.HasExact(I, "GLTexture",
                                     GETestFormat("[Init] tex %u created", tex.GetTexName())));
            // No CPU side.
            EXPECT_EQ(data, nullptr);
            EXPECT_EQ(tex.GetStride(), 0u);
            EXPECT_EQ(tex.clean_buffer(), 0);
            EXPECT_EQ(tex.GetGraphicBuffer(), nullptr);
            EXPECT_TRUE(log.HasExact(
                E, "GLTexture", "[GetSTDataBuf] ERROR, only streaming texture use this method"));
            EXPECT_TRUE(
                log.HasExact(ANDROID_LOG_DEBUG, "GLTexture", "[clean_buffer] clean buffer error"));
            continue;
        }
        android::sp<android::GraphicBuffer> gb = tex.GetGraphicBuffer();
        ASSERT_NE(gb, nullptr);
        EXPECT_EQ(gb->getWidth(), c.allocW);
        EXPECT_EQ(gb->getHeight(), c.h);
        EXPECT_EQ(gb->getPixelFormat(), c.hal);
        EXPECT_EQ(gb->getUsage(), 0x130u);
        EXPECT_EQ(tex.GetStride(), gb->getStride());
        ASSERT_NE(data, nullptr);
        EXPECT_EQ((uintptr_t)data, reinterpret_cast<const private_handle_t*>(gb->handle)->base);
        EXPECT_TRUE(log.HasExact(
            I, "GLTexture",
            GETestFormat("[Init] <ST Operation> ST %u created. alloc %u(%u) x %u x %u Bpp = %f "
                         "KB native buf at %s",
                         tex.GetTexName(), c.w, c.allocW, c.h, c.bpp, c.w * c.h * c.bpp / 1024.0f,
                         Decimal(data).c_str())))
            << log.Dump();
        EXPECT_TRUE(log.HasExact(I, "GLTexture", "[GetSTDataBuf] addr " + Decimal(data)));
        // An ST is not updated through glTexImage2D.
        EXPECT_EQ(tex.UpdateNormalTexture(data, c.w, c.h), 0);
        EXPECT_TRUE(log.HasExact(
            E, "GLTexture", "[UpdateNormalTexture] ERROR, only normal texture use this method"));
    }
}

// Refused creations leave an object that holds nothing and deletes cleanly.
TEST_F(TextureTest, CreationRefusals) {
    const struct {
        unsigned format, type;
        unsigned char st;
        const char* tag;
        const char* line;
    } cases[] = {
        {GL_RGBA, GL_UNSIGNED_SHORT_5_6_5, 1, "GLTexture",
         "[Init] ST only supports RGB565/RGB88/RGBA"},
        {GL_LUMINANCE, GL_UNSIGNED_BYTE, 1, "GLTexture",
         "[Init] ST only supports RGB565/RGB88/RGBA"},
        {GLTexture::kFormatYUV, GL_UNSIGNED_BYTE, 1, "GLTexture",
         "[Init] YUV ST created in this way not implemented"},
        {GL_RGBA, GL_UNSIGNED_SHORT_5_6_5, 0, "GECommon",
         "[GLTexture::Init] ERROR, glTexImage2D failed with error: 0x502 GL_INVALID_OPERATION"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        GETestLog log;
        GLTexture* tex = new GLTexture();
        EXPECT_EQ(tex->Init(c.format, c.type, 16, 16, c.st), 0);
        EXPECT_TRUE(log.HasExact(E, c.tag, c.line)) << log.Dump();
        EXPECT_FALSE(log.Has(I, "GLTexture", "created"));
        EXPECT_FALSE(tex->IsST());
        EXPECT_EQ(tex->GetGraphicBuffer(), nullptr);
        EXPECT_EQ(tex->GetWidth(), 0xFFFFFFFFu);
        if (c.st) {
            EXPECT_EQ(tex->GetTexName(), 0xFFFFFFFFu);
        }
        delete tex;
        EXPECT_EQ(log.Count("eglDestroyImageKHR"), 0);
        EXPECT_EQ(glGetError(), (GLenum)GL_NO_ERROR);
    }
    // A fresh object is deleted with its invalid name.
    GETestLog log;
    delete new GLTexture();
    EXPECT_TRUE(log.HasExact(I, "GLTexture", "[GLTexture::~GLTexture] deleting  tex -1"));
    EXPECT_EQ(glGetError(), (GLenum)GL_NO_ERROR);
}

TEST_F(TextureTest, UpdateNormalTexture) {
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, 3, 2, 0), 1);
    std::vector<unsigned char> pixels(3 * 2 * 4);
    for (size_t i = 0; i < pixels.size(); ++i) {
        pixels[i] = (unsigned char)(i * 11 + 3);
    }
    GETestLog log;
    EXPECT_EQ(tex.UpdateNormalTexture(pixels.data(), 3, 2), 1);
    EXPECT_TRUE(log.HasExact(I, "GLTexture",
                             "[UpdateNormalTexture] glTexImage2D 3x2, format 0x1908, type 0x1401"));
    EXPECT_EQ(GETestReadTexture(tex.GetTexName(), 3, 2), pixels);

    // Wrong sizes are refused with both sizes, and nothing changes.
    std::vector<unsigned char> other(16 * 16 * 4, 0x55);
    EXPECT_EQ(tex.UpdateNormalTexture(other.data(), 4, 2), 0);
    EXPECT_EQ(tex.UpdateNormalTexture(other.data(), 3, 5), 0);
    EXPECT_EQ(log.Texts(E), (Lines{"[UpdateNormalTexture] ERROR, wrong input size 4x2, tex size "
                                   "is 3x2",
                                   "[UpdateNormalTexture] ERROR, wrong input size 3x5, tex size "
                                   "is 3x2"}));
    EXPECT_EQ(GETestReadTexture(tex.GetTexName(), 3, 2), pixels);

    // A zero width skips the size test and re-specifies an empty image.
    log.Clear();
    EXPECT_EQ(tex.UpdateNormalTexture(nullptr, 0, 7), 1);
    EXPECT_EQ(log.Texts(E), Lines());
}

TEST_F(TextureTest, SetParameteriAndBindReportGLErrors) {
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, 4, 4, 0), 1);
    GETestLog log;
    EXPECT_EQ(tex.SetParameteri(GL_TEXTURE_MIN_FILTER, GL_NEAREST), 1);
    GLint v = 0;
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &v);
    EXPECT_EQ(v, GL_NEAREST);
    EXPECT_EQ(tex.SetParameteri(GL_TEXTURE_MIN_FILTER, 0x1234), 0);
    EXPECT_EQ(log.Texts(E), Lines{"[GLTexture::SetParameteri] ERROR, glTexParameteri failed "
                                  "with error: 0x500 GL_INVALID_ENUM"});
    glBindTexture(GL_TEXTURE_2D, 0);
    EXPECT_EQ(tex.Bind(), 1);
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &v);
    EXPECT_EQ((GLuint)v, tex.GetTexName());
}

TEST_F(TextureTest, WrapsANativeBuffer) {
    void* vaddr = nullptr;
    android::sp<android::GraphicBuffer> gb = NewBuffer(64, 8, HAL_PIXEL_FORMAT_RGBA_8888, &vaddr);
    GETestLog log;
    GLTexture tex;
    ASSERT_EQ(tex.Init(gb->getNativeBuffer(), GL_RGBA, GL_UNSIGNED_BYTE, 60, 8), 1) << log.Dump();
    EXPECT_TRUE(tex.IsST());
    EXPECT_EQ(tex.GetWidth(), 60u);
    EXPECT_EQ(tex.GetAllocWidth(), 64u);
    EXPECT_EQ(tex.GetStride(), gb->getStride());
    EXPECT_EQ((void*)tex.GetSTDataBuf(), vaddr);
    EXPECT_EQ(tex.GetGraphicBuffer(), nullptr);
    EXPECT_EQ(tex.GetTarget(), (unsigned)GL_TEXTURE_2D);
    EXPECT_EQ(log.Texts(E), Lines());
    // The cache clean serves only buffers this object allocated itself.
    EXPECT_EQ(tex.clean_buffer(), 0);

    // A second buffer is refused: the address is already taken.
    void* otherAddr = nullptr;
    android::sp<android::GraphicBuffer> other =
        NewBuffer(64, 8, HAL_PIXEL_FORMAT_RGBA_8888, &otherAddr);
    log.Clear();
    EXPECT_EQ(tex.Init(other->getNativeBuffer(), GL_RGBA, GL_UNSIGNED_BYTE, 60, 8), 0);
    EXPECT_EQ(log.Texts(E), Lines{"[Init] m_pData (" + Decimal(vaddr) +
                                  ") already assigned and not equal to passed-in native buffer "
                                  "addr " +
                                  Decimal(otherAddr)});
    EXPECT_EQ((void*)tex.GetSTDataBuf(), vaddr);
    // The same buffer again is accepted.
    EXPECT_EQ(tex.Init(gb->getNativeBuffer(), GL_RGBA, GL_UNSIGNED_BYTE, 60, 8), 1);
}

TEST_F(TextureTest, YUVBufferWrapsButCannotBind) {
    void* vaddr = nullptr;
    android::sp<android::GraphicBuffer> gb =
        NewBuffer(64, 16, HAL_PIXEL_FORMAT_YCrCb_420_SP, &vaddr);
    GETestLog log;
    GLTexture* tex = new GLTexture();
    EXPECT_EQ(tex->Init(gb->getNativeBuffer(), GLTexture::kFormatYUV, GL_UNSIGNED_BYTE, 64, 16), 0);
    EXPECT_EQ(tex->GetTarget(), 0xFFFFFFFFu);
    // The image was made; the bind is the first check to fail.
    EXPECT_EQ(log.Texts(E), Lines{"[GLTexture::Init] ERROR, glBindTexture failed with error: "
                                  "0x500 GL_INVALID_ENUM"});
    log.Clear();
    delete tex;
    EXPECT_TRUE(
        log.HasExact(I, "GLTexture", "[GLTexture::~GLTexture] eglDestroyImageKHR returned"));
}

TEST_F(TextureTest, MismatchedDisplayAndContextAreOnlyWarnings) {
    EGLDisplay realDisplay = g_eglDisplay;
    EGLContext realContext = g_eglContext;
    static int s_otherDisplay, s_otherContext;
    g_eglDisplay = (EGLDisplay)&s_otherDisplay;
    g_eglContext = (EGLContext)&s_otherContext;
    GETestLog log;
    GLTexture* tex = new GLTexture();
    EXPECT_EQ(tex->Init(GL_RGBA, GL_UNSIGNED_BYTE, 8, 8, 1), 1);
    const std::string banner = "######################";
    EXPECT_EQ(log.Texts(E),
              (Lines{"[GLTexture::Init] " + banner, "[GLTexture::Init] unequal display",
                     "[GLTexture::Init] " + banner, "[GLTexture::Init] " + banner,
                     "[GLTexture::Init] unequal context", "[GLTexture::Init] " + banner}));
    log.Clear();
    delete tex;
    EXPECT_EQ(log.Texts(E),
              (Lines{"[GLTexture::~GLTexture] " + banner, "[GLTexture::~GLTexture] unequal display",
                     "[GLTexture::~GLTexture] " + banner}));
    g_eglDisplay = realDisplay;
    g_eglContext = realContext;
}

// Records, when it goes, whether the graphics buffer was already gone.
struct Held : public android::RefBase {
    Held(int id, std::vector<std::string>* order, android::wp<android::GraphicBuffer> buffer)
        : m_nId(id), m_pOrder(order), m_wpBuffer(buffer) {}
    ~Held() override {
        bool bufferGone = m_wpBuffer.promote() == nullptr;
        m_pOrder->push_back("held" + std::to_string(m_nId) + (bufferGone ? "" : "+buffer"));
    }
    int m_nId;
    std::vector<std::string>* m_pOrder;
    android::wp<android::GraphicBuffer> m_wpBuffer;
};

// The image goes before the texture, both before the buffer, then the held
// references in reverse order.
TEST_F(TextureTest, DestructionOrder) {
    std::vector<std::string> order;
    GLTexture* tex = new GLTexture();
    ASSERT_EQ(tex->Init(GL_RGBA, GL_UNSIGNED_BYTE, 16, 4, 1), 1);
    GLuint name = tex->GetTexName();
    android::wp<android::GraphicBuffer> buffer = tex->GetGraphicBuffer();
    tex->HoldReference(0, new Held(0, &order, buffer));
    tex->HoldReference(1, new Held(1, &order, buffer));

    GETestLog log;
    delete tex;
    EXPECT_FALSE(glIsTexture(name));
    EXPECT_EQ(buffer.promote(), nullptr);
    EXPECT_EQ(order, (Lines{"held1", "held0"}));
    EXPECT_EQ(log.Texts(),
              (Lines{"[~GLTexture] enter",
                     "[GLTexture::~GLTexture] deleting <ST Operation> tex " + std::to_string(name),
                     "[GLTexture::~GLTexture] eglDestroyImageKHR",
                     "[GLTexture::~GLTexture] eglDestroyImageKHR returned",
                     "[GLTexture::~GLTexture] glDeleteTextures",
                     "[GLTexture::~GLTexture] glDeleteTextures returned", "[~GLTexture] leave"}));
}

// Every byte the CPU writes, padding texels included, reaches a shader after
// the cache clean.
TEST_F(TextureTest, CPUWritesReachTheGPUAfterClean) {
    const int w = 20, h = 4;
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, w, h, 1), 1);
    const int allocW = (int)tex.GetAllocWidth();
    const size_t pitch = (size_t)tex.GetStride() * 4;
    unsigned char* data = tex.GetSTDataBuf();
    ASSERT_NE(data, nullptr);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < allocW; ++x) {
            unsigned char* p = data + y * pitch + x * 4;
            p[0] = (unsigned char)(x * 7 + y);
            p[1] = (unsigned char)(y * 50 + 1);
            p[2] = (unsigned char)(255 - x);
            p[3] = (unsigned char)(x * 3 + y * 60);
        }
    }
    EXPECT_EQ(tex.clean_buffer(), 1);
    std::vector<unsigned char> seen = GETestSampleTexture(tex.GetTexName(), allocW, h);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < allocW; ++x) {
            ASSERT_EQ(memcmp(data + y * pitch + x * 4, &seen[((size_t)y * allocW + x) * 4], 4), 0)
                << "texel " << x << "," << y;
        }
    }
}

}  // namespace
