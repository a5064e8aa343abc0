// The effect code and parameter groups read from the camera parameter string.
#include <android/log.h>
#include <gtest/gtest.h>

#include <string>

#include "GETestLog.h"
#include "plugin/GECameraParameters.h"

using android::GECameraParameters;
using android::String8;

namespace {

GECameraParameters Parse(const char* flat) {
    GECameraParameters p;
    p.unflatten(String8(flat));
    return p;
}

int EffectOf(const std::string& value, GETestLog* log = nullptr) {
    GECameraParameters p = Parse(("GPU-effect=" + value).c_str());
    int effect = 12345;
    EXPECT_TRUE(p.getGPUEffect(&effect)) << value;
    if (log) {
        EXPECT_TRUE(log->Count("[GECameraParameters::getGPUEffect] leave") == 1) << log->Dump();
    }
    return effect;
}

bool DebugLine(const GETestLog& log, const std::string& text) {
    for (const GETestLogLine& l : log.Lines()) {
        if (l.priority == ANDROID_LOG_DEBUG && l.text == text) {
            return true;
        }
    }
    return false;
}

}  // namespace

TEST(GECameraParametersEffect, EveryCodeMapsToItsEffectAndLogsItsName) {
    struct {
        const char* code;
        int effect;
        const char* name;
    } expected[] = {
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
    };
    for (const auto& e : expected) {
        GETestLog log;
        EXPECT_EQ(e.effect, EffectOf(e.code, &log)) << e.code;
        EXPECT_TRUE(DebugLine(log, std::string("[GECameraParameters::getGPUEffect] ") + e.name))
            << log.Dump();
        EXPECT_EQ(0, log.Count("invalid value"));
    }
}

TEST(GECameraParametersEffect, OnlyTheFirstCharacterCounts) {
    EXPECT_EQ(1, EffectOf("12"));
    EXPECT_EQ(9, EffectOf("9abc"));
    EXPECT_EQ(18, EffectOf("JZ"));
}

TEST(GECameraParametersEffect, UnknownCodesGiveMinusOneWithTheInvalidLine) {
    // "A" is not a code, codes are case-sensitive, and the punctuation between
    // "9" and "A" is nothing either.
    for (const char* value : {"A", "b", "j", ":", "@", "K", "Z", "-1", " 1", ""}) {
        GETestLog log;
        EXPECT_EQ(-1, EffectOf(value)) << "'" << value << "'";
        EXPECT_TRUE(DebugLine(log, "[GECameraParameters::getGPUEffect] invalid value"))
            << log.Dump();
    }
}

TEST(GECameraParametersEffect, MissingKeyOrNullPointer) {
    GETestLog log;
    GECameraParameters p = Parse("GE-param0=1,2,3,4;picture-size=640x480");
    int effect = 7;
    EXPECT_FALSE(p.getGPUEffect(&effect));
    EXPECT_EQ(-1, effect);
    EXPECT_TRUE(DebugLine(log, "[GECameraParameters::getGPUEffect] leave. no key GPU-effect"))
        << log.Dump();

    EXPECT_FALSE(p.getGPUEffect(nullptr));
    EXPECT_TRUE(DebugLine(log, "[GECameraParameters::getGPUEffect] null pnEffectNo, leave"));

    // The code is found among other keys, wherever it stands.
    GECameraParameters q = Parse("antibanding=auto;GPU-effect=8;zoom=0");
    EXPECT_TRUE(q.getGPUEffect(&effect));
    EXPECT_EQ(8, effect);
}

