// Look-up images: the curves, masks, ramps and dot masks that effects read
// from BMP files into textures.
//
// An image is looked for in the developers' override folder
// "/sdcard/quandor/" first, where the effect allows it, then in the system's
// "/system/media/GPU/"; the effect fails only when no folder has it.
//
//     m_pCurve = GELoadLookUp(s_log, "CurveCross.bmp", GL_RGB, GL_UNSIGNED_BYTE, true,
//                             "[%s] can't new cross tex", "[%s] can't load cross tex");
#ifndef POSTEFFECT_EFFECTS_GELOOKUP_H
#define POSTEFFECT_EFFECTS_GELOOKUP_H

#include <GLES2/gl2.h>

#include "gl/GELog.h"

class GLTexture;

// The two folders, with their trailing slash.
extern const char g_szLookUpOverrideDir[];
extern const char g_szLookUpSystemDir[];

// A new normal texture holding the look-up image `name` (format and type as
// GLTexture::LoadBMP takes them), wrapping with `wrap` on S and T and
// filtering linearly. Null when it cannot be had: `szNewFail` (or, when it
// is null, `szLoadFail`) is logged when the texture cannot be allocated,
// `szLoadFail` when no folder has a readable image; both are error-line
// formats taking the function name "Init". Nothing is left behind on failure.
GLTexture* GELoadLookUp(GELogTag& log, const char* name, unsigned format, unsigned type,
                        bool bOverride, const char* szNewFail, const char* szLoadFail,
                        GLenum wrap = GL_CLAMP_TO_EDGE);

// The vignette mask for a picture of width / height `ratio`: the wide mask
// when the ratio lies within `tolerance` of 16:9 or 5:3, the legacy mask
// otherwise.
const char* GEVignetteMaskName(float ratio, float tolerance);

extern const char g_szMaskWide[];    // "mask_vignette_wide.bmp"
extern const char g_szMaskLegacy[];  // "mask_vignette_legacy.bmp"

// The "empty leak texture" of the curve looks: 16 x 16 RGB 5-6-5 with every
// bit set (pure white), clamped, filtered linearly; it stands in for the
// vignette mask where a look has none. Null with one of the effect's error
// lines ("[Init] can't new empty tex", "[Init] can't init empty leak
// texture", "[Init] can't UpdateNormalTexture for empty texture") when it
// cannot be made.
GLTexture* GENewLeakTexture(GELogTag& log);

#endif
