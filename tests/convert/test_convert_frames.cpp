// Frame functions of the semi-planar converters against per-pixel references
// built from the layout rules, on the runtime-chosen row functions (with
// cached and with streaming stores) and on the portable ones.
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ConvertTestUtil.h"
#include "sp2yuvx.h"
#include "sp2yuvx_row.h"

using convtest::Frame;
using convtest::GuardedBuffer;
using convtest::RefPixel;

namespace {

enum class Path { Runtime, RuntimeStreaming, Portable };

std::string PathName(Path p) {
    switch (p) {
        case Path::Runtime:
            return "Runtime";
        case Path::RuntimeStreaming:
            return "RuntimeStreaming";
        case Path::Portable:
            return "Portable";
    }
    return "?";
}

class ConvertFrame : public ::testing::TestWithParam<Path> {
protected:
    void SetUp() override {
        SP2YUVXForcePortable(GetParam() == Path::Portable);
        SP2YUVXSetStoreMode(GetParam() == Path::RuntimeStreaming ? SP2YUVX_STORE_STREAMING
                                                                 : SP2YUVX_STORE_AUTO);
        const char* pszRows = SP2YUVXActiveRows().pszName;
        if (GetParam() == Path::Portable) {
            ASSERT_STREQ("C", pszRows);
        }
        RecordProperty("rows", pszRows);
    }
    void TearDown() override {
        SP2YUVXForcePortable(false);
        SP2YUVXSetStoreMode(SP2YUVX_STORE_AUTO);
    }
};

// Empty when got equals want, otherwise where they first differ.
std::string FirstDifference(const uint8_t* got, const uint8_t* want, size_t n, size_t nPitch) {
    for (size_t i = 0; i < n; ++i) {
        if (got[i] != want[i]) {
            return "byte " + std::to_string(i) + " (row " + std::to_string(i / nPitch) + ", byte " +
                   std::to_string(i % nPitch) + "): got " + std::to_string(got[i]) + ", want " +
                   std::to_string(want[i]);
        }
    }
    return std::string();
}

// Expected output of sp2yuvxs: rows of dstStride pixels; the first 2 x pairs
// rows hold the converted pixels of the rectangle, extended to the right by
// the last converted pixel of the row; the rows after that, up to dstHeight,
// repeat the last of them byte for byte. Bytes not named keep their
// original content. Luma row r of the rectangle is source row ry + r, its
// chroma row is ry / 2 + r / 2 of the chroma plane.
struct RectCase {
    int dstStride, dstHeight, rx, ry, rw, rh;
};

std::vector<uint8_t> RectExpected(const uint8_t* pOriginal, size_t nSize, const Frame& yf,
                                  const Frame& cf, const RectCase& k, bool bBottom) {
    std::vector<uint8_t> want(pOriginal, pOriginal + nSize);
    const int nPairs = std::max(k.rh / 2, 1);
    const int nDone = std::max(k.rw / 16, 1) * 16;
    const int nWritten = nDone + std::max(k.dstStride / 16 - k.rw / 16, 0) * 16;
    const size_t nPitch = size_t(k.dstStride) * 4;
    for (int r = 0; r < 2 * nPairs; ++r) {
        for (int c = 0; c < nWritten; ++c) {
            const int sc = k.rx + std::min(c, nDone - 1);
            uint8_t* px = want.data() + r * nPitch + size_t(c) * 4;
            px[0] = yf.Y(k.ry + r, sc);
            px[1] = cf.C(k.ry / 2 + r / 2, sc & ~1, 0);
            px[2] = cf.C(k.ry / 2 + r / 2, sc & ~1, 1);
            px[3] = 0xFF;
        }
    }
    if (bBottom) {
        for (int r = 2 * nPairs; r < k.dstHeight; ++r) {
            memcpy(want.data() + r * nPitch, want.data() + (2 * nPairs - 1) * nPitch, nPitch);
        }
    }
    return want;
}

// Rectangles inside a frame of the given size, as the preview path and the
// capture tiles use them and at the edges of the rules: widths in whole
// groups of 16, any height, odd and even ry, destination strides that are and
// are not whole groups, destination heights below and above the rectangle.
std::vector<RectCase> RectCases(int W, int H, std::mt19937& rng) {
    std::vector<RectCase> v = {
        {W, H, 0, 0, W, H},    // the whole frame, as for a preview frame
        {48, 4, 0, 0, 16, 2},  // pads right and down
        {16, 2, 2, 1, 16, 2},  // odd ry
        {21, 5, 4, 2, 16, 3},  // stride not a whole group, odd rh
        {64, 3, 2, 0, 32, 0},  // rh 0 still converts one row pair
        {64, 3, 2, 0, 32, 1},  // rh 1 likewise
        {32, 1, 0, 2, 32, 4},  // dstHeight below rh
        {47, 9, 6, 3, 32, 6},  // odd stride, padding to 2 groups
        {16 * (W / 16), 2 * H, 0, 0, 16 * (W / 16), H},
    };
    for (int i = 0; i < 40; ++i) {
        RectCase k;
        k.rw = 16 * (1 + int(rng() % (W / 16)));
        k.rx = 2 * int(rng() % ((W - k.rw) / 2 + 1));
        k.rh = int(rng() % (H + 1));
        const int nRows = 2 * std::max(k.rh / 2, 1);
        k.ry = int(rng() % (H - nRows + 1));
        k.dstStride = k.rw + int(rng() % 3 == 0 ? 0 : rng() % 70);
        k.dstHeight = std::max(0, k.rh + int(rng() % 9) - 3);
        v.push_back(k);
    }
    return v;
}

std::string Describe(const RectCase& k) {
    char s[160];
    snprintf(s, sizeof(s), "dstStride %d dstHeight %d rect (%d, %d, %d, %d)", k.dstStride,
             k.dstHeight, k.rx, k.ry, k.rw, k.rh);
    return s;
}

size_t RectRows(const RectCase& k) {
    return size_t(std::max(k.dstHeight, 2 * std::max(k.rh / 2, 1)));
}

}  // namespace

