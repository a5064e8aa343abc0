// Device paths on the host (wrapped at link time, see platform/CMakeLists.txt).
//
// fopen/fopen64/open/open64 resolve "/system/...", "/sdcard/..." and
// "/data/..." below the host root; open("/dev/graphics/fb0") returns a
// stand-in descriptor whose FBIOGET_VSCREENINFO / FBIOGET_FSCREENINFO report
// the host display size; close forgets a stand-in. Everything else passes
// through to the C library.
#include <host/GEHostPlatform.h>

#include <errno.h>
#include <fcntl.h>
#include <linux/fb.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <mutex>
#include <set>

#ifndef POSTEFFECT_HOST_ROOT
#error "POSTEFFECT_HOST_ROOT must name the build's asset folder"
#endif

extern "C" {
FILE* __real_fopen(const char* path, const char* mode);
FILE* __real_fopen64(const char* path, const char* mode);
int __real_open(const char* path, int flags, ...);
int __real_open64(const char* path, int flags, ...);
int __real___open_2(const char* path, int flags);
int __real___open64_2(const char* path, int flags);
int __real_ioctl(int fd, unsigned long request, ...);
int __real_close(int fd);
}

namespace {

const char kFrameBuffer[] = "/dev/graphics/fb0";
const int kDefaultWidth = 1920;
const int kDefaultHeight = 1080;

std::mutex s_fbLock;
std::set<int> s_fbFds;

bool IsDevicePath(const char* path) {
    static const char* const kPrefixes[] = {"/system", "/sdcard", "/data"};
    for (const char* prefix : kPrefixes) {
        size_t n = strlen(prefix);
        if (strncmp(path, prefix, n) == 0 && (path[n] == '/' || path[n] == '\0')) {
            return true;
        }
    }
    return false;
}

bool IsFrameBuffer(const char* path) {
    return path != nullptr && strcmp(path, kFrameBuffer) == 0;
}

bool NeedsMode(int flags) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

int OpenFrameBuffer() {
    int fd = memfd_create("posteffect-fb0", MFD_CLOEXEC);
    if (fd >= 0) {
        std::lock_guard<std::mutex> lock(s_fbLock);
        s_fbFds.insert(fd);
    }
    return fd;
}

bool IsFrameBufferFd(int fd) {
    std::lock_guard<std::mutex> lock(s_fbLock);
    return s_fbFds.count(fd) != 0;
}

int FrameBufferIoctl(unsigned long request, void* arg) {
    int w = 0;
    int h = 0;
    GEHostDisplaySize(&w, &h);
    if (request == FBIOGET_VSCREENINFO && arg != nullptr) {
        fb_var_screeninfo* var = static_cast<fb_var_screeninfo*>(arg);
        memset(var, 0, sizeof(*var));
        var->xres = var->xres_virtual = (__u32)w;
        var->yres = var->yres_virtual = (__u32)h;
        var->bits_per_pixel = 32;
        var->red = {16, 8, 0};
        var->green = {8, 8, 0};
        var->blue = {0, 8, 0};
        var->transp = {24, 8, 0};
        return 0;
    }
    if (request == FBIOGET_FSCREENINFO && arg != nullptr) {
        fb_fix_screeninfo* fix = static_cast<fb_fix_screeninfo*>(arg);
        memset(fix, 0, sizeof(*fix));
        snprintf(fix->id, sizeof(fix->id), "%s", "host-fb0");
        fix->line_length = (__u32)w * 4;
        fix->smem_len = (__u32)w * 4 * (__u32)h;
        fix->type = FB_TYPE_PACKED_PIXELS;
        fix->visual = FB_VISUAL_TRUECOLOR;
        return 0;
    }
    errno = arg == nullptr ? EFAULT : ENOTTY;
    return -1;
}

// The frame-buffer stand-in, a device path under the host root, or any other
// path as it is, opened with `realOpen`.
int OpenMapped(int (*realOpen)(const char*, int, ...), const char* path, int flags, mode_t mode) {
    if (IsFrameBuffer(path)) {
        return OpenFrameBuffer();
    }
    if (path == nullptr || !IsDevicePath(path)) {
        return realOpen(path, flags, mode);
    }
    return realOpen(GEHostResolvePath(path).c_str(), flags, mode);
}

}  // namespace

