// The effect manager: EGL bring-up and teardown, Init over a graphics buffer
// and the display size, the effect table, the frame overloads' checks,
// parameter mapping, and the timing lines.
#include <EGL/egl.h>
#include <GLES2/gl2.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "GETestEngine.h"
#include "GETestLog.h"
#include "engine/GEManager.h"
#include "engine/GEShader.h"
#include "gl/GECommon.h"
#include "gl/GLTexture.h"

using namespace getest;

namespace {

const int kW = 64;  // preview size: the buffer's width is already 32-aligned
const int kH = 32;
const int D = ANDROID_LOG_DEBUG;
const int I = ANDROID_LOG_INFO;
const int E = ANDROID_LOG_ERROR;
const char kTag[] = "GEManager";

GELogTag s_recLog("RecordingShader");

// An effect that only records what reaches it.
class RecordingShader : public GEShader {
public:
    RecordingShader() : GEShader(s_recLog) {}
    int ProcBlock(unsigned, unsigned, int, int) override { return 1; }
    int ProcFrame(unsigned, unsigned, int, int) override { return m_nResult; }
    int ProcFrame(unsigned char* src, unsigned char* out, int w, int h) override {
        m_capture = {src, out, w, h};
        return m_nResult;
    }
    int SetParam(unsigned group, int a, int b, int c, int d) override {
        m_param = {(int)group, a, b, c, d};
        return m_nResult;
    }
    int SetCrop(float x, float y, float w, float h) override {
        m_crop = {x, y, w, h};
        return 1;
    }
    using GEShader::SetCrop;

    struct Capture {
        unsigned char *src, *out;
        int w, h;
    };
    int m_nResult = 1;
    Capture m_capture = {nullptr, nullptr, 0, 0};
    std::vector<int> m_param;
    std::vector<float> m_crop;
};

// Sets an environment variable for the scope, restoring the old value.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : m_name(name) {
        const char* old = getenv(name);
        m_bHad = old != nullptr;
        m_old = m_bHad ? old : "";
        value ? setenv(name, value, 1) : unsetenv(name);
    }
    ~ScopedEnv() { m_bHad ? setenv(m_name.c_str(), m_old.c_str(), 1) : unsetenv(m_name.c_str()); }

private:
    std::string m_name, m_old;
    bool m_bHad;
};

TEST(ManagerEGL, BringUpPublishesTheContextAndTeardownClearsIt) {
    ScopedEnv noPlatform("EGL_PLATFORM", nullptr);
    // The worker builds a manager per start: the second one must come up
    // after the first one has terminated the display.
    for (int i = 0; i < 2; ++i) {
        SCOPED_TRACE(i);
        GETestLog log;
        ManagerProbe* man = new ManagerProbe();
        ASSERT_TRUE(man->EGLReady()) << log.Dump();
        for (const char* step : {"m_eglDisplay", "eglInitialize", "eglChooseConfig",
                                 "eglCreateContext", "eglCreatePbufferSurface", "eglMakeCurrent"}) {
            EXPECT_TRUE(
                log.HasExact(D, kTag, std::string("[GEManager] ") + step + " successfully"));
        }
        EXPECT_EQ(eglGetCurrentDisplay(), g_eglDisplay);
        EXPECT_EQ(eglGetCurrentContext(), g_eglContext);
        EXPECT_NE(EGL_NO_CONTEXT, g_eglContext);

        // The current surface is the 1 x 1 pbuffer, and the config honours
        // the requested depth, stencil and client API.
        EGLSurface surface = eglGetCurrentSurface(EGL_DRAW);
        EGLint sw = 0, sh = 0, id = 0, n = 0;
        eglQuerySurface(g_eglDisplay, surface, EGL_WIDTH, &sw);
        eglQuerySurface(g_eglDisplay, surface, EGL_HEIGHT, &sh);
        EXPECT_EQ(1, sw);
        EXPECT_EQ(1, sh);
        ASSERT_TRUE(eglQueryContext(g_eglDisplay, g_eglContext, EGL_CONFIG_ID, &id));
        const EGLint byId[] = {EGL_CONFIG_ID, id, EGL_NONE};
        EGLConfig config = nullptr;
        ASSERT_TRUE(eglChooseConfig(g_eglDisplay, byId, &config, 1, &n) && n == 1);
        EGLint depth = 0, stencil = 0, renderable = 0, surfaceType = 0;
        eglGetConfigAttrib(g_eglDisplay, config, EGL_DEPTH_SIZE, &depth);
        eglGetConfigAttrib(g_eglDisplay, config, EGL_STENCIL_SIZE, &stencil);
        eglGetConfigAttrib(g_eglDisplay, config, EGL_RENDERABLE_TYPE, &renderable);
        eglGetConfigAttrib(g_eglDisplay, config, EGL_SURFACE_TYPE, &surfaceType);
        EXPECT_GE(depth, 16);
        EXPECT_GE(stencil, 4);
        EXPECT_TRUE(renderable & EGL_OPENGL_ES2_BIT);
        EXPECT_TRUE(surfaceType & EGL_PBUFFER_BIT);

        log.Clear();
        delete man;
        for (const char* step :
             {"eglMakeCurrent", "eglDestroySurface", "eglDestroyContext", "eglTerminate"}) {
            EXPECT_TRUE(log.HasExact(D, kTag, std::string("[~GEManager] ") + step));
        }
        EXPECT_EQ(EGL_NO_DISPLAY, g_eglDisplay);
        EXPECT_EQ(EGL_NO_CONTEXT, g_eglContext);
        EXPECT_EQ(EGL_NO_CONTEXT, eglGetCurrentContext());
    }
}

