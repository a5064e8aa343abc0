// The CPU semi-planar converters: every SIMD row function against its
// portable twin on random data, every frame function against per-pixel
// references from the layout rules on the runtime-chosen row functions
// (cached and streaming stores) and the portable ones, into poisoned,
// guarded outputs. Links the converters and GoogleTest only, so that it
// builds for every target CPU.
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sp2yuvx.h"
#include "sp2yuvx_row.h"

namespace {

void FillRandom(uint8_t* p, size_t n, std::mt19937& rng) {
    for (size_t i = 0; i < n; ++i) {
        p[i] = static_cast<uint8_t>(rng() >> 24);
    }
}

// nSize bytes at nMisalign bytes past a 64-byte boundary, with 256 guard
// bytes on each side, all random poison at first (Original()).
class GuardedBuffer {
public:
    static constexpr size_t kGuard = 256;
    GuardedBuffer(size_t nSize, size_t nMisalign, uint32_t nSeed)
        : m_nSize(nSize), m_vStorage(nSize + 2 * kGuard + 128) {
        const uintptr_t base = reinterpret_cast<uintptr_t>(m_vStorage.data()) + kGuard;
        m_nStart = ((base + 63) & ~uintptr_t(63)) - reinterpret_cast<uintptr_t>(m_vStorage.data()) +
                   nMisalign;
        std::mt19937 rng(nSeed);
        FillRandom(m_vStorage.data(), m_vStorage.size(), rng);
        m_vOriginal = m_vStorage;
    }
    uint8_t* Data() { return m_vStorage.data() + m_nStart; }
    size_t Size() const { return m_nSize; }
    std::vector<uint8_t> Original() const {
        return {m_vOriginal.begin() + m_nStart, m_vOriginal.begin() + m_nStart + m_nSize};
    }
    // Empty when the buffer holds `want` and the guards are intact, else the
    // first difference.
    std::string Check(const std::vector<uint8_t>& want) const {
        for (size_t i = 0; i < m_vStorage.size(); ++i) {
            const bool inside = i >= m_nStart && i < m_nStart + m_nSize;
            const uint8_t w = inside ? want[i - m_nStart] : m_vOriginal[i];
            if (m_vStorage[i] != w) {
                return (inside ? "byte " : "guard byte at ") +
                       std::to_string((long)i - (long)m_nStart) + ": got " +
                       std::to_string(m_vStorage[i]) + ", want " + std::to_string(w);
            }
        }
        return "";
    }

private:
    size_t m_nSize, m_nStart;
    std::vector<uint8_t> m_vStorage, m_vOriginal;
};

// A semi-planar frame: nHeight luma rows of nStride bytes, then nHeight / 2
// chroma rows of nStride bytes, random.
struct Frame {
    Frame(int stride, int height, uint32_t nSeed)
        : nStride(stride), nHeight(height), vData(size_t(stride) * (height + height / 2)) {
        std::mt19937 rng(nSeed);
        FillRandom(vData.data(), vData.size(), rng);
    }
    const uint8_t* Data() const { return vData.data(); }
    const uint8_t* Chroma() const { return vData.data() + size_t(nStride) * nHeight; }
    uint8_t Y(int r, int c) const { return vData[size_t(r) * nStride + c]; }
    // The "yuvx" pixel (r, c): luma, the pair of its 2 x 2 block (from
    // `cf`'s chroma row `cr`, by default r / 2), 0xFF.
    void Pixel(int r, int c, const Frame& cf, uint8_t* px, int cr = -1) const {
        const uint8_t* pair = cf.Chroma() + size_t(cr < 0 ? r / 2 : cr) * nStride + (c & ~1);
        px[0] = Y(r, c);
        px[1] = pair[0];
        px[2] = pair[1];
        px[3] = 0xFF;
    }
    int nStride, nHeight;
    std::vector<uint8_t> vData;
};

std::string VariantNames() {
    const SP2YUVXRowVariant* pList = nullptr;
    const int n = SP2YUVXSimdRowVariants(&pList);
    std::string s;
    for (int i = 0; i < n; ++i) {
        s += (i ? " " : "") + std::string(pList[i].pszName);
    }
    return s;
}

}  // namespace

