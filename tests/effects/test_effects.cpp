// Bypass, Mirror and Bloom through the effect manager: semi-planar frames in,
// the converted planes out, compared with values worked out from the colour
// formulas, in preview and in tiled captures (seams, widened and partial
// tiles, each tile mirrored about its own middle); the effect contract's
// refusals.
#include <android/log.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "GETestEngine.h"
#include "GETestFrames.h"
#include "GETestLog.h"
#include "effects/GEShaderBloom.h"
#include "effects/GEShaderBypass.h"
#include "effects/GEShaderMirror.h"

using namespace getest;

namespace {

const int kW = 64;  // texture (preview buffer) size
const int kH = 32;
const unsigned kBypass = 0;  // not in the manager's table: injected

// Preview mirrors about the middle of the texture, captures about the middle
// of each kW x kH tile.
const SourceOf kRows = Mirrored(kW, kH, false);
const SourceOf kColumns = Mirrored(kW, kH, true);

SPImage GreyRamp(int w, int h) {
    return SPImage::Grey(w, h, [](int x, int y) { return (x * 4 + y * 9) % 256; });
}

// Bypass running the crop-aware nested walk instead of the run walk.
class CroppedBypass : public GEShaderBypass {
public:
    int ProcFrame(unsigned char*, unsigned char* out, int w, int h) override {
        return WalkCropped(out, w, h);
    }
    using GEShaderBypass::ProcFrame;
};

bool Choose(ManagerRig& rig, unsigned effect, bool capture, bool landscape = false) {
    return effect == kBypass ? rig.man.Inject(new GEShaderBypass(), capture, true)
                             : rig.Choose(effect, capture, landscape);
}

struct PreviewCase {
    const char* name;
    unsigned effect;
    bool landscape;
    int w, h;  // the picture; the buffer is w aligned to 32 x h
    bool grey;
    SourceOf source;
    RGB (*op)(const RGB&);
};

TEST(EffectPreview, FramesFollowTheFormulas) {
    const PreviewCase cases[] = {
        {"bypass", kBypass, false, 64, 32, false, Identity, Unchanged},
        {"bypass 96 x 48", kBypass, false, 96, 48, false, Identity, Unchanged},
        // Only the picture's part of each buffer row is sampled.
        {"bypass 48 wide", kBypass, false, 48, 32, false, Identity, Unchanged},
        {"bloom greys", 9, false, 64, 32, true, Identity, Bloom},
        {"bloom colours, 48 wide", 9, false, 48, 32, false, Identity, Bloom},
        {"mirror portrait", 8, false, 64, 32, false, kRows, Unchanged},
        {"mirror landscape", 8, true, 64, 32, false, kColumns, Unchanged},
        // The middle is column 32 whatever the picture's width.
        {"mirror landscape, 48 wide", 8, true, 48, 32, false, kColumns, Unchanged},
    };
    for (const PreviewCase& c : cases) {
        SCOPED_TRACE(c.name);
        ManagerRig rig(c.w, c.h);
        ASSERT_TRUE(rig.Init((unsigned)c.w, (unsigned)c.h));
        GETestLog log;
        ASSERT_TRUE(Choose(rig, c.effect, false, c.landscape));
        if (c.effect == 8) {
            EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, "GEShaderMirror",
                                     c.landscape ? "[Tamso] load Landscape mirror shader"
                                                 : "[Tamso] load Protrait mirror shader"));
        }
        // Two frames: the second is processed afresh.
        for (int seed : {0, 1}) {
            SPImage in =
                c.grey && seed == 0 ? GreyRamp(c.w, c.h) : SPImage::Pattern(c.w, c.h, seed);
            std::vector<unsigned char> out = rig.Preview(in);
            EXPECT_EQ(0, CompareToFormula(in, out.data(), out.data() + (size_t)c.w * c.h, c.source,
                                          c.op, 1.0, c.name));
        }
    }
}

