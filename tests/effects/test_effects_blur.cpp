// The blur family: Depth of field (2), Tilt-shift (7), Sketch (17) and Color
// Sketch (18). The Gaussian tables against their rule, the blur pass's
// impulse response on the GPU, and the effects' pixels: in preview against a
// CPU model of the three passes (linear sampling, the taps as the blur pass
// pairs them, the reduced size, 8-bit textures between passes), in preview
// and capture on pictures whose blur is known without the model (a
// checkerboard framed in its mean blurs to that mean, a flat picture to
// itself).
#include <gtest/gtest.h>
#include <math.h>

#include <algorithm>
#include <array>
#include <tuple>
#include <vector>

#include "GETestEffectSuite.h"
#include "GETestGL.h"
#include "effects/GEShaderDoF.h"
#include "effects/GEShaderTS.h"
#include "gl/GLQuad.h"
#include "gl/GLTexture.h"

using namespace getest;

namespace {

// The weight index i (-7 .. 7) that the blur applies at each sampling offset
// -7 .. +7, in steps: offset -5 takes i = -7, ..., +2 the peak i = 0, -6 and
// -7 take +4 and +5.
const int kWeightAt[15] = {5, 4, -7, -6, -5, -4, -3, -2, -1, 0, 1, 2, 3, 6, 7};

double Weight(int level, int offset) {
    return g_afGaussian[level - 1][kWeightAt[offset + 7] + 7];
}

TEST(BlurTables, FollowTheRuleRoundedToSixDecimals) {
    for (int level = 1; level <= 14; ++level) {
        const double s = 0.2 * (level + 1);
        double sum = 0;
        for (int i = -7; i <= 7; ++i) {
            sum += exp(-i * i / (2 * s * s));
        }
        for (int i = -7; i <= 7; ++i) {
            const double want = round(exp(-i * i / (2 * s * s)) / sum * 1e6) / 1e6;
            EXPECT_NEAR(want, g_afGaussian[level - 1][i + 7], 5e-8) << level << " " << i;
        }
    }
    // Level, then the entries 7, 6 and 8, 0 and 14.
    const float kTelling[5][4] = {{1, 0.919218f, 0.040388f, 0},
                                  {2, 0.663815f, 0.165524f, 0},
                                  {4, 0.398942f, 0.241971f, 0},
                                  {9, 0.199501f, 0.176059f, 0.000436f},
                                  {14, 0.134598f, 0.127325f, 0.008847f}};
    for (const auto& t : kTelling) {
        const float* g = g_afGaussian[(int)t[0] - 1];
        EXPECT_TRUE(g[7] == t[1] && g[6] == t[2] && g[8] == t[2] && g[0] == t[3] && g[14] == t[3])
            << t[0];
    }
}

// Depth of field's shift arrays, as its SetupPixelStep fills them.
class ShiftsOf : public GEShaderDoF {
public:
    using GEShaderBlur::m_afShiftH;
    using GEShaderBlur::m_afShiftV;
};

class BlurPass : public GLTest {};

// One bright texel in a flat texture, blurred with steps of one texel:
// output texel X - o shows the bright one with the weight of offset o.
TEST_F(BlurPass, ImpulseShowsTheLopsidedTaps) {
    const int kW = 32, kH = 24, kX = 15, kY = 11;
    const unsigned char flat[4] = {10, 20, 30, 40}, bright[4] = {250, 200, 150, 100};
    std::vector<unsigned char> px((size_t)kW * kH * 4);
    for (size_t p = 0; p < px.size(); ++p) {
        const unsigned char* c = p / 4 == (size_t)kY * kW + kX ? bright : flat;
        px[p] = c[p % 4];  // (a subscripted conditional goes astray under the sanitizers)
    }
    GLTexture tex;
    ASSERT_TRUE(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, kW, kH, 0));
    ASSERT_TRUE(tex.UpdateNormalTexture(px.data(), kW, kH));
    tex.Bind();
    for (GLenum p : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER}) {
        tex.SetParameteri(p, GL_NEAREST);
    }
    for (GLenum p : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T}) {
        tex.SetParameteri(p, GL_CLAMP_TO_EDGE);
    }
    GLProgPassBlur prog;
    ASSERT_TRUE(prog.Load());
    prog.SetTextures(0, &tex);
    ShiftsOf shifts;
    shifts.SetupPixelStep(1.0f / kW, 1.0f / kH);
    GETestTarget target(kW, kH);
    for (int level : {4, 14}) {
        for (bool vertical : {false, true}) {
            SCOPED_TRACE(std::to_string(level) + (vertical ? " vertical" : " horizontal"));
            target.Bind();
            prog.Use();
            prog.SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
            prog.SetTextureCoord(g_nQuadTexCoordSize, g_fQuadTexCoord);
            prog.Uniform1fv(GLProgBlur::UNIFORM_GAUSSIAN_KERNEL, 15, g_afGaussian[level - 1]);
            prog.Uniform2fv(GLProgBlur::UNIFORM_PIXEL_SHIFT, 14,
                            vertical ? shifts.m_afShiftV : shifts.m_afShiftH);
            prog.Draw();
            const std::vector<unsigned char> out = target.Read();
            int bad = 0;
            for (size_t p = 0; p < out.size(); ++p) {
                const int x = (int)(p / 4 % kW), y = (int)(p / 4 / kW), c = (int)(p % 4);
                const int o = vertical ? kY - y : kX - x;
                const bool hit = (vertical ? x == kX : y == kY) && abs(o) <= 7;
                const double want = flat[c] + (hit ? Weight(level, o) : 0) * (bright[c] - flat[c]);
                if (fabs(out[p] - want) > 1.0 && ++bad <= 5) {
                    ADD_FAILURE() << "(" << x << ", " << y << ") channel " << c << " is "
                                  << (int)out[p] << ", want " << want;
                }
            }
        }
    }
}

