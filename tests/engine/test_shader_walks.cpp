// The effect base class: Init's crop and fence, SetCrop's validation, the
// refusals shared by the capture walks, and the tiles and source rectangles
// of the run walk and of the crop-aware nested walk.
#include <GLES2/gl2.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <string>
#include <vector>

#include "EngineTestUtil.h"
#include "GETestGL.h"
#include "GETestLog.h"
#include "engine/GEShader.h"
#include "gl/GLTexture.h"

using namespace enginetest;

namespace {

const int I = ANDROID_LOG_INFO;
const int E = ANDROID_LOG_ERROR;

GELogTag s_probeLog("GEWalkProbe");

// What ProcBlock saw for one tile.
struct Block {
    unsigned a, b;
    int W, H;
    Rect tile;
    unsigned renderW, renderH;
    unsigned run, maxRun;
    GLfloat tex[8], global[8];
};

// An effect whose ProcBlock only records the walk's state; its capture
// ProcFrame runs the walk the test picks.
class WalkProbe : public GEShader {
public:
    WalkProbe() : GEShader(s_probeLog) {}
    ~WalkProbe() override { Deinit(); }

    int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
             unsigned char capture, IYUVConverter* conv) override {
        m_pSrcTexture = src;
        m_nRenderX = x;
        m_nRenderY = y;
        m_nRenderW = w;
        m_nRenderH = h;
        m_bCapture = capture != 0;
        m_bInited = GEShader::Init(src, a, x, y, w, h, capture, conv) != 0;
        return m_bInited ? 1 : 0;
    }
    int Deinit() override {
        m_bInited = false;
        return GEShader::Deinit();
    }
    int ProcBlock(unsigned a, unsigned b, int W, int H) override {
        Block blk;
        blk.a = a;
        blk.b = b;
        blk.W = W;
        blk.H = H;
        blk.tile = Rect{(int)m_nTileX, (int)m_nTileY, (int)m_nTileW, (int)m_nTileH};
        blk.renderW = m_nRenderW;
        blk.renderH = m_nRenderH;
        blk.run = m_nRun;
        blk.maxRun = m_nMaxRun;
        memcpy(blk.tex, m_fTileTexCoord, sizeof(blk.tex));
        memcpy(blk.global, m_fGlobalTexCoord, sizeof(blk.global));
        m_blocks.push_back(blk);
        return 1;
    }
    int ProcFrame(unsigned, unsigned, int, int) override { return 0; }
    int ProcFrame(unsigned char*, unsigned char* out, int W, int H) override {
        return m_bCropped ? WalkCropped(out, W, H) : WalkRuns(out, W, H, m_nOvX, m_nOvY);
    }
    using GEShader::ProcFrame;
    int SetParam(unsigned, int, int, int, int) override { return 1; }

    std::vector<Rect> Tiles() const {
        std::vector<Rect> r;
        for (const Block& b : m_blocks) {
            r.push_back(b.tile);
        }
        return r;
    }

    using GEShader::m_fCropH;
    using GEShader::m_fCropW;
    using GEShader::m_fCropX;
    using GEShader::m_fCropY;
    using GEShader::m_nMaxRun;

    bool m_bCropped = false;
    unsigned m_nOvX = 0, m_nOvY = 0;
    std::vector<Block> m_blocks;
};

void ExpectCoords(const GLfloat* got, const std::vector<float>& want, const char* what) {
    for (int i = 0; i < 8; ++i) {
        EXPECT_NEAR(want[i], got[i], 1e-6) << what << " component " << i;
    }
}

