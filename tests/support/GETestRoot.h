// A folder that stands for the device root while it lives, with look-up
// images of known contents: the library's "/system/media/GPU/x" and
// "/sdcard/quandor/x" open <root>/system/media/GPU/x and
// <root>/sdcard/quandor/x (POSTEFFECT_ROOT, read at every open). Example in
// tests/README.md.
#ifndef POSTEFFECT_TESTS_GETESTROOT_H
#define POSTEFFECT_TESTS_GETESTROOT_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "GETestFile.h"

class GETestRoot {
public:
    enum Folder { kSystem, kOverride, kData };

    GETestRoot() {
        char tmpl[] = "/tmp/posteffect-root-XXXXXX";
        m_dir = mkdtemp(tmpl) ? tmpl : "";
        EXPECT_FALSE(m_dir.empty()) << "mkdtemp failed";
        for (Folder f : {kSystem, kOverride, kData}) {
            std::filesystem::create_directories(Host(f, ""));
        }
        m_env.reset(new GETestEnv("POSTEFFECT_ROOT", m_dir.c_str()));
    }
    ~GETestRoot() {
        m_env.reset();
        std::error_code ec;
        std::filesystem::remove_all(m_dir, ec);
    }

    // The device path of `name` in a folder, and where it lies on the host.
    static std::string Device(Folder f, const std::string& name) {
        static const char* const kDirs[] = {"/system/media/GPU/", "/sdcard/quandor/", "/data/"};
        return kDirs[f] + name;
    }
    std::string Host(Folder f, const std::string& name) const { return m_dir + Device(f, name); }

    // Writes an uncompressed BMP of w x h, `bits` per pixel, whose texel (x, y)
    // (bits / 8 bytes, file row y) texel(x, y, bytes) fills; the reader copies
    // them verbatim. Returns the device path.
    std::string PutBmp(const std::string& name, int w, int h, unsigned bits,
                       const std::function<void(int x, int y, unsigned char* texel)>& texel,
                       Folder f = kSystem) const {
        const size_t bpp = bits / 8;
        GETestBytes px((size_t)w * h * bpp);
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                texel(x, y, &px[((size_t)y * w + x) * bpp]);
            }
        }
        return Put(name, GETestMakeBmp(w, h, bits, px), f);
    }
    // Writes `bytes` as the file `name`. Returns the device path.
    std::string Put(const std::string& name, const GETestBytes& bytes, Folder f = kSystem) const {
        EXPECT_TRUE(GETestWriteFile(Host(f, name), bytes)) << Host(f, name);
        return Device(f, name);
    }

private:
    GETestRoot(const GETestRoot&) = delete;
    GETestRoot& operator=(const GETestRoot&) = delete;

    std::string m_dir;
    std::unique_ptr<GETestEnv> m_env;
};

#endif
