// GLTexture: normal and streaming textures, their creation refusals, updates,
// CPU access, cache cleaning in both directions, and teardown order.
#include <EGL/egl.h>
#include <GLES2/gl2.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include <gralloc_priv.h>
#include <system/graphics.h>
#include <ui/GraphicBuffer.h>

#include "GETestGL.h"
#include "GETestLog.h"
#include "gl/GECommon.h"
#include "gl/GLTexture.h"

namespace {

const int I = ANDROID_LOG_INFO;
const int E = ANDROID_LOG_ERROR;

// Index of the first line under "GLTexture" whose text is `text`, or -1.
int IndexOf(const GETestLog& log, const std::string& text) {
    std::vector<GETestLogLine> lines = log.Lines();
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].tag == "GLTexture" && lines[i].text == text) {
            return (int)i;
        }
    }
    return -1;
}

GLint TexParam(GLenum pname) {
    GLint v = -1;
    glGetTexParameteriv(GL_TEXTURE_2D, pname, &v);
    return v;
}

// Draws texture `tex` over a w x h RGBA framebuffer with nearest filtering,
// fragment (x, y) sampling the centre of texel (x, y) of a texture texW x
// texH texels large, and returns the w x h RGBA result.
std::vector<unsigned char> SampleTexture(GLuint tex, int texW, int texH, int w, int h) {
    static const char* kVs =
        "attribute vec4 a_pos;\n"
        "attribute vec2 a_tc;\n"
        "varying vec2 v_tc;\n"
        "void main() { gl_Position = a_pos; v_tc = a_tc; }\n";
    static const char* kFs =
        "precision highp float;\n"
        "uniform sampler2D s_tex;\n"
        "varying vec2 v_tc;\n"
        "void main() { gl_FragColor = texture2D(s_tex, v_tc); }\n";
    std::vector<unsigned char> out((size_t)w * h * 4, 0xEE);
    GLuint vs = glCreateShader(GL_VERTEX_SHADER);
    glShaderSource(vs, 1, &kVs, nullptr);
    glCompileShader(vs);
    GLuint fs = glCreateShader(GL_FRAGMENT_SHADER);
    glShaderSource(fs, 1, &kFs, nullptr);
    glCompileShader(fs);
    GLuint prog = glCreateProgram();
    glAttachShader(prog, vs);
    glAttachShader(prog, fs);
    glBindAttribLocation(prog, 0, "a_pos");
    glBindAttribLocation(prog, 1, "a_tc");
    glLinkProgram(prog);
    GLint linked = 0;
    glGetProgramiv(prog, GL_LINK_STATUS, &linked);
    EXPECT_TRUE(linked);

    GLuint target = 0;
    glGenTextures(1, &target);
    glBindTexture(GL_TEXTURE_2D, target);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    GLuint fbo = 0;
    glGenFramebuffers(1, &fbo);
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, target, 0);
    EXPECT_EQ(glCheckFramebufferStatus(GL_FRAMEBUFFER), (GLenum)GL_FRAMEBUFFER_COMPLETE);

    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, tex);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glUseProgram(prog);
    glUniform1i(glGetUniformLocation(prog, "s_tex"), 0);
    float sx = (float)w / texW;
    float sy = (float)h / texH;
    const float pos[] = {-1, -1, 1, -1, -1, 1, 1, 1};
    const float tc[] = {0, 0, sx, 0, 0, sy, sx, sy};
    glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, pos);
    glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, 0, tc);
    glEnableVertexAttribArray(0);
    glEnableVertexAttribArray(1);
    glViewport(0, 0, w, h);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, w, h, GL_RGBA, GL_UNSIGNED_BYTE, out.data());

    glDisableVertexAttribArray(0);
    glDisableVertexAttribArray(1);
    glUseProgram(0);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDeleteFramebuffers(1, &fbo);
    glDeleteTextures(1, &target);
    glDeleteProgram(prog);
    glDeleteShader(vs);
    glDeleteShader(fs);
    EXPECT_EQ(glGetError(), (GLenum)GL_NO_ERROR);
    return out;
}

std::string Decimal(const void* p) {
    char s[32];
    snprintf(s, sizeof(s), "%" PRIuPTR, (uintptr_t)p);
    return s;
}

