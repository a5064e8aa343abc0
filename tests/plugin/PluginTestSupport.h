// The plug-in front against an effect-manager double that records what the
// worker asks of it and can hold the worker inside a call, and a peer that
// reads and drives the plug-in's private state.
//
//     PluginTest fixture: every GPUPostEffect made in a test gets a
//     FakeManager (g_fake controls it, FakeManager::Calls() says what it saw).
#ifndef POSTEFFECT_TESTS_PLUGINTESTSUPPORT_H
#define POSTEFFECT_TESTS_PLUGINTESTSUPPORT_H

#include <gralloc_priv.h>
#include <gtest/gtest.h>
#include <stdarg.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "GETestFrames.h"
#include "engine/GEManager.h"
#include "plugin/GPUPostEffect.h"

// Waits (up to 10 s) until pred() holds.
inline bool WaitFor(const std::function<bool()>& pred) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!pred()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Holds the next thread that passes it, once armed, until opened.
class Gate {
public:
    void Arm() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_bArmed = true, m_bEntered = false, m_bOpen = false;
    }
    void Pass() {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_bArmed) {
            m_bArmed = false, m_bEntered = true;
            m_cond.notify_all();
            m_cond.wait(lock, [this] { return m_bOpen; });
        }
    }
    bool WaitEntered() {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_cond.wait_for(lock, std::chrono::seconds(10), [this] { return m_bEntered; });
    }
    void Open() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_bArmed = false, m_bOpen = true;
        m_cond.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_cond;
    bool m_bArmed = false, m_bEntered = false, m_bOpen = false;
};

// What the managers do, and where they may hold the worker. captureHook,
// when set, replaces the capture's tile walk: it gets the converter, the
// input buffer's pixels, its stride and its height.
struct FakeControl {
    std::atomic<bool> bInitOk{true}, bChooseOk{true}, bProcOk{true};
    Gate previewGate, captureGate;
    std::function<void(IYUVConverter*, unsigned char*, int, int)> captureHook;
    void Reset() {
        bInitOk = bChooseOk = bProcOk = true;
        previewGate.Open(), captureGate.Open();
        captureHook = nullptr;
    }
};
inline FakeControl g_fake;

// What the managers of the process have seen. Calls, in order: "Init <texW>
// <texH> <x> <y> <w> <h>", "Deinit", "Choose <effect> <capture>", "SetParam
// <group> <a> <b> <c> <d>", "SetCrop <x> <y> <w> <h>" (two decimals),
// "Preview", "Memcpy", "Capture <w> <h>".
struct FakeRecord {
    std::vector<std::string> calls;
    int created = 0, destroyed = 0;
    bool landscapedAtChoose = false;           // the flag when the last ChooseEffect came
    IYUVConverter* converter = nullptr;        // the converter of the last Init
    int stride = 0, height = 0;                // its buffer's stride and height
    std::vector<unsigned char> previewPixels;  // the buffer as the last preview saw it
};
inline std::mutex g_seenLock;
inline FakeRecord g_seen;

// The manager double. A preview frame "renders" 200 into every luma byte and
// 100 into every chroma byte (MemcpyYUV); a capture writes the camera's
// planes inverted (255 - value).
class FakeManager : public GEManager {
public:
    FakeManager() : GEManager(NoEGL()) {
        Locked([](FakeRecord& s) { ++s.created; });
    }
    ~FakeManager() override {
        Locked([](FakeRecord& s) { ++s.destroyed; });
    }
    bool Init(ANativeWindowBuffer* buffer, unsigned texW, unsigned texH, unsigned, unsigned x,
              unsigned y, unsigned w, unsigned h, IYUVConverter* conv) override {
        Record("Init %u %u %u %u %u %u", texW, texH, x, y, w, h);
        if (!g_fake.bInitOk) {
            return false;
        }
        m_pPixels = reinterpret_cast<unsigned char*>(
            static_cast<const private_handle_t*>(buffer->handle)->base);
        m_nStride = buffer->stride, m_nBufHeight = buffer->height;
        m_nW = (int)w, m_nH = (int)h, m_pConv = conv;
        Locked([&](FakeRecord& s) {
            s.converter = conv, s.stride = m_nStride, s.height = m_nBufHeight;
        });
        return true;
    }
    bool Deinit() override {
        Record("Deinit");
        m_pPixels = nullptr;
        return true;
    }
    bool ChooseEffect(unsigned effect, unsigned char capture) override {
        Record("Choose %d %d", (int)effect, (int)capture);
        Locked([this](FakeRecord& s) { s.landscapedAtChoose = m_bLandscaped; });
        return g_fake.bChooseOk;
    }
    bool ProcFrame(unsigned, unsigned, int, int) override {
        Record("Preview");
        if (m_pPixels != nullptr) {
            std::vector<unsigned char> px(m_pPixels,
                                          m_pPixels + (size_t)m_nStride * m_nBufHeight * 4);
            Locked([&](FakeRecord& s) { s.previewPixels.swap(px); });
        }
        g_fake.previewGate.Pass();
        return g_fake.bProcOk;
    }
    bool ProcFrame(unsigned char* y, unsigned char* uv, unsigned char* out, int W, int H) override {
        Record("Capture %d %d", W, H);
        g_fake.captureGate.Pass();
        if (!g_fake.bProcOk || m_pPixels == nullptr || y == nullptr || uv == nullptr) {
            return false;
        }
        if (g_fake.captureHook) {
            g_fake.captureHook(m_pConv, m_pPixels, m_nStride, m_nBufHeight);
            return true;
        }
        for (size_t i = 0; i < (size_t)W * H * 3 / 2; ++i) {
            out[i] = (unsigned char)(255 - (i < (size_t)W * H ? y[i] : uv[i - (size_t)W * H]));
        }
        return true;
    }
    int SetParam(unsigned group, int a, int b, int c, int d) override {
        Record("SetParam %u %d %d %d %d", group, a, b, c, d);
        return 1;
    }
    void SetCrop(float x, float y, float w, float h) override {
        Record("SetCrop %.2f %.2f %.2f %.2f", x, y, w, h);
    }
    bool MemcpyYUV(void* y, void* uv) override {
        Record("Memcpy");
        memset(y, 200, (size_t)m_nW * m_nH);
        memset(uv, 100, (size_t)m_nW * m_nH / 2);
        return true;
    }
    void FPS() override {}

