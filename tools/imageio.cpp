#include "imageio.h"

#include <errno.h>
#include <setjmp.h>
#include <stdio.h>
#include <string.h>

#include <jpeglib.h>
// after jpeglib.h, whose types it uses
#include <jerror.h>
#include <png.h>

namespace {

void SetErr(std::string* pErr, const std::string& msg) {
    if (pErr) {
        *pErr = msg;
    }
}

// Writes why a picture of this size is refused into szMsg, or returns true.
// No C++ objects: it runs between setjmp and a possible longjmp.
bool SizeOk(long nWidth, long nHeight, char* szMsg, size_t nMsg) {
    if (nWidth <= 0 || nHeight <= 0) {
        snprintf(szMsg, nMsg, "image has no pixels");
        return false;
    }
    if (nWidth > kMaxImageSide || nHeight > kMaxImageSide || nWidth * nHeight > kMaxImagePixels) {
        snprintf(szMsg, nMsg, "image of %ldx%ld is larger than this tool accepts", nWidth, nHeight);
        return false;
    }
    return true;
}

// ---- PNG ----------------------------------------------------------------

struct PngSource {
    const uint8_t* pData;
    size_t nSize;
    size_t nPos;
};

struct PngSink {
    std::vector<uint8_t>* pOut;
};

struct PngError {
    char szMsg[256];
};

void PngOnError(png_structp png, png_const_charp msg) {
    PngError* pError = static_cast<PngError*>(png_get_error_ptr(png));
    snprintf(pError->szMsg, sizeof(pError->szMsg), "%s", msg);
    png_longjmp(png, 1);
}

void PngOnWarning(png_structp, png_const_charp) {}

void PngRead(png_structp png, png_bytep pDst, png_size_t nBytes) {
    PngSource* pSrc = static_cast<PngSource*>(png_get_io_ptr(png));
    if (nBytes > pSrc->nSize - pSrc->nPos) {
        png_error(png, "file is truncated");
    }
    memcpy(pDst, pSrc->pData + pSrc->nPos, nBytes);
    pSrc->nPos += nBytes;
}

void PngWrite(png_structp png, png_bytep pData, png_size_t nBytes) {
    PngSink* pSink = static_cast<PngSink*>(png_get_io_ptr(png));
    pSink->pOut->insert(pSink->pOut->end(), pData, pData + nBytes);
}

void PngFlush(png_structp) {}

// The decoder proper. Everything that must survive a longjmp out of libpng
// lives behind pointers handed in by the caller.
bool DecodePngInto(PngSource* pSrc, RGBImage* pImage, std::vector<png_bytep>* pRows,
                   PngError* pError) {
    png_structp png =
        png_create_read_struct(PNG_LIBPNG_VER_STRING, pError, PngOnError, PngOnWarning);
    if (!png) {
        snprintf(pError->szMsg, sizeof(pError->szMsg), "out of memory");
        return false;
    }
    png_infop info = png_create_info_struct(png);
    if (!info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        snprintf(pError->szMsg, sizeof(pError->szMsg), "out of memory");
        return false;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    png_set_read_fn(png, pSrc, PngRead);
    png_set_user_limits(png, kMaxImageSide, kMaxImageSide);
    png_read_info(png, info);
    const png_uint_32 nWidth = png_get_image_width(png, info);
    const png_uint_32 nHeight = png_get_image_height(png, info);
    if (!SizeOk(long(nWidth), long(nHeight), pError->szMsg, sizeof(pError->szMsg))) {
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    const int nColour = png_get_color_type(png, info);
    png_set_expand(png);
    png_set_strip_16(png);
    if (nColour == PNG_COLOR_TYPE_GRAY || nColour == PNG_COLOR_TYPE_GRAY_ALPHA) {
        png_set_gray_to_rgb(png);
    }
    png_set_strip_alpha(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    if (png_get_rowbytes(png, info) != size_t(nWidth) * 3) {
        snprintf(pError->szMsg, sizeof(pError->szMsg), "unexpected PNG pixel layout");
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    pImage->Resize(int(nWidth), int(nHeight));
    pRows->resize(nHeight);
    for (png_uint_32 y = 0; y < nHeight; ++y) {
        (*pRows)[y] = pImage->Pixel(0, int(y));
    }
    png_read_image(png, pRows->data());
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
}

bool EncodePngInto(const RGBImage* pImage, PngSink* pSink, std::vector<png_bytep>* pRows,
                   PngError* pError) {
    png_structp png =
        png_create_write_struct(PNG_LIBPNG_VER_STRING, pError, PngOnError, PngOnWarning);
    if (!png) {
        snprintf(pError->szMsg, sizeof(pError->szMsg), "out of memory");
        return false;
    }
    png_infop info = png_create_info_struct(png);
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        snprintf(pError->szMsg, sizeof(pError->szMsg), "out of memory");
        return false;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_set_write_fn(png, pSink, PngWrite, PngFlush);
    // Level 6 with the default filters: a fair trade of size for speed on
    // full-size captures.
    png_set_compression_level(png, 6);
    png_set_IHDR(png, info, png_uint_32(pImage->m_nWidth), png_uint_32(pImage->m_nHeight), 8,
                 PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    pRows->resize(size_t(pImage->m_nHeight));
    for (int y = 0; y < pImage->m_nHeight; ++y) {
        (*pRows)[size_t(y)] = const_cast<png_bytep>(pImage->Pixel(0, y));
    }
    png_write_image(png, pRows->data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

// ---- JPEG ---------------------------------------------------------------

struct JpegError {
    jpeg_error_mgr mgr;
    jmp_buf jump;
    char szMsg[JMSG_LENGTH_MAX];
    bool bTruncated;
};

void JpegOnError(j_common_ptr cinfo) {
    JpegError* pError = reinterpret_cast<JpegError*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, pError->szMsg);
    longjmp(pError->jump, 1);
}

// libjpeg only warns about a file that ends early and fills the rest with
// grey; this tool calls that an error.
void JpegOnMessage(j_common_ptr cinfo, int nLevel) {
    if (nLevel < 0 && cinfo->err->msg_code == JWRN_JPEG_EOF) {
        reinterpret_cast<JpegError*>(cinfo->err)->bTruncated = true;
    }
}

jpeg_error_mgr* JpegErrorManager(JpegError* pError) {
    jpeg_std_error(&pError->mgr);
    pError->mgr.error_exit = JpegOnError;
    pError->mgr.emit_message = JpegOnMessage;
    return &pError->mgr;
}

bool DecodeJpegInto(const uint8_t* pData, size_t nSize, RGBImage* pImage,
                    jpeg_decompress_struct* pInfo, JpegError* pError) {
    pInfo->err = JpegErrorManager(pError);
    if (setjmp(pError->jump)) {
        jpeg_destroy_decompress(pInfo);
        return false;
    }
    jpeg_create_decompress(pInfo);
    jpeg_mem_src(pInfo, const_cast<uint8_t*>(pData), static_cast<unsigned long>(nSize));
    jpeg_read_header(pInfo, TRUE);
    if (!SizeOk(long(pInfo->image_width), long(pInfo->image_height), pError->szMsg,
                sizeof(pError->szMsg))) {
        jpeg_destroy_decompress(pInfo);
        return false;
    }
    if (pInfo->jpeg_color_space == JCS_CMYK || pInfo->jpeg_color_space == JCS_YCCK) {
        snprintf(pError->szMsg, sizeof(pError->szMsg), "CMYK JPEG files are not supported");
        jpeg_destroy_decompress(pInfo);
        return false;
    }
    pInfo->out_color_space = JCS_RGB;
    jpeg_start_decompress(pInfo);
    if (pInfo->output_components != 3) {
        snprintf(pError->szMsg, sizeof(pError->szMsg), "unexpected JPEG pixel layout");
        jpeg_destroy_decompress(pInfo);
        return false;
    }
    pImage->Resize(int(pInfo->output_width), int(pInfo->output_height));
    while (pInfo->output_scanline < pInfo->output_height) {
        JSAMPROW row = pImage->Pixel(0, int(pInfo->output_scanline));
        jpeg_read_scanlines(pInfo, &row, 1);
    }
    jpeg_finish_decompress(pInfo);
    jpeg_destroy_decompress(pInfo);
    if (pError->bTruncated) {
        snprintf(pError->szMsg, sizeof(pError->szMsg), "file is truncated");
        return false;
    }
    return true;
}

bool EncodeJpegInto(const RGBImage* pImage, int nQuality, std::vector<uint8_t>* pOut,
                    jpeg_compress_struct* pInfo, JpegError* pError, unsigned char** ppMem,
                    unsigned long* pnMem) {
    pInfo->err = JpegErrorManager(pError);
    if (setjmp(pError->jump)) {
        jpeg_destroy_compress(pInfo);
        return false;
    }
    jpeg_create_compress(pInfo);
    jpeg_mem_dest(pInfo, ppMem, pnMem);
    pInfo->image_width = JDIMENSION(pImage->m_nWidth);
    pInfo->image_height = JDIMENSION(pImage->m_nHeight);
    pInfo->input_components = 3;
    pInfo->in_color_space = JCS_RGB;
    jpeg_set_defaults(pInfo);
    jpeg_set_quality(pInfo, nQuality, TRUE);
    jpeg_start_compress(pInfo, TRUE);
    while (pInfo->next_scanline < pInfo->image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(pImage->Pixel(0, int(pInfo->next_scanline)));
        jpeg_write_scanlines(pInfo, &row, 1);
    }
    jpeg_finish_compress(pInfo);
    pOut->assign(*ppMem, *ppMem + *pnMem);
    jpeg_destroy_compress(pInfo);
    return true;
}

bool HasSuffix(const std::string& s, const char* suffix) {
    const size_t n = strlen(suffix);
    if (s.size() < n) {
        return false;
    }
    for (size_t i = 0; i < n; ++i) {
        char c = s[s.size() - n + i];
        if (c >= 'A' && c <= 'Z') {
            c = char(c - 'A' + 'a');
        }
        if (c != suffix[i]) {
            return false;
        }
    }
    return true;
}

// Whether the picture has pixels behind its size; an error otherwise.
bool HasPixels(const RGBImage& image, std::string* pErr) {
    if (image.Empty() ||
        image.m_vPixels.size() != size_t(image.m_nWidth) * size_t(image.m_nHeight) * 3) {
        SetErr(pErr, "no picture to write");
        return false;
    }
    return true;
}

}  // namespace

void RGBImage::Resize(int nWidth, int nHeight) {
    m_nWidth = nWidth;
    m_nHeight = nHeight;
    m_vPixels.assign(size_t(nWidth) * size_t(nHeight) * 3, 0);
}

ImageFormat SniffImageFormat(const uint8_t* pData, size_t nSize) {
    static const uint8_t kPng[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    if (pData && nSize >= 8 && memcmp(pData, kPng, 8) == 0) {
        return kFormatPng;
    }
    if (pData && nSize >= 3 && pData[0] == 0xff && pData[1] == 0xd8 && pData[2] == 0xff) {
        return kFormatJpeg;
    }
    return kFormatUnknown;
}

ImageFormat FormatFromPath(const std::string& path) {
    if (HasSuffix(path, ".png")) {
        return kFormatPng;
    }
    if (HasSuffix(path, ".jpg") || HasSuffix(path, ".jpeg")) {
        return kFormatJpeg;
    }
    return kFormatUnknown;
}

bool DecodeImage(const uint8_t* pData, size_t nSize, RGBImage* pImage, std::string* pErr) {
    RGBImage image;
    switch (SniffImageFormat(pData, nSize)) {
        case kFormatPng: {
            PngSource src = {pData, nSize, 0};
            std::vector<png_bytep> rows;
            PngError error = {};
            if (!DecodePngInto(&src, &image, &rows, &error)) {
                SetErr(pErr, std::string("bad PNG file: ") + error.szMsg);
                return false;
            }
            break;
        }
        case kFormatJpeg: {
            jpeg_decompress_struct info = {};
            JpegError error = {};
            if (!DecodeJpegInto(pData, nSize, &image, &info, &error)) {
                SetErr(pErr, std::string("bad JPEG file: ") + error.szMsg);
                return false;
            }
            break;
        }
        default:
            SetErr(pErr, "not a PNG or JPEG file");
            return false;
    }
    *pImage = std::move(image);
    return true;
}

bool EncodePng(const RGBImage& image, std::vector<uint8_t>* pOut, std::string* pErr) {
    if (!HasPixels(image, pErr)) {
        return false;
    }
    std::vector<uint8_t> out;
    PngSink sink = {&out};
    std::vector<png_bytep> rows;
    PngError error = {};
    if (!EncodePngInto(&image, &sink, &rows, &error)) {
        SetErr(pErr, std::string("PNG encoder: ") + error.szMsg);
        return false;
    }
    *pOut = std::move(out);
    return true;
}

bool EncodeJpeg(const RGBImage& image, int nQuality, std::vector<uint8_t>* pOut,
                std::string* pErr) {
    if (!HasPixels(image, pErr)) {
        return false;
    }
    if (image.m_nWidth > 65500 || image.m_nHeight > 65500) {
        SetErr(pErr, "picture too large for JPEG");
        return false;
    }
    if (nQuality < 1 || nQuality > 100) {
        SetErr(pErr, "JPEG quality must be 1 to 100");
        return false;
    }
    std::vector<uint8_t> out;
    jpeg_compress_struct info = {};
    JpegError error = {};
    unsigned char* pMem = nullptr;
    unsigned long nMem = 0;
    const bool bOk = EncodeJpegInto(&image, nQuality, &out, &info, &error, &pMem, &nMem);
    free(pMem);
    if (!bOk) {
        SetErr(pErr, std::string("JPEG encoder: ") + error.szMsg);
        return false;
    }
    *pOut = std::move(out);
    return true;
}

bool ReadFileBytes(const std::string& path, std::vector<uint8_t>* pOut, std::string* pErr) {
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) {
        SetErr(pErr, path + ": " + strerror(errno));
        return false;
    }
    std::vector<uint8_t> data;
    uint8_t buf[65536];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), f)) > 0) {
        data.insert(data.end(), buf, buf + n);
    }
    const bool bErr = ferror(f) != 0;
    fclose(f);
    if (bErr) {
        SetErr(pErr, path + ": read error");
        return false;
    }
    *pOut = std::move(data);
    return true;
}

bool WriteFileBytes(const std::string& path, const uint8_t* pData, size_t nSize,
                    std::string* pErr) {
    FILE* f = fopen(path.c_str(), "wb");
    if (!f) {
        SetErr(pErr, path + ": " + strerror(errno));
        return false;
    }
    const bool bWritten = nSize == 0 || fwrite(pData, 1, nSize, f) == nSize;
    const bool bClosed = fclose(f) == 0;
    if (!bWritten || !bClosed) {
        SetErr(pErr, path + ": write error");
        return false;
    }
    return true;
}

bool ReadImage(const std::string& path, RGBImage* pImage, std::string* pErr) {
    std::vector<uint8_t> data;
    if (!ReadFileBytes(path, &data, pErr)) {
        return false;
    }
    std::string err;
    if (!DecodeImage(data.data(), data.size(), pImage, &err)) {
        SetErr(pErr, path + ": " + err);
        return false;
    }
    return true;
}

bool WriteImage(const std::string& path, const RGBImage& image, std::string* pErr) {
    std::vector<uint8_t> data;
    std::string err;
    bool bOk = false;
    switch (FormatFromPath(path)) {
        case kFormatPng:
            bOk = EncodePng(image, &data, &err);
            break;
        case kFormatJpeg:
            bOk = EncodeJpeg(image, 92, &data, &err);
            break;
        default:
            err = "the file name must end in .png, .jpg or .jpeg";
            break;
    }
    if (!bOk) {
        SetErr(pErr, path + ": " + err);
        return false;
    }
    return WriteFileBytes(path, data.data(), data.size(), pErr);
}
