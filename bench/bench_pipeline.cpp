// Where the time of a preview frame and of a capture goes, for every effect
// of the table, beside the bare GL floor of the same size and Bloom (9), the
// plainest one-pass effect, measured in the same run.
//
// bench_pipeline [Google Benchmark flags]     (--benchmark_filter=Bloom|Vintage
//                                               picks effects by name)
//
// Preview, 1280x720 and 1920x1080:
//   Parts/...  through the engine directly (GEManager over a graphics buffer,
//              as the plug-in's worker drives it), timed step by step:
//              expand  CPU expansion of the NV21 frame into the buffer
//                      (sp2yuvxs);
//              upload  the gralloc clean of the buffer: on this host it is
//                      where the texture gets the CPU's bytes (glTexSubImage2D);
//                      on the device the GPU reads the shared memory and the
//                      clean is a cache operation;
//              render  GEManager::ProcFrame: the effect's draw and the two YUV
//                      conversion passes, to glFinish;
//              copy    GEManager::MemcpyYUV: the converted planes read back
//                      (on this host the clean of the two output buffers
//                      reads the textures with glReadPixels) and copied over
//                      the frame.
//   Whole/...  handlePreview of the dlopen'd plug-in on a shared-memory camera
//              buffer: the parts plus the task queue round trip to the worker.
// Capture, 4000x3000 in tiles of the preview size:
//   CaptureParts/...  the engine in capture mode with this program as the tile
//              source (the plug-in's convertRect: sp2yuvxs and the clean):
//              bringup (Init, ChooseEffect: shader compilation), fetch (all
//              tiles' expansion and upload), gpu+blockcopy (the rest of
//              ProcFrame), copy (the result copied over the camera planes).
//   CaptureWhole/...  handleCapture of the plug-in.
// Floor/WxH: one RGBA frame of that size uploaded into a texture
//   (glTexSubImage2D), one full-screen textured draw into a framebuffer of
//   the same size, and glReadPixels of it, on a context brought up like the
//   worker's.
//
// Bare/WxH, BareBlur/WxH, BareLookUps/WxH: the bare pipelines of
//   bare_pipeline.h, with the pass structure of a one-pass effect's frame,
//   of the blur family's and of a look effect's one pass with its look-ups,
//   written straight against GL: what a frame costs without the library.
// Expand/4000x3000: the CPU expansion of a whole capture; a capture's bare
//   cost is its tiles' bare cost plus one expansion.
// Switch/EFFECT/1280x720: with Bloom running, the camera switches to the
//   effect (setParameters, which brings the effect up at once) and sends the
//   next frame; against a steady frame of the same effect.
//
// After the runs, a summary gives the median milliseconds of each and their
// ratios to the floors of the same size (the old floor: one upload, one
// draw, one readback; the bare pipelines) and to Bloom's time.
#include <GLES2/gl2.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <ui/GraphicBuffer.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include <alloc_controller.h>
#include <benchmark/benchmark.h>
#include <gralloc_priv.h>

#include "bare_pipeline.h"
#include "effects/GEEffects.h"
#include "engine/GEManager.h"
#include "harness.h"
#include "options.h"
#include "sp2yuvx.h"

