#include "lookbmp.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const uint32_t kFileHeader = 14;
const uint32_t kInfoHeader = 40;
const uint32_t kBiRgb = 0;
const uint32_t kBiBitfields = 3;
const uint32_t kPixelsPerMetre = 2835;  // 72 dpi

void Put16(std::vector<uint8_t>* p, uint32_t v) {
    p->push_back(uint8_t(v));
    p->push_back(uint8_t(v >> 8));
}

void Put32(std::vector<uint8_t>* p, uint32_t v) {
    Put16(p, v & 0xFFFF);
    Put16(p, v >> 16);
}

uint32_t Get16(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8;
}

uint32_t Get32(const uint8_t* p) {
    return Get16(p) | Get16(p + 2) << 16;
}

// A 5- or 6-bit field expanded to 8 bits and back, rounding.
uint8_t Expand(uint32_t v, uint32_t nMax) {
    return uint8_t((v * 255 + nMax / 2) / nMax);
}

uint32_t Reduce(uint8_t v, uint32_t nMax) {
    return (uint32_t(v) * nMax + 127) / 255;
}

bool Fail(std::string* pErr, const std::string& msg) {
    *pErr = msg;
    return false;
}

}  // namespace

void LookBitmap::Resize(int nWidth, int nHeight, int nBits) {
    m_nWidth = nWidth;
    m_nHeight = nHeight;
    m_nBits = nBits;
    m_vPixels.assign(size_t(nWidth) * size_t(nHeight) * 3, 0);
}

bool LookWidthOk(int nWidth, int nBits, std::string* pErr) {
    if (nWidth < 1 || nWidth > kMaxLookSide) {
        return Fail(pErr, "width " + std::to_string(nWidth) + " is outside 1 to " +
                              std::to_string(kMaxLookSide));
    }
    const int nStep = nBits == 16 ? 2 : 4;
    if (nWidth % nStep != 0) {
        return Fail(pErr, "width " + std::to_string(nWidth) + " of a " + std::to_string(nBits) +
                              "-bit image must be a multiple of " + std::to_string(nStep) +
                              " (rows are read without padding)");
    }
    return true;
}

bool EncodeLookBmp(const LookBitmap& bmp, std::vector<uint8_t>* pOut, std::string* pErr) {
    if (bmp.m_nBits != 24 && bmp.m_nBits != 16 && bmp.m_nBits != 8) {
        return Fail(pErr, "depth " + std::to_string(bmp.m_nBits) + " is not 24, 16 or 8 bits");
    }
    if (!LookWidthOk(bmp.m_nWidth, bmp.m_nBits, pErr)) {
        return false;
    }
    if (bmp.m_nHeight < 1 || bmp.m_nHeight > kMaxLookSide) {
        return Fail(pErr, "height " + std::to_string(bmp.m_nHeight) + " is outside 1 to " +
                              std::to_string(kMaxLookSide));
    }
    const uint32_t nExtra = bmp.m_nBits == 8 ? 256 * 4 : bmp.m_nBits == 16 ? 12 : 0;
    const uint32_t nOffset = kFileHeader + kInfoHeader + nExtra;
    const uint32_t nImage =
        uint32_t(bmp.m_nWidth) * uint32_t(bmp.m_nHeight) * uint32_t(bmp.m_nBits) / 8;
    std::vector<uint8_t> out;
    out.reserve(nOffset + nImage);
    out.push_back('B');
    out.push_back('M');
    Put32(&out, nOffset + nImage);
    Put32(&out, 0);
    Put32(&out, nOffset);
    Put32(&out, kInfoHeader);
    Put32(&out, uint32_t(bmp.m_nWidth));
    Put32(&out, uint32_t(bmp.m_nHeight));
    Put16(&out, 1);
    Put16(&out, uint32_t(bmp.m_nBits));
    Put32(&out, bmp.m_nBits == 16 ? kBiBitfields : kBiRgb);
    Put32(&out, nImage);
    Put32(&out, kPixelsPerMetre);
    Put32(&out, kPixelsPerMetre);
    Put32(&out, bmp.m_nBits == 8 ? 256 : 0);
    Put32(&out, 0);
    if (bmp.m_nBits == 8) {
        for (uint32_t i = 0; i < 256; ++i) {
            Put32(&out, i * 0x010101u);
        }
    } else if (bmp.m_nBits == 16) {
        Put32(&out, 0xF800);
        Put32(&out, 0x07E0);
        Put32(&out, 0x001F);
    }
    const size_t nPixels = size_t(bmp.m_nWidth) * size_t(bmp.m_nHeight);
    for (size_t i = 0; i < nPixels; ++i) {
        const uint8_t* p = &bmp.m_vPixels[i * 3];
        if (bmp.m_nBits == 24) {
            out.insert(out.end(), {p[2], p[1], p[0]});
        } else if (bmp.m_nBits == 16) {
            Put16(&out, Reduce(p[0], 31) << 11 | Reduce(p[1], 63) << 5 | Reduce(p[2], 31));
        } else {
            out.push_back(p[0]);
        }
    }
    *pOut = std::move(out);
    return true;
}

