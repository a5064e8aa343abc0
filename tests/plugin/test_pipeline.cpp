// The worker's preview and capture handlers against the effect-manager
// double: when the manager goes up and down, what reaches it, what is written
// back over the camera's buffers, and what bad input gets.
#include <android/log.h>
#include <gtest/gtest.h>
#include <limits.h>

#include <string>
#include <vector>

#include "GETestLog.h"
#include "PluginTestSupport.h"

using android::String8;
using korvo::GPUPostEffect;
using korvo::GPUPostEffectPeer;
using Calls = std::vector<std::string>;

namespace {

const int kW = 64;
const int kH = 32;
const int kGuard = 4096;  // bytes around every frame in its camera buffer

// The "yuvx" pixel (Y, first chroma byte, second chroma byte, 255) that a
// semi-planar image gives at column c, row r.
struct Pixel {
    unsigned char y, c0, c1, x;
    bool operator==(const Pixel& o) const {
        return y == o.y && c0 == o.c0 && c1 == o.c1 && x == o.x;
    }
};
std::ostream& operator<<(std::ostream& os, const Pixel& p) {
    return os << "(" << (int)p.y << ", " << (int)p.c0 << ", " << (int)p.c1 << ", " << (int)p.x
              << ")";
}

Pixel SourcePixel(const unsigned char* y, const unsigned char* uv, int stride, int c, int r) {
    const unsigned char* pair = uv + (size_t)(r / 2) * stride + (c & ~1);
    return {y[(size_t)r * stride + c], pair[0], pair[1], 255};
}

Pixel At(const unsigned char* rgba, int stride, int c, int r) {
    const unsigned char* p = rgba + ((size_t)r * stride + c) * 4;
    return {p[0], p[1], p[2], p[3]};
}

// What converting the rectangle (rx, ry, rw, rh) of an image into a dw x dh
// "yuvx" destination gives: rw / 16 groups of 16 pixels per row (at least
// one) and rh / 2 row pairs (at least one), each row continued to dw by its
// last pixel, the last row repeated down to dh.
std::vector<Pixel> Expected(const unsigned char* y, const unsigned char* uv, int stride, int dw,
                            int dh, int rx, int ry, int rw, int rh) {
    int cols = std::max(rw / 16, 1) * 16;
    int rows = std::max(rh / 2, 1) * 2;
    std::vector<Pixel> out((size_t)dw * dh);
    for (int r = 0; r < dh; ++r) {
        int sr = std::min(r, rows - 1);
        for (int c = 0; c < dw; ++c) {
            int sc = std::min(c, cols - 1);
            out[(size_t)r * dw + c] = SourcePixel(y, uv, stride, rx + sc, ry + sr);
        }
    }
    return out;
}

bool Untouched(const unsigned char* p, size_t n, unsigned char fill) {
    for (size_t i = 0; i < n; ++i) {
        if (p[i] != fill) {
            return false;
        }
    }
    return true;
}

class PipelineTest : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        m_p = new GPUPostEffect();
        ASSERT_EQ(0, m_p->start());
    }
    void TearDown() override {
        g_fake.Reset();
        m_p->stop();
        delete m_p;
        PluginTest::TearDown();
    }

    // A camera buffer holding one w x h frame at offset kGuard, with guard
    // bytes of 0xEE before and after.
    void NewFrame(int w, int h, int seed = 1) {
        m_nW = w;
        m_nH = h;
        m_frame.reset(new CameraBuffer((size_t)w * h * 3 / 2 + 2 * kGuard, 0xEE));
        FillFrame(Frame(), w, h, seed);
        m_original.assign(Frame(), Frame() + (size_t)w * h * 3 / 2);
    }
    unsigned char* Frame() { return m_frame->Base() + kGuard; }
    int SendFrame() { return m_p->handlePreview(m_frame->Fd(), m_frame->Base(), kGuard); }
    bool GuardsIntact() {
        size_t n = (size_t)m_nW * m_nH * 3 / 2;
        return Untouched(m_frame->Base(), kGuard, 0xEE) && Untouched(Frame() + n, kGuard, 0xEE);
    }
    bool FrameUntouched() {
        return std::equal(m_original.begin(), m_original.end(), Frame()) && GuardsIntact();
    }
    bool FrameProcessed() {
        size_t n = (size_t)m_nW * m_nH;
        return Untouched(Frame(), n, 200) && Untouched(Frame() + n, n / 2, 100) && GuardsIntact();
    }

    // Effect 9 with both groups, preview 64 x 32, the manager up.
    void BringUp() {
        ASSERT_EQ(0,
                  m_p->setParameters(String8("GPU-effect=9;GE-param0=1,2,3,4;GE-param1=5,6,7,8")));
        ASSERT_EQ(0, m_p->startPreview(kW, kH));
        NewFrame(kW, kH);
        ASSERT_EQ(0, SendFrame());
        ASSERT_TRUE(GPUPostEffectPeer::GEInit(m_p));
        FakeManager::ClearCalls();
    }

    GPUPostEffect* m_p = nullptr;
    std::unique_ptr<CameraBuffer> m_frame;
    std::vector<unsigned char> m_original;
    int m_nW = 0;
    int m_nH = 0;
};

