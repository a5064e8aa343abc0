// The effect manager: EGL bring-up and teardown, Init over a graphics buffer
// and the display size, the effect table, the frame overloads' checks,
// parameter mapping, and the timing lines.
#include <EGL/egl.h>
#include <GLES2/gl2.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "GETestLog.h"
#include "engine/GEManager.h"
#include "engine/GEShader.h"
#include "gl/GECommon.h"
#include "gl/GLTexture.h"

using android::GraphicBuffer;
using android::sp;

namespace {

const int kW = 64;  // preview size: the buffer's width is already 32-aligned
const int kH = 32;
const int kHalPixelFormatRGBA8888 = 1;
const uint32_t kUsage = 0x130;

const char kTag[] = "GEManager";

// Exposes the manager's state to the tests.
class ManagerProbe : public GEManager {
public:
    ManagerProbe() {}
    // A manager without EGL, like the plug-in's test double.
    struct WithoutEGL {};
    explicit ManagerProbe(WithoutEGL) : GEManager(NoEGL()) {}

    bool EGLReady() const { return m_bEGLReady; }
    bool FrameReady() const { return m_bFrameReady; }
    int CurrEffect() const { return m_nCurrEffect; }
    GEShader* CurrShader() const { return m_pCurrShader; }
    GLTexture* SrcTexture() const { return m_pSrcTexture; }
    bool CaptureMode() const { return m_bCaptureMode; }
    int DispWidth() const { return m_nDispWidth; }
    int DispHeight() const { return m_nDispHeight; }
    // Puts `shader` (then owned by the manager) in place of the current
    // effect, as if it had been chosen.
    void Inject(GEShader* shader, bool frameReady, bool capture) {
        delete m_pCurrShader;
        m_pCurrShader = shader;
        m_bFrameReady = frameReady;
        m_bCaptureMode = capture;
    }
    void SetViewport(int x, int w) {
        m_nViewportX = x;
        m_nViewportW = w;
    }
    void SetDispWidth(int w) { m_nDispWidth = w; }
};

// An effect that only records what reaches it.
class RecordingShader : public GEShader {
public:
    RecordingShader() : GEShader(s_log) {}
    int ProcBlock(unsigned, unsigned, int, int) override { return 1; }
    int ProcFrame(unsigned, unsigned, int, int) override {
        ++m_nPreviewFrames;
        return m_nResult;
    }
    int ProcFrame(unsigned char* src, unsigned char* out, int w, int h) override {
        ++m_nCaptures;
        m_pSrc = src;
        m_pOut = out;
        m_nW = w;
        m_nH = h;
        return m_nResult;
    }
    int SetParam(unsigned group, int a, int b, int c, int d) override {
        m_nGroup = group;
        m_nA = a;
        m_nB = b;
        m_nC = c;
        m_nD = d;
        return m_nResult;
    }
    int SetCrop(float x, float y, float w, float h) override {
        m_fCrop[0] = x;
        m_fCrop[1] = y;
        m_fCrop[2] = w;
        m_fCrop[3] = h;
        return 1;
    }
    using GEShader::SetCrop;

    static GELogTag s_log;
    int m_nResult = 1;
    int m_nPreviewFrames = 0;
    int m_nCaptures = 0;
    unsigned char* m_pSrc = nullptr;
    unsigned char* m_pOut = nullptr;
    int m_nW = 0, m_nH = 0;
    unsigned m_nGroup = 0xFFFFFFFFu;
    int m_nA = 0, m_nB = 0, m_nC = 0, m_nD = 0;
    float m_fCrop[4] = {0, 0, 0, 0};
};
GELogTag RecordingShader::s_log("RecordingShader");

// Sets an environment variable for the scope, restoring the old value.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : m_name(name) {
        const char* old = getenv(name);
        m_bHad = old != nullptr;
        if (m_bHad) {
            m_old = old;
        }
        if (value) {
            setenv(name, value, 1);
        } else {
            unsetenv(name);
        }
    }
    ~ScopedEnv() {
        if (m_bHad) {
            setenv(m_name.c_str(), m_old.c_str(), 1);
        } else {
            unsetenv(m_name.c_str());
        }
    }

private:
    std::string m_name;
    std::string m_old;
    bool m_bHad = false;
};

