// The effects that place things in the picture (Vignette, Fisheye, Dots)
// through the effect manager, against their formulas worked out on the CPU:
// in preview frames, in captures where the picture's coordinates cross the
// tiles, and Fisheye's refusal of a capture larger than a texture.
#include <android/log.h>
#include <gtest/gtest.h>
#include <math.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "GETestEffectSuite.h"
#include "GETestGL.h"
#include "GETestLog.h"
#include "effects/GEShaderVignette.h"
#include "gl/GLTexture.h"

using namespace getest;

namespace getest {
// The four dot masks, for Dots' rows here and its seam row.
void DotMasks(const GETestRoot& root);
}  // namespace getest

namespace {

const unsigned kFisheye = 3, kVignette = 4, kDots = 5;
const int kDisplayW = 1920;  // group 1's first word is in display pixels

// Group 1's first word as the effect gets it, in pixels of a viewport
// `vw` wide: viewport width x word / display width, in integers.
int ViewportX(int vw, int word) {
    return (int)((unsigned)vw * (unsigned)word / (unsigned)kDisplayW);
}
// The viewport of a row's frame: the preview's width, or in capture (a
// picture wider than the frame) the frame texture's.
int ViewportW(const At& a) {
    return a.in.w > kTexW ? kTexW : a.in.w;
}
// Where output pixel (x, y) lies in the whole picture, in fractions.
double FracX(const At& a) {
    return (a.x + 0.5) / a.in.w;
}
double FracY(const At& a) {
    return (a.y + 0.5) / a.in.h;
}
RGB Scaled(const RGB& c, double k) {
    return {c.r * k, c.g * k, c.b * k};
}
double SmoothStep(double e0, double e1, double x) {
    const double t = Clamp01((x - e0) / (e1 - e0));
    return t * t * (3.0 - 2.0 * t);
}
// Bilinear filtering of an n x m grid `at`, clamped, at (u, v) in its
// texels (centres at + 1/2), or wrapped around with `wrap`.
double Bilinear(int n, int m, const std::function<double(int, int)>& at, double u, double v,
                bool wrap = false) {
    auto index = [wrap](int i, int k) {
        return wrap ? ((i % k) + k) % k : std::min(k - 1, std::max(0, i));
    };
    const double fu = u - 0.5, fv = v - 0.5;
    const int i0 = (int)floor(fu), j0 = (int)floor(fv);
    const double ax = fu - i0, ay = fv - j0;
    double s = 0;
    for (int k = 0; k < 4; ++k) {
        s += (k % 2 ? ax : 1 - ax) * (k / 2 ? ay : 1 - ay) *
             at(index(i0 + k % 2, n), index(j0 + k / 2, m));
    }
    return s;
}
// A capture's two planes as textures (Y w x h, chroma pairs w/2 x h/2),
// filtered linearly at (u, v) in pixels of the picture.
RGB PlanesLinear(const SPImage& img, double u, double v) {
    const int cw = img.w / 2, ch = img.h / 2;
    auto chroma = [&](int k) {
        return Bilinear(
            cw, ch,
            [&](int i, int j) { return (double)img.UVPlane()[(size_t)j * img.w + 2 * i + k]; },
            u / 2, v / 2);
    };
    return YuvToRgb(Bilinear(
                        img.w, img.h, [&](int i, int j) { return (double)img.Y(i, j); }, u, v),
                    chroma(0), chroma(1));
}

// ---------------------------------------------------------------------------
// Vignette: the picture times 1 - f, f rising smoothly from the inner to the
// outer radius (radius -/+ softness) of the circle of group 1, whose vertical
// distances count in widths (the frame texture's ratio). Softness from
// 0.40 at 0 to 0.03 at 100 of group 0. In capture the circle lies at the
// same place of the whole picture.
template <int V, int A, int B, int C, int D>
RGB VignetteOf(const At& a) {
    const int vw = ViewportW(a);
    const double cx = ViewportX(vw, A) / (double)vw, cy = B / (double)kTexH;
    const double radius = hypot((C - ViewportX(vw, A)) / (double)vw, (D - B) / (double)kTexH);
    const double soft = (100 - V) * 0.37 / 100.0 + 0.03;
    const double dx = FracX(a) - cx, dy = (FracY(a) - cy) / (vw / (double)kTexH);
    return Scaled(Source(a), 1.0 - SmoothStep(radius - soft, radius + soft, hypot(dx, dy)));
}
template <int V, int A, int B, int C, int D>
EffectRow VignetteRow(const char* name, SPImage (*in)(int, int)) {
    return {
        {name, kVignette, {V, 0, 0, 0}, {A, B, C, D}, nullptr}, in, VignetteOf<V, A, B, C, D>, 1.0};
}

// ---------------------------------------------------------------------------
// Fisheye: output pixel p (from the centre, in fractions of the picture)
// shows the picture at p r + centre, with the radial factor r of the
// distortion level d = 0.6 + 0.012 x group 0: up to d = 1 the radius is
// bent by a power within the ellipse through the edges on the pixel's side,
// above it by a polynomial. The centre, clamped to [0.1, 0.9], is group 1's
// point in pixels of the frame.
void FisheyeSource(double px, double py, double cx, double cy, double d, double* qx, double* qy) {
    const double sx = px * px, sy = py * py, rr = sqrt(sx + sy);
    const double a = px < 0 ? cx : 1 - cx, b = py < 0 ? cy : 1 - cy;
    const double ny2 = a * a * b * b / (sx * b * b / sy + a * a);
    const double nr = sqrt(sx * ny2 / sy + ny2);
    const double f = d - 1.0;
    double r;
    if (f > 0) {
        const double pf = 2.0 / (1.0 + pow(std::max(0.0, rr - 0.7), 1.6) * 15.0);
        const double k = rr * rr * pf * f;
        r = (1.0 + 1.5 * k + k * rr * rr) * (1.0 - sqrt(f) * 0.72);
    } else {
        r = nr * pow(rr / nr, d) / rr;
    }
    *qx = px * r + cx;
    *qy = py * r + cy;
}
double ClampCentre(double c) {
    return std::min(0.9, std::max(0.1, c));
}
// Preview frames sample the frame texture, captures (pictures of the
// suite's capture size and larger) the two planes.
template <int LEVEL, int A, int B>
RGB FisheyeOf(const At& a) {
    const int vw = ViewportW(a);
    const double cx = ClampCentre(ViewportX(vw, A) / (double)vw),
                 cy = ClampCentre(B / (double)kTexH);
    double qx, qy;
    FisheyeSource(FracX(a) - cx, FracY(a) - cy, cx, cy, 0.6 + LEVEL * 0.012, &qx, &qy);
    return a.in.w >= kCapW ? PlanesLinear(a.in, qx * a.in.w, qy * a.in.h)
                           : SampleLinear(a.in, qx * a.in.w, qy * a.in.h);
}
// Fisheye and Dots filter the picture between pixels; where neighbours lie
// far apart (PatternImage wraps), the GPU's 8-bit filter weights leave up to
// 2 levels.
const double kFiltered = 2.0;
template <int LEVEL, int A, int B>
EffectRow FisheyeRow(const char* name, SPImage (*in)(int, int)) {
    return {{name, kFisheye, {LEVEL, 0, 0, 0}, {A, B, 0, 0}, nullptr},
            in,
            FisheyeOf<LEVEL, A, B>,
            kFiltered};
}

// Circles and centres off the middle (pixel 20 of 64 across, 10 or 20 of 32
// down), in the middle and clamped at both ends; rims off the centre's row;
// softness at both ends and between; levels of both branches and the one
// next to the identity.
const EffectRow kGeometryRows[] = {
    VignetteRow<30, 600, 10, 40, 4>("vignette", PatternImage),
    VignetteRow<100, 960, 16, 44, 16>("vignette hard edge", GreyRamp),
    VignetteRow<0, 1200, 20, 45, 24>("vignette radius inside the softness", PatternImage),
    FisheyeRow<0, 600, 20>("fisheye power", PatternImage),
    FisheyeRow<100, 600, 20>("fisheye polynomial", PatternImage),
    FisheyeRow<33, 960, 16>("fisheye next to the identity", GreyRamp),
    FisheyeRow<0, 0, 0>("fisheye centre clamped low", PatternImage),
    FisheyeRow<100, 3000, 40>("fisheye centre clamped high", PatternImage),
};

TEST(EffectGeometry, FramesAndCapturesFollowTheFormulas) {
    for (const EffectRow& r : kGeometryRows) {
        RunEffectRow(r);
    }
}

// The effect's render target (RGBA, before the YUV conversion), which shows
// the alpha the conversion drops.
class VignetteProbe : public GEShaderVignette {
public:
    std::vector<unsigned char> Target() {
        return GETestReadTexture(m_pYUVSrcTex->GetTexName(), m_nYUVSrcW, m_nYUVSrcH);
    }
};

// Preview alpha is 1 - f, here with the circle where Init leaves it (centred
// on the corner at (1, 1), radius 0.3, softness 0.5); a capture keeps the
// sampled alpha (1) where the colour is darkened (the last tile, far from a
// small circle at the top left).
TEST(EffectGeometry, VignetteAlpha) {
    for (bool capture : {false, true}) {
        SCOPED_TRACE(capture ? "capture" : "preview");
        const SPImage in = PatternImage(capture ? kCapW : kTexW, capture ? kCapH : kTexH);
        ManagerRig rig;
        TileServer server(&in, [&rig] { rig.Clean(); });
        ASSERT_TRUE(rig.Init(kTexW, kTexH, &server));
        VignetteProbe* e = new VignetteProbe();
        ASSERT_TRUE(rig.man.Inject(e, capture, true));
        if (capture) {
            ASSERT_EQ(1, e->SetParam(1, 0, 0, 8, 0));
            CaptureOf(rig, in);
        } else {
            rig.Preview(in);
        }
        const std::vector<unsigned char> px = e->Target();
        int bad = 0;
        for (int y = 0; y < (capture ? kCapH - 64 : kTexH); ++y) {
            for (int x = 0; x < (capture ? kCapW - 128 : kTexW); ++x) {
                const double t = hypot((x + 0.5) / kTexW - 1.0, ((y + 0.5) / kTexH - 1.0) / 2.0);
                const double want = capture ? 255.0 : 255.0 * (1.0 - SmoothStep(-0.2, 0.8, t));
                bad += fabs(px[((size_t)y * kTexW + x) * 4 + 3] - want) > 1.0;
            }
        }
        EXPECT_EQ(0, bad) << "alpha";
    }
}

// A capture of four tiles of 768 x 480 shows the warp of the whole picture
// (ridges that rise by 3 and 2 levels a pixel across and down, so that a
// place a third of a pixel off shows); one just over the largest texture is
// refused before anything is written, with one error line naming both
// sizes, and the next capture works.
TEST(EffectGeometry, FisheyeCaptureTilesAndSizeLimit) {
    auto ridge = [](int i, int period) { return abs(i % (2 * period) - period); };
    const SPImage big = SPImage::Grey(
        1536, 960, [&](int x, int y) { return 40 + 3 * ridge(x, 25) + 2 * ridge(y, 30); },
        [&](int bx, int by) { return std::make_pair(100 + ridge(bx, 40), 150 - ridge(by, 40)); });
    ManagerRig rig;
    TileServer server;
    ASSERT_TRUE(rig.Init(kTexW, kTexH, &server));
    ASSERT_TRUE(ChooseEffect(rig, {"fisheye", kFisheye, {100}, {600, 20}, nullptr}, true));
    std::vector<unsigned char> out = CaptureOf(rig, big);
    EXPECT_EQ(0, CompareToColours(
                     big.w, big.h, out.data(), out.data() + (size_t)big.w * big.h,
                     [&](int x, int y) {
                         return FisheyeOf<100, 600, 20>({big, x, y, 0, 0});
                     },
                     kFiltered, "four tiles"));

    GLint max = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &max);
    SPImage wide(max + 2, 2);
    for (size_t i = 0; i < wide.data.size(); ++i) {
        wide.data[i] = (unsigned char)(i * 7);
    }
    const SPImage camera = wide;
    std::vector<unsigned char> poisoned(wide.data.size(), kPoison);
    GETestLog log;
    EXPECT_FALSE(rig.man.ProcFrame(wide.YPlane(), wide.UVPlane(), poisoned.data(), wide.w, 2));
    EXPECT_TRUE(camera.data == wide.data &&
                poisoned == std::vector<unsigned char>(poisoned.size(), kPoison));
    std::vector<std::string> errors;
    for (const GETestLog::Line& l : log.Lines()) {
        if (l.priority == ANDROID_LOG_ERROR && l.tag == "GEShaderFisheye") {
            errors.push_back(l.text);
        }
    }
    ASSERT_EQ(1u, errors.size());
    EXPECT_NE(std::string::npos, errors[0].find(std::to_string(max + 2) + "x2"));
    EXPECT_NE(std::string::npos, errors[0].find(" " + std::to_string(max)));
    const SPImage in = PatternImage(kCapW, kCapH);
    out = CaptureOf(rig, in);
    EXPECT_EQ(0, CompareToColours(
                     kCapW, kCapH, out.data(), out.data() + kCapW * kCapH,
                     [&](int x, int y) {
                         return FisheyeOf<100, 600, 20>({in, x, y, 0, 0});
                     },
                     kFiltered, "after the refusal"));
}