// ---------------------------------------------------------------------------
// Preview

TEST_F(PipelineTest, FirstFrameBringsTheManagerUpAndTheResultReplacesTheFrame) {
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9;GE-param0=1,2,3,4;GE-param1=5,6,7,8")));
    ASSERT_EQ(0, m_p->startPreview(kW, kH));
    EXPECT_TRUE(FakeManager::Calls().empty());  // nothing before the first frame
    NewFrame(kW, kH);
    GETestLog log;
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ((Calls{"Init 64 32 0 0 64 32", "Choose 9 0", "SetParam 0 1 2 3 4",
                     "SetParam 1 5 6 7 8", "Preview", "Memcpy"}),
              FakeManager::Calls());
    EXPECT_EQ(static_cast<IYUVConverter*>(m_p), FakeManager::Converter());
    EXPECT_EQ(kW, FakeManager::BufferStride());
    EXPECT_EQ(kH, FakeManager::BufferHeight());
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, "GPUPostEffect",
                             "handlePreview: isGEInit == false, internalStartPreview = 0."))
        << log.Dump();

    // The manager sampled the frame expanded to "yuvx".
    std::vector<unsigned char> pixels = FakeManager::PreviewPixels();
    ASSERT_EQ((size_t)kW * kH * 4, pixels.size());
    const unsigned char* y = m_original.data();
    for (int r = 0; r < kH; ++r) {
        for (int c = 0; c < kW; ++c) {
            ASSERT_EQ(SourcePixel(y, y + kW * kH, kW, c, r), At(pixels.data(), kW, c, r))
                << c << ", " << r;
        }
    }
    EXPECT_TRUE(FrameProcessed());

    // The next frame reuses the manager; the groups went with the first.
    FakeManager::ClearCalls();
    FillFrame(Frame(), kW, kH, 2);
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ((Calls{"Preview", "Memcpy"}), FakeManager::Calls());
    EXPECT_TRUE(FrameProcessed());
}

TEST_F(PipelineTest, PreviewWidthOffTheAlignmentIsPaddedByItsLastColumn) {
    const int w = 80, h = 16;  // buffer rows of 96 pixels
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=4")));
    ASSERT_EQ(0, m_p->startPreview(w, h));
    NewFrame(w, h, 9);
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ("Init 96 16 0 0 80 16", FakeManager::Calls().at(0));
    EXPECT_EQ(96, FakeManager::BufferStride());
    std::vector<unsigned char> pixels = FakeManager::PreviewPixels();
    ASSERT_EQ((size_t)96 * h * 4, pixels.size());
    const unsigned char* y = m_original.data();
    for (int r = 0; r < h; ++r) {
        for (int c = 0; c < 96; ++c) {
            ASSERT_EQ(SourcePixel(y, y + w * h, w, std::min(c, w - 1), r),
                      At(pixels.data(), 96, c, r))
                << c << ", " << r;
        }
    }
}

