#include "gl/GLTexture.h"

#include <inttypes.h>

#include <alloc_controller.h>
#include <gralloc_priv.h>
#include <memalloc.h>
#include <system/graphics.h>

#include "gl/GECommon.h"
#include "gl/GELog.h"

namespace {

GELogTag s_log("GLTexture");

const char kBanner[] = "[GLTexture::Init] ######################";
const char kBannerDtor[] = "[GLTexture::~GLTexture] ######################";

// Bytes per pixel and gralloc pixel format of the format/type pairs a
// texture knows; false for any other pair.
bool LookUpFormat(unsigned format, unsigned type, unsigned* bytesPerPixel, int* grallocFormat) {
    if (format == GL_RGB && type == GL_UNSIGNED_SHORT_5_6_5) {
        *bytesPerPixel = 2;
        *grallocFormat = HAL_PIXEL_FORMAT_RGB_565;
        return true;
    }
    if (format == GL_RGB && type == GL_UNSIGNED_BYTE) {
        *bytesPerPixel = 3;
        *grallocFormat = HAL_PIXEL_FORMAT_RGB_888;
        return true;
    }
    if (format == GL_RGBA && type == GL_UNSIGNED_BYTE) {
        *bytesPerPixel = 4;
        *grallocFormat = HAL_PIXEL_FORMAT_RGBA_8888;
        return true;
    }
    return false;
}

unsigned AlignUp32(unsigned n) {
    return (n + 31u) & ~31u;
}

// The CPU address of the pixels of a gralloc buffer: the private handle's
// mapped base.
uintptr_t HandleBase(buffer_handle_t handle) {
    const private_handle_t* priv = reinterpret_cast<const private_handle_t*>(handle);
    return priv ? priv->base : 0;
}

}  // namespace

GLTexture::GLTexture()
    : m_bST(false),
      m_nTexName(0xFFFFFFFFu),
      m_nWidth(0xFFFFFFFFu),
      m_nAllocWidth(0xFFFFFFFFu),
      m_nHeight(0xFFFFFFFFu),
      m_nBytesPerPixel(0),
      m_nFormat(0xFFFFFFFFu),
      m_nType(0xFFFFFFFFu),
      m_pData(0),
      m_eglImage(EGL_NO_IMAGE_KHR),
      m_nTarget(GL_TEXTURE_2D),
      m_nStride(0) {}

GLTexture::~GLTexture() {
    GE_LOGI(s_log, "[%s] enter", "~GLTexture");
    GE_LOGI(s_log, "[GLTexture::~GLTexture] deleting %s tex %d", m_bST ? "<ST Operation>" : "",
            (int)m_nTexName);
    if (m_eglImage != EGL_NO_IMAGE_KHR) {
        EGLDisplay display = eglGetCurrentDisplay();
        if (display != GEGetEGLDisplay()) {
            GE_LOGE(s_log, "%s", kBannerDtor);
            GE_LOGE(s_log, "[GLTexture::~GLTexture] unequal display");
            GE_LOGE(s_log, "%s", kBannerDtor);
        }
        GE_LOGI(s_log, "[GLTexture::~GLTexture] eglDestroyImageKHR");
        eglDestroyImageKHR(display, m_eglImage);
        GE_LOGI(s_log, "[GLTexture::~GLTexture] eglDestroyImageKHR returned");
        m_eglImage = EGL_NO_IMAGE_KHR;
    }
    GE_LOGI(s_log, "[GLTexture::~GLTexture] glDeleteTextures");
    glDeleteTextures(1, &m_nTexName);
    GE_LOGI(s_log, "[GLTexture::~GLTexture] glDeleteTextures returned");
    GE_LOGI(s_log, "[%s] leave", "~GLTexture");
    // The buffer goes after the image and the texture that wrap it.
    m_spGraphicBuffer.clear();
    m_spHeld1.clear();
    m_spHeld0.clear();
}

