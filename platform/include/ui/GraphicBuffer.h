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

    // NO_ERROR when the memory was allocated and mapped.
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

    // Bytes per pixel of a HAL pixel format, 0 for the ones the host does not
    // allocate.
    static int bytesPerPixel(PixelFormat format);

protected:
    ~GraphicBuffer() override;

private:
    GraphicBuffer(const GraphicBuffer&) = delete;
    GraphicBuffer& operator=(const GraphicBuffer&) = delete;

    status_t mInitCheck;
};

}  // namespace android

#endif
