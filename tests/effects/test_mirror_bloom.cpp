// Mirror and Bloom through the effect manager: semi-planar frames in, the
// converted planes out, compared with values worked out here from the
// colour formulas, in preview and in a capture of 2 x 2 tiles.
#include <alloc_controller.h>
#include <android/log.h>
#include <gralloc_priv.h>
#include <gtest/gtest.h>
#include <math.h>
#include <stdint.h>
#include <string.h>
#include <ui/GraphicBuffer.h>

#include <string>
#include <vector>

#include "GETestLog.h"
#include "engine/GEManager.h"
#include "engine/convert/sp2yuvx.h"
#include "gl/GECommon.h"

using android::GraphicBuffer;
using android::sp;

namespace {

const int kW = 64;  // texture (preview) size
const int kH = 32;
const int kHalPixelFormatRGBA8888 = 1;
const uint32_t kUsage = 0x130;
const size_t kGuard = 64;
const unsigned char kPoison = 0xA5;

// ---------------------------------------------------------------------------
// Colour formulas (full-range BT.601, values in [0, 1]).

struct RGB {
    double r, g, b;
};

RGB YuvToRgb(int y, int v, int u) {
    double fy = y / 255.0, fv = v / 255.0 - 0.5, fu = u / 255.0 - 0.5;
    return {fy + 1.402 * fv, fy - 0.714136 * fv - 0.344136 * fu, fy + 1.772 * fu};
}

double Clamp01(double x) {
    return x < 0.0 ? 0.0 : (x > 1.0 ? 1.0 : x);
}

// What an 8-bit framebuffer keeps of a channel.
double Quantize(double x) {
    return round(Clamp01(x) * 255.0) / 255.0;
}

RGB Stored(const RGB& c) {
    return {Quantize(c.r), Quantize(c.g), Quantize(c.b)};
}

// Bloom: each channel times 3.5 x luminance (0.3, 0.59, 0.11).
RGB Bloom(const RGB& c) {
    double lum = 0.3 * c.r + 0.59 * c.g + 0.11 * c.b;
    return {c.r * 3.5 * lum, c.g * 3.5 * lum, c.b * 3.5 * lum};
}

int LumaByte(const RGB& c) {
    return (int)round(Clamp01(0.299 * c.r + 0.587 * c.g + 0.114 * c.b) * 255.0);
}
int VByte(const RGB& c) {
    return (int)round(Clamp01(0.5 * c.r - 0.418688 * c.g - 0.081312 * c.b + 0.5) * 255.0);
}
int UByte(const RGB& c) {
    return (int)round(Clamp01(-0.168736 * c.r - 0.331264 * c.g + 0.5 * c.b + 0.5) * 255.0);
}

// ---------------------------------------------------------------------------
// Semi-planar images.

// A W x H NV21-style image: luma plane, then V/U pairs for each 2 x 2 block.
struct SPImage {
    int w = 0, h = 0;
    std::vector<unsigned char> y, vu;
    SPImage(int width, int height)
        : w(width), h(height), y((size_t)width * height), vu((size_t)width * height / 2) {}
    int Y(int x, int r) const { return y[(size_t)r * w + x]; }
    int V(int x, int r) const { return vu[(size_t)(r / 2) * w + (x / 2) * 2]; }
    int U(int x, int r) const { return vu[(size_t)(r / 2) * w + (x / 2) * 2 + 1]; }
};

// Luma that differs along both axes (so no reflection maps it onto itself)
// and chroma per 2 x 2 block; kept inside [40, 210] and [100, 156] so that no
// RGB channel clips.
SPImage Pattern(int w, int h, bool neutralChroma) {
    SPImage img(w, h);
    for (int r = 0; r < h; ++r) {
        for (int x = 0; x < w; ++x) {
            img.y[(size_t)r * w + x] = (unsigned char)(40 + (x * 5 + r * 11 + (x * r) % 7) % 171);
        }
    }
    for (int br = 0; br < h / 2; ++br) {
        for (int bx = 0; bx < w / 2; ++bx) {
            unsigned char* p = &img.vu[(size_t)br * w + bx * 2];
            p[0] = neutralChroma ? 128 : (unsigned char)(100 + (bx * 3 + br * 5) % 57);
            p[1] = neutralChroma ? 128 : (unsigned char)(100 + (bx * 7 + br * 2) % 57);
        }
    }
    return img;
}

// Greys covering the whole range, so that Bloom's dark, mid and saturated
// parts all appear.
SPImage GreyRamp(int w, int h) {
    SPImage img(w, h);
    for (int r = 0; r < h; ++r) {
        for (int x = 0; x < w; ++x) {
            img.y[(size_t)r * w + x] = (unsigned char)((x * 4 + r * 9) % 256);
        }
    }
    memset(img.vu.data(), 128, img.vu.size());
    return img;
}

// Output planes with poisoned guard bytes behind each.
struct OutPlanes {
    int w, h;
    std::vector<unsigned char> y, uv;
    OutPlanes(int width, int height)
        : w(width),
          h(height),
          y((size_t)width * height + kGuard, kPoison),
          uv((size_t)width * height / 2 + kGuard, kPoison) {}
    int Y(int x, int r) const { return y[(size_t)r * w + x]; }
    int V(int x, int r) const { return uv[(size_t)(r / 2) * w + (x / 2) * 2]; }
    int U(int x, int r) const { return uv[(size_t)(r / 2) * w + (x / 2) * 2 + 1]; }
    void ExpectGuards() const {
        for (size_t i = 0; i < kGuard; ++i) {
            ASSERT_EQ(kPoison, y[(size_t)w * h + i]) << "luma guard byte " << i;
            ASSERT_EQ(kPoison, uv[(size_t)w * h / 2 + i]) << "chroma guard byte " << i;
        }
    }
};

// ---------------------------------------------------------------------------
// Graphics buffers.

sp<GraphicBuffer> NewFrameBuffer() {
    sp<GraphicBuffer> gb = new GraphicBuffer((uint32_t)((kW + 31) & ~31), (uint32_t)kH,
                                             kHalPixelFormatRGBA8888, kUsage);
    EXPECT_EQ(android::NO_ERROR, gb->initCheck());
    return gb;
}

// The gralloc clean that hands CPU writes to the GPU.
void CleanBuffer(GraphicBuffer* gb) {
    const private_handle_t* h = static_cast<const private_handle_t*>(gb->getNativeBuffer()->handle);
    sp<gralloc::IMemAlloc> alloc = gralloc::IAllocController::getInstance()->getAllocator(h->flags);
    ASSERT_EQ(0, alloc->clean_buffer((void*)h->base, (size_t)h->size, h->offset, h->fd,
                                     gralloc::CACHE_CLEAN));
}

// What the CPU expansion writes for a frame: Y, V, U, 255 per pixel, rows of
// the buffer's stride.
void FillYuvx(GraphicBuffer* gb, const SPImage& img) {
    void* p = nullptr;
    ASSERT_EQ(android::NO_ERROR, gb->lock(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &p));
    unsigned char* px = static_cast<unsigned char*>(p);
    const int stride = (int)gb->getStride();
    for (int r = 0; r < img.h; ++r) {
        for (int x = 0; x < img.w; ++x) {
            unsigned char* q = px + ((size_t)r * stride + x) * 4;
            q[0] = (unsigned char)img.Y(x, r);
            q[1] = (unsigned char)img.V(x, r);
            q[2] = (unsigned char)img.U(x, r);
            q[3] = 255;
        }
    }
    gb->unlock();
    CleanBuffer(gb);
}

// The plug-in's side of a capture: serves the tiles the effect asks for.
class TileServer : public IYUVConverter {
public:
    TileServer(const SPImage& img, GraphicBuffer* gb) : m_img(img), m_gb(gb) {}
    int convertRect(void* dst, int dw, int dh, int rx, int ry, int rw, int rh) override {
        m_calls.push_back({dw, dh, rx, ry, rw, rh});
        sp2yuvxs(dst, dw, dh, m_img.y.data(), m_img.vu.data(), m_img.w, m_img.h, rx, ry, rw, rh);
        CleanBuffer(m_gb);
        return 1;
    }
    struct Call {
        int dw, dh, rx, ry, rw, rh;
    };
    std::vector<Call> m_calls;

private:
    const SPImage& m_img;
    GraphicBuffer* m_gb;
};

// ---------------------------------------------------------------------------
// Expected outputs.

// The luma the pipeline produces for source pixel (sx, sy), with Bloom or not.
int ExpectedLuma(const SPImage& in, int sx, int sy, bool bloom) {
    RGB c = YuvToRgb(in.Y(sx, sy), in.V(sx, sy), in.U(sx, sy));
    return LumaByte(Stored(bloom ? Bloom(c) : c));
}

// The chroma of the 2 x 2 output block whose pixels come from the source
// pixels `src` (the block's mean RGB).
void ExpectedChroma(const SPImage& in, const int src[4][2], bool bloom, int* v, int* u) {
    RGB sum = {0, 0, 0};
    for (int k = 0; k < 4; ++k) {
        RGB c = YuvToRgb(in.Y(src[k][0], src[k][1]), in.V(src[k][0], src[k][1]),
                         in.U(src[k][0], src[k][1]));
        RGB s = Stored(bloom ? Bloom(c) : c);
        sum.r += s.r / 4;
        sum.g += s.g / 4;
        sum.b += s.b / 4;
    }
    *v = VByte(sum);
    *u = UByte(sum);
}

// Maps an output pixel to the source pixel that it shows.
typedef void (*SourceOf)(int x, int y, int* sx, int* sy);

// Compares every output pixel (luma) and 2 x 2 block (chroma); stops after a
// few reports.
void ExpectImage(const SPImage& in, const OutPlanes& out, SourceOf source, bool bloom,
                 int tolerance, const char* what) {
    int bad = 0;
    for (int y = 0; y < out.h && bad < 6; ++y) {
        for (int x = 0; x < out.w && bad < 6; ++x) {
            int sx, sy;
            source(x, y, &sx, &sy);
            int want = ExpectedLuma(in, sx, sy, bloom);
            if (abs(out.Y(x, y) - want) > tolerance) {
                ADD_FAILURE() << what << ": luma at (" << x << ", " << y << ") is " << out.Y(x, y)
                              << ", want " << want << " from (" << sx << ", " << sy << ")";
                ++bad;
            }
        }
    }
    for (int y = 0; y < out.h && bad < 6; y += 2) {
        for (int x = 0; x < out.w && bad < 6; x += 2) {
            int src[4][2];
            const int offs[4][2] = {{0, 0}, {1, 0}, {0, 1}, {1, 1}};
            for (int k = 0; k < 4; ++k) {
                source(x + offs[k][0], y + offs[k][1], &src[k][0], &src[k][1]);
            }
            int v, u;
            ExpectedChroma(in, src, bloom, &v, &u);
            if (abs(out.V(x, y) - v) > tolerance || abs(out.U(x, y) - u) > tolerance) {
                ADD_FAILURE() << what << ": chroma of block (" << x << ", " << y << ") is V "
                              << out.V(x, y) << " U " << out.U(x, y) << ", want V " << v << " U "
                              << u;
                ++bad;
            }
        }
    }
}

void Identity(int x, int y, int* sx, int* sy) {
    *sx = x;
    *sy = y;
}
// Preview: about the middle of the texture.
void PreviewRows(int x, int y, int* sx, int* sy) {
    *sx = x;
    *sy = y < kH / 2 ? y : kH - 1 - y;
}
void PreviewColumns(int x, int y, int* sx, int* sy) {
    *sx = x < kW / 2 ? x : kW - 1 - x;
    *sy = y;
}
// Capture: about the middle of each kW x kH tile.
void TileRows(int x, int y, int* sx, int* sy) {
    int ty = y / kH * kH, r = y % kH;
    *sx = x;
    *sy = ty + (r < kH / 2 ? r : kH - 1 - r);
}
void TileColumns(int x, int y, int* sx, int* sy) {
    int tx = x / kW * kW, c = x % kW;
    *sx = tx + (c < kW / 2 ? c : kW - 1 - c);
    *sy = y;
}

// ---------------------------------------------------------------------------

class EffectPixels : public ::testing::Test {
protected:
    void SetUp() override {
        m_pMan = new GEManager();
        m_gb = NewFrameBuffer();
    }
    void TearDown() override {
        delete m_pMan;
        m_gb.clear();
    }

