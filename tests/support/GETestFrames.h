// Semi-planar frames, camera buffers in shared memory, and the colour
// formulas that expected outputs are worked out from. Free of the library's
// code, so that the dlopen test can use it too.
#ifndef POSTEFFECT_TESTS_GETESTFRAMES_H
#define POSTEFFECT_TESTS_GETESTFRAMES_H

#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace getest {

// A w x h semi-planar image: w x h luma bytes, then h / 2 rows of w bytes of
// interleaved chroma pairs (V first, one pair per 2 x 2 block).
struct SPImage {
    int w = 0, h = 0;
    std::vector<unsigned char> data;

    SPImage(int width, int height) : w(width), h(height), data((size_t)width * height * 3 / 2) {}
    unsigned char* YPlane() { return data.data(); }
    unsigned char* UVPlane() { return data.data() + (size_t)w * h; }
    const unsigned char* YPlane() const { return data.data(); }
    const unsigned char* UVPlane() const { return data.data() + (size_t)w * h; }
    int Y(int x, int r) const { return data[(size_t)r * w + x]; }
    int V(int x, int r) const { return UVPlane()[(size_t)(r / 2) * w + (x & ~1)]; }
    int U(int x, int r) const { return UVPlane()[(size_t)(r / 2) * w + (x & ~1) + 1]; }

    // Luma that differs along both axes (no reflection maps it onto itself)
    // and chroma per block, kept inside [40, 210] and [100, 156] so that no
    // RGB channel clips; `seed` shifts the whole pattern.
    static SPImage Pattern(int w, int h, int seed = 0) {
        SPImage img(w, h);
        for (int r = 0; r < h; ++r) {
            for (int x = 0; x < w; ++x) {
                img.data[(size_t)r * w + x] =
                    (unsigned char)(40 + (x * 5 + r * 11 + (x * r) % 7 + seed) % 171);
            }
        }
        for (int br = 0; br < h / 2; ++br) {
            for (int bx = 0; bx < w / 2; ++bx) {
                unsigned char* p = img.UVPlane() + (size_t)br * w + bx * 2;
                p[0] = (unsigned char)(100 + (bx * 3 + br * 5 + seed) % 57);
                p[1] = (unsigned char)(100 + (bx * 7 + br * 2 + 3 * seed) % 57);
            }
        }
        return img;
    }
    // Luma f(x, y); each block's chroma pair c(bx, by) (V, U), or 128.
    static SPImage Grey(int w, int h, const std::function<int(int, int)>& f,
                        const std::function<std::pair<int, int>(int, int)>& c = nullptr) {
        SPImage img(w, h);
        for (int r = 0; r < h; ++r) {
            for (int x = 0; x < w; ++x) {
                img.data[(size_t)r * w + x] = (unsigned char)f(x, r);
                if (r % 2 == 0 && x % 2 == 0) {
                    const std::pair<int, int> vu = c ? c(x / 2, r / 2) : std::make_pair(128, 128);
                    img.UVPlane()[(size_t)r / 2 * w + x] = (unsigned char)vu.first;
                    img.UVPlane()[(size_t)r / 2 * w + x + 1] = (unsigned char)vu.second;
                }
            }
        }
        return img;
    }
};

// Input pictures for the effect tables. PatternImage: Pattern(w, h).
// GreyRamp: greys (4 x + 9 y) mod 256, every level from black to white.
// Smooth, SmoothAlongX, SmoothAlongY: luma that rises and falls by 2 a pixel
// along both axes, or along one only (40 to 160), chroma drifting slowly:
// no step between neighbours larger than 2.
inline SPImage PatternImage(int w, int h) {
    return SPImage::Pattern(w, h);
}
inline SPImage GreyRamp(int w, int h) {
    return SPImage::Grey(w, h, [](int x, int y) { return (x * 4 + y * 9) % 256; });
}
inline SPImage SmoothImage(int w, int h, bool alongX, bool alongY) {
    return SPImage::Grey(
        w, h,
        [=](int x, int y) {
            return 40 + (alongX ? 2 * abs(x % 80 - 40) : 0) + (alongY ? 2 * abs(y % 40 - 20) : 0);
        },
        [=](int bx, int by) {
            return std::make_pair(alongX ? 100 + bx / 4 : 110, alongY ? 150 - by / 2 : 140);
        });
}
inline SPImage Smooth(int w, int h) {
    return SmoothImage(w, h, true, true);
}
inline SPImage SmoothAlongX(int w, int h) {
    return SmoothImage(w, h, true, false);
}
inline SPImage SmoothAlongY(int w, int h) {
    return SmoothImage(w, h, false, true);
}