    static FakeRecord Seen() {
        std::lock_guard<std::mutex> lock(g_seenLock);
        return g_seen;
    }
    static std::vector<std::string> Calls() { return Seen().calls; }
    static void ClearCalls() {
        Locked([](FakeRecord& s) { s.calls.clear(), s.previewPixels.clear(); });
    }

private:
    static void Locked(const std::function<void(FakeRecord&)>& f) {
        std::lock_guard<std::mutex> lock(g_seenLock);
        f(g_seen);
    }
    static void Record(const char* format, ...) __attribute__((format(printf, 1, 2))) {
        char text[160];
        va_list args;
        va_start(args, format);
        vsnprintf(text, sizeof(text), format, args);
        va_end(args);
        Locked([&](FakeRecord& s) { s.calls.push_back(text); });
    }

    unsigned char* m_pPixels = nullptr;
    int m_nStride = 0, m_nBufHeight = 0, m_nW = 0, m_nH = 0;
    IYUVConverter* m_pConv = nullptr;
};

namespace korvo {

// Reads and drives the plug-in's private state. Worker-owned state is read
// only while the worker is idle.
struct GPUPostEffectPeer {
    template <typename T, typename F>
    static T Locked(GPUPostEffect* p, F read) {
        pthread_mutex_lock(&p->m_queueMutex);
        T v = read();
        pthread_mutex_unlock(&p->m_queueMutex);
        return v;
    }
    static int QueueCount(GPUPostEffect* p) {
        return Locked<int>(p, [p] { return p->m_nQueueCount; });
    }
    static int PoolCount(GPUPostEffect* p) {
        return Locked<int>(p, [p] { return p->m_nPoolCount; });
    }
    static bool Exiting(GPUPostEffect* p) {
        return Locked<bool>(p, [p] { return p->m_bExit; });
    }
    static bool ThreadRunning(GPUPostEffect* p) {
        return Locked<bool>(p, [p] { return p->mGPUThread != 0; });
    }
    static GPUPostEffect::EffectParams Params(GPUPostEffect* p) { return p->m_params; }
    static bool GEInit(GPUPostEffect* p) { return p->isGEInit; }
    static std::vector<int> Crop(GPUPostEffect* p) {  // x, y, w, h, pending
        return {p->m_nCropX, p->m_nCropY, p->m_nCropW, p->m_nCropH, p->m_bCropPending ? 1 : 0};
    }
    // A task of any type through the queue, as a public operation sends one;
    // a capture without the caller's checks.
    static int RunTask(GPUPostEffect* p, int type, void* base = nullptr, int w = 0, int h = 0) {
        GPUPostEffect::GPUTask* task = p->newTask();
        task->m_nType = type;
        task->m_pBase = base;
        task->m_nWidth = w, task->m_nHeight = h, task->m_nUVOffset = w * h;
        return p->runTask(task);
    }
};

}  // namespace korvo

// Installs the double for every plug-in made in the test, and gives each
// test a plug-in (m_p, not started) that is stopped and deleted afterwards.
class PluginTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_pfnFactory = korvo::GPUPostEffect::s_pfnCreateManager;
        g_fake.Reset();
        FakeManager::ClearCalls();
        korvo::GPUPostEffect::s_pfnCreateManager = [] { return (GEManager*)new FakeManager(); };
        m_p = new korvo::GPUPostEffect();
    }
    void TearDown() override {
        g_fake.Reset();
        m_p->stop();
        delete m_p;
        korvo::GPUPostEffect::s_pfnCreateManager = m_pfnFactory;
    }
    korvo::GPUPostEffect* m_p = nullptr;
    korvo::GPUPostEffect::ManagerFactory m_pfnFactory = nullptr;
};

#endif
