// Graphics-buffer coherence on the host.
//
// On the device a graphics buffer is one piece of memory that the CPU and the
// GPU share, and the gralloc clean is where the library makes one side's
// writes visible to the other. On the host a texture bound to a buffer is a
// GL texture of its own holding a copy of the bytes, so the clean copies:
//
//  - each buffer keeps a snapshot of its bytes as they were when both sides
//    last agreed;
//  - if the CPU bytes differ from the snapshot, the CPU wrote last: the bytes
//    go to every bound texture (glTexSubImage2D);
//  - otherwise the GPU may have rendered: each bound texture is read back
//    (a temporary framebuffer and glReadPixels) until one differs from the
//    snapshot; its pixels become the buffer's bytes and go to the other
//    textures bound to the same buffer;
//  - the snapshot then takes the buffer's bytes.
//
// Every GL binding and pixel-store setting touched on the way is restored.
#include <GLES3/gl3.h>
#include <android/log.h>
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <system/graphics.h>
#include <vlklog.h>

#include <algorithm>
#include <map>

#include "GEHostState.h"

namespace gehost {

namespace {

std::map<const ANativeWindowBuffer*, HostBuffer*>& Buffers() {
    static std::map<const ANativeWindowBuffer*, HostBuffer*> s_buffers;
    return s_buffers;
}

// Pixel-store and buffer bindings that a transfer changes, saved and put back.
class TransferState {
public:
    explicit TransferState(bool bPack) : m_bPack(bPack), m_bES3(CurrentGLESMajor() >= 3) {
        glGetIntegerv(GL_TEXTURE_BINDING_2D, &m_nTexture);
        glGetIntegerv(m_bPack ? GL_PACK_ALIGNMENT : GL_UNPACK_ALIGNMENT, &m_nAlignment);
        if (m_bPack) {
            if (m_bES3) {
                glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &m_nDrawFbo);
                glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &m_nReadFbo);
            } else {
                glGetIntegerv(GL_FRAMEBUFFER_BINDING, &m_nDrawFbo);
            }
        }
        if (m_bES3) {
            glGetIntegerv(m_bPack ? GL_PACK_ROW_LENGTH : GL_UNPACK_ROW_LENGTH, &m_nRowLength);
            glGetIntegerv(m_bPack ? GL_PACK_SKIP_ROWS : GL_UNPACK_SKIP_ROWS, &m_nSkipRows);
            glGetIntegerv(m_bPack ? GL_PACK_SKIP_PIXELS : GL_UNPACK_SKIP_PIXELS, &m_nSkipPixels);
            glGetIntegerv(m_bPack ? GL_PIXEL_PACK_BUFFER_BINDING : GL_PIXEL_UNPACK_BUFFER_BINDING,
                          &m_nPixelBuffer);
            glPixelStorei(m_bPack ? GL_PACK_ROW_LENGTH : GL_UNPACK_ROW_LENGTH, 0);
            glPixelStorei(m_bPack ? GL_PACK_SKIP_ROWS : GL_UNPACK_SKIP_ROWS, 0);
            glPixelStorei(m_bPack ? GL_PACK_SKIP_PIXELS : GL_UNPACK_SKIP_PIXELS, 0);
            glBindBuffer(m_bPack ? GL_PIXEL_PACK_BUFFER : GL_PIXEL_UNPACK_BUFFER, 0);
        }
    }

    ~TransferState() {
        glBindTexture(GL_TEXTURE_2D, (GLuint)m_nTexture);
        glPixelStorei(m_bPack ? GL_PACK_ALIGNMENT : GL_UNPACK_ALIGNMENT, m_nAlignment);
        if (m_bPack) {
            if (m_bES3) {
                glBindFramebuffer(GL_DRAW_FRAMEBUFFER, (GLuint)m_nDrawFbo);
                glBindFramebuffer(GL_READ_FRAMEBUFFER, (GLuint)m_nReadFbo);
            } else {
                glBindFramebuffer(GL_FRAMEBUFFER, (GLuint)m_nDrawFbo);
            }
        }
        if (m_bES3) {
            glPixelStorei(m_bPack ? GL_PACK_ROW_LENGTH : GL_UNPACK_ROW_LENGTH, m_nRowLength);
            glPixelStorei(m_bPack ? GL_PACK_SKIP_ROWS : GL_UNPACK_SKIP_ROWS, m_nSkipRows);
            glPixelStorei(m_bPack ? GL_PACK_SKIP_PIXELS : GL_UNPACK_SKIP_PIXELS, m_nSkipPixels);
            glBindBuffer(m_bPack ? GL_PIXEL_PACK_BUFFER : GL_PIXEL_UNPACK_BUFFER,
                         (GLuint)m_nPixelBuffer);
        }
    }

private:
    bool m_bPack;
    bool m_bES3;
    GLint m_nTexture = 0;
    GLint m_nAlignment = 4;
    GLint m_nDrawFbo = 0;
    GLint m_nReadFbo = 0;
    GLint m_nRowLength = 0;
    GLint m_nSkipRows = 0;
    GLint m_nSkipPixels = 0;
    GLint m_nPixelBuffer = 0;
};