TEST_F(PipelineTest, StartPreviewWithTheSameSizeKeepsTheManagerAnotherSizeTearsItDown) {
    BringUp();
    ASSERT_EQ(0, m_p->startPreview(kW, kH));
    EXPECT_TRUE(FakeManager::Calls().empty());
    EXPECT_TRUE(GPUPostEffectPeer::GEInit(m_p));
    // The groups are handed over again with the next frame.
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ((Calls{"SetParam 0 1 2 3 4", "SetParam 1 5 6 7 8", "Preview", "Memcpy"}),
              FakeManager::Calls());

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
}

TEST_F(PipelineTest, EffectZeroTearsTheManagerDownAndLeavesFramesUntouched) {
    BringUp();
    g_fake.bChooseOk = false;  // the manager refuses 0 as an effect
    GETestLog log;
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=0")));
    EXPECT_EQ((Calls{"Choose 0 0"}), FakeManager::Calls());
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, "GPUPostEffect",
                             "int korvo::GPUPostEffect::setParameters(korvo::GPUPostEffect::"
                             "GPUTask*): old effect = 9, new effect = 0."))
        << log.Dump();
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, "GPUPostEffect",
                             "setParameters: isGEInit == true: call to ChooseEffect."));

    NewFrame(kW, kH, 3);
    FakeManager::ClearCalls();
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ((Calls{"Deinit"}), FakeManager::Calls());
    EXPECT_TRUE(FrameUntouched());
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, "GPUPostEffect",
                             "handlePreview: isGEInit == true, internalStopPreview."));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, "GPUPostEffect", "internalStopPreview E."));

    FakeManager::ClearCalls();
    ASSERT_EQ(0, SendFrame());
    EXPECT_TRUE(FakeManager::Calls().empty());
    EXPECT_TRUE(FrameUntouched());

    // Back to an effect: chosen with the next frame, since the manager is down.
    g_fake.bChooseOk = true;
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=6")));
    EXPECT_TRUE(FakeManager::Calls().empty());
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, "GPUPostEffect",
                             "setParameters: isGEInit == false: no call to ChooseEffect."));
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ("Choose 6 0", FakeManager::Calls().at(1));
    EXPECT_TRUE(FrameProcessed());
}

TEST_F(PipelineTest, BringUpFailureGivesTwoAndTheNextFrameRetries) {
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
    ASSERT_EQ(0, m_p->startPreview(kW, kH));
    NewFrame(kW, kH);
    GETestLog log;
    g_fake.bInitOk = false;
    EXPECT_EQ(2, SendFrame());
    EXPECT_EQ((Calls{"Init 64 32 0 0 64 32"}), FakeManager::Calls());
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, "GPUPostEffect",
                             "handlePreview: isGEInit == false, internalStartPreview = 2."));
    EXPECT_TRUE(FrameUntouched());

    // ChooseEffect failing leaves the manager initialised but not marked up.
    FakeManager::ClearCalls();
    g_fake.bInitOk = true;
    g_fake.bChooseOk = false;
    EXPECT_EQ(2, SendFrame());
    EXPECT_EQ((Calls{"Init 64 32 0 0 64 32", "Choose 9 0"}), FakeManager::Calls());
    EXPECT_FALSE(GPUPostEffectPeer::GEInit(m_p));
    EXPECT_TRUE(FrameUntouched());

    FakeManager::ClearCalls();
    g_fake.bChooseOk = true;
    EXPECT_EQ(0, SendFrame());
    EXPECT_EQ((Calls{"Init 64 32 0 0 64 32", "Choose 9 0", "SetParam 0 0 0 0 0",
                     "SetParam 1 0 0 0 0", "Preview", "Memcpy"}),
              FakeManager::Calls());
    EXPECT_TRUE(FrameProcessed());
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
    EXPECT_TRUE(FakeManager::LandscapedAtChoose());
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, "GPUPostEffect",
                             "[Tamso][setParameters] mpGEMan->m_bLandscaped = true"))
        << log.Dump();
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=8;GE-param0=0,5,5,5")));
    EXPECT_FALSE(FakeManager::LandscapedAtChoose());
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, "GPUPostEffect",
                             "[Tamso][setParameters] mpGEMan->m_bLandscaped = false"));

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
    EXPECT_EQ((Calls{"SetCrop 0.25 0.25 0.50 0.50", "Preview", "Memcpy"}), FakeManager::Calls());
    FakeManager::ClearCalls();
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ((Calls{"Preview", "Memcpy"}), FakeManager::Calls());

    // Any integers: passed on as quotients, nothing else happens.
    FakeManager::ClearCalls();
    ASSERT_EQ(0, m_p->setCrop(INT_MIN, INT_MAX, -1, 0));
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ(3u, FakeManager::Calls().size());
    EXPECT_EQ(0u, FakeManager::Calls().at(0).find("SetCrop -33554432.00 67108864.00 -0.02 0.00"))
        << FakeManager::Calls().at(0);
    EXPECT_TRUE(FrameProcessed());
}

