// The effect base class: Init / Deinit, the crop, the source texture, the two
// capture tile walks and the steps the effects share. The YUV output
// converter is GEYUVConverter.cpp.
#include "engine/GEShader.h"

#include <GLES2/gl2ext.h>
#include <math.h>
#include <string.h>

#include "engine/GLProgRGBtoYUV.h"
#include "gl/GECommon.h"
#include "gl/GLFbo.h"
#include "gl/GLProgram.h"
#include "gl/GLQuad.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_log("GEShader");

const char kDashLine[] = "------------------------------------------------------";

unsigned RoundUp32(unsigned v) {
    return (v + 31u) & ~31u;
}

}  // namespace

GEShader::GEShader(GELogTag& log)
    : m_log(log),
      m_pSrcTexture(nullptr),
      m_nRenderX(0),
      m_nRenderY(0),
      m_nRenderW(0),
      m_nRenderH(0),
      m_nRun(0),
      m_nMaxRun(0),
      m_nOverlapX(0),
      m_nOverlapY(0),
      m_nTileX(0),
      m_nTileY(0),
      m_nTileW(0),
      m_nTileH(0),
      m_bInited(false),
      m_bCapture(false),
      m_nFence(0),
      m_pDstFbo(nullptr),
      m_nYUVOutW(0),
      m_nYUVOutH(0),
      m_nYUVPlaneStride(0),
      m_nYUVUVHeight(0),
      m_nYUVSrcW(0),
      m_nYUVSrcH(0),
      m_pYUVSrcTex(nullptr),
      m_pYTex(nullptr),
      m_pYFbo(nullptr),
      m_pUVTex(nullptr),
      m_pUVFbo(nullptr),
      m_pProgRGBtoY(nullptr),
      m_pProgRGBtoUV(nullptr),
      m_pConverter(nullptr),
      m_fCropX(0.0f),
      m_fCropY(0.0f),
      m_fCropW(1.0f),
      m_fCropH(1.0f),
      m_nRefWidth(0),
      m_nRefHeight(0),
      m_nArg(0),
      m_nRegionX(0),
      m_nRegionY(0),
      m_nRegionW(0),
      m_nRegionH(0) {
    memset(m_fYTileTexCoord, 0, sizeof(m_fYTileTexCoord));
    memset(m_fUVTileTexCoord, 0, sizeof(m_fUVTileTexCoord));
    memset(m_fTileTexCoord, 0, sizeof(m_fTileTexCoord));
    memset(m_fGlobalTexCoord, 0, sizeof(m_fGlobalTexCoord));
}

GEShader::~GEShader() {
    // Effects run their Deinit from their destructors; whatever is left (an
    // effect that never got that far) is released here without a word.
    DeinitYUVConverter();
    if (m_nFence != 0) {
        glDeleteFencesNV(1, &m_nFence);
        m_nFence = 0;
    }
}

int GEShader::Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
                   unsigned char capture, IYUVConverter* conv) {
    (void)x;
    (void)y;
    GE_LOGI(s_log, "[%s] enter", "Init");
    m_pConverter = conv;
    m_nArg = a;
    if (src == nullptr) {
        GE_LOGE(s_log, "[%s] src texture is NULL\n", "Init");
        return 0;
    }
    if (!InitYUVConverter((int)w, (int)h, (int)w, (int)h)) {
        return 0;
    }
    if (capture) {
        CreateFence();
    }
    // The texture is allocated 32-aligned: only its left part is the picture.
    m_fCropX = 0.0f;
    m_fCropY = 0.0f;
    m_fCropW = (float)src->GetWidth() / (float)src->GetAllocWidth();
    m_fCropH = 1.0f;
    GE_LOGI(s_log, "[%s] leave", "Init");
    return 1;
}

int GEShader::Deinit() {
    GE_LOGI(s_log, "[%s] enter", "Deinit");
    DeinitYUVConverter();
    // A generated name is a fence (glIsFenceNV) only once it has been set;
    // the name is given back whether or not it ever was.
    if (m_nFence != 0) {
        glDeleteFencesNV(1, &m_nFence);
        m_nFence = 0;
    }
    return 1;
}

