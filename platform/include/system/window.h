// Host version of the native window buffer that a graphics buffer exposes.
#ifndef POSTEFFECT_HOST_SYSTEM_WINDOW_H
#define POSTEFFECT_HOST_SYSTEM_WINDOW_H

#include <cutils/native_handle.h>

#ifdef __cplusplus
extern "C" {
#endif

#define ANDROID_NATIVE_MAKE_CONSTANT(a, b, c, d) \
    (((unsigned)(a) << 24) | ((unsigned)(b) << 16) | ((unsigned)(c) << 8) | (unsigned)(d))
// common.magic of every native window buffer; common.version is its size.
#define ANDROID_NATIVE_BUFFER_MAGIC ANDROID_NATIVE_MAKE_CONSTANT('_', 'b', 'f', 'r')

typedef struct android_native_base_t {
    int magic;
    int version;
    void* reserved[4];
    void (*incRef)(struct android_native_base_t* base);
    void (*decRef)(struct android_native_base_t* base);
} android_native_base_t;

typedef struct ANativeWindowBuffer {
    struct android_native_base_t common;
    int width;
    int height;
    int stride;  // row length in pixels
    int format;  // HAL_PIXEL_FORMAT_*
    int usage;   // GRALLOC_USAGE_* bits
    void* reserved[2];
    buffer_handle_t handle;  // a gralloc private handle (gralloc_priv.h)
    void* reserved_proc[8];
} ANativeWindowBuffer_t;

typedef struct ANativeWindowBuffer ANativeWindowBuffer;

#ifdef __cplusplus
}
#endif

#endif
