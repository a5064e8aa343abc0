#include "effects/GEShaderSplitToning.h"

#include <new>

#include "effects/GELookUp.h"
#include "gl/GECommon.h"
#include "gl/GLQuad.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_monoLog("GEShaderSplitToning");
GELogTag s_colorLog("GEShaderSplitToningSC");

#define SPLIT_HEAD                        \
    GE_STYLE_HEAD                         \
    "uniform sampler2D g_sMaskTexture;\n" \
    "uniform vec4 g_fvSplitTones;\n"

// Shadows (f = 0) take the z, w tone, highlights (f = 1) the x, y tone.
#define MONO_TONES                                              \
    "    float f = pow(src.x, k.z);\n"                          \
    "    src.z = mix(g_fvSplitTones.z, g_fvSplitTones.x, f);\n" \
    "    src.y = mix(g_fvSplitTones.w, g_fvSplitTones.y, f);\n"

// The chroma pushed by the luma's distance from mid-grey, then halved.
#define COLOR_PUSH                                         \
    "    float d = src.x - 0.5;\n"                         \
    "    src.y = 0.5 * ((src.y - 0.5) + k.z * d) + 0.5;\n" \
    "    src.z = 0.5 * ((src.z - 0.5) - k.z * d) + 0.5;\n"

#define SPLIT_END(MASK_AT)                               \
    "    vec4 rgb = u_mat_yuv2rgb * src;\n"              \
    "    vec4 mask = texture2D(g_sMaskTexture, " MASK_AT \
    ");\n"                                               \
    "    gl_FragColor = (mask * k.w) * rgb;\n"           \
    "}\n"

const char kMonoFragment[] = SPLIT_HEAD
    "uniform vec4 u_crop;\n"
    "uniform float u_widthcomp;\n"
    "void main() {\n"
    "    vec2 pick = vec2((g_vTexCoord.x * u_crop.z + u_crop.x) * u_widthcomp,\n"
    "                     g_vTexCoord.y * u_crop.w + u_crop.y);\n"
    "    vec4 src = texture2D(g_sImageTexture, pick);\n" GE_STYLE_CONTRAST MONO_TONES SPLIT_END(
        "g_vTexCoord");

const char kMonoLargeFragment[] = SPLIT_HEAD
    "varying vec2 v_globalTexCoord;\n"
    "void main() {\n"
    "    vec4 src = texture2D(g_sImageTexture, g_vTexCoord);\n" GE_STYLE_CONTRAST MONO_TONES
        SPLIT_END("v_globalTexCoord");

const char kColorFragment[] = SPLIT_HEAD
    "void main() {\n"
    "    vec4 src = texture2D(g_sImageTexture, g_vTexCoord);\n" GE_STYLE_CONTRAST COLOR_PUSH
        SPLIT_END("g_vTexCoord");

const char kColorLargeFragment[] = SPLIT_HEAD
    "varying vec2 v_globalTexCoord;\n"
    "void main() {\n"
    "    vec4 src = texture2D(g_sImageTexture, g_vTexCoord);\n" GE_STYLE_CONTRAST COLOR_PUSH
        SPLIT_END("v_globalTexCoord");

#define SPLIT_SAMPLERS                                                         \
    {"g_sImageTexture", "g_sMaskTexture", "g_sContrastTexture"}, {             \
        "m_nSamplerLoc[SAMPLER_INPUT_TEX]", "m_nSamplerLoc[SAMPLER_TEX_MASK]", \
            "m_nSamplerLoc[SAMPLER_TEX_CONTRAST]"                              \
    }

const GLProgStyleLocs kMonoLocs = {
    SPLIT_SAMPLERS,
    {"g_fvClipping", "g_fvController", "g_fvSplitTones", "u_crop", "u_widthcomp"},
    {"m_pnUniLoc[UNIFORM_CLIP]", "m_pnUniLoc[UNIFORM_CONTROL]", "m_pnUniLoc[UNIFORM_SPLIT]",
     "m_nUniformLoc[UNIFORM_CROP]", "m_nUniformLoc[UNIFORM_WIDTH_COMPENSATE]"},
};
const GLProgStyleLocs kMonoLargeLocs = {
    SPLIT_SAMPLERS,
    {"g_fvClipping", "g_fvController", "g_fvSplitTones", nullptr, nullptr},
    {"m_pnUniLoc[UNIFORM_CLIP]", "m_pnUniLoc[UNIFORM_CONTROL]", "m_pnUniLoc[UNIFORM_SPLIT]",
     nullptr, nullptr},
};
// Color's shaders declare the split tones and never read them.
const GLProgStyleLocs kColorLocs = {
    SPLIT_SAMPLERS,
    {"g_fvClipping", "g_fvController", nullptr, nullptr, nullptr},
    {"m_pnUniLoc[UNIFORM_CLIP]", "m_pnUniLoc[UNIFORM_CONTROL]", nullptr, nullptr, nullptr},
};

