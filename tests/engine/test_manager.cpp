// The effect manager: EGL bring-up and teardown, Init over a graphics buffer
// and the display size, the effect table, and the mapping of the parameters.
#include <EGL/egl.h>
#include <GLES2/gl2.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "GETestEngine.h"
#include "GETestFile.h"
#include "GETestLog.h"
#include "effects/GEEffects.h"
#include "engine/GEManager.h"
#include "engine/GEShader.h"
#include "gl/GECommon.h"
#include "gl/GLTexture.h"

using namespace getest;

namespace {

const int kW = 64;
const int kH = 32;
const int E = ANDROID_LOG_ERROR;
const char kTag[] = "GEManager";

GELogTag s_recLog("RecordingShader");

// An effect that records what reaches it and answers m_nResult.
class RecordingShader : public GEShader {
public:
    RecordingShader() : GEShader(s_recLog) {}
    int ProcBlock(unsigned, unsigned, int, int) override { return 1; }
    int ProcFrame(unsigned, unsigned, int, int) override { return m_nResult; }
    int ProcFrame(unsigned char*, unsigned char*, int, int) override { return m_nResult; }
    int SetParam(unsigned group, int a, int b, int c, int d) override {
        m_param = {(int)group, a, b, c, d};
        return m_nResult;
    }
    int SetCrop(float x, float y, float w, float h) override {
        m_crop = {x, y, w, h};
        return 1;
    }
    using GEShader::SetCrop;

