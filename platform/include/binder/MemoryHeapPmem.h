// Host version of the physically contiguous heap type. The plug-in only holds
// references of this type; on the host it is an ordinary shared heap.
#ifndef POSTEFFECT_HOST_BINDER_MEMORYHEAPPMEM_H
#define POSTEFFECT_HOST_BINDER_MEMORYHEAPPMEM_H

#include <binder/MemoryHeapBase.h>

namespace android {

class MemoryHeapPmem : public MemoryHeapBase {
public:
    explicit MemoryHeapPmem(size_t size, uint32_t flags = 0) : MemoryHeapBase(size, flags) {}
};

}  // namespace android

#endif