// ---------------------------------------------------------------------------
// Colour formulas, channels in [0, 1].

struct RGB {
    double r, g, b;
};

inline double Clamp01(double v) {
    return v < 0.0 ? 0.0 : (v > 1.0 ? 1.0 : v);
}

// The shaders' YUV to RGB: full-range BT.601 with the chroma offset folded in.
inline RGB YuvToRgb(double y, double v, double u) {
    const double c0 = y / 255.0, c1 = v / 255.0, c2 = u / 255.0;
    return {c0 + 1.402 * c1 - 0.701, c0 - 0.714 * c1 - 0.344 * c2 + 0.529, c0 + 1.772 * c2 - 0.886};
}

// What an 8-bit framebuffer keeps of a colour.
inline RGB Stored(const RGB& c) {
    auto q = [](double x) { return round(Clamp01(x) * 255.0) / 255.0; };
    return {q(c.r), q(c.g), q(c.b)};
}

// The converter's RGB to YUV, in (unrounded) bytes.
inline double LumaOf(const RGB& c) {
    return Clamp01(0.299 * c.r + 0.587 * c.g + 0.114 * c.b) * 255.0;
}
inline double VOf(const RGB& c) {
    return Clamp01(0.5 * c.r - 0.4186829 * c.g - 0.0813089 * c.b + 0.5) * 255.0;
}
inline double UOf(const RGB& c) {
    return Clamp01(-0.168727 * c.r - 0.33126147 * c.g + 0.5 * c.b + 0.5) * 255.0;
}

// Per-pixel colour operations of the effects.
inline RGB Unchanged(const RGB& c) {
    return c;
}
// Bloom: each channel times 3.5 x its luminance (0.3, 0.59, 0.11).
inline RGB Bloom(const RGB& c) {
    const double k = 3.5 * (0.3 * c.r + 0.59 * c.g + 0.11 * c.b);
    return {c.r * k, c.g * k, c.b * k};
}

// Where output pixel (x, y) takes its colour from.
typedef std::function<void(int x, int y, int* sx, int* sy)> SourceOf;
inline void Identity(int x, int y, int* sx, int* sy) {
    *sx = x;
    *sy = y;
}
// Mirror: each tw x th tile (the texture, in preview the whole frame) shows
// its upper rows, or with `columns` its left columns, reflected about its
// middle.
inline SourceOf Mirrored(int tw, int th, bool columns) {
    return [=](int x, int y, int* sx, int* sy) {
        const int cx = x % tw, cy = y % th;
        *sx = columns ? x - cx + (cx < tw / 2 ? cx : tw - 1 - cx) : x;
        *sy = columns ? y : y - cy + (cy < th / 2 ? cy : th - 1 - cy);
    };
}

// Compares output planes of w x h (luma rows of w bytes, chroma rows of the
// same length) with the colours they should hold: each luma byte with the
// luma of `colour(x, y)` as an 8-bit framebuffer keeps it, the chroma pair of
// each 2 x 2 block with the mean of its four stored colours. A byte is wrong
// when it lies more than `tol` from the value, or with `rounded` from the
// value rounded to a byte. Reports the first few wrong bytes and returns how
// many there were.
inline int CompareToColours(int w, int h, const unsigned char* y, const unsigned char* uv,
                            const std::function<RGB(int x, int y)>& colour, double tol,
                            const std::string& what, bool rounded = true) {
    auto stored = [&](int x, int r) { return Stored(colour(x, r)); };
    int bad = 0;
    auto check = [&](int got, double want, const char* plane, int x, int r) {
        if (fabs(got - (rounded ? round(want) : want)) > tol && ++bad <= 5) {
            ADD_FAILURE() << what << ": " << plane << " at (" << x << ", " << r << ") is " << got
                          << ", want " << want;
        }
    };
    for (int r = 0; r < h; ++r) {
        for (int x = 0; x < w; ++x) {
            check(y[(size_t)r * w + x], LumaOf(stored(x, r)), "luma", x, r);
        }
    }
    for (int r = 0; r + 1 < h; r += 2) {
        for (int x = 0; x + 1 < w; x += 2) {
            RGB m = {0, 0, 0};
            for (int k = 0; k < 4; ++k) {
                const RGB c = stored(x + k % 2, r + k / 2);
                m = {m.r + c.r / 4, m.g + c.g / 4, m.b + c.b / 4};
            }
            const unsigned char* p = uv + (size_t)(r / 2) * w + x;
            check(p[0], VOf(m), "V", x, r);
            check(p[1], UOf(m), "U", x, r);
        }
    }
    return bad;
}

