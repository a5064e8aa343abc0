// Bloom (effect 9): every pixel brightened in proportion to its own
// luminance, so that bright areas glow and dark ones stay dark: each channel
// becomes value x 3.5 x luminance, saturating at 1. No parameters. Log tag
// "GEShaderBloom".
#ifndef POSTEFFECT_EFFECTS_GESHADERBLOOM_H
#define POSTEFFECT_EFFECTS_GESHADERBLOOM_H

#include "effects/GLProgEffect.h"
#include "engine/GEShader.h"

// The preview program: the source texture (slot 0) converted to RGB and
// brightened.
class GLProgBloom : public GLProgEffect {
public:
    GLProgBloom();
    ~GLProgBloom() override;

    int Load() override;
};

// The capture program: the same picture, with the tile's place in the whole
// image as a second attribute.
class GLProgBloomLarge : public GLProgBloom {
public:
    GLProgBloomLarge();
    ~GLProgBloomLarge() override;

    int Load() override;
};

class GEShaderBloom : public GEShader {
public:
    GEShaderBloom();
    ~GEShaderBloom() override;

    int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
             unsigned char capture, IYUVConverter* conv) override;
    int Deinit() override;
    int ProcBlock(unsigned, unsigned, int, int) override;
    int ProcFrame(unsigned, unsigned, int, int) override;
    int ProcFrame(unsigned char* src, unsigned char* out, int w, int h) override;
    using GEShader::ProcFrame;
    // No parameters: 1 once initialised.
    int SetParam(unsigned group, int, int, int, int) override;
    using GEShader::SetCrop;

private:
    GLProgBloom* m_pProgram;  // owned: GLProgBloomLarge in capture use
};

#endif
