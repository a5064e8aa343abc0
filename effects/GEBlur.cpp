#include "effects/GEBlur.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <new>

#include "gl/GLFbo.h"
#include "gl/GLQuad.h"
#include "gl/GLTexture.h"

// clang-format off
const float g_afGaussian[14][15] = {
    // level 1, sigma 0.4
    {0.000000f, 0.000000f, 0.000000f, 0.000000f, 0.000000f, 0.000003f, 0.040388f, 0.919218f, 0.040388f, 0.000003f, 0.000000f, 0.000000f, 0.000000f, 0.000000f, 0.000000f},
    // level 2, sigma 0.6
    {0.000000f, 0.000000f, 0.000000f, 0.000000f, 0.000002f, 0.002566f, 0.165524f, 0.663815f, 0.165524f, 0.002566f, 0.000002f, 0.000000f, 0.000000f, 0.000000f, 0.000000f},
    // level 3, sigma 0.8
    {0.000000f, 0.000000f, 0.000000f, 0.000002f, 0.000441f, 0.021910f, 0.228310f, 0.498675f, 0.228310f, 0.021910f, 0.000441f, 0.000002f, 0.000000f, 0.000000f, 0.000000f},
    // level 4, sigma 1.0
    {0.000000f, 0.000000f, 0.000001f, 0.000134f, 0.004432f, 0.053991f, 0.241971f, 0.398942f, 0.241971f, 0.053991f, 0.004432f, 0.000134f, 0.000001f, 0.000000f, 0.000000f},
    // level 5, sigma 1.2
    {0.000000f, 0.000001f, 0.000056f, 0.001285f, 0.014607f, 0.082898f, 0.234927f, 0.332452f, 0.234927f, 0.082898f, 0.014607f, 0.001285f, 0.000056f, 0.000001f, 0.000000f},
    // level 6, sigma 1.4
    {0.000001f, 0.000029f, 0.000484f, 0.004810f, 0.028686f, 0.102713f, 0.220797f, 0.284959f, 0.220797f, 0.102713f, 0.028686f, 0.004810f, 0.000484f, 0.000029f, 0.000001f},
    // level 7, sigma 1.6
    {0.000017f, 0.000220f, 0.001889f, 0.010955f, 0.042992f, 0.114156f, 0.205101f, 0.249339f, 0.205101f, 0.114156f, 0.042992f, 0.010955f, 0.001889f, 0.000220f, 0.000017f},
    // level 8, sigma 1.8
    {0.000115f, 0.000857f, 0.004679f, 0.018764f, 0.055266f, 0.119554f, 0.189945f, 0.221640f, 0.189945f, 0.119554f, 0.055266f, 0.018764f, 0.004679f, 0.000857f, 0.000115f},
    // level 9, sigma 2.0
    {0.000436f, 0.002216f, 0.008765f, 0.027000f, 0.064769f, 0.121004f, 0.176059f, 0.199501f, 0.176059f, 0.121004f, 0.064769f, 0.027000f, 0.008765f, 0.002216f, 0.000436f},
    // level 10, sigma 2.2
    {0.001149f, 0.004401f, 0.013712f, 0.034746f, 0.071607f, 0.120028f, 0.163635f, 0.181444f, 0.163635f, 0.120028f, 0.071607f, 0.034746f, 0.013712f, 0.004401f, 0.001149f},
    // level 11, sigma 2.4
    {0.002367f, 0.007316f, 0.019008f, 0.041517f, 0.076229f, 0.117657f, 0.152656f, 0.166500f, 0.152656f, 0.117657f, 0.076229f, 0.041517f, 0.019008f, 0.007316f, 0.002367f},
    // level 12, sigma 2.6
    {0.004107f, 0.010743f, 0.024238f, 0.047162f, 0.079149f, 0.114567f, 0.143029f, 0.154010f, 0.143029f, 0.114567f, 0.079149f, 0.047162f, 0.024238f, 0.010743f, 0.004107f},
    // level 13, sigma 2.8
    {0.006305f, 0.014446f, 0.029134f, 0.051723f, 0.080828f, 0.111186f, 0.134630f, 0.143496f, 0.134630f, 0.111186f, 0.080828f, 0.051723f, 0.029134f, 0.014446f, 0.006305f},
    // level 14, sigma 3.0
    {0.008847f, 0.018216f, 0.033562f, 0.055335f, 0.081638f, 0.107778f, 0.127325f, 0.134598f, 0.127325f, 0.107778f, 0.081638f, 0.055335f, 0.033562f, 0.018216f, 0.008847f},
};
// clang-format on

