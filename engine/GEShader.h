// The effect base class.
//
// Fixes the contract through which the effect manager drives an effect, keeps
// the state every effect shares (source texture, render rectangle, capture
// flag, crop, the GPU YUV output converter) and owns the capture tile walks:
// a capture is larger than the texture the GPU samples, so it is processed in
// tiles of the texture's size, each fetched through the plug-in's
// IYUVConverter, rendered by the effect's ProcBlock, converted to YUV on the
// GPU and copied into the output image.
//
// An effect derives from GEShader, passes its log tag to the constructor,
// stores its arguments and calls GEShader::Init from its own Init, renders
// into m_pDstFbo in ProcBlock, and picks one of the walks for its capture
// ProcFrame:
//
//     int GEShaderBloom::ProcFrame(unsigned char* src, unsigned char* out, int W, int H) {
//         return WalkRuns(out, W, H);          // or WalkCropped(out, W, H)
//     }
//
// The walks keep m_fTileTexCoord (the tile's part of the source texture) and
// m_fGlobalTexCoord (the tile's place in the whole picture) current for
// ProcBlock, in the vertex order of the shared quad (GLQuad.h). The steps
// that effects share otherwise (Init's banner and stores, loading the
// program, the partial texture coordinates, the preview refusals, the
// single-pass render, SetParam without parameters, Deinit of one program)
// are protected members below.
#ifndef POSTEFFECT_ENGINE_GESHADER_H
#define POSTEFFECT_ENGINE_GESHADER_H

#include <GLES2/gl2.h>
#include <stdint.h>

#include "IPostEffect.h"
#include "gl/GELog.h"

class GLTexture;
class GLFbo;
class GLProgram;
class GLProgRGBtoY;
class GLProgRGBtoUV;

class GEShader {
public:
    explicit GEShader(GELogTag& log);
    virtual ~GEShader();

    // The common part of every effect's Init (called after the effect stored
    // the source texture, the render rectangle and the capture flag): keeps the
    // converter, prepares the YUV output, creates the capture fence and sets
    // the crop to the picture's part of the 32-aligned texture. 1 / 0.
    virtual int Init(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
                     unsigned char capture, IYUVConverter* conv);
    // Frees the YUV output and the fence. Effects call it from their Deinit.
    virtual int Deinit();
    // Renders one block into m_pDstFbo and converts it to YUV.
    virtual int ProcBlock(unsigned, unsigned, int, int) = 0;
    // One preview frame.
    virtual int ProcFrame(unsigned, unsigned, int, int) = 0;
    // One capture of W x H pixels into `out` (luma plane, chroma plane after
    // W x H bytes); the pixels come tile by tile from the converter.
    virtual int ProcFrame(unsigned char* src, unsigned char* out, int w, int h) = 0;
    // The same with both planes named: calls the form above with (y, out).
    virtual int ProcFrame(unsigned char* y, unsigned char* uv, unsigned char* out, int w, int h);
    virtual int SetParam(unsigned group, int, int, int, int) = 0;
    // Crop in fractions of the picture; any component outside its range
    // resets it to the full frame (0, 0, 1, 1). 1.
    virtual int SetCrop(float x, float y, float w, float h);
    // CPU addresses of the converter's output textures: the chroma plane and
    // the luma plane.
    virtual unsigned char* GetUVDataBuf();
    virtual unsigned char* GetYDataBuf();
    // Crop in pixels; an empty operation unless the effect gives it meaning.
    virtual int SetCrop(int x, int y, int w, int h);

    // Binds the source texture. 1 / 0.
    int BindSrcTexture();

