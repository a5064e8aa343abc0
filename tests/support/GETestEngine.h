// Helpers of the engine and effect tests: the plug-in's side of a capture
// (a converter that serves tiles of a semi-planar image and records what it
// was asked for), an effect manager that shows its state, and a manager
// brought up over a graphics buffer as the plug-in brings it up.
#ifndef POSTEFFECT_TESTS_GETESTENGINE_H
#define POSTEFFECT_TESTS_GETESTENGINE_H

#include <gtest/gtest.h>
#include <ui/GraphicBuffer.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "GETestFrames.h"
#include "IPostEffect.h"
#include "engine/GEManager.h"
#include "engine/GEShader.h"
#include "engine/convert/sp2yuvx.h"
#include "plugin/GPUPostEffect.h"

namespace getest {

// Guard bytes behind every output, and the value they (and the outputs) are
// poisoned with.
const size_t kGuard = 64;
const unsigned char kPoison = 0xA5;

struct Rect {
    int x, y, w, h;
};

// "x,y,w,h x,y,w,h ...": tables of expected rectangles are written so.
inline std::string ToString(const std::vector<Rect>& rects) {
    std::ostringstream s;
    for (const Rect& r : rects) {
        s << (&r == rects.data() ? "" : " ") << r.x << "," << r.y << "," << r.w << "," << r.h;
    }
    return s.str();
}

// Each tile is converted from `img` into the effect's texture as the
// plug-in's convertRect does, then `clean` runs so that the GPU sees it;
// every rectangle must lie inside the image and fit the destination.
// Without an image the calls are only recorded.
class TileServer : public IYUVConverter {
public:
    struct Call {
        void* dst;
        int dw, dh;
    };
    explicit TileServer(const SPImage* img = nullptr, std::function<void()> clean = nullptr)
        : m_pImg(img), m_clean(clean) {}
    int convertRect(void* dst, int dw, int dh, int rx, int ry, int rw, int rh) override {
        rects.push_back({rx, ry, rw, rh});
        calls.push_back({dst, dw, dh});
        if (dst != nullptr && m_pImg != nullptr) {
            EXPECT_TRUE(rx >= 0 && ry >= 0 && rx % 2 == 0 && ry % 2 == 0 && rw >= 1 && rh >= 1 &&
                        rx + rw <= m_pImg->w && ry + rh <= m_pImg->h && rw <= dw && rh <= dh)
                << "rectangle " << ToString({{rx, ry, rw, rh}}) << " of " << m_pImg->w << " x "
                << m_pImg->h << " into " << dw << " x " << dh;
            sp2yuvxs_any(dst, dw, dh, m_pImg->YPlane(), m_pImg->UVPlane(), m_pImg->w, m_pImg->h, rx,
                         ry, rw, rh);
            if (m_clean) {
                m_clean();
            }
        }
        return 1;
    }
    std::vector<Rect> rects;
    std::vector<Call> calls;

private:
    const SPImage* m_pImg;
    std::function<void()> m_clean;
};

// An effect manager whose state the tests can read and change.
class ManagerProbe : public GEManager {
public:
    ManagerProbe() {}
    // A manager without EGL, like the plug-in's test double.
    struct WithoutEGL {};
    explicit ManagerProbe(WithoutEGL) : GEManager(NoEGL()) {}

    bool EGLReady() const { return m_bEGLReady; }
    bool FrameReady() const { return m_bFrameReady; }
    int CurrEffect() const { return m_nCurrEffect; }
    GEShader* CurrShader() const { return m_pCurrShader; }
    GLTexture* SrcTexture() const { return m_pSrcTexture; }
    bool CaptureMode() const { return m_bCaptureMode; }
    int DispWidth() const { return m_nDispWidth; }
    int DispHeight() const { return m_nDispHeight; }
    void SetViewportX(int x) { m_nViewportX = x; }
    void SetDispWidth(int w) { m_nDispWidth = w; }