// Texture width: on the host a buffer's stride equals its width, so the
// texture is the whole row.
void UploadTexture(const HostBuffer* pBuffer, GLuint tex, bool bSpecify) {
    TransferState state(false);
    glBindTexture(GL_TEXTURE_2D, tex);
    glPixelStorei(GL_UNPACK_ALIGNMENT, pBuffer->layout.unpackAlignment);
    const PixelLayout& l = pBuffer->layout;
    if (bSpecify) {
        glTexImage2D(GL_TEXTURE_2D, 0, (GLint)l.glFormat, pBuffer->nStride, pBuffer->nHeight, 0,
                     l.glFormat, l.glType, pBuffer->pData);
    } else {
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, pBuffer->nStride, pBuffer->nHeight, l.glFormat,
                        l.glType, pBuffer->pData);
    }
}

// Reads texture `tex` back into pBuffer->readBack in the buffer's own pixel
// format. False when the texture cannot be attached to a framebuffer.
bool ReadTexture(HostBuffer* pBuffer, GLuint tex) {
    const int w = pBuffer->nStride;
    const int h = pBuffer->nHeight;
    const size_t n = (size_t)w * h;
    const int bpp = pBuffer->layout.bytesPerPixel;
    pBuffer->readBack.resize(pBuffer->nSize);
    unsigned char* rgba = pBuffer->readBack.data();
    if (bpp != 4) {
        pBuffer->readRGBA.resize(n * 4);
        rgba = pBuffer->readRGBA.data();
    }
    bool bOk = false;
    {
        TransferState state(true);
        GLuint fbo = 0;
        glGenFramebuffers(1, &fbo);
        glBindFramebuffer(GL_FRAMEBUFFER, fbo);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, tex, 0);
        if (glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE) {
            glPixelStorei(GL_PACK_ALIGNMENT, 4);
            glReadPixels(0, 0, w, h, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
            bOk = true;
        }
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        glDeleteFramebuffers(1, &fbo);
    }
    if (!bOk) {
        return false;
    }
    unsigned char* dst = pBuffer->readBack.data();
    if (bpp == 3) {
        for (size_t i = 0; i < n; ++i) {
            dst[i * 3 + 0] = rgba[i * 4 + 0];
            dst[i * 3 + 1] = rgba[i * 4 + 1];
            dst[i * 3 + 2] = rgba[i * 4 + 2];
        }
    } else if (bpp == 2) {
        for (size_t i = 0; i < n; ++i) {
            const unsigned char* p = &rgba[i * 4];
            uint16_t v = (uint16_t)(((p[0] >> 3) << 11) | ((p[1] >> 2) << 5) | (p[2] >> 3));
            memcpy(dst + i * 2, &v, 2);
        }
    }
    return true;
}

}  // namespace

std::mutex& HostLock() {
    static std::mutex s_lock;
    return s_lock;
}

PixelLayout LayoutForFormat(int format) {
    switch (format) {
        case HAL_PIXEL_FORMAT_RGBA_8888:
        case HAL_PIXEL_FORMAT_RGBX_8888:
            return {GL_RGBA, GL_UNSIGNED_BYTE, 4, 4};
        case HAL_PIXEL_FORMAT_RGB_888:
            return {GL_RGB, GL_UNSIGNED_BYTE, 3, 1};
        case HAL_PIXEL_FORMAT_RGB_565:
            return {GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 2, 2};
        default:
            return {0, 0, 0, 1};
    }
}

void RegisterBuffer(HostBuffer* pBuffer) {
    Buffers()[pBuffer->pNative] = pBuffer;
}

void UnregisterBuffer(HostBuffer* pBuffer) {
    Buffers().erase(pBuffer->pNative);
}

HostBuffer* FindBufferByNative(const ANativeWindowBuffer* pNative) {
    auto it = Buffers().find(pNative);
    return it == Buffers().end() ? nullptr : it->second;
}

HostBuffer* FindBufferByMemory(const void* base, int fd) {
    for (auto& entry : Buffers()) {
        if (entry.second->pData == base && entry.second->nFd == fd) {
            return entry.second;
        }
    }
    return nullptr;
}