namespace {

struct Size {
    int nWidth;
    int nHeight;
};
const Size kPreviewSizes[] = {{1280, 720}, {1920, 1080}};
const Size kCaptureSize = {4000, 3000};
const int kBloom = 9;
const int kPreviewIterations = 20;
const int kCaptureIterations = 3;
const int kWarmUpFrames = 2;

double NowMs() {
    using namespace std::chrono;
    return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
}

// CPU time of the whole process (the worker, llvmpipe's rasterizer threads
// and the caller): on a shared machine it moves much less with the load than
// the wall clock, so the summary gives the ratios of both.
double CpuMs() {
    timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
}

// Names of the effects in benchmark and summary rows, by effect number.
const char* const kEffectNames[GE_EFFECT_COUNT] = {
    "none",      "Vintage",   "DoF",        "Fisheye",    "Vignette",   "Dots",      "Contrast",
    "TiltShift", "Mirror",    "Bloom",      "Whiteboard", "StyleMaple", "StyleNash", "TwoToneV",
    "TwoToneH",  "SplitMono", "SplitColor", "Sketch",     "ColorSketch"};

const char* EffectName(int n) {
    return kEffectNames[n];
}

// The effects this build carries, Bloom and Mirror first.
std::vector<int> Effects() {
    std::vector<int> v = {kBloom, 8};
    for (unsigned e = 1; e < GE_EFFECT_COUNT; ++e) {
        const GEEffectEntry* entry = GEEffectLookUp(e);
        if (e != 8 && e != (unsigned)kBloom && entry != nullptr && entry->pfnCreate != nullptr) {
            v.push_back((int)e);
        }
    }
    return v;
}

std::string SizeName(const Size& s) {
    return std::to_string(s.nWidth) + "x" + std::to_string(s.nHeight);
}

// Per-iteration samples in milliseconds, by "row/column" name, for the
// summary.
std::map<std::string, std::vector<double>>& Samples() {
    static std::map<std::string, std::vector<double>> s;
    return s;
}

double Median(std::vector<double> v) {
    if (v.empty()) {
        return -1;
    }
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

// A camera frame with some texture to it.
NV21Frame MakeFrame(const Size& s) {
    NV21Frame f;
    f.Resize(s.nWidth, s.nHeight);
    uint32_t x = 12345;
    for (uint8_t& b : f.m_vData) {
        x = x * 1103515245u + 12345u;
        b = uint8_t(x >> 24);
    }
    return f;
}

int AlignUp32(int n) {
    return (n + 31) & ~31;
}

const private_handle_t* HandleOf(const android::sp<android::GraphicBuffer>& b) {
    return static_cast<const private_handle_t*>(b->getNativeBuffer()->handle);
}

int CleanBuffer(const android::sp<android::GraphicBuffer>& b) {
    const private_handle_t* h = HandleOf(b);
    android::sp<gralloc::IMemAlloc> alloc =
        gralloc::IAllocController::getInstance()->getAllocator(h->flags);
    return alloc->clean_buffer(reinterpret_cast<void*>(h->base), size_t(h->size), h->offset, h->fd,
                               gralloc::CACHE_CLEAN);
}

android::sp<android::GraphicBuffer> NewBuffer(const Size& s) {
    return new android::GraphicBuffer(uint32_t(AlignUp32(s.nWidth)), uint32_t(s.nHeight),
                                      1 /* RGBA_8888 */, 0x130);
}

void BM_PreviewParts(benchmark::State& state, int nEffect, Size size) {
    const std::string row = std::string(EffectName(nEffect)) + " " + SizeName(size);
    GEManager* pMan = new GEManager();
    android::sp<android::GraphicBuffer> buffer = NewBuffer(size);
    if (buffer->initCheck() != android::NO_ERROR ||
        !pMan->Init(buffer->getNativeBuffer(), uint32_t(AlignUp32(size.nWidth)),
                    uint32_t(size.nHeight), 0, 0, 0, uint32_t(size.nWidth), uint32_t(size.nHeight),
                    nullptr)) {
        delete pMan;
        state.SkipWithError("GEManager::Init failed");
        return;
    }
    pMan->m_bLandscaped = false;
    if (!pMan->ChooseEffect(unsigned(nEffect), 0)) {
        delete pMan;
        state.SkipWithError("GEManager::ChooseEffect failed");
        return;
    }
    pMan->SetParam(0, 0, 0, 0, 0);
    pMan->SetParam(1, 0, 0, 0, 0);
    const NV21Frame frame = MakeFrame(size);
    std::vector<uint8_t> out(frame.m_vData.size());
    const private_handle_t* h = HandleOf(buffer);
    void* pPixels = reinterpret_cast<void*>(h->base);
    const int nStride = int(buffer->getStride());
    const int w = size.nWidth;
    const int hh = size.nHeight;
    double sum[4] = {0, 0, 0, 0};
    auto one = [&](double* pDt) {
        const double t0 = NowMs();
        sp2yuvxs_any(pPixels, nStride, hh, frame.Luma(), frame.Chroma(), w, hh, 0, 0, w, hh);
        const double t1 = NowMs();
        CleanBuffer(buffer);
        const double t2 = NowMs();
        pMan->ProcFrame(0u, 0u, 0, 0);
        const double t3 = NowMs();
        pMan->MemcpyYUV(out.data(), out.data() + size_t(w) * hh);
        const double t4 = NowMs();
        pDt[0] = t1 - t0;
        pDt[1] = t2 - t1;
        pDt[2] = t3 - t2;
        pDt[3] = t4 - t3;
    };
    double dt[4];
    for (int i = 0; i < kWarmUpFrames; ++i) {
        one(dt);
    }
    for (auto _ : state) {
        one(dt);
        const char* kNames[4] = {"expand", "upload", "render", "copy"};
        for (int k = 0; k < 4; ++k) {
            sum[k] += dt[k];
            Samples()[row + "/" + kNames[k]].push_back(dt[k]);
        }
        Samples()[row + "/parts"].push_back(dt[0] + dt[1] + dt[2] + dt[3]);
        state.SetIterationTime((dt[0] + dt[1] + dt[2] + dt[3]) / 1000.0);
    }
    const double n = double(state.iterations());
    state.counters["expand_ms"] = sum[0] / n;
    state.counters["upload_ms"] = sum[1] / n;
    state.counters["render_ms"] = sum[2] / n;
    state.counters["copy_ms"] = sum[3] / n;
    pMan->Deinit();
    delete pMan;
}

// The plug-in as the camera service loads it.
struct PlugIn {
    PostEffectLibrary lib;
    IPostEffect* pEffect = nullptr;
    bool Start(int nEffect, const Size& preview, std::string* pErr) {
        if (!lib.Open(POSTEFFECT_LIBRARY, pErr)) {
            return false;
        }
        pEffect = lib.Create();
        if (!pEffect || pEffect->start() != 0) {
            *pErr = "the plug-in did not start";
            return false;
        }
        // The effect's one-character code: effects 10 to 18 are letters.
        const std::string params = std::string("GPU-effect=") + EffectTable()[nEffect].m_cCode;
        pEffect->setParameters(android::String8(params.c_str()));
        pEffect->startPreview(preview.nWidth, preview.nHeight);
        return true;
    }
    ~PlugIn() {
        if (pEffect) {
            pEffect->stopPreview();
            pEffect->stop();
            lib.Destroy(pEffect);
        }
    }
};

void BM_PreviewWhole(benchmark::State& state, int nEffect, Size size) {
    const std::string row = std::string(EffectName(nEffect)) + " " + SizeName(size);
    PlugIn plugIn;
    std::string err;
    if (!plugIn.Start(nEffect, size, &err)) {
        state.SkipWithError(err.c_str());
        return;
    }
    const NV21Frame frame = MakeFrame(size);
    SharedBuffer heap;
    if (!heap.Alloc(frame.m_vData.size(), "bench-preview", &err)) {
        state.SkipWithError(err.c_str());
        return;
    }
    for (int i = 0; i < kWarmUpFrames; ++i) {
        memcpy(heap.Base(), frame.m_vData.data(), frame.m_vData.size());
        if (plugIn.pEffect->handlePreview(heap.Fd(), heap.Base(), 0) != 0) {
            state.SkipWithError("handlePreview failed");
            return;
        }
    }
    for (auto _ : state) {
        memcpy(heap.Base(), frame.m_vData.data(), frame.m_vData.size());  // a new frame
        const double t0 = NowMs(), c0 = CpuMs();
        plugIn.pEffect->handlePreview(heap.Fd(), heap.Base(), 0);
        const double dt = NowMs() - t0;
        Samples()[row + "/wholecpu"].push_back(CpuMs() - c0);
        Samples()[row + "/whole"].push_back(dt);
        state.SetIterationTime(dt / 1000.0);
    }
}

// The capture's tile source, as the plug-in's convertRect does it; it keeps
// the time spent in it.
class TileSource : public IYUVConverter {
public:
    TileSource(const NV21Frame& capture, android::sp<android::GraphicBuffer> buffer)
        : m_capture(capture), m_buffer(buffer) {}
    int convertRect(void* dst, int dw, int dh, int rx, int ry, int rw, int rh) override {
        const double t0 = NowMs();
        sp2yuvxs_any(dst, dw, dh, m_capture.Luma(), m_capture.Chroma(), m_capture.m_nWidth,
                     m_capture.m_nHeight, rx, ry, rw, rh);
        CleanBuffer(m_buffer);
        m_dMs += NowMs() - t0;
        return 1;
    }
    double m_dMs = 0;

private:
    const NV21Frame& m_capture;
    android::sp<android::GraphicBuffer> m_buffer;
};

void BM_CaptureParts(benchmark::State& state, int nEffect, Size tile) {
    const std::string row =
        std::string(EffectName(nEffect)) + " " + SizeName(kCaptureSize) + " /" + SizeName(tile);
    const NV21Frame capture = MakeFrame(kCaptureSize);
    NV21Frame camera = capture;  // the camera's planes the result goes back to
    std::vector<uint8_t> memYUV(capture.m_vData.size());
    GEManager* pMan = new GEManager();
    double sum[4] = {0, 0, 0, 0};
    for (auto _ : state) {
        android::sp<android::GraphicBuffer> buffer = NewBuffer(tile);
        TileSource source(capture, buffer);
        const double t0 = NowMs();
        bool bOk = pMan->Init(buffer->getNativeBuffer(), uint32_t(AlignUp32(tile.nWidth)),
                              uint32_t(tile.nHeight), 0, 0, 0, uint32_t(tile.nWidth),
                              uint32_t(tile.nHeight), &source);
        pMan->m_bLandscaped = false;
        bOk = bOk && pMan->ChooseEffect(unsigned(nEffect), 1);
        pMan->SetParam(0, 0, 0, 0, 0);
        pMan->SetParam(1, 0, 0, 0, 0);
        pMan->SetCrop(0, 0, 0, 0);
        const double t1 = NowMs();
        bOk = bOk && pMan->ProcFrame(camera.Luma(), camera.Chroma(), memYUV.data(),
                                     kCaptureSize.nWidth, kCaptureSize.nHeight);
        const double t2 = NowMs();
        memcpy(camera.m_vData.data(), memYUV.data(), memYUV.size());
        const double t3 = NowMs();
        pMan->Deinit();
        if (!bOk) {
            state.SkipWithError("the capture failed");
            break;
        }
        const double dt[4] = {t1 - t0, source.m_dMs, (t2 - t1) - source.m_dMs, t3 - t2};
        const char* kNames[4] = {"bringup", "fetch", "gpu+blockcopy", "copy"};
        for (int k = 0; k < 4; ++k) {
            sum[k] += dt[k];
            Samples()[row + "/" + kNames[k]].push_back(dt[k]);
        }
        Samples()[row + "/parts"].push_back(t3 - t0);
        state.SetIterationTime((t3 - t0) / 1000.0);
    }
    const double n = double(std::max<int64_t>(1, state.iterations()));
    state.counters["bringup_ms"] = sum[0] / n;
    state.counters["fetch_ms"] = sum[1] / n;
    state.counters["gpu_blockcopy_ms"] = sum[2] / n;
    state.counters["copy_ms"] = sum[3] / n;
    delete pMan;
}

void BM_CaptureWhole(benchmark::State& state, int nEffect, Size tile) {
    const std::string row =
        std::string(EffectName(nEffect)) + " " + SizeName(kCaptureSize) + " /" + SizeName(tile);
    PlugIn plugIn;
    std::string err;
    if (!plugIn.Start(nEffect, tile, &err)) {
        state.SkipWithError(err.c_str());
        return;
    }
    const NV21Frame capture = MakeFrame(kCaptureSize);
    const size_t nLuma = size_t(kCaptureSize.nWidth) * kCaptureSize.nHeight;
    const int nUVOffset = CaptureUVOffset(kCaptureSize.nWidth, kCaptureSize.nHeight);
    SharedBuffer heap;
    if (!heap.Alloc(size_t(kCaptureYOffset) + size_t(nUVOffset) + nLuma / 2, "bench-capture",
                    &err)) {
        state.SkipWithError(err.c_str());
        return;
    }
    for (auto _ : state) {
        memcpy(heap.Base() + kCaptureYOffset, capture.Luma(), nLuma);
        memcpy(heap.Base() + kCaptureYOffset + nUVOffset, capture.Chroma(), nLuma / 2);
        const double t0 = NowMs(), c0 = CpuMs();
        const int rc =
            plugIn.pEffect->handleCapture(kCaptureSize.nWidth, kCaptureSize.nHeight, heap.Fd(),
                                          heap.Base(), kCaptureYOffset, nUVOffset);
        const double dt = NowMs() - t0;
        Samples()[row + "/wholecpu"].push_back(CpuMs() - c0);
        if (rc != 0) {
            state.SkipWithError("handleCapture failed");
            break;
        }
        Samples()[row + "/whole"].push_back(dt);
        state.SetIterationTime(dt / 1000.0);
    }
}

const char* kFloorVertex =
    "attribute vec4 a_vertexCoord;\n"
    "attribute vec2 a_textureCoord;\n"
    "varying vec2 v_texCoord;\n"
    "void main() { gl_Position = a_vertexCoord; v_texCoord = a_textureCoord; }\n";
const char* kFloorFragment =
    "precision highp float;\n"
    "uniform sampler2D s_texture0;\n"
    "varying vec2 v_texCoord;\n"
    "void main() { gl_FragColor = texture2D(s_texture0, v_texCoord); }\n";

GLuint Compile(GLenum type, const char* src) {
    GLuint s = glCreateShader(type);
    glShaderSource(s, 1, &src, nullptr);
    glCompileShader(s);
    return s;
}

void BM_Floor(benchmark::State& state, Size size) {
    const std::string row = "floor " + SizeName(size);
    GEManager* pMan = new GEManager();  // a context like the worker's, current here
    const int w = size.nWidth;
    const int h = size.nHeight;
    GLuint prog = glCreateProgram();
    GLuint vs = Compile(GL_VERTEX_SHADER, kFloorVertex);
    GLuint fs = Compile(GL_FRAGMENT_SHADER, kFloorFragment);
    glAttachShader(prog, vs);
    glAttachShader(prog, fs);
    glLinkProgram(prog);
    GLint nLinked = 0;
    glGetProgramiv(prog, GL_LINK_STATUS, &nLinked);
    GLuint tex[2];
    glGenTextures(2, tex);
    for (GLuint t : tex) {
        glBindTexture(GL_TEXTURE_2D, t);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    }
    GLuint fbo;
    glGenFramebuffers(1, &fbo);
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, tex[1], 0);
    if (!nLinked || glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
        delete pMan;
        state.SkipWithError("GL floor set-up failed");
        return;
    }
    static const GLfloat kQuad[] = {-1, 1, 1, 1, -1, -1, 1, 1, 1, -1, 1, 1, 1, 1, 1, 1};
    static const GLfloat kTex[] = {0, 1, 0, 0, 1, 0, 1, 1};
    static const GLushort kIdx[] = {0, 1, 2, 0, 2, 3};
    const GLint aPos = glGetAttribLocation(prog, "a_vertexCoord");
    const GLint aTex = glGetAttribLocation(prog, "a_textureCoord");
    std::vector<uint8_t> in(size_t(w) * h * 4);
    uint32_t x = 99;
    for (uint8_t& b : in) {
        x = x * 1103515245u + 12345u;
        b = uint8_t(x >> 24);
    }
    std::vector<uint8_t> out(in.size());
    auto one = [&]() {
        const double t0 = NowMs();
        glBindTexture(GL_TEXTURE_2D, tex[0]);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, w, h, GL_RGBA, GL_UNSIGNED_BYTE, in.data());
        glBindFramebuffer(GL_FRAMEBUFFER, fbo);
        glViewport(0, 0, w, h);
        glUseProgram(prog);
        glActiveTexture(GL_TEXTURE0);
        glUniform1i(glGetUniformLocation(prog, "s_texture0"), 0);
        glVertexAttribPointer(GLuint(aPos), 4, GL_FLOAT, GL_FALSE, 0, kQuad);
        glEnableVertexAttribArray(GLuint(aPos));
        glVertexAttribPointer(GLuint(aTex), 2, GL_FLOAT, GL_FALSE, 0, kTex);
        glEnableVertexAttribArray(GLuint(aTex));
        glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_SHORT, kIdx);
        glReadPixels(0, 0, w, h, GL_RGBA, GL_UNSIGNED_BYTE, out.data());
        return NowMs() - t0;
    };
    for (int i = 0; i < kWarmUpFrames; ++i) {
        one();
    }
    for (auto _ : state) {
        const double dt = one();
        Samples()[row + "/floor"].push_back(dt);
        state.SetIterationTime(dt / 1000.0);
    }
    if (glGetError() != GL_NO_ERROR) {
        state.SkipWithError("GL error in the floor");
    }
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDeleteFramebuffers(1, &fbo);
    glDeleteTextures(2, tex);
    glDeleteProgram(prog);
    glDeleteShader(vs);
    glDeleteShader(fs);
    delete pMan;
}