// The landscape flag is read when the program is loaded: changing it alone
// changes nothing until the effect is chosen again.
TEST(EffectPreview, MirrorReadsItsFlagWhenChosen) {
    ManagerRig rig;
    ASSERT_TRUE(rig.Init(kW, kH));
    ASSERT_TRUE(rig.Choose(8, false, true));
    SPImage in = SPImage::Pattern(kW, kH);
    rig.man.m_bLandscaped = false;
    std::vector<unsigned char> out = rig.Preview(in);
    EXPECT_EQ(0, CompareToFormula(in, out.data(), out.data() + kW * kH, kColumns, Unchanged, 1.0,
                                  "flag changed"));
    ASSERT_TRUE(rig.man.ChooseEffect(8, 0));
    out = rig.Preview(in);
    EXPECT_EQ(0, CompareToFormula(in, out.data(), out.data() + kW * kH, kRows, Unchanged, 1.0,
                                  "chosen again"));
}

struct CaptureCase {
    const char* name;
    unsigned effect;
    bool landscape;
    int W, H;
    bool grey;
    SourceOf source;
    RGB (*op)(const RGB&);
    const char* rects;  // what the converter is asked for
};

// Every output pixel comes from the formulas: no seam, no tile missing or
// out of place, nothing written outside the planes or into the camera's.
TEST(EffectCapture, TilesFollowTheFormulas) {
    const char* quad = "0,0,64,32 64,0,64,32 0,32,64,32 64,32,64,32";
    const CaptureCase cases[] = {
        {"bypass, one tile", kBypass, false, 64, 32, false, Identity, Unchanged, "0,0,64,32"},
        // One pixel pair more than a tile: a second, 32 wide, at W - 32.
        {"bypass 66", kBypass, false, 66, 32, false, Identity, Unchanged, "0,0,64,32 34,0,32,32"},
        // A 16-pixel remainder widened to 32 and moved left over its neighbour.
        {"bypass 80", kBypass, false, 80, 32, false, Identity, Unchanged, "0,0,64,32 48,0,32,32"},
        // 2.5 x 2.5 tiles: a 32-wide last column, a 16-high last row.
        {"bypass 160 x 80", kBypass, false, 160, 80, false, Identity, Unchanged,
         "0,0,64,32 64,0,64,32 128,0,32,32 0,32,64,32 64,32,64,32 128,32,32,32 0,64,64,16 "
         "64,64,64,16 128,64,32,16"},
        // Narrower than 32, shorter than a tile, then two tiles high.
        {"bypass 16 x 20", kBypass, false, 16, 20, false, Identity, Unchanged, "0,0,16,20"},
        {"bypass 16 x 48", kBypass, false, 16, 48, false, Identity, Unchanged,
         "0,0,16,32 0,32,16,16"},
        {"mirror portrait", 8, false, 128, 64, false, kRows, Unchanged, quad},
        {"mirror landscape", 8, true, 128, 64, false, kColumns, Unchanged, quad},
        {"bloom greys", 9, false, 128, 64, true, Identity, Bloom, quad},
        // The right-hand tile widened to 64 and moved left, 16-high bottom row.
        {"bloom 112 x 48", 9, false, 112, 48, false, Identity, Bloom,
         "0,0,64,32 48,0,64,32 0,32,64,16 48,32,64,16"},
    };
    for (const CaptureCase& c : cases) {
        SCOPED_TRACE(c.name);
        const SPImage in = c.grey ? GreyRamp(c.W, c.H) : SPImage::Pattern(c.W, c.H);
        ManagerRig rig;
        TileServer server(&in, [&rig] { rig.Clean(); });
        ASSERT_TRUE(rig.Init(kW, kH, &server));
        ASSERT_TRUE(Choose(rig, c.effect, true, c.landscape));
        const size_t n = (size_t)c.W * c.H * 3 / 2;
        std::vector<unsigned char> out(n + kGuard, kPoison);
        SPImage camera = in;
        ASSERT_TRUE(rig.man.ProcFrame(camera.YPlane(), camera.UVPlane(), out.data(), c.W, c.H));
        ManagerRig::ExpectGuards(out, n);
        EXPECT_EQ(in.data, camera.data);
        EXPECT_EQ(c.rects, ToString(server.rects));
        for (const TileServer::Call& call : server.calls) {
            EXPECT_EQ(kW, call.dw);  // the buffer's stride and height
            EXPECT_EQ(kH, call.dh);
        }
        EXPECT_EQ(0, CompareToFormula(in, out.data(), out.data() + (size_t)c.W * c.H, c.source,
                                      c.op, 1.0, c.name));
    }
}

