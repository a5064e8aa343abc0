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

#include "GETestEngine.h"
#include "GETestGL.h"
#include "GETestLog.h"
#include "engine/GEShader.h"
#include "gl/GLFbo.h"
#include "gl/GLTexture.h"

using namespace getest;

namespace {

const int E = ANDROID_LOG_ERROR;

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

// The RGBA test pattern.
RGB PatternRGB(int x, int y) {
    return {(x * 37 + y * 11) % 256 / 255.0, (x * 13 + y * 29 + 50) % 256 / 255.0,
            (x * 5 + y * 47 + 100) % 256 / 255.0};
}

double PatternY(int x, int y) {
    return LumaOf(PatternRGB(x, y));
}

// V and U of the mean of the given pixels.
void PatternVU(const std::vector<std::pair<int, int>>& pixels, double* v, double* u) {
    RGB m = {0, 0, 0};
    for (const auto& p : pixels) {
        const RGB c = PatternRGB(p.first, p.second);
        m = {m.r + c.r / pixels.size(), m.g + c.g / pixels.size(), m.b + c.b / pixels.size()};
    }
    *v = VOf(m);
    *u = UOf(m);
}

// Counts bytes further than `tol` from what they should be; keeps the first.
struct Mismatch {
    int count = 0;
    std::string first;
    void Check(int got, double want, double tol, const std::string& where) {
        if (fabs(got - want) > tol && count++ == 0) {
            first = where + ": got " + std::to_string(got) + ", want " + std::to_string(want);
        }
    }
};

class ConverterTest : public GLTest {
protected:
    // Brings the converter up for a w x h source and output and puts the test
    // pattern into its source texture.
    void Up(int w, int h) {
        ASSERT_EQ(1, m_probe.InitYUVConverter(w, h, w, h));
        std::vector<unsigned char> px((size_t)w * h * 4, 255);
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                const RGB c = PatternRGB(x, y);
                unsigned char* p = &px[((size_t)y * w + x) * 4];
                p[0] = (unsigned char)round(c.r * 255);
                p[1] = (unsigned char)round(c.g * 255);
                p[2] = (unsigned char)round(c.b * 255);
            }
        }
        ASSERT_EQ(1, m_probe.m_pYUVSrcTex->UpdateNormalTexture(px.data(), w, h));
    }
    // Paints every texel of both output textures with the marker (255, 0, 255, 0).
    void PaintOutputs() {
        glClearColor(1.0f, 0.0f, 1.0f, 0.0f);
        m_probe.m_pYFbo->Bind();
        glClear(GL_COLOR_BUFFER_BIT);
        m_probe.m_pUVFbo->Bind();
        glClear(GL_COLOR_BUFFER_BIT);
        glFinish();
    }
    // The texels of a w x h output texture that a pass changed: their
    // bounding rectangle, and how many there are. `each` sees every one.
    static Rect Changed(GLTexture* tex, int w, int h, int* count,
                        const std::function<void(const unsigned char*, int, int)>& each) {
        const std::vector<unsigned char> px = GETestReadTexture(tex->GetTexName(), w, h);
        Rect r = {w, h, 0, 0};  // x0, y0, x1, y1 until the end
        *count = 0;
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                const unsigned char* t = &px[((size_t)y * w + x) * 4];
                if (t[0] == 255 && t[1] == 0 && t[2] == 255 && t[3] == 0) {
                    continue;
                }
                ++*count;
                r = {std::min(r.x, x), std::min(r.y, y), std::max(r.w, x + 1),
                     std::max(r.h, y + 1)};
                each(t, x, y);
            }
        }
        return {r.x, r.y, r.w - r.x, r.h - r.y};
    }
    void TearDown() override {
        m_probe.Deinit();
        GLTest::TearDown();
    }
    ConverterProbe m_probe;
};

