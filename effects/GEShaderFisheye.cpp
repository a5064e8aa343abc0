#include "effects/GEShaderFisheye.h"

#include <new>

#include "gl/GECommon.h"
#include "gl/GLQuad.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_log("GEShaderFisheye");

// The largest tile of a capture.
const int kTileW = 768;
const int kTileH = 480;

#define FISHEYE_HEAD            \
    "uniform vec2 u_scale;\n"   \
    "uniform vec2 u_shift;\n"   \
    "uniform vec2 u_center;\n"  \
    "uniform vec2 u_distort;\n" \
    "uniform vec4 u_crop;\n"

// The warp, up to the factor r by which the pixel's offset from the centre
// is stretched. p is the pixel's offset from the centre in fractions of the
// picture; (a, b) the distance from the centre to the picture's edges on the
// pixel's side; nr where the ray from the centre through the pixel meets
// the ellipse of semi-axes a and b. Levels up to 1 bend by a power of the
// radius (the identity at 1); above 1 by a polynomial that flattens towards
// the rim.
#define FISHEYE_WARP                                                                     \
    "    vec2 p = v_texCoord * u_scale - u_shift;\n"                                     \
    "    float sx = p.x * p.x;\n"                                                        \
    "    float sy = p.y * p.y;\n"                                                        \
    "    float rr = sqrt(sx + sy);\n"                                                    \
    "    float a = -sign(p.x) * u_center.x + ceil(p.x);\n"                               \
    "    float b = -sign(p.y) * u_center.y + ceil(p.y);\n"                               \
    "    float ny2 = (a * a * b * b) / (sx * b * b / sy + a * a);\n"                     \
    "    float nx2 = sx * ny2 / sy;\n"                                                   \
    "    float nr = sqrt(nx2 + ny2);\n"                                                  \
    "    float minr = nr * exp(log(rr / nr) * u_distort.x);\n"                           \
    "    float f = u_distort.x - 1.0;\n"                                                 \
    "    float pf = 2.0 / (1.0 + pow(max(0.0, rr - 0.7), 1.6) * 15.0);\n"                \
    "    float r = rr * rr * pf * f;\n"                                                  \
    "    float maxr;\n"                                                                  \
    "    if (f < 0.0) {\n"                                                               \
    "        maxr = rr * (1.0 + 1.5 * r + r * rr * rr) * (1.0 + pow(-f, 0.5) * 0.72);\n" \
    "    } else {\n"                                                                     \
    "        maxr = rr * (1.0 + 1.5 * r + r * rr * rr) * (1.0 - pow(f, 0.5) * 0.72);\n"  \
    "    }\n"                                                                            \
    "    r = (ceil(f) * maxr + (1.0 - ceil(f)) * minr) / rr;\n"                          \
    "    vec2 q = p * r + u_center;\n"                                                   \
    "    q.x = q.x * u_crop.z + u_crop.x;\n"                                             \
    "    q.y = q.y * u_crop.w + u_crop.y;\n"

const char kFragment[] = GLPROG_EFFECT_FRAGMENT_HEAD FISHEYE_HEAD
    "uniform float u_widthcomp;\n"
    "void main() {\n" FISHEYE_WARP
    "    q.x = q.x * u_widthcomp;\n"
    "    gl_FragColor = u_mat_yuv2rgb * texture2D(s_texture0, q);\n"
    "}\n";

const char kLargeFragment[] = GLPROG_EFFECT_FRAGMENT_HEAD GLPROG_EFFECT_PLANES_HEAD FISHEYE_HEAD
    "void main() {\n" FISHEYE_WARP "    gl_FragColor = " GLPROG_EFFECT_PLANES_RGB("q") ";\n"
    "}\n";

int MinInt(int a, int b) {
    return a < b ? a : b;
}

}  // namespace

// ---------------------------------------------------------------------------
// GLProgFisheye, GLProgFisheyeLarge

GLProgFisheye::GLProgFisheye() : GLProgFisheye(kFragment, false) {}

GLProgFisheye::GLProgFisheye(const char* fs, bool bPlanes)
    : GLProgEffect(s_log),
      m_szFragment(fs),
      m_bPlanes(bPlanes),
      m_afScale{1.0f, 1.0f},
      m_afShift{0.5f, 0.5f},
      m_afCenter{0.5f, 0.5f},
      m_afDistort{0.6f, 0.0f},
      m_fWidthComp(1.0f),
      m_afCrop{0.0f, 0.0f, 1.0f, 1.0f} {}

