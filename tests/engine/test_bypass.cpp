// Bypass: the preview round trip (yuvx texels to RGB and back to YUV), the
// tiled capture through a converter callback for tile layouts that cover the
// walk's cases, the nested walk on the same program, refusals and logs.
#include <GLES2/gl2.h>
#include <android/log.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "EngineTestUtil.h"
#include "GETestGL.h"
#include "GETestLog.h"
#include "effects/GEShaderBypass.h"
#include "engine/convert/sp2yuvx.h"
#include "gl/GLTexture.h"

using namespace enginetest;

namespace {

const int I = ANDROID_LOG_INFO;
const int E = ANDROID_LOG_ERROR;
const unsigned char kPoison = 0xA5;
const size_t kGuard = 64;

// Compares a W x H semi-planar output (with kGuard poisoned bytes behind it)
// with the image it should reproduce.
void ExpectSameImage(const SPImage& img, const std::vector<unsigned char>& out, double tol) {
    const int W = img.W, H = img.H;
    ASSERT_EQ((size_t)W * H * 3 / 2 + kGuard, out.size());
    Mismatch my, mc;
    for (int r = 0; r < H; ++r) {
        for (int c = 0; c < W; ++c) {
            const size_t i = (size_t)r * W + c;
            my.Check(out[i], img.data[i], tol,
                     "Y(" + std::to_string(c) + "," + std::to_string(r) + ")");
        }
    }
    for (int k = 0; k < H / 2; ++k) {
        for (int c = 0; c < W; ++c) {
            const size_t i = (size_t)W * H + (size_t)k * W + c;
            mc.Check(out[i], img.data[i], tol,
                     std::string(c % 2 ? "U" : "V") + "(" + std::to_string(c / 2) + "," +
                         std::to_string(k) + ")");
        }
    }
    EXPECT_EQ(0, my.count) << my.first;
    EXPECT_EQ(0, mc.count) << mc.first;
    for (size_t i = (size_t)W * H * 3 / 2; i < out.size(); ++i) {
        ASSERT_EQ(kPoison, out[i]) << "guard byte " << i;
    }
}

class BypassTest : public GLTest {
protected:
    void TearDown() override {
        delete m_pShader;
        m_pShader = nullptr;
        delete m_pTex;
        m_pTex = nullptr;
        GLTest::TearDown();
    }
    // The frame texture: a streaming RGBA texture of w x h.
    void MakeTexture(int w, int h) {
        m_pTex = new GLTexture();
        ASSERT_EQ(1, m_pTex->Init(GL_RGBA, GL_UNSIGNED_BYTE, w, h, 1));
    }

