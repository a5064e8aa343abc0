// Dots (effect 5, "DOTS"): the picture as a mosaic of square cells, each one
// flat colour, multiplied by a dot-shaped mask image shown once per cell, so
// that it looks printed in coloured dots. Parameter 0 sets the cell size and
// chooses the mask (1 for small cells, 2 for large ones; masks 0 and 3 are
// loaded and kept but never chosen). Log tag "GEShaderDot".
//
// The mosaic takes no average. Pass 1 draws the picture shrunk by the cell
// size into a texture as large as the picture, so that its texel i holds the
// sample at the middle of cell i; pass 2 stretches that first copy back with
// nearest filtering, each cell taking its one texel, and multiplies it by
// the mask repeated once per cell.
//
// A capture fetches its tiles into a graphics buffer of its own, about
// sixteen cells wide, and keeps the cell grid of the whole picture: every
// tile samples the cells it shows at their places in the picture, so that a
// cell cut by a tile border shows the same colour on both sides.
#ifndef POSTEFFECT_EFFECTS_GESHADERDOT_H
#define POSTEFFECT_EFFECTS_GESHADERDOT_H

#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

#include "effects/GLProgEffect.h"
#include "engine/GEShader.h"

class GLFbo;

// Pass 1: the frame (slot 0) read through the crop and converted to RGB.
class GLProgDotPass1 : public GLProgEffect {
public:
    enum { UNIFORM_CROP = 0 };

    GLProgDotPass1();
    ~GLProgDotPass1() override;

    int Load() override;
};

// Pass 1 over a capture's two planes: Y (slot 0) and chroma (slot 1).
class GLProgDotPass1Large : public GLProgEffect {
public:
    GLProgDotPass1Large();
    ~GLProgDotPass1Large() override;

    int Load() override;
};

// Pass 2: the shrunk picture (slot 0, at a_textureCoord) times the mask
// (slot 1, s_dotMask, at a_maskTexCoord), all four channels.
class GLProgDotPass2 : public GLProgram {
public:
    enum { SAMPLER_INPUT_TEX = 0, SAMPLER_TEX_DOT_MASK = 1 };
    enum { ATTRIB_MASK_TEX_COORD = 0 };

    GLProgDotPass2();
    ~GLProgDotPass2() override;

    int Load() override;
    int Use() override;
};

class GLProgDotPass2Large : public GLProgDotPass2 {
public:
    GLProgDotPass2Large();
    ~GLProgDotPass2Large() override;
};

// A plain copy of slot 0.
class GLProgDotPass3Large : public GLProgram {
public:
    GLProgDotPass3Large();
    ~GLProgDotPass3Large() override;

    int Load() override;
    int Use() override;
};

class GEShaderDot : public GEShader {
public:
    static const unsigned kMaskCount = 4;

    GEShaderDot();
    ~GEShaderDot() override;

    // 1, or 0 when a texture, a mask image or a program cannot be had.
    int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
             unsigned char capture, IYUVConverter* conv) override;
    int Deinit() override;
    // The two passes over the current block and the conversion to YUV. 1.
    int ProcBlock(unsigned, unsigned, int, int) override;
    int ProcFrame(unsigned, unsigned, int, int) override;
    // The old capture entry: always 0.
    int ProcFrame(unsigned char* src, unsigned char* out, int w, int h) override;
    // Capture of w x h pixels into `out`; the tiles come from the converter
    // (y and uv are not read). 1, or 0 on refusal.
    int ProcFrame(unsigned char* y, unsigned char* uv, unsigned char* out, int w, int h) override;
    // Index 0, value v: the cell size, from h / 68 at 0 to h / 30 at 100 (h
    // the picture's height), and mask 1 below 51, mask 2 from 51. Other
    // indices change nothing. 1, or 0 when not initialised.
    int SetParam(unsigned group, int value, int, int, int) override;
    using GEShader::SetCrop;

    // Cleans the CPU cache over `buffer`. 1 when the allocator reports
    // success.
    int clean_buffer(android::sp<android::GraphicBuffer> buffer);

    float GetCellSize() const { return m_fCellSize; }
    float GetFirstCellSize() const { return m_fFirstCellSize; }
    unsigned GetMaskIndex() const { return m_nMaskIndex; }

private:
    // The size-down texture of w x h and its framebuffer, the two pass
    // programs (pass 1 reading `input`, pass 2 the Large one when bLarge),
    // with Init's lines. 1 / 0.
    int NewSizeDown(unsigned w, unsigned h);
    int NewPasses(GLTexture* input, bool bLarge);
    int LoadMasks();
    // The coordinates of the preview's passes.
    void SetPreviewCoords();
    // m_nCellsX, m_nCellsY for a block of w x h pixels and cells of s.
    void SetCellsRead(double w, double h, double s);
    // A capture tile: the converter fills the tile texture with the source
    // pixels of the cells the tile (x, y, w, h) shows, and the coordinates of
    // both passes are set so that those cells are the picture's own. 1 / 0.
    int LoadTile(unsigned x, unsigned y, unsigned w, unsigned h, unsigned W, unsigned H, double sp);
    // The capture's tile texture over a new graphics buffer of bw x bh. 1 / 0.
    int NewTileTexture(unsigned bw, unsigned bh);

    GLTexture* m_pSizeDownTex;
    GLFbo* m_pSizeDownFbo;
    GLProgDotPass1* m_pPass1;
    GLProgDotPass2* m_pPass2;  // GLProgDotPass2Large in capture
    GLTexture* m_apMask[kMaskCount];
    unsigned m_nMaskIndex;
    float m_fScreenRatio;
    float m_fCellSize;       // pixels of the frame
    float m_fFirstCellSize;  // the middle size, kept from the first SetParam
    GLTexture* m_pTileTex;   // a capture's tiles, over its own buffer

    // The current block's coordinates: pass 1's quad and crop, pass 2's
    // size-down and mask coordinates.
    GLfloat m_afPass1Coord[8];
    GLfloat m_afPass1Crop[4];
    GLfloat m_afSizeDownCoord[8];
    GLfloat m_afMaskCoord[8];
    // The corner of the size-down texture that pass 2 reads (one texel per
    // cell the block shows, and one to spare): pass 1 draws nothing else.
    GLsizei m_nCellsX, m_nCellsY;
};

#endif
