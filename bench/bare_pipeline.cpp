#include "bare_pipeline.h"

#include <string>

namespace {

const char kVertex[] =
    "attribute vec4 a_pos;\n"
    "attribute vec2 a_tex;\n"
    "varying vec2 v_tex;\n"
    "void main() { gl_Position = a_pos; v_tex = a_tex; }\n";

#define HEAD                        \
    "precision highp float;\n"      \
    "uniform sampler2D s_tex0;\n"   \
    "uniform sampler2D s_tex1;\n"   \
    "uniform sampler2D s_tex2;\n"   \
    "uniform mat4 u_mat;\n"         \
    "uniform vec2 u_shift[14];\n"   \
    "uniform float u_weight[15];\n" \
    "varying vec2 v_tex;\n"

const char kRgb[] = HEAD "void main() { gl_FragColor = u_mat * texture2D(s_tex0, v_tex); }\n";

const char kLuma[] = HEAD
    "void main() {\n"
    "    vec4 k = vec4(0.299, 0.587, 0.114, 0.0);\n"
    "    gl_FragColor = vec4(dot(k, texture2D(s_tex0, v_tex + u_shift[0])),\n"
    "                        dot(k, texture2D(s_tex0, v_tex + u_shift[1])),\n"
    "                        dot(k, texture2D(s_tex0, v_tex + u_shift[2])),\n"
    "                        dot(k, texture2D(s_tex0, v_tex + u_shift[3])));\n"
    "}\n";

const char kChroma[] = HEAD
    "void main() {\n"
    "    vec4 a = texture2D(s_tex0, v_tex + u_shift[0]);\n"
    "    vec4 b = texture2D(s_tex0, v_tex + u_shift[1]);\n"
    "    a.a = 1.0;\n"
    "    b.a = 1.0;\n"
    "    vec4 u = vec4(-0.168727, -0.33126147, 0.5, 0.5);\n"
    "    vec4 v = vec4(0.5, -0.4186829, -0.0813089, 0.5);\n"
    "    gl_FragColor = vec4(dot(v, a), dot(u, a), dot(v, b), dot(u, b));\n"
    "}\n";

const char kLook[] = HEAD
    "void main() {\n"
    "    vec4 c = u_mat * texture2D(s_tex0, v_tex);\n"
    "    c.r = texture2D(s_tex1, vec2(c.r, 0.5)).r;\n"
    "    c.g = texture2D(s_tex1, vec2(c.g, 0.5)).g;\n"
    "    c.b = texture2D(s_tex1, vec2(c.b, 0.5)).b;\n"
    "    gl_FragColor = vec4(c.rgb * texture2D(s_tex2, v_tex).r, 1.0);\n"
    "}\n";

#define TAP(k, g) "    sum += texture2D(s_tex0, v_tex + u_shift[" #k "]) * u_weight[" #g "];\n"
const char kBlurFs[] = HEAD
    "void main() {\n"
    "    vec4 sum = texture2D(s_tex0, v_tex) * u_weight[5];\n" TAP(0, 0) TAP(1, 1) TAP(2, 2)
        TAP(3, 3) TAP(4, 4) TAP(5, 6) TAP(6, 7) TAP(7, 8) TAP(8, 9) TAP(9, 10) TAP(10, 11)
            TAP(11, 12) TAP(12, 13) TAP(13, 14)
    "    gl_FragColor = sum;\n"
    "}\n";

const char kSizeUp[] = HEAD
    "void main() {\n"
    "    vec4 clear = texture2D(s_tex1, v_tex);\n"
    "    vec4 blur = texture2D(s_tex0, v_tex);\n"
    "    float s = smoothstep(0.3, 0.45, length(v_tex - vec2(0.5)));\n"
    "    gl_FragColor = u_mat * mix(clear, blur, s);\n"
    "}\n";

// Full-range BT.601 with the chroma offset folded in, column by column.
const GLfloat kMat[16] = {1.0f, 1.0f,    1.0f,   0.0f, 1.402f,  -0.714f, 0.0f,    0.0f,
                          0.0f, -0.344f, 1.772f, 0.0f, -0.701f, 0.529f,  -0.886f, 1.0f};

GLuint Build(const char* fs) {
    GLuint prog = glCreateProgram();
    for (GLenum type : {(GLenum)GL_VERTEX_SHADER, (GLenum)GL_FRAGMENT_SHADER}) {
        GLuint sh = glCreateShader(type);
        const char* src = type == GL_VERTEX_SHADER ? kVertex : fs;
        glShaderSource(sh, 1, &src, nullptr);
        glCompileShader(sh);
        glAttachShader(prog, sh);
        glDeleteShader(sh);
    }
    glBindAttribLocation(prog, 0, "a_pos");
    glBindAttribLocation(prog, 1, "a_tex");
    glLinkProgram(prog);
    GLint ok = 0;
    glGetProgramiv(prog, GL_LINK_STATUS, &ok);
    if (!ok) {
        glDeleteProgram(prog);
        return 0;
    }
    glUseProgram(prog);
    glUniform1i(glGetUniformLocation(prog, "s_tex0"), 0);
    glUniform1i(glGetUniformLocation(prog, "s_tex1"), 1);
    glUniform1i(glGetUniformLocation(prog, "s_tex2"), 2);
    glUniformMatrix4fv(glGetUniformLocation(prog, "u_mat"), 1, GL_FALSE, kMat);
    return prog;
}

void SetShifts(GLuint prog, const GLfloat* shifts, int n) {
    glUseProgram(prog);
    glUniform2fv(glGetUniformLocation(prog, "u_shift"), n, shifts);
}

}  // namespace

