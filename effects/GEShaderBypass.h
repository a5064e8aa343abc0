// Bypass: the pass-through effect. It converts the camera's "yuvx" texels to
// RGBA through the shared YUV-to-RGB matrix and leaves the rest to the common
// YUV output step. It has no parameters. Log tag "GEShaderBypass".
//
// The manager keeps a slot for it (m_pShaderBypass) but its effect table has
// no entry for it: effect number 0 means no GPU work at all.
#ifndef POSTEFFECT_EFFECTS_GESHADERBYPASS_H
#define POSTEFFECT_EFFECTS_GESHADERBYPASS_H

#include "effects/GLProgEffect.h"
#include "engine/GEShader.h"

// The YUV-to-RGB program: s_texture0 (the frame) sampled at v_texCoord and
// multiplied by u_mat_yuv2rgb.
class GLProgBypass : public GLProgEffect {
public:
    GLProgBypass();
    ~GLProgBypass() override;

    // Builds the program, fetches its locations and uploads the matrix once.
    int Load() override;
};

class GEShaderBypass : public GEShader {
public:
    GEShaderBypass();
    // Runs Deinit.
    ~GEShaderBypass() override;

    // 1, or 0 when the program cannot be loaded.
    int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
             unsigned char capture, IYUVConverter* conv) override;
    int Deinit() override;
    // Draws the frame over the render rectangle into m_pDstFbo and converts
    // the result to YUV. Its arguments are not used. 1.
    int ProcBlock(unsigned, unsigned, int, int) override;
    // Preview: 1, or 0 when not initialised or in capture mode.
    int ProcFrame(unsigned, unsigned, int, int) override;
    // Capture: the run walk, tile by tile from the converter; `src` is not
    // read.
    int ProcFrame(unsigned char* src, unsigned char* dst, int w, int h) override;
    using GEShader::ProcFrame;
    // No parameters: 1 once initialised.
    int SetParam(unsigned group, int, int, int, int) override;
    using GEShader::SetCrop;

    GLProgBypass* GetProgram() const { return m_pProg; }

private:
    GLProgBypass* m_pProg;
};

#endif