    // One preview frame of `in` through effect `effect`.
    // The picture may be narrower than the buffer (in.w < kW).
    void RunPreview(unsigned effect, bool landscape, const SPImage& in, OutPlanes* out) {
        ASSERT_TRUE(m_pMan->Init(m_gb->getNativeBuffer(), m_gb->getWidth(), kH, 0, 0, 0,
                                 (unsigned)in.w, (unsigned)in.h, nullptr));
        m_pMan->m_bLandscaped = landscape;
        ASSERT_TRUE(m_pMan->ChooseEffect(effect, 0));
        FillYuvx(m_gb.get(), in);
        ASSERT_TRUE(m_pMan->ProcFrame(0u, 0u, 0, 0));
        ASSERT_TRUE(m_pMan->MemcpyYUV(out->y.data(), out->uv.data()));
        out->ExpectGuards();
    }

    // A capture of `in` (W x H, larger than the texture) through effect
    // `effect`, tile by tile; `out` holds both planes one after the other.
    void RunCapture(unsigned effect, bool landscape, const SPImage& in, TileServer* server,
                    std::vector<unsigned char>* out) {
        ASSERT_TRUE(
            m_pMan->Init(m_gb->getNativeBuffer(), m_gb->getWidth(), kH, 0, 0, 0, kW, kH, server));
        m_pMan->m_bLandscaped = landscape;
        ASSERT_TRUE(m_pMan->ChooseEffect(effect, 1));
        out->assign((size_t)in.w * in.h * 3 / 2 + kGuard, kPoison);
        std::vector<unsigned char> y = in.y, vu = in.vu;
        ASSERT_TRUE(m_pMan->ProcFrame(y.data(), vu.data(), out->data(), in.w, in.h));
        for (size_t i = 0; i < kGuard; ++i) {
            ASSERT_EQ(kPoison, (*out)[(size_t)in.w * in.h * 3 / 2 + i]) << "guard byte " << i;
        }
        // The camera's planes are not written: the result goes to `out`.
        EXPECT_EQ(in.y, y);
        EXPECT_EQ(in.vu, vu);
    }