TEST_F(PipelineTest, StopPreviewTearsDownAndFramesAreRefused) {
    BringUp();
    ASSERT_EQ(0, m_p->stopPreview());
    EXPECT_EQ((Calls{"Deinit"}), FakeManager::Calls());
    EXPECT_FALSE(GPUPostEffectPeer::GEInit(m_p));
    EXPECT_EQ(-1, SendFrame());
    // A new preview brings the manager up again with its first frame.
    FakeManager::ClearCalls();
    ASSERT_EQ(0, m_p->startPreview(kW, kH));
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ("Init 64 32 0 0 64 32", FakeManager::Calls().at(0));
}

TEST_F(PipelineTest, BadFramesAreRefusedWithMinusOne) {
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
    ASSERT_EQ(0, m_p->startPreview(kW, kH));
    NewFrame(kW, kH);
    GETestLog log;
    EXPECT_EQ(-1, m_p->handlePreview(m_frame->Fd(), nullptr, 0));
    EXPECT_EQ(-1, m_p->handlePreview(-1, nullptr, kGuard));
    EXPECT_EQ(-1, m_p->handlePreview(m_frame->Fd(), m_frame->Base(), -2));
    // The frame would run past the end of its buffer.
    EXPECT_EQ(-1, m_p->handlePreview(m_frame->Fd(), m_frame->Base(), 2 * kGuard + 2));
    EXPECT_EQ(-1, m_p->handlePreview(m_frame->Fd(), m_frame->Base(), INT_MAX));
    CameraBuffer small((size_t)kW * kH * 3 / 2 - 1, 0x11);
    EXPECT_EQ(-1, m_p->handlePreview(small.Fd(), small.Base(), 0));
    EXPECT_TRUE(Untouched(small.Base(), small.Size(), 0x11));
    EXPECT_EQ(6, log.Count("[handlePreview] frame refused")) << log.Dump();
    EXPECT_TRUE(FakeManager::Calls().empty());
    EXPECT_TRUE(FrameUntouched());

    // A frame whose buffer has no size to check (no descriptor), and one
    // that ends exactly where its buffer ends, are processed.
    EXPECT_EQ(0, m_p->handlePreview(-1, m_frame->Base(), kGuard));
    EXPECT_TRUE(FrameProcessed());
    CameraBuffer exact((size_t)kW * kH * 3 / 2, 0x11);
    EXPECT_EQ(0, m_p->handlePreview(exact.Fd(), exact.Base(), 0));
    EXPECT_TRUE(Untouched(exact.Base(), (size_t)kW * kH, 200));
    EXPECT_TRUE(Untouched(exact.Base() + kW * kH, (size_t)kW * kH / 2, 100));
}

