// Colour conversions and resampling of the posteffect tool.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <random>

#include "yuv.h"

namespace {

RGBImage Solid(int w, int h, uint8_t r, uint8_t g, uint8_t b) {
    RGBImage img;
    img.Resize(w, h);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            uint8_t* p = img.Pixel(x, y);
            p[0] = r;
            p[1] = g;
            p[2] = b;
        }
    }
    return img;
}

void SetPixel(RGBImage* img, int x, int y, uint8_t r, uint8_t g, uint8_t b) {
    uint8_t* p = img->Pixel(x, y);
    p[0] = r;
    p[1] = g;
    p[2] = b;
}

struct Known {
    int r, g, b;
    int y, v, u;
};

// Worked by hand from the formulas: red gives V = 0.5 x 255 + 128 = 255.5,
// clamped to 255; U = -0.168727 x 255 + 128 = 84.97 -> 85; Y = 76.2 -> 76.
const Known kKnown[] = {
    {0, 0, 0, 0, 128, 128},     {255, 255, 255, 255, 128, 128}, {128, 128, 128, 128, 128, 128},
    {255, 0, 0, 76, 255, 85},   {0, 255, 0, 150, 21, 44},       {0, 0, 255, 29, 107, 255},
    {255, 255, 0, 226, 149, 1}, {0, 255, 255, 179, 1, 171},     {255, 0, 255, 105, 235, 212},
};

}  // namespace

TEST(ToolYuvPixel, KnownColoursForward) {
    for (const Known& k : kKnown) {
        uint8_t y, v, u;
        RgbToYvu(k.r, k.g, k.b, &y, &v, &u);
        EXPECT_EQ(k.y, y) << k.r << "," << k.g << "," << k.b;
        EXPECT_EQ(k.v, v) << k.r << "," << k.g << "," << k.b;
        EXPECT_EQ(k.u, u) << k.r << "," << k.g << "," << k.b;
    }
}

TEST(ToolYuvPixel, KnownColoursBack) {
    uint8_t r, g, b;
    // Grey has no chroma.
    YvuToRgb(200, 128, 128, &r, &g, &b);
    EXPECT_EQ(200, r);
    EXPECT_EQ(200, g);
    EXPECT_EQ(200, b);
    // Red's YVU (76, 255, 85): R = 76 + 1.402 x 127 = 254.05; G = 76 - 90.68
    // + 14.79 = 0.11; B = 76 - 1.772 x 43 = -0.2 -> 0.
    YvuToRgb(76, 255, 85, &r, &g, &b);
    EXPECT_EQ(254, r);
    EXPECT_EQ(0, g);
    EXPECT_EQ(0, b);
    // Clamping at both ends.
    YvuToRgb(255, 255, 255, &r, &g, &b);
    EXPECT_EQ(255, r);
    EXPECT_EQ(255, b);
    YvuToRgb(0, 0, 0, &r, &g, &b);
    EXPECT_EQ(0, r);
    EXPECT_EQ(0, b);
    // Y = 100, V = 150, U = 90: R = 130.84, G = 100 - 15.71 + 13.07 = 97.36,
    // B = 32.66.
    YvuToRgb(100, 150, 90, &r, &g, &b);
    EXPECT_EQ(131, r);
    EXPECT_EQ(97, g);
    EXPECT_EQ(33, b);
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
                if (vv > 255 || uu > 255) {
                    continue;
                }
                nWorst = std::max({nWorst, abs(r - r2), abs(g - g2), abs(b - b2)});
            }
        }
    }
    EXPECT_LE(nWorst, 2);
}

