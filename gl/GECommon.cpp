#include "gl/GECommon.h"

#include <GLES2/gl2.h>
#include <stddef.h>
#include <sys/time.h>

#include "gl/GELog.h"

namespace {

GELogTag s_log("GECommon");

// GL error names, indexed by code - 0x500. The two empty slots keep the
// indexing linear up to GL_OUT_OF_MEMORY.
const char* const kGLErrorNames[] = {
    "GL_INVALID_ENUM", "GL_INVALID_VALUE", "GL_INVALID_OPERATION", "", "", "GL_OUT_OF_MEMORY",
};

// EGL error names, indexed by code - 0x3000.
const char* const kEGLErrorNames[] = {
    "EGL_SUCCESS",       "EGL_NOT_INITIALIZED", "EGL_BAD_ACCESS",        "EGL_BAD_ALLOC",
    "EGL_BAD_ATTRIBUTE", "EGL_BAD_CONFIG",      "EGL_BAD_CONTEXT",       "EGL_BAD_CURRENT_SURFACE",
    "EGL_BAD_DISPLAY",   "EGL_BAD_MATCH",       "EGL_BAD_NATIVE_PIXMAP", "EGL_BAD_NATIVE_WINDOW",
    "EGL_BAD_PARAMETER", "EGL_BAD_SURFACE",     "EGL_CONTEXT_LOST",
};

const size_t kGLErrorCount = sizeof(kGLErrorNames) / sizeof(kGLErrorNames[0]);
const size_t kEGLErrorCount = sizeof(kEGLErrorNames) / sizeof(kEGLErrorNames[0]);

// Logs the failure line for `code`; `names` is the caller's copy of its
// table, starting at `first`. A code outside the table is logged with an
// empty name.
void LogError(const char* where, const char* what, uint32_t code, const char* const* names,
              size_t count, uint32_t first) {
    if (!s_log.IsOn(ANDROID_LOG_ERROR)) {
        return;
    }
    uint32_t index = code - first;  // unsigned: codes below `first` wrap high
    const char* name = index < count ? names[index] : "";
    GE_LOGE(s_log, "[%s] ERROR, %s failed with error: 0x%X %s\n", where, what, code, name);
}

}  // namespace

// The clock's arithmetic on one gettimeofday reading: seconds x 1000 plus
// whole milliseconds, all of it modulo 2^32.
uint32_t GETickFromTimeval(const struct timeval& tv) {
    return (uint32_t)tv.tv_sec * 1000u + (uint32_t)tv.tv_usec / 1000u;
}

uint32_t CheckGLError(const char* where, const char* what) {
    GLenum code = glGetError();
    if (code == GL_NO_ERROR) {
        return 1;
    }
    const char* names[kGLErrorCount];
    for (size_t i = 0; i < kGLErrorCount; ++i) {
        names[i] = kGLErrorNames[i];
    }
    LogError(where, what, (uint32_t)code, names, kGLErrorCount, 0x500);
    return 0;
}

uint32_t CheckEGLError(const char* where, const char* what) {
    EGLint code = eglGetError();
    if (code == EGL_SUCCESS) {
        return 1;
    }
    const char* names[kEGLErrorCount];
    for (size_t i = 0; i < kEGLErrorCount; ++i) {
        names[i] = kEGLErrorNames[i];
    }
    LogError(where, what, (uint32_t)code, names, kEGLErrorCount, 0x3000);
    return 0;
}

uint32_t GetTickCount() {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return GETickFromTimeval(tv);
}
