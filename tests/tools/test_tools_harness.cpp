// The harness against a stand-in plug-in (fake_posteffect.cpp): the camera's
// order of calls, shared-memory buffers whose descriptors map what is handed
// over, frame offsets, results copied back, skipped effects, and whole tool
// runs with their output files.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <sstream>
#include <string>
#include <vector>

#include "app.h"
#include "harness.h"
#include "imageio.h"
#include "options.h"

namespace {

// The stand-in's own log, reached through a second dlopen of the same file.
class FakeLog {
public:
    FakeLog() {
        m_pHandle = dlopen(POSTEFFECT_FAKE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        if (m_pHandle) {
            m_pfnLog = reinterpret_cast<const char* (*)()>(dlsym(m_pHandle, "fakePostEffectLog"));
            m_pfnReset = reinterpret_cast<void (*)()>(dlsym(m_pHandle, "fakePostEffectReset"));
        }
    }
    ~FakeLog() {
        if (m_pHandle) {
            dlclose(m_pHandle);
        }
    }
    bool Ok() const { return m_pfnLog && m_pfnReset; }
    void Reset() { m_pfnReset(); }
    std::vector<std::string> Lines() const {
        std::vector<std::string> v;
        std::istringstream in(m_pfnLog());
        std::string line;
        while (std::getline(in, line)) {
            v.push_back(line);
        }
        return v;
    }

private:
    void* m_pHandle = nullptr;
    const char* (*m_pfnLog)() = nullptr;
    void (*m_pfnReset)() = nullptr;
};

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

class TempDir {
public:
    TempDir() {
        char tmpl[] = "/tmp/posteffect-harness-XXXXXX";
        m_path = mkdtemp(tmpl);
    }
    ~TempDir() {
        const std::string cmd = "rm -rf '" + m_path + "'";
        if (system(cmd.c_str()) != 0) {
            ADD_FAILURE() << "could not remove " << m_path;
        }
    }
    std::string Path(const std::string& name) const { return m_path + "/" + name; }
    const std::string& Dir() const { return m_path; }

private:
    std::string m_path;
};

std::string Slurp(FILE* f) {
    std::string s;
    rewind(f);
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), f)) > 0) {
        s.append(buf, n);
    }
    return s;
}

bool Exists(const std::string& path) {
    FILE* f = fopen(path.c_str(), "rb");
    if (f) {
        fclose(f);
    }
    return f != nullptr;
}

class HarnessTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_log.Ok()) << dlerror();
        std::string err;
        ASSERT_TRUE(m_lib.Open(POSTEFFECT_FAKE_LIBRARY, &err)) << err;
        m_log.Reset();
    }
    FakeLog m_log;
    PostEffectLibrary m_lib;
};

}  // namespace

TEST(ToolHarnessLibrary, MissingOrForeignLibrariesAreErrors) {
    PostEffectLibrary lib;
    std::string err;
    EXPECT_FALSE(lib.Open("/no/such/libposteffect.so", &err));
    EXPECT_NE(std::string::npos, err.find("/no/such/libposteffect.so"));
    EXPECT_FALSE(lib.IsOpen());
    EXPECT_EQ(nullptr, lib.Create());
    // A real library without the two entry points.
    EXPECT_FALSE(lib.Open("libm.so.6", &err));
    EXPECT_NE(std::string::npos, err.find("createPostEffect"));
    EXPECT_FALSE(lib.IsOpen());
}

TEST(ToolHarnessBuffer, SharedMemoryWithADescriptor) {
    SharedBuffer buf;
    std::string err;
    ASSERT_TRUE(buf.Alloc(5000, "test", &err)) << err;
    EXPECT_EQ(2 * kPage, buf.Size());
    EXPECT_GE(buf.Fd(), 0);
    buf.Base()[4999] = 42;
    // The descriptor reaches the same bytes.
    uint8_t b = 0;
    ASSERT_EQ(1, pread(buf.Fd(), &b, 1, 4999));
    EXPECT_EQ(42, b);
    buf.Free();
    EXPECT_EQ(-1, buf.Fd());
    EXPECT_EQ(nullptr, buf.Base());
}