class WalkTest : public GLTest {
protected:
    void SetUp() override {
        GLTest::SetUp();
        m_pTex = new GLTexture();
        ASSERT_EQ(1, m_pTex->Init(GL_RGBA, GL_UNSIGNED_BYTE, 64, 32, 1));
    }
    void TearDown() override {
        m_probe.Deinit();
        delete m_pTex;
        GLTest::TearDown();
    }
    // A capture instance over the 64 x 32 texture, fed by m_conv.
    void Up() { ASSERT_EQ(1, m_probe.Init(m_pTex, 0, 0, 0, 64, 32, 1, &m_conv)); }
    // Runs a capture of W x H and returns its result.
    int Capture(int W, int H) {
        m_probe.m_blocks.clear();
        m_conv.m_rects.clear();
        m_out.assign(W > 0 && H > 0 ? (size_t)W * H * 3 / 2 + 64 : 64, 0);
        return m_probe.ProcFrame(nullptr, m_out.data(), W, H);
    }

    GLTexture* m_pTex = nullptr;
    FakeConverter m_conv{nullptr, nullptr};
    WalkProbe m_probe;
    std::vector<unsigned char> m_out;
};

TEST_F(WalkTest, InitSetsThePictureCropAndTheCaptureFence) {
    GLTexture narrow;  // 48 wide, allocated 64
    ASSERT_EQ(1, narrow.Init(GL_RGBA, GL_UNSIGNED_BYTE, 48, 32, 1));
    {
        GETestLog log;
        ASSERT_EQ(1, m_probe.Init(&narrow, 7, 0, 0, 48, 32, 0, &m_conv));
        EXPECT_EQ(0.0f, m_probe.m_fCropX);
        EXPECT_EQ(0.0f, m_probe.m_fCropY);
        EXPECT_FLOAT_EQ(0.75f, m_probe.m_fCropW);
        EXPECT_EQ(1.0f, m_probe.m_fCropH);
        EXPECT_TRUE(log.HasExact(I, "GEShader", "[Init] enter"));
        EXPECT_TRUE(log.HasExact(I, "GEShader", "[Init] leave"));
        EXPECT_EQ(0, log.Count("generated"));
        m_probe.Deinit();
    }
    {
        GETestLog log;
        ASSERT_EQ(1, m_probe.Init(&narrow, 7, 0, 0, 48, 32, 1, &m_conv));
        EXPECT_EQ(1, log.Count("[Init] fence "));
        EXPECT_EQ(1, log.Count(" generated"));
        m_probe.Deinit();
        EXPECT_TRUE(log.HasExact(I, "GEShader", "[Deinit] enter"));
        EXPECT_EQ(nullptr, m_probe.GetYDataBuf());
        EXPECT_EQ(nullptr, m_probe.GetUVDataBuf());
    }
    {
        GETestLog log;
        EXPECT_EQ(0, m_probe.Init(nullptr, 0, 0, 0, 48, 32, 1, &m_conv));
        EXPECT_TRUE(log.Has(E, "GEShader", "[Init] src texture is NULL"));
    }
}

TEST(GEShaderCrop, SetCropKeepsValidCropsAndResetsTheRest) {
    WalkProbe p;
    struct Case {
        float x, y, w, h;
        bool kept;
    };
    const float nan = nanf("");
    const Case cases[] = {
        {0.5f, 0.5f, 0.6f, 0.6f, true},  // past the edge, still accepted
        {0.25f, 0.0f, 0.5f, 1.0f, true},   {1.0f, 1.0f, 1.0f, 1.0f, true},
        {0.0f, 0.0f, 0.0f, 1.0f, false},   {0.0f, 0.0f, 1.0f, 0.0f, false},
        {-0.01f, 0.0f, 0.5f, 0.5f, false}, {0.0f, -0.5f, 0.5f, 0.5f, false},
        {1.01f, 0.0f, 0.5f, 0.5f, false},  {0.0f, 1.5f, 0.5f, 0.5f, false},
        {0.0f, 0.0f, 1.01f, 0.5f, false},  {0.0f, 0.0f, 0.5f, 2.0f, false},
        {0.0f, 0.0f, -0.5f, 0.5f, false},  {nan, 0.0f, 0.5f, 0.5f, false},
        {0.0f, 0.0f, 0.5f, nan, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.x << " " << c.y << " " << c.w << " " << c.h);
        p.SetCrop(0.1f, 0.2f, 0.3f, 0.4f);  // something else first
        EXPECT_EQ(1, p.SetCrop(c.x, c.y, c.w, c.h));
        EXPECT_EQ(c.kept ? c.x : 0.0f, p.m_fCropX);
        EXPECT_EQ(c.kept ? c.y : 0.0f, p.m_fCropY);
        EXPECT_EQ(c.kept ? c.w : 1.0f, p.m_fCropW);
        EXPECT_EQ(c.kept ? c.h : 1.0f, p.m_fCropH);
    }
    // The pixel form changes nothing.
    EXPECT_EQ(1, p.SetCrop(1, 2, 3, 4));
    EXPECT_EQ(1.0f, p.m_fCropW);
}

