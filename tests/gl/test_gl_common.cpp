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

template <typename T>
T Next(std::deque<T>* fakes, int* reads, const char* name, T none) {
    ++*reads;
    if (!fakes->empty()) {
        T code = fakes->front();
        fakes->pop_front();
        return code;
    }
    typedef T (*Fn)(void);
    Fn real = (Fn)dlsym(RTLD_NEXT, name);
    return real ? real() : none;
}

}  // namespace

extern "C" GLenum glGetError(void) {
    return Next<GLenum>(&s_fakeGLErrors, &s_nGLErrorReads, "glGetError", GL_NO_ERROR);
}

extern "C" EGLint eglGetError(void) {
    return Next<EGLint>(&s_fakeEGLErrors, &s_nEGLErrorReads, "eglGetError", EGL_SUCCESS);
}

namespace {

const std::string kFail = "ERROR, w failed with error: ";

class CommonTest : public GLTest {
protected:
    void SetUp() override {
        GLTest::SetUp();
        s_fakeGLErrors.clear();
        s_fakeEGLErrors.clear();
        eglGetError();  // the bring-up's EGL error, if any
        s_nGLErrorReads = s_nEGLErrorReads = 0;
        m_log.Clear();
    }

    // The lines logged since the last call: each must be an error under
    // "GECommon".
    std::vector<std::string> Take() {
        for (const GETestLogLine& l : m_log.Lines()) {
            EXPECT_EQ(l.priority, ANDROID_LOG_ERROR) << l.text;
            EXPECT_EQ(l.tag, "GECommon") << l.text;
        }
        std::vector<std::string> texts = m_log.Texts();
        m_log.Clear();
        return texts;
    }
    typedef std::vector<std::string> Lines;

