// BMP files: the lenient reader into normal and streaming textures, the three
// writers that copy a template header, round trips through them, and bad
// input. Files are written under "/data/", which the host resolves below its
// root folder.
#include <GLES2/gl2.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "GETestGL.h"
#include "GETestLog.h"
#include "gl/GLFbo.h"
#include "gl/GLTexture.h"

namespace {

const int I = ANDROID_LOG_INFO;
const int E = ANDROID_LOG_ERROR;

typedef std::vector<unsigned char> Bytes;

void Put32(Bytes* b, size_t at, uint32_t v) {
    ASSERT_LE(at + 4, b->size());
    unsigned char le[4] = {(unsigned char)v, (unsigned char)(v >> 8), (unsigned char)(v >> 16),
                           (unsigned char)(v >> 24)};
    std::copy(le, le + 4, b->begin() + (std::ptrdiff_t)at);
}

uint32_t Get32(const Bytes& b, size_t at) {
    return (uint32_t)b[at] | (uint32_t)b[at + 1] << 8 | (uint32_t)b[at + 2] << 16 |
           (uint32_t)b[at + 3] << 24;
}

unsigned Get16(const Bytes& b, size_t at) {
    return (unsigned)b[at] | (unsigned)b[at + 1] << 8;
}

// A BMP file: the 54-byte header (with a recognisable reserved word and
// resolution), `gap` marker bytes up to the pixel data, then `pixels`.
Bytes MakeBmp(int32_t w, int32_t h, unsigned bits, const Bytes& pixels, size_t gap = 0) {
    Bytes b(54 + gap, 0);
    b[0] = 'B';
    b[1] = 'M';
    Put32(&b, 2, (uint32_t)(54 + gap + pixels.size()));
    b[6] = 'T';
    b[7] = 'M';
    b[8] = 'P';
    b[9] = 'L';
    Put32(&b, 10, (uint32_t)(54 + gap));
    Put32(&b, 14, 40);
    Put32(&b, 18, (uint32_t)w);
    Put32(&b, 22, (uint32_t)h);
    b[26] = 1;
    b[28] = (unsigned char)bits;
    b[29] = (unsigned char)(bits >> 8);
    Put32(&b, 34, (uint32_t)pixels.size());
    Put32(&b, 38, 2835);
    Put32(&b, 42, 2835);
    for (size_t i = 0; i < gap; ++i) {
        b[54 + i] = (unsigned char)(0xC0 + i);
    }
    b.insert(b.end(), pixels.begin(), pixels.end());
    return b;
}

Bytes Pattern(size_t n, unsigned seed) {
    Bytes p(n);
    unsigned s = seed * 2654435761u + 1;
    for (size_t i = 0; i < n; ++i) {
        s = s * 1103515245u + 12345u;
        p[i] = (unsigned char)(s >> 16);
    }
    return p;
}

void WriteFile(const std::string& path, const Bytes& bytes) {
    FILE* f = fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr) << path;
    if (!bytes.empty()) {
        ASSERT_EQ(fwrite(bytes.data(), 1, bytes.size(), f), bytes.size());
    }
    fclose(f);
}

Bytes ReadFile(const std::string& path) {
    Bytes out;
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) {
        return out;
    }
    unsigned char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), f)) > 0) {
        out.insert(out.end(), buf, buf + n);
    }
    fclose(f);
    return out;
}

std::string DataPath(const std::string& name) {
    return "/data/test_gl_bmp_" + name;
}