// Each SIMD row function against its portable twin over widths of 16 to
// 4096, sources ending where their allocation ends, outputs at odd offsets
// (stream variants: aligned), the two output rows apart and adjacent.
TEST(ConvertSimdRows, EachMatchesItsPortableTwin) {
    const SP2YUVXRowVariant* pList = nullptr;
    const int nVariants = SP2YUVXSimdRowVariants(&pList);
    printf("[ variants ] %s\n", nVariants ? VariantNames().c_str() : "(none on this CPU)");
    std::vector<int> widths;
    for (int w = 16; w <= 1024; w += 16) {
        widths.push_back(w);
    }
    widths.insert(widths.end(), {1280, 1920, 2048, 4000, 4096});
    std::mt19937 rng(7);
    for (int i = 0; i < nVariants; ++i) {
        const SP2YUVXRowVariant& v = pList[i];
        SCOPED_TRACE(v.pszName);
        const int bpp = v.eKind == SP2YUVX_ROW_YUV2 ? 3 : 4;
        const SPRow2Func twin = v.eKind == SP2YUVX_ROW_YUV2 ? SPToYUVRow2_C : SPToYUVXRow2_C;
        for (int width : widths) {
            const size_t nOff = rng() % 16;
            const size_t nDstOff = v.eKind == SP2YUVX_ROW_YUVX2_STREAM ? 0 : rng() % 16;
            std::vector<uint8_t> src(nOff + 3 * size_t(width));
            FillRandom(src.data(), src.size(), rng);
            // Three rows, each ending where the vector ends when it is last.
            std::vector<uint8_t> y0(src.begin(), src.begin() + nOff + width);
            std::vector<uint8_t> y1(src.begin() + width, src.begin() + nOff + 2 * width);
            std::vector<uint8_t> uv(src.begin() + 2 * width, src.end());
            const size_t nOut = size_t(width) * bpp;
            for (bool bAdjacent : {false, true}) {
                const uint32_t nSeed = rng();
                GuardedBuffer got(2 * nOut, nDstOff, nSeed), got1(nOut, nDstOff, nSeed + 1);
                std::vector<uint8_t> want = got.Original(), want1 = got1.Original();
                if (v.eKind == SP2YUVX_ROW_YUVX_FILL) {
                    v.pfnFill(got.Data(), nSeed, width);
                    YUVXFillRow_C(want.data(), nSeed, width);
                } else {
                    v.pfnRow2(y0.data() + nOff, y1.data() + nOff, uv.data() + nOff, got.Data(),
                              bAdjacent ? got.Data() + nOut : got1.Data(), width);
                    twin(y0.data() + nOff, y1.data() + nOff, uv.data() + nOff, want.data(),
                         bAdjacent ? want.data() + nOut : want1.data(), width);
                }
                ASSERT_EQ("", got.Check(want) + got1.Check(want1))
                    << "width " << width << (bAdjacent ? ", adjacent rows" : "");
            }
        }
    }
}

// The frame functions run on the SIMD set of this CPU (every row function
// of it listed), or on the portable one while it is forced.
TEST(ConvertActiveRows, RuntimePathFitsThisCpuAndPortableCanBeForced) {
    const SP2YUVXRowSet& simd = SP2YUVXActiveRows();
    printf("[   path   ] frame functions use the %s row functions\n", simd.pszName);
#if defined(__x86_64__)
    __builtin_cpu_init();
    const bool ssse3 = __builtin_cpu_supports("ssse3");
    EXPECT_STREQ(ssse3 ? "SSE2+SSSE3" : "SSE2", simd.pszName);
    EXPECT_TRUE(simd.pfnYUVXRow2 == &SPToYUVXRow2_SSE2 &&
                simd.pfnYUVXRow2Stream == &SPToYUVXRow2Stream_SSE2 &&
                simd.pfnYUVXFill == &YUVXFillRow_SSE2 &&
                simd.pfnYUVRow2 == (ssse3 ? &SPToYUVRow2_SSSE3 : &SPToYUVRow2_C));
    EXPECT_EQ(std::string("SPToYUVXRow2_SSE2 SPToYUVXRow2Stream_SSE2 YUVXFillRow_SSE2") +
                  (ssse3 ? " SPToYUVRow2_SSSE3" : ""),
              VariantNames());
#elif defined(__aarch64__)
    EXPECT_STREQ("NEON", simd.pszName);
    EXPECT_EQ("SPToYUVXRow2_NEON SPToYUVRow2_NEON YUVXFillRow_NEON", VariantNames());
#endif
    SP2YUVXForcePortable(true);
    const SP2YUVXRowSet& portable = SP2YUVXActiveRows();
    SP2YUVXForcePortable(false);
    EXPECT_TRUE(portable.pfnYUVXRow2 == &SPToYUVXRow2_C &&
                portable.pfnYUVXRow2Stream == &SPToYUVXRow2_C &&
                portable.pfnYUVRow2 == &SPToYUVRow2_C && portable.pfnYUVXFill == &YUVXFillRow_C);
    EXPECT_STREQ(simd.pszName, SP2YUVXActiveRows().pszName);
}