TEST_P(ConvertFrame, WholeFrameFollowsTheLayout) {
    const int sizes[][2] = {{16, 2},  {32, 2},   {48, 4},   {64, 6},     {80, 10},
                            {176, 8}, {320, 36}, {640, 48}, {1920, 1080}};
    int nCase = 0;
    for (const auto& s : sizes) {
        const int w = s[0], h = s[1];
        const Frame f(w, h, 100 + nCase);
        GuardedBuffer out(size_t(w) * h * 4, (nCase % 4) * 4, 200 + nCase);
        sp2yuvx(out.Data(), f.Data(), w, h);
        for (int r = 0; r < h; ++r) {
            for (int c = 0; c < w; ++c) {
                uint8_t px[4];
                RefPixel(f, r, c, px);
                ASSERT_EQ(0, memcmp(out.Data() + (size_t(r) * w + c) * 4, px, 4))
                    << w << "x" << h << " pixel (" << r << ", " << c << ")";
            }
        }
        EXPECT_EQ("", out.CheckGuards()) << w << "x" << h;
        ++nCase;
    }
}

TEST_P(ConvertFrame, StridedWholeFrameLeavesRowTailsUntouched) {
    int nCase = 0;
    for (int w : {16, 48, 96, 320}) {
        for (int nExtra : {0, 1, 3, 16, 37, w}) {
            const int h = 2 + 2 * (nCase % 5);
            const int dstStride = w + nExtra;
            const Frame f(w, h, 300 + nCase);
            GuardedBuffer out(size_t(dstStride) * h * 4, (nCase % 3) * 4, 400 + nCase);
            sp2yuvx(out.Data(), dstStride, f.Data(), w, h);
            for (int r = 0; r < h; ++r) {
                const size_t row = size_t(r) * dstStride * 4;
                for (int c = 0; c < w; ++c) {
                    uint8_t px[4];
                    RefPixel(f, r, c, px);
                    ASSERT_EQ(0, memcmp(out.Data() + row + c * 4, px, 4))
                        << "width " << w << " stride " << dstStride << " pixel (" << r << ", " << c
                        << ")";
                }
                ASSERT_EQ(0, memcmp(out.Data() + row + w * 4, out.Original() + row + w * 4,
                                    size_t(nExtra) * 4))
                    << "width " << w << " stride " << dstStride << ": tail of row " << r
                    << " changed";
            }
            EXPECT_EQ("", out.CheckGuards()) << "width " << w << " stride " << dstStride;
            ++nCase;
        }
    }
}

