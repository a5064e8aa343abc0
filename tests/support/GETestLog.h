// Captures the library's log lines for assertions: from construction on,
// every mask open ("*=0xff"), each line with its priority, tag and text (one
// trailing newline removed). While none is alive, error lines go to stderr
// and the rest is dropped.
#ifndef POSTEFFECT_TESTS_GETESTLOG_H
#define POSTEFFECT_TESTS_GETESTLOG_H

#include <android/log.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <mutex>
#include <string>
#include <vector>

#include "gl/GELog.h"

class GETestLog {
public:
    struct Line {
        int priority;
        std::string tag, text;
    };

    GETestLog() {
        static const bool s_installed = [] {
            __android_log_set_logger(Logger);
            __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
            return true;
        }();
        (void)s_installed;
        std::lock_guard<std::mutex> lock(s_lock);
        s_pLines = new std::vector<Line>();
        setenv("POSTEFFECT_LOG", "*=0xff", 1);
        GELogTag::ResetAll();
    }
    ~GETestLog() {
        std::lock_guard<std::mutex> lock(s_lock);
        delete s_pLines;
        s_pLines = nullptr;
    }

    std::vector<Line> Lines() const {
        std::lock_guard<std::mutex> lock(s_lock);
        return *s_pLines;
    }
    // The texts of the lines of `priority` (of every line with -1), in order.
    std::vector<std::string> Texts(int priority = -1) const {
        std::vector<std::string> out;
        for (const Line& l : Lines()) {
            if (priority < 0 || l.priority == priority) {
                out.push_back(l.text);
            }
        }
        return out;
    }
    // Lines whose text contains `text`, any priority and tag.
    int Count(const std::string& text) const {
        int n = 0;
        for (const Line& l : Lines()) {
            n += l.text.find(text) != std::string::npos;
        }
        return n;
    }
    // A line of `priority` under `tag` whose text contains `text`, or is it.
    bool Has(int priority, const std::string& tag, const std::string& text,
             bool exact = false) const {
        for (const Line& l : Lines()) {
            if (l.priority == priority && l.tag == tag &&
                (exact ? l.text == text : l.text.find(text) != std::string::npos)) {
                return true;
            }
        }
        return false;
    }
    bool HasExact(int priority, const std::string& tag, const std::string& text) const {
        return Has(priority, tag, text, true);
    }
    // Every line, one per row, for failure messages.
    std::string Dump() const {
        std::string out;
        for (const Line& l : Lines()) {
            out += std::to_string(l.priority) + " " + l.tag + ": " + l.text + "\n";
        }
        return out;
    }

private:
    static void Logger(const struct __android_logger_data* data, const char* message) {
        std::string text = message ? message : "";
        if (!text.empty() && text.back() == '\n') {
            text.pop_back();
        }
        std::lock_guard<std::mutex> lock(s_lock);
        if (s_pLines) {
            s_pLines->push_back({data->priority, data->tag ? data->tag : "", text});
        } else if (data->priority >= ANDROID_LOG_ERROR) {
            fprintf(stderr, "%s: %s\n", data->tag ? data->tag : "-", text.c_str());
        }
    }
    static inline std::mutex s_lock;
    static inline std::vector<Line>* s_pLines = nullptr;
};

// printf into a std::string, for expected log lines.
inline std::string GETestFormat(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
inline std::string GETestFormat(const char* fmt, ...) {
    char buf[512];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof(buf), fmt, ap);
    va_end(ap);
    return buf;
}

#endif
