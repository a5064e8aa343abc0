// The worker's preview and capture handlers against the effect-manager
// double: when the manager goes up and down, what reaches it, what is written
// back over the camera's buffers, and what bad input gets.
#include <android/log.h>
#include <gtest/gtest.h>
#include <limits.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "GETestLog.h"
#include "PluginTestSupport.h"
#include "engine/convert/sp2yuvx.h"

using android::String8;
using getest::CameraBuffer;
using getest::SPImage;
using korvo::GPUPostEffectPeer;
using Calls = std::vector<std::string>;

namespace {

const int kW = 64;
const int kH = 32;
const int kGuard = 4096;  // bytes around every preview frame in its camera buffer
const int D = ANDROID_LOG_DEBUG;
const int I = ANDROID_LOG_INFO;
const char kTag[] = "GPUPostEffect";
const char kBoth[] = "GPU-effect=9;GE-param0=1,2,3,4;GE-param1=5,6,7,8";

// What the CPU expansion makes of the rectangle (rx, ry, rw, rh) of `img` in
// a dw x dh "yuvx" destination (its rules are checked with the converters).
std::vector<unsigned char> ExpectedYuvx(const SPImage& img, int dw, int dh, int rx, int ry, int rw,
                                        int rh) {
    std::vector<unsigned char> out((size_t)dw * dh * 4);
    sp2yuvxs_any(out.data(), dw, dh, img.YPlane(), img.UVPlane(), img.w, img.h, rx, ry, rw, rh);
    return out;
}

bool All(const unsigned char* p, size_t n, unsigned char value) {
    return std::all_of(p, p + n, [value](unsigned char b) { return b == value; });
}

class PipelineTest : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        ASSERT_EQ(0, m_p->start());
    }
    // A camera buffer holding one w x h frame at offset kGuard, with guard
    // bytes of 0xEE before and after.
    void NewFrame(int w, int h, int seed = 1) {
        m_in.reset(new SPImage(SPImage::Pattern(w, h, seed)));
        m_frame.reset(new CameraBuffer(m_in->data.size() + 2 * kGuard, 0xEE));
        memcpy(Frame(), m_in->data.data(), m_in->data.size());
    }
    unsigned char* Frame() { return m_frame->Base() + kGuard; }
    int SendFrame() { return m_p->handlePreview(m_frame->Fd(), m_frame->Base(), kGuard); }
    bool GuardsIntact() {
        return All(m_frame->Base(), kGuard, 0xEE) && All(Frame() + m_in->data.size(), kGuard, 0xEE);
    }
    bool FrameUntouched() {
        return std::equal(m_in->data.begin(), m_in->data.end(), Frame()) && GuardsIntact();
    }
    bool FrameProcessed() {
        const size_t n = (size_t)m_in->w * m_in->h;
        return All(Frame(), n, 200) && All(Frame() + n, n / 2, 100) && GuardsIntact();
    }
    // Effect 9 with both groups, preview 64 x 32, the manager up.
    void BringUp() {
        ASSERT_EQ(0, m_p->setParameters(String8(kBoth)));
        ASSERT_EQ(0, m_p->startPreview(kW, kH));
        NewFrame(kW, kH);
        ASSERT_EQ(0, SendFrame());
        ASSERT_TRUE(GPUPostEffectPeer::GEInit(m_p));
        FakeManager::ClearCalls();
    }

    std::unique_ptr<CameraBuffer> m_frame;
    std::unique_ptr<SPImage> m_in;
};

// ---------------------------------------------------------------------------
// Preview

