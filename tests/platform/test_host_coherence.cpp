// Coherence of graphics buffers bound as textures: the gralloc clean carries
// CPU writes to every bound texture and GPU renders to the CPU, in whichever
// direction happened last.
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <alloc_controller.h>
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
    const char* name;
};

const Format kFormats[] = {{HAL_PIXEL_FORMAT_RGBA_8888, 4, "RGBA_8888"},
                           {HAL_PIXEL_FORMAT_RGB_888, 3, "RGB_888"},
                           {HAL_PIXEL_FORMAT_RGB_565, 2, "RGB_565"}};

unsigned char* Pixels(GraphicBuffer* gb) {
    void* p = nullptr;
    EXPECT_EQ(android::NO_ERROR, gb->lock(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &p));
    return static_cast<unsigned char*>(p);
}

// Channel values of texel i for a pattern `seed`: 8-bit for the 8-bit
// formats, 5/6/5-bit for RGB 565.
void Channels(const Format& f, int i, int seed, int c[4]) {
    for (int k = 0; k < 4; ++k) {
        c[k] = (i * 37 + k * 91 + seed * 53 + 11) & 0xFF;
    }
    if (f.bpp == 2) {
        c[0] &= 31;
        c[1] &= 63;
        c[2] &= 31;
    }
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
            p[0] = (unsigned char)(v & 0xFF);  // little-endian 16-bit words
            p[1] = (unsigned char)(v >> 8);
        } else {
            for (int k = 0; k < f.bpp; ++k) {
                p[k] = (unsigned char)c[k];
            }
        }
    }
    return out;
}

// The RGBA a shader reads for pattern `seed` (one 8-bit value per channel).
std::vector<int> SampledRGBA(const Format& f, int seed) {
    std::vector<int> out((size_t)kW * kH * 4);
    for (int i = 0; i < kW * kH; ++i) {
        int c[4];
        Channels(f, i, seed, c);
        int* p = &out[(size_t)i * 4];
        if (f.bpp == 2) {
            p[0] = (int)lround(c[0] * 255.0 / 31.0);
            p[1] = (int)lround(c[1] * 255.0 / 63.0);
            p[2] = (int)lround(c[2] * 255.0 / 31.0);
            p[3] = 255;
        } else {
            p[0] = c[0];
            p[1] = c[1];
            p[2] = c[2];
            p[3] = f.bpp == 4 ? c[3] : 255;
        }
    }
    return out;
}

// The clear colours that paint pattern `seed` into a texture.
std::vector<float> PaintColours(const Format& f, int seed) {
    std::vector<float> out((size_t)kW * kH * 4);
    for (int i = 0; i < kW * kH; ++i) {
        int c[4];
        Channels(f, i, seed, c);
        float* p = &out[(size_t)i * 4];
        if (f.bpp == 2) {
            p[0] = c[0] / 31.0f;
            p[1] = c[1] / 63.0f;
            p[2] = c[2] / 31.0f;
            p[3] = 1.0f;
        } else {
            for (int k = 0; k < 4; ++k) {
                p[k] = c[k] / 255.0f;
            }
        }
    }
    return out;
}

void ExpectSampled(const Format& f, GLuint tex, int seed, const char* what) {
    std::vector<unsigned char> got = HostSampleThroughShader(tex, kW, kH);
    std::vector<int> want = SampledRGBA(f, seed);
    const int tolerance = f.bpp == 2 ? 1 : 0;
    int bad = 0;
    for (size_t i = 0; i < want.size() && bad < 4; ++i) {
        if (abs((int)got[i] - want[i]) > tolerance) {
            ADD_FAILURE() << what << " " << f.name << " seed " << seed << ": byte " << i << " is "
                          << (int)got[i] << ", want " << want[i];
            ++bad;
        }
    }
}

void ExpectCpu(const Format& f, GraphicBuffer* gb, int seed, const char* what) {
    std::vector<unsigned char> want = CpuBytes(f, seed);
    EXPECT_EQ(0, memcmp(Pixels(gb), want.data(), want.size()))
        << what << " " << f.name << " seed " << seed;
}

