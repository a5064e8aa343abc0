#include "effects/GEShaderVintage.h"

#include <new>

#include "gl/GLQuad.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_log("GEShaderVintage");

#define VINTAGE_HEAD                  \
    "precision highp float;\n"        \
    "uniform sampler2D s_texture0;\n" \
    "uniform sampler2D s_curve;\n"    \
    "uniform sampler2D s_vignette;\n" \
    "uniform mat4 u_mat_yuv2rgb;\n"   \
    "varying vec2 v_textureCoord;\n"

// Each channel through its curve, in turn: red (the curve image's blue
// channel) first, then green, then blue (its red channel).
#define VINTAGE_CURVES                                  \
    "    p.r = texture2D(s_curve, vec2(p.r, 0.0)).b;\n" \
    "    p.g = texture2D(s_curve, vec2(p.g, 0.0)).g;\n" \
    "    p.b = texture2D(s_curve, vec2(p.b, 0.0)).r;\n"

const char kFragment[] = VINTAGE_HEAD
    "uniform vec4 u_crop;\n"
    "uniform float u_widthcomp;\n"
    "void main() {\n"
    "    vec2 pick;\n"
    "    pick.x = v_textureCoord.x * u_crop.z + u_crop.x;\n"
    "    pick.y = v_textureCoord.y * u_crop.w + u_crop.y;\n"
    "    pick.x = pick.x * u_widthcomp;\n"
    "    vec4 p = u_mat_yuv2rgb * texture2D(s_texture0, pick);\n" VINTAGE_CURVES
    "    p = p * texture2D(s_vignette, v_textureCoord);\n"
    "    gl_FragColor = p;\n"
    "}\n";

const char kLargeFragment[] = VINTAGE_HEAD
    "varying vec2 v_globalTexCoord;\n"
    "void main() {\n"
    "    vec4 p = u_mat_yuv2rgb * texture2D(s_texture0, v_textureCoord);\n" VINTAGE_CURVES
    "    p = p * texture2D(s_vignette, v_globalTexCoord);\n"
    "    gl_FragColor = p;\n"
    "}\n";

// The looks: curve file, the words of its lines, and SetParam's line.
struct Look {
    const char* szFile;
    const char* szCreating;
    const char* szNewFail;
    const char* szLoadFail;
    const char* szChosen;
};
const Look kLooks[] = {
    {"CurveCross.bmp", "[%s] Creating cross curve texture", "[%s] can't new cross tex",
     "[%s] can't load cross tex", "[%s] Vintage - cross"},
    {"CurveCold.bmp", "[%s] Creating cold curve texture", "[%s] can't new hc tex",
     "[%s] can't load hc tex", "[%s] Vintage - cold"},
    {"CurveWarm.bmp", "[%s] Creating warm curve texture", "[%s] can't new warm tex",
     "[%s] can't load warm tex", "[%s] Vintage - warm"},
    {"CurveSepia.bmp", "[%s] Creating sepia curve texture", "[%s] can't new sepia tex",
     "[%s] can't load sepia tex", "[%s] Vintage - Sepia"},
};

}  // namespace

// ---------------------------------------------------------------------------
// GLProgCurveLook, GLProgVintage, GLProgVintageLarge

GLProgCurveLook::GLProgCurveLook(GELogTag& log, const char* fs, bool bLarge, bool bCrop)
    : GLProgLook(log, bLarge ? GLPROG_LOOK_LARGE_VERTEX : GLPROG_LOOK_VERTEX, fs, 3, bLarge),
      m_bCrop(bCrop) {}

int GLProgCurveLook::Load() {
    if (!OpenLook() || !GLPROG_ATTRIB_LOC(m_nVerCoordLoc, "a_vertexCoord") ||
        !GLPROG_ATTRIB_LOC(m_nTexCoordLoc, "a_textureCoord") || !FetchGlobalTexCoord()) {
        return 0;
    }
    m_nSamplerLoc[SAMPLER_INPUT_TEX] = glGetUniformLocation(m_nProgram, "s_texture0");
    m_nSamplerLoc[SAMPLER_CURVE] = glGetUniformLocation(m_nProgram, "s_curve");
    m_nSamplerLoc[SAMPLER_VIGNETTE] = glGetUniformLocation(m_nProgram, "s_vignette");
    if (!LocIsValid("m_nSamplerLoc[SAMPLER_INPUT_TEX]", m_nSamplerLoc[SAMPLER_INPUT_TEX]) ||
        !LocIsValid("m_nSamplerLoc[SAMPLER_CURVE]", m_nSamplerLoc[SAMPLER_CURVE]) ||
        !LocIsValid("m_nSamplerLoc[SAMPLER_VIGNETTE]", m_nSamplerLoc[SAMPLER_VIGNETTE])) {
        return 0;
    }
    if (m_bCrop && (!GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_CROP], "u_crop") ||
                    !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_WIDTH_COMPENSATE], "u_widthcomp"))) {
        return 0;
    }
    if (!GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], "u_mat_yuv2rgb")) {
        return 0;
    }
    CloseLook(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB]);
    const char* curve = "m_nSamplerLoc[SAMPLER_CURVE]";
    const char* mask = "m_nSamplerLoc[SAMPLER_VIGNETTE]";
    LogLoc(m_bLarge ? curve : mask, m_nSamplerLoc[m_bLarge ? SAMPLER_CURVE : SAMPLER_VIGNETTE]);
    LogLoc(m_bLarge ? mask : curve, m_nSamplerLoc[m_bLarge ? SAMPLER_VIGNETTE : SAMPLER_CURVE]);
    return LeaveLook();
}