const GESplitToningLook kMono = {true,
                                 {0.8f, 0.7f, 0.6f, 1.0f},
                                 0.1f,
                                 "[%s] can't load vignette tex",
                                 "[%s] can't load contrast tex"};
const GESplitToningLook kColor = {false,
                                  {0.6f, 0.8f, 0.4f, 1.0f},
                                  0.0f,
                                  "[%s] \t\tcan't load LUT tex",
                                  "[%s] \t\tcan't load contrast tex"};

// The tone path: five tone pairs (x, y, z, w as the split tones).
const float kTones[5][4] = {
    {0.455f, 0.556f, 0.705f, 0.365f}, {0.409f, 0.63f, 0.645f, 0.257f},
    {0.354f, 0.656f, 0.5f, 0.35f},    {0.412f, 0.577f, 0.3f, 0.607f},
    {0.475f, 0.525f, 0.352f, 0.75f},
};

enum { MASK, CONTRAST_RAMP };

}  // namespace

// ---------------------------------------------------------------------------
// Programs

GLProgSplitToning::GLProgSplitToning(GELogTag& log, const char* fs, bool bLarge,
                                     const GLProgStyleLocs& locs)
    : GLProgStyle(log, fs, bLarge, locs) {}

GLProgSplitToningCM::GLProgSplitToningCM()
    : GLProgSplitToning(s_monoLog, kMonoFragment, false, kMonoLocs) {}
GLProgSplitToningCM::GLProgSplitToningCM(const char* fs, bool bLarge)
    : GLProgSplitToning(s_monoLog, fs, bLarge, kMonoLargeLocs) {}
GLProgSplitToningCM::~GLProgSplitToningCM() {
    GE_LOGI(s_monoLog, "[%s] enter", "~GLProgSplitToningCM");
    GE_LOGI(s_monoLog, "[%s] leave", "~GLProgSplitToningCM");
}

GLProgSplitToningCMLarge::GLProgSplitToningCMLarge()
    : GLProgSplitToningCM(kMonoLargeFragment, true) {}
GLProgSplitToningCMLarge::~GLProgSplitToningCMLarge() {
    GE_LOGI(s_monoLog, "[%s] enter", "~GLProgSplitToningCMLarge");
    GE_LOGI(s_monoLog, "[%s] leave", "~GLProgSplitToningCMLarge");
}

GLProgSplitToningSC::GLProgSplitToningSC()
    : GLProgSplitToning(s_colorLog, kColorFragment, false, kColorLocs) {}
GLProgSplitToningSC::GLProgSplitToningSC(const char* fs, bool bLarge)
    : GLProgSplitToning(s_colorLog, fs, bLarge, kColorLocs) {}
GLProgSplitToningSC::~GLProgSplitToningSC() {
    GE_LOGI(s_colorLog, "[%s] enter", "~GLProgSplitToningSC");
    GE_LOGI(s_colorLog, "[%s] leave", "~GLProgSplitToningSC");
}

GLProgSplitToningSCLarge::GLProgSplitToningSCLarge()
    : GLProgSplitToningSC(kColorLargeFragment, true) {}
GLProgSplitToningSCLarge::~GLProgSplitToningSCLarge() {
    GE_LOGI(s_colorLog, "[%s] enter", "~GLProgSplitToningSCLarge");
    GE_LOGI(s_colorLog, "[%s] leave", "~GLProgSplitToningSCLarge");
}

// ---------------------------------------------------------------------------
// GEShaderSplitToning

GEShaderSplitToning::GEShaderSplitToning(GELogTag& log, const GESplitToningLook& look)
    : GEShaderLook(log), m_afTones(), m_look(look), m_fWidthComp(1.0f), m_fScreenRatio(0.0f) {}

GEShaderSplitToning::~GEShaderSplitToning() {}

