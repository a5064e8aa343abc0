// The worker's preview and capture handlers against the manager double: when
// the manager goes up and down, what reaches it, what is written over the
// camera's buffers, the tiles convertRect converts, and the effect code and
// groups read from the parameter string. (The refusals of bad frames and
// captures are checked on the built plug-in, test_e2e.cpp.)
#include <android/log.h>
#include <gtest/gtest.h>
#include <limits.h>

#include <memory>
#include <string>
#include <vector>

#include "GETestLog.h"
#include "PluginTestSupport.h"
#include "engine/convert/sp2yuvx.h"
#include "plugin/GECameraParameters.h"

using android::String8;
using getest::CameraBuffer;
using getest::SPImage;
using korvo::GPUPostEffectPeer;
using Calls = std::vector<std::string>;

namespace {

const int kW = 64, kH = 32;
const int kGuard = 4096;  // bytes of 0xEE around every frame in its camera buffer
const char kBoth[] = "GPU-effect=9;GE-param0=1,2,3,4;GE-param1=5,6,7,8";

// What the CPU expansion makes of the rectangle (rx, ry, rw, rh) of `img` in
// a dw x dh "yuvx" destination (its rules are checked with the converters).
std::vector<unsigned char> Yuvx(const SPImage& img, int dw, int dh, int rx, int ry, int rw,
                                int rh) {
    std::vector<unsigned char> out((size_t)dw * dh * 4);
    sp2yuvxs_any(out.data(), dw, dh, img.YPlane(), img.UVPlane(), img.w, img.h, rx, ry, rw, rh);
    return out;
}

class PipelineTest : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        ASSERT_EQ(0, m_p->start());
    }
    // A camera buffer holding one w x h frame between guard bytes.
    void NewFrame(int w, int h, int seed = 1) {
        m_in.reset(new SPImage(SPImage::Pattern(w, h, seed)));
        m_frame.reset(new CameraBuffer(m_in->data.size() + 2 * kGuard, 0xEE));
        memcpy(m_frame->Base() + kGuard, m_in->data.data(), m_in->data.size());
    }
    int SendFrame() { return m_p->handlePreview(m_frame->Fd(), m_frame->Base(), kGuard); }
    // The frame as it came (or, processed, as the double renders it), the
    // guard bytes untouched.
    bool FrameIs(bool processed) {
        const std::vector<unsigned char> got = m_frame->Bytes();
        const size_t n = (size_t)m_in->w * m_in->h;
        for (size_t i = 0; i < got.size(); ++i) {
            const size_t k = i - kGuard;
            const int want = i < kGuard || k >= n * 3 / 2 ? 0xEE
                             : processed                  ? (k < n ? 200 : 100)
                                                          : m_in->data[k];
            if (got[i] != want) {
                return false;
            }
        }
        return true;
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

// The first frame brings the manager up over a buffer of the preview's size
// (width aligned to 32), expands the frame into it as "yuvx" padded by its
// last column, and the result replaces the frame; later frames reuse it.
TEST_F(PipelineTest, FirstFrameBringsTheManagerUpAndTheResultReplacesTheFrame) {
    ASSERT_EQ(0, m_p->setParameters(String8(kBoth)));
    ASSERT_EQ(0, m_p->startPreview(80, 16));
    EXPECT_TRUE(FakeManager::Calls().empty());
    for (int seed : {1, 2}) {
        NewFrame(80, 16, seed);
        ASSERT_EQ(0, SendFrame());
        const FakeRecord seen = FakeManager::Seen();
        EXPECT_TRUE(seen.converter == static_cast<IYUVConverter*>(m_p) && seen.stride == 96 &&
                    seen.height == 16);
        EXPECT_TRUE(Yuvx(*m_in, 96, 16, 0, 0, 80, 16) == seen.previewPixels);
        EXPECT_TRUE(FrameIs(true));
    }
    EXPECT_EQ((Calls{"Init 96 16 0 0 80 16", "Choose 9 0", "SetParam 0 1 2 3 4",
                     "SetParam 1 5 6 7 8", "Preview", "Memcpy", "Preview", "Memcpy"}),
              FakeManager::Calls());
}

// startPreview of the same size keeps the manager (the groups go again with
// the next frame), of another size tears it down; stopPreview tears it down
// and refuses frames until the next preview.
TEST_F(PipelineTest, StartAndStopPreviewKeepOrTearDownTheManager) {
    BringUp();
    ASSERT_EQ(0, m_p->startPreview(kW, kH));
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ((Calls{"SetParam 0 1 2 3 4", "SetParam 1 5 6 7 8", "Preview", "Memcpy"}),
              FakeManager::Calls());
    FakeManager::ClearCalls();
    ASSERT_EQ(0, m_p->startPreview(128, 64));
    EXPECT_EQ((Calls{"Deinit"}), FakeManager::Calls());
    EXPECT_FALSE(GPUPostEffectPeer::GEInit(m_p));
    NewFrame(128, 64);
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ("Init 128 64 0 0 128 64", FakeManager::Calls().at(1));
    EXPECT_TRUE(FrameIs(true));
    FakeManager::ClearCalls();
    ASSERT_EQ(0, m_p->stopPreview());
    EXPECT_EQ((Calls{"Deinit"}), FakeManager::Calls());
    EXPECT_EQ(-1, SendFrame());
    ASSERT_EQ(0, m_p->startPreview(128, 64));
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ("Init 128 64 0 0 128 64", FakeManager::Calls().at(1));
}

// Effect 0 is chosen on the worker (the manager refuses it), the next frame
// tears the manager down, and frames pass untouched; an effect again is
// chosen with the next frame.
TEST_F(PipelineTest, EffectZeroTearsTheManagerDownAndLeavesFramesUntouched) {
    BringUp();
    g_fake.bChooseOk = false;
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=0")));
    EXPECT_EQ((Calls{"Choose 0 0"}), FakeManager::Calls());
    for (const Calls& calls : {Calls{"Deinit"}, Calls{}}) {
        NewFrame(kW, kH, 3);
        FakeManager::ClearCalls();
        ASSERT_EQ(0, SendFrame());
        EXPECT_EQ(calls, FakeManager::Calls());
        EXPECT_TRUE(FrameIs(false));
    }
    g_fake.bChooseOk = true;
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=6")));
    EXPECT_TRUE(FakeManager::Calls().empty());
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ("Choose 6 0", FakeManager::Calls().at(1));
    EXPECT_TRUE(FrameIs(true));
}

// A failed bring-up gives 2 and leaves the frame; the next frame retries.
TEST_F(PipelineTest, BringUpFailureGivesTwoAndTheNextFrameRetries) {
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
    ASSERT_EQ(0, m_p->startPreview(kW, kH));
    NewFrame(kW, kH);
    const struct {
        bool init, choose;
        Calls calls;
    } cases[] = {
        {false, true, {"Init 64 32 0 0 64 32"}},
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
        EXPECT_TRUE(FrameIs(ok));
    }
}

// Groups go with the next frame; another effect is chosen at once (Mirror
// with its landscape flag from group 0's first word); a refused choice is
// made again with the next frame; a crop goes once, as fractions of the
// preview, whatever its integers.
TEST_F(PipelineTest, ParametersAndCropsReachTheManager) {
    BringUp();
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9;GE-param0=7,7,7,7;GE-param1=0,1,0,1")));
    EXPECT_TRUE(FakeManager::Calls().empty());
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ((Calls{"SetParam 0 7 7 7 7", "SetParam 1 0 1 0 1", "Preview", "Memcpy"}),
              FakeManager::Calls());
    for (bool landscape : {true, false}) {
        ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
        ASSERT_EQ(0, m_p->setParameters(String8(landscape ? "GPU-effect=8;GE-param0=1,0,0,0"
                                                          : "GPU-effect=8;GE-param0=0,5,5,5")));
        EXPECT_EQ("Choose 8 0", FakeManager::Calls().back());
        EXPECT_EQ(landscape, FakeManager::Seen().landscapedAtChoose);
    }
    FakeManager::ClearCalls();
    g_fake.bChooseOk = false;
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=6")));
    g_fake.bChooseOk = true;
    ASSERT_EQ(0, m_p->setCrop(16, 8, 32, 16));
    ASSERT_EQ(0, SendFrame());
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ((Calls{"Choose 6 0", "Choose 6 0", "SetParam 0 0 5 5 5", "SetParam 1 0 1 0 1",
                     "SetCrop 0.25 0.25 0.50 0.50", "Preview", "Memcpy", "Preview", "Memcpy"}),
              FakeManager::Calls());
    FakeManager::ClearCalls();
    ASSERT_EQ(0, m_p->setCrop(INT_MIN, INT_MAX, -1, 0));
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ((Calls{"SetCrop -33554432.00 67108864.00 -0.02 0.00", "Preview", "Memcpy"}),
              FakeManager::Calls());
    EXPECT_TRUE(FrameIs(true));
}

class CaptureTest : public PipelineTest {
protected:
    static const int kCW = 160, kCH = 80;  // 3 x 3 tiles of 64 x 32, the last partial
    static const int kYOff = 64, kUVOff = kCW * kCH + 32;  // a gap between the planes
    void NewCapture() {
        const SPImage img = SPImage::Pattern(kCW, kCH, 7);
        m_capture.reset(new CameraBuffer((size_t)kYOff + kUVOff + kCW * kCH / 2 + 64, 0xC5));
        memcpy(m_capture->Base() + kYOff, img.YPlane(), (size_t)kCW * kCH);
        memcpy(m_capture->Base() + kYOff + kUVOff, img.UVPlane(), (size_t)kCW * kCH / 2);
        m_original = m_capture->Bytes();
    }
    int Capture() {
        return m_p->handleCapture(kCW, kCH, m_capture->Fd(), m_capture->Base(), kYOff, kUVOff);
    }
    // The planes inverted by the double (or as they were), the rest untouched.
    bool CaptureIs(bool processed) {
        std::vector<unsigned char> want = m_original;
        for (size_t i = 0; processed && i < want.size(); ++i) {
            const size_t y = i - kYOff, uv = i - kYOff - kUVOff;
            if ((i >= kYOff && y < (size_t)kCW * kCH) ||
                (i >= kYOff + kUVOff && uv < kCW * kCH / 2)) {
                want[i] = (unsigned char)(255 - want[i]);
            }
        }
        return want == m_capture->Bytes();
    }
    std::unique_ptr<CameraBuffer> m_capture;
    std::vector<unsigned char> m_original;
};

// A capture tears the preview down, brings the manager up in capture mode
// over a preview-sized buffer with the groups and the stored crop (every
// time, for every effect from 1), runs the tiles and writes the planes; the
// next frame brings the preview up again.
TEST_F(CaptureTest, CaptureRunsTheTilesAndWritesThePlanes) {
    BringUp();
    ASSERT_EQ(0, m_p->setCrop(32, 16, 64, 32));
    FakeManager::ClearCalls();
    for (int i = 0; i < 2; ++i) {
        NewCapture();
        ASSERT_EQ(0, Capture());
        Calls want = {"Init 160 80 0 0 64 32",
                      i == 0 ? "Choose 9 1" : "Choose 1 1",
                      "SetParam 0 1 2 3 4",
                      "SetParam 1 5 6 7 8",
                      i == 0 ? "SetCrop 0.20 0.20 0.40 0.40" : "SetCrop 0.10 0.10 0.50 0.50",
                      "Capture 160 80",
                      "Deinit"};
        if (i == 0) {
            want.insert(want.begin(), "Deinit");  // the preview's manager
        }
        EXPECT_EQ(want, FakeManager::Calls());
        EXPECT_TRUE(CaptureIs(true));
        EXPECT_FALSE(GPUPostEffectPeer::GEInit(m_p));
        ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=1")));  // the lowest effect
        ASSERT_EQ(0, m_p->setCrop(16, 8, 80, 40));
        FakeManager::ClearCalls();
    }
    ASSERT_EQ(0, SendFrame());
    EXPECT_EQ("Init 64 32 0 0 64 32", FakeManager::Calls().at(0));
}

// A manager that cannot be brought up, cannot choose or fails the frame
// gives 3, leaves the planes untouched and is taken down; at effect 0 on
// the worker the preview is taken down and nothing else happens.
TEST_F(CaptureTest, FailuresGiveThreeAndLeaveThePlanesUntouched) {
    BringUp();
    ASSERT_EQ(0, m_p->stopPreview());  // the preview size stays
    std::atomic<bool>* flags[] = {&g_fake.bInitOk, &g_fake.bChooseOk, &g_fake.bProcOk};
    const size_t calls[] = {2, 3, 7};
    for (int i = 0; i < 3; ++i) {
        NewCapture();
        FakeManager::ClearCalls();
        *flags[i] = false;
        EXPECT_EQ(3, Capture());
        *flags[i] = true;
        EXPECT_EQ(calls[i], FakeManager::Calls().size());
        EXPECT_EQ("Deinit", FakeManager::Calls().back());
        EXPECT_TRUE(CaptureIs(false));
    }
    BringUp();
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=0")));  // the manager stays up
    ASSERT_TRUE(GPUPostEffectPeer::GEInit(m_p));
    NewCapture();
    FakeManager::ClearCalls();
    EXPECT_EQ(0, GPUPostEffectPeer::RunTask(m_p, korvo::GPUPostEffect::TASK_HANDLE_CAPTURE,
                                            m_capture->Base(), kCW, kCH));
    EXPECT_EQ((Calls{"Deinit"}), FakeManager::Calls());
    EXPECT_FALSE(GPUPostEffectPeer::GEInit(m_p));
    EXPECT_TRUE(CaptureIs(false));
}

// convertRect converts any rectangle exactly and cuts (never moves) one that
// reaches outside the capture or the destination. The capture's planes are
// a heap block of their exact size, so that a read past them is caught by
// the address checker.
TEST_F(CaptureTest, ConvertRectConvertsAndKeepsRectanglesInside) {
    BringUp();
    const SPImage source = SPImage::Pattern(kCW, kCH, 11);
    std::vector<unsigned char> planes = source.data;
    const struct {
        int rx, ry, rw, rh;  // asked
        int ex, ey, ew, eh;  // read
    } cases[] = {
        {32, 16, 64, 32, 32, 16, 64, 32},    // inside
        {96, 48, 64, 32, 96, 48, 64, 32},    // the bottom-right corner
        {128, 64, 32, 16, 128, 64, 32, 16},  // a partial tile
        {22, 6, 42, 19, 22, 6, 42, 19},      // not whole groups, an odd height
        {-10, -4, 64, 32, 0, 0, 54, 28},     // before the origin
        {150, 70, 64, 32, 150, 70, 10, 10},  // past the far edges
        {33, 17, 64, 32, 32, 16, 64, 32},    // an odd origin, cut to the destination
        {0, 0, 4000, 3000, 0, 0, 64, 32},    // larger than the tile
    };
    std::vector<std::vector<unsigned char>> results;
    std::vector<int> answers;
    g_fake.captureHook = [&](IYUVConverter* c, unsigned char* dst, int stride, int h) {
        for (const auto& k : cases) {
            memset(dst, 0x5A, (size_t)stride * h * 4);
            answers.push_back(c->convertRect(dst, stride, h, k.rx, k.ry, k.rw, k.rh));
            results.emplace_back(dst, dst + (size_t)stride * h * 4);
        }
        // Destinations that cannot be written as asked (none, wider or taller
        // than the buffer) and rectangles with nothing inside.
        answers.push_back(c->convertRect(nullptr, stride, h, 0, 0, 64, 32));
        answers.push_back(c->convertRect(dst, stride + 32, h, 0, 0, 64, 32));
        answers.push_back(c->convertRect(dst, stride, h + 2, 0, 0, 64, 32));
        answers.push_back(c->convertRect(dst, stride, h, 10, 10, 0, 8));
        answers.push_back(c->convertRect(dst, stride, h, 10, 10, 8, 0));
        answers.push_back(c->convertRect(dst, stride, h, INT_MAX, INT_MIN, INT_MAX, INT_MAX));
        answers.push_back(c->convertRect(dst, stride, h, INT_MIN, INT_MAX, INT_MIN, INT_MIN));
    };
    ASSERT_EQ(0, m_p->handleCapture(kCW, kCH, -1, planes.data(), 0, kCW * kCH));
    ASSERT_EQ(sizeof(cases) / sizeof(cases[0]), results.size());
    for (size_t i = 0; i < results.size(); ++i) {
        const auto& k = cases[i];
        EXPECT_TRUE(Yuvx(source, kW, kH, k.ex, k.ey, k.ew, k.eh) == results[i]) << "case " << i;
    }
    EXPECT_EQ((std::vector<int>{1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0}), answers);
    std::vector<unsigned char> dst((size_t)kW * kH * 4, 0x5A);
    EXPECT_EQ(0, m_p->convertRect(dst.data(), kW, kH, 0, 0, kW, kH));  // outside a capture
    EXPECT_EQ(std::vector<unsigned char>(dst.size(), 0x5A), dst);
}

android::GECameraParameters Parse(const std::string& flat) {
    android::GECameraParameters p;
    p.unflatten(String8(flat.c_str()));
    return p;
}

// The first character of "GPU-effect" picks the effect: "0" to "9", then
// "B" to "J" for 10 to 18; anything else is -1. Without the key the answer
// is false and the effect -1.
TEST(GECameraParameters, EffectCodes) {
    const char* kCodes = "0123456789BCDEFGHIJ";
    for (int c = 0; c < 256; ++c) {
        const char* at = c ? strchr(kCodes, c) : nullptr;
        int effect = 12345;
        EXPECT_TRUE(Parse(std::string("GPU-effect=") + (char)c + "9").getGPUEffect(&effect));
        EXPECT_EQ(at ? (int)(at - kCodes) : -1, effect) << c;
    }
    int effect = 7;
    EXPECT_FALSE(Parse("GE-param0=1,2,3,4").getGPUEffect(&effect));
    EXPECT_EQ(-1, effect);
    EXPECT_FALSE(Parse("GPU-effect=9").getGPUEffect(nullptr));
    EXPECT_TRUE(Parse("antibanding=auto;GPU-effect=8;zoom=0").getGPUEffect(&effect));
    EXPECT_EQ(8, effect);
}

// "a,b,c,d" as strtol reads each number (held to the range of int); a
// malformed value, an index past 3 or a missing key writes nothing.
TEST(GECameraParameters, GroupsAsStrtolReadsThem) {
    const struct {
        const char* value;
        bool ok;
        std::vector<int> words;
    } cases[] = {
        {"1,2,3,4", true, {1, 2, 3, 4}},
        {"-5,+6,0,2147483647", true, {-5, 6, 0, 2147483647}},
        {"99999999999,-99999999999,0,0", true, {INT_MAX, INT_MIN, 0, 0}},
        {"1, 2,3,4", true, {1, 2, 3, 4}},            // a blank before a number is skipped
        {"10,20,30,40xyz", true, {10, 20, 30, 40}},  // trailing text is ignored
        {"1,2,,", true, {1, 2, 0, 0}},               // empty fields read as 0
        {"1 ,2,3,4", false, {-7, -7, -7, -7}},
        {"1,2,3", false, {-7, -7, -7, -7}},
        {"1|2|3|4", false, {-7, -7, -7, -7}},
        {"1.5,2,3,4", false, {-7, -7, -7, -7}},
    };
    for (const auto& c : cases) {
        for (int index = 0; index < 5; ++index) {
            const std::string key = "GE-param" + std::to_string(index % 4);
            std::vector<int> w(4, -7);
            EXPECT_EQ(c.ok && index < 4,
                      Parse(key + "=" + c.value)
                          .getGPUEffectParam(index == 4 ? -1 : index, &w[0], &w[1], &w[2], &w[3]))
                << c.value << " " << index;
            EXPECT_EQ(index < 4 ? c.words : std::vector<int>(4, -7), w) << c.value << " " << index;
        }
    }
    int only = -99;
    ASSERT_TRUE(Parse("GE-param0=1,2,3,4").getGPUEffectParam(0, nullptr, nullptr, &only, nullptr));
    EXPECT_EQ(3, only);
    EXPECT_FALSE(Parse("GE-param0=1,2,3,4").getGPUEffectParam(1, &only, nullptr, nullptr, nullptr));
    EXPECT_FALSE(Parse("GE-param3=1,2,3,4").getGPUEffectParam(4, &only, nullptr, nullptr, nullptr));
    EXPECT_EQ(3, only);
}

}  // namespace