class HostCoherence : public GLTest {
protected:
    void TearDown() override {
        EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
        GLTest::TearDown();
    }
};

TEST_F(HostCoherence, CpuWritesReachAShaderAfterClean) {
    for (const Format& f : kFormats) {
        sp<GraphicBuffer> gb = new GraphicBuffer(kW, kH, f.hal, 0x130);
        ASSERT_EQ(android::NO_ERROR, gb->initCheck());
        // Bytes written before the image exists reach the texture at binding.
        std::vector<unsigned char> first = CpuBytes(f, 1);
        memcpy(Pixels(gb.get()), first.data(), first.size());
        EGLImageKHR image = HostMakeImage(gb.get());
        ASSERT_NE(EGL_NO_IMAGE_KHR, image);
        GLuint tex = HostBindNewTexture(image);
        ExpectSampled(f, tex, 1, "at binding");

        std::vector<unsigned char> second = CpuBytes(f, 2);
        memcpy(Pixels(gb.get()), second.data(), second.size());
        ExpectSampled(f, tex, 1, "before the clean");  // not yet visible
        EXPECT_EQ(0, HostClean(gb.get()));
        ExpectSampled(f, tex, 2, "after the clean");
        ExpectCpu(f, gb.get(), 2, "CPU bytes kept");

        eglDestroyImageKHR(eglGetCurrentDisplay(), image);
        glDeleteTextures(1, &tex);
    }
}

TEST_F(HostCoherence, GpuRendersReachTheCpuAfterClean) {
    for (const Format& f : kFormats) {
        sp<GraphicBuffer> gb = new GraphicBuffer(kW, kH, f.hal, 0x130);
        EGLImageKHR image = HostMakeImage(gb.get());
        GLuint tex = HostBindNewTexture(image);
        // Poison the CPU side through a clean, then render over it.
        std::vector<unsigned char> poison = CpuBytes(f, 7);
        memcpy(Pixels(gb.get()), poison.data(), poison.size());
        ASSERT_EQ(0, HostClean(gb.get()));
        HostPaintTexels(tex, kW, kH, PaintColours(f, 3));
        ExpectCpu(f, gb.get(), 7, "before the clean");
        EXPECT_EQ(0, HostClean(gb.get()));
        ExpectCpu(f, gb.get(), 3, "after the clean");
        // A second clean with nothing new on either side changes nothing.
        EXPECT_EQ(0, HostClean(gb.get()));
        ExpectCpu(f, gb.get(), 3, "after a second clean");
        ExpectSampled(f, tex, 3, "texture after two cleans");

        eglDestroyImageKHR(eglGetCurrentDisplay(), image);
        glDeleteTextures(1, &tex);
    }
}

TEST_F(HostCoherence, ShaderDrawReachesTheCpu) {
    sp<GraphicBuffer> gb = new GraphicBuffer(kW, kH, HAL_PIXEL_FORMAT_RGBA_8888, 0x130);
    EGLImageKHR image = HostMakeImage(gb.get());
    GLuint tex = HostBindNewTexture(image);
    HostDrawColour(tex, kW, kH, 64 / 255.0f, 128 / 255.0f, 192 / 255.0f, 1.0f);
    ASSERT_EQ(0, HostClean(gb.get()));
    const unsigned char* p = Pixels(gb.get());
    for (int i = 0; i < kW * kH; ++i) {
        ASSERT_EQ(64, p[i * 4 + 0]) << i;
        ASSERT_EQ(128, p[i * 4 + 1]) << i;
        ASSERT_EQ(192, p[i * 4 + 2]) << i;
        ASSERT_EQ(255, p[i * 4 + 3]) << i;
    }
    eglDestroyImageKHR(eglGetCurrentDisplay(), image);
    glDeleteTextures(1, &tex);
}

