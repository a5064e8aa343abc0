// The GPU YUV output converter of the effect base class: plane sizes, the
// luma and chroma passes against the BT.601 formulas, the tile form's
// viewports and integer texture coordinates, the CPU copy out of the output
// textures (placement, overlap trimming, clipping, refusals) and the CPU
// block copy between streaming textures.
#include <GLES2/gl2.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "EngineTestUtil.h"
#include "GETestGL.h"
#include "GETestLog.h"
#include "engine/GEShader.h"
#include "gl/GLFbo.h"
#include "gl/GLTexture.h"

using namespace enginetest;

namespace {

const int I = ANDROID_LOG_INFO;
const int E = ANDROID_LOG_ERROR;
const unsigned char kPoison = 0xA5;

GELogTag s_probeLog("GEConverterProbe");

// A bare effect that lets the tests reach the converter's state.
class ConverterProbe : public GEShader {
public:
    ConverterProbe() : GEShader(s_probeLog) {}
    ~ConverterProbe() override { Deinit(); }
    int ProcBlock(unsigned, unsigned, int, int) override { return 1; }
    int ProcFrame(unsigned, unsigned, int, int) override { return 1; }
    int ProcFrame(unsigned char*, unsigned char*, int, int) override { return 1; }
    using GEShader::ProcFrame;
    int SetParam(unsigned, int, int, int, int) override { return 1; }

    using GEShader::m_nOverlapX;
    using GEShader::m_nOverlapY;
    using GEShader::m_nYUVPlaneStride;
    using GEShader::m_nYUVUVHeight;
    using GEShader::m_pDstFbo;
    using GEShader::m_pUVFbo;
    using GEShader::m_pUVTex;
    using GEShader::m_pYFbo;
    using GEShader::m_pYTex;
    using GEShader::m_pYUVSrcTex;
};

// RGBA test pattern, 8-bit channels.
void PatternPixel(int x, int y, int c[4]) {
    c[0] = (x * 37 + y * 11) % 256;
    c[1] = (x * 13 + y * 29 + 50) % 256;
    c[2] = (x * 5 + y * 47 + 100) % 256;
    c[3] = 255;
}

std::vector<unsigned char> Pattern(int w, int h) {
    std::vector<unsigned char> px((size_t)w * h * 4);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            int c[4];
            PatternPixel(x, y, c);
            for (int k = 0; k < 4; ++k) {
                px[((size_t)y * w + x) * 4 + k] = (unsigned char)c[k];
            }
        }
    }
    return px;
}

double PatternY(int x, int y) {
    int c[4];
    PatternPixel(x, y, c);
    return LumaOf(c[0], c[1], c[2]);
}

// V and U of the mean of the given pixels.
void PatternVU(const std::vector<std::pair<int, int>>& pixels, double* v, double* u) {
    double r = 0, g = 0, b = 0;
    for (const auto& p : pixels) {
        int c[4];
        PatternPixel(p.first, p.second, c);
        r += c[0];
        g += c[1];
        b += c[2];
    }
    const double n = (double)pixels.size();
    *v = VOf(r / n, g / n, b / n);
    *u = UOf(r / n, g / n, b / n);
}

class ConverterTest : public GLTest {
protected:
    // Brings the converter up for a w x h source and output and puts the test
    // pattern into its source texture.
    void Up(int w, int h) {
        ASSERT_EQ(1, m_probe.InitYUVConverter(w, h, w, h));
        std::vector<unsigned char> px = Pattern(w, h);
        ASSERT_EQ(1, m_probe.m_pYUVSrcTex->UpdateNormalTexture(px.data(), w, h));
    }
    // Paints every texel of both output textures with a marker colour.
    void PaintOutputs() {
        glClearColor(1.0f, 0.0f, 1.0f, 0.0f);
        m_probe.m_pYFbo->Bind();
        glClear(GL_COLOR_BUFFER_BIT);
        m_probe.m_pUVFbo->Bind();
        glClear(GL_COLOR_BUFFER_BIT);
        glFinish();
    }
    void TearDown() override {
        m_probe.Deinit();
        GLTest::TearDown();
    }
    ConverterProbe m_probe;
};