TEST(ManagerWithoutEGL, RefusesEverything) {
    GETestLog log;
    ManagerProbe man((ManagerProbe::WithoutEGL()));
    EXPECT_FALSE(man.EGLReady());
    EXPECT_FALSE(man.Init(nullptr, kW, kH, 0, 0, 0, kW, kH, nullptr));
    EXPECT_TRUE(log.HasExact(E, kTag, "[Init] EGL not inited"));
    EXPECT_FALSE(man.ChooseEffect(9, 0));
    EXPECT_TRUE(log.HasExact(E, kTag, "[ChooseEffect] not inited"));
    EXPECT_FALSE(man.ProcFrame(0u, 0u, 0, 0));
    EXPECT_TRUE(log.HasExact(E, kTag, "[ProcFrame] not inited"));
    EXPECT_EQ(0, man.SetParam(1, 10, 0, 0, 0));
    EXPECT_TRUE(log.HasExact(E, kTag, "[SetParam] not inited"));
    EXPECT_FALSE(man.MemcpyYUV(nullptr, nullptr));
    man.SetCrop(0.f, 0.f, 1.f, 1.f);  // no effect: nothing to crop, no crash
    EXPECT_TRUE(log.HasExact(E, kTag, "[GEManager::SetCrop] no shader selected."));
    EXPECT_TRUE(man.Deinit());
}

TEST(ManagerInit, WrapsTheBufferAndReadsTheDisplaySize) {
    ScopedEnv display("POSTEFFECT_DISPLAY", "480x800");  // portrait panel
    ManagerRig rig;
    GETestLog log;
    // A buffer it cannot wrap fails and leaves the manager down.
    EXPECT_FALSE(rig.man.Init(nullptr, kW, kH, 0, 0, 0, kW, kH, nullptr));
    EXPECT_TRUE(log.HasExact(E, kTag, "[Init] can't init m_pSrcTexture"));
    EXPECT_FALSE(rig.man.FrameReady());
    EXPECT_EQ(nullptr, rig.man.SrcTexture());
    EXPECT_FALSE(rig.man.ChooseEffect(9, 0));

    ASSERT_TRUE(rig.Init(48, kH)) << log.Dump();  // a picture narrower than the buffer
    EXPECT_TRUE(rig.man.FrameReady());
    // The larger side is the width.
    EXPECT_EQ(800, g_Disp_Width);
    EXPECT_EQ(480, g_Disp_Height);
    EXPECT_EQ(800, rig.man.DispWidth());
    EXPECT_EQ(480, rig.man.DispHeight());
    EXPECT_TRUE(log.HasExact(I, kTag, "[Init] g_Disp_Width=800, g_Disp_Height=480"));
    EXPECT_TRUE(log.HasExact(I, kTag, "[Init] glViewport x=0 y=0 w=48 h=32"));

    GLTexture* tex = rig.man.SrcTexture();
    ASSERT_NE(nullptr, tex);
    EXPECT_TRUE(tex->IsST());
    EXPECT_EQ((std::vector<unsigned>{48, 64, 32, GL_RGBA, GL_UNSIGNED_BYTE}),
              (std::vector<unsigned>{tex->GetWidth(), tex->GetAllocWidth(), tex->GetHeight(),
                                     tex->GetFormat(), tex->GetType()}));
    glBindTexture(GL_TEXTURE_2D, tex->GetTexName());
    const GLenum params[][2] = {{GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE},
                                {GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE},
                                {GL_TEXTURE_MIN_FILTER, GL_LINEAR},
                                {GL_TEXTURE_MAG_FILTER, GL_LINEAR}};
    for (const auto& p : params) {
        GLint v = 0;
        glGetTexParameteriv(GL_TEXTURE_2D, p[0], &v);
        EXPECT_EQ((GLint)p[1], v) << p[0];
    }
    GLint vp[4] = {-1, -1, -1, -1};
    glGetIntegerv(GL_VIEWPORT, vp);
    EXPECT_EQ((std::vector<GLint>{0, 0, 48, 32}), std::vector<GLint>(vp, vp + 4));
    EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
}

