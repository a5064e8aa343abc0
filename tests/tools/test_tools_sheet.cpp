// The built-in font and the contact sheet.
#include <gtest/gtest.h>
#include <string.h>

#include <set>
#include <string>

#include "contact.h"
#include "font.h"
#include "options.h"

namespace {

const uint8_t kWhite[3] = {255, 255, 255};

RGBImage Solid(int w, int h, uint8_t r, uint8_t g, uint8_t b) {
    RGBImage img;
    img.Resize(w, h);
    for (size_t i = 0; i < img.m_vPixels.size(); i += 3) {
        img.m_vPixels[i] = r;
        img.m_vPixels[i + 1] = g;
        img.m_vPixels[i + 2] = b;
    }
    return img;
}

bool Is(const RGBImage& img, int x, int y, const uint8_t c[3]) {
    return memcmp(img.Pixel(x, y), c, 3) == 0;
}

// The bounding box of the pixels of colour c; false when there are none.
bool Find(const RGBImage& img, const uint8_t c[3], int* x0, int* y0, int* x1, int* y1) {
    *x0 = *y0 = 1 << 30;
    *x1 = *y1 = -1;
    for (int y = 0; y < img.m_nHeight; ++y) {
        for (int x = 0; x < img.m_nWidth; ++x) {
            if (Is(img, x, y, c)) {
                *x0 = std::min(*x0, x);
                *y0 = std::min(*y0, y);
                *x1 = std::max(*x1, x);
                *y1 = std::max(*y1, y);
            }
        }
    }
    return *x1 >= 0;
}

std::string Bitmap(char c) {
    std::string s;
    for (int y = 0; y < kGlyphHeight; ++y) {
        for (int x = 0; x < kGlyphWidth; ++x) {
            s += GlyphBit(c, x, y) ? '#' : '.';
        }
    }
    return s;
}

}  // namespace

TEST(ToolFont, EveryEffectNameCanBeWritten) {
    for (const EffectInfo& e : EffectTable()) {
        for (const char* p = e.m_szName; *p; ++p) {
            EXPECT_TRUE(HasGlyph(*p)) << "'" << *p << "' of " << e.m_szName;
        }
    }
    for (const char* p = "none Original ()0123456789-,.:x"; *p; ++p) {
        EXPECT_TRUE(HasGlyph(*p)) << "'" << *p << "'";
    }
}

TEST(ToolFont, GlyphsAreDistinctAndInked) {
    // Catches a glyph copied over another by mistake, and empty ones.
    std::set<std::string> seen;
    for (char c = 33; c < 127; ++c) {
        if (!HasGlyph(c)) {
            continue;
        }
        const std::string bits = Bitmap(c);
        EXPECT_NE(std::string::npos, bits.find('#')) << "'" << c << "' is blank";
        EXPECT_TRUE(seen.insert(bits).second) << "'" << c << "' looks like another glyph";
    }
    EXPECT_GT(seen.size(), 80u);
    EXPECT_EQ(std::string::npos, Bitmap(' ').find('#'));
    // Only descenders reach below the baseline (rows 7 and 8).
    for (char c : std::string("gjpqy,;_|")) {
        bool bLow = false;
        for (int x = 0; x < kGlyphWidth; ++x) {
            bLow = bLow || GlyphBit(c, x, 7);
        }
        EXPECT_TRUE(bLow) << c;
    }
    for (char c : std::string("ABCabc019")) {
        for (int x = 0; x < kGlyphWidth; ++x) {
            EXPECT_FALSE(GlyphBit(c, x, 7)) << c;
            EXPECT_FALSE(GlyphBit(c, x, 8)) << c;
        }
    }
    EXPECT_FALSE(GlyphBit('A', -1, 0));
    EXPECT_FALSE(GlyphBit('A', kGlyphWidth, 0));
    EXPECT_FALSE(GlyphBit('A', 0, kGlyphHeight));
}

