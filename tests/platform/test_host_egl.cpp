// EGL bring-up on the host and the EGL image path over graphics buffers.
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <gtest/gtest.h>
#include <host/GEHostPlatform.h>
#include <stdlib.h>
#include <string.h>
#include <ui/GraphicBuffer.h>

#include "GETestGL.h"

using android::GraphicBuffer;
using android::sp;

TEST(HostEGL, ComesUpWithoutEnvironment) {
    unsetenv("EGL_PLATFORM");
    GETestEGL egl;
    ASSERT_TRUE(egl.Ok());
    EXPECT_STRNE("none", GEHostEGLPlatform());
    const char* version = (const char*)glGetString(GL_VERSION);
    ASSERT_NE(nullptr, version);
    EXPECT_EQ(0, strncmp(version, "OpenGL ES ", 10)) << version;
}

class HostImageTest : public GLTest {};

TEST_F(HostImageTest, NativeBufferImageGivesTextureTheBytes) {
    sp<GraphicBuffer> gb = new GraphicBuffer(4, 2, HAL_PIXEL_FORMAT_RGBA_8888, 0x130);
    ASSERT_EQ(android::NO_ERROR, gb->initCheck());
    unsigned char* px = nullptr;
    ASSERT_EQ(android::NO_ERROR, gb->lock(0x30, (void**)&px));
    for (int i = 0; i < 4 * 2 * 4; ++i) {
        px[i] = (unsigned char)(i * 7 + 1);
    }
    const EGLint attribs[] = {EGL_IMAGE_PRESERVED_KHR, EGL_TRUE, EGL_NONE, EGL_NONE};
    EGLImageKHR image =
        eglCreateImageKHR(eglGetCurrentDisplay(), EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID,
                          (EGLClientBuffer)gb->getNativeBuffer(), attribs);
    ASSERT_NE(EGL_NO_IMAGE_KHR, image);
    EXPECT_EQ(EGL_SUCCESS, eglGetError());
    GLuint tex = 0;
    glGenTextures(1, &tex);
    glBindTexture(GL_TEXTURE_2D, tex);
    glEGLImageTargetTexture2DOES(GL_TEXTURE_2D, image);
    EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
    std::vector<unsigned char> got = GETestReadTexture(tex, 4, 2);
    for (int i = 0; i < 4 * 2 * 4; ++i) {
        EXPECT_EQ((unsigned char)(i * 7 + 1), got[i]) << i;
    }
    EXPECT_TRUE(eglDestroyImageKHR(eglGetCurrentDisplay(), image));
    glDeleteTextures(1, &tex);
}
