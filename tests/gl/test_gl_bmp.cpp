// BMP files: look-up images read from the device folders into normal and
// streaming textures, the files the reader refuses, and the three writers
// of debug dumps with the templates and outputs they refuse.
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
#include "GETestRoot.h"
#include "gl/GLFbo.h"
#include "gl/GLTexture.h"

namespace {

const int E = ANDROID_LOG_ERROR;
typedef GETestBytes Bytes;

Bytes STBytes(GLTexture* tex, size_t n) {
    const unsigned char* p = tex->GetSTDataBuf();
    return p ? Bytes(p, p + n) : Bytes();
}

// The RGBA that GL reads back from a texel of `bits` per pixel stored as `p`.
void Sampled(const unsigned char* p, unsigned bits, int want[4]) {
    auto expand = [](unsigned v, unsigned n) {
        return (int)((v * 255 + ((1u << n) - 1) / 2) / ((1u << n) - 1));
    };
    const unsigned v = (unsigned)p[0] | (unsigned)p[1] << 8;
    if (bits == 16) {
        want[0] = expand(v >> 11, 5), want[1] = expand((v >> 5) & 63, 6);
        want[2] = expand(v & 31, 5), want[3] = 255;
    } else {
        want[0] = p[0], want[1] = p[1], want[2] = p[2], want[3] = bits == 32 ? p[3] : 255;
    }
}

class BmpTest : public GLTest {
protected:
    GETestRoot m_root;
};

// Each depth from the system folder into a normal texture (as GL holds it,
// repeating, filtered linearly) and, but for 8 bits, from the override
// folder into a streaming one (bytes packed at the start of the buffer, not
// at its 32-pixel stride, the rest untouched).
TEST_F(BmpTest, LoadsEachDepthFromTheDeviceFolders) {
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
        const Bytes pixels = GETestPattern(n, c.bits);
        auto texel = [&](int x, int y, unsigned char* t) {
            memcpy(t, &pixels[((size_t)y * w + x) * c.bits / 8], c.bits / 8);
        };
        const std::string path = m_root.PutBmp("look.bmp", w, h, c.bits, texel);
        GLTexture tex;
        ASSERT_EQ(1, tex.LoadBMP(path.c_str(), c.format, c.type, 0));
        EXPECT_TRUE(!tex.IsST() && tex.GetWidth() == (unsigned)w && tex.GetHeight() == (unsigned)h);
        GLint wrap = 0, filter = 0;
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, &wrap);
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &filter);
        EXPECT_TRUE(wrap == GL_REPEAT && filter == GL_LINEAR);
        if (c.bits == 8) {
            continue;  // luminance: no framebuffer to read it through
        }
        const Bytes seen = GETestReadTexture(tex.GetTexName(), w, h);
        for (int i = 0; i < w * h; ++i) {
            int want[4];
            Sampled(&pixels[(size_t)i * c.bits / 8], c.bits, want);
            for (int k = 0; k < 4; ++k) {
                ASSERT_NEAR(want[k], seen[(size_t)i * 4 + k], c.bits == 16 ? 1 : 0)
                    << "texel " << i << " channel " << k;
            }
        }
        const std::string over =
            m_root.PutBmp("look.bmp", w, h, c.bits, texel, GETestRoot::kOverride);
        GLTexture st;
        ASSERT_EQ(1, st.LoadBMP(over.c_str(), c.format, c.type, 1));
        EXPECT_TRUE(st.IsST() && st.GetAllocWidth() == 32u);
        const size_t capacity = (size_t)st.GetStride() * h * st.GetBytesPerPixel();
        const Bytes all = STBytes(&st, capacity);
        EXPECT_TRUE(Bytes(all.begin(), all.begin() + n) == pixels);
        EXPECT_EQ((long)(capacity - n), std::count(all.begin() + n, all.end(), 0));
    }
    // Rows of 15 bytes, which GL reads 16 apart, past the file's bytes: those
    // read as zero (a buffer the size of the file alone would be overrun).
    const int rows = 10000;
    const Bytes rgb = GETestPattern(5 * 3 * rows, 7);
    GLTexture sheared;
    ASSERT_EQ(1, sheared.LoadBMP(m_root.Put("rgb5.bmp", GETestMakeBmp(5, rows, 24, rgb)).c_str(),
                                 GL_RGB, GL_UNSIGNED_BYTE, 0));
    const Bytes read = GETestReadTexture(sheared.GetTexName(), 5, rows);
    int bad = 0;
    for (size_t i = 0; i < read.size(); ++i) {
        const size_t at = i / 20 * 16 + i % 20 / 4 * 3 + i % 4;
        bad += i % 4 != 3 && read[i] != (at < rgb.size() ? rgb[at] : 0);
    }
    EXPECT_EQ(0, bad);
    // A header alone, for an image of 0 x 0: an empty texture.
    GLTexture empty;
    EXPECT_EQ(1, empty.LoadBMP(m_root.Put("empty.bmp", GETestMakeBmp(0, 0, 32, Bytes())).c_str(),
                               GL_RGBA, GL_UNSIGNED_BYTE, 0));
    // A 32-bit file as an RGB streaming texture passes (the type matches):
    // 512 bytes of pixels for a buffer of 384, which takes 384 and no more.
    const Bytes big = GETestPattern(32 * 4 * 4, 11);
    const std::string path = m_root.Put("big.bmp", GETestMakeBmp(32, 4, 32, big));
    GLTexture st;
    ASSERT_EQ(1, st.LoadBMP(path.c_str(), GL_RGB, GL_UNSIGNED_BYTE, 1));
    ASSERT_EQ(384u, (size_t)st.GetStride() * 4 * 3);
    EXPECT_TRUE(STBytes(&st, 384) == Bytes(big.begin(), big.begin() + 384));
    const unsigned char* end = st.GetSTDataBuf() + 384;
    const size_t tail = (size_t)sysconf(_SC_PAGESIZE) - (uintptr_t)end % sysconf(_SC_PAGESIZE);
    EXPECT_EQ((long)tail, std::count(end, end + tail, 0));
}

