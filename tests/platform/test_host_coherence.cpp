// Coherence of graphics buffers bound as textures: the gralloc clean carries
// CPU writes to every bound texture and GPU renders to the CPU, in whichever
// direction happened last, and leaves ended bindings, other contexts and
// other memory alone.
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <alloc_controller.h>
#include <android/log.h>
#include <binder/MemoryHeapBase.h>
#include <gralloc_priv.h>
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>
#include <ui/GraphicBuffer.h>

#include <vector>

#include "GETestGL.h"
#include "GETestHostGL.h"
#include "GETestLog.h"

using android::GraphicBuffer;
using android::sp;

namespace {

const int kW = 6;  // rows of 18 (RGB 888) and 12 (RGB 565) bytes: not 4-aligned
const int kH = 3;

struct Format {
    int hal;
    int bpp;
};

const Format kRGBA = {HAL_PIXEL_FORMAT_RGBA_8888, 4};
const Format kFormats[] = {kRGBA, {HAL_PIXEL_FORMAT_RGB_888, 3}, {HAL_PIXEL_FORMAT_RGB_565, 2}};

// Channel values of texel i for pattern `seed`: 8-bit, or 5/6/5-bit for
// RGB 565 (alpha unused below 4 bytes a pixel).
void Channels(const Format& f, int i, int seed, int c[4]) {
    for (int k = 0; k < 4; ++k) {
        c[k] = (i * 37 + k * 91 + seed * 53 + 11) & 0xFF;
    }
    if (f.bpp == 2) {
        c[0] &= 31, c[1] &= 63, c[2] &= 31;
    }
}

// The channel maxima of the format.
void Maxima(const Format& f, float m[4]) {
    m[0] = m[2] = f.bpp == 2 ? 31.0f : 255.0f;
    m[1] = f.bpp == 2 ? 63.0f : 255.0f;
    m[3] = 255.0f;
}

// The bytes the CPU holds for pattern `seed`.
std::vector<unsigned char> CpuBytes(const Format& f, int seed) {
    std::vector<unsigned char> out((size_t)kW * kH * f.bpp);
    for (int i = 0; i < kW * kH; ++i) {
        int c[4];
        Channels(f, i, seed, c);
        unsigned char* p = &out[(size_t)i * f.bpp];
        if (f.bpp == 2) {
            unsigned v = (unsigned)(c[0] << 11 | c[1] << 5 | c[2]);
            p[0] = (unsigned char)v;  // little-endian 16-bit words
            p[1] = (unsigned char)(v >> 8);
        } else {
            for (int k = 0; k < f.bpp; ++k) {
                p[k] = (unsigned char)c[k];
            }
        }
    }
    return out;
}

void Write(const Format& f, GraphicBuffer* gb, int seed) {
    std::vector<unsigned char> bytes = CpuBytes(f, seed);
    memcpy(reinterpret_cast<void*>(reinterpret_cast<const private_handle_t*>(gb->handle)->base),
           bytes.data(), bytes.size());
}

// Paints pattern `seed` into `tex`, texel by texel, through a framebuffer.
void Paint(const Format& f, GLuint tex, int seed) {
    GETestTarget target(tex, kW, kH);
    ASSERT_TRUE(target.Complete());
    float m[4];
    Maxima(f, m);
    for (int i = 0; i < kW * kH; ++i) {
        int c[4];
        Channels(f, i, seed, c);
        target.Fill(i % kW, i / kW, 1, 1, c[0] / m[0], c[1] / m[1], c[2] / m[2],
                    f.bpp == 4 ? c[3] / m[3] : 1.0f);
    }
}

// A shader reading `tex` sees pattern `seed`.
void ExpectSampled(const Format& f, GLuint tex, int seed, const char* what) {
    std::vector<unsigned char> got = GETestSampleTexture(tex, kW, kH);
    float m[4];
    Maxima(f, m);
    for (int i = 0; i < kW * kH; ++i) {
        int c[4];
        Channels(f, i, seed, c);
        for (int k = 0; k < 4; ++k) {
            int want = k == 3 && f.bpp < 4 ? 255 : (int)lround(c[k] * 255.0 / m[k]);
            ASSERT_NEAR(got[(size_t)i * 4 + k], want, f.bpp == 2 ? 1 : 0)
                << what << ", format " << f.hal << " seed " << seed << " texel " << i;
        }
    }
}

void ExpectCpu(const Format& f, GraphicBuffer* gb, int seed, const char* what) {
    std::vector<unsigned char> want = CpuBytes(f, seed);
    const void* p =
        reinterpret_cast<const void*>(reinterpret_cast<const private_handle_t*>(gb->handle)->base);
    EXPECT_EQ(0, memcmp(p, want.data(), want.size()))
        << what << ", format " << f.hal << " seed " << seed;
}

// A new RGBA texture, not bound to any buffer, of its own pattern 8; its name
// the first one generated at or above `atLeast`.
GLuint OwnTexture(GLuint atLeast) {
    GLuint tex = 0;
    do {
        glGenTextures(1, &tex);
    } while (tex < atLeast);
    glBindTexture(GL_TEXTURE_2D, tex);
    std::vector<unsigned char> own = CpuBytes(kRGBA, 8);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, kW, kH, 0, GL_RGBA, GL_UNSIGNED_BYTE, own.data());
    return tex;
}

