#include "effects/GEShaderTS.h"

#include <math.h>

#include <atomic>
#include <new>

#include "gl/GLTexture.h"

namespace {

GELogTag s_log("GEShaderTS");

const char* const kBlurLabels[3] = {"SAMPLER_TS_INPUT_TEX", "UNIFORM_TS_GAUSSIAN_KERNEL",
                                    "UNIFORM_TS_PIXEL_SHIFT"};

// The distance from the line of slope u_fM through the finger point,
// measured in the frame's texture coordinates.
const char kSizeUpFragment[] = GLPROG_SIZEUP_HEAD
    "uniform vec2 u_finger;\n"
    "uniform vec2 u_distSquare;\n"
    "uniform float u_fM;\n"
    "uniform float u_fMixWeight;\n"
    "void main() {\n"
    "    vec4 clear = texture2D(s_texClear, v_textureCoord);\n"
    "    vec4 blur = texture2D(s_texBlur, v_blurTexCoord);\n"
    "    float b = -1.0 * (u_fM * u_finger.x + u_finger.y);\n"
    "    float dist = abs(u_fM * v_textureCoord.x + v_textureCoord.y + b) /"
    " sqrt(u_fM * u_fM + 1.0);\n"
    "    float s = smoothstep(u_distSquare.x, u_distSquare.y, dist);\n"
    "    gl_FragColor = u_mat_yuv2rgb * mix(clear, blur, s * u_fMixWeight);\n"
    "}\n";

const char kSizeUpLargeFragment[] = GLPROG_SIZEUP_HEAD
    "varying vec2 v_globalTexCoord;\n"
    "uniform vec2 u_center;\n"
    "uniform vec2 u_distSquare;\n"
    "uniform float u_fMixWeight;\n"
    "uniform float u_fIsPortrait;\n"
    "void main() {\n"
    "    vec4 clear = texture2D(s_texClear, v_textureCoord);\n"
    "    vec4 blur = texture2D(s_texBlur, v_blurTexCoord);\n"
    "    vec2 d = v_globalTexCoord - u_center;\n"
    "    float dist = abs(u_fIsPortrait * d.x + (1.0 - u_fIsPortrait) * d.y);\n"
    "    float s = smoothstep(u_distSquare.x, u_distSquare.y, dist);\n"
    "    gl_FragColor = u_mat_yuv2rgb * mix(clear, blur, s * u_fMixWeight);\n"
    "}\n";

const float kStep = 1.0f;

std::atomic<float> s_fBandAngle{0.0f};

}  // namespace

// ---------------------------------------------------------------------------
// Programs

GLProgTSPassBlur::GLProgTSPassBlur() : GLProgBlur(s_log, kBlurLabels) {}

GLProgTSPassBlur::~GLProgTSPassBlur() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgTSPassBlur");
    GE_LOGI(s_log, "[%s] leave", "~GLProgTSPassBlur");
}

GLProgTSPassSizeUp::GLProgTSPassSizeUp() : GLProgSizeUpBase(s_log, kSizeUpFragment, false) {}

GLProgTSPassSizeUp::~GLProgTSPassSizeUp() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgTSPassSizeUp");
    GE_LOGI(s_log, "[%s] leave", "~GLProgTSPassSizeUp");
}

// The slope's location is checked twice, as it always was.
int GLProgTSPassSizeUp::Load() {
    if (!OpenSizeUp() || !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_TS_FINGER], "u_finger") ||
        !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_TS_SLOPE], "u_fM") ||
        !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_TS_DIST_SQUARE], "u_distSquare") ||
        !LocIsValid("m_nUniformLoc[UNIFORM_TS_SLOPE]", m_nUniformLoc[UNIFORM_TS_SLOPE]) ||
        !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_TS_MIX_WEIGHT], "u_fMixWeight") ||
        !GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], "u_mat_yuv2rgb")) {
        return 0;
    }
    glUniformMatrix4fv(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], 1, GL_FALSE, GetMatYUV2RGB());
    GE_LOGI(s_log, "[%s] program id %d", "Load", (int)m_nProgram);
    GE_LOGI(s_log, "[%s] leave", "Load");
    return 1;
}

GLProgTSPassSizeUpLarge::GLProgTSPassSizeUpLarge()
    : GLProgSizeUpBase(s_log, kSizeUpLargeFragment, true) {}

GLProgTSPassSizeUpLarge::~GLProgTSPassSizeUpLarge() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgTSPassSizeUpLarge");
    GE_LOGI(s_log, "[%s] leave", "~GLProgTSPassSizeUpLarge");
}

// u_fIsPortrait is never looked up: it keeps the 0 an unset uniform has.
int GLProgTSPassSizeUpLarge::Load() {
    if (!OpenSizeUp() || !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_CENTER], "u_center") ||
        !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_DIST_SQUARE], "u_distSquare") ||
        !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_MIX_WEIGHT], "u_fMixWeight") ||
        !GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], "u_mat_yuv2rgb")) {
        return 0;
    }
    glUniformMatrix4fv(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], 1, GL_FALSE, GetMatYUV2RGB());
    GE_LOGI(s_log, "[%s] program id %d", "Load", (int)m_nProgram);
    GE_LOGI(s_log, "[%s] leave", "Load");
    return 1;
}

// ---------------------------------------------------------------------------
// GEShaderTS

GEShaderTS::GEShaderTS()
    : GEShaderBlur(s_log, kStep, false),
      m_afFinger{0.5f, 0.5f},
      m_afRing{0.36f, 0.49f},
      m_fSlope(0.0f),
      m_fStepX(0.0f),
      m_fStepY(0.0f) {}

GEShaderTS::~GEShaderTS() {
    Deinit();
}

void GEShaderTS::SetBandAngle(float degrees) {
    s_fBandAngle.store(degrees);
}

