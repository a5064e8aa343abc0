// The per-tag log masks read from POSTEFFECT_LOG.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <vlklog.h>

namespace {

int Mask(const char* tag) {
    unsigned char stored = 0x80;
    int value = __vlklog_init_mask(tag, -1, &stored);
    EXPECT_EQ(value, stored) << (tag ? tag : "(null)");
    return value;
}

class HostLogMask : public ::testing::Test {
protected:
    void TearDown() override { unsetenv("POSTEFFECT_LOG"); }
};

TEST_F(HostLogMask, ErrorsOnlyByDefault) {
    unsetenv("POSTEFFECT_LOG");
    EXPECT_EQ(0x10, Mask("GLTexture"));
    EXPECT_EQ(0x10, Mask(nullptr));
    setenv("POSTEFFECT_LOG", "", 1);
    EXPECT_EQ(0x10, Mask("GLTexture"));
    setenv("POSTEFFECT_LOG", "GEManager=0x16", 1);
    EXPECT_EQ(0x10, Mask("GLTexture")) << "a tag not named keeps the default";
}

TEST_F(HostLogMask, TagsAndTheWildcard) {
    setenv("POSTEFFECT_LOG", "GLTexture=0x16,GEManager=2;*=0x14", 1);
    EXPECT_EQ(0x16, Mask("GLTexture"));
    EXPECT_EQ(0x02, Mask("GEManager"));
    EXPECT_EQ(0x14, Mask("GLFbo"));
    EXPECT_EQ(0x14, Mask(nullptr)) << "a line without a tag matches only *";
    // The wildcard may come first; decimal values work; a tag is matched whole.
    setenv("POSTEFFECT_LOG", "*=6;GLTex=22", 1);
    EXPECT_EQ(6, Mask("GLTexture"));
    EXPECT_EQ(22, Mask("GLTex"));
    // Debug + info + error everywhere.
    setenv("POSTEFFECT_LOG", "*=0x16", 1);
    EXPECT_EQ(0x16, Mask("GEShaderVintage"));
    // A tag named "*" cannot be told from the wildcard; "0" silences a tag.
    setenv("POSTEFFECT_LOG", "GECommon=0,*=0xff", 1);
    EXPECT_EQ(0, Mask("GECommon"));
    EXPECT_EQ(0x7F, Mask("GLProgram")) << "the unread bit is never returned";
}

TEST_F(HostLogMask, BadEntriesAreSkipped) {
    setenv("POSTEFFECT_LOG", "GLTexture=zz,GLTexture,GEManager=0x100,*=0x12", 1);
    EXPECT_EQ(0x12, Mask("GLTexture"));
    EXPECT_EQ(0x12, Mask("GEManager"));
    setenv("POSTEFFECT_LOG", "GLTexture=0x04x;GLFbo=4", 1);
    EXPECT_EQ(0x10, Mask("GLTexture")) << "trailing junk";
    EXPECT_EQ(4, Mask("GLFbo"));
}

TEST_F(HostLogMask, ReadAgainOnEveryCall) {
    setenv("POSTEFFECT_LOG", "GLTexture=0x02", 1);
    EXPECT_EQ(0x02, Mask("GLTexture"));
    setenv("POSTEFFECT_LOG", "GLTexture=0x04", 1);
    EXPECT_EQ(0x04, Mask("GLTexture"));
    unsetenv("POSTEFFECT_LOG");
    EXPECT_EQ(0x10, Mask("GLTexture"));
    // The mask pointer may be null.
    setenv("POSTEFFECT_LOG", "*=0x06", 1);
    EXPECT_EQ(0x06, __vlklog_init_mask("GLTexture", -1, nullptr));
}

}  // namespace
