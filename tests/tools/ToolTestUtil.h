// Helpers for the posteffect tool tests: pictures and frames made from a
// formula, a temporary folder, plug-in runs through the harness and whole
// tool runs with what they print.
#ifndef POSTEFFECT_TESTS_TOOLS_TOOLTESTUTIL_H
#define POSTEFFECT_TESTS_TOOLS_TOOLTESTUTIL_H

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "app.h"
#include "harness.h"
#include "imageio.h"
#include "yuv.h"

namespace tooltest {

// A w x h picture whose pixel (x, y) is set by fn(x, y, p), p its 3 bytes.
template <typename Fn>
RGBImage Painted(int w, int h, Fn fn) {
    RGBImage img;
    img.Resize(w, h);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            fn(x, y, img.Pixel(x, y));
        }
    }
    return img;
}

inline RGBImage Solid(int w, int h, uint8_t r, uint8_t g, uint8_t b) {
    const uint8_t c[3] = {r, g, b};
    return Painted(w, h, [&c](int, int, uint8_t* p) { memcpy(p, c, 3); });
}

// A fresh folder under /tmp, removed with its contents at the end.
class TempDir {
public:
    TempDir() {
        char tmpl[] = "/tmp/posteffect-tool-XXXXXX";
        m_path = mkdtemp(tmpl) ? tmpl : "";
        EXPECT_FALSE(m_path.empty()) << "mkdtemp failed";
    }
    ~TempDir() {
        const std::string cmd = "rm -rf '" + m_path + "'";
        EXPECT_EQ(0, system(cmd.c_str())) << "could not remove " << m_path;
    }
    std::string Path(const std::string& name) const { return m_path + "/" + name; }
    const std::string& Dir() const { return m_path; }

private:
    std::string m_path;
};

// Whether text holds part, for EXPECT_TRUE and EXPECT_FALSE (a failure shows
// the text).
inline ::testing::AssertionResult Contains(const std::string& text, const std::string& part) {
    if (text.find(part) != std::string::npos) {
        return ::testing::AssertionSuccess() << "\"" << part << "\" is in:\n" << text;
    }
    return ::testing::AssertionFailure() << "\"" << part << "\" is not in:\n" << text;
}

inline bool Exists(const std::string& path) {
    FILE* f = fopen(path.c_str(), "rb");
    if (f) {
        fclose(f);
    }
    return f != nullptr;
}

// One RunEffect: params, nFrames preview frames made from preview (setCrop
// with pnCrop after the first when given), then the capture when given. The
// harness itself must not fail.
inline RunResult RunOnce(const PostEffectLibrary& lib, const std::string& params,
                         const NV21Frame& preview, const NV21Frame* pCapture, int nFrames,
                         const int* pnCrop = nullptr) {
    RunConfig config;
    config.m_strParams = params;
    config.m_pPreview = &preview;
    config.m_pCapture = pCapture;
    config.m_nFrames = nFrames;
    config.m_bCrop = pnCrop != nullptr;
    if (pnCrop) {
        memcpy(config.m_anCrop, pnCrop, sizeof(config.m_anCrop));
    }
    RunResult result;
    std::string err;
    EXPECT_TRUE(RunEffect(lib, config, &result, &err)) << err;
    return result;
}

// RunTool with its exit code and what it printed on each stream.
struct ToolRun {
    int nExit;
    std::string strOut;
    std::string strErr;
};

inline ToolRun RunToolCaught(const ToolOptions& opts, const std::string& defaultImage,
                             const std::string& defaultLib) {
    FILE* files[2] = {tmpfile(), tmpfile()};
    ToolRun run;
    run.nExit = RunTool(opts, defaultImage, defaultLib, files[0], files[1]);
    std::string* texts[2] = {&run.strOut, &run.strErr};
    for (int i = 0; i < 2; ++i) {
        rewind(files[i]);
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof(buf), files[i])) > 0) {
            texts[i]->append(buf, n);
        }
        fclose(files[i]);
    }
    return run;
}

}  // namespace tooltest

#endif