TEST_F(WalkTest, BothWalksRefuseUnderTheEffectsTag) {
    for (int cropped = 0; cropped < 2; ++cropped) {
        SCOPED_TRACE(cropped ? "nested walk" : "run walk");
        m_probe.m_bCropped = cropped != 0;
        {
            GETestLog log;
            EXPECT_EQ(0, Capture(64, 32));
            EXPECT_TRUE(log.HasExact(E, "GEWalkProbe", "[ProcFrame] effect not initialized"));
            EXPECT_EQ(cropped ? 1 : 0, log.Count("[ProcFrame] enter"));
        }
        {
            ASSERT_EQ(1, m_probe.Init(m_pTex, 0, 0, 0, 64, 32, 0, &m_conv));
            GETestLog log;
            EXPECT_EQ(0, Capture(64, 32));
            EXPECT_TRUE(log.HasExact(E, "GEWalkProbe", "[ProcFrame] Capture mode only"));
            m_probe.Deinit();
        }
        {
            ASSERT_EQ(1, m_probe.Init(m_pTex, 0, 0, 0, 64, 32, 1, nullptr));
            GETestLog log;
            EXPECT_EQ(0, Capture(64, 32));
            EXPECT_TRUE(log.HasExact(E, "GEWalkProbe", "[ProcFrame] callback not registered"));
            m_probe.Deinit();
        }
        {
            Up();
            GETestLog log;
            EXPECT_EQ(0, Capture(0, 32));
            EXPECT_EQ(0, Capture(64, -2));
            EXPECT_EQ(2, log.Count("[ProcFrame] bad capture size"));
            m_probe.Deinit();
        }
        EXPECT_TRUE(m_probe.m_blocks.empty());
        EXPECT_TRUE(m_conv.m_rects.empty());
    }
    // Overlaps as large as the tile would never advance.
    Up();
    m_probe.m_bCropped = false;
    m_probe.m_nOvX = 64;
    GETestLog log;
    EXPECT_EQ(0, Capture(160, 64));
    EXPECT_TRUE(log.HasExact(E, "GEWalkProbe",
                             "[ProcFrame] bad capture size 160x64 (tile 64x32, overlap 64:0)"));
}

