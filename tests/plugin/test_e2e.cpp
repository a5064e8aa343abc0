// The built libposteffect.so, loaded with dlopen and driven only through its
// public interface in the camera's order, with camera buffers in shared
// memory. Bloom and Mirror run on llvmpipe; the expectations come from the
// effects' formulas and the full-range BT.601 conversions.
//
// This program links none of the library's code: what it sees is what a
// camera service sees.
#include <android/log.h>
#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "GETestFrames.h"
#include "IPostEffect.h"

using android::String8;
using namespace getest;

namespace {

const int kW = 64;
const int kH = 32;

// --- log lines of the library ----------------------------------------------

std::mutex s_logLock;
std::vector<std::string> s_lines, s_errors;

void Logger(const struct __android_logger_data* data, const char* message) {
    std::lock_guard<std::mutex> lock(s_logLock);
    const std::string line =
        std::string(data->tag ? data->tag : "") + ": " + (message ? message : "");
    s_lines.push_back(line);
    if (data->priority >= ANDROID_LOG_ERROR) {
        s_errors.push_back(line);
    }
}

int CountLines(const std::string& text) {
    std::lock_guard<std::mutex> lock(s_logLock);
    int n = 0;
    for (const std::string& l : s_lines) {
        n += l.find(text) != std::string::npos;
    }
    return n;
}

// --- the library -----------------------------------------------------------

class Library {
public:
    Library() : m_pHandle(dlopen(POSTEFFECT_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
        if (m_pHandle != nullptr) {
            m_pfnCreate =
                reinterpret_cast<IPostEffect* (*)()>(dlsym(m_pHandle, "createPostEffect"));
            m_pfnDestroy =
                reinterpret_cast<void (*)(IPostEffect*)>(dlsym(m_pHandle, "destroyPostEffect"));
        }
    }
    ~Library() {
        if (m_pHandle != nullptr) {
            dlclose(m_pHandle);
        }
    }
    bool Ok() const { return m_pfnCreate != nullptr && m_pfnDestroy != nullptr; }
    void* Handle() const { return m_pHandle; }
    IPostEffect* Create() const { return m_pfnCreate(); }
    void Destroy(IPostEffect* p) const { m_pfnDestroy(p); }

private:
    void* m_pHandle;
    IPostEffect* (*m_pfnCreate)() = nullptr;
    void (*m_pfnDestroy)(IPostEffect*) = nullptr;
};

// The names a shared object defines in its dynamic symbol table (read from
// the file's section headers).
std::set<std::string> DefinedDynamicSymbols(const char* path) {
    std::set<std::string> names;
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    const off_t size = fd < 0 ? 0 : lseek(fd, 0, SEEK_END);
    void* map = fd < 0 ? MAP_FAILED : mmap(nullptr, (size_t)size, PROT_READ, MAP_PRIVATE, fd, 0);
    if (fd >= 0) {
        close(fd);
    }
    if (map == MAP_FAILED) {
        ADD_FAILURE() << "cannot map " << path;
        return names;
    }
    const unsigned char* file = static_cast<const unsigned char*>(map);
    const Elf64_Ehdr* eh = reinterpret_cast<const Elf64_Ehdr*>(file);
    if (memcmp(eh->e_ident, ELFMAG, SELFMAG) != 0 || eh->e_ident[EI_CLASS] != ELFCLASS64) {
        ADD_FAILURE() << "not a 64-bit ELF file";
        munmap(map, (size_t)size);
        return names;
    }
    const Elf64_Shdr* sh = reinterpret_cast<const Elf64_Shdr*>(file + eh->e_shoff);
    for (int i = 0; i < eh->e_shnum; ++i) {
        if (sh[i].sh_type != SHT_DYNSYM) {
            continue;
        }
        const char* strtab = reinterpret_cast<const char*>(file + sh[sh[i].sh_link].sh_offset);
        const Elf64_Sym* sym = reinterpret_cast<const Elf64_Sym*>(file + sh[i].sh_offset);
        for (size_t k = 1; k < sh[i].sh_size / sizeof(Elf64_Sym); ++k) {
            const int bind = ELF64_ST_BIND(sym[k].st_info);
            if (sym[k].st_shndx != SHN_UNDEF && (bind == STB_GLOBAL || bind == STB_WEAK)) {
                names.insert(strtab + sym[k].st_name);
            }
        }
    }
    munmap(map, (size_t)size);
    return names;
}

// A camera buffer holding one frame at `offset`, with 0xEE guard bytes
// before and after it.
class FrameBuffer {
public:
    FrameBuffer(int w, int h, int offset = 4096)
        : m_nOffset(offset),
          m_nBytes((size_t)w * h * 3 / 2),
          m_buf(offset + m_nBytes + 4096, 0xEE) {}
    void Put(const SPImage& img) { memcpy(Frame(), img.data.data(), m_nBytes); }
    unsigned char* Frame() const { return m_buf.Base() + m_nOffset; }
    int Send(IPostEffect* effect) {
        return effect->handlePreview(m_buf.Fd(), m_buf.Base(), m_nOffset);
    }
    bool GuardsIntact() const {
        for (size_t i = 0; i < m_buf.Size(); ++i) {
            if ((i < (size_t)m_nOffset || i >= m_nOffset + m_nBytes) && m_buf.Base()[i] != 0xEE) {
                return false;
            }
        }
        return true;
    }

private:
    int m_nOffset;
    size_t m_nBytes;
    CameraBuffer m_buf;
};

// The formulas (each byte within 2 of its value), with the library's error
// lines on a mismatch.
int Compare(const SPImage& in, const unsigned char* y, const unsigned char* uv,
            const SourceOf& source, RGB (*op)(const RGB&), const std::string& what) {
    const int bad = CompareToFormula(in, y, uv, source, op, 2.0, what, false);
    if (bad != 0) {
        std::lock_guard<std::mutex> lock(s_logLock);
        for (const std::string& l : s_errors) {
            ADD_FAILURE() << l;
        }
    }
    return bad;
}

class EndToEnd : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        setenv("POSTEFFECT_LOG", "*=0x16", 1);
        __android_log_set_logger(Logger);
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    }
};