    int m_nResult = 1;
    std::vector<int> m_param;
    std::vector<float> m_crop;
};

// The worker builds a manager per start: the second comes up after the first
// terminated the display. Each publishes its context, current on a 1 x 1
// pbuffer, and clears it when it goes.
TEST(ManagerEGL, BringUpPublishesTheContextAndTeardownClearsIt) {
    GETestEnv noPlatform("EGL_PLATFORM", nullptr);
    for (int i = 0; i < 2; ++i) {
        ManagerProbe* man = new ManagerProbe();
        ASSERT_TRUE(man->EGLReady());
        EXPECT_EQ(eglGetCurrentDisplay(), g_eglDisplay);
        EXPECT_EQ(eglGetCurrentContext(), g_eglContext);
        EXPECT_NE(EGL_NO_CONTEXT, g_eglContext);
        EGLint sw = 0, sh = 0;
        eglQuerySurface(g_eglDisplay, eglGetCurrentSurface(EGL_DRAW), EGL_WIDTH, &sw);
        eglQuerySurface(g_eglDisplay, eglGetCurrentSurface(EGL_DRAW), EGL_HEIGHT, &sh);
        EXPECT_TRUE(sw == 1 && sh == 1);
        delete man;
        EXPECT_EQ(EGL_NO_DISPLAY, g_eglDisplay);
        EXPECT_EQ(EGL_NO_CONTEXT, g_eglContext);
        EXPECT_EQ(EGL_NO_CONTEXT, eglGetCurrentContext());
    }
}

// A manager without EGL refuses everything with its error lines.
TEST(ManagerEGL, WithoutEGLEverythingIsRefused) {
    GETestLog log;
    ManagerProbe man((ManagerProbe::WithoutEGL()));
    EXPECT_FALSE(man.Init(nullptr, kW, kH, 0, 0, 0, kW, kH, nullptr));
    EXPECT_FALSE(man.ChooseEffect(9, 0));
    EXPECT_FALSE(man.ProcFrame(0u, 0u, 0, 0));
    EXPECT_EQ(0, man.SetParam(1, 10, 0, 0, 0));
    EXPECT_FALSE(man.MemcpyYUV(nullptr, nullptr));
    man.SetCrop(0.f, 0.f, 1.f, 1.f);
    for (const char* line :
         {"[Init] EGL not inited", "[ChooseEffect] not inited", "[ProcFrame] not inited",
          "[SetParam] not inited", "[GEManager::SetCrop] no shader selected."}) {
        EXPECT_TRUE(log.HasExact(E, kTag, line)) << line;
    }
    EXPECT_TRUE(man.Deinit());
}

TEST(ManagerInit, WrapsTheBufferAndReadsTheDisplaySize) {
    GETestEnv display("POSTEFFECT_DISPLAY", "480x800");  // a portrait panel
    ManagerRig rig;
    GETestLog log;
    EXPECT_FALSE(rig.man.Init(nullptr, kW, kH, 0, 0, 0, kW, kH, nullptr));
    EXPECT_TRUE(log.HasExact(E, kTag, "[Init] can't init m_pSrcTexture"));
    EXPECT_FALSE(rig.man.FrameReady() || rig.man.SrcTexture() || rig.man.ChooseEffect(9, 0));

    ASSERT_TRUE(rig.Init(48, kH));  // a picture narrower than the buffer
    EXPECT_TRUE(rig.man.FrameReady());
    // The larger side is the width.
    EXPECT_EQ(
        (std::vector<int>{800, 480, 800, 480}),
        (std::vector<int>{g_Disp_Width, g_Disp_Height, rig.man.DispWidth(), rig.man.DispHeight()}));
    GLTexture* tex = rig.man.SrcTexture();
    ASSERT_NE(nullptr, tex);
    EXPECT_EQ((std::vector<unsigned>{1, 48, 64, 32, GL_RGBA, GL_UNSIGNED_BYTE}),
              (std::vector<unsigned>{tex->IsST(), tex->GetWidth(), tex->GetAllocWidth(),
                                     tex->GetHeight(), tex->GetFormat(), tex->GetType()}));
}

// Deinit, or a second Init over another buffer, deletes the effect (which
// sampled the old texture) and the texture.
TEST(ManagerInit, DeinitAndASecondInitDropTheEffectAndTheTexture) {
    ManagerRig rig;
    android::sp<android::GraphicBuffer> other = NewFrameBuffer(kW, kH);
    for (bool restart : {false, true}) {
        SCOPED_TRACE(restart ? "second Init" : "Deinit");
        ASSERT_TRUE(rig.Init(kW, kH));
        ASSERT_TRUE(rig.man.ChooseEffect(9, 0));
        GLTexture* old = rig.man.SrcTexture();
        EXPECT_TRUE(restart
                        ? rig.man.Init(other->getNativeBuffer(), kW, kH, 0, 0, 0, kW, kH, nullptr)
                        : rig.man.Deinit());
        EXPECT_EQ(nullptr, rig.man.CurrShader());
        EXPECT_EQ(-1, rig.man.CurrEffect());
        EXPECT_EQ(restart, rig.man.FrameReady());
        EXPECT_TRUE(restart ? rig.man.SrcTexture() != old || old == nullptr
                            : rig.man.SrcTexture() == nullptr);
        EXPECT_EQ(restart, rig.man.ChooseEffect(8, 0));
        EXPECT_EQ(restart, rig.man.ProcFrame(0u, 0u, 0, 0));
        EXPECT_TRUE(rig.man.Deinit());
        EXPECT_TRUE(rig.man.Deinit());
        EXPECT_FALSE(rig.man.MemcpyYUV(nullptr, nullptr));
    }
}

// Mirror and Bloom come up in both modes. A number past the table is
// refused before anything changes; 0, 99 and the entries this build does
// not carry (yet) after the old effect is gone.
TEST(ManagerChoose, TheTableDecides) {
    ManagerRig rig;
    ASSERT_TRUE(rig.Init(kW, kH));
    GETestLog log;
    for (unsigned effect : {9u, 8u}) {
        for (unsigned char capture : {0, 1}) {
            ASSERT_TRUE(rig.man.ChooseEffect(effect, capture)) << effect;
            EXPECT_EQ((int)effect, rig.man.CurrEffect());
            EXPECT_EQ(capture != 0, rig.man.CaptureMode());
        }
    }
    ASSERT_TRUE(rig.man.ChooseEffect(9, 0));
    GEShader* bloom = rig.man.CurrShader();
    for (unsigned effect : {19u, 1000u}) {
        EXPECT_FALSE(rig.man.ChooseEffect(effect, 1));
        EXPECT_TRUE(log.HasExact(
            E, kTag, "[ChooseEffect] index " + std::to_string(effect) + " should less than 19"));
    }
    EXPECT_TRUE(bloom == rig.man.CurrShader() && rig.man.CurrEffect() == 9);
    EXPECT_FALSE(rig.man.CaptureMode());
    EXPECT_TRUE(rig.man.ProcFrame(0u, 0u, 0, 0));
    for (unsigned effect = 0; effect < 100; effect = effect == 18 ? 99 : effect + 1) {
        if (effect < GE_EFFECT_COUNT && GEEffectLookUp(effect)->pfnCreate != nullptr) {
            continue;
        }
        ASSERT_TRUE(rig.man.ChooseEffect(9, 0));
        EXPECT_FALSE(rig.man.ChooseEffect(effect, 0)) << effect;
        EXPECT_TRUE(log.HasExact(
            E, kTag,
            effect == 0 || effect == 99
                ? "[ChooseEffect] wrong index " + std::to_string(effect)
                : "[ChooseEffect] effect " + std::to_string(effect) + " not available"))
            << effect;
        EXPECT_TRUE(rig.man.CurrShader() == nullptr && rig.man.CurrEffect() == -1) << effect;
    }
    EXPECT_FALSE(rig.man.ProcFrame(0u, 0u, 0, 0));
    EXPECT_FALSE(rig.man.MemcpyYUV(nullptr, nullptr));
    EXPECT_EQ(0, rig.man.SetParam(0, 1, 2, 3, 4));
    EXPECT_TRUE(log.HasExact(E, kTag, "[GEManager::ProcFrame] no shader selected"));
    EXPECT_TRUE(log.HasExact(E, kTag, "[GEManager::SetParam] no shader selected."));
}

// Group 1's first value goes from screen to viewport coordinates, in
// unsigned 32-bit arithmetic; everything else passes unchanged, and so does
// that value with a display width of 0. The effect's answer is returned.
TEST(ManagerParams, GroupOneIsMappedToTheViewportAndCropsPassOn) {
    GETestEnv display("POSTEFFECT_DISPLAY", "800x480");
    ManagerRig rig;
    ASSERT_TRUE(rig.Init(kW, kH));
    RecordingShader* rec = new RecordingShader();
    rig.man.Inject(rec, false, false);
    EXPECT_EQ(1, rig.man.SetParam(1, 400, -7, 8, 9));
    EXPECT_EQ((std::vector<int>{1, 32, -7, 8, 9}), rec->m_param);  // 64 x 400 / 800
    EXPECT_EQ(1, rig.man.SetParam(0, 400, 1, 2, 3));
    EXPECT_EQ((std::vector<int>{0, 400, 1, 2, 3}), rec->m_param);
    EXPECT_EQ(1, rig.man.SetParam(2, 799, 0, 0, 0));
    EXPECT_EQ(799, rec->m_param[1]);
    rec->m_nResult = 0;
    EXPECT_EQ(0, rig.man.SetParam(1, 400, 0, 0, 0));
    rec->m_nResult = 1;
    for (int x : {0, 100}) {
        rig.man.SetViewportX(x);
        for (int a : {799, 100, 900, 40, -1, 2000000000}) {
            rig.man.SetParam(1, a, 0, 0, 0);
            EXPECT_EQ((int)((uint32_t)kW * ((uint32_t)a - (uint32_t)x) / 800u), rec->m_param[1])
                << "a = " << a << ", viewport x = " << x;
        }
    }
    rig.man.SetDispWidth(0);
    EXPECT_EQ(1, rig.man.SetParam(1, 123, 0, 0, 0));
    EXPECT_EQ(123, rec->m_param[1]);
    rig.man.SetCrop(0.25f, 0.5f, 0.125f, 1.0f);
    EXPECT_EQ((std::vector<float>{0.25f, 0.5f, 0.125f, 1.0f}), rec->m_crop);
}

}  // namespace