TEST_F(ConverterTest, PlaneSizesAndRefusals) {
    // ((outW / 4 + 31) & ~31) * 4, worked out by hand.
    const int cases[][3] = {{1000, 6, 1024}, {64, 4, 128},  {128, 4, 128}, {129, 4, 128},
                            {512, 2, 512},   {516, 3, 640}, {4, 2, 128}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c[0]);
        const unsigned row = (unsigned)c[2], outH = (unsigned)c[1];
        ASSERT_EQ(1, m_probe.InitYUVConverter(64, 32, c[0], c[1]));
        EXPECT_EQ(c[2], m_probe.m_nYUVPlaneStride);
        EXPECT_EQ(c[1] / 2, m_probe.m_nYUVUVHeight);
        EXPECT_EQ((std::vector<unsigned>{row / 4, row / 4, outH, row / 4, outH / 2}),
                  (std::vector<unsigned>{m_probe.m_pYTex->GetWidth(), m_probe.m_pYTex->GetStride(),
                                         m_probe.m_pYTex->GetHeight(), m_probe.m_pUVTex->GetWidth(),
                                         m_probe.m_pUVTex->GetHeight()}));
        EXPECT_TRUE(m_probe.m_pYTex->IsST() && m_probe.m_pUVTex->IsST());
        EXPECT_EQ(m_probe.m_pYUVSrcTex, m_probe.m_pDstFbo->GetTexture());
    }
    GETestLog log;
    EXPECT_EQ(0, m_probe.InitYUVConverter(64, 32, 0, 32));
    EXPECT_EQ(nullptr, m_probe.GetYDataBuf());
    EXPECT_EQ(0, m_probe.ConvertYUV(0, 0));
    EXPECT_TRUE(log.Has(E, "GEShader", "[ConvertYUV] converter not initialized"));
}

// The whole-source and the full-tile conversions of the pattern, compared
// with the formulas; nothing is written past the planes.
TEST_F(ConverterTest, LumaAndChromaFollowTheFormulas) {
    for (const auto& size : {std::make_pair(64, 32), std::make_pair(96, 48)}) {
        const int w = size.first, h = size.second;
        Up(w, h);
        for (bool tile : {false, true}) {
            SCOPED_TRACE(testing::Message() << w << " x " << h << (tile ? " tile" : " whole"));
            PaintOutputs();
            ASSERT_EQ(1, tile ? m_probe.ConvertYUV(0, 0, w, h) : m_probe.ConvertYUV(0, 0));
            glFinish();
            std::vector<unsigned char> y((size_t)w * h + kGuard, kPoison);
            std::vector<unsigned char> uv((size_t)w * h / 2 + kGuard, kPoison);
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
                    const std::string at = std::to_string(i) + "," + std::to_string(k);
                    mc.Check(uv[(size_t)k * w + 2 * i], v, 2.0, "V" + at);
                    mc.Check(uv[(size_t)k * w + 2 * i + 1], u, 2.0, "U" + at);
                }
            }
            EXPECT_EQ(0, my.count) << my.first;
            EXPECT_EQ(0, mc.count) << mc.first;
            ManagerRig::ExpectGuards(y, (size_t)w * h);
            ManagerRig::ExpectGuards(uv, (size_t)w * h / 2);
        }
        m_probe.Deinit();
    }
}

// The luma viewport of a tile starts at (x / 4, y), the chroma viewport at
// (x, y) itself. A tile that reaches neither the right nor the top edge of
// the source gets texture coordinate 0 on both axes, so every texel of its
// viewports reads the same source pixels.
TEST_F(ConverterTest, TileViewportsAndIntegerTextureCoordinates) {
    Up(64, 32);
    PaintOutputs();
    ASSERT_EQ(1, m_probe.ConvertYUV(16, 8, 32, 16));
    glFinish();
    int n = 0;
    auto any = [](const unsigned char*, int, int) {};
    EXPECT_EQ("4,8,8,16", ToString({Changed(m_probe.m_pYTex, 32, 32, &n, any)}));
    EXPECT_EQ(8 * 16, n);
    EXPECT_EQ("16,8,8,8", ToString({Changed(m_probe.m_pUVTex, 32, 16, &n, any)}));
    EXPECT_EQ(8 * 8, n);

    PaintOutputs();
    ASSERT_EQ(1, m_probe.ConvertYUV(0, 0, 32, 16));
    glFinish();
    // Luma: shifts of -1.5, -0.5, +0.5, +1.5 pixels from s = 0 with clamping
    // and nearest filtering read pixels 0, 0, 0 and 1 of row 0.
    const double wantY[4] = {PatternY(0, 0), PatternY(0, 0), PatternY(0, 0), PatternY(1, 0)};
    Mismatch m;
    auto lumaTexel = [&](const unsigned char* t, int x, int y) {
        for (int k = 0; k < 4; ++k) {
            m.Check(t[k], wantY[k], 1.0, "Y texel " + std::to_string(x) + "," + std::to_string(y));
        }
    };
    EXPECT_EQ("0,0,8,16", ToString({Changed(m_probe.m_pYTex, 32, 32, &n, lumaTexel)}));
    EXPECT_EQ(8 * 16, n);
    // Chroma: one pixel left of s = 0 clamps to pixel 0; one pixel right
    // falls between pixels 0 and 1 of row 0 (row 0 alone at t = 0).
    double want[4];
    PatternVU({{0, 0}}, &want[0], &want[1]);
    PatternVU({{0, 0}, {1, 0}}, &want[2], &want[3]);
    auto chromaTexel = [&](const unsigned char* t, int x, int y) {
        for (int k = 0; k < 4; ++k) {
            m.Check(t[k], want[k], 2.0, "VU texel " + std::to_string(x) + "," + std::to_string(y));
        }
    };
    EXPECT_EQ("0,0,8,8", ToString({Changed(m_probe.m_pUVTex, 32, 16, &n, chromaTexel)}));
    EXPECT_EQ(8 * 8, n);
    EXPECT_EQ(0, m.count) << m.first;
}