bool IsBlur(int n) {
    return n == 2 || n == 7 || n == 17 || n == 18;
}

// The look effects: one pass reading look-up images besides the frame.
bool IsLook(int n) {
    return n == 1 || n == 6 || (n >= 10 && n <= 16);
}

const char* BareName(BarePipeline::Kind kind) {
    return kind == BarePipeline::kBlur      ? "bareblur "
           : kind == BarePipeline::kLookUps ? "barelook "
                                            : "bare ";
}

void BM_Bare(benchmark::State& state, Size size, BarePipeline::Kind kind) {
    const std::string row = BareName(kind) + SizeName(size);
    GEManager* pMan = new GEManager();  // a context like the worker's, current here
    {
        BarePipeline bare;
        if (!bare.Init(size.nWidth, size.nHeight, kind)) {
            delete pMan;
            state.SkipWithError("bare pipeline set-up failed");
            return;
        }
        std::vector<uint8_t> yuvx(size_t(size.nWidth) * size.nHeight * 4);
        uint32_t x = 7;
        for (uint8_t& b : yuvx) {
            x = x * 1103515245u + 12345u;
            b = uint8_t(x >> 24);
        }
        for (int i = 0; i < kWarmUpFrames; ++i) {
            bare.Frame(yuvx.data());
        }
        for (auto _ : state) {
            const double t0 = NowMs(), c0 = CpuMs();
            bare.Frame(yuvx.data());
            const double dt = NowMs() - t0;
            Samples()[row + "/barecpu"].push_back(CpuMs() - c0);
            Samples()[row + "/bare"].push_back(dt);
            state.SetIterationTime(dt / 1000.0);
        }
    }
    delete pMan;
}

