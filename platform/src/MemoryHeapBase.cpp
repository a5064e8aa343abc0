// Host shared memory heaps: a memfd of whole pages, mapped once.
#include <binder/MemoryHeapBase.h>

#include <sys/mman.h>
#include <unistd.h>

namespace android {

MemoryHeapBase::MemoryHeapBase(size_t size, uint32_t flags, const char* name)
    : mFD(-1), mSize(0), mBase(MAP_FAILED), mFlags(flags), mDevice(nullptr) {
    const size_t page = (size_t)sysconf(_SC_PAGESIZE);
    if (size == 0 || size > SIZE_MAX - page) {
        return;
    }
    const size_t bytes = (size + page - 1) / page * page;
    int fd = memfd_create(name != nullptr ? name : "MemoryHeapBase", MFD_CLOEXEC);
    if (fd < 0) {
        return;
    }
    if (ftruncate(fd, (off_t)bytes) != 0) {
        close(fd);
        return;
    }
    if ((flags & DONT_MAP_LOCALLY) == 0) {
        const int prot = (flags & READ_ONLY) ? PROT_READ : PROT_READ | PROT_WRITE;
        void* base = mmap(nullptr, bytes, prot, MAP_SHARED, fd, 0);
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
    if (mBase != MAP_FAILED) {
        munmap(mBase, mSize);
    }
    if (mFD >= 0) {
        close(mFD);
    }
}

}  // namespace android
