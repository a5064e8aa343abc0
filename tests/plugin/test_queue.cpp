// The task queue, the pool and the worker thread under real threads, with an
// effect-manager double that holds the worker where a test needs it.
#include <android/log.h>
#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "GETestLog.h"
#include "PluginTestSupport.h"

using android::String8;
using korvo::GPUPostEffect;
using korvo::GPUPostEffectPeer;

namespace {

const int kPending = 12345;
const int kW = 64;
const int kH = 32;

const char kOverflowLine[] =
    "QUILL:GM: bool korvo::GPUPostEffect::put(korvo::GPUPostEffect::GPUTask*): queue overflow.";
const char kPoolOverflowLine[] =
    "QUILL:GM: void korvo::GPUPostEffect::destroyTask(korvo::GPUPostEffect::GPUTask*): "
    "destroyTask pool overflow.";
const char kCancelOneLine[] =
    "QUILL:GM: korvo::GPUPostEffect::GPUTask* korvo::GPUPostEffect::get(): cancel 1 tasks.";

// A debug line without a tag (the queue lines): liblog gives such lines the
// program's name as their tag.
bool HasQueueLine(const GETestLog& log, const std::string& text) {
    for (const GETestLogLine& l : log.Lines()) {
        bool untagged = l.tag.empty() || l.tag == program_invocation_short_name;
        if (l.priority == ANDROID_LOG_DEBUG && untagged && l.text == text) {
            return true;
        }
    }
    return false;
}

class QueueTest : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        m_p = new GPUPostEffect();
    }
    void TearDown() override {
        g_fake.Reset();
        m_p->stop();
        delete m_p;
        PluginTest::TearDown();
    }

    // Worker started, effect 9, preview 64 x 32 with the manager up.
    void BringUp() {
        ASSERT_EQ(0, m_p->start());
        ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
        ASSERT_EQ(0, m_p->startPreview(kW, kH));
        ASSERT_EQ(0, Frame());
        ASSERT_TRUE(GPUPostEffectPeer::GEInit(m_p));
    }
    int Frame() { return m_p->handlePreview(m_frame.Fd(), m_frame.Base(), 0); }

    GPUPostEffect* m_p = nullptr;
    CameraBuffer m_frame{(size_t)kW * kH * 3 / 2, 0x40};
};

TEST_F(QueueTest, ThirdCallerWhileTheWorkerIsBusyGets99AndTheFourthTaskIsFreed) {
    BringUp();
    GETestLog log;
    g_fake.previewGate.Arm();
    std::atomic<int> a{kPending}, b{kPending}, c{kPending};
    std::thread ta([&] { a = Frame(); });
    ASSERT_TRUE(g_fake.previewGate.WaitEntered());
    std::thread tb([&] { b = m_p->setCrop(0, 0, 32, 16); });
    ASSERT_TRUE(WaitFor([&] { return GPUPostEffectPeer::QueueCount(m_p) == 1; }));
    std::thread tc([&] { c = m_p->setCrop(8, 4, 16, 8); });
    ASSERT_TRUE(WaitFor([&] { return GPUPostEffectPeer::QueueCount(m_p) == 2; }));

    // The queue holds two waiting tasks: the third caller is refused at once.
    EXPECT_EQ(99, m_p->setCrop(2, 2, 2, 2));
    EXPECT_TRUE(HasQueueLine(log, kOverflowLine)) << log.Dump();
    EXPECT_EQ(kPending, a.load());
    EXPECT_EQ(kPending, b.load());
    EXPECT_EQ(kPending, c.load());
    EXPECT_EQ(0, log.Count("pool overflow"));

    g_fake.previewGate.Open();
    ta.join();
    tb.join();
    tc.join();
    EXPECT_EQ(0, a.load());
    EXPECT_EQ(0, b.load());
    EXPECT_EQ(0, c.load());
    // Run in order; the refused crop never ran.
    EXPECT_EQ((std::vector<int>{8, 4, 16, 8, 1}), GPUPostEffectPeer::Crop(m_p));

    // Four tasks were out at once: the pool keeps three, the last one back is
    // freed.
    EXPECT_EQ(1, log.Count("destroyTask pool overflow."));
    EXPECT_TRUE(HasQueueLine(log, kPoolOverflowLine)) << log.Dump();
    EXPECT_EQ(3, GPUPostEffectPeer::PoolCount(m_p));
    EXPECT_EQ(1, log.Count("queue overflow."));
}

