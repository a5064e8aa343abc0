#include "lookpreview.h"

#include <math.h>
#include <string.h>

#include <algorithm>

#include "font.h"

namespace {

const int kMargin = 16;
const int kPlot = 512;       // curve plot side, pixels
const int kMaskWidth = 480;  // a mask is shown at least this wide
const int kDotCells = 6;     // dot cells a side
const int kDotCellPixels = 48;
const int kRampHeight = 320;  // a ramp is shown about this high
const uint8_t kBackground[3] = {32, 32, 32};
const uint8_t kText[3] = {235, 235, 235};
const uint8_t kGrid[3] = {64, 64, 64};

// Channel c of the texture made from the bitmap, as the GPU reads it with
// linear filtering at (s, t): clamped at the edges, or repeated. A 24-bit
// file's bytes go to the texture in file order, blue first.
double Sample(const LookBitmap& bmp, double s, double t, int c, bool bRepeat) {
    const double px = s * bmp.m_nWidth - 0.5, py = t * bmp.m_nHeight - 0.5;
    const int x0 = int(floor(px)), y0 = int(floor(py));
    const double fx = px - x0, fy = py - y0;
    auto at = [&](int x, int y) {
        if (bRepeat) {
            x = ((x % bmp.m_nWidth) + bmp.m_nWidth) % bmp.m_nWidth;
            y = ((y % bmp.m_nHeight) + bmp.m_nHeight) % bmp.m_nHeight;
        } else {
            x = std::min(bmp.m_nWidth - 1, std::max(0, x));
            y = std::min(bmp.m_nHeight - 1, std::max(0, y));
        }
        return double(bmp.Pixel(x, y)[bmp.m_nBits == 8 ? 0 : bmp.m_nBits == 24 ? 2 - c : c]);
    };
    return (1 - fy) * ((1 - fx) * at(x0, y0) + fx * at(x0 + 1, y0)) +
           fy * ((1 - fx) * at(x0, y0 + 1) + fx * at(x0 + 1, y0 + 1));
}

RGBImage Canvas(int w, int h, const std::string& title, int* pnTop) {
    *pnTop = kMargin + TextHeight(2) + kMargin / 2;
    RGBImage img;
    img.Resize(w + 2 * kMargin, h + *pnTop + kMargin);
    for (int y = 0; y < img.m_nHeight; ++y) {
        for (int x = 0; x < img.m_nWidth; ++x) {
            memcpy(img.Pixel(x, y), kBackground, 3);
        }
    }
    DrawText(&img, kMargin, kMargin, title, 2, kText);
    return img;
}

void Plot(RGBImage* pImg, int x, int y, const uint8_t* colour) {
    if (x >= 0 && y >= 0 && x < pImg->m_nWidth && y < pImg->m_nHeight) {
        memcpy(pImg->Pixel(x, y), colour, 3);
    }
}

RGBImage CurvePlot(const LookBitmap& bmp, const std::string& title) {
    int top = 0;
    RGBImage img = Canvas(kPlot, kPlot, title, &top);
    for (int i = 0; i <= kPlot; i += kPlot / 8) {
        for (int j = 0; j < kPlot; ++j) {
            Plot(&img, kMargin + i, top + j, kGrid);
            Plot(&img, kMargin + j, top + i, kGrid);
        }
    }
    for (int j = 0; j < kPlot; ++j) {
        Plot(&img, kMargin + j, top + kPlot - j, kGrid);
    }
    // Each curve lights its own channel, so where curves meet the line mixes
    // (white where all three agree).
    for (int c = 0; c < 3; ++c) {
        int prev = -1;
        for (int x = 0; x < kPlot; ++x) {
            const double v = Sample(bmp, (x + 0.5) / kPlot, 0, 2 - c, false);
            const int y = kPlot - 1 - int(lround(v * (kPlot - 1) / 255));
            const int from = prev < 0 ? y : std::min(prev, y),
                      to = prev < 0 ? y : std::max(prev, y);
            for (int yy = from - 1; yy <= to + 1; ++yy) {
                if (yy >= 0 && yy < kPlot) {
                    uint8_t* p = img.Pixel(kMargin + x, top + yy);
                    if (p[0] == p[1] && p[1] == p[2]) {
                        p[0] = p[1] = p[2] = 0;
                    }
                    p[c] = 255;
                }
            }
            prev = y;
        }
    }
    return img;
}

RGBImage Stretched(const LookBitmap& bmp, int w, int h, int nRepeat, const std::string& title) {
    int top = 0;
    RGBImage img = Canvas(w, h, title, &top);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const double s = (x + 0.5) / w * nRepeat, t = 1 - (y + 0.5) / h * nRepeat;
            uint8_t* p = img.Pixel(kMargin + x, top + y);
            for (int c = 0; c < 3; ++c) {
                p[c] = uint8_t(lround(Sample(bmp, s, t, c, nRepeat > 1)));
            }
        }
    }
    return img;
}

RGBImage RampRows(const LookBitmap& bmp, const std::string& title) {
    const int nLabel = TextWidth("t=0.0", 1) + 6;
    const int nRowPixels = std::max(2, kRampHeight / bmp.m_nHeight);
    const int w = bmp.m_nWidth * std::max(1, 512 / bmp.m_nWidth), h = nRowPixels * bmp.m_nHeight;
    int top = 0;
    RGBImage img = Canvas(w + nLabel, h, title, &top);
    const RGBImage pic = LookBitmapPicture(bmp);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            memcpy(img.Pixel(kMargin + nLabel + x, top + y),
                   pic.Pixel(x * bmp.m_nWidth / w, y / nRowPixels), 3);
        }
    }
    for (int i = 0; i <= 10; ++i) {
        const int y = top + int(lround((1 - i / 10.0) * h));
        const std::string label = i == 10 ? "t=1" : "t=0." + std::to_string(i);
        DrawText(&img, kMargin, std::min(y, top + h - TextHeight(1)) - TextHeight(1) / 2, label, 1,
                 kText);
    }
    return img;
}

}  // namespace

bool LookShowFromName(const std::string& name, LookShow* pShow) {
    const char* const kNames[] = {"curve", "ramp", "mask", "dots"};
    for (int i = 0; i < 4; ++i) {
        if (name == kNames[i]) {
            *pShow = LookShow(i);
            return true;
        }
    }
    return false;
}

LookShow GuessLookShow(const LookBitmap& bmp) {
    if (bmp.m_nBits == 16) {
        return kShowDots;
    }
    if (bmp.m_nBits == 8) {
        return kShowMask;
    }
    const size_t nRow = size_t(bmp.m_nWidth) * 3;
    bool bAlike = true;
    for (int y = 1; y < bmp.m_nHeight && bAlike; ++y) {
        bAlike = memcmp(bmp.Pixel(0, y), bmp.Pixel(0, 0), nRow) == 0;
    }
    return bAlike ? kShowCurve : bmp.m_nWidth == 256 ? kShowRamp : kShowMask;
}

RGBImage LookPreview(const LookBitmap& bmp, LookShow show, const std::string& title) {
    switch (show) {
        case kShowCurve:
            return CurvePlot(bmp, title);
        case kShowRamp:
            return RampRows(bmp, title);
        case kShowDots:
            return Stretched(bmp, kDotCells * kDotCellPixels, kDotCells * kDotCellPixels, kDotCells,
                             title);
        case kShowMask:
            break;
    }
    const int w = std::max(kMaskWidth, bmp.m_nWidth);
    return Stretched(bmp, w, int(lround(double(w) * bmp.m_nHeight / bmp.m_nWidth)), 1, title);
}
