#include "engine/GEManager.h"

#include <fcntl.h>
#include <linux/fb.h>
#include <stdint.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <GLES2/gl2.h>

#include <mutex>

#include "effects/GEEffects.h"
#include "effects/GEShaderMirror.h"
#include "engine/GEShader.h"
#include "gl/GECommon.h"
#include "gl/GELog.h"
#include "gl/GLFbo.h"
#include "gl/GLTexture.h"

static_assert(GEManager::kEffectCount == GE_EFFECT_COUNT, "one effect table");

namespace {

GELogTag s_log("GEManager");

const char kFrameBufferDevice[] = "/dev/graphics/fb0";
const char kEqualsLine[] = "======================================================";

// Frame timing: the 50-frame average and the FPS interval.
const unsigned kAvgFrames = 50;
const uint32_t kFPSIntervalMs = 2000;

// The process's EGL displays. A camera service may hold two plug-in objects
// (a camera switch starts the new one before it stops the old one), each with
// a manager on its own worker thread, and both get the same default display.
// An EGL need not count how often a display was initialised: one
// eglTerminate would end it for both. So the first manager on a display
// initialises it and the last one terminates it; each has its own context
// and surface. The managers that are up form a list, newest first, whose head
// the exported globals name. Everything here is guarded by s_eglLock.
struct DisplayUse {
    EGLDisplay display;
    int users;
};
std::mutex s_eglLock;
DisplayUse s_displays[4];
GEManager* s_pNewestManager = nullptr;

DisplayUse* FindDisplay(EGLDisplay display) {
    for (DisplayUse& d : s_displays) {
        if (d.users > 0 && d.display == display) {
            return &d;
        }
    }
    return nullptr;
}

}  // namespace

// clang-format off
const EGLint GEManager::kConfigAttribs[] = {
    EGL_SURFACE_TYPE,    EGL_WINDOW_BIT | EGL_PBUFFER_BIT,
    EGL_RED_SIZE,        5,
    EGL_GREEN_SIZE,      6,
    EGL_BLUE_SIZE,       5,
    EGL_ALPHA_SIZE,      EGL_DONT_CARE,
    EGL_DEPTH_SIZE,      16,
    EGL_STENCIL_SIZE,    4,
    EGL_RENDERABLE_TYPE, EGL_OPENGL_ES2_BIT,
    EGL_NONE};
// clang-format on

