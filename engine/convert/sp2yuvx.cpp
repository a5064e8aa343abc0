// Frame functions of the sp2yuvx family. They walk the planes row pair by row
// pair and leave the pixels to the row functions of sp2yuvx_row.h, chosen
// once per process from what the CPU supports.
//
// The walks keep the unchecked fast path of the camera code: a width that is
// not a whole number of groups leaves the tail of each row unconverted and,
// in the whole-frame forms, shifts the rows that follow; an odd height leaves
// the last row unconverted. Callers pass widths in whole groups and even
// heights, x and y.
#include "sp2yuvx.h"

#include <stdint.h>
#include <string.h>

#include <atomic>

#include "sp2yuvx_row.h"

namespace {

const SP2YUVXRowSet kPortableRows = {"C", SPToYUVXRow2_C, SPToYUVXRow2_C, SPToYUVRow2_C,
                                     YUVXFillRow_C};

SP2YUVXRowSet MakeSimdRows() {
    SP2YUVXRowSet rows = kPortableRows;
    SP2YUVXSelectSimdRows(&rows);
    return rows;
}

const SP2YUVXRowSet& SimdRows() {
    static const SP2YUVXRowSet s_rows = MakeSimdRows();
    return s_rows;
}

std::atomic<bool> g_bForcePortable{false};
std::atomic<int> g_nStoreMode{SP2YUVX_STORE_AUTO};

// The "yuvx" row function for an output of nBytes bytes starting at dst whose
// row pointers all lie a multiple of nStep bytes from dst.
SPRow2Func PickYUVXRow(const SP2YUVXRowSet& rows, const void* dst, ptrdiff_t nStep, size_t nBytes) {
    const int nMode = g_nStoreMode.load(std::memory_order_relaxed);
    const bool bAligned = ((reinterpret_cast<uintptr_t>(dst) | uintptr_t(nStep)) & 15) == 0;
    if (!bAligned || nMode == SP2YUVX_STORE_CACHED) {
        return rows.pfnYUVXRow2;
    }
    if (nMode == SP2YUVX_STORE_STREAMING || nBytes >= kSP2YUVXStreamMinBytes) {
        return rows.pfnYUVXRow2Stream;
    }
    return rows.pfnYUVXRow2;
}

// Whole frame with width-byte rows; output row pairs start nOutPitch bytes
// apart, or continue where the previous pair ended when nOutPitch is 0.
// 16 pixels per step. After each row pair, luma row 0 continues where row 1
// ended and row 1 one width further; the chroma pointer runs on; the output
// advances by (2 x dstStride - width) pixels past the end of the groups.
void WholeFrame(SPRow2Func pfnRow, uint8_t* dst, int nDstStride, int nPixelBytes,
                const uint8_t* src, int width, int height) {
    const int nDone = width / 16 * 16;
    const uint8_t* pY0 = src;
    const uint8_t* pY1 = src + width;
    const uint8_t* pUV = src + ptrdiff_t(width) * height;
    uint8_t* pDst = dst;
    for (int i = 0; i < height / 2; ++i) {
        if (nDone > 0) {
            pfnRow(pY0, pY1, pUV, pDst, pDst + ptrdiff_t(nDstStride) * nPixelBytes, nDone);
        }
        pY0 = pY1 + nDone;
        pY1 = pY0 + width;
        pUV += nDone;
        pDst += ptrdiff_t(nDone + 2 * nDstStride - width) * nPixelBytes;
    }
}

// One row pair of sp2yuvxs: nDone converted pixels, then nPad copies of each
// row's last converted pixel.
void RectRowPair(const SP2YUVXRowSet& rows, SPRow2Func pfnRow, const uint8_t* pY0,
                 const uint8_t* pY1, const uint8_t* pUV, uint8_t* pDst0, uint8_t* pDst1, int nDone,
                 int nPad) {
    pfnRow(pY0, pY1, pUV, pDst0, pDst1, nDone);
    if (nPad > 0) {
        uint8_t px[4] = {pY0[nDone - 1], pUV[nDone - 2], pUV[nDone - 1], 0xFF};
        uint32_t nPixel;
        memcpy(&nPixel, px, 4);
        rows.pfnYUVXFill(pDst0 + ptrdiff_t(nDone) * 4, nPixel, nPad);
        px[0] = pY1[nDone - 1];
        memcpy(&nPixel, px, 4);
        rows.pfnYUVXFill(pDst1 + ptrdiff_t(nDone) * 4, nPixel, nPad);
    }
}

// sp2yuvxs with the luma and chroma rows of the rectangle's first row pair.
// dstHeight < 0: no bottom padding.
void Rect(uint8_t* dst, int dstStride, int dstHeight, const uint8_t* pY, const uint8_t* pUV,
          int srcStride, int rw, int rh) {
    const SP2YUVXRowSet& rows = SP2YUVXActiveRows();
    const int nPairs = rh / 2 > 0 ? rh / 2 : 1;
    const int nGroups = rw / 16;
    const int nDone = (nGroups > 0 ? nGroups : 1) * 16;
    const int nPad = (dstStride / 16 - nGroups) * 16;
    const ptrdiff_t nPitch = ptrdiff_t(dstStride) * 4;
    const int nRows = dstHeight > 2 * nPairs ? dstHeight : 2 * nPairs;
    const SPRow2Func pfnRow = PickYUVXRow(rows, dst, nPitch, size_t(nRows) * size_t(nPitch));

    uint8_t* pDst = dst;
    for (int i = 0; i < nPairs; ++i) {
        RectRowPair(rows, pfnRow, pY, pY + srcStride, pUV, pDst, pDst + nPitch, nDone, nPad);
        pDst += 2 * nPitch;
        pY += 2 * ptrdiff_t(srcStride);
        pUV += srcStride;
    }
    const uint8_t* pLast = pDst - nPitch;
    for (int r = 2 * nPairs; r < dstHeight; ++r) {
        memcpy(pDst, pLast, size_t(nPitch));
        pDst += nPitch;
    }
}

}  // namespace

