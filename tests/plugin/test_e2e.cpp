// The built libposteffect.so, loaded with dlopen and driven only through its
// public interface in the camera's order, with camera buffers in shared
// memory. Bloom and Mirror run on llvmpipe; the expectations come from the
// effects' formulas and the full-range BT.601 conversions, computed here.
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

#include <algorithm>
#include <cmath>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "IPostEffect.h"

using android::String8;

namespace {

const int kW = 64;
const int kH = 32;

// --- log lines of the library ----------------------------------------------

std::mutex s_logLock;
std::vector<std::string> s_lines;

void Logger(const struct __android_logger_data* data, const char* message) {
    std::lock_guard<std::mutex> lock(s_logLock);
    std::string line = data->tag ? data->tag : "";
    line += ": ";
    line += message ? message : "";
    s_lines.push_back(line);
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
    Library() {
        m_pHandle = dlopen(POSTEFFECT_LIBRARY, RTLD_NOW | RTLD_LOCAL);
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
    void* m_pHandle = nullptr;
    IPostEffect* (*m_pfnCreate)() = nullptr;
    void (*m_pfnDestroy)(IPostEffect*) = nullptr;
};

// The names a shared object defines in its dynamic symbol table (read from
// the file's section headers).
std::set<std::string> DefinedDynamicSymbols(const char* path) {
    std::set<std::string> names;
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        ADD_FAILURE() << "open " << path;
        return names;
    }
    off_t size = lseek(fd, 0, SEEK_END);
    void* map = mmap(nullptr, (size_t)size, PROT_READ, MAP_PRIVATE, fd, 0);
    close(fd);
    if (map == MAP_FAILED) {
        ADD_FAILURE() << "mmap " << path;
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
        size_t count = sh[i].sh_size / sizeof(Elf64_Sym);
        for (size_t k = 1; k < count; ++k) {
            int bind = ELF64_ST_BIND(sym[k].st_info);
            if (sym[k].st_shndx != SHN_UNDEF && (bind == STB_GLOBAL || bind == STB_WEAK)) {
                names.insert(strtab + sym[k].st_name);
            }
        }
    }
    munmap(map, (size_t)size);
    return names;
}

// --- camera buffers and expectations ---------------------------------------

class SharedBuffer {
public:
    explicit SharedBuffer(size_t size) : m_nSize(size) {
        m_nFd = memfd_create("camera", MFD_CLOEXEC);
        if (m_nFd >= 0 && ftruncate(m_nFd, (off_t)size) == 0) {
            void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, m_nFd, 0);
            m_pBase = p == MAP_FAILED ? nullptr : static_cast<unsigned char*>(p);
        }
    }
    ~SharedBuffer() {
        if (m_pBase != nullptr) {
            munmap(m_pBase, m_nSize);
        }
        if (m_nFd >= 0) {
            close(m_nFd);
        }
    }
    int Fd() const { return m_nFd; }
    unsigned char* Base() const { return m_pBase; }

private:
    int m_nFd = -1;
    unsigned char* m_pBase = nullptr;
    size_t m_nSize;
};

double Clamp01(double v) {
    return v < 0 ? 0 : (v > 1 ? 1 : v);
}
double Quantize(double v) {
    return std::round(Clamp01(v) * 255.0) / 255.0;
}

// Luma byte that Bloom gives a pixel of luma y and chroma (128, 128): the
// camera's YUV to RGB, each channel times 3.5 x its luminance, stored in
// 8 bits, and back to full-range luma.
double BloomLuma(int y) {
    double c0 = y / 255.0, c1 = 128 / 255.0, c2 = 128 / 255.0;
    double r = c0 + 1.402 * c1 - 0.701;
    double g = c0 - 0.714 * c1 - 0.344 * c2 + 0.529;
    double b = c0 + 1.772 * c2 - 0.886;
    double a = 0.3 * r + 0.59 * g + 0.11 * b;
    r = Quantize(r * 3.5 * a);
    g = Quantize(g * 3.5 * a);
    b = Quantize(b * 3.5 * a);
    return (0.299 * r + 0.587 * g + 0.114 * b) * 255.0;
}

// A grey NV21 frame: luma from f(x, y), chroma 128.
template <typename F>
void FillGrey(unsigned char* frame, int w, int h, F f) {
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            frame[y * w + x] = (unsigned char)f(x, y);
        }
    }
    memset(frame + w * h, 128, (size_t)w * h / 2);
}

// Largest distance between a plane and what it should hold.
template <typename F>
double LumaError(const unsigned char* luma, int w, int h, F want, std::string* where) {
    double worst = 0;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            double d = std::fabs(luma[y * w + x] - want(x, y));
            if (d > worst) {
                worst = d;
                *where = std::to_string(x) + ", " + std::to_string(y) + ": got " +
                         std::to_string(luma[y * w + x]) + ", want " + std::to_string(want(x, y));
            }
        }
    }
    return worst;
}

