// GLProgram: building, location checks, texture slots, uniform and attribute
// wrappers, drawing the quad, the YUV-to-RGB matrix, and program binaries.
#include "gl/GLProgram.h"

#include <GLES2/gl2ext.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "GETestGL.h"
#include "GETestLog.h"
#include "gl/GLQuad.h"

namespace {

const char* kVsQuad =
    "attribute vec4 a_vertexCoord;\n"
    "attribute vec2 a_textureCoord;\n"
    "varying vec2 v_texCoord;\n"
    "void main() {\n"
    "    gl_Position = a_vertexCoord;\n"
    "    v_texCoord = a_textureCoord;\n"
    "}\n";

// The texture coordinate as colour, alpha 1.
const char* kFsTexCoord =
    "precision highp float;\n"
    "varying vec2 v_texCoord;\n"
    "void main() { gl_FragColor = vec4(v_texCoord, 0.0, 1.0); }\n";

// The input texel (Y, V, U, 1) through the program's colour matrix.
const char* kFsYUV2RGB =
    "precision highp float;\n"
    "uniform sampler2D s_texture0;\n"
    "uniform mat4 u_mat_yuv2rgb;\n"
    "varying vec2 v_texCoord;\n"
    "void main() { gl_FragColor = u_mat_yuv2rgb * texture2D(s_texture0, v_texCoord); }\n";

// Shows the uniform group selected by u_mode (v_texCoord is always >= 0:
// it only keeps a_textureCoord alive).
const char* kFsUniforms =
    "precision highp float;\n"
    "uniform int u_i;\n"
    "uniform float u_f;\n"
    "uniform vec2 u_2f;\n"
    "uniform vec4 u_4f;\n"
    "uniform float u_fv[2];\n"
    "uniform vec2 u_2fv[2];\n"
    "uniform float u_mode;\n"
    "varying vec2 v_texCoord;\n"
    "void main() {\n"
    "    if (u_mode < 0.5) gl_FragColor = u_4f;\n"
    "    else if (u_mode < 1.5) gl_FragColor = vec4(u_f, u_2f, float(u_i) / 255.0);\n"
    "    else if (u_mode < 2.5) gl_FragColor = vec4(u_fv[0], u_fv[1], u_2fv[0]);\n"
    "    else gl_FragColor = vec4(u_2fv[1], 0.25 * step(0.0, v_texCoord.x), 0.75);\n"
    "}\n";

enum { UNIFORM_I, UNIFORM_F, UNIFORM_2F, UNIFORM_4F, UNIFORM_FV, UNIFORM_2FV, UNIFORM_MODE };
enum { SAMPLER_INPUT_TEX, SAMPLER_MAT_YUV2RGB };
const int UNIFORM_MISSING = 9;

// A program over given sources that fetches the quad attributes and, when
// the shader has them, the sampler, the matrix and the test uniforms.
class GLProgTest : public GLProgram {
public:
    GLProgTest(const char* vs, const char* fs) : m_szVs(vs), m_szFs(fs) {}

    using GLProgram::Load;
    using GLProgram::m_nAttribLoc;
    using GLProgram::m_nUniformLoc;
    using GLProgram::m_nVerCoordLoc;

    int Load() override { return GLProgram::Load(m_szVs, m_szFs) && FetchLocations(); }

    int FetchLocations() {
        if (!GLPROG_ATTRIB_LOC(m_nVerCoordLoc, "a_vertexCoord") ||
            !GLPROG_ATTRIB_LOC(m_nTexCoordLoc, "a_textureCoord")) {
            return 0;
        }
        if (m_szFs == kFsYUV2RGB) {
            return GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_INPUT_TEX], "s_texture0") &&
                   GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], "u_mat_yuv2rgb");
        }
        if (m_szFs == kFsUniforms) {
            return GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_I], "u_i") &&
                   GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_F], "u_f") &&
                   GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_2F], "u_2f") &&
                   GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_4F], "u_4f") &&
                   GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_FV], "u_fv") &&
                   GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_2FV], "u_2fv") &&
                   GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_MODE], "u_mode");
        }
        return 1;
    }

    int FetchMissing() { return GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_MISSING], "u_missing"); }

    // Binds `tex` to unit 0 and uploads the colour matrix when the shader
    // takes them.
    int Use() override {
        if (!GLProgram::Use()) {
            return 0;
        }
        if (m_szFs == kFsYUV2RGB) {
            glActiveTexture(GL_TEXTURE0);
            glBindTexture(GL_TEXTURE_2D, m_nInputTex);
            glUniform1i(m_nSamplerLoc[SAMPLER_INPUT_TEX], 0);
            glUniformMatrix4fv(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB], 1, GL_FALSE, GetMatYUV2RGB());
        }
        return 1;
    }

    GLuint m_nInputTex = 0;