// Draws texture `tex` over a w x h RGBA framebuffer, fragment (x, y)
// sampling the centre of texel (x, y) with nearest filtering.
Bytes SampleTexture(GLuint tex, int texW, int texH, int w, int h) {
    static const char* kVs =
        "attribute vec4 a_pos;\n"
        "attribute vec2 a_tc;\n"
        "varying vec2 v_tc;\n"
        "void main() { gl_Position = a_pos; v_tc = a_tc; }\n";
    static const char* kFs =
        "precision highp float;\n"
        "uniform sampler2D s_tex;\n"
        "varying vec2 v_tc;\n"
        "void main() { gl_FragColor = texture2D(s_tex, v_tc); }\n";
    Bytes out((size_t)w * h * 4, 0xEE);
    GLuint vs = glCreateShader(GL_VERTEX_SHADER);
    glShaderSource(vs, 1, &kVs, nullptr);
    glCompileShader(vs);
    GLuint fs = glCreateShader(GL_FRAGMENT_SHADER);
    glShaderSource(fs, 1, &kFs, nullptr);
    glCompileShader(fs);
    GLuint prog = glCreateProgram();
    glAttachShader(prog, vs);
    glAttachShader(prog, fs);
    glBindAttribLocation(prog, 0, "a_pos");
    glBindAttribLocation(prog, 1, "a_tc");
    glLinkProgram(prog);
    GLuint target = 0;
    glGenTextures(1, &target);
    glBindTexture(GL_TEXTURE_2D, target);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    GLuint fbo = 0;
    glGenFramebuffers(1, &fbo);
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, target, 0);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, tex);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glUseProgram(prog);
    glUniform1i(glGetUniformLocation(prog, "s_tex"), 0);
    float sx = (float)w / texW;
    float sy = (float)h / texH;
    const float pos[] = {-1, -1, 1, -1, -1, 1, 1, 1};
    const float tc[] = {0, 0, sx, 0, 0, sy, sx, sy};
    glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, pos);
    glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, 0, tc);
    glEnableVertexAttribArray(0);
    glEnableVertexAttribArray(1);
    glViewport(0, 0, w, h);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, w, h, GL_RGBA, GL_UNSIGNED_BYTE, out.data());
    glDisableVertexAttribArray(0);
    glDisableVertexAttribArray(1);
    glUseProgram(0);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDeleteFramebuffers(1, &fbo);
    glDeleteTextures(1, &target);
    glDeleteProgram(prog);
    glDeleteShader(vs);
    glDeleteShader(fs);
    EXPECT_EQ(glGetError(), (GLenum)GL_NO_ERROR);
    return out;
}

// The packed w x h x bpp bytes at the start of an ST's buffer.
Bytes STBytes(GLTexture* tex, size_t n) {
    const unsigned char* p = tex->GetSTDataBuf();
    return p ? Bytes(p, p + n) : Bytes();
}

// Lines of `log` whose text starts with "[fn]".
std::vector<std::string> LinesOf(const GETestLog& log, const std::string& fn) {
    std::vector<std::string> out;
    for (const GETestLogLine& l : log.Lines()) {
        if (l.text.compare(0, fn.size() + 2, "[" + fn + "]") == 0) {
            out.push_back(l.text);
        }
    }
    return out;
}

int Expand(unsigned v, unsigned bits) {
    return (int)((v * 255 + ((1u << bits) - 1) / 2) / ((1u << bits) - 1));
}

class BmpTest : public GLTest {
protected:
    void SetUp() override {
        GLTest::SetUp();
        glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    }
};

TEST_F(BmpTest, LoadsEachDepthIntoANormalTexture) {
    const int w = 8, h = 3;
    struct {
        unsigned bits, format, type;
    } cases[] = {
        {32, GL_RGBA, GL_UNSIGNED_BYTE},
        {24, GL_RGB, GL_UNSIGNED_BYTE},
        {16, GL_RGB, GL_UNSIGNED_SHORT_5_6_5},
        {8, GL_LUMINANCE, GL_UNSIGNED_BYTE},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bits);
        Bytes pixels = Pattern((size_t)w * h * c.bits / 8, c.bits);
        std::string path = DataPath("normal" + std::to_string(c.bits) + ".bmp");
        WriteFile(path, MakeBmp(w, h, c.bits, pixels));
        GETestLog log;
        GLTexture tex;
        ASSERT_EQ(tex.LoadBMP(path.c_str(), c.format, c.type, 0), 1) << log.Dump();
        EXPECT_FALSE(tex.IsST());
        EXPECT_EQ(tex.GetWidth(), (unsigned)w);
        EXPECT_EQ(tex.GetHeight(), (unsigned)h);
        GLint v = 0;
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, &v);
        EXPECT_EQ(v, GL_REPEAT);
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &v);
        EXPECT_EQ(v, GL_LINEAR);

        Bytes seen = SampleTexture(tex.GetTexName(), w, h, w, h);
        for (int i = 0; i < w * h; ++i) {
            int want[4];
            const unsigned char* p = &pixels[(size_t)i * c.bits / 8];
            if (c.bits == 32) {
                want[0] = p[0], want[1] = p[1], want[2] = p[2], want[3] = p[3];
            } else if (c.bits == 24) {
                want[0] = p[0], want[1] = p[1], want[2] = p[2], want[3] = 255;
            } else if (c.bits == 16) {
                unsigned v16 = (unsigned)p[0] | (unsigned)p[1] << 8;
                want[0] = Expand(v16 >> 11, 5), want[1] = Expand((v16 >> 5) & 63, 6);
                want[2] = Expand(v16 & 31, 5), want[3] = 255;
            } else {
                want[0] = want[1] = want[2] = p[0], want[3] = 255;
            }
            for (int k = 0; k < 4; ++k) {
                ASSERT_NEAR(seen[(size_t)i * 4 + k], want[k], c.bits == 16 ? 1 : 0)
                    << "texel " << i << " channel " << k;
            }
        }
        if (c.bits == 24) {
            std::vector<std::string> expected = {
                "[LoadBMP] enter",
                "[LoadBMP] BMP file " + path,
                "[LoadBMP] alloc buf for file reading",
                "[LoadBMP] reading 8x3, 24 BPP",
                "[LoadBMP] file reading done",
                "[LoadBMP] update data into texture",
                "[LoadBMP] leave",
            };
            EXPECT_EQ(LinesOf(log, "LoadBMP"), expected) << log.Dump();
        }
    }
}