    GETestLog m_log;
};

TEST_F(CommonTest, SuccessReadsOnceAndLogsNothing) {
    EXPECT_EQ(CheckGLError("W", "w"), 1u);
    EXPECT_EQ(CheckEGLError("W", "w"), 1u);
    EXPECT_EQ(Take(), Lines());
    EXPECT_EQ(s_nGLErrorReads, 1);
    EXPECT_EQ(s_nEGLErrorReads, 1);
}

TEST_F(CommonTest, DriverErrorsAreNamed) {
    glEnable(0x1234);  // not a capability
    EXPECT_EQ(CheckGLError("GLTexture::Init", "glEnable"), 0u);
    EXPECT_EQ(Take(), Lines{"[GLTexture::Init] ERROR, glEnable failed with error: 0x500 "
                            "GL_INVALID_ENUM"});
    EXPECT_EQ(CheckGLError("W", "w"), 1u);  // the flag was consumed
    static int s_notASurface;
    EGLint value = 0;
    EXPECT_FALSE(
        eglQuerySurface(eglGetCurrentDisplay(), (EGLSurface)&s_notASurface, EGL_WIDTH, &value));
    EXPECT_EQ(CheckEGLError("W", "w"), 0u);
    EXPECT_EQ(Take(), Lines{"[W] " + kFail + "0x300D EGL_BAD_SURFACE"});
}

// Every entry of both tables, and codes outside them (no name).
TEST_F(CommonTest, EveryCodeAsLogged) {
    const struct {
        bool egl;
        uint32_t code;
        const char* name;
    } cases[] = {
        {false, 0x500, "GL_INVALID_ENUM"},
        {false, 0x501, "GL_INVALID_VALUE"},
        {false, 0x502, "GL_INVALID_OPERATION"},
        {false, 0x503, ""},
        {false, 0x504, ""},
        {false, 0x505, "GL_OUT_OF_MEMORY"},
        {false, 0x506, ""},
        {false, 0x4FF, ""},
        {false, 0xFFFFFFFF, ""},
        {true, 0x3001, "EGL_NOT_INITIALIZED"},
        {true, 0x3002, "EGL_BAD_ACCESS"},
        {true, 0x3003, "EGL_BAD_ALLOC"},
        {true, 0x3004, "EGL_BAD_ATTRIBUTE"},
        {true, 0x3005, "EGL_BAD_CONFIG"},
        {true, 0x3006, "EGL_BAD_CONTEXT"},
        {true, 0x3007, "EGL_BAD_CURRENT_SURFACE"},
        {true, 0x3008, "EGL_BAD_DISPLAY"},
        {true, 0x3009, "EGL_BAD_MATCH"},
        {true, 0x300A, "EGL_BAD_NATIVE_PIXMAP"},
        {true, 0x300B, "EGL_BAD_NATIVE_WINDOW"},
        {true, 0x300C, "EGL_BAD_PARAMETER"},
        {true, 0x300D, "EGL_BAD_SURFACE"},
        {true, 0x300E, "EGL_CONTEXT_LOST"},
        {true, 0x300F, ""},
        {true, 0x2FFF, ""},
    };
    for (const auto& c : cases) {
        if (c.egl) {
            s_fakeEGLErrors.push_back((EGLint)c.code);
            EXPECT_EQ(CheckEGLError("W", "w"), 0u);
        } else {
            s_fakeGLErrors.push_back(c.code);
            EXPECT_EQ(CheckGLError("W", "w"), 0u);
        }
        EXPECT_EQ(Take(), Lines{"[W] " + kFail + GETestFormat("0x%X ", c.code) + c.name});
    }
}

TEST_F(CommonTest, QueuedErrorsAreReportedOnePerCheck) {
    s_fakeGLErrors = {GL_INVALID_ENUM, GL_INVALID_VALUE};
    s_fakeEGLErrors = {EGL_BAD_ALLOC, EGL_BAD_MATCH};
    EXPECT_EQ(CheckGLError("W", "w"), 0u);
    EXPECT_EQ(s_nGLErrorReads, 1);
    EXPECT_EQ(CheckEGLError("W", "w"), 0u);
    EXPECT_EQ(s_nEGLErrorReads, 1);
    EXPECT_EQ(Take(), (Lines{"[W] " + kFail + "0x500 GL_INVALID_ENUM",
                             "[W] " + kFail + "0x3003 EGL_BAD_ALLOC"}));
    EXPECT_EQ(CheckGLError("W", "w"), 0u);
    EXPECT_EQ(CheckEGLError("W", "w"), 0u);
    EXPECT_EQ(Take(), (Lines{"[W] " + kFail + "0x501 GL_INVALID_VALUE",
                             "[W] " + kFail + "0x3009 EGL_BAD_MATCH"}));
    EXPECT_EQ(CheckGLError("W", "w"), 1u);
    EXPECT_EQ(CheckEGLError("W", "w"), 1u);
    EXPECT_EQ(Take(), Lines());
}

TEST_F(CommonTest, OnlyTheErrorBitOfTheMaskMatters) {
    // Closed error bit, every other bit open: 0 and no line; the flag is
    // consumed all the same.
    GETestLog::SetMasks("GECommon=0x6F,*=0xff");
    glEnable(0x1234);
    EXPECT_EQ(CheckGLError("W", "w"), 0u);
    s_fakeEGLErrors.push_back(EGL_BAD_DISPLAY);
    EXPECT_EQ(CheckEGLError("W", "w"), 0u);
    EXPECT_EQ(Take(), Lines());
    EXPECT_EQ(CheckGLError("W", "w"), 1u);
    // The error bit alone logs.
    GETestLog::SetMasks("GECommon=0x10,*=0x00");
    glEnable(0x1234);
    EXPECT_EQ(CheckGLError("W", "w"), 0u);
    EXPECT_EQ(Take(), Lines{"[W] " + kFail + "0x500 GL_INVALID_ENUM"});
    GETestLog::SetMasks("*=0xff");
}

TEST(TickCount, DifferencesSurviveTheWrap) {
    const struct {
        struct timeval tv;
        uint32_t ms;
    } cases[] = {
        {{4294967, 290000}, 4294967290u},  // 4294967.296 s is 2^32 ms
        {{4294967, 300000}, 4u},
        {{4294966, 999999}, 4294966999u},  // sub-milliseconds truncate
        {{4294967, 296001}, 0u},
        {{(time_t)0x100000005LL, 7000}, (uint32_t)(0x100000005ULL * 1000u + 7u)},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(GETickFromTimeval(c.tv), c.ms) << c.tv.tv_sec << "." << c.tv.tv_usec;
    }
    EXPECT_EQ((uint32_t)(GETickFromTimeval(cases[1].tv) - GETickFromTimeval(cases[0].tv)), 10u);
    EXPECT_EQ((uint32_t)(GETickFromTimeval(cases[3].tv) - GETickFromTimeval(cases[2].tv)), 297u);

    // GetTickCount follows the wall clock: a reading right after is not
    // behind, and well within a minute ahead.
    struct timeval now;
    gettimeofday(&now, nullptr);
    uint32_t expected = GETickFromTimeval(now);
    EXPECT_LT((uint32_t)(GetTickCount() - expected), 60000u);
}

}  // namespace
