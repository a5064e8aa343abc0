// The GPU YUV output converter of GEShader: the effect's RGBA result (the
// source texture) becomes a semi-planar YUV 4:2:0 image in two passes, a
// luma pass that packs four Y samples into each RGBA texel of the Y texture
// and a chroma pass that packs two V/U pairs into each texel of the chroma
// texture. Both outputs are streaming textures, so the CPU copies the planes
// straight out of their buffers; the chroma plane follows the luma plane with
// the same row length and half its rows.
#include <GLES2/gl2.h>
#include <stdint.h>
#include <string.h>
#include <new>

#include "engine/GEShader.h"
#include "engine/GLProgRGBtoYUV.h"
#include "gl/GELog.h"
#include "gl/GLFbo.h"
#include "gl/GLQuad.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_log("GEShader");

// Makes `tex` (the converter's source) the texture of unit 0 and sets its
// minifying and magnifying filters.
void SetSourceFilter(GLTexture* tex, GLint filter) {
    glActiveTexture(GL_TEXTURE0);
    tex->Bind();
    tex->SetParameteri(GL_TEXTURE_MIN_FILTER, filter);
    tex->SetParameteri(GL_TEXTURE_MAG_FILTER, filter);
}

// A streaming output texture of `w` x `h` texels for one plane, with its
// framebuffer. 1 / 0; what was made is kept for DeinitYUVConverter.
int InitPlane(GLTexture*& tex, GLFbo*& fbo, int w, int h) {
    tex = new (std::nothrow) GLTexture();
    if (tex == nullptr || !tex->Init(GL_RGBA, GL_UNSIGNED_BYTE, (unsigned)w, (unsigned)h, 1)) {
        return 0;
    }
    tex->Bind();
    tex->SetParameteri(GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    tex->SetParameteri(GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    tex->SetParameteri(GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    tex->SetParameteri(GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    fbo = new (std::nothrow) GLFbo();
    if (fbo == nullptr || !fbo->Init()) {
        return 0;
    }
    return fbo->SetColorAttachment(tex);
}

}  // namespace

int GEShader::InitYUVConverter(int srcW, int srcH, int outW, int outH) {
    GE_LOGI(s_log, "[%s] enter", "InitYUVConverter");
    // A second Init replaces what the first one made.
    DeinitYUVConverter();
    if (srcW <= 0 || srcH <= 0 || outW <= 0 || outH <= 0) {
        GE_LOGE(s_log, "[%s] bad size src %dx%d out %dx%d", "InitYUVConverter", srcW, srcH, outW,
                outH);
        return 0;
    }
    m_nYUVSrcW = srcW;
    m_nYUVSrcH = srcH;
    m_nYUVOutW = outW;
    m_nYUVOutH = outH;
    m_nYUVPlaneStride = ((outW / 4 + 31) & ~31) * 4;
    m_nYUVUVHeight = outH / 2;

    // The source texture, which the effects render into through m_pDstFbo.
    m_pYUVSrcTex = new (std::nothrow) GLTexture();
    if (m_pYUVSrcTex == nullptr ||
        !m_pYUVSrcTex->Init(GL_RGBA, GL_UNSIGNED_BYTE, (unsigned)srcW, (unsigned)srcH, 0)) {
        return 0;
    }
    m_pYUVSrcTex->SetParameteri(GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    m_pYUVSrcTex->SetParameteri(GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    m_pDstFbo = new (std::nothrow) GLFbo();
    if (m_pDstFbo == nullptr || !m_pDstFbo->Init() ||
        !m_pDstFbo->SetColorAttachment(m_pYUVSrcTex)) {
        return 0;
    }

    GE_LOGI(s_log, "[%s] Creating tex/FBO for Y plane", "InitYUVConverter");
    if (!InitPlane(m_pYTex, m_pYFbo, m_nYUVPlaneStride / 4, outH)) {
        return 0;
    }
    GE_LOGI(s_log, "[%s] Creating tex/FBO for UV plane", "InitYUVConverter");
    if (!InitPlane(m_pUVTex, m_pUVFbo, m_nYUVPlaneStride / 4, m_nYUVUVHeight)) {
        return 0;
    }

    m_pProgRGBtoY = new (std::nothrow) GLProgRGBtoY();
    if (m_pProgRGBtoY == nullptr) {
        GE_LOGE(s_log, "[%s] can't new program RGBtoY", "InitYUVConverter");
        return 0;
    }
    // The four source pixels a Y texel covers, from its centre.
    const GLfloat shiftY[8] = {-1.5f / (float)srcW, 0.0f, -0.5f / (float)srcW, 0.0f,
                               0.5f / (float)srcW,  0.0f, 1.5f / (float)srcW,  0.0f};
    m_pProgRGBtoY->SetShift(shiftY);
    if (!m_pProgRGBtoY->Load()) {
        GE_LOGE(s_log, "[%s] can't load program RGBtoY", "InitYUVConverter");
        return 0;
    }
    m_pProgRGBtoY->SetTextures(0, m_pYUVSrcTex);

    m_pProgRGBtoUV = new (std::nothrow) GLProgRGBtoUV();
    if (m_pProgRGBtoUV == nullptr) {
        GE_LOGE(s_log, "[%s] can't new program RGBtoUV", "InitYUVConverter");
        return 0;
    }
    if (!m_pProgRGBtoUV->Load()) {
        GE_LOGE(s_log, "[%s] can't load program RGBtoUV", "InitYUVConverter");
        return 0;
    }
    m_pProgRGBtoUV->SetTextures(0, m_pYUVSrcTex);
    // One source pixel left and right of a chroma texel's centre.
    const GLfloat shiftUV[4] = {-1.0f / (float)srcW, 0.0f / (float)srcH, 1.0f / (float)srcW,
                                0.0f / (float)srcH};
    m_pProgRGBtoUV->SetShift(shiftUV);

    GE_LOGI(s_log, "[%s] leave", "InitYUVConverter");
    return 1;
}

void GEShader::DeinitYUVConverter() {
    delete m_pProgRGBtoY;
    m_pProgRGBtoY = nullptr;
    delete m_pProgRGBtoUV;
    m_pProgRGBtoUV = nullptr;
    // Framebuffers before the textures they hold.
    delete m_pDstFbo;
    m_pDstFbo = nullptr;
    delete m_pYFbo;
    m_pYFbo = nullptr;
    delete m_pUVFbo;
    m_pUVFbo = nullptr;
    delete m_pYUVSrcTex;
    m_pYUVSrcTex = nullptr;
    delete m_pYTex;
    m_pYTex = nullptr;
    delete m_pUVTex;
    m_pUVTex = nullptr;
}

int GEShader::ConvertYUV(int x, int y) {
    if (m_pProgRGBtoY == nullptr || m_pProgRGBtoUV == nullptr) {
        GE_LOGE(s_log, "[%s] converter not initialized", "ConvertYUV");
        return 0;
    }
    m_pYFbo->Bind();
    glViewport(x, y, m_nYUVSrcW / 4, m_nYUVSrcH);
    SetSourceFilter(m_pYUVSrcTex, GL_NEAREST);
    m_pProgRGBtoY->Use();
    m_pProgRGBtoY->SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    m_pProgRGBtoY->SetTextureCoord(g_nQuadTexCoordSize, g_fQuadTexCoord);
    m_pProgRGBtoY->Draw();

    m_pUVFbo->Bind();
    glViewport(x, y, m_nYUVSrcW / 4, m_nYUVSrcH / 2);
    SetSourceFilter(m_pYUVSrcTex, GL_LINEAR);
    m_pProgRGBtoUV->Use();
    m_pProgRGBtoUV->SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    m_pProgRGBtoUV->SetTextureCoord(g_nQuadTexCoordSize, g_fQuadTexCoord);
    m_pProgRGBtoUV->Draw();
    return 1;
}

int GEShader::ConvertYUV(int x, int y, int w, int h) {
    if (m_pProgRGBtoY == nullptr || m_pProgRGBtoUV == nullptr) {
        GE_LOGE(s_log, "[%s] converter not initialized", "ConvertYUV");
        return 0;
    }
    // The tile's texture coordinates are integer quotients: 1 on an axis
    // where the tile reaches the source's far edge, 0 otherwise.
    const GLfloat fx = (GLfloat)((unsigned)(x + w) / (unsigned)m_nYUVSrcW);
    const GLfloat fy = (GLfloat)((unsigned)(y + h) / (unsigned)m_nYUVSrcH);

    m_pYFbo->Bind();
    glViewport(x / 4, y, w / 4, h);
    m_pProgRGBtoY->Use();
    m_pProgRGBtoY->SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    SetSourceFilter(m_pYUVSrcTex, GL_NEAREST);
    const GLfloat yCoord[8] = {0.0f, fy, 0.0f, 0.0f, fx, 0.0f, fx, fy};
    memcpy(m_fYTileTexCoord, yCoord, sizeof(yCoord));
    m_pProgRGBtoY->SetTextureCoord(g_nQuadTexCoordSize, m_fYTileTexCoord);
    m_pProgRGBtoY->Draw();

    // The chroma viewport starts at (x, y) itself.
    m_pUVFbo->Bind();
    glViewport(x, y, w / 4, h / 2);
    SetSourceFilter(m_pYUVSrcTex, GL_LINEAR);
    memcpy(m_fUVTileTexCoord, yCoord, sizeof(yCoord));
    m_pProgRGBtoUV->Use();
    m_pProgRGBtoUV->SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    m_pProgRGBtoUV->SetTextureCoord(g_nQuadTexCoordSize, m_fUVTileTexCoord);
    m_pProgRGBtoUV->Draw();
    return 1;
}

// The converted block (x, y, w, h) goes to the caller's planes: luma rows of
// dstStride bytes at pDstYStart, chroma rows of the same length at
// pDstUVStart, one chroma row per even luma row. A tile that follows another
// one (x or y not 0) leaves the first half of the overlap to its neighbour.
//
// The copy is cut to what exists on both sides: destination columns
// [0, dstStride), luma rows [0, dstHeight) and chroma rows
// [0, dstHeight / 2); source rows and columns inside the Y and chroma
// textures' buffers. A block inside both is copied whole, so the cut only
// matters for the widened right-hand tiles of narrow or cropped captures.
int GEShader::BlockCopyYUV(unsigned char* pDstYStart, unsigned char* pDstUVStart, int dstStride,
                           int dstHeight, int x, int y, int w, int h) {
    if (m_pYTex != nullptr) {
        m_pYTex->clean_buffer();
    }
    if (m_pUVTex != nullptr) {
        m_pUVTex->clean_buffer();
    }
    if (pDstYStart == nullptr || pDstUVStart == nullptr) {
        GE_LOGE(s_log, "[%s] pDstYStart (%u) or pDstUVStart (%u) is NULL\n", "BlockCopyYUV",
                (unsigned)(uintptr_t)pDstYStart, (unsigned)(uintptr_t)pDstUVStart);
        return 0;
    }
    if (m_pYTex == nullptr || m_pUVTex == nullptr) {
        GE_LOGE(s_log, "[%s] converter not initialized", "BlockCopyYUV");
        return 0;
    }
    const unsigned char* srcY = m_pYTex->GetSTDataBuf();
    const unsigned char* srcUV = m_pUVTex->GetSTDataBuf();
    if (srcY == nullptr || srcUV == nullptr) {
        return 0;
    }
    const long pitchY = (long)m_pYTex->GetStride() * 4;
    const long pitchUV = (long)m_pUVTex->GetStride() * 4;
    const long rowsY = (long)m_pYTex->GetHeight();
    const long rowsUV = (long)m_pUVTex->GetHeight();

    const long skipX = x != 0 ? (long)(m_nOverlapX / 2) : 0;
    const long skipY = y != 0 ? (long)(m_nOverlapY / 2) : 0;

    // Destination columns [c0, c1), read from tile column c - x.
    long c0 = (long)x + skipX;
    long c1 = (long)x + (long)w;
    if (c0 < 0) {
        c0 = 0;
    }
    if (c1 > (long)dstStride) {
        c1 = dstStride;
    }
    const long pitch = pitchY < pitchUV ? pitchY : pitchUV;
    if (c1 > (long)x + pitch) {
        c1 = (long)x + pitch;
    }
    // Destination rows [r0, r1), read from tile row r - y.
    long r0 = (long)y + skipY;
    long r1 = (long)y + (long)h;
    if (r0 < 0) {
        r0 = 0;
    }
    if (r1 > (long)dstHeight) {
        r1 = dstHeight;
    }
    if (r1 > (long)y + rowsY) {
        r1 = (long)y + rowsY;
    }
    if (c1 <= c0 || r1 <= r0) {
        return 1;
    }
    const size_t bytes = (size_t)(c1 - c0);
    const long uvRowsDst = (long)dstHeight / 2;
    for (long r = r0; r < r1; ++r) {
        const long t = r - y;
        memcpy(pDstYStart + r * (long)dstStride + c0, srcY + t * pitchY + (c0 - x), bytes);
        if ((r & 1) == 0 && r / 2 < uvRowsDst && t / 2 < rowsUV) {
            memcpy(pDstUVStart + (r / 2) * (long)dstStride + c0,
                   srcUV + (t / 2) * pitchUV + (c0 - x), bytes);
        }
    }
    return 1;
}

int GEShader::MemcpyYUV(void* pDstY, void* pDstUV) {
    BlockCopyYUV((unsigned char*)pDstY, (unsigned char*)pDstUV, m_nYUVOutW, m_nYUVOutH, 0, 0,
                 m_nYUVOutW, m_nYUVOutH);
    return 1;
}

int GEShader::BlockCopy(GLTexture* dst, int dx, int dy, int w, int h, GLTexture* src, int sx,
                        int sy) {
    if (dst == nullptr || src == nullptr) {
        GE_LOGE(s_log, "[%s] src (%p) or dst (%p) is NULL\n", "BlockCopy", (void*)src, (void*)dst);
        return 0;
    }
    if (src->GetType() != dst->GetType()) {
        GE_LOGE(s_log, "[%s] inconsistent type. src(%u) dst(%u)\n", "BlockCopy", src->GetType(),
                dst->GetType());
        return 0;
    }
    // Same type but another pixel size (RGBA against RGB bytes) cannot be
    // copied pixel for pixel either.
    if (src->GetFormat() != dst->GetFormat()) {
        GE_LOGE(s_log, "[%s] inconsistent format. src(%u) dst(%u)\n", "BlockCopy", src->GetFormat(),
                dst->GetFormat());
        return 0;
    }
    if (src->GetFormat() == GL_RGBA) {
        return BlkCpyRGBA8888(dst, dx, dy, w, h, src, sx, sy);
    }
    if (src->GetFormat() == GL_RGB) {
        if (src->GetType() == GL_UNSIGNED_SHORT_5_6_5) {
            return BlkCpyRGB565(dst, dx, dy, w, h, src, sx, sy);
        }
        GE_LOGE(s_log, "[%s] format %u type %u not support\n", "BlockCopy", src->GetFormat(),
                src->GetType());
        return 0;
    }
    GE_LOGE(s_log, "[%s] format %u not support\n", "BlockCopy", src->GetFormat());
    return 0;
}

namespace {

// Copies a w x h block of `bpp`-byte pixels between the CPU buffers of two
// streaming textures, each addressed with its width as the row pitch, one
// pixel at a time. The block is cut to both textures; 0 when either has no
// CPU buffer.
int BlkCpy(unsigned bpp, GLTexture* dst, int dx, int dy, int w, int h, GLTexture* src, int sx,
           int sy) {
    unsigned char* pDst = dst->GetSTDataBuf();
    const unsigned char* pSrc = src->GetSTDataBuf();
    if (pDst == nullptr || pSrc == nullptr) {
        return 0;
    }
    const long dw = (long)dst->GetWidth(), dh = (long)dst->GetHeight();
    const long sw = (long)src->GetWidth(), sh = (long)src->GetHeight();
    // Block columns [i0, i1) and rows [j0, j1) that lie inside both.
    long i0 = 0, j0 = 0, i1 = w, j1 = h;
    if (i0 < -(long)dx) {
        i0 = -(long)dx;
    }
    if (i0 < -(long)sx) {
        i0 = -(long)sx;
    }
    if (j0 < -(long)dy) {
        j0 = -(long)dy;
    }
    if (j0 < -(long)sy) {
        j0 = -(long)sy;
    }
    if (i1 > dw - dx) {
        i1 = dw - dx;
    }
    if (i1 > sw - sx) {
        i1 = sw - sx;
    }
    if (j1 > dh - dy) {
        j1 = dh - dy;
    }
    if (j1 > sh - sy) {
        j1 = sh - sy;
    }
    for (long j = j0; j < j1; ++j) {
        for (long i = i0; i < i1; ++i) {
            const size_t d = (size_t)((dy + j) * dw + dx + i) * bpp;
            const size_t s = (size_t)((sy + j) * sw + sx + i) * bpp;
            memcpy(pDst + d, pSrc + s, bpp);
        }
    }
    return 1;
}

}  // namespace

int GEShader::BlkCpyRGB565(GLTexture* dst, int dx, int dy, int w, int h, GLTexture* src, int sx,
                           int sy) {
    return BlkCpy(2, dst, dx, dy, w, h, src, sx, sy);
}

int GEShader::BlkCpyRGBA8888(GLTexture* dst, int dx, int dy, int w, int h, GLTexture* src, int sx,
                             int sy) {
    return BlkCpy(4, dst, dx, dy, w, h, src, sx, sy);
}