    static OutPlanes Planes(const std::vector<unsigned char>& out, int w, int h) {
        OutPlanes p(w, h);
        memcpy(p.y.data(), out.data(), (size_t)w * h);
        memcpy(p.uv.data(), out.data() + (size_t)w * h, (size_t)w * h / 2);
        return p;
    }

    GEManager* m_pMan = nullptr;
    sp<GraphicBuffer> m_gb;
};

TEST(BloomFormula, WorkedValues) {
    // The figures the effect is defined by, checked against the helpers the
    // pixel tests use: grey g becomes 3.5 g^2, saturating from about 0.535.
    RGB mid = Bloom({0.5, 0.5, 0.5});
    EXPECT_NEAR(0.875, mid.r, 1e-9);
    EXPECT_NEAR(0.875, mid.b, 1e-9);
    EXPECT_EQ(0, LumaByte(Stored(Bloom({0, 0, 0}))));
    EXPECT_EQ(255, LumaByte(Stored(Bloom({0.54, 0.54, 0.54}))));
    EXPECT_EQ(223, LumaByte(Stored(Bloom({0.5, 0.5, 0.5}))));  // round(0.875 x 255)
}

TEST_F(EffectPixels, BloomPreviewFollowsTheFormula) {
    SPImage in = GreyRamp(kW, kH);
    OutPlanes out(kW, kH);
    GETestLog log;
    RunPreview(9, false, in, &out);
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, "GEShaderBloom", "[Init] Creating Bloom shader"));
    ExpectImage(in, out, Identity, true, 1, "bloom preview");

    // Spot checks: black stays black, 128 (0.502) gives 3.5 x 0.502^2, the
    // top of the ramp saturates.
    bool sawBlack = false, sawMid = false, sawSaturated = false;
    for (int y = 0; y < kH; ++y) {
        for (int x = 0; x < kW; ++x) {
            int g = in.Y(x, y);
            if (g == 0) {
                EXPECT_LE(out.Y(x, y), 1);
                sawBlack = true;
            } else if (g == 128) {
                double want = 3.5 * (128 / 255.0) * (128 / 255.0) * 255.0;
                EXPECT_NEAR(want, out.Y(x, y), 2.0);
                sawMid = true;
            } else if (g >= 140) {
                EXPECT_GE(out.Y(x, y), 254) << "grey " << g;
                sawSaturated = true;
            }
        }
    }
    EXPECT_TRUE(sawBlack && sawMid && sawSaturated);

    // A second frame with other contents is processed afresh.
    SPImage in2 = Pattern(kW, kH, false);
    FillYuvx(m_gb.get(), in2);
    ASSERT_TRUE(m_pMan->ProcFrame(0u, 0u, 0, 0));
    OutPlanes out2(kW, kH);
    ASSERT_TRUE(m_pMan->MemcpyYUV(out2.y.data(), out2.uv.data()));
    out2.ExpectGuards();
    ExpectImage(in2, out2, Identity, true, 1, "bloom preview, second frame");
}

