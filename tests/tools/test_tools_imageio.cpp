// PNG and JPEG reading and writing of the posteffect tool, including damaged
// files.
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <png.h>
#include <stdio.h>
#include <stdlib.h>
#include <zlib.h>

#include <random>
#include <string>

#include "ToolTestUtil.h"
#include "imageio.h"

using tooltest::TempDir;

namespace {

RGBImage Noise(int w, int h, unsigned nSeed) {
    std::mt19937 rng(nSeed);
    return tooltest::Painted(w, h, [&rng](int, int, uint8_t* p) {
        for (int i = 0; i < 3; ++i) {
            p[i] = uint8_t(rng());
        }
    });
}

RGBImage Gradient(int w, int h) {
    return tooltest::Painted(w, h, [w, h](int x, int y, uint8_t* p) {
        p[0] = uint8_t(x * 255 / (w - 1));
        p[1] = uint8_t(y * 255 / (h - 1));
        p[2] = uint8_t(128 + (x - y) / 4);
    });
}

// A PNG of another colour type, written with libpng directly. nChannels
// bytes (or 16-bit words for nDepth 16) per pixel from `samples`.
std::vector<uint8_t> RawPng(int w, int h, int nColourType, int nDepth,
                            const std::vector<uint8_t>& samples,
                            const std::vector<png_color>& palette = {}) {
    std::vector<uint8_t> out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(
        png, &out,
        [](png_structp p, png_bytep d, png_size_t n) {
            auto* v = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(p));
            v->insert(v->end(), d, d + n);
        },
        nullptr);
    png_set_IHDR(png, info, png_uint_32(w), png_uint_32(h), nDepth, nColourType, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!palette.empty()) {
        png_set_PLTE(png, info, palette.data(), int(palette.size()));
    }
    png_write_info(png, info);
    const size_t nRow = samples.size() / size_t(h);
    for (int y = 0; y < h; ++y) {
        png_write_row(png, const_cast<png_bytep>(&samples[size_t(y) * nRow]));
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
}

std::vector<uint8_t> GreyJpeg(int w, int h, uint8_t v) {
    jpeg_compress_struct c;
    jpeg_error_mgr e;
    c.err = jpeg_std_error(&e);
    jpeg_create_compress(&c);
    unsigned char* pMem = nullptr;
    unsigned long nMem = 0;
    jpeg_mem_dest(&c, &pMem, &nMem);
    c.image_width = JDIMENSION(w);
    c.image_height = JDIMENSION(h);
    c.input_components = 1;
    c.in_color_space = JCS_GRAYSCALE;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, 95, TRUE);
    jpeg_start_compress(&c, TRUE);
    std::vector<uint8_t> row(size_t(w), v);
    while (c.next_scanline < c.image_height) {
        JSAMPROW r = row.data();
        jpeg_write_scanlines(&c, &r, 1);
    }
    jpeg_finish_compress(&c);
    std::vector<uint8_t> out(pMem, pMem + nMem);
    jpeg_destroy_compress(&c);
    free(pMem);
    return out;
}

// Rewrites the IHDR chunk's size (and its CRC) in a PNG file.
void SetPngSize(std::vector<uint8_t>* png, uint32_t w, uint32_t h) {
    uint8_t* ihdr = png->data() + 8;  // length, "IHDR", data, CRC
    for (int i = 0; i < 4; ++i) {
        ihdr[8 + i] = uint8_t(w >> (24 - 8 * i));
        ihdr[12 + i] = uint8_t(h >> (24 - 8 * i));
    }
    const uint32_t crc = uint32_t(crc32(0, ihdr + 4, 17));
    for (int i = 0; i < 4; ++i) {
        ihdr[21 + i] = uint8_t(crc >> (24 - 8 * i));
    }
}

}  // namespace