TEST_P(ConvertFrame, CropConvertsTheRectangleCompactly) {
    std::mt19937 rng(5);
    for (int nCase = 0; nCase < 30; ++nCase) {
        const int W = 32 * (1 + int(rng() % 12));
        const int H = 2 * (1 + int(rng() % 20));
        const int S = W + (nCase % 2 ? int(rng() % 40) : 0);
        const Frame f(S, H, 500 + nCase);
        const int w = 32 * (1 + int(rng() % (W / 32)));
        const int x = 2 * int(rng() % ((W - w) / 2 + 1));
        const int h = 2 * (1 + int(rng() % (H / 2)));
        const int y = 2 * int(rng() % ((H - h) / 2 + 1));
        GuardedBuffer out(size_t(w) * h * 4, (nCase % 4) * 4, 600 + nCase);
        sp2yuvx(out.Data(), f.Data(), S, H, x, y, w, h);
        for (int r = 0; r < h; ++r) {
            for (int c = 0; c < w; ++c) {
                uint8_t px[4];
                RefPixel(f, y + r, x + c, px);
                ASSERT_EQ(0, memcmp(out.Data() + (size_t(r) * w + c) * 4, px, 4))
                    << "frame " << W << "x" << H << " stride " << S << " rect (" << x << ", " << y
                    << ", " << w << ", " << h << ") pixel (" << r << ", " << c << ")";
            }
        }
        EXPECT_EQ("", out.CheckGuards());
    }
}

TEST_P(ConvertFrame, YuvWholeFrameFollowsTheLayout) {
    const int sizes[][2] = {{16, 2}, {32, 4}, {48, 6}, {112, 10}, {640, 40}, {1920, 64}};
    int nCase = 0;
    for (const auto& s : sizes) {
        const int w = s[0], h = s[1];
        const Frame f(w, h, 700 + nCase);
        GuardedBuffer out(size_t(w) * h * 3, nCase % 3, 800 + nCase);
        sp2yuv(out.Data(), f.Data(), w, h);
        for (int r = 0; r < h; ++r) {
            for (int c = 0; c < w; ++c) {
                uint8_t px[4];
                RefPixel(f, r, c, px);
                ASSERT_EQ(0, memcmp(out.Data() + (size_t(r) * w + c) * 3, px, 3))
                    << w << "x" << h << " pixel (" << r << ", " << c << ")";
            }
        }
        EXPECT_EQ("", out.CheckGuards()) << w << "x" << h;
        ++nCase;
    }
}

TEST_P(ConvertFrame, RectanglePadsByEdgeReplication) {
    std::mt19937 rng(11);
    int nCase = 0;
    const int sizes[][2] = {{64, 16}, {176, 30}, {320, 64}};
    for (const auto& size : sizes) {
        const int W = size[0], H = size[1];
        for (const RectCase& k : RectCases(W, H, rng)) {
            const int S = W + (nCase % 3 == 1 ? 10 : 0);
            const Frame f(S, H, 900 + nCase);
            const size_t nSize = size_t(k.dstStride) * 4 * RectRows(k);
            GuardedBuffer out(nSize, (nCase % 4) * 4, 1000 + nCase);
            sp2yuvxs(out.Data(), k.dstStride, k.dstHeight, f.Data(), S, H, k.rx, k.ry, k.rw, k.rh);
            const std::vector<uint8_t> want = RectExpected(out.Original(), nSize, f, f, k, true);
            ASSERT_EQ("", FirstDifference(out.Data(), want.data(), nSize, size_t(k.dstStride) * 4))
                << "frame " << W << "x" << H << " stride " << S << ", " << Describe(k);
            ASSERT_EQ("", out.CheckGuards()) << Describe(k);
            ++nCase;
        }
    }
}

