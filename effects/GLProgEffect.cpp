#include "effects/GLProgEffect.h"

#include <GLES2/gl2.h>

namespace {

const char kVertex[] = GLPROG_EFFECT_VERTEX;

const char kLargeVertex[] = GLPROG_EFFECT_VERTEX_HEAD
    "attribute vec2 a_globalTexCoord;\n"
    "varying vec2 v_globalTexCoord;\n"
    "void main() {\n"
    "    gl_Position = a_vertexCoord;\n"
    "    v_texCoord = a_textureCoord;\n"
    "    v_globalTexCoord = a_globalTexCoord;\n"
    "}\n";

}  // namespace

GLProgEffect::GLProgEffect(GELogTag& log) : m_log(log), m_nInputs(1) {}

int GLProgEffect::BuildProgram(const char* fs, bool bLarge, unsigned nInputs) {
    m_nInputs = nInputs > 1 ? 2 : 1;
    if (!LoadQuad(m_log, bLarge ? kLargeVertex : kVertex, fs) ||
        (m_nInputs > 1 && !GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_INPUT_TEX_UV], "s_texture1")) ||
        !GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], "u_mat_yuv2rgb")) {
        return 0;
    }
    if (bLarge && !FetchAttribLoc(m_nAttribLoc[ATTRIB_GLOBAL_TEX_COORD], "a_globalTexCoord",
                                  "ATTRIB_GLOBAL_TEX_COORD")) {
        return 0;
    }
    glUniformMatrix4fv(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], 1, GL_FALSE, GetMatYUV2RGB());
    return 1;
}

int GLProgEffect::LoadProgram(const char* fs, bool bLarge) {
    GE_LOGI(m_log, "[%s] enter", "Load");
    return BuildProgram(fs, bLarge) && LoadDone(m_log);
}

int GLProgEffect::Use() {
    return UseInputTex(m_nInputs);
}