// Captures at the preview sizes cameras use: texture widths that are and
// are not whole groups of 32, capture widths two tiles and a remainder of 0,
// 16, 30 and 34 columns wide. Every output pixel comes from its own source
// pixel, none is left unwritten, and every tile's rectangle lies inside the
// image.
TEST(EffectCapture, EveryPreviewWidthCoversTheCapture) {
    const int kTileH = 16, kCaptureH = 24;
    for (int pw : {720, 736, 800, 960, 1280, 1440}) {
        for (int rem : {0, 16, 30, 34}) {
            for (unsigned effect : {kBypass, 9u}) {
                const int W = 2 * pw + rem;
                const std::string what = "preview " + std::to_string(pw) + ", capture " +
                                         std::to_string(W) + (effect == 9 ? ", bloom" : ", bypass");
                SCOPED_TRACE(what);
                const SPImage in = SPImage::Pattern(W, kCaptureH, pw + rem);
                ManagerRig rig(pw, kTileH);
                TileServer server(&in, [&rig] { rig.Clean(); });
                ASSERT_TRUE(rig.Init((unsigned)pw, kTileH, &server));
                ASSERT_TRUE(Choose(rig, effect, true));
                const size_t n = (size_t)W * kCaptureH * 3 / 2;
                std::vector<unsigned char> out(n + kGuard, kPoison);
                ASSERT_TRUE(rig.man.ProcFrame(nullptr, out.data(), W, kCaptureH));
                ManagerRig::ExpectGuards(out, n);
                EXPECT_EQ((rem == 0 ? 2u : 3u) * 2u, server.rects.size());
                EXPECT_EQ(0, CompareToFormula(in, out.data(), out.data() + (size_t)W * kCaptureH,
                                              Identity, effect == 9 ? Bloom : Unchanged, 2.0, what,
                                              false));
            }
        }
    }
}

// The nested, crop-aware walk (on Bypass's program): every output pixel shows
// the crop rectangle's source pixel at the crop's scale, sampled between its
// nearest pixels; where the crop reaches past the picture, the edge repeats.
// Textures of the picture's width and narrower than their 32-aligned rows;
// 2.5 x 2.5 tiles.
TEST(EffectCapture, CropAwareWalkShowsTheCropAtItsScale) {
    const int W = 160, H = 80;
    const struct {
        float x, y, w, h;
    } crops[] = {
        {0.0f, 0.0f, 1.0f, 1.0f},      {0.25f, 0.25f, 0.5f, 0.5f},   {0.1f, 0.3f, 0.37f, 0.41f},
        {0.5f, 0.5f, 0.5f, 0.5f},      {0.5f, 0.5f, 0.6f, 0.6f},     {0.7f, 0.05f, 0.6f, 0.5f},
        {0.05f, 0.8f, 0.5f, 0.4f},     {1.0f, 0.0f, 0.5f, 1.0f},     {0.0f, 1.0f, 1.0f, 0.3f},
        {0.303f, 0.013f, 1.0f, 0.99f}, {0.0f, 0.0f, 0.999f, 0.995f},
    };
    const SPImage in = SPImage::Pattern(W, H, 5);
    for (int texW : {64, 48}) {
        for (const auto& c : crops) {
            const std::string what = "texture " + std::to_string(texW) + ", crop " +
                                     std::to_string(c.x) + " " + std::to_string(c.y) + " " +
                                     std::to_string(c.w) + " " + std::to_string(c.h);
            SCOPED_TRACE(what);
            ManagerRig rig(texW, 32);
            TileServer server(&in, [&rig] { rig.Clean(); });
            ASSERT_TRUE(rig.Init((unsigned)texW, 32, &server));
            ASSERT_TRUE(rig.man.Inject(new CroppedBypass(), true, true));
            rig.man.SetCrop(c.x, c.y, c.w, c.h);
            const size_t n = (size_t)W * H * 3 / 2;
            std::vector<unsigned char> out(n + kGuard, kPoison);
            ASSERT_TRUE(rig.man.ProcFrame(nullptr, out.data(), W, H));
            ManagerRig::ExpectGuards(out, n);
            const double cx = c.x, cy = c.y, cw = c.w, ch = c.h;
            EXPECT_EQ(0, CompareToColours(
                             W, H, out.data(), out.data() + (size_t)W * H,
                             [&](int x, int y) {
                                 return SampleLinear(in, W * cx + (x + 0.5) * cw,
                                                     H * cy + (y + 0.5) * ch);
                             },
                             2.0, what, false));
        }
    }
}