// The first frame brings the manager up over a buffer of the preview's size
// (width aligned to 32), expands the frame into it as "yuvx" padded by its
// last column, and the result replaces the frame; later frames reuse it.
TEST_F(PipelineTest, FirstFrameBringsTheManagerUpAndTheResultReplacesTheFrame) {
    const int sizes[][3] = {{64, 32, 64}, {80, 16, 96}};  // w, h, buffer stride
    for (const auto& s : sizes) {
        SCOPED_TRACE(s[0]);
        ASSERT_EQ(0, m_p->setParameters(String8(kBoth)));
        ASSERT_EQ(0, m_p->startPreview(s[0], s[1]));
        EXPECT_TRUE(FakeManager::Calls().empty());  // nothing before the first frame
        NewFrame(s[0], s[1]);
        GETestLog log;
        ASSERT_EQ(0, SendFrame());
        const std::string init = "Init " + std::to_string(s[2]) + " " + std::to_string(s[1]) +
                                 " 0 0 " + std::to_string(s[0]) + " " + std::to_string(s[1]);
        EXPECT_EQ((Calls{init, "Choose 9 0", "SetParam 0 1 2 3 4", "SetParam 1 5 6 7 8", "Preview",
                         "Memcpy"}),
                  FakeManager::Calls());
        const FakeRecord seen = FakeManager::Seen();
        EXPECT_EQ(static_cast<IYUVConverter*>(m_p), seen.converter);
        EXPECT_EQ(s[2], seen.stride);
        EXPECT_EQ(s[1], seen.height);
        EXPECT_TRUE(ExpectedYuvx(*m_in, s[2], s[1], 0, 0, s[0], s[1]) == seen.previewPixels);
        EXPECT_TRUE(
            log.HasExact(D, kTag, "handlePreview: isGEInit == false, internalStartPreview = 0."));
        EXPECT_TRUE(FrameProcessed());

        FakeManager::ClearCalls();
        NewFrame(s[0], s[1], 2);
        ASSERT_EQ(0, SendFrame());
        EXPECT_EQ((Calls{"Preview", "Memcpy"}), FakeManager::Calls());
        EXPECT_TRUE(FrameProcessed());
        ASSERT_EQ(0, m_p->stopPreview());
        FakeManager::ClearCalls();
    }
}

TEST_F(PipelineTest, StartAndStopPreviewKeepOrTearDownTheManager) {
    BringUp();
    // The same size keeps the manager; the groups go again with the next frame.
    ASSERT_EQ(0, m_p->startPreview(kW, kH));
    EXPECT_TRUE(FakeManager::Calls().empty());
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ((Calls{"SetParam 0 1 2 3 4", "SetParam 1 5 6 7 8", "Preview", "Memcpy"}),
              FakeManager::Calls());
    // Another size tears it down; the next frame brings it up at that size.
    FakeManager::ClearCalls();
    ASSERT_EQ(0, m_p->startPreview(128, 64));
    EXPECT_EQ((Calls{"Deinit"}), FakeManager::Calls());
    EXPECT_FALSE(GPUPostEffectPeer::GEInit(m_p));
    NewFrame(128, 64);
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ((Calls{"Deinit", "Init 128 64 0 0 128 64", "Choose 9 0", "SetParam 0 1 2 3 4",
                     "SetParam 1 5 6 7 8", "Preview", "Memcpy"}),
              FakeManager::Calls());
    EXPECT_TRUE(FrameProcessed());
    // stopPreview tears it down and frames are refused until a new preview.
    FakeManager::ClearCalls();
    ASSERT_EQ(0, m_p->stopPreview());
    EXPECT_EQ((Calls{"Deinit"}), FakeManager::Calls());
    EXPECT_FALSE(GPUPostEffectPeer::GEInit(m_p));
    EXPECT_EQ(-1, SendFrame());
    ASSERT_EQ(0, m_p->startPreview(128, 64));
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ("Init 128 64 0 0 128 64", FakeManager::Calls().at(1));
}

