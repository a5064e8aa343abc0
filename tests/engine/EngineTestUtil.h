// Helpers shared by the engine tests: semi-planar test images, a converter
// callback that serves capture tiles from such an image and records what it
// was asked for, and the full-range BT.601 formulas the converter implements.
#ifndef POSTEFFECT_TESTS_ENGINE_ENGINETESTUTIL_H
#define POSTEFFECT_TESTS_ENGINE_ENGINETESTUTIL_H

#include <math.h>

#include <sstream>
#include <string>
#include <vector>

#include "IPostEffect.h"
#include "engine/convert/sp2yuvx.h"
#include "gl/GLTexture.h"

namespace enginetest {

// A W x H semi-planar image: W x H luma bytes, then H / 2 rows of W bytes of
// interleaved V/U pairs. The values keep every pixel inside the RGB gamut
// (Y 70..179, chroma 110..146), so a round trip through RGB loses nothing
// but rounding.
struct SPImage {
    int W = 0, H = 0;
    std::vector<unsigned char> data;

    SPImage(int w, int h) : W(w), H(h), data((size_t)w * h * 3 / 2) {
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                data[(size_t)y * w + x] = (unsigned char)(70 + (x * 7 + y * 13) % 110);
            }
        }
        for (int k = 0; k < h / 2; ++k) {
            for (int i = 0; i < w / 2; ++i) {
                data[(size_t)w * h + (size_t)k * w + 2 * i] =
                    (unsigned char)(110 + (i * 5 + k * 3) % 37);  // V
                data[(size_t)w * h + (size_t)k * w + 2 * i + 1] =
                    (unsigned char)(110 + (i * 3 + k * 7 + 11) % 37);  // U
            }
        }
    }
    const unsigned char* Y() const { return data.data(); }
    const unsigned char* UV() const { return data.data() + (size_t)W * H; }
};

struct Rect {
    int x, y, w, h;
    bool operator==(const Rect& o) const { return x == o.x && y == o.y && w == o.w && h == o.h; }
};

inline std::string ToString(const std::vector<Rect>& rects) {
    std::ostringstream s;
    for (const Rect& r : rects) {
        s << "(" << r.x << "," << r.y << "," << r.w << "," << r.h << ") ";
    }
    return s.str();
}

// The plug-in's side of a capture: each tile is converted from `image` into
// the effect's streaming texture and the texture's buffer is cleaned so that
// the GPU sees it. Every call is recorded.
class FakeConverter : public IYUVConverter {
public:
    FakeConverter(const SPImage* image, GLTexture* tex) : m_pImage(image), m_pTex(tex) {}

    int convertRect(void* dst, int dw, int dh, int rx, int ry, int rw, int rh) override {
        m_rects.push_back(Rect{rx, ry, rw, rh});
        m_dw.push_back(dw);
        m_dh.push_back(dh);
        m_dst.push_back(dst);
        if (dst != nullptr && m_pImage != nullptr) {
            sp2yuvxs(dst, dw, dh, m_pImage->Y(), m_pImage->UV(), m_pImage->W, m_pImage->H, rx, ry,
                     rw, rh);
            if (m_pTex != nullptr) {
                m_pTex->clean_buffer();
            }
        }
        return 1;
    }

    const SPImage* m_pImage;
    GLTexture* m_pTex;
    std::vector<Rect> m_rects;
    std::vector<int> m_dw, m_dh;
    std::vector<void*> m_dst;
};

// Full-range BT.601, 8-bit values in and out (unrounded).
inline double LumaOf(double r, double g, double b) {
    return 0.299 * r + 0.587 * g + 0.114 * b;
}
inline double VOf(double r, double g, double b) {
    return 0.5 * r - 0.4186829 * g - 0.0813089 * b + 128.0;
}
inline double UOf(double r, double g, double b) {
    return -0.168727 * r - 0.33126147 * g + 0.5 * b + 128.0;
}

// Counts the bytes of `got` that differ from `want` by more than `tol`, and
// remembers the first of them for a message.
struct Mismatch {
    int count = 0;
    std::string first;
    void Check(int got, double want, double tol, const std::string& where) {
        if (fabs((double)got - want) > tol) {
            if (count == 0) {
                std::ostringstream s;
                s << where << ": got " << got << ", want " << want;
                first = s.str();
            }
            ++count;
        }
    }
};

}  // namespace enginetest

#endif