// The contract every effect keeps: refusals with the effect's own lines and
// nothing written; parameters accepted and ignored once initialised.
TEST(EffectContract, RefusalsAndIgnoredParameters) {
    struct Kind {
        const char* tag;
        std::function<GEShader*()> make;
    };
    const Kind kinds[] = {
        {"GEShaderBypass", [] { return new GEShaderBypass(); }},
        {"GEShaderMirror", [] { return new GEShaderMirror(); }},
        {"GEShaderBloom", [] { return new GEShaderBloom(); }},
    };
    for (const Kind& k : kinds) {
        SCOPED_TRACE(k.tag);
        ManagerRig rig;
        TileServer server;
        ASSERT_TRUE(rig.Init(kW, kH, &server));
        std::vector<unsigned char> out(kW * kH * 3 / 2, kPoison);
        {
            GETestLog log;
            GEShader* e = k.make();
            rig.man.Inject(e, false, false);
            EXPECT_EQ(0, e->ProcFrame(0u, 0u, 0, 0));
            EXPECT_EQ(0, e->ProcFrame(nullptr, out.data(), kW, kH));
            EXPECT_EQ(0, e->SetParam(0, 1, 2, 3, 4));
            EXPECT_EQ(2, log.Count("[ProcFrame] effect not initialized"));
            EXPECT_TRUE(
                log.HasExact(ANDROID_LOG_ERROR, k.tag, "[ProcFrame] effect not initialized"));
            EXPECT_TRUE(
                log.HasExact(ANDROID_LOG_ERROR, k.tag, "[SetParam] effect not initialized"));
        }
        {
            ASSERT_TRUE(rig.man.Inject(k.make(), false, true));
            GETestLog log;
            EXPECT_EQ(0, rig.man.CurrShader()->ProcFrame(nullptr, out.data(), kW, kH));
            EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, k.tag, "[ProcFrame] Capture mode only"));
            const SPImage in = GreyRamp(kW, kH);
            const std::vector<unsigned char> before = rig.Preview(in);
            EXPECT_EQ(1, rig.man.SetParam(0, 1, 2, 3, 4));
            EXPECT_EQ(1, rig.man.SetParam(1, 500, 2, 3, 4));
            EXPECT_EQ(before, rig.Preview(in));
        }
        {
            ASSERT_TRUE(rig.man.Inject(k.make(), true, true));
            GETestLog log;
            EXPECT_EQ(0, rig.man.CurrShader()->ProcFrame(0u, 0u, 0, 0));
            EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, k.tag, "[ProcFrame] Preview mode only"));
            EXPECT_EQ(1, rig.man.CurrShader()->Deinit());
            EXPECT_EQ(1, rig.man.CurrShader()->Deinit());  // twice is harmless
        }
        EXPECT_TRUE(server.rects.empty());
        EXPECT_EQ(std::vector<unsigned char>(kW * kH * 3 / 2, kPoison), out);
    }
}

}  // namespace
