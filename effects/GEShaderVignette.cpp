#include "effects/GEShaderVignette.h"

#include <math.h>

#include <new>

#include "gl/GECommon.h"
#include "gl/GLQuad.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_log("GEShaderVignette");

// The preview's vertex shader also declares a mask coordinate that nothing
// feeds and nothing reads.
const char kVertex[] =
    "attribute vec4 a_vertexCoord;\n"
    "attribute vec2 a_textureCoord;\n"
    "attribute vec2 a_maskCoord;\n"
    "varying vec2 v_texCoord;\n"
    "void main() {\n"
    "    gl_Position = a_vertexCoord;\n"
    "    v_texCoord = a_textureCoord;\n"
    "}\n";

const char kLargeVertex[] =
    "attribute vec4 a_vertexCoord;\n"
    "attribute vec2 a_textureCoord;\n"
    "attribute vec2 a_globalTexCoord;\n"
    "varying vec2 v_texCoord;\n"
    "varying vec2 v_globalTexCoord;\n"
    "void main() {\n"
    "    gl_Position = a_vertexCoord;\n"
    "    v_texCoord = a_textureCoord;\n"
    "    v_globalTexCoord = a_globalTexCoord;\n"
    "}\n";

#define VIGNETTE_HEAD                 \
    "precision highp float;\n"        \
    "uniform sampler2D s_texture0;\n" \
    "uniform mat4 u_mat_yuv2rgb;\n"   \
    "uniform vec2 u_center;\n"        \
    "uniform vec2 u_fRadius;\n"       \
    "uniform float u_fScreenRatio;\n" \
    "varying vec2 v_texCoord;\n"

// The fall-off at `pos` (a position in the picture): 0 inside the inner
// radius, 1 outside the outer one, the distance's vertical part measured in
// widths.
#define VIGNETTE_FALLOFF(pos)           \
    "    vec2 d = " pos                 \
    " - u_center - 0.5;\n"              \
    "    d.y = d.y / u_fScreenRatio;\n" \
    "    float f = smoothstep(u_fRadius.x, u_fRadius.y, length(d));\n"

// u_fStrength is declared and never set: it stays 0.0 and changes nothing.
const char kFragment[] = VIGNETTE_HEAD
    "uniform vec4 u_crop;\n"
    "uniform float u_widthcomp;\n"
    "uniform float u_fStrength;\n"
    "void main() {\n"
    "    vec2 q;\n"
    "    q.x = v_texCoord.x * u_crop.z + u_crop.x;\n"
    "    q.y = v_texCoord.y * u_crop.w + u_crop.y;\n"
    "    q.x = q.x * u_widthcomp;\n"
    "    vec4 p = u_mat_yuv2rgb * texture2D(s_texture0, q);\n" VIGNETTE_FALLOFF("v_texCoord")
    "    gl_FragColor = p * (1.0 - f);\n"
    "}\n";

const char kLargeFragment[] = VIGNETTE_HEAD
    "varying vec2 v_globalTexCoord;\n"
    "void main() {\n"
    "    vec4 p = u_mat_yuv2rgb * texture2D(s_texture0, v_texCoord);\n" VIGNETTE_FALLOFF(
        "v_globalTexCoord") "    gl_FragColor = p * vec4(1.0 - f, 1.0 - f, 1.0 - f, 1.0);\n"
                            "}\n";

}  // namespace

// ---------------------------------------------------------------------------
// GLProgVignette, GLProgVignetteLarge

GLProgVignette::GLProgVignette() : GLProgLook(s_log, kVertex, kFragment, 1, false) {}

GLProgVignette::GLProgVignette(const char* vs, const char* fs, bool bLarge)
    : GLProgLook(s_log, vs, fs, 1, bLarge) {}

GLProgVignette::~GLProgVignette() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgVignette");
    GE_LOGI(s_log, "[%s] leave", "~GLProgVignette");
}

// The Large program has neither the crop nor the width compensation: the
// tile's coordinates say where it reads.
int GLProgVignette::Load() {
    if (!OpenLook() || !GLPROG_ATTRIB_LOC(m_nVerCoordLoc, "a_vertexCoord") ||
        !GLPROG_ATTRIB_LOC(m_nTexCoordLoc, "a_textureCoord") || !FetchGlobalTexCoord() ||
        !GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_INPUT_TEX], "s_texture0") ||
        !FetchUniformLoc(m_nUniformLoc[UNIFORM_CENTER], "u_center", "m_pnUniLoc[UNIFORM_CENTER]") ||
        !FetchUniformLoc(m_nUniformLoc[UNIFORM_RADIUS], "u_fRadius",
                         "m_pnUniLoc[UNIFORM_RADIUS]") ||
        !FetchUniformLoc(m_nUniformLoc[UNIFORM_SCREENRATIO], "u_fScreenRatio",
                         "m_pnUniLoc[UNIFORM_SCREENRATIO]")) {
        return 0;
    }
    if (!m_bLarge &&
        (!GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_CROP], "u_crop") ||
         !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_WIDTH_COMPENSATE], "u_widthcomp"))) {
        return 0;
    }
    if (!GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], "u_mat_yuv2rgb")) {
        return 0;
    }
    CloseLook(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB]);
    LogLoc("m_pnUniLoc[UNIFORM_CENTER]", m_nUniformLoc[UNIFORM_CENTER]);
    LogLoc("m_pnUniLoc[UNIFORM_RADIUS]", m_nUniformLoc[UNIFORM_RADIUS]);
    LogLoc("m_pnUniLoc[UNIFORM_SCREENRATIO]", m_nUniformLoc[UNIFORM_SCREENRATIO]);
    return LeaveLook();
}