int GEShaderSplitToning::Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w,
                              unsigned h, unsigned char capture, IYUVConverter* conv) {
    GE_LOGI(m_log, "[%s] enter", "Init");
    StoreInitArgs(src, a, x, y, w, h, capture, (unsigned)GEGetDispWidth(),
                  (unsigned)GEGetDispHeight());
    for (float& t : m_afTones) {
        t = 0.5f;  // neutral grey
    }
    if (src == nullptr || !GEShader::Init(src, a, x, y, w, h, capture, conv)) {
        return 0;
    }
    GE_LOGI(
        m_log,
        m_bCapture ? "[%s] Creating SplitToning large shader" : "[%s] Creating SplitToning shader",
        "Init");
    if (!TakeProgram(NewProgram(m_bCapture), "[%s] can't new program", "[%s] can't load program")) {
        return 0;
    }
    // Mono chooses its mask by the picture's ratio, with a wide tolerance;
    // Color always takes the wide one.
    const char* mask = m_look.fMaskTolerance > 0.0f
                           ? GEVignetteMaskName((float)w / (float)h, m_look.fMaskTolerance)
                           : g_szMaskWide;
    if (!LoadLookUp(MASK, mask, GL_LUMINANCE, GL_UNSIGNED_BYTE, false, nullptr,
                    m_look.szMaskFail)) {
        return 0;
    }
    BindLookUp(1, MASK);
    if (!LoadLookUp(CONTRAST_RAMP, "stylizeContrastRamp.bmp", GL_RGB, GL_UNSIGNED_BYTE, false,
                    nullptr, m_look.szContrastFail)) {
        return 0;
    }
    BindLookUp(2, CONTRAST_RAMP);
    if (m_look.bMono) {
        m_fWidthComp = (float)m_nRenderW / (float)src->GetAllocWidth();
    } else {
        m_fScreenRatio = ScreenRatio(src);
        SetPartialTexCoord();
    }
    return FinishInit();
}

int GEShaderSplitToning::Deinit() {
    return DeinitLook();
}

void GEShaderSplitToning::SetUniforms() {
    const float* k = m_look.afController;
    m_pProgram->Uniform4f(GLProgSplitToning::UNIFORM_CLIP, 0.0f, 1.0f, 0.0f, 1.0f);
    m_pProgram->Uniform4f(GLProgSplitToning::UNIFORM_CONTROL, k[0], k[1], k[2], k[3]);
    if (!m_look.bMono) {
        return;
    }
    m_pProgram->Uniform4f(GLProgSplitToning::UNIFORM_SPLIT, m_afTones[0], m_afTones[1],
                          m_afTones[2], m_afTones[3]);
    m_pProgram->Uniform4f(GLProgSplitToning::UNIFORM_CROP, m_fCropX, m_fCropY, m_fCropW, m_fCropH);
    if (!m_bCapture) {
        m_pProgram->Uniform1f(GLProgSplitToning::UNIFORM_WIDTH_COMPENSATE, m_fWidthComp);
    }
}

int GEShaderSplitToning::ProcBlock(unsigned, unsigned, int, int) {
    // Mono's preview reads the frame through the crop in the shader; it is
    // also the one block without a glFlush before its glFinish.
    if (m_look.bMono) {
        return RenderLook(m_bCapture ? m_fTileTexCoord : g_fQuadTexCoord, false);
    }
    return RenderLook(m_fTileTexCoord);
}

int GEShaderSplitToning::ProcFrame(unsigned char*, unsigned char* out, int w, int h) {
    return m_look.bMono ? WalkCropped(out, w, h) : WalkRuns(out, w, h);
}

GEShaderSplitToningCM::GEShaderSplitToningCM() : GEShaderSplitToning(s_monoLog, kMono) {}

GEShaderSplitToningCM::~GEShaderSplitToningCM() {
    Deinit();
}

GLProgSplitToning* GEShaderSplitToningCM::NewProgram(bool bLarge) const {
    return bLarge ? static_cast<GLProgSplitToning*>(new (std::nothrow) GLProgSplitToningCMLarge())
                  : new (std::nothrow) GLProgSplitToningCM();
}

// 0 gives tone pair 0; 24 and 25 pair 1, 49 and 50 pair 2, 74 and 75 pair 3,
// 99 and 100 pair 4, each stretch of 25 blending one pair towards the next.
int GEShaderSplitToningCM::SetParam(unsigned group, int value, int, int, int) {
    if (!ReadyForParam()) {
        return 0;
    }
    if (group != 0) {
        return 1;
    }
    const int v = value == 100 ? 99 : value;
    int segment = v / 25;
    if (segment == 4) {
        segment = 3;
    }
    const float t = (float)(v % 25) / 24.0f;
    const int first = segment >= 1 && segment <= 3 ? segment : 0;
    const float* a = kTones[first];
    const float* b = kTones[first + 1];
    for (int i = 0; i < 4; ++i) {
        m_afTones[i] = a[i] - t * (a[i] - b[i]);
    }
    return 1;
}

GEShaderSplitToningSC::GEShaderSplitToningSC() : GEShaderSplitToning(s_colorLog, kColor) {}

GEShaderSplitToningSC::~GEShaderSplitToningSC() {
    Deinit();
}

GLProgSplitToning* GEShaderSplitToningSC::NewProgram(bool bLarge) const {
    return bLarge ? static_cast<GLProgSplitToning*>(new (std::nothrow) GLProgSplitToningSCLarge())
                  : new (std::nothrow) GLProgSplitToningSC();
}

int GEShaderSplitToningSC::SetParam(unsigned group, int value, int, int, int) {
    return SetStrength(group, value);
}
