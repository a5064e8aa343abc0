#include "effects/GEShaderDot.h"

#include <math.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <new>

#include "effects/GELookUp.h"
#include "gl/GLFbo.h"
#include "gl/GLQuad.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_log("GEShaderDot");

const char kInitRow[] = ">>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>";
const char kDeinitRow[] = "<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<<";

const char kPass1Fragment[] = GLPROG_EFFECT_FRAGMENT_HEAD
    "uniform vec4 u_crop;\n"
    "void main() {\n"
    "    vec2 q = v_texCoord;\n"
    "    q.x = q.x * u_crop.z + u_crop.x;\n"
    "    q.y = q.y * u_crop.w + u_crop.y;\n"
    "    gl_FragColor = u_mat_yuv2rgb * texture2D(s_texture0, q);\n"
    "}\n";

const char kPass1LargeFragment[] = GLPROG_EFFECT_FRAGMENT_HEAD GLPROG_EFFECT_PLANES_HEAD
    "void main() {\n"
    "    gl_FragColor = " GLPROG_EFFECT_PLANES_RGB("v_texCoord") ";\n"
    "}\n";

const char kPass2Vertex[] = GLPROG_EFFECT_VERTEX_HEAD
    "attribute vec2 a_maskTexCoord;\n"
    "varying vec2 v_maskTexCoord;\n"
    "void main() {\n"
    "    gl_Position = a_vertexCoord;\n"
    "    v_texCoord = a_textureCoord;\n"
    "    v_maskTexCoord = a_maskTexCoord;\n"
    "}\n";

const char kPass2Fragment[] =
    "precision highp float;\n"
    "uniform sampler2D s_texture0;\n"
    "uniform sampler2D s_dotMask;\n"
    "varying vec2 v_texCoord;\n"
    "varying vec2 v_maskTexCoord;\n"
    "void main() {\n"
    "    gl_FragColor = texture2D(s_texture0, v_texCoord) * texture2D(s_dotMask, "
    "v_maskTexCoord);\n"
    "}\n";

const char kPass3Fragment[] =
    "precision highp float;\n"
    "uniform sampler2D s_texture0;\n"
    "varying vec2 v_texCoord;\n"
    "void main() {\n"
    "    gl_FragColor = texture2D(s_texture0, v_texCoord);\n"
    "}\n";

// The quad's coordinates as the affine map (a0 + b0 s, a1 + b1 t) of its
// template (s, t), in the quad's vertex order.
void AffineQuad(GLfloat* out, double a0, double b0, double a1, double b1) {
    for (int i = 0; i < g_nQuadVertices; ++i) {
        out[2 * i] = (GLfloat)(a0 + b0 * (double)g_fQuadTexCoord[2 * i]);
        out[2 * i + 1] = (GLfloat)(a1 + b1 * (double)g_fQuadTexCoord[2 * i + 1]);
    }
}

// One axis of a capture tile. The picture is N pixels long; the tile shows
// output pixels [o, o + n). Output pixel X lies in cell floor((X + 1/2) /
// sp), and cell k shows the source at N c + (k + 1/2) sp cs (the crop's
// origin c and size cs in fractions of the picture), sampled between its two
// nearest pixels. `first` is the tile's first cell; `start` and `len` are
// the source pixels that the converter fetches for the tile's cells (start
// even, cut at the picture's edge, whose repetition in the tile texture's
// padding stands for what lies past it).
struct CellSpan {
    double first;
    unsigned start, len;
};

CellSpan CellSpanOf(unsigned N, double c, double cs, unsigned o, unsigned n, double sp) {
    const double k0 = floor(((double)o + 0.5) / sp);
    const double k1 = floor(((double)o + (double)n - 0.5) / sp);
    const double p0 = (double)N * c + (k0 + 0.5) * sp * cs - 0.5;
    const double p1 = (double)N * c + (k1 + 0.5) * sp * cs - 0.5;
    double first = floor(p0);
    if (first > (double)N - 2.0) {
        first = (double)N - 2.0;
    }
    const unsigned start = first > 0.0 ? (unsigned)first & ~1u : 0;
    double end = floor(p1) + 2.0;
    if (end > (double)N) {
        end = (double)N;
    }
    const unsigned len = end > (double)start ? (unsigned)end - start : 1;
    return {k0, start, len};
}

}  // namespace

