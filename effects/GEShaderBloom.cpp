#include "effects/GEShaderBloom.h"

#include <GLES2/gl2.h>

#include <new>

#include "gl/GELog.h"
#include "gl/GLFbo.h"
#include "gl/GLQuad.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_log("GEShaderBloom");

const char kDashLine[] = "------------------------------------------------------";

// Each channel times 3.5 x its pixel's luminance; the framebuffer saturates
// what passes 1.
#define BLOOM_BODY                                                         \
    "    vec4 rgba = u_mat_yuv2rgb * texture2D(s_texture0, v_texCoord);\n" \
    "    float a = dot(rgba.rgb, vec3(0.3, 0.59, 0.11));\n"                \
    "    vec4 offset = vec4(0.0);\n"                                       \
    "    vec4 scale = vec4(3.5);\n"                                        \
    "    vec4 intensity = (vec4(a) + offset) * scale;\n"                   \
    "    gl_FragColor = rgba * intensity;\n"

const char kFragment[] = GLPROG_EFFECT_FRAGMENT_HEAD "void main() {\n" BLOOM_BODY "}\n";

const char kLargeFragment[] = GLPROG_EFFECT_FRAGMENT_HEAD GLPROG_EFFECT_LARGE_HEAD
    "void main() {\n" GLPROG_EFFECT_LARGE_KEEP BLOOM_BODY "}\n";

}  // namespace

// ---------------------------------------------------------------------------
// GLProgBloom

GLProgBloom::GLProgBloom() : GLProgEffect(s_log) {}

GLProgBloom::~GLProgBloom() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgBloom");
    GE_LOGI(s_log, "[%s] leave", "~GLProgBloom");
}

int GLProgBloom::Load() {
    return LoadProgram(kFragment, false);
}

// ---------------------------------------------------------------------------
// GLProgBloomLarge

GLProgBloomLarge::GLProgBloomLarge() {}

GLProgBloomLarge::~GLProgBloomLarge() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgBloomLarge");
    GE_LOGI(s_log, "[%s] leave", "~GLProgBloomLarge");
}

int GLProgBloomLarge::Load() {
    return LoadProgram(kLargeFragment, true);
}

// ---------------------------------------------------------------------------
// GEShaderBloom

GEShaderBloom::GEShaderBloom() : GEShader(s_log), m_pProgram(nullptr) {}

GEShaderBloom::~GEShaderBloom() {
    Deinit();
}

int GEShaderBloom::Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
                        unsigned char capture, IYUVConverter* conv) {
    GE_LOGI(s_log, "[%s] enter", "Init");
    GE_LOGI(s_log, "[%s] %s", "Init", kDashLine);
    GE_LOGI(s_log, "[%s] GEShaderBloom::Init", "Init");
    GE_LOGI(s_log, "[%s] %s", "Init", kDashLine);

    m_nArg = a;
    m_nRenderX = x;
    m_nRenderY = y;
    m_nRenderW = w;
    m_nRenderH = h;
    m_pSrcTexture = src;
    m_bCapture = capture != 0;
    m_nRefWidth = 960;
    m_nRefHeight = 544;
    if (src == nullptr || !GEShader::Init(src, a, x, y, w, h, capture, conv)) {
        return 0;
    }

    if (m_bCapture) {
        m_pProgram = new (std::nothrow) GLProgBloomLarge();
    } else {
        GE_LOGI(s_log, "[%s] Creating Bloom shader", "Init");
        m_pProgram = new (std::nothrow) GLProgBloom();
    }
    if (m_pProgram == nullptr) {
        GE_LOGE(s_log, "[%s] can't new program", "Init");
        return 0;
    }
    if (!m_pProgram->Load()) {
        GE_LOGE(s_log, "[%s] can't load program", "Init");
        return 0;
    }
    m_pProgram->SetTextures(0, src);

    // The texture is allocated 32-aligned: the quad samples only the
    // picture's part of each row.
    GE_LOGI(s_log, "[%s] partial texcoord", "Init");
    for (int i = 0; i < g_nQuadVertices; ++i) {
        m_fTileTexCoord[2 * i] = (float)w * g_fQuadTexCoord[2 * i] / (float)src->GetAllocWidth();
        m_fTileTexCoord[2 * i + 1] = g_fQuadTexCoord[2 * i + 1];
        m_fGlobalTexCoord[2 * i] = g_fQuadTexCoord[2 * i];
        m_fGlobalTexCoord[2 * i + 1] = g_fQuadTexCoord[2 * i + 1];
        GE_LOGI(s_log, "[%s] %f:%f", "Init", (double)m_fTileTexCoord[2 * i],
                (double)m_fTileTexCoord[2 * i + 1]);
    }

    m_bInited = true;
    GE_LOGI(s_log, "[%s] leave", "Init");
    return 1;
}

int GEShaderBloom::Deinit() {
    GE_LOGI(s_log, "[%s] enter", "Deinit");
    m_bInited = false;
    GEShader::Deinit();
    delete m_pProgram;
    m_pProgram = nullptr;
    GE_LOGI(s_log, "[%s] leave", "Deinit");
    return 1;
}

int GEShaderBloom::SetParam(unsigned, int, int, int, int) {
    if (!m_bInited) {
        GE_LOGE(s_log, "[%s] effect not initialized", "SetParam");
        return 0;
    }
    return 1;
}

int GEShaderBloom::SetCrop(int, int, int, int) {
    return 1;
}

int GEShaderBloom::ProcFrame(unsigned a, unsigned b, int c, int d) {
    if (!m_bInited || m_pProgram == nullptr) {
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

int GEShaderBloom::ProcFrame(unsigned char*, unsigned char* out, int w, int h) {
    return WalkRuns(out, w, h);
}

int GEShaderBloom::ProcBlock(unsigned, unsigned, int, int) {
    m_pDstFbo->Bind();
    glViewport((GLint)m_nRenderX, (GLint)m_nRenderY, (GLsizei)m_nRenderW, (GLsizei)m_nRenderH);
    m_pProgram->Use();
    m_pProgram->SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    m_pProgram->SetTextureCoord(g_nQuadTexCoordSize, m_fGlobalTexCoord);
    m_pProgram->SetTextureCoord(g_nQuadTexCoordSize, m_fTileTexCoord);
    m_pProgram->Draw();
    ConvertYUV(0, 0, (int)m_pSrcTexture->GetWidth(), (int)m_pSrcTexture->GetHeight());
    glFlush();
    glFinish();
    return 1;
}
