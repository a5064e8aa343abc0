#include "effects/GEShaderContrast.h"

#include <new>

#include "gl/GLTexture.h"

namespace {

GELogTag s_log("GEShaderContrast");

// The grey reads the curve's red channel at the red input and its blue
// channel at the blue input, the other way round from Vintage's colours.
#define CONTRAST_BODY                                                            \
    "    vec4 curveR = texture2D(s_curve, vec2(p.r, 0.0));\n"                    \
    "    vec4 curveG = texture2D(s_curve, vec2(p.g, 0.0));\n"                    \
    "    vec4 curveB = texture2D(s_curve, vec2(p.b, 0.0));\n"                    \
    "    float gray = 0.299 * curveR.r + 0.587 * curveG.g + 0.114 * curveB.b;\n" \
    "    p.r = gray;\n"                                                          \
    "    p.g = gray;\n"                                                          \
    "    p.b = gray;\n"

#define CONTRAST_HEAD                 \
    "precision highp float;\n"        \
    "uniform sampler2D s_texture0;\n" \
    "uniform sampler2D s_curve;\n"    \
    "uniform sampler2D s_vignette;\n" \
    "uniform mat4 u_mat_yuv2rgb;\n"   \
    "varying vec2 v_textureCoord;\n"

const char kFragment[] = CONTRAST_HEAD
    "void main() {\n"
    "    vec4 p = u_mat_yuv2rgb * texture2D(s_texture0, v_textureCoord);\n" CONTRAST_BODY
    "    gl_FragColor = p * texture2D(s_vignette, v_textureCoord);\n"
    "}\n";

const char kLargeFragment[] = CONTRAST_HEAD
    "varying vec2 v_globalTexCoord;\n"
    "void main() {\n"
    "    vec4 p = u_mat_yuv2rgb * texture2D(s_texture0, v_textureCoord);\n" CONTRAST_BODY
    "    gl_FragColor = p * texture2D(s_vignette, v_globalTexCoord);\n"
    "}\n";

}  // namespace

// ---------------------------------------------------------------------------
// GLProgContrast, GLProgContrastLarge

GLProgContrast::GLProgContrast() : GLProgCurveLook(s_log, kFragment, false, false) {}

GLProgContrast::GLProgContrast(const char* fs, bool bLarge)
    : GLProgCurveLook(s_log, fs, bLarge, false) {}

GLProgContrast::~GLProgContrast() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgContrast");
    GE_LOGI(s_log, "[%s] leave", "~GLProgContrast");
}

GLProgContrastLarge::GLProgContrastLarge() : GLProgContrast(kLargeFragment, true) {}

GLProgContrastLarge::~GLProgContrastLarge() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgContrastLarge");
    GE_LOGI(s_log, "[%s] leave", "~GLProgContrastLarge");
}

// ---------------------------------------------------------------------------
// GEShaderContrast

GEShaderContrast::GEShaderContrast() : GEShaderLook(s_log) {}

GEShaderContrast::~GEShaderContrast() {
    Deinit();
}

int GEShaderContrast::Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w,
                           unsigned h, unsigned char capture, IYUVConverter* conv) {
    LogLookBanner("GEShaderContrast::Init", x, y, w, h, capture);
    StoreInitArgs(src, a, x, y, w, h, capture);
    if (src == nullptr || !GEShader::Init(src, a, x, y, w, h, capture, conv)) {
        return 0;
    }
    GE_LOGI(s_log, "[%s] Creating cross curve texture", "Init");
    if (!LoadLookUp(CURVE_CROSS, "CurveCross.bmp", GL_RGB, GL_UNSIGNED_BYTE, true,
                    "[%s] can't new cross tex", "[%s] can't load cross tex") ||
        // The leak texture made as Vintage makes it, though this effect
        // never draws with it.
        !LoadVignetteAndLeak(MASK, LEAK, w, h)) {
        return 0;
    }

    GLProgContrast* prog;
    if (m_bCapture) {
        GE_LOGI(s_log, "[%s] Creating Contrast-Cross large shader", "Init");
        prog = new (std::nothrow) GLProgContrastLarge();
    } else {
        GE_LOGI(s_log, "[%s] Creating Contrast-Cross shader", "Init");
        prog = new (std::nothrow) GLProgContrast();
    }
    if (!TakeProgram(prog, "[%s] can't new program cross", "[%s] can't load program cross")) {
        return 0;
    }
    BindLookUp(1, CURVE_CROSS);
    BindLookUp(2, MASK);
    SetPartialTexCoord();
    return FinishInit();
}

int GEShaderContrast::Deinit() {
    return DeinitLook();
}

int GEShaderContrast::ProcBlock(unsigned, unsigned, int, int) {
    return RenderLook(m_fTileTexCoord);
}

int GEShaderContrast::ProcFrame(unsigned char*, unsigned char* out, int w, int h) {
    return WalkRuns(out, w, h);
}

void GEShaderContrast::LogWalkStart(int W, int H, unsigned nProcW, unsigned nProcH,
                                    unsigned maxRun) {
    GE_LOGI(s_log, "[%s] nImgWidth=%d, nImgHeight=%d, nProcW=%d, nProcH=%d, max run = %d",
            "ProcFrame", W, H, (int)nProcW, (int)nProcH, (int)maxRun);
}

void GEShaderContrast::LogRun(unsigned) {}

int GEShaderContrast::SetParam(unsigned group, int value, int, int, int) {
    if (!ReadyForParam() || group != 0) {
        return 0;
    }
    if (value != 0) {
        GE_LOGE(s_log, "[%s] wrong param", "SetParam");
        return 0;
    }
    GE_LOGI(s_log, "[%s] Contrast - cross", "SetParam");
    BindLookUp(1, CURVE_CROSS);
    BindLookUp(2, MASK);
    return 0;
}
