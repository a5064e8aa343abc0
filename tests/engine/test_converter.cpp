// The GPU YUV output converter of the effect base class: plane sizes and
// refusals, the CPU copy out of the output textures (placement, overlap
// trimming, cutting), and the CPU block copy between streaming textures.
// (The passes themselves are checked end to end with the effects.)
#include <GLES2/gl2.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "GETestEngine.h"
#include "GETestGL.h"
#include "GETestLog.h"
#include "engine/GEShader.h"
#include "gl/GLFbo.h"
#include "gl/GLTexture.h"

using namespace getest;

namespace {

const int E = ANDROID_LOG_ERROR;

GELogTag s_probeLog("GEConverterProbe");

// A bare effect that lets the tests reach the converter's state.
class ConverterProbe : public GEShader {
public:
    ConverterProbe() : GEShader(s_probeLog) {}
    ~ConverterProbe() override { Deinit(); }
    int ProcBlock(unsigned, unsigned, int, int) override { return 1; }
    int ProcFrame(unsigned, unsigned, int, int) override { return 1; }
    int ProcFrame(unsigned char*, unsigned char*, int, int) override { return 1; }
    using GEShader::ProcFrame;
    int SetParam(unsigned, int, int, int, int) override { return 1; }

    using GEShader::m_nOverlapX;
    using GEShader::m_nOverlapY;
    using GEShader::m_pDstFbo;
    using GEShader::m_pUVTex;
    using GEShader::m_pYTex;
    using GEShader::m_pYUVSrcTex;
};

class ConverterTest : public GLTest {
protected:
    // The converter up for a w x h source and output, a distinct RGBA value in
    // every source pixel.
    void Up(int w, int h) {
        ASSERT_EQ(1, m_probe.InitYUVConverter(w, h, w, h));
        std::vector<unsigned char> px((size_t)w * h * 4);
        for (size_t i = 0; i < px.size(); ++i) {
            px[i] = (unsigned char)(i % 4 == 3 ? 255 : i * 37 % 251);
        }
        ASSERT_EQ(1, m_probe.m_pYUVSrcTex->UpdateNormalTexture(px.data(), w, h));
    }
    void TearDown() override {
        m_probe.Deinit();
        GLTest::TearDown();
    }
    ConverterProbe m_probe;
};

// Planes of rows ((outW / 4 + 31) & ~31) * 4 bytes, the chroma plane half
// as high; sizes that are not positive, and a plane no buffer can hold, are
// refused, and so is everything on a converter that is not up.
TEST_F(ConverterTest, PlaneSizesAndRefusals) {
    ASSERT_EQ(1, m_probe.InitYUVConverter(64, 32, 516, 6));
    EXPECT_EQ((std::vector<unsigned>{160, 160, 6, 160, 3}),
              (std::vector<unsigned>{m_probe.m_pYTex->GetWidth(), m_probe.m_pYTex->GetStride(),
                                     m_probe.m_pYTex->GetHeight(), m_probe.m_pUVTex->GetWidth(),
                                     m_probe.m_pUVTex->GetHeight()}));
    EXPECT_EQ(m_probe.m_pYUVSrcTex, m_probe.m_pDstFbo->GetTexture());
    GETestLog log;
    // Sizes that are not positive, and a plane no buffer can hold.
    for (const auto& s : {std::vector<int>{0, 32, 64, 32},
                          {64, -1, 64, 32},
                          {64, 32, 0, 32},
                          {64, 32, 64, 0},
                          {64, 32, 65536, 65536}}) {
        EXPECT_EQ(0, m_probe.InitYUVConverter(s[0], s[1], s[2], s[3])) << s[2] << " x " << s[3];
    }
    EXPECT_TRUE(log.Has(E, "GEShader", "[InitYUVConverter] bad size src 64x32 out 64x0"));
    m_probe.DeinitYUVConverter();
    EXPECT_EQ(nullptr, m_probe.GetYDataBuf());
    EXPECT_EQ(0, m_probe.ConvertYUV(0, 0));
    EXPECT_EQ(0, m_probe.ConvertYUV(0, 0, 64, 32));
    EXPECT_EQ(2, log.Count("[ConvertYUV] converter not initialized"));
    std::vector<unsigned char> y(64, kPoison), uv(64, kPoison);
    EXPECT_EQ(0, m_probe.BlockCopyYUV(y.data(), uv.data(), 8, 8, 0, 0, 8, 8));
    EXPECT_TRUE(log.Has(E, "GEShader", "[BlockCopyYUV] converter not initialized"));
    EXPECT_EQ(std::vector<unsigned char>(64, kPoison), y);
}

// BlockCopyYUV after a whole conversion, into poisoned W x H planes with
// guard bytes: luma rows [r0, r1) and columns [c0, c1) hold the converted
// luma at (c - x, r - y); chroma row r / 2 of each even r in that range holds
// converted chroma row (r - y) / 2 when r / 2 is below H / 2; every other
// byte is untouched.
TEST_F(ConverterTest, BlockCopyPlacesTrimsAndCutsBlocks) {
    Up(64, 32);
    ASSERT_EQ(1, m_probe.ConvertYUV(0, 0));
    glFinish();
    ASSERT_EQ(1, m_probe.m_pYTex->clean_buffer());
    ASSERT_EQ(1, m_probe.m_pUVTex->clean_buffer());
    const int kPitch = 128;  // rows of the output textures' buffers
    const std::vector<unsigned char> yRef(m_probe.GetYDataBuf(),
                                          m_probe.GetYDataBuf() + kPitch * 32);
    const std::vector<unsigned char> uvRef(m_probe.GetUVDataBuf(),
                                           m_probe.GetUVDataBuf() + kPitch * 16);
    const struct {
        const char* what;
        unsigned ovX, ovY;
        int W, H, x, y, w, h, r0, r1, c0, c1;
    } cases[] = {
        {"inside", 0, 0, 100, 40, 20, 6, 32, 16, 6, 22, 20, 52},
        {"whole", 0, 0, 100, 40, 0, 0, 64, 32, 0, 32, 0, 64},
        {"overlaps: skip 4 columns, 2 rows", 8, 4, 100, 40, 20, 6, 32, 16, 8, 22, 24, 52},
        {"overlaps at x 0: no column skipped", 8, 4, 100, 40, 0, 6, 32, 16, 8, 22, 0, 32},
        {"overlaps at y 0: no row skipped", 8, 4, 100, 40, 20, 0, 32, 16, 0, 16, 24, 52},
        {"past the right and bottom edges", 0, 0, 40, 20, 24, 10, 32, 16, 10, 20, 24, 40},
        {"before the left and top edges", 0, 0, 40, 20, -8, -2, 32, 16, 0, 14, 0, 24},
        // Luma row 20 has no chroma row to go to.
        {"odd height", 0, 0, 40, 21, 0, 5, 32, 16, 5, 21, 0, 32},
        // Only what the output textures hold (32 rows of 128 bytes) is read.
        {"larger than the outputs", 0, 0, 300, 80, 10, 4, 200, 70, 4, 36, 10, 138},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        m_probe.m_nOverlapX = c.ovX;
        m_probe.m_nOverlapY = c.ovY;
        const size_t ny = (size_t)c.W * c.H, nuv = (size_t)c.W * (c.H / 2);
        std::vector<unsigned char> dy(ny + kGuard, kPoison), duv(nuv + kGuard, kPoison);
        ASSERT_EQ(1, m_probe.BlockCopyYUV(dy.data(), duv.data(), c.W, c.H, c.x, c.y, c.w, c.h));
        int bad = 0;
        for (size_t i = 0; i < dy.size(); ++i) {
            const int r = (int)(i / c.W), col = (int)(i % c.W);
            const bool in = i < ny && r >= c.r0 && r < c.r1 && col >= c.c0 && col < c.c1;
            bad += dy[i] != (in ? yRef[(size_t)(r - c.y) * kPitch + (col - c.x)] : kPoison);
        }
        for (size_t i = 0; i < duv.size(); ++i) {
            const int r = 2 * (int)(i / c.W), col = (int)(i % c.W);
            const bool in = i < nuv && r >= c.r0 && r < c.r1 && col >= c.c0 && col < c.c1;
            bad += duv[i] != (in ? uvRef[(size_t)((r - c.y) / 2) * kPitch + (col - c.x)] : kPoison);
        }
        EXPECT_EQ(0, bad);
    }
    GETestLog log;
    std::vector<unsigned char> uv(64 * 16, kPoison);
    EXPECT_EQ(0, m_probe.BlockCopyYUV(nullptr, uv.data(), 64, 32, 0, 0, 64, 32));
    EXPECT_EQ(0, m_probe.BlockCopyYUV(uv.data(), nullptr, 64, 32, 0, 0, 64, 32));
    EXPECT_TRUE(log.Has(E, "GEShader", "[BlockCopyYUV] pDstYStart (0) or pDstUVStart ("));
    EXPECT_EQ(std::vector<unsigned char>(64 * 16, kPoison), uv);
}

// CPU block copies between streaming textures of the same format, cut to
// both; mixed, unsupported and GPU-only textures are refused untouched.
TEST_F(ConverterTest, BlockCopyBetweenStreamingTextures) {
    auto fill = [](GLTexture* t, unsigned char seed) {
        unsigned char* p = t->GetSTDataBuf();
        const size_t n = (size_t)t->GetStride() * t->GetHeight() * t->GetBytesPerPixel();
        for (size_t i = 0; i < n; ++i) {
            p[i] = (unsigned char)(i * 7 + seed);
        }
        return std::vector<unsigned char>(p, p + n);
    };
    for (unsigned bpp : {4u, 2u}) {
        SCOPED_TRACE(bpp);
        const GLenum format = bpp == 4 ? GL_RGBA : GL_RGB;
        const GLenum type = bpp == 4 ? GL_UNSIGNED_BYTE : GL_UNSIGNED_SHORT_5_6_5;
        GLTexture src, dst;
        ASSERT_EQ(1, src.Init(format, type, 32, 8, 1));
        ASSERT_EQ(1, dst.Init(format, type, 64, 6, 1));
        const std::vector<unsigned char> s = fill(&src, 3);
        std::vector<unsigned char> want = fill(&dst, 200);
        // Inside; past the destination's right and bottom edges; before the
        // source's and the destination's origins.
        const int blocks[3][10] = {{3, 1, 5, 2, 7, 4, 3, 1, 5, 2},     // dx dy w h sx sy, then
                                   {60, 4, 8, 5, 0, 0, 60, 4, 4, 2},   // the part copied
                                   {-2, -1, 6, 4, 0, 0, 0, 0, 4, 3}};  // (dx dy w h)
        for (const auto& b : blocks) {
            ASSERT_EQ(1, m_probe.BlockCopy(&dst, b[0], b[1], b[2], b[3], &src, b[4], b[5]));
            for (int j = 0; j < b[9]; ++j) {
                const int sy = b[5] + b[7] - b[1] + j, sx = b[4] + b[6] - b[0];
                memcpy(&want[((size_t)(b[7] + j) * 64 + b[6]) * bpp],
                       &s[((size_t)sy * 32 + sx) * bpp], (size_t)b[8] * bpp);
            }
        }
        EXPECT_TRUE(want == std::vector<unsigned char>(dst.GetSTDataBuf(),
                                                       dst.GetSTDataBuf() + want.size()));
    }
    GETestLog log;
    GLTexture rgba, rgb565, rgb888a, rgb888b, normal;
    ASSERT_TRUE(rgba.Init(GL_RGBA, GL_UNSIGNED_BYTE, 32, 4, 1) &&
                rgb565.Init(GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 32, 4, 1) &&
                rgb888a.Init(GL_RGB, GL_UNSIGNED_BYTE, 32, 4, 1) &&
                rgb888b.Init(GL_RGB, GL_UNSIGNED_BYTE, 32, 4, 1) &&
                normal.Init(GL_RGBA, GL_UNSIGNED_BYTE, 32, 4, 0));
    const std::vector<unsigned char> before = fill(&rgba, 1);
    const std::pair<GLTexture*, GLTexture*> refused[] = {{&rgba, &rgb565},     {&rgba, &rgb888a},
                                                         {&rgb888b, &rgb888a}, {&rgba, nullptr},
                                                         {&rgba, &normal},     {&normal, &rgba}};
    for (const auto& r : refused) {
        EXPECT_EQ(0, m_probe.BlockCopy(r.first, 0, 0, 4, 4, r.second, 0, 0));
    }
    EXPECT_TRUE(log.Has(E, "GEShader", "[BlockCopy] inconsistent format. src(6407) dst(6408)"));
    EXPECT_TRUE(before == std::vector<unsigned char>(rgba.GetSTDataBuf(),
                                                     rgba.GetSTDataBuf() + before.size()));
}

}  // namespace