const float* GEGaussianKernel(int level) {
    return level >= 2 && level <= 14 ? g_afGaussian[level - 1] : g_afGaussian[0];
}

namespace {

const char kBlurVertex[] =
    "attribute vec4 a_vertexCoord;\n"
    "attribute vec2 a_textureCoord;\n"
    "varying vec2 v_texCoord;\n"
    "void main() {\n"
    "    gl_Position = a_vertexCoord;\n"
    "    v_texCoord = a_textureCoord;\n"
    "}\n";

// Weight 5 goes with the sample at the centre; the fourteen shifts take the
// weights around it in their order.
#define BLUR_TAP(k, g)                                                                       \
    "    sum += texture2D(s_texture0, v_texCoord + u_fPixelShift[" #k "]) * u_fGaussian[" #g \
    "];"                                                                                     \
    "\n"

const char kBlurFragment[] =
    "precision highp float;\n"
    "uniform sampler2D s_texture0;\n"
    "uniform float u_fGaussian[15];\n"
    "uniform vec2 u_fPixelShift[14];\n"
    "varying vec2 v_texCoord;\n"
    "void main() {\n"
    "    vec4 sum = vec4(0.0);\n"
    BLUR_TAP(0, 0) BLUR_TAP(1, 1) BLUR_TAP(2, 2) BLUR_TAP(3, 3) BLUR_TAP(4, 4)
    "    sum += texture2D(s_texture0, v_texCoord) * u_fGaussian[5];\n"
    BLUR_TAP(5, 6) BLUR_TAP(6, 7) BLUR_TAP(7, 8) BLUR_TAP(8, 9) BLUR_TAP(9, 10)
    BLUR_TAP(10, 11) BLUR_TAP(11, 12) BLUR_TAP(12, 13) BLUR_TAP(13, 14)
    "    gl_FragColor = sum;\n"
    "}\n";

#define SIZEUP_VERTEX_HEAD             \
    "attribute vec4 a_vertexCoord;\n"  \
    "attribute vec2 a_textureCoord;\n" \
    "attribute vec2 a_blurTexCoord;\n" \
    "varying vec2 v_textureCoord;\n"   \
    "varying vec2 v_blurTexCoord;\n"

const char kSizeUpVertex[] = SIZEUP_VERTEX_HEAD
    "void main() {\n"
    "    gl_Position = a_vertexCoord;\n"
    "    v_textureCoord = a_textureCoord;\n"
    "    v_blurTexCoord = a_blurTexCoord;\n"
    "}\n";

const char kSizeUpLargeVertex[] = SIZEUP_VERTEX_HEAD
    "attribute vec2 a_globalTexCoord;\n"
    "varying vec2 v_globalTexCoord;\n"
    "void main() {\n"
    "    gl_Position = a_vertexCoord;\n"
    "    v_textureCoord = a_textureCoord;\n"
    "    v_blurTexCoord = a_blurTexCoord;\n"
    "    v_globalTexCoord = a_globalTexCoord;\n"
    "}\n";

// The shift multipliers of the fourteen taps.
const int kTapSteps[14] = {-5, -4, -3, -2, -1, 1, 2, 3, 4, 5, -6, -7, 6, 7};

// The least margin of a capture tile, in pixels.
const unsigned kMinMargin = 32;

}  // namespace

// ---------------------------------------------------------------------------
// GLProgBlur

GLProgBlur::GLProgBlur(GELogTag& log, const char* const labels[3])
    : m_log(log), m_aszLabels(labels) {}