TEST_F(HostCoherence, RepeatedAlternation) {
    for (const Format& f : kFormats) {
        sp<GraphicBuffer> gb = new GraphicBuffer(kW, kH, f.hal, 0x130);
        EGLImageKHR image = HostMakeImage(gb.get());
        GLuint tex = HostBindNewTexture(image);
        for (int round = 0; round < 4; ++round) {
            const int cpuSeed = 10 + round * 2;
            const int gpuSeed = 11 + round * 2;
            std::vector<unsigned char> bytes = CpuBytes(f, cpuSeed);
            memcpy(Pixels(gb.get()), bytes.data(), bytes.size());
            ASSERT_EQ(0, HostClean(gb.get()));
            ExpectSampled(f, tex, cpuSeed, "CPU round");
            HostPaintTexels(tex, kW, kH, PaintColours(f, gpuSeed));
            ASSERT_EQ(0, HostClean(gb.get()));
            ExpectCpu(f, gb.get(), gpuSeed, "GPU round");
        }
        eglDestroyImageKHR(eglGetCurrentDisplay(), image);
        glDeleteTextures(1, &tex);
    }
}

TEST_F(HostCoherence, TwoTexturesOverOneBuffer) {
    const Format& f = kFormats[0];
    sp<GraphicBuffer> gb = new GraphicBuffer(kW, kH, f.hal, 0x130);
    EGLImageKHR imageA = HostMakeImage(gb.get());
    EGLImageKHR imageB = HostMakeImage(gb.get());
    GLuint texA = HostBindNewTexture(imageA);
    GLuint texB = HostBindNewTexture(imageB);

    std::vector<unsigned char> bytes = CpuBytes(f, 4);
    memcpy(Pixels(gb.get()), bytes.data(), bytes.size());
    ASSERT_EQ(0, HostClean(gb.get()));
    ExpectSampled(f, texA, 4, "texture A, CPU write");
    ExpectSampled(f, texB, 4, "texture B, CPU write");

    // A render into either texture reaches the CPU and the other texture.
    HostPaintTexels(texB, kW, kH, PaintColours(f, 5));
    ASSERT_EQ(0, HostClean(gb.get()));
    ExpectCpu(f, gb.get(), 5, "render into B");
    ExpectSampled(f, texA, 5, "texture A after render into B");

    HostPaintTexels(texA, kW, kH, PaintColours(f, 6));
    ASSERT_EQ(0, HostClean(gb.get()));
    ExpectCpu(f, gb.get(), 6, "render into A");
    ExpectSampled(f, texB, 6, "texture B after render into A");

    eglDestroyImageKHR(eglGetCurrentDisplay(), imageA);
    eglDestroyImageKHR(eglGetCurrentDisplay(), imageB);
    glDeleteTextures(1, &texA);
    glDeleteTextures(1, &texB);
}

TEST_F(HostCoherence, DestroyedImageIsNotTouched) {
    const Format& f = kFormats[0];
    sp<GraphicBuffer> gb = new GraphicBuffer(kW, kH, f.hal, 0x130);
    std::vector<unsigned char> first = CpuBytes(f, 1);
    memcpy(Pixels(gb.get()), first.data(), first.size());
    EGLImageKHR image = HostMakeImage(gb.get());
    GLuint tex = HostBindNewTexture(image);
    ASSERT_TRUE(eglDestroyImageKHR(eglGetCurrentDisplay(), image));

    std::vector<unsigned char> second = CpuBytes(f, 2);
    memcpy(Pixels(gb.get()), second.data(), second.size());
    EXPECT_EQ(0, HostClean(gb.get()));
    ExpectSampled(f, tex, 1, "texture of a destroyed image");

    // Nor is a render into it read back.
    HostPaintTexels(tex, kW, kH, PaintColours(f, 3));
    EXPECT_EQ(0, HostClean(gb.get()));
    ExpectCpu(f, gb.get(), 2, "CPU bytes");
    glDeleteTextures(1, &tex);
}

