// Portable row functions: they define what every SIMD twin must write.
#include <string.h>

#include "sp2yuvx_row.h"

void SPToYUVXRow2_C(const uint8_t* srcY0, const uint8_t* srcY1, const uint8_t* srcUV, uint8_t* dst0,
                    uint8_t* dst1, int width) {
    for (int x = 0; x < width; x += 2) {
        const uint8_t c0 = srcUV[x];
        const uint8_t c1 = srcUV[x + 1];
        uint8_t* p0 = dst0 + x * 4;
        uint8_t* p1 = dst1 + x * 4;
        p0[0] = srcY0[x];
        p0[1] = c0;
        p0[2] = c1;
        p0[3] = 0xFF;
        p0[4] = srcY0[x + 1];
        p0[5] = c0;
        p0[6] = c1;
        p0[7] = 0xFF;
        p1[0] = srcY1[x];
        p1[1] = c0;
        p1[2] = c1;
        p1[3] = 0xFF;
        p1[4] = srcY1[x + 1];
        p1[5] = c0;
        p1[6] = c1;
        p1[7] = 0xFF;
    }
}

void SPToYUVRow2_C(const uint8_t* srcY0, const uint8_t* srcY1, const uint8_t* srcUV, uint8_t* dst0,
                   uint8_t* dst1, int width) {
    for (int x = 0; x < width; x += 2) {
        const uint8_t c0 = srcUV[x];
        const uint8_t c1 = srcUV[x + 1];
        uint8_t* p0 = dst0 + x * 3;
        uint8_t* p1 = dst1 + x * 3;
        p0[0] = srcY0[x];
        p0[1] = c0;
        p0[2] = c1;
        p0[3] = srcY0[x + 1];
        p0[4] = c0;
        p0[5] = c1;
        p1[0] = srcY1[x];
        p1[1] = c0;
        p1[2] = c1;
        p1[3] = srcY1[x + 1];
        p1[4] = c0;
        p1[5] = c1;
    }
}

void YUVXFillRow_C(uint8_t* dst, uint32_t pixel, int width) {
    for (int x = 0; x < width; ++x) {
        memcpy(dst + x * 4, &pixel, 4);
    }
}