// ---------------------------------------------------------------------------
// Dots: cells of s = h/68 + v (h/30 - h/68) / 100 pixels of a frame h high
// (v of group 0, 50 as Init leaves it), s x capture height / h in a capture.
// Each cell shows the picture at its middle (filtered linearly), times the
// mask (1 below 51, 2 from 51) repeated once per cell, filtered linearly.
// The masks are 8 x 4 RGB 5-6-5 images, distinct per mask, channel and texel.
void MaskTexel(int m, int x, int y, int* r5, int* g6, int* b5) {
    *r5 = 31 - 2 * x - 3 * y - m;
    *g6 = 63 - 3 * x - 5 * y - 2 * m;
    *b5 = 16 + x - 2 * y + 2 * m;
}
void WriteDotMasks(const GETestRoot& root, int skip) {
    for (int m = 0; m < 4; ++m) {
        if (m == skip) {
            continue;
        }
        root.PutBmp("dot_mask_" + std::to_string(m) + ".bmp", 8, 4, 16,
                    [m](int x, int y, unsigned char* t) {
                        int r, g, b;
                        MaskTexel(m, x, y, &r, &g, &b);
                        const int v = r << 11 | g << 5 | b;
                        t[0] = (unsigned char)v;
                        t[1] = (unsigned char)(v >> 8);
                    });
    }
}
RGB DotOf(const SPImage& in, double s, int mask, int x, int y) {
    const RGB c = Stored(
        SampleLinear(in, (floor((x + 0.5) / s) + 0.5) * s, (floor((y + 0.5) / s) + 0.5) * s));
    auto channel = [&](int k) {
        return Bilinear(
            8, 4,
            [&](int i, int j) {
                int t[3];
                MaskTexel(mask, i, j, &t[0], &t[1], &t[2]);
                return (k == 1 ? (t[k] << 2 | t[k] >> 4) : (t[k] << 3 | t[k] >> 2)) / 255.0;
            },
            (x + 0.5) / s * 8, (y + 0.5) / s * 4, true);
    };
    return {c.r * channel(0), c.g * channel(1), c.b * channel(2)};
}