bool DecodeLookBmp(const uint8_t* pData, size_t nSize, LookBitmap* pBmp, std::string* pErr) {
    if (nSize < kFileHeader + kInfoHeader || pData[0] != 'B' || pData[1] != 'M') {
        return Fail(pErr, "not a BMP file");
    }
    const uint32_t nOffset = Get32(pData + 10);
    const uint32_t nInfo = Get32(pData + 14);
    const int32_t nWidth = int32_t(Get32(pData + 18));
    const int32_t nRawHeight = int32_t(Get32(pData + 22));
    const uint32_t nBits = Get16(pData + 28);
    const uint32_t nCompression = Get32(pData + 30);
    if (nInfo < kInfoHeader || nInfo > nSize - kFileHeader) {
        return Fail(pErr, "BMP header of an unknown kind");
    }
    if (nWidth < 1 || nWidth > kMaxLookSide || nRawHeight == 0 || nRawHeight < -kMaxLookSide ||
        nRawHeight > kMaxLookSide) {
        return Fail(pErr, "BMP size " + std::to_string(nWidth) + "x" + std::to_string(nRawHeight) +
                              " is not 1 to " + std::to_string(kMaxLookSide) + " a side");
    }
    const int nHeight = nRawHeight < 0 ? -nRawHeight : nRawHeight;
    if (long(nWidth) * nHeight > kMaxLookPixels) {
        return Fail(pErr, "BMP of more than " + std::to_string(kMaxLookPixels) + " pixels");
    }
    // Channel masks: from the header (V2 and later) or after it.
    uint32_t anMask[3] = {0, 0, 0};
    if (nCompression == kBiBitfields) {
        const size_t nAt = nInfo >= 52 ? kFileHeader + kInfoHeader : kFileHeader + nInfo;
        if (nAt + 12 > nSize) {
            return Fail(pErr, "BMP masks missing");
        }
        for (int c = 0; c < 3; ++c) {
            anMask[c] = Get32(pData + nAt + 4 * c);
        }
    } else if (nCompression != kBiRgb) {
        return Fail(pErr, "compressed BMP (method " + std::to_string(nCompression) + ")");
    } else if (nBits == 16) {
        anMask[0] = 0x7C00, anMask[1] = 0x03E0, anMask[2] = 0x001F;
    } else if (nBits == 32) {
        anMask[0] = 0xFF0000, anMask[1] = 0xFF00, anMask[2] = 0xFF;
    }
    const bool b565 = anMask[0] == 0xF800 && anMask[1] == 0x07E0 && anMask[2] == 0x001F;
    const bool b555 = anMask[0] == 0x7C00 && anMask[1] == 0x03E0 && anMask[2] == 0x001F;
    const bool b888 = anMask[0] == 0xFF0000 && anMask[1] == 0xFF00 && anMask[2] == 0xFF;
    if (!((nBits == 24 || nBits == 8) && nCompression == kBiRgb) &&
        !(nBits == 16 && (b565 || b555)) && !(nBits == 32 && b888)) {
        return Fail(pErr, std::to_string(nBits) + "-bit BMP of a kind not read here");
    }
    const size_t nStride = (size_t(nWidth) * nBits + 31) / 32 * 4;
    if (nOffset > nSize || nStride * size_t(nHeight) > nSize - nOffset) {
        return Fail(pErr, "BMP file is truncated");
    }
    std::vector<uint8_t> palette(256 * 4, 0);
    if (nBits == 8) {
        const uint32_t nUsed = Get32(pData + 46);
        const size_t nColours = nUsed == 0 || nUsed > 256 ? 256 : nUsed;
        const size_t nAt = kFileHeader + nInfo;
        if (nAt + nColours * 4 > nOffset) {
            return Fail(pErr, "BMP palette is truncated");
        }
        memcpy(palette.data(), pData + nAt, nColours * 4);
    }
    pBmp->Resize(nWidth, nHeight, int(nBits == 32 ? 24 : nBits));
    for (int y = 0; y < nHeight; ++y) {
        const uint8_t* row =
            pData + nOffset + nStride * size_t(nRawHeight < 0 ? nHeight - 1 - y : y);
        for (int x = 0; x < nWidth; ++x) {
            uint8_t* out = pBmp->Pixel(x, y);
            if (nBits == 8) {
                const uint8_t* c = &palette[size_t(row[x]) * 4];
                out[0] = c[2], out[1] = c[1], out[2] = c[0];
            } else if (nBits == 16) {
                const uint32_t v = Get16(row + 2 * x);
                out[0] = b565 ? Expand(v >> 11, 31) : Expand((v >> 10) & 31, 31);
                out[1] = b565 ? Expand((v >> 5) & 63, 63) : Expand((v >> 5) & 31, 31);
                out[2] = Expand(v & 31, 31);
            } else {
                const uint8_t* p = row + size_t(x) * (nBits / 8);
                out[0] = p[2], out[1] = p[1], out[2] = p[0];
            }
        }
    }
    return true;
}

