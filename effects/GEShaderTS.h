// Tilt-shift (effect 7): a straight band of the picture stays sharp and the
// rest is blurred, the miniature look of a tilted lens. The blur of
// GEBlur.h (a step of one pixel), then a size-up pass mixing by the
// distance from the line through the finger point with the band angle's
// slope. Parameter 0 as Depth of field's; parameter 1 a point on the band
// and a point at its edge, in pixels. The ring's edges are kept squared and
// compared with an unsquared distance, which is how the band's width
// behaves. Log tag "GEShaderTS".
//
// Capture runs the run walk with overlaps as wide as five taps; the Large
// size-up program measures the vertical distance from the finger point in
// whole-picture coordinates (its portrait switch is never set).
#ifndef POSTEFFECT_EFFECTS_GESHADERTS_H
#define POSTEFFECT_EFFECTS_GESHADERTS_H

#include "effects/GEBlur.h"

class GLProgTSPassBlur : public GLProgBlur {
public:
    GLProgTSPassBlur();
    ~GLProgTSPassBlur() override;
};

class GLProgTSPassSizeUp : public GLProgSizeUpBase {
public:
    enum {
        UNIFORM_TS_FINGER = 2,
        UNIFORM_TS_DIST_SQUARE = 3,
        UNIFORM_TS_SLOPE = 4,
        UNIFORM_TS_MIX_WEIGHT = 5
    };

    GLProgTSPassSizeUp();
    ~GLProgTSPassSizeUp() override;
    int Load() override;
};

class GLProgTSPassSizeUpLarge : public GLProgSizeUpBase {
public:
    enum { UNIFORM_CENTER = 2, UNIFORM_DIST_SQUARE = 3, UNIFORM_MIX_WEIGHT = 5 };

    GLProgTSPassSizeUpLarge();
    ~GLProgTSPassSizeUpLarge() override;
    int Load() override;
};

class GEShaderTS : public GEShaderBlur {
public:
    GEShaderTS();
    ~GEShaderTS() override;

    int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
             unsigned char capture, IYUVConverter* conv) override;
    int Deinit() override;
    int ProcBlock(unsigned, unsigned, int, int) override;
    int ProcFrame(unsigned char* src, unsigned char* out, int w, int h) override;
    using GEShaderBlur::ProcFrame;
    // 0 in every case.
    int SetParam(unsigned group, int a, int b, int c, int d) override;

    // The band's angle in degrees, one value for the process; 0 (a
    // horizontal band) unless set. Nothing in the plug-in sets it: it is for
    // authors and tests. 90 and 180 are nudged to 89.99 and 179.99 at the
    // next frame.
    static void SetBandAngle(float degrees);
    static float GetBandAngle();

    const float* GetFinger() const { return m_afFinger; }
    const float* GetRing() const { return m_afRing; }

private:
    void LogWalkStart(int W, int H, unsigned nProcW, unsigned nProcH, unsigned maxRun) override;
    void LogTile(int W, int H) override;

    float m_afFinger[2];  // a point on the band, in fractions of the picture
    float m_afRing[2];    // the band's edges, squared
    float m_fSlope;
    float m_fStepX, m_fStepY;  // the capture's pixel step, for its lines
};

#endif