TEST_F(BmpTest, LoadsEachDepthIntoAStreamingTexture) {
    const int w = 20, h = 3;  // rows packed, not at the buffer's 32-pixel stride
    struct {
        unsigned bits, format, type;
    } cases[] = {
        {32, GL_RGBA, GL_UNSIGNED_BYTE},
        {24, GL_RGB, GL_UNSIGNED_BYTE},
        {16, GL_RGB, GL_UNSIGNED_SHORT_5_6_5},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bits);
        size_t n = (size_t)w * h * c.bits / 8;
        Bytes pixels = Pattern(n, c.bits + 100);
        std::string path = DataPath("st" + std::to_string(c.bits) + ".bmp");
        WriteFile(path, MakeBmp(w, h, c.bits, pixels, 6));
        GLTexture tex;
        ASSERT_EQ(tex.LoadBMP(path.c_str(), c.format, c.type, 1), 1);
        EXPECT_TRUE(tex.IsST());
        EXPECT_EQ(tex.GetAllocWidth(), 32u);
        EXPECT_EQ(STBytes(&tex, n), pixels);
        // The rest of the fresh buffer is untouched.
        size_t capacity = (size_t)tex.GetStride() * h * tex.GetBytesPerPixel();
        const unsigned char* data = tex.GetSTDataBuf();
        for (size_t i = n; i < capacity; ++i) {
            ASSERT_EQ(data[i], 0) << i;
        }
    }
}

TEST_F(BmpTest, TwentyFourBitFileIntoAnRGBATexture) {
    // The type matches, so the file passes; its 3-byte pixels fill the
    // 4-byte texels in order and the texels past the file's bytes are zero.
    const int w = 5, h = 3;
    Bytes pixels = Pattern((size_t)w * h * 3, 7);
    std::string path = DataPath("rgb_as_rgba.bmp");
    WriteFile(path, MakeBmp(w, h, 24, pixels));
    GLTexture tex;
    ASSERT_EQ(tex.LoadBMP(path.c_str(), GL_RGBA, GL_UNSIGNED_BYTE, 0), 1);
    Bytes seen = SampleTexture(tex.GetTexName(), w, h, w, h);
    Bytes stream = pixels;
    stream.resize((size_t)w * h * 4, 0);
    EXPECT_EQ(seen, stream);
}

TEST_F(BmpTest, LuminanceRowsFollowTheUnpackAlignment) {
    // Five bytes a row: GL reads rows 8 bytes apart (alignment 4) out of the
    // packed buffer, zero past the file's bytes.
    const int w = 5, h = 4;
    Bytes pixels = Pattern((size_t)w * h, 9);
    std::string path = DataPath("lum5.bmp");
    WriteFile(path, MakeBmp(w, h, 8, pixels));
    GLTexture tex;
    ASSERT_EQ(tex.LoadBMP(path.c_str(), GL_LUMINANCE, GL_UNSIGNED_BYTE, 0), 1);
    Bytes seen = SampleTexture(tex.GetTexName(), w, h, w, h);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            size_t at = (size_t)y * 8 + x;
            int want = at < pixels.size() ? pixels[at] : 0;
            ASSERT_EQ(seen[((size_t)y * w + x) * 4], want) << x << "," << y;
        }
    }
}