TEST(ToolYuvFrame, LayoutAndBlockMeans) {
    // 4 x 4: the top-left block black and white, the top-right red and blue,
    // the bottom two solid green and solid grey 100.
    RGBImage img = Solid(4, 4, 0, 0, 0);
    SetPixel(&img, 1, 0, 255, 255, 255);
    SetPixel(&img, 0, 1, 255, 255, 255);
    SetPixel(&img, 2, 0, 255, 0, 0);
    SetPixel(&img, 3, 0, 0, 0, 255);
    SetPixel(&img, 2, 1, 255, 0, 0);
    SetPixel(&img, 3, 1, 0, 0, 255);
    for (int y = 2; y < 4; ++y) {
        SetPixel(&img, 0, y, 0, 255, 0);
        SetPixel(&img, 1, y, 0, 255, 0);
        SetPixel(&img, 2, y, 100, 100, 100);
        SetPixel(&img, 3, y, 100, 100, 100);
    }
    NV21Frame f;
    ASSERT_TRUE(RgbToNv21(img, &f));
    ASSERT_EQ(24u, f.m_vData.size());
    const uint8_t kLuma[16] = {0,   255, 76,  29,  255, 0,   76,  29,
                               150, 150, 100, 100, 150, 150, 100, 100};
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(kLuma[i], f.m_vData[size_t(i)]) << "luma " << i;
    }
    // Black and white average to grey 127.5: no chroma. Red and blue average
    // to (127.5, 0, 127.5): V = 63.75 - 10.37 + 128 = 181.4, U = -21.51 + 63.75
    // + 128 = 170.2. V comes first in each pair.
    const uint8_t kChroma[8] = {128, 128, 181, 170, 21, 44, 128, 128};
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(kChroma[i], f.m_vData[size_t(16 + i)]) << "chroma " << i;
    }
}

TEST(ToolYuvFrame, OddOrEmptySizesAreRefused) {
    NV21Frame f;
    EXPECT_FALSE(RgbToNv21(Solid(3, 4, 1, 2, 3), &f));
    EXPECT_FALSE(RgbToNv21(Solid(4, 3, 1, 2, 3), &f));
    EXPECT_FALSE(RgbToNv21(RGBImage(), &f));
}

TEST(ToolYuvFrame, BackConversionUsesPairPerBlockAndStride) {
    // A 4 x 2 frame stored with rows of 6 bytes; the padding bytes hold junk
    // that must not be read.
    const int kStride = 6;
    uint8_t y[2 * kStride] = {10, 20, 30, 40, 99, 99, 50, 60, 70, 80, 99, 99};
    uint8_t vu[kStride] = {128, 128, 200, 60, 7, 7};
    RGBImage out;
    Nv21ToRgb(y, vu, 4, 2, kStride, &out);
    ASSERT_EQ(4, out.m_nWidth);
    ASSERT_EQ(2, out.m_nHeight);
    EXPECT_EQ(10, out.Pixel(0, 0)[0]);
    EXPECT_EQ(20, out.Pixel(1, 0)[1]);
    EXPECT_EQ(60, out.Pixel(1, 1)[2]);
    // Columns 2 and 3 share V = 200, U = 60: for Y = 30, R = 30 + 100.94,
    // G = 30 - 51.41 + 23.39, B = 30 - 120.5 -> 0.
    uint8_t r, g, b;
    YvuToRgb(30, 200, 60, &r, &g, &b);
    EXPECT_EQ(131, r);
    EXPECT_EQ(2, g);
    EXPECT_EQ(0, b);
    EXPECT_EQ(r, out.Pixel(2, 0)[0]);
    EXPECT_EQ(g, out.Pixel(2, 0)[1]);
    EXPECT_EQ(b, out.Pixel(2, 0)[2]);
    YvuToRgb(80, 200, 60, &r, &g, &b);
    EXPECT_EQ(r, out.Pixel(3, 1)[0]);
    EXPECT_EQ(g, out.Pixel(3, 1)[1]);
}

TEST(ToolYuvFrame, FrameRoundTripOfSmoothPicture) {
    // Chroma is shared by 2 x 2 blocks, so a picture whose colour changes
    // slowly comes back close to itself.
    RGBImage img;
    img.Resize(64, 32);
    for (int y = 0; y < 32; ++y) {
        for (int x = 0; x < 64; ++x) {
            SetPixel(&img, x, y, uint8_t(40 + x * 2), uint8_t(60 + y * 4), uint8_t(200 - x));
        }
    }
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
        ASSERT_EQ(w, out.m_nWidth);
        ASSERT_EQ(17, out.m_nHeight);
        for (int y = 0; y < out.m_nHeight; ++y) {
            for (int x = 0; x < out.m_nWidth; ++x) {
                ASSERT_EQ(12, out.Pixel(x, y)[0]);
                ASSERT_EQ(200, out.Pixel(x, y)[1]);
                ASSERT_EQ(99, out.Pixel(x, y)[2]);
            }
        }
    }
}