int GLTexture::Init(ANativeWindowBuffer* buf, unsigned format, unsigned type, unsigned width,
                    unsigned height) {
    GE_LOGI(s_log, "[%s] enter", "Init");
    const EGLint attribs[] = {EGL_IMAGE_PRESERVED_KHR, EGL_TRUE, EGL_NONE, EGL_NONE};

    EGLDisplay display = eglGetCurrentDisplay();
    if (!CheckEGLError("GLTexture::Init", "eglGetCurrentDisplay")) {
        return 0;
    }
    EGLContext context = eglGetCurrentContext();
    if (!CheckEGLError("GLTexture::Init", "eglGetCurrentContext")) {
        return 0;
    }
    if (display != GEGetEGLDisplay()) {
        GE_LOGE(s_log, "%s", kBanner);
        GE_LOGE(s_log, "[GLTexture::Init] unequal display");
        GE_LOGE(s_log, "%s", kBanner);
    }
    // The worker's own manager names the context to expect; a thread
    // without one (a tool, a test) is checked against the global.
    EGLContext expected = GEGetThreadContext();
    if (expected == EGL_NO_CONTEXT) {
        expected = GEGetEGLContext();
    }
    if (context != expected) {
        GE_LOGE(s_log, "%s", kBanner);
        GE_LOGE(s_log, "[GLTexture::Init] unequal context");
        GE_LOGE(s_log, "%s", kBanner);
    }

    // A second call replaces what the first one made, so that nothing leaks.
    if (m_eglImage != EGL_NO_IMAGE_KHR) {
        eglDestroyImageKHR(display, m_eglImage);
        m_eglImage = EGL_NO_IMAGE_KHR;
    }
    if (m_nTexName != 0xFFFFFFFFu) {
        glDeleteTextures(1, &m_nTexName);
        m_nTexName = 0xFFFFFFFFu;
    }

    m_eglImage = eglCreateImageKHR(display, EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID,
                                   (EGLClientBuffer)buf, attribs);
    if (!CheckEGLError("GLTexture::Init", "eglCreateImageKHR")) {
        return 0;
    }

    // A YUV buffer is never sampled through GL: its target stays invalid and
    // the GL calls below fail their checks.
    m_nTarget = format == kFormatYUV ? 0xFFFFFFFFu : (unsigned)GL_TEXTURE_2D;

    glGenTextures(1, &m_nTexName);
    if (!CheckGLError("GLTexture::Init", "glGenTextures")) {
        return 0;
    }
    glBindTexture(m_nTarget, m_nTexName);
    if (!CheckGLError("GLTexture::Init", "glBindTexture")) {
        return 0;
    }
    glEGLImageTargetTexture2DOES(m_nTarget, (GLeglImageOES)m_eglImage);
    if (!CheckEGLError("GLTexture::Init", "glEGLImageTargetTexture2DOES")) {
        return 0;
    }

    SetParameteri(GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    SetParameteri(GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    SetParameteri(GL_TEXTURE_WRAP_S, GL_REPEAT);
    SetParameteri(GL_TEXTURE_WRAP_T, GL_REPEAT);

    unsigned bytesPerPixel = 0;
    int grallocFormat = 0;
    if (LookUpFormat(format, type, &bytesPerPixel, &grallocFormat)) {
        m_nBytesPerPixel = bytesPerPixel;
    }
    m_nFormat = format;
    m_nType = type;
    m_nWidth = width;
    m_nAllocWidth = AlignUp32(width);
    m_nHeight = height;
    m_nStride = (unsigned)buf->stride;
    m_bST = true;

    uintptr_t addr = HandleBase(buf->handle);
    if (m_pData != 0 && m_pData != addr) {
        GE_LOGE(s_log,
                "[%s] m_pData (%" PRIuPTR
                ") already assigned and not equal to passed-in native buffer addr %" PRIuPTR,
                "Init", m_pData, addr);
        return 0;
    }
    m_pData = addr;

    GE_LOGI(s_log,
            "[%s] <ST Operation> ST %d created. alloc %d(%d) x %d x %d Bpp = %f KB native buf at "
            "%" PRIuPTR,
            "Init", (int)m_nTexName, (int)m_nWidth, (int)m_nAllocWidth, (int)m_nHeight,
            (int)m_nBytesPerPixel,
            (double)((float)m_nWidth * m_nHeight * m_nBytesPerPixel / 1024.0f), m_pData);
    GE_LOGI(s_log, "[%s] leave", "Init");
    return 1;
}

int GLTexture::Init(unsigned format, unsigned type, unsigned width, unsigned height,
                    unsigned char st) {
    GE_LOGI(s_log, "[%s] enter", "Init");
    GE_LOGI(s_log, "[%s] format=%u, type=%u, width=%d(%d), height=%d, ST=%d", "Init", format, type,
            (int)width, (int)AlignUp32(width), (int)height, (int)st);

    unsigned bytesPerPixel = 0;
    int grallocFormat = 0;
    bool known = LookUpFormat(format, type, &bytesPerPixel, &grallocFormat);

    if (st) {
        if (format == kFormatYUV) {
            GE_LOGE(s_log, "[%s] YUV ST created in this way not implemented", "Init");
            return 0;
        }
        if (!known) {
            GE_LOGE(s_log, "[%s] ST only supports RGB565/RGB88/RGBA", "Init");
            return 0;
        }
        m_nBytesPerPixel = bytesPerPixel;
        m_spGraphicBuffer =
            new android::GraphicBuffer(AlignUp32(width), height, grallocFormat, kSTUsage);
        ANativeWindowBuffer* native = m_spGraphicBuffer->getNativeBuffer();
        if (m_spGraphicBuffer->initCheck() != android::NO_ERROR || native == nullptr ||
            native->handle == nullptr) {
            GE_LOGE(s_log, "[%s] ERROR, can't allocate graphic buffer %ux%u", "Init",
                    AlignUp32(width), height);
            m_spGraphicBuffer.clear();
            return 0;
        }
        m_nStride = (unsigned)native->stride;
        m_pData = HandleBase(native->handle);
        return Init(native, format, type, width, height);
    }

    glGenTextures(1, &m_nTexName);
    if (!CheckGLError("GLTexture::Init", "glGenTextures")) {
        return 0;
    }
    glBindTexture(m_nTarget, m_nTexName);
    if (!CheckGLError("GLTexture::Init", "glBindTexture")) {
        return 0;
    }
    glTexImage2D(m_nTarget, 0, (GLint)format, (GLsizei)width, (GLsizei)height, 0, format, type,
                 nullptr);
    if (!CheckGLError("GLTexture::Init", "glTexImage2D")) {
        return 0;
    }
    SetParameteri(GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    SetParameteri(GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    SetParameteri(GL_TEXTURE_WRAP_S, GL_REPEAT);
    SetParameteri(GL_TEXTURE_WRAP_T, GL_REPEAT);

    m_nWidth = width;
    m_nAllocWidth = width;
    m_nHeight = height;
    m_nFormat = format;
    m_nType = type;
    m_bST = false;
    if (known) {
        m_nBytesPerPixel = bytesPerPixel;
    }
    GE_LOGI(s_log, "[%s] tex %d created", "Init", (int)m_nTexName);
    GE_LOGI(s_log, "[%s] leave", "Init");
    return 1;
}

int GLTexture::Bind() {
    glBindTexture(m_nTarget, m_nTexName);
    return (int)CheckGLError("Bind", "glBindTexture");
}

int GLTexture::UpdateNormalTexture(const void* pixels, unsigned width, unsigned height,
                                   bool bPackedRows) {
    GE_LOGI(s_log, "[%s] enter", "UpdateNormalTexture");
    if (m_bST) {
        GE_LOGE(s_log, "[%s] ERROR, only normal texture use this method\n", "UpdateNormalTexture");
        return 0;
    }
    if (width != 0 && (width != m_nWidth || height != m_nHeight)) {
        GE_LOGE(s_log, "[%s] ERROR, wrong input size %dx%d, tex size is %dx%d\n",
                "UpdateNormalTexture", (int)width, (int)height, (int)m_nWidth, (int)m_nHeight);
        return 0;
    }
    GE_LOGI(s_log, "[%s] glTexImage2D %dx%d, format 0x%04X, type 0x%04X\n", "UpdateNormalTexture",
            (int)width, (int)height, m_nFormat, m_nType);
    if (!Bind()) {
        GE_LOGE(s_log, "[%s] ERROR, can't bind texture\n", "UpdateNormalTexture");
        return 0;
    }
    GLint alignment = 4;
    if (bPackedRows) {
        glGetIntegerv(GL_UNPACK_ALIGNMENT, &alignment);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    }
    glTexImage2D(m_nTarget, 0, (GLint)m_nFormat, (GLsizei)width, (GLsizei)height, 0, m_nFormat,
                 m_nType, pixels);
    const int ok = (int)CheckGLError("GLTexture::UpdateNormalTexture", "glTexImage2D");
    if (bPackedRows) {
        glPixelStorei(GL_UNPACK_ALIGNMENT, alignment);
    }
    GE_LOGI(s_log, "[%s] leave", "UpdateNormalTexture");
    return ok;
}

int GLTexture::SetParameteri(unsigned pname, int param) {
    glTexParameteri(m_nTarget, pname, param);
    return (int)CheckGLError("GLTexture::SetParameteri", "glTexParameteri");
}

unsigned char* GLTexture::GetSTDataBuf() const {
    GE_LOGI(s_log, "[%s] enter", "GetSTDataBuf");
    if (!m_bST) {
        GE_LOGE(s_log, "[%s] ERROR, only streaming texture use this method\n", "GetSTDataBuf");
        return nullptr;
    }
    if (m_pData == 0) {
        GE_LOGE(s_log, "[%s] ERROR, null data buf\n", "GetSTDataBuf");
        return nullptr;
    }
    GE_LOGI(s_log, "[%s] addr %" PRIuPTR "\n", "GetSTDataBuf", m_pData);
    GE_LOGI(s_log, "[%s] leave", "GetSTDataBuf");
    return reinterpret_cast<unsigned char*>(m_pData);
}

int GLTexture::clean_buffer() {
    // Only a texture that allocated its own graphics buffer has one to clean.
    return CleanBuffer(m_spGraphicBuffer);
}

int GLTexture::CleanBuffer(const android::sp<android::GraphicBuffer>& buffer) {
    const private_handle_t* handle = nullptr;
    if (buffer != nullptr) {
        handle = reinterpret_cast<const private_handle_t*>(buffer->handle);
    }
    int result = -1;
    if (handle != nullptr) {
        android::sp<gralloc::IAllocController> controller =
            gralloc::IAllocController::getInstance();
        android::sp<gralloc::IMemAlloc> allocator =
            controller != nullptr ? controller->getAllocator(handle->flags) : nullptr;
        if (allocator != nullptr) {
            result = allocator->clean_buffer((void*)handle->base, (size_t)handle->size,
                                             handle->offset, handle->fd, gralloc::CACHE_CLEAN);
        }
    }
    if (result < 0) {
        GE_LOGD(s_log, "[%s] clean buffer error", "clean_buffer");
        return 0;
    }
    return 1;
}

void GLTexture::HoldReference(unsigned slot, const android::sp<android::RefBase>& ref) {
    if (slot == 0) {
        m_spHeld0 = ref;
    } else if (slot == 1) {
        m_spHeld1 = ref;
    }
}
