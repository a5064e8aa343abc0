// The plug-in front: the IPostEffect the camera service drives.
//
// Every public operation that needs the GPU becomes a GPUTask, is put on a
// queue of at most two waiting tasks and runs on the one worker thread, which
// owns the EGL context and the effect manager; the calling thread blocks
// until the worker has run its task and returns the task's result:
//
//   0   done (or nothing to do)
//   1   cancelled: the worker is stopping, or none is running
//   2   the effect manager could not be brought up for preview
//   3   the capture could not be processed (also: a capture refused for its
//       sizes or planes; the camera's planes are then left untouched)
//   99  refused by a full queue, or an unknown task type; from start(), the
//       thread did not start
//   -1  handlePreview while no preview runs, or a frame refused (null base,
//       negative offset, a buffer too small for the frame)
//
// Locks: the queue mutex (queue, pool, exit flag, worker handle, preview
// running) and one mutex per task (waiting, result); where both are held the
// queue mutex comes first. The worker alone touches the manager, the GL and
// EGL state, the graphics buffers and the current parameters.
#ifndef POSTEFFECT_PLUGIN_GPUPOSTEFFECT_H
#define POSTEFFECT_PLUGIN_GPUPOSTEFFECT_H

#include <binder/MemoryHeapBase.h>
#include <binder/MemoryHeapPmem.h>
#include <pthread.h>
#include <stdint.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

#include "IPostEffect.h"

class GEManager;

namespace korvo {

class GPUPostEffect : public IPostEffect, public IYUVConverter {
public:
    // What the worker is to do with a task.
    enum TaskType {
        TASK_SET_PARAMETERS = 0,
        TASK_START_PREVIEW = 1,
        TASK_HANDLE_PREVIEW = 2,
        TASK_STOP_PREVIEW = 3,
        TASK_HANDLE_CAPTURE = 4,
        TASK_SET_CROP = 5,
    };

    // The effect number with its two parameter groups and their changed
    // flags: eleven 32-bit words.
    struct EffectParams {
        int32_t m_nEffect;
        int32_t m_anGroup0[4];
        int32_t m_anGroup1[4];
        int32_t m_nGroup0Changed;
        int32_t m_nGroup1Changed;
    };

    // One unit of work of the worker. Tasks are reused from a pool without
    // being cleared: only the fields an operation sets are fresh.
    struct GPUTask {
        pthread_mutex_t m_mutex;  // guards m_bWaiting and m_nResult
        pthread_cond_t m_cond;    // signalled when the worker completes the task
        bool m_bWaiting;          // the caller may wait; true while idle in the pool
        int32_t m_nResult;
        int32_t m_nType;  // TaskType
        int32_t m_nCropX;
        int32_t m_nCropY;
        int32_t m_nWidth;   // also the crop width
        int32_t m_nHeight;  // also the crop height
        android::sp<android::MemoryHeapPmem> m_pHeap;
        int32_t m_nFd;
        void* m_pBase;
        int32_t m_nOffset;  // frame offset, or capture luma offset
        int32_t m_nUVOffset;
        EffectParams m_params;
    };

    // How the worker makes its effect manager; tests replace it with a
    // double. Default: a new GEManager.
    typedef GEManager* (*ManagerFactory)();
    static ManagerFactory s_pfnCreateManager;

    GPUPostEffect();
    // Frees the pool and the references. Stops a worker that is still
    // running (the camera must have called stop(); this only keeps a late
    // destruction from leaving a thread on freed memory).
    ~GPUPostEffect() override;

    int start() override;
    int stop() override;
    int startPreview(int width, int height) override;
    int handlePreview(int fd, void* base, int offset) override;
    int stopPreview() override;
    // A capture is refused with 3 and an error line, before anything is
    // converted, unless: a preview size was set; width and height are even
    // and at least 2; the planes' bytes fit an int; base is not null,
    // yOffset is not negative and the chroma follows the luma (uvOffset >=
    // width x height); and, when fd tells the size of its memory, both
    // planes lie inside it (base being the start of that memory). Any other
    // size is processed, whatever the preview size. Preview frames are
    // checked the same way (null base, negative offset, a frame past the end
    // of fd's memory: -1), and a preview size the pipeline cannot run (odd
    // height, a width below 16 or not a multiple of 4, a buffer too big for
    // an int) fails bring-up with 2.
    int handleCapture(int width, int height, int fd, void* base, int yOffset,
                      int uvOffset) override;
    int setParameters(const android::String8& params) override;
    int setCrop(int x, int y, int w, int h) override;

