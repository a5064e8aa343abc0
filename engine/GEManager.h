// The effect manager: owns the worker thread's EGL display, context and
// 1 x 1 pbuffer, the input texture over the camera-frame buffer and the one
// current effect, and dispatches frames, parameters and crops to it.
//
// All calls come from the worker thread. Results are non-zero on success.
#ifndef POSTEFFECT_ENGINE_GEMANAGER_H
#define POSTEFFECT_ENGINE_GEMANAGER_H

#include <EGL/egl.h>
#include <stdint.h>

#include <system/window.h>

#include "IPostEffect.h"

class GEShader;
class GLTexture;
class GLFbo;

class GEManager {
public:
    // Size of the effect table; index = effect number (0 is not an effect).
    static const unsigned kEffectCount = 19;
    // The EGL config the worker asks for (RGB 565, depth 16, stencil 4,
    // window and pbuffer surfaces, OpenGL ES 2).
    static const EGLint kConfigAttribs[];

    // Brings EGL up; a failure is logged and makes later calls fail. Every
    // manager has its own context and pbuffer; the display is shared with
    // the other managers of the process, initialised by the first and
    // terminated by the last, so that any number of plug-in objects can run
    // side by side and stop in any order.
    GEManager();
    virtual ~GEManager();

    // Wraps `buffer` as the input texture of the viewport (x, y, w, h) and
    // reads the display size from "/dev/graphics/fb0" into g_Disp_Width /
    // g_Disp_Height (unchanged when the device cannot be read). texW, texH
    // and the fourth argument are unused. A second Init without Deinit
    // starts over: the effect and the old texture are deleted first.
    virtual bool Init(ANativeWindowBuffer* buffer, unsigned texW, unsigned texH, unsigned,
                      unsigned x, unsigned y, unsigned w, unsigned h, IYUVConverter* conv);
    // Deletes the effect and the input texture. Always true.
    virtual bool Deinit();
    // Replaces the current effect with a new instance of table entry `effect`,
    // for capture or preview use. A number past the table (other than 99)
    // is refused and the current effect kept; 0, 99 and entries this build
    // does not carry are refused after the current effect was deleted.
    virtual bool ChooseEffect(unsigned effect, unsigned char capture);
    // One preview frame (the plug-in passes zeros).
    virtual bool ProcFrame(unsigned, unsigned, int, int);
    // One capture (capture mode only).
    virtual bool ProcFrame(unsigned char* src, unsigned char* out, int w, int h);
    virtual bool ProcFrame(unsigned char* y, unsigned char* uv, unsigned char* out, int w, int h);
    // Group 1's first value is mapped from screen to viewport coordinates:
    // viewport w x (a - viewport x) / display width, unsigned 32-bit. With a
    // display width of 0 it is passed on unmapped (and an error logged).
    virtual int SetParam(unsigned group, int a, int b, int c, int d);
    // Forwarded to the current effect; without one it is logged and dropped.
    virtual void SetCrop(float x, float y, float w, float h);
    // Copies the converted planes of the current effect to y and uv.
    virtual bool MemcpyYUV(void* y, void* uv);
    // Counts a frame; logs the rate every two seconds. The counters, like
    // the 50-frame average of the preview ProcFrame, are this manager's own.
    virtual void FPS();

    bool m_bLandscaped;  // for Mirror, set by the plug-in

protected:
    // For test doubles of the plug-in: a manager that brings nothing up.
    struct NoEGL {};
    explicit GEManager(NoEGL);

    EGLDisplay m_eglDisplay;
    EGLConfig m_eglConfig;
    EGLSurface m_eglSurface;
    EGLContext m_eglContext;
    bool m_bEGLReady;
    bool m_bFrameReady;
    unsigned m_nEffectCount;
    bool m_bCaptureMode;
    int m_nCurrEffect;
    GEShader* m_pCurrShader;
    GEShader* m_pShaderBypass;
    GLTexture* m_pSrcTexture;
    GLFbo* m_pDstFbo;
    unsigned m_nEffectArg;
    int m_nViewportX, m_nViewportY, m_nViewportW, m_nViewportH;
    int m_nDispWidth, m_nDispHeight;
    bool m_bUnused;
    IYUVConverter* m_pConverter;
    // Frame timing.
    uint32_t m_nAvgTotalMs;
    unsigned m_nAvgFrames;
    bool m_bFPSStarted;
    uint32_t m_nFPSStartMs;
    unsigned m_nFPSFrames;

private:
    // The display's use count (GEManager.cpp): the first user initialises
    // the display; the last one terminates it. Release also takes the
    // manager out of the list behind the exported globals.
    bool AcquireDisplay();
    void ReleaseDisplay();

    // The checks every ProcFrame makes before it reaches the effect (capture:
    // also that the effect was chosen for capture), with their error lines.
    bool ReadyToProcess(bool capture);
    // The end of a capture ProcFrame: the failure line, or the time line.
    bool CaptureDone(bool ok, int w, int h, uint32_t start);

    GEManager(const GEManager&) = delete;
    GEManager& operator=(const GEManager&) = delete;

    bool m_bDisplayHeld;         // this manager counts as a user of its display
    GEManager* m_pOlderManager;  // the next older manager that is up
};

#endif