TEST_F(HarnessTest, CameraOrderOffsetsAndResults) {
    const NV21Frame preview = Pattern(64, 32, 1);
    const NV21Frame capture = Pattern(96, 50, 2);
    RunConfig config;
    config.m_strParams = "GPU-effect=9;GE-param0=1,2,3,4";
    config.m_pPreview = &preview;
    config.m_pCapture = &capture;
    config.m_nFrames = 3;
    config.m_bCrop = true;
    config.m_anCrop[0] = 4;
    config.m_anCrop[1] = 6;
    config.m_anCrop[2] = 32;
    config.m_anCrop[3] = 16;
    RunResult result;
    std::string err;
    ASSERT_TRUE(RunEffect(m_lib, config, &result, &err)) << err;
    EXPECT_TRUE(result.m_bRan);
    EXPECT_EQ("", result.m_strNote);

    const int nSlot = int(PageAlign(64 * 32 * 3 / 2));
    const int nUV = int(PageAlign(96 * 50));
    const std::vector<std::string> want = {
        "create",
        "start",
        "setParameters GPU-effect=9;GE-param0=1,2,3,4",
        "startPreview 64x32",
        "handlePreview 0",
        "setCrop 4,6,32,16",
        "handlePreview " + std::to_string(nSlot),
        "handlePreview 0",
        "handleCapture 96x50 4096 " + std::to_string(nUV),
        "stopPreview",
        "stop",
        "destroy",
    };
    EXPECT_EQ(want, m_log.Lines());

    EXPECT_EQ((std::vector<int>{0, 0, 0}), result.m_vPreviewResults);
    EXPECT_EQ(0, result.m_nCaptureResult);
    // Every frame was handed over fresh, so the last one is changed once.
    EXPECT_EQ(Changed(preview).m_vData, result.m_preview.m_vData);
    EXPECT_EQ(Changed(capture).m_vData, result.m_capture.m_vData);
    EXPECT_GE(result.m_dFirstPreviewMs, 0.0);
    EXPECT_GE(result.m_dPreviewMeanMs, 0.0);
    EXPECT_GE(result.m_dCaptureMs, 0.0);
}

TEST_F(HarnessTest, EffectThatDoesNotComeUpIsSkipped) {
    const NV21Frame preview = Pattern(64, 32, 1);
    const NV21Frame capture = Pattern(64, 32, 2);
    RunConfig config;
    config.m_strParams = "GPU-effect=5";
    config.m_pPreview = &preview;
    config.m_pCapture = &capture;
    config.m_nFrames = 4;
    RunResult result;
    std::string err;
    ASSERT_TRUE(RunEffect(m_lib, config, &result, &err)) << err;
    EXPECT_FALSE(result.m_bRan);
    EXPECT_NE(std::string::npos, result.m_strNote.find("returned 2")) << result.m_strNote;
    const std::vector<std::string> want = {
        "create",
        "start",
        "setParameters GPU-effect=5",
        "startPreview 64x32",
        "handlePreview 0",
        "stopPreview",
        "stop",
        "destroy",
    };
    EXPECT_EQ(want, m_log.Lines());
    EXPECT_TRUE(result.m_capture.m_vData.empty());
}

TEST_F(HarnessTest, OneFrameNoCaptureEffectZero) {
    const NV21Frame preview = Pattern(32, 32, 3);
    RunConfig config;
    config.m_strParams = "GPU-effect=0";
    config.m_pPreview = &preview;
    config.m_pCapture = nullptr;
    config.m_nFrames = 1;
    RunResult result;
    std::string err;
    ASSERT_TRUE(RunEffect(m_lib, config, &result, &err)) << err;
    EXPECT_TRUE(result.m_bRan);
    EXPECT_EQ(-1.0, result.m_dPreviewMeanMs);
    EXPECT_EQ(-1.0, result.m_dCaptureMs);
    EXPECT_EQ(preview.m_vData, result.m_preview.m_vData);
    for (const std::string& line : m_log.Lines()) {
        EXPECT_EQ(std::string::npos, line.find("handleCapture"));
        EXPECT_EQ(std::string::npos, line.find("does not map"));
    }
}