// BlockCopyYUV after a whole conversion of the 64 x 32 pattern, into
// poisoned W x H planes with guard bytes: luma rows [r0, r1) and columns
// [c0, c1) hold the converted luma at (c - x, r - y); chroma row r / 2 of each
// even r in that range holds converted chroma row (r - y) / 2 when r / 2 is
// below H / 2; every other byte is untouched.
TEST_F(ConverterTest, BlockCopyPlacesTrimsAndCutsBlocks) {
    Up(64, 32);
    ASSERT_EQ(1, m_probe.ConvertYUV(0, 0));
    glFinish();
    ASSERT_EQ(1, m_probe.m_pYTex->clean_buffer());
    ASSERT_EQ(1, m_probe.m_pUVTex->clean_buffer());
    const int kPitch = 128;  // rows of the output textures' buffers
    const std::vector<unsigned char> yRef(m_probe.GetYDataBuf(),
                                          m_probe.GetYDataBuf() + kPitch * 32);
    const std::vector<unsigned char> uvRef(m_probe.GetUVDataBuf(),
                                           m_probe.GetUVDataBuf() + kPitch * 16);
    const struct {
        const char* what;
        unsigned ovX, ovY;
        int W, H, x, y, w, h, r0, r1, c0, c1;
    } cases[] = {
        {"inside", 0, 0, 100, 40, 20, 6, 32, 16, 6, 22, 20, 52},
        {"whole", 0, 0, 100, 40, 0, 0, 64, 32, 0, 32, 0, 64},
        {"overlaps: skip 4 columns, 2 rows", 8, 4, 100, 40, 20, 6, 32, 16, 8, 22, 24, 52},
        {"overlaps at x 0: no column skipped", 8, 4, 100, 40, 0, 6, 32, 16, 8, 22, 0, 32},
        {"overlaps at y 0: no row skipped", 8, 4, 100, 40, 20, 0, 32, 16, 0, 16, 24, 52},
        {"past the right and bottom edges", 0, 0, 40, 20, 24, 10, 32, 16, 10, 20, 24, 40},
        {"before the left and top edges", 0, 0, 40, 20, -8, -2, 32, 16, 0, 14, 0, 24},
        // Luma row 20 has no chroma row to go to.
        {"odd height", 0, 0, 40, 21, 0, 5, 32, 16, 5, 21, 0, 32},
        // Only what the output textures hold (32 rows of 128 bytes) is read.
        {"larger than the outputs", 0, 0, 300, 80, 10, 4, 200, 70, 4, 36, 10, 138},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        m_probe.m_nOverlapX = c.ovX;
        m_probe.m_nOverlapY = c.ovY;
        const size_t ny = (size_t)c.W * c.H, nuv = (size_t)c.W * (c.H / 2);
        std::vector<unsigned char> dy(ny + kGuard, kPoison), duv(nuv + kGuard, kPoison);
        ASSERT_EQ(1, m_probe.BlockCopyYUV(dy.data(), duv.data(), c.W, c.H, c.x, c.y, c.w, c.h));
        Mismatch m;
        for (size_t i = 0; i < dy.size(); ++i) {
            const int r = (int)(i / c.W), col = (int)(i % c.W);
            const bool in = i < ny && r >= c.r0 && r < c.r1 && col >= c.c0 && col < c.c1;
            m.Check(dy[i], in ? yRef[(size_t)(r - c.y) * kPitch + (col - c.x)] : kPoison, 0,
                    "Y byte " + std::to_string(i));
        }
        for (size_t i = 0; i < duv.size(); ++i) {
            const int r = 2 * (int)(i / c.W), col = (int)(i % c.W);
            const bool in = i < nuv && r >= c.r0 && r < c.r1 && col >= c.c0 && col < c.c1;
            m.Check(duv[i], in ? uvRef[(size_t)((r - c.y) / 2) * kPitch + (col - c.x)] : kPoison, 0,
                    "UV byte " + std::to_string(i));
        }
        EXPECT_EQ(0, m.count) << m.first;
    }
    GETestLog log;
    std::vector<unsigned char> uv(64 * 16, kPoison);
    EXPECT_EQ(0, m_probe.BlockCopyYUV(nullptr, uv.data(), 64, 32, 0, 0, 64, 32));
    EXPECT_TRUE(log.Has(E, "GEShader", "[BlockCopyYUV] pDstYStart (0) or pDstUVStart ("));
    EXPECT_EQ(std::vector<unsigned char>(64 * 16, kPoison), uv);
}