sp<GraphicBuffer> NewFrameBuffer(int w, int h) {
    sp<GraphicBuffer> gb =
        new GraphicBuffer((uint32_t)((w + 31) & ~31), (uint32_t)h, kHalPixelFormatRGBA8888, kUsage);
    EXPECT_EQ(android::NO_ERROR, gb->initCheck());
    return gb;
}

// A manager brought up over a fresh kW x kH buffer.
class ManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_pMan = new ManagerProbe();
        ASSERT_TRUE(m_pMan->EGLReady());
        m_gb = NewFrameBuffer(kW, kH);
    }
    void TearDown() override {
        delete m_pMan;
        m_pMan = nullptr;
        m_gb.clear();
    }
    bool InitManager(unsigned x = 0, unsigned y = 0, unsigned w = kW, unsigned h = kH) {
        return m_pMan->Init(m_gb->getNativeBuffer(), (unsigned)m_gb->getWidth(), (unsigned)kH, 0, x,
                            y, w, h, nullptr);
    }

    ManagerProbe* m_pMan = nullptr;
    sp<GraphicBuffer> m_gb;
};

TEST(ManagerEGL, ComesUpWithoutEnvironmentAndPublishesItsContext) {
    ScopedEnv noPlatform("EGL_PLATFORM", nullptr);
    GETestLog log;
    ManagerProbe* man = new ManagerProbe();
    ASSERT_TRUE(man->EGLReady()) << log.Dump();
    for (const char* step : {"m_eglDisplay", "eglInitialize", "eglChooseConfig", "eglCreateContext",
                             "eglCreatePbufferSurface", "eglMakeCurrent"}) {
        EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, kTag,
                                 std::string("[GEManager] ") + step + " successfully"))
            << step;
    }
    EXPECT_NE(EGL_NO_DISPLAY, g_eglDisplay);
    EXPECT_NE(EGL_NO_CONTEXT, g_eglContext);
    EXPECT_EQ(eglGetCurrentDisplay(), g_eglDisplay);
    EXPECT_EQ(eglGetCurrentContext(), g_eglContext);

    // The current surface is the 1 x 1 pbuffer, and the config honours the
    // requested depth, stencil and client API.
    EGLSurface surface = eglGetCurrentSurface(EGL_DRAW);
    ASSERT_NE(EGL_NO_SURFACE, surface);
    EGLint sw = 0, sh = 0;
    eglQuerySurface(g_eglDisplay, surface, EGL_WIDTH, &sw);
    eglQuerySurface(g_eglDisplay, surface, EGL_HEIGHT, &sh);
    EXPECT_EQ(1, sw);
    EXPECT_EQ(1, sh);
    EGLint configId = 0;
    ASSERT_TRUE(eglQueryContext(g_eglDisplay, g_eglContext, EGL_CONFIG_ID, &configId));
    const EGLint byId[] = {EGL_CONFIG_ID, configId, EGL_NONE};
    EGLConfig config = nullptr;
    EGLint n = 0;
    ASSERT_TRUE(eglChooseConfig(g_eglDisplay, byId, &config, 1, &n));
    ASSERT_EQ(1, n);
    EGLint depth = 0, stencil = 0, renderable = 0, surfaceType = 0;
    eglGetConfigAttrib(g_eglDisplay, config, EGL_DEPTH_SIZE, &depth);
    eglGetConfigAttrib(g_eglDisplay, config, EGL_STENCIL_SIZE, &stencil);
    eglGetConfigAttrib(g_eglDisplay, config, EGL_RENDERABLE_TYPE, &renderable);
    eglGetConfigAttrib(g_eglDisplay, config, EGL_SURFACE_TYPE, &surfaceType);
    EXPECT_GE(depth, 16);
    EXPECT_GE(stencil, 4);
    EXPECT_TRUE(renderable & EGL_OPENGL_ES2_BIT);
    EXPECT_TRUE(surfaceType & EGL_PBUFFER_BIT);
    EXPECT_NE(nullptr, glGetString(GL_VERSION));

    log.Clear();
    delete man;
    for (const char* step : {"[~GEManager] eglMakeCurrent", "[~GEManager] eglDestroySurface",
                             "[~GEManager] eglDestroyContext", "[~GEManager] eglTerminate"}) {
        EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, kTag, step)) << step;
    }
    EXPECT_EQ(EGL_NO_DISPLAY, g_eglDisplay);
    EXPECT_EQ(EGL_NO_CONTEXT, g_eglContext);
    EXPECT_EQ(EGL_NO_CONTEXT, eglGetCurrentContext());
}

