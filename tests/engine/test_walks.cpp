// The effect base class: Init's crop, SetCrop's validation, the capture
// walks' refusals, and the tiles, source rectangles and texture coordinates
// of the run walk and of the crop-aware nested walk. (What the tiles show is
// checked on the GPU with the effects.)
#include <GLES2/gl2.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <string>
#include <vector>

#include "GETestEngine.h"
#include "GETestGL.h"
#include "GETestLog.h"
#include "engine/GEShader.h"
#include "gl/GLTexture.h"

using namespace getest;

namespace {

GELogTag s_probeLog("GEWalkProbe");

// What ProcBlock saw for one tile.
struct Block {
    Rect tile;
    unsigned run, maxRun;
    GLfloat tex[8], global[8];
};

// An effect whose ProcBlock records the walk's state; its capture ProcFrame
// runs the walk the test picks.
class WalkProbe : public GEShader {
public:
    WalkProbe() : GEShader(s_probeLog) {}
    ~WalkProbe() override { Deinit(); }

    int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
             unsigned char capture, IYUVConverter* conv) override {
        StoreInitArgs(src, a, x, y, w, h, capture);
        m_bInited = GEShader::Init(src, a, x, y, w, h, capture, conv) != 0;
        return m_bInited ? 1 : 0;
    }
    int Deinit() override {
        m_bInited = false;
        return GEShader::Deinit();
    }
    int ProcBlock(unsigned a, unsigned b, int W, int H) override {
        EXPECT_TRUE(a == 0 && b == 0 && W == m_nW && H == m_nH);
        if (!m_bCropped) {  // the render rectangle is the tile's size
            EXPECT_TRUE(m_nTileW == m_nRenderW && m_nTileH == m_nRenderH);
        }
        const Rect tile = {(int)m_nTileX, (int)m_nTileY, (int)m_nTileW, (int)m_nTileH};
        m_blocks.push_back({tile, m_nRun, m_nMaxRun, {}, {}});
        memcpy(m_blocks.back().tex, m_fTileTexCoord, sizeof(Block::tex));
        memcpy(m_blocks.back().global, m_fGlobalTexCoord, sizeof(Block::global));
        return 1;
    }
    int ProcFrame(unsigned, unsigned, int, int) override { return 0; }
    int ProcFrame(unsigned char*, unsigned char* out, int W, int H) override {
        m_nW = W;
        m_nH = H;
        return m_bCropped ? WalkCropped(out, W, H) : WalkRuns(out, W, H, m_nOvX, m_nOvY);
    }
    using GEShader::ProcFrame;
    int SetParam(unsigned, int, int, int, int) override { return 1; }

    std::string Tiles() const {
        std::vector<Rect> r;
        for (const Block& b : m_blocks) {
            r.push_back(b.tile);
        }
        return ToString(r);
    }
    std::vector<float> Crop() const { return {m_fCropX, m_fCropY, m_fCropW, m_fCropH}; }
    using GEShader::m_nMaxRun;

    bool m_bCropped = false;
    unsigned m_nOvX = 0, m_nOvY = 0;
    int m_nW = 0, m_nH = 0;
    std::vector<Block> m_blocks;
};

class WalkTest : public GLTest {
protected:
    void SetUp() override {
        GLTest::SetUp();
        ASSERT_EQ(1, m_tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, 64, 32, 1));
        ASSERT_EQ(1, m_narrow.Init(GL_RGBA, GL_UNSIGNED_BYTE, 48, 32, 1));  // rows of 64
    }
    void TearDown() override {
        m_probe.Deinit();
        GLTest::TearDown();
    }
    int Capture(int W, int H) {
        m_probe.m_blocks.clear();
        m_conv.rects.clear();
        m_conv.calls.clear();
        m_out.assign(W > 0 && H > 0 ? (size_t)W * H * 3 / 2 : 0, 0);
        return m_probe.ProcFrame(nullptr, m_out.data(), W, H);
    }

    GLTexture m_tex, m_narrow;
    TileServer m_conv;
    WalkProbe m_probe;
    std::vector<unsigned char> m_out;
};

TEST_F(WalkTest, InitCropsToThePictureAndBothRefuseNoTexture) {
    for (unsigned char capture : {0, 1}) {
        ASSERT_EQ(1, m_probe.Init(&m_narrow, 7, 0, 0, 48, 32, capture, &m_conv));
        EXPECT_EQ((std::vector<float>{0.0f, 0.0f, 0.75f, 1.0f}), m_probe.Crop());
        EXPECT_NE(nullptr, m_probe.GetYDataBuf());
        m_probe.Deinit();
        EXPECT_EQ(nullptr, m_probe.GetYDataBuf());
        EXPECT_EQ(nullptr, m_probe.GetUVDataBuf());
    }
    EXPECT_EQ(1, m_probe.BindSrcTexture());
    GLint bound = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
    EXPECT_EQ(m_narrow.GetTexName(), (GLuint)bound);
    GETestLog log;
    EXPECT_EQ(0, m_probe.Init(nullptr, 0, 0, 0, 48, 32, 1, &m_conv));
    WalkProbe fresh;
    EXPECT_EQ(0, fresh.BindSrcTexture());
    EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, "GEShader", "[Init] src texture is NULL"));
    EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, "GEShader", "[BindSrcTexture] src texture is NULL"));
}

