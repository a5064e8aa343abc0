#include "effects/GEShaderDoF.h"

#include <new>

#include "gl/GLTexture.h"

namespace {

GELogTag s_log("GEShaderDoF");

const char* const kBlurLabels[3] = {"SAMPLER_INPUT_TEX", "UNIFORM_GAUSSIAN_KERNEL",
                                    "UNIFORM_PIXEL_SHIFT"};

// The mix happens on the raw samples; the colour matrix follows.
#define DOF_SIZEUP(HEAD, PLACE)                                                    \
    GLPROG_SIZEUP_HEAD HEAD                                                        \
        "uniform vec2 u_center;\n"                                                 \
        "uniform vec2 u_distSquare;\n"                                             \
        "uniform float u_fWHRatioSquare;\n"                                        \
        "uniform float u_fMixWeight;\n"                                            \
        "void main() {\n"                                                          \
        "    vec4 clear = texture2D(s_texClear, v_textureCoord);\n"                \
        "    vec4 blur = texture2D(s_texBlur, v_blurTexCoord);\n"                  \
        "    vec2 d = " PLACE                                                      \
        " - u_center;\n"                                                           \
        "    d.y = d.y / u_fWHRatioSquare;\n"                                      \
        "    float s = smoothstep(u_distSquare.x, u_distSquare.y, length(d));\n"   \
        "    gl_FragColor = u_mat_yuv2rgb * mix(clear, blur, s * u_fMixWeight);\n" \
        "}\n"

const char kSizeUpFragment[] = DOF_SIZEUP("", "v_blurTexCoord");
const char kSizeUpLargeFragment[] =
    DOF_SIZEUP("varying vec2 v_globalTexCoord;\n", "v_globalTexCoord");

const float kStep = 1.5f;

}  // namespace

// ---------------------------------------------------------------------------
// Programs

GLProgPassBlur::GLProgPassBlur() : GLProgBlur(s_log, kBlurLabels) {}

GLProgPassBlur::~GLProgPassBlur() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgPassBlur");
    GE_LOGI(s_log, "[%s] leave", "~GLProgPassBlur");
}

GLProgPassSizeUp::GLProgPassSizeUp() : GLProgSizeUpBase(s_log, kSizeUpFragment, false) {}

GLProgPassSizeUp::GLProgPassSizeUp(const char* fs, bool bLarge)
    : GLProgSizeUpBase(s_log, fs, bLarge) {}

GLProgPassSizeUp::~GLProgPassSizeUp() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgPassSizeUp");
    GE_LOGI(s_log, "[%s] leave", "~GLProgPassSizeUp");
}

// The preview program logs the mix weight's location without checking it.
int GLProgPassSizeUp::Load() {
    if (!OpenSizeUp() || !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_CENTER], "u_center") ||
        !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_DIST_SQUARE], "u_distSquare") ||
        !FetchUniformLoc(m_nUniformLoc[UNIFORM_WH_RATIO_SQ], "u_fWHRatioSquare",
                         "m_nUniformLoc[UNIFORM_WH_RATIO_SQ]") ||
        !GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], "u_mat_yuv2rgb")) {
        return 0;
    }
    m_nUniformLoc[UNIFORM_MIX_WEIGHT] = glGetUniformLocation(m_nProgram, "u_fMixWeight");
    glUniformMatrix4fv(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], 1, GL_FALSE, GetMatYUV2RGB());
    GE_LOGI(s_log, "[%s] program id %d", "Load", (int)m_nProgram);
    GE_LOGI(s_log, "[%s] SAMPLER_BLUR_TEX %d", "Load", (int)m_nSamplerLoc[SAMPLER_BLUR_TEX]);
    GE_LOGI(s_log, "[%s] SAMPLER_CLEAR_TEX %d", "Load", (int)m_nSamplerLoc[SAMPLER_CLEAR_TEX]);
    GE_LOGI(s_log, "[%s] UNIFORM_CENTER %d", "Load", (int)m_nUniformLoc[UNIFORM_CENTER]);
    GE_LOGI(s_log, "[%s] UNIFORM_DIST_SQUARE %d", "Load", (int)m_nUniformLoc[UNIFORM_DIST_SQUARE]);
    GE_LOGI(s_log, "[%s] UNIFORM_MIX_WEIGHT %d", "Load", (int)m_nUniformLoc[UNIFORM_MIX_WEIGHT]);
    GE_LOGI(s_log, "[%s] leave", "Load");
    return 1;
}

GLProgPassSizeUpLarge::GLProgPassSizeUpLarge() : GLProgPassSizeUp(kSizeUpLargeFragment, true) {}

