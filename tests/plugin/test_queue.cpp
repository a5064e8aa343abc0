// The task queue, the pool and the worker thread under real threads, with a
// manager double that holds the worker where a test needs it.
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

class QueueTest : public PluginTest {
protected:
    // Worker started, effect 9, preview 64 x 32 with the manager up.
    void BringUp() {
        ASSERT_EQ(0, m_p->start());
        ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
        ASSERT_EQ(0, m_p->startPreview(64, 32));
        ASSERT_EQ(0, Frame());
    }
    int Frame() { return m_p->handlePreview(m_frame.Fd(), m_frame.Base(), 0); }
    // `call` on a new thread, its result into `r`.
    static std::thread Async(std::atomic<int>* r, const std::function<int()>& call) {
        *r = kPending;
        return std::thread([r, call] { *r = call(); });
    }
    // stop() on a new thread, noting how many managers were gone when it returned.
    std::thread AsyncStop(std::atomic<int>* r, std::atomic<int>* destroyed) {
        *destroyed = -1;
        return Async(r, [this, destroyed] {
            const int s = m_p->stop();
            *destroyed = FakeManager::Seen().destroyed;
            return s;
        });
    }
    bool QueueHolds(int n) {
        return WaitFor([&] { return GPUPostEffectPeer::QueueCount(m_p) == n; });
    }
    // A frame held in the worker with two crops queued behind it.
    void HoldFrameAndQueueTwo(std::thread* t, std::atomic<int>* r) {
        g_fake.previewGate.Arm();
        t[0] = Async(&r[0], [this] { return Frame(); });
        ASSERT_TRUE(g_fake.previewGate.WaitEntered());
        t[1] = Async(&r[1], [this] { return m_p->setCrop(0, 0, 32, 16); });
        ASSERT_TRUE(QueueHolds(1));
        t[2] = Async(&r[2], [this] { return m_p->setCrop(8, 4, 16, 8); });
        ASSERT_TRUE(QueueHolds(2));
    }

    CameraBuffer m_frame{64 * 32 * 3 / 2, 0x40};
};

// Two tasks wait at most: a third caller is refused with 99 at once; the
// others run in order. Four tasks out at once: the pool keeps three.
TEST_F(QueueTest, ThirdWaitingCallerGets99) {
    BringUp();
    GETestLog log;
    std::thread t[4];
    std::atomic<int> r[4];
    HoldFrameAndQueueTwo(t, r);
    t[3] = Async(&r[3], [this] { return m_p->setCrop(2, 2, 2, 2); });
    EXPECT_TRUE(WaitFor([&] { return r[3] != kPending; })) << "the third caller waits";
    EXPECT_TRUE(r[0] == kPending && r[1] == kPending && r[2] == kPending);
    g_fake.previewGate.Open();
    for (std::thread& th : t) {
        th.join();
    }
    EXPECT_EQ((std::vector<int>{0, 0, 0, 99}), (std::vector<int>{r[0], r[1], r[2], r[3]}));
    EXPECT_EQ((std::vector<int>{8, 4, 16, 8, 1}), GPUPostEffectPeer::Crop(m_p));
    EXPECT_EQ(3, GPUPostEffectPeer::PoolCount(m_p));
    EXPECT_EQ(1, log.Count("queue overflow."));
    EXPECT_EQ(1, log.Count("destroyTask pool overflow."));
}

// stop() lets the running task finish, cancels the queued ones with 1 and
// returns once the worker has deleted its manager; preview no longer runs.
TEST_F(QueueTest, StopCancelsTheQueuedTasksAfterTheRunningOne) {
    BringUp();
    std::thread t[4];
    std::atomic<int> r[4], destroyed;
    HoldFrameAndQueueTwo(t, r);
    t[3] = AsyncStop(&r[3], &destroyed);
    ASSERT_TRUE(WaitFor([&] { return GPUPostEffectPeer::Exiting(m_p); }));
    EXPECT_EQ(kPending, r[3].load());
    g_fake.previewGate.Open();
    ASSERT_TRUE(WaitFor([&] { return r[1] != kPending && r[2] != kPending && r[3] != kPending; }))
        << "a caller still waits";
    for (std::thread& th : t) {
        th.join();
    }
    EXPECT_EQ((std::vector<int>{0, 1, 1, 0}), (std::vector<int>{r[0], r[1], r[2], r[3]}));
    EXPECT_EQ((std::vector<int>{0, 0, 0, 0, 0}), GPUPostEffectPeer::Crop(m_p));
    EXPECT_EQ(FakeManager::Seen().created, destroyed.load());
    EXPECT_FALSE(GPUPostEffectPeer::ThreadRunning(m_p));
    EXPECT_EQ("Deinit", FakeManager::Calls().back());
    EXPECT_EQ(-1, Frame());
}

