#include "yuv.h"

#include <math.h>

#include <algorithm>

namespace {

uint8_t Clamp255(double v) {
    const double r = floor(v + 0.5);
    return uint8_t(r < 0 ? 0 : (r > 255 ? 255 : r));
}

// For each output position along one axis, the source positions it reads
// and their weights (summing to 1).
struct Taps {
    std::vector<int> vCount;  // taps per output position
    std::vector<int> vIndex;  // source index per tap (clamped to the edge)
    std::vector<float> vWeight;
    std::vector<size_t> vStart;  // first tap per output position
};

Taps MakeTaps(int nSrc, int nDst) {
    Taps t;
    const double scale = double(nSrc) / nDst;
    const double radius = std::max(1.0, scale);
    for (int i = 0; i < nDst; ++i) {
        const double c = (i + 0.5) * scale - 0.5;
        const int lo = int(floor(c - radius)) + 1;
        const int hi = int(ceil(c + radius)) - 1;
        t.vStart.push_back(t.vIndex.size());
        double sum = 0;
        const size_t first = t.vWeight.size();
        for (int s = lo; s <= hi; ++s) {
            const double w = 1.0 - fabs(s - c) / radius;
            if (w <= 0) {
                continue;
            }
            t.vIndex.push_back(std::min(std::max(s, 0), nSrc - 1));
            t.vWeight.push_back(float(w));
            sum += w;
        }
        if (t.vWeight.size() == first) {  // c fell exactly on a sample
            t.vIndex.push_back(std::min(std::max(int(floor(c + 0.5)), 0), nSrc - 1));
            t.vWeight.push_back(1.0f);
            sum = 1.0;
        }
        for (size_t k = first; k < t.vWeight.size(); ++k) {
            t.vWeight[k] = float(t.vWeight[k] / sum);
        }
        t.vCount.push_back(int(t.vWeight.size() - first));
    }
    return t;
}

// The chroma of a colour (channels 0 to 255, not necessarily whole).
uint8_t VOf(double r, double g, double b) {
    return Clamp255(0.5 * r - 0.4186829 * g - 0.0813089 * b + 128.0);
}

uint8_t UOf(double r, double g, double b) {
    return Clamp255(-0.168727 * r - 0.33126147 * g + 0.5 * b + 128.0);
}

}  // namespace

void NV21Frame::Resize(int nWidth, int nHeight) {
    m_nWidth = nWidth;
    m_nHeight = nHeight;
    m_vData.assign(Bytes(nWidth, nHeight), 0);
}

void RgbToYvu(int r, int g, int b, uint8_t* pY, uint8_t* pV, uint8_t* pU) {
    if (pY) {
        *pY = Clamp255(0.299 * r + 0.587 * g + 0.114 * b);
    }
    if (pV) {
        *pV = VOf(r, g, b);
    }
    if (pU) {
        *pU = UOf(r, g, b);
    }
}

void YvuToRgb(int y, int v, int u, uint8_t* pR, uint8_t* pG, uint8_t* pB) {
    *pR = Clamp255(y + 1.402 * (v - 128));
    *pG = Clamp255(y - 0.714 * (v - 128) - 0.344 * (u - 128));
    *pB = Clamp255(y + 1.772 * (u - 128));
}

bool RgbToNv21(const RGBImage& image, NV21Frame* pFrame) {
    const int w = image.m_nWidth;
    const int h = image.m_nHeight;
    if (w <= 0 || h <= 0 || (w & 1) || (h & 1)) {
        return false;
    }
    pFrame->Resize(w, h);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const uint8_t* p = image.Pixel(x, y);
            RgbToYvu(p[0], p[1], p[2], &pFrame->Luma()[size_t(y) * w + x], nullptr, nullptr);
        }
    }
    for (int y = 0; y < h; y += 2) {
        for (int x = 0; x < w; x += 2) {
            // The mean colour of the block, kept exact (quarters) until the
            // conversion rounds.
            double m[3];
            for (int k = 0; k < 3; ++k) {
                m[k] = (image.Pixel(x, y)[k] + image.Pixel(x + 1, y)[k] + image.Pixel(x, y + 1)[k] +
                        image.Pixel(x + 1, y + 1)[k]) /
                       4.0;
            }
            uint8_t* pPair = pFrame->Chroma() + size_t(y / 2) * w + x;
            pPair[0] = VOf(m[0], m[1], m[2]);
            pPair[1] = UOf(m[0], m[1], m[2]);
        }
    }
    return true;
}