using TextureTest = GLTest;

TEST_F(TextureTest, FreshObjectHoldsInvalidValues) {
    GLTexture* tex = new GLTexture();
    EXPECT_FALSE(tex->IsST());
    EXPECT_EQ(tex->GetTexName(), 0xFFFFFFFFu);
    EXPECT_EQ(tex->GetWidth(), 0xFFFFFFFFu);
    EXPECT_EQ(tex->GetAllocWidth(), 0xFFFFFFFFu);
    EXPECT_EQ(tex->GetHeight(), 0xFFFFFFFFu);
    EXPECT_EQ(tex->GetBytesPerPixel(), 0u);
    EXPECT_EQ(tex->GetFormat(), 0xFFFFFFFFu);
    EXPECT_EQ(tex->GetType(), 0xFFFFFFFFu);
    EXPECT_EQ(tex->GetTarget(), (unsigned)GL_TEXTURE_2D);
    EXPECT_EQ(tex->GetStride(), 0u);
    GETestLog log;
    delete tex;
    EXPECT_TRUE(log.HasExact(I, "GLTexture", "[GLTexture::~GLTexture] deleting  tex -1"))
        << log.Dump();
    EXPECT_EQ(log.Count("eglDestroyImageKHR"), 0);
    EXPECT_EQ(glGetError(), (GLenum)GL_NO_ERROR);
}

TEST_F(TextureTest, NormalTexturesOfEachFormat) {
    struct {
        unsigned format, type, bpp;
    } cases[] = {
        {GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 2},
        {GL_RGB, GL_UNSIGNED_BYTE, 3},
        {GL_RGBA, GL_UNSIGNED_BYTE, 4},
        {GL_LUMINANCE, GL_UNSIGNED_BYTE, 0},  // not in the table: left as it was
    };
    for (const auto& c : cases) {
        GETestLog log;
        GLTexture tex;
        ASSERT_EQ(tex.Init(c.format, c.type, 100, 30, 0), 1) << log.Dump();
        EXPECT_FALSE(tex.IsST());
        EXPECT_EQ(tex.GetWidth(), 100u);
        EXPECT_EQ(tex.GetAllocWidth(), 100u);
        EXPECT_EQ(tex.GetHeight(), 30u);
        EXPECT_EQ(tex.GetBytesPerPixel(), c.bpp);
        EXPECT_EQ(tex.GetFormat(), c.format);
        EXPECT_EQ(tex.GetType(), c.type);
        EXPECT_EQ(tex.GetStride(), 0u);
        EXPECT_EQ(tex.GetSTDataBuf(), nullptr);
        EXPECT_TRUE(glIsTexture(tex.GetTexName()));
        GLint bound = 0;
        glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
        EXPECT_EQ((GLuint)bound, tex.GetTexName());
        EXPECT_EQ(TexParam(GL_TEXTURE_MIN_FILTER), GL_LINEAR);
        EXPECT_EQ(TexParam(GL_TEXTURE_MAG_FILTER), GL_LINEAR);
        EXPECT_EQ(TexParam(GL_TEXTURE_WRAP_S), GL_REPEAT);
        EXPECT_EQ(TexParam(GL_TEXTURE_WRAP_T), GL_REPEAT);

        char line[128];
        snprintf(line, sizeof(line), "[Init] format=%u, type=%u, width=100(128), height=30, ST=0",
                 c.format, c.type);
        EXPECT_TRUE(log.HasExact(I, "GLTexture", line)) << log.Dump();
        snprintf(line, sizeof(line), "[Init] tex %u created", tex.GetTexName());
        EXPECT_TRUE(log.HasExact(I, "GLTexture", line)) << log.Dump();
        EXPECT_TRUE(log.HasExact(I, "GLTexture", "[Init] leave"));
    }
}

TEST_F(TextureTest, NormalInitReportsTheFailingCall) {
    GETestLog log;
    GLTexture tex;
    // RGBA with a 16-bit packed type is no valid combination.
    EXPECT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_SHORT_5_6_5, 8, 8, 0), 0);
    EXPECT_TRUE(log.HasExact(
        E, "GECommon",
        "[GLTexture::Init] ERROR, glTexImage2D failed with error: 0x502 GL_INVALID_OPERATION"))
        << log.Dump();
    EXPECT_FALSE(log.Has(I, "GLTexture", "created"));
    EXPECT_EQ(tex.GetWidth(), 0xFFFFFFFFu);
}

