// The built-in font and the contact sheet.
#include <gtest/gtest.h>
#include <string.h>

#include <set>
#include <string>

#include "ToolTestUtil.h"
#include "contact.h"
#include "font.h"
#include "options.h"

using tooltest::Solid;

namespace {

const uint8_t kWhite[3] = {255, 255, 255};
const uint8_t kRed[3] = {255, 0, 0};
const uint8_t kGreen[3] = {0, 255, 0};
const uint8_t kBlue[3] = {0, 0, 255};

bool Is(const RGBImage& img, int x, int y, const uint8_t c[3]) {
    return memcmp(img.Pixel(x, y), c, 3) == 0;
}

// The bounding box of the pixels of one colour (x1 < 0 when there are none).
struct Box {
    int x0 = 1 << 30, y0 = 1 << 30, x1 = -1, y1 = -1;
    int Width() const { return x1 - x0 + 1; }
    int Height() const { return y1 - y0 + 1; }
};

Box Find(const RGBImage& img, const uint8_t c[3]) {
    Box b;
    for (int y = 0; y < img.m_nHeight; ++y) {
        for (int x = 0; x < img.m_nWidth; ++x) {
            if (Is(img, x, y, c)) {
                b = {std::min(b.x0, x), std::min(b.y0, y), std::max(b.x1, x), std::max(b.y1, y)};
            }
        }
    }
    return b;
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

RGBImage Block(const uint8_t c[3], int w, int h) {
    return Solid(w, h, c[0], c[1], c[2]);
}

}  // namespace

TEST(ToolFont, GlyphsCoverTheLabelsAndDiffer) {
    for (const EffectInfo& e : EffectTable()) {
        for (const char* p = e.m_szName; *p; ++p) {
            EXPECT_TRUE(HasGlyph(*p)) << "'" << *p << "' of " << e.m_szName;
        }
    }
    for (const char* p = "none Original ()0123456789-,.:x"; *p; ++p) {
        EXPECT_TRUE(HasGlyph(*p)) << "'" << *p << "'";
    }
    // Catches a glyph copied over another by mistake, and empty ones.
    std::set<std::string> seen;
    for (char c = 33; c < 127; ++c) {
        if (HasGlyph(c)) {
            const std::string bits = Bitmap(c);
            EXPECT_NE(std::string::npos, bits.find('#')) << "'" << c << "' is blank";
            EXPECT_TRUE(seen.insert(bits).second) << "'" << c << "' looks like another glyph";
        }
    }
    EXPECT_GT(seen.size(), 80u);
    EXPECT_EQ(std::string::npos, Bitmap(' ').find('#'));
    // Only descenders reach below the baseline (rows 7 and 8).
    for (char c : std::string("gjpqy,;_|ABCabc019")) {
        const bool bLow = Bitmap(c).find('#', 7 * kGlyphWidth) != std::string::npos;
        EXPECT_EQ(strchr("gjpqy,;_|", c) != nullptr, bLow) << c;
    }
    EXPECT_FALSE(GlyphBit('A', -1, 0));
    EXPECT_FALSE(GlyphBit('A', kGlyphWidth, 0));
    EXPECT_FALSE(GlyphBit('A', 0, kGlyphHeight));
    // Characters without a glyph come out as an outlined box.
    EXPECT_FALSE(HasGlyph('\x01'));
    EXPECT_FALSE(HasGlyph('~'));
    EXPECT_EQ(
        "#####"
        "#...#",
        Bitmap('\x01').substr(0, 10));
    EXPECT_EQ(Bitmap('\x01'), Bitmap('~'));
}

TEST(ToolFont, TextSize) {
    EXPECT_EQ(0, TextWidth("", 3));
    EXPECT_EQ(5, TextWidth("A", 1));
    EXPECT_EQ(11, TextWidth("AB", 1));
    EXPECT_EQ(22, TextWidth("AB", 2));
    EXPECT_EQ(27, TextHeight(3));
}

TEST(ToolFont, DrawPlacesScaledDotsAndClips) {
    RGBImage img = Solid(20, 24, 0, 0, 0);
    DrawText(&img, 3, 2, "T", 2, kWhite);
    // Each dot of the glyph is 2 x 2, from (3, 2).
    for (int y = 0; y < img.m_nHeight; ++y) {
        for (int x = 0; x < img.m_nWidth; ++x) {
            const bool bWant = x >= 3 && y >= 2 && GlyphBit('T', (x - 3) / 2, (y - 2) / 2);
            ASSERT_EQ(bWant, Is(img, x, y, kWhite)) << x << "," << y;
        }
    }
    img = Solid(8, 8, 0, 0, 0);
    // The bar of the first H (its fourth row) lands on row 0.
    DrawText(&img, -4, -9, "HH", 3, kWhite);
    DrawText(&img, 6, 6, "WW", 3, kWhite);
    DrawText(&img, 100, 100, "X", 1, kWhite);
    DrawText(&img, -100, 3, "X", 1, kWhite);
    const Box b = Find(img, kWhite);
    EXPECT_EQ(0, b.x0);
    EXPECT_EQ(0, b.y0);
    EXPECT_EQ(7, b.x1);
    EXPECT_EQ(7, b.y1);
}

TEST(ToolContact, CellsInRowsWithLabelsUnderThePictures) {
    std::vector<ContactCell> cells(3);
    cells[0].m_strLabel = "One";
    cells[0].m_vPictures = {Block(kRed, 40, 30), Block(kGreen, 20, 30)};
    cells[1].m_strLabel = "Two";
    cells[1].m_vPictures = {Block(kBlue, 50, 20)};
    cells[2].m_strLabel = "A label far too long for its cell";
    RGBImage sheet;
    MakeContactSheet("", cells, 2, &sheet);

    const Box r = Find(sheet, kRed), g = Find(sheet, kGreen), b = Find(sheet, kBlue);
    // Pictures unscaled, side by side in a cell, tops aligned; the second
    // cell to the right.
    EXPECT_EQ(40, r.Width());
    EXPECT_EQ(30, r.Height());
    EXPECT_EQ(20, g.Width());
    EXPECT_EQ(50, b.Width());
    EXPECT_EQ(20, b.Height());
    EXPECT_EQ(r.x1 + 1 + kSheetPictureGap, g.x0);
    EXPECT_EQ(r.y0, g.y0);
    EXPECT_EQ(r.y0, b.y0);
    EXPECT_GT(b.x0, g.x1 + kSheetMargin - 1);
    EXPECT_EQ(kSheetMargin, r.x0);
    EXPECT_EQ(kSheetMargin, r.y0);

    // Labels: white only below the pictures' row, starting at each cell's
    // left edge; the third cell sits on a second row.
    const Box w = Find(sheet, kWhite);
    EXPECT_EQ(r.y1 + 1 + kSheetLabelGap, w.y0);
    EXPECT_EQ(r.x0, w.x0);
    // "Two" starts with the top bar of its T.
    EXPECT_TRUE(Is(sheet, b.x0, w.y0, kWhite)) << "no label under the second cell";
    EXPECT_GT(w.y1, w.y0 + TextHeight(kSheetLabelScale)) << "no label on the second row";
    // The long label stops at its cell's right edge (the cell is as wide as
    // the widest cell, the first one: 40 + gap + 20).
    const int nCellRight = r.x0 + 40 + kSheetPictureGap + 20 - 1;
    for (int y = w.y1 - TextHeight(kSheetLabelScale); y <= w.y1; ++y) {
        for (int x = nCellRight + 1; x < sheet.m_nWidth; ++x) {
            ASSERT_FALSE(Is(sheet, x, y, kWhite)) << x << "," << y;
        }
    }
    EXPECT_EQ(kSheetMargin + 2 * (40 + kSheetPictureGap + 20 + kSheetMargin), sheet.m_nWidth);
}

TEST(ToolContact, OneColumnStacksAndTitleGoesFirst) {
    std::vector<ContactCell> cells(2);
    cells[0].m_vPictures = {Block(kRed, 10, 10)};
    cells[1].m_vPictures = {Block(kBlue, 10, 10)};
    RGBImage sheet;
    MakeContactSheet("Title", cells, 1, &sheet);
    const Box r = Find(sheet, kRed), b = Find(sheet, kBlue), w = Find(sheet, kWhite);
    EXPECT_EQ(r.x0, b.x0);
    EXPECT_GT(b.y0, r.y1);
    // The title is above the first picture and makes the sheet wide enough.
    EXPECT_EQ(kSheetMargin, w.y0);
    EXPECT_LT(w.y1, r.y0);
    EXPECT_GE(sheet.m_nWidth, TextWidth("Title", kSheetTitleScale) + 2 * kSheetMargin);
}

TEST(ToolContact, ThumbnailKeepsAspect) {
    const RGBImage t = Thumbnail(Solid(400, 300, 9, 9, 9), 60);
    EXPECT_EQ(80, t.m_nWidth);
    EXPECT_EQ(60, t.m_nHeight);
    EXPECT_EQ(9, t.Pixel(40, 30)[0]);
}
