// Look-up image tooling: the .acv, .cube and look-source readers on good and
// bad input, the tone curves, images written by the tool and read back by
// the library's BMP reader, the shipped images at the rows the effects read,
// the command line's failures, and the root that posteffect --looks makes.
#include <GLES2/gl2.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "GETestFile.h"
#include "GETestGL.h"
#include "gl/GLTexture.h"
#include "lookbmp.h"
#include "lookimport.h"
#include "lookscli.h"
#include "looksource.h"
#include "looksroot.h"

namespace {

typedef std::vector<std::vector<int>> Curves;  // per curve: in, out, in, out, ...

// A Photoshop curves file: the words of version, count (or nCount), curves.
std::string Acv(const Curves& curves, int nVersion = 1, int nCount = -1) {
    std::vector<int> words = {nVersion, nCount < 0 ? int(curves.size()) : nCount};
    for (const std::vector<int>& c : curves) {
        words.push_back(int(c.size() / 2));
        for (size_t i = 0; i + 1 < c.size(); i += 2) {
            words.insert(words.end(), {c[i + 1], c[i]});
        }
    }
    std::string s;
    for (int w : words) {
        s += char(w >> 8), s += char(w & 255);
    }
    return s;
}

// A 2 x 2 x 2 cube whose red output takes crosstalk x green input.
std::string Cube3D(double crosstalk) {
    std::string s = "LUT_3D_SIZE 2\n";
    for (int i = 0; i < 8; ++i) {
        const int r = i & 1, g = (i >> 1) & 1, b = i >> 2;
        s += std::to_string(0.8 * r + crosstalk * g) + " " + std::to_string(0.2 + 0.6 * g) + " " +
             std::to_string(b) + "\n";
    }
    return s;
}

// Reads text as a curve through the reader of kind; the curves' outputs at in.
bool Read(const std::string& kind, const std::string& text, double in, double out[3],
          std::string* pErr) {
    CurveSet set;
    CubeCurves cube;
    LookSource src;
    bool ok = false;
    if (kind == "acv") {
        ok = ParseAcv((const uint8_t*)text.data(), text.size(), "t.acv", &set, pErr);
    } else if (kind == "cube") {
        ok = ParseCube(text.data(), text.size(), "t.cube", &cube, pErr);
    } else {
        ok = ParseLookSource(text, "t.look", &src, pErr);
        set = src.m_curves;
    }
    for (int c = 0; c < 3 && ok; ++c) {
        out[c] = kind == "cube" ? cube.Eval(c, in) : set.Eval(c, in);
    }
    return ok;
}

TEST(LooksReaders, GoodFilesGiveTheirCurvesAndBadOnesOneReason) {
    const std::string cube1D =
        "TITLE \"t\"\n# domain 0 to 2\nLUT_1D_SIZE 3\nDOMAIN_MIN 0 0 0\nDOMAIN_MAX 2 2 2\n"
        "0 0 0\n0.5 1 1.5\n2 2 2\n";
    const struct {
        const char* kind;
        std::string text;
        double in, out[3];  // expected at in, when good
        const char* error;  // part of the message, when bad
    } cases[] = {
        // Composite (half) after red (straight), green (inverted), blue (flat 64).
        {"acv",
         Acv({{0, 0, 255, 128}, {0, 0, 255, 255}, {0, 255, 255, 0}, {0, 64, 255, 64}}),
         100,
         {50.196, 77.804, 32.125},
         nullptr},
        {"cube", cube1D, 127.5, {63.75, 127.5, 191.25}, nullptr},
        {"cube", Cube3D(0.002), 255, {204, 204, 255}, nullptr},
        {"look",
         "curve\ninterp linear\nred 0,0 255,100\nmaster 0,255 255,0\n",
         51,
         {235, 204, 204},
         nullptr},
        {"acv",
         Acv({{0, 0, 255, 255}, {0, 0, 128, 64, 255, 255}}).substr(0, 21),
         0,
         {},
         "truncated"},
        {"acv", Acv({{0, 0, 255, 255}}, 1, 4), 0, {}, "truncated: no point count"},
        {"acv", Acv({{0, 0}}), 0, {}, "has 1 points"},
        {"acv", Acv({{0, 0, 255, 255}}, 2), 0, {}, "version 2"},
        {"acv", Acv({{0, 0, 200, 10, 100, 255}}), 0, {}, "does not lie right"},
        {"cube", "LUT_3D_SIZE 100000\n", 0, {}, "t.cube:1: LUT_3D_SIZE 100000 is outside 2 to 256"},
        {"cube", "LUT_1D_SIZE 2\n0 0 0\n1 abc 1\n", 0, {}, "t.cube:3: 'abc' is not a number"},
        {"cube", "LUT_1D_SIZE 2\n0 0 0\n1 1.5 1\n", 0, {}, "1.5 is outside the green domain"},
        {"cube", "LUT_1D_SIZE 3\n0 0 0\n", 0, {}, "the table has 1 lines"},
        {"cube", "LUT_1D_SIZE 2\n0 0 0\n1 1 1\n1 1 1\n", 0, {}, "t.cube:4: more table lines"},
        {"cube", Cube3D(0.1), 0, {}, "worst deviation 25.5 levels"},
        {"cube", "LUT_4D_SIZE 2\n", 0, {}, "unknown keyword LUT_4D_SIZE"},
        {"look", "bogus\n", 0, {}, "t.look:1: the first statement names the kind"},
        {"look",
         "curve\n# c\nred 0,0 300,1\n",
         0,
         {},
         "t.look:3: red: point 2 is outside 0 to 255"},
        {"look", "curve\nred 0,0 255,255\nrgb 0,0 255,255\n", 0, {}, "t.look:3: red given twice"},
        {"look", "curve\nsize 255 4\n", 0, {}, "t.look:2: width 255 of a 24-bit image"},
        {"look", "vignette\nradius x\n", 0, {}, "t.look:2: 'x' is not a number"},
        {"look", "dots\nink 1 2\n", 0, {}, "t.look:2: ink takes 3 values"},
        {"look", "dots\nrow 0.5\n", 0, {}, "'row' is not a setting of a dots"},
        {"look", "ramp\nsize 256 20\nrow 0.5\nrow 0.55\n", 0, {}, "is not read pure at height 20"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.kind) + ": " + c.text);
        double out[3] = {-1, -1, -1};
        std::string err;
        const bool ok = Read(c.kind, c.text, c.in, out, &err);
        ASSERT_EQ(c.error == nullptr, ok) << err;
        if (c.error) {
            EXPECT_TRUE(GETestContains(err, c.error));
            continue;
        }
        for (int ch = 0; ch < 3; ++ch) {
            EXPECT_NEAR(c.out[ch], out[ch], 0.01) << "channel " << ch;
        }
    }
}

