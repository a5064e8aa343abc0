// The contact sheet: one cell per effect, its pictures side by side and its
// name underneath, cells in a grid under a title line.
#ifndef POSTEFFECT_TOOLS_CONTACT_H
#define POSTEFFECT_TOOLS_CONTACT_H

#include <string>
#include <vector>

#include "imageio.h"

struct ContactCell {
    std::string m_strLabel;
    std::vector<RGBImage> m_vPictures;  // placed as they are, left to right
};

const int kSheetMargin = 16;     // around the sheet and between cells
const int kSheetPictureGap = 8;  // between the pictures of a cell
const int kSheetLabelGap = 6;    // between the pictures and the label
const int kSheetLabelScale = 2;  // label font scale
const int kSheetTitleScale = 3;  // title font scale
const uint8_t kSheetBackground[3] = {40, 40, 40};
const uint8_t kSheetText[3] = {255, 255, 255};

// A copy of src scaled to nHeight pixels high, aspect ratio kept.
RGBImage Thumbnail(const RGBImage& src, int nHeight);

// Lays out the cells row by row, nColumns to a row; every cell is as wide as
// the widest and as high as the highest. A label wider than its cell is cut
// at the cell's edge. An empty title leaves no title line.
void MakeContactSheet(const std::string& title, const std::vector<ContactCell>& cells, int nColumns,
                      RGBImage* pSheet);

#endif