// The run walk's tiles, written out by hand from its rules: texture-sized
// tiles left to right and top to bottom, a right-hand tile that is not a
// multiple of 32 wide widened and moved to end at the edge (not below 0),
// the bottom tile never widened.
TEST_F(WalkTest, RunWalkTiles) {
    struct Case {
        int W, H;
        std::vector<Rect> tiles;
        std::vector<Rect> rects;  // asked of the converter, when not the tiles
    };
    const Case cases[] = {
        {64, 32, {{0, 0, 64, 32}}, {}},
        {65, 32, {{0, 0, 64, 32}, {33, 0, 32, 32}}, {}},
        {80, 32, {{0, 0, 64, 32}, {48, 0, 32, 32}}, {}},
        {100, 40, {{0, 0, 64, 32}, {36, 0, 64, 32}, {0, 32, 64, 8}, {36, 32, 64, 8}}, {}},
        {160,
         80,
         {{0, 0, 64, 32},
          {64, 0, 64, 32},
          {128, 0, 32, 32},
          {0, 32, 64, 32},
          {64, 32, 64, 32},
          {128, 32, 32, 32},
          {0, 64, 64, 16},
          {64, 64, 64, 16},
          {128, 64, 32, 16}},
         {}},
        // Narrower than 32: the tile keeps 32 at x 0, the converter is
        // asked for the image's width only.
        {16, 20, {{0, 0, 32, 20}}, {{0, 0, 16, 20}}},
        {20, 64, {{0, 0, 32, 32}, {0, 32, 32, 32}}, {{0, 0, 20, 32}, {0, 32, 20, 32}}},
    };
    Up();
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.W << " x " << c.H);
        GETestLog log;
        ASSERT_EQ(1, Capture(c.W, c.H));
        EXPECT_EQ(ToString(c.tiles), ToString(m_probe.Tiles()));
        EXPECT_EQ(ToString(c.rects.empty() ? c.tiles : c.rects), ToString(m_conv.m_rects));
        const unsigned n = (unsigned)c.tiles.size();
        EXPECT_TRUE(log.HasExact(I, "GEWalkProbe",
                                 "[ProcFrame] fImgWidth=" + std::to_string(c.W) +
                                     ", fImgHeight=" + std::to_string(c.H) +
                                     ", nProcW=64, nProcH=32, max run = " + std::to_string(n)));
        EXPECT_EQ((int)n, log.Count(">> run "));
        EXPECT_TRUE(log.HasExact(I, "GEWalkProbe",
                                 ">> run 0 ==================================================="));
        EXPECT_TRUE(log.HasExact(I, "GEWalkProbe", "[ProcFrame] leave"));
        EXPECT_EQ(0u, m_probe.m_nMaxRun);
        for (size_t i = 0; i < m_probe.m_blocks.size(); ++i) {
            const Block& b = m_probe.m_blocks[i];
            EXPECT_EQ(i, b.run);
            EXPECT_EQ(n, b.maxRun);
            EXPECT_EQ(0u, b.a);
            EXPECT_EQ(0u, b.b);
            EXPECT_EQ(c.W, b.W);
            EXPECT_EQ(c.H, b.H);
            EXPECT_EQ((unsigned)b.tile.w, b.renderW);
            EXPECT_EQ((unsigned)b.tile.h, b.renderH);
        }
        // The converter writes into the texture's buffer, rows of its
        // stride, nProcH rows.
        for (size_t i = 0; i < m_conv.m_dst.size(); ++i) {
            EXPECT_EQ((void*)m_pTex->GetSTDataBuf(), m_conv.m_dst[i]);
            EXPECT_EQ(64, m_conv.m_dw[i]);
            EXPECT_EQ(32, m_conv.m_dh[i]);
        }
    }
}

TEST_F(WalkTest, RunWalkTextureAndGlobalCoordinates) {
    Up();
    ASSERT_EQ(1, Capture(160, 80));
    ASSERT_EQ(9u, m_probe.m_blocks.size());
    // First tile: the whole texture; its place in the picture.
    ExpectCoords(m_probe.m_blocks[0].tex, {0, 1, 0, 0, 1, 0, 1, 1}, "tile 0");
    ExpectCoords(m_probe.m_blocks[0].global, {0, 0.4f, 0, 0, 0.4f, 0, 0.4f, 0.4f}, "global 0");
    // (128, 64, 32, 16): half the texture each way, the picture's corner.
    ExpectCoords(m_probe.m_blocks[8].tex, {0, 0.5f, 0, 0, 0.5f, 0, 0.5f, 0.5f}, "tile 8");
    ExpectCoords(m_probe.m_blocks[8].global, {0.8f, 1, 0.8f, 0.8f, 1, 0.8f, 1, 1}, "global 8");
    // (64, 32, 64, 32).
    ExpectCoords(m_probe.m_blocks[4].global, {0.4f, 0.8f, 0.4f, 0.4f, 0.8f, 0.4f, 0.8f, 0.8f},
                 "global 4");
}

