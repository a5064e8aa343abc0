// BMP files: the lenient reader into normal and streaming textures, the three
// writers that copy a template header, round trips through them, and bad
// input. Files are written under "/data/", which the host resolves below its
// root folder.
#include <GLES2/gl2.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "GETestFile.h"
#include "GETestGL.h"
#include "GETestLog.h"
#include "gl/GLFbo.h"
#include "gl/GLTexture.h"

namespace {

const int I = ANDROID_LOG_INFO;
const int E = ANDROID_LOG_ERROR;
typedef GETestBytes Bytes;

std::string DataPath(const std::string& name) {
    return "/data/test_gl_bmp_" + name;
}

// Writes `bytes` under "/data/" and returns the path.
std::string Put(const std::string& name, const Bytes& bytes) {
    std::string path = DataPath(name);
    EXPECT_TRUE(GETestWriteFile(path, bytes)) << path;
    return path;
}

// The first n bytes of an ST's buffer.
Bytes STBytes(GLTexture* tex, size_t n) {
    const unsigned char* p = tex->GetSTDataBuf();
    return p ? Bytes(p, p + n) : Bytes();
}

int Expand(unsigned v, unsigned bits) {
    return (int)((v * 255 + ((1u << bits) - 1) / 2) / ((1u << bits) - 1));
}

// The RGBA a shader reads from a texel of `bits` per pixel stored as `p`.
void Sampled(const unsigned char* p, unsigned bits, int want[4]) {
    if (bits == 16) {
        unsigned v = (unsigned)p[0] | (unsigned)p[1] << 8;
        want[0] = Expand(v >> 11, 5), want[1] = Expand((v >> 5) & 63, 6);
        want[2] = Expand(v & 31, 5), want[3] = 255;
    } else if (bits == 8) {
        want[0] = want[1] = want[2] = p[0], want[3] = 255;
    } else {
        want[0] = p[0], want[1] = p[1], want[2] = p[2], want[3] = bits == 32 ? p[3] : 255;
    }
}

class BmpTest : public GLTest {
protected:
    void SetUp() override {
        GLTest::SetUp();
        glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    }
};

// Each depth into a normal texture (as a shader sees it) and, but for 8 bits,
// into a streaming one (bytes packed at the start of the buffer, rows not at
// its 32-pixel stride, the rest untouched).
TEST_F(BmpTest, LoadsEachDepth) {
    const int w = 20, h = 3;
    const struct {
        unsigned bits, format, type;
    } cases[] = {
        {32, GL_RGBA, GL_UNSIGNED_BYTE},
        {24, GL_RGB, GL_UNSIGNED_BYTE},
        {16, GL_RGB, GL_UNSIGNED_SHORT_5_6_5},
        {8, GL_LUMINANCE, GL_UNSIGNED_BYTE},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bits);
        const size_t n = (size_t)w * h * c.bits / 8;
        Bytes pixels = GETestPattern(n, c.bits);
        std::string path = Put("load.bmp", GETestMakeBmp(w, h, c.bits, pixels));
        GETestLog log;
        GLTexture tex;
        ASSERT_EQ(tex.LoadBMP(path.c_str(), c.format, c.type, 0), 1) << log.Dump();
        EXPECT_TRUE(log.HasExact(I, "GLTexture", "[LoadBMP] BMP file " + path));
        EXPECT_TRUE(
            log.HasExact(I, "GLTexture", GETestFormat("[LoadBMP] reading 20x3, %u BPP", c.bits)));
        EXPECT_FALSE(tex.IsST());
        EXPECT_EQ(tex.GetWidth(), (unsigned)w);
        EXPECT_EQ(tex.GetHeight(), (unsigned)h);
        GLint v = 0;
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, &v);
        EXPECT_EQ(v, GL_REPEAT);
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, &v);
        EXPECT_EQ(v, GL_LINEAR);
        Bytes seen = GETestSampleTexture(tex.GetTexName(), w, h);
        for (int i = 0; i < w * h; ++i) {
            int want[4];
            Sampled(&pixels[(size_t)i * c.bits / 8], c.bits, want);
            for (int k = 0; k < 4; ++k) {
                ASSERT_NEAR(seen[(size_t)i * 4 + k], want[k], c.bits == 16 ? 1 : 0)
                    << "texel " << i << " channel " << k;
            }
        }
        if (c.bits == 8) {
            continue;
        }
        path = Put("load_st.bmp", GETestMakeBmp(w, h, c.bits, pixels, 6));
        GLTexture st;
        ASSERT_EQ(st.LoadBMP(path.c_str(), c.format, c.type, 1), 1);
        EXPECT_TRUE(st.IsST());
        EXPECT_EQ(st.GetAllocWidth(), 32u);
        size_t capacity = (size_t)st.GetStride() * h * st.GetBytesPerPixel();
        Bytes all = STBytes(&st, capacity);
        EXPECT_EQ(Bytes(all.begin(), all.begin() + n), pixels);
        EXPECT_EQ(std::count(all.begin() + n, all.end(), 0), (long)(capacity - n));
    }
}