TEST(ManagerEGL, TwoManagersInTurn) {
    // The worker builds a manager per start: the second one must come up
    // after the first one has terminated the display.
    for (int i = 0; i < 2; ++i) {
        ManagerProbe man;
        ASSERT_TRUE(man.EGLReady()) << "manager " << i;
        EXPECT_EQ(eglGetCurrentContext(), g_eglContext);
    }
    EXPECT_EQ(EGL_NO_DISPLAY, g_eglDisplay);
}

TEST(ManagerWithoutEGL, RefusesEverything) {
    GETestLog log;
    ManagerProbe man((ManagerProbe::WithoutEGL()));
    EXPECT_FALSE(man.EGLReady());
    EXPECT_FALSE(man.Init(nullptr, kW, kH, 0, 0, 0, kW, kH, nullptr));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, kTag, "[Init] EGL not inited"));
    EXPECT_FALSE(man.ChooseEffect(9, 0));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, kTag, "[ChooseEffect] not inited"));
    EXPECT_FALSE(man.ProcFrame(0u, 0u, 0, 0));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, kTag, "[ProcFrame] not inited"));
    EXPECT_EQ(0, man.SetParam(1, 10, 0, 0, 0));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, kTag, "[SetParam] not inited"));
    EXPECT_FALSE(man.MemcpyYUV(nullptr, nullptr));
    man.SetCrop(0.f, 0.f, 1.f, 1.f);  // no effect: nothing to crop, no crash
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, kTag, "[GEManager::SetCrop] no shader selected."));
    EXPECT_TRUE(man.Deinit());
}

TEST_F(ManagerTest, InitWrapsTheBufferAndReadsTheDisplaySize) {
    ScopedEnv display("POSTEFFECT_DISPLAY", "480x800");  // portrait panel
    GETestLog log;
    ASSERT_TRUE(InitManager(0, 0, 48, kH)) << log.Dump();  // a picture narrower than the buffer
    EXPECT_TRUE(m_pMan->FrameReady());
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, kTag, "[Init] GEManager::Init"));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, kTag, "[Init] " + std::string(54, '=')));
    // The larger side is the width.
    EXPECT_EQ(800, g_Disp_Width);
    EXPECT_EQ(480, g_Disp_Height);
    EXPECT_EQ(800, m_pMan->DispWidth());
    EXPECT_EQ(480, m_pMan->DispHeight());
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, kTag, "[Init] g_Disp_Width=800, g_Disp_Height=480"));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, kTag, "[Init] glViewport x=0 y=0 w=48 h=32"));
    EXPECT_EQ(1, log.Count("New GLTexture for input frame native addr"));

    GLTexture* tex = m_pMan->SrcTexture();
    ASSERT_NE(nullptr, tex);
    EXPECT_TRUE(tex->IsST());
    EXPECT_EQ(48u, tex->GetWidth());
    EXPECT_EQ(64u, tex->GetAllocWidth());
    EXPECT_EQ(32u, tex->GetHeight());
    EXPECT_EQ((unsigned)GL_RGBA, tex->GetFormat());
    EXPECT_EQ((unsigned)GL_UNSIGNED_BYTE, tex->GetType());

    glBindTexture(GL_TEXTURE_2D, tex->GetTexName());
    GLint v = 0;
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, &v);
    EXPECT_EQ(GL_CLAMP_TO_EDGE, v);
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, &v);
    EXPECT_EQ(GL_CLAMP_TO_EDGE, v);
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &v);
    EXPECT_EQ(GL_LINEAR, v);
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, &v);
    EXPECT_EQ(GL_LINEAR, v);
    GLint vp[4] = {-1, -1, -1, -1};
    glGetIntegerv(GL_VIEWPORT, vp);
    EXPECT_EQ(0, vp[0]);
    EXPECT_EQ(0, vp[1]);
    EXPECT_EQ(48, vp[2]);
    EXPECT_EQ(32, vp[3]);
    EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());

    log.Clear();
    EXPECT_TRUE(m_pMan->Deinit());
    EXPECT_FALSE(m_pMan->FrameReady());
    EXPECT_EQ(nullptr, m_pMan->SrcTexture());
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, kTag, "[Deinit] delete m_pSrcTexture"));
    EXPECT_TRUE(m_pMan->Deinit());  // twice is harmless
}

