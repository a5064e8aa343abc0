// Mirror (effect 8): one half of the picture shows the other half reflected.
// In portrait use the rows above the middle of the texture (t > 0.5) are
// replaced, in landscape use the columns right of it (s > 0.5). In a capture
// every tile is reflected about the middle of its own texture.
//
// The orientation is fixed when the program is loaded, from m_bLandscaped,
// which the manager sets right after construction, before Init. Log tag
// "GEShaderMirror".
#ifndef POSTEFFECT_EFFECTS_GESHADERMIRROR_H
#define POSTEFFECT_EFFECTS_GESHADERMIRROR_H

#include "effects/GLProgEffect.h"
#include "engine/GEShader.h"

// The preview program: the source texture (slot 0) reflected and converted
// to RGB.
class GLProgMirror : public GLProgEffect {
public:
    // The orientation the program is loaded for.
    explicit GLProgMirror(bool bLandscaped = false);
    ~GLProgMirror() override;

    // Loads the landscape or the portrait version, after m_bLandscaped.
    int Load() override;

    bool m_bLandscaped;

protected:
    // The Load of both programs: the orientation line, the build, the
    // program id.
    int LoadMirror(const char* fs, bool bLarge);
};

// The capture program: the same picture, with the tile's place in the whole
// image as a second attribute.
class GLProgMirrorLarge : public GLProgMirror {
public:
    explicit GLProgMirrorLarge(bool bLandscaped = false);
    ~GLProgMirrorLarge() override;

    int Load() override;
};

class GEShaderMirror : public GEShader {
public:
    GEShaderMirror();
    ~GEShaderMirror() override;

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

    bool m_bLandscaped;  // written by the manager before Init

private:
    GLProgMirror* m_pProgram;  // owned: GLProgMirrorLarge in capture use
};

#endif
