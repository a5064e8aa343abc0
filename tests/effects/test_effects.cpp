// The plain effects (Bypass, Mirror, Bloom) through the effect manager
// against their formulas, the capture-seam check and the contract of every
// effect of the table, and the tile walks' coverage on the GPU.
#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "GETestEffectSuite.h"
#include "GETestLog.h"

using namespace getest;

namespace getest {
void DotMasks(const GETestRoot& root);  // test_effects_geometry.cpp
}  // namespace getest

namespace {

RGB BypassOf(const At& a) {
    return Source(a);
}
RGB BloomOf(const At& a) {
    return Bloom(Source(a));
}
// Mirror: each texture (a preview frame, a capture tile) shows its upper
// rows, or in landscape its left columns, reflected about its middle.
RGB MirrorOf(const At& a, bool columns) {
    int sx, sy;
    Mirrored(a.texW, a.texH, columns)(a.x, a.y, &sx, &sy);
    return SourceAt(a.in, sx, sy);
}
RGB PortraitOf(const At& a) {
    return MirrorOf(a, false);
}
RGB LandscapeOf(const At& a) {
    return MirrorOf(a, true);
}

// The plain effects take no parameters: the groups they get change nothing.
const EffectRow kPlainRows[] = {
    {{"bypass", kBypass, {1, 2, 3, 4}, {5, 6, 7, 8}, nullptr}, PatternImage, BypassOf, 1.0},
    {{"bypass greys", kBypass, {}, {}, nullptr}, GreyRamp, BypassOf, 1.0},
    {{"mirror portrait", 8, {0, 2, 3, 4}, {5, 6, 7, 8}, nullptr}, PatternImage, PortraitOf, 1.0},
    {{"mirror landscape", 8, {1, 0, 0, 0}, {}, nullptr}, PatternImage, LandscapeOf, 1.0},
    // Bloom multiplies the rounding of its input by up to 3.5.
    {{"bloom", 9, {1, 2, 3, 4}, {500, 6, 7, 8}, nullptr}, PatternImage, BloomOf, 2.0},
    // From black to saturated white.
    {{"bloom greys", 9, {}, {}, nullptr}, GreyRamp, BloomOf, 2.0},
};

TEST(EffectPlain, FramesAndCapturesFollowTheFormulas) {
    for (const EffectRow& r : kPlainRows) {
        RunEffectRow(r);
    }
}

// Smooth's chroma under flat luma.
SPImage FlatLuma(int w, int h) {
    SPImage img = Smooth(w, h);
    std::fill(img.YPlane(), img.UVPlane(), 100);
    return img;
}

// One row per effect of the table (a new effect adds its own), each with an
// input its output is smooth for: Mirror reflects along one axis only.
const SeamRow kSeamRows[] = {
    {{"bypass", kBypass, {}, {}, nullptr}, Smooth},
    {{"mirror portrait", 8, {}, {}, nullptr}, SmoothAlongX},
    {{"mirror landscape", 8, {1, 0, 0, 0}, {}, nullptr}, SmoothAlongY},
    {{"bloom", 9, {}, {}, nullptr}, Smooth},
    {{"vintage", 1, {}, {}, LookLookUps}, Smooth},
    {{"contrast", 6, {}, {}, LookLookUps}, Smooth},
    {{"whiteboard", 10, {}, {}, LookLookUps}, Smooth},
    {{"stylize maple", 11, {}, {}, LookLookUps}, Smooth},
    {{"stylize nash", 12, {}, {}, LookLookUps}, Smooth},
    {{"two-tone V", 13, {}, {}, LookLookUps}, Smooth},
    {{"two-tone H", 14, {}, {}, LookLookUps}, Smooth},
    {{"split mono", 15, {50, 0, 0, 0}, {}, LookLookUps}, Smooth},
    {{"split color", 16, {}, {}, LookLookUps}, Smooth},
    // The blur family, blurring all but a corner (Depth of field) or the top
    // rows (Tilt-shift); tiles with margins need room for them. Sketch's
    // strokes and tones are edges of its own: flat luma for it.
    {{"dof", 2, {98}, {}, nullptr}, Smooth, 128, 96},
    {{"tilt-shift", 7, {98}, {0, 0, 0, 14}, nullptr}, Smooth},
    {{"sketch", 17, {}, {}, nullptr}, FlatLuma, 128, 96},
    {{"color sketch", 18, {}, {}, nullptr}, FlatLuma, 128, 96},
    {{"fisheye", 3, {100}, {600, 20}, nullptr}, Smooth},
    {{"vignette", 4, {50}, {600, 20, 40, 20}, nullptr}, Smooth},
    {{"dots", 5, {}, {}, DotMasks}, Smooth},
};

TEST(EffectSeams, EveryEffectCapturesWithoutSeams) {
    std::set<unsigned> rows;
    for (const SeamRow& r : kSeamRows) {
        RunSeamRow(r);
        rows.insert(r.setup.effect);
    }
    for (unsigned e = 1; e < GE_EFFECT_COUNT; ++e) {
        EXPECT_TRUE(GEEffectLookUp(e)->pfnCreate == nullptr || rows.count(e))
            << "effect " << e << " has no seam row";
    }
}

// What every effect refuses, with its own error line, writing nothing and
// asking the converter for nothing; Deinit may come twice. The blur family
// takes parameters at any time, without a word, and answers 0 to all.
// Captures come through the entry the manager calls (both planes named): Dots answers 0
// from the other one whatever its state (test_effects_geometry.cpp).
TEST(EffectContract, RefusalsUnderTheEffectsTag) {
    const int E = ANDROID_LOG_ERROR;
    const std::set<unsigned> quietParams = {2, 7, 17, 18};
    for (const SeamRow& r : kSeamRows) {
        const unsigned effect = r.setup.effect;
        const std::string tag = EffectTag(effect);
        SCOPED_TRACE(r.setup.name);
        const std::unique_ptr<GETestRoot> root = LookUps(r.setup);
        ManagerRig rig;
        TileServer server;
        ASSERT_TRUE(rig.Init(kTexW, kTexH, &server));
        std::vector<unsigned char> out(kTexW * kTexH * 3 / 2, kPoison);
        GETestLog log;
        GEShader* e = NewEffect(effect);
        rig.man.Inject(e, false, false);
        EXPECT_EQ(0, e->Init(nullptr, 0, 0, 0, kTexW, kTexH, 0, &server));
        EXPECT_EQ(0, e->ProcFrame(0u, 0u, 0, 0));
        EXPECT_EQ(0, e->ProcFrame(nullptr, nullptr, out.data(), kTexW, kTexH));
        EXPECT_EQ(0, e->SetParam(0, 1, 2, 3, 4));
        EXPECT_TRUE(log.HasExact(E, tag, "[ProcFrame] effect not initialized")) << log.Dump();
        EXPECT_EQ(!quietParams.count(effect),
                  log.HasExact(E, tag, "[SetParam] effect not initialized"));
        ASSERT_TRUE(rig.man.Inject(NewEffect(effect), false, true));
        EXPECT_EQ(0, rig.man.CurrShader()->ProcFrame(nullptr, nullptr, out.data(), kTexW, kTexH));
        EXPECT_TRUE(log.HasExact(E, tag, "[ProcFrame] Capture mode only"));
        ASSERT_TRUE(rig.man.Inject(NewEffect(effect), true, true));
        EXPECT_EQ(0, rig.man.CurrShader()->ProcFrame(0u, 0u, 0, 0));
        EXPECT_TRUE(log.HasExact(E, tag, "[ProcFrame] Preview mode only"));
        EXPECT_EQ(1, rig.man.CurrShader()->Deinit());
        EXPECT_EQ(1, rig.man.CurrShader()->Deinit());
        EXPECT_TRUE(server.rects.empty());
        EXPECT_EQ(std::vector<unsigned char>(kTexW * kTexH * 3 / 2, kPoison), out);
    }
}

// Captures at the preview sizes cameras use: texture widths that are and
// are not whole groups of 32, capture widths two tiles and a remainder of 0,
// 16, 30 and 34 columns. Every output pixel comes from its own source pixel
// and every tile's rectangle lies inside the image (TileServer).
TEST(EffectWalks, EveryPreviewWidthCoversTheCapture) {
    const int kTileH = 16, kCaptureH = 24;
    for (int pw : {720, 736, 800, 960, 1280, 1440}) {
        for (int rem : {0, 16, 30, 34}) {
            const int W = 2 * pw + rem;
            const std::string what =
                "preview " + std::to_string(pw) + ", capture " + std::to_string(W);
            SCOPED_TRACE(what);
            const SPImage in = SPImage::Pattern(W, kCaptureH, pw + rem);
            ManagerRig rig(pw, kTileH);
            TileServer server(&in, [&rig] { rig.Clean(); });
            ASSERT_TRUE(rig.Init((unsigned)pw, kTileH, &server));
            ASSERT_TRUE(rig.Choose(9, true));
            const std::vector<unsigned char> out = CaptureOf(rig, in);
            EXPECT_EQ((rem == 0 ? 2u : 3u) * 2u, server.rects.size());
            EXPECT_EQ(0, CompareToFormula(in, out.data(), out.data() + (size_t)W * kCaptureH,
                                          Identity, Bloom, 2.0, what, false));
        }
    }
}

// Bypass running the crop-aware nested walk instead of the run walk.
class CroppedBypass : public GEShaderBypass {
public:
    int ProcFrame(unsigned char*, unsigned char* out, int w, int h) override {
        return WalkCropped(out, w, h);
    }
    using GEShaderBypass::ProcFrame;
};

// The nested walk: every output pixel shows the crop rectangle's source
// pixel at the crop's scale, sampled between its nearest pixels; where the
// crop reaches past the picture, the edge repeats. Textures of the picture's
// width and narrower than their 32-aligned rows; 2.5 x 2.5 tiles.
TEST(EffectWalks, CropAwareWalkShowsTheCropAtItsScale) {
    const struct {
        float x, y, w, h;
    } crops[] = {
        {0.0f, 0.0f, 1.0f, 1.0f},      {0.25f, 0.25f, 0.5f, 0.5f},   {0.1f, 0.3f, 0.37f, 0.41f},
        {0.5f, 0.5f, 0.5f, 0.5f},      {0.5f, 0.5f, 0.6f, 0.6f},     {0.7f, 0.05f, 0.6f, 0.5f},
        {0.05f, 0.8f, 0.5f, 0.4f},     {1.0f, 0.0f, 0.5f, 1.0f},     {0.0f, 1.0f, 1.0f, 0.3f},
        {0.303f, 0.013f, 1.0f, 0.99f}, {0.0f, 0.0f, 0.999f, 0.995f},
    };
    const SPImage in = SPImage::Pattern(kCapW, kCapH, 5);
    for (int texW : {64, 48}) {
        for (const auto& c : crops) {
            const std::string what = "texture " + std::to_string(texW) + ", crop " +
                                     std::to_string(c.x) + " " + std::to_string(c.y) + " " +
                                     std::to_string(c.w) + " " + std::to_string(c.h);
            SCOPED_TRACE(what);
            ManagerRig rig(texW, kTexH);
            TileServer server(&in, [&rig] { rig.Clean(); });
            ASSERT_TRUE(rig.Init((unsigned)texW, kTexH, &server));
            ASSERT_TRUE(rig.man.Inject(new CroppedBypass(), true, true));
            rig.man.SetCrop(c.x, c.y, c.w, c.h);
            const std::vector<unsigned char> out = CaptureOf(rig, in);
            const double cx = c.x, cy = c.y, cw = c.w, ch = c.h;
            EXPECT_EQ(0, CompareToColours(
                             kCapW, kCapH, out.data(), out.data() + kCapW * kCapH,
                             [&](int x, int y) {
                                 return SampleLinear(in, kCapW * cx + (x + 0.5) * cw,
                                                     kCapH * cy + (y + 0.5) * ch);
                             },
                             2.0, what, false));
        }
    }
}

}  // namespace