TEST(ToolFont, UnknownCharactersDrawABox) {
    EXPECT_FALSE(HasGlyph('\x01'));
    EXPECT_FALSE(HasGlyph('~'));
    const std::string box = Bitmap('\x01');
    EXPECT_EQ("#####", box.substr(0, 5));
    EXPECT_EQ("#...#", box.substr(5, 5));
    EXPECT_EQ(box, Bitmap('~'));
}

TEST(ToolFont, TextSize) {
    EXPECT_EQ(0, TextWidth("", 3));
    EXPECT_EQ(5, TextWidth("A", 1));
    EXPECT_EQ(11, TextWidth("AB", 1));
    EXPECT_EQ(22, TextWidth("AB", 2));
    EXPECT_EQ(27, TextHeight(3));
}

TEST(ToolFont, DrawPlacesScaledDots) {
    RGBImage img = Solid(20, 24, 0, 0, 0);
    DrawText(&img, 3, 2, "T", 2, kWhite);
    // "T": the top row full, then the middle column. Each dot is 2 x 2.
    for (int y = 0; y < img.m_nHeight; ++y) {
        for (int x = 0; x < img.m_nWidth; ++x) {
            const int gx = (x - 3) >= 0 ? (x - 3) / 2 : -1;
            const int gy = (y - 2) >= 0 ? (y - 2) / 2 : -1;
            const bool bWant = gx >= 0 && gy >= 0 && GlyphBit('T', gx, gy);
            ASSERT_EQ(bWant, Is(img, x, y, kWhite)) << x << "," << y;
        }
    }
    int x0, y0, x1, y1;
    ASSERT_TRUE(Find(img, kWhite, &x0, &y0, &x1, &y1));
    EXPECT_EQ(3, x0);
    EXPECT_EQ(2, y0);
    EXPECT_EQ(3 + 2 * 5 - 1, x1);
    EXPECT_EQ(2 + 2 * 7 - 1, y1);
}

TEST(ToolFont, DrawClipsAtTheEdges) {
    RGBImage img = Solid(8, 8, 0, 0, 0);
    // The bar of the first H (its fourth row) lands on row 0.
    DrawText(&img, -4, -9, "HH", 3, kWhite);
    DrawText(&img, 6, 6, "WW", 3, kWhite);
    DrawText(&img, 100, 100, "X", 1, kWhite);
    DrawText(&img, -100, 3, "X", 1, kWhite);
    int x0, y0, x1, y1;
    ASSERT_TRUE(Find(img, kWhite, &x0, &y0, &x1, &y1));
    EXPECT_EQ(0, x0);
    EXPECT_EQ(0, y0);
    EXPECT_EQ(7, x1);
    EXPECT_EQ(7, y1);
}

