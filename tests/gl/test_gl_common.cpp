// The GL and EGL error checks and the millisecond clock.
//
// Real errors are provoked through GL and EGL. Codes the driver cannot be made
// to produce (0x503 to 0x506, two queued GL errors, EGL codes beyond the
// table) come from a queue that this executable's glGetError / eglGetError
// hand out before they forward to the driver's.
#include <EGL/egl.h>
#include <GLES2/gl2.h>
#include <android/log.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <deque>
#include <string>

#include "GETestGL.h"
#include "GETestLog.h"
#include "gl/GECommon.h"

// The clock's arithmetic, defined beside GetTickCount.
uint32_t GETickFromTimeval(const struct timeval& tv);

namespace {

std::deque<GLenum> s_fakeGLErrors;
std::deque<EGLint> s_fakeEGLErrors;
int s_nGLErrorReads = 0;
int s_nEGLErrorReads = 0;

}  // namespace

extern "C" GLenum glGetError(void) {
    ++s_nGLErrorReads;
    if (!s_fakeGLErrors.empty()) {
        GLenum code = s_fakeGLErrors.front();
        s_fakeGLErrors.pop_front();
        return code;
    }
    typedef GLenum (*Fn)(void);
    static Fn s_real = (Fn)dlsym(RTLD_NEXT, "glGetError");
    return s_real ? s_real() : GL_NO_ERROR;
}

extern "C" EGLint eglGetError(void) {
    ++s_nEGLErrorReads;
    if (!s_fakeEGLErrors.empty()) {
        EGLint code = s_fakeEGLErrors.front();
        s_fakeEGLErrors.pop_front();
        return code;
    }
    typedef EGLint (*Fn)(void);
    static Fn s_real = (Fn)dlsym(RTLD_NEXT, "eglGetError");
    return s_real ? s_real() : EGL_SUCCESS;
}

namespace {

class CommonTest : public GLTest {
protected:
    void SetUp() override {
        GLTest::SetUp();
        s_fakeGLErrors.clear();
        s_fakeEGLErrors.clear();
        eglGetError();  // clear the EGL error of the bring-up, if any
        s_nGLErrorReads = 0;
        s_nEGLErrorReads = 0;
    }
    void TearDown() override {
        s_fakeGLErrors.clear();
        s_fakeEGLErrors.clear();
        GLTest::TearDown();
    }