TEST_F(ManagerTest, InitFailsOverABufferItCannotWrap) {
    GETestLog log;
    EXPECT_FALSE(m_pMan->Init(nullptr, kW, kH, 0, 0, 0, kW, kH, nullptr));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, kTag, "[Init] can't init m_pSrcTexture"));
    EXPECT_FALSE(m_pMan->FrameReady());
    EXPECT_EQ(nullptr, m_pMan->SrcTexture());
    EXPECT_FALSE(m_pMan->ChooseEffect(9, 0));
    // A later Init over a real buffer works.
    EXPECT_TRUE(InitManager());
}

TEST_F(ManagerTest, ChooseEffectAcceptsMirrorAndBloom) {
    GETestLog log;
    ASSERT_TRUE(InitManager());
    ASSERT_TRUE(m_pMan->ChooseEffect(9, 0)) << log.Dump();
    EXPECT_EQ(9, m_pMan->CurrEffect());
    EXPECT_FALSE(m_pMan->CaptureMode());
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, kTag, "[ChooseEffect] effect=9, capture mode=0"));
    EXPECT_EQ(1, log.Count("total loading time"));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, "GEShaderBloom", "[Init] GEShaderBloom::Init"));

    ASSERT_TRUE(m_pMan->ChooseEffect(8, 1)) << log.Dump();
    EXPECT_EQ(8, m_pMan->CurrEffect());
    EXPECT_TRUE(m_pMan->CaptureMode());
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, kTag, "[ChooseEffect] effect=8, capture mode=1"));
    // The Bloom instance went first.
    EXPECT_TRUE(log.Has(ANDROID_LOG_INFO, "GEShaderBloom", "[Deinit] enter"));
}

TEST_F(ManagerTest, ChooseEffectRefusals) {
    GETestLog log;
    ASSERT_TRUE(InitManager());
    ASSERT_TRUE(m_pMan->ChooseEffect(9, 0));
    GEShader* bloom = m_pMan->CurrShader();

    // Past the table: refused before anything changes.
    EXPECT_FALSE(m_pMan->ChooseEffect(19, 0));
    EXPECT_TRUE(
        log.HasExact(ANDROID_LOG_ERROR, kTag, "[ChooseEffect] index 19 should less than 19"));
    EXPECT_FALSE(m_pMan->ChooseEffect(1000, 1));
    EXPECT_TRUE(
        log.HasExact(ANDROID_LOG_ERROR, kTag, "[ChooseEffect] index 1000 should less than 19"));
    EXPECT_EQ(bloom, m_pMan->CurrShader());
    EXPECT_EQ(9, m_pMan->CurrEffect());
    EXPECT_FALSE(m_pMan->CaptureMode());
    EXPECT_TRUE(m_pMan->ProcFrame(0u, 0u, 0, 0));

    // 0 and 99 pass the bound and are refused after the old effect is gone.
    for (unsigned effect : {0u, 99u}) {
        ASSERT_TRUE(m_pMan->ChooseEffect(9, 0));
        log.Clear();
        EXPECT_FALSE(m_pMan->ChooseEffect(effect, 0));
        EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, kTag,
                                 "[ChooseEffect] wrong index " + std::to_string(effect)))
            << log.Dump();
        EXPECT_TRUE(
            log.Has(ANDROID_LOG_INFO, kTag, "[ChooseEffect] effect=" + std::to_string(effect)));
        EXPECT_EQ(nullptr, m_pMan->CurrShader());
        EXPECT_EQ(-1, m_pMan->CurrEffect());
        EXPECT_FALSE(m_pMan->ProcFrame(0u, 0u, 0, 0));
        EXPECT_TRUE(
            log.HasExact(ANDROID_LOG_ERROR, kTag, "[GEManager::ProcFrame] no shader selected"));
        EXPECT_FALSE(m_pMan->MemcpyYUV(nullptr, nullptr));
        EXPECT_EQ(0, m_pMan->SetParam(0, 1, 2, 3, 4));
        EXPECT_TRUE(
            log.HasExact(ANDROID_LOG_ERROR, kTag, "[GEManager::SetParam] no shader selected."));
    }

    // Every table entry this build does not carry fails with its own line.
    for (unsigned effect = 1; effect < 19; ++effect) {
        if (effect == 8 || effect == 9) {
            continue;
        }
        ASSERT_TRUE(m_pMan->ChooseEffect(9, 0));
        log.Clear();
        EXPECT_FALSE(m_pMan->ChooseEffect(effect, 0));
        EXPECT_TRUE(
            log.HasExact(ANDROID_LOG_ERROR, kTag,
                         "[ChooseEffect] effect " + std::to_string(effect) + " not available"))
            << log.Dump();
        EXPECT_EQ(nullptr, m_pMan->CurrShader());
        EXPECT_EQ(-1, m_pMan->CurrEffect());
    }
}