int GEShader::ProcFrame(unsigned char* y, unsigned char* uv, unsigned char* out, int w, int h) {
    // The tiles come through the converter, which knows both planes.
    (void)uv;
    return ProcFrame(y, out, w, h);
}

int GEShader::SetCrop(float x, float y, float w, float h) {
    // Written so that a NaN fails the test as well.
    if (!(x >= 0.0f && y >= 0.0f && w > 0.0f && h > 0.0f && x <= 1.0f && y <= 1.0f && w <= 1.0f &&
          h <= 1.0f)) {
        m_fCropX = 0.0f;
        m_fCropY = 0.0f;
        m_fCropW = 1.0f;
        m_fCropH = 1.0f;
    } else {
        m_fCropX = x;
        m_fCropY = y;
        m_fCropW = w;
        m_fCropH = h;
    }
    return 1;
}

unsigned char* GEShader::GetUVDataBuf() {
    return m_pUVTex != nullptr ? m_pUVTex->GetSTDataBuf() : nullptr;
}

unsigned char* GEShader::GetYDataBuf() {
    return m_pYTex != nullptr ? m_pYTex->GetSTDataBuf() : nullptr;
}

int GEShader::SetCrop(int x, int y, int w, int h) {
    (void)x;
    (void)y;
    (void)w;
    (void)h;
    return 1;
}

int GEShader::BindSrcTexture() {
    if (m_pSrcTexture == nullptr) {
        GE_LOGE(s_log, "[%s] src texture is NULL\n", "BindSrcTexture");
        return 0;
    }
    m_pSrcTexture->Bind();
    return (int)CheckGLError("BindSrcTexture", "glBindTexture");
}

int GEShader::CaptureReady() {
    if (!m_bInited) {
        GE_LOGE(m_log, "[%s] effect not initialized", "ProcFrame");
        return 0;
    }
    if (!m_bCapture) {
        GE_LOGE(m_log, "[%s] Capture mode only", "ProcFrame");
        return 0;
    }
    if (m_pConverter == nullptr) {
        GE_LOGE(m_log, "[%s] callback not registered", "ProcFrame");
        return 0;
    }
    if (m_pSrcTexture == nullptr || m_pSrcTexture->GetWidth() == 0 ||
        m_pSrcTexture->GetHeight() == 0) {
        GE_LOGE(m_log, "[%s] src texture is NULL\n", "ProcFrame");
        return 0;
    }
    return 1;
}

unsigned char* GEShader::TileBuffer(GLTexture* tex) {
    if (!tex->IsST()) {
        GE_LOGE(m_log, "[%s] not ST", "GetDataBuf");
        return nullptr;
    }
    return tex->GetSTDataBuf();
}

void GEShader::CreateFence() {
    if (m_nFence == 0) {
        glGenFencesNV(1, &m_nFence);
        GE_LOGI(s_log, "[%s] fence %u generated", "Init", (unsigned)m_nFence);
    }
}

float GEShader::LogScreenRatio() {
    const unsigned w = m_pSrcTexture->GetWidth();
    const unsigned h = m_pSrcTexture->GetHeight();
    const float ratio = (float)w / (float)h;
    GE_LOGI(m_log, "[%s] screen ratio = %u/%u = %f", "Init", w, h, (double)ratio);
    return ratio;
}

void GEShader::SetTile(unsigned x, unsigned y, unsigned w, unsigned h, unsigned W, unsigned H,
                       float s0, float t0, float s1, float t1) {
    m_nTileX = x;
    m_nTileY = y;
    m_nTileW = w;
    m_nTileH = h;
    m_nRenderW = w;
    m_nRenderH = h;

    // Quad vertex order: top left, bottom left, bottom right, top right.
    const GLfloat tile[8] = {s0, t1, s0, t0, s1, t0, s1, t1};
    memcpy(m_fTileTexCoord, tile, sizeof(tile));

    const float x0 = (float)x / (float)W;
    const float x1 = (float)(x + w) / (float)W;
    const float y0 = (float)y / (float)H;
    const float y1 = (float)(y + h) / (float)H;
    const GLfloat global[8] = {x0, y1, x0, y0, x1, y0, x1, y1};
    memcpy(m_fGlobalTexCoord, global, sizeof(global));
}