int GLProgBlur::Load() {
    GE_LOGI(m_log, "[%s] enter", "Load");
    if (!LoadQuad(m_log, kBlurVertex, kBlurFragment) ||
        !FetchUniformLoc(m_nUniformLoc[UNIFORM_GAUSSIAN_KERNEL], "u_fGaussian",
                         "m_pnUniLoc[UNIFORM_GAUSSIAN_KERNEL]") ||
        !FetchUniformLoc(m_nUniformLoc[UNIFORM_PIXEL_SHIFT], "u_fPixelShift",
                         "m_pnUniLoc[UNIFORM_PIXEL_SHIFT]")) {
        return 0;
    }
    GE_LOGI(m_log, "[%s] program id %d", "Load", (int)m_nProgram);
    GE_LOGI(m_log, "[%s] %s %d", "Load", m_aszLabels[0], (int)m_nSamplerLoc[SAMPLER_INPUT_TEX]);
    GE_LOGI(m_log, "[%s] %s %d", "Load", m_aszLabels[1],
            (int)m_nUniformLoc[UNIFORM_GAUSSIAN_KERNEL]);
    GE_LOGI(m_log, "[%s] %s %d", "Load", m_aszLabels[2], (int)m_nUniformLoc[UNIFORM_PIXEL_SHIFT]);
    GE_LOGI(m_log, "[%s] leave", "Load");
    return 1;
}

int GLProgBlur::Use() {
    return UseInputTex(1);
}

// ---------------------------------------------------------------------------
// GLProgSizeUpBase

GLProgSizeUpBase::GLProgSizeUpBase(GELogTag& log, const char* fs, bool bLarge)
    : m_log(log), m_szFragment(fs), m_bLarge(bLarge) {}

int GLProgSizeUpBase::Use() {
    return UseInputTex(2);
}

int GLProgSizeUpBase::OpenSizeUp() {
    GE_LOGI(m_log, "[%s] enter", "Load");
    return OpenLoad(m_log, m_bLarge ? kSizeUpLargeVertex : kSizeUpVertex, m_szFragment) &&
           GLPROG_ATTRIB_LOC(m_nVerCoordLoc, "a_vertexCoord") &&
           GLPROG_ATTRIB_LOC(m_nTexCoordLoc, "a_textureCoord") &&
           FetchAttribLoc(m_nAttribLoc[ATTRIB_BLUR_TEX_COORD], "a_blurTexCoord",
                          "ATTRIB_BLUR_TEX_COORD") &&
           (!m_bLarge || FetchAttribLoc(m_nAttribLoc[ATTRIB_GLOBAL_TEX_COORD], "a_globalTexCoord",
                                        "ATTRIB_GLOBAL_TEX_COORD")) &&
           GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_BLUR_TEX], "s_texBlur") &&
           GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_CLEAR_TEX], "s_texClear");
}

// ---------------------------------------------------------------------------
// GEShaderBlur

GEShaderBlur::GEShaderBlur(GELogTag& log, float fStep, bool bStepFollowsCrop)
    : GEShader(log),
      m_pBlurProg(nullptr),
      m_pSizeUpProg(nullptr),
      m_pFboH(nullptr),
      m_pFboV(nullptr),
      m_pTexH(nullptr),
      m_pTexV(nullptr),
      m_nBlurW(0),
      m_nBlurH(0),
      m_pfKernel(GEGaussianKernel(14)),
      m_fMixWeight(1.0f),
      m_afShiftH(),
      m_afShiftV(),
      m_fStep(fStep),
      m_bStepFollowsCrop(bStepFollowsCrop),
      m_nPicW(1),
      m_nPicH(1) {
    memcpy(m_fCropQuad, g_fQuadTexCoord, sizeof(m_fCropQuad));
    memcpy(m_fClearCoord, g_fQuadTexCoord, sizeof(m_fClearCoord));
    memcpy(m_fBlurCoord, g_fQuadTexCoord, sizeof(m_fBlurCoord));
}

GEShaderBlur::~GEShaderBlur() {
    // The derived destructor ran DeinitBlur; whatever is left goes quietly.
    delete m_pFboH;
    delete m_pFboV;
    delete m_pTexH;
    delete m_pTexV;
    delete m_pSizeUpProg;
    delete m_pBlurProg;
}