TEST_F(PipelineTest, PreviewSizesThePipelineCannotRunGiveTwo) {
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
    NewFrame(kW, kH);
    const int sizes[][2] = {
        {0, 0},  {-64, 32},          {64, -32},    {63, 32},           {64, 31},      {8, 8},
        {64, 1}, {INT_MAX, INT_MAX}, {INT_MIN, 2}, {1 << 20, 1 << 20}, {46342, 46342}};
    for (const auto& s : sizes) {
        GETestLog log;
        ASSERT_EQ(0, m_p->startPreview(s[0], s[1])) << s[0] << " x " << s[1];
        // A frame that fits its buffer as far as the check can tell.
        EXPECT_EQ(2, m_p->handlePreview(-1, Frame(), 0)) << s[0] << " x " << s[1];
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

    void NewCapture(int w = kCW, int h = kCH, int yOff = kYOff, int uvOff = kUVOff) {
        m_nCapBytes = (size_t)yOff + uvOff + (size_t)w * h / 2 + 64;
        m_capture.reset(new CameraBuffer(m_nCapBytes, 0xC5));
        unsigned char* y = m_capture->Base() + yOff;
        unsigned char* uv = y + uvOff;
        for (int i = 0; i < w * h; ++i) {
            y[i] = (unsigned char)(i * 5 + i / w);
        }
        for (int i = 0; i < w * h / 2; ++i) {
            uv[i] = (unsigned char)(i * 11 + 7);
        }
        m_capOriginal.assign(m_capture->Base(), m_capture->Base() + m_nCapBytes);
    }
    int Capture(int w = kCW, int h = kCH, int yOff = kYOff, int uvOff = kUVOff) {
        return m_p->handleCapture(w, h, m_capture->Fd(), m_capture->Base(), yOff, uvOff);
    }
    bool CaptureUntouched() {
        return std::equal(m_capOriginal.begin(), m_capOriginal.end(), m_capture->Base());
    }
    // Every plane byte inverted by the double, everything else as it was.
    bool CaptureInverted(int w = kCW, int h = kCH, int yOff = kYOff, int uvOff = kUVOff) {
        size_t yBegin = (size_t)yOff, yEnd = yBegin + (size_t)w * h;
        size_t cBegin = yBegin + uvOff, cEnd = cBegin + (size_t)w * h / 2;
        for (size_t i = 0; i < m_nCapBytes; ++i) {
            bool plane = (i >= yBegin && i < yEnd) || (i >= cBegin && i < cEnd);
            unsigned char want = plane ? (unsigned char)(255 - m_capOriginal[i]) : m_capOriginal[i];
            if (m_capture->Base()[i] != want) {
                ADD_FAILURE() << "byte " << i << ": " << (int)m_capture->Base()[i]
                              << " != " << (int)want;
                return false;
            }
        }
        return true;
    }

    std::unique_ptr<CameraBuffer> m_capture;
    std::vector<unsigned char> m_capOriginal;
    size_t m_nCapBytes = 0;
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
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, "GPUPostEffect",
                             " cw = 160, ch = 80, vp_w = 64, vp_h = 32."))
        << log.Dump();
    EXPECT_EQ(1, log.Count("[handleCapture] Capture image time = "));
    EXPECT_EQ(9, log.Count("[convertRect] w = 160, h = 80, dw=64"));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, "GPUPostEffect",
                             "[convertRect] w = 160, h = 80, dw=64, rx=128, ry=64, rw=32, rh=16"));
    EXPECT_EQ(0, log.Count("outside the"));  // no tile needed clamping
    const char* traced = "int korvo::GPUPostEffect::handleCapture(korvo::GPUPostEffect::GPUTask*)";
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, "GPUPostEffect", std::string(traced) + " E."));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, "GPUPostEffect", std::string(traced) + " X."));

    // The next preview frame brings the preview manager up again.
    FakeManager::ClearCalls();
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ("Init 64 32 0 0 64 32", FakeManager::Calls().at(0));
}