namespace {

// The run walk's tile of a row at x: the texture's width; the tile that would
// pass the picture's right edge takes the rest, widened to a multiple of 32
// (at most the texture's width) and moved left to end at the edge (not below
// 0), so that it overlaps its neighbour instead of reaching past the image.
void RunTile(unsigned W, unsigned nProcW, unsigned* x, unsigned* w) {
    if (*x + nProcW <= W) {
        *w = nProcW;
        return;
    }
    *w = RoundUp32(W - *x);
    if (*w > nProcW) {
        *w = nProcW;
    }
    *x = W >= *w ? W - *w : 0;
}

}  // namespace

int GEShader::WalkRuns(unsigned char* out, int W, int H, unsigned overlapX, unsigned overlapY) {
    if (!CaptureReady()) {
        return 0;
    }
    const unsigned nProcW = m_pSrcTexture->GetWidth();
    const unsigned nProcH = m_pSrcTexture->GetHeight();
    if (W <= 0 || H <= 0 || overlapX >= nProcW || overlapY >= nProcH) {
        GE_LOGE(m_log, "[%s] bad capture size %dx%d (tile %ux%u, overlap %u:%u)", "ProcFrame", W, H,
                nProcW, nProcH, overlapX, overlapY);
        return 0;
    }
    const unsigned uW = (unsigned)W;
    const unsigned uH = (unsigned)H;
    const unsigned stepX = nProcW - overlapX;
    const unsigned stepY = nProcH - overlapY;

    m_nOverlapX = overlapX;
    m_nOverlapY = overlapY;
    m_nTileX = 0;
    m_nTileY = 0;
    m_nRun = 0;
    // Tiles of a row: the advance followed once. Without overlaps this is
    // ceil(W / texture width); a moved last tile always ends the row.
    unsigned cols = 0;
    for (unsigned start = 0;;) {
        ++cols;
        unsigned x = start, w = 0;
        RunTile(uW, nProcW, &x, &w);
        const unsigned next = x + stepX;
        if (next >= uW || next <= start) {
            break;
        }
        start = next;
    }
    m_nMaxRun = cols * ((uH + stepY - 1) / stepY);
    LogWalkStart(W, H, nProcW, nProcH, m_nMaxRun);

    unsigned char* uv = out != nullptr ? out + (size_t)uW * uH : nullptr;
    const float allocW = (float)m_pSrcTexture->GetAllocWidth();
    for (; m_nRun < m_nMaxRun; ++m_nRun) {
        LogRun(m_nRun);
        unsigned x = m_nTileX, w = 0;
        const unsigned y = m_nTileY;
        RunTile(uW, nProcW, &x, &w);
        const unsigned h = y + nProcH <= uH ? nProcH : uH - y;
        SetTile(x, y, w, h, uW, uH, 0.0f, 0.0f, (float)w / allocW, (float)h / (float)nProcH);
        LogTile(W, H);

        // Only an image narrower than its tile makes the tile pass the right
        // edge; the converter is then asked for what the image holds.
        const unsigned rw = x + w <= uW ? w : uW - x;
        m_nRegionX = x;
        m_nRegionY = y;
        m_nRegionW = rw;
        m_nRegionH = h;
        m_pConverter->convertRect(TileBuffer(m_pSrcTexture), (int)m_pSrcTexture->GetStride(),
                                  (int)nProcH, (int)x, (int)y, (int)rw, (int)h);
        ProcBlock(0, 0, W, H);
        BlockCopyYUV(out, uv, W, H, (int)x, (int)y, (int)w, (int)h);

        if (x + stepX < uW) {
            m_nTileX = x + stepX;
        } else {
            m_nTileX = 0;
            m_nTileY = y + stepY;
        }
        if (m_nTileY >= uH) {
            m_nTileX = 0;
            m_nTileY = 0;
        }
    }
    m_nMaxRun = 0;
    GE_LOGI(m_log, "[%s] leave", "ProcFrame");
    return 1;
}

