#include "plugin/GECameraParameters.h"

#include <limits.h>
#include <stdlib.h>

#include "gl/GELog.h"

namespace android {

namespace {

GELogTag s_log(nullptr);

struct EffectCode {
    char code;
    int effect;
    const char* name;
};

// "A" is not a code: the letters start at "B" for 10.
const EffectCode kEffectCodes[] = {
    {'0', 0, "Bypass"},
    {'1', 1, "Vintage"},
    {'2', 2, "DoF"},
    {'3', 3, "Distortion"},
    {'4', 4, "Vignette"},
    {'5', 5, "DOTS"},
    {'6', 6, "Contrast"},
    {'7', 7, "TS"},
    {'8', 8, "Mirror"},
    {'9', 9, "Bloom"},
    {'B', 10, "Whiteboard"},
    {'C', 11, "Stylized_Maple"},
    {'D', 12, "Stylized_Nash"},
    {'E', 13, "TwoToneMask_V"},
    {'F', 14, "TwoToneMask_H"},
    {'G', 15, "SplitToning_Mono"},
    {'H', 16, "SplitToning_Color"},
    {'I', 17, "Sketch"},
    {'J', 18, "Color Sketch"},
};

// One integer as strtol reads it (leading blanks, a sign, decimal digits),
// held to the range of int as on a 32-bit device.
int ReadInt(const char* p, const char** end) {
    char* stop = nullptr;
    long v = strtol(p, &stop, 10);
    *end = stop;
    if (v > INT_MAX) {
        return INT_MAX;
    }
    if (v < INT_MIN) {
        return INT_MIN;
    }
    return (int)v;
}

}  // namespace

const char GECameraParameters::KEY_GPU_EFFECT[] = "GPU-effect";
const char GECameraParameters::KEY_GPU_EFFECT_PARAM_0[] = "GE-param0";
const char GECameraParameters::KEY_GPU_EFFECT_PARAM_1[] = "GE-param1";
const char GECameraParameters::KEY_GPU_EFFECT_PARAM_2[] = "GE-param2";
const char GECameraParameters::KEY_GPU_EFFECT_PARAM_3[] = "GE-param3";

bool GECameraParameters::getGPUEffect(int* effect) {
    GE_LOGD(s_log, "[GECameraParameters::getGPUEffect] enter");
    if (effect == nullptr) {
        GE_LOGD(s_log, "[GECameraParameters::getGPUEffect] null pnEffectNo, leave");
        return false;
    }
    *effect = -1;
    const char* value = get(KEY_GPU_EFFECT);
    if (value == nullptr) {
        GE_LOGD(s_log, "[GECameraParameters::getGPUEffect] leave. no key %s", KEY_GPU_EFFECT);
        return false;
    }
    int number = -1;
    for (const EffectCode& c : kEffectCodes) {
        if (value[0] == c.code) {
            number = c.effect;
            GE_LOGD(s_log, "[GECameraParameters::getGPUEffect] %s", c.name);
            break;
        }
    }
    if (number < 0) {
        GE_LOGD(s_log, "[GECameraParameters::getGPUEffect] invalid value");
    }
    *effect = number;
    GE_LOGD(s_log, "[GECameraParameters::getGPUEffect] leave");
    return true;
}

bool GECameraParameters::getGPUEffectParam(int index, int* p0, int* p1, int* p2, int* p3) {
    static const char* const kKeys[] = {KEY_GPU_EFFECT_PARAM_0, KEY_GPU_EFFECT_PARAM_1,
                                        KEY_GPU_EFFECT_PARAM_2, KEY_GPU_EFFECT_PARAM_3};
    if (index < 0 || index > 3) {
        GE_LOGD(s_log, "[GECameraParameters::getGPUEffectParam] nIdx %d out of range, return",
                index);
        return false;
    }
    const char* value = get(kKeys[index]);
    if (value == nullptr) {
        GE_LOGD(s_log, "[GECameraParameters::getGPUEffectParam] leave. no key %s", kKeys[index]);
        return false;
    }
    // Four integers; each of the first three directly followed by ','.
    int v[4];
    const char* p = value;
    for (int i = 0; i < 4; i++) {
        const char* end = nullptr;
        v[i] = ReadInt(p, &end);
        if (i < 3) {
            if (*end != ',') {
                GE_LOGD(s_log, "[GECameraParameters::getGPUEffectParam] parse_params format error");
                return false;
            }
            end++;
        }
        p = end;
    }
    int* out[4] = {p0, p1, p2, p3};
    for (int i = 0; i < 4; i++) {
        if (out[i] != nullptr) {
            *out[i] = v[i];
        }
    }
    return true;
}

void GECameraParameters::setGPUEffect(int /*effect*/) {}

}  // namespace android
