// Host version of the gralloc memory allocator interface.
#ifndef POSTEFFECT_HOST_MEMALLOC_H
#define POSTEFFECT_HOST_MEMALLOC_H

#include <stddef.h>

#include <utils/RefBase.h>

namespace gralloc {

// Cache maintenance operations of IMemAlloc::clean_buffer.
enum {
    CACHE_CLEAN = 3,  // make one side's writes visible to the other
};

class IMemAlloc : public android::RefBase {
public:
    // Cache maintenance over [base + offset, base + offset + size) of the
    // buffer whose memory is `fd`. Returns 0 on success, negative on failure.
    virtual int clean_buffer(void* base, size_t size, int offset, int fd, int op) = 0;
};

}  // namespace gralloc

#endif
