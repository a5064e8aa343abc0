// Test support for the plug-in front: an effect-manager double that records
// what the worker asks of it and can hold the worker inside a call, a peer
// that reads the plug-in's queue state, and camera buffers in shared memory.
//
//     PluginTest fixture: every GPUPostEffect made in a test gets a
//     FakeManager (g_fake controls it, FakeManager::Calls() says what it saw).
#ifndef POSTEFFECT_TESTS_PLUGINTESTSUPPORT_H
#define POSTEFFECT_TESTS_PLUGINTESTSUPPORT_H

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

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

// The manager double. Calls are recorded as text, in order:
//   "Init <texW> <texH> <x> <y> <w> <h>", "Deinit", "Choose <effect> <capture>",
//   "SetParam <group> <a> <b> <c> <d>", "SetCrop <x> <y> <w> <h>" (two decimals),
//   "Preview", "Memcpy", "Capture <w> <h>".
// The preview "renders" by writing 200 to every luma byte and 100 to every
// chroma byte (MemcpyYUV); the capture walks the image in tiles of the input
// buffer's size, fetches each through convertRect and writes its bytes
// inverted (255 - value) to the output.
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

    // Shared by every double of the process.
    static std::vector<std::string> Calls();
    static void ClearCalls();
    static int Created();
    static int Destroyed();
    // The landscape flag when the last ChooseEffect was called.
    static bool LandscapedAtChoose();
    // The converter and the input buffer of the last Init.
    static IYUVConverter* Converter();
    static int BufferStride();
    static int BufferHeight();
    // The input buffer's pixels as the last preview ProcFrame saw them.
    static std::vector<unsigned char> PreviewPixels();

private:
    static void Record(const std::string& call);

    unsigned char* m_pPixels = nullptr;
    int m_nStride = 0;
    int m_nBufHeight = 0;
    int m_nW = 0;
    int m_nH = 0;
    IYUVConverter* m_pConv = nullptr;
};

GEManager* NewFakeManager();

namespace korvo {

// Reads and drives the plug-in's private state.
struct GPUPostEffectPeer {
    static int QueueCount(GPUPostEffect* p);
    static int PoolCount(GPUPostEffect* p);
    static bool Exiting(GPUPostEffect* p);
    static bool ThreadRunning(GPUPostEffect* p);
    // Worker-owned state: read only while the worker is idle.
    static GPUPostEffect::EffectParams Params(GPUPostEffect* p);
    static bool GEInit(GPUPostEffect* p);
    static std::vector<int> Crop(GPUPostEffect* p);  // x, y, w, h, pending
    // A task of any type through the queue, as a public operation would send it.
    static int RunTask(GPUPostEffect* p, int type);
    static int RunCapture(GPUPostEffect* p, int w, int h, int fd, void* base, int yOffset,
                          int uvOffset);
};

}  // namespace korvo

// A camera buffer: shared memory with a file descriptor, filled with `fill`.
class CameraBuffer {
public:
    explicit CameraBuffer(size_t size, unsigned char fill = 0);
    ~CameraBuffer();
    int Fd() const { return m_nFd; }
    unsigned char* Base() const { return m_pBase; }
    size_t Size() const { return m_nSize; }

private:
    CameraBuffer(const CameraBuffer&) = delete;
    CameraBuffer& operator=(const CameraBuffer&) = delete;
    int m_nFd = -1;
    unsigned char* m_pBase = nullptr;
    size_t m_nSize = 0;
};

// Fills a semi-planar w x h frame at `frame` with a pattern that differs per
// pixel and per chroma byte.
void FillFrame(unsigned char* frame, int w, int h, int seed);

// Waits (up to 10 s) until pred() holds.
bool WaitFor(const std::function<bool()>& pred);

// Installs the double for every plug-in made in the test.
class PluginTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
};

#endif