private:
    const char* m_szVs;
    const char* m_szFs;
};

// A w x h RGBA texture with its framebuffer, bound and cleared to a poison
// colour that no test program writes (alpha 0x44).
class Target {
public:
    Target(int w, int h) : m_nW(w), m_nH(h) {
        glGenTextures(1, &m_nTex);
        glBindTexture(GL_TEXTURE_2D, m_nTex);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        glGenFramebuffers(1, &m_nFbo);
        glBindFramebuffer(GL_FRAMEBUFFER, m_nFbo);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, m_nTex, 0);
        m_bComplete = glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
        Poison();
    }
    ~Target() {
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        glDeleteFramebuffers(1, &m_nFbo);
        glDeleteTextures(1, &m_nTex);
    }
    void Poison() {
        glBindFramebuffer(GL_FRAMEBUFFER, m_nFbo);
        glViewport(0, 0, m_nW, m_nH);
        glClearColor(0x11 / 255.0f, 0x22 / 255.0f, 0x33 / 255.0f, 0x44 / 255.0f);
        glClear(GL_COLOR_BUFFER_BIT);
    }
    std::vector<unsigned char> Read() {
        glFinish();
        return GETestReadTexture(m_nTex, m_nW, m_nH);
    }
    bool m_bComplete = false;

private:
    int m_nW, m_nH;
    GLuint m_nTex = 0, m_nFbo = 0;
};

// Use, the quad, and `count` indices (or Draw() when indices is null).
void DrawQuad(GLProgram& prog, int count = 6, const GLushort* indices = nullptr) {
    ASSERT_EQ(1, prog.Use());
    prog.SetVertexCoord(g_nQuadPosSize, g_fQuadPos);
    prog.SetTextureCoord(g_nQuadTexCoordSize, g_fQuadTexCoord);
    if (indices) {
        prog.Draw(count, indices);
    } else {
        prog.Draw();
    }
}

int ToByte(double v) {
    return (int)std::lround(std::min(1.0, std::max(0.0, v)) * 255.0);
}

// Names 1..upto for which glIsShader / glIsProgram holds.
int LiveShaders(GLuint upto) {
    int n = 0;
    for (GLuint name = 1; name <= upto; name++) {
        n += glIsShader(name) ? 1 : 0;
    }
    return n;
}

int LivePrograms(GLuint upto) {
    int n = 0;
    for (GLuint name = 1; name <= upto; name++) {
        n += glIsProgram(name) ? 1 : 0;
    }
    return n;
}

// The highest shader/program name the next few objects could get.
GLuint NameHorizon() {
    GLuint probe = glCreateShader(GL_VERTEX_SHADER);
    glDeleteShader(probe);
    return probe + 32;
}

std::string TempPath(const char* name) {
    return testing::TempDir() + "posteffect_prog_" + std::to_string(getpid()) + "_" + name;
}

std::vector<unsigned char> ReadFile(const std::string& path) {
    std::vector<unsigned char> data;
    FILE* f = fopen(path.c_str(), "rb");
    if (f) {
        unsigned char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof(buf), f)) > 0) {
            data.insert(data.end(), buf, buf + n);
        }
        fclose(f);
    }
    return data;
}

void WriteFile(const std::string& path, const std::vector<unsigned char>& data) {
    FILE* f = fopen(path.c_str(), "wb");
    ASSERT_NE(nullptr, f);
    if (!data.empty()) {
        ASSERT_EQ(data.size(), fwrite(data.data(), 1, data.size(), f));
    }
    fclose(f);
}

class GLProgramTest : public GLTest {
protected:
    GETestLog m_log;
};

