#include "effects/GLProgLook.h"

#include <GLES2/gl2.h>
#include <string.h>

GLProgLook::GLProgLook(GELogTag& log, const char* vs, const char* fs, unsigned nTextures,
                       bool bLarge)
    : m_log(log), m_szVertex(vs), m_szFragment(fs), m_nTextures(nTextures), m_bLarge(bLarge) {}

int GLProgLook::Use() {
    return UseInputTex(m_nTextures);
}

int GLProgLook::OpenLook() {
    GE_LOGI(m_log, "[%s] enter", "Load");
    return OpenLoad(m_log, m_szVertex, m_szFragment);
}

int GLProgLook::FetchGlobalTexCoord() {
    return !m_bLarge || FetchAttribLoc(m_nAttribLoc[ATTRIB_GLOBAL_TEX_COORD], "a_globalTexCoord",
                                       "ATTRIB_GLOBAL_TEX_COORD");
}

int GLProgLook::CloseLook(GLint matLoc) {
    if (matLoc >= 0) {
        glUniformMatrix4fv(matLoc, 1, GL_FALSE, GetMatYUV2RGB());
    }
    GE_LOGI(m_log, "[%s] program id %d", "Load", (int)m_nProgram);
    GE_LOGI(m_log, "[%s] SAMPLER_INPUT_TEX %d", "Load", (int)m_nSamplerLoc[0]);
    return 1;
}

int GLProgLook::LeaveLook() {
    GE_LOGI(m_log, "[%s] leave", "Load");
    return 1;
}

void GLProgLook::LogLoc(const char* szMember, GLint loc) {
    const char* open = strchr(szMember, '[');
    const char* close = open != nullptr ? strchr(open, ']') : nullptr;
    if (open != nullptr && close != nullptr) {
        GE_LOGI(m_log, "[%s] %.*s %d", "Load", (int)(close - open - 1), open + 1, (int)loc);
    }
}
