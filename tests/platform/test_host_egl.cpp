// EGL bring-up on the host, the display and config choices, and the EGL image
// entry points (host images over graphics buffers, Mesa's for the rest).
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <host/GEHostPlatform.h>
#include <stdlib.h>
#include <string.h>
#include <ui/GraphicBuffer.h>

#include <string>
#include <vector>

#include "GETestGL.h"
#include "GETestHostGL.h"
#include "GETestLog.h"
#include "engine/GEManager.h"

using android::GraphicBuffer;
using android::sp;

namespace {

bool HasWord(const char* list, const char* word) {
    std::string padded = std::string(" ") + (list ? list : "") + " ";
    return padded.find(std::string(" ") + word + " ") != std::string::npos;
}

bool HasSurfaceless() {
    return HasWord(eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS), "EGL_MESA_platform_surfaceless");
}

TEST(HostEGL, ComesUpWithoutEnvironment) {
    unsetenv("EGL_PLATFORM");
    GETestEGL egl;
    ASSERT_TRUE(egl.Ok());
    if (HasSurfaceless()) {
        EXPECT_STREQ("surfaceless", GEHostEGLPlatform());
    } else if (HasWord(eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS), "EGL_EXT_platform_device")) {
        EXPECT_STREQ("device", GEHostEGLPlatform());
    }
    const char* version = (const char*)glGetString(GL_VERSION);
    ASSERT_NE(nullptr, version);
    EXPECT_EQ(0, strncmp(version, "OpenGL ES ", 10)) << version;
    EXPECT_EQ(eglGetCurrentDisplay(), eglGetDisplay(EGL_DEFAULT_DISPLAY));
}

TEST(HostEGL, EGLPlatformInTheEnvironmentLeavesTheChoiceToEGL) {
    if (!HasSurfaceless()) {
        GTEST_SKIP() << "no Mesa surfaceless platform here";
    }
    setenv("EGL_PLATFORM", "surfaceless", 1);
    EGLDisplay dpy = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    EXPECT_STREQ("environment", GEHostEGLPlatform());
    unsetenv("EGL_PLATFORM");
    ASSERT_NE(EGL_NO_DISPLAY, dpy);
    EXPECT_TRUE(eglInitialize(dpy, nullptr, nullptr));
    eglTerminate(dpy);
    eglGetDisplay(EGL_DEFAULT_DISPLAY);
    EXPECT_STRNE("environment", GEHostEGLPlatform());
}

TEST(HostEGL, TerminateReleasesImages) {
    sp<GraphicBuffer> gb = new GraphicBuffer(4, 4, HAL_PIXEL_FORMAT_RGB_565, 0x130);
    {
        GETestEGL egl;
        ASSERT_TRUE(egl.Ok());
        ASSERT_NE(EGL_NO_IMAGE_KHR, HostMakeImage(gb.get()));
        ASSERT_NE(EGL_NO_IMAGE_KHR, HostMakeImage(gb.get()));
        EXPECT_EQ(3, gb->getStrongCount());
    }
    EXPECT_EQ(1, gb->getStrongCount());
}

class HostEGLDisplay : public GLTest {
protected:
    void TearDown() override {
        EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
        GLTest::TearDown();
    }
    EGLDisplay Dpy() { return eglGetCurrentDisplay(); }
};

