// BMP look-up images into textures, and debug dumps of textures and
// framebuffers back into BMP files.
//
// Only the fixed 54-byte header of an uncompressed BMP is understood; pixel
// bytes are copied verbatim, rows packed by the width without the format's
// row padding, the file's first row landing in texture row 0. The writers
// copy their header from a template BMP and patch its size and depth.
#include <errno.h>
#include <inttypes.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "gl/GECommon.h"
#include "gl/GELog.h"
#include "gl/GLFbo.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_texLog("GLTexture");
GELogTag s_fboLog("GLFbo");

const size_t kHeaderSize = 54;           // what the reader reads
const size_t kTemplateHeaderSize = 128;  // what the texture writers copy
const size_t kMinTemplateHeader = 30;    // up to and including the depth field
// No texture side is larger than this; bigger sizes in a header are refused
// like an allocation that cannot succeed.
const int64_t kMaxSide = 16384;

uint32_t GetU32(const unsigned char* p) {
    return (uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24;
}

void PutU32(unsigned char* p, uint32_t v) {
    p[0] = (unsigned char)v;
    p[1] = (unsigned char)(v >> 8);
    p[2] = (unsigned char)(v >> 16);
    p[3] = (unsigned char)(v >> 24);
}

void PutU16(unsigned char* p, uint32_t v) {
    p[0] = (unsigned char)v;
    p[1] = (unsigned char)(v >> 8);
}

// The header fields of a template after the writers have set the size and
// depth of what they dump.
void PatchHeader(unsigned char* header, unsigned width, unsigned height, unsigned bits) {
    PutU32(header + 18, width);
    PutU32(header + 22, height);
    PutU16(header + 28, bits);
}

// Bits per pixel that a texture of this format and type is dumped with; 0
// for a pair the writers do not know.
unsigned BitsPerPixel(unsigned format, unsigned type) {
    if (format == GL_RGB && type == GL_UNSIGNED_SHORT_5_6_5) {
        return 16;
    }
    if (format == GL_RGB && type == GL_UNSIGNED_BYTE) {
        return 24;
    }
    if (format == GL_RGBA && type == GL_UNSIGNED_BYTE) {
        return 32;
    }
    if (format == GL_LUMINANCE && type == GL_UNSIGNED_BYTE) {
        return 8;
    }
    return 0;
}

// Bytes glTexImage2D reads for a width x height image of this format and
// type, with rows aligned as the largest unpack alignment GL allows (8), so
// that the answer holds whatever alignment is set. An unknown pair is sized
// as 4 bytes per texel.
uint64_t GLUploadBytes(unsigned format, unsigned type, int64_t width, int64_t height) {
    if (width <= 0 || height <= 0) {
        return 0;
    }
    uint64_t texel = 4;
    if (type == GL_UNSIGNED_SHORT_5_6_5 || type == GL_UNSIGNED_SHORT_4_4_4_4 ||
        type == GL_UNSIGNED_SHORT_5_5_5_1) {
        texel = 2;
    } else if (type == GL_UNSIGNED_BYTE) {
        switch (format) {
            case GL_RGB:
                texel = 3;
                break;
            case GL_LUMINANCE_ALPHA:
                texel = 2;
                break;
            case GL_LUMINANCE:
            case GL_ALPHA:
                texel = 1;
                break;
            default:
                texel = 4;
                break;
        }
    }
    uint64_t row = (uint64_t)width * texel;
    uint64_t pitch = (row + 7) & ~(uint64_t)7;
    return pitch * (uint64_t)(height - 1) + row;
}

// Bytes a streaming texture's buffer holds: its rows are `stride` pixels.
uint64_t STCapacity(const GLTexture* tex) {
    if (tex->GetHeight() == 0xFFFFFFFFu) {
        return 0;
    }
    return (uint64_t)tex->GetStride() * tex->GetHeight() * tex->GetBytesPerPixel();
}

// Length of a file open for reading, or -1; the position is left at the start.
long FileLength(FILE* f) {
    if (fseek(f, 0, SEEK_END) != 0) {
        return -1;
    }
    long length = ftell(f);
    if (fseek(f, 0, SEEK_SET) != 0) {
        return -1;
    }
    return length;
}

// The template and the output of a writer, with the template's first bytes.
struct BmpWriter {
    FILE* in = nullptr;
    FILE* out = nullptr;
    unsigned char header[kTemplateHeaderSize] = {};

    ~BmpWriter() { Close(); }
    void Close() {
        if (in) {
            fclose(in);
            in = nullptr;
        }
        if (out) {
            fclose(out);
            out = nullptr;
        }
    }
    uint32_t DataOffset() const { return GetU32(header + 10); }

    // Opens the template and "/data/<name>" and reads the template's first
    // 128 bytes (fewer for a tiny template; the rest stays zero).
    bool Open(GELogTag& log, const char* fn, const char* templatePath, const char* name) {
        char outName[256];
        snprintf(outName, sizeof(outName), "/data/%s", name ? name : "");
        GE_LOGI(log, "[%s] fname %s\n", fn, templatePath ? templatePath : "");
        GE_LOGI(log, "[%s] foutname %s\n", fn, outName);
        in = templatePath ? fopen(templatePath, "rb") : nullptr;
        if (!in) {
            GE_LOGE(log, "[%s] can't open fin\n", fn);
            return false;
        }
        out = fopen(outName, "wb");
        if (!out) {
            GE_LOGE(log, "[%s] can't open fout, %s\n", fn, strerror(errno));
            Close();
            return false;
        }
        size_t got = fread(header, 1, sizeof(header), in);
        // The pixel data of a real template lies inside the file.
        long length = FileLength(in);
        if (got < kMinTemplateHeader || header[0] != 'B' || header[1] != 'M' ||
            DataOffset() < kMinTemplateHeader || length < 0 || (uint64_t)length < DataOffset()) {
            GE_LOGE(log, "[%s] not a BMP file\n", fn);
            Close();
            return false;
        }
        return true;
    }

    // Both streams free of errors, closed.
    bool Finish(GELogTag& log, const char* fn) {
        int inError = ferror(in);
        int outError = ferror(out);
        if (fclose(out) != 0) {
            outError = 1;
        }
        out = nullptr;
        Close();
        if (inError || outError) {
            GE_LOGE(log, "[%s] ferror %u %u\n", fn, (unsigned)inError, (unsigned)outError);
            return false;
        }
        return true;
    }
};

}  // namespace

