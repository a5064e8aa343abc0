// Host graphics buffers: anonymous shared memory (memfd) mapped once, with a
// gralloc private handle that carries its fd, flags, size, offset and base.
#include <ui/GraphicBuffer.h>

#include <errno.h>
#include <limits.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <mutex>

#include "GEHostMemory.h"
#include "GEHostState.h"

namespace android {

namespace {

void IncRef(android_native_base_t* base) {
    GraphicBuffer* self = static_cast<GraphicBuffer*>(reinterpret_cast<ANativeWindowBuffer*>(base));
    self->incStrong(base);
}

void DecRef(android_native_base_t* base) {
    GraphicBuffer* self = static_cast<GraphicBuffer*>(reinterpret_cast<ANativeWindowBuffer*>(base));
    self->decStrong(base);
}

bool IsYUV(PixelFormat format) {
    return format == HAL_PIXEL_FORMAT_YCrCb_420_SP || format == HAL_PIXEL_FORMAT_YCbCr_422_SP ||
           format == HAL_PIXEL_FORMAT_YV12;
}

}  // namespace

GraphicBuffer::GraphicBuffer() : mInitCheck(NO_INIT), mpHandle(nullptr), mpHost(nullptr) {
    ANativeWindowBuffer* native = this;
    memset(native, 0, sizeof(*native));
    common.magic = (int)ANDROID_NATIVE_BUFFER_MAGIC;
    common.version = (int)sizeof(ANativeWindowBuffer);
    common.incRef = IncRef;
    common.decRef = DecRef;
}

GraphicBuffer::GraphicBuffer(uint32_t w, uint32_t h, PixelFormat f, uint32_t u) : GraphicBuffer() {
    mInitCheck = BAD_VALUE;
    const uint32_t bufStride = w;
    size_t bytes = bufferSize(f, bufStride, h);
    if (w == 0 || h == 0 || w > INT_MAX || h > INT_MAX || bytes == 0) {
        return;
    }
    mInitCheck = NO_MEMORY;
    if (bytes > (size_t)INT_MAX) {
        return;
    }
    gehost::SharedMemory mem;
    if (!gehost::TakeSharedMemory(bytes, true, "GraphicBuffer", &mem)) {
        return;
    }
    const int fd = mem.fd;
    void* const base = mem.base;

    private_handle_t* hnd = new private_handle_t();
    hnd->version = (int)sizeof(native_handle_t);
    hnd->numFds = private_handle_t::sNumFds;
    hnd->numInts = private_handle_t::numIntsFor();
    hnd->fd = fd;
    hnd->magic = private_handle_t::sMagic;
    hnd->flags = private_handle_t::PRIV_FLAGS_USES_HOST_MEMORY;
    hnd->size = (int)bytes;
    hnd->offset = 0;
    hnd->bufferType = IsYUV(f) ? 1 : 0;  // video : UI
    hnd->base = (uintptr_t)base;
    hnd->format = f;
    hnd->width = (int)w;
    hnd->height = (int)h;
    mpHandle = hnd;

    width = (int)w;
    height = (int)h;
    stride = (int)bufStride;
    format = f;
    usage = (int)u;
    handle = hnd;

    gehost::HostBuffer* host = mem.host;
    host->pNative = this;
    host->pData = (unsigned char*)base;
    host->nSize = bytes;
    host->nFd = fd;
    host->nWidth = (int)w;
    host->nHeight = (int)h;
    host->nStride = (int)bufStride;
    host->nFormat = f;
    host->layout = gehost::LayoutForFormat(f);
    {
        std::lock_guard<std::mutex> lock(gehost::HostLock());
        gehost::RegisterBuffer(host);
    }
    mpHost = host;
    mInitCheck = NO_ERROR;
}

GraphicBuffer::~GraphicBuffer() {
    gehost::SharedMemory mem;
    if (mpHost) {
        std::lock_guard<std::mutex> lock(gehost::HostLock());
        gehost::UnregisterBuffer(mpHost);
        mem.host = mpHost;
        mpHost = nullptr;
    }
    if (mpHandle) {
        private_handle_t* hnd = static_cast<private_handle_t*>(mpHandle);
        mem.fd = hnd->fd;
        mem.base = (void*)hnd->base;
        mem.bytes = (size_t)hnd->size;
        delete hnd;
        mpHandle = nullptr;
    }
    gehost::GiveBackSharedMemory(&mem);
}

ANativeWindowBuffer* GraphicBuffer::getNativeBuffer() const {
    return const_cast<GraphicBuffer*>(this);
}

status_t GraphicBuffer::lock(uint32_t /*usage*/, void** vaddr) {
    if (mInitCheck != NO_ERROR) {
        return mInitCheck;
    }
    if (vaddr == nullptr) {
        return BAD_VALUE;
    }
    *vaddr = (void*)static_cast<const private_handle_t*>(mpHandle)->base;
    return NO_ERROR;
}

status_t GraphicBuffer::unlock() {
    return mInitCheck == NO_ERROR ? NO_ERROR : mInitCheck;
}

int GraphicBuffer::bytesPerPixel(PixelFormat format) {
    return gehost::LayoutForFormat(format).bytesPerPixel;
}

size_t GraphicBuffer::bufferSize(PixelFormat format, uint32_t stride, uint32_t height) {
    const size_t s = stride;
    const size_t h = height;
    int bpp = bytesPerPixel(format);
    if (bpp != 0) {
        return s * h * (size_t)bpp;
    }
    switch (format) {
        case HAL_PIXEL_FORMAT_YCrCb_420_SP:
            // luma, then one interleaved chroma row per two luma rows
            return s * h + ((s + 1) / 2) * 2 * ((h + 1) / 2);
        case HAL_PIXEL_FORMAT_YCbCr_422_SP:
            return s * h + ((s + 1) / 2) * 2 * h;
        case HAL_PIXEL_FORMAT_YV12:
            return s * h + 2 * (((s + 1) / 2) * ((h + 1) / 2));
        default:
            return 0;
    }
}

}  // namespace android