// Surface types no config offers are dropped from the request: the worker's
// window-or-pbuffer request finds pbuffer configs.
TEST_F(HostEGLDisplay, ConfigRequestKeepsOnlyOfferedSurfaceTypes) {
    EGLint total = 0;
    ASSERT_TRUE(eglGetConfigs(Dpy(), nullptr, 0, &total));
    std::vector<EGLConfig> all((size_t)total);
    ASSERT_TRUE(eglGetConfigs(Dpy(), all.data(), total, &total));
    EGLint offered = 0;
    for (EGLConfig c : all) {
        EGLint bits = 0;
        eglGetConfigAttrib(Dpy(), c, EGL_SURFACE_TYPE, &bits);
        offered |= bits;
    }
    if (strcmp(GEHostEGLPlatform(), "surfaceless") == 0) {
        EXPECT_EQ(0, offered & EGL_WINDOW_BIT) << "surfaceless offers pbuffers only";
    }
    EGLConfig configs[10];
    EGLint n = 0;
    ASSERT_TRUE(eglChooseConfig(Dpy(), GEManager::kConfigAttribs, configs, 10, &n));
    ASSERT_GE(n, 1);
    for (EGLint i = 0; i < n; ++i) {
        EGLint bits = 0, red = 0, renderable = 0;
        eglGetConfigAttrib(Dpy(), configs[i], EGL_SURFACE_TYPE, &bits);
        eglGetConfigAttrib(Dpy(), configs[i], EGL_RED_SIZE, &red);
        eglGetConfigAttrib(Dpy(), configs[i], EGL_RENDERABLE_TYPE, &renderable);
        EXPECT_TRUE(bits & EGL_PBUFFER_BIT);
        EXPECT_EQ(bits & (EGL_WINDOW_BIT | EGL_PBUFFER_BIT),
                  offered & bits & (EGL_WINDOW_BIT | EGL_PBUFFER_BIT));
        EXPECT_GE(red, 5);
        EXPECT_TRUE(renderable & EGL_OPENGL_ES2_BIT);
    }
    // No surface-type request, or no list at all, passes through.
    const EGLint dontCare[] = {EGL_SURFACE_TYPE, EGL_DONT_CARE, EGL_NONE};
    EXPECT_TRUE(eglChooseConfig(Dpy(), dontCare, configs, 10, &n));
    EXPECT_GE(n, 1);
    EXPECT_TRUE(eglChooseConfig(Dpy(), nullptr, configs, 10, &n));
    EXPECT_GE(n, 1);
}

TEST_F(HostEGLDisplay, NativeBufferImages) {
    sp<GraphicBuffer> gb = new GraphicBuffer(4, 4, HAL_PIXEL_FORMAT_RGBA_8888, 0x130);
    EGLClientBuffer native = (EGLClientBuffer)gb->getNativeBuffer();
    ANativeWindowBuffer stranger;  // not a host graphics buffer
    memset(&stranger, 0, sizeof(stranger));
    stranger.common.magic = (int)ANDROID_NATIVE_BUFFER_MAGIC;
    const EGLint good[] = {EGL_IMAGE_PRESERVED_KHR, EGL_TRUE, EGL_NONE};
    const EGLint bad[] = {EGL_WIDTH, 4, EGL_NONE};
    const struct {
        EGLDisplay dpy;
        EGLContext ctx;
        EGLClientBuffer buffer;
        const EGLint* attribs;
        EGLint error;
    } cases[] = {
        {Dpy(), EGL_NO_CONTEXT, (EGLClientBuffer)&stranger, good, EGL_BAD_PARAMETER},
        {Dpy(), EGL_NO_CONTEXT, nullptr, good, EGL_BAD_PARAMETER},
        {Dpy(), eglGetCurrentContext(), native, good, EGL_BAD_CONTEXT},
        {Dpy(), EGL_NO_CONTEXT, native, bad, EGL_BAD_PARAMETER},
        {EGL_NO_DISPLAY, EGL_NO_CONTEXT, native, good, EGL_BAD_DISPLAY},
    };
    eglGetError();
    GETestLog log;
    for (const auto& c : cases) {
        EXPECT_EQ(EGL_NO_IMAGE_KHR,
                  eglCreateImageKHR(c.dpy, c.ctx, EGL_NATIVE_BUFFER_ANDROID, c.buffer, c.attribs));
        EXPECT_EQ(c.error, eglGetError());
    }
    EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, "GEHostEGL", "is not a host graphics buffer"))
        << log.Dump();
    EXPECT_EQ(1, gb->getStrongCount()) << "a refused image holds no reference";

    // Without attributes the image is made and holds a reference until it
    // is destroyed; destroying it twice fails the second time.
    EGLImageKHR image =
        eglCreateImageKHR(Dpy(), EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID, native, nullptr);
    ASSERT_NE(EGL_NO_IMAGE_KHR, image);
    EXPECT_EQ(EGL_SUCCESS, eglGetError());
    EXPECT_EQ(2, gb->getStrongCount());
    EXPECT_TRUE(eglDestroyImageKHR(Dpy(), image));
    EXPECT_EQ(1, gb->getStrongCount());
    EXPECT_FALSE(eglDestroyImageKHR(Dpy(), image));
    EXPECT_NE(EGL_SUCCESS, eglGetError());
}