    // Puts `shader` (then owned by the manager) in place of the current
    // effect, as if it had been chosen; with `init` it is initialised over
    // the manager's texture, viewport and converter as ChooseEffect does.
    bool Inject(GEShader* shader, bool capture, bool init) {
        delete m_pCurrShader;
        m_pCurrShader = shader;
        m_bCaptureMode = capture;
        m_nCurrEffect = 0;
        return !init || shader->Init(m_pSrcTexture, m_nEffectArg, (unsigned)m_nViewportX,
                                     (unsigned)m_nViewportY, (unsigned)m_nViewportW,
                                     (unsigned)m_nViewportH, capture ? 1 : 0, m_pConverter) != 0;
    }
};

// A graphics buffer as the plug-in allocates it for a w x h preview: RGBA,
// rows aligned to 32 pixels, software-write and texture usage.
inline android::sp<android::GraphicBuffer> NewFrameBuffer(int w, int h) {
    android::sp<android::GraphicBuffer> gb =
        new android::GraphicBuffer((uint32_t)((w + 31) & ~31), (uint32_t)h, 1, 0x130);
    EXPECT_EQ(android::NO_ERROR, gb->initCheck());
    return gb;
}

// A manager (EGL up) and the buffer its input texture wraps.
class ManagerRig {
public:
    explicit ManagerRig(int bufW = 64, int bufH = 32) : gb(NewFrameBuffer(bufW, bufH)) {}

    // Init over the buffer with the viewport (x, y, w, h), as the plug-in
    // calls it.
    bool Init(unsigned w, unsigned h, IYUVConverter* conv = nullptr, unsigned x = 0,
              unsigned y = 0) {
        return man.Init(gb->getNativeBuffer(), (unsigned)gb->getWidth(), (unsigned)gb->getHeight(),
                        0, x, y, w, h, conv);
    }
    // Chooses a table effect; Mirror reads the landscape flag.
    bool Choose(unsigned effect, bool capture, bool landscape = false) {
        man.m_bLandscaped = landscape;
        return man.ChooseEffect(effect, capture ? 1 : 0);
    }
    // Makes the GPU see what the CPU wrote into the buffer.
    void Clean() { EXPECT_EQ(1, korvo::GPUPostEffect::clean_buffer(gb)); }
    // One preview frame of `img` (at most the buffer's size): expanded into
    // the buffer as the plug-in does it (the last column and row repeated
    // into the padding), processed, both planes copied out. The planes come
    // back one after the other; the guard bytes behind them are checked.
    std::vector<unsigned char> Preview(const SPImage& img) {
        void* px = nullptr;
        EXPECT_EQ(android::NO_ERROR, gb->lock(android::GraphicBuffer::USAGE_SW_WRITE_OFTEN, &px));
        // As the plug-in expands a frame: the rows padded to the stride with
        // their last pixel, the rows below with the last row.
        sp2yuvxs_any(px, (int)gb->getStride(), (int)gb->getHeight(), img.YPlane(), img.UVPlane(),
                     img.w, img.h, 0, 0, img.w, img.h);
        gb->unlock();
        Clean();
        const size_t n = (size_t)img.w * img.h;
        std::vector<unsigned char> out(n * 3 / 2 + kGuard, kPoison);
        EXPECT_TRUE(man.ProcFrame(0u, 0u, 0, 0));
        EXPECT_TRUE(man.MemcpyYUV(out.data(), out.data() + n));
        ExpectGuards(out, n * 3 / 2);
        out.resize(n * 3 / 2);
        return out;
    }
    // The kGuard bytes behind the first `n` of `out` are still `poison`.
    static void ExpectGuards(const std::vector<unsigned char>& out, size_t n,
                             unsigned char poison = kPoison) {
        ASSERT_EQ(n + kGuard, out.size());
        for (size_t i = n; i < out.size(); ++i) {
            ASSERT_EQ(poison, out[i]) << "guard byte " << i - n;
        }
    }

    android::sp<android::GraphicBuffer> gb;  // released after the manager
    ManagerProbe man;
};

}  // namespace getest

#endif
