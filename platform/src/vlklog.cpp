// Host per-tag log masks, read from POSTEFFECT_LOG.
//
// POSTEFFECT_LOG is a list of TAG=MASK entries separated by ',' or ';', MASK
// in C notation (0x16, 22; an entry with anything else is skipped); the tag "*" gives the mask of
// every tag not named. Without the variable every tag logs errors only (0x10). Lines without a tag
// match only "*".
#include <vlklog.h>

#include <android/log.h>
#include <stdlib.h>
#include <string.h>

namespace {

const unsigned char kDefaultMask = 0x10;

// The mask for `tag` in `spec`, or -1 when neither the tag nor "*" appears.
int FindMask(const char* spec, const char* tag) {
    int wildcard = -1;
    const char* p = spec;
    while (*p) {
        const char* end = p + strcspn(p, ",;");
        const char* eq = (const char*)memchr(p, '=', (size_t)(end - p));
        if (eq) {
            size_t keyLen = (size_t)(eq - p);
            char* stop = nullptr;
            unsigned long value = strtoul(eq + 1, &stop, 0);
            bool valid = stop != eq + 1 && stop == end && value <= 0xFF;
            if (valid) {
                if (keyLen == 1 && p[0] == '*') {
                    wildcard = (int)value;
                } else if (tag && strlen(tag) == keyLen && strncmp(p, tag, keyLen) == 0) {
                    return (int)value;
                }
            }
        }
        p = *end ? end + 1 : end;
    }
    return wildcard;
}

}  // namespace

extern "C" int __vlklog_init_mask(const char* tag, int /*level*/, unsigned char* mask) {
    // The library filters by mask; let every line it writes through liblog.
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    const char* spec = getenv("POSTEFFECT_LOG");
    int value = spec ? FindMask(spec, tag) : -1;
    unsigned char result = value < 0 ? kDefaultMask : (unsigned char)(value & 0x7F);
    if (mask) {
        *mask = result;
    }
    return result;
}
