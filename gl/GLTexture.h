// One GL texture object: either a streaming texture ("ST"), whose storage is a
// gralloc graphics buffer bound through an EGL image and addressable by the
// CPU, or a normal texture whose storage GL owns.
//
// Every operation runs on the thread whose EGL context is current. Log tag
// "GLTexture".
#ifndef POSTEFFECT_GL_GLTEXTURE_H
#define POSTEFFECT_GL_GLTEXTURE_H

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <stdint.h>

#include <system/window.h>
#include <ui/GraphicBuffer.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

class GLTexture {
public:
    // The plug-in's own format code for a YUV streaming buffer. Such a buffer
    // can be wrapped but not sampled: its target stays invalid.
    static const unsigned kFormatYUV = 0x190B;
    // The gralloc usage of the buffers this class allocates: hardware texture
    // together with software-write-often.
    static const unsigned kSTUsage = 0x130;

    GLTexture();
    virtual ~GLTexture();

    // Wraps an existing native buffer as a streaming texture. 1 / 0.
    int Init(ANativeWindowBuffer* buf, unsigned format, unsigned type, unsigned width,
             unsigned height);
    // st == 0: a normal texture of the given size, contents undefined.
    // st != 0: allocates a graphics buffer (RGB565, RGB888 or RGBA8888 only)
    // and wraps it as a streaming texture. 1 / 0.
    int Init(unsigned format, unsigned type, unsigned width, unsigned height, unsigned char st);

    // glBindTexture(target, name); the result of its error check.
    int Bind();
    // Re-specifies a normal texture's whole image from `pixels`. Rows are
    // read at GL's default alignment of 4 bytes, unless bPackedRows says
    // that they follow each other without padding (a camera plane of any
    // width); the alignment is restored after. 1 / 0.
    int UpdateNormalTexture(const void* pixels, unsigned width, unsigned height,
                            bool bPackedRows = false);
    // glTexParameteri on whatever texture is bound to this texture's target.
    int SetParameteri(unsigned pname, int param);

    // Row length in pixels of an ST's buffer.
    unsigned GetStride() const { return m_nStride; }
    // CPU address of an ST's pixels; null (and an error line) otherwise.
    unsigned char* GetSTDataBuf() const;
    // Cleans the CPU cache over an ST's graphics buffer, so that CPU writes
    // reach the GPU and GPU writes reach the CPU. 1 / 0.
    int clean_buffer();
    // The same clean for any graphics buffer. 1 / 0.
    static int CleanBuffer(const android::sp<android::GraphicBuffer>& buffer);

    // BMP files (GLBmp.cpp). LoadBMP creates the texture with Init and fills
    // it; a streaming texture is filled through its CPU address, so call
    // clean_buffer() before the GPU reads it. The writers dump a streaming
    // texture to "/data/<name>" with a header copied from `templatePath`.
    int LoadBMP(const char* path, unsigned format, unsigned type, unsigned char st);
    int SaveBMP(const char* templatePath, const char* name);
    int SaveBMP_yuvx(const char* templatePath, const char* name);

    unsigned GetWidth() const { return m_nWidth; }
    unsigned GetHeight() const { return m_nHeight; }
    unsigned GetAllocWidth() const { return m_nAllocWidth; }
    unsigned GetBytesPerPixel() const { return m_nBytesPerPixel; }
    GLuint GetTexName() const { return m_nTexName; }
    unsigned GetFormat() const { return m_nFormat; }
    unsigned GetType() const { return m_nType; }
    unsigned GetTarget() const { return m_nTarget; }
    bool IsST() const { return m_bST; }
    // The graphics buffer that the format-based ST creation allocated; null
    // for a normal texture and for a wrapped native buffer.
    android::sp<android::GraphicBuffer> GetGraphicBuffer() const { return m_spGraphicBuffer; }

    // Keeps a reference-counted object alive for as long as this texture
    // (slot 0 or 1), for example the buffer an owner had wrapped. A later
    // call replaces the slot's object; the destructor releases both.
    void HoldReference(unsigned slot, const android::sp<android::RefBase>& ref);

private:
    // The writers' refusals, each with its error line: only a streaming RGB
    // or RGBA texture with a data buffer (with 4 bytes per texel when
    // `fourBytesPerTexel`) can be dumped. 1 / 0.
    int CanDump(const char* fn, bool fourBytesPerTexel) const;

    GLTexture(const GLTexture&) = delete;
    GLTexture& operator=(const GLTexture&) = delete;

    bool m_bST;
    GLuint m_nTexName;
    unsigned m_nWidth;
    unsigned m_nAllocWidth;
    unsigned m_nHeight;
    unsigned m_nBytesPerPixel;
    unsigned m_nFormat;
    unsigned m_nType;
    uintptr_t m_pData;
    android::sp<android::RefBase> m_spHeld0;
    android::sp<android::RefBase> m_spHeld1;
    android::sp<android::GraphicBuffer> m_spGraphicBuffer;
    EGLImageKHR m_eglImage;
    unsigned m_nTarget;
    unsigned m_nStride;
};

#endif