const SP2YUVXRowSet& SP2YUVXActiveRows() {
    return g_bForcePortable.load(std::memory_order_relaxed) ? kPortableRows : SimdRows();
}

void SP2YUVXForcePortable(bool bForce) {
    g_bForcePortable.store(bForce, std::memory_order_relaxed);
}

void SP2YUVXSetStoreMode(SP2YUVXStoreMode eMode) {
    g_nStoreMode.store(eMode, std::memory_order_relaxed);
}

void sp2yuvx(void* dst, const void* src, int width, int height) {
    const SP2YUVXRowSet& rows = SP2YUVXActiveRows();
    const size_t nBytes = size_t(width) * size_t(height) * 4;
    WholeFrame(PickYUVXRow(rows, dst, ptrdiff_t(width) * 4, nBytes), static_cast<uint8_t*>(dst),
               width, 4, static_cast<const uint8_t*>(src), width, height);
}

void sp2yuvx(void* dst, int dstStride, const void* src, int width, int height) {
    const SP2YUVXRowSet& rows = SP2YUVXActiveRows();
    const size_t nBytes = size_t(dstStride) * size_t(height) * 4;
    const ptrdiff_t nStep = (ptrdiff_t(dstStride) | width) * 4;
    WholeFrame(PickYUVXRow(rows, dst, nStep, nBytes), static_cast<uint8_t*>(dst), dstStride, 4,
               static_cast<const uint8_t*>(src), width, height);
}

// 32 pixels per step. After each row pair the luma pointers advance by
// 2 x srcStride - w and the chroma pointer by srcStride - w past the end of
// the groups; the output rows of pair i start at dst + 2 x i x w pixels.
void sp2yuvx(void* dst, const void* src, int srcStride, int srcHeight, int x, int y, int w, int h) {
    const SP2YUVXRowSet& rows = SP2YUVXActiveRows();
    const size_t nBytes = size_t(w) * size_t(h) * 4;
    const SPRow2Func pfnRow = PickYUVXRow(rows, dst, ptrdiff_t(w) * 4, nBytes);
    const int nDone = w / 32 * 32;
    const uint8_t* s = static_cast<const uint8_t*>(src);
    const uint8_t* pY0 = s + ptrdiff_t(y) * srcStride + x;
    const uint8_t* pY1 = pY0 + srcStride;
    const uint8_t* pUV = s + ptrdiff_t(srcStride) * (srcHeight + y / 2) + x;
    uint8_t* pDst0 = static_cast<uint8_t*>(dst);
    uint8_t* pDst1 = pDst0 + ptrdiff_t(w) * 4;
    const ptrdiff_t nYStep = nDone + 2 * ptrdiff_t(srcStride) - w;
    const ptrdiff_t nUVStep = nDone + ptrdiff_t(srcStride) - w;
    for (int i = 0; i < h / 2; ++i) {
        if (nDone > 0) {
            pfnRow(pY0, pY1, pUV, pDst0, pDst1, nDone);
        }
        pY0 += nYStep;
        pY1 += nYStep;
        pUV += nUVStep;
        pDst0 += 2 * ptrdiff_t(w) * 4;
        pDst1 += 2 * ptrdiff_t(w) * 4;
    }
}

