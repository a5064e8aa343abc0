// The one way the library writes a log line.
//
// Every tag ("GLTexture", "GECommon", ...) has a one-byte mask that starts at
// 0x80, meaning not read yet. Before the first line under a tag the mask is
// read through the platform routine __vlklog_init_mask; a line of priority p
// is written only when the mask holds the bit 1 << (p - 2): 0x02 for debug,
// 0x04 for info, 0x10 for error.
//
//     static GELogTag s_log("GLTexture");
//     GE_LOGI(s_log, "[%s] enter", "Init");
#ifndef POSTEFFECT_GL_GELOG_H
#define POSTEFFECT_GL_GELOG_H

#include <android/log.h>

#include <atomic>

class GELogTag {
public:
    // `name` may be null: such lines are written without a tag.
    explicit GELogTag(const char* name)
        : m_szName(name), m_nMask(kUnread), m_pNext(nullptr), m_bRegistered(false) {}

    const char* Name() const { return m_szName; }

    // True when lines of `priority` are written under this tag.
    bool IsOn(int priority) {
        unsigned char mask = m_nMask.load(std::memory_order_relaxed);
        if (mask & kUnread) {
            mask = ReadMask();
        }
        return priority >= 2 && priority < 10 && (mask & (1u << (priority - 2))) != 0;
    }

    // Marks every tag's mask unread, so that each is read again before its
    // next line (after the platform's masks have changed).
    static void ResetAll();

    static const unsigned char kUnread = 0x80;

private:
    GELogTag(const GELogTag&) = delete;
    GELogTag& operator=(const GELogTag&) = delete;

    unsigned char ReadMask();

    const char* m_szName;
    std::atomic<unsigned char> m_nMask;
    GELogTag* m_pNext;  // tags whose mask has been read, for ResetAll
    bool m_bRegistered;
};

#define GE_LOG_PRI(tag, priority, ...)                                  \
    do {                                                                \
        if ((tag).IsOn(priority)) {                                     \
            __android_log_print((priority), (tag).Name(), __VA_ARGS__); \
        }                                                               \
    } while (0)

#define GE_LOGD(tag, ...) GE_LOG_PRI(tag, ANDROID_LOG_DEBUG, __VA_ARGS__)
#define GE_LOGI(tag, ...) GE_LOG_PRI(tag, ANDROID_LOG_INFO, __VA_ARGS__)
#define GE_LOGE(tag, ...) GE_LOG_PRI(tag, ANDROID_LOG_ERROR, __VA_ARGS__)

#endif
