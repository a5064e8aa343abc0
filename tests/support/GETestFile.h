// Byte buffers, files and the environment for tests: deterministic byte
// patterns, whole-file reads and writes (device paths such as "/data/x"
// resolve on the host as the library's own do), little-endian fields, BMP
// files in the layout the library reads, and variables set for a scope.
#ifndef POSTEFFECT_TESTS_GETESTFILE_H
#define POSTEFFECT_TESTS_GETESTFILE_H

#include <gtest/gtest.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

typedef std::vector<unsigned char> GETestBytes;

// `n` pseudo-random bytes, the same for the same seed.
inline GETestBytes GETestPattern(size_t n, unsigned seed) {
    GETestBytes p(n);
    unsigned s = seed * 2654435761u + 1;
    for (size_t i = 0; i < n; ++i) {
        s = s * 1103515245u + 12345u;
        p[i] = (unsigned char)(s >> 16);
    }
    return p;
}

// Writes `bytes` as the whole file; false when it cannot.
inline bool GETestWriteFile(const std::string& path, const GETestBytes& bytes) {
    FILE* f = fopen(path.c_str(), "wb");
    if (!f) {
        return false;
    }
    bool ok = bytes.empty() || fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    return fclose(f) == 0 && ok;
}

// The whole file; empty when it cannot be read.
inline GETestBytes GETestReadFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return GETestBytes(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

// Little-endian fields; Put32 grows the buffer when needed.
inline void GETestPut32(GETestBytes* b, size_t at, uint32_t v) {
    if (at + 4 > b->size()) {
        b->resize(at + 4, 0);
    }
    for (int i = 0; i < 4; ++i) {
        (*b)[at + i] = (unsigned char)(v >> (8 * i));
    }
}

inline uint32_t GETestGet32(const GETestBytes& b, size_t at) {
    return (uint32_t)b[at] | (uint32_t)b[at + 1] << 8 | (uint32_t)b[at + 2] << 16 |
           (uint32_t)b[at + 3] << 24;
}

inline unsigned GETestGet16(const GETestBytes& b, size_t at) {
    return (unsigned)b[at] | (unsigned)b[at + 1] << 8;
}

// An uncompressed BMP: the 54-byte header (width, height, bits per pixel,
// pixel-data offset 54 + gap, recognisable reserved and resolution fields),
// `gap` marker bytes 0xC0, 0xC1, ..., then `pixels` as they stand.
inline GETestBytes GETestMakeBmp(int32_t w, int32_t h, unsigned bits, const GETestBytes& pixels,
                                 size_t gap = 0) {
    GETestBytes b(54 + gap, 0);
    b[0] = 'B';
    b[1] = 'M';
    const uint32_t fields[][2] = {{2, (uint32_t)(54 + gap + pixels.size())},
                                  {6, 0x4C504D54},  // "TMPL"
                                  {10, (uint32_t)(54 + gap)},
                                  {14, 40},
                                  {18, (uint32_t)w},
                                  {22, (uint32_t)h},
                                  {26, 1 | bits << 16},
                                  {34, (uint32_t)pixels.size()},
                                  {38, 2835},
                                  {42, 2835}};
    for (const auto& f : fields) {
        GETestPut32(&b, f[0], f[1]);
    }
    for (size_t i = 0; i < gap; ++i) {
        b[54 + i] = (unsigned char)(0xC0 + i);
    }
    // resize and copy: GCC 12's array-bounds check misreads an insert here.
    b.resize(54 + gap + pixels.size());
    std::copy(pixels.begin(), pixels.end(), b.begin() + (ptrdiff_t)(54 + gap));
    return b;
}

// Sets (or, with null, clears) an environment variable for one scope.
class GETestEnv {
public:
    GETestEnv(const char* name, const char* value) : m_name(name) {
        const char* old = getenv(name);
        m_bHad = old != nullptr;
        m_old = m_bHad ? old : "";
        value ? setenv(name, value, 1) : unsetenv(name);
    }
    ~GETestEnv() { m_bHad ? setenv(m_name.c_str(), m_old.c_str(), 1) : unsetenv(m_name.c_str()); }

private:
    GETestEnv(const GETestEnv&) = delete;
    GETestEnv& operator=(const GETestEnv&) = delete;
    std::string m_name, m_old;
    bool m_bHad;
};

// A fresh folder under /tmp, removed with its contents at the end.
class GETestTempDir {
public:
    GETestTempDir() {
        char tmpl[] = "/tmp/posteffect-test-XXXXXX";
        m_path = mkdtemp(tmpl) ? tmpl : "";
        EXPECT_FALSE(m_path.empty()) << "mkdtemp failed";
    }
    ~GETestTempDir() {
        std::error_code ec;
        std::filesystem::remove_all(m_path, ec);
    }
    std::string Path(const std::string& name) const { return m_path + "/" + name; }
    const std::string& Dir() const { return m_path; }

private:
    GETestTempDir(const GETestTempDir&) = delete;
    GETestTempDir& operator=(const GETestTempDir&) = delete;
    std::string m_path;
};

// Whether text holds part, for EXPECT_TRUE and EXPECT_FALSE (a failure shows
// the text).
inline ::testing::AssertionResult GETestContains(const std::string& text, const std::string& part) {
    if (text.find(part) != std::string::npos) {
        return ::testing::AssertionSuccess() << "\"" << part << "\" is in:\n" << text;
    }
    return ::testing::AssertionFailure() << "\"" << part << "\" is not in:\n" << text;
}

#endif