// CPU block copies between streaming textures, per format.
class BlockCopyFormatTest : public GLTest {
protected:
    static std::vector<unsigned char> Fill(GLTexture* t, unsigned char seed) {
        unsigned char* p = t->GetSTDataBuf();
        const size_t n = (size_t)t->GetStride() * t->GetHeight() * t->GetBytesPerPixel();
        for (size_t i = 0; i < n; ++i) {
            p[i] = (unsigned char)(i * 7 + seed);
        }
        return {p, p + n};
    }
    ConverterProbe m_probe;
};

TEST_F(BlockCopyFormatTest, CopiesTheBlockPixelByPixel) {
    const struct {
        GLenum format, type;
        unsigned bpp;
    } fmts[] = {{GL_RGBA, GL_UNSIGNED_BYTE, 4}, {GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 2}};
    for (const auto& f : fmts) {
        SCOPED_TRACE(f.bpp);
        GLTexture src, dst;
        ASSERT_EQ(1, src.Init(f.format, f.type, 32, 8, 1));
        ASSERT_EQ(1, dst.Init(f.format, f.type, 64, 6, 1));
        const std::vector<unsigned char> s = Fill(&src, 3);
        std::vector<unsigned char> want = Fill(&dst, 200);
        // An inside block, then one that passes the destination's right and
        // bottom edges and is cut there.
        ASSERT_EQ(1, m_probe.BlockCopy(&dst, 3, 1, 5, 2, &src, 7, 4));
        ASSERT_EQ(1, m_probe.BlockCopy(&dst, 60, 4, 8, 5, &src, 0, 0));
        const int blocks[2][6] = {{3, 1, 5, 2, 7, 4}, {60, 4, 4, 2, 0, 0}};  // dx dy w h sx sy
        for (const auto& b : blocks) {
            for (int j = 0; j < b[3]; ++j) {
                memcpy(&want[((size_t)(b[1] + j) * 64 + b[0]) * f.bpp],
                       &s[((size_t)(b[5] + j) * 32 + b[4]) * f.bpp], (size_t)b[2] * f.bpp);
            }
        }
        EXPECT_EQ(want,
                  std::vector<unsigned char>(dst.GetSTDataBuf(), dst.GetSTDataBuf() + want.size()));
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
    const std::vector<unsigned char> before = Fill(&rgba, 1);

    EXPECT_EQ(0, m_probe.BlockCopy(&rgba, 0, 0, 4, 4, &rgb565, 0, 0));
    EXPECT_TRUE(log.HasExact(E, "GEShader", "[BlockCopy] inconsistent type. src(33635) dst(5121)"));
    EXPECT_EQ(0, m_probe.BlockCopy(&rgba, 0, 0, 4, 4, &rgb888a, 0, 0));
    EXPECT_EQ(0, m_probe.BlockCopy(&rgb888b, 0, 0, 4, 4, &rgb888a, 0, 0));
    EXPECT_TRUE(log.HasExact(E, "GEShader", "[BlockCopy] format 6407 type 5121 not support"));
    EXPECT_EQ(0, m_probe.BlockCopy(&lumB, 0, 0, 4, 4, &lumA, 0, 0));
    EXPECT_TRUE(log.HasExact(E, "GEShader", "[BlockCopy] format 6409 not support"));
    EXPECT_EQ(before,
              std::vector<unsigned char>(rgba.GetSTDataBuf(), rgba.GetSTDataBuf() + before.size()));
}

}  // namespace