// Files the reader refuses, each with its error line (bits per pixel 12:
// none), leaving no texture.
TEST_F(BmpTest, RefusedFiles) {
    const Bytes good = GETestMakeBmp(4, 4, 32, GETestPattern(64, 5));
    Bytes hugeOffset = good, farOffset = good, notBmp = good;
    GETestPut32(&hugeOffset, 10, 0xFFFFFFF0u);
    GETestPut32(&farOffset, 10, 1000);
    notBmp[1] = 'A';
    auto bmp = [](int32_t w, int32_t h, unsigned bits) {
        return GETestMakeBmp(w, h, bits, GETestPattern(64, 1));
    };
    const unsigned RGBA = GL_RGBA, RGB = GL_RGB, LUM = GL_LUMINANCE, UB = GL_UNSIGNED_BYTE,
                   S565 = GL_UNSIGNED_SHORT_5_6_5;
    const std::string kRead = "[LoadBMP] error reading file", kMemory = "[LoadBMP] out of memory";
    const struct {
        Bytes bytes;
        unsigned format, type, st;
        std::string line;
    } cases[] = {
        // Both format and type disagree with the depth.
        {bmp(4, 4, 32), RGB, S565, 0, "[LoadBMP] 32 bpp, format 0x1907 and type 0x8363 mismatch"},
        {bmp(4, 4, 24), LUM, S565, 0, "[LoadBMP] 24 bpp, format 0x1909 and type 0x8363 mismatch"},
        {bmp(4, 4, 16), RGBA, UB, 0, "[LoadBMP] 16 bpp, format 0x1908 and type 0x1401 mismatch"},
        {bmp(4, 4, 8), RGB, S565, 0, "[LoadBMP] 8 bpp, format 0x1907 and type 0x8363 mismatch"},
        // Damaged files.
        {Bytes(), RGBA, UB, 0, "[LoadBMP] Can't open bmp: Header fail"},
        {notBmp, RGBA, UB, 0, "[LoadBMP] Can't open bmp: Header fail"},
        {Bytes(good.begin(), good.begin() + 30), RGBA, UB, 0, kRead},
        {Bytes(good.begin(), good.end() - 1), RGBA, UB, 0, kRead},
        {Bytes(good.begin(), good.begin() + 54), RGBA, UB, 0, kRead},
        {farOffset, RGBA, UB, 0, kRead},
        {hugeOffset, RGBA, UB, 0, kRead},
        // Sizes no texture can have, and a possible one the file does not hold.
        {bmp(4, -4, 32), RGBA, UB, 0, kMemory},
        {bmp(-4, 4, 32), RGBA, UB, 0, kMemory},
        {bmp(0x7FFFFFFF, 1, 8), RGBA, UB, 0, kMemory},
        {bmp(65536, 65536, 32), RGBA, UB, 0, kMemory},
        {bmp(0x40000000, 0x40000000, 32), RGBA, UB, 0, kMemory},
        {bmp(16385, 1, 32), RGBA, UB, 0, kMemory},
        {bmp(16384, 16384, 32), RGBA, UB, 0, kRead},
        {bmp(4, 4, 8), LUM, UB, 1, "[LoadBMP] Can't init texture"},  // no such streaming texture
        {GETestMakeBmp(4, 4, 12, GETestPattern(24, 3)), RGBA, UB, 0, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        const std::string path = m_root.Put("bad.bmp", c.bytes);
        GETestLog log;
        GLTexture tex;
        EXPECT_EQ(0, tex.LoadBMP(path.c_str(), c.format, c.type, (unsigned char)c.st));
        EXPECT_TRUE(c.line.empty() ? log.Texts(E).empty() : log.HasExact(E, "GLTexture", c.line))
            << log.Dump();
        EXPECT_EQ(0xFFFFFFFFu, tex.GetTexName());
    }
    GETestLog log;
    GLTexture tex;
    EXPECT_EQ(0, tex.LoadBMP("/system/media/GPU/missing.bmp", GL_RGBA, GL_UNSIGNED_BYTE, 0));
    EXPECT_TRUE(
        log.HasExact(E, "GLTexture", "[LoadBMP] Can't open BMP /system/media/GPU/missing.bmp"));
}

// The writers: a streaming texture of each depth (32 bits leave it BGRA with
// opaque alpha), its fourth bytes as a grey image, a framebuffer read back
// (red and blue swapped). Each output has the template's header with width,
// height and depth patched and the pixels at the template's data offset.
TEST_F(BmpTest, WritersDumpBehindTheTemplatesHeader) {
    const enum { TEX, YUVX, FBO } kinds[] = {TEX, TEX, TEX, YUVX, FBO};
    const struct {
        unsigned format, type, w, h, bits;
        size_t gap;  // template bytes between its header and its pixels
    } cases[] = {
        {GL_RGBA, GL_UNSIGNED_BYTE, 20, 3, 32, 0},       {GL_RGB, GL_UNSIGNED_BYTE, 32, 2, 24, 86},
        {GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 32, 2, 16, 0}, {GL_RGBA, GL_UNSIGNED_BYTE, 20, 3, 8, 0},
        {GL_RGBA, GL_UNSIGNED_BYTE, 6, 3, 32, 16},
    };
    for (int i = 0; i < 5; ++i) {
        const auto& c = cases[i];
        SCOPED_TRACE(i);
        const Bytes tpl = GETestMakeBmp(3, 2, 24, GETestPattern(100, 77), c.gap);
        const std::string tplPath = m_root.Put("tpl.bmp", tpl, GETestRoot::kData);
        const size_t offset = 54 + c.gap, n = (size_t)c.w * c.h * c.bits / 8;
        GLTexture tex;
        ASSERT_EQ(1, tex.Init(c.format, c.type, c.w, c.h, kinds[i] == FBO ? 0 : 1));
        const Bytes pixels = GETestPattern(kinds[i] == YUVX ? n * 4 : n, c.bits + 20);
        Bytes want = pixels;
        int result = 0;
        if (kinds[i] == FBO) {
            ASSERT_EQ(1, tex.UpdateNormalTexture(pixels.data(), c.w, c.h));
            GLFbo fbo;
            ASSERT_TRUE(fbo.Init() && fbo.SetColorAttachment(&tex) && fbo.Bind());
            result = fbo.SaveBMP(tplPath.c_str(), "out.bmp");
        } else {
            memcpy(tex.GetSTDataBuf(), pixels.data(), pixels.size());
            result = kinds[i] == TEX ? tex.SaveBMP(tplPath.c_str(), "out.bmp")
                                     : tex.SaveBMP_yuvx(tplPath.c_str(), "out.bmp");
        }
        ASSERT_EQ(1, result);
        if (kinds[i] == YUVX) {
            EXPECT_TRUE(STBytes(&tex, pixels.size()) == pixels);  // left as it was
            want.clear();
            for (size_t k = 3; k < pixels.size(); k += 4) {
                want.push_back(pixels[k]);
            }
        }
        for (size_t k = 0; c.bits == 32 && k < n; k += 4) {
            std::swap(want[k], want[k + 2]);
            want[k + 3] = kinds[i] == FBO ? want[k + 3] : 0xFF;
        }
        if (kinds[i] == TEX) {
            EXPECT_TRUE(STBytes(&tex, n) == want);
        }
        const Bytes out = GETestReadFile(m_root.Host(GETestRoot::kData, "out.bmp"));
        // Texture writers copy 128 template bytes (past the pixels of a small
        // dump); the framebuffer writer the header up to the data offset.
        const size_t head = kinds[i] == FBO ? offset : 128;
        ASSERT_EQ(std::max(offset + want.size(), head), out.size());
        for (size_t k = 0; k < std::min(head, offset); ++k) {
            if (k < 18 || (k >= 26 && k != 28 && k != 29)) {
                ASSERT_EQ(k < tpl.size() ? tpl[k] : 0, out[k]) << "header byte " << k;
            }
        }
        EXPECT_EQ((std::vector<unsigned>{c.w, c.h, c.bits}),
                  (std::vector<unsigned>{GETestGet32(out, 18), GETestGet32(out, 22),
                                         GETestGet16(out, 28)}));
        EXPECT_TRUE(Bytes(out.begin() + offset, out.begin() + offset + want.size()) == want);
    }
}

TEST_F(BmpTest, WriterRefusals) {
    const std::string tpl = m_root.Put("tpl.bmp", GETestMakeBmp(3, 2, 24, GETestPattern(100, 7)));
    Bytes lying = GETestReadFile(m_root.Host(GETestRoot::kSystem, "tpl.bmp"));
    GETestPut32(&lying, 10, 0xFFFFFF00u);  // pixel data past the template's end
    const std::string lyingPath = m_root.Put("lying.bmp", lying);
    const std::string notBmp = m_root.Put("not.bmp", Bytes(200, 'x'));
    // The smallest template: the header up to its depth field, the data at 30.
    Bytes tiny(lying.begin(), lying.begin() + 30);
    GETestPut32(&tiny, 10, 30);
    const std::string tinyPath = m_root.Put("tiny.bmp", tiny);
    // An output that cannot be written.
    ASSERT_EQ(0, symlink("/dev/full", m_root.Host(GETestRoot::kData, "full.bmp").c_str()));
    GLTexture normal, rgba, lum, rgb;
    ASSERT_EQ(1, normal.Init(GL_RGBA, GL_UNSIGNED_BYTE, 4, 4, 0));
    ASSERT_EQ(1, rgba.Init(GL_RGBA, GL_UNSIGNED_BYTE, 32, 4, 1));
    ASSERT_EQ(1, rgb.Init(GL_RGB, GL_UNSIGNED_BYTE, 32, 4, 1));
    ASSERT_EQ(1, lum.Init(rgba.GetGraphicBuffer()->getNativeBuffer(), GL_LUMINANCE,
                          GL_UNSIGNED_BYTE, 32, 4));  // a streaming texture the writers refuse
    GLFbo fbo, empty;
    ASSERT_TRUE(fbo.Init() && empty.Init() && fbo.SetColorAttachment(&rgba));
    enum { TEX, YUVX, FBO, NONE };
    const struct {
        int writer;
        GLTexture* tex;
        std::string tpl;
        const char* out;
        const char* line;  // null: written
    } cases[] = {
        {TEX, &normal, tpl, "x.bmp", "[SaveBMP] ERROR, only streaming texture use this method"},
        {YUVX, &normal, tpl, "x.bmp",
         "[SaveBMP_yuvx] ERROR, only streaming texture use this method"},
        {TEX, &lum, tpl, "x.bmp", "[SaveBMP] ERROR, only RGB or RGBA texture use this method"},
        {YUVX, &rgb, tpl, "x.bmp", "[SaveBMP_yuvx] ERROR, only 32-bit texture use this method"},
        {TEX, &rgba, "/data/no_template.bmp", "x.bmp", "[SaveBMP] can't open fin"},
        {TEX, &rgba, tpl, "no_dir/x.bmp", "[SaveBMP] can't open fout, No such file or directory"},
        {TEX, &rgba, notBmp, "x.bmp", "[SaveBMP] not a BMP file"},
        {TEX, &rgba, lyingPath, "x.bmp", "[SaveBMP] not a BMP file"},
        {FBO, &rgba, lyingPath, "x.bmp", "[SaveBMP] not a BMP file"},
        {NONE, &rgba, tpl, "x.bmp", "[SaveBMP] no texture attached"},
        {TEX, &rgb, tpl, "full.bmp", "[SaveBMP] ferror 0 1"},
        {YUVX, &rgba, tpl, "full.bmp", "[SaveBMP_yuvx] ferror 0 1"},
        {TEX, &rgba, tinyPath, "tiny_out.bmp", nullptr},
        {FBO, &rgba, tinyPath, "tiny_fbo.bmp", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line ? c.line : c.out);
        GETestLog log;
        fbo.Bind();
        const int result = c.writer == TEX    ? c.tex->SaveBMP(c.tpl.c_str(), c.out)
                           : c.writer == YUVX ? c.tex->SaveBMP_yuvx(c.tpl.c_str(), c.out)
                           : c.writer == FBO  ? fbo.SaveBMP(c.tpl.c_str(), c.out)
                                              : empty.SaveBMP(c.tpl.c_str(), c.out);
        EXPECT_EQ(c.line ? 0 : 1, result);
        EXPECT_TRUE(c.line ? log.HasExact(E, c.writer >= FBO ? "GLFbo" : "GLTexture", c.line)
                           : log.Texts(E).empty())
            << log.Dump();
    }
    EXPECT_FALSE(GETestReadFile(m_root.Host(GETestRoot::kData, "x.bmp")).size() > 128);
}

}  // namespace