// ---------------------------------------------------------------------------
// The CPU model of the blur passes of a preview frame.

typedef std::array<double, 3> YVU;  // raw texture channels, in bytes

// A w x h texture, sampled linearly at texel coordinates (the centre of
// texel (x, y) at (x + 1/2, y + 1/2)) and clamped at its edges.
struct Plane {
    int w, h;
    std::vector<YVU> t;
    YVU Sample(double u, double v) const {
        const double fu = u - 0.5, fv = v - 0.5;
        const int x0 = (int)floor(fu), y0 = (int)floor(fv);
        YVU c = {0, 0, 0};
        for (int k = 0; k < 4; ++k) {
            const int x = std::clamp(x0 + k % 2, 0, w - 1), y = std::clamp(y0 + k / 2, 0, h - 1);
            const double wt = (k % 2 ? fu - x0 : 1 - fu + x0) * (k / 2 ? fv - y0 : 1 - fv + y0);
            for (int ch = 0; ch < 3; ++ch) {
                c[ch] += wt * t[(size_t)y * w + x][ch];
            }
        }
        return c;
    }
};

// One pass into a w x h texture of bytes: texel (i, j) sums `src` at
// ((i + 1/2) spanW / w, (j + 1/2) spanH / h) plus each offset times (dx, dy)
// source texels.
Plane Pass(const Plane& src, int w, int h, double spanW, double spanH, double dx, double dy,
           int level) {
    Plane out{w, h, std::vector<YVU>((size_t)w * h)};
    for (int j = 0; j < h; ++j) {
        for (int i = 0; i < w; ++i) {
            YVU sum = {0, 0, 0};
            for (int o = -7; o <= 7; ++o) {
                const YVU s =
                    src.Sample((i + 0.5) * spanW / w + o * dx, (j + 0.5) * spanH / h + o * dy);
                for (int ch = 0; ch < 3; ++ch) {
                    sum[ch] += Weight(level, o) * s[ch];
                }
            }
            for (int ch = 0; ch < 3; ++ch) {
                out.t[(size_t)j * w + i][ch] = round(std::clamp(sum[ch], 0.0, 255.0));
            }
        }
    }
    return out;
}

