// The posteffect tool: its command line, damaged image files, and runs of
// the harness and of the whole tool against the built plug-in on llvmpipe.
#include <gtest/gtest.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "app.h"
#include "harness.h"
#include "imageio.h"
#include "options.h"
#include "yuv.h"

namespace {

ParseStatus Parse(const std::string& line, ToolOptions* o, std::string* err) {
    std::istringstream words(line);
    std::vector<std::string> args = {"posteffect"};
    for (std::string a; words >> a;) {
        args.push_back(a);
    }
    std::vector<char*> argv;
    for (std::string& a : args) {
        argv.push_back(&a[0]);
    }
    return ParseToolOptions(int(argv.size()), argv.data(), o, err);
}

TEST(ToolOptions, CommandLines) {
    ToolOptions o;
    std::string err;
    ASSERT_EQ(kParseOk, Parse("--effect 8,Bloom --effect J --param0 1,0,0,0 --param1 -5,6,7,8 "
                              "--preview 1920x1080 --capture 4000x3000 --frames 3 --crop "
                              "10,20,300,400 --format jpeg --no-contact --nv21 64x32 in.nv21",
                              &o, &err))
        << err;
    EXPECT_EQ((std::vector<int>{8, 9, 18}), o.m_vEffects);
    EXPECT_EQ((std::vector<int>{1920, 1080, 4000, 3000, 3, 400, 0, 64}),
              (std::vector<int>{o.m_nPreviewWidth, o.m_nPreviewHeight, o.m_nCaptureWidth,
                                o.m_nCaptureHeight, o.m_nFrames, o.m_anCrop[3], o.m_nContact,
                                o.m_nNv21Width}));
    EXPECT_EQ("jpg", o.m_strFormat);
    EXPECT_EQ("GPU-effect=J;GE-param0=1,0,0,0;GE-param1=-5,6,7,8",
              CameraParameterString(o, *FindEffect("J")));
    ASSERT_EQ(kParseOk, Parse("--params GE-param1=5,6,7,8 --effect 8", &o, &err));
    EXPECT_EQ("GPU-effect=8;GE-param1=5,6,7,8", CameraParameterString(o, *FindEffect("8")));
    EXPECT_EQ(kParseHelp, Parse("x.png -h", &o, &err));
    // Each refused with a reason: preview widths not a multiple of 16, odd
    // heights, malformed sizes and groups, clashing choices.
    const std::string kBad =
        "--effect Q | --effect 8, | --effect | --preview 1002x720 | --preview 1280x721 | "
        "--preview 16x16 | --preview 1280x720x3 | --capture 101x100 | --capture 0x100 | "
        "--nv21 63x32 a | --nv21 64x32 | --param0 1,2,3 | --param0 1,2,x,4 | "
        "--param1 1,2,3,99999999999 | --frames 0 | --frames 3x | --crop 1,2,3 | --format bmp | "
        "--bogus | a.png b.png | --params GPU-effect=9 --effect 8 | --params GPU-effect=A | "
        "--params x=1 --param0 1,2,3,4 | --effect 8,9 --preview-out p.png | --capture-out c.png";
    std::istringstream lines(kBad);
    for (std::string line; std::getline(lines, line, '|');) {
        err.clear();
        EXPECT_EQ(kParseError, Parse(line, &o, &err)) << line;
        EXPECT_FALSE(err.empty()) << line;
    }
}

TEST(ToolImage, DamagedFilesAreErrorsNotCrashes) {
    RGBImage img, back;
    img.Resize(40, 30);
    for (size_t i = 0; i < img.m_vPixels.size(); ++i) {
        img.m_vPixels[i] = uint8_t(i * 37);
    }
    std::vector<uint8_t> png, jpg;
    std::string err;
    ASSERT_TRUE(EncodePng(img, &png, &err) && EncodeJpeg(img, 90, &jpg, &err)) << err;
    ASSERT_TRUE(DecodeImage(png.data(), png.size(), &back, &err) &&
                img.m_vPixels == back.m_vPixels);
    std::vector<uint8_t> flipped = png;
    flipped[png.size() / 2] ^= 0x55;
    for (const auto& bad : {std::vector<uint8_t>{'h', 'i'},
                            {png.begin(), png.begin() + 8},
                            {png.begin(), png.end() - 13},
                            flipped,
                            {jpg.begin(), jpg.begin() + 3},
                            {jpg.begin(), jpg.begin() + long(jpg.size() / 2)}}) {
        err.clear();
        EXPECT_FALSE(DecodeImage(bad.data(), bad.size(), &back, &err) || err.empty());
        EXPECT_EQ(img.m_vPixels, back.m_vPixels) << "a failed read leaves the picture alone";
    }
}

// A grey frame whose luma differs in every row and column.
NV21Frame GreyFrame(int w, int h, int nBase) {
    NV21Frame f;
    f.Resize(w, h);
    for (int i = 0; i < w * h; ++i) {
        f.Luma()[i] = uint8_t(nBase + i / w + i % w);
    }
    std::fill(f.Chroma(), f.Chroma() + w * h / 2, 128);
    return f;
}

// Bloom of a grey frame: luma min(255, 3.5 Y^2 / 255), chroma 128.
int BloomErrors(const NV21Frame& in, const NV21Frame& out) {
    int bad = in.m_vData.size() != out.m_vData.size();
    for (size_t i = 0; !bad && i < out.m_vData.size(); ++i) {
        const double y = in.m_vData[i];
        const bool luma = i < in.m_vData.size() * 2 / 3;
        bad += fabs((luma ? std::min(255.0, floor(3.5 * y * y / 255 + 0.5)) : 128) -
                    out.m_vData[i]) > 2.5;
    }
    return bad;
}

// The harness hands the plug-in its preview frames (alternating between two
// slots of a heap) and a capture (planes apart) where the plug-in reads
// them, in tiles here, and gives back what it made of them.
TEST(ToolPlugin, HarnessRunsBloomAndEffectZero) {
    PostEffectLibrary lib;
    std::string err;
    ASSERT_TRUE(lib.Open(POSTEFFECT_LIBRARY, &err)) << err;
    EXPECT_FALSE(PostEffectLibrary().Open("libm.so.6", &err));
    const NV21Frame preview = GreyFrame(64, 32, 20), capture = GreyFrame(96, 40, 10);
    for (const char* params : {"GPU-effect=9", "GPU-effect=0"}) {
        RunConfig config;
        config.m_strParams = params;
        config.m_pPreview = &preview;
        config.m_pCapture = &capture;
        config.m_nFrames = 3;
        config.m_bCrop = true;
        RunResult r;
        ASSERT_TRUE(RunEffect(lib, config, &r, &err)) << err;
        ASSERT_TRUE(r.m_bRan) << r.m_strNote;
        EXPECT_EQ((std::vector<int>{0, 0, 0}), r.m_vPreviewResults);
        const bool bloom = params[11] == '9';
        EXPECT_EQ(
            0, bloom ? BloomErrors(preview, r.m_preview) : preview.m_vData != r.m_preview.m_vData);
        EXPECT_EQ(
            0, bloom ? BloomErrors(capture, r.m_capture) : capture.m_vData != r.m_capture.m_vData);
    }
}

// The runs a command line plans: every effect with Vintage's four looks,
// showcase parameters unless given, one run per value of a sweep.
TEST(ToolOptions, PlannedRuns) {
    const struct {
        const char* line;
        const char* labels;  // the runs' labels, joined by "|"
        const char* params;  // the last run's parameter string
    } cases[] = {
        {"--effect 9 --sweep param0=0:100:50",
         "Bloom param0=0 (9)|Bloom param0=50 (9)|Bloom param0=100 (9)",
         "GPU-effect=9;GE-param0=100,0,0,0;GE-param1=0,0,0,0"},
        {"--effect 2 --param1 1,2,3,4 --sweep param1.3=5:6:1",
         "DoF param1.3=5 (2)|DoF param1.3=6 (2)",
         "GPU-effect=2;GE-param0=80,0,0,0;GE-param1=1,2,3,6"},
        {"--effect 7 --preview 640x360", "TS (7)",
         "GPU-effect=7;GE-param0=80,0,0,0;GE-param1=960,180,320,300"},
        {"--effect 1 --param0 2,0,0,0", "Vintage (1)",
         "GPU-effect=1;GE-param0=2,0,0,0;GE-param1=0,0,0,0"},
    };
    for (const auto& c : cases) {
        ToolOptions o;
        std::string err;
        ASSERT_EQ(kParseOk, Parse(c.line, &o, &err)) << c.line << ": " << err;
        std::string labels;
        const std::vector<ToolRun> runs = PlanRuns(o);
        for (const ToolRun& r : runs) {
            labels += (labels.empty() ? "" : "|") + r.m_strLabel;
        }
        EXPECT_EQ(c.labels, labels) << c.line;
        EXPECT_EQ(c.params, runs.back().m_strParams) << c.line;
    }
    ToolOptions all;
    std::vector<std::string> labels;
    for (const ToolRun& r : PlanRuns(all)) {
        labels.push_back(r.m_strLabel);
    }
    ASSERT_EQ(21u, labels.size());
    EXPECT_EQ("Vintage cross (1)", labels[0]);
    EXPECT_EQ("Vintage sepia (1)", labels[3]);
    EXPECT_EQ("Color Sketch (18)", labels[20]);
    for (const char* bad :
         {"--sweep param2=0:1:1", "--sweep param0.4=0:1:1", "--sweep param0=5:1:1",
          "--sweep param0=0:100:0", "--sweep param0=0:1000:1"}) {
        ToolOptions o;
        std::string err;
        EXPECT_EQ(kParseError, Parse(bad, &o, &err)) << bad;
    }
}

// A whole run over every effect: each is listed (Bloom as run, those
// without a table entry as skipped) and the contact sheet is written; a
// missing library is reported by name with exit code 1.
TEST(ToolPlugin, WholeToolRun) {
    const std::string dir = testing::TempDir() + "posteffect-tool-" + std::to_string(getpid());
    std::filesystem::create_directories(dir);
    RGBImage img;
    img.Resize(96, 64);
    for (size_t i = 0; i < img.m_vPixels.size(); ++i) {
        img.m_vPixels[i] = uint8_t(i % 251);
    }
    std::string err;
    ASSERT_TRUE(WriteImage(dir + "/in.png", img, &err)) << err;
    ToolOptions opts;
    opts.m_nPreviewWidth = 64, opts.m_nPreviewHeight = 32, opts.m_nFrames = 2;
    opts.m_strOutDir = dir;
    for (const char* lib : {POSTEFFECT_LIBRARY, "/nonexistent/nolib.so"}) {
        FILE* f = tmpfile();
        const int code = RunTool(opts, dir + "/in.png", lib, f, f);
        std::string out(8192, '\0');
        rewind(f);
        out.resize(fread(&out[0], 1, out.size(), f));
        fclose(f);
        if (lib[0] == '/' && lib[1] == 'n') {
            EXPECT_TRUE(code == 1 && out.find("nolib.so") != out.npos) << out;
            continue;
        }
        EXPECT_EQ(0, code) << out;
        for (const EffectInfo& e : EffectTable()) {
            EXPECT_TRUE(e.m_nNumber == 0 ||
                        out.find("\n" + std::string(e.m_szName) + " ") != out.npos)
                << e.m_szName << " in\n"
                << out;
        }
        const size_t bloom = out.find("\nBloom (9)");
        ASSERT_NE(out.npos, bloom) << out;
        EXPECT_EQ(out.npos, out.substr(bloom, out.find('\n', bloom + 1) - bloom).find("skipped"));
        RGBImage sheet;
        EXPECT_TRUE(ReadImage(dir + "/posteffect-contact.png", &sheet, &err)) << err;
    }
    std::filesystem::remove_all(dir);
}

}  // namespace