TEST_F(QueueTest, StopCancelsTheQueuedTaskAfterTheRunningOneFinished) {
    BringUp();
    GETestLog log;
    g_fake.previewGate.Arm();
    std::atomic<int> a{kPending}, b{kPending}, s{kPending};
    std::atomic<int> destroyedAtStopReturn{-1};
    std::thread ta([&] { a = Frame(); });
    ASSERT_TRUE(g_fake.previewGate.WaitEntered());
    std::thread tb([&] { b = m_p->setCrop(2, 2, 8, 8); });
    ASSERT_TRUE(WaitFor([&] { return GPUPostEffectPeer::QueueCount(m_p) == 1; }));
    std::thread ts([&] {
        s = m_p->stop();
        destroyedAtStopReturn = FakeManager::Destroyed();
    });
    ASSERT_TRUE(WaitFor([&] { return GPUPostEffectPeer::Exiting(m_p); }));
    EXPECT_EQ(kPending, s.load());

    g_fake.previewGate.Open();
    ta.join();
    tb.join();
    ts.join();
    EXPECT_EQ(0, a.load());  // the running frame finishes
    EXPECT_EQ(1, b.load());  // the queued crop is cancelled
    EXPECT_EQ(0, s.load());
    EXPECT_TRUE(HasQueueLine(log, kCancelOneLine)) << log.Dump();
    EXPECT_EQ((std::vector<int>{0, 0, 0, 0, 0}), GPUPostEffectPeer::Crop(m_p));
    // stop() returned after the worker had deleted its manager.
    EXPECT_EQ(FakeManager::Created(), destroyedAtStopReturn.load());
    EXPECT_FALSE(GPUPostEffectPeer::ThreadRunning(m_p));
    EXPECT_EQ("Deinit", FakeManager::Calls().back());
    // Preview is no longer running: frames are answered -1.
    EXPECT_EQ(-1, Frame());
}

TEST_F(QueueTest, StopDuringALongCaptureWaitsAndTheCaptureGetsItsResult) {
    BringUp();
    const int cw = 128, ch = 64;
    CameraBuffer capture((size_t)cw * ch * 3 / 2);
    FillFrame(capture.Base(), cw, ch, 5);
    std::vector<unsigned char> original(capture.Base(), capture.Base() + capture.Size());

    g_fake.captureGate.Arm();
    std::atomic<int> r{kPending}, s{kPending};
    std::atomic<int> destroyedAtStopReturn{-1};
    std::thread tr(
        [&] { r = m_p->handleCapture(cw, ch, capture.Fd(), capture.Base(), 0, cw * ch); });
    ASSERT_TRUE(g_fake.captureGate.WaitEntered());
    std::thread ts([&] {
        s = m_p->stop();
        destroyedAtStopReturn = FakeManager::Destroyed();
    });
    ASSERT_TRUE(WaitFor([&] { return GPUPostEffectPeer::Exiting(m_p); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(kPending, s.load()) << "stop returned while the worker was still capturing";

    g_fake.captureGate.Open();
    tr.join();
    ts.join();
    EXPECT_EQ(0, r.load());
    EXPECT_EQ(0, s.load());
    EXPECT_EQ(FakeManager::Created(), destroyedAtStopReturn.load());
    for (size_t i = 0; i < capture.Size(); ++i) {
        ASSERT_EQ(255 - original[i], capture.Base()[i]) << i;
    }
}

TEST_F(QueueTest, ConcurrentStopsBothReturnAfterTheWorkerEnded) {
    BringUp();
    g_fake.previewGate.Arm();
    std::atomic<int> a{kPending};
    std::atomic<int> d1{-1}, d2{-1};
    std::thread ta([&] { a = Frame(); });
    ASSERT_TRUE(g_fake.previewGate.WaitEntered());
    std::thread s1([&] {
        EXPECT_EQ(0, m_p->stop());
        d1 = FakeManager::Destroyed();
    });
    ASSERT_TRUE(WaitFor([&] { return GPUPostEffectPeer::Exiting(m_p); }));
    std::thread s2([&] {
        EXPECT_EQ(0, m_p->stop());
        d2 = FakeManager::Destroyed();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(-1, d2.load()) << "a second stop returned while the worker still ran";
    g_fake.previewGate.Open();
    ta.join();
    s1.join();
    s2.join();
    EXPECT_EQ(0, a.load());
    EXPECT_EQ(FakeManager::Created(), d1.load());
    EXPECT_EQ(FakeManager::Created(), d2.load());
}

TEST_F(QueueTest, StopBeforeStartAndTwiceDoesNothing) {
    int created = FakeManager::Created();
    int destroyed = FakeManager::Destroyed();
    EXPECT_EQ(0, m_p->stop());
    EXPECT_EQ(created, FakeManager::Created());

    ASSERT_EQ(0, m_p->start());
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=1")));
    EXPECT_EQ(created + 1, FakeManager::Created());
    EXPECT_EQ(0, m_p->stop());
    EXPECT_EQ(destroyed + 1, FakeManager::Destroyed());
    EXPECT_EQ(0, m_p->stop());
    EXPECT_EQ(destroyed + 1, FakeManager::Destroyed());
    EXPECT_FALSE(GPUPostEffectPeer::ThreadRunning(m_p));

    // The plug-in starts again after a stop, with a new manager.
    ASSERT_EQ(0, m_p->start());
    EXPECT_EQ(0, m_p->setParameters(String8("GPU-effect=2")));
    EXPECT_EQ(2, GPUPostEffectPeer::Params(m_p).m_nEffect);
    EXPECT_EQ(created + 2, FakeManager::Created());
}

TEST_F(QueueTest, SecondStartLogsAndKeepsTheWorker) {
    GETestLog log;
    ASSERT_EQ(0, m_p->start());
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=1")));  // the worker is up
    int created = FakeManager::Created();
    EXPECT_EQ(0, m_p->start());
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, "GPUPostEffect",
                             "virtual int korvo::GPUPostEffect::start(): mGPUThread != 0."))
        << log.Dump();
    EXPECT_EQ(0, m_p->setParameters(String8("GPU-effect=2")));
    EXPECT_EQ(created, FakeManager::Created());
    // The worker is traced in and out.
    m_p->stop();
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, "GPUPostEffect",
                             "void* korvo::GPUPostEffect::threadMain() E."));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, "GPUPostEffect",
                             "void* korvo::GPUPostEffect::threadMain() X."));
}