// The blurred picture at the output pixel, for a preview frame or a capture
// of one tile: the texture's picture part (the frame; the tile texture, the
// picture at its origin) in blur textures of (320 / rw) x (rh' / rh) of its
// size, the picture's edges repeated beyond it; the blur steps are
// `step` pixels of the preview, scaled to the picture in a capture (pixels
// of the frame's width across, for Tilt-shift). The last blur is kept.
YVU Blurred(const At& a, int level, double step, bool ofWidth, int rw, int rh, int rhOut) {
    const int fw = a.capture ? a.texW : a.in.w, fh = a.capture ? a.texH : a.in.h;
    const int bw = 320 * fw / rw, bh = rhOut * fh / rh;
    const double sx = step * (double)a.in.w / fw * (ofWidth ? (double)a.texW / fw : 1.0);
    const double sy = step * (double)a.in.h / fh;
    static std::tuple<std::vector<unsigned char>, int, int, int, double, double, int, int> key;
    static Plane v;
    if (std::tie(a.in.data, a.in.w, fw, level, sx, sy, bw, bh) != key) {
        Plane src{a.in.w, a.in.h, std::vector<YVU>((size_t)a.in.w * a.in.h)};
        for (int y = 0; y < a.in.h; ++y) {
            for (int x = 0; x < a.in.w; ++x) {
                src.t[(size_t)y * a.in.w + x] = {(double)a.in.Y(x, y), (double)a.in.V(x, y),
                                                 (double)a.in.U(x, y)};
            }
        }
        const Plane h = Pass(src, bw, bh, fw, fh, sx, 0, level);
        v = Pass(h, bw, bh, bw, bh, 0, sy * bh / fh, level);
        key = std::tie(a.in.data, a.in.w, fw, level, sx, sy, bw, bh);
    }
    return v.Sample((a.x + 0.5) * bw / fw, (a.y + 0.5) * bh / fh);
}

// The blur level of group 0's first word: value / 7, its own table for 2
// to 14, the sigma 0.4 one (level 1) otherwise.
int Level(const At& a) {
    const int level = a.setup->group0[0] / 7;
    return level >= 2 && level <= 14 ? level : 1;
}
YVU DoFBlur(const At& a) {
    return Blurred(a, Level(a), 1.5, false, 960, 544, 192);
}
YVU TSBlur(const At& a) {
    return Blurred(a, Level(a), 1.0, true, 800, 480, 192);
}
YVU SketchBlur(const At& a) {
    return Blurred(a, 14, 2.0, false, 960, 544, 180);
}
// A capture's blur of Checker, to within 3 (the blur's lopsided taps keep
// a trace of the blocks): its mean luma, its flat chroma.
YVU MeanBlur(const At& a) {
    return {120.0, (double)a.in.V(a.x, a.y), (double)a.in.U(a.x, a.y)};
}

// ---------------------------------------------------------------------------
// Depth of field and Tilt-shift: the sharp picture mixed with its blur.

double Smoothstep(double e0, double e1, double x) {
    const double t = std::clamp((x - e0) / (e1 - e0), 0.0, 1.0);
    return t * t * (3 - 2 * t);
}

// Group 1 in fractions of the picture Init was given (the frame in preview,
// the tile texture in capture): (a, b) with a mapped from the 1920-wide
// display to the viewport, and the distance to (c, d), at least 0.1.
struct Points {
    double ax, by, dx, r;
};
Points PointsOf(const At& a) {
    const int* g = a.setup->group1;
    const unsigned iw = a.capture ? a.texW : a.in.w, ih = a.capture ? a.texH : a.in.h;
    const double am = iw * (unsigned)g[0] / 1920u;
    const double dx = fabs(g[2] - am) / iw, dy = fabs(g[3] - g[1]) / (double)ih;
    return {am / iw, (double)g[1] / ih, dx, std::max(0.1, hypot(dx, dy))};
}

// The mix weight of group 0's value: value / 75, 1 above 74.
double MixWeight(const At& a) {
    const int v = a.setup->group0[0];
    return v > 74 ? 1.0 : v / 75.0;
}

RGB Mixed(const At& a, double s, YVU (*blur)(const At&)) {
    YVU m = {(double)a.in.Y(a.x, a.y), (double)a.in.V(a.x, a.y), (double)a.in.U(a.x, a.y)};
    if (s != 0) {
        const YVU b = blur(a);
        for (int ch = 0; ch < 3; ++ch) {
            m[ch] += (b[ch] - m[ch]) * s;
        }
    }
    return YuvToRgb(m[0], m[1], m[2]);
}