TEST_F(ConverterTest, PlaneRowLengthAndOutputTextureSizes) {
    struct Case {
        int outW, outH, rowLength;
    };
    // ((outW / 4 + 31) & ~31) * 4, worked out by hand.
    const Case cases[] = {{1000, 6, 1024}, {64, 4, 128},  {128, 4, 128}, {129, 4, 128},
                          {512, 2, 512},   {516, 3, 640}, {4, 2, 128}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.outW);
        ASSERT_EQ(1, m_probe.InitYUVConverter(64, 32, c.outW, c.outH));
        EXPECT_EQ(c.rowLength, m_probe.m_nYUVPlaneStride);
        EXPECT_EQ(c.outH / 2, m_probe.m_nYUVUVHeight);
        EXPECT_EQ((unsigned)c.rowLength / 4, m_probe.m_pYTex->GetWidth());
        EXPECT_EQ((unsigned)c.rowLength / 4, m_probe.m_pYTex->GetStride());
        EXPECT_EQ((unsigned)c.outH, m_probe.m_pYTex->GetHeight());
        EXPECT_EQ((unsigned)c.rowLength / 4, m_probe.m_pUVTex->GetWidth());
        EXPECT_EQ((unsigned)c.outH / 2, m_probe.m_pUVTex->GetHeight());
        EXPECT_TRUE(m_probe.m_pYTex->IsST());
        EXPECT_TRUE(m_probe.m_pUVTex->IsST());
        EXPECT_FALSE(m_probe.m_pYUVSrcTex->IsST());
        EXPECT_EQ(64u, m_probe.m_pYUVSrcTex->GetWidth());
        EXPECT_EQ(32u, m_probe.m_pYUVSrcTex->GetHeight());
        EXPECT_EQ(m_probe.m_pYUVSrcTex, m_probe.m_pDstFbo->GetTexture());
        EXPECT_EQ(m_probe.m_pYTex->GetSTDataBuf(), m_probe.GetYDataBuf());
        EXPECT_EQ(m_probe.m_pUVTex->GetSTDataBuf(), m_probe.GetUVDataBuf());
    }
}

TEST_F(ConverterTest, InitLogsAndRefusesEmptySizes) {
    GETestLog log;
    ASSERT_EQ(1, m_probe.InitYUVConverter(64, 32, 64, 32));
    EXPECT_TRUE(log.HasExact(I, "GEShader", "[InitYUVConverter] enter"));
    EXPECT_TRUE(log.HasExact(I, "GEShader", "[InitYUVConverter] Creating tex/FBO for Y plane"));
    EXPECT_TRUE(log.HasExact(I, "GEShader", "[InitYUVConverter] Creating tex/FBO for UV plane"));
    EXPECT_TRUE(log.HasExact(I, "GEShader", "[InitYUVConverter] leave"));
    EXPECT_EQ(2, log.Count("[Load] SAMPLER_INPUT_TEX"));
    EXPECT_EQ(2, log.Count("[Load] get locations"));

    EXPECT_EQ(0, m_probe.InitYUVConverter(64, 32, 0, 32));
    EXPECT_EQ(nullptr, m_probe.GetYDataBuf());
    EXPECT_EQ(0, m_probe.ConvertYUV(0, 0));
    EXPECT_TRUE(log.Has(E, "GEShader", "[ConvertYUV] converter not initialized"));
}

// The whole-source and the full-tile conversions of a known pattern,
// compared with the formulas.
class ConverterSizeTest : public ConverterTest,
                          public ::testing::WithParamInterface<std::pair<int, int>> {};