TEST_F(EndToEnd, TheLibraryExportsOnlyItsSixNames) {
    const std::set<std::string> want = {"createPostEffect", "destroyPostEffect", "g_Disp_Width",
                                        "g_Disp_Height",    "g_eglDisplay",      "g_eglContext"};
    EXPECT_EQ(want, DefinedDynamicSymbols(POSTEFFECT_LIBRARY));
    Library lib;
    ASSERT_TRUE(lib.Ok()) << dlerror();
    for (const std::string& name : want) {
        EXPECT_NE(nullptr, dlsym(lib.Handle(), name.c_str())) << name;
    }
    // The manager factory hook, the classes and the helpers stay inside: a
    // look-up finds nothing, or finds the name in one of the libraries this
    // one depends on (a dependency of libbacktrace has a GetTickCount of
    // its own), never in this one.
    Dl_info self;
    ASSERT_NE(0, dladdr(dlsym(lib.Handle(), "createPostEffect"), &self));
    for (const char* hidden : {"_ZN5korvo13GPUPostEffect18s_pfnCreateManagerE", "_ZN9GEManagerC1Ev",
                               "_ZN5korvo13GPUPostEffectC1Ev", "_Z8sp2yuvxsPviiPKvS1_iiiiii",
                               "_Z12GetTickCountv", "__vlklog_init_mask", "_ZTV13GEShaderBloom"}) {
        void* p = dlsym(lib.Handle(), hidden);
        Dl_info info;
        if (p != nullptr && dladdr(p, &info) != 0) {
            EXPECT_NE(self.dli_fbase, info.dli_fbase) << hidden << " found in " << info.dli_fname;
        }
    }
}