    // Converts the rectangle (rx, ry, rw, rh) of the current capture into
    // dst ("yuvx", dw pixels per row, dh rows, padded to the right and
    // downwards by repeating the rectangle's edge). Called by the effects on
    // the worker during a capture. Any size is converted exactly; a
    // rectangle that does not lie inside the capture (or does not fit dst)
    // is cut until it does, with an error line, and never moved: nothing
    // outside the camera's planes or dst is touched. 1, or 0 (with an error
    // line) when there is no capture, dst is unusable or nothing is left.
    int convertRect(void* dst, int dw, int dh, int rx, int ry, int rw, int rh) override;

    // Cache maintenance through gralloc. 1, or 0 after a failure (logged).
    static int clean_buffer(android::sp<android::GraphicBuffer> buffer);
    static int clean_buffer(void* base, int flags, int offset, int fd, int size);

private:
    friend struct GPUPostEffectPeer;  // tests

    GPUPostEffect(const GPUPostEffect&) = delete;
    GPUPostEffect& operator=(const GPUPostEffect&) = delete;

    // Queue and pool.
    GPUTask* newTask();
    bool put(GPUTask* task);
    GPUTask* get();
    void destroyTask(GPUTask* task);
    int runTask(GPUTask* task);
    void completeTask(GPUTask* task, int result);
    static void freeTask(GPUTask* task);

    // The worker.
    static void* _threadMain(void* self);
    void* threadMain();
    int stopWorker();

    // Worker handlers, one per task type.
    int setParameters(GPUTask* task);
    int startPreview(GPUTask* task);
    int handlePreview(GPUTask* task);
    int stopPreview(GPUTask* task);
    int handleCapture(GPUTask* task);
    int setCrop(GPUTask* task);
    int internalStartPreview();
    int internalStopPreview();
    // Sets the manager's landscape flag for Mirror from a parameter block.
    void setLandscaped(const EffectParams& params);
    int currentEffect() const;

    pthread_mutex_t m_queueMutex;
    pthread_cond_t m_queueCond;  // the queue went from empty to non-empty
    int32_t m_nQueueCount;
    GPUTask* m_apQueue[3];  // FIFO, slot 0 is the head
    int32_t m_nPoolCount;
    GPUTask* m_apPool[3];  // free tasks, a stack
    GEManager* mpGEMan;
    android::sp<android::GraphicBuffer> m_pPreviewBuffer;
    android::sp<android::GraphicBuffer> m_pCaptureBuffer;
    android::sp<android::GraphicBuffer> m_pSpareBuffer;
    pthread_t mGPUThread;
    bool m_bExit;
    int32_t m_nPreviewWidth;
    int32_t m_nPreviewHeight;
    int32_t m_nCaptureWidth;
    int32_t m_nCaptureHeight;
    unsigned char* m_pCaptureY;
    unsigned char* m_pCaptureUV;
    int32_t m_nPreviewBufferSize;
    android::sp<android::MemoryHeapPmem> m_pHeap0;
    android::sp<android::MemoryHeapPmem> m_pHeap1;
    int32_t m_nPreviewRunning;
    EffectParams m_params;
    bool m_bFlag0;
    bool m_bFlag1;
    bool isGEInit;
    int32_t m_nCropX;
    int32_t m_nCropY;
    int32_t m_nCropW;
    int32_t m_nCropH;
    bool m_bCropPending;

    // The manager has an effect: the last ChooseEffect succeeded and no
    // Deinit followed.
    bool m_bEffectChosen;
    // A stop() that finds another stop under way waits on this until the
    // worker has ended.
    pthread_cond_t m_stoppedCond;
};

}  // namespace korvo

#endif