TEST_F(ManagerTest, FrameOverloadsFollowTheCaptureMode) {
    GETestLog log;
    ASSERT_TRUE(InitManager());
    ASSERT_TRUE(m_pMan->ChooseEffect(8, 0));  // preview
    std::vector<unsigned char> out((size_t)kW * kH * 3 / 2, 0x5A);
    EXPECT_FALSE(m_pMan->ProcFrame(out.data(), out.data(), kW, kH));
    EXPECT_FALSE(m_pMan->ProcFrame(out.data(), out.data(), out.data(), kW, kH));
    EXPECT_EQ(2, log.Count("[GEManager::ProcFrame] only capture mode use this method"));
    for (unsigned char b : out) {
        ASSERT_EQ(0x5A, b);  // nothing written
    }
    EXPECT_TRUE(m_pMan->ProcFrame(0u, 0u, 0, 0));

    // A capture instance refuses preview frames; the manager reports it.
    ASSERT_TRUE(m_pMan->ChooseEffect(8, 1));
    log.Clear();
    EXPECT_FALSE(m_pMan->ProcFrame(0u, 0u, 0, 0));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, "GEShaderMirror", "[ProcFrame] Preview mode only"));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, kTag,
                             "[GPUEffectManager::ProcFrame] failed to process frame"));
}

TEST_F(ManagerTest, CaptureOverloadsReachTheEffectAndLogTheirTime) {
    GETestLog log;
    ASSERT_TRUE(InitManager());
    RecordingShader* rec = new RecordingShader();
    m_pMan->Inject(rec, true, true);
    unsigned char y = 0, uv = 0, out = 0;
    EXPECT_TRUE(m_pMan->ProcFrame(&y, &out, 4000, 3000));
    EXPECT_EQ(1, rec->m_nCaptures);
    EXPECT_EQ(&y, rec->m_pSrc);
    EXPECT_EQ(&out, rec->m_pOut);
    EXPECT_EQ(4000, rec->m_nW);
    EXPECT_EQ(3000, rec->m_nH);
    // The five-argument form reaches the effect's, whose base passes (y, out).
    EXPECT_TRUE(m_pMan->ProcFrame(&y, &uv, &out, 640, 480));
    EXPECT_EQ(2, rec->m_nCaptures);
    EXPECT_EQ(&y, rec->m_pSrc);
    EXPECT_EQ(&out, rec->m_pOut);
    EXPECT_EQ(640, rec->m_nW);
    EXPECT_EQ(1, log.Count("[ProcFrame] 4000x3000 image spent "));
    EXPECT_EQ(1, log.Count("[ProcFrame] 640x480 image spent "));

    rec->m_nResult = 0;
    log.Clear();
    EXPECT_FALSE(m_pMan->ProcFrame(&y, &out, 64, 32));
    EXPECT_FALSE(m_pMan->ProcFrame(&y, &uv, &out, 64, 32));
    EXPECT_EQ(2, log.Count("[GPUEffectManager::ProcFrame] failed to process frame"));
    EXPECT_EQ(0, log.Count("image spent"));
}