// Distance from the circle's centre in the whole picture, its height
// divided by the width / height ratio; the ring r -/+ 0.075.
double DoFMix(const At& a) {
    const Points p = PointsOf(a);
    const double x = (a.x + 0.5) / a.in.w - p.ax;
    const double y = ((a.y + 0.5) / a.in.h - p.by) * a.in.h / a.in.w;
    return Smoothstep(p.r - 0.075, p.r + 0.075, hypot(x, y)) * MixWeight(a);
}
RGB DoFOf(const At& a) {
    return Mixed(a, DoFMix(a), DoFBlur);
}
RGB DoFCheckerOf(const At& a) {
    return Mixed(a, DoFMix(a), a.capture ? MeanBlur : DoFBlur);
}

// Distance from the line of slope m through the finger point, in the
// frame's texture coordinates (the capture's Large program: the vertical
// distance in the whole picture), against the squared edges of e -/+ 0.075,
// e = r - (1 - w / h) dx.
double TSMix(const At& a, double m) {
    const Points p = PointsOf(a);
    const double ratio = a.capture ? (double)a.texW / a.texH : (double)a.in.w / a.in.h;
    const double e = p.r - (1 - ratio) * p.dx;
    const double u = (a.x + 0.5) / a.texW, v = (a.y + 0.5) / a.in.h;
    const double dist = fabs(m * u + v - (m * p.ax + p.by)) / sqrt(m * m + 1);
    return Smoothstep((e - 0.075) * (e - 0.075), (e + 0.075) * (e + 0.075), dist) * MixWeight(a);
}
RGB TSOf(const At& a) {
    return Mixed(a, TSMix(a, 0), TSBlur);
}
RGB TSCheckerOf(const At& a) {
    return Mixed(a, TSMix(a, 0), a.capture ? MeanBlur : TSBlur);
}
RGB TSVerticalOf(const At& a) {  // the band angle 90, nudged to 89.99
    return Mixed(a, TSMix(a, tan(89.99 * acos(-1.0) / 180)), TSBlur);
}

// 2 x 2 blocks of luma 100 and 140 framed by their mean 120, flat chroma.
SPImage Checker(int w, int h) {
    return SPImage::Grey(
        w, h,
        [=](int x, int y) {
            return x == 0 || y == 0 || x == w - 1 || y == h - 1 ? 120
                   : (x / 2 + y / 2) % 2                        ? 140
                                                                : 100;
        },
        [](int, int) { return std::make_pair(150, 110); });
}

// ---------------------------------------------------------------------------
// Sketch and Color Sketch.

// The blurred luma snapped to eighths, mapped into 0.2 .. 1.
double Tone(double y) {
    return floor(y / 255 * 8 + 0.5) / 8 * 0.8 + 0.2;
}
// Luma 223 with single darker pixels every 8 along both axes, 5 darker (no
// stroke: their blur is less than 0.0219 brighter) and 6 darker (a stroke)
// in turn; flat chroma.
SPImage Dots(int w, int h) {
    return SPImage::Grey(
        w, h,
        [](int x, int y) {
            return x % 8 == 3 && y % 8 == 3 ? (x / 8 + y / 8) % 2 ? 217 : 218 : 223;
        },
        [](int, int) { return std::make_pair(140, 118); });
}
SPImage Black(int w, int h) {
    return SPImage::Grey(w, h, [](int, int) { return 0; });
}
// Luma 100 (tone 0.5) under the pattern's chroma.
SPImage PatternChroma(int w, int h) {
    const SPImage p = SPImage::Pattern(w, h);
    return SPImage::Grey(
        w, h, [](int, int) { return 100; },
        [&p](int bx, int by) { return std::make_pair(p.V(2 * bx, 2 * by), p.U(2 * bx, 2 * by)); });
}

// The blur of these pictures keeps their luma (Dots: within 0.5) and their
// pixel (0, 0)'s: a stroke at the dots 6 darker, elsewhere that luma's tone.
bool Stroke(const At& a) {
    return a.in.Y(a.x, a.y) == 217;
}
RGB SketchOf(const At& a) {
    const double t = Stroke(a) ? 0.0 : Tone(a.in.Y(0, 0));
    return {t, t, t};
}
// The tone under the blurred chroma, or black.
RGB ColorSketchOf(const At& a) {
    const YVU b = SketchBlur(a);
    return Stroke(a) ? RGB{0, 0, 0} : YuvToRgb(Tone(a.in.Y(0, 0)) * 255, b[1], b[2]);
}