// One camera session: Bloom on preview frames, Mirror both ways, a Bloom
// capture of four tiles, then the camera's teardown.
TEST_F(EndToEnd, CameraSessionWithBloomMirrorAndACapture) {
    Library lib;
    ASSERT_TRUE(lib.Ok()) << dlerror();
    IPostEffect* effect = lib.Create();
    ASSERT_NE(nullptr, effect);
    ASSERT_EQ(0, effect->start());
    ASSERT_EQ(0, effect->setParameters(String8("GPU-effect=9;picture-size=128x64")));
    ASSERT_EQ(0, effect->startPreview(kW, kH));
    FrameBuffer frame(kW, kH);
    auto run = [&](const SPImage& in, const SourceOf& source, RGB (*op)(const RGB&),
                   const std::string& what) {
        frame.Put(in);
        ASSERT_EQ(0, frame.Send(effect)) << what;
        EXPECT_EQ(0, Compare(in, frame.Frame(), frame.Frame() + kW * kH, source, op, what));
        EXPECT_TRUE(frame.GuardsIntact()) << what;
    };

    // Bloom: a grey g becomes 3.5 g^2, from 0.535 on saturated.
    for (int grey : {0, 64, 100, 128, 200}) {
        run(SPImage::Grey(kW, kH, [grey](int, int) { return grey; }), Identity, Bloom,
            "bloom grey " + std::to_string(grey));
    }
    // Mirror, portrait: the rows of the lower half show the upper half; then
    // landscape (the first group-0 word): columns instead of rows.
    ASSERT_EQ(0, effect->setParameters(String8("GPU-effect=8;GE-param0=0,0,0,0")));
    run(SPImage::Pattern(kW, kH), Mirrored(kW, kH, false), Unchanged, "mirror portrait");
    ASSERT_EQ(0, effect->setParameters(String8("GPU-effect=9")));
    ASSERT_EQ(0, effect->setParameters(String8("GPU-effect=8;GE-param0=1,0,0,0")));
    run(SPImage::Pattern(kW, kH), Mirrored(kW, kH, true), Unchanged, "mirror landscape");

    // A Bloom capture of 2 x 2 tiles of the preview's size; the chroma plane
    // follows a gap after the luma.
    ASSERT_EQ(0, effect->setParameters(String8("GPU-effect=9")));
    const int cw = 128, ch = 64, yOffset = 4096, uvOffset = cw * ch + 256;
    CameraBuffer capture((size_t)yOffset + uvOffset + cw * ch / 2 + 4096);
    const SPImage in = SPImage::Pattern(cw, ch);
    unsigned char* luma = capture.Base() + yOffset;
    memcpy(luma, in.YPlane(), (size_t)cw * ch);
    memcpy(luma + uvOffset, in.UVPlane(), (size_t)cw * ch / 2);
    const int before = CountLines("[convertRect]");
    ASSERT_EQ(0, effect->handleCapture(cw, ch, capture.Fd(), capture.Base(), yOffset, uvOffset));
    EXPECT_EQ(4, CountLines("[convertRect]") - before);
    EXPECT_EQ(0, Compare(in, luma, luma + uvOffset, Identity, Bloom, "bloom capture"));

    // Preview goes on after the capture (the manager comes up again).
    run(SPImage::Pattern(kW, kH, 3), Identity, Bloom, "bloom after the capture");

    // Effect 0: frames pass untouched.
    ASSERT_EQ(0, effect->setParameters(String8("GPU-effect=0")));
    const SPImage still = SPImage::Pattern(kW, kH, 4);
    frame.Put(still);
    ASSERT_EQ(0, frame.Send(effect));
    EXPECT_EQ(0, memcmp(still.data.data(), frame.Frame(), still.data.size()));

    EXPECT_EQ(0, effect->stopPreview());
    EXPECT_EQ(-1, frame.Send(effect));
    EXPECT_EQ(0, effect->stop());
    lib.Destroy(effect);
}

