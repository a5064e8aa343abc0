// Host version of the native window buffer that a graphics buffer exposes.
#ifndef POSTEFFECT_HOST_SYSTEM_WINDOW_H
#define POSTEFFECT_HOST_SYSTEM_WINDOW_H

#include <cutils/native_handle.h>

#ifdef __cplusplus
extern "C" {
#endif

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
