// x86-64 row functions. SSE2 is part of the x86-64 baseline; the SSSE3
// function is compiled for SSSE3 alone and chosen only when the CPU reports
// it.
#include <emmintrin.h>
#include <tmmintrin.h>

#include "sp2yuvx_row.h"

namespace {

// The chroma of one group of 16 pixels, ready to be merged with either luma
// row: c0 holds each first chroma byte twice (c0 c0 c1 c1 ...), c1lo and
// c1hi hold (second chroma byte, 0xFF) once per pixel for pixels 0-7 and 8-15.
struct ChromaGroup {
    __m128i c0;
    __m128i c1lo;
    __m128i c1hi;
};

inline ChromaGroup LoadChroma(const uint8_t* srcUV) {
    const __m128i uv = _mm_loadu_si128(reinterpret_cast<const __m128i*>(srcUV));
    const __m128i first = _mm_and_si128(uv, _mm_set1_epi16(0x00FF));
    const __m128i second = _mm_or_si128(_mm_srli_epi16(uv, 8), _mm_set1_epi16(-256));
    ChromaGroup c;
    c.c0 = _mm_or_si128(first, _mm_slli_epi16(first, 8));
    c.c1lo = _mm_unpacklo_epi16(second, second);
    c.c1hi = _mm_unpackhi_epi16(second, second);
    return c;
}

// 16 "yuvx" pixels of one row: (Y, C0) byte pairs interleaved with
// (C1, 0xFF) byte pairs.
template <bool kStream>
inline void StoreYUVX16(const uint8_t* srcY, const ChromaGroup& c, uint8_t* dst) {
    const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(srcY));
    const __m128i lo = _mm_unpacklo_epi8(y, c.c0);
    const __m128i hi = _mm_unpackhi_epi8(y, c.c0);
    __m128i* d = reinterpret_cast<__m128i*>(dst);
    if (kStream) {
        _mm_stream_si128(d + 0, _mm_unpacklo_epi16(lo, c.c1lo));
        _mm_stream_si128(d + 1, _mm_unpackhi_epi16(lo, c.c1lo));
        _mm_stream_si128(d + 2, _mm_unpacklo_epi16(hi, c.c1hi));
        _mm_stream_si128(d + 3, _mm_unpackhi_epi16(hi, c.c1hi));
    } else {
        _mm_storeu_si128(d + 0, _mm_unpacklo_epi16(lo, c.c1lo));
        _mm_storeu_si128(d + 1, _mm_unpackhi_epi16(lo, c.c1lo));
        _mm_storeu_si128(d + 2, _mm_unpacklo_epi16(hi, c.c1hi));
        _mm_storeu_si128(d + 3, _mm_unpackhi_epi16(hi, c.c1hi));
    }
}

template <bool kStream>
inline void YUVXRow2(const uint8_t* srcY0, const uint8_t* srcY1, const uint8_t* srcUV,
                     uint8_t* dst0, uint8_t* dst1, int width) {
    for (int x = 0; x < width; x += 16) {
        const ChromaGroup c = LoadChroma(srcUV + x);
        StoreYUVX16<kStream>(srcY0 + x, c, dst0 + x * 4);
        StoreYUVX16<kStream>(srcY1 + x, c, dst1 + x * 4);
    }
}

}  // namespace

void SPToYUVXRow2_SSE2(const uint8_t* srcY0, const uint8_t* srcY1, const uint8_t* srcUV,
                       uint8_t* dst0, uint8_t* dst1, int width) {
    YUVXRow2<false>(srcY0, srcY1, srcUV, dst0, dst1, width);
}

// dst0 and dst1 16-byte aligned. The stores go around the caches; the fence
// orders them before whatever the caller writes next.
void SPToYUVXRow2Stream_SSE2(const uint8_t* srcY0, const uint8_t* srcY1, const uint8_t* srcUV,
                             uint8_t* dst0, uint8_t* dst1, int width) {
    YUVXRow2<true>(srcY0, srcY1, srcUV, dst0, dst1, width);
    _mm_sfence();
}

void YUVXFillRow_SSE2(uint8_t* dst, uint32_t pixel, int width) {
    const __m128i p = _mm_set1_epi32(static_cast<int>(pixel));
    __m128i* d = reinterpret_cast<__m128i*>(dst);
    for (int x = 0; x < width; x += 16) {
        _mm_storeu_si128(d + 0, p);
        _mm_storeu_si128(d + 1, p);
        _mm_storeu_si128(d + 2, p);
        _mm_storeu_si128(d + 3, p);
        d += 4;
    }
}

