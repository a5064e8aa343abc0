// GLProgram: building and its failures, location checks, texture slots,
// uniform and attribute wrappers, drawing the quad, the YUV-to-RGB matrix,
// and program binaries.
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

#include "GETestFile.h"
#include "GETestGL.h"
#include "GETestLog.h"
#include "gl/GLQuad.h"

namespace {

const int I = ANDROID_LOG_INFO;
const int E = ANDROID_LOG_ERROR;
typedef std::vector<unsigned char> Pixels;

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

// Every uniform kind of the wrappers, all of them active.
const char* kFsUniforms =
    "precision highp float;\n"
    "uniform int u_i;\n"
    "uniform float u_f;\n"
    "uniform vec2 u_2f;\n"
    "uniform vec4 u_4f;\n"
    "uniform float u_fv[2];\n"
    "uniform vec2 u_2fv[2];\n"
    "varying vec2 v_texCoord;\n"
    "void main() {\n"
    "    gl_FragColor = u_4f + vec4(u_f, u_2f, float(u_i)) + vec4(u_fv[0], u_fv[1], u_2fv[0]) +\n"
    "                   vec4(u_2fv[1], v_texCoord);\n"
    "}\n";

enum { UNIFORM_I, UNIFORM_F, UNIFORM_2F, UNIFORM_4F, UNIFORM_FV, UNIFORM_2FV };
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
                   GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_2FV], "u_2fv");
        }
        return 1;
    }

    int FetchMissing() { return GLPROG_UNIFORM_LOC(m_nUniformLoc[UNIFORM_MISSING], "u_missing"); }

    // Binds m_nInputTex to unit 0 and uploads the colour matrix when the
    // shader takes them.
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

// A w x h target, bound and cleared to a poison colour that no test program
// writes (alpha 0x44).
struct Target : public GETestTarget {
    Target(int w, int h) : GETestTarget(w, h) { Poison(); }
    void Poison() { Fill(0x11 / 255.0f, 0x22 / 255.0f, 0x33 / 255.0f, 0x44 / 255.0f); }
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

// A w x h RGBA texture of `texels` with nearest filtering.
GLuint InputTexture(int w, int h, const Pixels& texels) {
    GLuint tex = 0;
    glGenTextures(1, &tex);
    glBindTexture(GL_TEXTURE_2D, tex);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, texels.data());
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    return tex;
}

// Shader and program objects alive among the names the next few objects
// could get.
int LiveObjects() {
    GLuint probe = glCreateShader(GL_VERTEX_SHADER);
    glDeleteShader(probe);
    int n = 0;
    for (GLuint name = 1; name <= probe + 32; name++) {
        n += (glIsShader(name) ? 1 : 0) + (glIsProgram(name) ? 1 : 0);
    }
    return n;
}

class GLProgramTest : public GLTest {
protected:
    void TearDown() override {
        EXPECT_EQ(GL_NO_ERROR, glGetError());
        GLTest::TearDown();
    }
    GETestLog m_log;
};

