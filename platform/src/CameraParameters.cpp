// Host camera parameter set: "key=value" pairs joined by ";", kept sorted by
// key.
#include <camera/CameraParameters.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "GEHostState.h"

namespace android {

namespace {

const char* const kTag = "CameraParameters";

bool HasSeparator(const char* text) {
    return strpbrk(text, "=;") != nullptr;
}

}  // namespace

CameraParameters::CameraParameters() {}

CameraParameters::~CameraParameters() {}

String8 CameraParameters::flatten() const {
    String8 flat;
    for (size_t i = 0; i < mMap.size(); ++i) {
        if (i != 0) {
            flat.append(";");
        }
        flat.append(mMap.keyAt(i));
        flat.append("=");
        flat.append(mMap.valueAt(i));
    }
    return flat;
}

void CameraParameters::unflatten(const String8& params) {
    mMap.clear();
    const char* p = params.c_str();
    while (*p != '\0') {
        const char* end = strchr(p, ';');
        size_t len = end ? (size_t)(end - p) : strlen(p);
        const char* eq = (const char*)memchr(p, '=', len);
        if (eq == nullptr) {
            break;
        }
        String8 key(p, (size_t)(eq - p));
        String8 value(eq + 1, (size_t)(p + len - eq - 1));
        mMap.add(key, value);
        if (end == nullptr) {
            break;
        }
        p = end + 1;
    }
}

void CameraParameters::set(const char* key, const char* value) {
    if (key == nullptr || value == nullptr) {
        gehost::HostLog(6, kTag, "[set] null key or value refused");
        return;
    }
    if (HasSeparator(key)) {
        gehost::HostLog(6, kTag, "[set] key \"%s\" holds '=' or ';', refused", key);
        return;
    }
    if (HasSeparator(value)) {
        gehost::HostLog(6, kTag, "[set] value \"%s\" holds '=' or ';', refused", value);
        return;
    }
    mMap.replaceValueFor(String8(key), String8(value));
}

void CameraParameters::set(const char* key, int value) {
    char text[16];
    snprintf(text, sizeof(text), "%d", value);
    set(key, text);
}

void CameraParameters::setFloat(const char* key, float value) {
    char text[32];
    snprintf(text, sizeof(text), "%g", (double)value);
    set(key, text);
}

const char* CameraParameters::get(const char* key) const {
    if (key == nullptr) {
        return nullptr;
    }
    ssize_t index = mMap.indexOfKey(String8(key));
    return index < 0 ? nullptr : mMap.valueAt((size_t)index).c_str();
}

int CameraParameters::getInt(const char* key) const {
    const char* value = get(key);
    return value == nullptr ? -1 : (int)strtol(value, nullptr, 10);
}

float CameraParameters::getFloat(const char* key) const {
    const char* value = get(key);
    return value == nullptr ? -1.0f : strtof(value, nullptr);
}

void CameraParameters::remove(const char* key) {
    if (key != nullptr) {
        mMap.removeItem(String8(key));
    }
}

void CameraParameters::dump() const {
    gehost::HostLog(3, kTag, "[dump] %zu parameters", mMap.size());
    for (size_t i = 0; i < mMap.size(); ++i) {
        gehost::HostLog(3, kTag, "[dump] %s: %s", mMap.keyAt(i).c_str(), mMap.valueAt(i).c_str());
    }
}

}  // namespace android