bool ReadLookPicture(const std::string& path, LookBitmap* pBmp, std::string* pErr) {
    std::vector<uint8_t> bytes;
    std::string msg;
    if (!ReadFileBytes(path, &bytes, &msg)) {
        return Fail(pErr, msg);
    }
    if (bytes.size() >= 2 && bytes[0] == 'B' && bytes[1] == 'M') {
        if (!DecodeLookBmp(bytes.data(), bytes.size(), pBmp, &msg)) {
            return Fail(pErr, path + ": " + msg);
        }
        return true;
    }
    const ImageFormat format = SniffImageFormat(bytes.data(), bytes.size());
    if (format == kFormatJpeg) {
        return Fail(pErr, path + ": JPEG loses exact levels; save the image as PNG or BMP");
    }
    RGBImage image;
    if (format != kFormatPng || !DecodeImage(bytes.data(), bytes.size(), &image, &msg)) {
        return Fail(pErr, path + ": " + (format == kFormatPng ? msg : "not a BMP or PNG file"));
    }
    if (image.m_nWidth > kMaxLookSide || image.m_nHeight > kMaxLookSide ||
        long(image.m_nWidth) * image.m_nHeight > kMaxLookPixels) {
        return Fail(pErr, path + ": larger than a look-up image can be");
    }
    pBmp->Resize(image.m_nWidth, image.m_nHeight, 24);
    for (int y = 0; y < image.m_nHeight; ++y) {
        memcpy(pBmp->Pixel(0, y), image.Pixel(0, image.m_nHeight - 1 - y),
               size_t(image.m_nWidth) * 3);
    }
    return true;
}

RGBImage LookBitmapPicture(const LookBitmap& bmp) {
    RGBImage image;
    image.Resize(bmp.m_nWidth, bmp.m_nHeight);
    for (int y = 0; y < bmp.m_nHeight; ++y) {
        for (int x = 0; x < bmp.m_nWidth; ++x) {
            const uint8_t* p = bmp.Pixel(x, bmp.m_nHeight - 1 - y);
            uint8_t* q = image.Pixel(x, y);
            for (int c = 0; c < 3; ++c) {
                const int nMax = c == 1 ? 63 : 31;
                q[c] = bmp.m_nBits == 8    ? p[0]
                       : bmp.m_nBits == 16 ? Expand(Reduce(p[c], uint32_t(nMax)), uint32_t(nMax))
                                           : p[c];
            }
        }
    }
    return image;
}

void FileSet::Add(const std::string& path, std::vector<uint8_t> bytes) {
    m_vFiles.emplace_back(path, std::move(bytes));
}

bool FileSet::Commit(std::string* pErr) {
    std::vector<std::string> temps;
    auto cleanup = [&temps]() {
        for (const std::string& t : temps) {
            unlink(t.c_str());
        }
    };
    const mode_t mask = umask(0);
    umask(mask);
    for (const auto& file : m_vFiles) {
        const std::string& path = file.first;
        const size_t slash = path.rfind('/');
        const std::string dir = slash == std::string::npos ? "." : path.substr(0, slash + 1);
        const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
        std::string temp = (slash == std::string::npos ? "" : dir) + "." + base + ".XXXXXX";
        const int fd = mkstemp(&temp[0]);
        if (fd < 0) {
            const int e = errno;
            cleanup();
            return Fail(pErr, "cannot write " + path + ": " + strerror(e));
        }
        temps.push_back(temp);
        const std::vector<uint8_t>& bytes = file.second;
        size_t nDone = 0;
        while (nDone < bytes.size()) {
            const ssize_t n = write(fd, bytes.data() + nDone, bytes.size() - nDone);
            if (n <= 0) {
                break;
            }
            nDone += size_t(n);
        }
        const int e = errno;
        const bool bOk = nDone == bytes.size() && fchmod(fd, 0666 & ~mask) == 0;
        if (close(fd) != 0 || !bOk) {
            cleanup();
            return Fail(pErr, "cannot write " + path + ": " + strerror(bOk ? errno : e));
        }
    }
    for (size_t i = 0; i < m_vFiles.size(); ++i) {
        if (rename(temps[i].c_str(), m_vFiles[i].first.c_str()) != 0) {
            const int e = errno;
            temps.erase(temps.begin(), temps.begin() + long(i));
            cleanup();
            return Fail(pErr, "cannot write " + m_vFiles[i].first + ": " + strerror(e));
        }
    }
    m_vFiles.clear();
    return true;
}