TEST_P(ConvertFrame, RectangleWithSeparateChromaPlane) {
    std::mt19937 rng(13);
    const int W = 256, H = 40;
    int nCase = 0;
    for (const RectCase& k : RectCases(W, H, rng)) {
        const int S = W + (nCase % 2 ? 32 : 0);
        // Two unrelated buffers: the luma plane's own chroma rows (which the
        // function must not read) differ from the separate chroma plane.
        const Frame yf(S, H, 1100 + nCase);
        const Frame cf(S, H, 1200 + nCase);
        const uint8_t* pUV = cf.Data() + size_t(S) * H;
        const size_t nSize = size_t(k.dstStride) * 4 * RectRows(k);
        GuardedBuffer out(nSize, (nCase % 4) * 4, 1300 + nCase);
        sp2yuvxs(out.Data(), k.dstStride, k.dstHeight, yf.Data(), pUV, S, -777, k.rx, k.ry, k.rw,
                 k.rh);
        const std::vector<uint8_t> want = RectExpected(out.Original(), nSize, yf, cf, k, true);
        ASSERT_EQ("", FirstDifference(out.Data(), want.data(), nSize, size_t(k.dstStride) * 4))
            << "stride " << S << ", " << Describe(k);
        ASSERT_EQ("", out.CheckGuards()) << Describe(k);
        ++nCase;
    }
}

TEST_P(ConvertFrame, RectangleWithoutHeightHasNoBottomPadding) {
    std::mt19937 rng(17);
    const int W = 192, H = 24;
    int nCase = 0;
    for (RectCase k : RectCases(W, H, rng)) {
        const Frame f(W, H, 1400 + nCase);
        // Room for three more rows than the pairs fill; they must stay as they were.
        const int nPairRows = 2 * std::max(k.rh / 2, 1);
        const size_t nSize = size_t(k.dstStride) * 4 * (nPairRows + 3);
        GuardedBuffer out(nSize, 0, 1500 + nCase);
        sp2yuvxs(out.Data(), k.dstStride, f.Data(), W, H, k.rx, k.ry, k.rw, k.rh);
        const std::vector<uint8_t> want = RectExpected(out.Original(), nSize, f, f, k, false);
        ASSERT_EQ("", FirstDifference(out.Data(), want.data(), nSize, size_t(k.dstStride) * 4))
            << Describe(k);
        ASSERT_EQ("", out.CheckGuards()) << Describe(k);
        ++nCase;
    }
}

// A large preview-sized frame, big enough for the streaming stores of the
// runtime path.
TEST_P(ConvertFrame, LargePreviewFrame) {
    const int W = 2048, H = 1600;
    const Frame f(W, H, 42);
    GuardedBuffer out(size_t(W) * H * 4, 0, 43);
    ASSERT_GE(out.Size(), kSP2YUVXStreamMinBytes);
    sp2yuvxs(out.Data(), W, H, f.Data(), W, H, 0, 0, W, H);
    for (int r = 0; r < H; ++r) {
        for (int c = 0; c < W; ++c) {
            uint8_t px[4];
            RefPixel(f, r, c, px);
            ASSERT_EQ(0, memcmp(out.Data() + (size_t(r) * W + c) * 4, px, 4))
                << "pixel (" << r << ", " << c << ")";
        }
    }
    EXPECT_EQ("", out.CheckGuards());
}