TEST_F(TextureTest, UpdateNormalTextureReplacesThePixels) {
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, 3, 2, 0), 1);
    std::vector<unsigned char> pixels(3 * 2 * 4);
    for (size_t i = 0; i < pixels.size(); ++i) {
        pixels[i] = (unsigned char)(i * 11 + 3);
    }
    GETestLog log;
    EXPECT_EQ(tex.UpdateNormalTexture(pixels.data(), 3, 2), 1);
    EXPECT_TRUE(log.HasExact(I, "GLTexture",
                             "[UpdateNormalTexture] glTexImage2D 3x2, format 0x1908, type 0x1401"))
        << log.Dump();
    EXPECT_EQ(GETestReadTexture(tex.GetTexName(), 3, 2), pixels);

    // Wrong sizes are refused with both sizes, and nothing changes.
    std::vector<unsigned char> other(16 * 16 * 4, 0x55);
    log.Clear();
    EXPECT_EQ(tex.UpdateNormalTexture(other.data(), 4, 2), 0);
    EXPECT_TRUE(log.HasExact(E, "GLTexture",
                             "[UpdateNormalTexture] ERROR, wrong input size 4x2, tex size is 3x2"))
        << log.Dump();
    EXPECT_EQ(tex.UpdateNormalTexture(other.data(), 3, 5), 0);
    EXPECT_TRUE(log.HasExact(E, "GLTexture",
                             "[UpdateNormalTexture] ERROR, wrong input size 3x5, tex size is 3x2"));
    EXPECT_EQ(GETestReadTexture(tex.GetTexName(), 3, 2), pixels);

    // A zero width skips the size test and re-specifies an empty image.
    log.Clear();
    EXPECT_EQ(tex.UpdateNormalTexture(nullptr, 0, 7), 1);
    EXPECT_FALSE(log.Has(E, "GLTexture", "wrong input size")) << log.Dump();
}

TEST_F(TextureTest, SetParameteriAndBindReportGLErrors) {
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, 4, 4, 0), 1);
    GETestLog log;
    EXPECT_EQ(tex.SetParameteri(GL_TEXTURE_MIN_FILTER, GL_NEAREST), 1);
    EXPECT_EQ(TexParam(GL_TEXTURE_MIN_FILTER), GL_NEAREST);
    EXPECT_EQ(tex.SetParameteri(GL_TEXTURE_MIN_FILTER, 0x1234), 0);
    EXPECT_TRUE(log.HasExact(E, "GECommon",
                             "[GLTexture::SetParameteri] ERROR, glTexParameteri failed with "
                             "error: 0x500 GL_INVALID_ENUM"))
        << log.Dump();

    glBindTexture(GL_TEXTURE_2D, 0);
    EXPECT_EQ(tex.Bind(), 1);
    GLint bound = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
    EXPECT_EQ((GLuint)bound, tex.GetTexName());
}

TEST_F(TextureTest, NormalTextureHasNoCPUSide) {
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, 4, 4, 0), 1);
    GETestLog log;
    EXPECT_EQ(tex.GetSTDataBuf(), nullptr);
    EXPECT_TRUE(log.HasExact(E, "GLTexture",
                             "[GetSTDataBuf] ERROR, only streaming texture use this method"))
        << log.Dump();
    EXPECT_EQ(tex.clean_buffer(), 0);
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, "GLTexture", "[clean_buffer] clean buffer error"));
    EXPECT_EQ(tex.GetGraphicBuffer(), nullptr);
}