// Between two points a monotone curve stays within their outputs (and so
// never overshoots), and it rises wherever its points rise; a spline and
// straight lines pass through every point.
TEST(LooksCurves, MonotoneStaysWithinItsPoints) {
    const std::vector<std::vector<CurvePoint>> sets = {
        {{0, 0}, {100, 0}, {110, 255}, {255, 255}},
        {{0, 0}, {50, 200}, {60, 20}, {255, 255}},
        {{0, 30}, {64, 40}, {65, 200}, {128, 210}, {250, 250}},
        {{10, 200}, {20, 0}, {245, 5}},
    };
    for (const std::vector<CurvePoint>& pts : sets) {
        for (CurveInterp interp : {kInterpMonotone, kInterpSpline, kInterpLinear}) {
            ToneCurve curve;
            std::string err;
            ASSERT_TRUE(curve.Set(pts, interp, &err)) << err;
            for (const CurvePoint& p : pts) {
                EXPECT_NEAR(p.m_dOut, curve.Eval(p.m_dIn), 1e-9);
            }
            EXPECT_EQ(pts.front().m_dOut, curve.Eval(0));
            EXPECT_EQ(pts.back().m_dOut, curve.Eval(255));
            for (size_t k = 0; interp == kInterpMonotone && k + 1 < pts.size(); ++k) {
                const double lo = std::min(pts[k].m_dOut, pts[k + 1].m_dOut);
                const double hi = std::max(pts[k].m_dOut, pts[k + 1].m_dOut);
                const double dir = pts[k + 1].m_dOut - pts[k].m_dOut;
                double prev = curve.Eval(pts[k].m_dIn);
                for (double x = pts[k].m_dIn; x <= pts[k + 1].m_dIn; x += 0.125) {
                    const double y = curve.Eval(x);
                    ASSERT_TRUE(y >= lo - 1e-9 && y <= hi + 1e-9) << x;
                    ASSERT_GE((y - prev) * dir, -1e-9) << x;
                    prev = y;
                }
            }
        }
    }
}