TEST_F(CaptureTest, AStoredCropGoesWithEveryCapture) {
    BringUp();
    NewCapture();
    ASSERT_EQ(0, Capture());
    EXPECT_EQ("SetCrop 0.00 0.00 0.00 0.00", FakeManager::Calls().at(5));
    ASSERT_EQ(0, m_p->setCrop(80, 40, 40, 20));
    FakeManager::ClearCalls();
    NewCapture();
    ASSERT_EQ(0, Capture());
    EXPECT_EQ("SetCrop 0.50 0.50 0.25 0.25", FakeManager::Calls().at(4));
    EXPECT_TRUE(CaptureInverted());
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
    // No preview size yet: the tiles have no size.
    {
        GETestLog log;
        EXPECT_EQ(3, Capture());
        EXPECT_EQ(1, log.Count("capture refused")) << log.Dump();
    }
    ASSERT_EQ(0, m_p->startPreview(kW, kH));

    const int sizes[][2] = {{0, 0},       {-160, 80},     {160, -80},     {161, 80},
                            {160, 81},    {0, 80},        {16, 16},       {48, 32},
                            {INT_MAX, 2}, {46342, 46342}, {65536, 65536}, {INT_MIN, INT_MIN}};
    for (const auto& s : sizes) {
        GETestLog log;
        EXPECT_EQ(3, Capture(s[0], s[1], kYOff, kUVOff)) << s[0] << " x " << s[1];
        EXPECT_EQ(1, log.Count("bad capture size")) << s[0] << " x " << s[1];
        EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, "GPUPostEffect", "capture refused"));
    }
    struct {
        void* base;
        int yOff, uvOff;
    } planes[] = {
        {nullptr, kYOff, kUVOff},
        {m_capture->Base(), -1, kUVOff},
        {m_capture->Base(), INT_MIN, kUVOff},
        {m_capture->Base(), kYOff, kCW * kCH - 2},  // chroma overlapping the luma
        {m_capture->Base(), kYOff, -kCW * kCH},
        {m_capture->Base(), kYOff + 128, kUVOff},  // past the end of the buffer
        {m_capture->Base(), INT_MAX, INT_MAX},
    };
    for (const auto& p : planes) {
        GETestLog log;
        EXPECT_EQ(3, m_p->handleCapture(kCW, kCH, m_capture->Fd(), p.base, p.yOff, p.uvOff))
            << p.yOff << ", " << p.uvOff;
        EXPECT_EQ(1, log.Count("bad planes")) << log.Dump();
    }
    EXPECT_TRUE(FakeManager::Calls().empty());
    EXPECT_TRUE(CaptureUntouched());

    // Narrow captures that are whole 32-pixel groups, and the exact buffer,
    // are processed.
    NewCapture(32, 16, 0, 32 * 16);
    EXPECT_EQ(0, Capture(32, 16, 0, 32 * 16));
    EXPECT_TRUE(CaptureInverted(32, 16, 0, 32 * 16));
    NewCapture();
    EXPECT_EQ(0, Capture());
    EXPECT_TRUE(CaptureInverted());
}