TEST_F(QueueTest, TasksWithoutAWorkerAreCancelledNotLeftWaiting) {
    GETestLog log;
    EXPECT_EQ(1, m_p->setParameters(String8("GPU-effect=9")));
    EXPECT_EQ(1, m_p->startPreview(kW, kH));
    EXPECT_EQ(2, log.Count("no worker thread, task cancelled."));
    EXPECT_EQ(0, GPUPostEffectPeer::Params(m_p).m_nEffect);  // never ran

    ASSERT_EQ(0, m_p->start());
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
    ASSERT_EQ(0, m_p->stop());
    EXPECT_EQ(1, m_p->setParameters(String8("GPU-effect=3")));
    EXPECT_EQ(9, GPUPostEffectPeer::Params(m_p).m_nEffect);
    // Tasks refused this way still go back to the pool.
    EXPECT_EQ(1, GPUPostEffectPeer::PoolCount(m_p));
}

TEST_F(QueueTest, DestructionWithoutStopStillEndsTheWorkerFirst) {
    GETestLog log;
    GPUPostEffect* p = new GPUPostEffect();
    ASSERT_EQ(0, p->start());
    ASSERT_EQ(0, p->setParameters(String8("GPU-effect=9")));
    int destroyed = FakeManager::Destroyed();
    delete p;
    EXPECT_EQ(destroyed + 1, FakeManager::Destroyed());
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, "GPUPostEffect",
                             "[~GPUPostEffect] destroyed without stop: stopping the worker"));
}

TEST_F(QueueTest, UnknownTaskTypeGets99) {
    ASSERT_EQ(0, m_p->start());
    EXPECT_EQ(99, GPUPostEffectPeer::RunTask(m_p, 6));
    EXPECT_EQ(99, GPUPostEffectPeer::RunTask(m_p, -1));
    EXPECT_EQ(0, GPUPostEffectPeer::RunTask(m_p, GPUPostEffect::TASK_STOP_PREVIEW));
}