namespace {

// A blur texture and its framebuffer: RGBA, clamped, filtered linearly.
int NewBlurTarget(unsigned w, unsigned h, GLTexture*& tex, GLFbo*& fbo, GELogTag& log,
                  const char* szTex, const char* szFbo) {
    GE_LOGI(log, szTex, "Init");
    delete fbo;
    fbo = nullptr;
    delete tex;
    tex = new (std::nothrow) GLTexture();
    if (tex == nullptr || !tex->Init(GL_RGBA, GL_UNSIGNED_BYTE, w, h, 0)) {
        return 0;
    }
    tex->Bind();
    tex->SetParameteri(GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    tex->SetParameteri(GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    tex->SetParameteri(GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    tex->SetParameteri(GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    GE_LOGI(log, szFbo, "Init");
    fbo = new (std::nothrow) GLFbo();
    return fbo != nullptr && fbo->Init() && fbo->SetColorAttachment(tex);
}

}  // namespace

int GEShaderBlur::InitBlur(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w,
                           unsigned h, unsigned char capture, IYUVConverter* conv, unsigned blurW,
                           unsigned blurH, GLProgBlur* blur, GLProgSizeUpBase* sizeUp) {
    GE_LOGI(m_log, "[%s] enter", "Init");
    GE_LOGI(m_log, "[%s] x=%d y=%d w=%d h=%d  cap=%d", "Init", (int)x, (int)y, (int)w, (int)h,
            (int)capture);
    delete m_pBlurProg;
    m_pBlurProg = blur;
    delete m_pSizeUpProg;
    m_pSizeUpProg = sizeUp;
    StoreInitArgs(src, a, x, y, w, h, capture);
    m_nBlurW = blurW;
    m_nBlurH = blurH;
    m_nPicW = w > 0 ? w : 1;
    m_nPicH = h > 0 ? h : 1;
    if (src == nullptr || blurW == 0 || blurH == 0 ||
        !GEShader::Init(src, a, x, y, w, h, capture, conv)) {
        return 0;
    }
    src->Bind();
    src->SetParameteri(GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    src->SetParameteri(GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    src->SetParameteri(GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    src->SetParameteri(GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    if (!NewBlurTarget(blurW, blurH, m_pTexH, m_pFboH, m_log,
                       "[%s] Creating tex for fbo pass KOp H", "[%s] Creating fbo pass KOp H") ||
        !NewBlurTarget(blurW, blurH, m_pTexV, m_pFboV, m_log,
                       "[%s] Creating tex for fbo pass KOp V", "[%s] Creating fbo pass KOp V")) {
        return 0;
    }
    GE_LOGI(m_log, "[%s] Creating prog Blur", "Init");
    if (!LoadProgram(blur, "[%s] can't load program Blur", "[%s] can't load program Blur")) {
        return 0;
    }
    GE_LOGI(m_log,
            sizeUp != nullptr && sizeUp->IsLarge() ? "[%s] Creating prog pass size-up large"
                                                   : "[%s] Creating prog pass size-up",
            "Init");
    if (!LoadProgram(sizeUp, "[%s] can't new program size-up", "[%s] can't load program size-up")) {
        return 0;
    }
    sizeUp->SetTextures(GLProgSizeUpBase::SAMPLER_BLUR_TEX, m_pTexV);
    sizeUp->SetTextures(GLProgSizeUpBase::SAMPLER_CLEAR_TEX, src);
    m_pfKernel = GEGaussianKernel(14);
    m_fMixWeight = 1.0f;
    // The whole picture's part of the frame texture.
    const float r = (float)src->GetWidth() / (float)src->GetAllocWidth();
    const GLfloat quad[8] = {0.0f, 1.0f, 0.0f, 0.0f, r, 0.0f, r, 1.0f};
    memcpy(m_fCropQuad, quad, sizeof(quad));
    SetupPixelStep(m_fStep / (float)src->GetWidth(), m_fStep / (float)src->GetHeight());
    return 1;
}

int GEShaderBlur::DeinitBlur() {
    GE_LOGI(m_log, "[%s] enter", "Deinit");
    m_bInited = false;
    GEShader::Deinit();
    delete m_pTexH;
    m_pTexH = nullptr;
    delete m_pTexV;
    m_pTexV = nullptr;
    delete m_pFboH;
    m_pFboH = nullptr;
    delete m_pFboV;
    m_pFboV = nullptr;
    delete m_pSizeUpProg;
    m_pSizeUpProg = nullptr;
    delete m_pBlurProg;
    m_pBlurProg = nullptr;
    GE_LOGI(m_log, "[%s] leave", "Deinit");
    return 1;
}

int GEShaderBlur::ProcFrame(unsigned a, unsigned b, int c, int d) {
    return ProcPreview(m_pSizeUpProg, a, b, c, d);
}

void GEShaderBlur::SetBlurLevel(int value) {
    const int level = value / 7;
    m_pfKernel = GEGaussianKernel(level);
    m_fMixWeight = value > 74 ? 1.0f : (float)value / 75.0f;
    GE_LOGI(m_log, "[%s] %d\n", "SetParam", level);
}

float GEShaderBlur::RimDistance(int a, int b, int c, int d, float* pDx) const {
    const float dx = (float)abs(c - a) / (float)m_nPicW;
    const float dy = (float)abs(d - b) / (float)m_nPicH;
    *pDx = dx;
    const float r = sqrtf(dx * dx + dy * dy);
    return r < 0.1f ? 0.1f : r;
}

void GEShaderBlur::SetupPixelStep(float stepX, float stepY) {
    const float sx = m_bStepFollowsCrop ? stepX * m_fCropW : stepX;
    const float sy = stepY;
    GE_LOGI(m_log, "[%s] pixel step X=%.6f Y=%.6f", "SetupPixelStep", (double)sx, (double)sy);
    for (int k = 0; k < 14; ++k) {
        m_afShiftH[2 * k] = (float)kTapSteps[k] * sx;
        m_afShiftH[2 * k + 1] = 0.0f;
        m_afShiftV[2 * k] = 0.0f;
        m_afShiftV[2 * k + 1] = (float)kTapSteps[k] * sy;
    }
}

int GEShaderBlur::SetCrop(float x, float y, float w, float h) {
    if (m_pSrcTexture == nullptr) {
        GEShader::SetCrop(x, y, w, h);
        return 0;
    }
    const float srcW = (float)m_pSrcTexture->GetWidth();
    SetupPixelStep(m_fStep / srcW, m_fStep / (float)m_pSrcTexture->GetHeight());
    GEShader::SetCrop(x, y, w, h);
    const float r = srcW / (float)m_pSrcTexture->GetStride();
    const float left = m_fCropX * r, right = (m_fCropX + m_fCropW) * r;
    const float bottom = m_fCropY, top = m_fCropY + m_fCropH;
    const GLfloat quad[8] = {left, top, left, bottom, right, bottom, right, top};
    memcpy(m_fCropQuad, quad, sizeof(quad));
    return 0;
}

void GEShaderBlur::BlurPasses(const GLfloat* previewCoord) {
    const GLfloat* pass1 = previewCoord;
    GLfloat whole[8];
    if (m_bCapture) {
        // The blur textures hold the whole texture's picture part at one
        // scale; the tile's region sits at their origin, the converter's
        // padding (its edge repeated) beyond it.
        const float r = (float)m_pSrcTexture->GetWidth() / (float)m_pSrcTexture->GetAllocWidth();
        const GLfloat quad[8] = {0.0f, 1.0f, 0.0f, 0.0f, r, 0.0f, r, 1.0f};
        memcpy(whole, quad, sizeof(quad));
        pass1 = whole;
        memcpy(m_fClearCoord, m_fTileTexCoord, sizeof(m_fClearCoord));
        const float srcW = (float)m_pSrcTexture->GetWidth();
        const float srcH = (float)m_pSrcTexture->GetHeight();
        const float u0 = (float)(m_nTileX - m_nRegionX) / srcW;
        const float v0 = (float)(m_nTileY - m_nRegionY) / srcH;
        const float u1 = u0 + (float)m_nTileW / srcW, v1 = v0 + (float)m_nTileH / srcH;
        const GLfloat blur[8] = {u0, v1, u0, v0, u1, v0, u1, v1};
        memcpy(m_fBlurCoord, blur, sizeof(blur));
    } else {
        memcpy(m_fClearCoord, m_fCropQuad, sizeof(m_fClearCoord));
        memcpy(m_fBlurCoord, g_fQuadTexCoord, sizeof(m_fBlurCoord));
    }

    m_pFboH->Bind();
    glViewport((GLint)m_nRenderX, (GLint)m_nRenderY, (GLsizei)m_nBlurW, (GLsizei)m_nBlurH);
    m_pBlurProg->SetTextures(0, m_pSrcTexture);
    m_pBlurProg->Use();
    m_pBlurProg->SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    m_pBlurProg->SetTextureCoord(g_nQuadTexCoordSize, pass1);
    m_pBlurProg->Uniform1fv(GLProgBlur::UNIFORM_GAUSSIAN_KERNEL, 15, m_pfKernel);
    m_pBlurProg->Uniform2fv(GLProgBlur::UNIFORM_PIXEL_SHIFT, 14, m_afShiftH);
    m_pBlurProg->Draw();

    m_pFboV->Bind();
    m_pBlurProg->SetTextures(0, m_pTexH);
    m_pBlurProg->Use();
    m_pBlurProg->SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    m_pBlurProg->SetTextureCoord(g_nQuadTexCoordSize, g_fQuadTexCoord);
    m_pBlurProg->Uniform1fv(GLProgBlur::UNIFORM_GAUSSIAN_KERNEL, 15, m_pfKernel);
    m_pBlurProg->Uniform2fv(GLProgBlur::UNIFORM_PIXEL_SHIFT, 14, m_afShiftV);
    m_pBlurProg->Draw();
}

void GEShaderBlur::StartSizeUp() {
    m_pDstFbo->Bind();
    glViewport((GLint)m_nRenderX, (GLint)m_nRenderY, (GLsizei)m_nRenderW, (GLsizei)m_nRenderH);
    m_pSizeUpProg->Use();
    m_pSizeUpProg->SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    m_pSizeUpProg->SetTextureCoord(g_nQuadTexCoordSize, m_fClearCoord);
    m_pSizeUpProg->VertexAttribPointer(GLProgSizeUpBase::ATTRIB_BLUR_TEX_COORD, g_nQuadTexCoordSize,
                                       m_fBlurCoord);
    if (m_pSizeUpProg->IsLarge()) {
        m_pSizeUpProg->VertexAttribPointer(GLProgSizeUpBase::ATTRIB_GLOBAL_TEX_COORD,
                                           g_nQuadTexCoordSize, m_fGlobalTexCoord);
    }
}

int GEShaderBlur::FinishBlock() {
    ConvertYUV(0, 0, (int)m_pSrcTexture->GetWidth(), (int)m_pSrcTexture->GetHeight());
    glFlush();
    glFinish();
    return 1;
}

int GEShaderBlur::WalkBlurMargins(unsigned char* out, int W, int H, float step) {
    if (m_pSrcTexture == nullptr || W <= 0 || H <= 0) {
        return WalkMargins(out, W, H, kMinMargin);  // refuses with the effect's line
    }
    // The blur covers the share of the picture it covers in preview: the
    // texture holds the picture's pixels one to one now.
    const float texW = (float)m_pSrcTexture->GetWidth();
    const float texH = (float)m_pSrcTexture->GetHeight();
    const float scaleX = (float)W / texW, scaleY = (float)H / texH;
    SetupPixelStep(step / texW * scaleX, step / texH * scaleY);
    // The margin covers the seven outer taps and the filtering of both
    // sizes.
    unsigned margin = (unsigned)ceilf(7.0f * step * fmaxf(scaleX, scaleY) + 8.0f);
    if (margin < kMinMargin) {
        margin = kMinMargin;
    }
    const int ok = WalkMargins(out, W, H, margin);
    SetupPixelStep(step / texW, step / texH);
    return ok;
}