// The worked examples: a 32 x 2 frame with luma 0..63 and chroma pairs
// (10, 20), (11, 21), ...
TEST_P(ConvertFrame, WorkedExample32x2) {
    uint8_t src[32 * 3];
    for (int i = 0; i < 64; ++i) {
        src[i] = uint8_t(i);
    }
    for (int i = 0; i < 16; ++i) {
        src[64 + 2 * i] = uint8_t(10 + i);
        src[65 + 2 * i] = uint8_t(20 + i);
    }
    GuardedBuffer x(32 * 2 * 4, 0, 1);
    sp2yuvx(x.Data(), src, 32, 2);
    const uint8_t* p = x.Data();
    EXPECT_EQ(std::vector<uint8_t>({0, 10, 20, 255}), std::vector<uint8_t>(p, p + 4));
    EXPECT_EQ(std::vector<uint8_t>({1, 10, 20, 255}), std::vector<uint8_t>(p + 4, p + 8));
    EXPECT_EQ(std::vector<uint8_t>({32, 10, 20, 255}), std::vector<uint8_t>(p + 128, p + 132));
    EXPECT_EQ(std::vector<uint8_t>({2, 11, 21, 255}), std::vector<uint8_t>(p + 8, p + 12));
    EXPECT_EQ(std::vector<uint8_t>({63, 25, 35, 255}), std::vector<uint8_t>(p + 252, p + 256));
    EXPECT_EQ("", x.CheckGuards());

    GuardedBuffer y(32 * 2 * 3, 0, 2);
    sp2yuv(y.Data(), src, 32, 2);
    for (int r = 0; r < 2; ++r) {
        for (int c = 0; c < 32; ++c) {
            ASSERT_EQ(0, memcmp(y.Data() + (r * 32 + c) * 3, x.Data() + (r * 32 + c) * 4, 3))
                << "pixel (" << r << ", " << c << ")";
        }
    }
    EXPECT_EQ("", y.CheckGuards());
}

TEST_P(ConvertFrame, WorkedExamplePaddedRectangle) {
    // 16 x 2 frame: luma 100 + column + 16 x row, chroma pairs (50 + i, 70 + i).
    uint8_t src[16 * 3];
    for (int i = 0; i < 32; ++i) {
        src[i] = uint8_t(100 + i);
    }
    for (int i = 0; i < 8; ++i) {
        src[32 + 2 * i] = uint8_t(50 + i);
        src[33 + 2 * i] = uint8_t(70 + i);
    }
    GuardedBuffer out(48 * 4 * 4, 0, 3);
    sp2yuvxs(out.Data(), 48, 4, src, 16, 2, 0, 0, 16, 2);
    const uint8_t* p = out.Data();
    for (int r = 0; r < 4; ++r) {
        const int sr = std::min(r, 1);
        for (int c = 0; c < 48; ++c) {
            const int sc = std::min(c, 15);
            const uint8_t want[4] = {uint8_t(100 + 16 * sr + sc), uint8_t(50 + sc / 2),
                                     uint8_t(70 + sc / 2), 255};
            ASSERT_EQ(0, memcmp(p + (r * 48 + c) * 4, want, 4))
                << "pixel (" << r << ", " << c << ")";
        }
    }
    EXPECT_EQ("", out.CheckGuards());
}

// Unchecked fast-path rules: the callers keep the preconditions, and what
// happens outside them is fixed as well.

TEST_P(ConvertFrame, RectangleConvertsAtLeastOneGroup) {
    // rw 8 still converts 16 pixels of both rows; the padding that follows row
    // 0 (dstStride / 16 - rw / 16 = 1 group) lands on row 1's converted
    // pixels, and row 1's padding follows it.
    const Frame f(64, 4, 21);
    GuardedBuffer out(48 * 4, 0, 22);
    sp2yuvxs(out.Data(), 16, 2, f.Data(), 64, 4, 6, 1, 8, 2);
    for (int c = 0; c < 48; ++c) {
        const int r = c < 16 ? 0 : (c < 32 ? 0 : 1);
        const int sc = std::min(c, 15);
        const uint8_t want[4] = {f.Y(1 + r, 6 + sc), f.C(0, 6 + (sc & ~1), 0),
                                 f.C(0, 6 + (sc & ~1), 1), 255};
        ASSERT_EQ(0, memcmp(out.Data() + c * 4, want, 4)) << "pixel " << c;
    }
    EXPECT_EQ("", out.CheckGuards());
}