BarePipeline::~BarePipeline() {
    for (const Target* t : {&m_rgb, &m_y, &m_uv, &m_blurH, &m_blurV}) {
        glDeleteFramebuffers(1, &t->fbo);
        glDeleteTextures(1, &t->tex);
    }
    for (const GLuint* t : {&m_nFrameTex, &m_nCurveTex, &m_nMaskTex}) {
        glDeleteTextures(1, t);
    }
    for (GLuint p : {m_nProgRgb, m_nProgY, m_nProgUV, m_nProgBlurH, m_nProgBlurV, m_nProgSizeUp,
                     m_nProgLook}) {
        glDeleteProgram(p);
    }
}

bool BarePipeline::MakeTarget(Target* t, int w, int h, GLenum filter) {
    t->w = w;
    t->h = h;
    glGenTextures(1, &t->tex);
    glBindTexture(GL_TEXTURE_2D, t->tex);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, (GLint)filter);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, (GLint)filter);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glGenFramebuffers(1, &t->fbo);
    glBindFramebuffer(GL_FRAMEBUFFER, t->fbo);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, t->tex, 0);
    return glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
}

GLuint BarePipeline::MakeLookUp(int w, int h, const uint8_t* rgba) {
    GLuint tex = 0;
    glGenTextures(1, &tex);
    glBindTexture(GL_TEXTURE_2D, tex);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    return tex;
}

bool BarePipeline::Init(int w, int h, Kind kind) {
    m_nW = w;
    m_nH = h;
    m_eKind = kind;
    glGenTextures(1, &m_nFrameTex);
    glBindTexture(GL_TEXTURE_2D, m_nFrameTex);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    const int planeW = ((w / 4 + 31) & ~31);
    bool ok = MakeTarget(&m_rgb, w, h, GL_LINEAR) && MakeTarget(&m_y, planeW, h, GL_NEAREST) &&
              MakeTarget(&m_uv, planeW, h / 2, GL_NEAREST);
    m_nProgRgb = Build(kRgb);
    m_nProgY = Build(kLuma);
    m_nProgUV = Build(kChroma);
    ok = ok && m_nProgRgb && m_nProgY && m_nProgUV;
    const GLfloat yShift[8] = {-1.5f / w, 0, -0.5f / w, 0, 0.5f / w, 0, 1.5f / w, 0};
    const GLfloat uvShift[4] = {-1.0f / w, 0, 1.0f / w, 0};
    SetShifts(m_nProgY, yShift, 4);
    SetShifts(m_nProgUV, uvShift, 2);
    if (kind == kBlur) {
        ok = ok && MakeTarget(&m_blurH, w / 3, h / 3, GL_LINEAR) &&
             MakeTarget(&m_blurV, w / 3, h / 3, GL_LINEAR);
        m_nProgBlurH = Build(kBlurFs);
        m_nProgBlurV = Build(kBlurFs);
        m_nProgSizeUp = Build(kSizeUp);
        ok = ok && m_nProgBlurH && m_nProgBlurV && m_nProgSizeUp;
        GLfloat h[28], v[28], weights[15];
        const int steps[14] = {-5, -4, -3, -2, -1, 1, 2, 3, 4, 5, -6, -7, 6, 7};
        for (int k = 0; k < 14; ++k) {
            h[2 * k] = 1.5f * steps[k] / w, h[2 * k + 1] = 0;
            v[2 * k] = 0, v[2 * k + 1] = 1.5f * steps[k] / this->m_nH;
        }
        for (GLfloat& x : weights) {
            x = 1.0f / 15.0f;
        }
        SetShifts(m_nProgBlurH, h, 14);
        SetShifts(m_nProgBlurV, v, 14);
        for (GLuint p : {m_nProgBlurH, m_nProgBlurV}) {
            glUseProgram(p);
            glUniform1fv(glGetUniformLocation(p, "u_weight"), 15, weights);
        }
    }
    if (kind == kLookUps) {
        m_nProgLook = Build(kLook);
        std::vector<uint8_t> curve(256 * 4), mask(64 * 64 * 4);
        for (size_t i = 0; i < curve.size(); ++i) {
            curve[i] = uint8_t(255 - i / 4);
        }
        for (size_t i = 0; i < mask.size(); ++i) {
            mask[i] = uint8_t(i * 7);
        }
        m_nCurveTex = MakeLookUp(256, 1, curve.data());
        m_nMaskTex = MakeLookUp(64, 64, mask.data());
        ok = ok && m_nProgLook;
    }
    m_vOut.resize((size_t)planeW * 4 * h * 3 / 2);
    return ok && glGetError() == GL_NO_ERROR;
}

