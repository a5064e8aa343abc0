#include "effects/GEEffects.h"

#include <new>

#include "effects/GEShaderBloom.h"
#include "effects/GEShaderContrast.h"
#include "effects/GEShaderDoF.h"
#include "effects/GEShaderDot.h"
#include "effects/GEShaderFisheye.h"
#include "effects/GEShaderMirror.h"
#include "effects/GEShaderSketch.h"
#include "effects/GEShaderSplitToning.h"
#include "effects/GEShaderStylize.h"
#include "effects/GEShaderTS.h"
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
    {nullptr, nullptr},                                        // 0: no effect
    {"GEShaderVintage", Create<GEShaderVintage>},              // 1
    {"GEShaderDoF", Create<GEShaderDoF>},                      // 2
    {"GEShaderFisheye", Create<GEShaderFisheye>},              // 3
    {"GEShaderVignette", Create<GEShaderVignette>},            // 4
    {"GEShaderDot", Create<GEShaderDot>},                      // 5
    {"GEShaderContrast", Create<GEShaderContrast>},            // 6
    {"GEShaderTS", Create<GEShaderTS>},                        // 7
    {"GEShaderMirror", Create<GEShaderMirror>},                // 8
    {"GEShaderBloom", Create<GEShaderBloom>},                  // 9
    {"GEShaderWhiteboard", Create<GEShaderWhiteboard>},        // 10
    {"GEShaderStylizeMaple", Create<GEShaderStylizeMaple>},    // 11
    {"GEShaderStylizeNash", Create<GEShaderStylizeNash>},      // 12
    {"GEShaderTwoToneMaskV", Create<GEShaderTwoToneMaskV>},    // 13
    {"GEShaderTwoToneMaskH", Create<GEShaderTwoToneMaskH>},    // 14
    {"GEShaderSplitToningCM", Create<GEShaderSplitToningCM>},  // 15
    {"GEShaderSplitToningSC", Create<GEShaderSplitToningSC>},  // 16
    {"GEShaderSketch", Create<GEShaderSketch>},                // 17
    {"GEShaderColorSketch", Create<GEShaderColorSketch>},      // 18
};

}  // namespace

const GEEffectEntry* GEEffectLookUp(unsigned effect) {
    return effect < GE_EFFECT_COUNT ? &s_table[effect] : nullptr;
}
