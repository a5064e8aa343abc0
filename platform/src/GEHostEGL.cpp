// The EGL and GLES entry points the library calls as on the device, wrapped
// at link time (-Wl,--wrap=SYMBOL, see platform/CMakeLists.txt): the
// library's calls to SYMBOL reach __wrap_SYMBOL here, which decides on the
// host's behalf and calls the real SYMBOL (__real_SYMBOL) or Mesa's extension
// function (through eglGetProcAddress) where the host has nothing to add.
//
//  - eglGetDisplay(EGL_DEFAULT_DISPLAY) picks a display that comes up without
//    a window system: Mesa's surfaceless platform, else the first EGL device,
//    else the real default display. EGL_PLATFORM in the environment leaves
//    the choice to EGL.
//  - eglChooseConfig asks only for the surface types the display offers.
//  - eglCreateImageKHR with EGL_NATIVE_BUFFER_ANDROID over a host graphics
//    buffer makes a host image; glEGLImageTargetTexture2DOES with such an
//    image gives the bound texture the buffer's pixels and records the
//    binding, which the gralloc clean keeps coherent (GEHostBuffers.cpp).
//  - glGetProgramBinaryOES / glProgramBinaryOES reach Mesa's functions.
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <host/GEHostPlatform.h>
#include <stdlib.h>
#include <string.h>
#include <system/graphics.h>
#include <system/window.h>

#include <atomic>
#include <set>
#include <vector>

#include "GEHostState.h"

extern "C" {
EGLDisplay __real_eglGetDisplay(EGLNativeDisplayType displayId);
EGLBoolean __real_eglChooseConfig(EGLDisplay dpy, const EGLint* attribs, EGLConfig* configs,
                                  EGLint size, EGLint* num);
EGLBoolean __real_eglDestroyContext(EGLDisplay dpy, EGLContext ctx);
EGLBoolean __real_eglTerminate(EGLDisplay dpy);
void __real_glDeleteTextures(GLsizei n, const GLuint* textures);
}

namespace gehost {

namespace {

const unsigned kImageMagic = 0x48494D47;  // "HIMG"
const char* const kTag = "GEHostEGL";

std::set<HostImage*>& Images() {
    static std::set<HostImage*> s_images;
    return s_images;
}

// What eglGetDisplay chose for EGL_DEFAULT_DISPLAY.
std::atomic<const char*> s_szPlatform{"none"};

template <typename Fn>
Fn Proc(const char* name) {
    return reinterpret_cast<Fn>(eglGetProcAddress(name));
}

bool HasExtension(const char* list, const char* name) {
    if (list == nullptr) {
        return false;
    }
    const size_t len = strlen(name);
    for (const char* p = list; (p = strstr(p, name)) != nullptr; p += len) {
        if ((p == list || p[-1] == ' ') && (p[len] == ' ' || p[len] == '\0')) {
            return true;
        }
    }
    return false;
}

// Leaves `error` as the thread's EGL error, through an EGL call that fails
// with it (EGL_SUCCESS: clears the error).
void SetEGLError(EGLDisplay dpy, EGLint error) {
    switch (error) {
        case EGL_SUCCESS:
            eglGetError();
            break;
        case EGL_BAD_CONTEXT: {
            EGLint value = 0;
            eglQueryContext(dpy, EGL_NO_CONTEXT, EGL_CONFIG_ID, &value);
            break;
        }
        default:  // EGL_BAD_PARAMETER: no place for the count
            eglGetConfigs(dpy, nullptr, 0, nullptr);
            break;
    }
}

// The surface-type bits that some config of `dpy` offers, or -1 when the
// configs cannot be listed.
EGLint OfferedSurfaceTypes(EGLDisplay dpy) {
    EGLint count = 0;
    if (!eglGetConfigs(dpy, nullptr, 0, &count) || count <= 0) {
        return -1;
    }
    std::vector<EGLConfig> configs((size_t)count);
    if (!eglGetConfigs(dpy, configs.data(), count, &count)) {
        return -1;
    }
    EGLint offered = 0;
    for (EGLint i = 0; i < count; ++i) {
        EGLint bits = 0;
        if (eglGetConfigAttrib(dpy, configs[(size_t)i], EGL_SURFACE_TYPE, &bits)) {
            offered |= bits;
        }
    }
    return offered;
}

}  // namespace

bool IsHostImage(const void* image) {
    return Images().count(static_cast<HostImage*>(const_cast<void*>(image))) != 0;
}

}  // namespace gehost

using namespace gehost;