TEST_P(ConverterSizeTest, LumaAndChromaFollowTheFormulas) {
    const int w = GetParam().first, h = GetParam().second;
    Up(w, h);
    for (int form = 0; form < 2; ++form) {
        SCOPED_TRACE(form == 0 ? "ConvertYUV(0, 0)" : "ConvertYUV(0, 0, w, h)");
        PaintOutputs();
        ASSERT_EQ(1, form == 0 ? m_probe.ConvertYUV(0, 0) : m_probe.ConvertYUV(0, 0, w, h));
        glFinish();
        std::vector<unsigned char> y((size_t)w * h + 64, kPoison);
        std::vector<unsigned char> uv((size_t)w * h / 2 + 64, kPoison);
        ASSERT_EQ(1, m_probe.MemcpyYUV(y.data(), uv.data()));

        Mismatch my, mc;
        for (int r = 0; r < h; ++r) {
            for (int c = 0; c < w; ++c) {
                my.Check(y[(size_t)r * w + c], PatternY(c, r), 1.0,
                         "Y(" + std::to_string(c) + "," + std::to_string(r) + ")");
            }
        }
        for (int k = 0; k < h / 2; ++k) {
            for (int i = 0; i < w / 2; ++i) {
                double v, u;
                PatternVU({{2 * i, 2 * k},
                           {2 * i + 1, 2 * k},
                           {2 * i, 2 * k + 1},
                           {2 * i + 1, 2 * k + 1}},
                          &v, &u);
                const std::string at = "(" + std::to_string(i) + "," + std::to_string(k) + ")";
                mc.Check(uv[(size_t)k * w + 2 * i], v, 2.0, "V" + at);
                mc.Check(uv[(size_t)k * w + 2 * i + 1], u, 2.0, "U" + at);
            }
        }
        EXPECT_EQ(0, my.count) << my.first;
        EXPECT_EQ(0, mc.count) << mc.first;
        for (size_t i = (size_t)w * h; i < y.size(); ++i) {
            ASSERT_EQ(kPoison, y[i]) << "luma guard byte " << i;
        }
        for (size_t i = (size_t)w * h / 2; i < uv.size(); ++i) {
            ASSERT_EQ(kPoison, uv[i]) << "chroma guard byte " << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, ConverterSizeTest,
                         ::testing::Values(std::make_pair(64, 32), std::make_pair(96, 48)));

// A tile that reaches neither the right nor the top edge of the source gets
// texture coordinate 0 on both axes: every texel of its viewports reads the
// same source pixels.
TEST_F(ConverterTest, TileThatMissesTheFarEdgesSamplesOnePlace) {
    Up(64, 32);
    PaintOutputs();
    ASSERT_EQ(1, m_probe.ConvertYUV(0, 0, 32, 16));
    glFinish();

    // Luma: shifts of -1.5, -0.5, +0.5, +1.5 pixels from s = 0 with
    // clamping and nearest filtering read pixels 0, 0, 0 and 1 of row 0.
    std::vector<unsigned char> yTex = GETestReadTexture(m_probe.m_pYTex->GetTexName(), 32, 32);
    const double want[4] = {PatternY(0, 0), PatternY(0, 0), PatternY(0, 0), PatternY(1, 0)};
    Mismatch my;
    for (int r = 0; r < 32; ++r) {
        for (int c = 0; c < 32; ++c) {
            const unsigned char* t = &yTex[((size_t)r * 32 + c) * 4];
            const std::string at = std::to_string(c) + "," + std::to_string(r);
            if (c < 8 && r < 16) {  // the Y viewport (0, 0, 8, 16)
                for (int k = 0; k < 4; ++k) {
                    my.Check(t[k], want[k], 1.0, at);
                }
            } else {
                my.Check(t[0], 255, 0, at);
                my.Check(t[1], 0, 0, at);
            }
        }
    }
    EXPECT_EQ(0, my.count) << my.first;

    // Chroma: one pixel left of s = 0 clamps to pixel 0; one pixel right
    // falls between pixels 0 and 1 of row 0 (row 0 alone at t = 0).
    std::vector<unsigned char> uvTex = GETestReadTexture(m_probe.m_pUVTex->GetTexName(), 32, 16);
    double v1, u1, v2, u2;
    PatternVU({{0, 0}}, &v1, &u1);
    PatternVU({{0, 0}, {1, 0}}, &v2, &u2);
    Mismatch mc;
    for (int r = 0; r < 16; ++r) {
        for (int c = 0; c < 32; ++c) {
            const unsigned char* t = &uvTex[((size_t)r * 32 + c) * 4];
            const std::string at = std::to_string(c) + "," + std::to_string(r);
            if (c < 8 && r < 8) {  // the chroma viewport (0, 0, 8, 8)
                mc.Check(t[0], v1, 2.0, "V1 " + at);
                mc.Check(t[1], u1, 2.0, "U1 " + at);
                mc.Check(t[2], v2, 2.0, "V2 " + at);
                mc.Check(t[3], u2, 2.0, "U2 " + at);
            } else {
                mc.Check(t[0], 255, 0, at);
                mc.Check(t[1], 0, 0, at);
            }
        }
    }
    EXPECT_EQ(0, mc.count) << mc.first;
}

// The luma viewport of a tile starts at (x / 4, y), the chroma viewport at
// (x, y) itself.
TEST_F(ConverterTest, TileViewportsStartWhereTheRulesSay) {
    Up(64, 32);
    PaintOutputs();
    ASSERT_EQ(1, m_probe.ConvertYUV(16, 8, 32, 16));
    glFinish();
    auto changed = [](const std::vector<unsigned char>& tex, int w, int c, int r) {
        const unsigned char* t = &tex[((size_t)r * w + c) * 4];
        return !(t[0] == 255 && t[1] == 0 && t[2] == 255 && t[3] == 0);
    };
    std::vector<unsigned char> yTex = GETestReadTexture(m_probe.m_pYTex->GetTexName(), 32, 32);
    int bad = 0;
    for (int r = 0; r < 32; ++r) {
        for (int c = 0; c < 32; ++c) {
            const bool inside = c >= 4 && c < 12 && r >= 8 && r < 24;  // (4, 8, 8, 16)
            bad += changed(yTex, 32, c, r) != inside;
        }
    }
    EXPECT_EQ(0, bad) << "luma texels outside / inside the viewport (4, 8, 8, 16)";
    std::vector<unsigned char> uvTex = GETestReadTexture(m_probe.m_pUVTex->GetTexName(), 32, 16);
    bad = 0;
    for (int r = 0; r < 16; ++r) {
        for (int c = 0; c < 32; ++c) {
            const bool inside = c >= 16 && c < 24 && r >= 8 && r < 16;  // (16, 8, 8, 8)
            bad += changed(uvTex, 32, c, r) != inside;
        }
    }
    EXPECT_EQ(0, bad) << "chroma texels outside / inside the viewport (16, 8, 8, 8)";
}

// BlockCopyYUV after a whole conversion of the 64 x 32 pattern: `yRef` and
// `uvRef` hold the output textures' buffers.
class BlockCopyTest : public ConverterTest {
protected:
    void SetUp() override {
        ConverterTest::SetUp();
        Up(64, 32);
        ASSERT_EQ(1, m_probe.ConvertYUV(0, 0));
        glFinish();
        // The output textures' whole buffers, rows of 128 bytes.
        ASSERT_EQ(1, m_probe.m_pYTex->clean_buffer());
        ASSERT_EQ(1, m_probe.m_pUVTex->clean_buffer());
        yRef.assign(m_probe.GetYDataBuf(), m_probe.GetYDataBuf() + kPitch * 32);
        uvRef.assign(m_probe.GetUVDataBuf(), m_probe.GetUVDataBuf() + kPitch * 16);
    }
    static const int kPitch = 128;

    // Copies block (x, y, w, h) into poisoned W x H planes (with guard bytes
    // behind each) and checks every byte: luma rows [r0, r1) and columns
    // [c0, c1) hold the converted luma at (c - x, r - y); chroma row r / 2 of
    // each even r in that range holds converted chroma row (r - y) / 2 when
    // r / 2 < H / 2; everything else is untouched.
    void CheckCopy(int W, int H, int x, int y, int w, int h, int r0, int r1, int c0, int c1) {
        std::vector<unsigned char> dy((size_t)W * H + 256, kPoison);
        std::vector<unsigned char> duv((size_t)W * (H / 2) + 256, kPoison);
        ASSERT_EQ(1, m_probe.BlockCopyYUV(dy.data(), duv.data(), W, H, x, y, w, h));
        Mismatch m;
        for (size_t i = 0; i < dy.size(); ++i) {
            const int r = (int)(i / W), c = (int)(i % W);
            const bool in = i < (size_t)W * H && r >= r0 && r < r1 && c >= c0 && c < c1;
            m.Check(dy[i], in ? yRef[(size_t)(r - y) * kPitch + (c - x)] : kPoison, 0,
                    "Y byte " + std::to_string(i));
        }
        for (size_t i = 0; i < duv.size(); ++i) {
            const int k = (int)(i / W), c = (int)(i % W);
            const int r = 2 * k;
            const bool in = i < (size_t)W * (H / 2) && r >= r0 && r < r1 && c >= c0 && c < c1;
            m.Check(duv[i], in ? uvRef[(size_t)((r - y) / 2) * kPitch + (c - x)] : kPoison, 0,
                    "UV byte " + std::to_string(i));
        }
        EXPECT_EQ(0, m.count) << m.first;
    }

    std::vector<unsigned char> yRef, uvRef;
};

TEST_F(BlockCopyTest, BlockLandsAtItsPlace) {
    CheckCopy(100, 40, 20, 6, 32, 16, 6, 22, 20, 52);
    CheckCopy(100, 40, 0, 0, 64, 32, 0, 32, 0, 64);
}

TEST_F(BlockCopyTest, OverlapTrimmingSkipsHalfTheOverlapAfterTheFirstTile) {
    m_probe.m_nOverlapX = 8;
    m_probe.m_nOverlapY = 4;
    CheckCopy(100, 40, 20, 6, 32, 16, 8, 22, 24, 52);  // skip 4 columns, 2 rows
    CheckCopy(100, 40, 0, 6, 32, 16, 8, 22, 0, 32);    // x = 0: no column skipped
    CheckCopy(100, 40, 20, 0, 32, 16, 0, 16, 24, 52);  // y = 0: no row skipped
}

TEST_F(BlockCopyTest, BlocksPastThePlanesAreCut) {
    // Right and bottom edges of a 40 x 20 image.
    CheckCopy(40, 20, 24, 10, 32, 16, 10, 20, 24, 40);
    // Left and top edges.
    CheckCopy(40, 20, -8, -2, 32, 16, 0, 14, 0, 24);
    // An odd height: the chroma plane has H / 2 rows, so luma row 20 has
    // no chroma row to go to.
    CheckCopy(40, 21, 0, 5, 32, 16, 5, 21, 0, 32);
    // Wider and taller than the output textures' buffers (128 bytes of 32
    // rows): only what they hold is read.
    CheckCopy(300, 80, 10, 4, 200, 70, 4, 36, 10, 138);
}

TEST_F(BlockCopyTest, NullPlanesAreRefused) {
    GETestLog log;
    std::vector<unsigned char> uv(64 * 16, kPoison);
    EXPECT_EQ(0, m_probe.BlockCopyYUV(nullptr, uv.data(), 64, 32, 0, 0, 64, 32));
    EXPECT_TRUE(log.Has(E, "GEShader", "[BlockCopyYUV] pDstYStart (0) or pDstUVStart ("));
    EXPECT_EQ(std::vector<unsigned char>(64 * 16, kPoison), uv);
}

// CPU block copies between streaming textures, per format.
class BlockCopyFormatTest : public GLTest {
protected:
    static void Fill(GLTexture* t, unsigned char seed) {
        unsigned char* p = t->GetSTDataBuf();
        const size_t n = (size_t)t->GetStride() * t->GetHeight() * t->GetBytesPerPixel();
        for (size_t i = 0; i < n; ++i) {
            p[i] = (unsigned char)(i * 7 + seed);
        }
    }
    ConverterProbe m_probe;
};

TEST_F(BlockCopyFormatTest, CopiesTheBlockPixelByPixel) {
    struct Fmt {
        GLenum format, type;
        unsigned bpp;
    };
    const Fmt fmts[] = {{GL_RGBA, GL_UNSIGNED_BYTE, 4}, {GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 2}};
    for (const Fmt& f : fmts) {
        SCOPED_TRACE(f.bpp);
        GLTexture src, dst;
        ASSERT_EQ(1, src.Init(f.format, f.type, 32, 8, 1));
        ASSERT_EQ(1, dst.Init(f.format, f.type, 64, 6, 1));
        Fill(&src, 3);
        Fill(&dst, 200);
        const size_t dstBytes = (size_t)64 * 6 * f.bpp;
        std::vector<unsigned char> before(dst.GetSTDataBuf(), dst.GetSTDataBuf() + dstBytes);
        const unsigned char* s = src.GetSTDataBuf();

        // An inside block, then one that passes the destination's right and
        // bottom edges and is cut there.
        ASSERT_EQ(1, m_probe.BlockCopy(&dst, 3, 1, 5, 2, &src, 7, 4));
        ASSERT_EQ(1, m_probe.BlockCopy(&dst, 60, 4, 8, 5, &src, 0, 0));
        std::vector<unsigned char> want = before;
        for (int j = 0; j < 2; ++j) {
            for (int i = 0; i < 5; ++i) {
                memcpy(&want[((size_t)(1 + j) * 64 + 3 + i) * f.bpp],
                       &s[((size_t)(4 + j) * 32 + 7 + i) * f.bpp], f.bpp);
            }
        }
        for (int j = 0; j < 2; ++j) {  // rows 4 and 5, columns 60..63
            for (int i = 0; i < 4; ++i) {
                memcpy(&want[((size_t)(4 + j) * 64 + 60 + i) * f.bpp],
                       &s[((size_t)j * 32 + i) * f.bpp], f.bpp);
            }
        }
        std::vector<unsigned char> got(dst.GetSTDataBuf(), dst.GetSTDataBuf() + dstBytes);
        EXPECT_EQ(want, got);
    }
}

TEST_F(BlockCopyFormatTest, RefusesMixedAndUnsupportedFormats) {
    GETestLog log;
    GLTexture rgba, rgb565, rgb888a, rgb888b, lumA, lumB;
    ASSERT_EQ(1, rgba.Init(GL_RGBA, GL_UNSIGNED_BYTE, 32, 4, 1));
    ASSERT_EQ(1, rgb565.Init(GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 32, 4, 1));
    ASSERT_EQ(1, rgb888a.Init(GL_RGB, GL_UNSIGNED_BYTE, 32, 4, 1));
    ASSERT_EQ(1, rgb888b.Init(GL_RGB, GL_UNSIGNED_BYTE, 32, 4, 1));
    ASSERT_EQ(1, lumA.Init(GL_LUMINANCE, GL_UNSIGNED_BYTE, 32, 4, 0));
    ASSERT_EQ(1, lumB.Init(GL_LUMINANCE, GL_UNSIGNED_BYTE, 32, 4, 0));
    Fill(&rgba, 1);
    std::vector<unsigned char> before(rgba.GetSTDataBuf(), rgba.GetSTDataBuf() + 32 * 4 * 4);

    EXPECT_EQ(0, m_probe.BlockCopy(&rgba, 0, 0, 4, 4, &rgb565, 0, 0));
    EXPECT_TRUE(log.HasExact(E, "GEShader", "[BlockCopy] inconsistent type. src(33635) dst(5121)"));
    EXPECT_EQ(0, m_probe.BlockCopy(&rgba, 0, 0, 4, 4, &rgb888a, 0, 0));
    EXPECT_EQ(0, m_probe.BlockCopy(&rgb888b, 0, 0, 4, 4, &rgb888a, 0, 0));
    EXPECT_TRUE(log.HasExact(E, "GEShader", "[BlockCopy] format 6407 type 5121 not support"));
    EXPECT_EQ(0, m_probe.BlockCopy(&lumB, 0, 0, 4, 4, &lumA, 0, 0));
    EXPECT_TRUE(log.HasExact(E, "GEShader", "[BlockCopy] format 6409 not support"));
    EXPECT_EQ(before,
              std::vector<unsigned char>(rgba.GetSTDataBuf(), rgba.GetSTDataBuf() + 32 * 4 * 4));
}

}  // namespace