// A graphics buffer of format `f` bound to a texture through an image.
struct Bound {
    explicit Bound(const Format& f, int seed = -1) : gb(new GraphicBuffer(kW, kH, f.hal, 0x130)) {
        EXPECT_EQ(android::NO_ERROR, gb->initCheck());
        if (seed >= 0) {
            Write(f, gb.get(), seed);
        }
        image = HostMakeImage(gb.get());
        EXPECT_NE(EGL_NO_IMAGE_KHR, image);
        tex = HostBindNewTexture(image);
    }
    ~Bound() {
        if (image != EGL_NO_IMAGE_KHR) {
            eglDestroyImageKHR(eglGetCurrentDisplay(), image);
        }
        glDeleteTextures(1, &tex);
    }
    sp<GraphicBuffer> gb;
    EGLImageKHR image;
    GLuint tex;
};

class HostCoherence : public GLTest {
protected:
    void TearDown() override {
        EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
        GLTest::TearDown();
    }
};

TEST_F(HostCoherence, BothDirectionsForEachFormat) {
    for (const Format& f : kFormats) {
        // Bytes written before the image exists reach the texture at binding.
        Bound b(f, 1);
        ExpectSampled(f, b.tex, 1, "at binding");
        // CPU to GPU at the clean, not before.
        Write(f, b.gb.get(), 2);
        ExpectSampled(f, b.tex, 1, "CPU write before the clean");
        EXPECT_EQ(0, HostClean(b.gb.get()));
        ExpectSampled(f, b.tex, 2, "CPU write after the clean");
        ExpectCpu(f, b.gb.get(), 2, "CPU bytes kept");
        // GPU to CPU at the clean, not before; a second clean changes nothing.
        Paint(f, b.tex, 3);
        ExpectCpu(f, b.gb.get(), 2, "render before the clean");
        EXPECT_EQ(0, HostClean(b.gb.get()));
        ExpectCpu(f, b.gb.get(), 3, "render after the clean");
        EXPECT_EQ(0, HostClean(b.gb.get()));
        ExpectCpu(f, b.gb.get(), 3, "after a second clean");
        ExpectSampled(f, b.tex, 3, "texture after two cleans");
        // Alternation.
        for (int seed = 10; seed < 16; seed += 2) {
            Write(f, b.gb.get(), seed);
            ASSERT_EQ(0, HostClean(b.gb.get()));
            ExpectSampled(f, b.tex, seed, "CPU round");
            Paint(f, b.tex, seed + 1);
            ASSERT_EQ(0, HostClean(b.gb.get()));
            ExpectCpu(f, b.gb.get(), seed + 1, "GPU round");
        }
    }
}