TEST_F(GLProgramTest, LoadLinksAndDestructorDeletes) {
    GLuint program = 0;
    {
        GLProgTest prog(kVsQuad, kFsTexCoord);
        ASSERT_EQ(1, prog.Load()) << m_log.Dump();
        program = prog.GetProgram();
        ASSERT_TRUE(glIsProgram(program));
        EXPECT_TRUE(
            m_log.HasExact(I, "GLProgram", GETestFormat("[Load] program %u created", program)));
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
    EXPECT_TRUE(
        m_log.HasExact(I, "GLProgram", GETestFormat("[~GLProgram] program %u deleted", program)));
}

// A failed compile or link leaves no shader or program object, and Use then
// refuses with the program name left behind.
TEST_F(GLProgramTest, BuildFailuresLeaveNothingBehind) {
    const char* kBroken = "void main() { this is not glsl; }\n";
    // The varying's type differs between the stages: each compiles, the pair
    // does not link.
    const char* kVsVec2 =
        "attribute vec4 a_vertexCoord;\n"
        "varying vec2 v_x;\n"
        "void main() { gl_Position = a_vertexCoord; v_x = a_vertexCoord.xy; }\n";
    const char* kFsVec3 =
        "precision mediump float;\n"
        "varying vec3 v_x;\n"
        "void main() { gl_FragColor = vec4(v_x, 1.0); }\n";
    const struct {
        const char* vs;
        const char* fs;
        std::vector<std::string> errors;
        int compiled;
        int program;  // the name Use reports
    } cases[] = {
        {kBroken,
         kFsTexCoord,
         {"[CompileShader] can't compile shader", "[Load] can't compile vertex shader"},
         0,
         -1},
        {kVsQuad,
         kBroken,
         {"[CompileShader] can't compile shader", "[Load] can't compile fragment shader"},
         1,
         -1},
        {kVsVec2, kFsVec3, {"[Load] can't link program"}, 2, 0},
    };
    ASSERT_EQ(0, LiveObjects());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.errors.back());
        GLProgTest prog(c.vs, c.fs);
        if (c.program == 0) {  // a program loaded before is dropped too
            ASSERT_EQ(1, prog.Load(kVsQuad, kFsTexCoord));
        }
        m_log.Clear();
        EXPECT_EQ(0, prog.Load(c.vs, c.fs));
        EXPECT_EQ(c.errors, m_log.Texts(E));
        EXPECT_EQ(c.compiled, m_log.Count("[CompileShader] shader "));
        EXPECT_EQ(0, LiveObjects());
        EXPECT_EQ(0, prog.Use());
        EXPECT_TRUE(
            m_log.HasExact(E, "GLProgram", GETestFormat("[Use] invalid program id %d", c.program)));
    }
    GLProgTest prog(kVsQuad, kFsTexCoord);
    EXPECT_EQ(0u, prog.CompileShader(GL_FRAGMENT_SHADER, nullptr));
    EXPECT_EQ(0, LiveObjects());
}

TEST_F(GLProgramTest, LocIsValid) {
    EXPECT_EQ(0, GLProgram::LocIsValid("m_nFoo", -1));
    EXPECT_EQ(0, GLProgram::LocIsValid("m_nBar", -7));
    EXPECT_EQ(1, GLProgram::LocIsValid("m_nFoo", 0));
    EXPECT_EQ(1, GLProgram::LocIsValid("m_nFoo", 15));
    EXPECT_EQ(m_log.Texts(), (std::vector<std::string>{"[LocIsValid] invalid m_nFoo == -1",
                                                       "[LocIsValid] invalid m_nBar == -7"}));
    // The fetch helpers log the member as written in the derived program.
    GLProgTest prog(kVsQuad, kFsYUV2RGB);
    ASSERT_EQ(1, prog.Load()) << m_log.Dump();
    EXPECT_GE(prog.m_nVerCoordLoc, 0);
    EXPECT_EQ(0, prog.FetchMissing());
    EXPECT_EQ(-1, prog.m_nUniformLoc[UNIFORM_MISSING]);
    EXPECT_TRUE(m_log.HasExact(E, "GLProgram",
                               "[LocIsValid] invalid m_nUniformLoc[UNIFORM_MISSING] == -1"));
}

TEST_F(GLProgramTest, SetTexturesChecksTheSlot) {
    int a = 0, b = 0;
    GLTexture* texA = reinterpret_cast<GLTexture*>(&a);
    GLTexture* texB = reinterpret_cast<GLTexture*>(&b);
    GLProgTest prog(kVsQuad, kFsTexCoord);
    EXPECT_EQ(1, prog.SetTextures(7, texA));
    EXPECT_EQ(1, prog.SetTextures(0, texB));
    EXPECT_EQ(0, prog.SetTextures(8, texB));
    EXPECT_EQ(0, prog.SetTextures(0xFFFFFFFFu, texB));
    EXPECT_TRUE(m_log.HasExact(E, "GLProgram", "[SetTextures] nIdx 8 must < 8"));
    for (unsigned i = 0; i < GLProgram::MAX_TEXTURES; i++) {
        EXPECT_EQ(i == 7 ? texA : i == 0 ? texB : nullptr, prog.GetTexture(i)) << i;
    }
}

