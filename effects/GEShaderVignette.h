// Vignette (effect 4): the picture darkened outside a circle with a soft
// edge, in one pass that also converts the camera's colours to RGB.
// Parameter 0 sets how soft the fall-off is, parameter 1 places the circle
// (its centre and a point on its rim, in pixels of the picture). Log tag
// "GEShaderVignette".
//
// Until parameter 1 is given, the circle's centre sits on the corner at
// texture coordinate (1, 1). Capture runs the run walk without overlap; the
// Large program places the circle by the tile's place in the whole picture.
#ifndef POSTEFFECT_EFFECTS_GESHADERVIGNETTE_H
#define POSTEFFECT_EFFECTS_GESHADERVIGNETTE_H

#include "effects/GEShaderLook.h"

// The preview program: s_texture0 (the frame, read through the crop and the
// width compensation) times 1 - f, alpha included, where f rises from 0 to
// 1 between the two radii u_fRadius around u_center + 0.5.
class GLProgVignette : public GLProgLook {
public:
    enum { SAMPLER_INPUT_TEX = 0, SAMPLER_MAT_YUV2RGB = 1 };
    enum {
        UNIFORM_CENTER = 0,
        UNIFORM_RADIUS = 1,
        UNIFORM_SCREENRATIO = 3,
        UNIFORM_CROP = 4,
        UNIFORM_WIDTH_COMPENSATE = 5
    };

    GLProgVignette();
    ~GLProgVignette() override;

    int Load() override;

protected:
    GLProgVignette(const char* vs, const char* fs, bool bLarge);
};

// The capture program: the tile's texels as they are, the circle placed by
// v_globalTexCoord, and only the colour darkened (alpha as sampled).
class GLProgVignetteLarge : public GLProgVignette {
public:
    GLProgVignetteLarge();
    ~GLProgVignetteLarge() override;
};

class GEShaderVignette : public GEShaderLook {
public:
    GEShaderVignette();
    ~GEShaderVignette() override;

    int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
             unsigned char capture, IYUVConverter* conv) override;
    int Deinit() override;
    int ProcBlock(unsigned, unsigned, int, int) override;
    int ProcFrame(unsigned char* src, unsigned char* out, int w, int h) override;
    using GEShaderLook::ProcFrame;
    // Index 0, value v: softness GEStrengthOf(v). Any other index: (a, b)
    // the centre, (c, d) a point on the rim, in pixels of the picture Init
    // was given. 1, or 0 when not initialised.
    int SetParam(unsigned group, int a, int b, int c, int d) override;
    using GEShader::SetCrop;

    float GetCenterX() const { return m_fCenterX; }
    float GetCenterY() const { return m_fCenterY; }
    float GetRadius() const { return m_fRadius; }
    float GetSoftness() const { return m_fSoftness; }

private:
    void SetUniforms() override;

    float m_fCenterX, m_fCenterY;  // the circle's centre minus (0.5, 0.5)
    float m_fRadius;               // to the middle of the fall-off
    float m_fSoftness;             // half the fall-off's width
    float m_fScreenRatio;          // source width / height
    float m_fWidthComp;            // Init's w / the source's row stride
    unsigned m_nPicW, m_nPicH;     // Init's w and h: the picture parameter 1 is given in
};

#endif