// One camera of a camera service, with a plug-in object of its own: its
// effect, preview size, frames and captures. Every check counts into `bad`,
// so that it can run on a thread of its own.
struct Camera {
    Camera(const Library* l, const char* prm, int pw, int ph, RGB (*o)(const RGB&), bool m)
        : lib(l), params(prm), w(pw), h(ph), op(o), mirror(m) {}
    const Library* lib;
    const char* params;
    int w, h;  // the preview; captures are 2 x 2 previews
    RGB (*op)(const RGB&);
    bool mirror;
    IPostEffect* p = nullptr;
    std::unique_ptr<FrameBuffer> frame;
    int bad = 0;
    int seed = 0;

    SourceOf Source() const { return mirror ? Mirrored(w, h, false) : SourceOf(Identity); }
    void Start() {
        p = lib->Create();
        frame.reset(new FrameBuffer(w, h));
        bad += p->start() != 0;
        bad += p->setParameters(String8(params)) != 0;
        bad += p->startPreview(w, h) != 0;
    }
    void Frames(int n) {
        for (int i = 0; i < n; ++i) {
            const SPImage in = SPImage::Pattern(w, h, ++seed);
            frame->Put(in);
            bad += frame->Send(p) != 0;
            bad += Compare(in, frame->Frame(), frame->Frame() + w * h, Source(), op, params);
        }
    }
    void Capture() {
        const int cw = 2 * w, ch = 2 * h;
        const SPImage in = SPImage::Pattern(cw, ch, ++seed);
        CameraBuffer buf(in.data.size());
        memcpy(buf.Base(), in.data.data(), in.data.size());
        bad += p->handleCapture(cw, ch, buf.Fd(), buf.Base(), 0, cw * ch) != 0;
        bad += Compare(in, buf.Base(), buf.Base() + cw * ch, Source(), op, params);
    }
    void Stop() { bad += p->stop() != 0; }
    void Destroy() {
        lib->Destroy(p);
        p = nullptr;
    }
};