TEST_P(ConvertFrame, WholeFrameWidthOutsideGroupsShiftsLaterRows) {
    // Width 40: 32 pixels per row are converted. Pair 0 reads luma at 0 and
    // 40, chroma at 160, and writes pixels 0 and 40; pair 1 goes on where row
    // 1 ended: luma at 72 and 112, chroma at 192, pixels 72 and 112.
    const Frame f(40, 4, 31);
    const uint8_t* s = f.Data();
    auto check = [&](const GuardedBuffer& out, const int* pnOut, size_t nSize, int nPixelBytes) {
        const int yStart[4] = {0, 40, 72, 112};
        const int uvStart[4] = {160, 160, 192, 192};
        std::vector<uint8_t> want(out.Original(), out.Original() + nSize);
        for (int k = 0; k < 4; ++k) {
            for (int c = 0; c < 32; ++c) {
                uint8_t* px = want.data() + size_t(pnOut[k] + c) * nPixelBytes;
                px[0] = s[yStart[k] + c];
                px[1] = s[uvStart[k] + (c & ~1)];
                px[2] = s[uvStart[k] + (c & ~1) + 1];
                if (nPixelBytes == 4) {
                    px[3] = 255;
                }
            }
        }
        EXPECT_EQ("", FirstDifference(out.Data(), want.data(), nSize, nSize));
        EXPECT_EQ("", out.CheckGuards());
    };
    const int compact[4] = {0, 40, 72, 112};
    GuardedBuffer a(160 * 4, 0, 32);
    sp2yuvx(a.Data(), f.Data(), 40, 4);
    check(a, compact, 160 * 4, 4);
    GuardedBuffer b(160 * 3, 0, 33);
    sp2yuv(b.Data(), f.Data(), 40, 4);
    check(b, compact, 160 * 3, 3);
    // Output stride 48: after each pair the output moves 32 + 2 x 48 - 40
    // pixels on from the pair's start.
    const int strided[4] = {0, 48, 88, 136};
    GuardedBuffer c(176 * 4, 0, 34);
    sp2yuvx(c.Data(), 48, f.Data(), 40, 4);
    check(c, strided, 176 * 4, 4);
}

TEST_P(ConvertFrame, CropWidthOutsideGroupsShiftsLaterSourceRows) {
    // w 48: 32 pixels per row are converted. Pair 0 reads luma rows at 0 and
    // 64, chroma at 512; then luma moves 32 + 128 - 48 and chroma 32 + 64 - 48
    // on: pair 1 reads luma at 112 and 176, chroma at 560. The output pairs
    // start 2 x 48 pixels apart.
    const Frame f(64, 8, 41);
    const uint8_t* s = f.Data();
    GuardedBuffer out(48 * 4 * 4, 0, 42);
    sp2yuvx(out.Data(), f.Data(), 64, 8, 0, 0, 48, 4);
    const int yStart[4] = {0, 64, 112, 176};
    const int uvStart[4] = {512, 512, 560, 560};
    std::vector<uint8_t> want(out.Original(), out.Original() + out.Size());
    for (int k = 0; k < 4; ++k) {
        for (int c = 0; c < 32; ++c) {
            uint8_t* px = want.data() + size_t(48 * k + c) * 4;
            px[0] = s[yStart[k] + c];
            px[1] = s[uvStart[k] + (c & ~1)];
            px[2] = s[uvStart[k] + (c & ~1) + 1];
            px[3] = 255;
        }
    }
    EXPECT_EQ("", FirstDifference(out.Data(), want.data(), out.Size(), 48 * 4));
    EXPECT_EQ("", out.CheckGuards());
}

TEST_P(ConvertFrame, OddHeightLeavesTheLastRowUnconverted) {
    const Frame f(32, 5, 51);  // chroma plane at 32 x 5
    GuardedBuffer out(32 * 5 * 4, 0, 52);
    sp2yuvx(out.Data(), f.Data(), 32, 5);
    for (int r = 0; r < 4; ++r) {
        for (int c = 0; c < 32; ++c) {
            uint8_t px[4];
            RefPixel(f, r, c, px);
            ASSERT_EQ(0, memcmp(out.Data() + (r * 32 + c) * 4, px, 4))
                << "pixel (" << r << ", " << c << ")";
        }
    }
    EXPECT_EQ(0, memcmp(out.Data() + 4 * 32 * 4, out.Original() + 4 * 32 * 4, 32 * 4));
    EXPECT_EQ("", out.CheckGuards());
}

INSTANTIATE_TEST_SUITE_P(Paths, ConvertFrame,
                         ::testing::Values(Path::Runtime, Path::RuntimeStreaming, Path::Portable),
                         [](const ::testing::TestParamInfo<Path>& info) {
                             return PathName(info.param);
                         });
