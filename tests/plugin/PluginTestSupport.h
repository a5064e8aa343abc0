// Test support for the plug-in front: an effect-manager double that records
// what the worker asks of it and can hold the worker inside a call, and a
// peer that reads and drives the plug-in's private state.
//
//     PluginTest fixture: every GPUPostEffect made in a test gets a
//     FakeManager (g_fake controls it, FakeManager::Seen() says what it saw).
#ifndef POSTEFFECT_TESTS_PLUGINTESTSUPPORT_H
#define POSTEFFECT_TESTS_PLUGINTESTSUPPORT_H

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "GETestFrames.h"
#include "engine/GEManager.h"
#include "plugin/GPUPostEffect.h"

// Holds a thread inside a call until the test opens it.
class Gate {
public:
    // The next thread to Pass() will stop there.
    void Arm();
    // Called by the double: stops here while armed, until Open().
    void Pass();
    // Waits (up to 10 s) until a thread stopped in Pass(). True when one did.
    bool WaitEntered();
    void Open();

private:
    std::mutex m_mutex;
    std::condition_variable m_cond;
    bool m_bArmed = false;
    bool m_bEntered = false;
    bool m_bOpen = false;
};

// What the next managers do, and where they may hold the worker.
struct FakeControl {
    std::atomic<bool> bInitOk{true};
    std::atomic<bool> bChooseOk{true};
    std::atomic<bool> bProcOk{true};
    Gate chooseGate;
    Gate previewGate;
    Gate captureGate;
    // Replaces the capture's tile walk when set: called with the converter,
    // the input buffer's pixels, its stride in pixels and its height.
    std::function<void(IYUVConverter*, unsigned char*, int, int)> captureHook;

    void Reset();
};
extern FakeControl g_fake;

// What the doubles of the process have seen.
struct FakeRecord {
    // In order: "Init <texW> <texH> <x> <y> <w> <h>", "Deinit",
    // "Choose <effect> <capture>", "SetParam <group> <a> <b> <c> <d>",
    // "SetCrop <x> <y> <w> <h>" (two decimals), "Preview", "Memcpy",
    // "Capture <w> <h>".
    std::vector<std::string> calls;
    int created = 0, destroyed = 0;
    bool landscapedAtChoose = false;           // the flag when the last ChooseEffect came
    IYUVConverter* converter = nullptr;        // the converter of the last Init
    int stride = 0, height = 0;                // its input buffer's stride and height
    std::vector<unsigned char> previewPixels;  // the buffer as the last preview saw it
};

// The manager double. The preview "renders" by writing 200 to every luma
// byte and 100 to every chroma byte (MemcpyYUV); the capture walks the image
// in tiles of the viewport's size, fetches each through convertRect and
// writes its bytes inverted (255 - value) to the output.
class FakeManager : public GEManager {
public:
    FakeManager();
    ~FakeManager() override;

    bool Init(ANativeWindowBuffer* buffer, unsigned texW, unsigned texH, unsigned, unsigned x,
              unsigned y, unsigned w, unsigned h, IYUVConverter* conv) override;
    bool Deinit() override;
    bool ChooseEffect(unsigned effect, unsigned char capture) override;
    bool ProcFrame(unsigned, unsigned, int, int) override;
    bool ProcFrame(unsigned char* src, unsigned char* out, int w, int h) override;
    bool ProcFrame(unsigned char* y, unsigned char* uv, unsigned char* out, int w, int h) override;
    int SetParam(unsigned group, int a, int b, int c, int d) override;
    void SetCrop(float x, float y, float w, float h) override;
    bool MemcpyYUV(void* y, void* uv) override;
    void FPS() override {}

    static FakeRecord Seen();
    static std::vector<std::string> Calls() { return Seen().calls; }
    static void ClearCalls();

private:
    static void Record(const char* format, ...);

    unsigned char* m_pPixels = nullptr;
    int m_nStride = 0, m_nBufHeight = 0, m_nW = 0, m_nH = 0;
    IYUVConverter* m_pConv = nullptr;
};

namespace korvo {

// read() under `mutex`.
template <typename F>
auto Locked(pthread_mutex_t* mutex, F read) {
    pthread_mutex_lock(mutex);
    auto v = read();
    pthread_mutex_unlock(mutex);
    return v;
}

// Reads and drives the plug-in's private state.
struct GPUPostEffectPeer {
    static int QueueCount(GPUPostEffect* p) {
        return Locked(&p->m_queueMutex, [p] { return p->m_nQueueCount; });
    }
    static int PoolCount(GPUPostEffect* p) {
        return Locked(&p->m_queueMutex, [p] { return p->m_nPoolCount; });
    }
    static bool Exiting(GPUPostEffect* p) {
        return Locked(&p->m_queueMutex, [p] { return p->m_bExit; });
    }
    static bool ThreadRunning(GPUPostEffect* p) {
        return Locked(&p->m_queueMutex, [p] { return p->mGPUThread != 0; });
    }
    // Worker-owned state: read only while the worker is idle.
    static GPUPostEffect::EffectParams Params(GPUPostEffect* p) { return p->m_params; }
    static bool GEInit(GPUPostEffect* p) { return p->isGEInit; }
    static std::vector<int> Crop(GPUPostEffect* p) {  // x, y, w, h, pending
        return {p->m_nCropX, p->m_nCropY, p->m_nCropW, p->m_nCropH, p->m_bCropPending ? 1 : 0};
    }
    // A task of any type through the queue, as a public operation would send
    // it; a capture task without the caller's checks.
    static int RunTask(GPUPostEffect* p, int type) {
        GPUPostEffect::GPUTask* task = p->newTask();
        task->m_nType = type;
        return p->runTask(task);
    }
    static int RunCapture(GPUPostEffect* p, int w, int h, int fd, void* base, int yOffset,
                          int uvOffset) {
        GPUPostEffect::GPUTask* task = p->newTask();
        task->m_nType = GPUPostEffect::TASK_HANDLE_CAPTURE;
        task->m_nWidth = w;
        task->m_nHeight = h;
        task->m_nFd = fd;
        task->m_pBase = base;
        task->m_nOffset = yOffset;
        task->m_nUVOffset = uvOffset;
        return p->runTask(task);
    }
};

}  // namespace korvo

// Waits (up to 10 s) until pred() holds.
bool WaitFor(const std::function<bool()>& pred);

// Installs the double for every plug-in made in the test, and gives each
// test a plug-in (m_p, not started) that is stopped and deleted afterwards.
class PluginTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    korvo::GPUPostEffect* m_p = nullptr;
};

#endif
