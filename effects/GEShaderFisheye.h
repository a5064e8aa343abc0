// Fisheye (effect 3, "Distortion"): the picture warped radially about a
// movable centre, inwards or outwards, the warp reaching the picture's edges
// along an ellipse fitted to the distance from the centre to each edge.
// Parameter 0 sets the level (about 33 is the identity), parameter 1 moves
// the centre. Log tag "GEShaderFisheye".
//
// A capture does not go through the converter's tiles: the whole Y plane and
// chroma plane are uploaded as two textures (GL_LUMINANCE, and
// GL_LUMINANCE_ALPHA at half size), so that every output pixel can read
// wherever the warp sends it, and the picture is drawn in tiles of at most
// 768 x 480, each told its place in the picture by its shift. A capture
// larger than the GPU's largest texture is refused before anything is made.
#ifndef POSTEFFECT_EFFECTS_GESHADERFISHEYE_H
#define POSTEFFECT_EFFECTS_GESHADERFISHEYE_H

#include "effects/GLProgEffect.h"
#include "engine/GEShader.h"

// The preview program: the frame (slot 0) read at the warped position. The
// program keeps its uniforms' values, which Use uploads: scale, shift,
// centre and distortion (two floats each), the crop and, in the preview
// program, the width compensation.
class GLProgFisheye : public GLProgEffect {
public:
    enum {
        UNIFORM_POS_SCALE = 0,
        UNIFORM_POS_SHIFT = 1,
        UNIFORM_POS_CENTER = 2,
        UNIFORM_DISTORT_LEVEL = 3,
        UNIFORM_WIDTH_COMPENSATE = 4,
        UNIFORM_CROP = 6
    };

    GLProgFisheye();
    ~GLProgFisheye() override;

    int Load() override;
    int Use() override;

    void SetScale(float x, float y);
    void SetShift(float x, float y);
    void SetCenter(float x, float y);
    void SetDistort(float level, float second);
    void SetWidthComp(float v);
    void SetCrop(float x, float y, float w, float h);

    float GetDistortSecond() const { return m_afDistort[1]; }

protected:
    // bPlanes: the capture program, reading the Y plane (slot 0) and the
    // chroma plane (slot 1), without the width compensation.
    GLProgFisheye(const char* fs, bool bPlanes);

    const char* m_szFragment;
    bool m_bPlanes;
    GLfloat m_afScale[2];
    GLfloat m_afShift[2];
    GLfloat m_afCenter[2];
    GLfloat m_afDistort[2];
    GLfloat m_fWidthComp;
    GLfloat m_afCrop[4];
};

// The capture program: Y from s_texture0, the chroma pair from s_texture1.
class GLProgFisheyeLarge : public GLProgFisheye {
public:
    GLProgFisheyeLarge();
    ~GLProgFisheyeLarge() override;
};

class GEShaderFisheye : public GEShader {
public:
    GEShaderFisheye();
    ~GEShaderFisheye() override;

    int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
             unsigned char capture, IYUVConverter* conv) override;
    // Frees the program, what a capture left and the base's state. 1.
    int Deinit() override;
    // The preview pass. 1.
    int ProcBlock(unsigned, unsigned, int, int) override;
    // One capture tile, the current one (SetTile), shifted so that it shows
    // its place in the picture. 1.
    int ProcBlock(unsigned, unsigned, int, int, float shiftX, float shiftY);
    int ProcFrame(unsigned, unsigned, int, int) override;
    // Capture with `in` holding the Y plane of w x h bytes and the chroma
    // plane right after it.
    int ProcFrame(unsigned char* in, unsigned char* out, int w, int h) override;
    // Capture with the planes apart. 1, or 0 on refusal: not initialised,
    // not in capture mode, no converter, missing planes, a size below 2 x 2
    // or above the GPU's largest texture (nothing is made or written then).
    int ProcFrame(unsigned char* y, unsigned char* uv, unsigned char* out, int w, int h) override;
    // Index 0, value a: distortion 0.6 + a x 0.012. Any other index, point
    // (a, b) in pixels of the picture Init was given: the centre, each axis
    // clamped to [0.1, 0.9]. 1, or 0 when not initialised.
    int SetParam(unsigned group, int a, int b, int, int) override;
    using GEShader::SetCrop;

    float GetCenterX() const { return m_fCenterX; }
    float GetCenterY() const { return m_fCenterY; }
    float GetDistort() const { return m_fDistort; }
    float GetDistortSecond() const { return m_fDistort2; }

private:
    // The textures a capture made, deleted.
    void FreePlanes();

    GLProgFisheye* m_pProgram;       // the preview program, or the last capture's
    GLTexture* m_pYTexture;          // the capture's Y plane, w x h
    GLTexture* m_pUVTexture;         // its chroma plane, w/2 x h/2
    int m_nCenterPtX, m_nCenterPtY;  // the last point parameter 1 gave
    float m_fCenterX, m_fCenterY;    // the centre in fractions of the picture
    float m_fDistort;
    float m_fDistort2;  // kept; the shaders do not read it
    float m_fWidthComp;
    unsigned m_nPicW, m_nPicH;  // Init's w and h
};

#endif