void BM_Expand(benchmark::State& state, Size size) {
    const NV21Frame capture = MakeFrame(size);
    std::vector<uint8_t> out(size_t(size.nWidth) * size.nHeight * 4);
    for (auto _ : state) {
        const double t0 = NowMs();
        sp2yuvxs_any(out.data(), size.nWidth, size.nHeight, capture.Luma(), capture.Chroma(),
                     size.nWidth, size.nHeight, 0, 0, size.nWidth, size.nHeight);
        const double dt = NowMs() - t0;
        Samples()["expand " + SizeName(size) + "/expand"].push_back(dt);
        state.SetIterationTime(dt / 1000.0);
    }
}

// With Bloom up, the camera switches to nEffect and sends a frame; then a
// steady frame; then back to Bloom for the next round.
void BM_Switch(benchmark::State& state, int nEffect, Size size) {
    const std::string row = std::string(EffectName(nEffect)) + " switch";
    PlugIn plugIn;
    std::string err;
    if (!plugIn.Start(kBloom, size, &err)) {
        state.SkipWithError(err.c_str());
        return;
    }
    const NV21Frame frame = MakeFrame(size);
    SharedBuffer heap;
    if (!heap.Alloc(frame.m_vData.size(), "bench-switch", &err)) {
        state.SkipWithError(err.c_str());
        return;
    }
    auto send = [&]() {
        memcpy(heap.Base(), frame.m_vData.data(), frame.m_vData.size());
        return plugIn.pEffect->handlePreview(heap.Fd(), heap.Base(), 0);
    };
    const std::string to = std::string("GPU-effect=") + EffectTable()[nEffect].m_cCode;
    for (auto _ : state) {
        plugIn.pEffect->setParameters(android::String8("GPU-effect=9"));
        send();
        const double t0 = NowMs(), c0 = CpuMs();
        plugIn.pEffect->setParameters(android::String8(to.c_str()));
        const int rc = send();
        const double t1 = NowMs(), c1 = CpuMs();
        send();
        const double t2 = NowMs(), c2 = CpuMs();
        if (rc != 0) {
            state.SkipWithError("the frame after the switch failed");
            break;
        }
        Samples()[row + "/first"].push_back(t1 - t0);
        Samples()[row + "/steady"].push_back(t2 - t1);
        Samples()[row + "/firstcpu"].push_back(c1 - c0);
        Samples()[row + "/steadycpu"].push_back(c2 - c1);
        state.SetIterationTime((t1 - t0) / 1000.0);
    }
}

