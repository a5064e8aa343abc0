// Pictures of look-up images for people: a curve image as a plot of its
// red, green and blue curves, a ramp as its rows enlarged, a mask stretched
// as an effect stretches it and in the colours it multiplies with (a 24-bit
// file's bytes taken in file order), a dot mask as a patch of mosaic cells.
#ifndef POSTEFFECT_TOOLS_LOOKS_LOOKPREVIEW_H
#define POSTEFFECT_TOOLS_LOOKS_LOOKPREVIEW_H

#include <string>

#include "imageio.h"
#include "lookbmp.h"

enum LookShow { kShowCurve, kShowRamp, kShowMask, kShowDots };

bool LookShowFromName(const std::string& name, LookShow* pShow);
// 16 bits: dots; 24 bits with every row alike: a curve; 24 bits whose width
// is 256 (the curve width): a ramp; anything else: a mask.
LookShow GuessLookShow(const LookBitmap& bmp);
// The picture, with title written over it.
RGBImage LookPreview(const LookBitmap& bmp, LookShow show, const std::string& title);

#endif