// ---------------------------------------------------------------------------
// The programs

GLProgDotPass1::GLProgDotPass1() : GLProgEffect(s_log) {}

GLProgDotPass1::~GLProgDotPass1() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgDotPass1");
    GE_LOGI(s_log, "[%s] leave", "~GLProgDotPass1");
}

int GLProgDotPass1::Load() {
    GE_LOGI(s_log, "[%s] enter", "Load");
    return BuildProgram(kPass1Fragment, false) &&
           GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_CROP], "u_crop") && LoadDone(s_log);
}

GLProgDotPass1Large::GLProgDotPass1Large() : GLProgEffect(s_log) {}

GLProgDotPass1Large::~GLProgDotPass1Large() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgDotPass1Large");
    GE_LOGI(s_log, "[%s] leave", "~GLProgDotPass1Large");
}

int GLProgDotPass1Large::Load() {
    GE_LOGI(s_log, "[%s] enter", "Load");
    return BuildProgram(kPass1LargeFragment, false, 2) && LoadDone(s_log);
}

GLProgDotPass2::GLProgDotPass2() {}

GLProgDotPass2::~GLProgDotPass2() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgDotPass2");
    GE_LOGI(s_log, "[%s] leave", "~GLProgDotPass2");
}

int GLProgDotPass2::Load() {
    GE_LOGI(s_log, "[%s] enter", "Load");
    if (!LoadQuad(s_log, kPass2Vertex, kPass2Fragment) ||
        !FetchAttribLoc(m_nAttribLoc[ATTRIB_MASK_TEX_COORD], "a_maskTexCoord",
                        "ATTRIB_MASK_TEX_COORD") ||
        !GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_TEX_DOT_MASK], "s_dotMask")) {
        return 0;
    }
    GE_LOGI(s_log, "[%s] program id %d", "Load", (int)m_nProgram);
    GE_LOGI(s_log, "[%s] SAMPLER_INPUT_TEX %d", "Load", (int)m_nSamplerLoc[SAMPLER_INPUT_TEX]);
    GE_LOGI(s_log, "[%s] SAMPLER_TEX_DOT_MASK %d", "Load",
            (int)m_nSamplerLoc[SAMPLER_TEX_DOT_MASK]);
    GE_LOGI(s_log, "[%s] leave", "Load");
    return 1;
}

int GLProgDotPass2::Use() {
    return UseInputTex(2);
}

GLProgDotPass2Large::GLProgDotPass2Large() {}

GLProgDotPass2Large::~GLProgDotPass2Large() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgDotPass2Large");
    GE_LOGI(s_log, "[%s] leave", "~GLProgDotPass2Large");
}

GLProgDotPass3Large::GLProgDotPass3Large() {}

GLProgDotPass3Large::~GLProgDotPass3Large() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgDotPass3Large");
    GE_LOGI(s_log, "[%s] leave", "~GLProgDotPass3Large");
}

int GLProgDotPass3Large::Load() {
    GE_LOGI(s_log, "[%s] enter", "Load");
    return LoadQuad(s_log, GLPROG_EFFECT_VERTEX, kPass3Fragment) && LoadDone(s_log);
}

int GLProgDotPass3Large::Use() {
    return UseInputTex(1);
}

// ---------------------------------------------------------------------------
// GEShaderDot

