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
using getest::CameraBuffer;
using korvo::GPUPostEffect;
using korvo::GPUPostEffectPeer;

namespace {

const int kPending = 12345;
const int kW = 64;
const int kH = 32;
const int D = ANDROID_LOG_DEBUG;

// A debug line without a tag (the queue lines): liblog gives such lines the
// program's name as their tag.
bool HasQueueLine(const GETestLog& log, const std::string& text) {
    for (const GETestLogLine& l : log.Lines()) {
        bool untagged = l.tag.empty() || l.tag == program_invocation_short_name;
        if (l.priority == D && untagged && l.text == "QUILL:GM: " + text) {
            return true;
        }
    }
    return false;
}

class QueueTest : public PluginTest {
protected:
    // Worker started, effect 9, preview 64 x 32 with the manager up.
    void BringUp() {
        ASSERT_EQ(0, m_p->start());
        ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
        ASSERT_EQ(0, m_p->startPreview(kW, kH));
        ASSERT_EQ(0, Frame());
        ASSERT_TRUE(GPUPostEffectPeer::GEInit(m_p));
    }
    int Frame() { return m_p->handlePreview(m_frame.Fd(), m_frame.Base(), 0); }
    // Runs `call` on a new thread that stores its result in `r`.
    static std::thread Async(std::atomic<int>* r, const std::function<int()>& call) {
        *r = kPending;
        return std::thread([r, call] { *r = call(); });
    }
    // stop() on a new thread, noting how many managers were gone when it returned.
    std::thread AsyncStop(std::atomic<int>* r, std::atomic<int>* destroyed) {
        *destroyed = -1;
        return Async(r, [this, destroyed] {
            int s = m_p->stop();
            *destroyed = FakeManager::Seen().destroyed;
            return s;
        });
    }
    bool QueueHolds(int n) {
        return WaitFor([&] { return GPUPostEffectPeer::QueueCount(m_p) == n; });
    }