TEST_F(HarnessTest, ToolRunWithChosenEffectWritesItsFiles) {
    TempDir dir;
    // A 64 x 48 grey-ish picture; preview 32 x 32 cut from its middle.
    RGBImage img;
    img.Resize(64, 48);
    for (int y = 0; y < 48; ++y) {
        for (int x = 0; x < 64; ++x) {
            uint8_t* p = img.Pixel(x, y);
            p[0] = uint8_t(60 + x);
            p[1] = uint8_t(80 + y);
            p[2] = 100;
        }
    }
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
    opts.m_strLib = POSTEFFECT_FAKE_LIBRARY;
    FILE* out = tmpfile();
    FILE* errf = tmpfile();
    ASSERT_EQ(0, RunTool(opts, "/unused.png", "/unused.so", out, errf)) << Slurp(errf);
    const std::string text = Slurp(out);
    fclose(out);
    fclose(errf);
    EXPECT_NE(std::string::npos, text.find("none (0)")) << text;
    EXPECT_NE(std::string::npos, text.find("Mirror (8)")) << text;

    // The raw capture is the picture as NV21, changed by the stand-in.
    std::vector<uint8_t> raw;
    ASSERT_TRUE(ReadFileBytes(dir.Path("out/posteffect-mirror-capture-64x48.nv21"), &raw, &err))
        << err;
    NV21Frame in;
    ASSERT_TRUE(RgbToNv21(img, &in));
    EXPECT_EQ(Changed(in).m_vData, raw);
    ASSERT_TRUE(ReadFileBytes(dir.Path("out/posteffect-mirror-preview-32x32.nv21"), &raw, &err));
    EXPECT_EQ(32u * 32 * 3 / 2, raw.size());
    // The pictures decode to the right sizes; the capture is the raw one in RGB.
    RGBImage pic;
    ASSERT_TRUE(ReadImage(dir.Path("out/posteffect-mirror-preview.png"), &pic, &err)) << err;
    EXPECT_EQ(32, pic.m_nWidth);
    ASSERT_TRUE(ReadImage(dir.Path("out/posteffect-mirror-capture.png"), &pic, &err)) << err;
    RGBImage want;
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
    opts.m_strLib = POSTEFFECT_FAKE_LIBRARY;
    FILE* out = tmpfile();
    FILE* errf = tmpfile();
    // The default picture is used when no input is named.
    ASSERT_EQ(0, RunTool(opts, dir.Path("in.jpg"), "/unused.so", out, errf)) << Slurp(errf);
    const std::string text = Slurp(out);
    fclose(out);
    fclose(errf);
    EXPECT_NE(std::string::npos, text.find("in.jpg (80x60)")) << text;
    EXPECT_NE(std::string::npos, text.find("DOTS (5)                 skipped")) << text;
    EXPECT_NE(std::string::npos, text.find("Color Sketch (18)")) << text;
    EXPECT_NE(std::string::npos, text.find("(17 effects)")) << text;
    RGBImage sheet;
    ASSERT_TRUE(ReadImage(dir.Path("posteffect-contact.png"), &sheet, &err)) << err;
    // Original plus 17 effects in three columns: six rows of cells.
    EXPECT_GT(sheet.m_nHeight, 6 * 240);
    EXPECT_FALSE(Exists(dir.Path("posteffect-bloom-preview.png")));
}

TEST_F(HarnessTest, ToolReportsBadInputAndLibrary) {
    TempDir dir;
    ToolOptions opts;
    opts.m_strLib = POSTEFFECT_FAKE_LIBRARY;
    opts.m_strOutDir = dir.Dir();
    FILE* out = tmpfile();
    FILE* errf = tmpfile();
    std::string err;
    const uint8_t junk[3] = {1, 2, 3};
    ASSERT_TRUE(WriteFileBytes(dir.Path("junk.png"), junk, 3, &err));
    opts.m_strInput = dir.Path("junk.png");
    EXPECT_EQ(1, RunTool(opts, "", "", out, errf));
    EXPECT_NE(std::string::npos, Slurp(errf).find("junk.png"));
    // Raw NV21 of the wrong length.
    opts.m_bNv21 = true;
    opts.m_nNv21Width = 64;
    opts.m_nNv21Height = 32;
    EXPECT_EQ(1, RunTool(opts, "", "", out, errf));
    EXPECT_NE(std::string::npos, Slurp(errf).find("NV21 of 64x32"));
    // A good input and no library.
    std::vector<uint8_t> nv21(64 * 32 * 3 / 2, 128);
    ASSERT_TRUE(WriteFileBytes(dir.Path("in.nv21"), nv21.data(), nv21.size(), &err));
    opts.m_strInput = dir.Path("in.nv21");
    opts.m_nPreviewWidth = 32;
    opts.m_nPreviewHeight = 32;
    opts.m_strLib = dir.Path("nolib.so");
    EXPECT_EQ(1, RunTool(opts, "", "", out, errf));
    EXPECT_NE(std::string::npos, Slurp(errf).find("nolib.so"));
    // With the stand-in it runs; the requested effect that does not come up
    // makes the exit code 1.
    opts.m_strLib = POSTEFFECT_FAKE_LIBRARY;
    opts.m_vEffects = {5};
    EXPECT_EQ(1, RunTool(opts, "", "", out, errf));
    opts.m_vEffects = {9};
    EXPECT_EQ(0, RunTool(opts, "", "", out, errf)) << Slurp(errf);
    fclose(out);
    fclose(errf);
}