extern "C" {

EGLDisplay __wrap_eglGetDisplay(EGLNativeDisplayType displayId) {
    if (displayId != EGL_DEFAULT_DISPLAY) {
        return __real_eglGetDisplay(displayId);
    }
    if (getenv("EGL_PLATFORM") != nullptr) {
        s_szPlatform = "environment";
        return __real_eglGetDisplay(displayId);
    }
    const char* clientExts = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
    if (HasExtension(clientExts, "EGL_MESA_platform_surfaceless")) {
        EGLDisplay dpy = eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA,
                                               (void*)EGL_DEFAULT_DISPLAY, nullptr);
        if (dpy != EGL_NO_DISPLAY) {
            s_szPlatform = "surfaceless";
            return dpy;
        }
    }
    if (HasExtension(clientExts, "EGL_EXT_platform_device")) {
        auto queryDevices = Proc<PFNEGLQUERYDEVICESEXTPROC>("eglQueryDevicesEXT");
        EGLDeviceEXT device = nullptr;
        EGLint count = 0;
        if (queryDevices && queryDevices(1, &device, &count) && count > 0) {
            EGLDisplay dpy = eglGetPlatformDisplay(EGL_PLATFORM_DEVICE_EXT, device, nullptr);
            if (dpy != EGL_NO_DISPLAY) {
                s_szPlatform = "device";
                return dpy;
            }
        }
    }
    s_szPlatform = "default";
    return __real_eglGetDisplay(displayId);
}

EGLBoolean __wrap_eglChooseConfig(EGLDisplay dpy, const EGLint* attribs, EGLConfig* configs,
                                  EGLint size, EGLint* num) {
    // Surface types that no config of this display offers (windows on a
    // surfaceless or device display) are dropped from the request; a request
    // that names none asks for EGL's default, windows, and is treated alike.
    std::vector<EGLint> list;
    bool bNamesType = false;
    for (const EGLint* p = attribs; p != nullptr && *p != EGL_NONE; p += 2) {
        list.push_back(p[0]);
        list.push_back(p[1]);
        bNamesType |= p[0] == EGL_SURFACE_TYPE;
    }
    if (!bNamesType) {
        list.push_back(EGL_SURFACE_TYPE);
        list.push_back(EGL_WINDOW_BIT);
    }
    list.push_back(EGL_NONE);
    const EGLint offered = OfferedSurfaceTypes(dpy);
    for (size_t i = 0; offered >= 0 && i + 1 < list.size(); i += 2) {
        if (list[i] == EGL_SURFACE_TYPE && list[i + 1] != EGL_DONT_CARE) {
            list[i + 1] &= offered;
        }
    }
    return __real_eglChooseConfig(dpy, list.data(), configs, size, num);
}

EGLImageKHR __wrap_eglCreateImageKHR(EGLDisplay dpy, EGLContext ctx, EGLenum target,
                                     EGLClientBuffer buffer, const EGLint* attribs) {
    if (target != EGL_NATIVE_BUFFER_ANDROID) {
        auto real = Proc<PFNEGLCREATEIMAGEKHRPROC>("eglCreateImageKHR");
        return real ? real(dpy, ctx, target, buffer, attribs) : EGL_NO_IMAGE_KHR;
    }
    if (eglQueryString(dpy, EGL_VENDOR) == nullptr) {
        return EGL_NO_IMAGE_KHR;  // EGL_BAD_DISPLAY or EGL_NOT_INITIALIZED is set
    }
    if (ctx != EGL_NO_CONTEXT) {
        SetEGLError(dpy, EGL_BAD_CONTEXT);
        return EGL_NO_IMAGE_KHR;
    }
    for (const EGLint* p = attribs; p != nullptr && *p != EGL_NONE; p += 2) {
        if (p[0] != EGL_IMAGE_PRESERVED_KHR || (p[1] != EGL_TRUE && p[1] != EGL_FALSE)) {
            SetEGLError(dpy, EGL_BAD_PARAMETER);
            return EGL_NO_IMAGE_KHR;
        }
    }
    const ANativeWindowBuffer* native = static_cast<const ANativeWindowBuffer*>(buffer);
    std::lock_guard<std::mutex> lock(HostLock());
    HostBuffer* pBuffer = native ? FindBufferByNative(native) : nullptr;
    if (pBuffer == nullptr || native->common.magic != (int)ANDROID_NATIVE_BUFFER_MAGIC) {
        HostLog(6, kTag, "[eglCreateImageKHR] %p is not a host graphics buffer", buffer);
        SetEGLError(dpy, EGL_BAD_PARAMETER);
        return EGL_NO_IMAGE_KHR;
    }
    HostImage* image = new HostImage{kImageMagic, dpy, pBuffer, native};
    native->common.incRef(const_cast<android_native_base_t*>(&native->common));
    Images().insert(image);
    SetEGLError(dpy, EGL_SUCCESS);
    return image;
}