namespace {

enum class Path { Runtime, RuntimeStreaming, Portable };

class ConvertFrame : public ::testing::TestWithParam<Path> {
protected:
    void SetUp() override {
        SP2YUVXForcePortable(GetParam() == Path::Portable);
        SP2YUVXSetStoreMode(GetParam() == Path::RuntimeStreaming ? SP2YUVX_STORE_STREAMING
                                                                 : SP2YUVX_STORE_AUTO);
    }
    void TearDown() override {
        SP2YUVXForcePortable(false);
        SP2YUVXSetStoreMode(SP2YUVX_STORE_AUTO);
    }
};

// The buffer after the w x h pixels at (x, y) of f went into rows of nPitch
// bytes, bpp (3 or 4) per pixel: those pixels by the rules, the rest as it was.
std::vector<uint8_t> Expected(const GuardedBuffer& out, size_t nPitch, int bpp, const Frame& f,
                              int x, int y, int w, int h) {
    std::vector<uint8_t> want = out.Original();
    for (int r = 0; r < h; ++r) {
        for (int c = 0; c < w; ++c) {
            uint8_t px[4];
            f.Pixel(y + r, x + c, f, px);
            memcpy(&want[r * nPitch + size_t(c) * bpp], px, size_t(bpp));
        }
    }
    return want;
}

}  // namespace

// sp2yuvx and sp2yuv over widths of 1 to 120 groups of 16 pixels; the
// strided sp2yuvx into rows 0 to w pixels longer, whose tails it leaves; the
// crop form on rectangles of whole groups of 32 from frames with wider rows.
TEST_P(ConvertFrame, WholeFramesAndCropsFollowTheLayout) {
    const int sizes[][2] = {{16, 2},   {32, 2},  {48, 4},   {64, 6},   {80, 10},    {96, 4},
                            {112, 10}, {176, 8}, {320, 36}, {640, 48}, {1920, 1080}};
    int n = 0;
    for (const auto& s : sizes) {
        const int w = s[0], h = s[1];
        const Frame f(w, h, 100 + n);
        for (int extra :
             w <= 320 ? std::vector<int>{-1, 0, 1, 3, 16, 37, w} : std::vector<int>{-1, 5}) {
            const size_t nPitch = size_t(w + std::max(extra, 0)) * 4;
            GuardedBuffer out(nPitch * h, (n % 4) * 4, 200 + n);
            if (extra < 0) {
                sp2yuvx(out.Data(), f.Data(), w, h);
            } else {
                sp2yuvx(out.Data(), w + extra, f.Data(), w, h);
            }
            ASSERT_EQ("", out.Check(Expected(out, nPitch, 4, f, 0, 0, w, h)))
                << "sp2yuvx " << w << "x" << h << " into rows of " << w + extra;
        }
        GuardedBuffer y(size_t(w) * h * 3, n % 3, 300 + n);
        sp2yuv(y.Data(), f.Data(), w, h);
        ASSERT_EQ("", y.Check(Expected(y, w * 3u, 3, f, 0, 0, w, h))) << "sp2yuv " << w;
        ++n;
    }
    std::mt19937 rng(5);
    for (int k = 0; k < 30; ++k) {
        const int W = 32 * (1 + int(rng() % 12)), H = 2 * (1 + int(rng() % 20));
        const int S = W + (k % 2 ? int(rng() % 40) : 0);
        const Frame f(S, H, 500 + k);
        const int w = 32 * (1 + int(rng() % (W / 32))), x = 2 * int(rng() % ((W - w) / 2 + 1));
        const int h = 2 * (1 + int(rng() % (H / 2))), y = 2 * int(rng() % ((H - h) / 2 + 1));
        GuardedBuffer out(size_t(w) * h * 4, (k % 4) * 4, 600 + k);
        sp2yuvx(out.Data(), f.Data(), S, H, x, y, w, h);
        ASSERT_EQ("", out.Check(Expected(out, w * 4u, 4, f, x, y, w, h)))
            << "crop (" << x << ", " << y << ", " << w << ", " << h << ") of stride " << S;
    }
}