// Draw() covers the viewport with the quad, texture coordinate (0, 0) at the
// bottom left; each triangle of the index list covers its own half.
TEST_F(GLProgramTest, DrawCoversTheViewportAndEachTriangleItsHalf) {
    const int N = 8;
    Target target(N, N);
    ASSERT_TRUE(target.Complete());
    GLProgTest prog(kVsQuad, kFsTexCoord);
    ASSERT_EQ(1, prog.Load()) << m_log.Dump();

    DrawQuad(prog);
    Pixels px = target.Read();
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
                if (x + y != N - 1) {
                    bool inside = half == 0 ? x + y < N - 1 : x + y > N - 1;
                    EXPECT_EQ(inside ? 255 : 0x44, px[(size_t)(y * N + x) * 4 + 3])
                        << "half " << half << " at " << x << "," << y;
                }
            }
        }
    }
}

// Generic attributes fed by VertexAttribPointer draw what the quad
// attributes draw; a bad location or size is reported.
TEST_F(GLProgramTest, VertexAttribPointer) {
    Target target(4, 4);
    GLProgTest prog(kVsQuad, kFsTexCoord);
    ASSERT_EQ(1, prog.Load()) << m_log.Dump();
    DrawQuad(prog);
    Pixels expected = target.Read();

    // Collapse the quad attributes first, so that only the generic pointers
    // below can draw anything.
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
    const std::string line =
        "[VertexAttribPointer] ERROR, VertexAttribPointer failed with error: 0x501 "
        "GL_INVALID_VALUE";
    EXPECT_EQ(m_log.Texts(E), (std::vector<std::string>{line, line}));
}

// Each wrapper's values land in its uniform, arrays element by element.
TEST_F(GLProgramTest, UniformWrappersReachTheShader) {
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
    const struct {
        const char* name;
        std::vector<float> want;
    } cases[] = {
        {"u_f", {0.2f}},
        {"u_2f", {0.45f, 0.7f}},
        {"u_4f", {0.1f, 0.3f, 0.6f, 0.9f}},
        {"u_fv[0]", {0.15f}},
        {"u_fv[1]", {0.35f}},
        {"u_2fv[0]", {0.55f, 0.65f}},
        {"u_2fv[1]", {0.8f, 0.95f}},
    };
    for (const auto& c : cases) {
        float got[4] = {-1, -1, -1, -1};
        glGetUniformfv(prog.GetProgram(), glGetUniformLocation(prog.GetProgram(), c.name), got);
        EXPECT_EQ(c.want, std::vector<float>(got, got + c.want.size())) << c.name;
    }
    GLint i = 0;
    glGetUniformiv(prog.GetProgram(), glGetUniformLocation(prog.GetProgram(), "u_i"), &i);
    EXPECT_EQ(77, i);
    // A float into an int uniform is GL_INVALID_OPERATION, reported under the
    // wrapper's names.
    m_log.Clear();
    EXPECT_EQ(0, prog.Uniform1f(UNIFORM_I, 1.0f));
    EXPECT_EQ(0, prog.Uniform2fv(UNIFORM_F, 1, f2v));
    EXPECT_EQ(m_log.Texts(E),
              (std::vector<std::string>{
                  "[Uniform1f] ERROR, Uniform1f failed with error: 0x502 GL_INVALID_OPERATION",
                  "[Uniform2fv] ERROR, Uniform2fv failed with error: 0x502 GL_INVALID_OPERATION"}));
}