TEST_F(BmpTest, StreamingCopyStopsAtTheBuffersEnd) {
    // A 32-bit file as GL_RGB / GL_UNSIGNED_BYTE passes (the type matches):
    // 512 bytes of pixels for a buffer of 32 x 4 x 3 = 384 bytes.
    const int w = 32, h = 4;
    Bytes pixels = Pattern((size_t)w * h * 4, 11);
    std::string path = DataPath("rgba_into_rgb_st.bmp");
    WriteFile(path, MakeBmp(w, h, 32, pixels));
    GLTexture tex;
    ASSERT_EQ(tex.LoadBMP(path.c_str(), GL_RGB, GL_UNSIGNED_BYTE, 1), 1);
    size_t capacity = (size_t)tex.GetStride() * h * 3;
    ASSERT_EQ(capacity, 384u);
    EXPECT_EQ(STBytes(&tex, capacity), Bytes(pixels.begin(), pixels.begin() + capacity));
}

TEST_F(BmpTest, DepthAndFormatMismatches) {
    struct {
        unsigned bits, format, type;
        const char* line;
    } cases[] = {
        {32, GL_RGB, GL_UNSIGNED_SHORT_5_6_5,
         "[LoadBMP] 32 bpp, format 0x1907 and type 0x8363 mismatch"},
        {24, GL_LUMINANCE, GL_UNSIGNED_SHORT_5_6_5,
         "[LoadBMP] 24 bpp, format 0x1909 and type 0x8363 mismatch"},
        {16, GL_RGBA, GL_UNSIGNED_BYTE, "[LoadBMP] 16 bpp, format 0x1908 and type 0x1401 mismatch"},
        {8, GL_RGB, GL_UNSIGNED_SHORT_5_6_5,
         "[LoadBMP] 8 bpp, format 0x1907 and type 0x8363 mismatch"},
    };
    for (const auto& c : cases) {
        std::string path = DataPath("mismatch.bmp");
        WriteFile(path, MakeBmp(4, 4, c.bits, Pattern(4 * 4 * c.bits / 8, 1)));
        GETestLog log;
        GLTexture tex;
        EXPECT_EQ(tex.LoadBMP(path.c_str(), c.format, c.type, 0), 0);
        EXPECT_TRUE(log.HasExact(E, "GLTexture", c.line)) << log.Dump();
        EXPECT_EQ(log.Count("alloc buf"), 0);
        EXPECT_EQ(tex.GetTexName(), 0xFFFFFFFFu);
    }
}

TEST_F(BmpTest, UnsupportedDepthFailsSilently) {
    std::string path = DataPath("bpp12.bmp");
    WriteFile(path, MakeBmp(4, 4, 12, Pattern(24, 3)));
    GETestLog log;
    GLTexture tex;
    EXPECT_EQ(tex.LoadBMP(path.c_str(), GL_RGBA, GL_UNSIGNED_BYTE, 0), 0);
    std::vector<std::string> lines = LinesOf(log, "LoadBMP");
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), "[LoadBMP] reading 4x4, 12 BPP") << log.Dump();
    for (const GETestLogLine& l : log.Lines()) {
        EXPECT_NE(l.priority, E) << l.text;
    }
    EXPECT_EQ(tex.GetTexName(), 0xFFFFFFFFu);
}