TEST(ToolImageFormat, SniffAndExtension) {
    const uint8_t png[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    const uint8_t jpg[3] = {0xff, 0xd8, 0xff};
    EXPECT_EQ(kFormatPng, SniffImageFormat(png, 8));
    EXPECT_EQ(kFormatUnknown, SniffImageFormat(png, 7));
    EXPECT_EQ(kFormatJpeg, SniffImageFormat(jpg, 3));
    EXPECT_EQ(kFormatUnknown, SniffImageFormat(jpg, 2));
    EXPECT_EQ(kFormatUnknown, SniffImageFormat(nullptr, 0));
    EXPECT_EQ(kFormatPng, FormatFromPath("a/b.PNG"));
    EXPECT_EQ(kFormatJpeg, FormatFromPath("x.jpg"));
    EXPECT_EQ(kFormatJpeg, FormatFromPath("x.JPEG"));
    EXPECT_EQ(kFormatUnknown, FormatFromPath("x.png.bak"));
    EXPECT_EQ(kFormatUnknown, FormatFromPath("png"));
}

TEST(ToolImageDecode, OtherLayoutsComeOutAsRgb) {
    RGBImage img;
    std::string err;
    // Grey: 2 x 1 pixels 10 and 200.
    std::vector<uint8_t> png = RawPng(2, 1, PNG_COLOR_TYPE_GRAY, 8, {10, 200});
    ASSERT_TRUE(DecodeImage(png.data(), png.size(), &img, &err)) << err;
    EXPECT_EQ((std::vector<uint8_t>{10, 10, 10, 200, 200, 200}), img.m_vPixels);
    // RGBA: alpha dropped, colour kept.
    png = RawPng(2, 1, PNG_COLOR_TYPE_RGB_ALPHA, 8, {1, 2, 3, 0, 4, 5, 6, 255});
    ASSERT_TRUE(DecodeImage(png.data(), png.size(), &img, &err)) << err;
    EXPECT_EQ((std::vector<uint8_t>{1, 2, 3, 4, 5, 6}), img.m_vPixels);
    // Palette.
    png = RawPng(3, 1, PNG_COLOR_TYPE_PALETTE, 8, {1, 0, 1}, {{9, 8, 7}, {50, 60, 70}});
    ASSERT_TRUE(DecodeImage(png.data(), png.size(), &img, &err)) << err;
    EXPECT_EQ((std::vector<uint8_t>{50, 60, 70, 9, 8, 7, 50, 60, 70}), img.m_vPixels);
    // 16 bits per sample: the high byte is kept.
    png = RawPng(1, 1, PNG_COLOR_TYPE_RGB, 16, {0x12, 0x34, 0xab, 0xcd, 0xff, 0x00});
    ASSERT_TRUE(DecodeImage(png.data(), png.size(), &img, &err)) << err;
    EXPECT_EQ((std::vector<uint8_t>{0x12, 0xab, 0xff}), img.m_vPixels);
    // A grey JPEG: every channel the same, close to the grey written.
    const std::vector<uint8_t> jpg = GreyJpeg(16, 8, 77);
    ASSERT_TRUE(DecodeImage(jpg.data(), jpg.size(), &img, &err)) << err;
    ASSERT_EQ(16, img.m_nWidth);
    for (size_t i = 0; i < img.m_vPixels.size(); i += 3) {
        EXPECT_NEAR(77, img.m_vPixels[i], 1) << i;
        EXPECT_EQ(img.m_vPixels[i], img.m_vPixels[i + 1]) << i;
        EXPECT_EQ(img.m_vPixels[i], img.m_vPixels[i + 2]) << i;
    }
}

TEST(ToolImageJpeg, RoundTripIsClose) {
    const RGBImage img = Gradient(96, 64);
    std::vector<uint8_t> data;
    std::string err;
    ASSERT_TRUE(EncodeJpeg(img, 92, &data, &err)) << err;
    EXPECT_EQ(kFormatJpeg, SniffImageFormat(data.data(), data.size()));
    RGBImage back;
    ASSERT_TRUE(DecodeImage(data.data(), data.size(), &back, &err)) << err;
    ASSERT_EQ(96, back.m_nWidth);
    ASSERT_EQ(64, back.m_nHeight);
    double sum = 0;
    for (size_t i = 0; i < img.m_vPixels.size(); ++i) {
        sum += abs(int(img.m_vPixels[i]) - int(back.m_vPixels[i]));
    }
    EXPECT_LT(sum / img.m_vPixels.size(), 2.0);
    // A lower quality gives a smaller file.
    std::vector<uint8_t> small;
    ASSERT_TRUE(EncodeJpeg(Noise(64, 64, 3), 20, &small, &err));
    ASSERT_TRUE(EncodeJpeg(Noise(64, 64, 3), 95, &data, &err));
    EXPECT_LT(small.size(), data.size());
    EXPECT_FALSE(EncodeJpeg(img, 0, &data, &err));
    EXPECT_FALSE(EncodeJpeg(img, 101, &data, &err));
}

TEST(ToolImageBad, DamagedDataIsAnErrorNotACrash) {
    std::vector<uint8_t> png, jpg;
    std::string err;
    ASSERT_TRUE(EncodePng(Noise(40, 30, 1), &png, &err));
    ASSERT_TRUE(EncodeJpeg(Noise(40, 30, 1), 90, &jpg, &err));
    RGBImage img;
    img.Resize(2, 2);
    const std::vector<uint8_t> before = img.m_vPixels;

    auto bad = [&](const std::vector<uint8_t>& data, const char* what) {
        err.clear();
        EXPECT_FALSE(DecodeImage(data.data(), data.size(), &img, &err)) << what;
        EXPECT_FALSE(err.empty()) << what;
        // A failed read leaves the destination alone.
        EXPECT_EQ(2, img.m_nWidth) << what;
        EXPECT_EQ(before, img.m_vPixels) << what;
    };
    bad({}, "empty");
    bad({'h', 'e', 'l', 'l', 'o'}, "text");
    bad(std::vector<uint8_t>(png.begin(), png.begin() + 8), "PNG signature only");
    bad(std::vector<uint8_t>(png.begin(), png.begin() + long(png.size() / 2)), "PNG half");
    bad(std::vector<uint8_t>(png.begin(), png.end() - 13), "PNG without IEND");
    std::vector<uint8_t> flipped = png;
    flipped[png.size() / 2] ^= 0x55;
    bad(flipped, "PNG with a damaged chunk");
    std::vector<uint8_t> huge = png;
    SetPngSize(&huge, 30000, 30000);
    bad(huge, "PNG claiming 30000 x 30000");
    SetPngSize(&huge, 0, 10);
    bad(huge, "PNG claiming zero width");
    bad(std::vector<uint8_t>(jpg.begin(), jpg.begin() + 3), "JPEG signature only");
    bad(std::vector<uint8_t>(jpg.begin(), jpg.begin() + long(jpg.size() / 2)), "JPEG half");
    // A JPEG whose frame header claims 65000 x 65000.
    std::vector<uint8_t> bigJpg = jpg;
    for (size_t i = 2; i + 9 < bigJpg.size(); ++i) {
        if (bigJpg[i] == 0xff && bigJpg[i + 1] == 0xc0) {
            bigJpg[i + 5] = 0xfd;  // height
            bigJpg[i + 6] = 0xe8;
            bigJpg[i + 7] = 0xfd;  // width
            bigJpg[i + 8] = 0xe8;
            break;
        }
    }
    bad(bigJpg, "JPEG claiming 65000 x 65000");
}

TEST(ToolImageBad, NothingToEncode) {
    std::vector<uint8_t> data;
    std::string err;
    EXPECT_FALSE(EncodePng(RGBImage(), &data, &err));
    EXPECT_FALSE(err.empty());
    RGBImage broken;
    broken.m_nWidth = 4;
    broken.m_nHeight = 4;  // no pixels behind the size
    EXPECT_FALSE(EncodePng(broken, &data, &err));
    EXPECT_FALSE(EncodeJpeg(broken, 90, &data, &err));
}

// PNG files come back exactly, odd widths and single pixels too; the
// content decides how a file is read, the name how it is written.
TEST(ToolImageFiles, RoundTripByExtension) {
    TempDir dir;
    std::string err;
    RGBImage back;
    for (const RGBImage& img : {Noise(1, 1, 7), Noise(7, 3, 7), Noise(64, 33, 7)}) {
        ASSERT_TRUE(WriteImage(dir.Path("a.png"), img, &err)) << err;
        ASSERT_TRUE(ReadImage(dir.Path("a.png"), &back, &err)) << err;
        EXPECT_EQ(img.m_nWidth, back.m_nWidth);
        EXPECT_EQ(img.m_vPixels, back.m_vPixels);
    }
    ASSERT_TRUE(WriteImage(dir.Path("b.JPG"), Gradient(32, 16), &err)) << err;
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(ReadFileBytes(dir.Path("a.png"), &bytes, &err));
    EXPECT_EQ(kFormatPng, SniffImageFormat(bytes.data(), bytes.size()));
    ASSERT_TRUE(ReadFileBytes(dir.Path("b.JPG"), &bytes, &err));
    EXPECT_EQ(kFormatJpeg, SniffImageFormat(bytes.data(), bytes.size()));
    ASSERT_EQ(0, rename(dir.Path("a.png").c_str(), dir.Path("a.jpg").c_str()));
    ASSERT_TRUE(ReadImage(dir.Path("a.jpg"), &back, &err)) << err;
    EXPECT_EQ(Noise(64, 33, 7).m_vPixels, back.m_vPixels);
}

TEST(ToolImageFiles, ErrorsNameTheFile) {
    TempDir dir;
    const RGBImage img = Gradient(8, 8);
    std::string err;
    EXPECT_FALSE(WriteImage(dir.Path("a.bmp"), img, &err));
    EXPECT_NE(std::string::npos, err.find("a.bmp"));
    EXPECT_FALSE(WriteImage(dir.Path("no/such/dir/a.png"), img, &err));
    EXPECT_NE(std::string::npos, err.find("no/such/dir"));
    RGBImage back;
    EXPECT_FALSE(ReadImage(dir.Path("missing.png"), &back, &err));
    EXPECT_NE(std::string::npos, err.find("missing.png"));
    const uint8_t junk[4] = {1, 2, 3, 4};
    ASSERT_TRUE(WriteFileBytes(dir.Path("junk.png"), junk, 4, &err));
    EXPECT_FALSE(ReadImage(dir.Path("junk.png"), &back, &err));
    EXPECT_NE(std::string::npos, err.find("junk.png"));
    // A folder is not a picture.
    EXPECT_FALSE(ReadImage(dir.Path(""), &back, &err));
}