const char* GEHostRoot() {
    const char* root = getenv("POSTEFFECT_ROOT");
    return root != nullptr && root[0] != '\0' ? root : POSTEFFECT_HOST_ROOT;
}

std::string GEHostResolvePath(const char* path) {
    if (path == nullptr) {
        return std::string();
    }
    if (!IsDevicePath(path)) {
        return std::string(path);
    }
    std::string root = GEHostRoot();
    while (root.size() > 1 && root.back() == '/') {
        root.pop_back();
    }
    return root + path;
}

int GEHostResolvePath(const char* path, char* out, size_t size) {
    if (path == nullptr || out == nullptr) {
        return 0;
    }
    std::string resolved = GEHostResolvePath(path);
    if (resolved.size() + 1 > size) {
        return 0;
    }
    memcpy(out, resolved.c_str(), resolved.size() + 1);
    return 1;
}

void GEHostDisplaySize(int* pWidth, int* pHeight) {
    int w = kDefaultWidth;
    int h = kDefaultHeight;
    const char* spec = getenv("POSTEFFECT_DISPLAY");
    if (spec != nullptr) {
        char* end = nullptr;
        long pw = strtol(spec, &end, 10);
        if (end != spec && (*end == 'x' || *end == 'X')) {
            const char* second = end + 1;
            long ph = strtol(second, &end, 10);
            if (end != second && *end == '\0' && pw > 0 && ph > 0 && pw <= 65535 && ph <= 65535) {
                w = (int)pw;
                h = (int)ph;
            }
        }
    }
    if (pWidth) {
        *pWidth = w;
    }
    if (pHeight) {
        *pHeight = h;
    }
}

extern "C" {

FILE* __wrap_fopen(const char* path, const char* mode) {
    if (path == nullptr || !IsDevicePath(path)) {
        return __real_fopen(path, mode);
    }
    return __real_fopen(GEHostResolvePath(path).c_str(), mode);
}

FILE* __wrap_fopen64(const char* path, const char* mode) {
    if (path == nullptr || !IsDevicePath(path)) {
        return __real_fopen64(path, mode);
    }
    return __real_fopen64(GEHostResolvePath(path).c_str(), mode);
}

int __wrap_open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if (NeedsMode(flags)) {
        va_list args;
        va_start(args, flags);
        mode = (mode_t)va_arg(args, int);
        va_end(args);
    }
    return OpenMapped(__real_open, path, flags, mode);
}

int __wrap_open64(const char* path, int flags, ...) {
    mode_t mode = 0;
    if (NeedsMode(flags)) {
        va_list args;
        va_start(args, flags);
        mode = (mode_t)va_arg(args, int);
        va_end(args);
    }
    return OpenMapped(__real_open64, path, flags, mode);
}

// The fortified forms that open() becomes under _FORTIFY_SOURCE.
int __wrap___open_2(const char* path, int flags) {
    if (IsFrameBuffer(path)) {
        return OpenFrameBuffer();
    }
    if (path == nullptr || !IsDevicePath(path)) {
        return __real___open_2(path, flags);
    }
    return __real___open_2(GEHostResolvePath(path).c_str(), flags);
}

int __wrap___open64_2(const char* path, int flags) {
    if (IsFrameBuffer(path)) {
        return OpenFrameBuffer();
    }
    if (path == nullptr || !IsDevicePath(path)) {
        return __real___open64_2(path, flags);
    }
    return __real___open64_2(GEHostResolvePath(path).c_str(), flags);
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list args;
    va_start(args, request);
    void* arg = va_arg(args, void*);
    va_end(args);
    if (IsFrameBufferFd(fd)) {
        return FrameBufferIoctl(request, arg);
    }
    return __real_ioctl(fd, request, arg);
}

int __wrap_close(int fd) {
    {
        std::lock_guard<std::mutex> lock(s_fbLock);
        s_fbFds.erase(fd);
    }
    return __real_close(fd);
}

}  // extern "C"
