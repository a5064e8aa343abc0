#include "effects/GEShaderWhiteboard.h"

#include <new>

#include "gl/GLQuad.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_log("GEShaderWhiteboard");

// The four diagonal neighbours travel as two pairs.
const char kVertex[] =
    "attribute vec4 a_vertexCoord;\n"
    "attribute vec2 a_textureCoord;\n"
    "uniform vec2 g_vTexelSize;\n"
    "varying vec2 g_vTexCoord;\n"
    "varying vec4 g_vTexCoords0;\n"
    "varying vec4 g_vTexCoords1;\n"
    "void main() {\n"
    "    gl_Position = a_vertexCoord;\n"
    "    vec2 tc = a_textureCoord;\n"
    "    vec2 d = g_vTexelSize;\n"
    "    g_vTexCoord = tc;\n"
    "    g_vTexCoords0 = vec4(tc.x + d.x, tc.y + d.y, tc.x + d.x, tc.y - d.y);\n"
    "    g_vTexCoords1 = vec4(tc.x - d.x, tc.y - d.y, tc.x - d.x, tc.y + d.y);\n"
    "}\n";

// The curve is read at a level to the power 0.7; a level below 0, which only
// a saturated colour reaches, has no such power and reads the curve's start.
const char kFragment[] =
    "precision highp float;\n"
    "uniform sampler2D g_sImageTexture;\n"
    "uniform sampler2D g_sLUTTexture;\n"
    "uniform float g_fController;\n"
    "varying vec2 g_vTexCoord;\n"
    "varying vec4 g_vTexCoords0;\n"
    "varying vec4 g_vTexCoords1;\n"
    "float curve(float c) {\n"
    "    return texture2D(g_sLUTTexture, vec2(pow(max(c, 0.0), 0.7), 0.5)).b;\n"
    "}\n"
    "void main() {\n"
    "    vec4 centre = texture2D(g_sImageTexture, g_vTexCoord);\n"
    "    float around = texture2D(g_sImageTexture, g_vTexCoords0.xy).x +\n"
    "                   texture2D(g_sImageTexture, g_vTexCoords0.zw).x +\n"
    "                   texture2D(g_sImageTexture, g_vTexCoords1.xy).x +\n"
    "                   texture2D(g_sImageTexture, g_vTexCoords1.zw).x;\n"
    "    float y = 1.3 * centre.x - 0.075 * around;\n"
    "    float cr = centre.y - 0.5;\n"
    "    float cb = centre.z - 0.5;\n"
    "    vec3 rgb = vec3(y + 1.402 * cr, y - 0.344 * cb - 0.714 * cr, y + 1.772 * cb);\n"
    "    rgb = vec3(curve(rgb.r), curve(rgb.g), curve(rgb.b));\n"
    "    float whiteness = dot(rgb, vec3(0.299, 0.587, 0.114));\n"
    "    vec3 lifted = rgb * (1.0 + 0.3 * max(whiteness - 0.2, 0.0));\n"
    "    lifted = min(lifted, vec3(0.96, 0.965, 0.95));\n"
    "    gl_FragColor = vec4(mix(rgb, lifted, g_fController), 1.0);\n"
    "}\n";

}  // namespace

// ---------------------------------------------------------------------------
// GLProgWhiteboard

GLProgWhiteboard::GLProgWhiteboard() : GLProgLook(s_log, kVertex, kFragment, 2, false) {}

GLProgWhiteboard::~GLProgWhiteboard() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgWhiteboard");
    GE_LOGI(s_log, "[%s] leave", "~GLProgWhiteboard");
}