TEST_F(BmpTest, BadFilesFailWithTheirLine) {
    const int w = 4, h = 4;
    Bytes good = MakeBmp(w, h, 32, Pattern(w * h * 4, 5));
    Bytes hugeOffset = good;
    Put32(&hugeOffset, 10, 0xFFFFFFF0u);
    Bytes farOffset = good;
    Put32(&farOffset, 10, 1000);
    Bytes notBmp = good;
    notBmp[1] = 'A';

    struct {
        const char* name;
        Bytes bytes;
        const char* line;
    } cases[] = {
        {"empty", Bytes(), "[LoadBMP] Can't open bmp: Header fail"},
        {"notbmp", notBmp, "[LoadBMP] Can't open bmp: Header fail"},
        {"shortheader", Bytes(good.begin(), good.begin() + 30), "[LoadBMP] error reading file"},
        {"shortpixels", Bytes(good.begin(), good.end() - 1), "[LoadBMP] error reading file"},
        {"nopixels", Bytes(good.begin(), good.begin() + 54), "[LoadBMP] error reading file"},
        {"faroffset", farOffset, "[LoadBMP] error reading file"},
        {"hugeoffset", hugeOffset, "[LoadBMP] error reading file"},
        // Sizes no texture can have.
        {"negheight", MakeBmp(4, -4, 32, Pattern(64, 1)), "[LoadBMP] out of memory"},
        {"negwidth", MakeBmp(-4, 4, 32, Pattern(64, 1)), "[LoadBMP] out of memory"},
        {"wide", MakeBmp(0x7FFFFFFF, 1, 8, Pattern(64, 1)), "[LoadBMP] out of memory"},
        {"square", MakeBmp(65536, 65536, 32, Pattern(64, 1)), "[LoadBMP] out of memory"},
        {"overflow", MakeBmp(0x40000000, 0x40000000, 32, Pattern(64, 1)),
         "[LoadBMP] out of memory"},
        // A possible size whose pixels the file does not hold.
        {"bigshort", MakeBmp(16384, 16384, 32, Pattern(64, 1)), "[LoadBMP] error reading file"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::string path = DataPath(std::string("bad_") + c.name + ".bmp");
        WriteFile(path, c.bytes);
        GETestLog log;
        GLTexture tex;
        EXPECT_EQ(tex.LoadBMP(path.c_str(), GL_RGBA, GL_UNSIGNED_BYTE, 0), 0);
        EXPECT_TRUE(log.HasExact(E, "GLTexture", c.line)) << log.Dump();
        EXPECT_EQ(tex.GetTexName(), 0xFFFFFFFFu);
        EXPECT_FALSE(log.Has(I, "GLTexture", "file reading done"));
    }

    GETestLog log;
    GLTexture tex;
    EXPECT_EQ(tex.LoadBMP("/data/test_gl_bmp_missing.bmp", GL_RGBA, GL_UNSIGNED_BYTE, 0), 0);
    EXPECT_TRUE(
        log.HasExact(E, "GLTexture", "[LoadBMP] Can't open BMP /data/test_gl_bmp_missing.bmp"));

    // A depth that no streaming texture takes: the texture cannot be made.
    std::string path = DataPath("lum_st.bmp");
    WriteFile(path, MakeBmp(4, 4, 8, Pattern(16, 2)));
    log.Clear();
    EXPECT_EQ(tex.LoadBMP(path.c_str(), GL_LUMINANCE, GL_UNSIGNED_BYTE, 1), 0);
    EXPECT_TRUE(log.HasExact(E, "GLTexture", "[Init] ST only supports RGB565/RGB88/RGBA"));
    EXPECT_TRUE(log.HasExact(E, "GLTexture", "[LoadBMP] Can't init texture")) << log.Dump();
}

// A template BMP of 128 bytes and more: 54 header bytes, `gap` marker bytes,
// a few pixels.
std::string WriteTemplate(const std::string& name, size_t gap) {
    std::string path = DataPath(name);
    WriteFile(path, MakeBmp(3, 2, 24, Pattern(100, 77), gap));
    return path;
}

// The header the texture writers must produce from `tpl`.
void ExpectHeader(const Bytes& out, const Bytes& tpl, size_t span, unsigned w, unsigned h,
                  unsigned bits) {
    ASSERT_GE(out.size(), span);
    for (size_t i = 0; i < span; ++i) {
        if ((i >= 18 && i < 26) || i == 28 || i == 29) {
            continue;
        }
        ASSERT_EQ(out[i], tpl[i]) << "header byte " << i;
    }
    EXPECT_EQ(Get32(out, 18), w);
    EXPECT_EQ(Get32(out, 22), h);
    EXPECT_EQ(Get16(out, 28), bits);
}

TEST_F(BmpTest, SaveRGBAStreamingTextureRoundTrip) {
    const int w = 20, h = 3;
    std::string tplPath = WriteTemplate("tpl.bmp", 0);
    Bytes tpl = ReadFile(tplPath);
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, w, h, 1), 1);
    size_t n = (size_t)w * h * 4;
    Bytes rgba = Pattern(n, 21);
    memcpy(tex.GetSTDataBuf(), rgba.data(), n);

    GETestLog log;
    ASSERT_EQ(tex.SaveBMP(tplPath.c_str(), "test_gl_bmp_out32.bmp"), 1) << log.Dump();
    EXPECT_TRUE(log.HasExact(I, "GLTexture", "[SaveBMP] fname " + tplPath));
    EXPECT_TRUE(log.HasExact(I, "GLTexture", "[SaveBMP] foutname /data/test_gl_bmp_out32.bmp"));
    EXPECT_TRUE(log.HasExact(I, "GLTexture", "[SaveBMP] offset 54, w=20, h=3, bpp=32, size=240"))
        << log.Dump();

    Bytes bgra = rgba;
    for (size_t i = 0; i < n; i += 4) {
        std::swap(bgra[i], bgra[i + 2]);
        bgra[i + 3] = 0xFF;
    }
    // The texture itself now holds BGRA with opaque alpha.
    EXPECT_EQ(STBytes(&tex, n), bgra);

    Bytes out = ReadFile("/data/test_gl_bmp_out32.bmp");
    ASSERT_EQ(out.size(), 54 + n);
    ExpectHeader(out, tpl, 54, w, h, 32);
    EXPECT_EQ(Bytes(out.begin() + 54, out.end()), bgra);

    GLTexture back;
    ASSERT_EQ(back.LoadBMP("/data/test_gl_bmp_out32.bmp", GL_RGBA, GL_UNSIGNED_BYTE, 1), 1);
    EXPECT_EQ(STBytes(&back, n), bgra);
}