// The program's matrix turns (Y, V, U) texels into full-range BT.601 RGB.
TEST_F(GLProgramTest, ColourMatrixConvertsYVUToRGB) {
    const int W = 4, H = 2;
    const unsigned char yvu[W * H][3] = {
        {128, 128, 128}, {200, 100, 150}, {60, 180, 90},   {235, 16, 240},
        {16, 240, 16},   {90, 140, 110},  {180, 120, 130}, {255, 0, 255},
    };
    Pixels texels;
    for (const auto& t : yvu) {
        texels.insert(texels.end(), {t[0], t[1], t[2], 255});
    }
    GLuint input = InputTexture(W, H, texels);
    Target target(W, H);
    GLProgTest prog(kVsQuad, kFsYUV2RGB);
    ASSERT_EQ(1, prog.Load()) << m_log.Dump();
    prog.m_nInputTex = input;
    DrawQuad(prog);
    Pixels px = target.Read();
    for (int i = 0; i < W * H; i++) {
        double Y = yvu[i][0] / 255.0, V = yvu[i][1] / 255.0, U = yvu[i][2] / 255.0;
        EXPECT_NEAR(ToByte(Y + 1.402 * V - 0.701), px[i * 4 + 0], 1) << "texel " << i;
        EXPECT_NEAR(ToByte(Y - 0.714 * V - 0.344 * U + 0.529), px[i * 4 + 1], 1) << "texel " << i;
        EXPECT_NEAR(ToByte(Y + 1.772 * U - 0.886), px[i * 4 + 2], 1) << "texel " << i;
        EXPECT_EQ(255, px[i * 4 + 3]) << "texel " << i;
    }
    glDeleteTextures(1, &input);
}

// SaveBinary / LoadBinary over the colour-matrix program.
class GLProgramBinaryTest : public GLProgramTest {
protected:
    static const int W = 4, H = 2;

    void SetUp() override {
        GLProgramTest::SetUp();
        Pixels texels;
        for (int i = 0; i < W * H; i++) {
            texels.insert(texels.end(), {(unsigned char)(30 * i), (unsigned char)(200 - 20 * i),
                                         (unsigned char)(60 + 15 * i), 255});
        }
        m_nInput = InputTexture(W, H, texels);
        m_path = testing::TempDir() + GETestFormat("posteffect_prog_%d_", (int)getpid()) +
                 testing::UnitTest::GetInstance()->current_test_info()->name();
    }
    void TearDown() override {
        remove(m_path.c_str());
        glDeleteTextures(1, &m_nInput);
        GLProgramTest::TearDown();
    }
    Pixels Render(GLProgTest& prog) {
        Target target(W, H);
        prog.m_nInputTex = m_nInput;
        DrawQuad(prog);
        return target.Read();
    }

    GLuint m_nInput = 0;
    std::string m_path;
};

TEST_F(GLProgramBinaryTest, RoundTripRendersTheSame) {
    GLProgTest original(kVsQuad, kFsYUV2RGB);
    ASSERT_EQ(1, original.Load()) << m_log.Dump();
    Pixels expected = Render(original);
    GLint length = 0;
    glGetProgramiv(original.GetProgram(), GL_PROGRAM_BINARY_LENGTH_OES, &length);
    ASSERT_GT(length, 0);
    m_log.Clear();
    ASSERT_EQ(1, original.SaveBinary(m_path.c_str())) << m_log.Dump();
    EXPECT_TRUE(m_log.HasExact(I, "GLProgram",
                               GETestFormat("[SaveBinary] binary length %d bytes", length)));
    // The format as the driver gave it, little-endian, then the binary and
    // nothing else.
    GETestBytes file = GETestReadFile(m_path);
    ASSERT_EQ((size_t)length + 4, file.size());
    EXPECT_TRUE(m_log.HasExact(I, "GLProgram",
                               GETestFormat("[SaveBinary] proram id %u, binary format is 0x%X",
                                            original.GetProgram(), GETestGet32(file, 0))))
        << m_log.Dump();

    GLProgTest restored(kVsQuad, kFsYUV2RGB);
    ASSERT_EQ(1, restored.Load(kVsQuad, kFsTexCoord));
    GLuint replaced = restored.GetProgram();
    m_log.Clear();
    ASSERT_EQ(1, restored.LoadBinary(m_path.c_str())) << m_log.Dump();
    EXPECT_TRUE(
        m_log.HasExact(I, "GLProgram", GETestFormat("[LoadBinary] program %u deleted", replaced)));
    EXPECT_FALSE(glIsProgram(replaced));
    EXPECT_NE(original.GetProgram(), restored.GetProgram());
    ASSERT_EQ(1, restored.FetchLocations()) << m_log.Dump();
    EXPECT_EQ(expected, Render(restored));
}

