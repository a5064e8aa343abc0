// Image files for the posteffect tool: PNG and JPEG read into, and written
// from, 8-bit RGB pictures.
//
// Every function reports failure with a false result and a message in *pErr
// (when pErr is not null); a damaged or truncated file is an error, never a
// crash.
#ifndef POSTEFFECT_TOOLS_IMAGEIO_H
#define POSTEFFECT_TOOLS_IMAGEIO_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

// 8-bit RGB, rows top to bottom, 3 bytes per pixel, no padding.
struct RGBImage {
    int m_nWidth = 0;
    int m_nHeight = 0;
    std::vector<uint8_t> m_vPixels;

    void Resize(int nWidth, int nHeight);
    bool Empty() const { return m_nWidth <= 0 || m_nHeight <= 0; }
    uint8_t* Pixel(int x, int y) { return &m_vPixels[(size_t(y) * m_nWidth + x) * 3]; }
    const uint8_t* Pixel(int x, int y) const { return &m_vPixels[(size_t(y) * m_nWidth + x) * 3]; }
};

enum ImageFormat { kFormatUnknown, kFormatPng, kFormatJpeg };

// Pictures larger than this many pixels (or wider or taller than
// kMaxImageSide) are refused before any memory is set aside for them.
const long kMaxImagePixels = 100L * 1000 * 1000;
const int kMaxImageSide = 32768;

// PNG or JPEG from the first bytes of a file; kFormatUnknown otherwise.
ImageFormat SniffImageFormat(const uint8_t* pData, size_t nSize);
// PNG or JPEG from a file name's extension (.png, .jpg, .jpeg, any case).
ImageFormat FormatFromPath(const std::string& path);

// Decodes a PNG or JPEG held in memory. Grey, palette, 16-bit and alpha PNGs
// come out as RGB (alpha dropped); grey JPEGs as RGB.
bool DecodeImage(const uint8_t* pData, size_t nSize, RGBImage* pImage, std::string* pErr);
bool EncodePng(const RGBImage& image, std::vector<uint8_t>* pOut, std::string* pErr);
// nQuality 1 to 100.
bool EncodeJpeg(const RGBImage& image, int nQuality, std::vector<uint8_t>* pOut, std::string* pErr);

bool ReadFileBytes(const std::string& path, std::vector<uint8_t>* pOut, std::string* pErr);
bool WriteFileBytes(const std::string& path, const uint8_t* pData, size_t nSize, std::string* pErr);

// Reads a PNG or JPEG file, whatever its extension.
bool ReadImage(const std::string& path, RGBImage* pImage, std::string* pErr);
// Writes PNG or JPEG (quality 92) as the extension says; another extension
// is an error.
bool WriteImage(const std::string& path, const RGBImage& image, std::string* pErr);

#endif