class LooksGLTest : public GLTest {
protected:
    // The texels of a BMP loaded as the effects load it, RGBA rows bottom
    // first; false when the reader refuses it.
    bool Load(const std::string& path, unsigned format, unsigned type,
              std::vector<unsigned char>* pTexels, int* pnW, int* pnH) {
        GLTexture tex;
        if (!tex.LoadBMP(path.c_str(), format, type, 0)) {
            return false;
        }
        *pnW = int(tex.GetWidth()), *pnH = int(tex.GetHeight());
        *pTexels = GETestSampleTexture(tex.GetTexName(), *pnW, *pnH);
        return true;
    }
};

// Each kind written by the tool and read by the library: the texture's
// channels are the ones the effects read for each authored colour, rows land
// where t reads them, 8 and 16 bits come through.
TEST_F(LooksGLTest, WrittenImagesReadBackAsTheEffectsReadThem) {
    GETestTempDir dir;
    const unsigned RGB = GL_RGB, UB = GL_UNSIGNED_BYTE;
    const struct {
        const char* source;
        unsigned format, type;
        // The texel (R, G, B) expected at column x of image row y.
        void (*want)(int x, int y, int w, int h, int rgb[3]);
    } cases[] = {
        // Red straight, green inverted, blue flat 100: the texture holds
        // blue, green, red (red read from its blue channel).
        {"curve\nsize 8 2\nred 0,0 255,255\ngreen 0,255 255,0\nblue 0,100 255,100\n", RGB, UB,
         [](int x, int, int w, int, int rgb[3]) {
             const int v = int(lround(255 * (x + 0.5) / w));
             rgb[0] = 100, rgb[1] = 255 - v, rgb[2] = v;
         }},
        // Rows: t 0.25 straight red, t 0.75 inverted red; 4 rows, two a row.
        {"ramp\nsize 4 4\nrow 0.25\nred 0,0 255,255\nrow 0.75\nred 0,255 255,0\n", RGB, UB,
         [](int x, int y, int w, int, int rgb[3]) {
             const int v = int(lround(255 * (x + 0.5) / w));
             rgb[0] = rgb[1] = v, rgb[2] = y < 2 ? v : 255 - v;
         }},
        {"vignette\nsize 8 8\nradius 0\nsoftness 0.01\nstrength 0.6\n", GL_LUMINANCE, UB,
         [](int, int, int, int, int rgb[3]) { rgb[0] = rgb[1] = rgb[2] = 102; }},
        {"dots\nsize 8 8\nshape square\nradius 0.25\nsoftness 0\nink 255 0 255\npaper 0 255 0\n",
         RGB, GL_UNSIGNED_SHORT_5_6_5,
         [](int x, int y, int, int, int rgb[3]) {
             const bool bInk = x >= 2 && x <= 5 && y >= 2 && y <= 5;
             rgb[0] = rgb[2] = bInk ? 255 : 0, rgb[1] = bInk ? 0 : 255;
         }},
        // A gradient's colours are what the effect multiplies with: red first.
        {"gradient\nsize 4 2\nblend linear\nstop 0 255 0 0\nstop 1 0 0 255\n", RGB, UB,
         [](int, int y, int, int, int rgb[3]) {
             rgb[0] = y == 0 ? 191 : 64, rgb[1] = 0, rgb[2] = y == 0 ? 64 : 191;
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.source);
        LookSource src;
        LookBitmap bmp;
        std::vector<uint8_t> bytes;
        std::string err;
        ASSERT_TRUE(ParseLookSource(c.source, "t", &src, &err) && BuildLookImage(src, &bmp, &err) &&
                    EncodeLookBmp(bmp, &bytes, &err))
            << err;
        const std::string path = dir.Path("t.bmp");
        ASSERT_TRUE(WriteFileBytes(path, bytes.data(), bytes.size(), &err)) << err;
        std::vector<unsigned char> texels;
        int w = 0, h = 0;
        ASSERT_TRUE(Load(path, c.format, c.type, &texels, &w, &h));
        ASSERT_EQ(size_t(w * h * 4), texels.size());
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                int want[3];
                c.want(x, y, w, h, want);
                for (int ch = 0; ch < 3; ++ch) {
                    EXPECT_NEAR(want[ch], texels[size_t((y * w + x) * 4 + ch)], 1)
                        << "texel " << x << "," << y << " channel " << ch;
                }
            }
        }
    }
}

