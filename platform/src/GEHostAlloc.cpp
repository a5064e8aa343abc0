// The host gralloc allocation controller. One allocator serves every flag
// value; its clean (operation CACHE_CLEAN) on a graphics buffer makes the
// CPU's bytes and the buffer's textures agree (GEHostBuffers.cpp); on other
// memory (camera buffers, heaps), which no GPU shares on the host, it is a
// successful no-op.
#include <alloc_controller.h>
#include <errno.h>
#include <memalloc.h>

#include "GEHostState.h"

namespace gralloc {

namespace {

class HostMemAlloc : public IMemAlloc {
public:
    int clean_buffer(void* base, size_t size, int offset, int fd, int op) override {
        if (op != CACHE_CLEAN) {
            gehost::HostLog(6, "GEHostAlloc", "[clean_buffer] unknown operation %d", op);
            return -EINVAL;
        }
        if (base == nullptr || offset < 0) {
            return -EINVAL;
        }
        if (size == 0) {
            return 0;
        }
        std::lock_guard<std::mutex> lock(gehost::HostLock());
        gehost::HostBuffer* pBuffer = gehost::FindBufferByMemory(base, fd);
        if (pBuffer == nullptr) {
            return 0;
        }
        if ((size_t)offset > pBuffer->nSize || size > pBuffer->nSize - (size_t)offset) {
            return -EINVAL;
        }
        return gehost::SyncBuffer(pBuffer);
    }
};

class HostAllocController : public IAllocController {
public:
    HostAllocController() : m_pAlloc(new HostMemAlloc()) {}
    android::sp<IMemAlloc> getAllocator(int /*flags*/) override { return m_pAlloc; }

private:
    android::sp<IMemAlloc> m_pAlloc;
};

}  // namespace

android::sp<IAllocController> IAllocController::getInstance() {
    static android::sp<IAllocController> s_instance = new HostAllocController();
    return s_instance;
}

}  // namespace gralloc
