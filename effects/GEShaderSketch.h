// Sketch (effect 17) and Color Sketch (effect 18): a pencil drawing made
// from the blur of GEBlur.h (a step of two pixels, the widest kernel). Where
// the picture is darker than its blurred surroundings by more than about
// 0.022 a stroke is drawn; elsewhere Sketch shows the blurred luma snapped to
// eighths and mapped into 0.2 .. 1.0 as grey, Color Sketch the blurred
// colour with that luma. No parameter. Log tags "GEShaderSketch" and
// "GEShaderColorSketch".
//
// One size-up program serves preview and capture; capture walks tiles with
// margins around them.
#ifndef POSTEFFECT_EFFECTS_GESHADERSKETCH_H
#define POSTEFFECT_EFFECTS_GESHADERSKETCH_H

#include "effects/GEBlur.h"

class GLProgSketchBlur : public GLProgBlur {
public:
    GLProgSketchBlur();
    ~GLProgSketchBlur() override;
};

class GLProgColorSketchBlur : public GLProgBlur {
public:
    GLProgColorSketchBlur();
    ~GLProgColorSketchBlur() override;
};

// The sketch size-up pass; the colour one applies u_mat_yuv2rgb, the grey
// one declares it only.
class GLProgSketchSizeUpBase : public GLProgSizeUpBase {
public:
    int Load() override;

protected:
    GLProgSketchSizeUpBase(GELogTag& log, const char* fs, bool bColour);

    bool m_bColour;
};

class GLProgSketchSizeUp : public GLProgSketchSizeUpBase {
public:
    GLProgSketchSizeUp();
    ~GLProgSketchSizeUp() override;
};

class GLProgColorSketchSizeUp : public GLProgSketchSizeUpBase {
public:
    GLProgColorSketchSizeUp();
    ~GLProgColorSketchSizeUp() override;
};

class GEShaderSketchBase : public GEShaderBlur {
public:
    int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
             unsigned char capture, IYUVConverter* conv) override;
    int Deinit() override;
    int ProcBlock(unsigned, unsigned, int, int) override;
    int ProcFrame(unsigned char* src, unsigned char* out, int w, int h) override;
    using GEShaderBlur::ProcFrame;
    // No parameter: 0 for every call.
    int SetParam(unsigned group, int, int, int, int) override;

protected:
    explicit GEShaderSketchBase(GELogTag& log);

private:
    virtual GLProgBlur* NewBlur() const = 0;
    virtual GLProgSizeUpBase* NewSizeUp() const = 0;
};

class GEShaderSketch : public GEShaderSketchBase {
public:
    GEShaderSketch();
    ~GEShaderSketch() override;

private:
    GLProgBlur* NewBlur() const override;
    GLProgSizeUpBase* NewSizeUp() const override;
};

class GEShaderColorSketch : public GEShaderSketchBase {
public:
    GEShaderColorSketch();
    ~GEShaderColorSketch() override;

private:
    GLProgBlur* NewBlur() const override;
    GLProgSizeUpBase* NewSizeUp() const override;
};

#endif