GLProgVintage::GLProgVintage() : GLProgCurveLook(s_log, kFragment, false, true) {}

GLProgVintage::GLProgVintage(const char* fs, bool bLarge)
    : GLProgCurveLook(s_log, fs, bLarge, !bLarge) {}

GLProgVintage::~GLProgVintage() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgVintage");
    GE_LOGI(s_log, "[%s] leave", "~GLProgVintage");
}

GLProgVintageLarge::GLProgVintageLarge() : GLProgVintage(kLargeFragment, true) {}

GLProgVintageLarge::~GLProgVintageLarge() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgVintageLarge");
    GE_LOGI(s_log, "[%s] leave", "~GLProgVintageLarge");
}

// ---------------------------------------------------------------------------
// GEShaderVintage

GEShaderVintage::GEShaderVintage() : GEShaderLook(s_log), m_fWidthComp(1.0f) {}

GEShaderVintage::~GEShaderVintage() {
    Deinit();
}

int GEShaderVintage::Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w,
                          unsigned h, unsigned char capture, IYUVConverter* conv) {
    LogLookBanner("GEShaderVintage::Init", x, y, w, h, capture);
    StoreInitArgs(src, a, x, y, w, h, capture);
    if (src == nullptr || !GEShader::Init(src, a, x, y, w, h, capture, conv)) {
        return 0;
    }
    for (unsigned i = CURVE_CROSS; i <= CURVE_SEPIA; ++i) {
        GE_LOGI(s_log, kLooks[i].szCreating, "Init");
        if (!LoadLookUp(i, kLooks[i].szFile, GL_RGB, GL_UNSIGNED_BYTE, true, kLooks[i].szNewFail,
                        kLooks[i].szLoadFail)) {
            return 0;
        }
    }
    if (!LoadVignetteAndLeak(MASK, LEAK, w, h)) {
        return 0;
    }

    GLProgVintage* prog;
    if (m_bCapture) {
        GE_LOGI(s_log, "[%s] Creating Vintage-Cross large shader", "Init");
        prog = new (std::nothrow) GLProgVintageLarge();
    } else {
        GE_LOGI(s_log, "[%s] Creating Vintage-Cross shader", "Init");
        prog = new (std::nothrow) GLProgVintage();
    }
    if (!TakeProgram(prog, "[%s] can't new program cross", "[%s] can't load program cross")) {
        return 0;
    }
    BindLookUp(1, CURVE_CROSS);
    BindLookUp(2, MASK);
    m_fWidthComp = (float)m_nRenderW / (float)src->GetAllocWidth();
    return FinishInit();
}

int GEShaderVintage::Deinit() {
    return DeinitLook();
}

void GEShaderVintage::SetUniforms() {
    // The Large program has no crop: the walk applies it.
    m_pProgram->Uniform4f(GLProgCurveLook::UNIFORM_CROP, m_fCropX, m_fCropY, m_fCropW, m_fCropH);
    if (!m_bCapture) {
        m_pProgram->Uniform1f(GLProgCurveLook::UNIFORM_WIDTH_COMPENSATE, m_fWidthComp);
    }
}

int GEShaderVintage::ProcBlock(unsigned, unsigned, int, int) {
    // The preview reads the frame through the crop in the shader; a capture
    // tile comes with its own coordinates.
    return RenderLook(m_bCapture ? m_fTileTexCoord : g_fQuadTexCoord);
}

int GEShaderVintage::ProcFrame(unsigned char*, unsigned char* out, int w, int h) {
    return WalkCropped(out, w, h);
}

int GEShaderVintage::SetParam(unsigned group, int value, int, int, int) {
    if (!ReadyForParam() || group != 0) {
        return 0;
    }
    if (value < LOOK_CROSS || value > LOOK_SEPIA) {
        GE_LOGE(s_log, "[%s] wrong param", "SetParam");
        return 0;
    }
    GE_LOGI(s_log, kLooks[value].szChosen, "SetParam");
    BindLookUp(1, (unsigned)value);
    BindLookUp(2, value == LOOK_SEPIA ? LEAK : MASK);
    return 0;
}
