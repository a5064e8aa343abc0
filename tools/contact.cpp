#include "contact.h"

#include <string.h>

#include <algorithm>

#include "font.h"
#include "yuv.h"

namespace {

void Fill(RGBImage* pImage, const uint8_t colour[3]) {
    for (size_t i = 0; i < pImage->m_vPixels.size(); i += 3) {
        memcpy(&pImage->m_vPixels[i], colour, 3);
    }
}

void Paste(const RGBImage& src, int x, int y, RGBImage* pDst) {
    for (int r = 0; r < src.m_nHeight; ++r) {
        const int dy = y + r;
        if (dy < 0 || dy >= pDst->m_nHeight) {
            continue;
        }
        for (int c = 0; c < src.m_nWidth; ++c) {
            const int dx = x + c;
            if (dx >= 0 && dx < pDst->m_nWidth) {
                memcpy(pDst->Pixel(dx, dy), src.Pixel(c, r), 3);
            }
        }
    }
}

}  // namespace

RGBImage Thumbnail(const RGBImage& src, int nHeight) {
    RGBImage thumb;
    const int nWidth = std::max(
        1, int((long(src.m_nWidth) * nHeight + src.m_nHeight / 2) / std::max(1, src.m_nHeight)));
    Resample(src, nWidth, nHeight, &thumb);
    return thumb;
}

void MakeContactSheet(const std::string& title, const std::vector<ContactCell>& cells, int nColumns,
                      RGBImage* pSheet) {
    nColumns = std::max(1, nColumns);
    int nCellW = 0;
    int nPicturesH = 0;
    for (const ContactCell& cell : cells) {
        int w = 0;
        for (const RGBImage& pic : cell.m_vPictures) {
            w += pic.m_nWidth + (w > 0 ? kSheetPictureGap : 0);
            nPicturesH = std::max(nPicturesH, pic.m_nHeight);
        }
        nCellW = std::max(nCellW, w);
    }
    const int nLabelH = TextHeight(kSheetLabelScale);
    const int nCellH = nPicturesH + kSheetLabelGap + nLabelH;
    const int nRows = (int(cells.size()) + nColumns - 1) / nColumns;
    const int nCols = std::min(nColumns, std::max(1, int(cells.size())));
    const int nTitleH = title.empty() ? 0 : TextHeight(kSheetTitleScale) + kSheetMargin;

    int nSheetW = kSheetMargin + nCols * (nCellW + kSheetMargin);
    if (!title.empty()) {
        nSheetW = std::max(nSheetW, TextWidth(title, kSheetTitleScale) + 2 * kSheetMargin);
    }
    const int nSheetH = kSheetMargin + nTitleH + nRows * (nCellH + kSheetMargin);
    RGBImage sheet;
    sheet.Resize(nSheetW, nSheetH);
    Fill(&sheet, kSheetBackground);
    if (!title.empty()) {
        DrawText(&sheet, kSheetMargin, kSheetMargin, title, kSheetTitleScale, kSheetText);
    }
    for (size_t i = 0; i < cells.size(); ++i) {
        const int cx = kSheetMargin + int(i % size_t(nColumns)) * (nCellW + kSheetMargin);
        const int cy = kSheetMargin + nTitleH + int(i / size_t(nColumns)) * (nCellH + kSheetMargin);
        int x = cx;
        for (const RGBImage& pic : cells[i].m_vPictures) {
            Paste(pic, x, cy, &sheet);
            x += pic.m_nWidth + kSheetPictureGap;
        }
        // The label is drawn into a cell-sized strip so that a long one is
        // cut at the cell's edge rather than running into its neighbour.
        RGBImage strip;
        strip.Resize(std::max(1, nCellW), nLabelH);
        Fill(&strip, kSheetBackground);
        DrawText(&strip, 0, 0, cells[i].m_strLabel, kSheetLabelScale, kSheetText);
        Paste(strip, cx, cy + nPicturesH + kSheetLabelGap, &sheet);
    }
    *pSheet = std::move(sheet);
}