int ChromaError(const unsigned char* uv, size_t n) {
    int worst = 0;
    for (size_t i = 0; i < n; ++i) {
        worst = std::max(worst, std::abs(uv[i] - 128));
    }
    return worst;
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
    std::set<std::string> want = {"createPostEffect", "destroyPostEffect", "g_Disp_Width",
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

    // Preview frames at an offset inside their heap, with guard bytes.
    const int offset = 4096;
    const size_t frameBytes = (size_t)kW * kH * 3 / 2;
    SharedBuffer heap(offset + frameBytes + 4096);
    ASSERT_NE(nullptr, heap.Base());
    unsigned char* frame = heap.Base() + offset;
    memset(heap.Base(), 0xEE, offset + frameBytes + 4096);
    std::string where;

    // Bloom: a grey g becomes 3.5 g^2.
    for (int grey : {0, 64, 100, 128, 200}) {
        FillGrey(frame, kW, kH, [&](int, int) { return grey; });
        ASSERT_EQ(0, effect->handlePreview(heap.Fd(), heap.Base(), offset)) << grey;
        double want = BloomLuma(grey);
        EXPECT_LE(LumaError(
                      frame, kW, kH, [&](int, int) { return want; }, &where),
                  2.0)
            << "grey " << grey << " (3.5 g^2 = " << 3.5 * grey * grey / 255.0 << "): " << where;
        EXPECT_LE(ChromaError(frame + kW * kH, (size_t)kW * kH / 2), 2) << grey;
    }
    if (::testing::Test::HasFailure()) {
        std::lock_guard<std::mutex> lock(s_logLock);
        for (const std::string& l : s_lines) {
            if (l.find("rror") != std::string::npos || l.find("fail") != std::string::npos) {
                ADD_FAILURE() << l;
            }
        }
    }
    for (int i = 0; i < 4096; ++i) {
        ASSERT_EQ(0xEE, heap.Base()[i]);
        ASSERT_EQ(0xEE, frame[frameBytes + i]);
    }

    // Mirror, portrait: the rows of the lower half show the upper half.
    auto rowGrey = [](int, int y) { return 20 + 6 * y; };
    ASSERT_EQ(0, effect->setParameters(String8("GPU-effect=8;GE-param0=0,0,0,0")));
    FillGrey(frame, kW, kH, rowGrey);
    ASSERT_EQ(0, effect->handlePreview(heap.Fd(), heap.Base(), offset));
    EXPECT_LE(
        LumaError(
            frame, kW, kH,
            [&](int x, int y) { return (double)rowGrey(x, y < kH / 2 ? y : kH - 1 - y); }, &where),
        2.0)
        << where;

    // Mirror, landscape (the first group-0 word): columns instead of rows.
    auto colGrey = [](int x, int) { return 20 + 3 * x; };
    ASSERT_EQ(0, effect->setParameters(String8("GPU-effect=9")));
    ASSERT_EQ(0, effect->setParameters(String8("GPU-effect=8;GE-param0=1,0,0,0")));
    FillGrey(frame, kW, kH, colGrey);
    ASSERT_EQ(0, effect->handlePreview(heap.Fd(), heap.Base(), offset));
    EXPECT_LE(
        LumaError(
            frame, kW, kH,
            [&](int x, int y) { return (double)colGrey(x < kW / 2 ? x : kW - 1 - x, y); }, &where),
        2.0)
        << where;

    // A Bloom capture of 2 x 2 tiles of the preview's size; the chroma plane
    // follows a gap after the luma.
    ASSERT_EQ(0, effect->setParameters(String8("GPU-effect=9")));
    const int cw = 128, ch = 64, yOffset = 4096, uvOffset = cw * ch + 256;
    SharedBuffer capture((size_t)yOffset + uvOffset + cw * ch / 2 + 4096);
    ASSERT_NE(nullptr, capture.Base());
    unsigned char* luma = capture.Base() + yOffset;
    unsigned char* chroma = luma + uvOffset;
    auto captureGrey = [](int x, int y) { return 30 + (x * 3 + y * 5) % 110; };
    for (int y = 0; y < ch; ++y) {
        for (int x = 0; x < cw; ++x) {
            luma[y * cw + x] = (unsigned char)captureGrey(x, y);
        }
    }
    memset(chroma, 128, (size_t)cw * ch / 2);
    int before = CountLines("[convertRect]");
    ASSERT_EQ(0, effect->handleCapture(cw, ch, capture.Fd(), capture.Base(), yOffset, uvOffset));
    EXPECT_EQ(4, CountLines("[convertRect]") - before);
    EXPECT_LE(LumaError(
                  luma, cw, ch, [&](int x, int y) { return BloomLuma(captureGrey(x, y)); }, &where),
              2.0)
        << where;
    EXPECT_LE(ChromaError(chroma, (size_t)cw * ch / 2), 3);

    // Preview goes on after the capture (the manager comes up again).
    FillGrey(frame, kW, kH, [](int, int) { return 100; });
    ASSERT_EQ(0, effect->handlePreview(heap.Fd(), heap.Base(), offset));
    EXPECT_LE(LumaError(
                  frame, kW, kH, [&](int, int) { return BloomLuma(100); }, &where),
              2.0)
        << where;

    // Effect 0: frames pass untouched.
    ASSERT_EQ(0, effect->setParameters(String8("GPU-effect=0")));
    FillGrey(frame, kW, kH, rowGrey);
    ASSERT_EQ(0, effect->handlePreview(heap.Fd(), heap.Base(), offset));
    EXPECT_EQ(0, LumaError(
                     frame, kW, kH, [&](int x, int y) { return (double)rowGrey(x, y); }, &where))
        << where;

    EXPECT_EQ(0, effect->stopPreview());
    EXPECT_EQ(-1, effect->handlePreview(heap.Fd(), heap.Base(), offset));
    EXPECT_EQ(0, effect->stop());
    lib.Destroy(effect);
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

    const size_t frameBytes = (size_t)kW * kH * 3 / 2;
    SharedBuffer heap(frameBytes);
    ASSERT_NE(nullptr, heap.Base());
    FillGrey(heap.Base(), kW, kH, [](int, int) { return 100; });
    int before = CountLines("frame refused");
    EXPECT_EQ(-1, effect->handlePreview(heap.Fd(), nullptr, 0));
    EXPECT_EQ(-1, effect->handlePreview(heap.Fd(), heap.Base(), 2));  // runs past the end
    EXPECT_EQ(2, CountLines("frame refused") - before);
    std::string where;
    EXPECT_EQ(0, LumaError(
                     heap.Base(), kW, kH, [](int, int) { return 100.0; }, &where));

    // Crops of any integers, then frames and a capture.
    ASSERT_EQ(0, effect->setCrop(INT_MIN, INT_MAX, -5, 0));
    ASSERT_EQ(0, effect->handlePreview(heap.Fd(), heap.Base(), 0));
    EXPECT_LE(LumaError(
                  heap.Base(), kW, kH, [&](int, int) { return BloomLuma(100); }, &where),
              2.0)
        << where;

    const int cw = 96, ch = 48;
    const size_t captureBytes = (size_t)cw * ch * 3 / 2;
    SharedBuffer capture(captureBytes);
    ASSERT_NE(nullptr, capture.Base());
    FillGrey(capture.Base(), cw, ch, [](int x, int y) { return 40 + (x + y) % 80; });
    std::vector<unsigned char> original(capture.Base(), capture.Base() + captureBytes);
    before = CountLines("capture refused");
    EXPECT_EQ(3, effect->handleCapture(cw + 1, ch, capture.Fd(), capture.Base(), 0, cw * ch));
    EXPECT_EQ(3, effect->handleCapture(cw, 0, capture.Fd(), capture.Base(), 0, cw * ch));
    EXPECT_EQ(3, effect->handleCapture(-cw, ch, capture.Fd(), capture.Base(), 0, cw * ch));
    EXPECT_EQ(3, effect->handleCapture(1 << 16, 1 << 16, capture.Fd(), capture.Base(), 0, cw * ch));
    EXPECT_EQ(3, effect->handleCapture(cw, ch, capture.Fd(), nullptr, 0, cw * ch));
    EXPECT_EQ(3, effect->handleCapture(cw, ch, capture.Fd(), capture.Base(), 2, cw * ch));
    EXPECT_EQ(3, effect->handleCapture(cw, ch, capture.Fd(), capture.Base(), 0, cw * ch - 2));
    EXPECT_EQ(7, CountLines("capture refused") - before);
    EXPECT_TRUE(std::equal(original.begin(), original.end(), capture.Base()));

    // The same capture, well formed, goes through despite the crop.
    ASSERT_EQ(0, effect->handleCapture(cw, ch, capture.Fd(), capture.Base(), 0, cw * ch));
    EXPECT_LE(LumaError(
                  capture.Base(), cw, ch,
                  [&](int x, int y) { return BloomLuma(40 + (x + y) % 80); }, &where),
              2.0)
        << where;

    EXPECT_EQ(0, effect->stop());
    EXPECT_EQ(1, effect->setParameters(String8("GPU-effect=9")));  // after stop
    lib.Destroy(effect);
}

}  // namespace