float GEShaderTS::GetBandAngle() {
    return s_fBandAngle.load();
}

int GEShaderTS::Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
                     unsigned char capture, IYUVConverter* conv) {
    m_afFinger[0] = m_afFinger[1] = 0.5f;
    m_afRing[0] = 0.36f;
    m_afRing[1] = 0.49f;
    GLProgSizeUpBase* sizeUp =
        capture ? static_cast<GLProgSizeUpBase*>(new (std::nothrow) GLProgTSPassSizeUpLarge())
                : new (std::nothrow) GLProgTSPassSizeUp();
    if (!InitBlur(src, a, x, y, w, h, capture, conv, 320 * w / 800, 192 * h / 480,
                  new (std::nothrow) GLProgTSPassBlur(), sizeUp)) {
        return 0;
    }
    m_fSlope = 0.0f;
    SetPartialTexCoord();  // pass 1 of the preview reads the picture's part
    return FinishInit();
}

int GEShaderTS::Deinit() {
    return DeinitBlur();
}

int GEShaderTS::ProcBlock(unsigned, unsigned, int, int) {
    BlurPasses(m_fTileTexCoord);
    float angle = s_fBandAngle.load();
    if (angle == 90.0f || angle == 180.0f) {
        angle = angle == 90.0f ? 89.99f : 179.99f;
        s_fBandAngle.store(angle);
    }
    m_fSlope = tanf((float)((double)angle * 3.1415926 / 180.0));
    GE_LOGI(s_log, "[%s] angle %f, slope %f", "ProcBlock", (double)angle, (double)m_fSlope);
    StartSizeUp();
    m_pSizeUpProg->Uniform1f(GLProgTSPassSizeUp::UNIFORM_TS_SLOPE, m_fSlope);
    m_pSizeUpProg->Uniform1f(GLProgTSPassSizeUp::UNIFORM_TS_MIX_WEIGHT, m_fMixWeight);
    m_pSizeUpProg->Uniform2f(GLProgTSPassSizeUp::UNIFORM_TS_FINGER, m_afFinger[0], m_afFinger[1]);
    m_pSizeUpProg->Uniform2f(GLProgTSPassSizeUp::UNIFORM_TS_DIST_SQUARE, m_afRing[0], m_afRing[1]);
    m_pSizeUpProg->Draw();
    return FinishBlock();
}

// Tiles of the texture's size overlapping by the reach of five taps, so
// that what a tile blurs near its border is left to its neighbour.
int GEShaderTS::ProcFrame(unsigned char*, unsigned char* out, int w, int h) {
    if (m_pSrcTexture == nullptr || w <= 0 || h <= 0) {
        return WalkRuns(out, w, h);  // refuses with the effect's line
    }
    const float texW = (float)m_pSrcTexture->GetWidth();
    const float texH = (float)m_pSrcTexture->GetHeight();
    m_fStepX = ((float)w / texW) * (1.0f / texW);
    m_fStepY = ((float)h / texH) * (1.0f / texH);
    GE_LOGI(s_log, "[%s] capture, pixel step X=%.6f Y=%.6f", "ProcFrame", (double)m_fStepX,
            (double)m_fStepY);
    const unsigned kx = (unsigned)ceilf(5.0f * m_fStepX * texW);
    const unsigned ky = (unsigned)ceilf(5.0f * m_fStepY * texH);
    SetupPixelStep(m_fStepX, m_fStepY);
    const int ok = WalkRuns(out, w, h, (kx + 1) / 2 * 4, 2 * ky);
    SetupPixelStep(kStep / texW, kStep / texH);
    return ok;
}

void GEShaderTS::LogWalkStart(int W, int H, unsigned nProcW, unsigned nProcH, unsigned maxRun) {
    GE_LOGI(s_log,
            "[%s] nImgWidth=%d, nImgHeight=%d, fProcW=%f, fProcH=%f, nHalfOvX=%d nHalfOvY=%d, "
            "max run = %d",
            "ProcFrame", W, H, (double)nProcW, (double)nProcH, (int)(m_nOverlapX / 2),
            (int)(m_nOverlapY / 2), (int)maxRun);
}

void GEShaderTS::LogTile(int W, int H) {
    GE_LOGI(s_log, "[%s] VP W=%d, H=%d, sW=%d, sH=%d", "ProcFrame", (int)m_nRenderW,
            (int)m_nRenderH, W, H);
    GE_LOGI(s_log, "[%s] m_uStartX=%d, m_uStartY=%d, m_uRgnW=%d, m_uRgnH=%d", "ProcFrame",
            (int)m_nTileX, (int)m_nTileY, (int)m_nTileW, (int)m_nTileH);
    GE_LOGI(s_log, "[%s] [%.4f:%.4f] to [%.4f:%.4f]", "ProcFrame", (double)m_fTileTexCoord[2],
            (double)m_fTileTexCoord[3], (double)m_fTileTexCoord[6], (double)m_fTileTexCoord[7]);
    GE_LOGI(s_log, "[%s] Copy from large src tex", "ProcFrame");
}

int GEShaderTS::SetParam(unsigned group, int a, int b, int c, int d) {
    if (group == 0) {
        SetBlurLevel(a);
    } else if (group == 1) {
        const float w = (float)m_nPicW, h = (float)m_nPicH;
        m_afFinger[0] = (float)a / w;
        m_afFinger[1] = (float)b / h;
        float dx;
        const float r = RimDistance(a, b, c, d, &dx);
        const float e = r * (1.0f - (1.0f - w / h) * dx / r);
        m_afRing[0] = (e - 0.075f) * (e - 0.075f);
        m_afRing[1] = (e + 0.075f) * (e + 0.075f);
    }
    return 0;
}