TEST_F(BmpTest, SaveRGBAnd565StreamingTexturesRoundTrip) {
    std::string tplPath = WriteTemplate("tpl.bmp", 0);
    Bytes tpl = ReadFile(tplPath);
    const int w = 32, h = 2;

    GLTexture rgb;
    ASSERT_EQ(rgb.Init(GL_RGB, GL_UNSIGNED_BYTE, w, h, 1), 1);
    Bytes p24 = Pattern((size_t)w * h * 3, 31);
    memcpy(rgb.GetSTDataBuf(), p24.data(), p24.size());
    ASSERT_EQ(rgb.SaveBMP(tplPath.c_str(), "test_gl_bmp_out24.bmp"), 1);
    EXPECT_EQ(STBytes(&rgb, p24.size()), p24);  // no conversion below 32 bits
    Bytes out = ReadFile("/data/test_gl_bmp_out24.bmp");
    ExpectHeader(out, tpl, 54, w, h, 24);
    EXPECT_EQ(Bytes(out.begin() + 54, out.end()), p24);
    GLTexture back24;
    ASSERT_EQ(back24.LoadBMP("/data/test_gl_bmp_out24.bmp", GL_RGB, GL_UNSIGNED_BYTE, 0), 1);
    Bytes seen = SampleTexture(back24.GetTexName(), w, h, w, h);
    for (int i = 0; i < w * h; ++i) {
        ASSERT_EQ(seen[i * 4 + 0], p24[i * 3 + 0]);
        ASSERT_EQ(seen[i * 4 + 1], p24[i * 3 + 1]);
        ASSERT_EQ(seen[i * 4 + 2], p24[i * 3 + 2]);
    }

    GLTexture r565;
    ASSERT_EQ(r565.Init(GL_RGB, GL_UNSIGNED_SHORT_5_6_5, w, h, 1), 1);
    Bytes p16 = Pattern((size_t)w * h * 2, 41);
    memcpy(r565.GetSTDataBuf(), p16.data(), p16.size());
    ASSERT_EQ(r565.SaveBMP(tplPath.c_str(), "test_gl_bmp_out16.bmp"), 1);
    out = ReadFile("/data/test_gl_bmp_out16.bmp");
    ExpectHeader(out, tpl, 54, w, h, 16);
    EXPECT_EQ(Bytes(out.begin() + 54, out.end()), p16);
    GLTexture back16;
    ASSERT_EQ(back16.LoadBMP("/data/test_gl_bmp_out16.bmp", GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 1), 1);
    EXPECT_EQ(STBytes(&back16, p16.size()), p16);
}

TEST_F(BmpTest, PixelDataGoesAtTheTemplatesOffset) {
    // Pixel data beyond the 128 copied bytes: the gap reads as zero.
    std::string tplPath = WriteTemplate("tpl_far.bmp", 86);  // offset 140
    Bytes tpl = ReadFile(tplPath);
    const int w = 4, h = 2;
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGB, GL_UNSIGNED_BYTE, w, h, 1), 1);
    Bytes p = Pattern((size_t)w * h * 3, 51);
    memcpy(tex.GetSTDataBuf(), p.data(), p.size());
    ASSERT_EQ(tex.SaveBMP(tplPath.c_str(), "test_gl_bmp_far.bmp"), 1);
    Bytes out = ReadFile("/data/test_gl_bmp_far.bmp");
    ASSERT_EQ(out.size(), 140 + p.size());
    ExpectHeader(out, tpl, 128, w, h, 24);
    for (size_t i = 128; i < 140; ++i) {
        EXPECT_EQ(out[i], 0) << i;
    }
    EXPECT_EQ(Bytes(out.begin() + 140, out.end()), p);
    GLTexture back;
    ASSERT_EQ(back.LoadBMP("/data/test_gl_bmp_far.bmp", GL_RGB, GL_UNSIGNED_BYTE, 1), 1);
    EXPECT_EQ(STBytes(&back, p.size()), p);
}

