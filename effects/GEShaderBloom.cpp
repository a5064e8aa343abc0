#include "effects/GEShaderBloom.h"

#include <new>

#include "gl/GELog.h"

namespace {

GELogTag s_log("GEShaderBloom");

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
    LogInitBanner("GEShaderBloom::Init");
    StoreInitArgs(src, a, x, y, w, h, capture);
    if (src == nullptr || !GEShader::Init(src, a, x, y, w, h, capture, conv)) {
        return 0;
    }

    // A program left from an earlier Init goes first.
    delete m_pProgram;
    // Only the preview program is announced.
    if (m_bCapture) {
        m_pProgram = new (std::nothrow) GLProgBloomLarge();
    } else {
        GE_LOGI(s_log, "[%s] Creating Bloom shader", "Init");
        m_pProgram = new (std::nothrow) GLProgBloom();
    }
    if (!LoadProgram(m_pProgram)) {
        return 0;
    }
    SetPartialTexCoord();
    return FinishInit();
}

int GEShaderBloom::Deinit() {
    return DeinitProgram(m_pProgram);
}

int GEShaderBloom::SetParam(unsigned, int, int, int, int) {
    return SetNoParam();
}

int GEShaderBloom::ProcFrame(unsigned a, unsigned b, int c, int d) {
    return ProcPreview(m_pProgram, a, b, c, d);
}

int GEShaderBloom::ProcFrame(unsigned char*, unsigned char* out, int w, int h) {
    return WalkRuns(out, w, h);
}

int GEShaderBloom::ProcBlock(unsigned, unsigned, int, int) {
    return RenderBlock(m_pProgram, m_fTileTexCoord);
}