TEST_F(PipelineTest, EffectZeroTearsTheManagerDownAndLeavesFramesUntouched) {
    BringUp();
    g_fake.bChooseOk = false;  // the manager refuses 0 as an effect
    GETestLog log;
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=0")));
    EXPECT_EQ((Calls{"Choose 0 0"}), FakeManager::Calls());
    EXPECT_TRUE(log.HasExact(I, kTag,
                             "int korvo::GPUPostEffect::setParameters(korvo::GPUPostEffect::"
                             "GPUTask*): old effect = 9, new effect = 0."));
    EXPECT_TRUE(log.HasExact(D, kTag, "setParameters: isGEInit == true: call to ChooseEffect."));

    for (const Calls& calls : {Calls{"Deinit"}, Calls{}}) {
        NewFrame(kW, kH, 3);
        FakeManager::ClearCalls();
        ASSERT_EQ(0, SendFrame());
        EXPECT_EQ(calls, FakeManager::Calls());
        EXPECT_TRUE(FrameUntouched());
    }
    EXPECT_TRUE(log.HasExact(D, kTag, "handlePreview: isGEInit == true, internalStopPreview."));

    // Back to an effect: chosen with the next frame, since the manager is down.
    g_fake.bChooseOk = true;
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=6")));
    EXPECT_TRUE(FakeManager::Calls().empty());
    EXPECT_TRUE(
        log.HasExact(D, kTag, "setParameters: isGEInit == false: no call to ChooseEffect."));
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ("Choose 6 0", FakeManager::Calls().at(1));
    EXPECT_TRUE(FrameProcessed());
}

// A failed bring-up gives 2 and leaves the frame; the next frame retries.
TEST_F(PipelineTest, BringUpFailureGivesTwoAndTheNextFrameRetries) {
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
    ASSERT_EQ(0, m_p->startPreview(kW, kH));
    NewFrame(kW, kH);
    GETestLog log;
    const struct {
        bool init, choose;
        Calls calls;
    } cases[] = {
        {false, true, {"Init 64 32 0 0 64 32"}},
        // The manager stays initialised but is not marked up.
        {true, false, {"Init 64 32 0 0 64 32", "Choose 9 0"}},
        {true,
         true,
         {"Init 64 32 0 0 64 32", "Choose 9 0", "SetParam 0 0 0 0 0", "SetParam 1 0 0 0 0",
          "Preview", "Memcpy"}},
    };
    for (const auto& c : cases) {
        FakeManager::ClearCalls();
        g_fake.bInitOk = c.init;
        g_fake.bChooseOk = c.choose;
        const bool ok = c.init && c.choose;
        EXPECT_EQ(ok ? 0 : 2, SendFrame());
        EXPECT_EQ(c.calls, FakeManager::Calls());
        EXPECT_EQ(ok, GPUPostEffectPeer::GEInit(m_p));
        EXPECT_TRUE(ok ? FrameProcessed() : FrameUntouched());
    }
    EXPECT_TRUE(
        log.HasExact(D, kTag, "handlePreview: isGEInit == false, internalStartPreview = 2."));
}

TEST_F(PipelineTest, ParameterChangesReachTheManager) {
    BringUp();
    // The same effect: only the groups change, with the next frame.
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9;GE-param0=7,7,7,7;GE-param1=0,1,0,1")));
    EXPECT_TRUE(FakeManager::Calls().empty());
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ((Calls{"SetParam 0 7 7 7 7", "SetParam 1 0 1 0 1", "Preview", "Memcpy"}),
              FakeManager::Calls());

    // Another effect is chosen at once, on the worker. Mirror takes its
    // landscape flag from the first group-0 word.
    GETestLog log;
    FakeManager::ClearCalls();
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=8;GE-param0=1,0,0,0")));
    EXPECT_EQ((Calls{"Choose 8 0"}), FakeManager::Calls());
    EXPECT_TRUE(FakeManager::Seen().landscapedAtChoose);
    EXPECT_TRUE(log.HasExact(I, kTag, "[Tamso][setParameters] mpGEMan->m_bLandscaped = true"));
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=8;GE-param0=0,5,5,5")));
    EXPECT_FALSE(FakeManager::Seen().landscapedAtChoose);
    EXPECT_TRUE(log.HasExact(I, kTag, "[Tamso][setParameters] mpGEMan->m_bLandscaped = false"));

    // A refused choice is made again with the next frame.
    FakeManager::ClearCalls();
    g_fake.bChooseOk = false;
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=6")));
    g_fake.bChooseOk = true;
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ((Calls{"Choose 6 0", "Choose 6 0", "SetParam 0 0 5 5 5", "SetParam 1 0 1 0 1",
                     "Preview", "Memcpy"}),
              FakeManager::Calls());
}

