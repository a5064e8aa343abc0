// Colour conversions and resampling of the posteffect tool.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "ToolTestUtil.h"
#include "yuv.h"

using tooltest::Painted;
using tooltest::Solid;

// Worked by hand from the formulas of yuv.h. Red gives V = 0.5 x 255 + 128 =
// 255.5, clamped to 255; U = -0.168727 x 255 + 128 = 84.97 -> 85; Y = 76.2 ->
// 76. Back from (76, 255, 85): R = 76 + 1.402 x 127 = 254.05; G = 76 - 90.68
// + 14.79 = 0.11; B = 76 - 1.772 x 43 = -0.2 -> 0.
TEST(ToolYuvPixel, KnownColours) {
    const struct {
        int r, g, b, y, v, u;
    } kForward[] = {
        {0, 0, 0, 0, 128, 128},     {255, 255, 255, 255, 128, 128}, {128, 128, 128, 128, 128, 128},
        {255, 0, 0, 76, 255, 85},   {0, 255, 0, 150, 21, 44},       {0, 0, 255, 29, 107, 255},
        {255, 255, 0, 226, 149, 1}, {0, 255, 255, 179, 1, 171},     {255, 0, 255, 105, 235, 212},
    };
    for (const auto& k : kForward) {
        uint8_t y, v, u;
        RgbToYvu(k.r, k.g, k.b, &y, &v, &u);
        EXPECT_EQ((std::vector<int>{k.y, k.v, k.u}), (std::vector<int>{y, v, u}))
            << k.r << "," << k.g << "," << k.b;
    }
    const struct {
        int y, v, u, r, g, b;
    } kBack[] = {
        {200, 128, 128, 200, 200, 200},  // grey has no chroma
        {76, 255, 85, 254, 0, 0},
        {255, 255, 255, 255, 121, 255},  // G = 255 - 90.68 - 43.69; R and B clamped
        {0, 0, 0, 0, 135, 0},            // G = 91.39 + 44.03; R and B clamped
        {100, 150, 90, 131, 97, 33},     // 130.84, 100 - 15.71 + 13.07, 32.66
        {30, 200, 60, 131, 2, 0},        // 130.94, 30 - 51.41 + 23.39, -90.5
    };
    for (const auto& k : kBack) {
        uint8_t r, g, b;
        YvuToRgb(k.y, k.v, k.u, &r, &g, &b);
        EXPECT_EQ((std::vector<int>{k.r, k.g, k.b}), (std::vector<int>{r, g, b}))
            << k.y << "," << k.v << "," << k.u;
    }
}

TEST(ToolYuvPixel, RoundTripStaysClose) {
    // The inverse uses rounded coefficients and both directions round to
    // integers, so a colour comes back within a few levels, except where the
    // forward chroma had to be clamped (saturated colours near red or blue).
    int nWorst = 0;
    for (int r = 0; r < 256; r += 5) {
        for (int g = 0; g < 256; g += 5) {
            for (int b = 0; b < 256; b += 5) {
                uint8_t y, v, u, r2, g2, b2;
                RgbToYvu(r, g, b, &y, &v, &u);
                YvuToRgb(y, v, u, &r2, &g2, &b2);
                const double vv = 0.5 * r - 0.4186829 * g - 0.0813089 * b + 128;
                const double uu = -0.168727 * r - 0.33126147 * g + 0.5 * b + 128;
                if (vv <= 255 && uu <= 255) {
                    nWorst = std::max({nWorst, abs(r - r2), abs(g - g2), abs(b - b2)});
                }
            }
        }
    }
    EXPECT_LE(nWorst, 2);
}

TEST(ToolYuvFrame, LayoutAndBlockMeans) {
    // 4 x 4: the top-left block black and white, the top-right red and blue,
    // the bottom two solid green and solid grey 100.
    const uint8_t k[3] = {0, 0, 0}, w[3] = {255, 255, 255}, r[3] = {255, 0, 0}, b[3] = {0, 0, 255},
                  g[3] = {0, 255, 0}, e[3] = {100, 100, 100};
    const uint8_t* kPixels[16] = {k, w, r, b, w, k, r, b, g, g, e, e, g, g, e, e};
    const RGBImage img =
        Painted(4, 4, [&](int x, int y, uint8_t* p) { memcpy(p, kPixels[y * 4 + x], 3); });
    NV21Frame f;
    ASSERT_TRUE(RgbToNv21(img, &f));
    // Luma per pixel. Black and white average to grey 127.5: no chroma. Red
    // and blue average to (127.5, 0, 127.5): V = 63.75 - 10.37 + 128 = 181.4,
    // U = -21.51 + 63.75 + 128 = 170.2. V comes first in each pair.
    const std::vector<uint8_t> kWant = {0,   255, 76,  29,  255, 0,   76,  29,  150, 150, 100, 100,
                                        150, 150, 100, 100, 128, 128, 181, 170, 21,  44,  128, 128};
    EXPECT_EQ(kWant, f.m_vData);

    EXPECT_FALSE(RgbToNv21(Solid(3, 4, 1, 2, 3), &f));
    EXPECT_FALSE(RgbToNv21(Solid(4, 3, 1, 2, 3), &f));
    EXPECT_FALSE(RgbToNv21(RGBImage(), &f));
}

