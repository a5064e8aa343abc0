#include "gl/GLProgram.h"

#include <GLES2/gl2ext.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>

#include "gl/GECommon.h"
#include "gl/GELog.h"
#include "gl/GLTexture.h"

namespace {

GELogTag s_log("GLProgram");

// The sampler slot of s_texture0, the input texture of the quad programs.
const int kInputSampler = 0;

// The column-major YUV-to-RGB matrix: columns Y, V (Cr), U (Cb) and the
// constant term, rows R, G, B and the fourth component. The offsets are
// -1.402 / 2, (0.714 + 0.344) / 2 and -1.772 / 2.
const GLfloat kMatYUV2RGB[16] = {
    1.0f,    1.0f,    1.0f,    0.0f,  // Y
    1.402f,  -0.714f, 0.0f,    0.0f,  // V
    0.0f,    -0.344f, 1.772f,  0.0f,  // U
    -0.701f, 0.529f,  -0.886f, 1.0f,  // offset
};

}  // namespace

const GLushort GLProgram::s_nQuadIndices[6] = {0, 1, 2, 0, 2, 3};

GLProgram::GLProgram() : m_nProgram(INVALID_PROGRAM), m_nVerCoordLoc(-1), m_nTexCoordLoc(-1) {
    GE_LOGI(s_log, "[%s] enter", "GLProgram");
    for (int i = 0; i < MAX_ATTRIBS; i++) {
        m_nAttribLoc[i] = -1;
    }
    for (int i = 0; i < MAX_UNIFORMS; i++) {
        m_nUniformLoc[i] = -1;
    }
    for (int i = 0; i < MAX_SAMPLERS; i++) {
        m_nSamplerLoc[i] = -1;
    }
    for (unsigned i = 0; i < MAX_TEXTURES; i++) {
        m_pInputTex[i] = nullptr;
    }
    for (int i = 0; i < 16; i++) {
        m_fMatYUV2RGB[i] = kMatYUV2RGB[i];
    }
    GE_LOGI(s_log, "[%s] leave", "GLProgram");
}

GLProgram::~GLProgram() {
    GE_LOGI(s_log, "[%s] enter", "~GLProgram");
    // Only a real program is handed to GL: deleting the initial 0xFFFFFFFF
    // would leave a GL_INVALID_VALUE behind for the next caller's check.
    if (glIsProgram(m_nProgram)) {
        glDeleteProgram(m_nProgram);
    }
    GE_LOGI(s_log, "[%s] program %d deleted\n", "~GLProgram", (int)m_nProgram);
    GE_LOGI(s_log, "[%s] leave", "~GLProgram");
}

GLuint GLProgram::CompileShader(GLenum type, const char* source) {
    GE_LOGI(s_log, "[%s] enter", "CompileShader");
    if (source == nullptr) {
        GE_LOGE(s_log, "[%s] can't compile shader\n", "CompileShader");
        return 0;
    }
    GLuint shader = glCreateShader(type);
    if (shader == 0) {
        GE_LOGE(s_log, "[%s] can't create shader obj\n", "CompileShader");
        return 0;
    }
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    GLint compiled = GL_FALSE;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
    if (!compiled) {
        glDeleteShader(shader);
        GE_LOGE(s_log, "[%s] can't compile shader\n", "CompileShader");
        return 0;
    }
    GE_LOGI(s_log, "[%s] shader %d compiled\n", "CompileShader", (int)shader);
    GE_LOGI(s_log, "[%s] leave", "CompileShader");
    return shader;
}

