#include "engine/GLProgRGBtoYUV.h"

#include <string.h>

#include "gl/GELog.h"

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
    if (!LoadQuad(s_log, s_szVertexRGBtoYUV, s_szFragmentRGBtoY) ||
        !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_SHIFT], "u_shift") ||
        !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_VEC_RGBTOY], "u_vec_rgb2y")) {
        return 0;
    }
    return LoadDone(s_log);
}

int GLProgRGBtoY::Use() {
    if (!UseInputTex()) {
        return 0;
    }
    Uniform2fv(UNIFORM_SHIFT, 4, m_fShift);
    Uniform4f(UNIFORM_VEC_RGBTOY, s_fVecRGBtoY[0], s_fVecRGBtoY[1], s_fVecRGBtoY[2],
              s_fVecRGBtoY[3]);
    return 1;
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
    if (!LoadQuad(s_log, s_szVertexRGBtoYUV, s_szFragmentRGBtoUV) ||
        !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_SHIFT], "u_shift")) {
        return 0;
    }
    return LoadDone(s_log);
}

int GLProgRGBtoUV::Use() {
    if (!UseInputTex()) {
        return 0;
    }
    Uniform2fv(UNIFORM_SHIFT, 2, m_fShift);
    return 1;
}
