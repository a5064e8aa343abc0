#include "effects/GEShaderBypass.h"

#include <GLES2/gl2.h>
#include <new>

#include "gl/GELog.h"
#include "gl/GLFbo.h"
#include "gl/GLQuad.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_log("GEShaderBypass");

// The texel is (Y, V, U, 1); the matrix's last column carries the chroma
// offset.
const char s_szFragmentBypass[] = GLPROG_EFFECT_FRAGMENT_HEAD
    "void main() {\n"
    "    gl_FragColor = u_mat_yuv2rgb * texture2D(s_texture0, v_texCoord);\n"
    "}\n";

}  // namespace

GLProgBypass::GLProgBypass() : GLProgEffect(s_log) {}

GLProgBypass::~GLProgBypass() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgBypass");
    GE_LOGI(s_log, "[%s] leave", "~GLProgBypass");
}

int GLProgBypass::Load() {
    return LoadProgram(s_szFragmentBypass, false);
}

GEShaderBypass::GEShaderBypass() : GEShader(s_log), m_pProg(nullptr) {}

GEShaderBypass::~GEShaderBypass() {
    Deinit();
}

int GEShaderBypass::Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
                         unsigned char capture, IYUVConverter* conv) {
    GE_LOGI(s_log, "[%s] enter", "Init");
    GE_LOGI(s_log, "[%s] ------------------------------------------------------", "Init");
    GE_LOGI(s_log, "[%s] GEShaderBypass::Init", "Init");
    GE_LOGI(s_log, "[%s] ------------------------------------------------------", "Init");

    m_pSrcTexture = src;
    m_nArg = a;
    m_nRenderX = x;
    m_nRenderY = y;
    m_nRenderW = w;
    m_nRenderH = h;
    m_bCapture = capture != 0;
    m_nRefWidth = 960;
    m_nRefHeight = 544;
    if (!GEShader::Init(src, a, x, y, w, h, capture, conv)) {
        return 0;
    }

    GE_LOGI(s_log, "[%s] Creating bypass shader", "Init");
    delete m_pProg;
    m_pProg = new (std::nothrow) GLProgBypass();
    if (m_pProg == nullptr || !m_pProg->Load()) {
        GE_LOGE(s_log, "[%s] can't load program", "Init");
        return 0;
    }
    m_pProg->SetTextures(0, src);

    // The quad samples only the picture's part of the 32-aligned texture.
    GE_LOGI(s_log, "[%s] partial texcoord", "Init");
    for (int i = 0; i < g_nQuadVertices; ++i) {
        m_fTileTexCoord[2 * i] = (float)w * g_fQuadTexCoord[2 * i] / (float)src->GetAllocWidth();
        m_fTileTexCoord[2 * i + 1] = g_fQuadTexCoord[2 * i + 1];
        GE_LOGI(s_log, "[%s] %f:%f", "Init", (double)m_fTileTexCoord[2 * i],
                (double)m_fTileTexCoord[2 * i + 1]);
    }
    m_bInited = true;
    GE_LOGI(s_log, "[%s] leave", "Init");
    return 1;
}

int GEShaderBypass::Deinit() {
    GE_LOGI(s_log, "[%s] enter", "Deinit");
    m_bInited = false;
    GEShader::Deinit();
    delete m_pProg;
    m_pProg = nullptr;
    GE_LOGI(s_log, "[%s] leave", "Deinit");
    return 1;
}

int GEShaderBypass::ProcBlock(unsigned, unsigned, int, int) {
    m_pDstFbo->Bind();
    glViewport((GLint)m_nRenderX, (GLint)m_nRenderY, (GLsizei)m_nRenderW, (GLsizei)m_nRenderH);
    m_pProg->Use();
    m_pProg->SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    m_pProg->SetTextureCoord(g_nQuadTexCoordSize, m_fTileTexCoord);
    m_pProg->Draw();
    ConvertYUV(0, 0, (int)m_pSrcTexture->GetWidth(), (int)m_pSrcTexture->GetHeight());
    glFlush();
    glFinish();
    return 1;
}

int GEShaderBypass::ProcFrame(unsigned a, unsigned b, int c, int d) {
    if (!m_bInited || m_pProg == nullptr) {
        GE_LOGE(s_log, "[%s] effect not initialized", "ProcFrame");
        return 0;
    }
    if (m_bCapture) {
        GE_LOGE(s_log, "[%s] Preview mode only", "ProcFrame");
        return 0;
    }
    ProcBlock(a, b, c, d);
    return 1;
}

int GEShaderBypass::ProcFrame(unsigned char* src, unsigned char* dst, int w, int h) {
    (void)src;
    return WalkRuns(dst, w, h);
}

int GEShaderBypass::SetParam(unsigned group, int, int, int, int) {
    (void)group;
    if (!m_bInited) {
        GE_LOGE(s_log, "[%s] effect not initialized", "SetParam");
        return 0;
    }
    return 1;
}