TEST(GEShaderCrop, SetCropKeepsValidCropsAndResetsTheRest) {
    WalkProbe p;
    const float nan = nanf("");
    const struct {
        float x, y, w, h;
        bool kept;
    } cases[] = {
        {0.5f, 0.5f, 0.6f, 0.6f, true},  // past the edge, still accepted
        {1.0f, 1.0f, 1.0f, 1.0f, true},   {0.0f, 0.0f, 0.0f, 1.0f, false},
        {0.0f, 0.0f, 1.0f, 0.0f, false},  {-0.01f, 0.0f, 0.5f, 0.5f, false},
        {0.0f, -0.5f, 0.5f, 0.5f, false}, {1.01f, 0.0f, 0.5f, 0.5f, false},
        {0.0f, 1.5f, 0.5f, 0.5f, false},  {0.0f, 0.0f, 1.01f, 0.5f, false},
        {0.0f, 0.0f, 0.5f, 2.0f, false},  {nan, 0.0f, 0.5f, nan, false},
    };
    for (const auto& c : cases) {
        p.SetCrop(0.1f, 0.2f, 0.3f, 0.4f);  // something else first
        EXPECT_EQ(1, p.SetCrop(c.x, c.y, c.w, c.h));
        const std::vector<float> kept = {c.x, c.y, c.w, c.h}, reset = {0, 0, 1, 1};
        EXPECT_EQ(c.kept ? kept : reset, p.Crop()) << c.x << " " << c.y << " " << c.w << " " << c.h;
    }
    EXPECT_EQ(1, p.SetCrop(1, 2, 3, 4));  // the pixel form changes nothing
    EXPECT_EQ((std::vector<float>{0.0f, 0.0f, 1.0f, 1.0f}), p.Crop());
}

TEST_F(WalkTest, BothWalksRefuseUnderTheEffectsTag) {
    const struct {
        bool init;
        unsigned char capture;
        bool conv;
        int W, H;
        unsigned ovX;
        const char* line;
    } cases[] = {
        {false, 1, true, 64, 32, 0, "[ProcFrame] effect not initialized"},
        {true, 0, true, 64, 32, 0, "[ProcFrame] Capture mode only"},
        {true, 1, false, 64, 32, 0, "[ProcFrame] callback not registered"},
        {true, 1, true, 0, 32, 0, "[ProcFrame] bad capture size"},
        {true, 1, true, 64, -2, 0, "[ProcFrame] bad capture size"},
        // Overlaps as large as the tile would never advance.
        {true, 1, true, 160, 64, 64, "[ProcFrame] bad capture size 160x64 (tile 64x32, overlap "},
    };
    for (bool cropped : {false, true}) {
        for (const auto& c : cases) {
            if (cropped && c.ovX != 0) {
                continue;
            }
            SCOPED_TRACE(std::string(cropped ? "nested: " : "runs: ") + c.line);
            m_probe.m_bCropped = cropped;
            m_probe.m_nOvX = c.ovX;
            if (c.init) {
                ASSERT_EQ(1, m_probe.Init(&m_tex, 0, 0, 0, 64, 32, c.capture,
                                          c.conv ? &m_conv : nullptr));
            }
            GETestLog log;
            EXPECT_EQ(0, Capture(c.W, c.H));
            EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, "GEWalkProbe", c.line)) << log.Dump();
            EXPECT_TRUE(m_probe.m_blocks.empty() && m_conv.rects.empty());
            m_probe.Deinit();
        }
    }
}

