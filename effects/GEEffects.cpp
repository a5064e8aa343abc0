#include "effects/GEEffects.h"

#include <new>

#include "effects/GEShaderBloom.h"
#include "effects/GEShaderContrast.h"
#include "effects/GEShaderDot.h"
#include "effects/GEShaderFisheye.h"
#include "effects/GEShaderMirror.h"
#include "effects/GEShaderSplitToning.h"
#include "effects/GEShaderStylize.h"
#include "effects/GEShaderTwoToneMask.h"
#include "effects/GEShaderVignette.h"
#include "effects/GEShaderVintage.h"
#include "effects/GEShaderWhiteboard.h"

namespace {

template <class T>
GEShader* Create() {
    return new (std::nothrow) T();
}

const GEEffectEntry s_table[GE_EFFECT_COUNT] = {
    {nullptr, nullptr},                              // 0: no effect
    {"GEShaderVintage", nullptr},                    // 1
    {"GEShaderDoF", nullptr},                        // 2
    {"GEShaderFisheye", Create<GEShaderFisheye>},    // 3
    {"GEShaderVignette", Create<GEShaderVignette>},  // 4
    {"GEShaderDot", Create<GEShaderDot>},            // 5
    {"GEShaderContrast", nullptr},                   // 6
    {"GEShaderTS", nullptr},                         // 7
    {"GEShaderMirror", Create<GEShaderMirror>},      // 8
    {"GEShaderBloom", Create<GEShaderBloom>},        // 9
    {"GEShaderWhiteboard", nullptr},                 // 10
    {"GEShaderStylizeMaple", nullptr},               // 11
    {"GEShaderStylizeNash", nullptr},                // 12
    {"GEShaderTwoToneMaskV", nullptr},               // 13
    {"GEShaderTwoToneMaskH", nullptr},               // 14
    {"GEShaderSplitToningCM", nullptr},              // 15
    {"GEShaderSplitToningSC", nullptr},              // 16
    {"GEShaderSketch", nullptr},                     // 17
    {"GEShaderColorSketch", nullptr},                // 18
};

}  // namespace

const GEEffectEntry* GEEffectLookUp(unsigned effect) {
    return effect < GE_EFFECT_COUNT ? &s_table[effect] : nullptr;
}
