// The GLES extension entry points the host provides or forwards: program
// binaries (GL_OES_get_program_binary) and fences (GL_NV_fence).
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <gtest/gtest.h>
#include <string.h>

#include <vector>

#include "GETestGL.h"
#include "GETestHostGL.h"

namespace {

const char kVertex[] =
    "attribute vec4 a_vertexCoord;\n"
    "void main() { gl_Position = a_vertexCoord; }\n";
const char kFragment[] =
    "precision mediump float;\n"
    "uniform vec4 u_colour;\n"
    "void main() { gl_FragColor = u_colour.bgra; }\n";

GLuint LinkProgram() {
    const char* sources[] = {kVertex, kFragment};
    const GLenum types[] = {GL_VERTEX_SHADER, GL_FRAGMENT_SHADER};
    GLuint program = glCreateProgram();
    for (int i = 0; i < 2; ++i) {
        GLuint shader = glCreateShader(types[i]);
        glShaderSource(shader, 1, &sources[i], nullptr);
        glCompileShader(shader);
        glAttachShader(program, shader);
        glDeleteShader(shader);
    }
    glBindAttribLocation(program, 0, "a_vertexCoord");
    glLinkProgram(program);
    return program;
}

// Draws a quad with `program` (u_colour = 0.2, 0.4, 0.6, 0.8) into a 2 x 2
// texture and returns its texels.
std::vector<unsigned char> DrawWith(GLuint program) {
    GLuint tex = 0;
    glGenTextures(1, &tex);
    glBindTexture(GL_TEXTURE_2D, tex);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 2, 2, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    GLuint fbo = 0;
    glGenFramebuffers(1, &fbo);
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, tex, 0);
    glViewport(0, 0, 2, 2);
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT);
    static const GLfloat quad[] = {-1, 1, 0, 1, -1, -1, 0, 1, 1, -1, 0, 1, 1, 1, 0, 1};
    static const GLushort indices[] = {0, 1, 2, 0, 2, 3};
    glUseProgram(program);
    glUniform4f(glGetUniformLocation(program, "u_colour"), 0.2f, 0.4f, 0.6f, 0.8f);
    glVertexAttribPointer(0, 4, GL_FLOAT, GL_FALSE, 0, quad);
    glEnableVertexAttribArray(0);
    glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_SHORT, indices);
    glDisableVertexAttribArray(0);
    glUseProgram(0);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    std::vector<unsigned char> texels = GETestReadTexture(tex, 2, 2);
    glDeleteFramebuffers(1, &fbo);
    glDeleteTextures(1, &tex);
    return texels;
}

class HostProgramBinary : public GLTest {};

TEST_F(HostProgramBinary, RoundTripThroughTheWrappedCalls) {
    GLint formats = 0;
    glGetIntegerv(GL_NUM_PROGRAM_BINARY_FORMATS_OES, &formats);
    ASSERT_GE(formats, 1);
    GLuint program = LinkProgram();
    GLint linked = 0;
    glGetProgramiv(program, GL_LINK_STATUS, &linked);
    ASSERT_TRUE(linked);
    GLint length = 0;
    glGetProgramiv(program, GL_PROGRAM_BINARY_LENGTH_OES, &length);
    ASSERT_GT(length, 0);

    std::vector<unsigned char> binary((size_t)length + 16, 0xA5);
    GLsizei written = -1;
    GLenum format = 0;
    glGetProgramBinaryOES(program, length, &written, &format, binary.data());
    ASSERT_EQ((GLenum)GL_NO_ERROR, glGetError());
    EXPECT_EQ(length, written);
    EXPECT_NE(0u, format);
    for (size_t i = (size_t)length; i < binary.size(); ++i) {
        ASSERT_EQ(0xA5, binary[i]) << "written past the length at " << i;
    }
    std::vector<unsigned char> expected = DrawWith(program);
    // 0.2, 0.4, 0.6, 0.8 swizzled to b, g, r, a.
    EXPECT_NEAR(153, expected[0], 1);
    EXPECT_NEAR(102, expected[1], 1);
    EXPECT_NEAR(51, expected[2], 1);
    EXPECT_NEAR(204, expected[3], 1);

    GLuint restored = glCreateProgram();
    glProgramBinaryOES(restored, format, binary.data(), written);
    glGetProgramiv(restored, GL_LINK_STATUS, &linked);
    EXPECT_TRUE(linked);
    EXPECT_EQ(expected, DrawWith(restored));

    // A damaged binary does not link.
    GLuint damaged = glCreateProgram();
    std::vector<unsigned char> broken(binary.begin(), binary.begin() + written);
    for (size_t i = 0; i < broken.size(); i += 7) {
        broken[i] ^= 0x5A;
    }
    glProgramBinaryOES(damaged, format, broken.data(), written);
    glGetProgramiv(damaged, GL_LINK_STATUS, &linked);
    EXPECT_FALSE(linked);
    glGetError();

    glDeleteProgram(program);
    glDeleteProgram(restored);
    glDeleteProgram(damaged);
}