TEST(ManagerInit, DeinitAndASecondInitDropTheEffectAndTheTexture) {
    ManagerRig rig;
    android::sp<android::GraphicBuffer> other = NewFrameBuffer(kW, kH);
    for (bool restart : {false, true}) {
        SCOPED_TRACE(restart ? "second Init" : "Deinit");
        ASSERT_TRUE(rig.Init(kW, kH));
        ASSERT_TRUE(rig.man.ChooseEffect(9, 0));
        GETestLog log;
        // The old effect sampled the old texture: both go.
        EXPECT_TRUE(restart
                        ? rig.man.Init(other->getNativeBuffer(), kW, kH, 0, 0, 0, kW, kH, nullptr)
                        : rig.man.Deinit());
        EXPECT_TRUE(log.HasExact(I, kTag, "[Deinit] delete m_pCurrShader"));
        EXPECT_TRUE(log.HasExact(I, kTag, "[Deinit] delete m_pSrcTexture"));
        EXPECT_EQ(nullptr, rig.man.CurrShader());
        EXPECT_EQ(-1, rig.man.CurrEffect());
        EXPECT_EQ(restart, rig.man.FrameReady());
        EXPECT_EQ(restart, rig.man.SrcTexture() != nullptr);
        EXPECT_EQ(restart, rig.man.ChooseEffect(8, 0));
        EXPECT_EQ(restart, rig.man.ProcFrame(0u, 0u, 0, 0));
        EXPECT_TRUE(rig.man.Deinit());
        EXPECT_TRUE(rig.man.Deinit());  // twice is harmless
        EXPECT_FALSE(rig.man.MemcpyYUV(nullptr, nullptr));
    }
}

TEST(ManagerChoose, AcceptsMirrorAndBloomAndRefusesTheRest) {
    ManagerRig rig;
    ASSERT_TRUE(rig.Init(kW, kH));
    GETestLog log;
    ASSERT_TRUE(rig.man.ChooseEffect(9, 0)) << log.Dump();
    EXPECT_EQ(9, rig.man.CurrEffect());
    EXPECT_FALSE(rig.man.CaptureMode());
    EXPECT_TRUE(log.HasExact(I, kTag, "[ChooseEffect] effect=9, capture mode=0"));
    EXPECT_EQ(1, log.Count("total loading time"));
    ASSERT_TRUE(rig.man.ChooseEffect(8, 1)) << log.Dump();
    EXPECT_EQ(8, rig.man.CurrEffect());
    EXPECT_TRUE(rig.man.CaptureMode());
    EXPECT_TRUE(log.Has(I, "GEShaderBloom", "[Deinit] enter"));  // the Bloom instance went first

    // Past the table: refused before anything changes.
    ASSERT_TRUE(rig.man.ChooseEffect(9, 0));
    GEShader* bloom = rig.man.CurrShader();
    for (unsigned effect : {19u, 1000u}) {
        EXPECT_FALSE(rig.man.ChooseEffect(effect, 1));
        EXPECT_TRUE(log.HasExact(
            E, kTag, "[ChooseEffect] index " + std::to_string(effect) + " should less than 19"));
    }
    EXPECT_EQ(bloom, rig.man.CurrShader());
    EXPECT_EQ(9, rig.man.CurrEffect());
    EXPECT_FALSE(rig.man.CaptureMode());
    EXPECT_TRUE(rig.man.ProcFrame(0u, 0u, 0, 0));

    // 0, 99 and the entries this build does not carry are refused after the
    // old effect is gone.
    for (unsigned effect = 0; effect < 100; effect = effect == 18 ? 99 : effect + 1) {
        if (effect == 8 || effect == 9) {
            continue;
        }
        SCOPED_TRACE(effect);
        ASSERT_TRUE(rig.man.ChooseEffect(9, 0));
        log.Clear();
        EXPECT_FALSE(rig.man.ChooseEffect(effect, 0));
        const std::string line =
            effect == 0 || effect == 99
                ? "[ChooseEffect] wrong index " + std::to_string(effect)
                : "[ChooseEffect] effect " + std::to_string(effect) + " not available";
        EXPECT_TRUE(log.HasExact(E, kTag, line)) << log.Dump();
        EXPECT_EQ(nullptr, rig.man.CurrShader());
        EXPECT_EQ(-1, rig.man.CurrEffect());
    }
    log.Clear();
    EXPECT_FALSE(rig.man.ProcFrame(0u, 0u, 0, 0));
    EXPECT_TRUE(log.HasExact(E, kTag, "[GEManager::ProcFrame] no shader selected"));
    EXPECT_FALSE(rig.man.MemcpyYUV(nullptr, nullptr));
    EXPECT_EQ(0, rig.man.SetParam(0, 1, 2, 3, 4));
    EXPECT_TRUE(log.HasExact(E, kTag, "[GEManager::SetParam] no shader selected."));
}