// Files the reader takes though they do not fit: nothing is read or written
// outside the buffers.
TEST_F(BmpTest, LenientLoadsStayInsideTheirBuffers) {
    // A 24-bit file as GL_RGBA / GL_UNSIGNED_BYTE passes (the type matches):
    // its 3-byte pixels fill the 4-byte texels in order, zero past the file's.
    const int w = 5, h = 3;
    Bytes rgb = GETestPattern((size_t)w * h * 3, 7);
    std::string path = Put("rgb_as_rgba.bmp", GETestMakeBmp(w, h, 24, rgb));
    GLTexture rgba;
    ASSERT_EQ(rgba.LoadBMP(path.c_str(), GL_RGBA, GL_UNSIGNED_BYTE, 0), 1);
    Bytes stream = rgb;
    stream.resize((size_t)w * h * 4, 0);
    EXPECT_EQ(GETestSampleTexture(rgba.GetTexName(), w, h), stream);

    // Five luminance bytes a row: GL reads rows 8 bytes apart (alignment 4)
    // from the packed bytes, zero past the file's.
    const int lw = 5, lh = 4;
    Bytes grey = GETestPattern((size_t)lw * lh, 9);
    path = Put("lum5.bmp", GETestMakeBmp(lw, lh, 8, grey));
    GLTexture lum;
    ASSERT_EQ(lum.LoadBMP(path.c_str(), GL_LUMINANCE, GL_UNSIGNED_BYTE, 0), 1);
    Bytes seen = GETestSampleTexture(lum.GetTexName(), lw, lh);
    for (int y = 0; y < lh; ++y) {
        for (int x = 0; x < lw; ++x) {
            size_t at = (size_t)y * 8 + x;
            ASSERT_EQ(seen[((size_t)y * lw + x) * 4], at < grey.size() ? grey[at] : 0)
                << x << "," << y;
        }
    }

    // A 32-bit file as a GL_RGB / GL_UNSIGNED_BYTE ST passes (the type
    // matches): 512 bytes of pixels for a buffer of 32 x 4 x 3 = 384 bytes.
    Bytes big = GETestPattern(32 * 4 * 4, 11);
    path = Put("rgba_into_rgb_st.bmp", GETestMakeBmp(32, 4, 32, big));
    GLTexture st;
    ASSERT_EQ(st.LoadBMP(path.c_str(), GL_RGB, GL_UNSIGNED_BYTE, 1), 1);
    ASSERT_EQ((size_t)st.GetStride() * 4 * 3, 384u);
    EXPECT_EQ(STBytes(&st, 384), Bytes(big.begin(), big.begin() + 384));
    // Nor past it: the rest of the buffer's mapped page stays zero.
    const unsigned char* end = st.GetSTDataBuf() + 384;
    const size_t tail = (size_t)sysconf(_SC_PAGESIZE) - (uintptr_t)end % sysconf(_SC_PAGESIZE);
    EXPECT_EQ((long)tail, std::count(end, end + tail, 0));
}