// Two plug-in objects in one process, as a camera switch (the new object
// starts before the old one stops) or two cameras at once make them: each
// keeps processing its own frames and captures whatever the order of start,
// stop and destroy, and once the last one is gone the exported globals are
// cleared.
TEST_F(EndToEnd, TwoObjectsInOneProcess) {
    Library lib;
    ASSERT_TRUE(lib.Ok()) << dlerror();
    void* const* context = static_cast<void* const*>(dlsym(lib.Handle(), "g_eglContext"));
    ASSERT_NE(nullptr, context);
    // Steps: an object's letter and what it does: s start, f frames, c
    // capture, x stop, d destroy; "||" runs three frames, a capture and three
    // frames on both at once, each on its own thread.
    const struct {
        const char* name;
        const char* steps;
    } cases[] = {
        {"a camera switch", "As Bs Ax Bf Bc Bx Ad Bd"},
        {"the newer one stops first", "As Bs Bx Af Ac Ax Bd Ad"},
        {"destroyed while the other runs", "As Bs Ax Ad Bf Bc Bx Bd"},
        {"two cameras at once", "As Bs || Ax Bx Bd Ad"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Camera cams[2] = {{&lib, "GPU-effect=9", kW, kH, Bloom, false},
                          {&lib, "GPU-effect=8;GE-param0=0,0,0,0", 96, 48, Unchanged, true}};
        std::istringstream steps(c.steps);
        for (std::string step; steps >> step;) {
            if (step == "||") {
                auto run = [](Camera* cam) {
                    cam->Frames(3);
                    cam->Capture();
                    cam->Frames(3);
                };
                std::thread a(run, &cams[0]), b(run, &cams[1]);
                a.join();
                b.join();
                continue;
            }
            Camera& cam = cams[step[0] - 'A'];
            switch (step[1]) {
                case 's':
                    cam.Start();
                    cam.Frames(2);
                    break;
                case 'f':
                    cam.Frames(3);
                    break;
                case 'c':
                    cam.Capture();
                    cam.Frames(1);  // the preview comes back after a capture
                    break;
                case 'x':
                    cam.Stop();
                    break;
                case 'd':
                    cam.Destroy();
                    break;
            }
            ASSERT_EQ(0, cam.bad) << "after " << step;
        }
        EXPECT_EQ(nullptr, *context);
    }
}

// What a confused or hostile caller can send reaches no memory outside its
// buffers and gets a clear answer.
TEST_F(EndToEnd, BadInputGetsResultCodesAndTouchesNothing) {
    Library lib;
    ASSERT_TRUE(lib.Ok()) << dlerror();
    IPostEffect* effect = lib.Create();
    ASSERT_NE(nullptr, effect);
    // Before start nothing runs and nothing waits.
    EXPECT_EQ(1, effect->setParameters(String8("GPU-effect=9")));
    EXPECT_EQ(-1, effect->handlePreview(-1, nullptr, 0));
    ASSERT_EQ(0, effect->start());
    ASSERT_EQ(0,
              effect->setParameters(String8("GPU-effect=9\x01;GE-param0=\xff,;GE-param1=1,2,3")));
    ASSERT_EQ(0, effect->startPreview(kW, kH));

    const SPImage grey = SPImage::Grey(kW, kH, [](int, int) { return 100; });
    CameraBuffer heap(grey.data.size());
    memcpy(heap.Base(), grey.data.data(), grey.data.size());
    int before = CountLines("frame refused");
    EXPECT_EQ(-1, effect->handlePreview(heap.Fd(), nullptr, 0));
    EXPECT_EQ(-1, effect->handlePreview(heap.Fd(), heap.Base(), 2));  // runs past the end
    EXPECT_EQ(2, CountLines("frame refused") - before);
    EXPECT_EQ(grey.data, heap.Bytes());

    // Crops of any integers, then a frame and a capture.
    ASSERT_EQ(0, effect->setCrop(INT_MIN, INT_MAX, -5, 0));
    ASSERT_EQ(0, effect->handlePreview(heap.Fd(), heap.Base(), 0));
    EXPECT_EQ(0, Compare(grey, heap.Base(), heap.Base() + kW * kH, Identity, Bloom, "bloom"));

    const int cw = 96, ch = 48;
    const SPImage in = SPImage::Pattern(cw, ch);
    CameraBuffer capture(in.data.size());
    memcpy(capture.Base(), in.data.data(), in.data.size());
    before = CountLines("capture refused");
    unsigned char* base = capture.Base();
    const int fd = capture.Fd();
    EXPECT_EQ(3, effect->handleCapture(cw + 1, ch, fd, base, 0, cw * ch));
    EXPECT_EQ(3, effect->handleCapture(cw, 0, fd, base, 0, cw * ch));
    EXPECT_EQ(3, effect->handleCapture(-cw, ch, fd, base, 0, cw * ch));
    EXPECT_EQ(3, effect->handleCapture(1 << 16, 1 << 16, fd, base, 0, cw * ch));
    EXPECT_EQ(3, effect->handleCapture(cw, ch, fd, nullptr, 0, cw * ch));
    EXPECT_EQ(3, effect->handleCapture(cw, ch, fd, base, 2, cw * ch));
    EXPECT_EQ(3, effect->handleCapture(cw, ch, fd, base, 0, cw * ch - 2));
    EXPECT_EQ(7, CountLines("capture refused") - before);
    EXPECT_EQ(in.data, capture.Bytes());

    // The same capture, well formed, goes through despite the crop.
    ASSERT_EQ(0, effect->handleCapture(cw, ch, fd, base, 0, cw * ch));
    EXPECT_EQ(0, Compare(in, base, base + cw * ch, Identity, Bloom, "bloom capture"));

    EXPECT_EQ(0, effect->stop());
    EXPECT_EQ(1, effect->setParameters(String8("GPU-effect=9")));  // after stop
    lib.Destroy(effect);
}

}  // namespace
