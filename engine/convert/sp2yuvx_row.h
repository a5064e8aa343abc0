// Row functions behind the sp2yuvx family, and the switches that tests and
// benchmarks use to pick among them.
//
// Every row function has a portable twin (suffix _C) that defines its
// behaviour; the SIMD twins (SSE2, SSSE3, NEON) must write exactly the same
// bytes. The frame functions of sp2yuvx.cpp choose one set of row functions
// at run time, from what the CPU supports.
#ifndef POSTEFFECT_ENGINE_SP2YUVX_ROW_H
#define POSTEFFECT_ENGINE_SP2YUVX_ROW_H

#include <stddef.h>
#include <stdint.h>

// Converts one row pair: srcY0 and srcY1 are the two luma rows, srcUV the
// chroma row they share (interleaved byte pairs), dst0 and dst1 the two output
// rows. width is in pixels, a positive multiple of 16 for the SIMD twins.
// Output pixel c of row k holds srcYk[c], srcUV[c & ~1], srcUV[c | 1] and,
// for "yuvx", 0xFF.
typedef void (*SPRow2Func)(const uint8_t* srcY0, const uint8_t* srcY1, const uint8_t* srcUV,
                           uint8_t* dst0, uint8_t* dst1, int width);
// Writes width copies of one 4-byte pixel; pixel holds the four bytes in
// memory order (load them with memcpy). width is a multiple of 16 for the
// SIMD twins.
typedef void (*FillRowFunc)(uint8_t* dst, uint32_t pixel, int width);

// Portable row functions (sp2yuvx_row_c.cpp).
void SPToYUVXRow2_C(const uint8_t* srcY0, const uint8_t* srcY1, const uint8_t* srcUV, uint8_t* dst0,
                    uint8_t* dst1, int width);
void SPToYUVRow2_C(const uint8_t* srcY0, const uint8_t* srcY1, const uint8_t* srcUV, uint8_t* dst0,
                   uint8_t* dst1, int width);
void YUVXFillRow_C(uint8_t* dst, uint32_t pixel, int width);

// x86-64 (sp2yuvx_row_x86.cpp). The stream variant needs 16-byte aligned
// dst0 and dst1; SPToYUVRow2_SSSE3 runs only where the CPU has SSSE3.
void SPToYUVXRow2_SSE2(const uint8_t* srcY0, const uint8_t* srcY1, const uint8_t* srcUV,
                       uint8_t* dst0, uint8_t* dst1, int width);
void SPToYUVXRow2Stream_SSE2(const uint8_t* srcY0, const uint8_t* srcY1, const uint8_t* srcUV,
                             uint8_t* dst0, uint8_t* dst1, int width);
void SPToYUVRow2_SSSE3(const uint8_t* srcY0, const uint8_t* srcY1, const uint8_t* srcUV,
                       uint8_t* dst0, uint8_t* dst1, int width);
void YUVXFillRow_SSE2(uint8_t* dst, uint32_t pixel, int width);

// AArch64 (sp2yuvx_row_neon.cpp).
void SPToYUVXRow2_NEON(const uint8_t* srcY0, const uint8_t* srcY1, const uint8_t* srcUV,
                       uint8_t* dst0, uint8_t* dst1, int width);
void SPToYUVRow2_NEON(const uint8_t* srcY0, const uint8_t* srcY1, const uint8_t* srcUV,
                      uint8_t* dst0, uint8_t* dst1, int width);
void YUVXFillRow_NEON(uint8_t* dst, uint32_t pixel, int width);

// The row functions the frame functions call.
struct SP2YUVXRowSet {
    const char* pszName;  // "C", or the instruction sets in use, e.g. "SSE2+SSSE3", "NEON"
    SPRow2Func pfnYUVXRow2;
    // "yuvx" rows for outputs of at least kSP2YUVXStreamMinBytes whose rows
    // start on 16-byte boundaries: stores that bypass the caches where the
    // CPU has them, the plain function otherwise.
    SPRow2Func pfnYUVXRow2Stream;
    SPRow2Func pfnYUVRow2;
    FillRowFunc pfnYUVXFill;
};

// Output size from which the frame functions use pfnYUVXRow2Stream. Smaller
// outputs stay in the last-level cache, where cached stores are faster; on
// larger ones streaming stores save the reads of the lines they overwrite.
// Measured with bench_sp2yuvx on a 32 MiB-L3 x86-64: the two break even
// near 12 MiB of output (about 2048 x 1536 pixels).
constexpr size_t kSP2YUVXStreamMinBytes = size_t(12) << 20;

// One SIMD row function, for comparison with its portable twin.
enum SP2YUVXRowKind {
    SP2YUVX_ROW_YUVX2,         // SPRow2Func, "yuvx"
    SP2YUVX_ROW_YUVX2_STREAM,  // SPRow2Func, "yuvx", needs 16-byte aligned dst0 and dst1
    SP2YUVX_ROW_YUV2,          // SPRow2Func, "yuv"
    SP2YUVX_ROW_YUVX_FILL,     // FillRowFunc
};
struct SP2YUVXRowVariant {
    const char* pszName;  // e.g. "SPToYUVXRow2_SSE2"
    SP2YUVXRowKind eKind;
    SPRow2Func pfnRow2;   // set for the SPRow2Func kinds
    FillRowFunc pfnFill;  // set for SP2YUVX_ROW_YUVX_FILL
};

// Per architecture (one source file is built for the target CPU): fills the
// members of pSet that this CPU can run faster than the portable functions,
// and lists every SIMD row function built here that this CPU supports.
void SP2YUVXSelectSimdRows(SP2YUVXRowSet* pSet);
int SP2YUVXSimdRowVariants(const SP2YUVXRowVariant** ppList);

// The row functions the frame functions use now: the SIMD set chosen for this
// CPU, or the portable set while SP2YUVXForcePortable(true) is in effect.
const SP2YUVXRowSet& SP2YUVXActiveRows();
// Makes the frame functions use the portable row functions (true) or the
// runtime-chosen ones (false, the default). For tests and benchmarks.
void SP2YUVXForcePortable(bool bForce);

// Which "yuvx" row function large outputs get. For tests and benchmarks.
enum SP2YUVXStoreMode {
    SP2YUVX_STORE_AUTO,       // streaming stores from kSP2YUVXStreamMinBytes (default)
    SP2YUVX_STORE_CACHED,     // never streaming stores
    SP2YUVX_STORE_STREAMING,  // streaming stores whenever the rows are aligned
};
void SP2YUVXSetStoreMode(SP2YUVXStoreMode eMode);

#endif
