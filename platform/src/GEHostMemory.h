// Shared memory that the host platform hands to graphics buffers and memory
// heaps: a memfd mapped read-write once.
//
// Memory that goes is kept for the next request of the same byte size and
// kind, as a device's allocators keep freed pages in pools: on this host the
// first touch of every page of a fresh memfd is a page fault, which for a
// 4000x3000 capture's 18 MB working heap costs tens of milliseconds, and a
// graphics buffer's coherence record holds a snapshot as large as the buffer.
// Memory handed out reads as zero, as a fresh memfd does. The oldest memory
// goes first once more than 64 MiB are kept.
#ifndef POSTEFFECT_HOST_GEHOSTMEMORY_H
#define POSTEFFECT_HOST_GEHOSTMEMORY_H

#include <stddef.h>

namespace gehost {

struct HostBuffer;

struct SharedMemory {
    int fd = -1;
    void* base = nullptr;
    size_t bytes = 0;
    // A graphics buffer's coherence record, kept with its memory: its
    // snapshot agrees with the zeroed bytes and it is bound to nothing.
    HostBuffer* host = nullptr;
};

// `bytes` of zeroed shared memory, with a coherence record when
// `withRecord`: kept memory of that size and kind, or a fresh memfd named
// `name`. false when none can be had.
bool TakeSharedMemory(size_t bytes, bool withRecord, const char* name, SharedMemory* mem);

// Gives `mem` back, to be kept for a later request or released, and empties
// *mem.
void GiveBackSharedMemory(SharedMemory* mem);

}  // namespace gehost

#endif