TEST_F(ManagerTest, SetParamMapsGroupOneToTheViewport) {
    ScopedEnv display("POSTEFFECT_DISPLAY", "800x480");
    ASSERT_TRUE(InitManager(0, 0, kW, kH));
    RecordingShader* rec = new RecordingShader();
    m_pMan->Inject(rec, true, false);

    // 64 x 400 / 800 = 32; the other values and groups pass unchanged.
    EXPECT_EQ(1, m_pMan->SetParam(1, 400, -7, 8, 9));
    EXPECT_EQ(1u, rec->m_nGroup);
    EXPECT_EQ(32, rec->m_nA);
    EXPECT_EQ(-7, rec->m_nB);
    EXPECT_EQ(8, rec->m_nC);
    EXPECT_EQ(9, rec->m_nD);
    EXPECT_EQ(1, m_pMan->SetParam(0, 400, 1, 2, 3));
    EXPECT_EQ(0u, rec->m_nGroup);
    EXPECT_EQ(400, rec->m_nA);
    EXPECT_EQ(1, m_pMan->SetParam(2, 799, 0, 0, 0));
    EXPECT_EQ(799, rec->m_nA);
    // Integer division truncates: 64 x 799 / 800 = 63.92.
    m_pMan->SetParam(1, 799, 0, 0, 0);
    EXPECT_EQ(63, rec->m_nA);

    // The effect's own result is returned.
    rec->m_nResult = 0;
    EXPECT_EQ(0, m_pMan->SetParam(1, 400, 0, 0, 0));
    rec->m_nResult = 1;

    // Unsigned arithmetic: a point left of the viewport wraps, and so does a
    // product past 32 bits.
    m_pMan->SetViewport(100, kW);
    const int cases[] = {100, 900, 40, -1, 2000000000};
    for (int a : cases) {
        uint32_t want = (uint32_t)kW * ((uint32_t)a - 100u) / 800u;
        m_pMan->SetParam(1, a, 0, 0, 0);
        EXPECT_EQ((int)want, rec->m_nA) << "a = " << a;
    }
    m_pMan->SetParam(1, 40, 0, 0, 0);
    EXPECT_GT(rec->m_nA, 5000000);  // (40 - 100) wrapped, not -4

    // A display width of zero is not divided by: the value passes unmapped.
    GETestLog log;
    m_pMan->SetDispWidth(0);
    EXPECT_EQ(1, m_pMan->SetParam(1, 123, 0, 0, 0));
    EXPECT_EQ(123, rec->m_nA);
    EXPECT_EQ(1, log.Count("display width 0"));
}

TEST_F(ManagerTest, SetCropReachesTheEffect) {
    ASSERT_TRUE(InitManager());
    RecordingShader* rec = new RecordingShader();
    m_pMan->Inject(rec, true, false);
    m_pMan->SetCrop(0.25f, 0.5f, 0.125f, 1.0f);
    EXPECT_EQ(0.25f, rec->m_fCrop[0]);
    EXPECT_EQ(0.5f, rec->m_fCrop[1]);
    EXPECT_EQ(0.125f, rec->m_fCrop[2]);
    EXPECT_EQ(1.0f, rec->m_fCrop[3]);
}

TEST_F(ManagerTest, DeinitDropsTheEffect) {
    ASSERT_TRUE(InitManager());
    ASSERT_TRUE(m_pMan->ChooseEffect(9, 0));
    GETestLog log;
    EXPECT_TRUE(m_pMan->Deinit());
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, kTag, "[Deinit] delete m_pCurrShader"));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, kTag, "[Deinit] delete m_pSrcTexture"));
    EXPECT_EQ(nullptr, m_pMan->CurrShader());
    EXPECT_EQ(-1, m_pMan->CurrEffect());
    EXPECT_FALSE(m_pMan->ChooseEffect(9, 0));
    EXPECT_FALSE(m_pMan->ProcFrame(0u, 0u, 0, 0));
    EXPECT_FALSE(m_pMan->MemcpyYUV(nullptr, nullptr));
    // A new Init and choice bring it back.
    ASSERT_TRUE(InitManager());
    EXPECT_TRUE(m_pMan->ChooseEffect(9, 0));
    EXPECT_TRUE(m_pMan->ProcFrame(0u, 0u, 0, 0));
}