int GEShader::WalkMargins(unsigned char* out, int W, int H, unsigned margin) {
    GE_LOGI(m_log, "[%s] enter", "ProcFrame");
    if (!CaptureReady()) {
        return 0;
    }
    const unsigned stride = m_pSrcTexture->GetStride();
    const unsigned nProcH = m_pSrcTexture->GetHeight();
    margin = (margin + 1) & ~1u;  // regions start on row and column pairs
    if (W < 2 || H < 2 || 2 * margin + 2 > stride || 2 * margin + 2 > nProcH) {
        GE_LOGE(m_log, "[%s] bad capture size %dx%d (tile %ux%u, overlap %u:%u)", "ProcFrame", W, H,
                stride, nProcH, 2 * margin, 2 * margin);
        return 0;
    }
    const unsigned uW = (unsigned)W;
    const unsigned uH = (unsigned)H;
    const unsigned stepX = (stride - 2 * margin) & ~1u;
    const unsigned stepY = (nProcH - 2 * margin) & ~1u;
    const float allocW = (float)m_pSrcTexture->GetAllocWidth();
    m_nOverlapX = 0;
    m_nOverlapY = 0;
    m_nRun = 0;
    m_nMaxRun = ((uW + stepX - 1) / stepX) * ((uH + stepY - 1) / stepY);
    unsigned char* uv = out != nullptr ? out + (size_t)uW * uH : nullptr;
    for (unsigned y = 0; y < uH; y += stepY) {
        const unsigned h = y + stepY <= uH ? stepY : uH - y;
        const unsigned ry0 = y >= margin ? y - margin : 0;
        const unsigned ry1 = y + h + margin <= uH ? y + h + margin : uH;
        for (unsigned x = 0; x < uW; x += stepX, ++m_nRun) {
            const unsigned w = x + stepX <= uW ? stepX : uW - x;
            const unsigned rx0 = x >= margin ? x - margin : 0;
            const unsigned rx1 = x + w + margin <= uW ? x + w + margin : uW;
            m_nRegionX = rx0;
            m_nRegionY = ry0;
            m_nRegionW = rx1 - rx0;
            m_nRegionH = ry1 - ry0;
            const float s0 = (float)(x - rx0) / allocW;
            const float t0 = (float)(y - ry0) / (float)nProcH;
            SetTile(x, y, w, h, uW, uH, s0, t0, s0 + (float)w / allocW,
                    t0 + (float)h / (float)nProcH);
            m_pConverter->convertRect(TileBuffer(m_pSrcTexture), (int)stride, (int)nProcH, (int)rx0,
                                      (int)ry0, (int)m_nRegionW, (int)m_nRegionH);
            ProcBlock(0, 0, W, H);
            BlockCopyYUV(out, uv, W, H, (int)x, (int)y, (int)w, (int)h);
        }
    }
    m_nMaxRun = 0;
    GE_LOGI(m_log, "[%s] leave", "ProcFrame");
    return 1;
}

void GEShader::LogWalkStart(int W, int H, unsigned nProcW, unsigned nProcH, unsigned maxRun) {
    GE_LOGI(m_log, "[%s] fImgWidth=%d, fImgHeight=%d, nProcW=%d, nProcH=%d, max run = %d",
            "ProcFrame", W, H, (int)nProcW, (int)nProcH, (int)maxRun);
}

void GEShader::LogRun(unsigned run) {
    GE_LOGI(m_log, ">> run %d ===================================================", (int)run);
}

namespace {

// Where one axis of a tile of the nested walk reads the source. The tile
// covers n output pixels from o of a picture N pixels long; through the crop
// (origin c, size cs, fractions of N) output pixel i shows the source at
// N c + (o + i + 1/2) cs, sampled between the two nearest pixels. `start`
// and `len` are the source pixels the converter fetches (start even, the
// two nearest pixels of every sample included, cut at the picture's edge,
// whose repetition in the texture's padding stands for what lies past it);
// `offset` is where the tile's near edge falls in the fetched pixels.
struct CropSpan {
    unsigned start, len;
    double offset;
};

CropSpan SpanOf(unsigned N, double c, double cs, unsigned o, unsigned n) {
    const double f = (double)N * c + (double)o * cs;
    double first = floor(f + 0.5 * cs - 0.5);
    if (first > (double)N - 2.0) {
        first = (double)N - 2.0;
    }
    const unsigned start = first > 0.0 ? (unsigned)first & ~1u : 0;
    double last = ceil(f + ((double)n - 0.5) * cs - 0.5);
    if (last > (double)N - 1.0) {
        last = (double)N - 1.0;
    }
    unsigned len = last > (double)start ? (unsigned)last - start + 1 : 1;
    // Whole row pairs and, where the picture allows, whole groups of 16 for
    // the converter's fast path.
    len = (len + 1) & ~1u;
    if (len > N - start) {
        len = N - start;
    }
    const unsigned len16 = (len + 15) & ~15u;
    if (len16 <= N - start) {
        len = len16;
    }
    return {start, len, f - (double)start};
}

}  // namespace

