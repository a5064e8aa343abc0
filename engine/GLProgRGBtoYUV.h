// The two programs of the GPU YUV output converter (GEShader::ConvertYUV).
//
// GLProgRGBtoY packs four luma samples into each RGBA output texel: drawn
// over a viewport a quarter as wide as the source, output texel j reads the
// source pixels 4j .. 4j + 3 (u_shift moves the sample -1.5, -0.5, +0.5 and
// +1.5 source pixels from the texel centre) and writes their
// 0.299 R + 0.587 G + 0.114 B.
//
// GLProgRGBtoUV packs two V/U pairs into each RGBA output texel: drawn over a
// viewport a quarter as wide and half as high as the source with linear
// filtering, the samples one pixel left and right of the texel centre fall on
// pixel corners and return the mean of two horizontally adjacent 2 x 2
// blocks, written as (V1, U1, V2, U2).
//
// Both keep the source texture in input slot 0. Log tag "GEShader".
#ifndef POSTEFFECT_ENGINE_GLPROGRGBTOYUV_H
#define POSTEFFECT_ENGINE_GLPROGRGBTOYUV_H

#include <GLES2/gl2.h>

#include "gl/GLProgram.h"

class GLProgRGBtoY : public GLProgram {
public:
    enum { SAMPLER_INPUT_TEX = 0 };
    enum { UNIFORM_SHIFT = 0, UNIFORM_VEC_RGBTOY = 1 };

    GLProgRGBtoY();
    ~GLProgRGBtoY() override;

    int Load() override;
    // Uses the program, binds input texture 0 to unit 0 and sets u_shift and
    // u_vec_rgb2y. The result of GLProgram::Use.
    int Use() override;

    // The four u_shift pairs, in texture coordinates of the source.
    void SetShift(const GLfloat shift[8]);
    const GLfloat* GetShift() const { return m_fShift; }

private:
    GLfloat m_fShift[8];
};

class GLProgRGBtoUV : public GLProgram {
public:
    enum { SAMPLER_INPUT_TEX = 0 };
    enum { UNIFORM_SHIFT = 0 };

    GLProgRGBtoUV();
    ~GLProgRGBtoUV() override;

    int Load() override;
    // Uses the program, binds input texture 0 to unit 0 and sets u_shift.
    // The result of GLProgram::Use.
    int Use() override;

    // The two u_shift pairs, in texture coordinates of the source.
    void SetShift(const GLfloat shift[4]);
    const GLfloat* GetShift() const { return m_fShift; }

private:
    GLfloat m_fShift[4];
};

#endif
