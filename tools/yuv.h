// Colour conversions and resampling for the posteffect tool.
//
// The camera's frames are NV21: a luma plane of width x height bytes followed
// by a plane of height / 2 rows of interleaved V, U byte pairs, each pair
// covering a 2 x 2 block. Conversions are full-range BT.601, as the camera
// produces them:
//   Y = 0.299 R + 0.587 G + 0.114 B
//   V = 0.5 R - 0.4186829 G - 0.0813089 B + 128
//   U = -0.168727 R - 0.33126147 G + 0.5 B + 128
// and back
//   R = Y + 1.402 (V - 128)
//   G = Y - 0.714 (V - 128) - 0.344 (U - 128)
//   B = Y + 1.772 (U - 128)
// each rounded to the nearest integer and clamped to 0..255.
#ifndef POSTEFFECT_TOOLS_YUV_H
#define POSTEFFECT_TOOLS_YUV_H

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "imageio.h"

// One NV21 frame in memory: luma then V/U pairs, width x height x 3 / 2
// bytes. Width and height are even.
struct NV21Frame {
    int m_nWidth = 0;
    int m_nHeight = 0;
    std::vector<uint8_t> m_vData;

    void Resize(int nWidth, int nHeight);
    static size_t Bytes(int nWidth, int nHeight) { return size_t(nWidth) * nHeight * 3 / 2; }
    uint8_t* Luma() { return m_vData.data(); }
    const uint8_t* Luma() const { return m_vData.data(); }
    uint8_t* Chroma() { return m_vData.data() + size_t(m_nWidth) * m_nHeight; }
    const uint8_t* Chroma() const { return m_vData.data() + size_t(m_nWidth) * m_nHeight; }
};

// Single pixels.
void RgbToYvu(int r, int g, int b, uint8_t* pY, uint8_t* pV, uint8_t* pU);
void YvuToRgb(int y, int v, int u, uint8_t* pR, uint8_t* pG, uint8_t* pB);

// RGB to NV21. The image's width and height must be even (false otherwise).
// Each V/U pair is the conversion of the mean colour of its 2 x 2 block.
bool RgbToNv21(const RGBImage& image, NV21Frame* pFrame);
// NV21 planes (luma rows of nStride bytes, chroma rows of nStride bytes) to
// RGB; each V/U pair serves its 2 x 2 block.
void Nv21ToRgb(const uint8_t* pY, const uint8_t* pVU, int nWidth, int nHeight, int nStride,
               RGBImage* pImage);
void Nv21ToRgb(const NV21Frame& frame, RGBImage* pImage);

// Resamples to nWidth x nHeight with a triangle filter that widens with the
// reduction, so that shrinking averages every source pixel.
void Resample(const RGBImage& src, int nWidth, int nHeight, RGBImage* pDst);
// Scales to cover nWidth x nHeight, keeping the aspect ratio, and crops the
// middle: what a camera's preview shows of a scene.
void ScaleCover(const RGBImage& src, int nWidth, int nHeight, RGBImage* pDst);
// The nWidth x nHeight rectangle at (x, y), which must lie inside the source.
void Crop(const RGBImage& src, int x, int y, int nWidth, int nHeight, RGBImage* pDst);

#endif
