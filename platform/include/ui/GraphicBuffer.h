// Host version of the graphics buffer: CPU memory with a file descriptor,
// described by a gralloc private handle, that GL can use as a texture through
// an EGL native-buffer image (see the host EGL layer in platform/src).
#ifndef POSTEFFECT_HOST_UI_GRAPHICBUFFER_H
#define POSTEFFECT_HOST_UI_GRAPHICBUFFER_H

#include <stdint.h>

#include <system/graphics.h>
#include <system/window.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

#include "gralloc_priv.h"

namespace gehost {
struct HostBuffer;
}

namespace android {

typedef int32_t PixelFormat;

class GraphicBuffer : public ANativeWindowBuffer, public RefBase {
public:
    enum {
        USAGE_SW_READ_OFTEN = GRALLOC_USAGE_SW_READ_OFTEN,
        USAGE_SW_WRITE_OFTEN = GRALLOC_USAGE_SW_WRITE_OFTEN,
        USAGE_HW_TEXTURE = GRALLOC_USAGE_HW_TEXTURE,
    };

    GraphicBuffer();
    GraphicBuffer(uint32_t width, uint32_t height, PixelFormat format, uint32_t usage);

    // NO_ERROR when the memory was allocated and mapped; NO_INIT for the
    // default-constructed buffer, BAD_VALUE for a zero size or a format the
    // host does not allocate, NO_MEMORY when the memory cannot be had.
    status_t initCheck() const { return mInitCheck; }

    uint32_t getWidth() const { return (uint32_t)width; }
    uint32_t getHeight() const { return (uint32_t)height; }
    uint32_t getStride() const { return (uint32_t)stride; }
    uint32_t getUsage() const { return (uint32_t)usage; }
    PixelFormat getPixelFormat() const { return format; }

    ANativeWindowBuffer* getNativeBuffer() const;

    // The CPU address of the pixels; `usage` is not checked on the host.
    status_t lock(uint32_t usage, void** vaddr);
    status_t unlock();

    // Bytes per pixel of a HAL pixel format: 4, 3 or 2 for the RGB formats
    // (RGBA_8888, RGBX_8888, RGB_888, RGB_565); 0 for the YUV formats, whose
    // planes differ in depth, and for the ones the host does not allocate.
    static int bytesPerPixel(PixelFormat format);
    // Bytes of a buffer of `format` with `stride` pixels per row and `height`
    // rows (the chroma planes included), 0 for a format the host does not
    // allocate. The host allocates RGBA_8888, RGBX_8888, RGB_888, RGB_565 and
    // the camera's YUV formats YCrCb_420_SP (NV21), YCbCr_422_SP (NV16) and
    // YV12 (whose chroma rows are stride / 2 bytes long).
    static size_t bufferSize(PixelFormat format, uint32_t stride, uint32_t height);

protected:
    ~GraphicBuffer() override;

private:
    GraphicBuffer(const GraphicBuffer&) = delete;
    GraphicBuffer& operator=(const GraphicBuffer&) = delete;

    status_t mInitCheck;
    native_handle_t* mpHandle;   // the private handle, owned
    gehost::HostBuffer* mpHost;  // the coherence record, owned
};

}  // namespace android

#endif
