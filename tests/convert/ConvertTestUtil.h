// Helpers for the converter tests: poisoned output buffers with guard bytes,
// random semi-planar frames and the per-pixel layout rules they are checked
// against.
#ifndef POSTEFFECT_TESTS_CONVERT_TESTUTIL_H
#define POSTEFFECT_TESTS_CONVERT_TESTUTIL_H

#include <stddef.h>
#include <stdint.h>

#include <random>
#include <string>
#include <vector>

namespace convtest {

inline void FillRandom(uint8_t* p, size_t n, std::mt19937& rng) {
    for (size_t i = 0; i < n; ++i) {
        p[i] = static_cast<uint8_t>(rng() >> 24);
    }
}

// An output buffer of nSize bytes at a chosen offset from a 64-byte boundary,
// with kGuard guard bytes on each side. Payload and guards start out as
// random "poison"; Original() keeps that first content, so a test can tell
// the bytes a function wrote from those it left alone.
class GuardedBuffer {
public:
    static constexpr size_t kGuard = 256;

    GuardedBuffer(size_t nSize, size_t nMisalign, uint32_t nSeed) : m_nSize(nSize) {
        m_vStorage.resize(nSize + 2 * kGuard + 128);
        const uintptr_t base = reinterpret_cast<uintptr_t>(m_vStorage.data()) + kGuard;
        m_nStart = ((base + 63) & ~uintptr_t(63)) - reinterpret_cast<uintptr_t>(m_vStorage.data()) +
                   nMisalign;
        std::mt19937 rng(nSeed);
        FillRandom(m_vStorage.data(), m_vStorage.size(), rng);
        m_vOriginal = m_vStorage;
    }

    uint8_t* Data() { return m_vStorage.data() + m_nStart; }
    const uint8_t* Data() const { return m_vStorage.data() + m_nStart; }
    size_t Size() const { return m_nSize; }
    // The payload as it was before the function under test ran.
    const uint8_t* Original() const { return m_vOriginal.data() + m_nStart; }

    // Empty when the kGuard bytes before and after the payload are intact,
    // otherwise a description of the first changed byte.
    std::string CheckGuards() const {
        for (size_t i = 0; i < kGuard; ++i) {
            const size_t before = m_nStart - kGuard + i;
            if (m_vStorage[before] != m_vOriginal[before]) {
                return "guard byte changed at offset -" + std::to_string(kGuard - i);
            }
            const size_t after = m_nStart + m_nSize + i;
            if (m_vStorage[after] != m_vOriginal[after]) {
                return "guard byte changed at payload end + " + std::to_string(i);
            }
        }
        return std::string();
    }

private:
    size_t m_nSize;
    size_t m_nStart;
    std::vector<uint8_t> m_vStorage;
    std::vector<uint8_t> m_vOriginal;
};

// A semi-planar frame: nHeight luma rows of nStride bytes followed by
// nHeight / 2 chroma rows of nStride bytes (interleaved pairs), all random.
struct Frame {
    Frame(int stride, int height, uint32_t nSeed)
        : nStride(stride), nHeight(height), vData(size_t(stride) * (height + height / 2)) {
        std::mt19937 rng(nSeed);
        FillRandom(vData.data(), vData.size(), rng);
    }
    const uint8_t* Data() const { return vData.data(); }
    uint8_t Y(int r, int c) const { return vData[size_t(r) * nStride + c]; }
    // Byte k (0 or 1) of the chroma pair of chroma row cr that starts at
    // byte column c (even).
    uint8_t C(int cr, int c, int k) const { return vData[size_t(nHeight + cr) * nStride + c + k]; }

    int nStride;
    int nHeight;
    std::vector<uint8_t> vData;
};

// The "yuvx" pixel (r, c) of a frame: luma (r, c), the chroma pair of the
// 2 x 2 block holding it, 0xFF.
inline void RefPixel(const Frame& f, int r, int c, uint8_t* px) {
    px[0] = f.Y(r, c);
    px[1] = f.C(r / 2, c & ~1, 0);
    px[2] = f.C(r / 2, c & ~1, 1);
    px[3] = 0xFF;
}

}  // namespace convtest

#endif