GLProgVignetteLarge::GLProgVignetteLarge() : GLProgVignette(kLargeVertex, kLargeFragment, true) {}

GLProgVignetteLarge::~GLProgVignetteLarge() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgVignetteLarge");
    GE_LOGI(s_log, "[%s] leave", "~GLProgVignetteLarge");
}

// ---------------------------------------------------------------------------
// GEShaderVignette

GEShaderVignette::GEShaderVignette()
    : GEShaderLook(s_log),
      m_fCenterX(0.5f),
      m_fCenterY(0.5f),
      m_fRadius(0.3f),
      m_fSoftness(0.5f),
      m_fScreenRatio(1.0f),
      m_fWidthComp(1.0f),
      m_nPicW(1),
      m_nPicH(1) {}

GEShaderVignette::~GEShaderVignette() {
    Deinit();
}

int GEShaderVignette::Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w,
                           unsigned h, unsigned char capture, IYUVConverter* conv) {
    GE_LOGI(s_log, "[%s] enter", "Init");
    m_nPicW = w > 0 ? w : 1;
    m_nPicH = h > 0 ? h : 1;
    StoreInitArgs(src, a, x, y, w, h, capture, (unsigned)GEGetDispWidth(),
                  (unsigned)GEGetDispHeight());
    if (src == nullptr || src->GetHeight() == 0 ||
        !GEShader::Init(src, a, x, y, w, h, capture, conv)) {
        return 0;
    }
    // The width compensation maps the picture onto the 32-aligned texture:
    // the crop stays in fractions of the picture, the whole of it until
    // SetCrop says otherwise (the base's share of the texture would count
    // twice).
    SetCrop(0.0f, 0.0f, 1.0f, 1.0f);
    GLProgVignette* prog;
    if (m_bCapture) {
        GE_LOGI(s_log, "[%s] Creating vignette large shader", "Init");
        prog = new (std::nothrow) GLProgVignetteLarge();
    } else {
        GE_LOGI(s_log, "[%s] Creating vignette shader", "Init");
        prog = new (std::nothrow) GLProgVignette();
    }
    if (!TakeProgram(prog, "[%s] can't load program", "[%s] can't load program")) {
        return 0;
    }
    // The centre starts on the corner (1, 1) until parameter 1 places it.
    m_fCenterX = 0.5f;
    m_fCenterY = 0.5f;
    m_fRadius = 0.3f;
    m_fSoftness = 0.5f;
    m_fScreenRatio = LogScreenRatio();
    GE_LOGI(s_log, "[%s] partial texcoord", "Init");
    m_fWidthComp = (float)w / (float)src->GetStride();
    return FinishInit();
}

int GEShaderVignette::Deinit() {
    return DeinitLook();
}

void GEShaderVignette::SetUniforms() {
    m_pProgram->Uniform1f(GLProgVignette::UNIFORM_SCREENRATIO, m_fScreenRatio);
    if (!m_bCapture) {
        m_pProgram->Uniform1f(GLProgVignette::UNIFORM_WIDTH_COMPENSATE, m_fWidthComp);
    }
    m_pProgram->Uniform2f(GLProgVignette::UNIFORM_CENTER, m_fCenterX, m_fCenterY);
    m_pProgram->Uniform2f(GLProgVignette::UNIFORM_RADIUS, m_fRadius - m_fSoftness,
                          m_fRadius + m_fSoftness);
    if (!m_bCapture) {
        m_pProgram->Uniform4f(GLProgVignette::UNIFORM_CROP, m_fCropX, m_fCropY, m_fCropW, m_fCropH);
    }
}

// The preview reads the frame through the crop in the shader; a capture
// tile comes with its own coordinates and its place in the picture.
int GEShaderVignette::ProcBlock(unsigned, unsigned, int, int) {
    return RenderLook(m_bCapture ? m_fTileTexCoord : g_fQuadTexCoord);
}

int GEShaderVignette::ProcFrame(unsigned char*, unsigned char* out, int w, int h) {
    return WalkRuns(out, w, h);
}

int GEShaderVignette::SetParam(unsigned group, int a, int b, int c, int d) {
    if (!ReadyForParam()) {
        return 0;
    }
    if (group == 0) {
        m_fSoftness = GEStrengthOf(a);
        return 1;
    }
    // In fractions of the picture, each axis by its own size: the radius is
    // not corrected for the picture's ratio, as the shader's distance is.
    const float w = (float)m_nPicW;
    const float h = (float)m_nPicH;
    m_fCenterX = (float)a / w - 0.5f;
    m_fCenterY = (float)b / h - 0.5f;
    const float dx = (float)(c - a) / w;
    const float dy = (float)(d - b) / h;
    m_fRadius = sqrtf(dx * dx + dy * dy);
    return 1;
}
