// Host version of the shared memory heap: anonymous shared memory with a file
// descriptor, mapped once.
#ifndef POSTEFFECT_HOST_BINDER_MEMORYHEAPBASE_H
#define POSTEFFECT_HOST_BINDER_MEMORYHEAPBASE_H

#include <stddef.h>
#include <stdint.h>

#include <utils/RefBase.h>

namespace android {

class MemoryHeapBase : public virtual RefBase {
public:
    enum {
        READ_ONLY = 0x00000001,
        DONT_MAP_LOCALLY = 0x00000100,
        NO_CACHING = 0x00000200,
    };

    // A heap of `size` bytes (rounded up to whole pages); `name` only labels
    // the memory. On failure getBase() is MAP_FAILED and getHeapID() -1.
    explicit MemoryHeapBase(size_t size, uint32_t flags = 0, const char* name = nullptr);

    int getHeapID() const { return mFD; }
    void* getBase() const { return mBase; }
    size_t getSize() const { return mSize; }
    uint32_t getFlags() const { return mFlags; }
    const char* getDevice() const { return mDevice; }

protected:
    ~MemoryHeapBase() override;

private:
    MemoryHeapBase(const MemoryHeapBase&) = delete;
    MemoryHeapBase& operator=(const MemoryHeapBase&) = delete;

    int mFD;
    size_t mSize;
    void* mBase;
    uint32_t mFlags;
    const char* mDevice;
};

}  // namespace android

#endif