GEShaderDot::GEShaderDot()
    : GEShader(s_log),
      m_pSizeDownTex(nullptr),
      m_pSizeDownFbo(nullptr),
      m_pPass1(nullptr),
      m_pPass2(nullptr),
      m_apMask(),
      m_nMaskIndex(2),
      m_fScreenRatio(1.0f),
      m_fCellSize(1.0f),
      m_fFirstCellSize(0.0f),
      m_pTileTex(nullptr),
      m_afPass1Coord(),
      m_afPass1Crop{0.0f, 0.0f, 1.0f, 1.0f},
      m_afSizeDownCoord(),
      m_afMaskCoord(),
      m_nCellsX(0),
      m_nCellsY(0) {}

GEShaderDot::~GEShaderDot() {
    Deinit();
}

int GEShaderDot::Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
                      unsigned char capture, IYUVConverter* conv) {
    GE_LOGI(s_log, "%s", kInitRow);
    GE_LOGI(s_log, "[GEShaderDot::Init]");
    GE_LOGI(s_log, "%s", kInitRow);
    GE_LOGI(s_log, "[%s] enter", "Init");
    StoreInitArgs(src, a, x, y, w, h, capture);
    if (src == nullptr || src->GetHeight() == 0) {
        GE_LOGE(s_log, "[%s] src texture is NULL\n", "Init");
        return 0;
    }
    // A capture makes its textures and programs when it runs.
    if (!m_bCapture) {
        if (!GEShader::Init(src, a, x, y, w, h, capture, conv)) {
            return 0;
        }
        // Pass 1's coordinates carry the width compensation, which maps the
        // picture onto the 32-aligned texture: the crop stays in fractions of
        // the picture, the whole of it until SetCrop says otherwise (the
        // base's share of the texture would count twice).
        SetCrop(0.0f, 0.0f, 1.0f, 1.0f);
        if (!NewSizeDown(w, h)) {
            return 0;
        }
    } else {
        m_pConverter = conv;
    }
    if (!LoadMasks()) {
        return 0;
    }
    m_nMaskIndex = 2;
    if (!m_bCapture && !NewPasses(src, false)) {
        return 0;
    }
    m_fScreenRatio = LogScreenRatio();
    FinishInit();
    SetParam(0, 50, 0, 0, 0);
    GE_LOGI(s_log, "%s", kInitRow);
    GE_LOGI(s_log, "[GEShaderDot::Init] leave");
    GE_LOGI(s_log, "%s", kInitRow);
    return 1;
}