void Register() {
    for (const Size& s : kPreviewSizes) {
        const std::string sz = SizeName(s);
        benchmark::RegisterBenchmark(("Floor/" + sz).c_str(), BM_Floor, s)
            ->Iterations(kPreviewIterations)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("Bare/" + sz).c_str(), BM_Bare, s, BarePipeline::kOnePass)
            ->Iterations(kPreviewIterations)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("BareBlur/" + sz).c_str(), BM_Bare, s, BarePipeline::kBlur)
            ->Iterations(kPreviewIterations)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("BareLookUps/" + sz).c_str(), BM_Bare, s,
                                     BarePipeline::kLookUps)
            ->Iterations(kPreviewIterations)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
        for (int e : Effects()) {
            const std::string name = std::string(EffectName(e)) + "/" + sz;
            benchmark::RegisterBenchmark(("Parts/" + name).c_str(), BM_PreviewParts, e, s)
                ->Iterations(kPreviewIterations)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
            benchmark::RegisterBenchmark(("Whole/" + name).c_str(), BM_PreviewWhole, e, s)
                ->Iterations(kPreviewIterations)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
        }
    }
    benchmark::RegisterBenchmark(("Floor/" + SizeName(kCaptureSize)).c_str(), BM_Floor,
                                 kCaptureSize)
        ->Iterations(kCaptureIterations * 2)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("Expand/" + SizeName(kCaptureSize)).c_str(), BM_Expand,
                                 kCaptureSize)
        ->Iterations(kCaptureIterations * 2)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    for (int e : Effects()) {
        benchmark::RegisterBenchmark(
            ("Switch/" + std::string(EffectName(e)) + "/" + SizeName(kPreviewSizes[0])).c_str(),
            BM_Switch, e, kPreviewSizes[0])
            ->Iterations(kCaptureIterations)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    }
    // Captures in tiles of both preview sizes for Bloom and Mirror, of the
    // first for the others.
    for (const Size& tile : kPreviewSizes) {
        for (int e : Effects()) {
            if (&tile != &kPreviewSizes[0] && e != kBloom && e != 8) {
                continue;
            }
            const std::string name = std::string(EffectName(e)) + "/" + SizeName(kCaptureSize) +
                                     "/tile:" + SizeName(tile);
            benchmark::RegisterBenchmark(("CaptureParts/" + name).c_str(), BM_CaptureParts, e, tile)
                ->Iterations(kCaptureIterations)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
            benchmark::RegisterBenchmark(("CaptureWhole/" + name).c_str(), BM_CaptureWhole, e, tile)
                ->Iterations(kCaptureIterations)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
        }
    }
}