TEST_F(HostCoherence, DeletedTextureNameIsNotTouched) {
    const Format& f = kFormats[0];
    sp<GraphicBuffer> gb = new GraphicBuffer(kW, kH, f.hal, 0x130);
    EGLImageKHR image = HostMakeImage(gb.get());
    GLuint tex = HostBindNewTexture(image);
    glDeleteTextures(1, &tex);

    // A new texture, which GL may give the same name, holds its own pixels.
    GLuint other = 0;
    glGenTextures(1, &other);
    glBindTexture(GL_TEXTURE_2D, other);
    std::vector<unsigned char> own = CpuBytes(f, 8);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, kW, kH, 0, GL_RGBA, GL_UNSIGNED_BYTE, own.data());
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glBindTexture(GL_TEXTURE_2D, 0);

    std::vector<unsigned char> bytes = CpuBytes(f, 9);
    memcpy(Pixels(gb.get()), bytes.data(), bytes.size());
    EXPECT_EQ(0, HostClean(gb.get()));
    ExpectSampled(f, other, 8, "new texture");
    ExpectCpu(f, gb.get(), 9, "CPU bytes");

    eglDestroyImageKHR(eglGetCurrentDisplay(), image);
    glDeleteTextures(1, &other);
}

TEST_F(HostCoherence, CleanRestoresGLState) {
    const Format& f = kFormats[1];  // RGB 888: the transfers change the alignments
    sp<GraphicBuffer> gb = new GraphicBuffer(kW, kH, f.hal, 0x130);
    EGLImageKHR image = HostMakeImage(gb.get());
    GLuint tex = HostBindNewTexture(image);

    GLuint bound = 0;
    glGenTextures(1, &bound);
    GLuint fboTex = 0;
    glGenTextures(1, &fboTex);
    glBindTexture(GL_TEXTURE_2D, fboTex);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 2, 2, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    GLuint fbo = 0;
    glGenFramebuffers(1, &fbo);
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, fboTex, 0);
    glBindTexture(GL_TEXTURE_2D, bound);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 8);
    glPixelStorei(GL_PACK_ALIGNMENT, 2);

    auto expectState = [&](const char* what) {
        GLint v = 0;
        glGetIntegerv(GL_TEXTURE_BINDING_2D, &v);
        EXPECT_EQ((GLint)bound, v) << what;
        glGetIntegerv(GL_FRAMEBUFFER_BINDING, &v);
        EXPECT_EQ((GLint)fbo, v) << what;
        glGetIntegerv(GL_UNPACK_ALIGNMENT, &v);
        EXPECT_EQ(8, v) << what;
        glGetIntegerv(GL_PACK_ALIGNMENT, &v);
        EXPECT_EQ(2, v) << what;
        EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError()) << what;
    };
    std::vector<unsigned char> bytes = CpuBytes(f, 2);
    memcpy(Pixels(gb.get()), bytes.data(), bytes.size());
    ASSERT_EQ(0, HostClean(gb.get()));
    expectState("upload");
    ASSERT_EQ(0, HostClean(gb.get()));
    expectState("read back");
    ExpectCpu(f, gb.get(), 2, "CPU bytes");

    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glDeleteFramebuffers(1, &fbo);
    GLuint textures[] = {tex, bound, fboTex};
    eglDestroyImageKHR(eglGetCurrentDisplay(), image);
    glDeleteTextures(3, textures);
}