int GLProgram::Load(const char* vs, const char* fs) {
    GE_LOGI(s_log, "[%s] enter", "Load");
    GLuint vertexShader = CompileShader(GL_VERTEX_SHADER, vs);
    if (vertexShader == 0) {
        GE_LOGE(s_log, "[%s] can't compile vertex shader\n", "Load");
        return 0;
    }
    GLuint fragmentShader = CompileShader(GL_FRAGMENT_SHADER, fs);
    if (fragmentShader == 0) {
        GE_LOGE(s_log, "[%s] can't compile fragment shader\n", "Load");
        glDeleteShader(vertexShader);
        return 0;
    }
    GLuint program = glCreateProgram();
    if (program == 0) {
        GE_LOGE(s_log, "[%s] can't create program\n", "Load");
        glDeleteShader(vertexShader);
        glDeleteShader(fragmentShader);
        return 0;
    }
    glAttachShader(program, vertexShader);
    glAttachShader(program, fragmentShader);
    glLinkProgram(program);
    GLint linked = GL_FALSE;
    glGetProgramiv(program, GL_LINK_STATUS, &linked);
    // The shaders are flagged for deletion either way: a linked program keeps
    // them attached until it goes, a failed one takes them with it.
    glDeleteShader(vertexShader);
    glDeleteShader(fragmentShader);

    // A program loaded before is replaced.
    if (m_nProgram != program && glIsProgram(m_nProgram)) {
        glDeleteProgram(m_nProgram);
    }
    if (!linked) {
        glDeleteProgram(program);
        m_nProgram = 0;
        GE_LOGE(s_log, "[%s] can't link program\n", "Load");
        return 0;
    }
    m_nProgram = program;
    GE_LOGI(s_log, "[%s] program %d created\n", "Load", (int)m_nProgram);
    GE_LOGI(s_log, "[%s] leave", "Load");
    return 1;
}

int GLProgram::Use() {
    if (glIsProgram(m_nProgram)) {
        glUseProgram(m_nProgram);
        return (int)CheckGLError("Use", "gluseProgram");
    }
    GE_LOGE(s_log, "[%s] invalid program id %d", "Use", (int)m_nProgram);
    return 0;
}

int GLProgram::SetTextures(unsigned nIdx, GLTexture* tex) {
    if (nIdx >= MAX_TEXTURES) {
        GE_LOGE(s_log, "[%s] nIdx %d must < %d", "SetTextures", (int)nIdx, (int)MAX_TEXTURES);
        return 0;
    }
    m_pInputTex[nIdx] = tex;
    return 1;
}

int GLProgram::Uniform1i(int idx, int v) {
    glUniform1i(m_nUniformLoc[idx], v);
    return (int)CheckGLError("Uniform1i", "Uniform1i");
}

int GLProgram::Uniform1f(int idx, float v) {
    glUniform1f(m_nUniformLoc[idx], v);
    return (int)CheckGLError("Uniform1f", "Uniform1f");
}

int GLProgram::Uniform2f(int idx, float x, float y) {
    glUniform2f(m_nUniformLoc[idx], x, y);
    return (int)CheckGLError("Uniform2f", "Uniform2f");
}

int GLProgram::Uniform4f(int idx, float x, float y, float z, float w) {
    glUniform4f(m_nUniformLoc[idx], x, y, z, w);
    return (int)CheckGLError("Uniform4f", "Uniform4f");
}

int GLProgram::Uniform1fv(int idx, int count, const float* v) {
    glUniform1fv(m_nUniformLoc[idx], count, v);
    return (int)CheckGLError("Uniform1fv", "Uniform1fv");
}

int GLProgram::Uniform2fv(int idx, int count, const float* v) {
    glUniform2fv(m_nUniformLoc[idx], count, v);
    return (int)CheckGLError("Uniform2fv", "Uniform2fv");
}

int GLProgram::VertexAttribPointer(int idx, int size, const void* p) {
    GLuint loc = (GLuint)m_nAttribLoc[idx];
    glVertexAttribPointer(loc, size, GL_FLOAT, GL_FALSE, 0, p);
    if (!CheckGLError("VertexAttribPointer", "VertexAttribPointer")) {
        return 0;
    }
    glEnableVertexAttribArray(loc);
    return (int)CheckGLError("VertexAttribPointer", "glEnableVertexAttribArray");
}

int GLProgram::SetVertexCoord(int size, const void* pointer) {
    glVertexAttribPointer((GLuint)m_nVerCoordLoc, size, GL_FLOAT, GL_FALSE, 0, pointer);
    glEnableVertexAttribArray((GLuint)m_nVerCoordLoc);
    return 1;
}

