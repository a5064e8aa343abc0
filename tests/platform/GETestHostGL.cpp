#include "GETestHostGL.h"

#include <alloc_controller.h>
#include <gralloc_priv.h>

#include "GETestGL.h"

namespace {

const char kVertex[] =
    "attribute vec4 a_vertexCoord;\n"
    "void main() { gl_Position = a_vertexCoord; }\n";

const char kSampleFragment[] =
    "precision mediump float;\n"
    "uniform sampler2D s_tex;\n"
    "uniform vec2 u_size;\n"
    "void main() { gl_FragColor = texture2D(s_tex, gl_FragCoord.xy / u_size); }\n";

const char kColourFragment[] =
    "precision mediump float;\n"
    "uniform vec4 u_colour;\n"
    "void main() { gl_FragColor = u_colour; }\n";

const GLfloat kQuad[] = {-1, 1, 0, 1, -1, -1, 0, 1, 1, -1, 0, 1, 1, 1, 0, 1};
const GLushort kIndices[] = {0, 1, 2, 0, 2, 3};

GLuint Compile(GLenum type, const char* source) {
    GLuint shader = glCreateShader(type);
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    GLint ok = 0;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &ok);
    EXPECT_TRUE(ok) << source;
    return shader;
}

GLuint Link(const char* fragment) {
    GLuint vs = Compile(GL_VERTEX_SHADER, kVertex);
    GLuint fs = Compile(GL_FRAGMENT_SHADER, fragment);
    GLuint program = glCreateProgram();
    glAttachShader(program, vs);
    glAttachShader(program, fs);
    glBindAttribLocation(program, 0, "a_vertexCoord");
    glLinkProgram(program);
    GLint ok = 0;
    glGetProgramiv(program, GL_LINK_STATUS, &ok);
    EXPECT_TRUE(ok);
    glDeleteShader(vs);
    glDeleteShader(fs);
    return program;
}

void DrawQuad(GLuint program) {
    glUseProgram(program);
    glVertexAttribPointer(0, 4, GL_FLOAT, GL_FALSE, 0, kQuad);
    glEnableVertexAttribArray(0);
    glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_SHORT, kIndices);
    glDisableVertexAttribArray(0);
    glUseProgram(0);
}

// Binds a framebuffer over `tex`; returns it (0 when incomplete).
GLuint FramebufferOver(GLuint tex) {
    GLuint fbo = 0;
    glGenFramebuffers(1, &fbo);
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, tex, 0);
    EXPECT_EQ((GLenum)GL_FRAMEBUFFER_COMPLETE, glCheckFramebufferStatus(GL_FRAMEBUFFER));
    return fbo;
}

}  // namespace

EGLImageKHR HostMakeImage(android::GraphicBuffer* gb) {
    const EGLint attribs[] = {EGL_IMAGE_PRESERVED_KHR, EGL_TRUE, EGL_NONE, EGL_NONE};
    return eglCreateImageKHR(eglGetCurrentDisplay(), EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID,
                             (EGLClientBuffer)gb->getNativeBuffer(), attribs);
}

GLuint HostBindNewTexture(EGLImageKHR image) {
    GLuint tex = 0;
    glGenTextures(1, &tex);
    glBindTexture(GL_TEXTURE_2D, tex);
    glEGLImageTargetTexture2DOES(GL_TEXTURE_2D, image);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glBindTexture(GL_TEXTURE_2D, 0);
    return tex;
}

int HostClean(android::GraphicBuffer* gb) {
    const private_handle_t* h = reinterpret_cast<const private_handle_t*>(gb->handle);
    android::sp<gralloc::IMemAlloc> alloc =
        gralloc::IAllocController::getInstance()->getAllocator(h->flags);
    return alloc->clean_buffer((void*)h->base, (size_t)h->size, h->offset, h->fd,
                               gralloc::CACHE_CLEAN);
}

std::vector<unsigned char> HostSampleThroughShader(GLuint tex, int w, int h) {
    GLuint target = 0;
    glGenTextures(1, &target);
    glBindTexture(GL_TEXTURE_2D, target);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    GLuint fbo = FramebufferOver(target);
    GLuint program = Link(kSampleFragment);
    glUseProgram(program);
    glUniform1i(glGetUniformLocation(program, "s_tex"), 0);
    glUniform2f(glGetUniformLocation(program, "u_size"), (float)w, (float)h);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, tex);
    glViewport(0, 0, w, h);
    DrawQuad(program);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glBindTexture(GL_TEXTURE_2D, 0);
    std::vector<unsigned char> pixels = GETestReadTexture(target, w, h);
    glDeleteFramebuffers(1, &fbo);
    glDeleteProgram(program);
    glDeleteTextures(1, &target);
    return pixels;
}

void HostPaintTexels(GLuint tex, int w, int h, const std::vector<float>& rgba) {
    GLuint fbo = FramebufferOver(tex);
    glEnable(GL_SCISSOR_TEST);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const float* c = &rgba[((size_t)y * w + x) * 4];
            glScissor(x, y, 1, 1);
            glClearColor(c[0], c[1], c[2], c[3]);
            glClear(GL_COLOR_BUFFER_BIT);
        }
    }
    glDisable(GL_SCISSOR_TEST);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDeleteFramebuffers(1, &fbo);
    glFinish();
}

void HostDrawColour(GLuint tex, int w, int h, float r, float g, float b, float a) {
    GLuint fbo = FramebufferOver(tex);
    GLuint program = Link(kColourFragment);
    glUseProgram(program);
    glUniform4f(glGetUniformLocation(program, "u_colour"), r, g, b, a);
    glViewport(0, 0, w, h);
    DrawQuad(program);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDeleteFramebuffers(1, &fbo);
    glDeleteProgram(program);
    glFinish();
}
