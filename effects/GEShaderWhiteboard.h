// Whiteboard (effect 10): a photographed whiteboard or document made
// readable. The luma is sharpened with a five-tap kernel (1.3 x the centre
// less 0.075 x each diagonal neighbour), converted to RGB with the
// program's own coefficients, each channel passed through a contrast curve
// (the blue channel of the curve image's middle row, read at the level to
// the power 0.7), and bright areas lifted towards a slightly warm paper white
// capped at (0.96, 0.965, 0.95); 60% of the lifted colour is kept. No
// effective parameter. Log tag "GEShaderWhiteboard".
//
// One program serves preview and capture; capture runs the crop-aware walk.
#ifndef POSTEFFECT_EFFECTS_GESHADERWHITEBOARD_H
#define POSTEFFECT_EFFECTS_GESHADERWHITEBOARD_H

#include "effects/GEShaderLook.h"

class GLProgWhiteboard : public GLProgLook {
public:
    enum { SAMPLER_INPUT_TEX = 0, SAMPLER_CURVE = 1 };
    enum { UNIFORM_LOC_TEXELSIZE = 0, UNIFORM_LOC_CONTROLLER = 1, UNIFORM_LOC_CROP = 2 };

    GLProgWhiteboard();
    ~GLProgWhiteboard() override;

    int Load() override;
};

class GEShaderWhiteboard : public GEShaderLook {
public:
    GEShaderWhiteboard();
    ~GEShaderWhiteboard() override;

    int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
             unsigned char capture, IYUVConverter* conv) override;
    int Deinit() override;
    int ProcBlock(unsigned, unsigned, int, int) override;
    // Preview: the quad's texture coordinates follow the crop, then
    // ProcBlock.
    int ProcFrame(unsigned, unsigned, int, int) override;
    int ProcFrame(unsigned char* src, unsigned char* out, int w, int h) override;
    using GEShader::ProcFrame;
    // Changes nothing; 0, even once initialised.
    int SetParam(unsigned group, int, int, int, int) override;
    using GEShader::SetCrop;

private:
    void SetUniforms() override;

    float m_fController;  // the share of the lifted colour, 0.6 at every draw
};

#endif