TEST_F(HostCoherence, BindingOfAnotherContextIsSkipped) {
    const Format& f = kFormats[0];
    EGLDisplay dpy = eglGetCurrentDisplay();
    EGLContext mine = eglGetCurrentContext();
    EGLSurface surface = eglGetCurrentSurface(EGL_DRAW);
    EGLint configId = 0;
    eglQueryContext(dpy, mine, EGL_CONFIG_ID, &configId);
    const EGLint pick[] = {EGL_CONFIG_ID, configId, EGL_NONE};
    EGLConfig config = nullptr;
    EGLint n = 0;
    ASSERT_TRUE(eglChooseConfig(dpy, pick, &config, 1, &n));
    ASSERT_EQ(1, n);
    const EGLint ctxAttribs[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    EGLContext other = eglCreateContext(dpy, config, EGL_NO_CONTEXT, ctxAttribs);
    ASSERT_NE(EGL_NO_CONTEXT, other);

    sp<GraphicBuffer> gb = new GraphicBuffer(kW, kH, f.hal, 0x130);
    EGLImageKHR image = HostMakeImage(gb.get());
    ASSERT_TRUE(eglMakeCurrent(dpy, surface, surface, other));
    GLuint theirs = HostBindNewTexture(image);
    ASSERT_TRUE(eglMakeCurrent(dpy, surface, surface, mine));

    // The same name in this context is a texture of its own.
    GLuint ours = 0;
    do {
        glGenTextures(1, &ours);
    } while (ours < theirs);
    ASSERT_EQ(theirs, ours);
    glBindTexture(GL_TEXTURE_2D, ours);
    std::vector<unsigned char> own = CpuBytes(f, 8);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, kW, kH, 0, GL_RGBA, GL_UNSIGNED_BYTE, own.data());
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glBindTexture(GL_TEXTURE_2D, 0);

    std::vector<unsigned char> bytes = CpuBytes(f, 9);
    memcpy(Pixels(gb.get()), bytes.data(), bytes.size());
    EXPECT_EQ(0, HostClean(gb.get()));
    ExpectSampled(f, ours, 8, "this context's texture");
    ExpectCpu(f, gb.get(), 9, "CPU bytes");

    eglDestroyImageKHR(dpy, image);
    eglDestroyContext(dpy, other);
    glDeleteTextures(1, &ours);
}

TEST_F(HostCoherence, CleanOnOtherMemoryIsANoOp) {
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
}

TEST_F(HostCoherence, CleanRefusesBadArguments) {
    sp<GraphicBuffer> gb = new GraphicBuffer(kW, kH, HAL_PIXEL_FORMAT_RGBA_8888, 0x130);
    const private_handle_t* h = reinterpret_cast<const private_handle_t*>(gb->handle);
    sp<gralloc::IMemAlloc> alloc = gralloc::IAllocController::getInstance()->getAllocator(h->flags);
    void* base = (void*)h->base;
    GETestLog log;
    EXPECT_LT(alloc->clean_buffer(base, (size_t)h->size, 0, h->fd, 1), 0);
    EXPECT_TRUE(log.Has(6, "GEHostAlloc", "unknown operation 1")) << log.Dump();
    EXPECT_LT(alloc->clean_buffer(nullptr, 16, 0, h->fd, gralloc::CACHE_CLEAN), 0);
    EXPECT_LT(alloc->clean_buffer(base, (size_t)h->size + 1, 0, h->fd, gralloc::CACHE_CLEAN), 0);
    EXPECT_LT(alloc->clean_buffer(base, (size_t)h->size, 4, h->fd, gralloc::CACHE_CLEAN), 0);
    EXPECT_EQ(0, alloc->clean_buffer(base, 16, 8, h->fd, gralloc::CACHE_CLEAN));
}

TEST_F(HostCoherence, ImageHoldsItsBuffer) {
    sp<GraphicBuffer> gb = new GraphicBuffer(kW, kH, HAL_PIXEL_FORMAT_RGBA_8888, 0x130);
    EXPECT_EQ(1, gb->getStrongCount());
    EGLImageKHR image = HostMakeImage(gb.get());
    EXPECT_EQ(2, gb->getStrongCount());
    EXPECT_TRUE(eglDestroyImageKHR(eglGetCurrentDisplay(), image));
    EXPECT_EQ(EGL_SUCCESS, eglGetError());
    EXPECT_EQ(1, gb->getStrongCount());
}

TEST_F(HostCoherence, ImageOutlivesTheCallersReference) {
    const Format& f = kFormats[0];
    sp<GraphicBuffer> gb = new GraphicBuffer(kW, kH, f.hal, 0x130);
    std::vector<unsigned char> bytes = CpuBytes(f, 5);
    memcpy(Pixels(gb.get()), bytes.data(), bytes.size());
    EGLImageKHR image = HostMakeImage(gb.get());
    gb.clear();
    GLuint tex = HostBindNewTexture(image);
    ExpectSampled(f, tex, 5, "texture of a buffer held by its image");
    EXPECT_TRUE(eglDestroyImageKHR(eglGetCurrentDisplay(), image));
    glDeleteTextures(1, &tex);
}

}  // namespace
