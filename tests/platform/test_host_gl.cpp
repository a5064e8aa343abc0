// The host's GL_NV_fence: names, setting, testing and finishing after
// rendering, the extension's errors, and fences per context. (The program
// binary entry points, which the host only forwards, are exercised through
// GLProgram's binary cache in test_gl_program.)
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <gtest/gtest.h>

#include "GETestGL.h"
#include "GETestHostGL.h"

namespace {

class HostFence : public GLTest {
protected:
    void TearDown() override {
        EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
        GLTest::TearDown();
    }
};

TEST_F(HostFence, NamesBecomeFencesWhenSet) {
    GLuint fences[3] = {0, 0, 0};
    glGenFencesNV(3, fences);
    EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
    for (int i = 0; i < 3; ++i) {
        EXPECT_NE(0u, fences[i]);
        for (int j = 0; j < i; ++j) {
            EXPECT_NE(fences[j], fences[i]);
        }
        EXPECT_FALSE(glIsFenceNV(fences[i])) << "generated, not yet set";
    }
    glSetFenceNV(fences[1], GL_ALL_COMPLETED_NV);
    EXPECT_TRUE(glIsFenceNV(fences[1]));
    EXPECT_FALSE(glIsFenceNV(fences[0]));
    glDeleteFencesNV(3, fences);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(glIsFenceNV(fences[i]));
    }
    // Names in use are not handed out again.
    GLuint ab[2] = {0, 0};
    glGenFencesNV(1, &ab[0]);
    glGenFencesNV(1, &ab[1]);
    EXPECT_NE(ab[0], ab[1]);
    glDeleteFencesNV(2, ab);
}

TEST_F(HostFence, FinishAndTestAfterRendering) {
    GETestTarget target(64, 64);
    GLuint fence = 0;
    glGenFencesNV(1, &fence);
    for (int i = 0; i < 3; ++i) {
        target.Fill(0.1f * i, 0.5f, 0.25f, 1.0f);
        glSetFenceNV(fence, GL_ALL_COMPLETED_NV);
        glFinishFenceNV(fence);
        EXPECT_TRUE(glTestFenceNV(fence));
        GLint status = -1, condition = 0;
        glGetFenceivNV(fence, GL_FENCE_STATUS_NV, &status);
        glGetFenceivNV(fence, GL_FENCE_CONDITION_NV, &condition);
        EXPECT_EQ(GL_TRUE, status);
        EXPECT_EQ(GL_ALL_COMPLETED_NV, condition);
    }
    // Polling ends without an explicit finish.
    target.Fill(1.0f, 0.0f, 0.0f, 1.0f);
    glSetFenceNV(fence, GL_ALL_COMPLETED_NV);
    for (int polls = 0; !glTestFenceNV(fence) && polls < 1000000; ++polls) {
    }
    EXPECT_TRUE(glTestFenceNV(fence));
    glDeleteFencesNV(1, &fence);
}

TEST_F(HostFence, ErrorsOfTheExtension) {
    GLuint fence = 0;
    glGenFencesNV(1, &fence);
    glGenFencesNV(-1, &fence);
    EXPECT_EQ((GLenum)GL_INVALID_VALUE, glGetError());
    glDeleteFencesNV(-1, &fence);
    EXPECT_EQ((GLenum)GL_INVALID_VALUE, glGetError());
    glSetFenceNV(fence, 0x1234);
    EXPECT_EQ((GLenum)GL_INVALID_ENUM, glGetError());
    EXPECT_FALSE(glIsFenceNV(fence)) << "a refused set makes no fence";
    // Testing, finishing or querying a name that is not a set fence.
    glTestFenceNV(fence);
    EXPECT_EQ((GLenum)GL_INVALID_OPERATION, glGetError());
    glFinishFenceNV(fence);
    EXPECT_EQ((GLenum)GL_INVALID_OPERATION, glGetError());
    GLint value = 77;
    glGetFenceivNV(fence, GL_FENCE_STATUS_NV, &value);
    EXPECT_EQ((GLenum)GL_INVALID_OPERATION, glGetError());
    glSetFenceNV(fence, GL_ALL_COMPLETED_NV);
    glGetFenceivNV(fence, 0x1234, &value);
    EXPECT_EQ((GLenum)GL_INVALID_ENUM, glGetError());
    EXPECT_EQ(77, value);
    // Deleting names that are no fences is ignored.
    GLuint unused[2] = {fence + 100, fence + 101};
    glDeleteFencesNV(2, unused);
    EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
    EXPECT_TRUE(glIsFenceNV(fence));
    glDeleteFencesNV(1, &fence);
}

TEST_F(HostFence, FencesBelongToTheirContext) {
    GLuint fence = 0;
    glGenFencesNV(1, &fence);
    glSetFenceNV(fence, GL_ALL_COMPLETED_NV);
    ASSERT_TRUE(glIsFenceNV(fence));
    EGLDisplay dpy = eglGetCurrentDisplay();
    EGLContext mine = eglGetCurrentContext();
    EGLSurface surface = eglGetCurrentSurface(EGL_DRAW);
    EGLContext other = HostOtherContext();
    ASSERT_TRUE(eglMakeCurrent(dpy, surface, surface, other));
    EXPECT_FALSE(glIsFenceNV(fence));
    ASSERT_TRUE(eglMakeCurrent(dpy, surface, surface, mine));
    EXPECT_TRUE(glIsFenceNV(fence));
    eglDestroyContext(dpy, other);
    glDeleteFencesNV(1, &fence);
}

}  // namespace