TEST_F(TextureTest, StreamingTextureOfWidth100) {
    GETestLog log;
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, 100, 20, 1), 1) << log.Dump();
    EXPECT_TRUE(tex.IsST());
    EXPECT_EQ(tex.GetWidth(), 100u);
    EXPECT_EQ(tex.GetAllocWidth(), 128u);
    EXPECT_EQ(tex.GetHeight(), 20u);
    EXPECT_EQ(tex.GetBytesPerPixel(), 4u);

    android::sp<android::GraphicBuffer> gb = tex.GetGraphicBuffer();
    ASSERT_NE(gb, nullptr);
    EXPECT_EQ(gb->getWidth(), 128u);
    EXPECT_EQ(gb->getHeight(), 20u);
    EXPECT_EQ(gb->getPixelFormat(), HAL_PIXEL_FORMAT_RGBA_8888);
    EXPECT_EQ(gb->getUsage(), 0x130u);
    EXPECT_EQ(tex.GetStride(), gb->getStride());

    const private_handle_t* hnd = reinterpret_cast<const private_handle_t*>(gb->handle);
    unsigned char* data = tex.GetSTDataBuf();
    ASSERT_NE(data, nullptr);
    EXPECT_EQ((uintptr_t)data, hnd->base);

    EXPECT_TRUE(log.HasExact(I, "GLTexture",
                             "[Init] format=6408, type=5121, width=100(128), height=20, ST=1"));
    char line[256];
    snprintf(line, sizeof(line),
             "[Init] <ST Operation> ST %u created. alloc 100(128) x 20 x 4 Bpp = 7.812500 KB "
             "native buf at %s",
             tex.GetTexName(), Decimal(data).c_str());
    EXPECT_TRUE(log.HasExact(I, "GLTexture", line)) << log.Dump();
    EXPECT_TRUE(log.HasExact(I, "GLTexture", "[GetSTDataBuf] addr " + Decimal(data)));

    // Filters and wraps as for a normal texture.
    ASSERT_EQ(tex.Bind(), 1);
    EXPECT_EQ(TexParam(GL_TEXTURE_MIN_FILTER), GL_LINEAR);
    EXPECT_EQ(TexParam(GL_TEXTURE_MAG_FILTER), GL_LINEAR);
    EXPECT_EQ(TexParam(GL_TEXTURE_WRAP_S), GL_REPEAT);
    EXPECT_EQ(TexParam(GL_TEXTURE_WRAP_T), GL_REPEAT);

    // An ST is not updated through glTexImage2D.
    log.Clear();
    EXPECT_EQ(tex.UpdateNormalTexture(data, 100, 20), 0);
    EXPECT_TRUE(log.HasExact(E, "GLTexture",
                             "[UpdateNormalTexture] ERROR, only normal texture use this method"));
}

TEST_F(TextureTest, StreamingTextureFormats) {
    GLTexture t565;
    ASSERT_EQ(t565.Init(GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 40, 6, 1), 1);
    EXPECT_EQ(t565.GetBytesPerPixel(), 2u);
    EXPECT_EQ(t565.GetAllocWidth(), 64u);
    ASSERT_NE(t565.GetGraphicBuffer(), nullptr);
    EXPECT_EQ(t565.GetGraphicBuffer()->getPixelFormat(), HAL_PIXEL_FORMAT_RGB_565);
    EXPECT_EQ(t565.GetGraphicBuffer()->getUsage(), 0x130u);
    EXPECT_EQ(t565.GetGraphicBuffer()->getWidth(), 64u);

    GLTexture t888;
    ASSERT_EQ(t888.Init(GL_RGB, GL_UNSIGNED_BYTE, 32, 6, 1), 1);
    EXPECT_EQ(t888.GetBytesPerPixel(), 3u);
    EXPECT_EQ(t888.GetAllocWidth(), 32u);
    EXPECT_EQ(t888.GetGraphicBuffer()->getPixelFormat(), HAL_PIXEL_FORMAT_RGB_888);
}

