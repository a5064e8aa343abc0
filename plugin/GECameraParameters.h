// The plug-in's view of the camera parameters: the effect code and the
// integer parameter groups.
//
//     "GPU-effect=9;GE-param0=1,0,0,0"  ->  effect 9 (Bloom), group 0 = 1, 0, 0, 0
#ifndef POSTEFFECT_PLUGIN_GECAMERAPARAMETERS_H
#define POSTEFFECT_PLUGIN_GECAMERAPARAMETERS_H

#include <camera/CameraParameters.h>

namespace android {

class GECameraParameters : public CameraParameters {
public:
    static const char KEY_GPU_EFFECT[];
    static const char KEY_GPU_EFFECT_PARAM_0[];
    static const char KEY_GPU_EFFECT_PARAM_1[];
    static const char KEY_GPU_EFFECT_PARAM_2[];
    static const char KEY_GPU_EFFECT_PARAM_3[];

    // The effect number chosen by the first character of "GPU-effect": 0 to 9
    // for "0".."9", 10 to 18 for "B".."J", -1 for anything else. 0 when
    // `effect` is null or the key is absent (then *effect is -1); otherwise 1,
    // also for an unknown code.
    bool getGPUEffect(int* effect);

    // The four integers "a,b,c,d" of "GE-param<index>", index 0 to 3. 0 for an
    // index out of range, a missing key or a malformed value, and then nothing
    // is written; null pointers are skipped.
    bool getGPUEffectParam(int index, int* p0, int* p1, int* p2, int* p3);

    // The effect is chosen by the camera application, never by the plug-in.
    void setGPUEffect(int effect);
};

}  // namespace android

#endif