// The images the build makes, loaded with the format the effects use: every
// row an effect reads is one authored row, whichever two image rows the
// linear filter blends, and the rows read are distinct looks.
TEST_F(LooksGLTest, ShippedImagesServeEveryRowTheEffectsRead) {
    const unsigned RGB = GL_RGB, UB = GL_UNSIGNED_BYTE, L = GL_LUMINANCE;
    const unsigned S565 = GL_UNSIGNED_SHORT_5_6_5;
    const struct {
        const char* name;
        unsigned format, type;
        std::vector<double> rows;
    } cases[] = {
        {"CurveCross.bmp", RGB, UB, {0}},
        {"CurveCold.bmp", RGB, UB, {0}},
        {"CurveWarm.bmp", RGB, UB, {0}},
        {"CurveSepia.bmp", RGB, UB, {0}},
        {"ContrastCurveSet.bmp", RGB, UB, {0.5}},
        {"stylizeColorRamp.bmp", RGB, UB, {0.5, 0.9}},
        {"stylizeContrastRamp.bmp", RGB, UB, {0.5, 0.6, 0.7, 0.8, 1.0}},
        {"mask_vignette_wide.bmp", L, UB, {}},
        {"mask_vignette_legacy.bmp", L, UB, {}},
        {"twoToneMaskV.bmp", RGB, UB, {}},
        {"twoToneMaskH.bmp", RGB, UB, {}},
        {"dot_mask_0.bmp", RGB, S565, {}},
        {"dot_mask_1.bmp", RGB, S565, {}},
        {"dot_mask_2.bmp", RGB, S565, {}},
        {"dot_mask_3.bmp", RGB, S565, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<unsigned char> texels;
        int w = 0, h = 0;
        ASSERT_TRUE(Load(std::string(POSTEFFECT_LOOKS_DIR "/") + c.name, c.format, c.type, &texels,
                         &w, &h));
        std::vector<std::vector<unsigned char>> read;
        for (double t : c.rows) {
            const int lo = std::max(0, int(floor(t * h - 0.5)));
            const int hi = std::min(h - 1, lo + 1);
            const auto row = [&](int y) {
                return std::vector<unsigned char>(texels.begin() + y * w * 4,
                                                  texels.begin() + (y + 1) * w * 4);
            };
            EXPECT_EQ(row(lo), row(hi)) << "t " << t << " blends rows " << lo << " and " << hi;
            for (const auto& other : read) {
                EXPECT_NE(other, row(lo)) << "t " << t << " repeats another row";
            }
            read.push_back(row(lo));
        }
    }
}

// posteffect-looks in one process: its exit code, one line on stderr, and
// the outputs, all or nothing, an existing file left as it was on failure.
TEST(LooksCli, FailuresLeaveNoOutput) {
    GETestTempDir dir;
    std::string err;
    const std::string acv = Acv({{0, 0, 255, 255}, {0, 0, 128, 64, 255, 255}});
    ASSERT_TRUE(WriteFileBytes(dir.Path("cut.acv"), (const uint8_t*)acv.data(), 15, &err));
    ASSERT_TRUE(WriteFileBytes(dir.Path("old.bmp"), (const uint8_t*)"old", 3, &err));
    const struct {
        std::vector<std::string> args;
        int nExit;
        const char* error;
        std::vector<std::string> made;  // files the run leaves in the folder besides the inputs
    } cases[] = {
        {{"curve", "--acv", "cut.acv", "-o", "a.bmp"}, 1, "truncated", {}},
        {{"curve", "--rgb", "0,0 255,255", "-o", "a.bmp", "-o", "no/such/b.bmp"},
         1,
         "no/such/b.bmp: No such file",
         {}},
        {{"curve", "--rgb", "0,0 300,255", "-o", "old.bmp"}, 2, "outside 0 to 255", {}},
        {{"identity", "ramp", "-o", "a.bmp", "-o", "old.txt"}, 2, ".bmp, .png or .look", {}},
        {{"frobnicate"}, 2, "unknown command frobnicate", {}},
        {{"identity", "ramp", "--rows", "0.3,0.6", "-o", "r.bmp", "-o", "r.look"},
         0,
         nullptr,
         {"r.bmp", "r.look"}},
    };
    for (const auto& c : cases) {
        std::vector<std::string> words = {"posteffect-looks"};
        for (const std::string& a : c.args) {
            words.push_back(a.find('.') != std::string::npos && a[0] != '0' ? dir.Path(a) : a);
        }
        std::vector<char*> argv;
        for (std::string& w : words) {
            argv.push_back(&w[0]);
        }
        SCOPED_TRACE(c.args[0] + " " + (c.args.size() > 1 ? c.args[1] : ""));
        FILE* streams[2] = {tmpfile(), tmpfile()};
        EXPECT_EQ(c.nExit, RunLooksTool(int(argv.size()), argv.data(), streams[0], streams[1]));
        std::string text(4096, '\0');
        rewind(streams[1]);
        text.resize(fread(&text[0], 1, text.size(), streams[1]));
        fclose(streams[0]), fclose(streams[1]);
        if (c.error) {
            EXPECT_TRUE(GETestContains(text, c.error));
            EXPECT_EQ(1, std::count(text.begin(), text.end(), '\n')) << text;
        }
        std::vector<std::string> names;
        DIR* d = opendir(dir.Dir().c_str());
        while (dirent* e = readdir(d)) {
            const std::string n = e->d_name;
            if (n != "." && n != ".." && n != "cut.acv" && n != "old.bmp") {
                names.push_back(n);
                EXPECT_EQ(0, unlink(dir.Path(n).c_str()));
            }
        }
        closedir(d);
        std::sort(names.begin(), names.end());
        EXPECT_EQ(c.made, names);
        std::vector<uint8_t> old;
        ASSERT_TRUE(ReadFileBytes(dir.Path("old.bmp"), &old, &err));
        EXPECT_EQ("old", std::string(old.begin(), old.end()));
    }
}

// The --looks root: the folder's images in place of the base root's, the
// base's other images and overrides still there (but not an override the
// folder replaces), data/ shared, and everything gone afterwards.
TEST(LooksRootTest, FolderImagesReplaceTheBuiltOnes) {
    GETestTempDir base, mine;
    std::string err;
    for (const char* sub :
         {"system", "system/media", "system/media/GPU", "sdcard", "sdcard/quandor", "data"}) {
        ASSERT_EQ(0, mkdir(base.Path(sub).c_str(), 0755));
    }
    const auto put = [&err](const std::string& path, const std::string& text) {
        ASSERT_TRUE(WriteFileBytes(path, (const uint8_t*)text.data(), text.size(), &err)) << err;
    };
    put(base.Path("system/media/GPU/A.bmp"), "base A");
    put(base.Path("system/media/GPU/B.bmp"), "base B");
    put(base.Path("sdcard/quandor/A.bmp"), "override A");
    put(base.Path("sdcard/quandor/C.bmp"), "override C");
    put(mine.Path("A.bmp"), "mine A");
    setenv("POSTEFFECT_ROOT", "/elsewhere", 1);
    std::string root;
    {
        LooksRoot looks;
        ASSERT_TRUE(looks.Make(mine.Dir(), base.Dir(), &err)) << err;
        root = looks.Path();
        EXPECT_EQ(root, std::string(getenv("POSTEFFECT_ROOT")));
        const struct {
            const char* path;
            const char* text;  // null: absent
        } files[] = {{"system/media/GPU/A.bmp", "mine A"},
                     {"system/media/GPU/B.bmp", "base B"},
                     {"sdcard/quandor/A.bmp", nullptr},
                     {"sdcard/quandor/C.bmp", "override C"}};
        for (const auto& f : files) {
            std::vector<uint8_t> bytes;
            EXPECT_EQ(f.text != nullptr, ReadFileBytes(root + "/" + f.path, &bytes, &err))
                << f.path;
            EXPECT_EQ(f.text ? f.text : "", std::string(bytes.begin(), bytes.end())) << f.path;
        }
        put(root + "/data/dump.bmp", "dump");
        EXPECT_TRUE(std::filesystem::exists(base.Path("data/dump.bmp")));
        EXPECT_FALSE(looks.Make(base.Dir(), base.Dir(), &err));
        EXPECT_TRUE(GETestContains(err, "no .bmp files"));
    }
    EXPECT_STREQ("/elsewhere", getenv("POSTEFFECT_ROOT"));
    struct stat st;
    EXPECT_NE(0, stat(root.c_str(), &st)) << root << " is still there";
    unsetenv("POSTEFFECT_ROOT");
}

}  // namespace
