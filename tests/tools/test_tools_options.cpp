// The posteffect tool's command line and effect table.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "options.h"

namespace {

ParseStatus Parse(std::vector<std::string> args, ToolOptions* o, std::string* err) {
    std::vector<char*> argv;
    static char name[] = "posteffect";
    argv.push_back(name);
    for (std::string& a : args) {
        argv.push_back(&a[0]);
    }
    return ParseToolOptions(int(argv.size()), argv.data(), o, err);
}

}  // namespace

TEST(ToolEffects, TableMatchesTheCameraCodes) {
    const std::vector<EffectInfo>& t = EffectTable();
    ASSERT_EQ(19u, t.size());
    const char* kCodes = "0123456789BCDEFGHIJ";
    for (size_t i = 0; i < t.size(); ++i) {
        EXPECT_EQ(int(i), t[i].m_nNumber);
        EXPECT_EQ(kCodes[i], t[i].m_cCode) << i;
    }
    EXPECT_STREQ("Mirror", t[8].m_szName);
    EXPECT_STREQ("Bloom", t[9].m_szName);
    EXPECT_STREQ("Color Sketch", t[18].m_szName);
}

TEST(ToolEffects, FoundByCodeNumberOrName) {
    // Codes are case-sensitive and "A" is not one; numbers are plain digits.
    const struct {
        int nNumber;
        std::vector<const char*> names;
    } kNames[] = {
        {9, {"9", "Bloom", "bLoOm"}},
        {10, {"B", "10", "Whiteboard"}},
        {18, {"J", "18", "Color Sketch", "color_sketch"}},
        {11, {"Stylized_Maple", "stylized maple"}},
        {2, {"DoF"}},
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
    EXPECT_EQ("none", EffectSlug(*FindEffect("0")));
}

TEST(ToolOptionsParse, Defaults) {
    ToolOptions o;
    std::string err;
    ASSERT_EQ(kParseOk, Parse({}, &o, &err)) << err;
    EXPECT_TRUE(o.m_strInput.empty());
    EXPECT_EQ(1280, o.m_nPreviewWidth);
    EXPECT_EQ(720, o.m_nPreviewHeight);
    EXPECT_EQ(0, o.m_nCaptureWidth);
    EXPECT_TRUE(o.m_vEffects.empty());
    EXPECT_EQ(5, o.m_nFrames);
    EXPECT_EQ(-1, o.m_nContact);
    EXPECT_EQ("png", o.m_strFormat);
    EXPECT_EQ(kParseHelp, Parse({"--help"}, &o, &err));
    EXPECT_EQ(kParseHelp, Parse({"x.png", "-h"}, &o, &err));
}

TEST(ToolOptionsParse, EverythingGiven) {
    ToolOptions o;
    std::string err;
    ASSERT_EQ(kParseOk,
              Parse({"--effect",      "8,Bloom",      "--effect",  "J",         "--param0",
                     "1,0,0,0",       "--param1",     "-5, 6,7,8", "--preview", "1920x1080",
                     "--capture",     "4000x3000",    "--frames",  "3",         "--crop",
                     "10,20,300,400", "--out",        "outdir",    "--format",  "jpeg",
                     "--raw",         "--no-contact", "--lib",     "/x/lib.so", "--log",
                     "*=0x16",        "--nv21",       "64x32",     "in.nv21"},
                    &o, &err))
        << err;
    EXPECT_EQ((std::vector<int>{8, 9, 18}), o.m_vEffects);
    EXPECT_EQ("1,0,0,0", o.m_strParam0);
    EXPECT_EQ("-5, 6,7,8", o.m_strParam1);
    EXPECT_EQ(1920, o.m_nPreviewWidth);
    EXPECT_EQ(1080, o.m_nPreviewHeight);
    EXPECT_EQ(4000, o.m_nCaptureWidth);
    EXPECT_EQ(3000, o.m_nCaptureHeight);
    EXPECT_EQ(3, o.m_nFrames);
    EXPECT_TRUE(o.m_bCrop);
    EXPECT_EQ(400, o.m_anCrop[3]);
    EXPECT_EQ("outdir", o.m_strOutDir);
    EXPECT_EQ("jpg", o.m_strFormat);
    EXPECT_TRUE(o.m_bRaw);
    EXPECT_EQ(0, o.m_nContact);
    EXPECT_EQ("/x/lib.so", o.m_strLib);
    EXPECT_EQ("*=0x16", o.m_strLog);
    EXPECT_TRUE(o.m_bNv21);
    EXPECT_EQ(64, o.m_nNv21Width);
    EXPECT_EQ("in.nv21", o.m_strInput);
    EXPECT_EQ("GPU-effect=J;GE-param0=1,0,0,0;GE-param1=-5, 6,7,8",
              CameraParameterString(o, *FindEffect("J")));
}

TEST(ToolOptionsParse, BadValuesAreRefusedWithAReason) {
    // Command lines separated by " | ": preview widths not a multiple of 16,
    // odd heights, sizes too small or malformed, --nv21 without an input,
    // clashing effect choices and the like.
    const std::string kBad =
        "--effect Q | --effect 8, | --effect | --preview 1000x720 | --preview 1280x721 | "
        "--preview 16x16 | --preview 1280 | --preview 1280x720x3 | --capture 101x100 | "
        "--capture 0x100 | --nv21 63x32 a | --nv21 64x32 | --param0 1,2,3 | "
        "--param0 1,2,3,4,5 | --param0 1,2,x,4 | --param1 1,,3,4 | --frames 0 | "
        "--frames -2 | --frames 3x | --crop 1,2,3 | --format bmp | --bogus | a.png b.png | "
        "--params GPU-effect=9 --effect 8 | --params GPU-effect=A | "
        "--params x=1 --param0 1,2,3,4 | --effect 8,9 --preview-out p.png | "
        "--capture-out c.png";
    std::istringstream in(kBad);
    int nCases = 0;
    for (std::string line; std::getline(in, line, '|'); ++nCases) {
        std::vector<std::string> args;
        std::istringstream words(line);
        for (std::string a; words >> a;) {
            args.push_back(a);
        }
        ToolOptions o;
        std::string err;
        EXPECT_EQ(kParseError, Parse(args, &o, &err)) << line;
        EXPECT_FALSE(err.empty()) << line;
    }
    EXPECT_EQ(28, nCases);
}

TEST(ToolOptionsParse, RawParameterString) {
    ToolOptions o;
    std::string err;
    // The effect inside the string decides.
    ASSERT_EQ(kParseOk, Parse({"--params", "GE-param0=1,2,3,4;GPU-effect=9"}, &o, &err)) << err;
    EXPECT_EQ((std::vector<int>{9}), o.m_vEffects);
    EXPECT_EQ("GE-param0=1,2,3,4;GPU-effect=9", CameraParameterString(o, *FindEffect("9")));
    // Without one, each effect's key goes in front.
    ASSERT_EQ(kParseOk, Parse({"--params", "GE-param1=5,6,7,8", "--effect", "8"}, &o, &err));
    EXPECT_EQ("GPU-effect=8;GE-param1=5,6,7,8", CameraParameterString(o, *FindEffect("8")));
    ASSERT_EQ(kParseOk, Parse({"--params", ""}, &o, &err));
    EXPECT_TRUE(o.m_vEffects.empty());
    EXPECT_EQ("GPU-effect=B", CameraParameterString(o, *FindEffect("B")));
    EXPECT_EQ(10, EffectInParams("a=b;GPU-effect=B")->m_nNumber);
    EXPECT_EQ(nullptr, EffectInParams("GPU-effects=9"));
    EXPECT_EQ(nullptr, EffectInParams("GPU-effect="));
}

TEST(ToolOptionsParse, Numbers) {
    int an[4];
    EXPECT_TRUE(ParseFourInts("1,-2,+3,4", an));
    EXPECT_EQ((std::vector<int>{1, -2, 3, 4}), std::vector<int>(an, an + 4));
    EXPECT_FALSE(ParseFourInts("1,2,3,99999999999", an));
    EXPECT_FALSE(ParseFourInts("", an));
    int w = 0, h = 0;
    EXPECT_TRUE(ParseSize("640x480", &w, &h));
    EXPECT_EQ(640, w);
    EXPECT_EQ(480, h);
    for (const char* bad : {"x480", "640x", "-640x480", "+640x480", "640x+480", "640X480", "0x480",
                            "640x99999999999"}) {
        EXPECT_FALSE(ParseSize(bad, &w, &h)) << bad;
    }
}