// The three forms of sp2yuvxs on rectangles of whole groups: the pixels of
// the rectangle's row pairs (at least one), each row padded by its last pixel
// in whole groups up to dstStride, the rows after them up to dstHeight
// repeating the last byte for byte;
// with the chroma plane by its own pointer (the luma frame's own chroma
// differs; srcHeight unused), and without a destination height (no bottom
// padding: the room past the row pairs stays).
TEST_P(ConvertFrame, RectanglesPadByEdgeReplication) {
    std::mt19937 rng(11);
    int n = 0;
    for (const auto& size : {std::make_pair(64, 16), {176, 30}, {256, 40}}) {
        const int W = size.first, H = size.second;
        for (int i = 0; i < 40; ++i, ++n) {
            const int rw = i == 0 ? W : 16 * (1 + int(rng() % (W / 16)));
            const int rh = i == 0 ? H : int(rng() % (H + 1));
            const int rx = 2 * int(rng() % ((W - rw) / 2 + 1));
            const int nPairs = std::max(rh / 2, 1);
            const int ry = int(rng() % (H - 2 * nPairs + 1));
            const int dstStride = rw + int(rng() % 3 == 0 ? 0 : rng() % 70);
            const int dstHeight = std::max(0, rh + int(rng() % 9) - 3);
            const int S = W + (n % 3) * 16;
            const Frame f(S, H, 900 + n), g(S, H, 1100 + n);
            const size_t nPitch = size_t(dstStride) * 4;
            const int nRows = std::max(dstHeight, 2 * nPairs);
            for (int form = 0; form < 3; ++form) {
                const Frame& cf = form == 1 ? g : f;
                GuardedBuffer out(nPitch * (nRows + (form == 2 ? 3 : 0)), (n % 4) * 4, 1000 + n);
                if (form == 0) {
                    sp2yuvxs(out.Data(), dstStride, dstHeight, f.Data(), S, H, rx, ry, rw, rh);
                } else if (form == 1) {
                    sp2yuvxs(out.Data(), dstStride, dstHeight, f.Data(), g.Chroma(), S, -777, rx,
                             ry, rw, rh);
                } else {
                    sp2yuvxs(out.Data(), dstStride, f.Data(), S, H, rx, ry, rw, rh);
                }
                std::vector<uint8_t> want = out.Original();
                for (int r = 0; r < 2 * nPairs; ++r) {
                    for (int c = 0; c < rw + std::max(dstStride / 16 - rw / 16, 0) * 16; ++c) {
                        f.Pixel(ry + r, rx + std::min(c, rw - 1), cf, &want[r * nPitch + c * 4],
                                ry / 2 + r / 2);  // odd ry too
                    }
                }
                for (int r = 2 * nPairs; form != 2 && r < nRows; ++r) {
                    memcpy(&want[r * nPitch], &want[(2 * nPairs - 1) * nPitch], nPitch);
                }
                ASSERT_EQ("", out.Check(want))
                    << "form " << form << ", rect (" << rx << ", " << ry << ", " << rw << ", " << rh
                    << ") into " << dstStride << " x " << dstHeight;
            }
        }
    }
}

// sp2yuvxs_any on rectangles of any size: every pixel of the rectangle, the
// padding repeating its true last column and row, nothing written past
// dstStride x max(rh, dstHeight) rows.
TEST_P(ConvertFrame, AnyRectangleIsConvertedExactly) {
    std::mt19937 rng(17);
    const int W = 96, H = 40;
    const Frame f(W + 8, H, 77), g(W + 8, H, 78);  // g: a separate chroma plane
    for (int k = 0; k < 60; ++k) {
        const int rw = k < 4 ? 16 * (k + 1) : 1 + int(rng() % W);  // whole groups, then any
        const int rh = k % 5 == 0 ? 1 : 1 + int(rng() % H);
        const int rx = 2 * int(rng() % ((W - rw) / 2 + 1)),
                  ry = 2 * int(rng() % ((H - rh) / 2 + 1));
        const int dstStride = rw + int(rng() % 40), dstHeight = int(rng() % (H + 8));
        const size_t nPitch = size_t(dstStride) * 4;
        const int nRows = std::max(rh, dstHeight);
        GuardedBuffer out(nPitch * nRows, (k % 4) * 4, 2000 + k);
        sp2yuvxs_any(out.Data(), dstStride, dstHeight, f.Data(), g.Chroma(), f.nStride, H, rx, ry,
                     rw, rh);
        std::vector<uint8_t> want(out.Size());
        for (int r = 0; r < nRows; ++r) {
            for (int c = 0; c < dstStride; ++c) {
                f.Pixel(ry + std::min(r, rh - 1), rx + std::min(c, rw - 1), g,
                        &want[r * nPitch + c * 4]);
            }
        }
        ASSERT_EQ("", out.Check(want)) << "rect (" << rx << ", " << ry << ", " << rw << ", " << rh
                                       << ") into " << dstStride << " x " << dstHeight;
    }
}

std::string PathName(const ::testing::TestParamInfo<Path>& info) {
    return info.param == Path::Runtime    ? "Runtime"
           : info.param == Path::Portable ? "Portable"
                                          : "RuntimeStreaming";
}

INSTANTIATE_TEST_SUITE_P(Paths, ConvertFrame,
                         ::testing::Values(Path::Runtime, Path::RuntimeStreaming, Path::Portable),
                         PathName);
