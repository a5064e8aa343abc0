#include "plugin/GPUPostEffect.h"

#include <alloc_controller.h>
#include <gralloc_priv.h>
#include <limits.h>
#include <memalloc.h>
#include <string.h>
#include <sys/stat.h>

#include <new>

#include "engine/GEManager.h"
#include "engine/convert/sp2yuvx.h"
#include "gl/GECommon.h"
#include "gl/GELog.h"
#include "plugin/GECameraParameters.h"

namespace korvo {

namespace {

GELogTag s_log("GPUPostEffect");
GELogTag s_queueLog(nullptr);  // the queue lines carry no tag

const char kPutText[] = "bool korvo::GPUPostEffect::put(korvo::GPUPostEffect::GPUTask*)";
const char kGetText[] = "korvo::GPUPostEffect::GPUTask* korvo::GPUPostEffect::get()";
const char kDestroyTaskText[] =
    "void korvo::GPUPostEffect::destroyTask(korvo::GPUPostEffect::GPUTask*)";

// Graphics buffers of the preview and the capture: RGBA 8888, software
// written, sampled as textures.
const int kBufferFormat = 1;
const uint32_t kBufferUsage = 0x130;
// memYUV: no caching.
const uint32_t kHeapFlags = 0x200;
// gralloc cache operation: clean.
const int kCacheClean = 3;

// Logs "<function> E." now and "<function> X." when the scope ends.
class FunctionTracer {
public:
    explicit FunctionTracer(const char* function) : m_szFunction(function) {
        GE_LOGD(s_log, "%s E.", m_szFunction);
    }
    ~FunctionTracer() { GE_LOGD(s_log, "%s X.", m_szFunction); }

private:
    FunctionTracer(const FunctionTracer&) = delete;
    FunctionTracer& operator=(const FunctionTracer&) = delete;