    // The one error line that a failed check must have logged.
    std::string OnlyLine(const GETestLog& log) {
        std::vector<GETestLogLine> lines = log.Lines();
        EXPECT_EQ(lines.size(), 1u) << log.Dump();
        if (lines.empty()) {
            return "";
        }
        EXPECT_EQ(lines[0].priority, ANDROID_LOG_ERROR);
        EXPECT_EQ(lines[0].tag, "GECommon");
        return lines[0].text;
    }
};

TEST_F(CommonTest, NoPendingErrorGivesOneAndNoLine) {
    GETestLog log;
    EXPECT_EQ(CheckGLError("Where", "glClear"), 1u);
    EXPECT_EQ(CheckEGLError("Where", "eglGetCurrentDisplay"), 1u);
    EXPECT_TRUE(log.Lines().empty()) << log.Dump();
    EXPECT_EQ(s_nGLErrorReads, 1);
    EXPECT_EQ(s_nEGLErrorReads, 1);
}

TEST_F(CommonTest, RealGLErrorsAreNamed) {
    GETestLog log;
    glEnable(0x1234);  // not a capability
    EXPECT_EQ(CheckGLError("Test", "glEnable"), 0u);
    EXPECT_EQ(OnlyLine(log), "[Test] ERROR, glEnable failed with error: 0x500 GL_INVALID_ENUM");

    log.Clear();
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, -4, 4, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    EXPECT_EQ(CheckGLError("GLTexture::Init", "glTexImage2D"), 0u);
    EXPECT_EQ(OnlyLine(log),
              "[GLTexture::Init] ERROR, glTexImage2D failed with error: 0x501 GL_INVALID_VALUE");

    log.Clear();
    glUseProgram(0);
    glUniform1i(0, 1);  // no current program
    EXPECT_EQ(CheckGLError("Use", "glUniform1i"), 0u);
    EXPECT_EQ(OnlyLine(log),
              "[Use] ERROR, glUniform1i failed with error: 0x502 GL_INVALID_OPERATION");

    // The flag was consumed: the next check is clean.
    log.Clear();
    EXPECT_EQ(CheckGLError("Use", "glUniform1i"), 1u);
    EXPECT_TRUE(log.Lines().empty()) << log.Dump();
}

TEST_F(CommonTest, RealEGLErrorsAreNamed) {
    EGLDisplay dpy = eglGetCurrentDisplay();
    ASSERT_NE(dpy, EGL_NO_DISPLAY);
    GETestLog log;

    EGLint value = 0;
    static int s_notAConfig;
    EXPECT_EQ(eglGetConfigAttrib(dpy, (EGLConfig)&s_notAConfig, EGL_RED_SIZE, &value), EGL_FALSE);
    EXPECT_EQ(CheckEGLError("Test", "eglGetConfigAttrib"), 0u);
    EXPECT_EQ(OnlyLine(log),
              "[Test] ERROR, eglGetConfigAttrib failed with error: 0x3005 EGL_BAD_CONFIG");

    log.Clear();
    static int s_notASurface;
    EXPECT_EQ(eglQuerySurface(dpy, (EGLSurface)&s_notASurface, EGL_WIDTH, &value), EGL_FALSE);
    EXPECT_EQ(CheckEGLError("Test", "eglQuerySurface"), 0u);
    EXPECT_EQ(OnlyLine(log),
              "[Test] ERROR, eglQuerySurface failed with error: 0x300D EGL_BAD_SURFACE");
}

TEST_F(CommonTest, EveryTableNameAsLogged) {
    struct {
        GLenum code;
        const char* line;
    } gl[] = {
        {0x500, "[W] ERROR, w failed with error: 0x500 GL_INVALID_ENUM"},
        {0x501, "[W] ERROR, w failed with error: 0x501 GL_INVALID_VALUE"},
        {0x502, "[W] ERROR, w failed with error: 0x502 GL_INVALID_OPERATION"},
        {0x503, "[W] ERROR, w failed with error: 0x503 "},
        {0x504, "[W] ERROR, w failed with error: 0x504 "},
        {0x505, "[W] ERROR, w failed with error: 0x505 GL_OUT_OF_MEMORY"},
    };
    for (const auto& c : gl) {
        GETestLog log;
        s_fakeGLErrors.push_back(c.code);
        EXPECT_EQ(CheckGLError("W", "w"), 0u);
        EXPECT_EQ(OnlyLine(log), c.line);
    }

    const char* egl[] = {
        "EGL_SUCCESS",       "EGL_NOT_INITIALIZED",     "EGL_BAD_ACCESS",
        "EGL_BAD_ALLOC",     "EGL_BAD_ATTRIBUTE",       "EGL_BAD_CONFIG",
        "EGL_BAD_CONTEXT",   "EGL_BAD_CURRENT_SURFACE", "EGL_BAD_DISPLAY",
        "EGL_BAD_MATCH",     "EGL_BAD_NATIVE_PIXMAP",   "EGL_BAD_NATIVE_WINDOW",
        "EGL_BAD_PARAMETER", "EGL_BAD_SURFACE",         "EGL_CONTEXT_LOST",
    };
    // 0x3000 itself is success and never looked up; the others are.
    for (int i = 1; i < 15; ++i) {
        GETestLog log;
        s_fakeEGLErrors.push_back(0x3000 + i);
        EXPECT_EQ(CheckEGLError("W", "e"), 0u);
        char hex[16];
        snprintf(hex, sizeof(hex), "0x%X", 0x3000 + i);
        EXPECT_EQ(OnlyLine(log),
                  std::string("[W] ERROR, e failed with error: ") + hex + " " + egl[i]);
    }
}

TEST_F(CommonTest, CodesOutsideTheTablesLogAnEmptyName) {
    GETestLog log;
    s_fakeGLErrors.push_back(0x506);  // GL_INVALID_FRAMEBUFFER_OPERATION: no entry
    s_fakeGLErrors.push_back(0x4FF);
    s_fakeGLErrors.push_back(0xFFFFFFFFu);
    s_fakeEGLErrors.push_back(0x300F);
    s_fakeEGLErrors.push_back(0x2FFF);
    EXPECT_EQ(CheckGLError("W", "a"), 0u);
    EXPECT_EQ(CheckGLError("W", "b"), 0u);
    EXPECT_EQ(CheckGLError("W", "c"), 0u);
    EXPECT_EQ(CheckEGLError("W", "d"), 0u);
    EXPECT_EQ(CheckEGLError("W", "e"), 0u);
    EXPECT_TRUE(
        log.HasExact(ANDROID_LOG_ERROR, "GECommon", "[W] ERROR, a failed with error: 0x506 "));
    EXPECT_TRUE(
        log.HasExact(ANDROID_LOG_ERROR, "GECommon", "[W] ERROR, b failed with error: 0x4FF "));
    EXPECT_TRUE(
        log.HasExact(ANDROID_LOG_ERROR, "GECommon", "[W] ERROR, c failed with error: 0xFFFFFFFF "));
    EXPECT_TRUE(
        log.HasExact(ANDROID_LOG_ERROR, "GECommon", "[W] ERROR, d failed with error: 0x300F "));
    EXPECT_TRUE(
        log.HasExact(ANDROID_LOG_ERROR, "GECommon", "[W] ERROR, e failed with error: 0x2FFF "));
    EXPECT_EQ(log.Lines().size(), 5u) << log.Dump();
}

TEST_F(CommonTest, TwoQueuedErrorsAreReportedOnePerCheck) {
    GETestLog log;
    s_fakeGLErrors.push_back(GL_INVALID_ENUM);
    s_fakeGLErrors.push_back(GL_INVALID_VALUE);
    EXPECT_EQ(CheckGLError("First", "x"), 0u);
    EXPECT_EQ(s_nGLErrorReads, 1);
    EXPECT_EQ(OnlyLine(log), "[First] ERROR, x failed with error: 0x500 GL_INVALID_ENUM");
    log.Clear();
    EXPECT_EQ(CheckGLError("Second", "y"), 0u);
    EXPECT_EQ(OnlyLine(log), "[Second] ERROR, y failed with error: 0x501 GL_INVALID_VALUE");
    log.Clear();
    EXPECT_EQ(CheckGLError("Third", "z"), 1u);
    EXPECT_TRUE(log.Lines().empty()) << log.Dump();
    EXPECT_EQ(s_nGLErrorReads, 3);

    s_fakeEGLErrors.push_back(EGL_BAD_ALLOC);
    s_fakeEGLErrors.push_back(EGL_BAD_MATCH);
    EXPECT_EQ(CheckEGLError("E", "1"), 0u);
    EXPECT_EQ(CheckEGLError("E", "2"), 0u);
    EXPECT_EQ(CheckEGLError("E", "3"), 1u);
    EXPECT_EQ(s_nEGLErrorReads, 3);
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, "GECommon",
                             "[E] ERROR, 1 failed with error: 0x3003 EGL_BAD_ALLOC"));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, "GECommon",
                             "[E] ERROR, 2 failed with error: 0x3009 EGL_BAD_MATCH"));
}

