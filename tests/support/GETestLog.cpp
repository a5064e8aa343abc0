#include "GETestLog.h"

#include <android/log.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <mutex>

#include "gl/GELog.h"

namespace {

std::mutex s_lock;
std::vector<GETestLogLine>* s_pLines = nullptr;

void Logger(const struct __android_logger_data* data, const char* message) {
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

struct Install {
    Install() {
        __android_log_set_logger(Logger);
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    }
};

}  // namespace

GETestLog::GETestLog() {
    static Install s_install;
    {
        std::lock_guard<std::mutex> lock(s_lock);
        s_pLines = new std::vector<GETestLogLine>();
    }
    SetMasks("*=0xff");
}

GETestLog::~GETestLog() {
    std::lock_guard<std::mutex> lock(s_lock);
    delete s_pLines;
    s_pLines = nullptr;
}

std::vector<GETestLogLine> GETestLog::Lines() const {
    std::lock_guard<std::mutex> lock(s_lock);
    return *s_pLines;
}

std::vector<std::string> GETestLog::Texts(int priority) const {
    std::vector<std::string> out;
    for (const GETestLogLine& l : Lines()) {
        if (priority < 0 || l.priority == priority) {
            out.push_back(l.text);
        }
    }
    return out;
}

int GETestLog::Count(const std::string& text) const {
    int n = 0;
    for (const GETestLogLine& l : Lines()) {
        n += l.text.find(text) != std::string::npos;
    }
    return n;
}

bool GETestLog::Has(int priority, const std::string& tag, const std::string& text) const {
    for (const GETestLogLine& l : Lines()) {
        if (l.priority == priority && l.tag == tag && l.text.find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}

bool GETestLog::HasExact(int priority, const std::string& tag, const std::string& text) const {
    for (const GETestLogLine& l : Lines()) {
        if (l.priority == priority && l.tag == tag && l.text == text) {
            return true;
        }
    }
    return false;
}

void GETestLog::Clear() {
    std::lock_guard<std::mutex> lock(s_lock);
    s_pLines->clear();
}

std::string GETestLog::Dump() const {
    std::string out;
    for (const GETestLogLine& l : Lines()) {
        out += std::to_string(l.priority) + " " + l.tag + ": " + l.text + "\n";
    }
    return out;
}

void GETestLog::SetMasks(const char* masks) {
    setenv("POSTEFFECT_LOG", masks, 1);
    GELogTag::ResetAll();
}

std::string GETestFormat(const char* fmt, ...) {
    char buf[512];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof(buf), fmt, ap);
    va_end(ap);
    return buf;
}
