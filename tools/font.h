// A small built-in bitmap font for labels on the tool's pictures: printable
// ASCII in cells of 5 x 9 pixels (capitals and digits 7 rows high, two rows
// below the baseline for descenders), one blank column between characters.
// Characters without a glyph are drawn as an outlined box.
#ifndef POSTEFFECT_TOOLS_FONT_H
#define POSTEFFECT_TOOLS_FONT_H

#include <stdint.h>

#include <string>

#include "imageio.h"

const int kGlyphWidth = 5;
const int kGlyphHeight = 9;
const int kGlyphAdvance = 6;

bool HasGlyph(char c);
// Whether pixel (x, y) of the glyph of c is set; (0, 0) is its top left.
// Outside the cell: false.
bool GlyphBit(char c, int x, int y);
// Width and height in pixels of text drawn at nScale (pixels per font dot).
int TextWidth(const std::string& text, int nScale);
int TextHeight(int nScale);
// Draws text with its top-left corner at (x, y); dots outside the picture
// are clipped.
void DrawText(RGBImage* pImage, int x, int y, const std::string& text, int nScale,
              const uint8_t colour[3]);

#endif
