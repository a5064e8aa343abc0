// The harness against a stand-in plug-in (fake_posteffect.cpp): the camera's
// order of calls, shared-memory buffers whose descriptors map what is handed
// over, frame offsets, results copied back, skipped effects, and whole tool
// runs with their output files.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ToolTestUtil.h"
#include "harness.h"
#include "imageio.h"
#include "options.h"

using tooltest::Contains;
using tooltest::Exists;
using tooltest::RunOnce;
using tooltest::RunToolCaught;
using tooltest::TempDir;
using tooltest::ToolRun;

namespace {

// A frame of bytes that differ from their neighbours.
NV21Frame Pattern(int w, int h, int nSeed) {
    NV21Frame f;
    f.Resize(w, h);
    for (size_t i = 0; i < f.m_vData.size(); ++i) {
        f.m_vData[i] = uint8_t(i * 7 + size_t(nSeed));
    }
    return f;
}

// What the stand-in makes of a frame.
NV21Frame Changed(const NV21Frame& in) {
    NV21Frame f = in;
    const size_t nLuma = size_t(f.m_nWidth) * f.m_nHeight;
    for (size_t i = 0; i < nLuma; ++i) {
        f.m_vData[i] = uint8_t(255 - f.m_vData[i]);
    }
    for (size_t i = nLuma; i < f.m_vData.size(); i += 2) {
        std::swap(f.m_vData[i], f.m_vData[i + 1]);
    }
    return f;
}

// The stand-in opened for the harness, and its own log of the calls it got,
// reached through a second dlopen of the same file.
class HarnessTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_pHandle = dlopen(POSTEFFECT_FAKE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(nullptr, m_pHandle) << dlerror();
        m_pfnLog = reinterpret_cast<const char* (*)()>(dlsym(m_pHandle, "fakePostEffectLog"));
        auto pfnReset = reinterpret_cast<void (*)()>(dlsym(m_pHandle, "fakePostEffectReset"));
        ASSERT_TRUE(m_pfnLog && pfnReset);
        std::string err;
        ASSERT_TRUE(m_lib.Open(POSTEFFECT_FAKE_LIBRARY, &err)) << err;
        pfnReset();
    }
    void TearDown() override {
        if (m_pHandle) {
            dlclose(m_pHandle);
        }
    }
    // The calls so far, separated by " | ".
    std::string Calls() const {
        std::string s = m_pfnLog();
        for (size_t i = s.find('\n'); i != std::string::npos; i = s.find('\n', i)) {
            s.replace(i, 1, i + 1 == s.size() ? "" : " | ");
        }
        return s;
    }
    // A tool run with the stand-in unless opts names another library.
    ToolRun Tool(ToolOptions opts, const std::string& defaultImage) {
        opts.m_strLib = opts.m_strLib.empty() ? POSTEFFECT_FAKE_LIBRARY : opts.m_strLib;
        return RunToolCaught(opts, defaultImage, "/unused.so");
    }

    void* m_pHandle = nullptr;
    const char* (*m_pfnLog)() = nullptr;
    PostEffectLibrary m_lib;
};

}  // namespace

TEST(ToolHarnessLibrary, MissingOrForeignLibrariesAreErrors) {
    PostEffectLibrary lib;
    std::string err;
    EXPECT_FALSE(lib.Open("/no/such/libposteffect.so", &err));
    EXPECT_TRUE(Contains(err, "/no/such/libposteffect.so"));
    EXPECT_EQ(nullptr, lib.Create());
    // A real library without the two entry points.
    EXPECT_FALSE(lib.Open("libm.so.6", &err));
    EXPECT_TRUE(Contains(err, "createPostEffect"));
    EXPECT_EQ(nullptr, lib.Create());
}