TEST(ManagerFrames, OverloadsFollowTheCaptureMode) {
    ManagerRig rig;
    ASSERT_TRUE(rig.Init(kW, kH));
    ASSERT_TRUE(rig.man.ChooseEffect(8, 0));  // preview
    GETestLog log;
    std::vector<unsigned char> out((size_t)kW * kH * 3 / 2, kPoison);
    EXPECT_FALSE(rig.man.ProcFrame(out.data(), out.data(), kW, kH));
    EXPECT_FALSE(rig.man.ProcFrame(out.data(), out.data(), out.data(), kW, kH));
    EXPECT_EQ(2, log.Count("[GEManager::ProcFrame] only capture mode use this method"));
    EXPECT_EQ(std::vector<unsigned char>((size_t)kW * kH * 3 / 2, kPoison), out);
    EXPECT_TRUE(rig.man.ProcFrame(0u, 0u, 0, 0));

    // A capture instance refuses preview frames; the manager reports it.
    ASSERT_TRUE(rig.man.ChooseEffect(8, 1));
    log.Clear();
    EXPECT_FALSE(rig.man.ProcFrame(0u, 0u, 0, 0));
    EXPECT_TRUE(log.HasExact(E, kTag, "[GPUEffectManager::ProcFrame] failed to process frame"));

    // Both capture forms reach the effect's, the five-argument one through
    // the base, which passes (y, out); success logs the time.
    RecordingShader* rec = new RecordingShader();
    rig.man.Inject(rec, true, false);
    unsigned char y = 0, uv = 0, o = 0;
    log.Clear();
    EXPECT_TRUE(rig.man.ProcFrame(&y, &o, 4000, 3000));
    EXPECT_TRUE(rec->m_capture.src == &y && rec->m_capture.out == &o);
    EXPECT_EQ(4000, rec->m_capture.w);
    EXPECT_EQ(3000, rec->m_capture.h);
    rec->m_capture = {};
    EXPECT_TRUE(rig.man.ProcFrame(&y, &uv, &o, 640, 480));
    EXPECT_TRUE(rec->m_capture.src == &y && rec->m_capture.out == &o);
    EXPECT_EQ(640, rec->m_capture.w);
    EXPECT_EQ(1, log.Count("[ProcFrame] 4000x3000 image spent "));
    EXPECT_EQ(1, log.Count("[ProcFrame] 640x480 image spent "));
    rec->m_nResult = 0;
    log.Clear();
    EXPECT_FALSE(rig.man.ProcFrame(&y, &o, 64, 32));
    EXPECT_FALSE(rig.man.ProcFrame(&y, &uv, &o, 64, 32));
    EXPECT_EQ(2, log.Count("[GPUEffectManager::ProcFrame] failed to process frame"));
    EXPECT_EQ(0, log.Count("image spent"));
}