TEST_F(QueueTest, AReusedTaskKeepsTheFieldsItsNewUseDoesNotSet) {
    ASSERT_EQ(0, m_p->start());
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9;GE-param0=1,2,3,4;GE-param1=5,6,7,8")));
    ASSERT_EQ(1, GPUPostEffectPeer::PoolCount(m_p));
    // The same task comes back from the pool: the malformed groups keep its
    // previous words; the changed flags are set all the same.
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=6;GE-param0=1 ,9,9,9;GE-param1=7,7,7")));
    GPUPostEffect::EffectParams p = GPUPostEffectPeer::Params(m_p);
    EXPECT_EQ(6, p.m_nEffect);
    EXPECT_EQ((std::vector<int>{1, 2, 3, 4}), std::vector<int>(p.m_anGroup0, p.m_anGroup0 + 4));
    EXPECT_EQ((std::vector<int>{5, 6, 7, 8}), std::vector<int>(p.m_anGroup1, p.m_anGroup1 + 4));
    EXPECT_EQ(1, p.m_nGroup0Changed);
    EXPECT_EQ(1, p.m_nGroup1Changed);

    // Without the effect key the effect is -1; a group that parses replaces
    // the old words.
    ASSERT_EQ(0, m_p->setParameters(String8("GE-param1=-1,0,1,2")));
    p = GPUPostEffectPeer::Params(m_p);
    EXPECT_EQ(-1, p.m_nEffect);
    EXPECT_EQ((std::vector<int>{1, 2, 3, 4}), std::vector<int>(p.m_anGroup0, p.m_anGroup0 + 4));
    EXPECT_EQ((std::vector<int>{-1, 0, 1, 2}), std::vector<int>(p.m_anGroup1, p.m_anGroup1 + 4));

    // A task newly made has zero words.
    GPUPostEffect fresh;
    ASSERT_EQ(0, fresh.start());
    ASSERT_EQ(0, fresh.setParameters(String8("GPU-effect=9;GE-param0=x")));
    p = GPUPostEffectPeer::Params(&fresh);
    EXPECT_EQ(9, p.m_nEffect);
    EXPECT_EQ((std::vector<int>{0, 0, 0, 0}), std::vector<int>(p.m_anGroup0, p.m_anGroup0 + 4));
    fresh.stop();
}

TEST_F(QueueTest, PreviewFramesOutsideAPreviewGetMinusOneWithoutQueueing) {
    ASSERT_EQ(0, m_p->start());
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
    EXPECT_EQ(-1, Frame());
    EXPECT_EQ(0, m_p->stopPreview());                 // nothing to stop
    EXPECT_EQ(1, GPUPostEffectPeer::PoolCount(m_p));  // only setParameters' task was made
    EXPECT_TRUE(FakeManager::Calls().empty());

    ASSERT_EQ(0, m_p->startPreview(kW, kH));
    ASSERT_EQ(0, Frame());
    ASSERT_EQ(0, m_p->stopPreview());
    FakeManager::ClearCalls();
    EXPECT_EQ(-1, Frame());
    EXPECT_TRUE(FakeManager::Calls().empty());
}

TEST_F(QueueTest, CaptureAndCropAtEffectZeroNeverReachTheWorker) {
    CameraBuffer capture(128 * 64 * 3 / 2, 0x33);
    // Not even started: a queued task would come back as 1.
    EXPECT_EQ(0, m_p->handleCapture(128, 64, capture.Fd(), capture.Base(), 0, 128 * 64));
    EXPECT_EQ(0, m_p->setCrop(1, 2, 3, 4));
    EXPECT_EQ(0, GPUPostEffectPeer::PoolCount(m_p));

    ASSERT_EQ(0, m_p->start());
    for (const char* params : {"GPU-effect=0", "GPU-effect=A", "zoom=1"}) {
        ASSERT_EQ(0, m_p->setParameters(String8(params)));
        EXPECT_GE(0, GPUPostEffectPeer::Params(m_p).m_nEffect) << params;
        EXPECT_EQ(0, m_p->handleCapture(128, 64, capture.Fd(), capture.Base(), 0, 128 * 64));
        EXPECT_EQ(0, m_p->setCrop(1, 2, 3, 4));
    }
    EXPECT_TRUE(FakeManager::Calls().empty());
    EXPECT_EQ((std::vector<int>{0, 0, 0, 0, 0}), GPUPostEffectPeer::Crop(m_p));
    for (size_t i = 0; i < capture.Size(); ++i) {
        ASSERT_EQ(0x33, capture.Base()[i]);
    }
}

TEST_F(QueueTest, OperationsAreTracedInAndOut) {
    GETestLog log;
    ASSERT_EQ(0, m_p->start());
    ASSERT_EQ(0, m_p->startPreview(kW, kH));
    ASSERT_EQ(0, m_p->stopPreview());
    for (const char* f :
         {"virtual int korvo::GPUPostEffect::startPreview(int, int)",
          "virtual int korvo::GPUPostEffect::stopPreview()",
          "int korvo::GPUPostEffect::stopPreview(korvo::GPUPostEffect::GPUTask*)"}) {
        EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, "GPUPostEffect", std::string(f) + " E.")) << f;
        EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, "GPUPostEffect", std::string(f) + " X.")) << f;
    }
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_DEBUG, "GPUPostEffect",
                             "int korvo::GPUPostEffect::startPreview(korvo::GPUPostEffect::"
                             "GPUTask*): preview 64 x 32 started ok."))
        << log.Dump();
}

}  // namespace