TEST(ToolResample, ShrinkingAveragesEveryPixel) {
    // Single-pixel stripes shrunk by 4 must average out to mid grey: a filter
    // that samples instead of averaging would return 0 or 255.
    RGBImage img;
    img.Resize(64, 8);
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 64; ++x) {
            const uint8_t v = (x & 1) ? 255 : 0;
            SetPixel(&img, x, y, v, v, v);
        }
    }
    RGBImage out;
    Resample(img, 16, 2, &out);
    for (int x = 1; x < 15; ++x) {
        EXPECT_NEAR(127.5, out.Pixel(x, 1)[0], 2.0) << x;
    }
}

TEST(ToolResample, CoverCropsTheMiddle) {
    // 100 x 100, red above row 25, blue from row 75, green between. Covering
    // 100 x 50 needs no scaling and keeps rows 25 to 74: all green.
    RGBImage img = Solid(100, 100, 0, 255, 0);
    for (int y = 0; y < 25; ++y) {
        for (int x = 0; x < 100; ++x) {
            SetPixel(&img, x, y, 255, 0, 0);
            SetPixel(&img, x, 99 - y, 0, 0, 255);
        }
    }
    RGBImage out;
    ScaleCover(img, 100, 50, &out);
    ASSERT_EQ(100, out.m_nWidth);
    ASSERT_EQ(50, out.m_nHeight);
    for (int y = 0; y < 50; ++y) {
        ASSERT_EQ(0, out.Pixel(50, y)[0]) << y;
        ASSERT_EQ(255, out.Pixel(50, y)[1]) << y;
    }
    // Covering 50 x 100 needs no scaling either: the middle 50 columns are
    // kept, with all three bands.
    ScaleCover(img, 50, 100, &out);
    ASSERT_EQ(50, out.m_nWidth);
    ASSERT_EQ(100, out.m_nHeight);
    EXPECT_EQ(255, out.Pixel(25, 5)[0]);
    EXPECT_EQ(255, out.Pixel(25, 50)[1]);
    EXPECT_EQ(255, out.Pixel(25, 95)[2]);
    // Shrinking to cover 20 x 10 scales by 0.2 and keeps the middle rows.
    ScaleCover(img, 20, 10, &out);
    ASSERT_EQ(20, out.m_nWidth);
    ASSERT_EQ(10, out.m_nHeight);
    EXPECT_GT(out.Pixel(10, 5)[1], 240);
}

TEST(ToolResample, FitKeepsAspectInsideTheBox) {
    const RGBImage img = Solid(400, 100, 1, 2, 3);
    RGBImage out;
    ScaleFit(img, 100, 100, &out);
    EXPECT_EQ(100, out.m_nWidth);
    EXPECT_EQ(25, out.m_nHeight);
    ScaleFit(img, 1000, 50, &out);
    EXPECT_EQ(200, out.m_nWidth);
    EXPECT_EQ(50, out.m_nHeight);
    ScaleFit(Solid(1000, 1, 0, 0, 0), 10, 10, &out);
    EXPECT_EQ(10, out.m_nWidth);
    EXPECT_EQ(1, out.m_nHeight);
}

TEST(ToolResample, CropCopiesTheRectangle) {
    RGBImage img;
    img.Resize(8, 6);
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 8; ++x) {
            SetPixel(&img, x, y, uint8_t(x), uint8_t(y), 7);
        }
    }
    RGBImage out;
    Crop(img, 3, 2, 4, 3, &out);
    ASSERT_EQ(4, out.m_nWidth);
    ASSERT_EQ(3, out.m_nHeight);
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 4; ++x) {
            EXPECT_EQ(x + 3, out.Pixel(x, y)[0]);
            EXPECT_EQ(y + 2, out.Pixel(x, y)[1]);
        }
    }
    // In place.
    Crop(img, 1, 1, 2, 2, &img);
    ASSERT_EQ(2, img.m_nWidth);
    EXPECT_EQ(1, img.Pixel(0, 0)[0]);
    EXPECT_EQ(2, img.Pixel(1, 1)[1]);
}
