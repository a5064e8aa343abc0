// The base of the look effects' programs: one pass over the quad that reads
// the frame (input slot 0) and up to two look-up images (slots 1 and 2), each
// slot on the texture unit of its number. A capture ("Large") program also
// takes the tile's place in the whole picture as the attribute
// a_globalTexCoord (m_nAttribLoc[ATTRIB_GLOBAL_TEX_COORD]), for the images
// that are laid over the whole picture.
//
// A derived program gives its shader texts to the constructor and fetches
// its own locations in Load between OpenLook and CloseLook:
//
//     int GLProgFoo::Load() {
//         if (!OpenLook() || !GLPROG_ATTRIB_LOC(m_nVerCoordLoc, "a_vertexCoord") || ...) {
//             return 0;
//         }
//         CloseLook(m_nSamplerLoc[SAMPLER_MAT_YUV2RGB]);
//         LogLoc("m_nSamplerLoc[SAMPLER_CURVE]", m_nSamplerLoc[SAMPLER_CURVE]);
//         return LeaveLook();
//     }
#ifndef POSTEFFECT_EFFECTS_GLPROGLOOK_H
#define POSTEFFECT_EFFECTS_GLPROGLOOK_H

#include "gl/GELog.h"
#include "gl/GLProgram.h"

// The look programs' vertex shaders: the quad as it is, its texture
// coordinate passed on, and in the Large ones the tile's place in the whole
// picture.
#define GLPROG_LOOK_VERTEX                   \
    "attribute vec4 a_vertexCoord;\n"        \
    "attribute vec2 a_textureCoord;\n"       \
    "varying vec4 v_vertexCoord;\n"          \
    "varying vec2 v_textureCoord;\n"         \
    "void main() {\n"                        \
    "    gl_Position = a_vertexCoord;\n"     \
    "    v_vertexCoord = a_vertexCoord;\n"   \
    "    v_textureCoord = a_textureCoord;\n" \
    "}\n"
#define GLPROG_LOOK_LARGE_VERTEX                 \
    "attribute vec4 a_vertexCoord;\n"            \
    "attribute vec2 a_textureCoord;\n"           \
    "attribute vec2 a_globalTexCoord;\n"         \
    "varying vec4 v_vertexCoord;\n"              \
    "varying vec2 v_textureCoord;\n"             \
    "varying vec2 v_globalTexCoord;\n"           \
    "void main() {\n"                            \
    "    gl_Position = a_vertexCoord;\n"         \
    "    v_vertexCoord = a_vertexCoord;\n"       \
    "    v_textureCoord = a_textureCoord;\n"     \
    "    v_globalTexCoord = a_globalTexCoord;\n" \
    "}\n"
// The same for the stylizing programs, whose names start with g_.
#define GLPROG_STYLE_VERTEX               \
    "attribute vec4 g_vVertex;\n"         \
    "attribute vec2 a_textureCoord;\n"    \
    "varying vec2 g_vTexCoord;\n"         \
    "void main() {\n"                     \
    "    gl_Position = g_vVertex;\n"      \
    "    g_vTexCoord = a_textureCoord;\n" \
    "}\n"
#define GLPROG_STYLE_LARGE_VERTEX                \
    "attribute vec4 g_vVertex;\n"                \
    "attribute vec2 a_textureCoord;\n"           \
    "attribute vec2 a_globalTexCoord;\n"         \
    "varying vec2 g_vTexCoord;\n"                \
    "varying vec2 v_globalTexCoord;\n"           \
    "void main() {\n"                            \
    "    gl_Position = g_vVertex;\n"             \
    "    g_vTexCoord = a_textureCoord;\n"        \
    "    v_globalTexCoord = a_globalTexCoord;\n" \
    "}\n"

class GLProgLook : public GLProgram {
public:
    enum { ATTRIB_GLOBAL_TEX_COORD = 0 };

    // Makes the program current with its input slots on their units. 1 / 0.
    int Use() override;

    bool IsLarge() const { return m_bLarge; }

protected:
    GLProgLook(GELogTag& log, const char* vs, const char* fs, unsigned nTextures, bool bLarge);

    // "[Load] enter", then the program built, used and its locations asked
    // for (GLProgram::OpenLoad). 1 / 0.
    int OpenLook();
    // The Large program's a_globalTexCoord, checked as
    // "ATTRIB_GLOBAL_TEX_COORD"; 1 for a preview program.
    int FetchGlobalTexCoord();
    // Uploads the YUV-to-RGB matrix into `matLoc` (when the program has
    // one), then logs "[Load] program id %d" and "[Load] SAMPLER_INPUT_TEX
    // %d". The derived Load logs its own locations after it, then LeaveLook
    // logs "[Load] leave". 1.
    int CloseLook(GLint matLoc);
    int LeaveLook();
    // "[Load] NAME %d" for a location whose member is logged as
    // "m_...[NAME]".
    void LogLoc(const char* szMember, GLint loc);

    GELogTag& m_log;  // the effect's tag
    const char* m_szVertex;
    const char* m_szFragment;
    unsigned m_nTextures;
    bool m_bLarge;
};

#endif
