#include "effects/GEShaderTwoToneMask.h"

#include <new>

#include "gl/GECommon.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_vLog("GEShaderTwoToneMaskV");
GELogTag s_hLog("GEShaderTwoToneMaskH");

// MASK_AT is where the mask is read: the picture's own coordinates, swapped
// for H.
#define TWO_TONE_FRAGMENT(HEAD, MASK_AT)                                              \
    GE_STYLE_HEAD HEAD                                                                \
        "uniform sampler2D g_sMaskTexture;\n"                                         \
        "void main() {\n"                                                             \
        "    vec4 src = texture2D(g_sImageTexture, g_vTexCoord);\n" GE_STYLE_CONTRAST \
        "    vec4 rgb = u_mat_yuv2rgb * src;\n"                                       \
        "    vec4 mask = texture2D(g_sMaskTexture, " MASK_AT                          \
        ");\n"                                                                        \
        "    vec4 gain = vec4(min(mask.rgb * (1.0 + k.w), vec3(1.0)), 1.0);\n"        \
        "    gl_FragColor = gain * rgb;\n"                                            \
        "}\n"

#define LARGE_HEAD "varying vec2 v_globalTexCoord;\n"

const char kVFragment[] = TWO_TONE_FRAGMENT("", "g_vTexCoord");
const char kVLargeFragment[] = TWO_TONE_FRAGMENT(LARGE_HEAD, "v_globalTexCoord");
const char kHFragment[] = TWO_TONE_FRAGMENT("", "g_vTexCoord.yx");
const char kHLargeFragment[] = TWO_TONE_FRAGMENT(LARGE_HEAD, "v_globalTexCoord.yx");

const GLProgStyleLocs kLocs = {
    {"g_sImageTexture", "g_sMaskTexture", "g_sContrastTexture"},
    {"m_nSamplerLoc[SAMPLER_INPUT_TEX]", "m_nSamplerLoc[SAMPLER_TEX_MASK]",
     "m_nSamplerLoc[SAMPLER_TEX_CONTRAST]"},
    {"g_fvClipping", "g_fvController", nullptr, nullptr, nullptr},
    {"m_pnUniLoc[UNIFORM_CLIP]", "m_pnUniLoc[UNIFORM_CONTROL]", nullptr, nullptr, nullptr},
};

// V: contrast rows 0.7 then 0.6, the mask scaled by 0.85; H: rows 1.0 then
// 0.8, the mask scaled by 0.7.
const GETwoToneLook kV = {"twoToneMaskV.bmp", {0.7f, 0.6f, 0.0f, -0.15f}};
const GETwoToneLook kH = {"twoToneMaskH.bmp", {1.0f, 0.8f, 0.0f, -0.3f}};

enum { MASK, CONTRAST_RAMP };

}  // namespace

// ---------------------------------------------------------------------------
// Programs

GLProgTwoToneMask::GLProgTwoToneMask(GELogTag& log, const char* fs, bool bLarge)
    : GLProgStyle(log, fs, bLarge, kLocs) {}

GLProgTwoToneMaskV::GLProgTwoToneMaskV() : GLProgTwoToneMask(s_vLog, kVFragment, false) {}
GLProgTwoToneMaskV::GLProgTwoToneMaskV(const char* fs, bool bLarge)
    : GLProgTwoToneMask(s_vLog, fs, bLarge) {}
GLProgTwoToneMaskV::~GLProgTwoToneMaskV() {
    GE_LOGI(s_vLog, "[%s] enter", "~GLProgTwoToneMaskV");
    GE_LOGI(s_vLog, "[%s] leave", "~GLProgTwoToneMaskV");
}

GLProgTwoToneMaskVLarge::GLProgTwoToneMaskVLarge() : GLProgTwoToneMaskV(kVLargeFragment, true) {}
GLProgTwoToneMaskVLarge::~GLProgTwoToneMaskVLarge() {
    GE_LOGI(s_vLog, "[%s] enter", "~GLProgTwoToneMaskVLarge");
    GE_LOGI(s_vLog, "[%s] leave", "~GLProgTwoToneMaskVLarge");
}

GLProgTwoToneMaskH::GLProgTwoToneMaskH() : GLProgTwoToneMask(s_hLog, kHFragment, false) {}
GLProgTwoToneMaskH::GLProgTwoToneMaskH(const char* fs, bool bLarge)
    : GLProgTwoToneMask(s_hLog, fs, bLarge) {}
