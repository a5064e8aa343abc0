// The base of the effects' single-pass programs: the quad drawn from the
// frame texture (input slot 0, sampled as s_texture0) through the
// YUV-to-RGB matrix (u_mat_yuv2rgb). A capture ("Large") program also takes
// the tile's place in the whole picture as the attribute a_globalTexCoord.
//
// A program supplies its fragment shader, built from the heads below, and
// loads it with LoadProgram, or with BuildProgram between lines of its own:
//
//     const char kFragment[] = GLPROG_EFFECT_FRAGMENT_HEAD
//         "void main() {\n"
//         "    gl_FragColor = u_mat_yuv2rgb * texture2D(s_texture0, v_texCoord);\n"
//         "}\n";
//
//     int GLProgFoo::Load() { return LoadProgram(kFragment, false); }
//
// A program that reads a capture's two planes (the Y plane in slot 0 as
// GL_LUMINANCE, the interleaved chroma plane in slot 1 as
// GL_LUMINANCE_ALPHA) builds with two inputs and gets its colour from
// GLPROG_EFFECT_PLANES_RGB.
//
// Its lines go under the effect's tag, given to the constructor.
#ifndef POSTEFFECT_EFFECTS_GLPROGEFFECT_H
#define POSTEFFECT_EFFECTS_GLPROGEFFECT_H

#include "gl/GELog.h"
#include "gl/GLProgram.h"

// The declarations every effect fragment shader starts with: the frame, the
// matrix and the texture coordinate of the pass-through vertex shader.
#define GLPROG_EFFECT_FRAGMENT_HEAD   \
    "precision highp float;\n"        \
    "uniform sampler2D s_texture0;\n" \
    "uniform mat4 u_mat_yuv2rgb;\n"   \
    "varying vec2 v_texCoord;\n"

// The pass-through vertex shader of these programs: the quad as it is and
// its texture coordinate as v_texCoord. A shader that passes on more starts
// with the head.
#define GLPROG_EFFECT_VERTEX_HEAD      \
    "attribute vec4 a_vertexCoord;\n"  \
    "attribute vec2 a_textureCoord;\n" \
    "varying vec2 v_texCoord;\n"
#define GLPROG_EFFECT_VERTEX             \
    GLPROG_EFFECT_VERTEX_HEAD            \
    "void main() {\n"                    \
    "    gl_Position = a_vertexCoord;\n" \
    "    v_texCoord = a_textureCoord;\n" \
    "}\n"

// The two-plane programs' second sampler, and their colour at `q`: Y from
// s_texture0, the chroma pair (V in luminance, U in alpha) from s_texture1,
// through the matrix.
#define GLPROG_EFFECT_PLANES_HEAD "uniform sampler2D s_texture1;\n"
#define GLPROG_EFFECT_PLANES_RGB(q) \
    "u_mat_yuv2rgb * vec4(texture2D(s_texture0, " q ").r, texture2D(s_texture1, " q ").ra, 1.0)"

// A capture program's fragment shader adds LARGE_HEAD after the head and
// LARGE_KEEP at the start of main(). Most do not use the tile's place in the
// picture, but a driver drops an attribute whose varying no fragment reads,
// and the program checks that a_globalTexCoord exists. The place always lies
// within [0, 1], so the test never discards.
#define GLPROG_EFFECT_LARGE_HEAD "varying vec2 v_globalTexCoord;\n"
#define GLPROG_EFFECT_LARGE_KEEP             \
    "    if (v_globalTexCoord.x < -1.0) {\n" \
    "        discard;\n"                     \
    "    }\n"

class GLProgEffect : public GLProgram {
public:
    enum { SAMPLER_INPUT_TEX = 0, SAMPLER_INPUT_TEX_UV = 1, SAMPLER_MAT_YUV2RGB = 2 };
    enum { ATTRIB_GLOBAL_TEX_COORD = 0 };

    // Makes the program current with its inputs (slot n on unit n). 1 / 0.
    int Use() override;

protected:
    explicit GLProgEffect(GELogTag& log);

    // The whole Load: "[Load] enter", BuildProgram, "[Load] program id %d",
    // "[Load] SAMPLER_INPUT_TEX %d" and "[Load] leave". 1 / 0.
    int LoadProgram(const char* fs, bool bLarge);
    // Builds the pass-through vertex shader (with a_globalTexCoord passed on
    // as v_globalTexCoord when bLarge) with `fs` (GLProgram::LoadQuad), then
    // fetches s_texture1 for a program of two inputs, u_mat_yuv2rgb and,
    // when bLarge, a_globalTexCoord, and uploads the YUV-to-RGB matrix once.
    // 1 / 0.
    int BuildProgram(const char* fs, bool bLarge, unsigned nInputs = 1);

    GELogTag& m_log;     // the effect's tag
    unsigned m_nInputs;  // input slots that Use binds
};

#endif