GLProgFisheye::~GLProgFisheye() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgFisheye");
    GE_LOGI(s_log, "[%s] leave", "~GLProgFisheye");
}

int GLProgFisheye::Load() {
    GE_LOGI(s_log, "[%s] enter", "Load");
    if (!BuildProgram(m_szFragment, false, m_bPlanes ? 2 : 1) ||
        !FetchUniformLoc(m_nUniformLoc[UNIFORM_POS_SCALE], "u_scale",
                         "m_pnSamplerLoc[SAMPLER_POS_SCALE]") ||
        !FetchUniformLoc(m_nUniformLoc[UNIFORM_POS_SHIFT], "u_shift",
                         "m_pnSamplerLoc[SAMPLER_POS_SHIFT]") ||
        !FetchUniformLoc(m_nUniformLoc[UNIFORM_POS_CENTER], "u_center",
                         "m_pnSamplerLoc[SAMPLER_POS_CENTER]") ||
        !FetchUniformLoc(m_nUniformLoc[UNIFORM_DISTORT_LEVEL], "u_distort",
                         "m_pnSamplerLoc[SAMPLER_DISTORT_LEVEL]") ||
        !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_CROP], "u_crop")) {
        return 0;
    }
    if (!m_bPlanes && !GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_WIDTH_COMPENSATE], "u_widthcomp")) {
        return 0;
    }
    return LoadDone(s_log);
}

int GLProgFisheye::Use() {
    if (!GLProgEffect::Use()) {
        return 0;
    }
    Uniform2f(UNIFORM_POS_SCALE, m_afScale[0], m_afScale[1]);
    Uniform2f(UNIFORM_POS_SHIFT, m_afShift[0], m_afShift[1]);
    Uniform2f(UNIFORM_DISTORT_LEVEL, m_afDistort[0], m_afDistort[1]);
    Uniform2f(UNIFORM_POS_CENTER, m_afCenter[0], m_afCenter[1]);
    Uniform4f(UNIFORM_CROP, m_afCrop[0], m_afCrop[1], m_afCrop[2], m_afCrop[3]);
    if (!m_bPlanes) {
        Uniform1f(UNIFORM_WIDTH_COMPENSATE, m_fWidthComp);
    }
    return 1;
}

void GLProgFisheye::SetScale(float x, float y) {
    m_afScale[0] = x;
    m_afScale[1] = y;
}

void GLProgFisheye::SetShift(float x, float y) {
    m_afShift[0] = x;
    m_afShift[1] = y;
}

void GLProgFisheye::SetCenter(float x, float y) {
    m_afCenter[0] = x;
    m_afCenter[1] = y;
}

void GLProgFisheye::SetDistort(float level, float second) {
    m_afDistort[0] = level;
    m_afDistort[1] = second;
}

void GLProgFisheye::SetWidthComp(float v) {
    m_fWidthComp = v;
}

void GLProgFisheye::SetCrop(float x, float y, float w, float h) {
    m_afCrop[0] = x;
    m_afCrop[1] = y;
    m_afCrop[2] = w;
    m_afCrop[3] = h;
}

GLProgFisheyeLarge::GLProgFisheyeLarge() : GLProgFisheye(kLargeFragment, true) {}

GLProgFisheyeLarge::~GLProgFisheyeLarge() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgFisheyeLarge");
    GE_LOGI(s_log, "[%s] leave", "~GLProgFisheyeLarge");
}

// ---------------------------------------------------------------------------
// GEShaderFisheye

GEShaderFisheye::GEShaderFisheye()
    : GEShader(s_log),
      m_pProgram(nullptr),
      m_pYTexture(nullptr),
      m_pUVTexture(nullptr),
      m_nCenterPtX(480),
      m_nCenterPtY(272),
      m_fCenterX(0.5f),
      m_fCenterY(0.5f),
      m_fDistort(0.6f),
      m_fDistort2(0.0f),
      m_fWidthComp(1.0f),
      m_nPicW(1),
      m_nPicH(1) {}

GEShaderFisheye::~GEShaderFisheye() {
    Deinit();
}

