// The harness against the real plug-in, libposteffect.so, end to end on
// llvmpipe: Bloom (9) on grey frames, whose luma becomes 3.5 Y^2 / 255 and
// whose chroma stays neutral, checked pixel by pixel for preview frames and
// for a capture processed in several tiles, so that the buffers the harness
// hands over are read where the plug-in reads them. (The effects' geometry
// and colour are tested with the library itself.)
#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>

#include <algorithm>
#include <string>

#include "ToolTestUtil.h"
#include "harness.h"
#include "imageio.h"
#include "options.h"

using tooltest::Contains;

namespace {

// A grey frame whose luma differs in every row and column.
NV21Frame GreyFrame(int w, int h, int nBase) {
    NV21Frame f;
    f.Resize(w, h);
    for (int r = 0; r < h; ++r) {
        for (int c = 0; c < w; ++c) {
            f.Luma()[r * w + c] = uint8_t(nBase + r + c);
        }
    }
    memset(f.Chroma(), 128, f.m_vData.size() / 3);
    return f;
}

// Compares a processed frame with Bloom of the grey frame in: luma
// min(255, 3.5 Y^2 / 255), chroma 128.
void ExpectGreyBloom(const NV21Frame& in, const NV21Frame& out, const char* what) {
    ASSERT_EQ(in.m_vData.size(), out.m_vData.size()) << what;
    const size_t nLuma = size_t(in.m_nWidth) * in.m_nHeight;
    int nBad = 0;
    double worst = 0;
    for (size_t i = 0; i < out.m_vData.size(); ++i) {
        const double y = in.m_vData[i];
        const double want = i < nLuma ? std::min(255.0, floor(3.5 * y * y / 255 + 0.5)) : 128;
        const double d = fabs(want - out.m_vData[i]);
        worst = std::max(worst, d);
        nBad += d > 2.5 ? 1 : 0;
    }
    EXPECT_EQ(0, nBad) << what << ": worst difference " << worst;
}

}  // namespace

TEST(ToolPlugin, BloomPreviewTiledCaptureAndEffectZero) {
    PostEffectLibrary lib;
    std::string err;
    ASSERT_TRUE(lib.Open(POSTEFFECT_LIBRARY, &err)) << err;
    const NV21Frame preview = GreyFrame(64, 32, 20);
    // 96 x 40 in tiles of 64 x 32: two columns (64 and 32 wide) and two rows
    // (32 and 8 high), each fetched through the plug-in's callback.
    const NV21Frame capture = GreyFrame(96, 40, 10);
    RunResult r = tooltest::RunOnce(lib, "GPU-effect=9", preview, &capture, 2);
    ASSERT_TRUE(r.m_bRan) << r.m_strNote;
    EXPECT_EQ("", r.m_strNote);
    ExpectGreyBloom(preview, r.m_preview, "preview");
    ExpectGreyBloom(capture, r.m_capture, "capture");
    // Effect 0 leaves both alone.
    r = tooltest::RunOnce(lib, "GPU-effect=0", preview, &capture, 2);
    EXPECT_EQ("", r.m_strNote);
    EXPECT_EQ(preview.m_vData, r.m_preview.m_vData);
    EXPECT_EQ(capture.m_vData, r.m_capture.m_vData);
}

TEST(ToolPlugin, WholeToolRunSkipsMissingEffects) {
    tooltest::TempDir dir;
    const RGBImage img = tooltest::Painted(96, 64, [](int x, int y, uint8_t* p) {
        p[0] = uint8_t(x * 2);
        p[1] = uint8_t(y * 3);
        p[2] = 90;
    });
    std::string err;
    ASSERT_TRUE(WriteImage(dir.Path("in.png"), img, &err)) << err;
    ToolOptions opts;
    opts.m_nPreviewWidth = 64;
    opts.m_nPreviewHeight = 32;
    opts.m_nFrames = 2;
    opts.m_strOutDir = dir.Dir();
    const tooltest::ToolRun run =
        tooltest::RunToolCaught(opts, dir.Path("in.png"), POSTEFFECT_LIBRARY);
    EXPECT_EQ(0, run.nExit) << run.strErr;
    // Mirror and Bloom exist and run; an effect without a table entry yet is
    // skipped, one that has come since runs: either way it is on the table.
    for (const EffectInfo& e : EffectTable()) {
        if (e.m_nNumber > 0) {
            EXPECT_TRUE(Contains(run.strOut, std::string(e.m_szName) + " ("));
        }
    }
    EXPECT_FALSE(Contains(run.strOut, "Mirror (8)                 skipped"));
    EXPECT_FALSE(Contains(run.strOut, "Bloom (9)                  skipped"));
    EXPECT_FALSE(Contains(run.strOut, "note:"));
    RGBImage sheet;
    EXPECT_TRUE(ReadImage(dir.Path("posteffect-contact.png"), &sheet, &err)) << err;
}
