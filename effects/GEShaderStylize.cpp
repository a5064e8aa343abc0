#include "effects/GEShaderStylize.h"

#include <new>

#include "gl/GECommon.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_nashLog("GEShaderStylizeNash");
GELogTag s_mapleLog("GEShaderStylizeMaple");

const char kFragment[] = GE_STYLE_HEAD
    "uniform sampler2D g_sLUTTexture;\n"
    "uniform vec4 g_fvTintColor;\n"
    "void main() {\n"
    "    vec4 src = texture2D(g_sImageTexture, g_vTexCoord);\n" GE_STYLE_CONTRAST
    "    vec4 rgb = u_mat_yuv2rgb * src;\n"
    "    vec4 style;\n"
    "    style.r = texture2D(g_sLUTTexture, vec2(rgb.r, k.z)).b;\n"
    "    style.g = texture2D(g_sLUTTexture, vec2(rgb.g, k.z)).g;\n"
    "    style.b = texture2D(g_sLUTTexture, vec2(rgb.b, k.z)).r;\n"
    "    style.a = 1.0;\n"
    "    float blend = g_fvTintColor.w + k.w;\n"
    "    gl_FragColor = g_fvTintColor * blend + style * (1.0 - blend);\n"
    "}\n";

const GLProgStyleLocs kStylizeLocs = {
    {"g_sImageTexture", "g_sLUTTexture", "g_sContrastTexture"},
    {"m_nSamplerLoc[SAMPLER_INPUT_TEX]", "m_nSamplerLoc[SAMPLER_TEX_LUT]",
     "m_nSamplerLoc[SAMPLER_TEX_CONTRAST]"},
    {"g_fvClipping", "g_fvController", "g_fvTintColor", nullptr, nullptr},
    {"m_pnUniLoc[UNIFORM_CLIP]", "m_pnUniLoc[UNIFORM_CONTROL]", "m_pnUniLoc[UNIFORM_TINT]", nullptr,
     nullptr},
};

// Nash lifts the luma from 0 .. 1 onto 0.117 .. 1.0 and reads contrast row
// 0.6 twice and colour row 0.9; Maple maps 0 .. 0.859 onto 0.0976 .. 1.0,
// reads contrast rows 0.6 and 0.5 and colour row 0.5.
const GEStylizeLook kNash = {"GEShaderStylizeNash",
                             {0.0f, 1.0f, 0.117f, 1.0f},
                             {0.6f, 0.6f, 0.9f, 0.0f},
                             {0.973f, 0.871f, 0.75f, 0.0f},
                             true,
                             true,
                             false};
const GEStylizeLook kMaple = {"GEShaderStylizeMaple",
                              {0.0f, 0.859f, 0.0976f, 1.0f},
                              {0.6f, 0.5f, 0.5f, 0.0f},
                              {1.0f, 1.0f, 1.0f, 0.0f},
                              false,
                              false,
                              true};

enum { COLOR_RAMP, CONTRAST_RAMP };

}  // namespace

// ---------------------------------------------------------------------------
// GLProgStyle, GLProgStylize and its two looks

GLProgStyle::GLProgStyle(GELogTag& log, const char* fs, bool bLarge, const GLProgStyleLocs& locs)
    : GLProgLook(log, bLarge ? GLPROG_STYLE_LARGE_VERTEX : GLPROG_STYLE_VERTEX, fs, 3, bLarge),
      m_locs(locs) {}

int GLProgStyle::Load() {
    if (!OpenLook() || !GLPROG_ATTRIB_LOC(m_nVerCoordLoc, "g_vVertex") ||
        !GLPROG_ATTRIB_LOC(m_nTexCoordLoc, "a_textureCoord") || !FetchGlobalTexCoord()) {
        return 0;
    }
    for (int i = 0; i < 3; ++i) {
        if (!FetchUniformLoc(m_nSamplerLoc[i], m_locs.szSampler[i], m_locs.szSamplerMember[i])) {
            return 0;
        }
    }
    for (int i = 0; i < 5; ++i) {
        if (m_locs.szUniform[i] != nullptr &&
            !FetchUniformLoc(m_nUniformLoc[i], m_locs.szUniform[i], m_locs.szUniformMember[i])) {
            return 0;
        }
    }
    if (!GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], "u_mat_yuv2rgb")) {
        return 0;
    }
    CloseLook(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB]);
    for (int i = 1; i < 3; ++i) {
        LogLoc(m_locs.szSamplerMember[i], m_nSamplerLoc[i]);
    }
    for (int i = 0; i < 5; ++i) {
        if (m_locs.szUniform[i] != nullptr) {
            LogLoc(m_locs.szUniformMember[i], m_nUniformLoc[i]);
        }
    }
    return LeaveLook();
}

GLProgStylize::GLProgStylize(GELogTag& log) : GLProgStyle(log, kFragment, false, kStylizeLocs) {}

GLProgStylizeNash::GLProgStylizeNash() : GLProgStylize(s_nashLog) {}

GLProgStylizeNash::~GLProgStylizeNash() {
    GE_LOGI(s_nashLog, "[%s] enter", "~GLProgStylizeNash");
    GE_LOGI(s_nashLog, "[%s] leave", "~GLProgStylizeNash");
}

GLProgStylizeMaple::GLProgStylizeMaple() : GLProgStylize(s_mapleLog) {}

