// Base class of every GLSL ES program of the plug-in.
//
// A derived program supplies its shader texts in Load(), compiles and links
// them with Load(vs, fs), then fetches its locations into the tables below,
// each checked with LocIsValid under the member's name:
//
//     int GLProgFoo::Load() {
//         if (!GLProgram::Load(s_szVertex, s_szFragment)) {
//             return 0;
//         }
//         if (!GLPROG_ATTRIB_LOC(m_nVerCoordLoc, "a_vertexCoord") ||
//             !GLPROG_UNIFORM_LOC(m_nSamplerLoc[SAMPLER_INPUT_TEX], "s_texture0")) {
//             return 0;
//         }
//         ...
//     }
//
// Per frame: Use() (the derived one binds its input textures and sets its
// uniforms), SetVertexCoord / SetTextureCoord with the quad of GLQuad.h,
// Draw(). All lines are logged under "GLProgram".
#ifndef POSTEFFECT_GL_GLPROGRAM_H
#define POSTEFFECT_GL_GLPROGRAM_H

#include <GLES2/gl2.h>

class GELogTag;
class GLTexture;

class GLProgram {
public:
    // Sizes of the location tables and of the input texture slots.
    static constexpr int MAX_ATTRIBS = 8;
    static constexpr int MAX_UNIFORMS = 16;
    static constexpr int MAX_SAMPLERS = 8;
    static constexpr unsigned MAX_TEXTURES = 8;
    // The program name before anything was loaded.
    static constexpr GLuint INVALID_PROGRAM = 0xFFFFFFFFu;

    GLProgram();
    virtual ~GLProgram();

    // Supplies the derived program's sources, builds it and fetches its
    // locations. 1 on success.
    virtual int Load() = 0;
    // Makes the program current; 0 when there is no valid program.
    virtual int Use();
    // Feeds the position / texture-coordinate attribute from client memory
    // (`size` floats per vertex) and enables it. Always 1.
    virtual int SetVertexCoord(int size, const void* pointer);
    virtual int SetTextureCoord(int size, const void* pointer);
    // Draws the quad's two triangles (six indices of s_nQuadIndices). 1.
    virtual int Draw();
    // Draws `count` 16-bit indices as triangles. 1.
    virtual int Draw(int count, const void* indices);

    // Compiles one shader; its name, or 0 (nothing left behind) on failure.
    GLuint CompileShader(GLenum type, const char* source);
    // Compiles both shaders and links them into this object's program.
    int Load(const char* vs, const char* fs);

    // Puts `tex` (not owned) into input slot `nIdx` < MAX_TEXTURES.
    int SetTextures(unsigned nIdx, GLTexture* tex);

    // glUniform* on m_nUniformLoc[idx], followed by CheckGLError; the index
    // is the derived program's own constant and is not range-checked.
    int Uniform1i(int idx, int v);
    int Uniform1f(int idx, float v);
    int Uniform2f(int idx, float x, float y);
    int Uniform4f(int idx, float x, float y, float z, float w);
    int Uniform1fv(int idx, int count, const float* v);
    int Uniform2fv(int idx, int count, const float* v);

    // Feeds generic attribute m_nAttribLoc[idx] (floats, `size` per vertex)
    // and enables it; 1 when both calls succeed.
    int VertexAttribPointer(int idx, int size, const void* p);

    // 1 when `loc` >= 0; otherwise logs "[LocIsValid] invalid NAME == LOC".
    static int LocIsValid(const char* name, int loc);

    // Writes the linked program as a binary file: the 4-byte little-endian
    // binary format, then the binary.
    int SaveBinary(const char* path);
    // Replaces the program with one restored from a file of SaveBinary.
    // A binary the driver rejects gives 0 and leaves an unlinked program.
    int LoadBinary(const char* path);

    GLuint GetProgram() const { return m_nProgram; }
    // The texture in input slot `nIdx`, null when empty or out of range.
    GLTexture* GetTexture(unsigned nIdx) const {
        return nIdx < MAX_TEXTURES ? m_pInputTex[nIdx] : nullptr;
    }
    // The YUV-to-RGB matrix, 16 floats column-major, for
    // glUniformMatrix4fv(loc, 1, GL_FALSE, GetMatYUV2RGB()) as u_mat_yuv2rgb.
    const GLfloat* GetMatYUV2RGB() const { return m_fMatYUV2RGB; }

    // The quad's triangles (0, 1, 2) and (0, 2, 3).
    static const GLushort s_nQuadIndices[6];

protected:
    // The opening of a derived Load, with its lines under the owner's tag
    // `log`: builds vs / fs ("[Load] can't load shader" when that fails),
    // logs "[Load] use program" and uses it, logs "[Load] get locations".
    // The caller fetches its locations after. 1 / 0.
    int OpenLoad(GELogTag& log, const char* vs, const char* fs);
    // OpenLoad for a program that draws the quad from one input texture,
    // then fetches, in this order, a_vertexCoord (m_nVerCoordLoc),
    // a_textureCoord (m_nTexCoordLoc) and s_texture0 (m_nSamplerLoc[0],
    // input slot 0). 1 / 0.
    int LoadQuad(GELogTag& log, const char* vs, const char* fs);
    // The closing lines of such a Load under `log`: "[Load] program id %d",
    // "[Load] SAMPLER_INPUT_TEX %d" (the s_texture0 location) and
    // "[Load] leave". 1.
    int LoadDone(GELogTag& log);
    // Use() with input slots 0 .. nCount - 1 bound to texture units of the
    // same numbers and the samplers m_nSamplerLoc[0 .. nCount - 1] set to
    // those units. The result of Use().
    int UseInputTex(unsigned nCount = 1);

    // loc = the location of attribute / uniform `shaderName` in the linked
    // program, then LocIsValid(memberName, loc). Use the macros below, which
    // log the member expression as it is written.
    int FetchAttribLoc(GLint& loc, const char* shaderName, const char* memberName);
    int FetchUniformLoc(GLint& loc, const char* shaderName, const char* memberName);

    GLuint m_nProgram;
    GLint m_nAttribLoc[MAX_ATTRIBS];
    GLint m_nUniformLoc[MAX_UNIFORMS];
    GLint m_nSamplerLoc[MAX_SAMPLERS];
    GLint m_nVerCoordLoc;
    GLint m_nTexCoordLoc;
    GLTexture* m_pInputTex[MAX_TEXTURES];
    // Maps (Y, V, U, 1) to (R, G, B, 1): full-range BT.601 with the chroma
    // offset of one half folded into the last column.
    GLfloat m_fMatYUV2RGB[16];

private:
    GLProgram(const GLProgram&) = delete;
    GLProgram& operator=(const GLProgram&) = delete;
};

// Inside a GLProgram member: fetch the location of `shaderName` into the
// member `loc` and check it, logging the member as written, for example
// "m_nSamplerLoc[SAMPLER_INPUT_TEX]". 1 / 0.
#define GLPROG_ATTRIB_LOC(loc, shaderName) FetchAttribLoc((loc), (shaderName), #loc)
#define GLPROG_UNIFORM_LOC(loc, shaderName) FetchUniformLoc((loc), (shaderName), #loc)

#endif