    // The GPU YUV output converter. The effect renders its RGBA result into
    // m_pYUVSrcTex (through m_pDstFbo); ConvertYUV packs it into the Y and
    // chroma textures, whose buffers the CPU copies out.
    int InitYUVConverter(int srcW, int srcH, int outW, int outH);
    void DeinitYUVConverter();
    int ConvertYUV(int x, int y);
    int ConvertYUV(int x, int y, int w, int h);
    // Copies the converted block (x, y, w, h) into the caller's planes: luma
    // rows of dstStride bytes, chroma rows of the same length (one per even
    // luma row). After the first tile of a row or column, half the overlap
    // is left to the neighbour. The copy is cut to dstStride x dstHeight (the
    // chroma plane to dstHeight / 2 rows) and to what the output textures
    // hold. 1, or 0 for a null plane.
    int BlockCopyYUV(unsigned char* pDstYStart, unsigned char* pDstUVStart, int dstStride,
                     int dstHeight, int x, int y, int w, int h);
    // BlockCopyYUV of the whole output, rows of the output width. 1.
    int MemcpyYUV(void* pDstY, void* pDstUV);
    // CPU copy of a w x h pixel block between two streaming textures of the
    // same format and type (RGBA 8888 or RGB 565), cut to both. 1 / 0.
    int BlockCopy(GLTexture* dst, int dx, int dy, int w, int h, GLTexture* src, int sx, int sy);
    int BlkCpyRGB565(GLTexture* dst, int dx, int dy, int w, int h, GLTexture* src, int sx, int sy);
    int BlkCpyRGBA8888(GLTexture* dst, int dx, int dy, int w, int h, GLTexture* src, int sx,
                       int sy);

protected:
    // The capture walks. Both refuse (0, with the effect's own error line)
    // an effect that is not initialised, not in capture mode or without a
    // converter, and (0, "bad capture size") an empty image. For each tile
    // they ask the converter for the tile's source rectangle, call
    // ProcBlock(0, 0, W, H) and copy the converted tile into `out` (W x H
    // luma bytes, the interleaved chroma plane behind them) with
    // BlockCopyYUV, which never writes outside the W x H planes.
    //
    // The run walk: tiles of the texture's size left to right, top to
    // bottom, consecutive tiles overlapping by the given pixels; a full tile
    // keeps its place, and the tile that would pass the right edge is
    // widened to a multiple of 32 (at most the texture's width) and moved
    // left to end at the edge. Without overlaps the run count is
    // ceil(W / texture width) x ceil(H / texture height); with them it is
    // the number of tiles the advance visits. An image narrower than its
    // tile keeps the tile at x 0, but the converter is asked for the image's
    // width only.
    int WalkRuns(unsigned char* out, int W, int H, unsigned overlapX = 0, unsigned overlapY = 0);
    // The run walk's lines, which some effects word otherwise: the opening
    // line ("[ProcFrame] fImgWidth=%d, fImgHeight=%d, nProcW=%d, nProcH=%d,
    // max run = %d"), one line as each run starts (">> run %d ====...") and
    // what an effect says of each tile once it is set (nothing by default).
    virtual void LogWalkStart(int W, int H, unsigned nProcW, unsigned nProcH, unsigned maxRun);
    virtual void LogRun(unsigned run);
    virtual void LogTile(int W, int H) {
        (void)W;
        (void)H;
    }
    // The margin walk: tiles of the texture's stride less two margins
    // across and its height less two margins down, row by row; each tile's
    // region reaches `margin` pixels past the tile on every side where the
    // picture goes on, so that an effect reading around each pixel (a blur)
    // sees the same neighbours at a tile's border as inside it. The region
    // is what the converter loads at the texture's origin (m_nRegion*);
    // m_fTileTexCoord is the tile's part of the texture, and only the tile
    // is copied out. A picture no larger than one tile is one tile.
    int WalkMargins(unsigned char* out, int W, int H, unsigned margin);
    // The nested walk through the crop rectangle: rows, then columns, no
    // overlap; the last tile of a row is widened in place to a multiple of
    // 32. Every output pixel shows the crop's source pixel at the crop's
    // scale: each tile's source rectangle and texture coordinates follow the
    // crop, and where the crop reaches past the picture the edge repeats
    // (GEShader.cpp).
    int WalkCropped(unsigned char* out, int W, int H);

    // Steps that the effects' own operations share, logged under the
    // effect's tag. A single-pass effect is made of them:
    //
    //     Init:       LogInitBanner, StoreInitArgs, GEShader::Init, its
    //                 program created ("[Init] Creating ... shader"),
    //                 LoadProgram, SetPartialTexCoord, FinishInit
    //     Deinit:     DeinitProgram(m_pProgram)
    //     ProcFrame:  ProcPreview(m_pProgram, ...) / WalkRuns(out, W, H)
    //     ProcBlock:  RenderBlock(m_pProgram, m_fTileTexCoord)
    //     SetParam:   SetNoParam()
    //
    // Init's opening lines: "[Init] enter", a line of dashes, "[Init] NAME"
    // (such as "GEShaderBloom::Init") and the dashes again.
    void LogInitBanner(const char* szName);
    // Init's arguments into the base fields: the source texture, the second
    // argument, the render rectangle and the capture flag; and the
    // reference size.
    void StoreInitArgs(GLTexture* src, unsigned a, unsigned x, unsigned y, unsigned w, unsigned h,
                       unsigned char capture, unsigned refW = 960, unsigned refH = 544);
    // Loads the effect's newly made program and puts the source texture
    // into its input slot 0. 0 with the error line `szNewFail` when `prog`
    // is null, with `szLoadFail` when its Load fails (formats taking the
    // function name "Init"); else 1.
    int LoadProgram(GLProgram* prog, const char* szNewFail = "[%s] can't new program",
                    const char* szLoadFail = "[%s] can't load program");
    // Logs "[Init] partial texcoord" and fills m_fTileTexCoord from the
    // quad's template with s scaled by the render width / the source
    // texture's allocated width, so that the quad samples only the
    // picture's part of the 32-aligned texture; each pair is logged as
    // "[Init] %f:%f". m_fGlobalTexCoord becomes the template.
    void SetPartialTexCoord();
    // The end of a successful Init: the effect is initialised; "[Init]
    // leave". 1.
    int FinishInit();
    // The preview ProcFrame: 0 with "[ProcFrame] effect not initialized"
    // when the effect is not initialised, 0 with "[ProcFrame] Preview mode
    // only" in capture mode, 0 with the first line again when it has no
    // program `prog`; otherwise ProcBlock(a, b, c, d) and 1, whatever it
    // returned.
    int ProcPreview(const GLProgram* prog, unsigned a, unsigned b, int c, int d);
    // A single-pass ProcBlock: binds m_pDstFbo, sets the viewport to the
    // render rectangle, uses `prog`, draws the quad with the texture
    // coordinates `texCoord` (eight floats, the quad's vertex order),
    // converts the result to YUV over convW x convH (0 x 0: the source
    // texture's size), then glFlush and glFinish. 1.
    int RenderBlock(GLProgram* prog, const GLfloat* texCoord, int convW = 0, int convH = 0);
    // The SetParam of an effect without parameters: 1 once initialised,
    // else "[SetParam] effect not initialized" and 0.
    int SetNoParam();
    // The Deinit of an effect whose one resource is its program:
    // "[Deinit] enter", not initialised, GEShader::Deinit, the program
    // deleted and forgotten, "[Deinit] leave". 1.
    template <class P>
    int DeinitProgram(P*& prog) {
        GE_LOGI(m_log, "[%s] enter", "Deinit");
        m_bInited = false;
        GEShader::Deinit();
        delete prog;
        prog = nullptr;
        GE_LOGI(m_log, "[%s] leave", "Deinit");
        return 1;
    }

