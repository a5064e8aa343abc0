// Frame functions of the semi-planar converters against per-pixel references
// built from the layout rules, on the runtime-chosen row functions (with
// cached and with streaming stores) and on the portable ones. Every output
// buffer is poisoned and guarded: bytes a function must not write are
// checked as well as those it must.
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

std::string PathName(const ::testing::TestParamInfo<Path>& info) {
    const char* kNames[] = {"Runtime", "RuntimeStreaming", "Portable"};
    return kNames[int(info.param)];
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

// Empty when the buffer holds want and its guards are intact, otherwise the
// first difference (rows of nPitch bytes) or the first changed guard byte.
std::string Check(const GuardedBuffer& out, const std::vector<uint8_t>& want, size_t nPitch) {
    for (size_t i = 0; i < want.size(); ++i) {
        if (out.Data()[i] != want[i]) {
            return "byte " + std::to_string(i) + " (row " + std::to_string(i / nPitch) + ", byte " +
                   std::to_string(i % nPitch) + "): got " + std::to_string(out.Data()[i]) +
                   ", want " + std::to_string(want[i]);
        }
    }
    return out.CheckGuards();
}

// The buffer as it should be after the w x h pixels at (x, y) of f went into
// rows of nPitch bytes, nPixelBytes (3 or 4) per pixel: those pixels by the
// layout rules, every other byte as it was.
std::vector<uint8_t> Expected(const GuardedBuffer& out, size_t nPitch, int nPixelBytes,
                              const Frame& f, int x, int y, int w, int h) {
    std::vector<uint8_t> want(out.Original(), out.Original() + out.Size());
    for (int r = 0; r < h; ++r) {
        for (int c = 0; c < w; ++c) {
            uint8_t px[4];
            RefPixel(f, y + r, x + c, px);
            memcpy(&want[r * nPitch + size_t(c) * nPixelBytes], px, size_t(nPixelBytes));
        }
    }
    return want;
}

// Expected output of sp2yuvxs: rows of dstStride pixels; the first 2 x pairs
// rows hold the converted pixels of the rectangle, extended to the right by
// the last converted pixel of the row; the rows after that, up to dstHeight,
// repeat the last of them byte for byte (bBottom). Bytes not named keep their
// original content. Luma row r of the rectangle is row ry + r of yf, its
// chroma row is ry / 2 + r / 2 of cf's chroma plane.
struct RectCase {
    int dstStride, dstHeight, rx, ry, rw, rh;
};

std::vector<uint8_t> RectExpected(const GuardedBuffer& out, const Frame& yf, const Frame& cf,
                                  const RectCase& k, bool bBottom) {
    std::vector<uint8_t> want(out.Original(), out.Original() + out.Size());
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
    for (int r = 2 * nPairs; bBottom && r < k.dstHeight; ++r) {
        memcpy(want.data() + r * nPitch, want.data() + (2 * nPairs - 1) * nPitch, nPitch);
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

// The buffer as it should be after four rows of 32 pixels each were
// converted from luma at byte anY[k] and chroma at byte anUV[k] of src and
// written at pixel anOut[k], nPixelBytes per pixel; every other byte as it
// was.
std::vector<uint8_t> Shifted(const GuardedBuffer& out, const uint8_t* src, const int anY[4],
                             const int anUV[4], const int anOut[4], int nPixelBytes) {
    std::vector<uint8_t> want(out.Original(), out.Original() + out.Size());
    for (int k = 0; k < 4; ++k) {
        for (int c = 0; c < 32; ++c) {
            const uint8_t px[4] = {src[anY[k] + c], src[anUV[k] + (c & ~1)],
                                   src[anUV[k] + (c & ~1) + 1], 0xFF};
            memcpy(&want[size_t(anOut[k] + c) * nPixelBytes], px, size_t(nPixelBytes));
        }
    }
    return want;
}

}  // namespace

// sp2yuvx and sp2yuv over widths of 1 to 120 groups of 16 pixels; the
// strided sp2yuvx with output rows 0 to w pixels longer than the picture,
// whose tails it must leave untouched.
TEST_P(ConvertFrame, WholeFramesFollowTheLayout) {
    const int sizes[][2] = {{16, 2},   {32, 2},  {48, 4},   {64, 6},   {80, 10},    {96, 4},
                            {112, 10}, {176, 8}, {320, 36}, {640, 48}, {1920, 1080}};
    int nCase = 0;
    for (const auto& s : sizes) {
        const int w = s[0], h = s[1];
        const Frame f(w, h, 100 + nCase);
        GuardedBuffer x(size_t(w) * h * 4, (nCase % 4) * 4, 200 + nCase);
        sp2yuvx(x.Data(), f.Data(), w, h);
        ASSERT_EQ("", Check(x, Expected(x, w * 4u, 4, f, 0, 0, w, h), w * 4u))
            << "sp2yuvx " << w << "x" << h;
        GuardedBuffer y(size_t(w) * h * 3, nCase % 3, 300 + nCase);
        sp2yuv(y.Data(), f.Data(), w, h);
        ASSERT_EQ("", Check(y, Expected(y, w * 3u, 3, f, 0, 0, w, h), w * 3u))
            << "sp2yuv " << w << "x" << h;
        const std::vector<int> extras =
            w <= 320 ? std::vector<int>{0, 1, 3, 16, 37, w} : std::vector<int>{5};
        for (int nExtra : extras) {
            const size_t nPitch = size_t(w + nExtra) * 4;
            GuardedBuffer out(nPitch * h, (nCase % 3) * 4, 400 + nCase);
            sp2yuvx(out.Data(), w + nExtra, f.Data(), w, h);
            ASSERT_EQ("", Check(out, Expected(out, nPitch, 4, f, 0, 0, w, h), nPitch))
                << "sp2yuvx " << w << "x" << h << " into rows of " << w + nExtra;
        }
        ++nCase;
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
        ASSERT_EQ("", Check(out, Expected(out, w * 4u, 4, f, x, y, w, h), w * 4u))
            << "frame " << W << "x" << H << " stride " << S << " rect (" << x << ", " << y << ", "
            << w << ", " << h << ")";
    }
}

// The three forms of sp2yuvxs on the same rectangles: padded down to
// dstHeight, with the chroma plane by its own pointer (the luma plane's own
// chroma rows, which it must not read, differ from it; srcHeight is not
// used), and without a destination height (three rows of room past the row
// pairs stay as they were).
TEST_P(ConvertFrame, RectanglesPadByEdgeReplication) {
    std::mt19937 rng(11);
    int nCase = 0;
    const int sizes[][2] = {{64, 16}, {176, 30}, {192, 24}, {256, 40}, {320, 64}};
    for (const auto& size : sizes) {
        const int W = size[0], H = size[1];
        for (const RectCase& k : RectCases(W, H, rng)) {
            const int S = W + (nCase % 3 == 1 ? 10 : (nCase % 3 == 2 ? 32 : 0));
            const Frame f(S, H, 900 + nCase);
            const Frame g(S, H, 1100 + nCase);
            const size_t nPitch = size_t(k.dstStride) * 4;
            const int nPairRows = 2 * std::max(k.rh / 2, 1);
            const size_t nRows = size_t(std::max(k.dstHeight, nPairRows));
            const std::string what = "frame " + std::to_string(W) + "x" + std::to_string(H) +
                                     " stride " + std::to_string(S) + ", " + Describe(k);

            GuardedBuffer a(nPitch * nRows, (nCase % 4) * 4, 1000 + nCase);
            sp2yuvxs(a.Data(), k.dstStride, k.dstHeight, f.Data(), S, H, k.rx, k.ry, k.rw, k.rh);
            ASSERT_EQ("", Check(a, RectExpected(a, f, f, k, true), nPitch)) << what;

            GuardedBuffer b(nPitch * nRows, (nCase % 4) * 4, 1300 + nCase);
            sp2yuvxs(b.Data(), k.dstStride, k.dstHeight, f.Data(), g.Data() + size_t(S) * H, S,
                     -777, k.rx, k.ry, k.rw, k.rh);
            ASSERT_EQ("", Check(b, RectExpected(b, f, g, k, true), nPitch))
                << "separate chroma, " << what;

            GuardedBuffer c(nPitch * (nPairRows + 3), 0, 1500 + nCase);
            sp2yuvxs(c.Data(), k.dstStride, f.Data(), S, H, k.rx, k.ry, k.rw, k.rh);
            ASSERT_EQ("", Check(c, RectExpected(c, f, f, k, false), nPitch))
                << "no destination height, " << what;
            ++nCase;
        }
    }
}

// sp2yuvxs_any on rectangles of any size: every pixel of the rectangle
// converted, the padding repeating its true last column and row, nothing
// written past dstStride x max(rh, dstHeight) rows.
TEST_P(ConvertFrame, AnyRectangleIsConvertedExactly) {
    std::mt19937 rng(17);
    const int W = 96, H = 40;
    const Frame f(W + 8, H, 77);
    const Frame g(W + 8, H, 78);  // a separate chroma plane
    for (int nCase = 0; nCase < 60; ++nCase) {
        RectCase k;
        k.rw = nCase < 4 ? 16 * (nCase + 1) : 1 + int(rng() % W);  // whole groups, then any
        k.rh = nCase % 5 == 0 ? 1 : 1 + int(rng() % H);
        k.rx = 2 * int(rng() % ((W - k.rw) / 2 + 1));
        k.ry = 2 * int(rng() % ((H - k.rh) / 2 + 1));
        k.dstStride = k.rw + int(rng() % 40);
        k.dstHeight = int(rng() % (H + 8));
        const size_t nPitch = size_t(k.dstStride) * 4;
        const int nRows = std::max(k.rh, k.dstHeight);
        GuardedBuffer out(nPitch * nRows, (nCase % 4) * 4, 2000 + nCase);
        sp2yuvxs_any(out.Data(), k.dstStride, k.dstHeight, f.Data(),
                     g.Data() + size_t(f.nStride) * H, f.nStride, H, k.rx, k.ry, k.rw, k.rh);
        std::vector<uint8_t> want(out.Size());
        for (int r = 0; r < nRows; ++r) {
            const int sr = std::min(r, k.rh - 1);
            for (int c = 0; c < k.dstStride; ++c) {
                const int sc = k.rx + std::min(c, k.rw - 1);
                uint8_t* px = want.data() + r * nPitch + size_t(c) * 4;
                px[0] = f.Y(k.ry + sr, sc);
                px[1] = g.C(k.ry / 2 + sr / 2, sc & ~1, 0);
                px[2] = g.C(k.ry / 2 + sr / 2, sc & ~1, 1);
                px[3] = 0xFF;
            }
        }
        ASSERT_EQ("", Check(out, want, nPitch)) << Describe(k);
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
    EXPECT_EQ("", Check(out, Expected(out, W * 4u, 4, f, 0, 0, W, H), W * 4u));
}

// The worked examples: a 32 x 2 frame with luma 0..63 and chroma pairs
// (10, 20), (11, 21), ...; a 16 x 2 frame with luma 100 + column + 16 x row
// and chroma pairs (50 + i, 70 + i) padded to 48 x 4.
TEST_P(ConvertFrame, WorkedExamples) {
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
    const struct {
        int nPixel;
        uint8_t px[4];
    } kPixels[] = {{0, {0, 10, 20, 255}},
                   {1, {1, 10, 20, 255}},
                   {2, {2, 11, 21, 255}},
                   {32, {32, 10, 20, 255}},
                   {63, {63, 25, 35, 255}}};
    for (const auto& k : kPixels) {
        EXPECT_EQ(0, memcmp(x.Data() + k.nPixel * 4, k.px, 4)) << "pixel " << k.nPixel;
    }
    EXPECT_EQ("", x.CheckGuards());
    GuardedBuffer y(32 * 2 * 3, 0, 2);
    sp2yuv(y.Data(), src, 32, 2);
    for (int i = 0; i < 64; ++i) {
        ASSERT_EQ(0, memcmp(y.Data() + i * 3, x.Data() + i * 4, 3)) << "pixel " << i;
    }
    EXPECT_EQ("", y.CheckGuards());

    for (int i = 0; i < 32; ++i) {
        src[i] = uint8_t(100 + i);
    }
    for (int i = 0; i < 8; ++i) {
        src[32 + 2 * i] = uint8_t(50 + i);
        src[33 + 2 * i] = uint8_t(70 + i);
    }
    GuardedBuffer out(48 * 4 * 4, 0, 3);
    sp2yuvxs(out.Data(), 48, 4, src, 16, 2, 0, 0, 16, 2);
    for (int r = 0; r < 4; ++r) {
        const int sr = std::min(r, 1);
        for (int c = 0; c < 48; ++c) {
            const int sc = std::min(c, 15);
            const uint8_t want[4] = {uint8_t(100 + 16 * sr + sc), uint8_t(50 + sc / 2),
                                     uint8_t(70 + sc / 2), 255};
            ASSERT_EQ(0, memcmp(out.Data() + (r * 48 + c) * 4, want, 4))
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
        const int r = c < 32 ? 0 : 1;
        const int sc = std::min(c, 15);
        const uint8_t want[4] = {f.Y(1 + r, 6 + sc), f.C(0, 6 + (sc & ~1), 0),
                                 f.C(0, 6 + (sc & ~1), 1), 255};
        ASSERT_EQ(0, memcmp(out.Data() + c * 4, want, 4)) << "pixel " << c;
    }
    EXPECT_EQ("", out.CheckGuards());
}

TEST_P(ConvertFrame, WidthOutsideGroupsShiftsLaterRows) {
    // Whole frame of width 40: 32 pixels per row are converted. Pair 0 reads
    // luma at 0 and 40, chroma at 160, and writes pixels 0 and 40; pair 1
    // goes on where row 1 ended: luma at 72 and 112, chroma at 192, pixels 72
    // and 112.
    const Frame f(40, 4, 31);
    const int anY[4] = {0, 40, 72, 112};
    const int anUV[4] = {160, 160, 192, 192};
    GuardedBuffer a(160 * 4, 0, 32);
    sp2yuvx(a.Data(), f.Data(), 40, 4);
    EXPECT_EQ("", Check(a, Shifted(a, f.Data(), anY, anUV, anY, 4), a.Size())) << "sp2yuvx";
    GuardedBuffer b(160 * 3, 0, 33);
    sp2yuv(b.Data(), f.Data(), 40, 4);
    EXPECT_EQ("", Check(b, Shifted(b, f.Data(), anY, anUV, anY, 3), b.Size())) << "sp2yuv";
    // Output stride 48: after each pair the output moves 32 + 2 x 48 - 40
    // pixels on from the pair's start.
    const int anStrided[4] = {0, 48, 88, 136};
    GuardedBuffer c(176 * 4, 0, 34);
    sp2yuvx(c.Data(), 48, f.Data(), 40, 4);
    EXPECT_EQ("", Check(c, Shifted(c, f.Data(), anY, anUV, anStrided, 4), c.Size()))
        << "strided sp2yuvx";

    // Crop of w 48 from a 64 x 8 frame: 32 pixels per row are converted.
    // Pair 0 reads luma rows at 0 and 64, chroma at 512; then luma moves
    // 32 + 128 - 48 and chroma 32 + 64 - 48 on: pair 1 reads luma at 112 and
    // 176, chroma at 560. The output pairs start 2 x 48 pixels apart.
    const Frame g(64, 8, 41);
    const int anCropY[4] = {0, 64, 112, 176};
    const int anCropUV[4] = {512, 512, 560, 560};
    const int anCropOut[4] = {0, 48, 96, 144};
    GuardedBuffer d(48 * 4 * 4, 0, 42);
    sp2yuvx(d.Data(), g.Data(), 64, 8, 0, 0, 48, 4);
    EXPECT_EQ("", Check(d, Shifted(d, g.Data(), anCropY, anCropUV, anCropOut, 4), 48 * 4))
        << "crop";
}

TEST_P(ConvertFrame, OddHeightLeavesTheLastRowUnconverted) {
    const Frame f(32, 5, 51);  // chroma plane at 32 x 5
    GuardedBuffer out(32 * 5 * 4, 0, 52);
    sp2yuvx(out.Data(), f.Data(), 32, 5);
    EXPECT_EQ("", Check(out, Expected(out, 32 * 4, 4, f, 0, 0, 32, 4), 32 * 4));
}

INSTANTIATE_TEST_SUITE_P(Paths, ConvertFrame,
                         ::testing::Values(Path::Runtime, Path::RuntimeStreaming, Path::Portable),
                         PathName);