int GEShaderFisheye::Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w,
                          unsigned h, unsigned char capture, IYUVConverter* conv) {
    GE_LOGI(s_log, "[%s] enter", "Init");
    StoreInitArgs(src, a, x, y, w, h, capture);
    m_nPicW = w > 0 ? w : 1;
    m_nPicH = h > 0 ? h : 1;
    m_nCenterPtX = 480;
    m_nCenterPtY = 272;
    m_fCenterX = 0.5f;
    m_fCenterY = 0.5f;
    if (src == nullptr) {
        GE_LOGE(s_log, "[%s] src texture is NULL\n", "Init");
        return 0;
    }
    // A capture makes its converter, textures and program when it runs.
    if (!m_bCapture) {
        if (!GEShader::Init(src, a, x, y, w, h, capture, conv)) {
            return 0;
        }
        // The width compensation maps the picture onto the 32-aligned texture:
        // the crop stays in fractions of the picture, the whole of it until
        // SetCrop says otherwise (the base's share of the texture would count
        // twice).
        SetCrop(0.0f, 0.0f, 1.0f, 1.0f);
        GE_LOGI(s_log, "[%s] Creating vignette shader", "Init");
        delete m_pProgram;
        m_pProgram = new (std::nothrow) GLProgFisheye();
        if (!LoadProgram(m_pProgram, "[%s] can't load program", "[%s] can't load program")) {
            return 0;
        }
        src->Bind();
        src->SetParameteri(GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        src->SetParameteri(GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    }
    m_pConverter = conv;
    m_fDistort = 0.6f;
    m_fWidthComp = (float)w / (float)src->GetStride();
    return FinishInit();
}

void GEShaderFisheye::FreePlanes() {
    delete m_pYTexture;
    m_pYTexture = nullptr;
    delete m_pUVTexture;
    m_pUVTexture = nullptr;
}

int GEShaderFisheye::Deinit() {
    FreePlanes();
    return DeinitProgram(m_pProgram);
}

int GEShaderFisheye::ProcFrame(unsigned a, unsigned b, int c, int d) {
    return ProcPreview(m_pProgram, a, b, c, d);
}

int GEShaderFisheye::ProcBlock(unsigned, unsigned, int, int) {
    m_pProgram->SetScale(1.0f, 1.0f);
    m_pProgram->SetShift(m_fCenterX, m_fCenterY);
    m_pProgram->SetCenter(m_fCenterX, m_fCenterY);
    m_pProgram->SetDistort(m_fDistort, m_pProgram->GetDistortSecond());
    m_pProgram->SetWidthComp(m_fWidthComp);
    m_pProgram->SetCrop(m_fCropX, m_fCropY, m_fCropW, m_fCropH);
    return RenderBlock(m_pProgram, g_fQuadTexCoord, (int)m_nRenderW, (int)m_nRenderH);
}

int GEShaderFisheye::ProcBlock(unsigned, unsigned, int, int, float shiftX, float shiftY) {
    m_pProgram->SetShift(shiftX, shiftY);
    m_pProgram->SetCrop(m_fCropX, m_fCropY, m_fCropW, m_fCropH);
    return RenderBlock(m_pProgram, m_fTileTexCoord, m_nYUVSrcW, m_nYUVSrcH);
}

int GEShaderFisheye::ProcFrame(unsigned char* in, unsigned char* out, int w, int h) {
    unsigned char* uv = in != nullptr && w > 0 && h > 0 ? in + (size_t)w * (size_t)h : nullptr;
    return ProcFrame(in, uv, out, w, h);
}

int GEShaderFisheye::ProcFrame(unsigned char* y, unsigned char* uv, unsigned char* out, int w,
                               int h) {
    GE_LOGI(s_log, "[%s] enter", "ProcFrame");
    const uint32_t start = GetTickCount();
    if (!CaptureReady()) {
        return 0;
    }
    if (y == nullptr || uv == nullptr || out == nullptr || w < 2 || h < 2) {
        GE_LOGE(s_log, "[%s] bad capture %dx%d, planes %p %p, output %p", "ProcFrame", w, h,
                (void*)y, (void*)uv, (void*)out);
        return 0;
    }
    // The planes become whole textures: a picture the GPU cannot hold in
    // one is refused before anything is made.
    GLint maxSize = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxSize);
    if (w > maxSize || h > maxSize) {
        GE_LOGE(s_log, "[%s] capture %dx%d refused: larger than the maximum texture size %d",
                "ProcFrame", w, h, (int)maxSize);
        return 0;
    }

    const int tw = MinInt(w, kTileW);
    const int th = MinInt(h, kTileH);
    m_nRenderW = (unsigned)tw;
    m_nRenderH = (unsigned)th;
    // The converter packs four pixels into a texel: its width is made a
    // multiple of 4, so that a narrow capture keeps its last columns.
    const int convW = (tw + 3) & ~3;
    int ok = InitYUVConverter(convW, th, convW, th);
    if (ok) {
        CreateFence();
        GE_LOGD(s_log, "Create YUV Texture::");
        FreePlanes();
        m_pYTexture = new (std::nothrow) GLTexture();
        m_pUVTexture = new (std::nothrow) GLTexture();
        ok = m_pYTexture != nullptr && m_pUVTexture != nullptr &&
             m_pYTexture->Init(GL_LUMINANCE, GL_UNSIGNED_BYTE, (unsigned)w, (unsigned)h, 0) &&
             m_pUVTexture->Init(GL_LUMINANCE_ALPHA, GL_UNSIGNED_BYTE, (unsigned)w / 2,
                                (unsigned)h / 2, 0);
    }
    if (ok) {
        // Non-power-of-two textures sample only when clamped.
        for (GLTexture* tex : {m_pYTexture, m_pUVTexture}) {
            tex->Bind();
            tex->SetParameteri(GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
            tex->SetParameteri(GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
        }
        delete m_pProgram;
        m_pProgram = new (std::nothrow) GLProgFisheyeLarge();
        if (m_pProgram == nullptr || !m_pProgram->Load()) {
            GE_LOGE(s_log, "[%s] can't load program", "ProcFrame");
            ok = 0;
        }
    }
    if (ok) {
        m_pProgram->SetTextures(0, m_pYTexture);
        m_pProgram->SetTextures(1, m_pUVTexture);
        m_pProgram->SetScale((float)tw / (float)w, (float)th / (float)h);
        m_pProgram->SetCenter(m_fCenterX, m_fCenterY);
        m_pProgram->SetDistort(m_fDistort, 1.0f);
        ok = m_pYTexture->UpdateNormalTexture(y, (unsigned)w, (unsigned)h, true) &&
             m_pUVTexture->UpdateNormalTexture(uv, (unsigned)w / 2, (unsigned)h / 2, true);
    }
    if (!ok) {
        GEShader::Deinit();
        FreePlanes();
        return 0;
    }

    // Tiles need no overlap: each output pixel reads the whole picture.
    m_nOverlapX = 0;
    m_nOverlapY = 0;
    m_nRun = 0;
    m_nMaxRun = (unsigned)(((w + tw - 1) / tw) * ((h + th - 1) / th));
    for (int ty = 0; ty < h; ty += th) {
        const int hh = MinInt(th, h - ty);
        for (int tx = 0; tx < w; tx += tw, ++m_nRun) {
            const int ww = MinInt(tw, w - tx);
            GE_LOGD(s_log, "[Fisheye] Output: %d %d size=%d %d", tx, ty, ww, hh);
            SetTile((unsigned)tx, (unsigned)ty, (unsigned)ww, (unsigned)hh, (unsigned)w,
                    (unsigned)h, 0.0f, 0.0f, (float)ww / (float)tw, (float)hh / (float)th);
            ProcBlock(0, 0, w, h, m_fCenterX - (float)tx / (float)w,
                      m_fCenterY - (float)ty / (float)h);
            BlockCopyYUV(out, out + (size_t)w * (size_t)h, w, h, tx, ty, ww, hh);
        }
    }
    m_nMaxRun = 0;

    GEShader::Deinit();
    FreePlanes();
    GE_LOGI(s_log, "** fisheye %d ms", (int)(GetTickCount() - start));
    GE_LOGI(s_log, "[%s] leave", "ProcFrame");
    return 1;
}

int GEShaderFisheye::SetParam(unsigned group, int a, int b, int, int) {
    if (!m_bInited) {
        GE_LOGE(s_log, "[%s] effect not initialized", "SetParam");
        return 0;
    }
    if (group == 0) {
        m_fDistort = (float)(0.6 + (double)a * 1.2 * 0.01);
        m_fDistort2 = 1.2f;
        return 1;
    }
    m_nCenterPtX = a;
    m_nCenterPtY = b;
    // The upper bound is compared as the single-precision 0.9.
    double cx = (double)a / (double)m_nPicW;
    double cy = (double)b / (double)m_nPicH;
    if (cx < 0.1) {
        cx = 0.1;
    } else if (cx > (double)0.9f) {
        cx = 0.9;
    }
    if (cy < 0.1) {
        cy = 0.1;
    } else if (cy > (double)0.9f) {
        cy = 0.9;
    }
    m_fCenterX = (float)cx;
    m_fCenterY = (float)cy;
    return 1;
}