TEST_F(GLProgramTest, FreshProgramHasNothingToUse) {
    GLProgTest prog(kVsQuad, kFsTexCoord);
    EXPECT_TRUE(m_log.HasExact(ANDROID_LOG_INFO, "GLProgram", "[GLProgram] enter"));
    EXPECT_TRUE(m_log.HasExact(ANDROID_LOG_INFO, "GLProgram", "[GLProgram] leave"));
    EXPECT_EQ(0xFFFFFFFFu, prog.GetProgram());
    for (int i = 0; i < GLProgram::MAX_UNIFORMS; i++) {
        EXPECT_EQ(-1, prog.m_nUniformLoc[i]);
    }
    EXPECT_EQ(0, prog.Use());
    EXPECT_TRUE(m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram", "[Use] invalid program id -1"));
    EXPECT_EQ(GL_NO_ERROR, glGetError());
}

TEST_F(GLProgramTest, LoadLinksAndDestructorDeletes) {
    GLuint program = 0;
    {
        GLProgTest prog(kVsQuad, kFsTexCoord);
        ASSERT_EQ(1, prog.Load()) << m_log.Dump();
        program = prog.GetProgram();
        ASSERT_TRUE(glIsProgram(program));
        EXPECT_TRUE(m_log.HasExact(ANDROID_LOG_INFO, "GLProgram",
                                   "[Load] program " + std::to_string(program) + " created"));
        EXPECT_EQ(2, m_log.Count("[CompileShader] shader "));
        // Both shaders stay attached, already flagged for deletion.
        GLuint shaders[4] = {0, 0, 0, 0};
        GLsizei n = 0;
        glGetAttachedShaders(program, 4, &n, shaders);
        ASSERT_EQ(2, n);
        for (int i = 0; i < n; i++) {
            GLint deleting = GL_FALSE;
            glGetShaderiv(shaders[i], GL_DELETE_STATUS, &deleting);
            EXPECT_EQ(GL_TRUE, deleting);
        }
        EXPECT_EQ(1, prog.Use());
        GLint current = 0;
        glGetIntegerv(GL_CURRENT_PROGRAM, &current);
        EXPECT_EQ((GLint)program, current);
        glUseProgram(0);
    }
    EXPECT_FALSE(glIsProgram(program));
    EXPECT_TRUE(m_log.HasExact(ANDROID_LOG_INFO, "GLProgram",
                               "[~GLProgram] program " + std::to_string(program) + " deleted"));
    EXPECT_TRUE(m_log.HasExact(ANDROID_LOG_INFO, "GLProgram", "[~GLProgram] leave"));
    EXPECT_EQ(GL_NO_ERROR, glGetError());
}

TEST_F(GLProgramTest, CompileFailuresLeaveNoShaders) {
    const char* kBroken = "void main() { this is not glsl; }\n";
    GLuint horizon = NameHorizon();
    ASSERT_EQ(0, LiveShaders(horizon));
    {
        GLProgTest prog(kBroken, kFsTexCoord);
        EXPECT_EQ(0, prog.Load());
        EXPECT_TRUE(
            m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram", "[CompileShader] can't compile shader"));
        EXPECT_TRUE(
            m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram", "[Load] can't compile vertex shader"));
        EXPECT_EQ(0, LiveShaders(horizon));
        EXPECT_EQ(0, prog.Use());
        EXPECT_TRUE(m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram", "[Use] invalid program id -1"));
    }
    m_log.Clear();
    {
        GLProgTest prog(kVsQuad, kBroken);
        EXPECT_EQ(0, prog.Load());
        EXPECT_TRUE(
            m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram", "[Load] can't compile fragment shader"));
        EXPECT_EQ(0, m_log.Count("can't compile vertex shader"));
        // The vertex shader compiled before the fragment shader failed.
        EXPECT_EQ(1, m_log.Count("[CompileShader] shader "));
        EXPECT_EQ(0, LiveShaders(horizon));
        EXPECT_EQ(0, LivePrograms(horizon));
        EXPECT_EQ(0, prog.Use());
        EXPECT_TRUE(m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram", "[Use] invalid program id -1"));
    }
    GLProgTest prog(kVsQuad, kFsTexCoord);
    EXPECT_EQ(0u, prog.CompileShader(GL_FRAGMENT_SHADER, nullptr));
    EXPECT_EQ(0, LiveShaders(horizon));
    EXPECT_EQ(GL_NO_ERROR, glGetError());
}

TEST_F(GLProgramTest, LinkFailureDropsProgramAndShaders) {
    // The varying's type differs between the stages: each compiles, the
    // pair does not link.
    const char* kVs =
        "attribute vec4 a_vertexCoord;\n"
        "varying vec2 v_x;\n"
        "void main() { gl_Position = a_vertexCoord; v_x = a_vertexCoord.xy; }\n";
    const char* kFs =
        "precision mediump float;\n"
        "varying vec3 v_x;\n"
        "void main() { gl_FragColor = vec4(v_x, 1.0); }\n";
    GLuint horizon = NameHorizon();
    GLProgTest prog(kVs, kFs);
    ASSERT_EQ(1, prog.Load(kVsQuad, kFsTexCoord));
    GLuint first = prog.GetProgram();
    m_log.Clear();

    EXPECT_EQ(0, prog.Load(kVs, kFs));
    EXPECT_EQ(2, m_log.Count("[CompileShader] shader "));
    EXPECT_TRUE(m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram", "[Load] can't link program"));
    EXPECT_EQ(0u, prog.GetProgram());
    EXPECT_FALSE(glIsProgram(first));
    EXPECT_EQ(0, LiveShaders(horizon));
    EXPECT_EQ(0, LivePrograms(horizon));
    EXPECT_EQ(0, prog.Use());
    EXPECT_TRUE(m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram", "[Use] invalid program id 0"));
    EXPECT_EQ(GL_NO_ERROR, glGetError());
}

TEST_F(GLProgramTest, LocIsValid) {
    EXPECT_EQ(0, GLProgram::LocIsValid("m_nFoo", -1));
    EXPECT_TRUE(
        m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram", "[LocIsValid] invalid m_nFoo == -1"));
    EXPECT_EQ(0, GLProgram::LocIsValid("m_nBar", -7));
    EXPECT_TRUE(
        m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram", "[LocIsValid] invalid m_nBar == -7"));
    m_log.Clear();
    EXPECT_EQ(1, GLProgram::LocIsValid("m_nFoo", 0));
    EXPECT_EQ(1, GLProgram::LocIsValid("m_nFoo", 15));
    EXPECT_TRUE(m_log.Lines().empty()) << m_log.Dump();

    // The fetch helpers log the member as written in the derived program.
    GLProgTest prog(kVsQuad, kFsYUV2RGB);
    ASSERT_EQ(1, prog.Load()) << m_log.Dump();
    EXPECT_EQ(0, prog.FetchMissing());
    EXPECT_EQ(-1, prog.m_nUniformLoc[UNIFORM_MISSING]);
    EXPECT_TRUE(m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram",
                               "[LocIsValid] invalid m_nUniformLoc[UNIFORM_MISSING] == -1"));
    EXPECT_GE(prog.m_nVerCoordLoc, 0);
}

TEST_F(GLProgramTest, SetTexturesChecksTheSlot) {
    int a = 0, b = 0;
    GLTexture* texA = reinterpret_cast<GLTexture*>(&a);
    GLTexture* texB = reinterpret_cast<GLTexture*>(&b);
    GLProgTest prog(kVsQuad, kFsTexCoord);
    for (unsigned i = 0; i < GLProgram::MAX_TEXTURES; i++) {
        EXPECT_EQ(nullptr, prog.GetTexture(i));
    }
    EXPECT_EQ(1, prog.SetTextures(7, texA));
    EXPECT_EQ(texA, prog.GetTexture(7));
    EXPECT_EQ(1, prog.SetTextures(0, texB));
    EXPECT_EQ(texB, prog.GetTexture(0));
    m_log.Clear();
    EXPECT_EQ(0, prog.SetTextures(8, texB));
    EXPECT_TRUE(m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram", "[SetTextures] nIdx 8 must < 8"));
    EXPECT_EQ(0, prog.SetTextures(0xFFFFFFFFu, texB));
    for (unsigned i = 1; i < GLProgram::MAX_TEXTURES; i++) {
        EXPECT_EQ(i == 7 ? texA : nullptr, prog.GetTexture(i)) << i;
    }
}

// Draw() covers the viewport with the quad, texture coordinate (0, 0) at the
// bottom left; each triangle of the index list covers its own half.
TEST_F(GLProgramTest, DrawCoversTheViewportAndEachTriangleItsHalf) {
    const int N = 8;
    Target target(N, N);
    ASSERT_TRUE(target.m_bComplete);
    GLProgTest prog(kVsQuad, kFsTexCoord);
    ASSERT_EQ(1, prog.Load()) << m_log.Dump();

    DrawQuad(prog);
    std::vector<unsigned char> px = target.Read();
    for (int y = 0; y < N; y++) {
        for (int x = 0; x < N; x++) {
            const unsigned char* p = &px[(size_t)(y * N + x) * 4];
            EXPECT_NEAR(ToByte((x + 0.5) / N), p[0], 1) << x << "," << y;
            EXPECT_NEAR(ToByte((y + 0.5) / N), p[1], 1) << x << "," << y;
            EXPECT_EQ(0, p[2]);
            EXPECT_EQ(255, p[3]);
        }
    }

    // (0, 1, 2): top left, bottom left, bottom right: below the diagonal.
    // (0, 2, 3): above it. Pixels whose centre lies on it are left out.
    for (int half = 0; half < 2; half++) {
        target.Poison();
        DrawQuad(prog, 3, GLProgram::s_nQuadIndices + 3 * half);
        px = target.Read();
        for (int y = 0; y < N; y++) {
            for (int x = 0; x < N; x++) {
                if (x + y == N - 1) {
                    continue;
                }
                bool inside = half == 0 ? x + y < N - 1 : x + y > N - 1;
                EXPECT_EQ(inside ? 255 : 0x44, px[(size_t)(y * N + x) * 4 + 3])
                    << "half " << half << " at " << x << "," << y;
            }
        }
    }
    EXPECT_EQ(GL_NO_ERROR, glGetError());
}

// Generic attributes fed by VertexAttribPointer draw what the quad
// attributes draw; a bad location or size is reported.
TEST_F(GLProgramTest, VertexAttribPointer) {
    const int N = 4;
    Target target(N, N);
    GLProgTest prog(kVsQuad, kFsTexCoord);
    ASSERT_EQ(1, prog.Load()) << m_log.Dump();
    DrawQuad(prog);
    std::vector<unsigned char> expected = target.Read();

    // Collapse the quad attributes first, so that only the generic
    // pointers below can draw anything.
    const GLfloat zeros[16] = {0};
    prog.SetVertexCoord(g_nQuadPosSize, zeros);
    prog.SetTextureCoord(g_nQuadTexCoordSize, zeros);
    glDisableVertexAttribArray((GLuint)prog.m_nVerCoordLoc);
    target.Poison();
    prog.m_nAttribLoc[0] = glGetAttribLocation(prog.GetProgram(), "a_vertexCoord");
    prog.m_nAttribLoc[1] = glGetAttribLocation(prog.GetProgram(), "a_textureCoord");
    ASSERT_EQ(1, prog.Use());
    EXPECT_EQ(1, prog.VertexAttribPointer(0, g_nQuadPosSize, g_fQuadPos));
    EXPECT_EQ(1, prog.VertexAttribPointer(1, g_nQuadTexCoordSize, g_fQuadTexCoord));
    prog.Draw();
    EXPECT_EQ(expected, target.Read());

    // Location -1 and five components are both GL_INVALID_VALUE.
    m_log.Clear();
    EXPECT_EQ(0, prog.VertexAttribPointer(2, 2, g_fQuadTexCoord));
    EXPECT_EQ(0, prog.VertexAttribPointer(0, 5, g_fQuadPos));
    EXPECT_EQ(2, m_log.Count("[VertexAttribPointer] ERROR, VertexAttribPointer failed with error: "
                             "0x501 GL_INVALID_VALUE"))
        << m_log.Dump();
    EXPECT_EQ(0, m_log.Count("glEnableVertexAttribArray"));
    EXPECT_EQ(GL_NO_ERROR, glGetError());
}

// Each wrapper's value, rendered and read back.
TEST_F(GLProgramTest, UniformWrappersReachTheShader) {
    Target target(2, 2);
    GLProgTest prog(kVsQuad, kFsUniforms);
    ASSERT_EQ(1, prog.Load()) << m_log.Dump();
    ASSERT_EQ(1, prog.Use());
    const float fv[2] = {0.15f, 0.35f};
    const float f2v[4] = {0.55f, 0.65f, 0.8f, 0.95f};
    EXPECT_EQ(1, prog.Uniform1i(UNIFORM_I, 77));
    EXPECT_EQ(1, prog.Uniform1f(UNIFORM_F, 0.2f));
    EXPECT_EQ(1, prog.Uniform2f(UNIFORM_2F, 0.45f, 0.7f));
    EXPECT_EQ(1, prog.Uniform4f(UNIFORM_4F, 0.1f, 0.3f, 0.6f, 0.9f));
    EXPECT_EQ(1, prog.Uniform1fv(UNIFORM_FV, 2, fv));
    EXPECT_EQ(1, prog.Uniform2fv(UNIFORM_2FV, 2, f2v));
    const double expected[4][4] = {
        {0.1, 0.3, 0.6, 0.9},
        {0.2, 0.45, 0.7, 77 / 255.0},
        {0.15, 0.35, 0.55, 0.65},
        {0.8, 0.95, 0.25, 0.75},
    };
    for (int mode = 0; mode < 4; mode++) {
        target.Poison();
        ASSERT_EQ(1, prog.Use());
        EXPECT_EQ(1, prog.Uniform1f(UNIFORM_MODE, (float)mode));
        DrawQuad(prog);
        std::vector<unsigned char> px = target.Read();
        for (int i = 0; i < 4; i++) {
            for (int c = 0; c < 4; c++) {
                EXPECT_NEAR(ToByte(expected[mode][c]), px[i * 4 + c], 1)
                    << "mode " << mode << " pixel " << i << " channel " << c;
            }
        }
    }
    // A float into an int uniform is GL_INVALID_OPERATION, reported under
    // the wrapper's names.
    EXPECT_EQ(0, prog.Uniform1f(UNIFORM_I, 1.0f));
    EXPECT_TRUE(m_log.Has(ANDROID_LOG_ERROR, "GECommon",
                          "[Uniform1f] ERROR, Uniform1f failed with error: 0x502"))
        << m_log.Dump();
    EXPECT_EQ(0, prog.Uniform2fv(UNIFORM_F, 1, f2v));
    EXPECT_TRUE(m_log.Has(ANDROID_LOG_ERROR, "GECommon", "[Uniform2fv] ERROR, Uniform2fv failed"));
    EXPECT_EQ(GL_NO_ERROR, glGetError());
}

// The program's matrix turns (Y, V, U) texels into full-range BT.601 RGB.
TEST_F(GLProgramTest, ColourMatrixConvertsYVUToRGB) {
    const int W = 4, H = 2;
    const unsigned char yvu[W * H][3] = {
        {128, 128, 128}, {200, 100, 150}, {60, 180, 90},   {235, 16, 240},
        {16, 240, 16},   {90, 140, 110},  {180, 120, 130}, {255, 0, 255},
    };
    std::vector<unsigned char> texels;
    for (const auto& t : yvu) {
        texels.insert(texels.end(), {t[0], t[1], t[2], 255});
    }
    GLuint input = 0;
    glGenTextures(1, &input);
    glBindTexture(GL_TEXTURE_2D, input);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, W, H, 0, GL_RGBA, GL_UNSIGNED_BYTE, texels.data());
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);

    Target target(W, H);
    GLProgTest prog(kVsQuad, kFsYUV2RGB);
    ASSERT_EQ(1, prog.Load()) << m_log.Dump();
    prog.m_nInputTex = input;
    DrawQuad(prog);
    std::vector<unsigned char> px = target.Read();
    for (int i = 0; i < W * H; i++) {
        double Y = yvu[i][0] / 255.0, V = yvu[i][1] / 255.0, U = yvu[i][2] / 255.0;
        int r = ToByte(Y + 1.402 * V - 0.701);
        int g = ToByte(Y - 0.714 * V - 0.344 * U + 0.529);
        int b = ToByte(Y + 1.772 * U - 0.886);
        EXPECT_NEAR(r, px[i * 4 + 0], 1) << "texel " << i;
        EXPECT_NEAR(g, px[i * 4 + 1], 1) << "texel " << i;
        EXPECT_NEAR(b, px[i * 4 + 2], 1) << "texel " << i;
        EXPECT_EQ(255, px[i * 4 + 3]) << "texel " << i;
    }
    glDeleteTextures(1, &input);
    EXPECT_EQ(GL_NO_ERROR, glGetError());
}

// SaveBinary / LoadBinary over the colour-matrix program.
class GLProgramBinaryTest : public GLProgramTest {
protected:
    static const int W = 4, H = 2;

    void SetUp() override {
        GLProgramTest::SetUp();
        if (HasFatalFailure()) {
            return;
        }
        std::vector<unsigned char> texels;
        for (int i = 0; i < W * H; i++) {
            texels.insert(texels.end(), {(unsigned char)(30 * i), (unsigned char)(200 - 20 * i),
                                         (unsigned char)(60 + 15 * i), 255});
        }
        glGenTextures(1, &m_nInput);
        glBindTexture(GL_TEXTURE_2D, m_nInput);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, W, H, 0, GL_RGBA, GL_UNSIGNED_BYTE, texels.data());
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        m_path = TempPath(::testing::UnitTest::GetInstance()->current_test_info()->name());
    }
    void TearDown() override {
        remove(m_path.c_str());
        glDeleteTextures(1, &m_nInput);
        GLProgramTest::TearDown();
    }
    std::vector<unsigned char> Render(GLProgTest& prog) {
        Target target(W, H);
        prog.m_nInputTex = m_nInput;
        DrawQuad(prog);
        return target.Read();
    }
    // A saved binary of the colour-matrix program and its pixels.
    void SaveReference(std::vector<unsigned char>* pixels) {
        GLProgTest prog(kVsQuad, kFsYUV2RGB);
        ASSERT_EQ(1, prog.Load()) << m_log.Dump();
        *pixels = Render(prog);
        ASSERT_EQ(1, prog.SaveBinary(m_path.c_str())) << m_log.Dump();
    }

    GLuint m_nInput = 0;
    std::string m_path;
};

TEST_F(GLProgramBinaryTest, RoundTripRendersTheSame) {
    GLint formats = 0;
    glGetIntegerv(GL_NUM_PROGRAM_BINARY_FORMATS_OES, &formats);
    ASSERT_GE(formats, 1) << "the driver offers no program binary format";
    std::vector<GLint> formatList((size_t)formats);
    glGetIntegerv(GL_PROGRAM_BINARY_FORMATS_OES, formatList.data());

    GLProgTest original(kVsQuad, kFsYUV2RGB);
    ASSERT_EQ(1, original.Load()) << m_log.Dump();
    std::vector<unsigned char> expected = Render(original);
    GLint length = 0;
    glGetProgramiv(original.GetProgram(), GL_PROGRAM_BINARY_LENGTH_OES, &length);
    ASSERT_GT(length, 0);
    m_log.Clear();
    ASSERT_EQ(1, original.SaveBinary(m_path.c_str())) << m_log.Dump();
    EXPECT_TRUE(m_log.HasExact(ANDROID_LOG_INFO, "GLProgram",
                               "[SaveBinary] binary length " + std::to_string(length) + " bytes"));
    EXPECT_TRUE(m_log.Has(ANDROID_LOG_INFO, "GLProgram",
                          "[SaveBinary] proram id " + std::to_string(original.GetProgram()) +
                              ", binary format is 0x"));

    // The format, little-endian, then the binary and nothing else.
    std::vector<unsigned char> file = ReadFile(m_path);
    ASSERT_EQ((size_t)length + 4, file.size());
    GLuint format = file[0] | (file[1] << 8) | (file[2] << 16) | ((GLuint)file[3] << 24);
    EXPECT_NE(formatList.end(), std::find(formatList.begin(), formatList.end(), (GLint)format));

    GLProgTest restored(kVsQuad, kFsYUV2RGB);
    ASSERT_EQ(1, restored.Load(kVsQuad, kFsTexCoord));
    GLuint replaced = restored.GetProgram();
    m_log.Clear();
    ASSERT_EQ(1, restored.LoadBinary(m_path.c_str())) << m_log.Dump();
    EXPECT_TRUE(m_log.HasExact(ANDROID_LOG_INFO, "GLProgram",
                               "[LoadBinary] program " + std::to_string(replaced) + " deleted"));
    EXPECT_FALSE(glIsProgram(replaced));
    EXPECT_NE(original.GetProgram(), restored.GetProgram());
    ASSERT_EQ(1, restored.FetchLocations()) << m_log.Dump();
    EXPECT_EQ(expected, Render(restored));
    EXPECT_EQ(GL_NO_ERROR, glGetError());
}

TEST_F(GLProgramBinaryTest, MissingAndShortFilesAreRejected) {
    GLProgTest prog(kVsQuad, kFsYUV2RGB);
    std::string missing = m_path + ".missing";
    EXPECT_EQ(0, prog.LoadBinary(missing.c_str()));
    EXPECT_TRUE(m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram",
                               "[LoadBinary] can't open binary shader file " + missing));
    EXPECT_EQ(0xFFFFFFFFu, prog.GetProgram());

    // A loaded program survives a rejected file.
    ASSERT_EQ(1, prog.Load()) << m_log.Dump();
    GLuint program = prog.GetProgram();
    for (size_t size = 0; size < 4; size++) {
        m_log.Clear();
        WriteFile(m_path, std::vector<unsigned char>(size, 0x41));
        EXPECT_EQ(0, prog.LoadBinary(m_path.c_str())) << size;
        EXPECT_TRUE(
            m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram", "[LoadBinary] invalid shader length"))
            << size;
        EXPECT_EQ(program, prog.GetProgram());
    }
    EXPECT_EQ(1, prog.Use());
    EXPECT_EQ(GL_NO_ERROR, glGetError());
}

TEST_F(GLProgramBinaryTest, BadBinariesFailCleanly) {
    std::vector<unsigned char> pixels;
    ASSERT_NO_FATAL_FAILURE(SaveReference(&pixels));
    const std::vector<unsigned char> good = ReadFile(m_path);
    ASSERT_GT(good.size(), 16u);

    std::vector<std::vector<unsigned char>> bad;
    bad.emplace_back(good.begin(), good.begin() + 4);  // the format alone
    bad.emplace_back(good.begin(), good.begin() + good.size() / 2);
    std::vector<unsigned char> flipped = good;
    for (size_t i = 4 + (good.size() - 4) / 2; i < good.size() && i < 4 + (good.size() - 4) / 2 + 8;
         i++) {
        flipped[i] ^= 0xA5;
    }
    bad.push_back(flipped);
    std::vector<unsigned char> header = good;
    header[5] ^= 0xFF;
    bad.push_back(header);
    std::vector<unsigned char> format = good;
    format[0] ^= 0x01;
    bad.push_back(format);

    GLProgTest prog(kVsQuad, kFsYUV2RGB);
    for (size_t i = 0; i < bad.size(); i++) {
        m_log.Clear();
        WriteFile(m_path, bad[i]);
        EXPECT_EQ(0, prog.LoadBinary(m_path.c_str())) << "case " << i;
        EXPECT_TRUE(
            m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram", "[LoadBinary] can't load binary shader"))
            << "case " << i << "\n"
            << m_log.Dump();
        EXPECT_EQ(0, m_log.Count("invalid shader length")) << "case " << i;
        // Whatever GL error the driver raised was taken by LoadBinary.
        EXPECT_EQ(GL_NO_ERROR, glGetError()) << "case " << i;
        // The unlinked program is kept; using it fails through the GL check.
        EXPECT_TRUE(glIsProgram(prog.GetProgram()));
        EXPECT_EQ(0, prog.Use()) << "case " << i;
        EXPECT_EQ(GL_NO_ERROR, glGetError()) << "case " << i;
    }
    // The unknown format was reported as the GL error it is.
    EXPECT_TRUE(m_log.Has(ANDROID_LOG_ERROR, "GECommon",
                          "[LoadBinary] ERROR, glProgramBinaryOES failed with error: 0x500"))
        << m_log.Dump();
    // An unlinked program has no binary to save.
    std::string other = m_path + ".unlinked";
    EXPECT_EQ(0, prog.SaveBinary(other.c_str()));
    EXPECT_TRUE(ReadFile(other).empty());
    EXPECT_EQ(GL_NO_ERROR, glGetError());

    // The good file still loads into the same object.
    WriteFile(m_path, good);
    ASSERT_EQ(1, prog.LoadBinary(m_path.c_str())) << m_log.Dump();
    ASSERT_EQ(1, prog.FetchLocations());
    EXPECT_EQ(pixels, Render(prog));
}

TEST_F(GLProgramBinaryTest, SaveBinaryFailures) {
    GLProgTest prog(kVsQuad, kFsYUV2RGB);
    EXPECT_EQ(0, prog.SaveBinary(m_path.c_str()));
    EXPECT_TRUE(
        m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram", "[SaveBinary] invalid program id -1"));
    ASSERT_EQ(1, prog.Load()) << m_log.Dump();
    const char* unwritable = "/nonexistent-posteffect-dir/prog.bin";
    EXPECT_EQ(0, prog.SaveBinary(unwritable));
    EXPECT_TRUE(
        m_log.HasExact(ANDROID_LOG_ERROR, "GLProgram",
                       std::string("[SaveBinary] can't open ") + unwritable + " for writing"));
    EXPECT_TRUE(ReadFile(m_path).empty());
}

}  // namespace
