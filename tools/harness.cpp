#include "harness.h"

#include <dlfcn.h>
#include <errno.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>

namespace {

double NowMs() {
    using namespace std::chrono;
    return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
}

void SetErr(std::string* pErr, const std::string& msg) {
    if (pErr) {
        *pErr = msg;
    }
}

void AddNote(RunResult* pResult, const std::string& note) {
    if (!pResult->m_strNote.empty()) {
        pResult->m_strNote += "; ";
    }
    pResult->m_strNote += note;
}

// The preview frames, each copied into the next slot of the heap as the
// camera does and handed over; setCrop after the first. False when the first
// frame did not come up.
bool RunPreview(IPostEffect* pEffect, const RunConfig& config, const SharedBuffer& heap,
                RunResult* pResult) {
    const NV21Frame& preview = *config.m_pPreview;
    const size_t nBytes = preview.m_vData.size();
    const int nFrames = config.m_nFrames < 1 ? 1 : config.m_nFrames;
    double dLaterMs = 0;
    int nOffset = 0;
    for (int i = 0; i < nFrames; ++i) {
        nOffset = int(PageAlign(nBytes)) * (i % kPreviewSlots);
        memcpy(heap.Base() + nOffset, preview.m_vData.data(), nBytes);
        const double t0 = NowMs();
        const int rc = pEffect->handlePreview(heap.Fd(), heap.Base(), nOffset);
        const double dt = NowMs() - t0;
        pResult->m_vPreviewResults.push_back(rc);
        if (i > 0) {
            dLaterMs += dt;
            if (rc != 0) {
                AddNote(pResult, "frame " + std::to_string(i + 1) + ": handlePreview returned " +
                                     std::to_string(rc));
            }
            continue;
        }
        pResult->m_dFirstPreviewMs = dt;
        if (rc != 0) {
            AddNote(pResult,
                    "preview did not come up (handlePreview returned " + std::to_string(rc) + ")");
            return false;
        }
        if (config.m_bCrop) {
            pResult->m_nCropResult = pEffect->setCrop(config.m_anCrop[0], config.m_anCrop[1],
                                                      config.m_anCrop[2], config.m_anCrop[3]);
        }
    }
    if (nFrames > 1) {
        pResult->m_dPreviewMeanMs = dLaterMs / (nFrames - 1);
    }
    pResult->m_preview.Resize(preview.m_nWidth, preview.m_nHeight);
    memcpy(pResult->m_preview.m_vData.data(), heap.Base() + nOffset, nBytes);
    return true;
}

// The capture: luma at yOffset, chroma at uvOffset past it, handed over; the
// result is what the plug-in left there.
void RunCapture(IPostEffect* pEffect, const NV21Frame& capture, const SharedBuffer& heap,
                RunResult* pResult) {
    const int w = capture.m_nWidth;
    const int h = capture.m_nHeight;
    const size_t nLuma = size_t(w) * h;
    const int nUVOffset = CaptureUVOffset(w, h);
    uint8_t* pY = heap.Base() + kCaptureYOffset;
    memcpy(pY, capture.Luma(), nLuma);
    memcpy(pY + nUVOffset, capture.Chroma(), nLuma / 2);
    const double t0 = NowMs();
    pResult->m_nCaptureResult =
        pEffect->handleCapture(w, h, heap.Fd(), heap.Base(), kCaptureYOffset, nUVOffset);
    pResult->m_dCaptureMs = NowMs() - t0;
    if (pResult->m_nCaptureResult != 0) {
        AddNote(pResult, "handleCapture returned " + std::to_string(pResult->m_nCaptureResult));
    }
    pResult->m_capture.Resize(w, h);
    memcpy(pResult->m_capture.Luma(), pY, nLuma);
    memcpy(pResult->m_capture.Chroma(), pY + nUVOffset, nLuma / 2);
}

}  // namespace

PostEffectLibrary::~PostEffectLibrary() {
    Close();
}