TEST(ToolYuvFrame, BackConversionUsesPairPerBlockAndStride) {
    // A 4 x 2 frame stored with rows of 6 bytes; the padding bytes hold junk
    // that must not be read.
    const int kStride = 6;
    const uint8_t y[2 * kStride] = {10, 20, 30, 40, 99, 99, 50, 60, 70, 80, 99, 99};
    const uint8_t vu[kStride] = {128, 128, 200, 60, 7, 7};
    RGBImage out;
    Nv21ToRgb(y, vu, 4, 2, kStride, &out);
    ASSERT_EQ(4, out.m_nWidth);
    ASSERT_EQ(2, out.m_nHeight);
    for (int r = 0; r < 2; ++r) {
        for (int c = 0; c < 4; ++c) {
            uint8_t want[3];
            YvuToRgb(y[r * kStride + c], vu[c & ~1], vu[(c & ~1) + 1], &want[0], &want[1],
                     &want[2]);
            EXPECT_EQ(0, memcmp(want, out.Pixel(c, r), 3)) << c << "," << r;
        }
    }
}

TEST(ToolYuvFrame, FrameRoundTripOfSmoothPicture) {
    // Chroma is shared by 2 x 2 blocks, so a picture whose colour changes
    // slowly comes back close to itself.
    const RGBImage img = Painted(64, 32, [](int x, int y, uint8_t* p) {
        p[0] = uint8_t(40 + x * 2);
        p[1] = uint8_t(60 + y * 4);
        p[2] = uint8_t(200 - x);
    });
    NV21Frame f;
    ASSERT_TRUE(RgbToNv21(img, &f));
    RGBImage back;
    Nv21ToRgb(f, &back);
    int nWorst = 0;
    for (size_t i = 0; i < img.m_vPixels.size(); ++i) {
        nWorst = std::max(nWorst, abs(int(img.m_vPixels[i]) - int(back.m_vPixels[i])));
    }
    EXPECT_LE(nWorst, 6);
}

TEST(ToolResample, ConstantStaysConstant) {
    const RGBImage img = Solid(37, 23, 12, 200, 99);
    for (const int w : {1, 10, 37, 80}) {
        RGBImage out;
        Resample(img, w, 17, &out);
        EXPECT_EQ(Solid(w, 17, 12, 200, 99).m_vPixels, out.m_vPixels) << w;
    }
}

TEST(ToolResample, ShrinkingAveragesEveryPixel) {
    // Single-pixel stripes shrunk by 4 must average out to mid grey: a filter
    // that samples instead of averaging would return 0 or 255.
    const RGBImage img =
        Painted(64, 8, [](int x, int, uint8_t* p) { memset(p, (x & 1) ? 255 : 0, 3); });
    RGBImage out;
    Resample(img, 16, 2, &out);
    for (int x = 1; x < 15; ++x) {
        EXPECT_NEAR(127.5, out.Pixel(x, 1)[0], 2.0) << x;
    }
}

TEST(ToolResample, CoverCropsTheMiddle) {
    // Pixel (x, y) of the 100 x 100 source holds (x, y, 7). Covering 100 x 50
    // or 50 x 100 needs no scaling: the middle rows or columns are kept as
    // they are.
    const RGBImage img = Painted(100, 100, [](int x, int y, uint8_t* p) {
        p[0] = uint8_t(x);
        p[1] = uint8_t(y);
        p[2] = 7;
    });
    RGBImage out;
    ScaleCover(img, 100, 50, &out);
    EXPECT_EQ(Painted(100, 50,
                      [](int x, int y, uint8_t* p) {
                          p[0] = uint8_t(x);
                          p[1] = uint8_t(y + 25);
                          p[2] = 7;
                      })
                  .m_vPixels,
              out.m_vPixels);
    ScaleCover(img, 50, 100, &out);
    EXPECT_EQ(Painted(50, 100,
                      [](int x, int y, uint8_t* p) {
                          p[0] = uint8_t(x + 25);
                          p[1] = uint8_t(y);
                          p[2] = 7;
                      })
                  .m_vPixels,
              out.m_vPixels);
    // Covering 20 x 10 scales to 20 x 20 and keeps rows 5 to 14. Output pixel
    // (10, 5) is scaled pixel (10, 10), centred on source position 52 each
    // way, where the symmetric filter over the ramp gives 52.
    ScaleCover(img, 20, 10, &out);
    ASSERT_EQ(20, out.m_nWidth);
    ASSERT_EQ(10, out.m_nHeight);
    EXPECT_NEAR(52, out.Pixel(10, 5)[0], 1);
    EXPECT_NEAR(52, out.Pixel(10, 5)[1], 1);
    EXPECT_EQ(7, out.Pixel(10, 5)[2]);
}
