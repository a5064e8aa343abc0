// The built libposteffect.so, loaded with dlopen and driven only through its
// public interface in the camera's order, with camera buffers in shared
// memory: what it exports, camera sessions of one and two objects (Bloom,
// landscape Mirror, frames, captures, preview again after them), and every
// refusal of bad input at the interface, with its result code and nothing
// touched. Links none of the library's code.
#include <android/log.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "GETestFrames.h"
#include "GETestRoot.h"
#include "harness.h"

using android::String8;
using namespace getest;

namespace {

const int kW = 64, kH = 32;

// The formulas, each byte within 2.
int Compare(const SPImage& in, const unsigned char* y, const unsigned char* uv,
            const SourceOf& source, RGB (*op)(const RGB&), const std::string& what) {
    return CompareToFormula(in, y, uv, source, op, 2.0, what, false);
}

// The names a shared object defines in its dynamic symbol table.
std::set<std::string> DefinedDynamicSymbols(const char* path) {
    std::set<std::string> names;
    FILE* nm = popen(("nm -D --defined-only --extern-only " + std::string(path)).c_str(), "r");
    char line[512], name[480];
    while (nm != nullptr && fgets(line, sizeof(line), nm) != nullptr) {
        if (sscanf(line, "%*s %*c %479s", name) == 1) {
            names.insert(name);
        }
    }
    EXPECT_EQ(0, nm != nullptr ? pclose(nm) : -1);
    return names;
}

typedef ::testing::Test EndToEnd;

// The two entry points and the four globals, nothing else: the classes, the
// manager hook and the helpers stay inside.
TEST_F(EndToEnd, TheLibraryExportsOnlyItsSixNames) {
    const std::set<std::string> want = {"createPostEffect", "destroyPostEffect", "g_Disp_Width",
                                        "g_Disp_Height",    "g_eglDisplay",      "g_eglContext"};
    EXPECT_EQ(want, DefinedDynamicSymbols(POSTEFFECT_LIBRARY));
}

// The plug-in as a camera service opens it (the tool's loader), and the
// handle of that loaded library.
struct Loaded {
    Loaded() {
        EXPECT_TRUE(lib.Open(POSTEFFECT_LIBRARY, &err)) << err;
        handle = dlopen(POSTEFFECT_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    }
    ~Loaded() { dlclose(handle); }
    PostEffectLibrary lib;
    std::string err;
    void* handle;
};

// One camera with a plug-in object of its own. Every check counts into
// `bad`, so that it can run on a thread of its own.
struct Camera {
    Camera(const PostEffectLibrary* l, const char* prm, int pw, int ph, RGB (*o)(const RGB&),
           bool m)
        : lib(l), params(prm), w(pw), h(ph), op(o), mirror(m) {}
    const PostEffectLibrary* lib;
    const char* params;
    int w, h;  // the preview; captures are 2 x 2 previews
    RGB (*op)(const RGB&);
    bool mirror;
    IPostEffect* p = nullptr;
    std::unique_ptr<CameraBuffer> heap;  // one frame after a page, 0xEE around it
    int bad = 0, seed = 0;