TEST_F(HarnessTest, CameraOrderOffsetsAndResults) {
    const NV21Frame preview = Pattern(64, 32, 1);
    const NV21Frame capture = Pattern(96, 50, 2);
    const int anCrop[4] = {4, 6, 32, 16};
    const RunResult result =
        RunOnce(m_lib, "GPU-effect=9;GE-param0=1,2,3,4", preview, &capture, 4, anCrop);
    EXPECT_TRUE(result.m_bRan);
    EXPECT_EQ("", result.m_strNote);
    // Preview frames alternate between two page-aligned slots; the capture's
    // chroma starts at the page after its luma. The stand-in says when a
    // descriptor does not map what it was handed.
    EXPECT_EQ(
        "create | start | setParameters GPU-effect=9;GE-param0=1,2,3,4 | startPreview 64x32 | "
        "handlePreview 0 | setCrop 4,6,32,16 | handlePreview 4096 | handlePreview 0 | "
        "handlePreview 4096 | handleCapture 96x50 4096 8192 | stopPreview | stop | destroy",
        Calls());
    EXPECT_EQ((std::vector<int>{0, 0, 0, 0}), result.m_vPreviewResults);
    EXPECT_EQ(0, result.m_nCaptureResult);
    // Every frame was handed over fresh, so the last one (in the second
    // slot) is changed once.
    EXPECT_EQ(Changed(preview).m_vData, result.m_preview.m_vData);
    EXPECT_EQ(Changed(capture).m_vData, result.m_capture.m_vData);
    EXPECT_GE(result.m_dFirstPreviewMs, 0.0);
    EXPECT_GE(result.m_dPreviewMeanMs, 0.0);
    EXPECT_GE(result.m_dCaptureMs, 0.0);
}

TEST_F(HarnessTest, EffectThatDoesNotComeUpIsSkipped) {
    const NV21Frame frame = Pattern(64, 32, 1);
    const RunResult result = RunOnce(m_lib, "GPU-effect=5", frame, &frame, 4);
    EXPECT_FALSE(result.m_bRan);
    EXPECT_TRUE(Contains(result.m_strNote, "returned 2"));
    EXPECT_EQ(
        "create | start | setParameters GPU-effect=5 | startPreview 64x32 | handlePreview 0 | "
        "stopPreview | stop | destroy",
        Calls());
    EXPECT_TRUE(result.m_capture.m_vData.empty());
}

TEST_F(HarnessTest, OneFrameNoCaptureEffectZero) {
    const NV21Frame preview = Pattern(32, 32, 3);
    const RunResult result = RunOnce(m_lib, "GPU-effect=0", preview, nullptr, 1);
    EXPECT_TRUE(result.m_bRan);
    EXPECT_EQ(-1.0, result.m_dPreviewMeanMs);
    EXPECT_EQ(-1.0, result.m_dCaptureMs);
    EXPECT_EQ(preview.m_vData, result.m_preview.m_vData);
    EXPECT_EQ(
        "create | start | setParameters GPU-effect=0 | startPreview 32x32 | handlePreview 0 | "
        "stopPreview | stop | destroy",
        Calls());
}

TEST_F(HarnessTest, ToolRunWithChosenEffectWritesItsFiles) {
    TempDir dir;
    // A 64 x 48 picture; preview frames of 32 x 32 cut from its middle.
    const RGBImage img = tooltest::Painted(64, 48, [](int x, int y, uint8_t* p) {
        p[0] = uint8_t(60 + x);
        p[1] = uint8_t(80 + y);
        p[2] = 100;
    });
    std::string err;
    ASSERT_TRUE(WriteImage(dir.Path("in.png"), img, &err)) << err;
    ToolOptions opts;
    opts.m_strInput = dir.Path("in.png");
    opts.m_nPreviewWidth = 32;
    opts.m_nPreviewHeight = 32;
    opts.m_vEffects = {8};
    opts.m_nFrames = 2;
    opts.m_bRaw = true;
    opts.m_strOutDir = dir.Path("out");
    const ToolRun run = Tool(opts, "/unused.png");
    ASSERT_EQ(0, run.nExit) << run.strErr;
    EXPECT_TRUE(Contains(run.strOut, "none (0)"));
    EXPECT_TRUE(Contains(run.strOut, "Mirror (8)"));

    // The raw capture is the picture as NV21, changed by the stand-in; the
    // capture picture is the same in RGB.
    NV21Frame in;
    ASSERT_TRUE(RgbToNv21(img, &in));
    std::vector<uint8_t> raw;
    ASSERT_TRUE(ReadFileBytes(dir.Path("out/posteffect-mirror-capture-64x48.nv21"), &raw, &err))
        << err;
    EXPECT_EQ(Changed(in).m_vData, raw);
    ASSERT_TRUE(ReadFileBytes(dir.Path("out/posteffect-mirror-preview-32x32.nv21"), &raw, &err));
    EXPECT_EQ(32u * 32 * 3 / 2, raw.size());
    RGBImage pic, want;
    ASSERT_TRUE(ReadImage(dir.Path("out/posteffect-mirror-preview.png"), &pic, &err)) << err;
    EXPECT_EQ(32, pic.m_nWidth);
    ASSERT_TRUE(ReadImage(dir.Path("out/posteffect-mirror-capture.png"), &pic, &err)) << err;
    Nv21ToRgb(Changed(in), &want);
    EXPECT_EQ(want.m_vPixels, pic.m_vPixels);
    EXPECT_FALSE(Exists(dir.Path("out/posteffect-contact.png")));
    EXPECT_FALSE(Exists(dir.Path("out/posteffect-none-preview.png")));
}