TEST_F(PipelineTest, CropGoesWithTheNextFrameInFractionsOfThePreview) {
    BringUp();
    ASSERT_EQ(0, m_p->setCrop(16, 8, 32, 16));
    EXPECT_TRUE(FakeManager::Calls().empty());
    ASSERT_EQ(0, SendFrame());
    ASSERT_EQ(0, SendFrame());  // once only
    EXPECT_EQ((Calls{"SetCrop 0.25 0.25 0.50 0.50", "Preview", "Memcpy", "Preview", "Memcpy"}),
              FakeManager::Calls());
    // Any integers: passed on as quotients, nothing else happens.
    FakeManager::ClearCalls();
    ASSERT_EQ(0, m_p->setCrop(INT_MIN, INT_MAX, -1, 0));
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ((Calls{"SetCrop -33554432.00 67108864.00 -0.02 0.00", "Preview", "Memcpy"}),
              FakeManager::Calls());
    EXPECT_TRUE(FrameProcessed());
}

TEST_F(PipelineTest, BadFramesAreRefusedWithMinusOne) {
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
    ASSERT_EQ(0, m_p->startPreview(kW, kH));
    NewFrame(kW, kH);
    GETestLog log;
    const int fd = m_frame->Fd();
    unsigned char* base = m_frame->Base();
    EXPECT_EQ(-1, m_p->handlePreview(fd, nullptr, 0));
    EXPECT_EQ(-1, m_p->handlePreview(-1, nullptr, kGuard));
    EXPECT_EQ(-1, m_p->handlePreview(fd, base, -2));
    // The frame would run past the end of its buffer.
    EXPECT_EQ(-1, m_p->handlePreview(fd, base, 2 * kGuard + 2));
    EXPECT_EQ(-1, m_p->handlePreview(fd, base, INT_MAX));
    CameraBuffer small((size_t)kW * kH * 3 / 2 - 1, 0x11);
    EXPECT_EQ(-1, m_p->handlePreview(small.Fd(), small.Base(), 0));
    EXPECT_TRUE(All(small.Base(), small.Size(), 0x11));
    EXPECT_EQ(6, log.Count("[handlePreview] frame refused")) << log.Dump();
    EXPECT_TRUE(FakeManager::Calls().empty());
    EXPECT_TRUE(FrameUntouched());

    // A frame whose buffer has no size to check (no descriptor), and one
    // that ends exactly where its buffer ends, are processed.
    EXPECT_EQ(0, m_p->handlePreview(-1, base, kGuard));
    EXPECT_TRUE(FrameProcessed());
    CameraBuffer exact((size_t)kW * kH * 3 / 2, 0x11);
    EXPECT_EQ(0, m_p->handlePreview(exact.Fd(), exact.Base(), 0));
    EXPECT_TRUE(All(exact.Base(), (size_t)kW * kH, 200));
    EXPECT_TRUE(All(exact.Base() + kW * kH, (size_t)kW * kH / 2, 100));
}

