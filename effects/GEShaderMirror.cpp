#include "effects/GEShaderMirror.h"

#include <GLES2/gl2.h>

#include <new>

#include "gl/GELog.h"
#include "gl/GLFbo.h"
#include "gl/GLQuad.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_log("GEShaderMirror");

const char kDashLine[] = "------------------------------------------------------";

#define MIRROR_PORTRAIT_BODY                      \
    "    vec2 tmp_coord;\n"                       \
    "    tmp_coord.x = v_texCoord.x;\n"           \
    "    if (v_texCoord.y > 0.5) {\n"             \
    "        tmp_coord.y = 1.0 - v_texCoord.y;\n" \
    "    } else {\n"                              \
    "        tmp_coord.y = v_texCoord.y;\n"       \
    "    }\n"                                     \
    "    gl_FragColor = u_mat_yuv2rgb * texture2D(s_texture0, tmp_coord);\n"

#define MIRROR_LANDSCAPE_BODY                     \
    "    vec2 tmp_coord;\n"                       \
    "    tmp_coord.y = v_texCoord.y;\n"           \
    "    if (v_texCoord.x > 0.5) {\n"             \
    "        tmp_coord.x = 1.0 - v_texCoord.x;\n" \
    "    } else {\n"                              \
    "        tmp_coord.x = v_texCoord.x;\n"       \
    "    }\n"                                     \
    "    gl_FragColor = u_mat_yuv2rgb * texture2D(s_texture0, tmp_coord);\n"

const char kPortraitFragment[] =
    GLPROG_EFFECT_FRAGMENT_HEAD "void main() {\n" MIRROR_PORTRAIT_BODY "}\n";

const char kLandscapeFragment[] =
    GLPROG_EFFECT_FRAGMENT_HEAD "void main() {\n" MIRROR_LANDSCAPE_BODY "}\n";

const char kLargePortraitFragment[] = GLPROG_EFFECT_FRAGMENT_HEAD GLPROG_EFFECT_LARGE_HEAD
    "void main() {\n" GLPROG_EFFECT_LARGE_KEEP MIRROR_PORTRAIT_BODY "}\n";

const char kLargeLandscapeFragment[] = GLPROG_EFFECT_FRAGMENT_HEAD GLPROG_EFFECT_LARGE_HEAD
    "void main() {\n" GLPROG_EFFECT_LARGE_KEEP MIRROR_LANDSCAPE_BODY "}\n";

}  // namespace

// ---------------------------------------------------------------------------
// GLProgMirror

GLProgMirror::GLProgMirror(bool bLandscaped) : GLProgEffect(s_log), m_bLandscaped(bLandscaped) {}

GLProgMirror::~GLProgMirror() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgMirror");
    GE_LOGI(s_log, "[%s] leave", "~GLProgMirror");
}

int GLProgMirror::LoadMirror(const char* fs, bool bLarge) {
    GE_LOGI(s_log, "[Tamso] load %s mirror shader", m_bLandscaped ? "Landscape" : "Protrait");
    if (!BuildProgram(fs, bLarge)) {
        return 0;
    }
    GE_LOGI(s_log, "[%s] program id %d", "Load", (int)m_nProgram);
    return 1;
}

int GLProgMirror::Load() {
    return LoadMirror(m_bLandscaped ? kLandscapeFragment : kPortraitFragment, false);
}

// ---------------------------------------------------------------------------
// GLProgMirrorLarge

GLProgMirrorLarge::GLProgMirrorLarge(bool bLandscaped) : GLProgMirror(bLandscaped) {}

GLProgMirrorLarge::~GLProgMirrorLarge() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgMirrorLarge");
    GE_LOGI(s_log, "[%s] leave", "~GLProgMirrorLarge");
}

int GLProgMirrorLarge::Load() {
    return LoadMirror(m_bLandscaped ? kLargeLandscapeFragment : kLargePortraitFragment, true);
}

// ---------------------------------------------------------------------------
// GEShaderMirror

GEShaderMirror::GEShaderMirror() : GEShader(s_log), m_bLandscaped(false), m_pProgram(nullptr) {}

GEShaderMirror::~GEShaderMirror() {
    Deinit();
}

int GEShaderMirror::Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
                         unsigned char capture, IYUVConverter* conv) {
    GE_LOGI(s_log, "[%s] enter", "Init");
    GE_LOGI(s_log, "[%s] %s", "Init", kDashLine);
    GE_LOGI(s_log, "[%s] GEShaderMirror::Init", "Init");
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
        GE_LOGI(s_log, "[%s] Creating Mirror large shader", "Init");
        m_pProgram = new (std::nothrow) GLProgMirrorLarge(m_bLandscaped);
    } else {
        GE_LOGI(s_log, "[%s] Creating Mirror shader", "Init");
        m_pProgram = new (std::nothrow) GLProgMirror(m_bLandscaped);
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

int GEShaderMirror::Deinit() {
    GE_LOGI(s_log, "[%s] enter", "Deinit");
    m_bInited = false;
    GEShader::Deinit();
    delete m_pProgram;
    m_pProgram = nullptr;
    GE_LOGI(s_log, "[%s] leave", "Deinit");
    return 1;
}

int GEShaderMirror::SetParam(unsigned, int, int, int, int) {
    if (!m_bInited) {
        GE_LOGE(s_log, "[%s] effect not initialized", "SetParam");
        return 0;
    }
    return 1;
}

int GEShaderMirror::SetCrop(int, int, int, int) {
    return 1;
}

int GEShaderMirror::ProcFrame(unsigned a, unsigned b, int c, int d) {
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

int GEShaderMirror::ProcFrame(unsigned char*, unsigned char* out, int w, int h) {
    return WalkRuns(out, w, h);
}

int GEShaderMirror::ProcBlock(unsigned, unsigned, int, int) {
    m_pDstFbo->Bind();
    glViewport((GLint)m_nRenderX, (GLint)m_nRenderY, (GLsizei)m_nRenderW, (GLsizei)m_nRenderH);
    m_pProgram->Use();
    m_pProgram->SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    // The tile coordinates are the ones drawn: each tile is reflected about
    // the middle of its own texture.
    m_pProgram->SetTextureCoord(g_nQuadTexCoordSize, m_fGlobalTexCoord);
    m_pProgram->SetTextureCoord(g_nQuadTexCoordSize, m_fTileTexCoord);
    m_pProgram->Draw();
    ConvertYUV(0, 0, (int)m_pSrcTexture->GetWidth(), (int)m_pSrcTexture->GetHeight());
    glFlush();
    glFinish();
    return 1;
}
