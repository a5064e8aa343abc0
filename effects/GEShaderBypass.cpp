#include "effects/GEShaderBypass.h"

#include <new>

#include "gl/GELog.h"

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
    LogInitBanner("GEShaderBypass::Init");
    StoreInitArgs(src, a, x, y, w, h, capture);
    if (!GEShader::Init(src, a, x, y, w, h, capture, conv)) {
        return 0;
    }

    GE_LOGI(s_log, "[%s] Creating bypass shader", "Init");
    delete m_pProg;
    m_pProg = new (std::nothrow) GLProgBypass();
    if (!LoadProgram(m_pProg)) {
        return 0;
    }
    SetPartialTexCoord();
    return FinishInit();
}

int GEShaderBypass::Deinit() {
    return DeinitProgram(m_pProg);
}

int GEShaderBypass::ProcBlock(unsigned, unsigned, int, int) {
    return RenderBlock(m_pProg, m_fTileTexCoord);
}

int GEShaderBypass::ProcFrame(unsigned a, unsigned b, int c, int d) {
    return ProcPreview(m_pProg, a, b, c, d);
}

int GEShaderBypass::ProcFrame(unsigned char* src, unsigned char* dst, int w, int h) {
    (void)src;
    return WalkRuns(dst, w, h);
}

int GEShaderBypass::SetParam(unsigned, int, int, int, int) {
    return SetNoParam();
}