// Missing, unwritable, short and damaged files: a short one leaves the
// loaded program in place, a damaged one an unlinked program that Use refuses through the GL
// check; the good file loads into the same object afterwards.
TEST_F(GLProgramBinaryTest, RejectedFiles) {
    GLProgTest prog(kVsQuad, kFsYUV2RGB);
    std::string missing = m_path + ".missing";
    const char* unwritable = "/nonexistent-posteffect-dir/prog.bin";
    EXPECT_EQ(0, prog.LoadBinary(missing.c_str()));
    EXPECT_EQ(0, prog.SaveBinary(m_path.c_str()));
    EXPECT_EQ(0xFFFFFFFFu, prog.GetProgram());
    ASSERT_EQ(1, prog.Load()) << m_log.Dump();
    EXPECT_EQ(0, prog.SaveBinary(unwritable));
    EXPECT_EQ(m_log.Texts(E),
              (std::vector<std::string>{
                  "[LoadBinary] can't open binary shader file " + missing,
                  "[SaveBinary] invalid program id -1",
                  std::string("[SaveBinary] can't open ") + unwritable + " for writing"}));
    EXPECT_TRUE(GETestReadFile(m_path).empty());
    Pixels pixels = Render(prog);
    ASSERT_EQ(1, prog.SaveBinary(m_path.c_str())) << m_log.Dump();
    const GETestBytes good = GETestReadFile(m_path);
    ASSERT_GT(good.size(), 16u);
    GLuint program = prog.GetProgram();
    for (size_t size = 0; size < 4; size++) {
        m_log.Clear();
        ASSERT_TRUE(GETestWriteFile(m_path, GETestBytes(size, 0x41)));
        EXPECT_EQ(0, prog.LoadBinary(m_path.c_str())) << size;
        EXPECT_EQ(m_log.Texts(E), std::vector<std::string>{"[LoadBinary] invalid shader length"});
        EXPECT_EQ(program, prog.GetProgram());
    }
    EXPECT_EQ(1, prog.Use());

    std::vector<GETestBytes> bad;
    bad.emplace_back(good.begin(), good.begin() + 4);  // the format alone
    bad.emplace_back(good.begin(), good.begin() + good.size() / 2);
    bad.push_back(good);
    for (size_t i = 4 + (good.size() - 4) / 2, k = 0; i < good.size() && k < 8; i++, k++) {
        bad.back()[i] ^= 0xA5;
    }
    bad.push_back(good);
    bad.back()[5] ^= 0xFF;
    bad.push_back(good);
    bad.back()[0] ^= 0x01;  // an unknown format
    for (size_t i = 0; i < bad.size(); i++) {
        SCOPED_TRACE(i);
        m_log.Clear();
        ASSERT_TRUE(GETestWriteFile(m_path, bad[i]));
        EXPECT_EQ(0, prog.LoadBinary(m_path.c_str()));
        EXPECT_TRUE(m_log.HasExact(E, "GLProgram", "[LoadBinary] can't load binary shader"))
            << m_log.Dump();
        // Whatever GL error the driver raised was taken by LoadBinary.
        EXPECT_EQ(GL_NO_ERROR, glGetError());
        EXPECT_TRUE(glIsProgram(prog.GetProgram()));
        EXPECT_EQ(0, prog.Use());
        EXPECT_EQ(GL_NO_ERROR, glGetError());
    }
    EXPECT_TRUE(
        m_log.Has(E, "GECommon", "[LoadBinary] ERROR, glProgramBinaryOES failed with error: 0x500"))
        << m_log.Dump();
    // An unlinked program has no binary to save.
    std::string other = m_path + ".unlinked";
    EXPECT_EQ(0, prog.SaveBinary(other.c_str()));
    EXPECT_TRUE(GETestReadFile(other).empty());
    EXPECT_EQ(GL_NO_ERROR, glGetError());

    ASSERT_TRUE(GETestWriteFile(m_path, good));
    ASSERT_EQ(1, prog.LoadBinary(m_path.c_str())) << m_log.Dump();
    ASSERT_EQ(1, prog.FetchLocations());
    EXPECT_EQ(pixels, Render(prog));
}

}  // namespace
