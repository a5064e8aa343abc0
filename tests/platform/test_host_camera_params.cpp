// The host camera parameter set.
#include <android/log.h>
#include <camera/CameraParameters.h>
#include <gtest/gtest.h>

#include "GETestLog.h"

using android::CameraParameters;
using android::String8;

namespace {

std::string Flat(const CameraParameters& p) {
    return std::string(p.flatten().c_str());
}

TEST(HostCameraParameters, FlattenIsSortedAndRoundTrips) {
    CameraParameters p;
    EXPECT_EQ("", Flat(p));
    p.set("preview-size", "640x480");
    p.set("GPU-effect", "1");
    p.set("GE-param0", "1,2,3,4");
    p.set("zoom", 3);
    p.set("exposure", -2);
    p.setFloat("focal-length", 4.5f);
    const std::string flat = Flat(p);
    // Byte order of the keys: upper case before lower case.
    EXPECT_EQ(
        "GE-param0=1,2,3,4;GPU-effect=1;exposure=-2;focal-length=4.5;preview-size=640x480;"
        "zoom=3",
        flat);
    CameraParameters q(String8(flat.c_str()));
    EXPECT_EQ(flat, Flat(q));
    EXPECT_STREQ("1,2,3,4", q.get("GE-param0"));
    EXPECT_EQ(3, q.getInt("zoom"));
    EXPECT_EQ(-2, q.getInt("exposure"));
    EXPECT_FLOAT_EQ(4.5f, q.getFloat("focal-length"));
}

TEST(HostCameraParameters, UnflattenReplacesAndStopsAtAPieceWithoutEquals) {
    CameraParameters p;
    p.set("old", "x");
    p.unflatten(String8("b=2;a=1;broken;c=3"));
    EXPECT_EQ("a=1;b=2", Flat(p));
    EXPECT_EQ(nullptr, p.get("old"));
    EXPECT_EQ(nullptr, p.get("c"));
    EXPECT_EQ(nullptr, p.get("broken"));

    p.unflatten(String8("k=v;"));  // the empty last piece has no '='
    EXPECT_EQ("k=v", Flat(p));
    p.unflatten(String8(""));
    EXPECT_EQ("", Flat(p));
    p.unflatten(String8("e=;=f;k=1;k=2"));  // empty value, empty key, a key twice
    EXPECT_STREQ("", p.get("e"));
    EXPECT_STREQ("f", p.get(""));
    EXPECT_STREQ("2", p.get("k"));
    p.unflatten(String8("a=b=c"));  // the first '=' ends the key
    EXPECT_STREQ("b=c", p.get("a"));
    p.unflatten(String8("noequals;a=1"));
    EXPECT_EQ("", Flat(p));
}

TEST(HostCameraParameters, MissingKeys) {
    CameraParameters p(String8("GPU-effect=12;n=42;f=0.25;text=abc"));
    EXPECT_EQ(nullptr, p.get("GE-param0"));
    EXPECT_EQ(nullptr, p.get(nullptr));
    EXPECT_EQ(-1, p.getInt("GE-param0"));
    EXPECT_FLOAT_EQ(-1.0f, p.getFloat("GE-param0"));
    EXPECT_EQ(42, p.getInt("n"));
    EXPECT_EQ(12, p.getInt("GPU-effect"));
    EXPECT_EQ(0, p.getInt("text"));
    EXPECT_FLOAT_EQ(0.25f, p.getFloat("f"));
    p.remove("n");
    EXPECT_EQ(nullptr, p.get("n"));
    EXPECT_EQ(-1, p.getInt("n"));
    p.remove("never-there");
    EXPECT_EQ("GPU-effect=12;f=0.25;text=abc", Flat(p));
}

TEST(HostCameraParameters, SetRefusesSeparators) {
    GETestLog log;
    CameraParameters p;
    p.set("k", "v");
    const char* badKeys[] = {"a=b", "a;b", "=", ";"};
    for (const char* key : badKeys) {
        log.Clear();
        p.set(key, "1");
        EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, "CameraParameters", key)) << key << log.Dump();
    }
    const char* badValues[] = {"1=2", "1;2", ";", "x="};
    for (const char* value : badValues) {
        log.Clear();
        p.set("k", value);
        EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, "CameraParameters", value)) << value << log.Dump();
    }
    log.Clear();
    p.set(nullptr, "1");
    p.set("k", (const char*)nullptr);
    EXPECT_EQ(2, (int)log.Lines().size()) << log.Dump();
    EXPECT_EQ("k=v", Flat(p));
    // An accepted set replaces the value and logs nothing at error priority.
    log.Clear();
    p.set("k", "w");
    EXPECT_EQ("k=w", Flat(p));
    for (const GETestLogLine& line : log.Lines()) {
        EXPECT_NE(ANDROID_LOG_ERROR, line.priority) << line.text;
    }
}

}  // namespace