TEST_F(EffectPixels, MirrorPreviewPortraitReflectsRows) {
    SPImage in = Pattern(kW, kH, false);
    OutPlanes out(kW, kH);
    GETestLog log;
    RunPreview(8, false, in, &out);
    EXPECT_TRUE(
        log.HasExact(ANDROID_LOG_INFO, "GEShaderMirror", "[Tamso] load Protrait mirror shader"));
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, "GEShaderMirror", "[Init] Creating Mirror shader"));
    ExpectImage(in, out, PreviewRows, false, 1, "mirror preview portrait");
}

TEST_F(EffectPixels, MirrorPreviewLandscapeReflectsColumns) {
    SPImage in = Pattern(kW, kH, false);
    OutPlanes out(kW, kH);
    GETestLog log;
    RunPreview(8, true, in, &out);
    EXPECT_TRUE(
        log.HasExact(ANDROID_LOG_INFO, "GEShaderMirror", "[Tamso] load Landscape mirror shader"));
    ExpectImage(in, out, PreviewColumns, false, 1, "mirror preview landscape");

    // The flag is read when the program is loaded: changing it alone changes
    // nothing until the effect is chosen again.
    m_pMan->m_bLandscaped = false;
    ASSERT_TRUE(m_pMan->ProcFrame(0u, 0u, 0, 0));
    OutPlanes again(kW, kH);
    ASSERT_TRUE(m_pMan->MemcpyYUV(again.y.data(), again.uv.data()));
    ExpectImage(in, again, PreviewColumns, false, 1, "mirror preview, flag changed");
    ASSERT_TRUE(m_pMan->ChooseEffect(8, 0));
    ASSERT_TRUE(m_pMan->ProcFrame(0u, 0u, 0, 0));
    ASSERT_TRUE(m_pMan->MemcpyYUV(again.y.data(), again.uv.data()));
    ExpectImage(in, again, PreviewRows, false, 1, "mirror preview, chosen again");
}