void BarePipeline::Draw(GLuint prog, const Target& dst, GLuint src0, GLuint src1) {
    static const GLfloat kPos[] = {-1, -1, 1, 1, 1, -1, 1, 1, -1, 1, 1, 1, 1, 1, 1, 1};
    static const GLfloat kTex[] = {0, 0, 1, 0, 0, 1, 1, 1};
    glBindFramebuffer(GL_FRAMEBUFFER, dst.fbo);
    glViewport(0, 0, dst.w, dst.h);
    glUseProgram(prog);
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_2D, src1);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, src0);
    glVertexAttribPointer(0, 4, GL_FLOAT, GL_FALSE, 0, kPos);
    glEnableVertexAttribArray(0);
    glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, 0, kTex);
    glEnableVertexAttribArray(1);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
}

void BarePipeline::Frame(const uint8_t* yuvx) {
    glBindTexture(GL_TEXTURE_2D, m_nFrameTex);
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, m_nW, m_nH, GL_RGBA, GL_UNSIGNED_BYTE, yuvx);
    if (m_eKind == kBlur) {
        Draw(m_nProgBlurH, m_blurH, m_nFrameTex, 0);
        Draw(m_nProgBlurV, m_blurV, m_blurH.tex, 0);
        Draw(m_nProgSizeUp, m_rgb, m_blurV.tex, m_nFrameTex);
    } else if (m_eKind == kLookUps) {
        glActiveTexture(GL_TEXTURE2);
        glBindTexture(GL_TEXTURE_2D, m_nMaskTex);
        Draw(m_nProgLook, m_rgb, m_nFrameTex, m_nCurveTex);
    } else {
        Draw(m_nProgRgb, m_rgb, m_nFrameTex, 0);
    }
    // The luma pass reads whole texels, the chroma pass the mean of 2 x 2.
    Target y = m_y, uv = m_uv;
    y.w = m_nW / 4;
    uv.w = m_nW / 4;
    glBindTexture(GL_TEXTURE_2D, m_rgb.tex);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    Draw(m_nProgY, y, m_rgb.tex, 0);
    glBindTexture(GL_TEXTURE_2D, m_rgb.tex);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    Draw(m_nProgUV, uv, m_rgb.tex, 0);
    glBindFramebuffer(GL_FRAMEBUFFER, m_y.fbo);
    glReadPixels(0, 0, m_y.w, m_y.h, GL_RGBA, GL_UNSIGNED_BYTE, m_vOut.data());
    glBindFramebuffer(GL_FRAMEBUFFER, m_uv.fbo);
    glReadPixels(0, 0, m_uv.w, m_uv.h, GL_RGBA, GL_UNSIGNED_BYTE,
                 m_vOut.data() + (size_t)m_y.w * 4 * m_y.h);
}