// A stop that comes during a long capture, and a second stop, both return
// only after the worker ended; the capture gets its result and its planes.
TEST_F(QueueTest, StopsWaitForTheRunningCapture) {
    BringUp();
    const int cw = 128, ch = 64;
    CameraBuffer capture((size_t)cw * ch * 3 / 2);
    const getest::SPImage img = getest::SPImage::Pattern(cw, ch, 5);
    memcpy(capture.Base(), img.data.data(), img.data.size());
    g_fake.captureGate.Arm();
    std::atomic<int> r, s1, s2, d1, d2;
    std::thread tr = Async(
        &r, [&] { return m_p->handleCapture(cw, ch, capture.Fd(), capture.Base(), 0, cw * ch); });
    ASSERT_TRUE(g_fake.captureGate.WaitEntered());
    std::thread t1 = AsyncStop(&s1, &d1);
    ASSERT_TRUE(WaitFor([&] { return GPUPostEffectPeer::Exiting(m_p); }));
    std::thread t2 = AsyncStop(&s2, &d2);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(s1 == kPending && s2 == kPending) << "a stop returned while the worker ran";
    g_fake.captureGate.Open();
    tr.join(), t1.join(), t2.join();
    EXPECT_EQ(0, r | s1 | s2);
    EXPECT_EQ(FakeManager::Seen().created, d1.load());
    EXPECT_EQ(FakeManager::Seen().created, d2.load());
    for (size_t i = 0; i < capture.Size(); ++i) {
        ASSERT_EQ(255 - img.data[i], capture.Base()[i]) << i;
    }
}

// stop() before start() and twice does nothing; a second start() keeps the
// worker; a stopped plug-in starts again with a new manager; unknown task
// types get 99; without a worker tasks are cancelled (1), not left waiting;
// a plug-in deleted without stop() ends its worker first.
TEST_F(QueueTest, StartAndStopInAnyOrder) {
    const int created = FakeManager::Seen().created;
    EXPECT_EQ(1, m_p->setParameters(String8("GPU-effect=9")));
    EXPECT_EQ(1, m_p->startPreview(64, 32));
    EXPECT_EQ(0, GPUPostEffectPeer::Params(m_p).m_nEffect);
    EXPECT_EQ(0, m_p->stop());
    EXPECT_EQ(created, FakeManager::Seen().created);
    ASSERT_EQ(0, m_p->start());
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=1")));
    EXPECT_EQ(0, m_p->start());
    EXPECT_EQ(99, GPUPostEffectPeer::RunTask(m_p, 6));
    EXPECT_EQ(99, GPUPostEffectPeer::RunTask(m_p, -1));
    EXPECT_EQ(created + 1, FakeManager::Seen().created);
    EXPECT_EQ(0, m_p->stop());
    EXPECT_EQ(0, m_p->stop());
    EXPECT_EQ(created + 1, FakeManager::Seen().destroyed);
    EXPECT_EQ(1, m_p->setParameters(String8("GPU-effect=3")));
    EXPECT_EQ(1, GPUPostEffectPeer::Params(m_p).m_nEffect);
    EXPECT_EQ(1, GPUPostEffectPeer::PoolCount(m_p));
    ASSERT_EQ(0, m_p->start());
    EXPECT_EQ(0, m_p->setParameters(String8("GPU-effect=2")));
    EXPECT_EQ(2, GPUPostEffectPeer::Params(m_p).m_nEffect);
    EXPECT_EQ(created + 2, FakeManager::Seen().created);

    GETestLog log;
    GPUPostEffect* p = new GPUPostEffect();
    ASSERT_EQ(0, p->start());
    ASSERT_EQ(0, p->setParameters(String8("GPU-effect=9")));
    delete p;
    EXPECT_EQ(created + 2, FakeManager::Seen().destroyed);  // m_p's second one still runs
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_ERROR, "GPUPostEffect",
                             "[~GPUPostEffect] destroyed without stop: stopping the worker"));
}

// Frames outside a preview get -1; captures and crops while the effect is 0
// (or none) get 0; none of them makes a task.
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
        captureAndCrop(params);
    }
    ASSERT_EQ(0, m_p->setParameters(String8("GPU-effect=9")));
    EXPECT_EQ(-1, Frame());
    EXPECT_EQ(0, m_p->stopPreview());
    EXPECT_EQ(1, GPUPostEffectPeer::PoolCount(m_p));  // only setParameters made tasks
    EXPECT_TRUE(FakeManager::Calls().empty());
    EXPECT_EQ((std::vector<int>{0, 0, 0, 0, 0}), GPUPostEffectPeer::Crop(m_p));
    EXPECT_EQ(std::vector<unsigned char>(capture.Size(), 0x33), capture.Bytes());
    ASSERT_EQ(0, m_p->startPreview(64, 32));
    ASSERT_EQ(0, Frame());
    ASSERT_EQ(0, m_p->stopPreview());
    FakeManager::ClearCalls();
    EXPECT_EQ(-1, Frame());
    EXPECT_TRUE(FakeManager::Calls().empty());
}

}  // namespace