TEST_F(PipelineTest, PreviewSizesThePipelineCannotRunGiveTwo) {
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
    NewFrame(kW, kH);
    const int sizes[][2] = {
        {0, 0}, {-64, 32}, {64, -32},          {63, 32},     {62, 32},           {64, 31},
        {8, 8}, {64, 1},   {INT_MAX, INT_MAX}, {INT_MIN, 2}, {1 << 20, 1 << 20}, {46342, 46342}};
    for (const auto& s : sizes) {
        SCOPED_TRACE(testing::Message() << s[0] << " x " << s[1]);
        GETestLog log;
        ASSERT_EQ(0, m_p->startPreview(s[0], s[1]));
        // A frame that fits its buffer as far as the check can tell.
        EXPECT_EQ(2, m_p->handlePreview(-1, Frame(), 0));
        EXPECT_EQ(1, log.Count("[internalStartPreview] bad preview size")) << log.Dump();
    }
    EXPECT_TRUE(FakeManager::Calls().empty());
    EXPECT_TRUE(FrameUntouched());
}

// ---------------------------------------------------------------------------
// Capture

class CaptureTest : public PipelineTest {
protected:
    static const int kCW = 160;  // 3 x 3 tiles of 64 x 32, the last ones partial
    static const int kCH = 80;
    static const int kYOff = 64;
    static const int kUVOff = kCW * kCH + 32;  // a gap between the planes

    // A camera buffer of 0xC5 with the planes of a w x h capture at yOff and
    // yOff + uvOff.
    void NewCapture(int w = kCW, int h = kCH, int yOff = kYOff, int uvOff = kUVOff) {
        const SPImage img = SPImage::Pattern(w, h, 7);
        m_capture.reset(new CameraBuffer((size_t)yOff + uvOff + (size_t)w * h / 2 + 64, 0xC5));
        memcpy(m_capture->Base() + yOff, img.YPlane(), (size_t)w * h);
        memcpy(m_capture->Base() + yOff + uvOff, img.UVPlane(), (size_t)w * h / 2);
        m_capOriginal = m_capture->Bytes();
    }
    int Capture(int w = kCW, int h = kCH, int yOff = kYOff, int uvOff = kUVOff) {
        return m_p->handleCapture(w, h, m_capture->Fd(), m_capture->Base(), yOff, uvOff);
    }
    bool CaptureUntouched() { return m_capOriginal == m_capture->Bytes(); }
    // Every plane byte inverted by the double, everything else as it was.
    bool CaptureInverted(int w = kCW, int h = kCH, int yOff = kYOff, int uvOff = kUVOff) {
        std::vector<unsigned char> want = m_capOriginal;
        const size_t planes[][2] = {{(size_t)yOff, (size_t)w * h},
                                    {(size_t)yOff + uvOff, (size_t)w * h / 2}};
        for (const auto& p : planes) {
            for (size_t i = p[0]; i < p[0] + p[1]; ++i) {
                want[i] = (unsigned char)(255 - want[i]);
            }
        }
        return want == m_capture->Bytes();
    }

    std::unique_ptr<CameraBuffer> m_capture;
    std::vector<unsigned char> m_capOriginal;
};

