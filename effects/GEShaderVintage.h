// Vintage (effect 1): an old-photograph look. Each colour channel is
// remapped through a tone curve read from row 0 of a curve image (the red
// curve in the texture's blue channel, green in green, blue in red), then
// the picture is darkened towards the corners by a vignette mask chosen by
// its ratio. Four looks share the program: cross, cold, warm and sepia (drawn
// with a white mask, so without vignette), chosen by parameter 0. Log tag
// "GEShaderVintage".
//
// Capture runs the crop-aware walk; the Large program places the mask by
// the tile's place in the whole picture.
#ifndef POSTEFFECT_EFFECTS_GESHADERVINTAGE_H
#define POSTEFFECT_EFFECTS_GESHADERVINTAGE_H

#include "effects/GEShaderLook.h"

// The curve looks' program (Vintage and Contrast): slot 0 the frame
// (s_texture0), slot 1 the curve (s_curve), slot 2 the mask (s_vignette).
// With bCrop the preview program also reads the crop (u_crop) and the width
// compensation (u_widthcomp).
class GLProgCurveLook : public GLProgLook {
public:
    enum {
        SAMPLER_INPUT_TEX = 0,
        SAMPLER_CURVE = 1,
        SAMPLER_VIGNETTE = 2,
        SAMPLER_MAT_YUV2RGB = 3
    };
    enum { UNIFORM_CROP = 0, UNIFORM_WIDTH_COMPENSATE = 1 };

    int Load() override;

protected:
    GLProgCurveLook(GELogTag& log, const char* fs, bool bLarge, bool bCrop);

    bool m_bCrop;
};

class GLProgVintage : public GLProgCurveLook {
public:
    GLProgVintage();
    ~GLProgVintage() override;

protected:
    GLProgVintage(const char* fs, bool bLarge);
};

class GLProgVintageLarge : public GLProgVintage {
public:
    GLProgVintageLarge();
    ~GLProgVintageLarge() override;
};

class GEShaderVintage : public GEShaderLook {
public:
    // Parameter 0's values.
    enum { LOOK_CROSS = 0, LOOK_COLD = 1, LOOK_WARM = 2, LOOK_SEPIA = 3 };

    GEShaderVintage();
    ~GEShaderVintage() override;

    int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
             unsigned char capture, IYUVConverter* conv) override;
    int Deinit() override;
    int ProcBlock(unsigned, unsigned, int, int) override;
    int ProcFrame(unsigned char* src, unsigned char* out, int w, int h) override;
    using GEShaderLook::ProcFrame;
    // Index 0 chooses the look (0 cross, 1 cold, 2 warm, 3 sepia; another
    // value logs "wrong param" and keeps the look); other indices change
    // nothing. 0 in every case.
    int SetParam(unsigned group, int value, int, int, int) override;
    using GEShader::SetCrop;

private:
    void SetUniforms() override;

    // Indices of m_apLookUp.
    enum { CURVE_CROSS, CURVE_COLD, CURVE_WARM, CURVE_SEPIA, MASK, LEAK };
    float m_fWidthComp;  // render width / the frame texture's allocated width
};

#endif