    GLTexture* m_pTex = nullptr;
    GEShaderBypass* m_pShader = nullptr;
};

class BypassPreviewTest : public BypassTest,
                          public ::testing::WithParamInterface<std::pair<int, int>> {};

// The CPU expands a frame into the texture as the preview does; Bypass turns
// it into RGB and the converter back into YUV.
TEST_P(BypassPreviewTest, FrameComesBackAsItWent) {
    const int W = GetParam().first, H = GetParam().second;
    MakeTexture(W, H);
    SPImage img(W, H);
    sp2yuvxs(m_pTex->GetSTDataBuf(), (int)m_pTex->GetStride(), H, img.data.data(), W, H, 0, 0, W,
             H);
    ASSERT_EQ(1, m_pTex->clean_buffer());

    m_pShader = new GEShaderBypass();
    ASSERT_EQ(1, m_pShader->Init(m_pTex, 0, 0, 0, W, H, 0, nullptr));
    ASSERT_EQ(1, m_pShader->ProcFrame(0u, 0u, 0, 0));
    std::vector<unsigned char> out((size_t)W * H * 3 / 2 + kGuard, kPoison);
    ASSERT_EQ(1, m_pShader->MemcpyYUV(out.data(), out.data() + (size_t)W * H));
    ExpectSameImage(img, out, 2.0);
}

// 48 wide: the texture is allocated 64 wide and only its left part is drawn.
INSTANTIATE_TEST_SUITE_P(Sizes, BypassPreviewTest,
                         ::testing::Values(std::make_pair(64, 32), std::make_pair(48, 32),
                                           std::make_pair(96, 48)));

TEST_F(BypassTest, InitLogsAndFillsThePartialTextureCoordinates) {
    MakeTexture(48, 32);
    m_pShader = new GEShaderBypass();
    GETestLog log;
    ASSERT_EQ(1, m_pShader->Init(m_pTex, 0, 0, 0, 48, 32, 0, nullptr));
    const char* banner = "[Init] ------------------------------------------------------";
    const std::vector<std::string> want = {"[Init] enter",
                                           banner,
                                           "[Init] GEShaderBypass::Init",
                                           banner,
                                           "[Init] Creating bypass shader",
                                           "[Init] partial texcoord",
                                           "[Init] 0.000000:1.000000",
                                           "[Init] 0.000000:0.000000",
                                           "[Init] 0.750000:0.000000",
                                           "[Init] 0.750000:1.000000",
                                           "[Init] leave"};
    std::vector<std::string> got;
    for (const GETestLogLine& l : log.Lines()) {
        if (l.tag == "GEShaderBypass" && l.text.rfind("[Init]", 0) == 0) {
            EXPECT_EQ(I, l.priority) << l.text;
            got.push_back(l.text);
        }
    }
    EXPECT_EQ(want, got);
    EXPECT_TRUE(log.HasExact(I, "GEShaderBypass", "[Load] get locations"));
    EXPECT_TRUE(log.Has(I, "GEShaderBypass", "[Load] program id "));
    EXPECT_TRUE(log.Has(I, "GEShaderBypass", "[Load] SAMPLER_INPUT_TEX "));
    ASSERT_NE(nullptr, m_pShader->GetProgram());
    EXPECT_EQ(m_pTex, m_pShader->GetProgram()->GetTexture(0));

    log.Clear();
    EXPECT_EQ(1, m_pShader->Deinit());
    EXPECT_TRUE(log.HasExact(I, "GEShaderBypass", "[Deinit] enter"));
    EXPECT_TRUE(log.HasExact(I, "GEShaderBypass", "[~GLProgBypass] enter"));
    EXPECT_TRUE(log.HasExact(I, "GEShaderBypass", "[Deinit] leave"));
    EXPECT_EQ(nullptr, m_pShader->GetProgram());
    EXPECT_EQ(1, m_pShader->Deinit());  // twice is harmless
}

TEST_F(BypassTest, RefusalsLeaveEverythingAlone) {
    MakeTexture(64, 32);
    m_pShader = new GEShaderBypass();
    std::vector<unsigned char> out(64 * 48, kPoison);
    {
        GETestLog log;
        EXPECT_EQ(0, m_pShader->ProcFrame(0u, 0u, 0, 0));
        EXPECT_EQ(0, m_pShader->SetParam(0, 1, 2, 3, 4));
        EXPECT_EQ(0, m_pShader->ProcFrame(nullptr, out.data(), 64, 32));
        EXPECT_EQ(2, log.Count("[ProcFrame] effect not initialized"));
        EXPECT_TRUE(log.HasExact(E, "GEShaderBypass", "[SetParam] effect not initialized"));
    }
    // A preview instance refuses captures, a capture instance previews.
    ASSERT_EQ(1, m_pShader->Init(m_pTex, 0, 0, 0, 64, 32, 0, nullptr));
    EXPECT_EQ(1, m_pShader->SetParam(1, 1, 2, 3, 4));
    {
        GETestLog log;
        EXPECT_EQ(0, m_pShader->ProcFrame(nullptr, out.data(), 64, 32));
        EXPECT_TRUE(log.HasExact(E, "GEShaderBypass", "[ProcFrame] Capture mode only"));
    }
    m_pShader->Deinit();
    FakeConverter conv(nullptr, nullptr);
    ASSERT_EQ(1, m_pShader->Init(m_pTex, 0, 0, 0, 64, 32, 1, &conv));
    {
        GETestLog log;
        EXPECT_EQ(0, m_pShader->ProcFrame(0u, 0u, 0, 0));
        EXPECT_TRUE(log.HasExact(E, "GEShaderBypass", "[ProcFrame] Preview mode only"));
    }
    m_pShader->Deinit();
    ASSERT_EQ(1, m_pShader->Init(m_pTex, 0, 0, 0, 64, 32, 1, nullptr));
    {
        GETestLog log;
        EXPECT_EQ(0, m_pShader->ProcFrame(nullptr, out.data(), 64, 32));
        EXPECT_TRUE(log.HasExact(E, "GEShaderBypass", "[ProcFrame] callback not registered"));
    }
    EXPECT_TRUE(conv.m_rects.empty());
    EXPECT_EQ(std::vector<unsigned char>(64 * 48, kPoison), out);
}

struct CaptureCase {
    int W, H;
    std::vector<Rect> rects;  // what the converter is asked for
};

void PrintTo(const CaptureCase& c, std::ostream* os) {
    *os << c.W << " x " << c.H << " " << ToString(c.rects);
}

class BypassCaptureTest : public BypassTest, public ::testing::WithParamInterface<CaptureCase> {};

// Every output pixel is the input pixel: no seam, no tile missing or out of
// place, nothing written outside the planes.
TEST_P(BypassCaptureTest, CaptureComesBackAsItWent) {
    const CaptureCase& c = GetParam();
    MakeTexture(64, 32);
    SPImage img(c.W, c.H);
    FakeConverter conv(&img, m_pTex);
    m_pShader = new GEShaderBypass();
    ASSERT_EQ(1, m_pShader->Init(m_pTex, 0, 0, 0, 64, 32, 1, &conv));
    std::vector<unsigned char> out((size_t)c.W * c.H * 3 / 2 + kGuard, kPoison);
    ASSERT_EQ(1, m_pShader->ProcFrame(nullptr, out.data(), c.W, c.H));
    EXPECT_EQ(ToString(c.rects), ToString(conv.m_rects));
    ExpectSameImage(img, out, 2.0);

    // The three-plane form passes the same on.
    conv.m_rects.clear();
    std::vector<unsigned char> out2(out.size(), kPoison);
    ASSERT_EQ(1, m_pShader->ProcFrame(img.data.data(), img.data.data() + (size_t)c.W * c.H,
                                      out2.data(), c.W, c.H));
    EXPECT_EQ(ToString(c.rects), ToString(conv.m_rects));
    EXPECT_EQ(out, out2);
}

INSTANTIATE_TEST_SUITE_P(Layouts, BypassCaptureTest,
                         ::testing::Values(
                             // One tile.
                             CaptureCase{64, 32, {{0, 0, 64, 32}}},
                             // One pixel pair more than a tile: a second, 32 wide, at W - 32.
                             CaptureCase{66, 32, {{0, 0, 64, 32}, {34, 0, 32, 32}}},
                             // A 16-pixel remainder widened to 32 and moved left over its
                             // neighbour.
                             CaptureCase{80, 32, {{0, 0, 64, 32}, {48, 0, 32, 32}}},
                             // 2.5 x 2.5 tiles: a 32-wide last column, a 16-high last row.
                             CaptureCase{160,
                                         80,
                                         {{0, 0, 64, 32},
                                          {64, 0, 64, 32},
                                          {128, 0, 32, 32},
                                          {0, 32, 64, 32},
                                          {64, 32, 64, 32},
                                          {128, 32, 32, 32},
                                          {0, 64, 64, 16},
                                          {64, 64, 64, 16},
                                          {128, 64, 32, 16}}},
                             // Narrower than 32 and shorter than a tile.
                             CaptureCase{16, 20, {{0, 0, 16, 20}}},
                             // Narrower than 32, two tiles high.
                             CaptureCase{16, 48, {{0, 0, 16, 32}, {0, 32, 16, 16}}}));

// The nested, crop-aware walk on Bypass's program: with the full crop the
// picture comes back as it went, including the widened right-hand tile.
class GEShaderBypassCropped : public GEShaderBypass {
public:
    int ProcFrame(unsigned char*, unsigned char* dst, int w, int h) override {
        return WalkCropped(dst, w, h);
    }
    using GEShaderBypass::ProcFrame;
};

TEST_F(BypassTest, NestedWalkWithTheFullCropReproducesThePicture) {
    MakeTexture(64, 32);
    SPImage img(80, 48);
    FakeConverter conv(&img, m_pTex);
    m_pShader = new GEShaderBypassCropped();
    ASSERT_EQ(1, m_pShader->Init(m_pTex, 0, 0, 0, 64, 32, 1, &conv));
    std::vector<unsigned char> out((size_t)80 * 48 * 3 / 2 + kGuard, kPoison);
    ASSERT_EQ(1, m_pShader->ProcFrame(nullptr, out.data(), 80, 48));
    const std::vector<Rect> rects = {
        {0, 0, 64, 32}, {64, 0, 16, 32}, {0, 32, 64, 16}, {64, 32, 16, 16}};
    EXPECT_EQ(ToString(rects), ToString(conv.m_rects));
    ExpectSameImage(img, out, 2.0);
}

}  // namespace