TEST_F(CaptureTest, CaptureTearsThePreviewDownRunsTheTilesAndWritesThePlanes) {
    BringUp();
    ASSERT_EQ(0, m_p->setCrop(32, 16, 64, 32));
    FakeManager::ClearCalls();
    NewCapture();
    GETestLog log;
    ASSERT_EQ(0, Capture());
    EXPECT_EQ(
        (Calls{"Deinit", "Init 160 80 0 0 64 32", "Choose 9 1", "SetParam 0 1 2 3 4",
               "SetParam 1 5 6 7 8", "SetCrop 0.20 0.20 0.40 0.40", "Capture 160 80", "Deinit"}),
        FakeManager::Calls());
    EXPECT_TRUE(CaptureInverted());
    EXPECT_FALSE(GPUPostEffectPeer::GEInit(m_p));
    EXPECT_TRUE(log.HasExact(D, kTag, " cw = 160, ch = 80, vp_w = 64, vp_h = 32."));
    EXPECT_EQ(1, log.Count("[handleCapture] Capture image time = "));
    EXPECT_EQ(9, log.Count("[convertRect] w = 160, h = 80, dw=64"));
    EXPECT_TRUE(
        log.HasExact(I, kTag, "[convertRect] w = 160, h = 80, dw=64, rx=128, ry=64, rw=32, rh=16"));
    EXPECT_EQ(0, log.Count("outside the"));  // no tile needed clamping
    const std::string traced =
        "int korvo::GPUPostEffect::handleCapture(korvo::GPUPostEffect::GPUTask*)";
    EXPECT_TRUE(log.HasExact(D, kTag, traced + " E."));
    EXPECT_TRUE(log.HasExact(D, kTag, traced + " X."));

    // The stored crop goes with every capture, not only once.
    ASSERT_EQ(0, m_p->setCrop(80, 40, 40, 20));
    FakeManager::ClearCalls();
    NewCapture();
    ASSERT_EQ(0, Capture());
    EXPECT_EQ("SetCrop 0.50 0.50 0.25 0.25", FakeManager::Calls().at(4));
    FakeManager::ClearCalls();
    NewCapture();
    ASSERT_EQ(0, Capture());
    EXPECT_EQ("SetCrop 0.50 0.50 0.25 0.25", FakeManager::Calls().at(4));
    EXPECT_TRUE(CaptureInverted());

    // The next preview frame brings the preview manager up again.
    FakeManager::ClearCalls();
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ("Init 64 32 0 0 64 32", FakeManager::Calls().at(0));
}

TEST_F(CaptureTest, FailuresGiveThreeAndLeaveThePlanesUntouched) {
    BringUp();
    ASSERT_EQ(0, m_p->stopPreview());  // the preview size stays
    struct {
        std::atomic<bool>* flag;
        Calls calls;
    } cases[] = {
        {&g_fake.bInitOk, {"Init 160 80 0 0 64 32", "Deinit"}},
        {&g_fake.bChooseOk, {"Init 160 80 0 0 64 32", "Choose 9 1", "Deinit"}},
        {&g_fake.bProcOk,
         {"Init 160 80 0 0 64 32", "Choose 9 1", "SetParam 0 1 2 3 4", "SetParam 1 5 6 7 8",
          "SetCrop 0.00 0.00 0.00 0.00", "Capture 160 80", "Deinit"}},
    };
    for (auto& c : cases) {
        NewCapture();
        FakeManager::ClearCalls();
        GETestLog log;
        *c.flag = false;
        EXPECT_EQ(3, Capture());
        *c.flag = true;
        EXPECT_EQ(c.calls, FakeManager::Calls());
        EXPECT_TRUE(CaptureUntouched());
        EXPECT_EQ(0, log.Count("Capture image time"));
    }
}

TEST_F(CaptureTest, CaptureAtEffectZeroOnTheWorkerStillTearsThePreviewDown) {
    BringUp();
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=0")));  // the manager stays up
    ASSERT_TRUE(GPUPostEffectPeer::GEInit(m_p));
    NewCapture();
    FakeManager::ClearCalls();
    EXPECT_EQ(0, GPUPostEffectPeer::RunCapture(m_p, kCW, kCH, m_capture->Fd(), m_capture->Base(),
                                               kYOff, kUVOff));
    EXPECT_EQ((Calls{"Deinit"}), FakeManager::Calls());
    EXPECT_FALSE(GPUPostEffectPeer::GEInit(m_p));
    EXPECT_TRUE(CaptureUntouched());
}

