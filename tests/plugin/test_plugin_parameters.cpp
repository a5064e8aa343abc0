// The effect code and parameter groups read from the camera parameter string.
#include <android/log.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "GETestLog.h"
#include "plugin/GECameraParameters.h"

using android::GECameraParameters;
using android::String8;

namespace {

GECameraParameters Parse(const std::string& flat) {
    GECameraParameters p;
    p.unflatten(String8(flat.c_str()));
    return p;
}

// The parser's lines are debug lines without a tag of their own.
bool Logged(const GETestLog& log, const std::string& text) {
    for (const GETestLogLine& l : log.Lines()) {
        if (l.priority == ANDROID_LOG_DEBUG && l.text == "[GECameraParameters::" + text) {
            return true;
        }
    }
    return false;
}

TEST(GECameraParametersEffect, CodesMapToTheirEffectsAndLogTheirNames) {
    const struct {
        const char* value;
        int effect;
        const char* name;  // null: the invalid-value line
    } cases[] = {
        {"0", 0, "Bypass"},
        {"1", 1, "Vintage"},
        {"2", 2, "DoF"},
        {"3", 3, "Distortion"},
        {"4", 4, "Vignette"},
        {"5", 5, "DOTS"},
        {"6", 6, "Contrast"},
        {"7", 7, "TS"},
        {"8", 8, "Mirror"},
        {"9", 9, "Bloom"},
        {"B", 10, "Whiteboard"},
        {"C", 11, "Stylized_Maple"},
        {"D", 12, "Stylized_Nash"},
        {"E", 13, "TwoToneMask_V"},
        {"F", 14, "TwoToneMask_H"},
        {"G", 15, "SplitToning_Mono"},
        {"H", 16, "SplitToning_Color"},
        {"I", 17, "Sketch"},
        {"J", 18, "Color Sketch"},
        // Only the first character counts.
        {"12", 1, "Vintage"},
        {"JZ", 18, "Color Sketch"},
        // "A" is not a code, codes are case-sensitive, and the punctuation
        // between "9" and "A" is nothing either.
        {"A", -1, nullptr},
        {"b", -1, nullptr},
        {"j", -1, nullptr},
        {":", -1, nullptr},
        {"@", -1, nullptr},
        {"K", -1, nullptr},
        {"-1", -1, nullptr},
        {" 1", -1, nullptr},
        {"", -1, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string("'") + c.value + "'");
        GECameraParameters p = Parse(std::string("GPU-effect=") + c.value);
        GETestLog log;
        int effect = 12345;
        EXPECT_TRUE(p.getGPUEffect(&effect));
        EXPECT_EQ(c.effect, effect);
        EXPECT_TRUE(
            Logged(log, std::string("getGPUEffect] ") + (c.name ? c.name : "invalid value")))
            << log.Dump();
        EXPECT_EQ(c.name ? 0 : 1, log.Count("invalid value"));
        EXPECT_EQ(1, log.Count("[GECameraParameters::getGPUEffect] leave"));
    }
}

TEST(GECameraParametersEffect, MissingKeyOrNullPointer) {
    GETestLog log;
    GECameraParameters p = Parse("GE-param0=1,2,3,4;picture-size=640x480");
    int effect = 7;
    EXPECT_FALSE(p.getGPUEffect(&effect));
    EXPECT_EQ(-1, effect);
    EXPECT_TRUE(Logged(log, "getGPUEffect] leave. no key GPU-effect")) << log.Dump();
    EXPECT_FALSE(p.getGPUEffect(nullptr));
    EXPECT_TRUE(Logged(log, "getGPUEffect] null pnEffectNo, leave"));
    // The code is found among other keys, wherever it stands.
    EXPECT_TRUE(Parse("antibanding=auto;GPU-effect=8;zoom=0").getGPUEffect(&effect));
    EXPECT_EQ(8, effect);
}

TEST(GECameraParametersGroups, ValuesAsStrtolReadsThem) {
    const struct {
        const char* value;
        bool ok;
        std::vector<int> words;
    } cases[] = {
        {"1,2,3,4", true, {1, 2, 3, 4}},
        {"-5,+6,0,2147483647", true, {-5, 6, 0, 2147483647}},
        {"1, 2,3,4", true, {1, 2, 3, 4}},            // a blank before a number is skipped
        {"10,20,30,40xyz", true, {10, 20, 30, 40}},  // trailing text is ignored
        {"1,2,,", true, {1, 2, 0, 0}},               // empty fields read as 0
        // A blank before a comma, three numbers, other separators, a leading
        // junk character, a fraction: nothing is written.
        {"1 ,2,3,4", false, {-7, -7, -7, -7}},
        {"1,2,3", false, {-7, -7, -7, -7}},
        {"1|2|3|4", false, {-7, -7, -7, -7}},
        {"x,1,2,3", false, {-7, -7, -7, -7}},
        {"1.5,2,3,4", false, {-7, -7, -7, -7}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        for (int index = 0; index < 4; ++index) {
            GECameraParameters p = Parse("GE-param" + std::to_string(index) + "=" + c.value);
            GETestLog log;
            std::vector<int> w(4, -7);
            EXPECT_EQ(c.ok, p.getGPUEffectParam(index, &w[0], &w[1], &w[2], &w[3]));
            EXPECT_EQ(c.words, w);
            EXPECT_EQ(!c.ok, Logged(log, "getGPUEffectParam] parse_params format error"));
        }
    }
    // Null pointers are skipped, the others written.
    int only = -99;
    ASSERT_TRUE(Parse("GE-param0=1,2,3,4").getGPUEffectParam(0, nullptr, nullptr, &only, nullptr));
    EXPECT_EQ(3, only);
}

TEST(GECameraParametersGroups, IndexOutOfRangeAndMissingKey) {
    GECameraParameters p = Parse("GE-param0=1,2,3,4");
    GETestLog log;
    int a = -7;
    EXPECT_FALSE(p.getGPUEffectParam(4, &a, nullptr, nullptr, nullptr));
    EXPECT_FALSE(p.getGPUEffectParam(-1, &a, nullptr, nullptr, nullptr));
    EXPECT_TRUE(Logged(log, "getGPUEffectParam] nIdx 4 out of range, return"));
    EXPECT_TRUE(Logged(log, "getGPUEffectParam] nIdx -1 out of range, return"));
    EXPECT_FALSE(p.getGPUEffectParam(1, &a, nullptr, nullptr, nullptr));
    EXPECT_TRUE(Logged(log, "getGPUEffectParam] leave. no key GE-param1")) << log.Dump();
    EXPECT_EQ(-7, a);
}

}  // namespace