TEST_F(TextureTest, StreamingCreationRefusals) {
    GETestLog log;
    GLTexture a;
    EXPECT_EQ(a.Init(GL_RGBA, GL_UNSIGNED_SHORT_5_6_5, 16, 16, 1), 0);
    EXPECT_TRUE(log.HasExact(E, "GLTexture", "[Init] ST only supports RGB565/RGB88/RGBA"))
        << log.Dump();
    GLTexture b;
    EXPECT_EQ(b.Init(GL_LUMINANCE, GL_UNSIGNED_BYTE, 16, 16, 1), 0);
    EXPECT_EQ(log.Count("ST only supports"), 2);
    GLTexture c;
    EXPECT_EQ(c.Init(GLTexture::kFormatYUV, GL_UNSIGNED_BYTE, 16, 16, 1), 0);
    EXPECT_TRUE(log.HasExact(E, "GLTexture", "[Init] YUV ST created in this way not implemented"));
    for (GLTexture* t : {&a, &b, &c}) {
        EXPECT_FALSE(t->IsST());
        EXPECT_EQ(t->GetGraphicBuffer(), nullptr);
        EXPECT_EQ(t->GetTexName(), 0xFFFFFFFFu);
    }
    EXPECT_FALSE(log.Has(I, "GLTexture", "created"));
}

TEST_F(TextureTest, WrapsANativeBuffer) {
    android::sp<android::GraphicBuffer> gb =
        new android::GraphicBuffer(64, 8, HAL_PIXEL_FORMAT_RGBA_8888, 0x130);
    ASSERT_EQ(gb->initCheck(), android::NO_ERROR);
    void* vaddr = nullptr;
    ASSERT_EQ(gb->lock(0x30, &vaddr), android::NO_ERROR);
    gb->unlock();

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
    EXPECT_FALSE(log.Has(E, "GLTexture", "unequal")) << log.Dump();
    // The cache clean serves buffers this object allocated itself.
    EXPECT_EQ(tex.clean_buffer(), 0);

    // A second buffer is refused: the address is already taken.
    android::sp<android::GraphicBuffer> other =
        new android::GraphicBuffer(64, 8, HAL_PIXEL_FORMAT_RGBA_8888, 0x130);
    void* otherAddr = nullptr;
    ASSERT_EQ(other->lock(0x30, &otherAddr), android::NO_ERROR);
    other->unlock();
    log.Clear();
    EXPECT_EQ(tex.Init(other->getNativeBuffer(), GL_RGBA, GL_UNSIGNED_BYTE, 60, 8), 0);
    std::string line = "[Init] m_pData (" + Decimal(vaddr) +
                       ") already assigned and not equal to passed-in native buffer addr " +
                       Decimal(otherAddr);
    EXPECT_TRUE(log.HasExact(E, "GLTexture", line)) << log.Dump();
    EXPECT_EQ((void*)tex.GetSTDataBuf(), vaddr);

    // The same buffer again is accepted.
    EXPECT_EQ(tex.Init(gb->getNativeBuffer(), GL_RGBA, GL_UNSIGNED_BYTE, 60, 8), 1);
}

