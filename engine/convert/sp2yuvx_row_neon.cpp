// AArch64 row functions (NEON is part of the AArch64 baseline). The chroma
// pairs are loaded de-interleaved, each byte is duplicated with a zip, and
// the pixels are written by interleaving stores (ST4 for "yuvx", ST3 for
// "yuv"); 32 pixels of both rows per step, then one step of 16.
#include <arm_neon.h>

#include "sp2yuvx_row.h"

void SPToYUVXRow2_NEON(const uint8_t* srcY0, const uint8_t* srcY1, const uint8_t* srcUV,
                       uint8_t* dst0, uint8_t* dst1, int width) {
    uint8x16x4_t px;
    px.val[3] = vdupq_n_u8(0xFF);
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        const uint8x16x2_t uv = vld2q_u8(srcUV + x);
        const uint8x16_t c0lo = vzip1q_u8(uv.val[0], uv.val[0]);
        const uint8x16_t c0hi = vzip2q_u8(uv.val[0], uv.val[0]);
        const uint8x16_t c1lo = vzip1q_u8(uv.val[1], uv.val[1]);
        const uint8x16_t c1hi = vzip2q_u8(uv.val[1], uv.val[1]);
        px.val[1] = c0lo;
        px.val[2] = c1lo;
        px.val[0] = vld1q_u8(srcY0 + x);
        vst4q_u8(dst0 + x * 4, px);
        px.val[0] = vld1q_u8(srcY1 + x);
        vst4q_u8(dst1 + x * 4, px);
        px.val[1] = c0hi;
        px.val[2] = c1hi;
        px.val[0] = vld1q_u8(srcY0 + x + 16);
        vst4q_u8(dst0 + x * 4 + 64, px);
        px.val[0] = vld1q_u8(srcY1 + x + 16);
        vst4q_u8(dst1 + x * 4 + 64, px);
    }
    if (x < width) {
        const uint8x8x2_t uv = vld2_u8(srcUV + x);
        px.val[1] = vcombine_u8(vzip1_u8(uv.val[0], uv.val[0]), vzip2_u8(uv.val[0], uv.val[0]));
        px.val[2] = vcombine_u8(vzip1_u8(uv.val[1], uv.val[1]), vzip2_u8(uv.val[1], uv.val[1]));
        px.val[0] = vld1q_u8(srcY0 + x);
        vst4q_u8(dst0 + x * 4, px);
        px.val[0] = vld1q_u8(srcY1 + x);
        vst4q_u8(dst1 + x * 4, px);
    }
}

void SPToYUVRow2_NEON(const uint8_t* srcY0, const uint8_t* srcY1, const uint8_t* srcUV,
                      uint8_t* dst0, uint8_t* dst1, int width) {
    uint8x16x3_t px;
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        const uint8x16x2_t uv = vld2q_u8(srcUV + x);
        const uint8x16_t c0lo = vzip1q_u8(uv.val[0], uv.val[0]);
        const uint8x16_t c0hi = vzip2q_u8(uv.val[0], uv.val[0]);
        const uint8x16_t c1lo = vzip1q_u8(uv.val[1], uv.val[1]);
        const uint8x16_t c1hi = vzip2q_u8(uv.val[1], uv.val[1]);
        px.val[1] = c0lo;
        px.val[2] = c1lo;
        px.val[0] = vld1q_u8(srcY0 + x);
        vst3q_u8(dst0 + x * 3, px);
        px.val[0] = vld1q_u8(srcY1 + x);
        vst3q_u8(dst1 + x * 3, px);
        px.val[1] = c0hi;
        px.val[2] = c1hi;
        px.val[0] = vld1q_u8(srcY0 + x + 16);
        vst3q_u8(dst0 + x * 3 + 48, px);
        px.val[0] = vld1q_u8(srcY1 + x + 16);
        vst3q_u8(dst1 + x * 3 + 48, px);
    }
    if (x < width) {
        const uint8x8x2_t uv = vld2_u8(srcUV + x);
        px.val[1] = vcombine_u8(vzip1_u8(uv.val[0], uv.val[0]), vzip2_u8(uv.val[0], uv.val[0]));
        px.val[2] = vcombine_u8(vzip1_u8(uv.val[1], uv.val[1]), vzip2_u8(uv.val[1], uv.val[1]));
        px.val[0] = vld1q_u8(srcY0 + x);
        vst3q_u8(dst0 + x * 3, px);
        px.val[0] = vld1q_u8(srcY1 + x);
        vst3q_u8(dst1 + x * 3, px);
    }
}

void YUVXFillRow_NEON(uint8_t* dst, uint32_t pixel, int width) {
    const uint8x16_t p = vreinterpretq_u8_u32(vdupq_n_u32(pixel));
    for (int x = 0; x < width; x += 16) {
        vst1q_u8(dst, p);
        vst1q_u8(dst + 16, p);
        vst1q_u8(dst + 32, p);
        vst1q_u8(dst + 48, p);
        dst += 64;
    }
}

namespace {

const SP2YUVXRowVariant kNeonVariants[] = {
    {"SPToYUVXRow2_NEON", SP2YUVX_ROW_YUVX2, SPToYUVXRow2_NEON, nullptr},
    {"SPToYUVRow2_NEON", SP2YUVX_ROW_YUV2, SPToYUVRow2_NEON, nullptr},
    {"YUVXFillRow_NEON", SP2YUVX_ROW_YUVX_FILL, nullptr, YUVXFillRow_NEON},
};

}  // namespace

void SP2YUVXSelectSimdRows(SP2YUVXRowSet* pSet) {
    pSet->pszName = "NEON";
    pSet->pfnYUVXRow2 = SPToYUVXRow2_NEON;
    pSet->pfnYUVXRow2Stream = SPToYUVXRow2_NEON;
    pSet->pfnYUVRow2 = SPToYUVRow2_NEON;
    pSet->pfnYUVXFill = YUVXFillRow_NEON;
}

int SP2YUVXSimdRowVariants(const SP2YUVXRowVariant** ppList) {
    *ppList = kNeonVariants;
    return int(sizeof(kNeonVariants) / sizeof(kNeonVariants[0]));
}
