#include "GEHostMemory.h"

#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <mutex>
#include <vector>

#include "GEHostState.h"

namespace gehost {

namespace {

const size_t kKeptBytes = 64u << 20;

std::vector<SharedMemory>& Kept() {
    static std::vector<SharedMemory>* s_kept = new std::vector<SharedMemory>();
    return *s_kept;
}

std::mutex& KeptLock() {
    static std::mutex s_lock;
    return s_lock;
}

void Release(SharedMemory* mem) {
    if (mem->base != nullptr) {
        munmap(mem->base, mem->bytes);
    }
    if (mem->fd >= 0) {
        close(mem->fd);
    }
    delete mem->host;
    *mem = SharedMemory();
}

bool MapFresh(size_t bytes, bool withRecord, const char* name, SharedMemory* mem) {
    int fd = memfd_create(name, MFD_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    void* base = MAP_FAILED;
    if (ftruncate(fd, (off_t)bytes) == 0) {
        base = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    }
    if (base == MAP_FAILED) {
        close(fd);
        return false;
    }
    mem->fd = fd;
    mem->base = base;
    mem->bytes = bytes;
    if (withRecord) {
        mem->host = new HostBuffer();
        mem->host->snapshot.assign(bytes, 0);  // fresh memfd pages read as zero
    }
    return true;
}

bool TakeKept(size_t bytes, bool withRecord, SharedMemory* mem) {
    {
        std::lock_guard<std::mutex> lock(KeptLock());
        std::vector<SharedMemory>& kept = Kept();
        for (size_t i = kept.size(); i-- > 0;) {
            if (kept[i].bytes == bytes && (kept[i].host != nullptr) == withRecord) {
                *mem = kept[i];
                kept.erase(kept.begin() + (long)i);
                break;
            }
        }
    }
    if (mem->base == nullptr) {
        return false;
    }
    memset(mem->base, 0, bytes);
    if (mem->host != nullptr) {
        memset(mem->host->snapshot.data(), 0, bytes);
        mem->host->bindings.clear();
    }
    return true;
}

}  // namespace

bool TakeSharedMemory(size_t bytes, bool withRecord, const char* name, SharedMemory* mem) {
    *mem = SharedMemory();
    return TakeKept(bytes, withRecord, mem) || MapFresh(bytes, withRecord, name, mem);
}

void GiveBackSharedMemory(SharedMemory* mem) {
    if (mem->base == nullptr || mem->bytes > kKeptBytes) {
        Release(mem);
        return;
    }
    std::vector<SharedMemory> evicted;
    {
        std::lock_guard<std::mutex> lock(KeptLock());
        std::vector<SharedMemory>& kept = Kept();
        kept.push_back(*mem);
        size_t total = 0;
        for (const SharedMemory& m : kept) {
            total += m.bytes;
        }
        while (total > kKeptBytes) {
            total -= kept.front().bytes;
            evicted.push_back(kept.front());
            kept.erase(kept.begin());
        }
    }
    *mem = SharedMemory();
    for (SharedMemory& m : evicted) {
        Release(&m);
    }
}

}  // namespace gehost