// "yuv": each 16-byte output vector takes its luma bytes from one shuffle of
// the 16 luma bytes and its chroma bytes from one shuffle of the 8 chroma
// pairs; the chroma half is the same for both rows.
__attribute__((target("ssse3"))) void SPToYUVRow2_SSSE3(const uint8_t* srcY0, const uint8_t* srcY1,
                                                        const uint8_t* srcUV, uint8_t* dst0,
                                                        uint8_t* dst1, int width) {
    const __m128i kY0 = _mm_setr_epi8(0, -1, -1, 1, -1, -1, 2, -1, -1, 3, -1, -1, 4, -1, -1, 5);
    const __m128i kY1 = _mm_setr_epi8(-1, -1, 6, -1, -1, 7, -1, -1, 8, -1, -1, 9, -1, -1, 10, -1);
    const __m128i kY2 =
        _mm_setr_epi8(-1, 11, -1, -1, 12, -1, -1, 13, -1, -1, 14, -1, -1, 15, -1, -1);
    const __m128i kC0 = _mm_setr_epi8(-1, 0, 1, -1, 0, 1, -1, 2, 3, -1, 2, 3, -1, 4, 5, -1);
    const __m128i kC1 = _mm_setr_epi8(4, 5, -1, 6, 7, -1, 6, 7, -1, 8, 9, -1, 8, 9, -1, 10);
    const __m128i kC2 =
        _mm_setr_epi8(11, -1, 10, 11, -1, 12, 13, -1, 12, 13, -1, 14, 15, -1, 14, 15);
    for (int x = 0; x < width; x += 16) {
        const __m128i uv = _mm_loadu_si128(reinterpret_cast<const __m128i*>(srcUV + x));
        const __m128i c0 = _mm_shuffle_epi8(uv, kC0);
        const __m128i c1 = _mm_shuffle_epi8(uv, kC1);
        const __m128i c2 = _mm_shuffle_epi8(uv, kC2);
        const __m128i y0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(srcY0 + x));
        const __m128i y1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(srcY1 + x));
        __m128i* d0 = reinterpret_cast<__m128i*>(dst0 + x * 3);
        __m128i* d1 = reinterpret_cast<__m128i*>(dst1 + x * 3);
        _mm_storeu_si128(d0 + 0, _mm_or_si128(_mm_shuffle_epi8(y0, kY0), c0));
        _mm_storeu_si128(d0 + 1, _mm_or_si128(_mm_shuffle_epi8(y0, kY1), c1));
        _mm_storeu_si128(d0 + 2, _mm_or_si128(_mm_shuffle_epi8(y0, kY2), c2));
        _mm_storeu_si128(d1 + 0, _mm_or_si128(_mm_shuffle_epi8(y1, kY0), c0));
        _mm_storeu_si128(d1 + 1, _mm_or_si128(_mm_shuffle_epi8(y1, kY1), c1));
        _mm_storeu_si128(d1 + 2, _mm_or_si128(_mm_shuffle_epi8(y1, kY2), c2));
    }
}

namespace {

const SP2YUVXRowVariant kSse2Variants[] = {
    {"SPToYUVXRow2_SSE2", SP2YUVX_ROW_YUVX2, SPToYUVXRow2_SSE2, nullptr},
    {"SPToYUVXRow2Stream_SSE2", SP2YUVX_ROW_YUVX2_STREAM, SPToYUVXRow2Stream_SSE2, nullptr},
    {"YUVXFillRow_SSE2", SP2YUVX_ROW_YUVX_FILL, nullptr, YUVXFillRow_SSE2},
    {"SPToYUVRow2_SSSE3", SP2YUVX_ROW_YUV2, SPToYUVRow2_SSSE3, nullptr},
};

bool HasSsse3() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("ssse3");
}

}  // namespace

void SP2YUVXSelectSimdRows(SP2YUVXRowSet* pSet) {
    pSet->pfnYUVXRow2 = SPToYUVXRow2_SSE2;
    pSet->pfnYUVXRow2Stream = SPToYUVXRow2Stream_SSE2;
    pSet->pfnYUVXFill = YUVXFillRow_SSE2;
    pSet->pszName = "SSE2";
    if (HasSsse3()) {
        pSet->pfnYUVRow2 = SPToYUVRow2_SSSE3;
        pSet->pszName = "SSE2+SSSE3";
    }
}

int SP2YUVXSimdRowVariants(const SP2YUVXRowVariant** ppList) {
    *ppList = kSse2Variants;
    // The SSSE3 entry comes last and is left out where the CPU lacks it.
    const int nAll = int(sizeof(kSse2Variants) / sizeof(kSse2Variants[0]));
    return HasSsse3() ? nAll : nAll - 1;
}
