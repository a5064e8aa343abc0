// Look-up images in memory and as BMP files, and files written whole or not
// at all.
//
// The plug-in's reader takes a BMP's pixel bytes verbatim: no row padding,
// the file's first (bottom) row in texture row 0, the bytes of a pixel in the
// texture's channels in file order. The writer makes files that read right
// that way and are also proper BMPs for desktop viewers: widths that need no
// row padding, full headers, a grey palette for 8 bits, BI_BITFIELDS masks
// for 5-6-5.
#ifndef POSTEFFECT_TOOLS_LOOKS_LOOKBMP_H
#define POSTEFFECT_TOOLS_LOOKS_LOOKBMP_H

#include <stdint.h>

#include <string>
#include <vector>

#include "imageio.h"

// Sides of a look-up image; and at most this many pixels.
const int kMaxLookSide = 4096;
const long kMaxLookPixels = 1L << 22;

// A look-up image as a viewer shows it: red, green, blue bytes per pixel,
// rows bottom first (row 0 is texture row 0, read at t near 0). m_nBits is
// the depth it is stored with: 24 (RGB), 16 (RGB 5-6-5) or 8 (grey, taken
// from the red byte).
struct LookBitmap {
    int m_nWidth = 0;
    int m_nHeight = 0;
    int m_nBits = 24;
    std::vector<uint8_t> m_vPixels;

    void Resize(int nWidth, int nHeight, int nBits);
    uint8_t* Pixel(int x, int y) { return &m_vPixels[(size_t(y) * m_nWidth + x) * 3]; }
    const uint8_t* Pixel(int x, int y) const { return &m_vPixels[(size_t(y) * m_nWidth + x) * 3]; }
};

// Whether a width suits a depth: no row padding (24 and 8 bits: a multiple of
// 4; 16 bits: even), 1 to kMaxLookSide. False with the reason.
bool LookWidthOk(int nWidth, int nBits, std::string* pErr);

// The BMP file of a bitmap; its width must suit its depth.
bool EncodeLookBmp(const LookBitmap& bmp, std::vector<uint8_t>* pOut, std::string* pErr);
// A BMP file as a viewer would show it: 24 or 32 bits (BI_RGB, or
// BI_BITFIELDS with the usual masks), 16 bits (5-6-5 or 5-5-5), 8 bits with
// a palette; bottom-up or top-down; rows with or without padding as the
// format says. m_nBits is set from the file.
bool DecodeLookBmp(const uint8_t* pData, size_t nSize, LookBitmap* pBmp, std::string* pErr);

// A BMP or PNG file (PNG rows top first, as shown) into a bitmap of 24 bits.
bool ReadLookPicture(const std::string& path, LookBitmap* pBmp, std::string* pErr);
// The bitmap as an RGB picture, top row first; 8 and 16 bits as stored.
RGBImage LookBitmapPicture(const LookBitmap& bmp);

// Files written whole: each goes to a temporary file in its own folder and
// is renamed over the target only when every file of the set has been
// written, so a failure leaves no partial or half-updated output.
class FileSet {
public:
    void Add(const std::string& path, std::vector<uint8_t> bytes);
    bool Commit(std::string* pErr);

private:
    std::vector<std::pair<std::string, std::vector<uint8_t>>> m_vFiles;
};

#endif
