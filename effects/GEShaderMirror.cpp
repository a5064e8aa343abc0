#include "effects/GEShaderMirror.h"

#include <new>

#include "gl/GELog.h"

namespace {

GELogTag s_log("GEShaderMirror");

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
    LogInitBanner("GEShaderMirror::Init");
    StoreInitArgs(src, a, x, y, w, h, capture);
    if (src == nullptr || !GEShader::Init(src, a, x, y, w, h, capture, conv)) {
        return 0;
    }

    // A program left from an earlier Init goes first.
    delete m_pProgram;
    if (m_bCapture) {
        GE_LOGI(s_log, "[%s] Creating Mirror large shader", "Init");
        m_pProgram = new (std::nothrow) GLProgMirrorLarge(m_bLandscaped);
    } else {
        GE_LOGI(s_log, "[%s] Creating Mirror shader", "Init");
        m_pProgram = new (std::nothrow) GLProgMirror(m_bLandscaped);
    }
    if (!LoadProgram(m_pProgram)) {
        return 0;
    }
    SetPartialTexCoord();
    return FinishInit();
}

int GEShaderMirror::Deinit() {
    return DeinitProgram(m_pProgram);
}

int GEShaderMirror::SetParam(unsigned, int, int, int, int) {
    return SetNoParam();
}

int GEShaderMirror::ProcFrame(unsigned a, unsigned b, int c, int d) {
    return ProcPreview(m_pProgram, a, b, c, d);
}

int GEShaderMirror::ProcFrame(unsigned char*, unsigned char* out, int w, int h) {
    return WalkRuns(out, w, h);
}

// The tile coordinates are drawn in capture as well: each tile is reflected
// about the middle of its own texture.
int GEShaderMirror::ProcBlock(unsigned, unsigned, int, int) {
    return RenderBlock(m_pProgram, m_fTileTexCoord);
}
