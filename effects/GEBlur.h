// The blur at reduced size that Depth of field, Tilt-shift, Sketch and Color
// Sketch share: a horizontal and a vertical 15-tap Gaussian pass ("KOp H",
// "KOp V") into two small RGBA textures, then the effect's own size-up pass,
// which reads the blurred picture beside the sharp one.
//
// The weights are fourteen tables, the normalised exp(-i^2 / (2 sigma^2)) for
// i = -7 .. +7 rounded to six decimals, sigma = 0.2 (level + 1) for levels 1
// to 14. The blur program pairs the table's entries with its taps so that
// the effective taps are lopsided: offset -5 takes the weight of i = -7, -4
// of -6, ... +2 the peak (i = 0), +3 .. +5 those of +1 .. +3, -6 and -7 those
// of +4 and +5, +6 and +7 their own. The peak thus lies two steps right in
// the first pass and two steps down in the second, as the looks were tuned.
//
// Every region the blur passes read (the whole frame in preview, a capture
// tile's region) goes into the small textures at one scale, blur width /
// texture width, so that a capture's tiles blur alike whatever their size.
#ifndef POSTEFFECT_EFFECTS_GEBLUR_H
#define POSTEFFECT_EFFECTS_GEBLUR_H

#include <GLES2/gl2.h>

#include "engine/GEShader.h"
#include "gl/GELog.h"
#include "gl/GLProgram.h"

class GLFbo;

// The table of blur level `level`: its own for 2 to 14, the sigma 0.4 table
// (level 1) for any other level.
const float* GEGaussianKernel(int level);
extern const float g_afGaussian[14][15];  // levels 1 to 14, i = -7 first

// The blur pass: s_texture0 (input slot 0) summed at its coordinate and at
// the fourteen shifts u_fPixelShift with the weights u_fGaussian. No colour
// conversion. `labels` are the words its Load logs its sampler and uniform
// locations under (e.g. "SAMPLER_INPUT_TEX", "UNIFORM_GAUSSIAN_KERNEL",
// "UNIFORM_PIXEL_SHIFT").
class GLProgBlur : public GLProgram {
public:
    enum { SAMPLER_INPUT_TEX = 0 };
    enum { UNIFORM_GAUSSIAN_KERNEL = 0, UNIFORM_PIXEL_SHIFT = 1 };

    int Load() override;
    int Use() override;

protected:
    GLProgBlur(GELogTag& log, const char* const labels[3]);

    GELogTag& m_log;
    const char* const* m_aszLabels;
};

// The base of the size-up passes: s_texBlur (slot 0, the blurred picture)
// and s_texClear (slot 1, the sharp frame), the attributes a_vertexCoord,
// a_textureCoord (the sharp frame) and a_blurTexCoord (the blur), and in a
// Large program a_globalTexCoord (the tile's place in the picture).
class GLProgSizeUpBase : public GLProgram {
public:
    enum { SAMPLER_BLUR_TEX = 0, SAMPLER_CLEAR_TEX = 1, SAMPLER_MAT_YUV2RGB = 2 };
    enum { ATTRIB_BLUR_TEX_COORD = 0, ATTRIB_GLOBAL_TEX_COORD = 1 };

    int Use() override;
    bool IsLarge() const { return m_bLarge; }

protected:
    GLProgSizeUpBase(GELogTag& log, const char* fs, bool bLarge);

    // "[Load] enter", the program built and used, and the locations every
    // size-up pass has: the three attributes (four when Large) and both
    // samplers. 1 / 0.
    int OpenSizeUp();

    GELogTag& m_log;
    const char* m_szFragment;
    bool m_bLarge;
};

#define GLPROG_SIZEUP_HEAD            \
    "precision highp float;\n"        \
    "uniform sampler2D s_texBlur;\n"  \
    "uniform sampler2D s_texClear;\n" \
    "uniform mat4 u_mat_yuv2rgb;\n"   \
    "varying vec2 v_textureCoord;\n"  \
    "varying vec2 v_blurTexCoord;\n"

class GEShaderBlur : public GEShader {
public:
    ~GEShaderBlur() override;

