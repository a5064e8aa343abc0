// Host shared memory heaps: a memfd of whole pages, mapped once. A heap
// mapped read-write takes its memory from the platform's kept shared memory
// and gives it back when it goes (GEHostMemory.h); one mapped read-only or
// not at all has a memfd of its own.
#include <binder/MemoryHeapBase.h>

#include <sys/mman.h>
#include <unistd.h>

#include "GEHostMemory.h"

namespace android {

MemoryHeapBase::MemoryHeapBase(size_t size, uint32_t flags, const char* name)
    : mFD(-1), mSize(0), mBase(MAP_FAILED), mFlags(flags), mDevice(nullptr) {
    const size_t page = (size_t)sysconf(_SC_PAGESIZE);
    if (size == 0 || size > SIZE_MAX - page) {
        return;
    }
    const size_t bytes = (size + page - 1) / page * page;
    const char* label = name != nullptr ? name : "MemoryHeapBase";
    if ((flags & (READ_ONLY | DONT_MAP_LOCALLY)) == 0) {
        gehost::SharedMemory mem;
        if (gehost::TakeSharedMemory(bytes, false, label, &mem)) {
            mFD = mem.fd;
            mBase = mem.base;
            mSize = bytes;
        }
        return;
    }
    int fd = memfd_create(label, MFD_CLOEXEC);
    if (fd < 0) {
        return;
    }
    if (ftruncate(fd, (off_t)bytes) != 0) {
        close(fd);
        return;
    }
    if ((flags & DONT_MAP_LOCALLY) == 0) {
        void* base = mmap(nullptr, bytes, PROT_READ, MAP_SHARED, fd, 0);
        if (base == MAP_FAILED) {
            close(fd);
            return;
        }
        mBase = base;
    }
    mFD = fd;
    mSize = bytes;
}

MemoryHeapBase::~MemoryHeapBase() {
    if (mFD >= 0 && (mFlags & (READ_ONLY | DONT_MAP_LOCALLY)) == 0) {
        gehost::SharedMemory mem;
        mem.fd = mFD;
        mem.base = mBase;
        mem.bytes = mSize;
        gehost::GiveBackSharedMemory(&mem);
        return;
    }
    if (mBase != MAP_FAILED) {
        munmap(mBase, mSize);
    }
    if (mFD >= 0) {
        close(mFD);
    }
}

}  // namespace android