GEManager::GEManager() : GEManager(NoEGL()) {
    m_eglDisplay = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    if (m_eglDisplay == EGL_NO_DISPLAY) {
        GE_LOGE(s_log, "[%s] m_eglDisplay failed - EGL_NO_DISPLAY", "GEManager");
        return;
    }
    GE_LOGD(s_log, "[%s] m_eglDisplay successfully", "GEManager");

    EGLBoolean ok = AcquireDisplay();
    if (!ok) {
        GE_LOGE(s_log, "[%s] eglInitialize failed: %d - eglGetError Returned: %d", "GEManager", 0,
                (int)eglGetError());
        return;
    }
    GE_LOGD(s_log, "[%s] eglInitialize successfully", "GEManager");

    EGLConfig configs[10];
    EGLint numConfigs = 0;
    ok = eglChooseConfig(m_eglDisplay, kConfigAttribs, configs, 10, &numConfigs);
    if (!ok || numConfigs < 1) {
        // A list without a match is a failure too: there is no config to use.
        GE_LOGE(s_log, "[%s] eglChooseConfig failed: %d - eglGetError Returned: %d", "GEManager",
                (int)ok, (int)eglGetError());
        return;
    }
    m_eglConfig = configs[0];
    GE_LOGD(s_log, "[%s] eglChooseConfig successfully", "GEManager");

    const EGLint contextAttribs[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    m_eglContext = eglCreateContext(m_eglDisplay, m_eglConfig, EGL_NO_CONTEXT, contextAttribs);
    if (m_eglContext == EGL_NO_CONTEXT) {
        GE_LOGE(s_log, "[%s] eglCreateContext failed - eglGetError Returned: %d", "GEManager",
                (int)eglGetError());
        return;
    }
    GE_LOGD(s_log, "[%s] eglCreateContext successfully", "GEManager");

    const EGLint surfaceAttribs[] = {EGL_WIDTH, 1, EGL_HEIGHT, 1, EGL_NONE};
    m_eglSurface = eglCreatePbufferSurface(m_eglDisplay, m_eglConfig, surfaceAttribs);
    if (m_eglSurface == EGL_NO_SURFACE) {
        GE_LOGE(s_log, "[%s] eglCreatePbufferSurface failed - eglGetError Returned: %d",
                "GEManager", (int)eglGetError());
        return;
    }
    GE_LOGD(s_log, "[%s] eglCreatePbufferSurface successfully", "GEManager");

    ok = eglMakeCurrent(m_eglDisplay, m_eglSurface, m_eglSurface, m_eglContext);
    if (!ok) {
        GE_LOGE(s_log, "[%s] eglMakeCurrent failed: %d - eglGetError Returned: %d", "GEManager",
                (int)ok, (int)eglGetError());
        return;
    }
    GE_LOGD(s_log, "[%s] eglMakeCurrent successfully", "GEManager");

    {
        std::lock_guard<std::mutex> lock(s_eglLock);
        m_pOlderManager = s_pNewestManager;
        s_pNewestManager = this;
        GESetEGLGlobals(m_eglDisplay, m_eglContext);
    }
    GESetThreadContext(m_eglContext);
    m_bEGLReady = true;
}

bool GEManager::AcquireDisplay() {
    std::lock_guard<std::mutex> lock(s_eglLock);
    DisplayUse* use = FindDisplay(m_eglDisplay);
    if (use == nullptr) {
        for (DisplayUse& d : s_displays) {
            if (d.users == 0) {
                use = &d;
                break;
            }
        }
        if (use == nullptr || !eglInitialize(m_eglDisplay, nullptr, nullptr)) {
            return false;
        }
        use->display = m_eglDisplay;
    } else {
        GE_LOGD(s_log, "[%s] display shared with %d other manager(s)", "GEManager", use->users);
    }
    ++use->users;
    m_bDisplayHeld = true;
    return true;
}

void GEManager::ReleaseDisplay() {
    std::lock_guard<std::mutex> lock(s_eglLock);
    // Out of the list; the globals move on to the newest manager left.
    for (GEManager** p = &s_pNewestManager; *p != nullptr; p = &(*p)->m_pOlderManager) {
        if (*p == this) {
            *p = m_pOlderManager;
            break;
        }
    }
    m_pOlderManager = nullptr;
    const GEManager* newest = s_pNewestManager;
    GESetEGLGlobals(newest != nullptr ? newest->m_eglDisplay : EGL_NO_DISPLAY,
                    newest != nullptr ? newest->m_eglContext : EGL_NO_CONTEXT);
    if (!m_bDisplayHeld) {
        return;
    }
    m_bDisplayHeld = false;
    DisplayUse* use = FindDisplay(m_eglDisplay);
    if (use != nullptr && --use->users > 0) {
        GE_LOGD(s_log, "[%s] display kept for %d other manager(s)", "~GEManager", use->users);
        return;
    }
    GE_LOGD(s_log, "[%s] eglTerminate", "~GEManager");
    eglTerminate(m_eglDisplay);
}

GEManager::GEManager(NoEGL)
    : m_bLandscaped(false),
      m_eglDisplay(EGL_NO_DISPLAY),
      m_eglConfig(nullptr),
      m_eglSurface(EGL_NO_SURFACE),
      m_eglContext(EGL_NO_CONTEXT),
      m_bEGLReady(false),
      m_bFrameReady(false),
      m_nEffectCount(kEffectCount),
      m_bCaptureMode(false),
      m_nCurrEffect(-1),
      m_pCurrShader(nullptr),
      m_pShaderBypass(nullptr),
      m_pSrcTexture(nullptr),
      m_pDstFbo(nullptr),
      m_nEffectArg(0),
      m_nViewportX(-1),
      m_nViewportY(-1),
      m_nViewportW(-1),
      m_nViewportH(-1),
      m_nDispWidth(-1),
      m_nDispHeight(-1),
      m_bUnused(false),
      m_pConverter(nullptr),
      m_nAvgTotalMs(0),
      m_nAvgFrames(0),
      m_bFPSStarted(false),
      m_nFPSStartMs(0),
      m_nFPSFrames(0),
      m_bDisplayHeld(false),
      m_pOlderManager(nullptr) {}

GEManager::~GEManager() {
    Deinit();
    if (m_eglDisplay == EGL_NO_DISPLAY) {
        return;
    }
    m_bEGLReady = false;
    GE_LOGD(s_log, "[%s] eglMakeCurrent", "~GEManager");
    eglMakeCurrent(m_eglDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    GE_LOGD(s_log, "[%s] eglDestroySurface", "~GEManager");
    if (m_eglSurface != EGL_NO_SURFACE) {
        eglDestroySurface(m_eglDisplay, m_eglSurface);
        m_eglSurface = EGL_NO_SURFACE;
    }
    GE_LOGD(s_log, "[%s] eglDestroyContext", "~GEManager");
    if (m_eglContext != EGL_NO_CONTEXT) {
        eglDestroyContext(m_eglDisplay, m_eglContext);
    }
    ReleaseDisplay();
    GESetThreadContext(EGL_NO_CONTEXT);
    m_eglContext = EGL_NO_CONTEXT;
    m_eglDisplay = EGL_NO_DISPLAY;
}

bool GEManager::Init(ANativeWindowBuffer* buffer, unsigned, unsigned, unsigned, unsigned x,
                     unsigned y, unsigned w, unsigned h, IYUVConverter* conv) {
    GE_LOGI(s_log, "[%s] enter", "Init");
    GE_LOGI(s_log, "[%s] %s", "Init", kEqualsLine);
    GE_LOGI(s_log, "[%s] GEManager::Init", "Init");
    GE_LOGI(s_log, "[%s] %s", "Init", kEqualsLine);

    if (!m_bEGLReady) {
        GE_LOGE(s_log, "[%s] EGL not inited", "Init");
        return false;
    }
    // A second Init without Deinit starts over rather than leaking the
    // previous texture and leaving the effect on it.
    if (m_bFrameReady || m_pSrcTexture != nullptr || m_pCurrShader != nullptr) {
        Deinit();
    }

    m_nViewportX = (int)x;
    m_nViewportY = (int)y;
    m_nViewportW = (int)w;
    m_nViewportH = (int)h;

    int fd = open(kFrameBufferDevice, O_RDWR);
    if (fd >= 0) {
        struct fb_var_screeninfo info;
        if (ioctl(fd, FBIOGET_VSCREENINFO, &info) == 0) {
            unsigned larger = info.xres > info.yres ? info.xres : info.yres;
            unsigned smaller = info.xres > info.yres ? info.yres : info.xres;
            GESetDispSize((int)larger, (int)smaller);
        }
        close(fd);
    }
    m_nDispWidth = GEGetDispWidth();
    m_nDispHeight = GEGetDispHeight();
    GE_LOGI(s_log, "[%s] g_Disp_Width=%d, g_Disp_Height=%d", "Init", m_nDispWidth, m_nDispHeight);
    m_pConverter = conv;

    GE_LOGI(s_log, "[%s] New GLTexture for input frame native addr %u, w=%d, h=%d", "Init",
            (unsigned)(uintptr_t)buffer, (int)w, (int)h);
    m_pSrcTexture = new GLTexture();
    if (!m_pSrcTexture->Init(buffer, GL_RGBA, GL_UNSIGNED_BYTE, w, h)) {
        GE_LOGE(s_log, "[%s] can't init m_pSrcTexture", "Init");
        delete m_pSrcTexture;
        m_pSrcTexture = nullptr;
        return false;
    }
    m_pSrcTexture->Bind();
    m_pSrcTexture->SetParameteri(GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    m_pSrcTexture->SetParameteri(GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    m_pSrcTexture->SetParameteri(GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    m_pSrcTexture->SetParameteri(GL_TEXTURE_MAG_FILTER, GL_LINEAR);

    GE_LOGI(s_log, "[%s] glViewport x=%d y=%d w=%d h=%d", "Init", m_nViewportX, m_nViewportY,
            m_nViewportW, m_nViewportH);
    glViewport(m_nViewportX, m_nViewportY, m_nViewportW, m_nViewportH);

    m_bFrameReady = true;
    GE_LOGI(s_log, "[%s] leave", "Init");
    return true;
}

namespace {

// Deletes an owned object of Deinit, announcing it by its member name.
template <typename T>
void DeleteAnnounced(T*& p, const char* member) {
    if (p != nullptr) {
        GE_LOGI(s_log, "[%s] delete %s", "Deinit", member);
        delete p;
        p = nullptr;
    }
}

}  // namespace

bool GEManager::Deinit() {
    m_bFrameReady = false;
    m_nCurrEffect = -1;
    DeleteAnnounced(m_pCurrShader, "m_pCurrShader");
    DeleteAnnounced(m_pShaderBypass, "m_pShaderBypass");
    DeleteAnnounced(m_pSrcTexture, "m_pSrcTexture");
    DeleteAnnounced(m_pDstFbo, "m_pDstFbo");
    return true;
}

bool GEManager::ChooseEffect(unsigned effect, unsigned char capture) {
    GE_LOGI(s_log, "[%s] enter", "ChooseEffect");
    uint32_t start = GetTickCount();

    if (!m_bFrameReady) {
        GE_LOGE(s_log, "[%s] not inited\n", "ChooseEffect");
        return false;
    }
    if (effect >= m_nEffectCount && effect != 99) {
        GE_LOGE(s_log, "[%s] index %u should less than %u\n", "ChooseEffect", effect,
                m_nEffectCount);
        return false;
    }

    if (m_pCurrShader != nullptr) {
        delete m_pCurrShader;
        m_pCurrShader = nullptr;
    }
    m_nCurrEffect = -1;
    uint32_t deleted = GetTickCount();
    m_bCaptureMode = capture != 0;
    GE_LOGI(s_log, "[%s] effect=%u, capture mode=%d", "ChooseEffect", effect, (int)capture);

    const GEEffectEntry* entry = GEEffectLookUp(effect);
    if (entry == nullptr || entry->szName == nullptr) {
        // 0 (no effect) and 99 come here: the old effect is gone already.
        GE_LOGE(s_log, "[%s] wrong index %d\n", "ChooseEffect", (int)effect);
        return false;
    }
    if (entry->pfnCreate == nullptr) {
        GE_LOGE(s_log, "[%s] effect %u not available\n", "ChooseEffect", effect);
        return false;
    }
    GEShader* shader = entry->pfnCreate();
    if (shader == nullptr) {
        GE_LOGE(s_log, "[%s] can't create effect\n", "ChooseEffect");
        return false;
    }
    if (effect == GE_EFFECT_MIRROR) {
        static_cast<GEShaderMirror*>(shader)->m_bLandscaped = m_bLandscaped;
    }
    if (!shader->Init(m_pSrcTexture, m_nEffectArg, (unsigned)m_nViewportX, (unsigned)m_nViewportY,
                      (unsigned)m_nViewportW, (unsigned)m_nViewportH, capture, m_pConverter)) {
        delete shader;
        return false;
    }
    m_pCurrShader = shader;
    m_nCurrEffect = (int)effect;

    uint32_t end = GetTickCount();
    GE_LOGI(s_log, "[%s] Effect delete time %d ms, re-init time %d ms, total loading time %d ms\n",
            "ChooseEffect", (int)(deleted - start), (int)(end - deleted), (int)(end - start));
    GE_LOGI(s_log, "[%s] leave", "ChooseEffect");
    return true;
}

bool GEManager::ReadyToProcess(bool capture) {
    if (!m_bFrameReady) {
        GE_LOGE(s_log, "[%s] not inited\n", "ProcFrame");
        return false;
    }
    if (m_pCurrShader == nullptr) {
        GE_LOGE(s_log, "[GEManager::ProcFrame] no shader selected");
        return false;
    }
    if (capture && !m_bCaptureMode) {
        GE_LOGE(s_log, "[GEManager::ProcFrame] only capture mode use this method");
        return false;
    }
    return true;
}

bool GEManager::CaptureDone(bool ok, int w, int h, uint32_t start) {
    if (!ok) {
        GE_LOGE(s_log, "[GPUEffectManager::ProcFrame] failed to process frame\n");
        return false;
    }
    GE_LOGI(s_log, "[%s] %dx%d image spent %d ms", "ProcFrame", w, h,
            (int)(GetTickCount() - start));
    return true;
}

bool GEManager::ProcFrame(unsigned a, unsigned b, int c, int d) {
    uint32_t start = GetTickCount();
    if (!ReadyToProcess(false)) {
        return false;
    }
    if (!m_pCurrShader->ProcFrame(a, b, c, d)) {
        GE_LOGE(s_log, "[GPUEffectManager::ProcFrame] failed to process frame\n");
        return false;
    }

    m_nAvgTotalMs += GetTickCount() - start;
    if (++m_nAvgFrames >= kAvgFrames) {
        GE_LOGI(s_log, "[GPUEffectManager::ProcFrame] Avg frame proc time = %.2f ms\n",
                (double)((float)m_nAvgTotalMs / (float)kAvgFrames));
        m_nAvgTotalMs = 0;
        m_nAvgFrames = 0;
    }
    FPS();
    return true;
}

bool GEManager::ProcFrame(unsigned char* src, unsigned char* out, int w, int h) {
    uint32_t start = GetTickCount();
    return ReadyToProcess(true) &&
           CaptureDone(m_pCurrShader->ProcFrame(src, out, w, h), w, h, start);
}

bool GEManager::ProcFrame(unsigned char* y, unsigned char* uv, unsigned char* out, int w, int h) {
    uint32_t start = GetTickCount();
    return ReadyToProcess(true) &&
           CaptureDone(m_pCurrShader->ProcFrame(y, uv, out, w, h), w, h, start);
}

void GEManager::FPS() {
    uint32_t now = GetTickCount();
    if (!m_bFPSStarted) {
        // The first frame opens the first interval.
        m_bFPSStarted = true;
        m_nFPSStartMs = now;
        m_nFPSFrames = 0;
    }
    ++m_nFPSFrames;
    uint32_t elapsed = now - m_nFPSStartMs;
    if (elapsed > kFPSIntervalMs) {
        GE_LOGI(s_log, "[%s] FPS = %.2f\n", "FPS",
                (double)((float)m_nFPSFrames * 1000.0f / (float)elapsed));
        m_nFPSStartMs = now;
        m_nFPSFrames = 0;
    }
}

int GEManager::SetParam(unsigned group, int a, int b, int c, int d) {
    if (!m_bFrameReady) {
        GE_LOGE(s_log, "[%s] not inited\n", "SetParam");
        return 0;
    }
    if (m_pCurrShader == nullptr) {
        GE_LOGE(s_log, "[GEManager::SetParam] no shader selected.\n");
        return 0;
    }
    if (group == 1) {
        // Screen to viewport coordinates, in unsigned 32-bit arithmetic (a
        // value left of the viewport wraps). A display width of zero cannot
        // be divided by: the value is then passed on as it came.
        uint32_t dispW = (uint32_t)m_nDispWidth;
        if (dispW != 0) {
            a = (int)((uint32_t)m_nViewportW * ((uint32_t)a - (uint32_t)m_nViewportX) / dispW);
        } else {
            GE_LOGE(s_log, "[%s] display width 0: group 1 value %d passed unmapped\n", "SetParam",
                    a);
        }
    }
    return m_pCurrShader->SetParam(group, a, b, c, d);
}

void GEManager::SetCrop(float x, float y, float w, float h) {
    if (m_pCurrShader == nullptr) {
        // The plug-in crops only after a successful ChooseEffect; a crop
        // without an effect has nothing to apply to.
        GE_LOGE(s_log, "[GEManager::SetCrop] no shader selected.\n");
        return;
    }
    m_pCurrShader->SetCrop(x, y, w, h);
}

bool GEManager::MemcpyYUV(void* y, void* uv) {
    if (m_pCurrShader == nullptr) {
        return false;
    }
    m_pCurrShader->MemcpyYUV(y, uv);
    return true;
}