// A median in a column of nWidth characters, "-" when nothing was measured.
std::string Cell(double ms, int nWidth, int nDigits) {
    char buf[64];
    if (ms < 0) {
        snprintf(buf, sizeof(buf), "%*s", nWidth, "-");
    } else {
        snprintf(buf, sizeof(buf), "%*.*f", nWidth, nDigits, ms);
    }
    return buf;
}

std::string Ratio(double ms, double floorMs, int nWidth) {
    char buf[64];
    if (ms < 0 || floorMs <= 0) {
        snprintf(buf, sizeof(buf), "%*s", nWidth, "-");
    } else {
        snprintf(buf, sizeof(buf), "%*.2fx", nWidth - 1, ms / floorMs);
    }
    return buf;
}

void PrintSummary() {
    auto med = [](const std::string& key) {
        auto it = Samples().find(key);
        return it == Samples().end() ? -1.0 : Median(it->second);
    };
    printf(
        "\nSummary (median ms; x = ratio to the old GL floor of the same size, b = to the bare "
        "pipeline of the effect's pass structure, l = to the bare one pass with four look-ups "
        "(look "
        "effects), B = to Bloom, all in this run; cpu = CPU time of the whole process, which "
        "moves less with the machine's load than the wall clock)\n");
    printf("\nPreview\n%-22s %6s %6s %6s %6s %7s %7s %7s %7s %7s %7s %7s %7s %7s %7s\n", "",
           "expand", "upload", "render", "copy", "parts", "whole", "floor", "bare", "whole/x",
           "whole/b", "whole/l", "whole/B", "cpu", "cpu/b");
    for (const Size& s : kPreviewSizes) {
        const double floorMs = med("floor " + SizeName(s) + "/floor");
        const double bloomMs = med(std::string(EffectName(kBloom)) + " " + SizeName(s) + "/whole");
        for (int e : Effects()) {
            const std::string row = std::string(EffectName(e)) + " " + SizeName(s);
            const double render = med(row + "/render");
            const double whole = med(row + "/whole");
            if (whole < 0 && render < 0) {
                continue;
            }
            const std::string bareRow = (IsBlur(e) ? "bareblur " : "bare ") + SizeName(s);
            const double bare = med(bareRow + "/bare");
            const double look = IsLook(e) ? med("barelook " + SizeName(s) + "/bare") : -1.0;
            const double cpu = med(row + "/wholecpu");
            printf("%-22s %s %s %s %s %s %s %s %s %s %s %s %s %s %s\n", row.c_str(),
                   Cell(med(row + "/expand"), 6, 2).c_str(),
                   Cell(med(row + "/upload"), 6, 2).c_str(), Cell(render, 6, 2).c_str(),
                   Cell(med(row + "/copy"), 6, 2).c_str(), Cell(med(row + "/parts"), 7, 2).c_str(),
                   Cell(whole, 7, 2).c_str(), Cell(floorMs, 7, 2).c_str(), Cell(bare, 7, 2).c_str(),
                   Ratio(whole, floorMs, 7).c_str(), Ratio(whole, bare, 7).c_str(),
                   Ratio(whole, look, 7).c_str(), Ratio(whole, bloomMs, 7).c_str(),
                   Cell(cpu, 7, 2).c_str(), Ratio(cpu, med(bareRow + "/barecpu"), 7).c_str());
        }
    }
    const double floorMs = med("floor " + SizeName(kCaptureSize) + "/floor");
    const double expandMs = med("expand " + SizeName(kCaptureSize) + "/expand");
    printf(
        "\nCapture %s (old GL floor %s ms, expansion %s ms; bare = tiles x bare tile + one "
        "expansion)\n%-36s %7s %7s %13s %6s %7s %7s %7s %7s %7s %7s %7s %7s\n",
        SizeName(kCaptureSize).c_str(), Cell(floorMs, 1, 2).c_str(), Cell(expandMs, 1, 2).c_str(),
        "", "bringup", "fetch", "gpu+blockcopy", "copy", "parts", "whole", "bare", "whole/b",
        "whole/l", "whole/B", "cpu", "cpu/b");
    for (const Size& tile : kPreviewSizes) {
        const double bloomMs = med(std::string(EffectName(kBloom)) + " " + SizeName(kCaptureSize) +
                                   " /" + SizeName(tile) + "/whole");
        const int tiles = ((kCaptureSize.nWidth + tile.nWidth - 1) / tile.nWidth) *
                          ((kCaptureSize.nHeight + tile.nHeight - 1) / tile.nHeight);
        for (int e : Effects()) {
            const std::string row =
                std::string(EffectName(e)) + " " + SizeName(kCaptureSize) + " /" + SizeName(tile);
            const double whole = med(row + "/whole");
            if (whole < 0 && med(row + "/parts") < 0) {
                continue;
            }
            const std::string bareRow = (IsBlur(e) ? "bareblur " : "bare ") + SizeName(tile);
            const double bareTile = med(bareRow + "/bare");
            const double bareTileCpu = med(bareRow + "/barecpu");
            const double bare = bareTile < 0 || expandMs < 0 ? -1.0 : tiles * bareTile + expandMs;
            const double bareCpu =
                bareTileCpu < 0 || expandMs < 0 ? -1.0 : tiles * bareTileCpu + expandMs;
            const double lookTile = IsLook(e) ? med("barelook " + SizeName(tile) + "/bare") : -1.0;
            const double look = lookTile < 0 || expandMs < 0 ? -1.0 : tiles * lookTile + expandMs;
            const double cpu = med(row + "/wholecpu");
            printf(
                "%-36s %s %s %s %s %s %s %s %s %s %s %s %s\n", (row + " tiles").c_str(),
                Cell(med(row + "/bringup"), 7, 1).c_str(), Cell(med(row + "/fetch"), 7, 1).c_str(),
                Cell(med(row + "/gpu+blockcopy"), 13, 1).c_str(),
                Cell(med(row + "/copy"), 6, 1).c_str(), Cell(med(row + "/parts"), 7, 1).c_str(),
                Cell(whole, 7, 1).c_str(), Cell(bare, 7, 1).c_str(), Ratio(whole, bare, 7).c_str(),
                Ratio(whole, look, 7).c_str(), Ratio(whole, bloomMs, 7).c_str(),
                Cell(cpu, 7, 1).c_str(), Ratio(cpu, bareCpu, 7).c_str());
        }
    }
    printf(
        "\nEffect switch at %s (Bloom running; the switch and its first frame, against a "
        "steady frame)\n%-22s %8s %8s %8s %10s\n",
        SizeName(kPreviewSizes[0]).c_str(), "", "first", "steady", "extra", "extra cpu");
    for (int e : Effects()) {
        const std::string row = std::string(EffectName(e)) + " switch";
        const double first = med(row + "/first"), steady = med(row + "/steady");
        if (first < 0) {
            continue;
        }
        printf("%-22s %s %s %s %s\n", EffectName(e), Cell(first, 8, 1).c_str(),
               Cell(steady, 8, 1).c_str(), Cell(first - steady, 8, 1).c_str(),
               Cell(med(row + "/firstcpu") - med(row + "/steadycpu"), 10, 1).c_str());
    }
}

}  // namespace

int main(int argc, char** argv) {
    Register();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    PrintSummary();
    return 0;
}
