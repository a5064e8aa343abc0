// Contrast (effect 6): a high-contrast black-and-white picture. The colour
// image goes through Vintage's cross curve, is reduced to a weighted grey
// (0.299 of the curve's red channel at the red input, 0.587 of its green at
// the green input, 0.114 of its blue at the blue input) and darkened towards
// the corners by the vignette mask chosen by the picture's ratio. Parameter 0
// accepts only 0 ("cross"). Log tag "GEShaderContrast".
//
// Capture runs the run walk; the Large program places the mask by the tile's
// place in the whole picture.
#ifndef POSTEFFECT_EFFECTS_GESHADERCONTRAST_H
#define POSTEFFECT_EFFECTS_GESHADERCONTRAST_H

#include "effects/GEShaderVintage.h"

class GLProgContrast : public GLProgCurveLook {
public:
    GLProgContrast();
    ~GLProgContrast() override;

protected:
    GLProgContrast(const char* fs, bool bLarge);
};

class GLProgContrastLarge : public GLProgContrast {
public:
    GLProgContrastLarge();
    ~GLProgContrastLarge() override;
};

class GEShaderContrast : public GEShaderLook {
public:
    GEShaderContrast();
    ~GEShaderContrast() override;

    int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
             unsigned char capture, IYUVConverter* conv) override;
    int Deinit() override;
    int ProcBlock(unsigned, unsigned, int, int) override;
    int ProcFrame(unsigned char* src, unsigned char* out, int w, int h) override;
    using GEShaderLook::ProcFrame;
    // Index 0, value 0: the cross look again; another value logs "wrong
    // param". 0 in every case.
    int SetParam(unsigned group, int value, int, int, int) override;
    using GEShader::SetCrop;

private:
    void LogWalkStart(int W, int H, unsigned nProcW, unsigned nProcH, unsigned maxRun) override;
    void LogRun(unsigned run) override;

    enum { CURVE_CROSS, MASK, LEAK };
};

#endif