// Tiles are laid out row by row from the picture's top left: the texture's
// size, or the rest at the right and bottom edges; the last tile of a row is
// widened in place to a multiple of 32 (what lies past the picture is not
// copied out). Each tile reads the source through the crop, so that every
// output pixel shows the crop's source pixel at the crop's scale; where the
// crop reaches past the picture the fetched pixels stop at its edge and the
// edge repeats. A tile whose source pixels would not fit the texture (a crop
// almost as wide as the picture, not on whole pixels) is narrowed until they
// do.
int GEShader::WalkCropped(unsigned char* out, int W, int H) {
    GE_LOGI(m_log, "[%s] enter", "ProcFrame");
    if (!CaptureReady()) {
        return 0;
    }
    const unsigned nProcW = m_pSrcTexture->GetWidth();
    const unsigned nProcH = m_pSrcTexture->GetHeight();
    if (W < 2 || H < 2) {
        GE_LOGE(m_log, "[%s] bad capture size %dx%d (tile %ux%u, overlap %u:%u)", "ProcFrame", W, H,
                nProcW, nProcH, 0u, 0u);
        return 0;
    }
    const unsigned uW = (unsigned)W;
    const unsigned uH = (unsigned)H;
    m_nOverlapX = 0;
    m_nOverlapY = 0;

    // SetCrop keeps every component in [0, 1] with positive sizes; an effect
    // that wrote the fields itself gets the same treatment here.
    const double cx = m_fCropX >= 0.0f && m_fCropX <= 1.0f ? m_fCropX : 0.0;
    const double cy = m_fCropY >= 0.0f && m_fCropY <= 1.0f ? m_fCropY : 0.0;
    const double cw = m_fCropW > 0.0f && m_fCropW <= 1.0f ? m_fCropW : 1.0;
    const double ch = m_fCropH > 0.0f && m_fCropH <= 1.0f ? m_fCropH : 1.0;

    unsigned char* uv = out != nullptr ? out + (size_t)uW * uH : nullptr;
    const unsigned allocW = m_pSrcTexture->GetAllocWidth();
    const unsigned stride = m_pSrcTexture->GetStride();
    const unsigned room = stride < allocW ? stride : allocW;
    unsigned h = 0;
    for (unsigned y = 0; y < uH; y += h) {
        h = y + nProcH <= uH ? nProcH : uH - y;
        CropSpan rows = SpanOf(uH, cy, ch, y, h);
        while (rows.len > nProcH && h > 2) {
            h -= 2;
            rows = SpanOf(uH, cy, ch, y, h);
        }
        unsigned w = 0;
        for (unsigned x = 0; x < uW; x += w) {
            w = x + nProcW <= uW ? nProcW : uW - x;
            CropSpan cols = SpanOf(uW, cx, cw, x, w);
            while (cols.len > room && w > 2) {
                w -= 2;
                cols = SpanOf(uW, cx, cw, x, w);
            }
            const unsigned rw = w;
            if (x + w == uW && w % 32 != 0) {
                w = RoundUp32(w);  // the last of the row, widened in place
            }
            const float s0 = (float)(cols.offset / allocW);
            const float t0 = (float)(rows.offset / nProcH);
            SetTile(x, y, w, h, uW, uH, s0, t0, s0 + (float)(cw * w / allocW),
                    t0 + (float)(ch * h / nProcH));
            m_pConverter->convertRect(TileBuffer(m_pSrcTexture), (int)stride, (int)nProcH,
                                      (int)cols.start, (int)rows.start, (int)cols.len,
                                      (int)rows.len);
            ProcBlock(0, 0, W, H);
            BlockCopyYUV(out, uv, W, H, (int)x, (int)y, (int)w, (int)h);
            w = rw;
        }
    }
    GE_LOGI(m_log, "[%s] leave", "ProcFrame");
    return 1;
}