// convertRect keeps whatever rectangle an effect asks for inside the capture
// and the destination. The capture's planes here are heap blocks of their
// exact size, so that a read outside them is caught by the address checker.
TEST_F(CaptureTest, ConvertRectConvertsAndKeepsRectanglesInside) {
    BringUp();
    const int cw = 160, ch = 80;
    std::vector<unsigned char> planes((size_t)cw * ch * 3 / 2);
    for (size_t i = 0; i < planes.size(); ++i) {
        planes[i] = (unsigned char)(i * 29 + i / 160);
    }
    // The capture's result (the double writes nothing) replaces the planes
    // at the end: keep the source for the expectations.
    const std::vector<unsigned char> source = planes;
    const unsigned char* y = source.data();
    const unsigned char* uv = y + cw * ch;

    struct Case {
        int rx, ry, rw, rh;  // asked
        int ex, ey, ew, eh;  // read
    };
    const Case cases[] = {
        {32, 16, 64, 32, 32, 16, 64, 32},    // inside
        {96, 48, 64, 32, 96, 48, 64, 32},    // bottom-right corner
        {128, 64, 32, 16, 128, 64, 32, 16},  // a partial tile
        {-10, -4, 64, 32, 0, 0, 64, 32},     // before the origin
        {150, 70, 64, 32, 96, 48, 64, 32},   // past the far edges
        {33, 17, 64, 32, 32, 16, 64, 32},    // odd origin
        {0, 0, 4000, 3000, 0, 0, 64, 32},    // larger than the tile
        {INT_MAX, INT_MIN, INT_MAX, INT_MAX, 96, 0, 64, 32},
        {INT_MIN, INT_MAX, INT_MIN, INT_MIN, 0, 78, 16, 2},
        {10, 10, 0, 0, 10, 10, 16, 2},  // empty
    };
    std::vector<std::vector<unsigned char>> results;
    std::vector<int> answers;
    int badDst[4] = {-2, -2, -2, -2};
    IYUVConverter* conv = nullptr;
    g_fake.captureHook = [&](IYUVConverter* c, unsigned char* dst, int stride, int h) {
        conv = c;
        for (const Case& k : cases) {
            memset(dst, 0x5A, (size_t)stride * h * 4);
            answers.push_back(c->convertRect(dst, stride, h, k.rx, k.ry, k.rw, k.rh));
            results.emplace_back(dst, dst + (size_t)stride * h * 4);
        }
        // Destinations that cannot be written as asked.
        badDst[0] = c->convertRect(nullptr, stride, h, 0, 0, 64, 32);
        badDst[1] = c->convertRect(dst, stride + 32, h, 0, 0, 64, 32);  // wider than the buffer
        badDst[2] = c->convertRect(dst, stride, h + 2, 0, 0, 64, 32);   // taller
        badDst[3] = c->convertRect(dst, 8, h, 0, 0, 8, 32);             // under one group
    };
    GETestLog log;
    ASSERT_EQ(0, m_p->handleCapture(cw, ch, -1, planes.data(), 0, cw * ch));
    ASSERT_EQ(static_cast<IYUVConverter*>(m_p), conv);
    ASSERT_EQ(sizeof(cases) / sizeof(cases[0]), results.size());
    for (size_t i = 0; i < results.size(); ++i) {
        const Case& k = cases[i];
        EXPECT_EQ(1, answers[i]) << i;
        std::vector<Pixel> want = Expected(y, uv, cw, kW, kH, k.ex, k.ey, k.ew, k.eh);
        for (int r = 0; r < kH; ++r) {
            for (int c = 0; c < kW; ++c) {
                ASSERT_EQ(want[(size_t)r * kW + c], At(results[i].data(), kW, c, r))
                    << "case " << i << " at " << c << ", " << r;
            }
        }
    }
    EXPECT_EQ(7, log.Count("[convertRect] rectangle")) << log.Dump();
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, "GPUPostEffect",
                             "[convertRect] rectangle (150, 70, 64 x 32) outside the 160 x 80 "
                             "capture or the 64 x 32 destination: reading (96, 48, 64 x 32)"));
    for (int answer : badDst) {
        EXPECT_EQ(0, answer);
    }
    EXPECT_EQ(4, log.Count("unusable destination"));

    // Outside a capture there is nothing to convert.
    std::vector<unsigned char> dst((size_t)kW * kH * 4, 0x5A);
    EXPECT_EQ(0, m_p->convertRect(dst.data(), kW, kH, 0, 0, kW, kH));
    EXPECT_TRUE(Untouched(dst.data(), dst.size(), 0x5A));
}

// ---------------------------------------------------------------------------
// Parameter strings of any bytes

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
        int parts = (int)(next() % 12);
        for (int i = 0; i < parts; ++i) {
            if (next() % 3 == 0) {
                int len = (int)(next() % 8);
                for (int j = 0; j < len; ++j) {
                    s.push_back((char)(next() % 256));  // embedded zeros included
                }
            } else {
                s += pieces[next() % (sizeof(pieces) / sizeof(pieces[0]))];
            }
        }
        ASSERT_EQ(0, m_p->setParameters(String8(s.data(), s.size()))) << n;
        int effect = GPUPostEffectPeer::Params(m_p).m_nEffect;
        ASSERT_TRUE(effect >= -1 && effect <= 18) << n << ": " << effect;
        int r = SendFrame();
        ASSERT_TRUE(r == 0 || r == 2) << n << ": " << r;
    }
}

}  // namespace
