// A stand-in plug-in for the harness tests: it keeps a log of the calls it
// receives, checks that each buffer's file descriptor maps the memory it was
// handed, and changes preview frames and captures in a way the tests can
// predict: Y -> 255 - Y, and each V/U pair swapped. Effect 0 leaves frames
// alone, as the real plug-in does; effect code "5" never comes up
// (handlePreview answers 2).
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <string>

#include "IPostEffect.h"

namespace {

std::string g_log;

void Log(const std::string& s) {
    g_log += s + "\n";
}

// Whether fd maps the nBytes at base + offset.
bool SameMemory(int fd, const void* base, int offset, size_t nBytes) {
    struct stat st;
    if (fstat(fd, &st) != 0 || size_t(st.st_size) < size_t(offset) + nBytes) {
        return false;
    }
    void* p = mmap(nullptr, size_t(st.st_size), PROT_READ, MAP_SHARED, fd, 0);
    if (p == MAP_FAILED) {
        return false;
    }
    const bool bSame = memcmp(static_cast<const char*>(p) + offset,
                              static_cast<const char*>(base) + offset, nBytes) == 0;
    munmap(p, size_t(st.st_size));
    return bSame;
}

void Change(unsigned char* y, unsigned char* vu, int w, int h) {
    for (int i = 0; i < w * h; ++i) {
        y[i] = static_cast<unsigned char>(255 - y[i]);
    }
    for (int i = 0; i < w * h / 2; i += 2) {
        const unsigned char t = vu[i];
        vu[i] = vu[i + 1];
        vu[i + 1] = t;
    }
}

class FakePostEffect : public IPostEffect {
public:
    FakePostEffect() { Log("create"); }
    ~FakePostEffect() override { Log("destroy"); }
    int start() override {
        Log("start");
        return 0;
    }
    int stop() override {
        Log("stop");
        return 0;
    }
    int startPreview(int w, int h) override {
        Log("startPreview " + std::to_string(w) + "x" + std::to_string(h));
        m_nWidth = w;
        m_nHeight = h;
        m_bPreview = true;
        return 0;
    }
    int handlePreview(int fd, void* base, int offset) override {
        Log("handlePreview " + std::to_string(offset));
        if (!m_bPreview) {
            return -1;
        }
        const size_t n = size_t(m_nWidth) * m_nHeight * 3 / 2;
        if (!SameMemory(fd, base, offset, n)) {
            Log("preview fd does not map base");
        }
        if (m_cEffect == '5') {
            return 2;
        }
        if (m_cEffect != '0') {
            unsigned char* y = static_cast<unsigned char*>(base) + offset;
            Change(y, y + m_nWidth * m_nHeight, m_nWidth, m_nHeight);
        }
        return 0;
    }
    int stopPreview() override {
        Log("stopPreview");
        m_bPreview = false;
        return 0;
    }
    int handleCapture(int w, int h, int fd, void* base, int yOffset, int uvOffset) override {
        Log("handleCapture " + std::to_string(w) + "x" + std::to_string(h) + " " +
            std::to_string(yOffset) + " " + std::to_string(uvOffset));
        if (!SameMemory(fd, base, yOffset, size_t(w) * h) ||
            !SameMemory(fd, base, yOffset + uvOffset, size_t(w) * h / 2)) {
            Log("capture fd does not map base");
        }
        if (m_cEffect == '0') {
            return 0;
        }
        unsigned char* y = static_cast<unsigned char*>(base) + yOffset;
        Change(y, y + uvOffset, w, h);
        return 0;
    }
    int setParameters(const android::String8& params) override {
        const std::string s = params.c_str();
        Log("setParameters " + s);
        const size_t pos = s.find("GPU-effect=");
        m_cEffect = pos == std::string::npos ? '?' : s[pos + 11];
        return 0;
    }
    int setCrop(int x, int y, int w, int h) override {
        Log("setCrop " + std::to_string(x) + "," + std::to_string(y) + "," + std::to_string(w) +
            "," + std::to_string(h));
        return 0;
    }

private:
    int m_nWidth = 0;
    int m_nHeight = 0;
    bool m_bPreview = false;
    char m_cEffect = '?';
};

}  // namespace

extern "C" {
__attribute__((visibility("default"))) IPostEffect* createPostEffect() {
    return new FakePostEffect;
}
__attribute__((visibility("default"))) void destroyPostEffect(IPostEffect* p) {
    delete p;
}
// For the tests: the calls so far, one a line; and a fresh start.
__attribute__((visibility("default"))) const char* fakePostEffectLog() {
    return g_log.c_str();
}
__attribute__((visibility("default"))) void fakePostEffectReset() {
    g_log.clear();
}
}
