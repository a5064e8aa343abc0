#include "engine/GLProgRGBtoYUV.h"

#include <string.h>

#include "gl/GELog.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_log("GEShader");

// Shared by both passes: the quad's position as it is, its texture
// coordinate on to the fragment stage.
const char s_szVertexRGBtoYUV[] =
    "attribute vec4 a_vertexCoord;\n"
    "attribute vec2 a_textureCoord;\n"
    "varying vec2 v_textureCoord;\n"
    "void main() {\n"
    "    gl_Position = a_vertexCoord;\n"
    "    v_textureCoord = a_textureCoord;\n"
    "}\n";

// Four luma samples per texel, from the four source pixels the texel covers.
const char s_szFragmentRGBtoY[] =
    "precision highp float;\n"
    "uniform sampler2D s_texture0;\n"
    "uniform vec2 u_shift[4];\n"
    "uniform vec4 u_vec_rgb2y;\n"
    "varying vec2 v_textureCoord;\n"
    "void main() {\n"
    "    float y1 = dot(u_vec_rgb2y, texture2D(s_texture0, v_textureCoord + u_shift[0]));\n"
    "    float y2 = dot(u_vec_rgb2y, texture2D(s_texture0, v_textureCoord + u_shift[1]));\n"
    "    float y3 = dot(u_vec_rgb2y, texture2D(s_texture0, v_textureCoord + u_shift[2]));\n"
    "    float y4 = dot(u_vec_rgb2y, texture2D(s_texture0, v_textureCoord + u_shift[3]));\n"
    "    gl_FragColor = vec4(y1, y2, y3, y4);\n"
    "}\n";

// Two V/U pairs per texel, each from the mean of a 2 x 2 block that linear
// filtering returns at a pixel corner. The alpha of 1 carries the 0.5 offset.
const char s_szFragmentRGBtoUV[] =
    "precision highp float;\n"
    "uniform sampler2D s_texture0;\n"
    "uniform vec2 u_shift[2];\n"
    "varying vec2 v_textureCoord;\n"
    "const vec4 c_vec_rgb2u = vec4(-0.168727, -0.33126147, 0.5, 0.5);\n"
    "const vec4 c_vec_rgb2v = vec4(0.5, -0.4186829, -0.0813089, 0.5);\n"
    "void main() {\n"
    "    vec4 c1 = texture2D(s_texture0, v_textureCoord + u_shift[0]);\n"
    "    vec4 c2 = texture2D(s_texture0, v_textureCoord + u_shift[1]);\n"
    "    c1.a = 1.0;\n"
    "    c2.a = 1.0;\n"
    "    gl_FragColor = vec4(dot(c_vec_rgb2v, c1), dot(c_vec_rgb2u, c1),\n"
    "                        dot(c_vec_rgb2v, c2), dot(c_vec_rgb2u, c2));\n"
    "}\n";

// Full-range BT.601 luma weights; alpha is weighted 0.
const GLfloat s_fVecRGBtoY[4] = {0.299f, 0.587f, 0.114f, 0.0f};

}  // namespace

GLProgRGBtoY::GLProgRGBtoY() {
    memset(m_fShift, 0, sizeof(m_fShift));
}

GLProgRGBtoY::~GLProgRGBtoY() {}

void GLProgRGBtoY::SetShift(const GLfloat shift[8]) {
    memcpy(m_fShift, shift, sizeof(m_fShift));
}

int GLProgRGBtoY::Load() {
    GE_LOGI(s_log, "[%s] enter", "Load");
    if (!GLProgram::Load(s_szVertexRGBtoYUV, s_szFragmentRGBtoY)) {
        GE_LOGE(s_log, "[%s] can't load shader", "Load");
        return 0;
    }
    GE_LOGI(s_log, "[%s] use program", "Load");
    if (!GLProgram::Use()) {
        return 0;
    }
    GE_LOGI(s_log, "[%s] get locations", "Load");
    if (!GLPROG_ATTRIB_LOC(m_nVerCoordLoc, "a_vertexCoord") ||
        !GLPROG_ATTRIB_LOC(m_nTexCoordLoc, "a_textureCoord") ||
        !GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_INPUT_TEX], "s_texture0") ||
        !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_SHIFT], "u_shift") ||
        !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_VEC_RGBTOY], "u_vec_rgb2y")) {
        return 0;
    }
    GE_LOGI(s_log, "[%s] program id %d", "Load", (int)m_nProgram);
    GE_LOGI(s_log, "[%s] SAMPLER_INPUT_TEX %d", "Load", (int)m_nSamplerLoc[SAMPLER_INPUT_TEX]);
    GE_LOGI(s_log, "[%s] leave", "Load");
    return 1;
}

int GLProgRGBtoY::Use() {
    int ok = GLProgram::Use();
    if (!ok) {
        return 0;
    }
    glActiveTexture(GL_TEXTURE0);
    glUniform1i(m_nSamplerLoc[SAMPLER_INPUT_TEX], 0);
    if (m_pInputTex[0] != nullptr) {
        m_pInputTex[0]->Bind();
    }
    Uniform2fv(UNIFORM_SHIFT, 4, m_fShift);
    Uniform4f(UNIFORM_VEC_RGBTOY, s_fVecRGBtoY[0], s_fVecRGBtoY[1], s_fVecRGBtoY[2],
              s_fVecRGBtoY[3]);
    return ok;
}

GLProgRGBtoUV::GLProgRGBtoUV() {
    memset(m_fShift, 0, sizeof(m_fShift));
}

GLProgRGBtoUV::~GLProgRGBtoUV() {}

void GLProgRGBtoUV::SetShift(const GLfloat shift[4]) {
    memcpy(m_fShift, shift, sizeof(m_fShift));
}

int GLProgRGBtoUV::Load() {
    GE_LOGI(s_log, "[%s] enter", "Load");
    if (!GLProgram::Load(s_szVertexRGBtoYUV, s_szFragmentRGBtoUV)) {
        GE_LOGE(s_log, "[%s] can't load shader", "Load");
        return 0;
    }
    GE_LOGI(s_log, "[%s] use program", "Load");
    if (!GLProgram::Use()) {
        return 0;
    }
    GE_LOGI(s_log, "[%s] get locations", "Load");
    if (!GLPROG_ATTRIB_LOC(m_nVerCoordLoc, "a_vertexCoord") ||
        !GLPROG_ATTRIB_LOC(m_nTexCoordLoc, "a_textureCoord") ||
        !GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_INPUT_TEX], "s_texture0") ||
        !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_SHIFT], "u_shift")) {
        return 0;
    }
    GE_LOGI(s_log, "[%s] program id %d", "Load", (int)m_nProgram);
    GE_LOGI(s_log, "[%s] SAMPLER_INPUT_TEX %d", "Load", (int)m_nSamplerLoc[SAMPLER_INPUT_TEX]);
    GE_LOGI(s_log, "[%s] leave", "Load");
    return 1;
}

int GLProgRGBtoUV::Use() {
    int ok = GLProgram::Use();
    if (!ok) {
        return 0;
    }
    glActiveTexture(GL_TEXTURE0);
    glUniform1i(m_nSamplerLoc[SAMPLER_INPUT_TEX], 0);
    if (m_pInputTex[0] != nullptr) {
        m_pInputTex[0]->Bind();
    }
    Uniform2fv(UNIFORM_SHIFT, 2, m_fShift);
    return ok;
}