int GEShaderDot::NewSizeDown(unsigned w, unsigned h) {
    GE_LOGI(s_log, "[%s] Creating tex for pass size down", "Init");
    delete m_pSizeDownFbo;
    m_pSizeDownFbo = nullptr;
    delete m_pSizeDownTex;
    m_pSizeDownTex = new (std::nothrow) GLTexture();
    if (m_pSizeDownTex == nullptr || !m_pSizeDownTex->Init(GL_RGBA, GL_UNSIGNED_BYTE, w, h, 0)) {
        GE_LOGE(s_log, "[%s] can't create tex for pass size down", "Init");
        return 0;
    }
    // Pass 2 takes exactly one texel per cell.
    m_pSizeDownTex->Bind();
    m_pSizeDownTex->SetParameteri(GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    m_pSizeDownTex->SetParameteri(GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    m_pSizeDownTex->SetParameteri(GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    m_pSizeDownTex->SetParameteri(GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    return 1;
}

int GEShaderDot::NewPasses(GLTexture* input, bool bLarge) {
    GE_LOGI(s_log, "[%s] Creating fbo pass size down", "Init");
    delete m_pSizeDownFbo;
    m_pSizeDownFbo = new (std::nothrow) GLFbo();
    if (m_pSizeDownFbo == nullptr || !m_pSizeDownFbo->Init() ||
        !m_pSizeDownFbo->SetColorAttachment(m_pSizeDownTex)) {
        GE_LOGE(s_log, "[%s] can't create fbo pass size down", "Init");
        return 0;
    }
    GE_LOGI(s_log, "[%s] Creating dot shader pass1", "Init");
    delete m_pPass1;
    m_pPass1 = new (std::nothrow) GLProgDotPass1();
    if (!LoadProgram(m_pPass1, "[%s] can't load program", "[%s] can't load program")) {
        return 0;
    }
    m_pPass1->SetTextures(0, input);
    GE_LOGI(s_log, "[%s] Creating dot shader pass2", "Init");
    delete m_pPass2;
    m_pPass2 =
        bLarge ? new (std::nothrow) GLProgDotPass2Large() : new (std::nothrow) GLProgDotPass2();
    if (!LoadProgram(m_pPass2, "[%s] can't load program", "[%s] can't load program")) {
        return 0;
    }
    m_pPass2->SetTextures(GLProgDotPass2::SAMPLER_INPUT_TEX, m_pSizeDownTex);
    m_pPass2->SetTextures(GLProgDotPass2::SAMPLER_TEX_DOT_MASK, m_apMask[m_nMaskIndex]);
    return 1;
}

int GEShaderDot::LoadMasks() {
    for (unsigned i = 0; i < kMaskCount; ++i) {
        // Only the system folder has them.
        char name[32];
        char path[128];
        snprintf(name, sizeof(name), "dot_mask_%u.bmp", i);
        snprintf(path, sizeof(path), "%sdot_mask_%u.bmp", g_szLookUpSystemDir, i);
        char newFail[64];
        char loadFail[192];
        snprintf(newFail, sizeof(newFail), "[%%s] can't new dot mask tex %u", i);
        snprintf(loadFail, sizeof(loadFail), "[%%s] can't load dot mask tex %s", path);
        delete m_apMask[i];
        // The repeat wrap shows the mask once per cell.
        m_apMask[i] = GELoadLookUp(s_log, name, GL_RGB, GL_UNSIGNED_SHORT_5_6_5, false, newFail,
                                   loadFail, GL_REPEAT);
        if (m_apMask[i] == nullptr) {
            return 0;
        }
    }
    return 1;
}

int GEShaderDot::Deinit() {
    GE_LOGI(s_log, "%s", kDeinitRow);
    GE_LOGI(s_log, "[GEShaderDot::Deinit]");
    GE_LOGI(s_log, "%s", kDeinitRow);
    m_bInited = false;
    GEShader::Deinit();
    delete m_pPass1;
    m_pPass1 = nullptr;
    delete m_pPass2;
    m_pPass2 = nullptr;
    // The framebuffer before the texture it holds.
    delete m_pSizeDownFbo;
    m_pSizeDownFbo = nullptr;
    delete m_pSizeDownTex;
    m_pSizeDownTex = nullptr;
    for (GLTexture*& mask : m_apMask) {
        delete mask;
        mask = nullptr;
    }
    delete m_pTileTex;
    m_pTileTex = nullptr;
    GE_LOGI(s_log, "%s", kDeinitRow);
    GE_LOGI(s_log, "[GEShaderDot::Deinit] leave");
    GE_LOGI(s_log, "%s", kDeinitRow);
    return 1;
}

int GEShaderDot::SetParam(unsigned group, int value, int, int, int) {
    if (!m_bInited) {
        GE_LOGE(s_log, "[%s] effect not initialized", "SetParam");
        return 0;
    }
    if (group != 0) {
        return 1;
    }
    const float h = (float)m_nRenderH;
    const float lo = h / 68.0f;
    const float hi = h / 30.0f;
    if (m_fFirstCellSize == 0.0f) {
        m_fFirstCellSize = (hi + lo) / 2.0f;
    }
    m_nMaskIndex = value < 51 ? 1 : 2;
    m_fCellSize = lo + (float)value * (hi - lo) / 100.0f;
    return 1;
}

int GEShaderDot::clean_buffer(android::sp<android::GraphicBuffer> buffer) {
    return GLTexture::CleanBuffer(buffer);
}

int GEShaderDot::ProcFrame(unsigned a, unsigned b, int c, int d) {
    return ProcPreview(m_pPass2, a, b, c, d);
}

int GEShaderDot::ProcFrame(unsigned char*, unsigned char*, int, int) {
    GE_LOGI(s_log, "[%s] enter", "ProcFrame");
    GE_LOGE(s_log, "[%s] Deprecated function for processing snapshot of Dot effect", "ProcFrame");
    return 0;
}

// Pass 1 draws the picture shrunk by the cell size s, so that size-down
// texel i holds the frame at the middle of cell i; pass 2 reads the first
// 1 / s of the size-down texture, one texel per cell, and the mask once per
// cell.
void GEShaderDot::SetPreviewCoords() {
    const double s = m_fCellSize;
    const double srcW = m_pSrcTexture->GetWidth();
    const double srcH = m_pSrcTexture->GetHeight();
    AffineQuad(m_afPass1Coord, 0.0, (double)m_nRenderW / (double)m_pSrcTexture->GetStride() * s,
               0.0, s);
    AffineQuad(m_afSizeDownCoord, 0.0, 1.0 / s, 0.0, 1.0 / s);
    AffineQuad(m_afMaskCoord, 0.0, srcW / s, 0.0, srcH / s);
    m_afPass1Crop[0] = m_fCropX;
    m_afPass1Crop[1] = m_fCropY;
    m_afPass1Crop[2] = m_fCropW;
    m_afPass1Crop[3] = m_fCropH;
    SetCellsRead(m_nRenderW, m_nRenderH, s);
}

void GEShaderDot::SetCellsRead(double w, double h, double s) {
    // A block of w pixels meets at most ceil(w / s) + 1 cells.
    const double sdW = m_pSizeDownTex->GetWidth();
    const double sdH = m_pSizeDownTex->GetHeight();
    m_nCellsX = (GLsizei)std::min(sdW, ceil(w / s) + 2.0);
    m_nCellsY = (GLsizei)std::min(sdH, ceil(h / s) + 2.0);
}

int GEShaderDot::ProcBlock(unsigned, unsigned, int, int) {
    int convW = (int)m_nYUVSrcW, convH = (int)m_nYUVSrcH;
    if (!m_bCapture) {
        SetPreviewCoords();
        convW = (int)m_pSrcTexture->GetWidth();
        convH = (int)m_pSrcTexture->GetHeight();
    }
    m_pSizeDownFbo->Bind();
    glViewport(0, 0, (GLsizei)m_pSizeDownTex->GetWidth(), (GLsizei)m_pSizeDownTex->GetHeight());
    // Pass 2 reads one texel a cell from the texture's corner: the scissor
    // keeps pass 1 to it (the texels it draws are those of the whole pass).
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, m_nCellsX, m_nCellsY);
    m_pPass1->Use();
    m_pPass1->SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    m_pPass1->Uniform4f(GLProgDotPass1::UNIFORM_CROP, m_afPass1Crop[0], m_afPass1Crop[1],
                        m_afPass1Crop[2], m_afPass1Crop[3]);
    m_pPass1->SetTextureCoord(g_nQuadTexCoordSize, m_afPass1Coord);
    m_pPass1->Draw();
    glDisable(GL_SCISSOR_TEST);

    m_pDstFbo->Bind();
    glViewport((GLint)m_nRenderX, (GLint)m_nRenderY, (GLsizei)m_nRenderW, (GLsizei)m_nRenderH);
    m_pPass2->SetTextures(GLProgDotPass2::SAMPLER_TEX_DOT_MASK, m_apMask[m_nMaskIndex]);
    m_pPass2->Use();
    m_pPass2->SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    m_pPass2->SetTextureCoord(g_nQuadTexCoordSize, m_afSizeDownCoord);
    m_pPass2->VertexAttribPointer(GLProgDotPass2::ATTRIB_MASK_TEX_COORD, g_nQuadTexCoordSize,
                                  m_afMaskCoord);
    m_pPass2->Draw();

    ConvertYUV(0, 0, convW, convH);
    glFlush();
    glFinish();
    return 1;
}

int GEShaderDot::NewTileTexture(unsigned bw, unsigned bh) {
    delete m_pTileTex;
    m_pTileTex = new (std::nothrow) GLTexture();
    if (m_pTileTex == nullptr || !m_pTileTex->Init(GL_RGBA, GL_UNSIGNED_BYTE, bw, bh, 1)) {
        GE_LOGE(s_log, "[%s] can't new srcTexture", "ProcFrame");
        delete m_pTileTex;
        m_pTileTex = nullptr;
        return 0;
    }
    // Pass 1 samples between the fetched pixels.
    m_pTileTex->Bind();
    m_pTileTex->SetParameteri(GL_TEXTURE_WRAP_S, GL_REPEAT);
    m_pTileTex->SetParameteri(GL_TEXTURE_WRAP_T, GL_REPEAT);
    m_pTileTex->SetParameteri(GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    m_pTileTex->SetParameteri(GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    return 1;
}

int GEShaderDot::LoadTile(unsigned x, unsigned y, unsigned w, unsigned h, unsigned W, unsigned H,
                          double sp) {
    // The crop as SetCrop keeps it; fields written otherwise count as the
    // full frame.
    const double cx = m_fCropX >= 0.0f && m_fCropX <= 1.0f ? m_fCropX : 0.0;
    const double cy = m_fCropY >= 0.0f && m_fCropY <= 1.0f ? m_fCropY : 0.0;
    const double cw = m_fCropW > 0.0f && m_fCropW <= 1.0f ? m_fCropW : 1.0;
    const double ch = m_fCropH > 0.0f && m_fCropH <= 1.0f ? m_fCropH : 1.0;
    const CellSpan cols = CellSpanOf(W, cx, cw, x, w, sp);
    const CellSpan rows = CellSpanOf(H, cy, ch, y, h, sp);
    const unsigned stride = m_pTileTex->GetStride();
    const unsigned bh = m_pTileTex->GetHeight();
    if (cols.len > stride || rows.len > bh) {
        GE_LOGE(s_log, "[%s] cells of tile (%u, %u) need %ux%u pixels, more than %ux%u",
                "ProcFrame", x, y, cols.len, rows.len, stride, bh);
        return 0;
    }
    SetTile(x, y, w, h, W, H, 0.0f, 0.0f, 0.0f, 0.0f);
    m_pConverter->convertRect(TileBuffer(m_pTileTex), (int)stride, (int)bh, (int)cols.start,
                              (int)rows.start, (int)cols.len, (int)rows.len);
    clean_buffer(m_pTileTex->GetGraphicBuffer());

    // Size-down texel (i, j) holds cell (first + i, first + j) of the
    // picture: its sample, in the tile texture, lies at the cell's source
    // position less the fetched rectangle's origin.
    const double sdW = m_pSizeDownTex->GetWidth();
    const double sdH = m_pSizeDownTex->GetHeight();
    const double texW = m_pTileTex->GetAllocWidth();
    const double texH = bh;
    AffineQuad(m_afPass1Coord, ((double)W * cx + cols.first * sp * cw - cols.start) / texW,
               sdW * sp * cw / texW, ((double)H * cy + rows.first * sp * ch - rows.start) / texH,
               sdH * sp * ch / texH);
    m_afPass1Crop[0] = 0.0f;
    m_afPass1Crop[1] = 0.0f;
    m_afPass1Crop[2] = 1.0f;
    m_afPass1Crop[3] = 1.0f;
    // Output pixel X of the tile (viewport w x h) reads size-down texel
    // (X + 1/2) / sp - first and the mask at (X + 1/2) / sp.
    AffineQuad(m_afSizeDownCoord, ((double)x / sp - cols.first) / sdW, (double)w / sp / sdW,
               ((double)y / sp - rows.first) / sdH, (double)h / sp / sdH);
    AffineQuad(m_afMaskCoord, (double)x / sp, (double)w / sp, (double)y / sp, (double)h / sp);
    SetCellsRead(w, h, sp);
    return 1;
}

int GEShaderDot::ProcFrame(unsigned char*, unsigned char*, unsigned char* out, int W, int H) {
    GE_LOGI(s_log, "[%s] enter", "ProcFrame");
    if (!CaptureReady()) {
        return 0;
    }
    // The cell at the picture's scale.
    const double sp = (double)m_fCellSize * (double)H / (double)m_pSrcTexture->GetHeight();
    if (W < 2 || H < 2 || !(sp > 0.0)) {
        GE_LOGE(s_log, "[%s] bad capture size %dx%d or cell size %f", "ProcFrame", W, H, sp);
        return 0;
    }
    // The tile texture: about sixteen cells and a margin across, as tall as
    // the frame texture, and no larger than what the converter fills (the
    // frame texture's rows and stride).
    unsigned bw = ((unsigned)floor(16.0 * sp) + 63u) & ~31u;
    const unsigned room = m_pSrcTexture->GetStride() & ~31u;
    if (bw > room) {
        bw = room;
    }
    const unsigned bh = m_pSrcTexture->GetHeight();
    // The tiles: what leaves room in the texture for the source pixels of
    // the cells they cut at their borders (even, for the chroma pairs).
    const double tileW = floor((double)bw - sp - 3.0);
    const double tileH = floor((double)bh - sp - 3.0);
    if (tileW < 2.0 || tileH < 2.0) {
        GE_LOGE(s_log, "[%s] cell size %f too large for a %ux%u tile", "ProcFrame", sp, bw, bh);
        return 0;
    }
    const unsigned tw = (unsigned)tileW & ~1u;
    const unsigned th = (unsigned)tileH & ~1u;

    const float cropX = m_fCropX, cropY = m_fCropY, cropW = m_fCropW, cropH = m_fCropH;
    const unsigned renderW = m_nRenderW, renderH = m_nRenderH;
    int ok =
        NewTileTexture(bw, bh) && GEShader::Init(m_pTileTex, m_nArg, 0, 0, bw, bh, 1, m_pConverter);
    m_fCropX = cropX;
    m_fCropY = cropY;
    m_fCropW = cropW;
    m_fCropH = cropH;
    ok = ok && NewSizeDown(bw, bh) && NewPasses(m_pTileTex, true);

    const unsigned uW = (unsigned)W, uH = (unsigned)H;
    unsigned char* uv = out != nullptr ? out + (size_t)uW * uH : nullptr;
    m_nOverlapX = 0;
    m_nOverlapY = 0;
    m_nRun = 0;
    m_nMaxRun = ((uW + tw - 1) / tw) * ((uH + th - 1) / th);
    if (ok) {
        LogWalkStart(W, H, tw, th, m_nMaxRun);
    }
    for (unsigned y = 0; ok && y < uH; y += th) {
        const unsigned h = y + th <= uH ? th : uH - y;
        for (unsigned x = 0; ok && x < uW; x += tw, ++m_nRun) {
            const unsigned w = x + tw <= uW ? tw : uW - x;
            LogRun(m_nRun);
            ok = LoadTile(x, y, w, h, uW, uH, sp);
            if (ok) {
                ProcBlock(0, 0, W, H);
                BlockCopyYUV(out, uv, W, H, (int)x, (int)y, (int)w, (int)h);
            }
        }
    }
    m_nMaxRun = 0;
    m_nRenderW = renderW;
    m_nRenderH = renderH;
    if (!ok) {
        return 0;
    }
    GE_LOGI(s_log, "[%s] leave", "ProcFrame");
    return 1;
}