// Group 1 (a, b, c, d): a in display pixels, the rest in the viewport's.
const EffectRow kBlurRows[] = {
    // Depth of field: no blur at all at 0; levels 14, 1 (13) and 15 (105).
    {{"dof off", 2, {0}, {960, 16, 40, 20}, nullptr}, PatternImage, DoFOf, 1.0, 128, 96},
    {{"dof", 2, {98}, {960, 16, 40, 20}, nullptr}, PatternImage, DoFOf, 2.0, 0},
    {{"dof 13", 2, {13}, {960, 16, 40, 20}, nullptr}, PatternImage, DoFOf, 2.0, 0},
    {{"dof 105", 2, {105}, {600, 10, 25, 14}, nullptr}, PatternImage, DoFOf, 2.0, 0},
    // The circle in the whole picture; r below 0.1 raised to 0.1.
    {{"dof circle", 2, {98}, {600, 10, 25, 14}, nullptr}, Checker, DoFCheckerOf, 3.0, 128, 96},
    {{"dof small", 2, {90}, {0, 12, 1, 13}, nullptr}, Checker, DoFCheckerOf, 3.0, 128, 96},
    // Tilt-shift: the band at the finger point with squared edges.
    {{"tilt-shift", 7, {98}, {960, 12, 40, 26}, nullptr}, PatternImage, TSOf, 2.0, 0},
    // Tiles overlap by five taps' reach; taps 6 and 7 read a tile's edge.
    // Below level 75 the blur is only partly mixed in.
    {{"tilt-shift band", 7, {98}, {960, 12, 32, 26}, nullptr}, Checker, TSCheckerOf, 3.0},
    {{"tilt-shift band 40", 7, {40}, {960, 12, 32, 26}, nullptr}, Checker, TSCheckerOf, 3.0},
    {{"sketch black", 17, {}, {}, nullptr}, Black, SketchOf, 1.0, 128, 96},
    {{"sketch dots", 17, {}, {}, nullptr}, Dots, SketchOf, 1.0, 128, 96},
    {{"color sketch dots", 18, {}, {}, nullptr}, Dots, ColorSketchOf, 1.0, 128, 96},
    {{"color sketch", 18, {}, {}, nullptr}, PatternChroma, ColorSketchOf, 2.0, 0},
};

TEST(EffectBlur, FramesAndCapturesFollowTheFormulas) {
    for (const EffectRow& r : kBlurRows) {
        RunEffectRow(r);
    }
}

// The band angle, nothing in the plug-in sets it: 90 and 180 are nudged at
// the next frame; 90 makes the band vertical.
TEST(EffectBlur, TiltShiftBandAngles) {
    const struct {
        float angle, nudged;
        EffectRow row;
    } kAngles[] = {
        {90.0f,
         89.99f,
         {{"vertical", 7, {98}, {960, 12, 32, 26}, nullptr}, Checker, TSVerticalOf, 2.0, 0}},
        {180.0f,
         179.99f,
         {{"half turn", 7, {98}, {960, 12, 32, 26}, nullptr}, Checker, TSCheckerOf, 2.0, 0}},
    };
    for (const auto& t : kAngles) {
        GEShaderTS::SetBandAngle(t.angle);
        RunEffectRow(t.row);
        EXPECT_EQ(t.nudged, GEShaderTS::GetBandAngle());
    }
    GEShaderTS::SetBandAngle(0.0f);
}

// A picture no larger than one tile (the texture less its margins) is one
// tile, blurred as much of the picture as in preview, the circle where it
// is in preview.
TEST(EffectBlur, SmallCaptureIsOneTile) {
    const EffectSetup setup = {"dof", 2, {98}, {600, 10, 25, 14}, nullptr};
    const SPImage in = SPImage::Pattern(64, 32);
    ManagerRig rig(128, 96);
    TileServer server(&in, [&rig] { rig.Clean(); });
    ASSERT_TRUE(rig.Init(128, 96, &server));
    ASSERT_TRUE(ChooseEffect(rig, setup, true));
    const std::vector<unsigned char> out = CaptureOf(rig, in);
    EXPECT_EQ("0,0,64,32", ToString(server.rects));
    EXPECT_EQ(0, CompareToColours(
                     in.w, in.h, out.data(), out.data() + in.w * in.h,
                     [&](int x, int y) {
                         return DoFOf({in, x, y, 128, 96, &setup, true});
                     },
                     2.0, "one tile"));
}

}  // namespace