TEST_F(ManagerTest, SecondInitStartsOver) {
    ASSERT_TRUE(InitManager());
    ASSERT_TRUE(m_pMan->ChooseEffect(9, 0));
    sp<GraphicBuffer> other = NewFrameBuffer(kW, kH);
    GETestLog log;
    ASSERT_TRUE(m_pMan->Init(other->getNativeBuffer(), kW, kH, 0, 0, 0, kW, kH, nullptr));
    // The old effect sampled the old texture: both are gone.
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, kTag, "[Deinit] delete m_pCurrShader"));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, kTag, "[Deinit] delete m_pSrcTexture"));
    EXPECT_EQ(nullptr, m_pMan->CurrShader());
    EXPECT_NE(nullptr, m_pMan->SrcTexture());
    EXPECT_TRUE(m_pMan->ChooseEffect(8, 0));
    EXPECT_TRUE(m_pMan->ProcFrame(0u, 0u, 0, 0));
}

TEST_F(ManagerTest, AverageLineEveryFiftyPreviewFrames) {
    ASSERT_TRUE(InitManager());
    ASSERT_TRUE(m_pMan->ChooseEffect(9, 0));
    GETestLog log;
    const char kAvg[] = "[GPUEffectManager::ProcFrame] Avg frame proc time = ";
    // The count is process-wide: run up to the next line first.
    for (int i = 0; i < 50 && log.Count(kAvg) == 0; ++i) {
        ASSERT_TRUE(m_pMan->ProcFrame(0u, 0u, 0, 0));
    }
    ASSERT_EQ(1, log.Count(kAvg));
    log.Clear();
    for (int i = 0; i < 49; ++i) {
        ASSERT_TRUE(m_pMan->ProcFrame(0u, 0u, 0, 0));
    }
    EXPECT_EQ(0, log.Count(kAvg));
    // Failed frames do not count.
    RecordingShader* rec = new RecordingShader();
    rec->m_nResult = 0;
    m_pMan->Inject(rec, true, false);
    EXPECT_FALSE(m_pMan->ProcFrame(0u, 0u, 0, 0));
    EXPECT_EQ(0, log.Count(kAvg));
    rec->m_nResult = 1;
    EXPECT_TRUE(m_pMan->ProcFrame(0u, 0u, 0, 0));
    ASSERT_EQ(1, log.Count(kAvg));
    // "%.2f ms": two decimals.
    for (const GETestLogLine& l : log.Lines()) {
        if (l.text.find(kAvg) == 0) {
            std::string value = l.text.substr(sizeof(kAvg) - 1);
            EXPECT_EQ(l.priority, ANDROID_LOG_INFO);
            ASSERT_GE(value.size(), 7u) << value;
            EXPECT_EQ(" ms", value.substr(value.size() - 3));
            EXPECT_EQ('.', value[value.size() - 6]) << value;
        }
    }
}

TEST(ManagerFPS, LineAfterTwoSecondsWithTheFrameRate) {
    ManagerProbe man((ManagerProbe::WithoutEGL()));
    GETestLog log;
    const char kFPS[] = "[FPS] FPS = ";
    // The interval is process-wide: run until a report closes the current one.
    uint32_t start = GetTickCount();
    while (log.Count(kFPS) == 0) {
        man.FPS();
        usleep(20000);
        ASSERT_LT(GetTickCount() - start, 5000u) << "no FPS line";
    }
    log.Clear();
    man.FPS();  // one frame in the new interval
    EXPECT_EQ(0, log.Count(kFPS));
    usleep(1000000);
    man.FPS();  // under two seconds: no line yet
    EXPECT_EQ(0, log.Count(kFPS));
    usleep(1100000);
    man.FPS();  // three frames in a little over two seconds
    ASSERT_EQ(1, log.Count(kFPS)) << log.Dump();
    for (const GETestLogLine& l : log.Lines()) {
        if (l.text.find(kFPS) == 0) {
            double fps = atof(l.text.c_str() + sizeof(kFPS) - 1);
            EXPECT_GT(fps, 0.0);
            EXPECT_LT(fps, 1.5);  // 3 frames x 1000 / (> 2000 ms)
        }
    }
}

}  // namespace
