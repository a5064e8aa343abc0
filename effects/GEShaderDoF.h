// Depth of field (effect 2): a circle of the picture stays sharp and the
// rest is blurred, with a soft ring between: the blur of GEBlur.h, then a
// size-up pass mixing the sharp frame with the enlarged blur by
// smoothstep(inner, outer, distance from the centre) (the vertical distance
// divided by the picture's width / height) times the mix weight. Parameter
// 0 sets the blur level (value / 7) and the mix (value / 75, 1 above 74);
// parameter 1 the circle's centre and a point on its rim, in pixels. Log tag
// "GEShaderDoF".
//
// Capture walks tiles with margins around them; the Large size-up program
// places the circle by the tile's place in the whole picture.
#ifndef POSTEFFECT_EFFECTS_GESHADERDOF_H
#define POSTEFFECT_EFFECTS_GESHADERDOF_H

#include "effects/GEBlur.h"

class GLProgPassBlur : public GLProgBlur {
public:
    GLProgPassBlur();
    ~GLProgPassBlur() override;
};

class GLProgPassSizeUp : public GLProgSizeUpBase {
public:
    enum {
        UNIFORM_CENTER = 2,
        UNIFORM_DIST_SQUARE = 3,
        UNIFORM_WH_RATIO_SQ = 4,
        UNIFORM_MIX_WEIGHT = 5
    };

    GLProgPassSizeUp();
    ~GLProgPassSizeUp() override;
    int Load() override;

protected:
    GLProgPassSizeUp(const char* fs, bool bLarge);
};

class GLProgPassSizeUpLarge : public GLProgPassSizeUp {
public:
    GLProgPassSizeUpLarge();
    ~GLProgPassSizeUpLarge() override;
    int Load() override;
};

class GEShaderDoF : public GEShaderBlur {
public:
    GEShaderDoF();
    ~GEShaderDoF() override;

    int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
             unsigned char capture, IYUVConverter* conv) override;
    int Deinit() override;
    int ProcBlock(unsigned, unsigned, int, int) override;
    int ProcFrame(unsigned char* y, unsigned char* uv, int w, int h) override;
    using GEShaderBlur::ProcFrame;
    // 0 in every case (see above for what indices 0 and 1 set).
    int SetParam(unsigned group, int a, int b, int c, int d) override;

    const float* GetCenter() const { return m_afCenter; }
    const float* GetRing() const { return m_afRing; }

private:
    float m_afCenter[2];  // u_center, in fractions of the picture
    float m_afRing[2];    // u_distSquare: the ring's inner and outer edge
    float m_fRatio;       // u_fWHRatioSquare: width / height, not squared
};

#endif
