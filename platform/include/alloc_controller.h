// Host version of the gralloc allocation controller.
#ifndef POSTEFFECT_HOST_ALLOC_CONTROLLER_H
#define POSTEFFECT_HOST_ALLOC_CONTROLLER_H

#include <stdint.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include "memalloc.h"

namespace gralloc {

class IAllocController : public android::RefBase {
public:
    // The allocator that serves buffers allocated with `flags`.
    virtual android::sp<IMemAlloc> getAllocator(int flags) = 0;

    static android::sp<IAllocController> getInstance();
};

}  // namespace gralloc

#endif
