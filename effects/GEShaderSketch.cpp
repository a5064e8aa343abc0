#include "effects/GEShaderSketch.h"

#include <new>

namespace {

GELogTag s_log("GEShaderSketch");
GELogTag s_colorLog("GEShaderColorSketch");

const char* const kBlurLabels[3] = {"SAMPLER_INPUT_TEX", "UNIFORM_GAUSSIAN_KERNEL",
                                    "UNIFORM_PIXEL_SHIFT"};

// A flat area (clear = blur) gives merge.x = 0.5 and edge = 1: no stroke.
#define SKETCH_HEAD                                                   \
    GLPROG_SIZEUP_HEAD                                                \
    "void main() {\n"                                                 \
    "    vec4 blur = texture2D(s_texBlur, v_blurTexCoord);\n"         \
    "    vec4 clear = texture2D(s_texClear, v_textureCoord);\n"       \
    "    vec4 merge = (1.0 - blur + clear) / 2.0;\n"                  \
    "    float gray = floor(blur.x * 8.0 + 0.5) / 8.0 * 0.8 + 0.2;\n" \
    "    float edge = (merge.x - 0.484375) * 64.0;\n"

const char kSketchFragment[] = SKETCH_HEAD
    "    if (edge < 0.3) {\n"
    "        gray = 0.0;\n"
    "    }\n"
    "    gl_FragColor = vec4(gray, gray, gray, merge.w);\n"
    "}\n";

const char kColorSketchFragment[] = SKETCH_HEAD
    "    blur.x = gray;\n"
    "    if (edge < 0.3) {\n"
    "        gl_FragColor = vec4(0.0, 0.0, 0.0, 1.0);\n"
    "    } else {\n"
    "        gl_FragColor = u_mat_yuv2rgb * blur;\n"
    "    }\n"
    "}\n";

const float kStep = 2.0f;

}  // namespace

// ---------------------------------------------------------------------------
// Programs

GLProgSketchBlur::GLProgSketchBlur() : GLProgBlur(s_log, kBlurLabels) {}
GLProgSketchBlur::~GLProgSketchBlur() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgSketchBlur");
    GE_LOGI(s_log, "[%s] leave", "~GLProgSketchBlur");
}

GLProgColorSketchBlur::GLProgColorSketchBlur() : GLProgBlur(s_colorLog, kBlurLabels) {}
GLProgColorSketchBlur::~GLProgColorSketchBlur() {
    GE_LOGI(s_colorLog, "[%s] enter", "~GLProgColorSketchBlur");
    GE_LOGI(s_colorLog, "[%s] leave", "~GLProgColorSketchBlur");
}

GLProgSketchSizeUpBase::GLProgSketchSizeUpBase(GELogTag& log, const char* fs, bool bColour)
    : GLProgSizeUpBase(log, fs, false), m_bColour(bColour) {}

int GLProgSketchSizeUpBase::Load() {
    if (!OpenSizeUp()) {
        return 0;
    }
    if (m_bColour) {
        if (!GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], "u_mat_yuv2rgb")) {
            return 0;
        }
        glUniformMatrix4fv(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], 1, GL_FALSE, GetMatYUV2RGB());
    }
    GE_LOGI(m_log, "[%s] program id %d", "Load", (int)m_nProgram);
    GE_LOGI(m_log, "[%s] leave", "Load");
    return 1;
}

GLProgSketchSizeUp::GLProgSketchSizeUp() : GLProgSketchSizeUpBase(s_log, kSketchFragment, false) {}
GLProgSketchSizeUp::~GLProgSketchSizeUp() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgSketchSizeUp");
    GE_LOGI(s_log, "[%s] leave", "~GLProgSketchSizeUp");
}

GLProgColorSketchSizeUp::GLProgColorSketchSizeUp()
    : GLProgSketchSizeUpBase(s_colorLog, kColorSketchFragment, true) {}
GLProgColorSketchSizeUp::~GLProgColorSketchSizeUp() {
    GE_LOGI(s_colorLog, "[%s] enter", "~GLProgColorSketchSizeUp");
    GE_LOGI(s_colorLog, "[%s] leave", "~GLProgColorSketchSizeUp");
}

// ---------------------------------------------------------------------------
// GEShaderSketchBase

GEShaderSketchBase::GEShaderSketchBase(GELogTag& log) : GEShaderBlur(log, kStep, true) {}

int GEShaderSketchBase::Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w,
                             unsigned h, unsigned char capture, IYUVConverter* conv) {
    if (!InitBlur(src, a, x, y, w, h, capture, conv, 320 * w / 960, 180 * h / 544, NewBlur(),
                  NewSizeUp())) {
        return 0;
    }
    return FinishInit();
}

int GEShaderSketchBase::Deinit() {
    return DeinitBlur();
}

int GEShaderSketchBase::ProcBlock(unsigned, unsigned, int, int) {
    BlurPasses(m_fCropQuad);
    StartSizeUp();
    m_pSizeUpProg->Draw();
    return FinishBlock();
}

int GEShaderSketchBase::ProcFrame(unsigned char*, unsigned char* out, int w, int h) {
    return WalkBlurMargins(out, w, h, kStep);
}

int GEShaderSketchBase::SetParam(unsigned, int, int, int, int) {
    return 0;
}

GEShaderSketch::GEShaderSketch() : GEShaderSketchBase(s_log) {}
GEShaderSketch::~GEShaderSketch() {
    Deinit();
}
GLProgBlur* GEShaderSketch::NewBlur() const {
    return new (std::nothrow) GLProgSketchBlur();
}
GLProgSizeUpBase* GEShaderSketch::NewSizeUp() const {
    return new (std::nothrow) GLProgSketchSizeUp();
}

GEShaderColorSketch::GEShaderColorSketch() : GEShaderSketchBase(s_colorLog) {}
GEShaderColorSketch::~GEShaderColorSketch() {
    Deinit();
}
GLProgBlur* GEShaderColorSketch::NewBlur() const {
    return new (std::nothrow) GLProgColorSketchBlur();
}
GLProgSizeUpBase* GEShaderColorSketch::NewSizeUp() const {
    return new (std::nothrow) GLProgColorSketchSizeUp();
}
