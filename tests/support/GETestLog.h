// Captures the library's log lines for assertions.
//
//     GETestLog log;                      // records from here on
//     ... code under test ...
//     EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, "GLTexture", "[Init] ST only supports"));
//
// Lines are recorded with their priority, tag and text (one trailing newline
// removed). While no GETestLog is alive, error lines go to stderr and the
// rest is dropped, so that a test run stays readable with every mask open.
#ifndef POSTEFFECT_TESTS_GETESTLOG_H
#define POSTEFFECT_TESTS_GETESTLOG_H

#include <string>
#include <vector>

struct GETestLogLine {
    int priority;
    std::string tag;  // "" for lines without a tag
    std::string text;
};

class GETestLog {
public:
    // Opens every mask ("*=0xff") and starts recording.
    GETestLog();
    ~GETestLog();

    std::vector<GETestLogLine> Lines() const;
    // The texts of the lines of `priority` (every line with -1), in order.
    std::vector<std::string> Texts(int priority = -1) const;
    // Lines whose text contains `text`, any priority and tag.
    int Count(const std::string& text) const;
    // A line of `priority` under `tag` whose text contains `text`.
    bool Has(int priority, const std::string& tag, const std::string& text) const;
    // A line of `priority` under `tag` whose text is exactly `text`.
    bool HasExact(int priority, const std::string& tag, const std::string& text) const;
    void Clear();
    // Every line, one per row, for failure messages.
    std::string Dump() const;

    // Opens or closes every tag's mask: `masks` is a POSTEFFECT_LOG value
    // such as "*=0xff" or "GECommon=0x00,*=0xff". The library's masks are
    // marked unread so that they take the new value.
    static void SetMasks(const char* masks);
};

// printf into a std::string, for expected log lines.
std::string GETestFormat(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

#endif