    // Refusals as every effect's; then ProcBlock. 1 / 0.
    int ProcFrame(unsigned, unsigned, int, int) override;
    using GEShader::ProcFrame;
    // The crop's preview quad: SetupPixelStep again (with the crop width of
    // before), the base SetCrop, then the quad (0, 1), (0, 0), (1, 0),
    // (1, 1) mapped into the crop rectangle, with its x scaled by the
    // picture's share of the texture's rows. 0.
    int SetCrop(float x, float y, float w, float h) override;
    using GEShader::SetCrop;

    // Fills the shifts of both passes: (m_k sx, 0) and (0, m_k sy) with the
    // multipliers -5 .. -1, +1 .. +5, -6, -7, +6, +7, where sx is stepX, times
    // the crop width unless the effect says otherwise, and sy is stepY.
    void SetupPixelStep(float stepX, float stepY);

    const float* GetKernel() const { return m_pfKernel; }
    float GetMixWeight() const { return m_fMixWeight; }
    unsigned GetBlurWidth() const { return m_nBlurW; }
    unsigned GetBlurHeight() const { return m_nBlurH; }

protected:
    GEShaderBlur(GELogTag& log, float fStep, bool bStepFollowsCrop);

    // Init's common steps, after the effect stored its arguments: the base
    // Init, the frame's wraps and filters, textures H and V of blurW x blurH
    // and their framebuffers, the blur program (input: the frame) and the
    // size-up program (slot 0 texture V, slot 1 the frame), with the
    // family's lines, and the pixel step. The programs are made by the
    // effect and owned from here on. 1 / 0.
    int InitBlur(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
                 unsigned char capture, IYUVConverter* conv, unsigned blurW, unsigned blurH,
                 GLProgBlur* blur, GLProgSizeUpBase* sizeUp);
    // Parameter 0 of Depth of field and Tilt-shift: blur level value / 7
    // (its table for 2 to 14, the sigma 0.4 table otherwise) and mix weight
    // value / 75, 1 above 74; "[SetParam] <level>" is logged.
    void SetBlurLevel(int value);
    // Parameter 1's points, in pixels of the picture: (a, b) and (c, d).
    // Their distance in fractions of the picture (each axis by its own
    // size), at least 0.1; *pDx is the horizontal part.
    float RimDistance(int a, int b, int c, int d, float* pDx) const;
    // Deletes textures, framebuffers and programs after the base Deinit,
    // between "[Deinit] enter" and "[Deinit] leave". 1.
    int DeinitBlur();

    // Passes 1 and 2 over the region the texture holds: the whole picture
    // in preview (pass 1 reading `previewCoord` of the frame), the tile's
    // region in capture. Leaves the size-up program's blur coordinates
    // (m_fBlurCoord) and sharp coordinates (m_fClearCoord) ready for pass 3.
    void BlurPasses(const GLfloat* previewCoord);
    // Pass 3's frame: binds the output framebuffer, the render viewport,
    // uses the size-up program and feeds its quad, sharp, blur and (Large)
    // global coordinates. The effect sets its uniforms, then Draw; then
    // FinishBlock converts to YUV and flushes.
    void StartSizeUp();
    int FinishBlock();

    // The capture walk with margins (WalkMargins) for a blur of `step`
    // pixels of the preview: the pixel step is scaled to the picture for the
    // walk and back after it; the margin covers the seven outer taps and the
    // filtering, and at least 32 pixels.
    int WalkBlurMargins(unsigned char* out, int W, int H, float step);

    GLProgBlur* m_pBlurProg;
    GLProgSizeUpBase* m_pSizeUpProg;
    GLFbo* m_pFboH;
    GLFbo* m_pFboV;
    GLTexture* m_pTexH;
    GLTexture* m_pTexV;
    unsigned m_nBlurW, m_nBlurH;
    const float* m_pfKernel;
    float m_fMixWeight;
    GLfloat m_afShiftH[28];
    GLfloat m_afShiftV[28];
    float m_fStep;              // the family's pixel step, in texels
    bool m_bStepFollowsCrop;    // sx = stepX x the crop width
    unsigned m_nPicW, m_nPicH;  // Init's w and h: the picture parameters are given in
    GLfloat m_fCropQuad[8];     // the preview's quad through the crop
    GLfloat m_fClearCoord[8];   // pass 3: the sharp frame
    GLfloat m_fBlurCoord[8];    // pass 3: the blurred picture
};

#endif