TEST_F(TextureTest, YUVBufferWrapsButCannotBind) {
    android::sp<android::GraphicBuffer> gb =
        new android::GraphicBuffer(64, 16, HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x130);
    ASSERT_EQ(gb->initCheck(), android::NO_ERROR);
    GETestLog log;
    GLTexture* tex = new GLTexture();
    EXPECT_EQ(tex->Init(gb->getNativeBuffer(), GLTexture::kFormatYUV, GL_UNSIGNED_BYTE, 64, 16), 0);
    EXPECT_EQ(tex->GetTarget(), 0xFFFFFFFFu);
    // The image was made; the bind is the first check to fail.
    EXPECT_FALSE(log.Has(E, "GECommon", "eglCreateImageKHR")) << log.Dump();
    EXPECT_TRUE(log.HasExact(
        E, "GECommon",
        "[GLTexture::Init] ERROR, glBindTexture failed with error: 0x500 GL_INVALID_ENUM"))
        << log.Dump();
    log.Clear();
    delete tex;
    EXPECT_GE(IndexOf(log, "[GLTexture::~GLTexture] eglDestroyImageKHR returned"), 0) << log.Dump();
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
    std::vector<std::string> expected = {
        "[GLTexture::Init] ######################", "[GLTexture::Init] unequal display",
        "[GLTexture::Init] ######################", "[GLTexture::Init] ######################",
        "[GLTexture::Init] unequal context",        "[GLTexture::Init] ######################",
    };
    std::vector<std::string> errors;
    for (const GETestLogLine& l : log.Lines()) {
        if (l.priority == E) {
            errors.push_back(l.text);
        }
    }
    EXPECT_EQ(errors, expected) << log.Dump();

    log.Clear();
    delete tex;
    errors.clear();
    for (const GETestLogLine& l : log.Lines()) {
        if (l.priority == E) {
            errors.push_back(l.text);
        }
    }
    expected = {"[GLTexture::~GLTexture] ######################",
                "[GLTexture::~GLTexture] unequal display",
                "[GLTexture::~GLTexture] ######################"};
    EXPECT_EQ(errors, expected) << log.Dump();
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
    // Buffer first, then the held references in reverse order.
    EXPECT_EQ(order, (std::vector<std::string>{"held1", "held0"}));

    int enter = IndexOf(log, "[~GLTexture] enter");
    int deleting =
        IndexOf(log, "[GLTexture::~GLTexture] deleting <ST Operation> tex " + std::to_string(name));
    int image = IndexOf(log, "[GLTexture::~GLTexture] eglDestroyImageKHR");
    int imageDone = IndexOf(log, "[GLTexture::~GLTexture] eglDestroyImageKHR returned");
    int texture = IndexOf(log, "[GLTexture::~GLTexture] glDeleteTextures");
    int textureDone = IndexOf(log, "[GLTexture::~GLTexture] glDeleteTextures returned");
    int leave = IndexOf(log, "[~GLTexture] leave");
    EXPECT_EQ(enter, 0) << log.Dump();
    EXPECT_EQ(deleting, 1);
    EXPECT_EQ(image, 2);
    EXPECT_EQ(imageDone, 3);
    EXPECT_EQ(texture, 4);
    EXPECT_EQ(textureDone, 5);
    EXPECT_EQ(leave, 6);
    EXPECT_FALSE(log.Has(E, "GLTexture", "unequal"));
}

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

    std::vector<unsigned char> seen = SampleTexture(tex.GetTexName(), allocW, h, allocW, h);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < allocW; ++x) {
            const unsigned char* want = data + y * pitch + x * 4;
            const unsigned char* got = &seen[((size_t)y * allocW + x) * 4];
            ASSERT_EQ(memcmp(want, got, 4), 0)
                << "texel " << x << "," << y << ": " << (int)got[0] << " " << (int)got[1] << " "
                << (int)got[2] << " " << (int)got[3];
        }
    }
}

TEST_F(TextureTest, GPURenderingReachesTheCPUAfterClean) {
    const int w = 24, h = 6;
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, w, h, 1), 1);
    const int allocW = (int)tex.GetAllocWidth();
    const size_t pitch = (size_t)tex.GetStride() * 4;
    unsigned char* data = tex.GetSTDataBuf();
    ASSERT_NE(data, nullptr);
    memset(data, 0x5A, pitch * h);  // poison
    EXPECT_EQ(tex.clean_buffer(), 1);

    GLuint fbo = 0;
    glGenFramebuffers(1, &fbo);
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, tex.GetTexName(),
                           0);
    ASSERT_EQ(glCheckFramebufferStatus(GL_FRAMEBUFFER), (GLenum)GL_FRAMEBUFFER_COMPLETE);
    glViewport(0, 0, allocW, h);
    glClearColor(10 / 255.0f, 20 / 255.0f, 30 / 255.0f, 40 / 255.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    glEnable(GL_SCISSOR_TEST);
    glScissor(3, 1, 5, 2);
    glClearColor(1.0f, 128 / 255.0f, 0.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    glDisable(GL_SCISSOR_TEST);
    glFinish();
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDeleteFramebuffers(1, &fbo);

    EXPECT_EQ(tex.clean_buffer(), 1);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < allocW; ++x) {
            bool inside = x >= 3 && x < 8 && y >= 1 && y < 3;
            const unsigned char want[4] = {
                (unsigned char)(inside ? 255 : 10), (unsigned char)(inside ? 128 : 20),
                (unsigned char)(inside ? 0 : 30), (unsigned char)(inside ? 255 : 40)};
            ASSERT_EQ(memcmp(data + y * pitch + x * 4, want, 4), 0)
                << "texel " << x << "," << y << " = " << (int)data[y * pitch + x * 4];
        }
    }
}

}  // namespace