GLProgTwoToneMaskH::~GLProgTwoToneMaskH() {
    GE_LOGI(s_hLog, "[%s] enter", "~GLProgTwoToneMaskH");
    GE_LOGI(s_hLog, "[%s] leave", "~GLProgTwoToneMaskH");
}

GLProgTwoToneMaskHLarge::GLProgTwoToneMaskHLarge() : GLProgTwoToneMaskH(kHLargeFragment, true) {}
GLProgTwoToneMaskHLarge::~GLProgTwoToneMaskHLarge() {
    GE_LOGI(s_hLog, "[%s] enter", "~GLProgTwoToneMaskHLarge");
    GE_LOGI(s_hLog, "[%s] leave", "~GLProgTwoToneMaskHLarge");
}

// ---------------------------------------------------------------------------
// GEShaderTwoToneMask

GEShaderTwoToneMask::GEShaderTwoToneMask(GELogTag& log, const GETwoToneLook& look)
    : GEShaderLook(log), m_look(look), m_fScreenRatio(0.0f) {}

GEShaderTwoToneMask::~GEShaderTwoToneMask() {}

int GEShaderTwoToneMask::Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w,
                              unsigned h, unsigned char capture, IYUVConverter* conv) {
    GE_LOGI(m_log, "[%s] enter", "Init");
    StoreInitArgs(src, a, x, y, w, h, capture, (unsigned)GEGetDispWidth(),
                  (unsigned)GEGetDispHeight());
    m_fStrength = 0.0f;
    if (src == nullptr || !GEShader::Init(src, a, x, y, w, h, capture, conv)) {
        return 0;
    }
    // V's words for H as well.
    GE_LOGI(m_log,
            m_bCapture ? "[%s] Creating TwoToneMaskV large shader"
                       : "[%s] Creating TwoToneMaskV shader",
            "Init");
    if (!TakeProgram(NewProgram(m_bCapture), "[%s] can't new program", "[%s] can't load program")) {
        return 0;
    }
    if (!LoadLookUp(MASK, m_look.szMask, GL_RGB, GL_UNSIGNED_BYTE, false, nullptr,
                    "[%s] \t\tcan't load Mask tex")) {
        return 0;
    }
    BindLookUp(1, MASK);
    if (!LoadLookUp(CONTRAST_RAMP, "stylizeContrastRamp.bmp", GL_RGB, GL_UNSIGNED_BYTE, false,
                    nullptr, "[%s] \t\tcan't load contrast tex")) {
        return 0;
    }
    BindLookUp(2, CONTRAST_RAMP);
    m_fScreenRatio = ScreenRatio(src);
    SetPartialTexCoord();
    return FinishInit();
}

int GEShaderTwoToneMask::Deinit() {
    return DeinitLook();
}

void GEShaderTwoToneMask::SetUniforms() {
    const float* k = m_look.afController;
    m_pProgram->Uniform4f(GLProgTwoToneMask::UNIFORM_CLIP, 0.0f, 1.0f, 0.0f, 1.0f);
    m_pProgram->Uniform4f(GLProgTwoToneMask::UNIFORM_CONTROL, k[0], k[1], k[2], k[3]);
}

int GEShaderTwoToneMask::ProcBlock(unsigned, unsigned, int, int) {
    return RenderLook(m_fTileTexCoord);
}

int GEShaderTwoToneMask::ProcFrame(unsigned char*, unsigned char* out, int w, int h) {
    return WalkRuns(out, w, h);
}

int GEShaderTwoToneMask::SetParam(unsigned group, int value, int, int, int) {
    return SetStrength(group, value);
}

GEShaderTwoToneMaskV::GEShaderTwoToneMaskV() : GEShaderTwoToneMask(s_vLog, kV) {}
GEShaderTwoToneMaskV::~GEShaderTwoToneMaskV() {
    Deinit();
}
GLProgTwoToneMask* GEShaderTwoToneMaskV::NewProgram(bool bLarge) const {
    return bLarge ? static_cast<GLProgTwoToneMask*>(new (std::nothrow) GLProgTwoToneMaskVLarge())
                  : new (std::nothrow) GLProgTwoToneMaskV();
}

GEShaderTwoToneMaskH::GEShaderTwoToneMaskH() : GEShaderTwoToneMask(s_hLog, kH) {}
GEShaderTwoToneMaskH::~GEShaderTwoToneMaskH() {
    Deinit();
}
GLProgTwoToneMask* GEShaderTwoToneMaskH::NewProgram(bool bLarge) const {
    return bLarge ? static_cast<GLProgTwoToneMask*>(new (std::nothrow) GLProgTwoToneMaskHLarge())
                  : new (std::nothrow) GLProgTwoToneMaskH();
}