// CompareToColours of `in`'s size, each pixel `op` of the source pixel that
// `source` names.
inline int CompareToFormula(const SPImage& in, const unsigned char* y, const unsigned char* uv,
                            const SourceOf& source, RGB (*op)(const RGB&), double tol,
                            const std::string& what, bool rounded = true) {
    return CompareToColours(
        in.w, in.h, y, uv,
        [&](int x, int r) {
            int sx, sy;
            source(x, r, &sx, &sy);
            return op(YuvToRgb(in.Y(sx, sy), in.V(sx, sy), in.U(sx, sy)));
        },
        tol, what, rounded);
}

// The colour a linearly filtered texture of `img` (one Y, V, U texel per
// pixel, clamped at the edges) gives at pixel coordinates (u, v), the
// centre of pixel (x, y) being (x + 1/2, y + 1/2).
inline RGB SampleLinear(const SPImage& img, double u, double v) {
    auto clampTo = [](int i, int n) { return i < 0 ? 0 : (i >= n ? n - 1 : i); };
    const double fu = u - 0.5, fv = v - 0.5;
    const int x0 = (int)floor(fu), y0 = (int)floor(fv);
    const double ax = fu - x0, ay = fv - y0;
    double c[3] = {0, 0, 0};
    for (int k = 0; k < 4; ++k) {
        const int x = clampTo(x0 + k % 2, img.w), r = clampTo(y0 + k / 2, img.h);
        const double wgt = (k % 2 ? ax : 1 - ax) * (k / 2 ? ay : 1 - ay);
        c[0] += wgt * img.Y(x, r);
        c[1] += wgt * img.V(x, r);
        c[2] += wgt * img.U(x, r);
    }
    return YuvToRgb(c[0], c[1], c[2]);
}

// ---------------------------------------------------------------------------

// A camera buffer: shared memory with a file descriptor, as the camera
// service hands them over, filled with `fill`.
class CameraBuffer {
public:
    explicit CameraBuffer(size_t size, unsigned char fill = 0) : m_nSize(size) {
        m_nFd = memfd_create("camera", MFD_CLOEXEC);
        void* base = MAP_FAILED;
        if (m_nFd >= 0 && ftruncate(m_nFd, (off_t)size) == 0) {
            base = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, m_nFd, 0);
        }
        if (base == MAP_FAILED) {
            ADD_FAILURE() << "camera buffer of " << size << " bytes";
            return;
        }
        m_pBase = static_cast<unsigned char*>(base);
        memset(m_pBase, fill, size);
    }
    ~CameraBuffer() {
        if (m_pBase != nullptr) {
            munmap(m_pBase, m_nSize);
        }
        if (m_nFd >= 0) {
            close(m_nFd);
        }
    }
    int Fd() const { return m_nFd; }
    unsigned char* Base() const { return m_pBase; }
    size_t Size() const { return m_nSize; }
    // The buffer's bytes, for before / after comparisons.
    std::vector<unsigned char> Bytes() const { return {m_pBase, m_pBase + m_nSize}; }

private:
    CameraBuffer(const CameraBuffer&) = delete;
    CameraBuffer& operator=(const CameraBuffer&) = delete;
    int m_nFd = -1;
    unsigned char* m_pBase = nullptr;
    size_t m_nSize;
};

}  // namespace getest

#endif