GLProgStylizeMaple::~GLProgStylizeMaple() {
    GE_LOGI(s_mapleLog, "[%s] enter", "~GLProgStylizeMaple");
    GE_LOGI(s_mapleLog, "[%s] leave", "~GLProgStylizeMaple");
}

// ---------------------------------------------------------------------------
// GEShaderStylize

GEShaderStylize::GEShaderStylize(GELogTag& log, const GEStylizeLook& look)
    : GEShaderLook(log), m_look(look), m_fScreenRatio(0.0f) {}

GEShaderStylize::~GEShaderStylize() {}

int GEShaderStylize::Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w,
                          unsigned h, unsigned char capture, IYUVConverter* conv) {
    GE_LOGI(m_log, "[%s] enter", "Init");
    StoreInitArgs(src, a, x, y, w, h, capture, (unsigned)GEGetDispWidth(),
                  (unsigned)GEGetDispHeight());
    m_fStrength = 0.0f;
    if (src == nullptr || !GEShader::Init(src, a, x, y, w, h, capture, conv)) {
        return 0;
    }
    // The same words for both looks and both modes: one program serves all.
    GE_LOGI(
        m_log,
        m_bCapture ? "[%s] Creating stylizeNash large shader" : "[%s] Creating stylizeNash shader",
        "Init");
    if (!TakeProgram(NewProgram(), "[%s] can't new program", "[%s] can't load program")) {
        return 0;
    }
    if (!LoadLookUp(COLOR_RAMP, "stylizeColorRamp.bmp", GL_RGB, GL_UNSIGNED_BYTE, false, nullptr,
                    "[%s] \t\tcan't load LUT tex")) {
        return 0;
    }
    BindLookUp(1, COLOR_RAMP);
    if (!LoadLookUp(CONTRAST_RAMP, "stylizeContrastRamp.bmp", GL_RGB, GL_UNSIGNED_BYTE, false,
                    nullptr, "[%s] \t\tcan't load contrast tex")) {
        return 0;
    }
    BindLookUp(2, CONTRAST_RAMP);
    if (m_look.bScreenRatio) {
        m_fScreenRatio = ScreenRatio(src);
    }
    SetPartialTexCoord();
    return FinishInit();
}

int GEShaderStylize::Deinit() {
    return DeinitLook();
}

void GEShaderStylize::SetUniforms() {
    const float* c = m_look.afClipping;
    const float* k = m_look.afController;
    const float* t = m_look.afTint;
    m_pProgram->Uniform4f(GLProgStylize::UNIFORM_CLIP, c[0], c[1], c[2], c[3]);
    m_pProgram->Uniform4f(GLProgStylize::UNIFORM_CONTROL, k[0], k[1], k[2], k[3]);
    m_pProgram->Uniform4f(GLProgStylize::UNIFORM_TINT, t[0], t[1], t[2], t[3]);
}

int GEShaderStylize::ProcBlock(unsigned, unsigned, int, int) {
    return RenderLook(m_fTileTexCoord);
}

int GEShaderStylize::ProcFrame(unsigned char*, unsigned char* out, int w, int h) {
    return m_look.bCroppedWalk ? WalkCropped(out, w, h) : WalkRuns(out, w, h);
}

void GEShaderStylize::LogTile(int W, int H) {
    if (m_look.bCroppedWalk) {
        return;
    }
    GE_LOGI(m_log,
            "[%s] m_uStartX=%u, m_uStartY=%u, m_uRgnW=%u, m_uRgnH=%u, nImgWidth=%.1f, "
            "nImgHeight=%.1f",
            "ProcFrame", m_nTileX, m_nTileY, m_nTileW, m_nTileH, (double)W, (double)H);
    GE_LOGI(m_log, "[%s] [%.4f:%.4f] to [%.4f:%.4f]", "ProcFrame", (double)m_fTileTexCoord[2],
            (double)m_fTileTexCoord[3], (double)m_fTileTexCoord[6], (double)m_fTileTexCoord[7]);
}

int GEShaderStylize::SetParam(unsigned group, int value, int, int, int) {
    return SetStrength(group, value);
}

int GEShaderStylize::SetCrop(float x, float y, float w, float h) {
    const int result = GEShader::SetCrop(x, y, w, h);
    if (!m_look.bFollowsCrop) {
        return result;
    }
    if (m_pSrcTexture == nullptr) {
        return 0;
    }
    const float r = (float)m_pSrcTexture->GetWidth() / (float)m_pSrcTexture->GetAllocWidth();
    const float left = m_fCropX * r, right = (m_fCropX + m_fCropW) * r;
    const float bottom = m_fCropY, top = m_fCropY + m_fCropH;
    const GLfloat quad[8] = {left, top, left, bottom, right, bottom, right, top};
    for (int i = 0; i < 8; ++i) {
        m_fTileTexCoord[i] = quad[i];
    }
    return 0;
}

GEShaderStylizeNash::GEShaderStylizeNash() : GEShaderStylize(s_nashLog, kNash) {}

GEShaderStylizeNash::~GEShaderStylizeNash() {
    Deinit();
}

GLProgStylize* GEShaderStylizeNash::NewProgram() const {
    return new (std::nothrow) GLProgStylizeNash();
}

GEShaderStylizeMaple::GEShaderStylizeMaple() : GEShaderStylize(s_mapleLog, kMaple) {}

GEShaderStylizeMaple::~GEShaderStylizeMaple() {
    Deinit();
}

GLProgStylize* GEShaderStylizeMaple::NewProgram() const {
    return new (std::nothrow) GLProgStylizeMaple();
}