TEST_F(BmpTest, RefusedFiles) {
    Bytes good = GETestMakeBmp(4, 4, 32, GETestPattern(64, 5));
    Bytes hugeOffset = good;
    GETestPut32(&hugeOffset, 10, 0xFFFFFFF0u);
    Bytes farOffset = good;
    GETestPut32(&farOffset, 10, 1000);
    Bytes notBmp = good;
    notBmp[1] = 'A';
    auto bmp = [](int32_t w, int32_t h, unsigned bits) {
        return GETestMakeBmp(w, h, bits, GETestPattern(64, 1));
    };
    const unsigned RGBA = GL_RGBA, RGB = GL_RGB, LUM = GL_LUMINANCE, UB = GL_UNSIGNED_BYTE,
                   S565 = GL_UNSIGNED_SHORT_5_6_5;
    const std::string kRead = "[LoadBMP] error reading file";
    const std::string kMemory = "[LoadBMP] out of memory";
    const struct {
        const char* name;
        Bytes bytes;
        unsigned format, type, st;
        std::string line;
    } cases[] = {
        // Both format and type disagree with the depth.
        {"m32", bmp(4, 4, 32), RGB, S565, 0,
         "[LoadBMP] 32 bpp, format 0x1907 and type 0x8363 mismatch"},
        {"m24", bmp(4, 4, 24), LUM, S565, 0,
         "[LoadBMP] 24 bpp, format 0x1909 and type 0x8363 mismatch"},
        {"m16", bmp(4, 4, 16), RGBA, UB, 0,
         "[LoadBMP] 16 bpp, format 0x1908 and type 0x1401 mismatch"},
        {"m8", bmp(4, 4, 8), RGB, S565, 0,
         "[LoadBMP] 8 bpp, format 0x1907 and type 0x8363 mismatch"},
        // Damaged files.
        {"empty", Bytes(), RGBA, UB, 0, "[LoadBMP] Can't open bmp: Header fail"},
        {"notbmp", notBmp, RGBA, UB, 0, "[LoadBMP] Can't open bmp: Header fail"},
        {"shortheader", Bytes(good.begin(), good.begin() + 30), RGBA, UB, 0, kRead},
        {"shortpixels", Bytes(good.begin(), good.end() - 1), RGBA, UB, 0, kRead},
        {"nopixels", Bytes(good.begin(), good.begin() + 54), RGBA, UB, 0, kRead},
        {"faroffset", farOffset, RGBA, UB, 0, kRead},
        {"hugeoffset", hugeOffset, RGBA, UB, 0, kRead},
        // Sizes no texture can have, and a possible one the file does not hold.
        {"negheight", bmp(4, -4, 32), RGBA, UB, 0, kMemory},
        {"negwidth", bmp(-4, 4, 32), RGBA, UB, 0, kMemory},
        {"wide", bmp(0x7FFFFFFF, 1, 8), RGBA, UB, 0, kMemory},
        {"square", bmp(65536, 65536, 32), RGBA, UB, 0, kMemory},
        {"overflow", bmp(0x40000000, 0x40000000, 32), RGBA, UB, 0, kMemory},
        {"bigshort", bmp(16384, 16384, 32), RGBA, UB, 0, kRead},
        // A depth that no streaming texture takes.
        {"lum_st", bmp(4, 4, 8), LUM, UB, 1, "[LoadBMP] Can't init texture"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::string path = Put(std::string("bad_") + c.name + ".bmp", c.bytes);
        GETestLog log;
        GLTexture tex;
        EXPECT_EQ(tex.LoadBMP(path.c_str(), c.format, c.type, (unsigned char)c.st), 0);
        EXPECT_TRUE(log.HasExact(E, "GLTexture", c.line)) << log.Dump();
        EXPECT_EQ(tex.GetTexName(), 0xFFFFFFFFu);
    }
    GETestLog log;
    GLTexture tex;
    EXPECT_EQ(tex.LoadBMP("/data/test_gl_bmp_missing.bmp", GL_RGBA, GL_UNSIGNED_BYTE, 0), 0);
    EXPECT_EQ(log.Texts(E),
              std::vector<std::string>{"[LoadBMP] Can't open BMP /data/test_gl_bmp_missing.bmp"});

    // Bits per pixel 12 passes the format test, then fails without a line.
    std::string path = Put("bpp12.bmp", GETestMakeBmp(4, 4, 12, GETestPattern(24, 3)));
    log.Clear();
    EXPECT_EQ(tex.LoadBMP(path.c_str(), GL_RGBA, GL_UNSIGNED_BYTE, 0), 0);
    EXPECT_EQ(log.Texts().back(), "[LoadBMP] reading 4x4, 12 BPP");
    EXPECT_EQ(log.Texts(E), std::vector<std::string>());
    EXPECT_EQ(tex.GetTexName(), 0xFFFFFFFFu);
}

// A template of 154 bytes: 54 header bytes, `gap` marker bytes, 100 pixel bytes.
std::string WriteTemplate(size_t gap) {
    return Put(GETestFormat("tpl%zu.bmp", gap),
               GETestMakeBmp(3, 2, 24, GETestPattern(100, 77), gap));
}

// The header a writer must produce from `tpl`: its first `span` bytes with
// width, height and bits per pixel patched.
void ExpectHeader(const Bytes& out, const Bytes& tpl, size_t span, unsigned w, unsigned h,
                  unsigned bits) {
    ASSERT_GE(out.size(), span);
    for (size_t i = 0; i < span; ++i) {
        if ((i < 18 || i >= 26) && i != 28 && i != 29) {
            ASSERT_EQ(out[i], tpl[i]) << "header byte " << i;
        }
    }
    EXPECT_EQ(GETestGet32(out, 18), w);
    EXPECT_EQ(GETestGet32(out, 22), h);
    EXPECT_EQ(GETestGet16(out, 28), bits);
}

// The streaming-texture writer for each depth; the pixel data goes at the
// template's offset, past its 128 copied bytes for the 24-bit case.
TEST_F(BmpTest, StreamingTextureWriterRoundTrips) {
    const struct {
        unsigned format, type, w, h, bits;
        size_t gap;
    } cases[] = {
        {GL_RGBA, GL_UNSIGNED_BYTE, 20, 3, 32, 0},
        {GL_RGB, GL_UNSIGNED_BYTE, 32, 2, 24, 86},
        {GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 32, 2, 16, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bits);
        std::string tplPath = WriteTemplate(c.gap);
        Bytes tpl = GETestReadFile(tplPath);
        const size_t offset = 54 + c.gap, n = (size_t)c.w * c.h * c.bits / 8;
        GLTexture tex;
        ASSERT_EQ(tex.Init(c.format, c.type, c.w, c.h, 1), 1);
        Bytes pixels = GETestPattern(n, c.bits + 20);
        memcpy(tex.GetSTDataBuf(), pixels.data(), n);

        GETestLog log;
        ASSERT_EQ(tex.SaveBMP(tplPath.c_str(), "test_gl_bmp_out.bmp"), 1) << log.Dump();
        EXPECT_TRUE(log.HasExact(I, "GLTexture", "[SaveBMP] fname " + tplPath));
        EXPECT_TRUE(log.HasExact(I, "GLTexture", "[SaveBMP] foutname /data/test_gl_bmp_out.bmp"));
        EXPECT_TRUE(log.HasExact(I, "GLTexture",
                                 GETestFormat("[SaveBMP] offset %zu, w=%u, h=%u, bpp=%u, size=%zu",
                                              offset, c.w, c.h, c.bits, n)))
            << log.Dump();
        // 32 bits: RGBA becomes BGRA with opaque alpha, in the texture too.
        Bytes want = pixels;
        for (size_t i = 0; c.bits == 32 && i < n; i += 4) {
            std::swap(want[i], want[i + 2]);
            want[i + 3] = 0xFF;
        }
        EXPECT_EQ(STBytes(&tex, n), want);

        Bytes out = GETestReadFile("/data/test_gl_bmp_out.bmp");
        ASSERT_EQ(out.size(), offset + n);
        ExpectHeader(out, tpl, std::min<size_t>(offset, 128), c.w, c.h, c.bits);
        for (size_t i = 128; i < offset; ++i) {
            EXPECT_EQ(out[i], 0) << i;
        }
        EXPECT_EQ(Bytes(out.begin() + offset, out.end()), want);
        GLTexture back;
        ASSERT_EQ(back.LoadBMP("/data/test_gl_bmp_out.bmp", c.format, c.type, 1), 1);
        EXPECT_EQ(STBytes(&back, n), want);
    }
}

TEST_F(BmpTest, WriterRefusals) {
    std::string tplPath = WriteTemplate(0);
    Bytes lying = GETestReadFile(tplPath);
    GETestPut32(&lying, 10, 0xFFFFFF00u);  // pixel data past the template's end
    std::string lyingPath = Put("lying_tpl.bmp", lying);
    std::string notBmp = Put("not_a_bmp.bmp", Bytes(200, 'x'));
    GLTexture normal, rgba, lum, rgb;
    ASSERT_EQ(normal.Init(GL_RGBA, GL_UNSIGNED_BYTE, 4, 4, 0), 1);
    ASSERT_EQ(rgba.Init(GL_RGBA, GL_UNSIGNED_BYTE, 32, 4, 1), 1);
    ASSERT_EQ(rgb.Init(GL_RGB, GL_UNSIGNED_BYTE, 32, 4, 1), 1);
    // A buffer wrapped with a luminance format: a streaming texture that the
    // writers do not take.
    ASSERT_EQ(
        lum.Init(rgba.GetGraphicBuffer()->getNativeBuffer(), GL_LUMINANCE, GL_UNSIGNED_BYTE, 32, 4),
        1);
    GLFbo fbo, empty;
    ASSERT_EQ(fbo.Init(), 1);
    ASSERT_EQ(empty.Init(), 1);
    ASSERT_EQ(fbo.SetColorAttachment(&rgba), 1);

    enum { TEX, YUVX, FBO };
    const char* out = "test_gl_bmp_x.bmp";
    const struct {
        int writer;
        GLTexture* tex;
        std::string tpl;
        const char* out;
        std::string line;
    } cases[] = {
        {TEX, &normal, tplPath, out, "[SaveBMP] ERROR, only streaming texture use this method"},
        {YUVX, &normal, tplPath, out,
         "[SaveBMP_yuvx] ERROR, only streaming texture use this method"},
        {TEX, &lum, tplPath, out, "[SaveBMP] ERROR, only RGB or RGBA texture use this method"},
        // The grey writer reads 4 bytes a texel.
        {YUVX, &rgb, tplPath, out, "[SaveBMP_yuvx] ERROR, only 32-bit texture use this method"},
        {TEX, &rgba, DataPath("no_template.bmp"), out, "[SaveBMP] can't open fin"},
        {TEX, &rgba, tplPath, "no_such_dir/x.bmp",
         "[SaveBMP] can't open fout, No such file or directory"},
        {TEX, &rgba, notBmp, out, "[SaveBMP] not a BMP file"},
        {TEX, &rgba, lyingPath, out, "[SaveBMP] not a BMP file"},
        {FBO, nullptr, lyingPath, out, "[SaveBMP] not a BMP file"},
        {FBO, nullptr, tplPath, nullptr, "[SaveBMP] no texture attached"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        GETestLog log;
        int result = c.writer == TEX    ? c.tex->SaveBMP(c.tpl.c_str(), c.out)
                     : c.writer == YUVX ? c.tex->SaveBMP_yuvx(c.tpl.c_str(), c.out)
                     : c.out            ? fbo.SaveBMP(c.tpl.c_str(), c.out)
                                        : empty.SaveBMP(c.tpl.c_str(), out);
        EXPECT_EQ(result, 0);
        EXPECT_TRUE(log.HasExact(E, c.writer == FBO ? "GLFbo" : "GLTexture", c.line)) << log.Dump();
    }
    EXPECT_LT(GETestReadFile(DataPath("x.bmp")).size(), 4096u);
}

TEST_F(BmpTest, SaveYuvxWritesTheFourthByteOfEachTexel) {
    std::string tplPath = WriteTemplate(0);
    Bytes tpl = GETestReadFile(tplPath);
    const int w = 20, h = 3;
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, w, h, 1), 1);
    size_t n = (size_t)w * h * 4;
    Bytes yuvx = GETestPattern(n, 61);
    memcpy(tex.GetSTDataBuf(), yuvx.data(), n);

    GETestLog log;
    ASSERT_EQ(tex.SaveBMP_yuvx(tplPath.c_str(), "test_gl_bmp_yuvx.bmp"), 1) << log.Dump();
    EXPECT_TRUE(log.HasExact(
        I, "GLTexture", GETestFormat("[SaveBMP_yuvx] m_pData=%p, 20x3", (void*)tex.GetSTDataBuf())))
        << log.Dump();
    EXPECT_EQ(STBytes(&tex, n), yuvx);  // left as it was

    Bytes grey;
    for (size_t i = 0; i < n; i += 4) {
        grey.push_back(yuvx[i + 3]);
    }
    Bytes out = GETestReadFile("/data/test_gl_bmp_yuvx.bmp");
    // 60 pixel bytes at 54 end inside the 128 template bytes, whose tail stays.
    ASSERT_EQ(out.size(), 128u);
    ExpectHeader(out, tpl, 54, w, h, 8);
    EXPECT_EQ(Bytes(out.begin() + 54, out.begin() + 114), grey);
    EXPECT_EQ(Bytes(out.begin() + 114, out.end()), Bytes(tpl.begin() + 114, tpl.begin() + 128));
}

