#include "gl/GELog.h"

#include <mutex>

#include <vlklog.h>

namespace {

std::mutex s_registryLock;
GELogTag* s_pRegistry = nullptr;

}  // namespace

unsigned char GELogTag::ReadMask() {
    std::lock_guard<std::mutex> lock(s_registryLock);
    unsigned char mask = m_nMask.load(std::memory_order_relaxed);
    if (!(mask & kUnread)) {
        return mask;  // another thread read it first
    }
    unsigned char fresh = mask;
    fresh = (unsigned char)__vlklog_init_mask(m_szName, -1, &fresh);
    fresh &= (unsigned char)~kUnread;
    if (!m_bRegistered) {
        m_bRegistered = true;
        m_pNext = s_pRegistry;
        s_pRegistry = this;
    }
    m_nMask.store(fresh, std::memory_order_relaxed);
    return fresh;
}

void GELogTag::ResetAll() {
    std::lock_guard<std::mutex> lock(s_registryLock);
    for (GELogTag* tag = s_pRegistry; tag != nullptr; tag = tag->m_pNext) {
        tag->m_nMask.store(kUnread, std::memory_order_relaxed);
    }
}