void Nv21ToRgb(const uint8_t* pY, const uint8_t* pVU, int nWidth, int nHeight, int nStride,
               RGBImage* pImage) {
    pImage->Resize(nWidth, nHeight);
    for (int y = 0; y < nHeight; ++y) {
        const uint8_t* pRow = pY + size_t(y) * nStride;
        const uint8_t* pPairs = pVU + size_t(y / 2) * nStride;
        for (int x = 0; x < nWidth; ++x) {
            const uint8_t* pPair = pPairs + (x & ~1);
            uint8_t* p = pImage->Pixel(x, y);
            YvuToRgb(pRow[x], pPair[0], pPair[1], &p[0], &p[1], &p[2]);
        }
    }
}

void Nv21ToRgb(const NV21Frame& frame, RGBImage* pImage) {
    Nv21ToRgb(frame.Luma(), frame.Chroma(), frame.m_nWidth, frame.m_nHeight, frame.m_nWidth,
              pImage);
}

void Resample(const RGBImage& src, int nWidth, int nHeight, RGBImage* pDst) {
    const Taps tx = MakeTaps(src.m_nWidth, nWidth);
    const Taps ty = MakeTaps(src.m_nHeight, nHeight);
    // Horizontal pass into floats, one row of the source at a time.
    std::vector<float> mid(size_t(nWidth) * src.m_nHeight * 3);
    for (int y = 0; y < src.m_nHeight; ++y) {
        const uint8_t* pRow = src.Pixel(0, y);
        float* pOut = &mid[size_t(y) * nWidth * 3];
        for (int x = 0; x < nWidth; ++x) {
            float r = 0, g = 0, b = 0;
            const size_t s = tx.vStart[size_t(x)];
            for (int k = 0; k < tx.vCount[size_t(x)]; ++k) {
                const uint8_t* p = pRow + size_t(tx.vIndex[s + k]) * 3;
                const float w = tx.vWeight[s + k];
                r += w * p[0];
                g += w * p[1];
                b += w * p[2];
            }
            pOut[x * 3] = r;
            pOut[x * 3 + 1] = g;
            pOut[x * 3 + 2] = b;
        }
    }
    RGBImage dst;
    dst.Resize(nWidth, nHeight);
    std::vector<float> acc(size_t(nWidth) * 3);
    for (int y = 0; y < nHeight; ++y) {
        std::fill(acc.begin(), acc.end(), 0.0f);
        const size_t s = ty.vStart[size_t(y)];
        for (int k = 0; k < ty.vCount[size_t(y)]; ++k) {
            const float* pIn = &mid[size_t(ty.vIndex[s + k]) * nWidth * 3];
            const float w = ty.vWeight[s + k];
            for (size_t i = 0; i < acc.size(); ++i) {
                acc[i] += w * pIn[i];
            }
        }
        uint8_t* pOut = dst.Pixel(0, y);
        for (size_t i = 0; i < acc.size(); ++i) {
            pOut[i] = Clamp255(acc[i]);
        }
    }
    *pDst = std::move(dst);
}

void ScaleCover(const RGBImage& src, int nWidth, int nHeight, RGBImage* pDst) {
    const double scale = std::max(double(nWidth) / src.m_nWidth, double(nHeight) / src.m_nHeight);
    const int sw = std::max(nWidth, int(ceil(src.m_nWidth * scale - 1e-9)));
    const int sh = std::max(nHeight, int(ceil(src.m_nHeight * scale - 1e-9)));
    if (sw == src.m_nWidth && sh == src.m_nHeight) {
        Crop(src, (sw - nWidth) / 2, (sh - nHeight) / 2, nWidth, nHeight, pDst);
        return;
    }
    RGBImage scaled;
    Resample(src, sw, sh, &scaled);
    Crop(scaled, (sw - nWidth) / 2, (sh - nHeight) / 2, nWidth, nHeight, pDst);
}

void Crop(const RGBImage& src, int x, int y, int nWidth, int nHeight, RGBImage* pDst) {
    RGBImage dst;
    dst.Resize(nWidth, nHeight);
    for (int r = 0; r < nHeight; ++r) {
        std::copy(src.Pixel(x, y + r), src.Pixel(x, y + r) + size_t(nWidth) * 3, dst.Pixel(0, r));
    }
    *pDst = std::move(dst);
}