TEST_F(CaptureTest, BadSizesAndPlanesAreRefusedWithThreeBeforeAnythingRuns) {
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
    NewCapture();
    {
        GETestLog log;  // no preview size yet: the tiles have no size
        EXPECT_EQ(3, Capture());
        EXPECT_EQ(1, log.Count("capture refused")) << log.Dump();
    }
    ASSERT_EQ(0, m_p->startPreview(kW, kH));
    const int sizes[][2] = {{0, 0},         {-160, 80},        {160, -80},   {161, 80},
                            {160, 81},      {0, 80},           {INT_MAX, 2}, {46342, 46342},
                            {65536, 65536}, {INT_MIN, INT_MIN}};
    for (const auto& s : sizes) {
        SCOPED_TRACE(testing::Message() << s[0] << " x " << s[1]);
        GETestLog log;
        EXPECT_EQ(3, Capture(s[0], s[1], kYOff, kUVOff));
        EXPECT_EQ(1, log.Count("bad capture size"));
        EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, kTag, "capture refused"));
    }
    unsigned char* base = m_capture->Base();
    const struct {
        void* base;
        int yOff, uvOff;
    } planes[] = {
        {nullptr, kYOff, kUVOff},  {base, -1, kUVOff},
        {base, INT_MIN, kUVOff},   {base, kYOff, kCW * kCH - 2},  // chroma overlapping the luma
        {base, kYOff, -kCW * kCH}, {base, kYOff + 128, kUVOff},   // past the end of the buffer
        {base, INT_MAX, INT_MAX},
    };
    for (const auto& p : planes) {
        SCOPED_TRACE(testing::Message() << p.yOff << ", " << p.uvOff);
        GETestLog log;
        EXPECT_EQ(3, m_p->handleCapture(kCW, kCH, m_capture->Fd(), p.base, p.yOff, p.uvOff));
        EXPECT_EQ(1, log.Count("bad planes")) << log.Dump();
    }
    EXPECT_TRUE(FakeManager::Calls().empty());
    EXPECT_TRUE(CaptureUntouched());

    // Narrow captures, whatever their width against the tiles, and the
    // exact buffer, are processed.
    for (int w : {2, 16, 48}) {
        NewCapture(w, 16, 0, w * 16);
        EXPECT_EQ(0, Capture(w, 16, 0, w * 16)) << w;
        EXPECT_TRUE(CaptureInverted(w, 16, 0, w * 16)) << w;
    }
    NewCapture();
    EXPECT_EQ(0, Capture());
    EXPECT_TRUE(CaptureInverted());
}