int SyncBuffer(HostBuffer* pBuffer) {
    const bool bCpuWrote = memcmp(pBuffer->pData, pBuffer->snapshot.data(), pBuffer->nSize) != 0;
    // Texture names mean something only in their own context, and GL reaches
    // only the current one: bindings made in another context are skipped.
    EGLContext ctx = eglGetCurrentContext();
    std::vector<GLuint> live;
    if (ctx != EGL_NO_CONTEXT && pBuffer->layout.bytesPerPixel != 0) {
        for (const TexBinding& b : pBuffer->bindings) {
            if (b.ctx == ctx) {
                live.push_back(b.tex);
            }
        }
    }
    if (bCpuWrote) {
        for (GLuint tex : live) {
            UploadTexture(pBuffer, tex, false);
        }
    } else if (!live.empty()) {
        for (size_t i = 0; i < live.size(); ++i) {
            if (!ReadTexture(pBuffer, live[i]) ||
                memcmp(pBuffer->readBack.data(), pBuffer->snapshot.data(), pBuffer->nSize) == 0) {
                continue;
            }
            // This texture was rendered into: its pixels are the buffer's now,
            // and the other textures over the same memory see them too.
            memcpy(pBuffer->pData, pBuffer->readBack.data(), pBuffer->nSize);
            for (size_t j = 0; j < live.size(); ++j) {
                if (j != i) {
                    UploadTexture(pBuffer, live[j], false);
                }
            }
            break;
        }
    }
    memcpy(pBuffer->snapshot.data(), pBuffer->pData, pBuffer->nSize);
    return 0;
}

void BindImageToTexture(HostImage* pImage, GLuint tex) {
    HostBuffer* pBuffer = pImage->pBuffer;
    EGLContext ctx = eglGetCurrentContext();
    // Bring the textures already bound up to date first, so that the new one
    // starts from bytes both sides agree on.
    SyncBuffer(pBuffer);
    UploadTexture(pBuffer, tex, true);
    auto& bindings = pBuffer->bindings;
    bindings.erase(
        std::remove_if(bindings.begin(), bindings.end(),
                       [&](const TexBinding& b) { return b.ctx == ctx && b.tex == tex; }),
        bindings.end());
    bindings.push_back({eglGetCurrentDisplay(), ctx, tex, pImage});
}

template <typename Pred>
static void ForgetIf(Pred pred) {
    for (auto& entry : Buffers()) {
        auto& bindings = entry.second->bindings;
        bindings.erase(std::remove_if(bindings.begin(), bindings.end(), pred), bindings.end());
    }
}

void ForgetTextures(EGLContext ctx, GLsizei n, const GLuint* names) {
    if (n <= 0 || names == nullptr) {
        return;
    }
    ForgetIf([&](const TexBinding& b) {
        return b.ctx == ctx && b.tex != 0 && std::find(names, names + n, b.tex) != names + n;
    });
}

void ForgetImage(HostImage* pImage) {
    ForgetIf([&](const TexBinding& b) { return b.pImage == pImage; });
}

void ForgetContext(EGLContext ctx) {
    ForgetIf([&](const TexBinding& b) { return b.ctx == ctx; });
}

void ForgetDisplay(EGLDisplay dpy) {
    ForgetIf([&](const TexBinding& b) { return b.dpy == dpy; });
}

void RaiseGLError(GLenum error) {
    switch (error) {
        case GL_INVALID_ENUM:
            glTexImage2D(0, 0, GL_RGBA, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
            break;
        case GL_INVALID_VALUE:
            glTexImage2D(GL_TEXTURE_2D, -1, GL_RGBA, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
            break;
        default:
            // An unsized internal format that differs from the format.
            glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 1, 1, 0, GL_RGB, GL_UNSIGNED_BYTE, nullptr);
            break;
    }
}

int CurrentGLESMajor() {
    const char* version = (const char*)glGetString(GL_VERSION);
    const char* prefix = "OpenGL ES ";
    if (version == nullptr || strncmp(version, prefix, strlen(prefix)) != 0) {
        return 2;
    }
    int major = atoi(version + strlen(prefix));
    return major > 0 ? major : 2;
}

void HostLog(int priority, const char* tag, const char* fmt, ...) {
    unsigned char mask = 0x80;
    int bits = __vlklog_init_mask(tag, -1, &mask);
    if (priority < 2 || priority >= 10 || !(bits & (1 << (priority - 2)))) {
        return;
    }
    char line[512];
    va_list args;
    va_start(args, fmt);
    vsnprintf(line, sizeof(line), fmt, args);
    va_end(args);
    __android_log_write(priority, tag, line);
}

}  // namespace gehost
