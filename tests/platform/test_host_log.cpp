// The per-tag log masks read from POSTEFFECT_LOG.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <vlklog.h>

namespace {

TEST(HostLogMask, MasksFromTheEnvironment) {
    const struct {
        const char* env;  // null: unset
        const char* tag;
        int mask;
    } cases[] = {
        // Errors only by default, also for a tag not named.
        {nullptr, "GLTexture", 0x10},
        {nullptr, nullptr, 0x10},
        {"", "GLTexture", 0x10},
        {"GEManager=0x16", "GLTexture", 0x10},
        // Tags and the wildcard, separated by ',' or ';'; a line without a
        // tag matches only '*'.
        {"GLTexture=0x16,GEManager=2;*=0x14", "GLTexture", 0x16},
        {"GLTexture=0x16,GEManager=2;*=0x14", "GEManager", 0x02},
        {"GLTexture=0x16,GEManager=2;*=0x14", "GLFbo", 0x14},
        {"GLTexture=0x16,GEManager=2;*=0x14", nullptr, 0x14},
        // The wildcard may come first; decimal values; tags match whole.
        {"*=6;GLTex=22", "GLTexture", 6},
        {"*=6;GLTex=22", "GLTex", 22},
        // "0" silences a tag; the unread bit 0x80 is never returned.
        {"GECommon=0,*=0xff", "GECommon", 0},
        {"GECommon=0,*=0xff", "GLProgram", 0x7F},
        // Entries that do not parse are skipped.
        {"GLTexture=zz,GLTexture,GEManager=0x100,*=0x12", "GLTexture", 0x12},
        {"GLTexture=zz,GLTexture,GEManager=0x100,*=0x12", "GEManager", 0x12},
        {"GLTexture=0x04x;GLFbo=4", "GLTexture", 0x10},
        {"GLTexture=0x04x;GLFbo=4", "GLFbo", 4},
    };
    // Each read takes the variable as it is now.
    for (const auto& c : cases) {
        if (c.env) {
            setenv("POSTEFFECT_LOG", c.env, 1);
        } else {
            unsetenv("POSTEFFECT_LOG");
        }
        unsigned char stored = 0x80;
        EXPECT_EQ(c.mask, __vlklog_init_mask(c.tag, -1, &stored))
            << (c.env ? c.env : "(unset)") << " " << (c.tag ? c.tag : "(null)");
        EXPECT_EQ(c.mask, stored);
    }
    // The mask pointer may be null.
    setenv("POSTEFFECT_LOG", "*=0x06", 1);
    EXPECT_EQ(0x06, __vlklog_init_mask("GLTexture", -1, nullptr));
    unsetenv("POSTEFFECT_LOG");
}

}  // namespace
