#include "GETestHostGL.h"

#include <alloc_controller.h>
#include <gralloc_priv.h>

EGLImageKHR HostMakeImage(android::GraphicBuffer* gb) {
    const EGLint attribs[] = {EGL_IMAGE_PRESERVED_KHR, EGL_TRUE, EGL_NONE, EGL_NONE};
    return eglCreateImageKHR(eglGetCurrentDisplay(), EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID,
                             (EGLClientBuffer)gb->getNativeBuffer(), attribs);
}

GLuint HostBindNewTexture(EGLImageKHR image) {
    GLuint tex = 0;
    glGenTextures(1, &tex);
    glBindTexture(GL_TEXTURE_2D, tex);
    glEGLImageTargetTexture2DOES(GL_TEXTURE_2D, image);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glBindTexture(GL_TEXTURE_2D, 0);
    return tex;
}

int HostClean(android::GraphicBuffer* gb) {
    const private_handle_t* h = reinterpret_cast<const private_handle_t*>(gb->handle);
    android::sp<gralloc::IMemAlloc> alloc =
        gralloc::IAllocController::getInstance()->getAllocator(h->flags);
    return alloc->clean_buffer((void*)h->base, (size_t)h->size, h->offset, h->fd,
                               gralloc::CACHE_CLEAN);
}

EGLContext HostOtherContext() {
    EGLDisplay dpy = eglGetCurrentDisplay();
    EGLint configId = 0;
    eglQueryContext(dpy, eglGetCurrentContext(), EGL_CONFIG_ID, &configId);
    const EGLint pick[] = {EGL_CONFIG_ID, configId, EGL_NONE};
    EGLConfig config = nullptr;
    EGLint n = 0;
    if (!eglChooseConfig(dpy, pick, &config, 1, &n) || n != 1) {
        return EGL_NO_CONTEXT;
    }
    const EGLint attribs[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    return eglCreateContext(dpy, config, EGL_NO_CONTEXT, attribs);
}