TEST_F(HarnessTest, ToolRunOfAllEffectsSkipsAndWritesTheSheet) {
    TempDir dir;
    RGBImage img;
    img.Resize(80, 60);
    for (size_t i = 0; i < img.m_vPixels.size(); ++i) {
        img.m_vPixels[i] = uint8_t(i % 251);
    }
    std::string err;
    ASSERT_TRUE(WriteImage(dir.Path("in.jpg"), img, &err)) << err;
    ToolOptions opts;
    opts.m_nPreviewWidth = 48;
    opts.m_nPreviewHeight = 32;
    opts.m_nFrames = 2;
    opts.m_strOutDir = dir.Dir();
    // The default picture is used when no input is named.
    const ToolRun run = Tool(opts, dir.Path("in.jpg"));
    ASSERT_EQ(0, run.nExit) << run.strErr;
    EXPECT_TRUE(Contains(run.strOut, "in.jpg (80x60)"));
    EXPECT_TRUE(Contains(run.strOut, "DOTS (5)                 skipped"));
    EXPECT_TRUE(Contains(run.strOut, "Color Sketch (18)"));
    EXPECT_TRUE(Contains(run.strOut, "(17 effects)"));
    RGBImage sheet;
    ASSERT_TRUE(ReadImage(dir.Path("posteffect-contact.png"), &sheet, &err)) << err;
    // Original plus 17 effects in three columns: six rows of cells.
    EXPECT_GT(sheet.m_nHeight, 6 * 240);
    EXPECT_FALSE(Exists(dir.Path("posteffect-bloom-preview.png")));
}

TEST_F(HarnessTest, ToolReportsBadInputAndLibrary) {
    TempDir dir;
    std::string err;
    const uint8_t junk[3] = {1, 2, 3};
    ASSERT_TRUE(WriteFileBytes(dir.Path("junk.png"), junk, 3, &err));
    std::vector<uint8_t> nv21(64 * 32 * 3 / 2, 128);
    ASSERT_TRUE(WriteFileBytes(dir.Path("in.nv21"), nv21.data(), nv21.size(), &err));
    ToolOptions opts;
    opts.m_strOutDir = dir.Dir();
    opts.m_nPreviewWidth = 32;
    opts.m_nPreviewHeight = 32;
    opts.m_strInput = dir.Path("junk.png");
    ToolRun run = Tool(opts, "");
    EXPECT_EQ(1, run.nExit);
    EXPECT_TRUE(Contains(run.strErr, "junk.png"));
    // Raw NV21 of the wrong length.
    opts.m_bNv21 = true;
    opts.m_nNv21Width = 64;
    opts.m_nNv21Height = 32;
    run = Tool(opts, "");
    EXPECT_EQ(1, run.nExit);
    EXPECT_TRUE(Contains(run.strErr, "NV21 of 64x32"));
    // A good input and no library.
    opts.m_strInput = dir.Path("in.nv21");
    opts.m_strLib = dir.Path("nolib.so");
    run = Tool(opts, "");
    EXPECT_EQ(1, run.nExit);
    EXPECT_TRUE(Contains(run.strErr, "nolib.so"));
    // With the stand-in it runs; the requested effect that does not come up
    // makes the exit code 1.
    opts.m_strLib.clear();
    opts.m_vEffects = {5};
    EXPECT_EQ(1, Tool(opts, "").nExit);
    opts.m_vEffects = {9};
    run = Tool(opts, "");
    EXPECT_EQ(0, run.nExit) << run.strErr;
}