TEST(GECameraParametersGroups, WellFormedValues) {
    GECameraParameters p = Parse(
        "GE-param0=1,2,3,4;GE-param1=-5,+6,0,2147483647;GE-param2=1, 2,3,4;"
        "GE-param3=10,20,30,40xyz");
    int a = 0, b = 0, c = 0, d = 0;
    ASSERT_TRUE(p.getGPUEffectParam(0, &a, &b, &c, &d));
    EXPECT_EQ(1, a);
    EXPECT_EQ(2, b);
    EXPECT_EQ(3, c);
    EXPECT_EQ(4, d);
    ASSERT_TRUE(p.getGPUEffectParam(1, &a, &b, &c, &d));
    EXPECT_EQ(-5, a);
    EXPECT_EQ(6, b);
    EXPECT_EQ(0, c);
    EXPECT_EQ(2147483647, d);
    // A blank before a number is what strtol skips.
    ASSERT_TRUE(p.getGPUEffectParam(2, &a, &b, &c, &d));
    EXPECT_EQ(1, a);
    EXPECT_EQ(2, b);
    // Trailing text after the fourth number is ignored.
    ASSERT_TRUE(p.getGPUEffectParam(3, &a, &b, &c, &d));
    EXPECT_EQ(10, a);
    EXPECT_EQ(40, d);
    // Null pointers are skipped, the others written.
    int only = -99;
    ASSERT_TRUE(p.getGPUEffectParam(0, nullptr, nullptr, &only, nullptr));
    EXPECT_EQ(3, only);
}

TEST(GECameraParametersGroups, MalformedValuesWriteNothing) {
    // A blank before a comma, three numbers, other separators, a leading junk
    // character, a fraction.
    for (const char* value : {"1 ,2,3,4", "1,2,3", "1|2|3|4", "x,1,2,3", "1.5,2,3,4"}) {
        GECameraParameters p = Parse((std::string("GE-param0=") + value).c_str());
        GETestLog log;
        int a = -7, b = -7, c = -7, d = -7;
        EXPECT_FALSE(p.getGPUEffectParam(0, &a, &b, &c, &d)) << value;
        EXPECT_TRUE(
            DebugLine(log, "[GECameraParameters::getGPUEffectParam] parse_params format error"))
            << value << "\n"
            << log.Dump();
        EXPECT_EQ(-7, a);
        EXPECT_EQ(-7, b);
        EXPECT_EQ(-7, c);
        EXPECT_EQ(-7, d);
    }
}

TEST(GECameraParametersGroups, EmptyFieldsReadAsStrtolReadsThem) {
    // strtol reads no digits as 0 and stops where it started, so an empty
    // field followed by ',' (or an empty last field) is a 0.
    GECameraParameters p = Parse("GE-param0=1,2,,");
    int a = -7, b = -7, c = -7, d = -7;
    ASSERT_TRUE(p.getGPUEffectParam(0, &a, &b, &c, &d));
    EXPECT_EQ(1, a);
    EXPECT_EQ(2, b);
    EXPECT_EQ(0, c);
    EXPECT_EQ(0, d);
}

TEST(GECameraParametersGroups, IndexOutOfRangeAndMissingKey) {
    GECameraParameters p = Parse("GE-param0=1,2,3,4");
    GETestLog log;
    int a = -7;
    EXPECT_FALSE(p.getGPUEffectParam(4, &a, nullptr, nullptr, nullptr));
    EXPECT_FALSE(p.getGPUEffectParam(-1, &a, nullptr, nullptr, nullptr));
    EXPECT_TRUE(
        DebugLine(log, "[GECameraParameters::getGPUEffectParam] nIdx 4 out of range, return"));
    EXPECT_TRUE(
        DebugLine(log, "[GECameraParameters::getGPUEffectParam] nIdx -1 out of range, return"));
    EXPECT_FALSE(p.getGPUEffectParam(1, &a, nullptr, nullptr, nullptr));
    EXPECT_TRUE(DebugLine(log, "[GECameraParameters::getGPUEffectParam] leave. no key GE-param1"))
        << log.Dump();
    EXPECT_EQ(-7, a);
}

TEST(GECameraParametersGroups, ArbitraryBytesNeverCrash) {
    // Parameter strings of any bytes: the parse either succeeds or reports.
    unsigned seed = 12345;
    for (int i = 0; i < 2000; i++) {
        std::string flat = i % 2 ? "GPU-effect=" : "GE-param0=";
        int n = (int)(seed % 24);
        for (int k = 0; k < n; k++) {
            seed = seed * 1103515245u + 12345u;
            char ch = (char)(1 + (seed >> 16) % 255);
            flat += ch;
        }
        GECameraParameters p = Parse(flat.c_str());
        int effect = 0, a = 0, b = 0, c = 0, d = 0;
        p.getGPUEffect(&effect);
        EXPECT_TRUE(effect >= -1 && effect <= 18);
        p.getGPUEffectParam(0, &a, &b, &c, &d);
    }
}