// The run walk's tiles where the pixel checks of the effects cannot see
// them: overlaps, narrow images, the last tile of a narrow texture, and the
// tiles' texture coordinates and places in the whole picture (which the
// capture programs take), written out by hand from the walk's rules.
TEST_F(WalkTest, RunWalkTiles) {
    const struct {
        int W, H;
        unsigned ovX, ovY;
        const char* tiles;
        const char* rects;  // asked of the converter, when not the tiles
        int texW;
    } cases[] = {
        {160, 80, 0, 0,
         "0,0,64,32 64,0,64,32 128,0,32,32 0,32,64,32 64,32,64,32 128,32,32,32 "
         "0,64,64,16 64,64,64,16 128,64,32,16",
         nullptr, 64},
        // Narrower than 32: the tile keeps 32 at x 0, the converter is asked
        // for the image's width only.
        {20, 64, 0, 0, "0,0,32,32 0,32,32,32", "0,0,20,32 0,32,20,32", 64},
        // Steps of 48 across and 24 down; the fourth column's 16-pixel
        // remainder becomes a 32-wide tile at 128.
        {160, 64, 16, 8,
         "0,0,64,32 48,0,64,32 96,0,64,32 128,0,32,32 0,24,64,32 48,24,64,32 96,24,64,32 "
         "128,24,32,32 0,48,64,16 48,48,64,16 96,48,64,16 128,48,32,16",
         nullptr, 64},
        // A texture 48 wide in rows of 64: the last tile is widened to 32,
        // or to the texture's width when 32 would pass it, and moved left.
        {100, 32, 0, 0, "0,0,48,32 48,0,48,32 68,0,32,32", nullptr, 48},
        {88, 32, 0, 0, "0,0,48,32 40,0,48,32", nullptr, 48},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.W << " x " << c.H << " in tiles " << c.texW);
        GLTexture* tex = c.texW == 48 ? &m_narrow : &m_tex;
        m_probe.Deinit();
        ASSERT_EQ(1, m_probe.Init(tex, 0, 0, 0, c.texW, 32, 1, &m_conv));
        m_probe.m_nOvX = c.ovX;
        m_probe.m_nOvY = c.ovY;
        ASSERT_EQ(1, Capture(c.W, c.H));
        EXPECT_EQ(c.tiles, m_probe.Tiles());
        EXPECT_EQ(c.rects ? c.rects : c.tiles, ToString(m_conv.rects));
        EXPECT_EQ(0u, m_probe.m_nMaxRun);
        const unsigned n = (unsigned)m_probe.m_blocks.size();
        for (unsigned i = 0; i < n; ++i) {
            const Block& b = m_probe.m_blocks[i];
            EXPECT_TRUE(b.run == i && b.maxRun == n) << i;
            // The tile's part of the texture, its place in the picture, in the
            // quad's order; never wider than what is rendered.
            const float s = b.tile.w / 64.0f, t = b.tile.h / 32.0f;
            const float x0 = b.tile.x / (float)c.W, y0 = b.tile.y / (float)c.H;
            const float x1 = (b.tile.x + b.tile.w) / (float)c.W;
            const float y1 = (b.tile.y + b.tile.h) / (float)c.H;
            const float tex[8] = {0, t, 0, 0, s, 0, s, t};
            const float global[8] = {x0, y1, x0, y0, x1, y0, x1, y1};
            for (int k = 0; k < 8; ++k) {
                EXPECT_NEAR(tex[k], b.tex[k], 1e-6) << "texture coordinate " << k << " of " << i;
                EXPECT_NEAR(global[k], b.global[k], 1e-6) << "global " << k << " of " << i;
            }
            EXPECT_LE(b.tile.w, c.texW);
        }
        // The converter writes into the texture's buffer: rows of its
        // stride, as many as the texture has.
        for (const TileServer::Call& call : m_conv.calls) {
            EXPECT_TRUE(call.dst == tex->GetSTDataBuf() && call.dw == 64 && call.dh == 32);
        }
    }
}

// Whatever the crop and the size, no source rectangle of the nested walk
// leaves the image, its origin stays even and it fits the texture; the
// tiles cover the picture row by row.
TEST_F(WalkTest, NestedWalkRectanglesStayInsideTheImage) {
    ASSERT_EQ(1, m_probe.Init(&m_tex, 0, 0, 0, 64, 32, 1, &m_conv));
    m_probe.m_bCropped = true;
    const float values[] = {0.0f, 0.1f, 0.33f, 0.5f, 0.61f, 0.9f, 0.999f, 1.0f};
    const int sizes[][2] = {{128, 64}, {100, 40}, {16, 20}, {200, 90}, {66, 34}, {67, 35}};
    int checked = 0;
    for (const auto& size : sizes) {
        const int W = size[0], H = size[1];
        for (float cx : values) {
            for (float cw : values) {
                m_probe.SetCrop(cx, cx, cw, cw);
                ASSERT_EQ(1, Capture(W, H));
                int covered = 0;
                for (const Block& b : m_probe.m_blocks) {
                    covered += std::min(b.tile.w, W - b.tile.x) * b.tile.h;
                }
                ASSERT_EQ(W * H, covered) << W << "x" << H << " crop " << cx << "," << cw;
                for (const Rect& r : m_conv.rects) {
                    SCOPED_TRACE(testing::Message() << W << "x" << H << " crop " << cx << "," << cw
                                                    << " rect " << ToString({r}));
                    ASSERT_TRUE(r.x >= 0 && r.y >= 0 && r.x % 2 == 0 && r.y % 2 == 0);
                    ASSERT_TRUE(r.w >= 1 && r.h >= 1 && r.w <= 64 && r.h <= 32);
                    ASSERT_TRUE(r.x + r.w <= W && r.y + r.h <= H);
                    ++checked;
                }
            }
        }
    }
    EXPECT_GT(checked, 500);
}

}  // namespace