TEST_F(WalkTest, RunWalkWithOverlapsAdvancesByTheTileLessTheOverlap) {
    Up();
    m_probe.m_nOvX = 16;
    m_probe.m_nOvY = 8;
    ASSERT_EQ(1, Capture(160, 64));
    // Steps of 48 across and 24 down; the fourth column's 16-pixel remainder
    // becomes a 32-wide tile at 128.
    std::vector<Rect> want;
    const int rows[3][2] = {{0, 32}, {24, 32}, {48, 16}};
    for (const auto& r : rows) {
        want.push_back({0, r[0], 64, r[1]});
        want.push_back({48, r[0], 64, r[1]});
        want.push_back({96, r[0], 64, r[1]});
        want.push_back({128, r[0], 32, r[1]});
    }
    EXPECT_EQ(ToString(want), ToString(m_probe.Tiles()));
    EXPECT_EQ(ToString(want), ToString(m_conv.m_rects));
    ASSERT_FALSE(m_probe.m_blocks.empty());
    EXPECT_EQ(12u, m_probe.m_blocks[0].maxRun);
}

// The nested walk's source rectangles: sx = trunc(W cx + x cw) made even,
// sy = trunc(H cy + y ch), sw = trunc(w cw) rounded up to 32,
// sh = trunc(h ch), worked out by hand for a 128 x 64 capture of 64 x 32
// tiles; the tiles themselves do not depend on the crop.
TEST_F(WalkTest, NestedWalkRectanglesFollowTheCrop) {
    struct Case {
        float cx, cy, cw, ch;
        std::vector<Rect> rects;
        float s, t;  // far corner of the tile texture coordinates
    };
    const Case cases[] = {
        {0, 0, 1, 1, {{0, 0, 64, 32}, {64, 0, 64, 32}, {0, 32, 64, 32}, {64, 32, 64, 32}}, 1, 1},
        {0.5f,
         0.25f,
         0.5f,
         0.5f,
         {{64, 16, 32, 16}, {96, 16, 32, 16}, {64, 32, 32, 16}, {96, 32, 32, 16}},
         0.5f,
         0.5f},
        // 1/128: sx 1 and 33 are made even.
        {0.0078125f,
         0,
         0.5f,
         1,
         {{2, 0, 32, 32}, {34, 0, 32, 32}, {2, 32, 32, 32}, {34, 32, 32, 32}},
         0.5f,
         1},
        // sw = 48 rounded up to 64; at sx 80 that passes the edge and is cut
        // to 48.
        {0.25f,
         0,
         0.75f,
         1,
         {{32, 0, 64, 32}, {80, 0, 48, 32}, {32, 32, 64, 32}, {80, 32, 48, 32}},
         0.75f,
         1},
        // Past the edge: used as the crop (0.5, 0.5, 0.5, 0.5).
        {0.5f,
         0.5f,
         0.6f,
         0.6f,
         {{64, 32, 32, 16}, {96, 32, 32, 16}, {64, 48, 32, 16}, {96, 48, 32, 16}},
         0.5f,
         0.5f},
    };
    Up();
    m_probe.m_bCropped = true;
    const std::vector<Rect> tiles = {
        {0, 0, 64, 32}, {64, 0, 64, 32}, {0, 32, 64, 32}, {64, 32, 64, 32}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.cx << " " << c.cy << " " << c.cw << " " << c.ch);
        ASSERT_EQ(1, m_probe.SetCrop(c.cx, c.cy, c.cw, c.ch));
        GETestLog log;
        ASSERT_EQ(1, Capture(128, 64));
        EXPECT_EQ(ToString(c.rects), ToString(m_conv.m_rects));
        EXPECT_EQ(ToString(tiles), ToString(m_probe.Tiles()));
        ASSERT_EQ(4u, m_probe.m_blocks.size());
        ExpectCoords(m_probe.m_blocks[3].tex, {0, c.t, 0, 0, c.s, 0, c.s, c.t}, "tile 3");
        ExpectCoords(m_probe.m_blocks[3].global, {0.5f, 1, 0.5f, 0.5f, 1, 0.5f, 1, 1}, "global 3");
        EXPECT_TRUE(log.HasExact(I, "GEWalkProbe", "[ProcFrame] enter"));
        EXPECT_TRUE(log.HasExact(I, "GEWalkProbe", "[ProcFrame] leave"));
        EXPECT_EQ(0, log.Count(">> run"));
    }
}

