// The effect table: effect number (the index the camera parameters select)
// to the class that implements it.
//
// Entry 0 is no effect: number 0 means that frames pass untouched and is
// refused by the manager like any number outside the table. An entry without
// a factory names an effect this build does not carry.
#ifndef POSTEFFECT_EFFECTS_GEEFFECTS_H
#define POSTEFFECT_EFFECTS_GEEFFECTS_H

class GEShader;

// A new instance of one effect class, with its constructor's defaults; null
// when it cannot be allocated.
typedef GEShader* (*GEEffectFactory)();

struct GEEffectEntry {
    const char* szName;         // the class name, null for entry 0
    GEEffectFactory pfnCreate;  // null when the effect is not available
};

// Number of entries, entry 0 included.
static const unsigned GE_EFFECT_COUNT = 19;

// Effect numbers with a meaning of their own to the manager.
static const unsigned GE_EFFECT_MIRROR = 8;
static const unsigned GE_EFFECT_BLOOM = 9;

// The entry of effect number `effect`, null outside the table.
const GEEffectEntry* GEEffectLookUp(unsigned effect);

#endif