int GLTexture::LoadBMP(const char* path, unsigned format, unsigned type, unsigned char st) {
    const char* fn = "LoadBMP";
    GE_LOGI(s_texLog, "[%s] enter", fn);
    FILE* f = path ? fopen(path, "rb") : nullptr;
    GE_LOGI(s_texLog, "[%s] BMP file %s\n", fn, path ? path : "");
    if (!f) {
        GE_LOGE(s_texLog, "[%s] Can't open BMP %s\n", fn, path ? path : "");
        return 0;
    }

    unsigned char header[kHeaderSize] = {};
    size_t got = fread(header, 1, sizeof(header), f);
    if (got < 2 || header[0] != 'B' || header[1] != 'M') {
        fclose(f);
        GE_LOGE(s_texLog, "[%s] Can't open bmp: Header fail\n", fn);
        return 0;
    }
    if (got < sizeof(header)) {
        GE_LOGE(s_texLog, "[%s] error reading file\n", fn);
        fclose(f);
        return 0;
    }
    uint32_t offset = GetU32(header + 10);
    int32_t width = (int32_t)GetU32(header + 18);
    int32_t height = (int32_t)GetU32(header + 22);
    int bits = header[28];

    // Lenient on purpose: only a file whose depth disagrees with both the
    // format and the type is refused.
    bool mismatch = false;
    switch (bits) {
        case 32:
            mismatch = format != GL_RGBA && type != GL_UNSIGNED_BYTE;
            break;
        case 24:
            mismatch = format != GL_RGB && type != GL_UNSIGNED_BYTE;
            break;
        case 16:
            mismatch = format != GL_RGB && type != GL_UNSIGNED_SHORT_5_6_5;
            break;
        case 8:
            mismatch = format != GL_LUMINANCE && type != GL_UNSIGNED_BYTE;
            break;
        default:
            break;
    }
    if (mismatch) {
        GE_LOGE(s_texLog, "[%s] %d bpp, format 0x%04X and type 0x%04X mismatch", fn, bits, format,
                type);
        fclose(f);
        return 0;
    }

    GE_LOGI(s_texLog, "[%s] alloc buf for file reading\n", fn);
    if (width < 0 || height < 0 || width > kMaxSide || height > kMaxSide) {
        GE_LOGE(s_texLog, "[%s] out of memory\n", fn);
        fclose(f);
        return 0;
    }
    uint64_t size = (uint64_t)bits * ((uint64_t)width * (uint64_t)height) / 8;
    // A normal texture's upload reads what GL needs for its own format and
    // type, which may be more than the file's depth gives: the rest is zero.
    uint64_t bufSize = size;
    if (!st) {
        uint64_t need = GLUploadBytes(format, type, width, height);
        if (need > bufSize) {
            bufSize = need;
        }
    }
    // A file that cannot hold the pixels fails at the read below; it gets no
    // buffer of the size its header claims.
    long length = FileLength(f);
    bool shortFile = length < 0 || (uint64_t)length < offset || (uint64_t)length - offset < size;
    unsigned char* buffer = nullptr;
    if (!shortFile) {
        buffer = (unsigned char*)calloc((size_t)(bufSize ? bufSize : 1), 1);
        if (!buffer) {
            GE_LOGE(s_texLog, "[%s] out of memory\n", fn);
            fclose(f);
            return 0;
        }
    }

    GE_LOGI(s_texLog, "[%s] reading %dx%d, %d BPP\n", fn, width, height, bits);
    bool seekOk = fseek(f, (long)offset, SEEK_SET) == 0;
    if (bits != 8 && bits != 16 && bits != 24 && bits != 32) {
        free(buffer);
        fclose(f);
        return 0;
    }
    if (shortFile || !seekOk || fread(buffer, 1, (size_t)size, f) != size || ferror(f)) {
        GE_LOGE(s_texLog, "[%s] error reading file\n", fn);
        free(buffer);
        fclose(f);
        return 0;
    }
    fclose(f);
    GE_LOGI(s_texLog, "[%s] file reading done\n", fn);

    if (!Init(format, type, (unsigned)width, (unsigned)height, st)) {
        GE_LOGE(s_texLog, "[%s] Can't init texture\n", fn);
        free(buffer);
        return 0;
    }

    GE_LOGI(s_texLog, "[%s] update data into texture\n", fn);
    Bind();
    if (m_bST) {
        // Packed rows, not the buffer's 32-pixel stride; never past its end.
        uint64_t capacity = STCapacity(this);
        uint64_t copy = size < capacity ? size : capacity;
        if (m_pData != 0 && copy > 0) {
            memcpy(reinterpret_cast<void*>(m_pData), buffer, (size_t)copy);
        }
    } else {
        UpdateNormalTexture(buffer, (unsigned)width, (unsigned)height);
    }
    SetParameteri(GL_TEXTURE_WRAP_S, GL_REPEAT);
    SetParameteri(GL_TEXTURE_WRAP_T, GL_REPEAT);
    SetParameteri(GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    SetParameteri(GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    free(buffer);
    GE_LOGI(s_texLog, "[%s] leave", fn);
    return 1;
}

int GLTexture::CanDump(const char* fn, bool fourBytesPerTexel) const {
    if (!m_bST) {
        GE_LOGE(s_texLog, "[%s] ERROR, only streaming texture use this method\n", fn);
        return 0;
    }
    if (m_nFormat != GL_RGB && m_nFormat != GL_RGBA) {
        GE_LOGE(s_texLog, "[%s] ERROR, only RGB or RGBA texture use this method\n", fn);
        return 0;
    }
    // SaveBMP_yuvx reads its rows as 4 bytes per texel.
    if (fourBytesPerTexel && m_nBytesPerPixel != 4) {
        GE_LOGE(s_texLog, "[%s] ERROR, only 32-bit texture use this method\n", fn);
        return 0;
    }
    if (m_pData == 0) {
        GE_LOGE(s_texLog, "[%s] ERROR, null data buf\n", fn);
        return 0;
    }
    return 1;
}

int GLTexture::SaveBMP(const char* templatePath, const char* name) {
    const char* fn = "SaveBMP";
    GE_LOGI(s_texLog, "[%s] enter", fn);
    if (!CanDump(fn, false)) {
        return 0;
    }
    BmpWriter io;
    if (!io.Open(s_texLog, fn, templatePath, name)) {
        return 0;
    }
    unsigned bits = BitsPerPixel(m_nFormat, m_nType);
    PatchHeader(io.header, m_nWidth, m_nHeight, bits);
    fwrite(io.header, 1, sizeof(io.header), io.out);

    uint64_t capacity = STCapacity(this);
    uint64_t size = (uint64_t)m_nWidth * m_nHeight * bits / 8;
    if (size > capacity) {
        size = capacity;
    }
    unsigned char* data = reinterpret_cast<unsigned char*>(m_pData);
    if (bits == 32) {
        // RGBA becomes BGRA with opaque alpha, in the texture itself.
        for (uint64_t i = 0; i + 4 <= size; i += 4) {
            unsigned char r = data[i];
            data[i] = data[i + 2];
            data[i + 2] = r;
            data[i + 3] = 0xFF;
        }
    }
    uint32_t offset = io.DataOffset();
    GE_LOGI(s_texLog, "[%s] offset %d, w=%d, h=%d, bpp=%d, size=%d\n", fn, (int)offset,
            (int)m_nWidth, (int)m_nHeight, (int)bits, (int)size);
    fseek(io.out, (long)offset, SEEK_SET);
    fwrite(data, 1, (size_t)size, io.out);
    if (!io.Finish(s_texLog, fn)) {
        return 0;
    }
    GE_LOGI(s_texLog, "[%s] leave", fn);
    return 1;
}

int GLTexture::SaveBMP_yuvx(const char* templatePath, const char* name) {
    const char* fn = "SaveBMP_yuvx";
    GE_LOGI(s_texLog, "[%s] enter", fn);
    if (!CanDump(fn, true)) {
        return 0;
    }
    BmpWriter io;
    if (!io.Open(s_texLog, fn, templatePath, name)) {
        return 0;
    }
    PatchHeader(io.header, m_nWidth, m_nHeight, 8);
    fwrite(io.header, 1, sizeof(io.header), io.out);
    fseek(io.out, (long)io.DataOffset(), SEEK_SET);

    const unsigned char* data = reinterpret_cast<const unsigned char*>(m_pData);
    GE_LOGI(s_texLog, "[%s] m_pData=%p, %dx%d\n", fn, (const void*)data, (int)m_nWidth,
            (int)m_nHeight);
    uint64_t capacity = STCapacity(this);
    uint64_t pitch = (uint64_t)m_nWidth * 4;
    uint64_t rows = m_nHeight;
    if (pitch > 0 && pitch * rows > capacity) {
        rows = capacity / pitch;
    }
    unsigned char* line = (unsigned char*)malloc(m_nWidth ? m_nWidth : 1);
    if (!line) {
        GE_LOGE(s_texLog, "[%s] out of memory\n", fn);
        return 0;
    }
    // The most significant byte of each little-endian 32-bit texel.
    for (uint64_t y = 0; y < rows; ++y) {
        const unsigned char* src = data + y * pitch;
        for (unsigned x = 0; x < m_nWidth; ++x) {
            line[x] = src[(uint64_t)x * 4 + 3];
        }
        fwrite(line, 1, m_nWidth, io.out);
    }
    free(line);
    if (!io.Finish(s_texLog, fn)) {
        return 0;
    }
    GE_LOGI(s_texLog, "[%s] leave", fn);
    return 1;
}

int GLFbo::SaveBMP(const char* templatePath, const char* name) {
    const char* fn = "SaveBMP";
    GE_LOGI(s_fboLog, "[%s] enter", fn);
    if (m_pTexture == nullptr) {
        GE_LOGE(s_fboLog, "[%s] no texture attached\n", fn);
        return 0;
    }
    BmpWriter io;
    if (!io.Open(s_fboLog, fn, templatePath, name)) {
        return 0;
    }
    unsigned width = m_pTexture->GetWidth();
    unsigned height = m_pTexture->GetHeight();
    unsigned format = m_pTexture->GetFormat();
    unsigned type = m_pTexture->GetType();
    unsigned bits = BitsPerPixel(format, type);

    // The template's whole header, up to its pixel data (inside the file).
    uint32_t offset = io.DataOffset();
    if ((int64_t)width > kMaxSide || (int64_t)height > kMaxSide) {
        GE_LOGE(s_fboLog, "[%s] out of memory\n", fn);
        return 0;
    }
    unsigned char* head = (unsigned char*)malloc(offset);
    // A row as glReadPixels may write it: never more than 4 bytes a pixel.
    unsigned char* row = (unsigned char*)calloc((size_t)width * 4 + 4, 1);
    if (!head || !row) {
        GE_LOGE(s_fboLog, "[%s] out of memory\n", fn);
        free(head);
        free(row);
        return 0;
    }
    if (fread(head, 1, offset, io.in) != offset) {
        GE_LOGE(s_fboLog, "[%s] not a BMP file\n", fn);
        free(head);
        free(row);
        return 0;
    }
    PatchHeader(head, width, height, bits ? bits : GetU32(head + 28) & 0xFFFF);
    fwrite(head, 1, offset, io.out);
    free(head);

    size_t rowBytes = (size_t)width * bits / 8;
    GE_LOGI(s_fboLog, "[%s] offset %d, w=%d, h=%d, bpp=%d, size=%d\n", fn, (int)offset, (int)width,
            (int)height, (int)bits, (int)(rowBytes * height));
    GE_LOGI(s_fboLog, "[%s] saving data\n", fn);
    for (unsigned y = 0; y < height; ++y) {
        glReadPixels(0, (GLint)y, (GLsizei)width, 1, format, type, row);
        if (bits == 32) {
            for (size_t i = 0; i + 4 <= rowBytes; i += 4) {
                unsigned char r = row[i];
                row[i] = row[i + 2];
                row[i + 2] = r;
            }
        }
        fwrite(row, 1, rowBytes, io.out);
    }
    free(row);
    io.Close();
    GE_LOGI(s_fboLog, "[%s] done\n", fn);
    GE_LOGI(s_fboLog, "[%s] leave", fn);
    return 1;
}