    CameraBuffer m_frame{(size_t)kW * kH * 3 / 2, 0x40};
};

TEST_F(QueueTest, ThirdCallerWhileTheWorkerIsBusyGets99AndTheFourthTaskIsFreed) {
    BringUp();
    GETestLog log;
    g_fake.previewGate.Arm();
    std::atomic<int> a, b, c;
    std::thread ta = Async(&a, [&] { return Frame(); });
    ASSERT_TRUE(g_fake.previewGate.WaitEntered());
    std::thread tb = Async(&b, [&] { return m_p->setCrop(0, 0, 32, 16); });
    ASSERT_TRUE(QueueHolds(1));
    std::thread tc = Async(&c, [&] { return m_p->setCrop(8, 4, 16, 8); });
    ASSERT_TRUE(QueueHolds(2));

    // The queue holds two waiting tasks: the third caller is refused at once.
    std::atomic<int> d;
    std::thread td = Async(&d, [&] { return m_p->setCrop(2, 2, 2, 2); });
    EXPECT_TRUE(WaitFor([&] { return d != kPending; })) << "the third caller waits";
    EXPECT_TRUE(HasQueueLine(
        log, "bool korvo::GPUPostEffect::put(korvo::GPUPostEffect::GPUTask*): queue overflow."))
        << log.Dump();
    for (std::atomic<int>* r : {&a, &b, &c}) {
        EXPECT_EQ(kPending, r->load());
    }
    EXPECT_EQ(0, log.Count("pool overflow"));

    g_fake.previewGate.Open();
    ta.join();
    tb.join();
    tc.join();
    td.join();
    EXPECT_EQ(0, a | b | c);
    EXPECT_EQ(99, d.load());
    // Run in order; the refused crop never ran.
    EXPECT_EQ((std::vector<int>{8, 4, 16, 8, 1}), GPUPostEffectPeer::Crop(m_p));
    // Four tasks were out at once: the pool keeps three, the last one back is
    // freed.
    EXPECT_EQ(1, log.Count("pool overflow"));
    EXPECT_TRUE(HasQueueLine(log,
                             "void korvo::GPUPostEffect::destroyTask(korvo::GPUPostEffect::"
                             "GPUTask*): destroyTask pool overflow."));
    EXPECT_EQ(3, GPUPostEffectPeer::PoolCount(m_p));
    EXPECT_EQ(1, log.Count("queue overflow."));
}

TEST_F(QueueTest, StopCancelsTheQueuedTasksAfterTheRunningOneFinished) {
    BringUp();
    GETestLog log;
    g_fake.previewGate.Arm();
    std::atomic<int> a, b, c, s, destroyed;
    std::thread ta = Async(&a, [&] { return Frame(); });
    ASSERT_TRUE(g_fake.previewGate.WaitEntered());
    std::thread tb = Async(&b, [&] { return m_p->setCrop(2, 2, 8, 8); });
    ASSERT_TRUE(QueueHolds(1));
    std::thread tc = Async(&c, [&] { return m_p->setCrop(4, 4, 8, 8); });
    ASSERT_TRUE(QueueHolds(2));
    std::thread ts = AsyncStop(&s, &destroyed);
    ASSERT_TRUE(WaitFor([&] { return GPUPostEffectPeer::Exiting(m_p); }));
    EXPECT_EQ(kPending, s.load());

    g_fake.previewGate.Open();
    // A caller left waiting would hang the join: fail (and abort) instead.
    ASSERT_TRUE(WaitFor([&] {
        return a != kPending && b != kPending && c != kPending && s != kPending;
    })) << "a caller still waits";
    ta.join();
    tb.join();
    tc.join();
    ts.join();
    EXPECT_EQ(0, a.load());  // the running frame finishes
    EXPECT_EQ(1, b.load());  // the queued crops are cancelled
    EXPECT_EQ(1, c.load());
    EXPECT_EQ(0, s.load());
    EXPECT_TRUE(HasQueueLine(
        log, "korvo::GPUPostEffect::GPUTask* korvo::GPUPostEffect::get(): cancel 2 tasks."))
        << log.Dump();
    EXPECT_EQ((std::vector<int>{0, 0, 0, 0, 0}), GPUPostEffectPeer::Crop(m_p));
    // stop() returned after the worker had deleted its manager.
    EXPECT_EQ(FakeManager::Seen().created, destroyed.load());
    EXPECT_FALSE(GPUPostEffectPeer::ThreadRunning(m_p));
    EXPECT_EQ("Deinit", FakeManager::Calls().back());
    EXPECT_EQ(-1, Frame());  // preview is no longer running
}

TEST_F(QueueTest, StopDuringALongCaptureWaitsAndTheCaptureGetsItsResult) {
    BringUp();
    const int cw = 128, ch = 64;
    CameraBuffer capture((size_t)cw * ch * 3 / 2);
    const getest::SPImage img = getest::SPImage::Pattern(cw, ch, 5);
    memcpy(capture.Base(), img.data.data(), img.data.size());

    g_fake.captureGate.Arm();
    std::atomic<int> r, s, destroyed;
    std::thread tr = Async(
        &r, [&] { return m_p->handleCapture(cw, ch, capture.Fd(), capture.Base(), 0, cw * ch); });
    ASSERT_TRUE(g_fake.captureGate.WaitEntered());
    std::thread ts = AsyncStop(&s, &destroyed);
    ASSERT_TRUE(WaitFor([&] { return GPUPostEffectPeer::Exiting(m_p); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(kPending, s.load()) << "stop returned while the worker was still capturing";

    g_fake.captureGate.Open();
    tr.join();
    ts.join();
    EXPECT_EQ(0, r.load());
    EXPECT_EQ(0, s.load());
    EXPECT_EQ(FakeManager::Seen().created, destroyed.load());
    for (size_t i = 0; i < capture.Size(); ++i) {
        ASSERT_EQ(255 - img.data[i], capture.Base()[i]) << i;
    }
}

TEST_F(QueueTest, ConcurrentStopsBothReturnAfterTheWorkerEnded) {
    BringUp();
    g_fake.previewGate.Arm();
    std::atomic<int> a, s1, s2, d1, d2;
    std::thread ta = Async(&a, [&] { return Frame(); });
    ASSERT_TRUE(g_fake.previewGate.WaitEntered());
    std::thread t1 = AsyncStop(&s1, &d1);
    ASSERT_TRUE(WaitFor([&] { return GPUPostEffectPeer::Exiting(m_p); }));
    std::thread t2 = AsyncStop(&s2, &d2);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(-1, d2.load()) << "a second stop returned while the worker still ran";
    g_fake.previewGate.Open();
    ta.join();
    t1.join();
    t2.join();
    EXPECT_EQ(0, a | s1 | s2);
    EXPECT_EQ(FakeManager::Seen().created, d1.load());
    EXPECT_EQ(FakeManager::Seen().created, d2.load());
}

// stop() before start() and twice does nothing; a second start() keeps the
// worker; the plug-in starts again after a stop with a new manager; unknown
// task types get 99; the worker and the operations are traced in and out.
TEST_F(QueueTest, StartAndStopInAnyOrder) {
    GETestLog log;
    const int created = FakeManager::Seen().created;
    EXPECT_EQ(0, m_p->stop());
    EXPECT_EQ(created, FakeManager::Seen().created);

    ASSERT_EQ(0, m_p->start());
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=1")));  // the worker is up
    EXPECT_EQ(0, m_p->start());
    EXPECT_TRUE(log.HasExact(D, "GPUPostEffect",
                             "virtual int korvo::GPUPostEffect::start(): mGPUThread != 0."));
    EXPECT_EQ(99, GPUPostEffectPeer::RunTask(m_p, 6));
    EXPECT_EQ(99, GPUPostEffectPeer::RunTask(m_p, -1));
    EXPECT_EQ(0, m_p->startPreview(kW, kH));
    EXPECT_TRUE(log.HasExact(D, "GPUPostEffect",
                             "int korvo::GPUPostEffect::startPreview(korvo::GPUPostEffect::"
                             "GPUTask*): preview 64 x 32 started ok."));
    EXPECT_EQ(0, m_p->stopPreview());
    EXPECT_EQ(created + 1, FakeManager::Seen().created);
    EXPECT_EQ(0, m_p->stop());
    EXPECT_EQ(created + 1, FakeManager::Seen().destroyed);
    EXPECT_EQ(0, m_p->stop());
    EXPECT_EQ(created + 1, FakeManager::Seen().destroyed);
    EXPECT_FALSE(GPUPostEffectPeer::ThreadRunning(m_p));
    for (const char* f :
         {"void* korvo::GPUPostEffect::threadMain()",
          "virtual int korvo::GPUPostEffect::startPreview(int, int)",
          "virtual int korvo::GPUPostEffect::stopPreview()",
          "int korvo::GPUPostEffect::stopPreview(korvo::GPUPostEffect::GPUTask*)"}) {
        EXPECT_TRUE(log.HasExact(D, "GPUPostEffect", std::string(f) + " E.")) << f;
        EXPECT_TRUE(log.HasExact(D, "GPUPostEffect", std::string(f) + " X.")) << f;
    }

    ASSERT_EQ(0, m_p->start());
    EXPECT_EQ(0, m_p->setParameters(String8("GPU-effect=2")));
    EXPECT_EQ(2, GPUPostEffectPeer::Params(m_p).m_nEffect);
    EXPECT_EQ(created + 2, FakeManager::Seen().created);
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
    EXPECT_EQ(1, GPUPostEffectPeer::PoolCount(m_p));  // refused tasks go back to the pool
}

TEST_F(QueueTest, DestructionWithoutStopStillEndsTheWorkerFirst) {
    GETestLog log;
    GPUPostEffect* p = new GPUPostEffect();
    ASSERT_EQ(0, p->start());
    ASSERT_EQ(0, p->setParameters(String8("GPU-effect=9")));
    const int destroyed = FakeManager::Seen().destroyed;
    delete p;
    EXPECT_EQ(destroyed + 1, FakeManager::Seen().destroyed);
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, "GPUPostEffect",
                             "[~GPUPostEffect] destroyed without stop: stopping the worker"));
}

TEST_F(QueueTest, AReusedTaskKeepsTheFieldsItsNewUseDoesNotSet) {
    auto groups = [](const GPUPostEffect::EffectParams& p) {
        std::vector<int> g(p.m_anGroup0, p.m_anGroup0 + 4);
        g.insert(g.end(), p.m_anGroup1, p.m_anGroup1 + 4);
        return g;
    };
    ASSERT_EQ(0, m_p->start());
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9;GE-param0=1,2,3,4;GE-param1=5,6,7,8")));
    ASSERT_EQ(1, GPUPostEffectPeer::PoolCount(m_p));
    // The same task comes back from the pool: the malformed groups keep its
    // previous words; the changed flags are set all the same.
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=6;GE-param0=1 ,9,9,9;GE-param1=7,7,7")));
    GPUPostEffect::EffectParams p = GPUPostEffectPeer::Params(m_p);
    EXPECT_EQ(6, p.m_nEffect);
    EXPECT_EQ((std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8}), groups(p));
    EXPECT_EQ(1, p.m_nGroup0Changed & p.m_nGroup1Changed);
    // Without the effect key the effect is -1; a group that parses replaces
    // the old words.
    ASSERT_EQ(0, m_p->setParameters(String8("GE-param1=-1,0,1,2")));
    p = GPUPostEffectPeer::Params(m_p);
    EXPECT_EQ(-1, p.m_nEffect);
    EXPECT_EQ((std::vector<int>{1, 2, 3, 4, -1, 0, 1, 2}), groups(p));

    // A task newly made has zero words.
    GPUPostEffect fresh;
    ASSERT_EQ(0, fresh.start());
    ASSERT_EQ(0, fresh.setParameters(String8("GPU-effect=9;GE-param0=x")));
    p = GPUPostEffectPeer::Params(&fresh);
    EXPECT_EQ(9, p.m_nEffect);
    EXPECT_EQ(std::vector<int>(8, 0), groups(p));
    fresh.stop();
}

// Frames outside a preview get -1; captures and crops while the effect is 0
// (or none) get 0, all without a task.
TEST_F(QueueTest, CallsThatNeverReachTheWorker) {
    CameraBuffer capture(128 * 64 * 3 / 2, 0x33);
    auto captureAndCrop = [&](const char* when) {
        EXPECT_EQ(0, m_p->handleCapture(128, 64, capture.Fd(), capture.Base(), 0, 128 * 64))
            << when;
        EXPECT_EQ(0, m_p->setCrop(1, 2, 3, 4)) << when;
    };
    captureAndCrop("not started");  // a queued task would come back as 1
    EXPECT_EQ(0, GPUPostEffectPeer::PoolCount(m_p));

    ASSERT_EQ(0, m_p->start());
    for (const char* params : {"GPU-effect=0", "GPU-effect=A", "zoom=1"}) {
        ASSERT_EQ(0, m_p->setParameters(String8(params)));
        EXPECT_GE(0, GPUPostEffectPeer::Params(m_p).m_nEffect) << params;
        captureAndCrop(params);
    }
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
    EXPECT_EQ(-1, Frame());
    EXPECT_EQ(0, m_p->stopPreview());                 // nothing to stop
    EXPECT_EQ(1, GPUPostEffectPeer::PoolCount(m_p));  // only setParameters made tasks
    EXPECT_TRUE(FakeManager::Calls().empty());
    EXPECT_EQ((std::vector<int>{0, 0, 0, 0, 0}), GPUPostEffectPeer::Crop(m_p));
    EXPECT_EQ(std::vector<unsigned char>(capture.Size(), 0x33), capture.Bytes());

    ASSERT_EQ(0, m_p->startPreview(kW, kH));
    ASSERT_EQ(0, Frame());
    ASSERT_EQ(0, m_p->stopPreview());
    FakeManager::ClearCalls();
    EXPECT_EQ(-1, Frame());
    EXPECT_TRUE(FakeManager::Calls().empty());
}

}  // namespace