TEST(EffectGeometry, DotsCellsAndMasks) {
    const int kInit = -1;  // no parameter after Init
    const struct {
        const char* name;
        int w, h;        // the frame, or a capture's frame texture
        int capW, capH;  // the capture, 0 for a frame
        int value;
    } rows[] = {
        {"smallest cells", 64, 544, 0, 0, 0},
        {"largest cells", 64, 544, 0, 0, 100},
        {"last of mask 1", 64, 544, 0, 0, 50},
        {"first of mask 2", 64, 544, 0, 0, 51},
        {"as Init leaves it", 64, 544, 0, 0, kInit},
        {"narrow", 48, 544, 0, 0, 0},
        {"capture", 64, 136, 160, 272, 0},
        {"capture of large cells", 64, 136, 160, 272, 100},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        GETestRoot root;
        DotMasks(root);
        const bool capture = r.capW > 0;
        const SPImage in = PatternImage(capture ? r.capW : r.w, capture ? r.capH : r.h);
        ManagerRig rig(r.w, r.h);
        TileServer server(&in, [&rig] { rig.Clean(); });
        ASSERT_TRUE(rig.Init(r.w, r.h, &server));
        ASSERT_TRUE(rig.Choose(kDots, capture));
        const int v = r.value == kInit ? 50 : r.value;
        if (r.value != kInit) {
            rig.man.SetParam(0, v, 0, 0, 0);
        }
        const double s = (r.h / 68.0 + v * (r.h / 30.0 - r.h / 68.0) / 100.0) * in.h / r.h;
        const std::vector<unsigned char> out = capture ? CaptureOf(rig, in) : rig.Preview(in);
        EXPECT_EQ(0, CompareToColours(
                         in.w, in.h, out.data(), out.data() + (size_t)in.w * in.h,
                         [&](int x, int y) { return DotOf(in, s, v < 51 ? 1 : 2, x, y); },
                         kFiltered, r.name));
        if (capture) {
            // The retired two-buffer entry answers 0 and writes nothing.
            GETestLog log;
            std::vector<unsigned char> none(out.size(), kPoison);
            EXPECT_EQ(0, rig.man.CurrShader()->ProcFrame(nullptr, none.data(), in.w, in.h));
            EXPECT_EQ(std::vector<unsigned char>(out.size(), kPoison), none);
            EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, "GEShaderDot",
                                     "[ProcFrame] Deprecated function for processing snapshot of "
                                     "Dot effect"));
        }
    }
    // Masks 0 and 3 are never shown but must be there.
    GETestRoot root;
    WriteDotMasks(root, 3);
    ManagerRig rig;
    GETestLog log;
    ASSERT_TRUE(rig.Init(kTexW, kTexH));
    EXPECT_FALSE(rig.Choose(kDots, false));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, "GEShaderDot",
                             "[Init] can't load dot mask tex /system/media/GPU/dot_mask_3.bmp"));
}

}  // namespace

void getest::DotMasks(const GETestRoot& root) {
    WriteDotMasks(root, -1);
}