TEST_F(HostEGLDisplay, YUVBufferMakesAnImageButNoTexture) {
    sp<GraphicBuffer> gb = new GraphicBuffer(8, 4, HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x130);
    ASSERT_EQ(android::NO_ERROR, gb->initCheck());
    EGLImageKHR image = HostMakeImage(gb.get());
    ASSERT_NE(EGL_NO_IMAGE_KHR, image);
    EXPECT_EQ(EGL_SUCCESS, eglGetError());
    GLuint tex = 0;
    glGenTextures(1, &tex);
    glBindTexture(GL_TEXTURE_2D, tex);
    glEGLImageTargetTexture2DOES(GL_TEXTURE_2D, image);
    EXPECT_EQ((GLenum)GL_INVALID_OPERATION, glGetError());
    glEGLImageTargetTexture2DOES((GLenum)0xFFFFFFFF, image);
    EXPECT_EQ((GLenum)GL_INVALID_ENUM, glGetError());
    {
        GETestTarget target(tex, 8, 4);  // the texture got no storage
        EXPECT_FALSE(target.Complete());
    }
    EXPECT_EQ(0, HostClean(gb.get()));
    EXPECT_TRUE(eglDestroyImageKHR(Dpy(), image));
    glDeleteTextures(1, &tex);
}

TEST_F(HostEGLDisplay, OtherImageTargetsPassThroughToEGL) {
    if (!HasWord(eglQueryString(Dpy(), EGL_EXTENSIONS), "EGL_KHR_gl_texture_2D_image")) {
        GTEST_SKIP() << "EGL_KHR_gl_texture_2D_image missing";
    }
    const unsigned char texels[2 * 2 * 4] = {10, 20,  30,  40,  50,  60,  70,  80,
                                             90, 100, 110, 120, 130, 140, 150, 160};
    GLuint source = 0;
    glGenTextures(1, &source);
    glBindTexture(GL_TEXTURE_2D, source);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 2, 2, 0, GL_RGBA, GL_UNSIGNED_BYTE, texels);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    const EGLint attribs[] = {EGL_GL_TEXTURE_LEVEL_KHR, 0, EGL_NONE};
    EGLImageKHR image = eglCreateImageKHR(Dpy(), eglGetCurrentContext(), EGL_GL_TEXTURE_2D_KHR,
                                          (EGLClientBuffer)(uintptr_t)source, attribs);
    ASSERT_NE(EGL_NO_IMAGE_KHR, image) << std::hex << eglGetError();
    GLuint sibling = HostBindNewTexture(image);
    EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
    std::vector<unsigned char> got = GETestReadTexture(sibling, 2, 2);
    EXPECT_EQ(0, memcmp(texels, got.data(), sizeof(texels)));
    // The sibling shares the storage: a change through one shows in the other.
    const unsigned char red[4] = {255, 0, 0, 255};
    glBindTexture(GL_TEXTURE_2D, source);
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, red);
    got = GETestReadTexture(sibling, 2, 2);
    EXPECT_EQ(0, memcmp(red, got.data(), 4));
    EXPECT_TRUE(eglDestroyImageKHR(Dpy(), image));
    GLuint textures[] = {source, sibling};
    glDeleteTextures(2, textures);
}

}  // namespace
