// The harness against the real plug-in, libposteffect.so, end to end on
// llvmpipe: the frames that come back from Mirror (8) and Bloom (9) are
// checked pixel by pixel against values computed here from the frames that
// went in, for preview frames and for a capture processed in several tiles.
#include <gtest/gtest.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <string>

#include "app.h"
#include "harness.h"
#include "imageio.h"
#include "options.h"

namespace {

// A frame whose luma differs in every row and column and whose chroma varies
// gently, so that every colour stays inside the RGB cube (no clamping on the
// way through the GPU).
NV21Frame Pattern(int w, int h, int nBase) {
    NV21Frame f;
    f.Resize(w, h);
    for (int r = 0; r < h; ++r) {
        for (int c = 0; c < w; ++c) {
            f.Luma()[r * w + c] = uint8_t(nBase + r + c);
        }
    }
    for (int k = 0; k < h / 2; ++k) {
        for (int j = 0; j < w / 2; ++j) {
            f.Chroma()[k * w + 2 * j] = uint8_t(128 + ((j % 8) - 4) * 3);
            f.Chroma()[k * w + 2 * j + 1] = uint8_t(128 + ((k % 8) - 4) * 3);
        }
    }
    return f;
}

double Clamp01(double v) {
    return v < 0 ? 0 : (v > 1 ? 1 : v);
}

// The colour of a pixel as the GPU sees it (Y, V, U) and then as the 8-bit
// framebuffer holds it.
void ToRgb8(const NV21Frame& f, int x, int y, double rgb[3]) {
    const double Y = f.Luma()[y * f.m_nWidth + x] / 255.0;
    const uint8_t* pair = f.Chroma() + (y / 2) * f.m_nWidth + (x & ~1);
    const double V = pair[0] / 255.0 - 0.5;
    const double U = pair[1] / 255.0 - 0.5;
    rgb[0] = Clamp01(Y + 1.402 * V);
    rgb[1] = Clamp01(Y - 0.714 * V - 0.344 * U);
    rgb[2] = Clamp01(Y + 1.772 * U);
}

double Luma(const double rgb[3]) {
    return 255.0 * (0.299 * rgb[0] + 0.587 * rgb[1] + 0.114 * rgb[2]);
}

// Bloom: each channel times 3.5 times the pixel's luminance, saturating.
void Bloom(double rgb[3]) {
    const double a = 0.3 * rgb[0] + 0.59 * rgb[1] + 0.11 * rgb[2];
    for (int i = 0; i < 3; ++i) {
        rgb[i] = Clamp01(floor(Clamp01(rgb[i] * 3.5 * a) * 255.0 + 0.5) / 255.0);
    }
}

// V and U of the mean colour of a 2 x 2 block of rgb values.
void BlockChroma(const double rgb[4][3], double* pV, double* pU) {
    double m[3] = {0, 0, 0};
    for (int i = 0; i < 4; ++i) {
        for (int k = 0; k < 3; ++k) {
            m[k] += rgb[i][k] / 4;
        }
    }
    *pV = 255.0 * (0.5 * m[0] - 0.4186829 * m[1] - 0.0813089 * m[2] + 0.5);
    *pU = 255.0 * (-0.168727 * m[0] - 0.33126147 * m[1] + 0.5 * m[2] + 0.5);
}

// Compares a processed frame with the expectation: out pixel (x, y) shows
// source pixel map(x, y) of `in`, optionally through Bloom.
template <typename Map>
void ExpectFrame(const NV21Frame& in, const NV21Frame& out, Map map, bool bBloom,
                 const char* what) {
    ASSERT_EQ(in.m_nWidth, out.m_nWidth);
    ASSERT_EQ(in.m_nHeight, out.m_nHeight);
    const int w = in.m_nWidth;
    const int h = in.m_nHeight;
    int nBadY = 0, nBadC = 0;
    double worstY = 0, worstC = 0;
    for (int y = 0; y < h; y += 2) {
        for (int x = 0; x < w; x += 2) {
            double block[4][3];
            for (int i = 0; i < 4; ++i) {
                const int px = x + (i & 1);
                const int py = y + (i >> 1);
                int sx = px, sy = py;
                map(px, py, &sx, &sy);
                ToRgb8(in, sx, sy, block[i]);
                if (bBloom) {
                    Bloom(block[i]);
                }
                const double d = fabs(Luma(block[i]) - out.Luma()[py * w + px]);
                worstY = std::max(worstY, d);
                nBadY += d > 2.5 ? 1 : 0;
            }
            double v, u;
            BlockChroma(block, &v, &u);
            const uint8_t* pair = out.Chroma() + (y / 2) * w + x;
            const double d = std::max(fabs(v - pair[0]), fabs(u - pair[1]));
            worstC = std::max(worstC, d);
            nBadC += d > 3.5 ? 1 : 0;
        }
    }
    EXPECT_EQ(0, nBadY) << what << ": worst luma difference " << worstY;
    EXPECT_EQ(0, nBadC) << what << ": worst chroma difference " << worstC;
}

class PluginTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string err;
        ASSERT_TRUE(m_lib.Open(POSTEFFECT_LIBRARY, &err)) << err;
    }
    RunResult Run(const std::string& params, const NV21Frame& preview, const NV21Frame* capture,
                  int nFrames = 2) {
        RunConfig config;
        config.m_strParams = params;
        config.m_pPreview = &preview;
        config.m_pCapture = capture;
        config.m_nFrames = nFrames;
        RunResult result;
        std::string err;
        EXPECT_TRUE(RunEffect(m_lib, config, &result, &err)) << err;
        EXPECT_TRUE(result.m_bRan) << result.m_strNote;
        EXPECT_EQ("", result.m_strNote);
        return result;
    }
    PostEffectLibrary m_lib;
};

}  // namespace

