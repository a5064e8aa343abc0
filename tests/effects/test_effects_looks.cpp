// The look effects (Vintage, Contrast, Whiteboard, Stylize, Two-tone mask,
// Split toning) through the effect manager against their formulas, with
// look-up images the test writes: every channel, row and position of them
// different, so that a swapped channel, a wrong row or a shifted mask shows.
// The expected colours read the images as the GPU does (linear filtering,
// clamped at the edges).
#include <android/log.h>
#include <gtest/gtest.h>
#include <math.h>

#include <algorithm>
#include <string>

#include "GETestEffectSuite.h"
#include "GETestLog.h"
#include "effects/GELookUp.h"

using namespace getest;

namespace {

// ---------------------------------------------------------------------------
// The test's look-up images

// Channel c (0 .. 2: the texture's red, green, blue, which are the file's
// bytes in order) of texel (x, y), in bytes.
typedef int (*TexelFn)(int x, int y, int c);

struct LookUpImage {
    const char* name;
    int w, h, bits;  // 24: RGB, 8: luminance
    TexelFn texel;
};

int Clamp255(int v) {
    return v < 0 ? 0 : (v > 255 ? 255 : v);
}

// Curves: row 0 holds three differently shaped curves, shifted per look by
// `k`; row 1 is black, so that reading another row shows.
template <int k>
int CurveTexel(int x, int y, int c) {
    if (y != 0) {
        return 0;
    }
    const int v[3] = {255 - 3 * x / 4, 16 + 7 * x / 8, x * x / 255};
    return Clamp255(v[c] + k * 9 * (c == 1 ? -1 : 1));
}
int WideMask(int x, int y, int) {
    return 60 + 20 * x + 10 * y;
}
int LegacyMask(int x, int y, int) {
    return 250 - 25 * x - 5 * y;
}
// Whiteboard reads the middle row's blue channel only.
int BoardCurve(int x, int y, int c) {
    if (y != 1) {
        return 0;
    }
    return c == 2 ? Clamp255((int)(255.0 * pow(x / 63.0, 1.5))) : (c == 0 ? 200 - 2 * x : 3 * x);
}
// Ramps: every row and channel its own rising curve.
int ContrastRamp(int x, int y, int c) {
    return c == 2 ? Clamp255(x * 4 * (8 + y) / 14) : (c == 1 ? Clamp255(x * 4 - 3 * y + 20) : 90);
}
int ColourRamp(int x, int y, int c) {
    return c == 0 ? Clamp255(x * 4 * (y + 5) / 24) : (c == 1 ? 255 - 3 * x : 100 + 2 * x - y);
}
int MaskV(int x, int y, int c) {
    return c == 0 ? 255 - 20 * x : (c == 1 ? 100 + 15 * y : 200 + (x * y) % 50);
}
int MaskH(int x, int y, int c) {
    return c == 0 ? 120 + 16 * y : (c == 1 ? 250 - 9 * x - 4 * y : 255);
}

const LookUpImage kCross = {"CurveCross.bmp", 256, 2, 24, CurveTexel<0>};
const LookUpImage kCold = {"CurveCold.bmp", 256, 2, 24, CurveTexel<1>};
const LookUpImage kWarm = {"CurveWarm.bmp", 256, 2, 24, CurveTexel<2>};
const LookUpImage kSepia = {"CurveSepia.bmp", 256, 2, 24, CurveTexel<3>};
const LookUpImage kWide = {"mask_vignette_wide.bmp", 8, 4, 8, WideMask};
const LookUpImage kLegacy = {"mask_vignette_legacy.bmp", 8, 8, 8, LegacyMask};
const LookUpImage kBoard = {"ContrastCurveSet.bmp", 64, 3, 24, BoardCurve};
const LookUpImage kContrastRamp = {"stylizeContrastRamp.bmp", 64, 20, 24, ContrastRamp};
const LookUpImage kColourRamp = {"stylizeColorRamp.bmp", 64, 20, 24, ColourRamp};
const LookUpImage kMaskV = {"twoToneMaskV.bmp", 8, 8, 24, MaskV};
const LookUpImage kMaskH = {"twoToneMaskH.bmp", 8, 8, 24, MaskH};
// In the override folder: a cross curve that Vintage takes in place of the
// system's, and a colour ramp that Stylize, reading the system folder only,
// must not take.
const LookUpImage kCrossOverride = {"CurveCross.bmp", 256, 2, 24, CurveTexel<5>};
const LookUpImage kColourRampOverride = {"stylizeColorRamp.bmp", 64, 20, 24, MaskV};

void Put(const GETestRoot& root, const LookUpImage& img,
         GETestRoot::Folder f = GETestRoot::kSystem) {
    root.PutBmp(
        img.name, img.w, img.h, (unsigned)img.bits,
        [&img](int x, int y, unsigned char* t) {
            for (int c = 0; c < img.bits / 8; ++c) {
                t[c] = (unsigned char)img.texel(x, y, c);
            }
        },
        f);
}
// Channel c of `img` (0 to 1) where a linearly filtered, edge-clamped
// texture of it is read at (s, t).
double Tex(const LookUpImage& img, int c, double s, double t) {
    const double fu = s * img.w - 0.5, fv = t * img.h - 0.5;
    const int x0 = (int)floor(fu), y0 = (int)floor(fv);
    const double ax = fu - x0, ay = fv - y0;
    double v = 0;
    for (int k = 0; k < 4; ++k) {
        const int x = std::min(std::max(x0 + k % 2, 0), img.w - 1);
        const int y = std::min(std::max(y0 + k / 2, 0), img.h - 1);
        v += (k % 2 ? ax : 1 - ax) * (k / 2 ? ay : 1 - ay) * img.texel(x, y, c);
    }
    return v / 255.0;
}

// The output pixel's place in the whole picture, where masks are laid.
double GlobalS(const At& a) {
    return (a.x + 0.5) / a.in.w;
}
double GlobalT(const At& a) {
    return (a.y + 0.5) / a.in.h;
}
RGB Scale(const RGB& c, double k) {
    return {c.r * k, c.g * k, c.b * k};
}

// The texture an output pixel was drawn from, as the effect reads it: the
// picture's part of the frame's buffer in preview, a capture tile's region
// (the converter's padding repeats its edge). A preview narrower than its
// buffer reads through the crop Init sets (the picture's share of the rows)
// and, in the effects that also compensate the width, through that share
// twice.
struct Frame {
    int x0, y0, x1, y1;  // the pixels it holds, last ones included
    int renderW, renderH;
    double share;  // picture width / buffer width
};
Frame FrameOf(const At& a) {
    if (a.in.w <= a.texW && a.in.h <= a.texH) {
        return {0, 0, a.in.w - 1, a.in.h - 1, a.in.w, a.in.h, (double)a.in.w / a.texW};
    }
    const int tx = a.x / a.texW * a.texW, ty = a.y / a.texH * a.texH;
    const int tw = std::min(a.texW, (a.in.w - tx + 31) / 32 * 32);
    return {tx,
            ty,
            std::min(tx + a.texW, a.in.w) - 1,
            std::min(ty + a.texH, a.in.h) - 1,
            tw,
            std::min(a.texH, a.in.h - ty),
            1.0};
}

// The raw texel (Y, V, U in 0 .. 1) read linearly at pixel coordinates
// (px, py) of the picture (pixel k's centre at k + 1/2), clamped to the
// frame.
struct Raw {
    double y, v, u;
};
Raw RawAt(const Frame& f, const SPImage& in, double px, double py) {
    const double fu = px - 0.5, fv = py - 0.5;
    const int x0 = (int)floor(fu), y0 = (int)floor(fv);
    const double ax = fu - x0, ay = fv - y0;
    Raw r = {0, 0, 0};
    for (int k = 0; k < 4; ++k) {
        const int x = std::min(std::max(x0 + k % 2, f.x0), f.x1);
        const int y = std::min(std::max(y0 + k / 2, f.y0), f.y1);
        const double w = (k % 2 ? ax : 1 - ax) * (k / 2 ? ay : 1 - ay);
        r = {r.y + w * in.Y(x, y) / 255.0, r.v + w * in.V(x, y) / 255.0,
             r.u + w * in.U(x, y) / 255.0};
    }
    return r;
}
// The pixel's own texel (the quad through the picture's part of the rows).
Raw RawOf(const At& a) {
    return RawAt(FrameOf(a), a.in, a.x + 0.5, a.y + 0.5);
}
// The texel of the effects that read through the crop and compensate the
// width as well.
Raw RawTwiceScaled(const At& a) {
    const Frame f = FrameOf(a);
    return RawAt(f, a.in, (a.x + 0.5) * f.share, a.y + 0.5);
}
RGB RgbOf(const Raw& r) {
    return YuvToRgb(r.y * 255.0, r.v * 255.0, r.u * 255.0);
}
// Where a preview's partial texture coordinates place a whole-picture mask:
// the picture's share of the rows squeezes it.
double PartialS(const At& a) {
    return GlobalS(a) * FrameOf(a).share;
}

// ---------------------------------------------------------------------------
// Formulas

// Vintage: red through the curve's blue channel, green through green, blue
// through red, times the mask.
RGB VintageLook(const At& a, const LookUpImage& curve, const LookUpImage* mask) {
    const RGB p = RgbOf(RawTwiceScaled(a));
    const RGB q = {Tex(curve, 2, p.r, 0), Tex(curve, 1, p.g, 0), Tex(curve, 0, p.b, 0)};
    return mask ? Scale(q, Tex(*mask, 0, GlobalS(a), GlobalT(a))) : q;
}
RGB VintageCrossLegacy(const At& a) {
    return VintageLook(a, kCross, &kLegacy);
}
RGB VintageOverride(const At& a) {
    return VintageLook(a, kCrossOverride, &kLegacy);
}
RGB VintageCold(const At& a) {
    return VintageLook(a, kCold, &kLegacy);
}
RGB VintageWarm(const At& a) {
    return VintageLook(a, kWarm, &kLegacy);
}
RGB VintageSepia(const At& a) {
    return VintageLook(a, kSepia, nullptr);
}

// Contrast: 0.299 of the curve's red channel at the red input, 0.587 of
// green at green, 0.114 of blue at blue, as grey, times the mask.
RGB ContrastOf(const At& a) {
    const RGB p = RgbOf(RawOf(a));
    const double g = 0.299 * Tex(kCross, 0, p.r, 0) + 0.587 * Tex(kCross, 1, p.g, 0) +
                     0.114 * Tex(kCross, 2, p.b, 0);
    return Scale({g, g, g}, Tex(kLegacy, 0, PartialS(a), GlobalT(a)));
}

// Whiteboard: the luma sharpened against the four diagonal neighbours one
// render-pixel size away (a tile half the texture's width reads two texels
// away), the program's own RGB, each channel through the curve at its 0.7
// power, lifted towards white and capped, 60% of the lifted colour.
RGB WhiteboardOf(const At& a) {
    const Frame f = FrameOf(a);
    const double cx = (a.x + 0.5) * f.share, cy = a.y + 0.5;
    const double dx = (double)a.texW / f.renderW, dy = (double)a.texH / f.renderH;
    const Raw c = RawAt(f, a.in, cx, cy);
    double around = 0;
    for (int k = 0; k < 4; ++k) {
        around += RawAt(f, a.in, cx + (k < 2 ? dx : -dx), cy + (k % 3 == 0 ? dy : -dy)).y;
    }
    const double y = 1.3 * c.y - 0.075 * around, cr = c.v - 0.5, cb = c.u - 0.5;
    double rgb[3] = {y + 1.402 * cr, y - 0.344 * cb - 0.714 * cr, y + 1.772 * cb};
    for (double& ch : rgb) {
        ch = Tex(kBoard, 2, pow(std::max(ch, 0.0), 0.7), 0.5);
    }
    const double white = 0.299 * rgb[0] + 0.587 * rgb[1] + 0.114 * rgb[2];
    const double lift = 1.0 + 0.3 * std::max(white - 0.2, 0.0);
    const double cap[3] = {0.96, 0.965, 0.95};
    double out[3];
    for (int i = 0; i < 3; ++i) {
        out[i] = rgb[i] + 0.6 * (std::min(rgb[i] * lift, cap[i]) - rgb[i]);
    }
    return {out[0], out[1], out[2]};
}

// The stylize family's luma: squeezed from clip.x .. clip.y onto
// clip.z .. clip.w, then through the contrast ramp's blue channel at row
// k0 and its green channel at row k1.
double Styled(double luma, const double clip[4], double k0, double k1) {
    double v = std::min(std::max(luma - clip[0], 0.0), clip[1] - clip[0]) * (clip[3] - clip[2]) /
                   (clip[1] - clip[0]) +
               clip[2];
    v = Tex(kContrastRamp, 2, v, k0);
    return Tex(kContrastRamp, 1, v, k1);
}
const double kNoClip[4] = {0.0, 1.0, 0.0, 1.0};

RGB StylizeOf(const At& a, const double clip[4], double k0, double k1, double row) {
    const Raw r = RawOf(a);
    const RGB p = YuvToRgb(Styled(r.y, clip, k0, k1) * 255.0, r.v * 255.0, r.u * 255.0);
    return {Tex(kColourRamp, 2, p.r, row), Tex(kColourRamp, 1, p.g, row),
            Tex(kColourRamp, 0, p.b, row)};
}
RGB NashOf(const At& a) {
    const double clip[4] = {0.0, 1.0, 0.117, 1.0};
    return StylizeOf(a, clip, 0.6, 0.6, 0.9);
}
RGB MapleOf(const At& a) {
    const double clip[4] = {0.0, 0.859, 0.0976, 1.0};
    return StylizeOf(a, clip, 0.6, 0.5, 0.5);
}

// Two-tone: the styled picture times the mask scaled by 1 + k.w and capped
// at 1; H lays the mask transposed.
RGB TwoToneOf(const At& a, const LookUpImage& mask, bool swap, double k0, double k1, double kw) {
    const Raw r = RawOf(a);
    const RGB p = YuvToRgb(Styled(r.y, kNoClip, k0, k1) * 255.0, r.v * 255.0, r.u * 255.0);
    const double s = swap ? GlobalT(a) : PartialS(a), t = swap ? PartialS(a) : GlobalT(a);
    auto gain = [&](int c) { return std::min(Tex(mask, c, s, t) * (1.0 + kw), 1.0); };
    return {p.r * gain(0), p.g * gain(1), p.b * gain(2)};
}
RGB TwoToneVOf(const At& a) {
    return TwoToneOf(a, kMaskV, false, 0.7, 0.6, -0.15);
}
RGB TwoToneHOf(const At& a) {
    return TwoToneOf(a, kMaskH, true, 1.0, 0.8, -0.3);
}

// Split toning Mono: the chroma slides from the shadow tone (z, w) to the
// highlight tone (x, y) with f = luma^0.6; times the mask.
RGB SplitMonoOf(const At& a, const double tones[4], const LookUpImage& mask) {
    const Raw r = RawTwiceScaled(a);
    const double y = Styled(r.y, kNoClip, 0.8, 0.7);
    const double f = pow(y, 0.6);
    const double u = tones[2] + f * (tones[0] - tones[2]), v = tones[3] + f * (tones[1] - tones[3]);
    return Scale(YuvToRgb(y * 255.0, v * 255.0, u * 255.0), Tex(mask, 0, GlobalS(a), GlobalT(a)));
}
const double kTone0[4] = {0.455, 0.556, 0.705, 0.365};
const double kTone1[4] = {0.409, 0.63, 0.645, 0.257};
const double kTone4[4] = {0.475, 0.525, 0.352, 0.75};
// Value 12: halfway (12 / 24) from tone pair 0 to pair 1.
const double kTone12[4] = {0.432, 0.593, 0.675, 0.311};
RGB Mono0(const At& a) {
    return SplitMonoOf(a, kTone0, kLegacy);
}
RGB Mono12(const At& a) {
    return SplitMonoOf(a, kTone12, kLegacy);
}
RGB Mono24(const At& a) {
    return SplitMonoOf(a, kTone1, kLegacy);
}
RGB Mono99(const At& a) {
    return SplitMonoOf(a, kTone4, kLegacy);
}

// Split toning Color: the chroma pushed by 0.4 (luma - 1/2) along V and
// against U, then halved; always the wide mask.
RGB SplitColorOf(const At& a) {
    const Raw r = RawOf(a);
    const double y = Styled(r.y, kNoClip, 0.6, 0.8), d = y - 0.5;
    const double v = 0.5 * ((r.v - 0.5) + 0.4 * d) + 0.5, u = 0.5 * ((r.u - 0.5) - 0.4 * d) + 0.5;
    return Scale(YuvToRgb(y * 255.0, v * 255.0, u * 255.0), Tex(kWide, 0, PartialS(a), GlobalT(a)));
}

// ---------------------------------------------------------------------------

// Rows run as a 64 x 32 preview and a 160 x 80 capture of 2.5 x 2.5 tiles;
// 2 : 1 pictures take the legacy mask. Parameters that the effects keep
// without using (strengths) come with the rows and change no pixel.
const EffectRow kLookRows[] = {
    {{"vintage cross", 1, {0, 0, 0, 0}, {}, LookLookUps}, PatternImage, VintageCrossLegacy, 2.5},
    {{"vintage cold", 1, {1, 0, 0, 0}, {}, LookLookUps}, PatternImage, VintageCold, 2.5},
    {{"vintage warm", 1, {2, 0, 0, 0}, {}, LookLookUps}, PatternImage, VintageWarm, 2.5},
    {{"vintage sepia, no vignette", 1, {3, 0, 0, 0}, {}, LookLookUps},
     PatternImage,
     VintageSepia,
     2.5},
    // A wrong look value keeps the look before it.
    {{"vintage 4 keeps cross", 1, {4, 0, 0, 0}, {}, LookLookUps},
     PatternImage,
     VintageCrossLegacy,
     2.5},
    {{"contrast", 6, {0, 0, 0, 0}, {}, LookLookUps}, PatternImage, ContrastOf, 2.5},
    {{"whiteboard", 10, {50, 0, 0, 0}, {}, LookLookUps}, PatternImage, WhiteboardOf, 3.0},
    {{"stylize nash", 12, {0, 0, 0, 0}, {}, LookLookUps}, PatternImage, NashOf, 3.0},
    {{"stylize maple", 11, {100, 0, 0, 0}, {}, LookLookUps}, PatternImage, MapleOf, 3.0},
    {{"two-tone V", 13, {30, 0, 0, 0}, {}, LookLookUps}, PatternImage, TwoToneVOf, 3.0},
    {{"two-tone H", 14, {70, 0, 0, 0}, {}, LookLookUps}, PatternImage, TwoToneHOf, 3.0},
    {{"split mono 0", 15, {0, 0, 0, 0}, {}, LookLookUps}, PatternImage, Mono0, 3.0},
    {{"split mono 12", 15, {12, 0, 0, 0}, {}, LookLookUps}, PatternImage, Mono12, 3.0},
    // 24 and 25 are tone pair 1; 100 is 99, pair 4.
    {{"split mono 24", 15, {24, 0, 0, 0}, {}, LookLookUps}, PatternImage, Mono24, 3.0},
    {{"split mono 25", 15, {25, 0, 0, 0}, {}, LookLookUps}, PatternImage, Mono24, 3.0},
    {{"split mono 100", 15, {100, 0, 0, 0}, {}, LookLookUps}, PatternImage, Mono99, 3.0},
    {{"split color", 16, {40, 0, 0, 0}, {}, LookLookUps}, PatternImage, SplitColorOf, 3.0},
};

void OverrideLookUps(const GETestRoot& root) {
    LookLookUps(root);
    Put(root, kCrossOverride, GETestRoot::kOverride);
    Put(root, kColourRampOverride, GETestRoot::kOverride);
}

const EffectRow kOverrideRows[] = {
    {{"vintage, override curve", 1, {0, 0, 0, 0}, {}, OverrideLookUps},
     PatternImage,
     VintageOverride,
     2.5},
    {{"stylize nash, override ignored", 12, {0, 0, 0, 0}, {}, OverrideLookUps},
     PatternImage,
     NashOf,
     3.0},
};

TEST(EffectLooks, FramesAndCapturesFollowTheFormulas) {
    for (const EffectRow& r : kOverrideRows) {
        RunEffectRow(r);
    }
    for (const EffectRow& r : kLookRows) {
        RunEffectRow(r);
    }
}

// The vignette mask follows the picture's ratio: within 0.0001 of 16:9 or
// 5:3 for Vintage, within 0.1 for Split toning Mono, the legacy mask
// otherwise.
TEST(EffectLooks, MasksChosenByThePicturesRatio) {
    const struct {
        unsigned effect;
        int w, h;
        const LookUpImage* mask;
    } cases[] = {
        {1, 64, 36, &kWide},    {1, 160, 96, &kWide},  {1, 64, 48, &kLegacy},
        {1, 136, 80, &kLegacy}, {15, 136, 80, &kWide}, {15, 64, 48, &kLegacy},
    };
    GETestRoot root;
    LookLookUps(root);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.effect << ": " << c.w << " x " << c.h);
        const SPImage in = SPImage::Pattern(c.w, c.h, 3);
        ManagerRig rig(c.w, c.h);
        ASSERT_TRUE(rig.Init((unsigned)c.w, (unsigned)c.h));
        ASSERT_TRUE(ChooseEffect(rig, {"", c.effect, {0, 0, 0, 0}, {}, nullptr}, false));
        const std::vector<unsigned char> out = rig.Preview(in);
        const int aligned = (c.w + 31) / 32 * 32;
        EXPECT_EQ(0, CompareToColours(
                         c.w, c.h, out.data(), out.data() + (size_t)c.w * c.h,
                         [&](int x, int y) {
                             const At a = {in, x, y, aligned, c.h};
                             return c.effect == 1 ? VintageLook(a, kCross, c.mask)
                                                  : SplitMonoOf(a, kTone0, *c.mask);
                         },
                         2.5, "mask"));
    }
}

}  // namespace

// The look effects' images, for the rows of every family's tables.
void getest::LookLookUps(const GETestRoot& root) {
    for (const LookUpImage* img : {&kCross, &kCold, &kWarm, &kSepia, &kWide, &kLegacy, &kBoard,
                                   &kContrastRamp, &kColourRamp, &kMaskV, &kMaskH}) {
        Put(root, *img);
    }
}
