// The posteffect tool: its command line and effect table, the colour
// conversions, damaged image files, and runs of the harness and of the
// whole tool against the built plug-in on llvmpipe.
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

TEST(ToolOptions, EffectsByCodeNumberOrName) {
    const struct {
        int nNumber;
        std::vector<const char*> names;
    } kNames[] = {
        {9, {"9", "Bloom", "bLoOm"}},
        {10, {"B", "10", "Whiteboard"}},
        {18, {"J", "18", "Color Sketch", "color_sketch"}},
        {0, {"0", "none", "Bypass"}},
        {-1, {"b", "A", "19", "-1", "+9", " 9", "", "Blooms"}},
    };
    for (const auto& k : kNames) {
        for (const char* name : k.names) {
            const EffectInfo* e = FindEffect(name);
            EXPECT_EQ(k.nNumber, e ? e->m_nNumber : -1) << "\"" << name << "\"";
        }
    }
    EXPECT_EQ("color_sketch", EffectSlug(*FindEffect("J")));
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
        "--effect Q | --effect 8, | --effect | --preview 1000x720 | --preview 1280x721 | "
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

// Worked by hand from the formulas of yuv.h (rounded, clamped).
TEST(ToolYuv, KnownColours) {
    const struct {
        int r, g, b, y, v, u;
    } kForward[] = {
        {0, 0, 0, 0, 128, 128},     {255, 255, 255, 255, 128, 128}, {255, 0, 0, 76, 255, 85},
        {0, 255, 0, 150, 21, 44},   {0, 0, 255, 29, 107, 255},      {255, 255, 0, 226, 149, 1},
        {0, 255, 255, 179, 1, 171}, {255, 0, 255, 105, 235, 212},
    };
    for (const auto& k : kForward) {
        uint8_t y, v, u;
        RgbToYvu(k.r, k.g, k.b, &y, &v, &u);
        EXPECT_EQ((std::vector<int>{k.y, k.v, k.u}), (std::vector<int>{y, v, u}));
    }
    const struct {
        int y, v, u, r, g, b;
    } kBack[] = {
        {200, 128, 128, 200, 200, 200}, {76, 255, 85, 254, 0, 0},    {255, 255, 255, 255, 121, 255},
        {0, 0, 0, 0, 135, 0},           {100, 150, 90, 131, 97, 33},
    };
    for (const auto& k : kBack) {
        uint8_t r, g, b;
        YvuToRgb(k.y, k.v, k.u, &r, &g, &b);
        EXPECT_EQ((std::vector<int>{k.r, k.g, k.b}), (std::vector<int>{r, g, b}));
    }
    // A 2 x 2 picture of black, white, red and blue: luma per pixel, one
    // chroma pair for the block's mean (127.5, 63.75, 127.5).
    RGBImage img;
    img.Resize(2, 2);
    img.m_vPixels = {0, 0, 0, 255, 255, 255, 255, 0, 0, 0, 0, 255};
    NV21Frame f;
    ASSERT_TRUE(RgbToNv21(img, &f));
    EXPECT_EQ((std::vector<uint8_t>{0, 255, 76, 29, 155, 149}), f.m_vData);
}

TEST(ToolImage, DamagedFilesAreErrorsNotCrashes) {
    RGBImage img;
    img.Resize(40, 30);
    for (size_t i = 0; i < img.m_vPixels.size(); ++i) {
        img.m_vPixels[i] = uint8_t(i * 37);
    }
    std::vector<uint8_t> png, jpg;
    std::string err;
    ASSERT_TRUE(EncodePng(img, &png, &err) && EncodeJpeg(img, 90, &jpg, &err)) << err;
    RGBImage back;
    ASSERT_TRUE(DecodeImage(png.data(), png.size(), &back, &err));
    EXPECT_EQ(img.m_vPixels, back.m_vPixels);
    std::vector<uint8_t> flipped = png;
    flipped[png.size() / 2] ^= 0x55;
    const std::vector<std::vector<uint8_t>> bad = {
        {},
        {'h', 'e', 'l', 'l', 'o'},
        {png.begin(), png.begin() + 8},
        {png.begin(), png.begin() + long(png.size() / 2)},
        {png.begin(), png.end() - 13},
        flipped,
        {jpg.begin(), jpg.begin() + 3},
        {jpg.begin(), jpg.begin() + long(jpg.size() / 2)}};
    for (size_t i = 0; i < bad.size(); ++i) {
        err.clear();
        EXPECT_FALSE(DecodeImage(bad[i].data(), bad[i].size(), &back, &err)) << i;
        EXPECT_FALSE(err.empty()) << i;
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

// A whole run: every effect of the table is listed, those without a table
// entry as skipped, and the contact sheet written; bad input and a missing
// library are reported with their names and exit code 1.
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
    ASSERT_TRUE(WriteFileBytes(dir + "/junk.png", (const uint8_t*)"junk", 4, &err));
    ToolOptions opts;
    opts.m_nPreviewWidth = 64;
    opts.m_nPreviewHeight = 32;
    opts.m_nFrames = 2;
    opts.m_strOutDir = dir;
    auto run = [&](const ToolOptions& o, const std::string& lib, std::string* out) {
        FILE* f = tmpfile();
        const int code = RunTool(o, dir + "/in.png", lib, f, f);
        rewind(f);
        char buf[4096];
        out->clear();
        for (size_t n; (n = fread(buf, 1, sizeof(buf), f)) > 0;) {
            out->append(buf, n);
        }
        fclose(f);
        return code;
    };
    std::string out;
    EXPECT_EQ(0, run(opts, POSTEFFECT_LIBRARY, &out)) << out;
    for (const EffectInfo& e : EffectTable()) {
        EXPECT_TRUE(e.m_nNumber == 0 || out.find(std::string(e.m_szName) + " (") != out.npos)
            << e.m_szName << " in\n"
            << out;
    }
    EXPECT_EQ(out.npos, out.find("Bloom (9)                  skipped")) << out;
    EXPECT_NE(out.npos, out.find("skipped")) << out;
    RGBImage sheet;
    EXPECT_TRUE(ReadImage(dir + "/posteffect-contact.png", &sheet, &err)) << err;
    opts.m_vEffects = {9};
    EXPECT_EQ(1, run(opts, dir + "/nolib.so", &out));
    EXPECT_NE(out.npos, out.find("nolib.so")) << out;
    opts.m_strInput = dir + "/junk.png";
    EXPECT_EQ(1, run(opts, POSTEFFECT_LIBRARY, &out));
    EXPECT_NE(out.npos, out.find("junk.png")) << out;
    std::filesystem::remove_all(dir);
}

}  // namespace