TEST_F(CommonTest, ClosedErrorMaskGivesZeroAndNoLine) {
    GETestLog log;
    GETestLog::SetMasks("GECommon=0x00,*=0xff");
    glEnable(0x1234);
    EXPECT_EQ(CheckGLError("Quiet", "glEnable"), 0u);
    s_fakeEGLErrors.push_back(EGL_BAD_DISPLAY);
    EXPECT_EQ(CheckEGLError("Quiet", "egl"), 0u);
    // Only the error bit matters: every other bit open still logs nothing.
    GETestLog::SetMasks("GECommon=0x6F,*=0xff");
    glEnable(0x1234);
    EXPECT_EQ(CheckGLError("Quiet", "glEnable"), 0u);
    EXPECT_TRUE(log.Lines().empty()) << log.Dump();
    // The error was still consumed.
    EXPECT_EQ(CheckGLError("Quiet", "after"), 1u);

    GETestLog::SetMasks("GECommon=0x10,*=0x00");
    glEnable(0x1234);
    EXPECT_EQ(CheckGLError("Loud", "glEnable"), 0u);
    EXPECT_EQ(OnlyLine(log), "[Loud] ERROR, glEnable failed with error: 0x500 GL_INVALID_ENUM");
    GETestLog::SetMasks("*=0xff");
}

TEST(TickCount, DifferencesSurviveTheWrap) {
    // 4294967.296 s is 2^32 ms: the readings straddle the wrap.
    struct timeval before = {4294967, 290000};
    struct timeval after = {4294967, 300000};
    uint32_t a = GETickFromTimeval(before);
    uint32_t b = GETickFromTimeval(after);
    EXPECT_EQ(a, 4294967290u);
    EXPECT_EQ(b, 4u);
    EXPECT_EQ((uint32_t)(b - a), 10u);

    // Sub-millisecond parts truncate; whole seconds carry.
    struct timeval t1 = {4294966, 999999};
    struct timeval t2 = {4294967, 296001};
    EXPECT_EQ(GETickFromTimeval(t1), 4294966999u);
    EXPECT_EQ(GETickFromTimeval(t2), 0u);
    EXPECT_EQ((uint32_t)(GETickFromTimeval(t2) - GETickFromTimeval(t1)), 297u);

    // A 64-bit time beyond 2^32 seconds is reduced the same way.
    struct timeval far = {(time_t)0x100000005LL, 7000};
    uint64_t wide = (uint64_t)0x100000005LL * 1000u + 7u;
    EXPECT_EQ(GETickFromTimeval(far), (uint32_t)wide);
}

TEST(TickCount, FollowsTheWallClock) {
    struct timeval now;
    gettimeofday(&now, nullptr);
    uint32_t expected = GETickFromTimeval(now);
    uint32_t tick = GetTickCount();
    // Taken right after: not behind, and well within a minute ahead.
    EXPECT_LT((uint32_t)(tick - expected), 60000u);
}

}  // namespace