int GLProgWhiteboard::Load() {
    if (!OpenLook() || !GLPROG_ATTRIB_LOC(m_nVerCoordLoc, "a_vertexCoord") ||
        !GLPROG_ATTRIB_LOC(m_nTexCoordLoc, "a_textureCoord")) {
        return 0;
    }
    m_nSamplerLoc[SAMPLER_INPUT_TEX] = glGetUniformLocation(m_nProgram, "g_sImageTexture");
    m_nSamplerLoc[SAMPLER_CURVE] = glGetUniformLocation(m_nProgram, "g_sLUTTexture");
    if (!LocIsValid("m_nSamplerLoc[SAMPLER_INPUT_TEX]", m_nSamplerLoc[SAMPLER_INPUT_TEX]) ||
        !LocIsValid("m_nSamplerLoc[SAMPLER_CURVE]", m_nSamplerLoc[SAMPLER_CURVE]) ||
        !FetchUniformLoc(m_nUniformLoc[UNIFORM_LOC_TEXELSIZE], "g_vTexelSize",
                         "m_pnUniLoc[UNIFORM_LOC_TEXELSIZE]") ||
        !FetchUniformLoc(m_nUniformLoc[UNIFORM_LOC_CONTROLLER], "g_fController",
                         "m_pnUniLoc[UNIFORM_LOC_CONTROLLER]")) {
        return 0;
    }
    CloseLook(-1);  // it converts to RGB itself: no matrix
    return LeaveLook();
}

// ---------------------------------------------------------------------------
// GEShaderWhiteboard

GEShaderWhiteboard::GEShaderWhiteboard() : GEShaderLook(s_log), m_fController(0.6f) {}

GEShaderWhiteboard::~GEShaderWhiteboard() {
    Deinit();
}

int GEShaderWhiteboard::Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w,
                             unsigned h, unsigned char capture, IYUVConverter* conv) {
    LogLookBanner("GEShaderWhiteboard::Init", x, y, w, h, capture);
    StoreInitArgs(src, a, x, y, w, h, capture);
    if (src == nullptr || !GEShader::Init(src, a, x, y, w, h, capture, conv)) {
        return 0;
    }
    // The wording is Vintage's.
    GE_LOGI(s_log, "[%s] Creating cross curve texture", "Init");
    if (!LoadLookUp(0, "ContrastCurveSet.bmp", GL_RGB, GL_UNSIGNED_BYTE, true, nullptr,
                    "[%s] can't load contrast curve tex")) {
        return 0;
    }
    GE_LOGI(s_log, "[%s] Creating Whiteboard shader", "Init");
    if (!TakeProgram(new (std::nothrow) GLProgWhiteboard(), "[%s] can't load program whiteboard",
                     "[%s] can't load program whiteboard")) {
        return 0;
    }
    BindLookUp(1, 0);
    SetPartialTexCoord();
    return FinishInit();
}

int GEShaderWhiteboard::Deinit() {
    return DeinitLook();
}

int GEShaderWhiteboard::ProcFrame(unsigned a, unsigned b, int c, int d) {
    if (m_bInited && !m_bCapture) {
        // The quad's coordinates through the crop.
        const float allocW = (float)m_pSrcTexture->GetAllocWidth();
        for (int i = 0; i < g_nQuadVertices; ++i) {
            const float s = (float)m_nRenderW * g_fQuadTexCoord[2 * i] / allocW;
            m_fTileTexCoord[2 * i] = m_fCropX + m_fCropW * s;
            m_fTileTexCoord[2 * i + 1] = m_fCropY + m_fCropH * g_fQuadTexCoord[2 * i + 1];
        }
    }
    return GEShaderLook::ProcFrame(a, b, c, d);
}

void GEShaderWhiteboard::SetUniforms() {
    // The program has no crop; the call is kept and changes nothing.
    m_pProgram->Uniform4f(GLProgWhiteboard::UNIFORM_LOC_CROP, m_fCropX, m_fCropY, m_fCropW,
                          m_fCropH);
    m_fController = 0.6f;
    m_pProgram->Uniform1f(GLProgWhiteboard::UNIFORM_LOC_CONTROLLER, m_fController);
    m_pProgram->Uniform2f(GLProgWhiteboard::UNIFORM_LOC_TEXELSIZE, 1.0f / (float)m_nRenderW,
                          1.0f / (float)m_nRenderH);
}

int GEShaderWhiteboard::ProcBlock(unsigned, unsigned, int, int) {
    return RenderLook(m_fTileTexCoord);
}

int GEShaderWhiteboard::ProcFrame(unsigned char*, unsigned char* out, int w, int h) {
    return WalkCropped(out, w, h);
}

int GEShaderWhiteboard::SetParam(unsigned, int, int, int, int) {
    ReadyForParam();
    return 0;
}
