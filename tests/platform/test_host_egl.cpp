// EGL bring-up on the host, the display and config choices, and the EGL image
// entry points (host images over graphics buffers, Mesa's for the rest).
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
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

using android::GraphicBuffer;
using android::sp;

namespace {

bool HasWord(const char* list, const char* word) {
    if (list == nullptr) {
        return false;
    }
    std::string padded = std::string(" ") + list + " ";
    return padded.find(std::string(" ") + word + " ") != std::string::npos;
}

// The library's config request.
const EGLint kConfigAttribs[] = {EGL_SURFACE_TYPE,
                                 EGL_WINDOW_BIT | EGL_PBUFFER_BIT,
                                 EGL_RED_SIZE,
                                 5,
                                 EGL_GREEN_SIZE,
                                 6,
                                 EGL_BLUE_SIZE,
                                 5,
                                 EGL_ALPHA_SIZE,
                                 EGL_DONT_CARE,
                                 EGL_DEPTH_SIZE,
                                 16,
                                 EGL_STENCIL_SIZE,
                                 4,
                                 EGL_RENDERABLE_TYPE,
                                 EGL_OPENGL_ES2_BIT,
                                 EGL_NONE};

TEST(HostEGL, ComesUpWithoutEnvironment) {
    unsetenv("EGL_PLATFORM");
    GETestEGL egl;
    ASSERT_TRUE(egl.Ok());
    const char* clientExts = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
    if (HasWord(clientExts, "EGL_MESA_platform_surfaceless")) {
        EXPECT_STREQ("surfaceless", GEHostEGLPlatform());
    } else if (HasWord(clientExts, "EGL_EXT_platform_device")) {
        EXPECT_STREQ("device", GEHostEGLPlatform());
    }
    const char* version = (const char*)glGetString(GL_VERSION);
    ASSERT_NE(nullptr, version);
    EXPECT_EQ(0, strncmp(version, "OpenGL ES ", 10)) << version;
    EXPECT_EQ(eglGetCurrentDisplay(), eglGetDisplay(EGL_DEFAULT_DISPLAY));
}

TEST(HostEGL, EGLPlatformInTheEnvironmentLeavesTheChoiceToEGL) {
    const char* clientExts = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
    if (!HasWord(clientExts, "EGL_MESA_platform_surfaceless")) {
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

class HostEGLDisplay : public GLTest {
protected:
    EGLDisplay Dpy() { return eglGetCurrentDisplay(); }
};

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

    EGLConfig configs[10];
    EGLint n = 0;
    ASSERT_TRUE(eglChooseConfig(Dpy(), kConfigAttribs, configs, 10, &n));
    ASSERT_GE(n, 1);
    for (EGLint i = 0; i < n; ++i) {
        EGLint bits = 0;
        EGLint red = 0;
        EGLint renderable = 0;
        eglGetConfigAttrib(Dpy(), configs[i], EGL_SURFACE_TYPE, &bits);
        eglGetConfigAttrib(Dpy(), configs[i], EGL_RED_SIZE, &red);
        eglGetConfigAttrib(Dpy(), configs[i], EGL_RENDERABLE_TYPE, &renderable);
        EXPECT_EQ((EGLint)EGL_PBUFFER_BIT, bits & EGL_PBUFFER_BIT);
        EXPECT_EQ(bits & (EGL_WINDOW_BIT | EGL_PBUFFER_BIT),
                  offered & bits & (EGL_WINDOW_BIT | EGL_PBUFFER_BIT));
        EXPECT_GE(red, 5);
        EXPECT_TRUE(renderable & EGL_OPENGL_ES2_BIT);
    }
    if (strcmp(GEHostEGLPlatform(), "surfaceless") == 0) {
        EXPECT_EQ(0, offered & EGL_WINDOW_BIT) << "surfaceless offers pbuffers only";
    }
    // A config with no surface-type request, or none at all, passes through.
    const EGLint dontCare[] = {EGL_SURFACE_TYPE, EGL_DONT_CARE, EGL_NONE};
    EXPECT_TRUE(eglChooseConfig(Dpy(), dontCare, configs, 10, &n));
    EXPECT_GE(n, 1);
    EXPECT_TRUE(eglChooseConfig(Dpy(), nullptr, configs, 10, &n));
    EXPECT_GE(n, 1);
}

TEST_F(HostEGLDisplay, NativeBufferImageRefusals) {
    sp<GraphicBuffer> gb = new GraphicBuffer(4, 4, HAL_PIXEL_FORMAT_RGBA_8888, 0x130);
    EGLClientBuffer native = (EGLClientBuffer)gb->getNativeBuffer();
    const EGLint good[] = {EGL_IMAGE_PRESERVED_KHR, EGL_TRUE, EGL_NONE};
    const EGLint bad[] = {EGL_WIDTH, 4, EGL_NONE};
    eglGetError();
    GETestLog log;

    // Not a host graphics buffer.
    ANativeWindowBuffer stranger;
    memset(&stranger, 0, sizeof(stranger));
    stranger.common.magic = (int)ANDROID_NATIVE_BUFFER_MAGIC;
    EXPECT_EQ(EGL_NO_IMAGE_KHR, eglCreateImageKHR(Dpy(), EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID,
                                                  (EGLClientBuffer)&stranger, good));
    EXPECT_EQ(EGL_BAD_PARAMETER, eglGetError());
    EXPECT_TRUE(log.Has(6, "GEHostEGL", "is not a host graphics buffer")) << log.Dump();
    EXPECT_EQ(EGL_NO_IMAGE_KHR,
              eglCreateImageKHR(Dpy(), EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID, nullptr, good));
    EXPECT_EQ(EGL_BAD_PARAMETER, eglGetError());
    // A context given with a native buffer.
    EXPECT_EQ(EGL_NO_IMAGE_KHR, eglCreateImageKHR(Dpy(), eglGetCurrentContext(),
                                                  EGL_NATIVE_BUFFER_ANDROID, native, good));
    EXPECT_EQ(EGL_BAD_CONTEXT, eglGetError());
    // An attribute other than EGL_IMAGE_PRESERVED_KHR.
    EXPECT_EQ(EGL_NO_IMAGE_KHR,
              eglCreateImageKHR(Dpy(), EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID, native, bad));
    EXPECT_EQ(EGL_BAD_PARAMETER, eglGetError());
    // No display.
    EXPECT_EQ(EGL_NO_IMAGE_KHR, eglCreateImageKHR(EGL_NO_DISPLAY, EGL_NO_CONTEXT,
                                                  EGL_NATIVE_BUFFER_ANDROID, native, good));
    EXPECT_EQ(EGL_BAD_DISPLAY, eglGetError());
    EXPECT_EQ(1, gb->getStrongCount()) << "a refused image holds no reference";

    // Without attributes the image is made; destroying it twice fails the
    // second time.
    EGLImageKHR image =
        eglCreateImageKHR(Dpy(), EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID, native, nullptr);
    ASSERT_NE(EGL_NO_IMAGE_KHR, image);
    EXPECT_EQ(EGL_SUCCESS, eglGetError());
    EXPECT_TRUE(eglDestroyImageKHR(Dpy(), image));
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
    // The texture got no storage: it cannot back a framebuffer.
    GLuint fbo = 0;
    glGenFramebuffers(1, &fbo);
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, tex, 0);
    EXPECT_NE((GLenum)GL_FRAMEBUFFER_COMPLETE, glCheckFramebufferStatus(GL_FRAMEBUFFER));
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDeleteFramebuffers(1, &fbo);
    EXPECT_EQ(0, HostClean(gb.get()));
    EXPECT_TRUE(eglDestroyImageKHR(Dpy(), image));
    glDeleteTextures(1, &tex);
    EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
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
    EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
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

}  // namespace
