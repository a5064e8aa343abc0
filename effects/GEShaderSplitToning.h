// Split toning: the picture recoloured by brightness, its luma shaped by the
// contrast ramp of the stylize looks, darkened at the edges by a vignette
// mask.
//
// - Mono (effect 15, class GEShaderSplitToningCM, tag "GEShaderSplitToning"):
//   every pixel's chroma becomes a tone that slides from a shadow tone to a
//   highlight tone with its luma (f = luma^0.6), a toned monochrome.
//   Parameter 0 (0 to 100) moves along a path through five tone pairs.
// - Color (effect 16, class GEShaderSplitToningSC, tag
//   "GEShaderSplitToningSC"): the chroma is kept and pushed along the
//   red-difference axis, and against the blue-difference axis, by
//   0.4 x (luma - 0.5), then halved: warmer highlights, cooler shadows. Its
//   parameter is kept and changes no pixel.
//
// Mono and Color differ as data (GESplitToningLook) and in their programs.
#ifndef POSTEFFECT_EFFECTS_GESHADERSPLITTONING_H
#define POSTEFFECT_EFFECTS_GESHADERSPLITTONING_H

#include "effects/GEShaderStylize.h"

class GLProgSplitToning : public GLProgStyle {
public:
    enum { UNIFORM_CLIP = 0, UNIFORM_CONTROL = 1, UNIFORM_SPLIT = 2 };
    enum { UNIFORM_CROP = 3, UNIFORM_WIDTH_COMPENSATE = 4 };

protected:
    GLProgSplitToning(GELogTag& log, const char* fs, bool bLarge, const GLProgStyleLocs& locs);
};

class GLProgSplitToningCM : public GLProgSplitToning {
public:
    GLProgSplitToningCM();
    ~GLProgSplitToningCM() override;

protected:
    GLProgSplitToningCM(const char* fs, bool bLarge);
};

class GLProgSplitToningCMLarge : public GLProgSplitToningCM {
public:
    GLProgSplitToningCMLarge();
    ~GLProgSplitToningCMLarge() override;
};

class GLProgSplitToningSC : public GLProgSplitToning {
public:
    GLProgSplitToningSC();
    ~GLProgSplitToningSC() override;

protected:
    GLProgSplitToningSC(const char* fs, bool bLarge);
};

class GLProgSplitToningSCLarge : public GLProgSplitToningSC {
public:
    GLProgSplitToningSCLarge();
    ~GLProgSplitToningSCLarge() override;
};

// What sets Mono and Color apart.
struct GESplitToningLook {
    bool bMono;              // the tone path, crop and width compensation; else Color
    float afController[4];   // contrast rows, tone exponent or chroma push, mask weight
    float fMaskTolerance;    // of the mask's choice by ratio; 0: always the wide mask
    const char* szMaskFail;  // error lines of a missing mask and contrast ramp
    const char* szContrastFail;
};

class GEShaderSplitToning : public GEShaderLook {
public:
    ~GEShaderSplitToning() override;

    int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
             unsigned char capture, IYUVConverter* conv) override;
    int Deinit() override;
    int ProcBlock(unsigned, unsigned, int, int) override;
    int ProcFrame(unsigned char* src, unsigned char* out, int w, int h) override;
    using GEShader::SetCrop;
    using GEShaderLook::ProcFrame;

    // The split tones (highlight blue-difference, highlight red-difference,
    // shadow blue-difference, shadow red-difference).
    const float* GetSplitTones() const { return m_afTones; }

protected:
    GEShaderSplitToning(GELogTag& log, const GESplitToningLook& look);

    float m_afTones[4];

private:
    void SetUniforms() override;
    virtual GLProgSplitToning* NewProgram(bool bLarge) const = 0;

    const GESplitToningLook& m_look;
    float m_fWidthComp;
    float m_fScreenRatio;
};

class GEShaderSplitToningCM : public GEShaderSplitToning {
public:
    GEShaderSplitToningCM();
    ~GEShaderSplitToningCM() override;

    // Index 0: the split tones from the tone path (0 to 100; 100 as 99;
    // outside, extrapolated from its first stretch). Other indices are
    // ignored. 1 once initialised.
    int SetParam(unsigned group, int value, int, int, int) override;

private:
    GLProgSplitToning* NewProgram(bool bLarge) const override;
};

class GEShaderSplitToningSC : public GEShaderSplitToning {
public:
    GEShaderSplitToningSC();
    ~GEShaderSplitToningSC() override;

    // SetStrength: a strength that changes no pixel. 1 once initialised.
    int SetParam(unsigned group, int value, int, int, int) override;

private:
    GLProgSplitToning* NewProgram(bool bLarge) const override;
};

#endif