void GEShader::LogInitBanner(const char* szName) {
    GE_LOGI(m_log, "[%s] enter", "Init");
    GE_LOGI(m_log, "[%s] %s", "Init", kDashLine);
    GE_LOGI(m_log, "[%s] %s", "Init", szName);
    GE_LOGI(m_log, "[%s] %s", "Init", kDashLine);
}

void GEShader::StoreInitArgs(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w,
                             unsigned h, unsigned char capture, unsigned refW, unsigned refH) {
    m_pSrcTexture = src;
    m_nArg = a;
    m_nRenderX = x;
    m_nRenderY = y;
    m_nRenderW = w;
    m_nRenderH = h;
    m_bCapture = capture != 0;
    m_nRefWidth = refW;
    m_nRefHeight = refH;
}

int GEShader::LoadProgram(GLProgram* prog, const char* szNewFail, const char* szLoadFail) {
    if (prog == nullptr) {
        GE_LOGE(m_log, szNewFail, "Init");
        return 0;
    }
    if (!prog->Load()) {
        GE_LOGE(m_log, szLoadFail, "Init");
        return 0;
    }
    prog->SetTextures(0, m_pSrcTexture);
    return 1;
}

void GEShader::SetPartialTexCoord() {
    GE_LOGI(m_log, "[%s] partial texcoord", "Init");
    const float allocW = (float)m_pSrcTexture->GetAllocWidth();
    for (int i = 0; i < g_nQuadVertices; ++i) {
        m_fTileTexCoord[2 * i] = (float)m_nRenderW * g_fQuadTexCoord[2 * i] / allocW;
        m_fTileTexCoord[2 * i + 1] = g_fQuadTexCoord[2 * i + 1];
        m_fGlobalTexCoord[2 * i] = g_fQuadTexCoord[2 * i];
        m_fGlobalTexCoord[2 * i + 1] = g_fQuadTexCoord[2 * i + 1];
        GE_LOGI(m_log, "[%s] %f:%f", "Init", (double)m_fTileTexCoord[2 * i],
                (double)m_fTileTexCoord[2 * i + 1]);
    }
}

int GEShader::FinishInit() {
    m_bInited = true;
    GE_LOGI(m_log, "[%s] leave", "Init");
    return 1;
}

int GEShader::ProcPreview(const GLProgram* prog, unsigned a, unsigned b, int c, int d) {
    // An effect initialised for capture may make its programs only when a
    // capture runs: it is told that frames are not its mode.
    if (!m_bInited) {
        GE_LOGE(m_log, "[%s] effect not initialized", "ProcFrame");
        return 0;
    }
    if (m_bCapture) {
        GE_LOGE(m_log, "[%s] Preview mode only", "ProcFrame");
        return 0;
    }
    if (prog == nullptr) {
        GE_LOGE(m_log, "[%s] effect not initialized", "ProcFrame");
        return 0;
    }
    ProcBlock(a, b, c, d);
    return 1;
}

int GEShader::RenderBlock(GLProgram* prog, const GLfloat* texCoord, int convW, int convH) {
    m_pDstFbo->Bind();
    glViewport((GLint)m_nRenderX, (GLint)m_nRenderY, (GLsizei)m_nRenderW, (GLsizei)m_nRenderH);
    prog->Use();
    prog->SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    prog->SetTextureCoord(g_nQuadTexCoordSize, texCoord);
    prog->Draw();
    if (convW == 0 || convH == 0) {
        convW = (int)m_pSrcTexture->GetWidth();
        convH = (int)m_pSrcTexture->GetHeight();
    }
    ConvertYUV(0, 0, convW, convH);
    glFlush();
    glFinish();
    return 1;
}

int GEShader::SetNoParam() {
    if (!m_bInited) {
        GE_LOGE(m_log, "[%s] effect not initialized", "SetParam");
        return 0;
    }
    return 1;
}
