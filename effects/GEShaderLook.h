// The base of the look effects (Vintage, Contrast, Whiteboard, Stylize,
// Two-tone mask, Split toning): one program drawn over the frame with its
// look-up images, in preview and tile by tile in capture.
//
// The effect owns its program (the preview one, or its Large twin in
// capture mode) and its look-up textures (m_apLookUp, deleted in order by
// DeinitLook). Per block, RenderLook draws the quad with the program's
// uniforms, which the effect sets in SetUniforms, and, for a Large program,
// the tile's place in the whole picture as a_globalTexCoord.
#ifndef POSTEFFECT_EFFECTS_GESHADERLOOK_H
#define POSTEFFECT_EFFECTS_GESHADERLOOK_H

#include <GLES2/gl2.h>

#include "effects/GLProgLook.h"
#include "engine/GEShader.h"

class GEShaderLook : public GEShader {
public:
    ~GEShaderLook() override;

    // Refusals as every effect's; then ProcBlock. 1 / 0.
    int ProcFrame(unsigned, unsigned, int, int) override;
    using GEShader::ProcFrame;

protected:
    explicit GEShaderLook(GELogTag& log);

    // The opening lines of Vintage, Contrast and Whiteboard: LogInitBanner
    // and "[Init] x=%d y=%d w=%d h=%d  cap=%d".
    void LogLookBanner(const char* szName, unsigned x, unsigned y, unsigned w, unsigned h,
                       unsigned char capture);
    // Takes `prog` (made by the effect, preview or Large) as the effect's
    // program: loads it with the effect's error lines and puts the frame
    // into its slot 0. 1 / 0.
    int TakeProgram(GLProgLook* prog, const char* szNewFail, const char* szLoadFail);
    // Replaces look-up texture `index` of m_apLookUp with the image `name`,
    // loaded as GELoadLookUp loads it with the rest of the arguments. 1 / 0.
    int LoadLookUp(unsigned index, const char* name, unsigned format, unsigned type, bool bOverride,
                   const char* szNewFail, const char* szLoadFail);
    // Vintage's and Contrast's vignette: "[Init] Creating vignette texture",
    // the picture's ratio w / h, the mask it chooses (a failure reported with
    // the warm curve's words) into `maskIndex` and the light-leak texture
    // into `leakIndex`. 1 / 0.
    int LoadVignetteAndLeak(unsigned maskIndex, unsigned leakIndex, unsigned w, unsigned h);
    // The width / height of `src`, logged as "[Init] screen ratio = ...".
    float ScreenRatio(const GLTexture* src);
    // Puts look-up texture `index` of m_apLookUp into program slot `slot`.
    void BindLookUp(unsigned slot, unsigned index);
    // One block: binds m_pDstFbo, sets the viewport to the render
    // rectangle, uses the program, SetUniforms, draws the quad with the
    // texture coordinates `texCoord` (and, for a Large program, the global
    // ones), converts the result to YUV over the source texture's size,
    // then glFlush (when bFlush) and glFinish. 1.
    int RenderLook(const GLfloat* texCoord, bool bFlush = true);
    // The program's uniforms for the next draw; the program is current.
    virtual void SetUniforms() {}
    // "[SetParam] effect not initialized" when the effect is not
    // initialised. Whether it is.
    bool ReadyForParam();
    // The SetParam of the looks whose parameter is a strength that is kept
    // and changes no pixel: index 0 stores GEStrengthOf(value), other indices
    // are ignored. 1, or 0 when the effect is not initialised.
    int SetStrength(unsigned group, int value);
    // The Deinit of a look effect: "[Deinit] enter", not initialised,
    // GEShader::Deinit, the program and then the look-up textures deleted,
    // "[Deinit] leave". 1.
    int DeinitLook();

    static const unsigned kMaxLookUps = 6;
    GLProgLook* m_pProgram;
    GLTexture* m_apLookUp[kMaxLookUps];
    float m_fStrength;  // what SetStrength keeps; 0 after Init

public:
    float GetStrength() const { return m_fStrength; }
};

// The strength (or softness) of a parameter value: 0.40 at 0, 0.03 at 100,
// linear between and beyond.
inline float GEStrengthOf(int value) {
    return (float)(100 - value) * 0.37f / 100.0f + 0.03f;
}

#endif
