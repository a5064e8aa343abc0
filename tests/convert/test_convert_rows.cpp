// Row functions of the semi-planar converters: the portable ones against the
// layout rules, every SIMD one against its portable twin.
#include <stdio.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ConvertTestUtil.h"
#include "sp2yuvx_row.h"

using convtest::FillRandom;
using convtest::GuardedBuffer;

namespace {

// Source rows of exactly width bytes at an offset from their allocation, so
// that an over-read runs off the end of the heap block.
struct SourceRows {
    SourceRows(int width, size_t nOffset, std::mt19937& rng)
        : y0(nOffset + width), y1(nOffset + width), uv(nOffset + width), n(nOffset) {
        FillRandom(y0.data(), y0.size(), rng);
        FillRandom(y1.data(), y1.size(), rng);
        FillRandom(uv.data(), uv.size(), rng);
    }
    const uint8_t* Y0() const { return y0.data() + n; }
    const uint8_t* Y1() const { return y1.data() + n; }
    const uint8_t* UV() const { return uv.data() + n; }
    std::vector<uint8_t> y0, y1, uv;
    size_t n;
};

std::vector<int> SimdWidths() {
    std::vector<int> v;
    for (int w = 16; w <= 1024; w += 16) {
        v.push_back(w);
    }
    for (int w : {1280, 1920, 2048, 4000, 4096}) {
        v.push_back(w);
    }
    return v;
}

SPRow2Func PortableTwin(SP2YUVXRowKind eKind) {
    return eKind == SP2YUVX_ROW_YUV2 ? SPToYUVRow2_C : SPToYUVXRow2_C;
}

int PixelBytes(SP2YUVXRowKind eKind) {
    return eKind == SP2YUVX_ROW_YUV2 ? 3 : 4;
}

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

TEST(ConvertPortableRows, FollowTheLayoutRules) {
    std::mt19937 rng(1);
    for (int width = 2; width <= 66; width += 2) {
        SourceRows src(width, 0, rng);
        for (int bpp : {4, 3}) {
            GuardedBuffer d0(size_t(width) * bpp, 0, 11), d1(size_t(width) * bpp, 0, 12);
            (bpp == 4 ? SPToYUVXRow2_C : SPToYUVRow2_C)(src.Y0(), src.Y1(), src.UV(), d0.Data(),
                                                        d1.Data(), width);
            for (int c = 0; c < width; ++c) {
                const int pair = c & ~1;
                const uint8_t e0[4] = {src.Y0()[c], src.UV()[pair], src.UV()[pair + 1], 0xFF};
                const uint8_t e1[4] = {src.Y1()[c], src.UV()[pair], src.UV()[pair + 1], 0xFF};
                ASSERT_EQ(0, memcmp(d0.Data() + c * bpp, e0, bpp))
                    << "row 0, bpp " << bpp << ", width " << width << ", pixel " << c;
                ASSERT_EQ(0, memcmp(d1.Data() + c * bpp, e1, bpp))
                    << "row 1, bpp " << bpp << ", width " << width << ", pixel " << c;
            }
            EXPECT_EQ("", d0.CheckGuards());
            EXPECT_EQ("", d1.CheckGuards());
        }
    }
}

TEST(ConvertPortableRows, FillRepeatsThePixelBytesInMemoryOrder) {
    const uint8_t px[4] = {0x12, 0x34, 0x56, 0xFF};
    uint32_t nPixel;
    memcpy(&nPixel, px, 4);
    for (int width : {1, 5, 16, 48}) {
        GuardedBuffer d(size_t(width) * 4, 0, 3);
        YUVXFillRow_C(d.Data(), nPixel, width);
        for (int c = 0; c < width; ++c) {
            ASSERT_EQ(0, memcmp(d.Data() + c * 4, px, 4)) << "width " << width << ", pixel " << c;
        }
        EXPECT_EQ("", d.CheckGuards());
    }
}

// Each SIMD row function against its portable twin over many widths, with
// sources ending where their allocation ends and outputs at odd offsets
// (stream variants: aligned). The SIMD twins must not depend on the two
// output rows being far apart either: sp2yuvxs writes row pairs whose second
// row directly follows the first.
TEST(ConvertSimdRows, EachMatchesItsPortableTwin) {
    const SP2YUVXRowVariant* pList = nullptr;
    const int nVariants = SP2YUVXSimdRowVariants(&pList);
    printf("[ variants ] %s\n", nVariants ? VariantNames().c_str() : "(none on this CPU)");
    std::mt19937 rng(7);
    for (int i = 0; i < nVariants; ++i) {
        const SP2YUVXRowVariant& v = pList[i];
        SCOPED_TRACE(v.pszName);
        for (int width : SimdWidths()) {
            const size_t nSrcOff = rng() % 16;
            const size_t nDstOff = v.eKind == SP2YUVX_ROW_YUVX2_STREAM ? 0 : rng() % 16;
            const uint32_t nSeed = rng();
            if (v.eKind == SP2YUVX_ROW_YUVX_FILL) {
                const uint32_t nPixel = rng();
                GuardedBuffer got(size_t(width) * 4, nDstOff, nSeed);
                std::vector<uint8_t> want(got.Original(), got.Original() + got.Size());
                v.pfnFill(got.Data(), nPixel, width);
                YUVXFillRow_C(want.data(), nPixel, width);
                ASSERT_EQ(0, memcmp(got.Data(), want.data(), got.Size())) << "width " << width;
                ASSERT_EQ("", got.CheckGuards()) << "width " << width;
                continue;
            }
            const size_t nOut = size_t(width) * PixelBytes(v.eKind);
            const SourceRows src(width, nSrcOff, rng);
            // The second row in a buffer of its own, then right after the
            // first (when apart, the first row's buffer keeps its poisoned
            // second half).
            for (bool bAdjacent : {false, true}) {
                GuardedBuffer got(2 * nOut, nDstOff, nSeed), got1(nOut, nDstOff, nSeed + 1);
                std::vector<uint8_t> want(got.Original(), got.Original() + 2 * nOut);
                std::vector<uint8_t> want1(got1.Original(), got1.Original() + nOut);
                v.pfnRow2(src.Y0(), src.Y1(), src.UV(), got.Data(),
                          bAdjacent ? got.Data() + nOut : got1.Data(), width);
                PortableTwin(v.eKind)(src.Y0(), src.Y1(), src.UV(), want.data(),
                                      bAdjacent ? want.data() + nOut : want1.data(), width);
                const std::string what =
                    "width " + std::to_string(width) + (bAdjacent ? ", adjacent rows" : "");
                ASSERT_EQ(0, memcmp(got.Data(), want.data(), 2 * nOut)) << what;
                ASSERT_EQ(0, memcmp(got1.Data(), want1.data(), nOut)) << what;
                ASSERT_EQ("", got.CheckGuards() + got1.CheckGuards()) << what;
            }
        }
    }
}

TEST(ConvertSimdRows, VariantListFitsThisCpu) {
    const std::string names = VariantNames();
#if defined(__x86_64__)
    EXPECT_NE(std::string::npos, names.find("SPToYUVXRow2_SSE2")) << names;
    EXPECT_NE(std::string::npos, names.find("SPToYUVXRow2Stream_SSE2")) << names;
    EXPECT_NE(std::string::npos, names.find("YUVXFillRow_SSE2")) << names;
    __builtin_cpu_init();
    EXPECT_EQ(bool(__builtin_cpu_supports("ssse3")),
              names.find("SPToYUVRow2_SSSE3") != std::string::npos)
        << names;
#elif defined(__aarch64__)
    EXPECT_EQ("SPToYUVXRow2_NEON SPToYUVRow2_NEON YUVXFillRow_NEON", names);
#else
    EXPECT_EQ("", names);
#endif
}

TEST(ConvertActiveRows, RuntimePathFitsThisCpuAndPortableCanBeForced) {
    const SP2YUVXRowSet& simd = SP2YUVXActiveRows();
    printf("[   path   ] frame functions use the %s row functions\n", simd.pszName);
#if defined(__x86_64__)
    EXPECT_EQ(0, strncmp(simd.pszName, "SSE2", 4)) << simd.pszName;
    EXPECT_EQ(&SPToYUVXRow2_SSE2, simd.pfnYUVXRow2);
    EXPECT_EQ(&SPToYUVXRow2Stream_SSE2, simd.pfnYUVXRow2Stream);
    EXPECT_EQ(&YUVXFillRow_SSE2, simd.pfnYUVXFill);
#elif defined(__aarch64__)
    EXPECT_STREQ("NEON", simd.pszName);
    EXPECT_EQ(&SPToYUVXRow2_NEON, simd.pfnYUVXRow2);
    EXPECT_EQ(&SPToYUVRow2_NEON, simd.pfnYUVRow2);
    EXPECT_EQ(&YUVXFillRow_NEON, simd.pfnYUVXFill);
#endif

    SP2YUVXForcePortable(true);
    const SP2YUVXRowSet& portable = SP2YUVXActiveRows();
    SP2YUVXForcePortable(false);
    EXPECT_STREQ("C", portable.pszName);
    EXPECT_EQ(&SPToYUVXRow2_C, portable.pfnYUVXRow2);
    EXPECT_EQ(&SPToYUVXRow2_C, portable.pfnYUVXRow2Stream);
    EXPECT_EQ(&SPToYUVRow2_C, portable.pfnYUVRow2);
    EXPECT_EQ(&YUVXFillRow_C, portable.pfnYUVXFill);
    EXPECT_STREQ(simd.pszName, SP2YUVXActiveRows().pszName);
}