class HostFence : public GLTest {};

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
    EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
    EXPECT_TRUE(glIsFenceNV(fences[1]));
    EXPECT_FALSE(glIsFenceNV(fences[0]));
    glDeleteFencesNV(3, fences);
    EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(glIsFenceNV(fences[i]));
    }
    // Names in use are not handed out again.
    GLuint a = 0;
    GLuint b = 0;
    glGenFencesNV(1, &a);
    glGenFencesNV(1, &b);
    EXPECT_NE(a, b);
    glDeleteFencesNV(1, &a);
    glDeleteFencesNV(1, &b);
}

TEST_F(HostFence, FinishAndTestAfterRendering) {
    android::sp<android::GraphicBuffer> gb =
        new android::GraphicBuffer(64, 64, HAL_PIXEL_FORMAT_RGBA_8888, 0x130);
    EGLImageKHR image = HostMakeImage(gb.get());
    GLuint tex = HostBindNewTexture(image);
    GLuint fence = 0;
    glGenFencesNV(1, &fence);
    for (int i = 0; i < 3; ++i) {
        HostDrawColour(tex, 64, 64, 0.1f * i, 0.5f, 0.25f, 1.0f);
        glSetFenceNV(fence, GL_ALL_COMPLETED_NV);
        glFinishFenceNV(fence);
        EXPECT_TRUE(glTestFenceNV(fence));
        GLint status = -1;
        glGetFenceivNV(fence, GL_FENCE_STATUS_NV, &status);
        EXPECT_EQ(GL_TRUE, status);
        GLint condition = 0;
        glGetFenceivNV(fence, GL_FENCE_CONDITION_NV, &condition);
        EXPECT_EQ(GL_ALL_COMPLETED_NV, condition);
        EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
    }
    // Polling ends without an explicit finish.
    HostDrawColour(tex, 64, 64, 1.0f, 0.0f, 0.0f, 1.0f);
    glSetFenceNV(fence, GL_ALL_COMPLETED_NV);
    int polls = 0;
    while (!glTestFenceNV(fence) && polls < 1000000) {
        ++polls;
    }
    EXPECT_TRUE(glTestFenceNV(fence));
    glDeleteFencesNV(1, &fence);
    eglDestroyImageKHR(eglGetCurrentDisplay(), image);
    glDeleteTextures(1, &tex);
    EXPECT_EQ((GLenum)GL_NO_ERROR, glGetError());
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
    EXPECT_EQ(77, value);
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
    EGLint configId = 0;
    eglQueryContext(dpy, mine, EGL_CONFIG_ID, &configId);
    const EGLint pick[] = {EGL_CONFIG_ID, configId, EGL_NONE};
    EGLConfig config = nullptr;
    EGLint n = 0;
    ASSERT_TRUE(eglChooseConfig(dpy, pick, &config, 1, &n));
    const EGLint ctxAttribs[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    EGLContext other = eglCreateContext(dpy, config, EGL_NO_CONTEXT, ctxAttribs);
    ASSERT_TRUE(eglMakeCurrent(dpy, surface, surface, other));
    EXPECT_FALSE(glIsFenceNV(fence));
    ASSERT_TRUE(eglMakeCurrent(dpy, surface, surface, mine));
    EXPECT_TRUE(glIsFenceNV(fence));
    eglDestroyContext(dpy, other);
    glDeleteFencesNV(1, &fence);
}

}  // namespace