    const char* m_szFunction;
};

GEManager* NewManager() {
    return new (std::nothrow) GEManager();
}

int64_t AlignUp32(int64_t n) {
    return (n + 31) & ~(int64_t)31;
}

// Bytes of the memory behind a camera buffer's descriptor, or -1 when the
// descriptor does not tell (no descriptor, or memory without a size, as
// device heaps may be). The camera's base address is the start of that
// memory, so offsets from it are checked against this size.
int64_t DescriptorBytes(int fd) {
    if (fd < 0) {
        return -1;
    }
    struct stat st;
    if (fstat(fd, &st) != 0 || st.st_size <= 0) {
        return -1;
    }
    return (int64_t)st.st_size;
}

// The gralloc private handle of a graphics buffer.
const private_handle_t* HandleOf(const android::sp<android::GraphicBuffer>& buffer) {
    if (buffer == nullptr) {
        return nullptr;
    }
    ANativeWindowBuffer* native = buffer->getNativeBuffer();
    if (native == nullptr) {
        return nullptr;
    }
    return static_cast<const private_handle_t*>(native->handle);
}

// A preview-sized RGBA graphics buffer, or null (logged) when it cannot be had.
android::sp<android::GraphicBuffer> NewFrameBuffer(const char* where, int width, int height) {
    android::sp<android::GraphicBuffer> buffer = new (std::nothrow) android::GraphicBuffer(
        (uint32_t)AlignUp32(width), (uint32_t)height, kBufferFormat, kBufferUsage);
    if (buffer == nullptr || buffer->initCheck() != android::NO_ERROR ||
        HandleOf(buffer) == nullptr || HandleOf(buffer)->base == 0) {
        GE_LOGE(s_log, "[%s] can't allocate a %d x %d graphic buffer", where, width, height);
        return nullptr;
    }
    return buffer;
}

// Bytes of a preview-sized RGBA buffer (rows of the width aligned up to 32
// pixels), or -1 for a size that is not positive or whose bytes do not fit
// an int.
int64_t PreviewBufferBytes(int width, int height) {
    if (width <= 0 || height <= 0) {
        return -1;
    }
    int64_t pixels = AlignUp32(width) * height;  // below 2^63
    return pixels > INT_MAX / 4 ? -1 : pixels * 4;
}

// Sizes the preview pipeline can run at: the GPU packs four luma samples per
// texel, so the width is whole groups of 4 (at least 16); the height even;
// a buffer whose byte count fits an int.
bool PreviewSizeOk(int width, int height) {
    return width >= 16 && height >= 2 && width % 4 == 0 && height % 2 == 0 &&
           PreviewBufferBytes(width, height) > 0;
}

}  // namespace

GPUPostEffect::ManagerFactory GPUPostEffect::s_pfnCreateManager = NewManager;

GPUPostEffect::GPUPostEffect()
    : m_nQueueCount(0),
      m_apQueue(),
      m_nPoolCount(0),
      m_apPool(),
      mpGEMan(nullptr),
      mGPUThread(0),
      m_bExit(false),
      m_nPreviewWidth(0),
      m_nPreviewHeight(0),
      m_nCaptureWidth(0),
      m_nCaptureHeight(0),
      m_pCaptureY(nullptr),
      m_pCaptureUV(nullptr),
      m_nPreviewBufferSize(0),
      m_nPreviewRunning(0),
      m_params(),
      m_bFlag0(true),
      m_bFlag1(true),
      isGEInit(false),
      m_nCropX(0),
      m_nCropY(0),
      m_nCropW(0),
      m_nCropH(0),
      m_bCropPending(false),
      m_bEffectChosen(false) {
    pthread_mutex_init(&m_queueMutex, nullptr);
    pthread_cond_init(&m_queueCond, nullptr);
    pthread_cond_init(&m_stoppedCond, nullptr);
}

GPUPostEffect::~GPUPostEffect() {
    pthread_mutex_lock(&m_queueMutex);
    bool running = mGPUThread != 0;
    pthread_mutex_unlock(&m_queueMutex);
    if (running) {
        GE_LOGE(s_log, "[%s] destroyed without stop: stopping the worker", "~GPUPostEffect");
        stopWorker();
    }
    for (int i = 0; i < 3; ++i) {
        m_apQueue[i] = nullptr;
    }
    for (int i = 0; i < m_nPoolCount; ++i) {
        freeTask(m_apPool[i]);
        m_apPool[i] = nullptr;
    }
    m_nPoolCount = 0;
    m_pHeap0.clear();
    m_pHeap1.clear();
    m_pSpareBuffer.clear();
    m_pCaptureBuffer.clear();
    m_pPreviewBuffer.clear();
    pthread_cond_destroy(&m_stoppedCond);
    pthread_cond_destroy(&m_queueCond);
    pthread_mutex_destroy(&m_queueMutex);
}

// ---------------------------------------------------------------------------
// Queue and pool

GPUPostEffect::GPUTask* GPUPostEffect::newTask() {
    pthread_mutex_lock(&m_queueMutex);
    if (m_nPoolCount > 0) {
        --m_nPoolCount;
        GPUTask* task = m_apPool[m_nPoolCount];
        m_apPool[m_nPoolCount] = nullptr;
        pthread_mutex_unlock(&m_queueMutex);
        return task;
    }
    pthread_mutex_unlock(&m_queueMutex);

    GPUTask* task = new (std::nothrow) GPUTask();
    if (task == nullptr) {
        GE_LOGE(s_log, "[%s] out of memory", "newTask");
        return nullptr;
    }
    pthread_mutex_init(&task->m_mutex, nullptr);
    pthread_cond_init(&task->m_cond, nullptr);
    task->m_bWaiting = true;
    task->m_nResult = 0;
    task->m_nType = 0;
    task->m_nCropX = task->m_nCropY = 0;
    task->m_nWidth = task->m_nHeight = 0;
    task->m_pHeap = nullptr;
    task->m_nFd = -1;
    task->m_pBase = nullptr;
    task->m_nOffset = task->m_nUVOffset = 0;
    memset(&task->m_params, 0, sizeof(task->m_params));
    task->m_params.m_nEffect = -1;
    return task;
}

bool GPUPostEffect::put(GPUTask* task) {
    pthread_mutex_lock(&m_queueMutex);
    if (mGPUThread == 0 || m_bExit) {
        // Nobody would run it: the caller must not wait for ever.
        pthread_mutex_unlock(&m_queueMutex);
        GE_LOGE(s_queueLog, "QUILL:GM: %s: no worker thread, task cancelled.", kPutText);
        task->m_nResult = 1;
        return false;
    }
    if (m_nQueueCount <= 1) {
        int count = m_nQueueCount;
        m_apQueue[count] = task;
        m_nQueueCount = count + 1;
        if (count == 0) {
            pthread_cond_signal(&m_queueCond);
        }
        pthread_mutex_unlock(&m_queueMutex);
        return true;
    }
    pthread_mutex_unlock(&m_queueMutex);
    GE_LOGD(s_queueLog, "QUILL:GM: %s: queue overflow.", kPutText);
    task->m_nResult = 99;
    return false;
}

GPUPostEffect::GPUTask* GPUPostEffect::get() {
    pthread_mutex_lock(&m_queueMutex);
    while (m_nQueueCount == 0) {
        pthread_cond_wait(&m_queueCond, &m_queueMutex);
    }
    int count = --m_nQueueCount;
    GPUTask* task = nullptr;
    if (m_bExit) {
        GE_LOGD(s_queueLog, "QUILL:GM: %s: cancel %d tasks.", kGetText, count);
        for (int i = 0; i < count; ++i) {
            if (m_apQueue[i] == nullptr) {
                GE_LOGD(s_queueLog, "QUILL:GM: %s: q[%d] is NULL.", kGetText, i);
            } else {
                completeTask(m_apQueue[i], 1);
            }
        }
        for (int i = 0; i < 3; ++i) {
            m_apQueue[i] = nullptr;
        }
        m_nQueueCount = 0;
    } else if (count >= 0) {
        task = m_apQueue[0];
        if (count >= 1) {
            m_apQueue[0] = m_apQueue[1];
        }
        if (count >= 2) {
            m_apQueue[1] = m_apQueue[2];
        }
        m_apQueue[count] = nullptr;
    } else {
        GE_LOGD(s_queueLog, "QUILL:GM: %s: queue underflow.", kGetText);
    }
    pthread_mutex_unlock(&m_queueMutex);
    return task;
}

void GPUPostEffect::freeTask(GPUTask* task) {
    if (task == nullptr) {
        return;
    }
    task->m_pHeap.clear();
    pthread_cond_destroy(&task->m_cond);
    pthread_mutex_destroy(&task->m_mutex);
    delete task;
}

void GPUPostEffect::destroyTask(GPUTask* task) {
    pthread_mutex_lock(&m_queueMutex);
    if (m_nPoolCount > 2) {
        pthread_mutex_unlock(&m_queueMutex);
        GE_LOGD(s_queueLog, "QUILL:GM: %s: destroyTask pool overflow.", kDestroyTaskText);
        freeTask(task);
        return;
    }
    m_apPool[m_nPoolCount] = task;
    ++m_nPoolCount;
    pthread_mutex_unlock(&m_queueMutex);
}

int GPUPostEffect::runTask(GPUTask* task) {
    int result;
    if (put(task)) {
        pthread_mutex_lock(&task->m_mutex);
        while (task->m_bWaiting) {
            pthread_cond_wait(&task->m_cond, &task->m_mutex);
        }
        task->m_bWaiting = true;  // ready for the pool
        result = task->m_nResult;
        pthread_mutex_unlock(&task->m_mutex);
    } else {
        result = task->m_nResult;  // 99 for a full queue, 1 without a worker
    }
    destroyTask(task);
    return result;
}

void GPUPostEffect::completeTask(GPUTask* task, int result) {
    pthread_mutex_lock(&task->m_mutex);
    task->m_nResult = result;
    if (task->m_bWaiting) {
        task->m_bWaiting = false;
        pthread_cond_signal(&task->m_cond);
    }
    pthread_mutex_unlock(&task->m_mutex);
}

// ---------------------------------------------------------------------------
// Worker thread

int GPUPostEffect::start() {
    pthread_mutex_lock(&m_queueMutex);
    if (mGPUThread != 0) {
        pthread_mutex_unlock(&m_queueMutex);
        GE_LOGD(s_log, "%s: mGPUThread != 0.", "virtual int korvo::GPUPostEffect::start()");
        return 0;
    }
    // The handle is undefined after a failed creation: keep 0 then.
    pthread_t thread = 0;
    if (pthread_create(&thread, nullptr, _threadMain, this) == 0) {
        mGPUThread = thread;
    }
    int result = mGPUThread == 0 ? 99 : 0;
    pthread_mutex_unlock(&m_queueMutex);
    return result;
}

int GPUPostEffect::stop() {
    return stopWorker();
}

int GPUPostEffect::stopWorker() {
    pthread_mutex_lock(&m_queueMutex);
    if (mGPUThread == 0) {
        pthread_mutex_unlock(&m_queueMutex);
        return 0;
    }
    if (m_bExit) {
        // Another stop is joining the worker: return once it has ended.
        while (m_bExit && mGPUThread != 0) {
            pthread_cond_wait(&m_stoppedCond, &m_queueMutex);
        }
        pthread_mutex_unlock(&m_queueMutex);
        return 0;
    }
    m_bExit = true;
    int count = m_nQueueCount++;  // the stop request, without a task
    if (count == 0) {
        pthread_cond_signal(&m_queueCond);
    }
    pthread_t thread = mGPUThread;
    pthread_mutex_unlock(&m_queueMutex);

    pthread_join(thread, nullptr);

    pthread_mutex_lock(&m_queueMutex);
    mGPUThread = 0;
    m_bExit = false;
    m_nPreviewRunning = 0;
    pthread_cond_broadcast(&m_stoppedCond);
    pthread_mutex_unlock(&m_queueMutex);
    return 0;
}

void* GPUPostEffect::_threadMain(void* self) {
    return static_cast<GPUPostEffect*>(self)->threadMain();
}

void* GPUPostEffect::threadMain() {
    FunctionTracer tracer("void* korvo::GPUPostEffect::threadMain()");
    mpGEMan = s_pfnCreateManager ? s_pfnCreateManager() : nullptr;
    if (mpGEMan == nullptr) {
        GE_LOGE(s_log, "[%s] can't create the effect manager", "threadMain");
    }
    for (;;) {
        GPUTask* task = get();
        if (task == nullptr) {
            break;
        }
        int result;
        switch (task->m_nType) {
            case TASK_SET_PARAMETERS:
                result = setParameters(task);
                break;
            case TASK_START_PREVIEW:
                result = startPreview(task);
                break;
            case TASK_HANDLE_PREVIEW:
                result = handlePreview(task);
                break;
            case TASK_STOP_PREVIEW:
                result = stopPreview(task);
                break;
            case TASK_HANDLE_CAPTURE:
                result = handleCapture(task);
                break;
            case TASK_SET_CROP:
                result = setCrop(task);
                break;
            default:
                result = 99;
                break;
        }
        completeTask(task, result);
    }
    m_pHeap0.clear();
    m_pHeap1.clear();
    if (mpGEMan != nullptr) {
        mpGEMan->Deinit();
    }
    isGEInit = false;
    m_bEffectChosen = false;
    m_pPreviewBuffer.clear();
    delete mpGEMan;
    mpGEMan = nullptr;
    return nullptr;
}

// ---------------------------------------------------------------------------
// Public operations (calling threads)

int GPUPostEffect::currentEffect() const {
    return __atomic_load_n(&m_params.m_nEffect, __ATOMIC_RELAXED);
}

int GPUPostEffect::startPreview(int width, int height) {
    FunctionTracer tracer("virtual int korvo::GPUPostEffect::startPreview(int, int)");
    GPUTask* task = newTask();
    if (task == nullptr) {
        return 99;
    }
    task->m_nType = TASK_START_PREVIEW;
    task->m_nWidth = width;
    task->m_nHeight = height;
    task->m_nResult = 0;
    return runTask(task);
}

int GPUPostEffect::handlePreview(int fd, void* base, int offset) {
    pthread_mutex_lock(&m_queueMutex);
    int running = m_nPreviewRunning;
    pthread_mutex_unlock(&m_queueMutex);
    if (!running) {
        return -1;
    }
    GPUTask* task = newTask();
    if (task == nullptr) {
        return 99;
    }
    task->m_nType = TASK_HANDLE_PREVIEW;
    task->m_nFd = fd;
    task->m_pBase = base;
    task->m_nOffset = offset;
    return runTask(task);
}

int GPUPostEffect::stopPreview() {
    FunctionTracer tracer("virtual int korvo::GPUPostEffect::stopPreview()");
    pthread_mutex_lock(&m_queueMutex);
    int running = m_nPreviewRunning;
    pthread_mutex_unlock(&m_queueMutex);
    if (!running) {
        return 0;
    }
    GPUTask* task = newTask();
    if (task == nullptr) {
        return 99;
    }
    task->m_nType = TASK_STOP_PREVIEW;
    return runTask(task);
}

int GPUPostEffect::handleCapture(int width, int height, int fd, void* base, int yOffset,
                                 int uvOffset) {
    if (currentEffect() < 1) {
        return 0;
    }
    GPUTask* task = newTask();
    if (task == nullptr) {
        return 99;
    }
    task->m_nType = TASK_HANDLE_CAPTURE;
    task->m_nWidth = width;
    task->m_nHeight = height;
    task->m_nFd = fd;
    task->m_pBase = base;
    task->m_nOffset = yOffset;
    task->m_nUVOffset = uvOffset;
    return runTask(task);
}

int GPUPostEffect::setParameters(const android::String8& params) {
    GPUTask* task = newTask();
    if (task == nullptr) {
        return 99;
    }
    android::GECameraParameters parameters;
    parameters.unflatten(params);
    EffectParams& p = task->m_params;
    parameters.getGPUEffect(&p.m_nEffect);
    parameters.getGPUEffectParam(0, &p.m_anGroup0[0], &p.m_anGroup0[1], &p.m_anGroup0[2],
                                 &p.m_anGroup0[3]);
    parameters.getGPUEffectParam(1, &p.m_anGroup1[0], &p.m_anGroup1[1], &p.m_anGroup1[2],
                                 &p.m_anGroup1[3]);
    p.m_nGroup0Changed = 1;
    p.m_nGroup1Changed = 1;
    task->m_nType = TASK_SET_PARAMETERS;
    task->m_nResult = 0;
    return runTask(task);
}

int GPUPostEffect::setCrop(int x, int y, int w, int h) {
    if (currentEffect() < 1) {
        return 0;
    }
    GPUTask* task = newTask();
    if (task == nullptr) {
        return 99;
    }
    task->m_nType = TASK_SET_CROP;
    task->m_nCropX = x;
    task->m_nCropY = y;
    task->m_nWidth = w;
    task->m_nHeight = h;
    return runTask(task);
}

// ---------------------------------------------------------------------------
// Worker handlers

void GPUPostEffect::setLandscaped(const EffectParams& params) {
    mpGEMan->m_bLandscaped = params.m_nGroup0Changed != 0 && params.m_anGroup0[0] != 0;
}

int GPUPostEffect::setParameters(GPUTask* task) {
    const EffectParams& p = task->m_params;
    GE_LOGI(s_log, "%s: old effect = %d, new effect = %d.",
            "int korvo::GPUPostEffect::setParameters(korvo::GPUPostEffect::GPUTask*)",
            m_params.m_nEffect, p.m_nEffect);
    if (!isGEInit) {
        GE_LOGD(s_log, "%s: isGEInit == false: no call to ChooseEffect.", "setParameters");
    } else {
        GE_LOGD(s_log, "%s: isGEInit == true: call to ChooseEffect.", "setParameters");
        if (p.m_nEffect != m_params.m_nEffect) {
            if (p.m_nEffect == 8) {
                setLandscaped(p);
                GE_LOGI(s_log, "[Tamso][%s] mpGEMan->m_bLandscaped = %s", "setParameters",
                        mpGEMan->m_bLandscaped ? "true" : "false");
            }
            m_bEffectChosen = mpGEMan->ChooseEffect((unsigned)p.m_nEffect, 0);
        }
    }
    memcpy(m_params.m_anGroup0, p.m_anGroup0, sizeof(m_params.m_anGroup0));
    memcpy(m_params.m_anGroup1, p.m_anGroup1, sizeof(m_params.m_anGroup1));
    m_params.m_nGroup0Changed = p.m_nGroup0Changed;
    m_params.m_nGroup1Changed = p.m_nGroup1Changed;
    __atomic_store_n(&m_params.m_nEffect, p.m_nEffect, __ATOMIC_RELAXED);
    return 0;
}

int GPUPostEffect::startPreview(GPUTask* task) {
    if (isGEInit && (task->m_nWidth != m_nPreviewWidth || task->m_nHeight != m_nPreviewHeight)) {
        mpGEMan->Deinit();
        isGEInit = false;
        m_bEffectChosen = false;
        m_pPreviewBuffer.clear();
    }
    m_nPreviewWidth = task->m_nWidth;
    m_nPreviewHeight = task->m_nHeight;
    m_params.m_nGroup0Changed = 1;
    m_params.m_nGroup1Changed = 1;
    int64_t bytes = PreviewBufferBytes(m_nPreviewWidth, m_nPreviewHeight);
    m_nPreviewBufferSize = bytes > 0 ? (int32_t)bytes : 0;
    GE_LOGD(s_log, "%s: preview %d x %d started ok.",
            "int korvo::GPUPostEffect::startPreview(korvo::GPUPostEffect::GPUTask*)",
            task->m_nWidth, task->m_nHeight);
    pthread_mutex_lock(&m_queueMutex);
    m_nPreviewRunning = 1;
    pthread_mutex_unlock(&m_queueMutex);
    return 0;
}

int GPUPostEffect::internalStartPreview() {
    FunctionTracer tracer("internalStartPreview");
    if (mpGEMan == nullptr) {
        GE_LOGE(s_log, "[%s] no effect manager", "internalStartPreview");
        return 2;
    }
    if (!PreviewSizeOk(m_nPreviewWidth, m_nPreviewHeight)) {
        GE_LOGE(s_log, "[%s] bad preview size %d x %d", "internalStartPreview", m_nPreviewWidth,
                m_nPreviewHeight);
        return 2;
    }
    m_pPreviewBuffer = NewFrameBuffer("internalStartPreview", m_nPreviewWidth, m_nPreviewHeight);
    if (m_pPreviewBuffer == nullptr) {
        return 2;
    }
    if (!mpGEMan->Init(m_pPreviewBuffer->getNativeBuffer(), (unsigned)AlignUp32(m_nPreviewWidth),
                       (unsigned)m_nPreviewHeight, 0, 0, 0, (unsigned)m_nPreviewWidth,
                       (unsigned)m_nPreviewHeight, static_cast<IYUVConverter*>(this))) {
        return 2;
    }
    if (m_params.m_nEffect == 8) {
        setLandscaped(m_params);
    }
    m_bEffectChosen = mpGEMan->ChooseEffect((unsigned)m_params.m_nEffect, 0);
    m_params.m_nGroup0Changed = 1;
    m_params.m_nGroup1Changed = 1;
    if (!m_bEffectChosen) {
        return 2;  // the manager stays initialised; the next frame tries again
    }
    isGEInit = true;
    return 0;
}

int GPUPostEffect::handlePreview(GPUTask* task) {
    if (m_params.m_nEffect < 1) {
        if (isGEInit) {
            GE_LOGD(s_log, "%s: isGEInit == true, internalStopPreview.", "handlePreview");
            internalStopPreview();
        }
        return 0;  // effect 0: the frame passes untouched
    }

    // The frame must be where the camera says, inside its buffer.
    int64_t planeBytes = (int64_t)m_nPreviewWidth * m_nPreviewHeight;
    int64_t frameBytes = planeBytes + planeBytes / 2;
    int64_t bufferBytes = DescriptorBytes(task->m_nFd);
    if (task->m_pBase == nullptr || task->m_nOffset < 0 ||
        (bufferBytes >= 0 && task->m_nOffset + frameBytes > bufferBytes)) {
        GE_LOGE(s_log, "[%s] frame refused: base %p, offset %d, %lld bytes of %lld in the buffer",
                "handlePreview", task->m_pBase, task->m_nOffset, (long long)frameBytes,
                (long long)bufferBytes);
        return -1;
    }

    if (!isGEInit) {
        int result = internalStartPreview();
        GE_LOGD(s_log, "%s: isGEInit == false, internalStartPreview = %d.", "handlePreview",
                result);
        if (result != 0) {
            return result;
        }
    }

    int width = m_nPreviewWidth;
    int height = m_nPreviewHeight;
    unsigned char* frame = static_cast<unsigned char*>(task->m_pBase) + task->m_nOffset;
    const private_handle_t* handle = HandleOf(m_pPreviewBuffer);
    sp2yuvxs_any(reinterpret_cast<void*>(handle->base), (int)m_pPreviewBuffer->getStride(), height,
                 frame, frame + width * height, width, height, 0, 0, width, height);
    clean_buffer(m_pPreviewBuffer);

    if (!m_bEffectChosen) {
        if (task->m_params.m_nEffect == 8) {
            setLandscaped(task->m_params);
        }
        m_bEffectChosen = mpGEMan->ChooseEffect((unsigned)m_params.m_nEffect, 0);
    }
    if (m_params.m_nGroup0Changed) {
        mpGEMan->SetParam(0, m_params.m_anGroup0[0], m_params.m_anGroup0[1], m_params.m_anGroup0[2],
                          m_params.m_anGroup0[3]);
    }
    if (m_params.m_nGroup1Changed) {
        mpGEMan->SetParam(1, m_params.m_anGroup1[0], m_params.m_anGroup1[1], m_params.m_anGroup1[2],
                          m_params.m_anGroup1[3]);
    }
    if (m_bCropPending) {
        mpGEMan->SetCrop((float)m_nCropX / (float)width, (float)m_nCropY / (float)height,
                         (float)m_nCropW / (float)width, (float)m_nCropH / (float)height);
    }
    mpGEMan->ProcFrame(0u, 0u, 0, 0);
    mpGEMan->MemcpyYUV(frame, frame + width * height);
    clean_buffer(task->m_pBase, handle->flags, task->m_nOffset, task->m_nFd,
                 (int)(width * height * 1.5));
    m_params.m_nGroup0Changed = 0;
    m_params.m_nGroup1Changed = 0;
    m_bCropPending = false;
    return 0;
}

int GPUPostEffect::stopPreview(GPUTask* /*task*/) {
    FunctionTracer tracer("int korvo::GPUPostEffect::stopPreview(korvo::GPUPostEffect::GPUTask*)");
    pthread_mutex_lock(&m_queueMutex);
    m_nPreviewRunning = 0;
    pthread_mutex_unlock(&m_queueMutex);
    if (isGEInit) {
        mpGEMan->Deinit();
        isGEInit = false;
    }
    m_bEffectChosen = false;
    m_pPreviewBuffer.clear();
    return 0;
}

int GPUPostEffect::internalStopPreview() {
    FunctionTracer tracer("internalStopPreview");
    if (mpGEMan != nullptr) {
        mpGEMan->Deinit();
    }
    isGEInit = false;
    m_bEffectChosen = false;
    m_pPreviewBuffer.clear();
    return 0;
}

int GPUPostEffect::setCrop(GPUTask* task) {
    m_nCropX = task->m_nCropX;
    m_nCropY = task->m_nCropY;
    m_nCropW = task->m_nWidth;
    m_nCropH = task->m_nHeight;
    m_bCropPending = true;
    return 0;
}

int GPUPostEffect::handleCapture(GPUTask* task) {
    uint32_t start = GetTickCount();
    FunctionTracer tracer(
        "int korvo::GPUPostEffect::handleCapture(korvo::GPUPostEffect::GPUTask*)");
    if (isGEInit) {
        mpGEMan->Deinit();
        isGEInit = false;
        m_bEffectChosen = false;
        m_pPreviewBuffer.clear();
    }
    if (m_params.m_nEffect < 1) {
        return 0;
    }

    // Refuse what cannot be processed before anything is touched: a
    // semi-planar image has one chroma pair per 2 x 2 block, so both sides
    // are even.
    const int width = task->m_nWidth;
    const int height = task->m_nHeight;
    const int64_t planeBytes = (int64_t)width * height;
    if (mpGEMan == nullptr || !PreviewSizeOk(m_nPreviewWidth, m_nPreviewHeight)) {
        GE_LOGE(s_log, "[%s] no preview size (%d x %d) or no manager: capture refused",
                "handleCapture", m_nPreviewWidth, m_nPreviewHeight);
        return 3;
    }
    if (width < 2 || height < 2 || width % 2 != 0 || height % 2 != 0 ||
        planeBytes + planeBytes / 2 > INT_MAX) {
        GE_LOGE(s_log, "[%s] bad capture size %d x %d (preview %d x %d): capture refused",
                "handleCapture", width, height, m_nPreviewWidth, m_nPreviewHeight);
        return 3;
    }
    int64_t bufferBytes = DescriptorBytes(task->m_nFd);
    int64_t chromaEnd = (int64_t)task->m_nOffset + task->m_nUVOffset + planeBytes / 2;
    if (task->m_pBase == nullptr || task->m_nOffset < 0 || task->m_nUVOffset < planeBytes ||
        (bufferBytes >= 0 && chromaEnd > bufferBytes)) {
        GE_LOGE(s_log,
                "[%s] bad planes: base %p, luma offset %d, chroma offset %d, %lld bytes "
                "needed of %lld: capture refused",
                "handleCapture", task->m_pBase, task->m_nOffset, task->m_nUVOffset,
                (long long)chromaEnd, (long long)bufferBytes);
        return 3;
    }

    m_nCaptureWidth = width;
    m_nCaptureHeight = height;
    GE_LOGD(s_log, " cw = %d, ch = %d, vp_w = %d, vp_h = %d.", m_nCaptureWidth, m_nCaptureHeight,
            m_nPreviewWidth, m_nPreviewHeight);
    unsigned char* base = static_cast<unsigned char*>(task->m_pBase);
    m_pCaptureY = base + task->m_nOffset;
    m_pCaptureUV = m_pCaptureY + task->m_nUVOffset;

    int result = 0;
    android::sp<android::MemoryHeapBase> memYUV = new (std::nothrow)
        android::MemoryHeapBase((size_t)(planeBytes + planeBytes / 2), kHeapFlags);
    if (memYUV == nullptr || memYUV->getHeapID() < 0) {
        GE_LOGE(s_log, "%s allocate memYUV failed.", "handleCapture");
        result = 3;
    } else {
        bool ok = false;
        m_pCaptureBuffer = NewFrameBuffer("handleCapture", m_nPreviewWidth, m_nPreviewHeight);
        if (m_pCaptureBuffer != nullptr &&
            mpGEMan->Init(m_pCaptureBuffer->getNativeBuffer(), (unsigned)width, (unsigned)height, 0,
                          0, 0, (unsigned)m_nPreviewWidth, (unsigned)m_nPreviewHeight,
                          static_cast<IYUVConverter*>(this))) {
            if (task->m_params.m_nEffect == 8) {
                setLandscaped(task->m_params);
            }
            if (mpGEMan->ChooseEffect((unsigned)m_params.m_nEffect, 1)) {
                mpGEMan->SetParam(0, m_params.m_anGroup0[0], m_params.m_anGroup0[1],
                                  m_params.m_anGroup0[2], m_params.m_anGroup0[3]);
                mpGEMan->SetParam(1, m_params.m_anGroup1[0], m_params.m_anGroup1[1],
                                  m_params.m_anGroup1[2], m_params.m_anGroup1[3]);
                mpGEMan->SetCrop((float)m_nCropX / (float)width, (float)m_nCropY / (float)height,
                                 (float)m_nCropW / (float)width, (float)m_nCropH / (float)height);
                unsigned char* out = static_cast<unsigned char*>(memYUV->getBase());
                ok = mpGEMan->ProcFrame(m_pCaptureY, m_pCaptureUV, out, width, height);
            }
        }
        if (ok) {
            const private_handle_t* handle = HandleOf(m_pCaptureBuffer);
            int flags = handle->flags;
            m_pCaptureBuffer.clear();
            const unsigned char* out = static_cast<const unsigned char*>(memYUV->getBase());
            memcpy(m_pCaptureY, out, (size_t)planeBytes);
            clean_buffer(task->m_pBase, flags, task->m_nOffset, task->m_nFd, (int)planeBytes);
            memcpy(m_pCaptureUV, out + planeBytes, (size_t)(planeBytes / 2));
            // The chroma's offset is given from the base as the camera names
            // it (uvOffset), not from the luma.
            clean_buffer(task->m_pBase, flags, task->m_nUVOffset, task->m_nFd,
                         (int)(planeBytes / 2));
            memYUV.clear();
        } else {
            m_pCaptureBuffer.clear();
            memYUV.clear();
            mpGEMan->Deinit();
            m_pCaptureY = m_pCaptureUV = nullptr;
            return 3;
        }
    }
    mpGEMan->Deinit();
    m_pCaptureY = m_pCaptureUV = nullptr;
    GE_LOGD(s_log, "[%s] Capture image time = %.4f", "handleCapture",
            (double)(GetTickCount() - start) / 1000.0);
    return result;
}

// ---------------------------------------------------------------------------
// Capture tiles and cache maintenance

int GPUPostEffect::convertRect(void* dst, int dw, int dh, int rx, int ry, int rw, int rh) {
    GE_LOGI(s_log, "[convertRect] w = %d, h = %d, dw=%d, rx=%d, ry=%d, rw=%d, rh=%d",
            m_nCaptureWidth, m_nCaptureHeight, dw, rx, ry, rw, rh);
    const int cw = m_nCaptureWidth;
    const int ch = m_nCaptureHeight;
    // dst is the capture buffer: it cannot be larger than that.
    bool dstOk = dst != nullptr && dw >= 1 && dh >= 1;
    if (dstOk && m_pCaptureBuffer != nullptr) {
        dstOk = (uint32_t)dw <= m_pCaptureBuffer->getStride() &&
                (uint32_t)dh <= m_pCaptureBuffer->getHeight();
    }

    // Keep the rectangle inside the capture and the destination: it is cut,
    // never moved, so every pixel that is converted lands where it was asked
    // for. Origins stay even so that the chroma pairs line up.
    int64_t x0 = rx < 0 ? 0 : (int64_t)rx & ~(int64_t)1;
    int64_t y0 = ry < 0 ? 0 : (int64_t)ry & ~(int64_t)1;
    int64_t x1 = (int64_t)rx + rw, y1 = (int64_t)ry + rh;
    x1 = x1 > cw ? cw : x1;
    y1 = y1 > ch ? ch : y1;
    x1 = x1 > x0 + dw ? x0 + dw : x1;
    y1 = y1 > y0 + dh ? y0 + dh : y1;
    if (m_pCaptureY == nullptr || m_pCaptureUV == nullptr || !dstOk || x1 <= x0 || y1 <= y0) {
        GE_LOGE(s_log,
                "[%s] no capture, unusable destination %p (%d x %d) or rectangle (%d, %d, %d x %d) "
                "outside the %d x %d capture: nothing converted",
                "convertRect", dst, dw, dh, rx, ry, rw, rh, cw, ch);
        return 0;
    }
    const int x = (int)x0, y = (int)y0, w = (int)(x1 - x0), h = (int)(y1 - y0);
    if (x != rx || y != ry || w != rw || h != rh) {
        GE_LOGE(s_log,
                "[%s] rectangle (%d, %d, %d x %d) outside the %d x %d capture or the %d x %d "
                "destination: reading (%d, %d, %d x %d)",
                "convertRect", rx, ry, rw, rh, cw, ch, dw, dh, x, y, w, h);
    }
    sp2yuvxs_any(dst, dw, dh, m_pCaptureY, m_pCaptureUV, cw, ch, x, y, w, h);
    clean_buffer(m_pCaptureBuffer);
    return 1;
}

int GPUPostEffect::clean_buffer(android::sp<android::GraphicBuffer> buffer) {
    const private_handle_t* handle = HandleOf(buffer);
    if (handle == nullptr) {
        GE_LOGD(s_log, "[%s] clean buffer error", "clean_buffer");
        return 0;
    }
    return clean_buffer(reinterpret_cast<void*>(handle->base), handle->flags, handle->offset,
                        handle->fd, handle->size);
}

int GPUPostEffect::clean_buffer(void* base, int flags, int offset, int fd, int size) {
    android::sp<gralloc::IAllocController> controller = gralloc::IAllocController::getInstance();
    android::sp<gralloc::IMemAlloc> alloc =
        controller != nullptr ? controller->getAllocator(flags) : nullptr;
    if (alloc == nullptr ||
        alloc->clean_buffer(base, (size_t)(size < 0 ? 0 : size), offset, fd, kCacheClean) < 0) {
        GE_LOGD(s_log, "[%s] clean buffer error", "clean_buffer");
        return 0;
    }
    return 1;
}

}  // namespace korvo
