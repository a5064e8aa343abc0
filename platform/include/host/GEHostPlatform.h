// What the host platform tells tools and tests about itself.
//
// The library opens its files by their device names ("/system/media/GPU/...",
// "/sdcard/quandor/...", "/data/...") and the frame-buffer device
// "/dev/graphics/fb0". On the host, fopen/open resolve paths under
// "/system/", "/sdcard/" and "/data/" below the host root, and
// "/dev/graphics/fb0" opens a stand-in whose FBIOGET_VSCREENINFO reports the
// host display size. Every other path passes through unchanged.
#ifndef POSTEFFECT_HOST_GEHOSTPLATFORM_H
#define POSTEFFECT_HOST_GEHOSTPLATFORM_H

#include <stddef.h>

#include <string>

// The folder that stands for the device's root: $POSTEFFECT_ROOT when set and
// not empty, else the build's asset folder.
const char* GEHostRoot();

// The host path that `path` opens: below the host root for the device
// folders, `path` itself otherwise (and for a null path, "").
std::string GEHostResolvePath(const char* path);

// The same into `out` (`size` bytes with the terminating zero). Returns 1,
// or 0 when `out` is too small or a pointer is null.
int GEHostResolvePath(const char* path, char* out, size_t size);

// The display size the frame-buffer stand-in reports: $POSTEFFECT_DISPLAY
// ("WxH", both positive) when set and valid, else 1920 x 1080.
void GEHostDisplaySize(int* pWidth, int* pHeight);

// The EGL platform that eglGetDisplay(EGL_DEFAULT_DISPLAY) chose last:
// "surfaceless" (Mesa), "device" (EGL_EXT_platform_device), "default" (the
// real default display), "environment" (EGL_PLATFORM was set, EGL chose), or
// "none" before the first call.
const char* GEHostEGLPlatform();

#endif