TEST_F(EffectPixels, PreviewOfAPictureNarrowerThanItsBuffer) {
    // Only the picture's part of each buffer row is sampled: a 48-wide
    // picture is not squeezed from the whole 64-wide texture.
    const int w = 48;
    SPImage in = Pattern(w, kH, false);
    OutPlanes out(w, kH);
    GETestLog log;
    RunPreview(9, false, in, &out);
    EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, "GEShaderBloom", "[Init] 0.750000:1.000000"));
    ExpectImage(in, out, Identity, true, 1, "bloom preview, 48 wide");
    m_pMan->Deinit();

    OutPlanes mirrored(w, kH);
    RunPreview(8, true, in, &mirrored);
    // The middle of the texture is column 32 whatever the picture's width,
    // so columns 32 to 47 show columns 31 to 16.
    ExpectImage(in, mirrored, PreviewColumns, false, 1, "mirror preview landscape, 48 wide");
}

TEST_F(EffectPixels, MirrorCaptureReflectsEachTileAboutItsOwnMiddle) {
    for (bool landscape : {false, true}) {
        SCOPED_TRACE(landscape ? "landscape" : "portrait");
        SPImage in = Pattern(2 * kW, 2 * kH, false);
        TileServer server(in, m_gb.get());
        std::vector<unsigned char> out;
        GETestLog log;
        RunCapture(8, landscape, in, &server, &out);
        EXPECT_TRUE(log.HasExact(ANDROID_LOG_INFO, "GEShaderMirror",
                                 "[Init] Creating Mirror large shader"));
        // Four tiles of the texture's size, in rows.
        ASSERT_EQ(4u, server.m_calls.size());
        const int origins[4][2] = {{0, 0}, {kW, 0}, {0, kH}, {kW, kH}};
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(origins[i][0], server.m_calls[i].rx) << "tile " << i;
            EXPECT_EQ(origins[i][1], server.m_calls[i].ry) << "tile " << i;
            EXPECT_EQ(kW, server.m_calls[i].rw);
            EXPECT_EQ(kH, server.m_calls[i].rh);
            EXPECT_EQ(kW, server.m_calls[i].dw);  // the buffer's stride
            EXPECT_EQ(kH, server.m_calls[i].dh);
        }
        OutPlanes planes = Planes(out, in.w, in.h);
        ExpectImage(in, planes, landscape ? TileColumns : TileRows, false, 1, "mirror capture");
        m_pMan->Deinit();
    }
}