GLProgPassSizeUpLarge::~GLProgPassSizeUpLarge() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgPassSizeUpLarge");
    GE_LOGI(s_log, "[%s] leave", "~GLProgPassSizeUpLarge");
}

// The Large program checks the mix weight's location and logs fewer lines.
int GLProgPassSizeUpLarge::Load() {
    if (!OpenSizeUp() || !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_CENTER], "u_center") ||
        !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_DIST_SQUARE], "u_distSquare") ||
        !FetchUniformLoc(m_nUniformLoc[UNIFORM_WH_RATIO_SQ], "u_fWHRatioSquare",
                         "m_nUniformLoc[UNIFORM_WH_RATIO_SQ]") ||
        !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_MIX_WEIGHT], "u_fMixWeight") ||
        !GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], "u_mat_yuv2rgb")) {
        return 0;
    }
    glUniformMatrix4fv(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], 1, GL_FALSE, GetMatYUV2RGB());
    GE_LOGI(s_log, "[%s] SAMPLER_BLUR_TEX %d", "Load", (int)m_nSamplerLoc[SAMPLER_BLUR_TEX]);
    GE_LOGI(s_log, "[%s] UNIFORM_CENTER %d", "Load", (int)m_nUniformLoc[UNIFORM_CENTER]);
    GE_LOGI(s_log, "[%s] UNIFORM_DIST_SQUARE %d", "Load", (int)m_nUniformLoc[UNIFORM_DIST_SQUARE]);
    GE_LOGI(s_log, "[%s] leave", "Load");
    return 1;
}

// ---------------------------------------------------------------------------
// GEShaderDoF

GEShaderDoF::GEShaderDoF()
    : GEShaderBlur(s_log, kStep, true),
      m_afCenter{0.5f, 0.5f},
      m_afRing{0.36f, 0.49f},
      m_fRatio(1.0f) {}

GEShaderDoF::~GEShaderDoF() {
    Deinit();
}

int GEShaderDoF::Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
                      unsigned char capture, IYUVConverter* conv) {
    m_afCenter[0] = m_afCenter[1] = 0.5f;
    m_afRing[0] = 0.36f;
    m_afRing[1] = 0.49f;
    GLProgPassSizeUp* sizeUp = capture ? new (std::nothrow) GLProgPassSizeUpLarge()
                                       : new (std::nothrow) GLProgPassSizeUp();
    if (!InitBlur(src, a, x, y, w, h, capture, conv, 320 * w / 960, 192 * h / 544,
                  new (std::nothrow) GLProgPassBlur(), sizeUp)) {
        return 0;
    }
    m_fRatio = (float)src->GetWidth() / (float)src->GetHeight();
    return FinishInit();
}

int GEShaderDoF::Deinit() {
    return DeinitBlur();
}

int GEShaderDoF::ProcBlock(unsigned, unsigned, int, int) {
    BlurPasses(m_fCropQuad);
    StartSizeUp();
    m_pSizeUpProg->Uniform1f(GLProgPassSizeUp::UNIFORM_WH_RATIO_SQ, m_fRatio);
    m_pSizeUpProg->Uniform1f(GLProgPassSizeUp::UNIFORM_MIX_WEIGHT, m_fMixWeight);
    m_pSizeUpProg->Uniform2f(GLProgPassSizeUp::UNIFORM_CENTER, m_afCenter[0], m_afCenter[1]);
    m_pSizeUpProg->Uniform2f(GLProgPassSizeUp::UNIFORM_DIST_SQUARE, m_afRing[0], m_afRing[1]);
    m_pSizeUpProg->Draw();
    return FinishBlock();
}

int GEShaderDoF::ProcFrame(unsigned char*, unsigned char* out, int w, int h) {
    // The circle is placed in the whole picture; a refused call (preview
    // mode, an empty picture) leaves the preview's ratio alone.
    if (m_bInited && m_bCapture && w > 0 && h > 0) {
        m_fRatio = (float)w / (float)h;
    }
    return WalkBlurMargins(out, w, h, kStep);
}

int GEShaderDoF::SetParam(unsigned group, int a, int b, int c, int d) {
    if (group == 0) {
        SetBlurLevel(a);
    } else if (group == 1) {
        m_afCenter[0] = (float)a / (float)m_nPicW;
        m_afCenter[1] = (float)b / (float)m_nPicH;
        float dx;
        const float r = RimDistance(a, b, c, d, &dx);
        m_afRing[0] = r - 0.075f;
        m_afRing[1] = r + 0.075f;
    }
    return 0;
}