TEST(ManagerParams, GroupOneIsMappedToTheViewportAndCropsPassOn) {
    ScopedEnv display("POSTEFFECT_DISPLAY", "800x480");
    ManagerRig rig;
    ASSERT_TRUE(rig.Init(kW, kH));
    RecordingShader* rec = new RecordingShader();
    rig.man.Inject(rec, false, false);

    // 64 x 400 / 800 = 32; the other values and groups pass unchanged.
    EXPECT_EQ(1, rig.man.SetParam(1, 400, -7, 8, 9));
    EXPECT_EQ((std::vector<int>{1, 32, -7, 8, 9}), rec->m_param);
    EXPECT_EQ(1, rig.man.SetParam(0, 400, 1, 2, 3));
    EXPECT_EQ((std::vector<int>{0, 400, 1, 2, 3}), rec->m_param);
    EXPECT_EQ(1, rig.man.SetParam(2, 799, 0, 0, 0));
    EXPECT_EQ(799, rec->m_param[1]);
    // The effect's own result is returned.
    rec->m_nResult = 0;
    EXPECT_EQ(0, rig.man.SetParam(1, 400, 0, 0, 0));
    rec->m_nResult = 1;

    // Unsigned 32-bit arithmetic, truncating: a point left of the viewport
    // wraps, and so does a product past 32 bits.
    for (int x : {0, 100}) {
        rig.man.SetViewportX(x);
        for (int a : {799, 100, 900, 40, -1, 2000000000}) {
            rig.man.SetParam(1, a, 0, 0, 0);
            EXPECT_EQ((int)((uint32_t)kW * ((uint32_t)a - (uint32_t)x) / 800u), rec->m_param[1])
                << "a = " << a << ", viewport x = " << x;
        }
    }

    // A display width of zero is not divided by: the value passes unmapped.
    GETestLog log;
    rig.man.SetDispWidth(0);
    EXPECT_EQ(1, rig.man.SetParam(1, 123, 0, 0, 0));
    EXPECT_EQ(123, rec->m_param[1]);
    EXPECT_EQ(1, log.Count("display width 0"));

    rig.man.SetCrop(0.25f, 0.5f, 0.125f, 1.0f);
    EXPECT_EQ((std::vector<float>{0.25f, 0.5f, 0.125f, 1.0f}), rec->m_crop);
}

TEST(ManagerTiming, AverageLineEveryFiftyPreviewFrames) {
    ManagerRig rig;
    ASSERT_TRUE(rig.Init(kW, kH));
    ASSERT_TRUE(rig.man.ChooseEffect(9, 0));
    GETestLog log;
    const std::string kAvg = "[GPUEffectManager::ProcFrame] Avg frame proc time = ";
    // The count is process-wide: run up to the next line first.
    for (int i = 0; i < 50 && log.Count(kAvg) == 0; ++i) {
        ASSERT_TRUE(rig.man.ProcFrame(0u, 0u, 0, 0));
    }
    ASSERT_EQ(1, log.Count(kAvg));
    log.Clear();
    // Failed frames do not count: 48 good ones, a failed one and one more
    // good one make 49.
    RecordingShader* rec = new RecordingShader();
    rig.man.Inject(rec, false, false);
    for (int i = 0; i < 50; ++i) {
        rec->m_nResult = i == 48 ? 0 : 1;
        EXPECT_EQ(i != 48, rig.man.ProcFrame(0u, 0u, 0, 0));
    }
    EXPECT_EQ(0, log.Count(kAvg));
    EXPECT_TRUE(rig.man.ProcFrame(0u, 0u, 0, 0));
    EXPECT_EQ(1, log.Count(kAvg));
    EXPECT_TRUE(log.Has(I, kTag, kAvg)) << log.Dump();
}

TEST(ManagerTiming, FrameRateLineAfterTwoSeconds) {
    ManagerProbe man((ManagerProbe::WithoutEGL()));
    GETestLog log;
    const char kFPS[] = "[FPS] FPS = ";
    // The interval is process-wide: run until a report closes the current one.
    const uint32_t start = GetTickCount();
    while (log.Count(kFPS) == 0) {
        man.FPS();
        usleep(20000);
        ASSERT_LT(GetTickCount() - start, 5000u) << "no FPS line";
    }
    log.Clear();
    man.FPS();  // one frame in the new interval
    usleep(1000000);
    man.FPS();  // under two seconds: no line yet
    EXPECT_EQ(0, log.Count(kFPS));
    usleep(1100000);
    man.FPS();  // three frames in a little over two seconds
    ASSERT_EQ(1, log.Count(kFPS)) << log.Dump();
    for (const GETestLogLine& l : log.Lines()) {
        if (l.text.find(kFPS) == 0) {
            const double fps = atof(l.text.c_str() + sizeof(kFPS) - 1);
            EXPECT_GT(fps, 0.0);
            EXPECT_LT(fps, 1.5);  // 3 frames x 1000 / (> 2000 ms)
        }
    }
}

}  // namespace
