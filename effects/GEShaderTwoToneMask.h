// Two-tone mask V (effect 13) and H (effect 14): the picture, its luma
// shaped by the contrast ramp of the stylize looks, multiplied by a coloured
// mask image laid over the whole frame: each mask channel scaled by
// 1 + k.w (0.85 for V, 0.7 for H) and limited to 1, so the mask tints and
// darkens but never brightens. H lays its mask transposed (its rows along
// the picture's columns). V and H differ only as data. Parameter 0 sets a
// strength that is kept and changes no pixel. Log tags
// "GEShaderTwoToneMaskV" and "GEShaderTwoToneMaskH".
//
// Capture runs the run walk; the Large programs place the mask by the
// tile's place in the whole picture.
#ifndef POSTEFFECT_EFFECTS_GESHADERTWOTONEMASK_H
#define POSTEFFECT_EFFECTS_GESHADERTWOTONEMASK_H

#include "effects/GEShaderStylize.h"

class GLProgTwoToneMask : public GLProgStyle {
public:
    enum { UNIFORM_CLIP = 0, UNIFORM_CONTROL = 1 };

protected:
    GLProgTwoToneMask(GELogTag& log, const char* fs, bool bLarge);
};

class GLProgTwoToneMaskV : public GLProgTwoToneMask {
public:
    GLProgTwoToneMaskV();
    ~GLProgTwoToneMaskV() override;

protected:
    GLProgTwoToneMaskV(const char* fs, bool bLarge);
};

class GLProgTwoToneMaskVLarge : public GLProgTwoToneMaskV {
public:
    GLProgTwoToneMaskVLarge();
    ~GLProgTwoToneMaskVLarge() override;
};

class GLProgTwoToneMaskH : public GLProgTwoToneMask {
public:
    GLProgTwoToneMaskH();
    ~GLProgTwoToneMaskH() override;

protected:
    GLProgTwoToneMaskH(const char* fs, bool bLarge);
};

class GLProgTwoToneMaskHLarge : public GLProgTwoToneMaskH {
public:
    GLProgTwoToneMaskHLarge();
    ~GLProgTwoToneMaskHLarge() override;
};

// What sets V and H apart (besides their programs).
struct GETwoToneLook {
    const char* szMask;     // the mask image's file name
    float afController[4];  // contrast rows, unused, mask scale - 1
};

class GEShaderTwoToneMask : public GEShaderLook {
public:
    ~GEShaderTwoToneMask() override;

    int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
             unsigned char capture, IYUVConverter* conv) override;
    int Deinit() override;
    int ProcBlock(unsigned, unsigned, int, int) override;
    int ProcFrame(unsigned char* src, unsigned char* out, int w, int h) override;
    using GEShaderLook::ProcFrame;
    // SetStrength: a strength that changes no pixel. 1 once initialised.
    int SetParam(unsigned group, int value, int, int, int) override;
    using GEShader::SetCrop;

protected:
    GEShaderTwoToneMask(GELogTag& log, const GETwoToneLook& look);

private:
    void SetUniforms() override;
    virtual GLProgTwoToneMask* NewProgram(bool bLarge) const = 0;

    const GETwoToneLook& m_look;
    float m_fScreenRatio;
};

class GEShaderTwoToneMaskV : public GEShaderTwoToneMask {
public:
    GEShaderTwoToneMaskV();
    ~GEShaderTwoToneMaskV() override;

private:
    GLProgTwoToneMask* NewProgram(bool bLarge) const override;
};

class GEShaderTwoToneMaskH : public GEShaderTwoToneMask {
public:
    GEShaderTwoToneMaskH();
    ~GEShaderTwoToneMaskH() override;

private:
    GLProgTwoToneMask* NewProgram(bool bLarge) const override;
};

#endif
