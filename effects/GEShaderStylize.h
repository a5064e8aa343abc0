// Stylize Nash (effect 12) and Maple (effect 11): two fixed looks sharing one
// program. The luma is squeezed into a narrower range and shaped by two rows
// of a contrast ramp, converted to RGB, and each channel recoloured through
// a row of a colour ramp (red from the ramp's blue channel, green from
// green, blue from red), blended towards a tint colour by a weight that both
// looks leave at 0. The looks differ only in their constants, in whether the
// quad follows the crop and in how they walk a capture: as data, below.
// Parameter 0 sets a strength that is kept and changes no pixel. Log tags
// "GEShaderStylizeNash" and "GEShaderStylizeMaple".
//
// The luma squeeze and the two contrast-ramp look-ups are shared with
// Two-tone mask and Split toning (GE_STYLE_CONTRAST below).
#ifndef POSTEFFECT_EFFECTS_GESHADERSTYLIZE_H
#define POSTEFFECT_EFFECTS_GESHADERSTYLIZE_H

#include "effects/GEShaderLook.h"

// The head of a stylizing fragment shader: the frame, the colour matrix, the
// contrast ramp and the clipping and controller constants.
#define GE_STYLE_HEAD                         \
    "precision highp float;\n"                \
    "uniform sampler2D g_sImageTexture;\n"    \
    "uniform sampler2D g_sContrastTexture;\n" \
    "uniform vec4 g_fvClipping;\n"            \
    "uniform vec4 g_fvController;\n"          \
    "uniform mat4 u_mat_yuv2rgb;\n"           \
    "varying vec2 g_vTexCoord;\n"

// Reshapes the luma src.x: the range clip.x .. clip.y is mapped onto
// clip.z .. clip.w (outside it clamped), then read through the contrast
// ramp's blue channel at row k.x and its green channel at row k.y.
#define GE_STYLE_CONTRAST                                                           \
    "    vec4 clip = g_fvClipping;\n"                                               \
    "    vec4 k = g_fvController;\n"                                                \
    "    src.x = clamp(src.x - clip.x, 0.0, clip.y - clip.x) * (clip.w - clip.z) /" \
    " (clip.y - clip.x) + clip.z;\n"                                                \
    "    src.x = texture2D(g_sContrastTexture, vec2(src.x, k.x)).b;\n"              \
    "    src.x = texture2D(g_sContrastTexture, vec2(src.x, k.y)).g;\n"

// A stylizing program: g_vVertex and a_textureCoord (and a_globalTexCoord
// when Large), three samplers on units 0 to 2 and uniforms by index, each
// looked up and checked under its logged name, in the order of the lists,
// and the colour matrix.
struct GLProgStyleLocs {
    const char* szSampler[3];        // shader names, slots 0 to 2
    const char* szSamplerMember[3];  // as logged
    const char* szUniform[5];        // shader names by uniform index; null: none
    const char* szUniformMember[5];
};

class GLProgStyle : public GLProgLook {
public:
    enum { SAMPLER_INPUT_TEX = 0, SAMPLER_MAT_YUV2RGB = 3 };

    int Load() override;

protected:
    GLProgStyle(GELogTag& log, const char* fs, bool bLarge, const GLProgStyleLocs& locs);

    const GLProgStyleLocs& m_locs;
};

class GLProgStylize : public GLProgStyle {
public:
    enum { UNIFORM_CLIP = 0, UNIFORM_CONTROL = 1, UNIFORM_TINT = 2 };

protected:
    explicit GLProgStylize(GELogTag& log);
};

class GLProgStylizeNash : public GLProgStylize {
public:
    GLProgStylizeNash();
    ~GLProgStylizeNash() override;
};

class GLProgStylizeMaple : public GLProgStylize {
public:
    GLProgStylizeMaple();
    ~GLProgStylizeMaple() override;
};

// What sets the two looks apart.
struct GEStylizeLook {
    const char* szName;  // the class name, for lines that need it
    float afClipping[4];
    float afController[4];
    float afTint[4];
    bool bFollowsCrop;  // its own SetCrop maps the quad into the crop
    bool bCroppedWalk;  // the crop-aware walk; else the run walk
    bool bScreenRatio;  // Init logs the screen ratio
};

class GEShaderStylize : public GEShaderLook {
public:
    ~GEShaderStylize() override;

    int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
             unsigned char capture, IYUVConverter* conv) override;
    int Deinit() override;
    int ProcBlock(unsigned, unsigned, int, int) override;
    int ProcFrame(unsigned char* src, unsigned char* out, int w, int h) override;
    using GEShaderLook::ProcFrame;
    // SetStrength: a strength that changes no pixel. 1 once initialised.
    int SetParam(unsigned group, int value, int, int, int) override;
    // The base crop; Nash then maps the quad's texture coordinates into it
    // and answers 0, Maple answers as the base does.
    int SetCrop(float x, float y, float w, float h) override;
    using GEShader::SetCrop;

protected:
    GEShaderStylize(GELogTag& log, const GEStylizeLook& look);

private:
    void SetUniforms() override;
    void LogTile(int W, int H) override;
    virtual GLProgStylize* NewProgram() const = 0;

    const GEStylizeLook& m_look;
    float m_fScreenRatio;
};

class GEShaderStylizeNash : public GEShaderStylize {
public:
    GEShaderStylizeNash();
    ~GEShaderStylizeNash() override;

private:
    GLProgStylize* NewProgram() const override;
};

class GEShaderStylizeMaple : public GEShaderStylize {
public:
    GEShaderStylizeMaple();
    ~GEShaderStylizeMaple() override;

private:
    GLProgStylize* NewProgram() const override;
};

#endif
