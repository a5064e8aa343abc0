#include "PluginTestSupport.h"

#include <gralloc_priv.h>
#include <stdio.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string.h>

#include <algorithm>
#include <chrono>

FakeControl g_fake;

namespace {

std::mutex s_lock;
std::vector<std::string> s_calls;
int s_nCreated = 0;
int s_nDestroyed = 0;
bool s_bLandscapedAtChoose = false;
IYUVConverter* s_pConverter = nullptr;
int s_nStride = 0;
int s_nHeight = 0;
std::vector<unsigned char> s_previewPixels;

const auto kWait = std::chrono::seconds(10);

}  // namespace

// ---------------------------------------------------------------------------

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
    ++s_nCreated;
}

FakeManager::~FakeManager() {
    std::lock_guard<std::mutex> lock(s_lock);
    ++s_nDestroyed;
}

GEManager* NewFakeManager() {
    return new FakeManager();
}

void FakeManager::Record(const std::string& call) {
    std::lock_guard<std::mutex> lock(s_lock);
    s_calls.push_back(call);
}

bool FakeManager::Init(ANativeWindowBuffer* buffer, unsigned texW, unsigned texH, unsigned,
                       unsigned x, unsigned y, unsigned w, unsigned h, IYUVConverter* conv) {
    char text[128];
    snprintf(text, sizeof(text), "Init %u %u %u %u %u %u", texW, texH, x, y, w, h);
    Record(text);
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
    s_pConverter = conv;
    s_nStride = m_nStride;
    s_nHeight = m_nBufHeight;
    return true;
}

bool FakeManager::Deinit() {
    Record("Deinit");
    m_pPixels = nullptr;
    return true;
}