int GLProgram::SetTextureCoord(int size, const void* pointer) {
    glVertexAttribPointer((GLuint)m_nTexCoordLoc, size, GL_FLOAT, GL_FALSE, 0, pointer);
    glEnableVertexAttribArray((GLuint)m_nTexCoordLoc);
    return 1;
}

int GLProgram::Draw() {
    glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_SHORT, s_nQuadIndices);
    return 1;
}

int GLProgram::Draw(int count, const void* indices) {
    glDrawElements(GL_TRIANGLES, count, GL_UNSIGNED_SHORT, indices);
    return 1;
}

int GLProgram::LocIsValid(const char* name, int loc) {
    if (loc >= 0) {
        return 1;
    }
    GE_LOGE(s_log, "[%s] invalid %s == %d", "LocIsValid", name, loc);
    return 0;
}

int GLProgram::FetchAttribLoc(GLint& loc, const char* shaderName, const char* memberName) {
    loc = glGetAttribLocation(m_nProgram, shaderName);
    return LocIsValid(memberName, loc);
}

int GLProgram::FetchUniformLoc(GLint& loc, const char* shaderName, const char* memberName) {
    loc = glGetUniformLocation(m_nProgram, shaderName);
    return LocIsValid(memberName, loc);
}

int GLProgram::OpenLoad(GELogTag& log, const char* vs, const char* fs) {
    if (!Load(vs, fs)) {
        GE_LOGE(log, "[%s] can't load shader", "Load");
        return 0;
    }
    GE_LOGI(log, "[%s] use program", "Load");
    if (!GLProgram::Use()) {
        return 0;
    }
    GE_LOGI(log, "[%s] get locations", "Load");
    return 1;
}

int GLProgram::LoadQuad(GELogTag& log, const char* vs, const char* fs) {
    return OpenLoad(log, vs, fs) &&
           FetchAttribLoc(m_nVerCoordLoc, "a_vertexCoord", "m_nVerCoordLoc") &&
           FetchAttribLoc(m_nTexCoordLoc, "a_textureCoord", "m_nTexCoordLoc") &&
           FetchUniformLoc(m_nSamplerLoc[kInputSampler], "s_texture0",
                           "m_nSamplerLoc[SAMPLER_INPUT_TEX]");
}

int GLProgram::LoadDone(GELogTag& log) {
    GE_LOGI(log, "[%s] program id %d", "Load", (int)m_nProgram);
    GE_LOGI(log, "[%s] SAMPLER_INPUT_TEX %d", "Load", (int)m_nSamplerLoc[kInputSampler]);
    GE_LOGI(log, "[%s] leave", "Load");
    return 1;
}

int GLProgram::UseInputTex(unsigned nCount) {
    const int ok = GLProgram::Use();
    if (!ok) {
        return 0;
    }
    for (unsigned i = 0; i < nCount && i < MAX_TEXTURES && (int)i < MAX_SAMPLERS; ++i) {
        glActiveTexture(GL_TEXTURE0 + i);
        glUniform1i(m_nSamplerLoc[i], (GLint)i);
        if (m_pInputTex[i] != nullptr) {
            m_pInputTex[i]->Bind();
        }
    }
    return ok;
}

