// The camera-service side of the plug-in: loads libposteffect.so, makes
// camera buffers in shared memory and drives one IPostEffect through the
// camera's sequence of calls.
#ifndef POSTEFFECT_TOOLS_HARNESS_H
#define POSTEFFECT_TOOLS_HARNESS_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "IPostEffect.h"
#include "yuv.h"

// The plug-in library, opened with dlopen; createPostEffect and
// destroyPostEffect found with dlsym.
class PostEffectLibrary {
public:
    PostEffectLibrary() = default;
    ~PostEffectLibrary();
    bool Open(const std::string& path, std::string* pErr);
    void Close();
    IPostEffect* Create() const;
    void Destroy(IPostEffect* pEffect) const;

private:
    PostEffectLibrary(const PostEffectLibrary&) = delete;
    PostEffectLibrary& operator=(const PostEffectLibrary&) = delete;

    void* m_pHandle = nullptr;
    IPostEffect* (*m_pfnCreate)() = nullptr;
    void (*m_pfnDestroy)(IPostEffect*) = nullptr;
};

// A camera buffer: anonymous shared memory with a file descriptor
// (memfd_create), mapped shared, as the camera's heaps are on the device.
class SharedBuffer {
public:
    SharedBuffer() = default;
    ~SharedBuffer();
    bool Alloc(size_t nSize, const char* szName, std::string* pErr);
    void Free();
    int Fd() const { return m_nFd; }
    uint8_t* Base() const { return m_pBase; }
    size_t Size() const { return m_nSize; }

private:
    SharedBuffer(const SharedBuffer&) = delete;
    SharedBuffer& operator=(const SharedBuffer&) = delete;

    int m_nFd = -1;
    uint8_t* m_pBase = nullptr;
    size_t m_nSize = 0;
};

// Where frames sit in the camera buffers: preview frames alternate between
// kPreviewSlots page-aligned slots of one heap (frame i at offset
// (i % kPreviewSlots) x slot size); a capture's luma follows a header page
// (yOffset) and its chroma starts at the next page boundary after the luma
// (uvOffset, counted from the luma).
const int kPreviewSlots = 2;
const size_t kPage = 4096;
const int kCaptureYOffset = int(kPage);
inline size_t PageAlign(size_t n) {
    return (n + kPage - 1) & ~(kPage - 1);
}
inline int CaptureUVOffset(int nWidth, int nHeight) {
    return int(PageAlign(size_t(nWidth) * nHeight));
}
inline size_t CaptureHeapBytes(int nWidth, int nHeight) {
    return size_t(kCaptureYOffset) + size_t(CaptureUVOffset(nWidth, nHeight)) +
           size_t(nWidth) * nHeight / 2;
}

struct RunConfig {
    std::string m_strParams;                // the camera parameter string
    const NV21Frame* m_pPreview = nullptr;  // the scene as a preview frame
    const NV21Frame* m_pCapture = nullptr;  // the scene as a still capture; may be null
    int m_nFrames = 5;                      // preview frames, at least 1
    bool m_bCrop = false;                   // setCrop after the first preview frame
    int m_anCrop[4] = {0, 0, 0, 0};         // x, y, w, h
};

struct RunResult {
    // The sequence reached the capture (false when the preview did not come
    // up and the effect was skipped, or start failed).
    bool m_bRan = false;
    std::string m_strNote;  // why it was skipped, or what went wrong
    int m_nStartResult = 0;
    int m_nSetParametersResult = 0;
    int m_nStartPreviewResult = 0;
    std::vector<int> m_vPreviewResults;
    int m_nCropResult = 0;
    int m_nCaptureResult = 0;
    int m_nStopPreviewResult = 0;
    int m_nStopResult = 0;
    double m_dFirstPreviewMs = 0;  // the first frame (brings the effect up)
    double m_dPreviewMeanMs = -1;  // mean of the later frames; -1 with one frame
    double m_dCaptureMs = -1;      // -1 when no capture ran
    NV21Frame m_preview;           // the last preview frame as the plug-in left it
    NV21Frame m_capture;           // the capture as the plug-in left it
};

// createPostEffect, start, setParameters, startPreview, handlePreview for each
// frame (setCrop after the first when asked), handleCapture, stopPreview,
// stop, destroyPostEffect. A first preview frame that does not return 0
// ends the run early (the effect did not come up): the plug-in is still
// stopped and destroyed. False only when the harness itself failed
// (no plug-in object, no shared memory).
bool RunEffect(const PostEffectLibrary& lib, const RunConfig& config, RunResult* pResult,
               std::string* pErr);

#endif
