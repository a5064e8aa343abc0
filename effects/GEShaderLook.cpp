#include "effects/GEShaderLook.h"

#include "effects/GELookUp.h"
#include "gl/GLFbo.h"
#include "gl/GLQuad.h"
#include "gl/GLTexture.h"

namespace {

// How close to 16:9 or 5:3 a picture's ratio must be for the wide vignette.
const float kVignetteTolerance = 0.0001f;

}  // namespace

GEShaderLook::GEShaderLook(GELogTag& log)
    : GEShader(log), m_pProgram(nullptr), m_apLookUp(), m_fStrength(0.0f) {}

GEShaderLook::~GEShaderLook() {
    // The derived destructor ran DeinitLook; whatever is left goes quietly.
    delete m_pProgram;
    for (GLTexture*& tex : m_apLookUp) {
        delete tex;
        tex = nullptr;
    }
}

void GEShaderLook::LogLookBanner(const char* szName, unsigned x, unsigned y, unsigned w, unsigned h,
                                 unsigned char capture) {
    LogInitBanner(szName);
    GE_LOGI(m_log, "[%s] x=%d y=%d w=%d h=%d  cap=%d", "Init", (int)x, (int)y, (int)w, (int)h,
            (int)capture);
}

int GEShaderLook::TakeProgram(GLProgLook* prog, const char* szNewFail, const char* szLoadFail) {
    // A program left from an earlier Init goes first.
    delete m_pProgram;
    m_pProgram = prog;
    return LoadProgram(prog, szNewFail, szLoadFail);
}

int GEShaderLook::LoadLookUp(unsigned index, const char* name, unsigned format, unsigned type,
                             bool bOverride, const char* szNewFail, const char* szLoadFail) {
    delete m_apLookUp[index];
    m_apLookUp[index] = GELoadLookUp(m_log, name, format, type, bOverride, szNewFail, szLoadFail);
    return m_apLookUp[index] != nullptr;
}

int GEShaderLook::LoadVignetteAndLeak(unsigned maskIndex, unsigned leakIndex, unsigned w,
                                      unsigned h) {
    GE_LOGI(m_log, "[%s] Creating vignette texture", "Init");
    const float ratio = (float)w / (float)h;
    GE_LOGI(m_log, "[%s] ratio %f", "Init", (double)ratio);
    if (!LoadLookUp(maskIndex, GEVignetteMaskName(ratio, kVignetteTolerance), GL_LUMINANCE,
                    GL_UNSIGNED_BYTE, true, "[%s] can't new vignette tex",
                    "[%s] can't load warm tex")) {
        return 0;
    }
    delete m_apLookUp[leakIndex];
    m_apLookUp[leakIndex] = GENewLeakTexture(m_log);
    return m_apLookUp[leakIndex] != nullptr;
}

float GEShaderLook::ScreenRatio(const GLTexture* src) {
    const float ratio = (float)src->GetWidth() / (float)src->GetHeight();
    GE_LOGI(m_log, "[%s] screen ratio = %u/%u = %f", "Init", src->GetWidth(), src->GetHeight(),
            (double)ratio);
    return ratio;
}

void GEShaderLook::BindLookUp(unsigned slot, unsigned index) {
    if (m_pProgram != nullptr && index < kMaxLookUps) {
        m_pProgram->SetTextures(slot, m_apLookUp[index]);
    }
}

int GEShaderLook::ProcFrame(unsigned a, unsigned b, int c, int d) {
    return ProcPreview(m_pProgram, a, b, c, d);
}

int GEShaderLook::RenderLook(const GLfloat* texCoord, bool bFlush) {
    m_pDstFbo->Bind();
    glViewport((GLint)m_nRenderX, (GLint)m_nRenderY, (GLsizei)m_nRenderW, (GLsizei)m_nRenderH);
    m_pProgram->Use();
    SetUniforms();
    m_pProgram->SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    m_pProgram->SetTextureCoord(g_nQuadTexCoordSize, texCoord);
    if (m_pProgram->IsLarge()) {
        m_pProgram->VertexAttribPointer(GLProgLook::ATTRIB_GLOBAL_TEX_COORD, g_nQuadTexCoordSize,
                                        m_fGlobalTexCoord);
    }
    m_pProgram->Draw();
    ConvertYUV(0, 0, (int)m_pSrcTexture->GetWidth(), (int)m_pSrcTexture->GetHeight());
    if (bFlush) {
        glFlush();
    }
    glFinish();
    return 1;
}

bool GEShaderLook::ReadyForParam() {
    if (!m_bInited) {
        GE_LOGE(m_log, "[%s] effect not initialized", "SetParam");
        return false;
    }
    return true;
}

int GEShaderLook::SetStrength(unsigned group, int value) {
    if (!ReadyForParam()) {
        return 0;
    }
    if (group == 0) {
        m_fStrength = GEStrengthOf(value);
    }
    return 1;
}

int GEShaderLook::DeinitLook() {
    GE_LOGI(m_log, "[%s] enter", "Deinit");
    m_bInited = false;
    GEShader::Deinit();
    delete m_pProgram;
    m_pProgram = nullptr;
    for (GLTexture*& tex : m_apLookUp) {
        delete tex;
        tex = nullptr;
    }
    GE_LOGI(m_log, "[%s] leave", "Deinit");
    return 1;
}