    SourceOf Source() const { return mirror ? Mirrored(w, h, true) : SourceOf(Identity); }
    void Start() {
        p = lib->Create();
        heap.reset(new CameraBuffer(4096 + (size_t)w * h * 3 / 2 + 4096, 0xEE));
        bad += (p->start() != 0) + (p->setParameters(String8(params)) != 0) +
               (p->startPreview(w, h) != 0);
    }
    void Frames(int n) {
        unsigned char* frame = heap->Base() + 4096;
        for (int i = 0; i < n; ++i) {
            const SPImage in = SPImage::Pattern(w, h, ++seed);
            memcpy(frame, in.data.data(), in.data.size());
            bad += p->handlePreview(heap->Fd(), heap->Base(), 4096) != 0;
            bad += Compare(in, frame, frame + w * h, Source(), op, params);
            bad += heap->Base()[4095] != 0xEE || frame[in.data.size()] != 0xEE;
        }
    }
    // Luma after a header page, chroma after a gap, as the camera lays them out.
    void Capture() {
        const int cw = 2 * w, ch = 2 * h, yOff = 4096, uvOff = cw * ch + 256;
        const SPImage in = SPImage::Pattern(cw, ch, ++seed);
        CameraBuffer buf((size_t)yOff + uvOff + cw * ch / 2);
        unsigned char* luma = buf.Base() + yOff;
        memcpy(luma, in.YPlane(), (size_t)cw * ch);
        memcpy(luma + uvOff, in.UVPlane(), (size_t)cw * ch / 2);
        bad += p->handleCapture(cw, ch, buf.Fd(), buf.Base(), yOff, uvOff) != 0;
        bad += Compare(in, luma, luma + uvOff, Source(), op, params);
        // The parameters again, for the preview that comes back: the landscape
        // flag follows group 0's changed flag, which the frames cleared.
        bad += p->setParameters(String8(params)) != 0;
    }
};

// Two plug-in objects in one process, as a camera switch (the new object
// starts before the old one stops) or two cameras at once make them: each
// processes its own frames and captures whatever the order of start, stop
// and destroy, and once the last one is gone the exported globals are clear.
TEST_F(EndToEnd, TwoObjectsInOneProcess) {
    Loaded loaded;
    const PostEffectLibrary& lib = loaded.lib;
    void* const* context = static_cast<void* const*>(dlsym(loaded.handle, "g_eglContext"));
    ASSERT_NE(nullptr, context);
    // An object's letter and what it does: s start, f frames, c capture, x
    // stop, d destroy; "||": frames, a capture and frames on both at once.
    const struct {
        const char* name;
        const char* steps;
    } cases[] = {
        {"one camera", "As Af Ac Af Ax Ad"},
        {"a camera switch", "As Bs Ax Bf Bc Bx Ad Bd"},
        {"the newer one stops first", "As Bs Bx Af Ac Ax Bd Ad"},
        {"destroyed while the other runs", "As Bs Ax Ad Bf Bc Bx Bd"},
        {"two cameras at once", "As Bs || Ax Bx Bd Ad"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Camera cams[2] = {{&lib, "GPU-effect=9", kW, kH, Bloom, false},
                          {&lib, "GPU-effect=8;GE-param0=1,0,0,0", 96, 48, Unchanged, true}};
        std::istringstream steps(c.steps);
        for (std::string step; steps >> step;) {
            if (step == "||") {
                auto run = [](Camera* cam) { cam->Frames(3), cam->Capture(), cam->Frames(3); };
                std::thread a(run, &cams[0]), b(run, &cams[1]);
                a.join(), b.join();
                continue;
            }
            Camera& cam = cams[step[0] - 'A'];
            switch (step[1]) {
                case 's':
                    cam.Start(), cam.Frames(2);
                    break;
                case 'f':
                    cam.Frames(3);
                    break;
                case 'c':
                    cam.Capture(), cam.Frames(1);
                    break;
                case 'x':
                    cam.bad += cam.p->stop() != 0;
                    break;
                case 'd':
                    lib.Destroy(cam.p);
                    break;
            }
            ASSERT_EQ(0, cam.bad) << "after " << step;
        }
        EXPECT_EQ(nullptr, *context);
    }
}

// The host keeps the memory of graphics buffers that go (the converter's
// planes of the effect before, the preview buffer of the size before, a
// capture's) for the next ones of the same size: switching effects and
// preview sizes back and forth, with captures between, every frame and
// capture is still its effect's.
TEST_F(EndToEnd, EffectsAndSizesBackAndForth) {
    Loaded loaded;
    Camera cam(&loaded.lib, "GPU-effect=9", kW, kH, Bloom, false);
    cam.Start(), cam.Frames(1);
    const struct {
        const char* params;
        int w, h;
        RGB (*op)(const RGB&);
        bool mirror;
    } steps[] = {
        {"GPU-effect=8;GE-param0=1,0,0,0", kW, kH, Unchanged, true},
        {"GPU-effect=9", 96, 48, Bloom, false},
        {"GPU-effect=8;GE-param0=1,0,0,0", 96, 48, Unchanged, true},
        {"GPU-effect=9", kW, kH, Bloom, false},
    };
    for (int round = 0; round < 2; ++round) {
        for (const auto& s : steps) {
            SCOPED_TRACE("round " + std::to_string(round) + ": " + s.params + " at " +
                         std::to_string(s.w) + " x " + std::to_string(s.h));
            cam.params = s.params, cam.op = s.op, cam.mirror = s.mirror;
            cam.bad += cam.p->setParameters(String8(s.params)) != 0;
            if (s.w != cam.w || s.h != cam.h) {
                cam.w = s.w, cam.h = s.h;
                cam.heap.reset(new CameraBuffer(4096 + (size_t)s.w * s.h * 3 / 2 + 4096, 0xEE));
                cam.bad += cam.p->startPreview(s.w, s.h) != 0;
            }
            cam.Frames(2), cam.Capture(), cam.Frames(1);
            ASSERT_EQ(0, cam.bad);
        }
    }
    cam.bad += cam.p->stop() != 0;
    loaded.lib.Destroy(cam.p);
    EXPECT_EQ(0, cam.bad);
}

// What a confused or hostile caller sends gets a clear answer and reaches no
// memory outside its buffers: calls before start, frames and captures that
// do not fit their buffers, sizes the pipeline cannot run, odd parameter
// strings and crops of any integers.
TEST_F(EndToEnd, BadInputGetsResultCodesAndTouchesNothing) {
    Loaded loaded;
    const PostEffectLibrary& lib = loaded.lib;
    IPostEffect* effect = lib.Create();
    EXPECT_EQ(1, effect->setParameters(String8("GPU-effect=9")));
    EXPECT_EQ(-1, effect->handlePreview(-1, nullptr, 0));
    ASSERT_EQ(0, effect->start());
    ASSERT_EQ(0,
              effect->setParameters(String8("GPU-effect=9\x01;GE-param0=\xff,;GE-param1=1,2,3")));
    const SPImage in = SPImage::Pattern(96, 48);
    CameraBuffer capture(in.data.size());
    memcpy(capture.Base(), in.data.data(), in.data.size());
    unsigned char* base = capture.Base();
    const int fd = capture.Fd(), cw = 96, ch = 48;
    EXPECT_EQ(3, effect->handleCapture(cw, ch, fd, base, 0, cw * ch)) << "no preview size yet";

    // Preview sizes the pipeline cannot run: 2, the frame untouched.
    const SPImage grey = SPImage::Grey(kW, kH, [](int, int) { return 100; });
    CameraBuffer heap(grey.data.size());
    memcpy(heap.Base(), grey.data.data(), grey.data.size());
    const int sizes[][2] = {{0, 0},   {-64, 32}, {64, -32}, {63, 32},           {62, 32},
                            {64, 31}, {8, 8},    {64, 1},   {INT_MAX, INT_MAX}, {46342, 46342}};
    for (const auto& s : sizes) {
        ASSERT_EQ(0, effect->startPreview(s[0], s[1]));
        EXPECT_EQ(2, effect->handlePreview(-1, heap.Base(), 0)) << s[0] << " x " << s[1];
    }
    EXPECT_EQ(grey.data, heap.Bytes());

    // Frames that do not lie in their buffer: -1. A frame without a size to
    // check it against (no descriptor), and one ending where its buffer
    // ends, are processed.
    ASSERT_EQ(0, effect->startPreview(kW, kH));
    CameraBuffer small(grey.data.size() - 1, 0x11);
    const struct {
        int fd;
        void* base;
        int offset;
    } frames[] = {{heap.Fd(), nullptr, 0},
                  {heap.Fd(), heap.Base(), -2},
                  {heap.Fd(), heap.Base(), 2},
                  {heap.Fd(), heap.Base(), INT_MAX},
                  {small.Fd(), small.Base(), 0}};
    for (const auto& f : frames) {
        EXPECT_EQ(-1, effect->handlePreview(f.fd, f.base, f.offset)) << f.offset;
    }
    EXPECT_EQ(grey.data, heap.Bytes());
    EXPECT_EQ(std::vector<unsigned char>(small.Size(), 0x11), small.Bytes());
    ASSERT_EQ(0, effect->setCrop(INT_MIN, INT_MAX, -5, 0));
    ASSERT_EQ(0, effect->handlePreview(-1, heap.Base(), 0));
    EXPECT_EQ(0, Compare(grey, heap.Base(), heap.Base() + kW * kH, Identity, Bloom, "no fd"));
    memcpy(heap.Base(), grey.data.data(), grey.data.size());
    ASSERT_EQ(0, effect->handlePreview(heap.Fd(), heap.Base(), 0));
    EXPECT_EQ(0, Compare(grey, heap.Base(), heap.Base() + kW * kH, Identity, Bloom, "exact"));

    // Captures of sizes a semi-planar image cannot have, or whose planes do
    // not lie in their buffer: 3, the buffer untouched.
    const struct {
        int w, h;
        void* base;
        int yOff, uvOff;
    } captures[] = {
        {cw + 1, ch, base, 0, cw * ch}, {cw, ch + 1, base, 0, cw * ch},
        {cw, 0, base, 0, cw * ch},      {-cw, ch, base, 0, cw * ch},
        {INT_MAX, 2, base, 0, cw * ch}, {1 << 16, 1 << 16, base, 0, cw * ch},
        {cw, ch, nullptr, 0, cw * ch},  {cw, ch, base, -1, cw * ch},
        {cw, ch, base, 2, cw * ch},     {cw, ch, base, 0, cw * ch - 2},
        {cw, ch, base, 0, -cw * ch},    {cw, ch, base, INT_MAX, INT_MAX},
    };
    for (const auto& c : captures) {
        EXPECT_EQ(3, effect->handleCapture(c.w, c.h, fd, c.base, c.yOff, c.uvOff))
            << c.w << " x " << c.h << " at " << c.yOff << ", " << c.uvOff;
    }
    // Planes of more bytes than an int holds are refused whatever the buffer
    // (here one whose size the plug-in cannot tell).
    EXPECT_EQ(3, effect->handleCapture(40000, 37000, -1, base, 0, 40000 * 37000));
    EXPECT_EQ(in.data, capture.Bytes());
    // The same capture, well formed, goes through despite the crop; so do
    // captures narrower than a tile.
    ASSERT_EQ(0, effect->handleCapture(cw, ch, fd, base, 0, cw * ch));
    EXPECT_EQ(0, Compare(in, base, base + cw * ch, Identity, Bloom, "bloom capture"));
    for (int w : {2, 16, 48}) {
        const SPImage narrow = SPImage::Pattern(w, 16, w);
        CameraBuffer buf(narrow.data.size());
        memcpy(buf.Base(), narrow.data.data(), narrow.data.size());
        // The 16-wide one from a heap without a descriptor: no size to check.
        const int fd = w == 16 ? -1 : buf.Fd();
        ASSERT_EQ(0, effect->handleCapture(w, 16, fd, buf.Base(), 0, w * 16)) << w;
        EXPECT_EQ(0, Compare(narrow, buf.Base(), buf.Base() + w * 16, Identity, Bloom, "narrow"));
    }
    EXPECT_EQ(0, effect->stop());
    EXPECT_EQ(1, effect->setParameters(String8("GPU-effect=9")));  // after stop
    lib.Destroy(effect);
}

// A look-up image that is missing, then damaged, makes the effect's bring-up
// fail cleanly: the frame's caller gets 2 and the capture's 3, with the
// camera's bytes untouched; once the file is there the next frame works.
TEST_F(EndToEnd, MissingLookUpImagesFailCleanlyUntilTheyAppear) {
    GETestRoot root;
    auto put = [&root](const char* name, int bits) {
        root.PutBmp(name, 8, 4, (unsigned)bits, [bits](int x, int y, unsigned char* t) {
            for (int c = 0; c < bits / 8; ++c) {
                t[c] = (unsigned char)(x * 30 + y);
            }
        });
    };
    for (const char* curve : {"CurveCross.bmp", "CurveCold.bmp", "CurveSepia.bmp"}) {
        put(curve, 24);
    }
    put("mask_vignette_legacy.bmp", 8);  // CurveWarm.bmp is missing
    Loaded loaded;
    IPostEffect* effect = loaded.lib.Create();
    ASSERT_EQ(0, effect->start());
    ASSERT_EQ(0, effect->setParameters(String8("GPU-effect=1")));
    ASSERT_EQ(0, effect->startPreview(kW, kH));
    const SPImage in = SPImage::Pattern(kW, kH, 9);
    CameraBuffer frame(in.data.size());
    CameraBuffer capture(in.data.size());
    for (int attempt = 0; attempt < 2; ++attempt) {
        memcpy(frame.Base(), in.data.data(), in.data.size());
        memcpy(capture.Base(), in.data.data(), in.data.size());
        EXPECT_EQ(2, effect->handlePreview(frame.Fd(), frame.Base(), 0)) << attempt;
        EXPECT_EQ(3, effect->handleCapture(kW, kH, capture.Fd(), capture.Base(), 0, kW * kH));
        EXPECT_EQ(in.data, frame.Bytes());
        EXPECT_EQ(in.data, capture.Bytes());
        // Then a file that is there but no image.
        root.Put("CurveWarm.bmp", {'B', 'X', 1, 2, 3});
    }
    put("CurveWarm.bmp", 24);
    ASSERT_EQ(0, effect->handlePreview(frame.Fd(), frame.Base(), 0));
    EXPECT_NE(in.data, frame.Bytes());
    ASSERT_EQ(0, effect->handleCapture(kW, kH, capture.Fd(), capture.Base(), 0, kW * kH));
    EXPECT_EQ(frame.Bytes(), capture.Bytes());  // one tile: the preview's picture
    EXPECT_EQ(0, effect->stop());
    loaded.lib.Destroy(effect);
}

}  // namespace