bool PostEffectLibrary::Open(const std::string& path, std::string* pErr) {
    Close();
    void* h = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!h) {
        const char* why = dlerror();
        SetErr(pErr, std::string("cannot load ") + path + ": " + (why ? why : "unknown error"));
        return false;
    }
    void* pCreate = dlsym(h, "createPostEffect");
    void* pDestroy = dlsym(h, "destroyPostEffect");
    if (!pCreate || !pDestroy) {
        SetErr(pErr, path + " does not export createPostEffect and destroyPostEffect");
        dlclose(h);
        return false;
    }
    m_pHandle = h;
    m_pfnCreate = reinterpret_cast<IPostEffect* (*)()>(pCreate);
    m_pfnDestroy = reinterpret_cast<void (*)(IPostEffect*)>(pDestroy);
    return true;
}

void PostEffectLibrary::Close() {
    if (m_pHandle) {
        dlclose(m_pHandle);
    }
    m_pHandle = nullptr;
    m_pfnCreate = nullptr;
    m_pfnDestroy = nullptr;
}

IPostEffect* PostEffectLibrary::Create() const {
    return m_pfnCreate ? m_pfnCreate() : nullptr;
}

void PostEffectLibrary::Destroy(IPostEffect* pEffect) const {
    if (m_pfnDestroy) {
        m_pfnDestroy(pEffect);
    }
}

SharedBuffer::~SharedBuffer() {
    Free();
}

bool SharedBuffer::Alloc(size_t nSize, const char* szName, std::string* pErr) {
    Free();
    const size_t nMapped = PageAlign(nSize);
    const int fd = memfd_create(szName, MFD_CLOEXEC);
    if (fd < 0) {
        SetErr(pErr, std::string("memfd_create: ") + strerror(errno));
        return false;
    }
    if (ftruncate(fd, off_t(nMapped)) != 0) {
        SetErr(pErr, std::string("ftruncate: ") + strerror(errno));
        close(fd);
        return false;
    }
    void* p = mmap(nullptr, nMapped, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (p == MAP_FAILED) {
        SetErr(pErr, std::string("mmap: ") + strerror(errno));
        close(fd);
        return false;
    }
    m_nFd = fd;
    m_pBase = static_cast<uint8_t*>(p);
    m_nSize = nMapped;
    return true;
}

void SharedBuffer::Free() {
    if (m_pBase) {
        munmap(m_pBase, m_nSize);
    }
    if (m_nFd >= 0) {
        close(m_nFd);
    }
    m_nFd = -1;
    m_pBase = nullptr;
    m_nSize = 0;
}

bool RunEffect(const PostEffectLibrary& lib, const RunConfig& config, RunResult* pResult,
               std::string* pErr) {
    *pResult = RunResult();
    const NV21Frame* pCapture = config.m_pCapture;
    SharedBuffer previewHeap;
    SharedBuffer captureHeap;
    if (!previewHeap.Alloc(PageAlign(config.m_pPreview->m_vData.size()) * kPreviewSlots,
                           "posteffect-preview", pErr) ||
        (pCapture && !captureHeap.Alloc(CaptureHeapBytes(pCapture->m_nWidth, pCapture->m_nHeight),
                                        "posteffect-capture", pErr))) {
        return false;
    }
    IPostEffect* pEffect = lib.Create();
    if (!pEffect) {
        SetErr(pErr, "createPostEffect returned no object");
        return false;
    }
    pResult->m_nStartResult = pEffect->start();
    if (pResult->m_nStartResult != 0) {
        AddNote(pResult, "start returned " + std::to_string(pResult->m_nStartResult));
    } else {
        pResult->m_nSetParametersResult =
            pEffect->setParameters(android::String8(config.m_strParams.c_str()));
        pResult->m_nStartPreviewResult =
            pEffect->startPreview(config.m_pPreview->m_nWidth, config.m_pPreview->m_nHeight);
        pResult->m_bRan = RunPreview(pEffect, config, previewHeap, pResult);
        if (pResult->m_bRan && pCapture) {
            RunCapture(pEffect, *pCapture, captureHeap, pResult);
        }
        pResult->m_nStopPreviewResult = pEffect->stopPreview();
    }
    pResult->m_nStopResult = pEffect->stop();
    lib.Destroy(pEffect);
    return true;
}
