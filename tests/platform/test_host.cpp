// The host platform where the library's own tests do not drive it: device
// paths and the display stand-in, the log masks, and coherence of graphics
// buffers in the formats the library does not use yet.
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <alloc_controller.h>
#include <fcntl.h>
#include <gralloc_priv.h>
#include <gtest/gtest.h>
#include <host/GEHostPlatform.h>
#include <linux/fb.h>
#include <math.h>
#include <string.h>
#include <sys/ioctl.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>
#include <vlklog.h>

#include <algorithm>
#include <string>
#include <vector>

#include "GETestFile.h"
#include "GETestGL.h"

using android::GraphicBuffer;
using android::sp;

namespace {

TEST(HostPaths, OnlyTheDeviceFoldersMoveUnderTheRoot) {
    GETestEnv env("POSTEFFECT_ROOT", "/srv/dev-root//");
    const struct {
        const char* in;
        std::string out;
    } cases[] = {
        {"/data/tex.bmp", "/srv/dev-root/data/tex.bmp"},
        {"/data", "/srv/dev-root/data"},
        {"/sdcard/quandor/CurveCold.bmp", "/srv/dev-root/sdcard/quandor/CurveCold.bmp"},
        {"/system/media/GPU/dot_mask_3.bmp", "/srv/dev-root/system/media/GPU/dot_mask_3.bmp"},
        {"/database/x", "/database/x"},
        {"/systemd/x", "/systemd/x"},
        {"/tmp/data/x", "/tmp/data/x"},
        {"data/x", "data/x"},
        {nullptr, ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.out, GEHostResolvePath(c.in)) << (c.in ? c.in : "(null)");
    }
    char out[64];
    memset(out, 'Z', sizeof(out));
    ASSERT_EQ(1, GEHostResolvePath("/data/a", out, 21));  // exactly the room needed
    EXPECT_EQ(std::string("/srv/dev-root/data/a") + '\0' + 'Z', std::string(out, 22));
    EXPECT_EQ(0, GEHostResolvePath("/data/a", out, 20));
}

TEST(HostFrameBuffer, ReportsTheDisplaySize) {
    const struct {
        const char* value;
        unsigned w, h;
    } cases[] = {{nullptr, 1920, 1080},    {"800x480", 800, 480},
                 {"480X800", 480, 800},    {"0x480", 1920, 1080},
                 {"-800x480", 1920, 1080}, {"800x", 1920, 1080},
                 {"800x480p", 1920, 1080}, {"1x1", 1, 1}};
    for (const auto& c : cases) {
        GETestEnv env("POSTEFFECT_DISPLAY", c.value);
        int fd = open("/dev/graphics/fb0", O_RDWR);
        ASSERT_GE(fd, 0);
        fb_var_screeninfo var;
        fb_fix_screeninfo fix;
        ASSERT_EQ(0, ioctl(fd, FBIOGET_VSCREENINFO, &var));
        ASSERT_EQ(0, ioctl(fd, FBIOGET_FSCREENINFO, &fix));
        EXPECT_EQ((std::vector<unsigned>{c.w, c.h, 32, c.w * 4}),
                  (std::vector<unsigned>{var.xres, var.yres, var.bits_per_pixel, fix.line_length}))
            << (c.value ? c.value : "(unset)");
        int dummy = 0;
        EXPECT_EQ(-1, ioctl(fd, FBIOBLANK, &dummy));
        EXPECT_EQ(0, close(fd));
    }
}

TEST(HostLogMask, MasksFromTheEnvironment) {
    const struct {
        const char* env;  // null: unset
        const char* tag;
        int mask;
    } cases[] = {
        {nullptr, "GLTexture", 0x10},  // errors only by default
        {"GEManager=0x16", "GLTexture", 0x10},
        {"GLTexture=0x16,GEManager=2;*=0x14", "GLTexture", 0x16},
        {"GLTexture=0x16,GEManager=2;*=0x14", "GEManager", 0x02},
        {"GLTexture=0x16,GEManager=2;*=0x14", "GLFbo", 0x14},
        {"GLTexture=0x16,GEManager=2;*=0x14", nullptr, 0x14},  // untagged: '*' only
        {"*=6;GLTex=22", "GLTexture", 6},                      // tags match whole
        {"GECommon=0,*=0xff", "GECommon", 0},
        {"GECommon=0,*=0xff", "GLProgram", 0x7F},  // never the unread bit
        {"GLTexture=zz,GLTexture,GEManager=0x100,*=0x12", "GEManager", 0x12},
        {"GLTexture=0x04x;GLFbo=4", "GLTexture", 0x10},
    };
    for (const auto& c : cases) {
        GETestEnv env("POSTEFFECT_LOG", c.env);
        unsigned char stored = 0x80;
        EXPECT_EQ(c.mask, __vlklog_init_mask(c.tag, -1, &stored))
            << (c.env ? c.env : "(unset)") << " " << (c.tag ? c.tag : "(null)");
        EXPECT_EQ(c.mask, stored);
    }
}

using HostGL = GLTest;

// A graphics buffer bound to a texture through an image: a CPU write reaches
// the texture at the clean and not before; a render into the texture reaches
// the CPU at the clean and not before; for each format a texture can have.
TEST_F(HostGL, CleanCarriesTheLastWriteEitherWay) {
    const int kW = 6, kH = 3;  // rows of 18 and 12 bytes: not 4-aligned
    const struct {
        int hal, bpp;
        GLenum format, type;
    } formats[] = {{HAL_PIXEL_FORMAT_RGBA_8888, 4, GL_RGBA, GL_UNSIGNED_BYTE},
                   {HAL_PIXEL_FORMAT_RGB_888, 3, GL_RGB, GL_UNSIGNED_BYTE},
                   {HAL_PIXEL_FORMAT_RGB_565, 2, GL_RGB, GL_UNSIGNED_SHORT_5_6_5}};
    for (const auto& f : formats) {
        SCOPED_TRACE(f.hal);
        sp<GraphicBuffer> gb = new GraphicBuffer(kW, kH, f.hal, 0x130);
        const private_handle_t* h = reinterpret_cast<const private_handle_t*>(gb->handle);
        unsigned char* cpu = reinterpret_cast<unsigned char*>(h->base);
        const size_t n = (size_t)kW * kH * f.bpp;
        sp<gralloc::IMemAlloc> alloc =
            gralloc::IAllocController::getInstance()->getAllocator(h->flags);
        auto clean = [&] {
            return alloc->clean_buffer(cpu, (size_t)h->size, 0, h->fd, gralloc::CACHE_CLEAN);
        };
        const EGLint attribs[] = {EGL_IMAGE_PRESERVED_KHR, EGL_TRUE, EGL_NONE};
        EGLImageKHR image =
            eglCreateImageKHR(eglGetCurrentDisplay(), EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID,
                              (EGLClientBuffer)gb->getNativeBuffer(), attribs);
        ASSERT_NE(EGL_NO_IMAGE_KHR, image);
        GLuint tex = 0;
        glGenTextures(1, &tex);
        glBindTexture(GL_TEXTURE_2D, tex);
        glEGLImageTargetTexture2DOES(GL_TEXTURE_2D, image);
        // The texture as RGBA, read through a framebuffer, and what it should
        // be for the buffer's bytes `px` (5 and 6 bits widened, give or take 1).
        auto gpu = [&] {
            GETestTarget target(kW, kH, tex);
            return target.Read();
        };
        auto same = [&](const std::vector<unsigned char>& got, const GETestBytes& px) {
            int worst = 0;
            for (int i = 0; i < kW * kH; ++i) {
                const unsigned char* p = &px[(size_t)i * f.bpp];
                const unsigned v = p[0] | p[1] << 8;
                const int want[4] = {f.bpp > 2 ? p[0] : (int)(v >> 11) * 255 / 31,
                                     f.bpp > 2 ? p[1] : (int)(v >> 5 & 63) * 255 / 63,
                                     f.bpp > 2 ? p[2] : (int)(v & 31) * 255 / 31,
                                     f.bpp > 3 ? p[3] : 255};
                for (int k = 0; k < 4; ++k) {
                    worst = std::max(worst, abs(want[k] - got[(size_t)i * 4 + k]));
                }
            }
            return worst <= (f.bpp == 2 ? 1 : 0);
        };
        const GETestBytes a = GETestPattern(n, 1), b = GETestPattern(n, 2);
        memcpy(cpu, a.data(), n);
        EXPECT_FALSE(same(gpu(), a)) << "before the clean";
        ASSERT_EQ(0, clean());
        EXPECT_TRUE(same(gpu(), a)) << "after the clean";
        {
            GETestTarget target(kW, kH, tex);
            target.Fill(1.0f, 0.0f, 1.0f, 1.0f);
            glFinish();
        }
        EXPECT_TRUE(GETestBytes(cpu, cpu + n) == a) << "render before the clean";
        ASSERT_EQ(0, clean());
        const unsigned char magenta[3][4] = {{0x1F, 0xF8}, {255, 0, 255}, {255, 0, 255, 255}};
        for (size_t i = 0; i < n; ++i) {
            ASSERT_EQ(magenta[f.bpp - 2][i % f.bpp], cpu[i]) << "render after the clean, " << i;
        }
        memcpy(cpu, b.data(), n);
        ASSERT_EQ(0, clean());
        EXPECT_TRUE(same(gpu(), b)) << "CPU again";
        EXPECT_LT(alloc->clean_buffer(cpu, (size_t)h->size + 1, 0, h->fd, gralloc::CACHE_CLEAN), 0);
        EXPECT_LT(alloc->clean_buffer(cpu, (size_t)h->size, 0, h->fd, 1), 0);
        EXPECT_TRUE(eglDestroyImageKHR(eglGetCurrentDisplay(), image));
        glDeleteTextures(1, &tex);
    }
}

}  // namespace