TEST_F(HostCoherence, TwoTexturesOverOneBuffer) {
    Bound a(kRGBA, 4);
    EGLImageKHR imageB = HostMakeImage(a.gb.get());
    GLuint texB = HostBindNewTexture(imageB);
    ExpectSampled(kRGBA, texB, 4, "texture B at binding");
    // A render into either texture reaches the CPU and the other texture.
    Paint(kRGBA, texB, 5);
    ASSERT_EQ(0, HostClean(a.gb.get()));
    ExpectCpu(kRGBA, a.gb.get(), 5, "render into B");
    ExpectSampled(kRGBA, a.tex, 5, "texture A after render into B");
    Paint(kRGBA, a.tex, 6);
    ASSERT_EQ(0, HostClean(a.gb.get()));
    ExpectCpu(kRGBA, a.gb.get(), 6, "render into A");
    ExpectSampled(kRGBA, texB, 6, "texture B after render into A");
    eglDestroyImageKHR(eglGetCurrentDisplay(), imageB);
    glDeleteTextures(1, &texB);
}

TEST_F(HostCoherence, EndedBindingsAreLeftAlone) {
    // A destroyed image: its texture keeps its pixels, nor is a render into
    // it read back.
    Bound b(kRGBA, 1);
    ASSERT_TRUE(eglDestroyImageKHR(eglGetCurrentDisplay(), b.image));
    b.image = EGL_NO_IMAGE_KHR;
    Write(kRGBA, b.gb.get(), 2);
    EXPECT_EQ(0, HostClean(b.gb.get()));
    ExpectSampled(kRGBA, b.tex, 1, "texture of a destroyed image");
    Paint(kRGBA, b.tex, 3);
    EXPECT_EQ(0, HostClean(b.gb.get()));
    ExpectCpu(kRGBA, b.gb.get(), 2, "CPU bytes");

    // A deleted texture: a new one, which GL may give the same name, holds
    // its own pixels.
    Bound d(kRGBA);
    glDeleteTextures(1, &d.tex);
    GLuint other = OwnTexture(0);
    Write(kRGBA, d.gb.get(), 9);
    EXPECT_EQ(0, HostClean(d.gb.get()));
    ExpectSampled(kRGBA, other, 8, "new texture");
    ExpectCpu(kRGBA, d.gb.get(), 9, "CPU bytes");
    d.tex = other;
}

TEST_F(HostCoherence, CleanRestoresGLState) {
    const Format f = {HAL_PIXEL_FORMAT_RGB_888, 3};  // the transfers change the alignments
    Bound b(f);
    GETestTarget target(2, 2);
    GLuint bound = 0;
    glGenTextures(1, &bound);
    glBindTexture(GL_TEXTURE_2D, bound);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 8);
    glPixelStorei(GL_PACK_ALIGNMENT, 2);
    const GLenum names[] = {GL_TEXTURE_BINDING_2D, GL_FRAMEBUFFER_BINDING, GL_UNPACK_ALIGNMENT,
                            GL_PACK_ALIGNMENT};
    const GLint want[] = {(GLint)bound, (GLint)target.Fbo(), 8, 2};
    Write(f, b.gb.get(), 2);
    for (const char* what : {"upload", "read back"}) {
        ASSERT_EQ(0, HostClean(b.gb.get()));
        for (int i = 0; i < 4; ++i) {
            GLint v = 0;
            glGetIntegerv(names[i], &v);
            EXPECT_EQ(want[i], v) << what << " 0x" << std::hex << names[i];
        }
    }
    ExpectCpu(f, b.gb.get(), 2, "CPU bytes");
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glDeleteTextures(1, &bound);
}