TEST_F(BmpTest, FramebufferDump) {
    // The template's whole header, up to its pixel data at 70, is copied.
    std::string tplPath = WriteTemplate(16);
    Bytes tpl = GETestReadFile(tplPath);
    const int w = 6, h = 3;
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, w, h, 0), 1);
    Bytes rgba = GETestPattern((size_t)w * h * 4, 71);
    ASSERT_EQ(tex.UpdateNormalTexture(rgba.data(), w, h), 1);
    GLFbo fbo;
    ASSERT_EQ(fbo.Init(), 1);
    ASSERT_EQ(fbo.SetColorAttachment(&tex), 1);
    fbo.Bind();

    GETestLog log;
    ASSERT_EQ(fbo.SaveBMP(tplPath.c_str(), "test_gl_bmp_fbo.bmp"), 1) << log.Dump();
    EXPECT_TRUE(log.HasExact(I, "GLFbo", "[SaveBMP] offset 70, w=6, h=3, bpp=32, size=72"))
        << log.Dump();
    // Red and blue swap; alpha is kept.
    Bytes bgra = rgba;
    for (size_t i = 0; i < bgra.size(); i += 4) {
        std::swap(bgra[i], bgra[i + 2]);
    }
    Bytes out = GETestReadFile("/data/test_gl_bmp_fbo.bmp");
    ASSERT_EQ(out.size(), 70 + bgra.size());
    ExpectHeader(out, tpl, 70, w, h, 32);
    EXPECT_EQ(Bytes(out.begin() + 70, out.end()), bgra);
}

}  // namespace
