// Bare GLES 2 pipelines with the pass structure of the plug-in's preview
// frames, written straight against GL without the library: the floors that
// bench_pipeline divides by.
//
//   kOnePass  upload the 4-byte-per-pixel frame, one full-screen pass
//             through the YUV-to-RGB matrix, the luma packing pass (four
//             samples a texel), the chroma packing pass (two), read back
//             the packed planes;
//   kBlur     the same with the blur family's passes in place of the one:
//             two 15-tap blur passes into textures of a third of the size,
//             then a size-up pass that mixes the sharp and blurred frames by
//             a distance;
//   kLookUps  the one pass reading four look-ups besides the frame, as the
//             look effects' passes do: a curve (256 x 1) for each colour
//             channel and a vignette mask.
//
// A GL context must be current (the benchmark makes one like the worker's).
#ifndef POSTEFFECT_BENCH_BARE_PIPELINE_H
#define POSTEFFECT_BENCH_BARE_PIPELINE_H

#include <GLES2/gl2.h>
#include <stdint.h>

#include <vector>

class BarePipeline {
public:
    enum Kind { kOnePass, kBlur, kLookUps };

    ~BarePipeline();
    // Programs, textures and framebuffers for w x h frames. false on any
    // GL failure.
    bool Init(int w, int h, Kind kind);
    // One frame of `yuvx` (w x h x 4 bytes) through the passes into the
    // packed planes; to glReadPixels' return.
    void Frame(const uint8_t* yuvx);

private:
    struct Target {
        GLuint tex = 0, fbo = 0;
        int w = 0, h = 0;
    };
    bool MakeTarget(Target* t, int w, int h, GLenum filter);
    GLuint MakeLookUp(int w, int h, const uint8_t* rgba);
    void Draw(GLuint prog, const Target& dst, GLuint src0, GLuint src1);

    int m_nW = 0, m_nH = 0;
    Kind m_eKind = kOnePass;
    GLuint m_nFrameTex = 0, m_nCurveTex = 0, m_nMaskTex = 0;
    Target m_rgb, m_y, m_uv, m_blurH, m_blurV;
    GLuint m_nProgRgb = 0, m_nProgY = 0, m_nProgUV = 0, m_nProgBlurH = 0, m_nProgBlurV = 0,
           m_nProgSizeUp = 0, m_nProgLook = 0;
    std::vector<uint8_t> m_vOut;
};

#endif
