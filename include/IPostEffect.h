// The interface a camera service compiles against.
//
// The service loads libposteffect.so, takes one IPostEffect from
// createPostEffect(), calls start(), startPreview(), handlePreview() for every
// preview frame, setParameters() with the camera's parameter string,
// handleCapture() for a still image, stopPreview() and stop(), and finally
// hands the object to destroyPostEffect(). Every call that needs the GPU
// blocks until the plug-in's worker thread has run it.
#ifndef POSTEFFECT_IPOSTEFFECT_H
#define POSTEFFECT_IPOSTEFFECT_H

#include <utils/String8.h>

class IPostEffect {
public:
    virtual ~IPostEffect() {}

    // Starts the worker thread. 0, or 99 when the thread could not start.
    virtual int start() = 0;
    // Stops the worker; work still queued returns 1 to its callers. 0.
    virtual int stop() = 0;
    virtual int startPreview(int width, int height) = 0;
    // One semi-planar preview frame at base + offset, processed in place.
    // fd is the buffer's file descriptor, used for cache maintenance only.
    // -1 while no preview runs.
    virtual int handlePreview(int fd, void* base, int offset) = 0;
    virtual int stopPreview() = 0;
    // One semi-planar still image, luma at base + yOffset and chroma at the
    // luma + uvOffset, processed in place.
    virtual int handleCapture(int width, int height, int fd, void* base, int yOffset,
                              int uvOffset) = 0;
    // The camera's flattened parameter string ("key=value;key=value").
    virtual int setParameters(const android::String8& params) = 0;
    virtual int setCrop(int x, int y, int w, int h) = 0;
};

// The callback through which effects fetch the tiles of a capture: converts the
// rectangle (rx, ry, rw, rh) of the current capture into dst, a "yuvx" image
// of dw pixels per row and dh rows.
class IYUVConverter {
public:
    virtual ~IYUVConverter() {}
    virtual int convertRect(void* dst, int dw, int dh, int rx, int ry, int rw, int rh) = 0;
};

extern "C" {
IPostEffect* createPostEffect();
void destroyPostEffect(IPostEffect* effect);
}

#endif