EGLBoolean __wrap_eglDestroyImageKHR(EGLDisplay dpy, EGLImageKHR image) {
    std::unique_lock<std::mutex> lock(HostLock());
    if (!IsHostImage(image)) {
        lock.unlock();
        auto real = Proc<PFNEGLDESTROYIMAGEKHRPROC>("eglDestroyImageKHR");
        return real ? real(dpy, image) : EGL_FALSE;
    }
    HostImage* host = static_cast<HostImage*>(image);
    if (host->dpy != dpy) {
        lock.unlock();
        SetEGLError(dpy, EGL_BAD_PARAMETER);
        return EGL_FALSE;
    }
    ForgetImage(host);
    Images().erase(host);
    const ANativeWindowBuffer* native = host->pNative;
    delete host;
    lock.unlock();
    native->common.decRef(const_cast<android_native_base_t*>(&native->common));
    SetEGLError(dpy, EGL_SUCCESS);
    return EGL_TRUE;
}

void __wrap_glEGLImageTargetTexture2DOES(GLenum target, GLeglImageOES image) {
    std::unique_lock<std::mutex> lock(HostLock());
    if (!IsHostImage(image)) {
        lock.unlock();
        auto real = Proc<PFNGLEGLIMAGETARGETTEXTURE2DOESPROC>("glEGLImageTargetTexture2DOES");
        if (real) {
            real(target, image);
        }
        return;
    }
    if (eglGetCurrentContext() == EGL_NO_CONTEXT) {
        return;  // no GL to act on
    }
    if (target != GL_TEXTURE_2D) {
        RaiseGLError(GL_INVALID_ENUM);
        return;
    }
    HostImage* host = static_cast<HostImage*>(image);
    if (host->pBuffer->layout.bytesPerPixel == 0) {
        // A YUV buffer has no GL_TEXTURE_2D form.
        RaiseGLError(GL_INVALID_OPERATION);
        return;
    }
    GLint tex = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &tex);
    BindImageToTexture(host, (GLuint)tex);
}

void __wrap_glDeleteTextures(GLsizei n, const GLuint* textures) {
    {
        std::lock_guard<std::mutex> lock(HostLock());
        ForgetTextures(eglGetCurrentContext(), n, textures);
    }
    __real_glDeleteTextures(n, textures);
}

EGLBoolean __wrap_eglDestroyContext(EGLDisplay dpy, EGLContext ctx) {
    {
        std::lock_guard<std::mutex> lock(HostLock());
        ForgetContext(ctx);
    }
    ForgetFences(ctx);
    return __real_eglDestroyContext(dpy, ctx);
}

EGLBoolean __wrap_eglTerminate(EGLDisplay dpy) {
    std::vector<const ANativeWindowBuffer*> released;
    {
        // Terminating a display destroys its images and contexts.
        std::lock_guard<std::mutex> lock(HostLock());
        ForgetDisplay(dpy);
        for (auto it = Images().begin(); it != Images().end();) {
            HostImage* image = *it;
            if (image->dpy == dpy) {
                released.push_back(image->pNative);
                delete image;
                it = Images().erase(it);
            } else {
                ++it;
            }
        }
    }
    for (const ANativeWindowBuffer* native : released) {
        native->common.decRef(const_cast<android_native_base_t*>(&native->common));
    }
    ForgetFenceDisplay(dpy);
    PinDrivers();
    return __real_eglTerminate(dpy);
}

void __wrap_glGetProgramBinaryOES(GLuint program, GLsizei bufSize, GLsizei* length,
                                  GLenum* binaryFormat, void* binary) {
    static auto real = Proc<PFNGLGETPROGRAMBINARYOESPROC>("glGetProgramBinaryOES");
    if (real) {
        real(program, bufSize, length, binaryFormat, binary);
    } else {
        RaiseGLError(GL_INVALID_OPERATION);
    }
}

void __wrap_glProgramBinaryOES(GLuint program, GLenum binaryFormat, const void* binary,
                               GLint length) {
    static auto real = Proc<PFNGLPROGRAMBINARYOESPROC>("glProgramBinaryOES");
    if (real) {
        real(program, binaryFormat, binary, length);
    } else {
        RaiseGLError(GL_INVALID_OPERATION);
    }
}

}  // extern "C"

const char* GEHostEGLPlatform() {
    return s_szPlatform;
}