// convertRect converts any rectangle exactly and cuts (never moves) one that
// reaches outside the capture or the destination. The capture's planes here are a heap block of
// their exact size, so that a read outside them is caught by the address checker.
TEST_F(CaptureTest, ConvertRectConvertsAndKeepsRectanglesInside) {
    BringUp();
    const int cw = 160, ch = 80;
    const SPImage source = SPImage::Pattern(cw, ch, 11);
    std::vector<unsigned char> planes = source.data;  // the capture writes the result here
    const struct {
        int rx, ry, rw, rh;  // asked
        int ex, ey, ew, eh;  // read
    } cases[] = {
        {32, 16, 64, 32, 32, 16, 64, 32},    // inside
        {96, 48, 64, 32, 96, 48, 64, 32},    // bottom-right corner
        {128, 64, 32, 16, 128, 64, 32, 16},  // a partial tile
        {22, 6, 42, 19, 22, 6, 42, 19},      // not whole groups, odd height
        {-10, -4, 64, 32, 0, 0, 54, 28},     // before the origin
        {150, 70, 64, 32, 150, 70, 10, 10},  // past the far edges
        {33, 17, 64, 32, 32, 16, 64, 32},    // odd origin, cut to the destination
        {0, 0, 4000, 3000, 0, 0, 64, 32},    // larger than the tile
    };
    std::vector<std::vector<unsigned char>> results;
    std::vector<int> answers, badDst;
    IYUVConverter* conv = nullptr;
    g_fake.captureHook = [&](IYUVConverter* c, unsigned char* dst, int stride, int h) {
        conv = c;
        for (const auto& k : cases) {
            memset(dst, 0x5A, (size_t)stride * h * 4);
            answers.push_back(c->convertRect(dst, stride, h, k.rx, k.ry, k.rw, k.rh));
            results.emplace_back(dst, dst + (size_t)stride * h * 4);
        }
        // Destinations that cannot be written as asked (none, wider or
        // taller than the buffer) and rectangles with nothing inside.
        badDst = {c->convertRect(nullptr, stride, h, 0, 0, 64, 32),
                  c->convertRect(dst, stride + 32, h, 0, 0, 64, 32),
                  c->convertRect(dst, stride, h + 2, 0, 0, 64, 32),
                  c->convertRect(dst, stride, h, 10, 10, 0, 0),
                  c->convertRect(dst, stride, h, INT_MAX, INT_MIN, INT_MAX, INT_MAX),
                  c->convertRect(dst, stride, h, INT_MIN, INT_MAX, INT_MIN, INT_MIN)};
    };
    GETestLog log;
    ASSERT_EQ(0, m_p->handleCapture(cw, ch, -1, planes.data(), 0, cw * ch));
    ASSERT_EQ(static_cast<IYUVConverter*>(m_p), conv);
    ASSERT_EQ(sizeof(cases) / sizeof(cases[0]), results.size());
    for (size_t i = 0; i < results.size(); ++i) {
        const auto& k = cases[i];
        EXPECT_EQ(1, answers[i]) << i;
        EXPECT_TRUE(ExpectedYuvx(source, kW, kH, k.ex, k.ey, k.ew, k.eh) == results[i])
            << "case " << i;
    }
    EXPECT_EQ(4, log.Count("[convertRect] rectangle")) << log.Dump();
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, kTag,
                             "[convertRect] rectangle (150, 70, 64 x 32) outside the 160 x 80 "
                             "capture or the 64 x 32 destination: reading (150, 70, 10 x 10)"));
    EXPECT_EQ((std::vector<int>(6, 0)), badDst);
    EXPECT_EQ(6, log.Count("nothing converted"));

    // Outside a capture there is nothing to convert.
    std::vector<unsigned char> dst((size_t)kW * kH * 4, 0x5A);
    EXPECT_EQ(0, m_p->convertRect(dst.data(), kW, kH, 0, 0, kW, kH));
    EXPECT_TRUE(All(dst.data(), dst.size(), 0x5A));
}

// ---------------------------------------------------------------------------

TEST_F(PipelineTest, ParameterStringsOfAnyBytesGiveAnEffectInRange) {
    BringUp();
    g_fake.bChooseOk = false;  // as the manager answers out-of-range numbers
    const char* pieces[] = {"GPU-effect=", "GE-param0=", "GE-param1=", ";",   "=", ",",
                            "-",           "9",          "8",          "J",   "A", "2147483648",
                            "99999999999", " ",          "\xff",       "%s%n"};
    unsigned seed = 12345;
    auto next = [&seed] {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 16) & 0x7FFF;
    };
    for (int n = 0; n < 400; ++n) {
        std::string s;
        for (int i = 0, parts = (int)(next() % 12); i < parts; ++i) {
            if (next() % 3 == 0) {
                for (int j = 0, len = (int)(next() % 8); j < len; ++j) {
                    s.push_back((char)(next() % 256));  // embedded zeros included
                }
            } else {
                s += pieces[next() % (sizeof(pieces) / sizeof(pieces[0]))];
            }
        }
        ASSERT_EQ(0, m_p->setParameters(String8(s.data(), s.size()))) << n;
        const int effect = GPUPostEffectPeer::Params(m_p).m_nEffect;
        ASSERT_TRUE(effect >= -1 && effect <= 18) << n << ": " << effect;
        const int r = SendFrame();
        ASSERT_TRUE(r == 0 || r == 2) << n << ": " << r;
    }
}

}  // namespace