TEST_F(PluginTest, MirrorPortraitAndLandscape) {
    const NV21Frame in = Pattern(64, 32, 40);
    // Portrait (no landscape word): the lower half of the rows, in memory
    // order, shows the upper half reflected. One tile: the capture too.
    RunResult r = Run("GPU-effect=8", in, &in);
    auto portrait = [](int x, int y, int* sx, int* sy) {
        *sx = x;
        *sy = y >= 16 ? 31 - y : y;
    };
    ExpectFrame(in, r.m_preview, portrait, false, "portrait preview");
    ExpectFrame(in, r.m_capture, portrait, false, "portrait capture");
    // The first group-0 word set: landscape, the right half of the columns.
    r = Run("GPU-effect=8;GE-param0=1,0,0,0", in, nullptr);
    ExpectFrame(
        in, r.m_preview,
        [](int x, int y, int* sx, int* sy) {
            *sx = x >= 32 ? 63 - x : x;
            *sy = y;
        },
        false, "landscape preview");
}

TEST_F(PluginTest, BloomPreviewAndTiledCapture) {
    const NV21Frame preview = Pattern(64, 32, 20);
    // 96 x 40 in tiles of 64 x 32: two columns (64 and 32 wide) and two rows
    // (32 and 8 high), each fetched through the plug-in's callback.
    const NV21Frame capture = Pattern(96, 40, 10);
    const RunResult r = Run("GPU-effect=9", preview, &capture, 3);
    auto same = [](int x, int y, int* sx, int* sy) {
        *sx = x;
        *sy = y;
    };
    ExpectFrame(preview, r.m_preview, same, true, "preview");
    ExpectFrame(capture, r.m_capture, same, true, "capture");
    EXPECT_EQ(0, r.m_nCaptureResult);
}

TEST_F(PluginTest, EffectZeroLeavesFramesAlone) {
    const NV21Frame in = Pattern(64, 32, 50);
    const RunResult r = Run("GPU-effect=0", in, &in);
    EXPECT_EQ(in.m_vData, r.m_preview.m_vData);
    EXPECT_EQ(in.m_vData, r.m_capture.m_vData);
}

TEST_F(PluginTest, WholeToolRunSkipsMissingEffects) {
    char tmpl[] = "/tmp/posteffect-plugin-XXXXXX";
    const std::string dir = mkdtemp(tmpl);
    RGBImage img;
    img.Resize(96, 64);
    for (int y = 0; y < 64; ++y) {
        for (int x = 0; x < 96; ++x) {
            uint8_t* p = img.Pixel(x, y);
            p[0] = uint8_t(x * 2);
            p[1] = uint8_t(y * 3);
            p[2] = 90;
        }
    }
    std::string err;
    ASSERT_TRUE(WriteImage(dir + "/in.png", img, &err)) << err;
    ToolOptions opts;
    opts.m_nPreviewWidth = 64;
    opts.m_nPreviewHeight = 32;
    opts.m_nFrames = 2;
    opts.m_strOutDir = dir;
    FILE* out = tmpfile();
    FILE* errf = tmpfile();
    EXPECT_EQ(0, RunTool(opts, dir + "/in.png", POSTEFFECT_LIBRARY, out, errf));
    std::string text(4096, '\0');
    rewind(out);
    text.resize(fread(&text[0], 1, text.size(), out));
    fclose(out);
    fclose(errf);
    // Mirror and Bloom exist and run; an effect without a table entry yet is
    // skipped, one that has come since runs: either way it is on the table.
    for (const EffectInfo& e : EffectTable()) {
        if (e.m_nNumber > 0) {
            EXPECT_NE(std::string::npos, text.find(std::string(e.m_szName) + " (")) << text;
        }
    }
    EXPECT_EQ(std::string::npos, text.find("Mirror (8)                 skipped")) << text;
    EXPECT_EQ(std::string::npos, text.find("Bloom (9)                  skipped")) << text;
    RGBImage sheet;
    EXPECT_TRUE(ReadImage(dir + "/posteffect-contact.png", &sheet, &err)) << err;
    const std::string cmd = "rm -rf '" + dir + "'";
    EXPECT_EQ(0, system(cmd.c_str()));
}