TEST_F(EffectPixels, BloomCaptureMatchesTheFormulaEverywhere) {
    SPImage in = GreyRamp(2 * kW, 2 * kH);
    TileServer server(in, m_gb.get());
    std::vector<unsigned char> out;
    RunCapture(9, false, in, &server, &out);
    ASSERT_EQ(4u, server.m_calls.size());
    OutPlanes planes = Planes(out, in.w, in.h);
    ExpectImage(in, planes, Identity, true, 1, "bloom capture");
}

TEST_F(EffectPixels, BloomCaptureWithPartialTiles) {
    // 112 x 48: the right-hand tile is widened to 64 and moved left over its
    // neighbour, the bottom row of tiles is 16 high; no seam either way.
    SPImage in = Pattern(112, 48, false);
    TileServer server(in, m_gb.get());
    std::vector<unsigned char> out;
    RunCapture(9, false, in, &server, &out);
    ASSERT_EQ(4u, server.m_calls.size());
    EXPECT_EQ(48, server.m_calls[1].rx);
    EXPECT_EQ(64, server.m_calls[1].rw);
    EXPECT_EQ(32, server.m_calls[2].ry);
    EXPECT_EQ(16, server.m_calls[2].rh);
    OutPlanes planes = Planes(out, in.w, in.h);
    ExpectImage(in, planes, Identity, true, 1, "bloom capture, partial tiles");
}

TEST_F(EffectPixels, EffectsWithoutParametersAcceptAndIgnoreThem) {
    SPImage in = GreyRamp(kW, kH);
    OutPlanes out(kW, kH);
    RunPreview(9, false, in, &out);
    EXPECT_EQ(1, m_pMan->SetParam(0, 1, 2, 3, 4));
    EXPECT_EQ(1, m_pMan->SetParam(1, 500, 2, 3, 4));
    ASSERT_TRUE(m_pMan->ProcFrame(0u, 0u, 0, 0));
    OutPlanes after(kW, kH);
    ASSERT_TRUE(m_pMan->MemcpyYUV(after.y.data(), after.uv.data()));
    EXPECT_EQ(out.y, after.y);
    EXPECT_EQ(out.uv, after.uv);

    ASSERT_TRUE(m_pMan->ChooseEffect(8, 0));
    EXPECT_EQ(1, m_pMan->SetParam(0, 1, 2, 3, 4));
}

}  // namespace