int GLProgram::SaveBinary(const char* path) {
    GE_LOGI(s_log, "[%s] enter", "SaveBinary");
    if (!glIsProgram(m_nProgram)) {
        GE_LOGE(s_log, "[%s] invalid program id %d", "SaveBinary", (int)m_nProgram);
        return 0;
    }
    GLint length = 0;
    glGetProgramiv(m_nProgram, GL_PROGRAM_BINARY_LENGTH_OES, &length);
    GE_LOGI(s_log, "[%s] binary length %d bytes", "SaveBinary", (int)length);
    unsigned char* buffer = (unsigned char*)malloc(length > 0 ? (size_t)length : 1);
    if (buffer == nullptr) {
        GE_LOGE(s_log, "[%s] out of memory", "SaveBinary");
        return 0;
    }
    GLenum format = 0;
    GLsizei written = 0;
    glGetProgramBinaryOES(m_nProgram, length, &written, &format, buffer);
    // An unlinked program has no binary: nothing is written then.
    if (!CheckGLError("SaveBinary", "glGetProgramBinaryOES")) {
        free(buffer);
        return 0;
    }
    GE_LOGI(s_log, "[%s] proram id %d, binary format is 0x%X", "SaveBinary", (int)m_nProgram,
            (unsigned)format);

    FILE* file = fopen(path, "wb");
    if (file == nullptr) {
        GE_LOGE(s_log, "[%s] can't open %s for writing", "SaveBinary", path);
        free(buffer);
        return 0;
    }
    const unsigned char header[4] = {
        (unsigned char)(format & 0xFF), (unsigned char)((format >> 8) & 0xFF),
        (unsigned char)((format >> 16) & 0xFF), (unsigned char)((format >> 24) & 0xFF)};
    bool ok = fwrite(header, 1, sizeof(header), file) == sizeof(header);
    if (ok && written > 0) {
        ok = fwrite(buffer, 1, (size_t)written, file) == (size_t)written;
    }
    ok = fclose(file) == 0 && ok;
    free(buffer);
    if (!ok) {
        // A partial file would only be rejected later; leave none.
        GE_LOGE(s_log, "[%s] can't write %s", "SaveBinary", path);
        remove(path);
        return 0;
    }
    GE_LOGI(s_log, "[%s] leave", "SaveBinary");
    return 1;
}

int GLProgram::LoadBinary(const char* path) {
    GE_LOGI(s_log, "[%s] enter", "LoadBinary");
    FILE* file = fopen(path, "rb");
    if (file == nullptr) {
        GE_LOGE(s_log, "[%s] can't open binary shader file %s", "LoadBinary", path);
        return 0;
    }
    long size = -1;
    if (fseek(file, 0, SEEK_END) == 0) {
        size = ftell(file);
    }
    // The binary is all of the file after the 4-byte format; GL takes its
    // length as a GLsizei.
    long n = size - 4;
    if (size < 0 || n < 0 || n > INT_MAX) {
        GE_LOGE(s_log, "[%s] invalid shader length", "LoadBinary");
        fclose(file);
        return 0;
    }
    unsigned char* buffer = (unsigned char*)malloc(n > 0 ? (size_t)n : 1);
    if (buffer == nullptr) {
        GE_LOGE(s_log, "[%s] out of memory", "LoadBinary");
        fclose(file);
        return 0;
    }
    rewind(file);
    unsigned char header[4] = {0, 0, 0, 0};
    bool ok = fread(header, 1, sizeof(header), file) == sizeof(header);
    if (ok && n > 0) {
        ok = fread(buffer, 1, (size_t)n, file) == (size_t)n;
    }
    fclose(file);
    if (!ok) {
        // The file is shorter than its size said (or not a plain file).
        GE_LOGE(s_log, "[%s] invalid shader length", "LoadBinary");
        free(buffer);
        return 0;
    }
    GLenum format = (GLenum)header[0] | ((GLenum)header[1] << 8) | ((GLenum)header[2] << 16) |
                    ((GLenum)header[3] << 24);

    if (glIsProgram(m_nProgram)) {
        glDeleteProgram(m_nProgram);
        GE_LOGI(s_log, "[%s] program %d deleted\n", "LoadBinary", (int)m_nProgram);
    }
    m_nProgram = glCreateProgram();
    if (m_nProgram == 0) {
        GE_LOGE(s_log, "[%s] can't create program\n", "LoadBinary");
        free(buffer);
        return 0;
    }
    glProgramBinaryOES(m_nProgram, format, buffer, (GLint)n);
    free(buffer);
    // An unknown format is a GL error; take it here rather than leave it to
    // the next check.
    CheckGLError("LoadBinary", "glProgramBinaryOES");
    GLint linked = GL_FALSE;
    glGetProgramiv(m_nProgram, GL_LINK_STATUS, &linked);
    if (!linked) {
        GE_LOGE(s_log, "[%s] can't load binary shader", "LoadBinary");
        return 0;
    }
    GE_LOGI(s_log, "[%s] leave", "LoadBinary");
    return 1;
}