TEST_F(HostCoherence, BindingOfAnotherContextIsSkipped) {
    EGLDisplay dpy = eglGetCurrentDisplay();
    EGLContext mine = eglGetCurrentContext();
    EGLSurface surface = eglGetCurrentSurface(EGL_DRAW);
    EGLContext other = HostOtherContext();
    ASSERT_NE(EGL_NO_CONTEXT, other);
    sp<GraphicBuffer> gb = new GraphicBuffer(kW, kH, kRGBA.hal, 0x130);
    EGLImageKHR image = HostMakeImage(gb.get());
    ASSERT_TRUE(eglMakeCurrent(dpy, surface, surface, other));
    GLuint theirs = HostBindNewTexture(image);
    ASSERT_TRUE(eglMakeCurrent(dpy, surface, surface, mine));

    // The same name in this context is a texture of its own.
    GLuint ours = OwnTexture(theirs);
    ASSERT_EQ(theirs, ours);
    Write(kRGBA, gb.get(), 9);
    EXPECT_EQ(0, HostClean(gb.get()));
    ExpectSampled(kRGBA, ours, 8, "this context's texture");
    ExpectCpu(kRGBA, gb.get(), 9, "CPU bytes");
    eglDestroyImageKHR(dpy, image);
    eglDestroyContext(dpy, other);
    glDeleteTextures(1, &ours);
}

// A clean on memory that is no graphics buffer is a successful no-op; bad
// arguments are refused.
TEST_F(HostCoherence, CleanOnOtherMemoryAndBadArguments) {
    sp<android::MemoryHeapBase> heap = new android::MemoryHeapBase(4096, 0x200);
    ASSERT_GE(heap->getHeapID(), 0);
    unsigned char* p = static_cast<unsigned char*>(heap->getBase());
    for (int i = 0; i < 4096; ++i) {
        p[i] = (unsigned char)(i * 13);
    }
    sp<gralloc::IMemAlloc> alloc = gralloc::IAllocController::getInstance()->getAllocator(0);
    EXPECT_EQ(0, alloc->clean_buffer(p, 4096, 0, heap->getHeapID(), gralloc::CACHE_CLEAN));
    EXPECT_EQ(0, alloc->clean_buffer(p, 1024, 512, heap->getHeapID(), gralloc::CACHE_CLEAN));
    for (int i = 0; i < 4096; ++i) {
        ASSERT_EQ((unsigned char)(i * 13), p[i]) << i;
    }

    sp<GraphicBuffer> gb = new GraphicBuffer(kW, kH, kRGBA.hal, 0x130);
    const private_handle_t* h = reinterpret_cast<const private_handle_t*>(gb->handle);
    void* base = (void*)h->base;
    const size_t size = (size_t)h->size;
    GETestLog log;
    EXPECT_LT(alloc->clean_buffer(base, size, 0, h->fd, 1), 0);
    EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, "GEHostAlloc", "unknown operation 1")) << log.Dump();
    EXPECT_LT(alloc->clean_buffer(nullptr, 16, 0, h->fd, gralloc::CACHE_CLEAN), 0);
    EXPECT_LT(alloc->clean_buffer(base, size + 1, 0, h->fd, gralloc::CACHE_CLEAN), 0);
    EXPECT_LT(alloc->clean_buffer(base, size, 4, h->fd, gralloc::CACHE_CLEAN), 0);
    EXPECT_EQ(0, alloc->clean_buffer(base, 16, 8, h->fd, gralloc::CACHE_CLEAN));
}

// An image holds a reference to its buffer, enough to outlive the caller's.
TEST_F(HostCoherence, ImageHoldsItsBuffer) {
    sp<GraphicBuffer> gb = new GraphicBuffer(kW, kH, kRGBA.hal, 0x130);
    Write(kRGBA, gb.get(), 5);
    EGLImageKHR image = HostMakeImage(gb.get());
    EXPECT_EQ(2, gb->getStrongCount());
    android::wp<GraphicBuffer> weak = gb;
    gb.clear();
    GLuint tex = HostBindNewTexture(image);
    ExpectSampled(kRGBA, tex, 5, "texture of a buffer held by its image");
    EXPECT_TRUE(eglDestroyImageKHR(eglGetCurrentDisplay(), image));
    EXPECT_EQ(nullptr, weak.promote());
    glDeleteTextures(1, &tex);
}

}  // namespace
