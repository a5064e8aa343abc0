#include "PluginTestSupport.h"

#include <gralloc_priv.h>
#include <stdarg.h>
#include <stdio.h>

#include <algorithm>
#include <chrono>
#include <thread>

FakeControl g_fake;

namespace {

std::mutex s_lock;  // guards s_seen
FakeRecord s_seen;

const auto kWait = std::chrono::seconds(10);

}  // namespace

void Gate::Arm() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bArmed = true;
    m_bEntered = false;
    m_bOpen = false;
}

void Gate::Pass() {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_bArmed) {
        return;
    }
    m_bArmed = false;
    m_bEntered = true;
    m_cond.notify_all();
    m_cond.wait(lock, [this] { return m_bOpen; });
}

bool Gate::WaitEntered() {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_cond.wait_for(lock, kWait, [this] { return m_bEntered; });
}

void Gate::Open() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bArmed = false;
    m_bOpen = true;
    m_cond.notify_all();
}

void FakeControl::Reset() {
    bInitOk = true;
    bChooseOk = true;
    bProcOk = true;
    chooseGate.Open();
    previewGate.Open();
    captureGate.Open();
    captureHook = nullptr;
}

// ---------------------------------------------------------------------------

FakeManager::FakeManager() : GEManager(NoEGL()) {
    std::lock_guard<std::mutex> lock(s_lock);
    ++s_seen.created;
}

FakeManager::~FakeManager() {
    std::lock_guard<std::mutex> lock(s_lock);
    ++s_seen.destroyed;
}

void FakeManager::Record(const char* format, ...) {
    char text[160];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    std::lock_guard<std::mutex> lock(s_lock);
    s_seen.calls.push_back(text);
}

FakeRecord FakeManager::Seen() {
    std::lock_guard<std::mutex> lock(s_lock);
    return s_seen;
}

void FakeManager::ClearCalls() {
    std::lock_guard<std::mutex> lock(s_lock);
    s_seen.calls.clear();
    s_seen.previewPixels.clear();
}

bool FakeManager::Init(ANativeWindowBuffer* buffer, unsigned texW, unsigned texH, unsigned,
                       unsigned x, unsigned y, unsigned w, unsigned h, IYUVConverter* conv) {
    Record("Init %u %u %u %u %u %u", texW, texH, x, y, w, h);
    if (!g_fake.bInitOk) {
        return false;
    }
    const private_handle_t* handle = static_cast<const private_handle_t*>(buffer->handle);
    m_pPixels = reinterpret_cast<unsigned char*>(handle->base);
    m_nStride = buffer->stride;
    m_nBufHeight = buffer->height;
    m_nW = (int)w;
    m_nH = (int)h;
    m_pConv = conv;
    std::lock_guard<std::mutex> lock(s_lock);
    s_seen.converter = conv;
    s_seen.stride = m_nStride;
    s_seen.height = m_nBufHeight;
    return true;
}

bool FakeManager::Deinit() {
    Record("Deinit");
    m_pPixels = nullptr;
    return true;
}

bool FakeManager::ChooseEffect(unsigned effect, unsigned char capture) {
    Record("Choose %d %d", (int)effect, (int)capture);
    {
        std::lock_guard<std::mutex> lock(s_lock);
        s_seen.landscapedAtChoose = m_bLandscaped;
    }
    g_fake.chooseGate.Pass();
    return g_fake.bChooseOk;
}

bool FakeManager::ProcFrame(unsigned, unsigned, int, int) {
    Record("Preview");
    if (m_pPixels != nullptr) {
        std::vector<unsigned char> pixels(m_pPixels,
                                          m_pPixels + (size_t)m_nStride * m_nBufHeight * 4);
        std::lock_guard<std::mutex> lock(s_lock);
        s_seen.previewPixels.swap(pixels);
    }
    g_fake.previewGate.Pass();
    return g_fake.bProcOk;
}

bool FakeManager::ProcFrame(unsigned char*, unsigned char*, int, int) {
    Record("Capture4");
    return false;
}

bool FakeManager::ProcFrame(unsigned char* y, unsigned char* /*uv*/, unsigned char* out, int W,
                            int H) {
    Record("Capture %d %d", W, H);
    g_fake.captureGate.Pass();
    if (!g_fake.bProcOk || m_pPixels == nullptr || m_pConv == nullptr || y == nullptr) {
        return false;
    }
    if (g_fake.captureHook) {
        g_fake.captureHook(m_pConv, m_pPixels, m_nStride, m_nBufHeight);
        return true;
    }
    for (int ty = 0; ty < H; ty += m_nH) {
        for (int tx = 0; tx < W; tx += m_nW) {
            const int tw = std::min(m_nW, W - tx), th = std::min(m_nH, H - ty);
            if (!m_pConv->convertRect(m_pPixels, m_nStride, m_nBufHeight, tx, ty, tw, th)) {
                return false;
            }
            for (int j = 0; j < th; ++j) {
                for (int i = 0; i < tw; ++i) {
                    const unsigned char* px = m_pPixels + ((size_t)j * m_nStride + i) * 4;
                    out[(size_t)(ty + j) * W + tx + i] = (unsigned char)(255 - px[0]);
                    if (j % 2 == 0 && i % 2 == 0) {
                        unsigned char* c = out + (size_t)W * H + (size_t)(ty + j) / 2 * W + tx + i;
                        c[0] = (unsigned char)(255 - px[1]);
                        c[1] = (unsigned char)(255 - px[2]);
                    }
                }
            }
        }
    }
    return true;
}

int FakeManager::SetParam(unsigned group, int a, int b, int c, int d) {
    Record("SetParam %u %d %d %d %d", group, a, b, c, d);
    return 1;
}

void FakeManager::SetCrop(float x, float y, float w, float h) {
    Record("SetCrop %.2f %.2f %.2f %.2f", x, y, w, h);
}

bool FakeManager::MemcpyYUV(void* y, void* uv) {
    Record("Memcpy");
    memset(y, 200, (size_t)m_nW * m_nH);
    memset(uv, 100, (size_t)m_nW * m_nH / 2);
    return true;
}

// ---------------------------------------------------------------------------

bool WaitFor(const std::function<bool()>& pred) {
    const auto deadline = std::chrono::steady_clock::now() + kWait;
    while (!pred()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

namespace {
korvo::GPUPostEffect::ManagerFactory s_pfnDefaultFactory = nullptr;
GEManager* NewFakeManager() {
    return new FakeManager();
}
}  // namespace

void PluginTest::SetUp() {
    s_pfnDefaultFactory = korvo::GPUPostEffect::s_pfnCreateManager;
    g_fake.Reset();
    FakeManager::ClearCalls();
    korvo::GPUPostEffect::s_pfnCreateManager = NewFakeManager;
    m_p = new korvo::GPUPostEffect();
}

void PluginTest::TearDown() {
    g_fake.Reset();
    m_p->stop();
    delete m_p;
    korvo::GPUPostEffect::s_pfnCreateManager = s_pfnDefaultFactory;
}