    // For effects that walk a capture their own way (their own tile
    // texture, their own tile sizes):
    //
    // The refusals common to the capture walks, logged under the effect's
    // tag with "ProcFrame": not initialised, not in capture mode, no
    // converter, no source texture. 1 when the capture may go on.
    int CaptureReady();
    // The buffer the converter fills with a tile: `tex`'s CPU address, null
    // ("[GetDataBuf] not ST") when it is not a streaming texture.
    unsigned char* TileBuffer(GLTexture* tex);
    // The tile (x, y, w, h) of a W x H capture becomes the current one: the
    // tile and render fields, m_fTileTexCoord with (s0, t0) - (s1, t1) the
    // tile's part of the source texture, and m_fGlobalTexCoord.
    void SetTile(unsigned x, unsigned y, unsigned w, unsigned h, unsigned W, unsigned H, float s0,
                 float t0, float s1, float t1);
    // The capture fence, made once: "[Init] fence %u generated" (tag
    // "GEShader"). GEShader::Deinit deletes it.
    void CreateFence();
    // Logs "[Init] screen ratio = %u/%u = %f" for the source texture and
    // returns that ratio (width / height).
    float LogScreenRatio();

    GELogTag& m_log;  // the effect's own tag

    GLTexture* m_pSrcTexture;  // the frame texture, not owned
    unsigned m_nRenderX, m_nRenderY;
    unsigned m_nRenderW, m_nRenderH;
    unsigned m_nRun;
    unsigned m_nMaxRun;
    unsigned m_nOverlapX, m_nOverlapY;
    unsigned m_nTileX, m_nTileY;
    unsigned m_nTileW, m_nTileH;
    bool m_bInited;
    bool m_bCapture;
    GLuint m_nFence;
    GLFbo* m_pDstFbo;  // the converter's source framebuffer, where effects render

    // YUV output converter state.
    int m_nYUVOutW, m_nYUVOutH;
    int m_nYUVPlaneStride;  // bytes (and Y samples) per row of both planes
    int m_nYUVUVHeight;
    int m_nYUVSrcW, m_nYUVSrcH;
    GLTexture* m_pYUVSrcTex;
    GLTexture* m_pYTex;
    GLFbo* m_pYFbo;
    GLTexture* m_pUVTex;
    GLFbo* m_pUVFbo;
    GLProgRGBtoY* m_pProgRGBtoY;
    GLProgRGBtoUV* m_pProgRGBtoUV;
    GLfloat m_fYTileTexCoord[8];
    GLfloat m_fUVTileTexCoord[8];

    IYUVConverter* m_pConverter;  // not owned
    float m_fCropX, m_fCropY, m_fCropW, m_fCropH;
    unsigned m_nRefWidth, m_nRefHeight;
    unsigned m_nArg;  // Init's second argument, kept for the effect

    // Kept current by the walks for ProcBlock (and by Init for preview).
    GLfloat m_fTileTexCoord[8];
    GLfloat m_fGlobalTexCoord[8];
    // The part of the picture the texture holds for the current tile, at
    // its origin: the tile itself in the run walk, the tile with its
    // margins in the margin walk.
    unsigned m_nRegionX, m_nRegionY, m_nRegionW, m_nRegionH;

private:
    GEShader(const GEShader&) = delete;
    GEShader& operator=(const GEShader&) = delete;
};

#endif