void sp2yuv(void* dst, const void* src, int width, int height) {
    WholeFrame(SP2YUVXActiveRows().pfnYUVRow2, static_cast<uint8_t*>(dst), width, 3,
               static_cast<const uint8_t*>(src), width, height);
}

void sp2yuvxs(void* dst, int dstStride, int dstHeight, const void* src, int srcStride,
              int srcHeight, int rx, int ry, int rw, int rh) {
    const uint8_t* s = static_cast<const uint8_t*>(src);
    Rect(static_cast<uint8_t*>(dst), dstStride, dstHeight, s + ptrdiff_t(ry) * srcStride + rx,
         s + ptrdiff_t(srcStride) * (srcHeight + ry / 2) + rx, srcStride, rw, rh);
}

void sp2yuvxs(void* dst, int dstStride, int dstHeight, const void* srcY, const void* srcUV,
              int srcStride, int /*srcHeight*/, int rx, int ry, int rw, int rh) {
    Rect(static_cast<uint8_t*>(dst), dstStride, dstHeight,
         static_cast<const uint8_t*>(srcY) + ptrdiff_t(ry) * srcStride + rx,
         static_cast<const uint8_t*>(srcUV) + ptrdiff_t(srcStride) * (ry / 2) + rx, srcStride, rw,
         rh);
}

void sp2yuvxs(void* dst, int dstStride, const void* src, int srcStride, int srcHeight, int rx,
              int ry, int rw, int rh) {
    const uint8_t* s = static_cast<const uint8_t*>(src);
    Rect(static_cast<uint8_t*>(dst), dstStride, -1, s + ptrdiff_t(ry) * srcStride + rx,
         s + ptrdiff_t(srcStride) * (srcHeight + ry / 2) + rx, srcStride, rw, rh);
}

void sp2yuvxs_any(void* dst, int dstStride, int dstHeight, const void* srcY, const void* srcUV,
                  int srcStride, int srcHeight, int rx, int ry, int rw, int rh) {
    const int nWhole = rw / 16 * 16;
    const int nPairRows = rh / 2 * 2;
    if (nWhole == rw && nPairRows == rh && dstStride % 16 == 0) {
        sp2yuvxs(dst, dstStride, dstHeight, srcY, srcUV, srcStride, srcHeight, rx, ry, rw, rh);
        return;
    }
    uint8_t* d = static_cast<uint8_t*>(dst);
    const uint8_t* pY = static_cast<const uint8_t*>(srcY) + ptrdiff_t(ry) * srcStride + rx;
    const uint8_t* pUV = static_cast<const uint8_t*>(srcUV) + ptrdiff_t(srcStride) * (ry / 2) + rx;
    const ptrdiff_t nPitch = ptrdiff_t(dstStride) * 4;
    // The whole groups of the row pairs on the fast path; it pads each row
    // from its last converted pixel, which the loop below replaces.
    if (nWhole > 0 && nPairRows > 0) {
        Rect(d, dstStride, -1, pY, pUV, srcStride, nWhole, nPairRows);
    }
    for (int r = 0; r < rh; ++r) {
        uint8_t* row = d + r * nPitch;
        const uint8_t* y = pY + ptrdiff_t(r) * srcStride;
        const uint8_t* uv = pUV + ptrdiff_t(r / 2) * srcStride;
        for (int c = r < nPairRows ? nWhole : 0; c < rw; ++c) {
            uint8_t* px = row + ptrdiff_t(c) * 4;
            px[0] = y[c];
            px[1] = uv[c & ~1];
            px[2] = uv[(c & ~1) + 1];
            px[3] = 0xFF;
        }
        uint32_t nLast;
        memcpy(&nLast, row + ptrdiff_t(rw - 1) * 4, 4);
        YUVXFillRow_C(row + ptrdiff_t(rw) * 4, nLast, dstStride - rw);
    }
    for (int r = rh; r < dstHeight; ++r) {
        memcpy(d + r * nPitch, d + (rh - 1) * nPitch, size_t(nPitch));
    }
}
