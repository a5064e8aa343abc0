// CPU expansion of semi-planar YUV 4:2:0 frames (a luma plane followed by a
// plane of interleaved chroma byte pairs) into packed pixels a texture can
// hold: "yuvx" (Y, C0, C1, 0xFF) or "yuv" (Y, C0, C1). Chroma bytes keep the
// order of the source plane; each pair serves the 2 x 2 pixels it covers.
//
// No checks, no allocation and no logging: callers keep the preconditions of
// each form (widths a multiple of 16, or 32 for the crop form; even heights,
// even x, y and rx). Outside them the result is still fixed: the pixels past
// the last whole group of a row are not converted, and in the whole-frame
// forms each row pair starts where the previous one's groups ended, shifting
// the rows that follow; an odd height leaves the last row unconverted.
//
// The row functions are chosen at run time (SSE2/SSSE3 on x86-64, NEON on
// AArch64, portable C elsewhere); see sp2yuvx_row.h.
#ifndef POSTEFFECT_ENGINE_SP2YUVX_H
#define POSTEFFECT_ENGINE_SP2YUVX_H

// Whole frame, compact output (row pitch width x 4 bytes).
void sp2yuvx(void* dst, const void* src, int width, int height);
// Whole frame, output row pitch dstStride pixels; the bytes past width x 4 of
// each output row are left untouched.
void sp2yuvx(void* dst, int dstStride, const void* src, int width, int height);
// The w x h rectangle at (x, y) of a frame with srcStride-byte rows and
// srcHeight luma rows (the chroma plane follows them); compact output (row
// pitch w x 4 bytes).
void sp2yuvx(void* dst, const void* src, int srcStride, int srcHeight, int x, int y, int w, int h);
// Whole frame to 3-byte pixels, row pitch width x 3 bytes.
void sp2yuv(void* dst, const void* src, int width, int height);

// The rectangle (rx, ry, rw, rh) of a frame to "yuvx" with row pitch
// dstStride pixels, padded to the right up to dstStride and downwards up to
// dstHeight rows by repeating its last column and its last row.
//
// Row pair by row pair (rh / 2 pairs, at least one): rw / 16 groups of 16
// pixels (at least one) are converted, then, while dstStride / 16 exceeds
// rw / 16, the remaining dstStride / 16 - rw / 16 groups of each row are
// filled with that row's last converted pixel. Luma row r of the rectangle is
// source row ry + r, its chroma row is chroma row ry / 2 + r / 2. After the
// last pair, the last written row (all dstStride x 4 bytes) is copied into
// each following row up to dstHeight.
void sp2yuvxs(void* dst, int dstStride, int dstHeight, const void* src, int srcStride,
              int srcHeight, int rx, int ry, int rw, int rh);
// The same with the chroma plane given by its own pointer (its rows have the
// luma plane's pitch); srcHeight is not used.
void sp2yuvxs(void* dst, int dstStride, int dstHeight, const void* srcY, const void* srcUV,
              int srcStride, int srcHeight, int rx, int ry, int rw, int rh);
// The same without a destination height, hence without bottom padding.
void sp2yuvxs(void* dst, int dstStride, const void* src, int srcStride, int srcHeight, int rx,
              int ry, int rw, int rh);

// The two-pointer sp2yuvxs for a rectangle of any size: every one of its
// rw x rh pixels is converted, including the columns past the last whole
// group of 16 and the last row of an odd height, and the padding repeats its
// true last column and last row. Nothing past the rectangle's last 2 x 2
// block is read. A rectangle of whole groups and row pairs, in rows of whole
// groups, takes the SIMD path alone; the rest is finished pixel by pixel. rx and ry even, rw and rh at least 1,
// dstStride at least rw.
void sp2yuvxs_any(void* dst, int dstStride, int dstHeight, const void* srcY, const void* srcUV,
                  int srcStride, int srcHeight, int rx, int ry, int rw, int rh);

#endif