TEST_F(BmpTest, TextureWriterRefusals) {
    std::string tplPath = WriteTemplate("tpl.bmp", 0);
    GETestLog log;

    GLTexture normal;
    ASSERT_EQ(normal.Init(GL_RGBA, GL_UNSIGNED_BYTE, 4, 4, 0), 1);
    EXPECT_EQ(normal.SaveBMP(tplPath.c_str(), "test_gl_bmp_x.bmp"), 0);
    EXPECT_TRUE(
        log.HasExact(E, "GLTexture", "[SaveBMP] ERROR, only streaming texture use this method"));
    EXPECT_EQ(normal.SaveBMP_yuvx(tplPath.c_str(), "test_gl_bmp_x.bmp"), 0);
    EXPECT_TRUE(log.HasExact(E, "GLTexture",
                             "[SaveBMP_yuvx] ERROR, only streaming texture use this method"));

    // A buffer wrapped with a luminance format is a streaming texture that
    // the writers do not take.
    GLTexture rgba;
    ASSERT_EQ(rgba.Init(GL_RGBA, GL_UNSIGNED_BYTE, 32, 4, 1), 1);
    GLTexture lum;
    ASSERT_EQ(
        lum.Init(rgba.GetGraphicBuffer()->getNativeBuffer(), GL_LUMINANCE, GL_UNSIGNED_BYTE, 32, 4),
        1);
    EXPECT_EQ(lum.SaveBMP(tplPath.c_str(), "test_gl_bmp_x.bmp"), 0);
    EXPECT_TRUE(
        log.HasExact(E, "GLTexture", "[SaveBMP] ERROR, only RGB or RGBA texture use this method"));

    log.Clear();
    EXPECT_EQ(rgba.SaveBMP("/data/test_gl_bmp_no_template.bmp", "test_gl_bmp_x.bmp"), 0);
    EXPECT_TRUE(log.HasExact(E, "GLTexture", "[SaveBMP] can't open fin"));
    EXPECT_EQ(rgba.SaveBMP(tplPath.c_str(), "no_such_dir/x.bmp"), 0);
    EXPECT_TRUE(
        log.HasExact(E, "GLTexture", "[SaveBMP] can't open fout, No such file or directory"))
        << log.Dump();
    std::string notBmp = DataPath("not_a_bmp.bmp");
    WriteFile(notBmp, Bytes(200, 'x'));
    EXPECT_EQ(rgba.SaveBMP(notBmp.c_str(), "test_gl_bmp_x.bmp"), 0);
    EXPECT_TRUE(log.HasExact(E, "GLTexture", "[SaveBMP] not a BMP file"));
    // A header whose pixel data would lie past the template's end.
    Bytes lying = ReadFile(tplPath);
    Put32(&lying, 10, 0xFFFFFF00u);
    std::string lyingPath = DataPath("lying_tpl.bmp");
    WriteFile(lyingPath, lying);
    log.Clear();
    EXPECT_EQ(rgba.SaveBMP(lyingPath.c_str(), "test_gl_bmp_x.bmp"), 0);
    EXPECT_TRUE(log.HasExact(E, "GLTexture", "[SaveBMP] not a BMP file")) << log.Dump();
    GLFbo fbo;
    ASSERT_EQ(fbo.Init(), 1);
    ASSERT_EQ(fbo.SetColorAttachment(&rgba), 1);
    EXPECT_EQ(fbo.SaveBMP(lyingPath.c_str(), "test_gl_bmp_x.bmp"), 0);
    EXPECT_TRUE(log.HasExact(E, "GLFbo", "[SaveBMP] not a BMP file")) << log.Dump();
    EXPECT_LT(ReadFile("/data/test_gl_bmp_x.bmp").size(), 4096u);

    // The grey writer reads 4 bytes a texel: a 3-byte texture is refused.
    GLTexture rgb;
    ASSERT_EQ(rgb.Init(GL_RGB, GL_UNSIGNED_BYTE, 32, 4, 1), 1);
    EXPECT_EQ(rgb.SaveBMP_yuvx(tplPath.c_str(), "test_gl_bmp_x.bmp"), 0);
    EXPECT_TRUE(
        log.HasExact(E, "GLTexture", "[SaveBMP_yuvx] ERROR, only 32-bit texture use this method"));
}