bool FakeManager::ChooseEffect(unsigned effect, unsigned char capture) {
    char text[64];
    snprintf(text, sizeof(text), "Choose %d %d", (int)effect, (int)capture);
    Record(text);
    {
        std::lock_guard<std::mutex> lock(s_lock);
        s_bLandscapedAtChoose = m_bLandscaped;
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
        s_previewPixels.swap(pixels);
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
    char text[64];
    snprintf(text, sizeof(text), "Capture %d %d", W, H);
    Record(text);
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
            int tw = std::min(m_nW, W - tx);
            int th = std::min(m_nH, H - ty);
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
    char text[128];
    snprintf(text, sizeof(text), "SetParam %u %d %d %d %d", group, a, b, c, d);
    Record(text);
    return 1;
}

void FakeManager::SetCrop(float x, float y, float w, float h) {
    char text[160];
    snprintf(text, sizeof(text), "SetCrop %.2f %.2f %.2f %.2f", x, y, w, h);
    Record(text);
}

bool FakeManager::MemcpyYUV(void* y, void* uv) {
    Record("Memcpy");
    memset(y, 200, (size_t)m_nW * m_nH);
    memset(uv, 100, (size_t)m_nW * m_nH / 2);
    return true;
}

std::vector<std::string> FakeManager::Calls() {
    std::lock_guard<std::mutex> lock(s_lock);
    return s_calls;
}

void FakeManager::ClearCalls() {
    std::lock_guard<std::mutex> lock(s_lock);
    s_calls.clear();
    s_previewPixels.clear();
}

int FakeManager::Created() {
    std::lock_guard<std::mutex> lock(s_lock);
    return s_nCreated;
}

int FakeManager::Destroyed() {
    std::lock_guard<std::mutex> lock(s_lock);
    return s_nDestroyed;
}

bool FakeManager::LandscapedAtChoose() {
    std::lock_guard<std::mutex> lock(s_lock);
    return s_bLandscapedAtChoose;
}

IYUVConverter* FakeManager::Converter() {
    std::lock_guard<std::mutex> lock(s_lock);
    return s_pConverter;
}

int FakeManager::BufferStride() {
    std::lock_guard<std::mutex> lock(s_lock);
    return s_nStride;
}

int FakeManager::BufferHeight() {
    std::lock_guard<std::mutex> lock(s_lock);
    return s_nHeight;
}

std::vector<unsigned char> FakeManager::PreviewPixels() {
    std::lock_guard<std::mutex> lock(s_lock);
    return s_previewPixels;
}

// ---------------------------------------------------------------------------

namespace korvo {

int GPUPostEffectPeer::QueueCount(GPUPostEffect* p) {
    pthread_mutex_lock(&p->m_queueMutex);
    int n = p->m_nQueueCount;
    pthread_mutex_unlock(&p->m_queueMutex);
    return n;
}

int GPUPostEffectPeer::PoolCount(GPUPostEffect* p) {
    pthread_mutex_lock(&p->m_queueMutex);
    int n = p->m_nPoolCount;
    pthread_mutex_unlock(&p->m_queueMutex);
    return n;
}

bool GPUPostEffectPeer::Exiting(GPUPostEffect* p) {
    pthread_mutex_lock(&p->m_queueMutex);
    bool b = p->m_bExit;
    pthread_mutex_unlock(&p->m_queueMutex);
    return b;
}

bool GPUPostEffectPeer::ThreadRunning(GPUPostEffect* p) {
    pthread_mutex_lock(&p->m_queueMutex);
    bool b = p->mGPUThread != 0;
    pthread_mutex_unlock(&p->m_queueMutex);
    return b;
}

GPUPostEffect::EffectParams GPUPostEffectPeer::Params(GPUPostEffect* p) {
    return p->m_params;
}

bool GPUPostEffectPeer::GEInit(GPUPostEffect* p) {
    return p->isGEInit;
}

std::vector<int> GPUPostEffectPeer::Crop(GPUPostEffect* p) {
    return {p->m_nCropX, p->m_nCropY, p->m_nCropW, p->m_nCropH, p->m_bCropPending ? 1 : 0};
}

int GPUPostEffectPeer::RunTask(GPUPostEffect* p, int type) {
    GPUPostEffect::GPUTask* task = p->newTask();
    task->m_nType = type;
    return p->runTask(task);
}

int GPUPostEffectPeer::RunCapture(GPUPostEffect* p, int w, int h, int fd, void* base, int yOffset,
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

}  // namespace korvo

// ---------------------------------------------------------------------------

CameraBuffer::CameraBuffer(size_t size, unsigned char fill) {
    m_nFd = memfd_create("camera", MFD_CLOEXEC);
    if (m_nFd < 0 || ftruncate(m_nFd, (off_t)size) != 0) {
        ADD_FAILURE() << "memfd";
        return;
    }
    void* base = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, m_nFd, 0);
    if (base == MAP_FAILED) {
        ADD_FAILURE() << "mmap";
        return;
    }
    m_pBase = static_cast<unsigned char*>(base);
    m_nSize = size;
    memset(m_pBase, fill, size);
}

CameraBuffer::~CameraBuffer() {
    if (m_pBase != nullptr) {
        munmap(m_pBase, m_nSize);
    }
    if (m_nFd >= 0) {
        close(m_nFd);
    }
}

void FillFrame(unsigned char* frame, int w, int h, int seed) {
    for (int i = 0; i < w * h; ++i) {
        frame[i] = (unsigned char)(i * 7 + seed);
    }
    for (int i = 0; i < w * h / 2; ++i) {
        frame[w * h + i] = (unsigned char)(i * 13 + 3 * seed + 1);
    }
}

bool WaitFor(const std::function<bool()>& pred) {
    auto deadline = std::chrono::steady_clock::now() + kWait;
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
}

void PluginTest::SetUp() {
    s_pfnDefaultFactory = korvo::GPUPostEffect::s_pfnCreateManager;
    g_fake.Reset();
    FakeManager::ClearCalls();
    korvo::GPUPostEffect::s_pfnCreateManager = NewFakeManager;
}

void PluginTest::TearDown() {
    g_fake.Reset();
    korvo::GPUPostEffect::s_pfnCreateManager = s_pfnDefaultFactory;
}