TEST_F(WalkTest, NestedWalkWidensTheRightTileInPlace) {
    Up();
    m_probe.m_bCropped = true;
    ASSERT_EQ(1, m_probe.SetCrop(0.0f, 0.0f, 1.0f, 1.0f));
    ASSERT_EQ(1, Capture(80, 48));
    const std::vector<Rect> tiles = {
        {0, 0, 64, 32}, {64, 0, 32, 32}, {0, 32, 64, 16}, {64, 32, 32, 16}};
    EXPECT_EQ(ToString(tiles), ToString(m_probe.Tiles()));
    // The widened tile's rectangle stops at the image's edge.
    const std::vector<Rect> rects = {
        {0, 0, 64, 32}, {64, 0, 16, 32}, {0, 32, 64, 16}, {64, 32, 16, 16}};
    EXPECT_EQ(ToString(rects), ToString(m_conv.m_rects));
    ASSERT_EQ(4u, m_probe.m_blocks.size());
    ExpectCoords(m_probe.m_blocks[1].tex, {0, 1, 0, 0, 0.5f, 0, 0.5f, 1}, "tile 1");
    ExpectCoords(m_probe.m_blocks[1].global, {0.8f, 32.0f / 48, 0.8f, 0, 1.2f, 0, 1.2f, 32.0f / 48},
                 "global 1");
}

// Whatever the crop and the size, no source rectangle leaves the image, sx
// stays even and the rectangle fits the texture the converter fills.
TEST_F(WalkTest, NestedWalkRectanglesStayInsideTheImage) {
    Up();
    m_probe.m_bCropped = true;
    const float values[] = {0.0f, 0.1f, 0.33f, 0.5f, 0.61f, 0.9f, 0.999f, 1.0f};
    const int sizes[][2] = {{128, 64}, {100, 40}, {16, 20}, {200, 90}, {66, 34}};
    int checked = 0;
    for (const auto& size : sizes) {
        const int W = size[0], H = size[1];
        for (float cx : values) {
            for (float cw : values) {
                if (cw == 0.0f) {
                    continue;
                }
                const float cy = cx, ch = cw;
                m_probe.SetCrop(cx, cy, cw, ch);
                ASSERT_EQ(1, Capture(W, H));
                for (const Rect& r : m_conv.m_rects) {
                    SCOPED_TRACE(testing::Message()
                                 << W << "x" << H << " crop " << cx << "," << cw << " rect " << r.x
                                 << "," << r.y << "," << r.w << "," << r.h);
                    ASSERT_GE(r.x, 0);
                    ASSERT_GE(r.y, 0);
                    ASSERT_EQ(0, r.x % 2);
                    ASSERT_GE(r.w, 1);
                    ASSERT_GE(r.h, 1);
                    ASSERT_LE(r.x + r.w, W);
                    ASSERT_LE(r.y + r.h, H);
                    ASSERT_LE(r.w, 64);
                    ASSERT_LE(r.h, 32);
                    ++checked;
                }
            }
        }
    }
    EXPECT_GT(checked, 500);
}

}  // namespace