TEST(ToolContact, CellsInRowsWithLabelsUnderThePictures) {
    const uint8_t kRed[3] = {255, 0, 0};
    const uint8_t kGreen[3] = {0, 255, 0};
    const uint8_t kBlue[3] = {0, 0, 255};
    std::vector<ContactCell> cells(3);
    cells[0].m_strLabel = "One";
    cells[0].m_vPictures.push_back(Solid(40, 30, 255, 0, 0));
    cells[0].m_vPictures.push_back(Solid(20, 30, 0, 255, 0));
    cells[1].m_strLabel = "Two";
    cells[1].m_vPictures.push_back(Solid(50, 20, 0, 0, 255));
    cells[2].m_strLabel = "A label far too long for its cell";
    RGBImage sheet;
    MakeContactSheet("", cells, 2, &sheet);

    int rx0, ry0, rx1, ry1, gx0, gy0, gx1, gy1, bx0, by0, bx1, by1;
    ASSERT_TRUE(Find(sheet, kRed, &rx0, &ry0, &rx1, &ry1));
    ASSERT_TRUE(Find(sheet, kGreen, &gx0, &gy0, &gx1, &gy1));
    ASSERT_TRUE(Find(sheet, kBlue, &bx0, &by0, &bx1, &by1));
    // Pictures unscaled.
    EXPECT_EQ(40, rx1 - rx0 + 1);
    EXPECT_EQ(30, ry1 - ry0 + 1);
    EXPECT_EQ(20, gx1 - gx0 + 1);
    EXPECT_EQ(50, bx1 - bx0 + 1);
    EXPECT_EQ(20, by1 - by0 + 1);
    // Side by side in a cell, tops aligned; the second cell to the right.
    EXPECT_EQ(rx1 + 1 + kSheetPictureGap, gx0);
    EXPECT_EQ(ry0, gy0);
    EXPECT_EQ(ry0, by0);
    EXPECT_GT(bx0, gx1 + kSheetMargin - 1);
    EXPECT_EQ(kSheetMargin, rx0);
    EXPECT_EQ(kSheetMargin, ry0);

    // Labels: white only below the pictures' row, starting at each cell's
    // left edge; the third cell sits on a second row.
    int wx0, wy0, wx1, wy1;
    ASSERT_TRUE(Find(sheet, kWhite, &wx0, &wy0, &wx1, &wy1));
    EXPECT_EQ(ry1 + 1 + kSheetLabelGap, wy0);
    EXPECT_EQ(rx0, wx0);
    // "Two" starts with the top bar of its T.
    EXPECT_TRUE(Is(sheet, bx0, wy0, kWhite)) << "no label under the second cell";
    EXPECT_GT(wy1, wy0 + TextHeight(kSheetLabelScale)) << "no label on the second row";
    // The long label stops at its cell's right edge (the cell is as wide as
    // the widest cell, the first one: 40 + gap + 20).
    const int nCellRight = rx0 + 40 + kSheetPictureGap + 20 - 1;
    for (int y = wy1 - TextHeight(kSheetLabelScale); y <= wy1; ++y) {
        for (int x = nCellRight + 1; x < sheet.m_nWidth; ++x) {
            ASSERT_FALSE(Is(sheet, x, y, kWhite)) << x << "," << y;
        }
    }
    EXPECT_EQ(kSheetMargin + 2 * (40 + kSheetPictureGap + 20 + kSheetMargin), sheet.m_nWidth);
}

TEST(ToolContact, OneColumnStacksAndTitleGoesFirst) {
    std::vector<ContactCell> cells(2);
    cells[0].m_vPictures.push_back(Solid(10, 10, 255, 0, 0));
    cells[1].m_vPictures.push_back(Solid(10, 10, 0, 0, 255));
    RGBImage sheet;
    MakeContactSheet("Title", cells, 1, &sheet);
    const uint8_t kRed[3] = {255, 0, 0};
    const uint8_t kBlue[3] = {0, 0, 255};
    int rx0, ry0, rx1, ry1, bx0, by0, bx1, by1, wx0, wy0, wx1, wy1;
    ASSERT_TRUE(Find(sheet, kRed, &rx0, &ry0, &rx1, &ry1));
    ASSERT_TRUE(Find(sheet, kBlue, &bx0, &by0, &bx1, &by1));
    ASSERT_TRUE(Find(sheet, kWhite, &wx0, &wy0, &wx1, &wy1));
    EXPECT_EQ(rx0, bx0);
    EXPECT_GT(by0, ry1);
    // The title is above the first picture and makes the sheet wide enough.
    EXPECT_EQ(kSheetMargin, wy0);
    EXPECT_LT(wy1, ry0);
    EXPECT_GE(sheet.m_nWidth, TextWidth("Title", kSheetTitleScale) + 2 * kSheetMargin);
}

TEST(ToolContact, ThumbnailKeepsAspect) {
    const RGBImage t = Thumbnail(Solid(400, 300, 9, 9, 9), 60);
    EXPECT_EQ(80, t.m_nWidth);
    EXPECT_EQ(60, t.m_nHeight);
    EXPECT_EQ(9, t.Pixel(40, 30)[0]);
}