TEST_F(BmpTest, SaveYuvxWritesTheFourthByteOfEachTexel) {
    std::string tplPath = WriteTemplate("tpl.bmp", 0);
    Bytes tpl = ReadFile(tplPath);
    const int w = 20, h = 3;
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, w, h, 1), 1);
    size_t n = (size_t)w * h * 4;
    Bytes yuvx = Pattern(n, 61);
    memcpy(tex.GetSTDataBuf(), yuvx.data(), n);

    GETestLog log;
    ASSERT_EQ(tex.SaveBMP_yuvx(tplPath.c_str(), "test_gl_bmp_yuvx.bmp"), 1) << log.Dump();
    char line[128];
    snprintf(line, sizeof(line), "[SaveBMP_yuvx] m_pData=%p, 20x3", (void*)tex.GetSTDataBuf());
    EXPECT_TRUE(log.HasExact(I, "GLTexture", line)) << log.Dump();
    EXPECT_EQ(STBytes(&tex, n), yuvx);  // left as it was

    Bytes grey;
    for (size_t i = 0; i < n; i += 4) {
        grey.push_back(yuvx[i + 3]);
    }
    Bytes out = ReadFile("/data/test_gl_bmp_yuvx.bmp");
    // 60 pixel bytes at 54 end inside the 128 template bytes, whose tail stays.
    ASSERT_EQ(out.size(), 128u);
    ExpectHeader(out, tpl, 54, w, h, 8);
    EXPECT_EQ(Bytes(out.begin() + 54, out.begin() + 114), grey);
    EXPECT_EQ(Bytes(out.begin() + 114, out.end()), Bytes(tpl.begin() + 114, tpl.begin() + 128));

    GLTexture back;
    ASSERT_EQ(back.LoadBMP("/data/test_gl_bmp_yuvx.bmp", GL_LUMINANCE, GL_UNSIGNED_BYTE, 0), 1);
    Bytes seen = SampleTexture(back.GetTexName(), w, h, w, h);
    for (int i = 0; i < w * h; ++i) {
        ASSERT_EQ(seen[i * 4], grey[i]) << i;
    }
}

TEST_F(BmpTest, FramebufferDumpRoundTrip) {
    // The template's whole header, up to its pixel data at 70, is copied.
    std::string tplPath = WriteTemplate("tpl70.bmp", 16);
    Bytes tpl = ReadFile(tplPath);
    const int w = 6, h = 3;
    GLTexture tex;
    ASSERT_EQ(tex.Init(GL_RGBA, GL_UNSIGNED_BYTE, w, h, 0), 1);
    Bytes rgba = Pattern((size_t)w * h * 4, 71);
    ASSERT_EQ(tex.UpdateNormalTexture(rgba.data(), w, h), 1);
    GLFbo fbo;
    ASSERT_EQ(fbo.Init(), 1);
    ASSERT_EQ(fbo.SetColorAttachment(&tex), 1);
    fbo.Bind();

    GETestLog log;
    ASSERT_EQ(fbo.SaveBMP(tplPath.c_str(), "test_gl_bmp_fbo.bmp"), 1) << log.Dump();
    EXPECT_TRUE(log.HasExact(I, "GLFbo", "[SaveBMP] offset 70, w=6, h=3, bpp=32, size=72"))
        << log.Dump();
    EXPECT_TRUE(log.HasExact(I, "GLFbo", "[SaveBMP] saving data"));
    EXPECT_TRUE(log.HasExact(I, "GLFbo", "[SaveBMP] done"));

    // Red and blue swap; alpha is kept.
    Bytes bgra = rgba;
    for (size_t i = 0; i < bgra.size(); i += 4) {
        std::swap(bgra[i], bgra[i + 2]);
    }
    Bytes out = ReadFile("/data/test_gl_bmp_fbo.bmp");
    ASSERT_EQ(out.size(), 70 + bgra.size());
    ExpectHeader(out, tpl, 70, w, h, 32);
    EXPECT_EQ(Bytes(out.begin() + 70, out.end()), bgra);

    GLTexture back;
    ASSERT_EQ(back.LoadBMP("/data/test_gl_bmp_fbo.bmp", GL_RGBA, GL_UNSIGNED_BYTE, 1), 1);
    EXPECT_EQ(STBytes(&back, bgra.size()), bgra);

    GLFbo empty;
    ASSERT_EQ(empty.Init(), 1);
    log.Clear();
    EXPECT_EQ(empty.SaveBMP(tplPath.c_str(), "test_gl_bmp_fbo.bmp"), 0);
    EXPECT_TRUE(log.HasExact(E, "GLFbo", "[SaveBMP] no texture attached"));
}

}  // namespace
