#include "lookscli.h"

#include <dirent.h>
#include <errno.h>
#include <math.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <new>
#include <vector>

#include "lookbmp.h"
#include "lookimport.h"
#include "lookpreview.h"
#include "looksource.h"

namespace {

const int kDefaultSamples = 33;

// A command's words: options with their values, and the rest in order.
struct Args {
    std::map<std::string, std::string> m_values;
    std::vector<std::string> m_vOutputs;  // every -o
    std::vector<std::string> m_vRest;
    bool Has(const std::string& key) const { return m_values.count(key) != 0; }
    std::string Get(const std::string& key) const {
        auto it = m_values.find(key);
        return it == m_values.end() ? std::string() : it->second;
    }
};

struct Failure {
    int m_nCode;
    std::string m_strMsg;
};

bool EndsWith(const std::string& s, const char* suffix) {
    const size_t n = strlen(suffix);
    return s.size() >= n && s.compare(s.size() - n, n, suffix) == 0;
}

std::string Stem(const std::string& path) {
    const size_t slash = path.rfind('/');
    std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    const size_t dot = base.rfind('.');
    return dot == std::string::npos || dot == 0 ? base : base.substr(0, dot);
}

std::string JoinPath(const std::string& dir, const std::string& name) {
    return dir.empty() || dir.back() == '/' ? dir + name : dir + "/" + name;
}

bool ReadText(const std::string& path, std::string* pText, std::string* pErr) {
    std::vector<uint8_t> bytes;
    if (!ReadFileBytes(path, &bytes, pErr)) {
        return false;
    }
    pText->assign(bytes.begin(), bytes.end());
    return true;
}

bool ParseArgs(int argc, char** argv, const std::vector<std::string>& valueOptions, Args* pArgs,
               std::string* pErr) {
    for (int i = 2; i < argc; ++i) {
        const std::string a = argv[i];
        const bool bValue = a == "-o" || std::find(valueOptions.begin(), valueOptions.end(), a) !=
                                             valueOptions.end();
        if (bValue) {
            if (i + 1 >= argc) {
                *pErr = a + " needs a value";
                return false;
            }
            const std::string v = argv[++i];
            if (a == "-o") {
                pArgs->m_vOutputs.push_back(v);
            } else if (!pArgs->m_values.emplace(a, v).second) {
                *pErr = a + " given twice";
                return false;
            }
        } else if (a.size() > 1 && a[0] == '-') {
            *pErr = "unknown option " + a;
            return false;
        } else {
            pArgs->m_vRest.push_back(a);
        }
    }
    return true;
}

// A whole number in lo to hi.
bool WholeIn(const std::string& text, int lo, int hi, int* pn) {
    double v = 0;
    if (!ParseNumber(text, &v) || v != floor(v) || v < lo || v > hi) {
        return false;
    }
    *pn = int(v);
    return true;
}

bool ParseRows(const std::string& text, std::vector<double>* pRows, std::string* pErr) {
    std::vector<double> rows;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t comma = std::min(text.find(',', start), text.size());
        double t = 0;
        if (!ParseNumber(text.substr(start, comma - start), &t) || t < 0 || t > 1) {
            *pErr = "--rows takes t values 0 to 1 separated by commas";
            return false;
        }
        rows.push_back(t);
        start = comma + 1;
    }
    std::sort(rows.begin(), rows.end());
    if (std::adjacent_find(rows.begin(), rows.end()) != rows.end() || rows.size() > 256) {
        *pErr = "--rows takes up to 256 different t values";
        return false;
    }
    *pRows = rows;
    return true;
}

// Points rounded to what a source keeps (two decimals), inputs kept apart.
std::vector<CurvePoint> Tidy(const std::vector<CurvePoint>& points) {
    std::vector<CurvePoint> out;
    for (CurvePoint p : points) {
        p.m_dIn = std::round(p.m_dIn * 100) / 100;
        p.m_dOut = std::min(255.0, std::max(0.0, std::round(p.m_dOut * 100) / 100));
        if (out.empty() || p.m_dIn > out.back().m_dIn) {
            out.push_back(p);
        }
    }
    return out;
}

// Curves from one row of a graded neutral image: column i held the level
// round(255 (i + 0.5) / width) before grading; nSamples points spread
// evenly over the levels, read with straight lines between columns.
bool CurvesFromRow(const LookBitmap& bmp, int y, int nSamples, CurveSet* pSet, std::string* pErr) {
    for (int c = 0; c < 3; ++c) {
        std::vector<CurvePoint> cols;
        for (int x = 0; x < bmp.m_nWidth; ++x) {
            const double in = std::round(255.0 * (x + 0.5) / bmp.m_nWidth);
            const double v = bmp.Pixel(x, y)[c];
            if (!cols.empty() && cols.back().m_dIn == in) {
                cols.back().m_dOut = (cols.back().m_dOut + v) / 2;
            } else {
                cols.push_back({in, v});
            }
        }
        if (cols.size() < 2) {
            *pErr = "the image is too narrow to hold a curve";
            return false;
        }
        ToneCurve straight;
        straight.Set(cols, kInterpLinear, pErr);
        std::vector<CurvePoint> points;
        for (int k = 0; k < nSamples; ++k) {
            const double x = 255.0 * k / (nSamples - 1);
            points.push_back({x, straight.Eval(x)});
        }
        if (!pSet->m_aChannels[c].Set(Tidy(points), kInterpMonotone, pErr)) {
            return false;
        }
    }
    return true;
}

bool CurvesFromCube(const CubeCurves& cube, CurveSet* pSet, std::string* pErr) {
    for (int c = 0; c < 3; ++c) {
        const size_t n = cube.m_avTable[c].size();
        std::vector<double> inputs = {0, 255};
        for (size_t i = 0; i < n; ++i) {
            const double v =
                cube.m_adMin[c] + (cube.m_adMax[c] - cube.m_adMin[c]) * double(i) / double(n - 1);
            if (v > 0 && v < 1) {
                inputs.push_back(v * 255);
            }
        }
        if (inputs.size() > 256) {
            inputs.clear();
            for (int x = 0; x < 256; ++x) {
                inputs.push_back(x);
            }
        }
        std::sort(inputs.begin(), inputs.end());
        std::vector<CurvePoint> points;
        for (double x : inputs) {
            points.push_back({x, cube.Eval(c, x)});
        }
        if (!pSet->m_aChannels[c].Set(Tidy(points), kInterpLinear, pErr)) {
            return false;
        }
    }
    return true;
}

// Writes the outputs of a look: .bmp the image, .png the image as a
// picture, .look the source.
bool WriteLook(const LookSource& src, const std::vector<std::string>& outputs,
               const std::string& comment, Failure* pFail) {
    LookBitmap bmp;
    std::string msg;
    if (!BuildLookImage(src, &bmp, &msg)) {
        *pFail = {1, msg};
        return false;
    }
    FileSet files;
    for (const std::string& path : outputs) {
        std::vector<uint8_t> bytes;
        if (EndsWith(path, ".bmp")) {
            if (!EncodeLookBmp(bmp, &bytes, &msg)) {
                *pFail = {1, msg};
                return false;
            }
        } else if (EndsWith(path, ".png")) {
            if (!EncodePng(LookBitmapPicture(bmp), &bytes, &msg)) {
                *pFail = {1, msg};
                return false;
            }
        } else if (EndsWith(path, ".look")) {
            const std::string text = FormatLookSource(src, comment);
            bytes.assign(text.begin(), text.end());
        } else {
            *pFail = {2, path + ": an output ends in .bmp, .png or .look"};
            return false;
        }
        files.Add(path, std::move(bytes));
    }
    if (!files.Commit(&msg)) {
        *pFail = {1, msg};
        return false;
    }
    return true;
}

LookShow ShowFor(LookKind kind) {
    return kind == kLookCurve  ? kShowCurve
           : kind == kLookRamp ? kShowRamp
           : kind == kLookDots ? kShowDots
                               : kShowMask;
}

bool LoadSource(const std::string& path, LookSource* pSrc, std::string* pErr) {
    std::string text;
    return ReadText(path, &text, pErr) && ParseLookSource(text, path, pSrc, pErr);
}

bool CmdBuild(const Args& a, FILE* out, Failure* pFail) {
    if (a.m_vRest.empty() || a.m_vOutputs.size() > 1) {
        *pFail = {2, "build takes sources and at most one -o DIR"};
        return false;
    }
    const std::string dir = a.m_vOutputs.empty() ? "." : a.m_vOutputs[0];
    std::vector<std::string> sources;
    for (const std::string& path : a.m_vRest) {
        DIR* d = opendir(path.c_str());
        if (!d) {
            sources.push_back(path);
            continue;
        }
        std::vector<std::string> found;
        while (dirent* e = readdir(d)) {
            if (EndsWith(e->d_name, ".look")) {
                found.push_back(JoinPath(path, e->d_name));
            }
        }
        closedir(d);
        std::sort(found.begin(), found.end());
        sources.insert(sources.end(), found.begin(), found.end());
    }
    FileSet files;
    std::vector<std::string> names;
    std::string msg;
    for (const std::string& path : sources) {
        LookSource src;
        LookBitmap bmp;
        std::vector<uint8_t> bytes;
        if (!LoadSource(path, &src, &msg) || !BuildLookImage(src, &bmp, &msg) ||
            !EncodeLookBmp(bmp, &bytes, &msg)) {
            *pFail = {1, msg};
            return false;
        }
        const std::string name = Stem(path);
        if (std::find(names.begin(), names.end(), name) != names.end()) {
            *pFail = {1, path + ": a second source named " + name};
            return false;
        }
        names.push_back(name);
        files.Add(JoinPath(dir, name + ".bmp"), std::move(bytes));
        if (a.Has("--preview")) {
            if (!EncodePng(LookPreview(bmp, ShowFor(src.m_eKind), name + ".bmp"), &bytes, &msg)) {
                *pFail = {1, msg};
                return false;
            }
            files.Add(JoinPath(a.Get("--preview"), name + ".png"), std::move(bytes));
        }
    }
    if (sources.empty()) {
        *pFail = {1, "no .look sources found"};
        return false;
    }
    mkdir(dir.c_str(), 0777);
    if (a.Has("--preview")) {
        mkdir(a.Get("--preview").c_str(), 0777);
    }
    if (!files.Commit(&msg)) {
        *pFail = {1, msg};
        return false;
    }
    fprintf(out, "posteffect-looks: %zu look-up image%s in %s\n", names.size(),
            names.size() == 1 ? "" : "s", dir.c_str());
    return true;
}

// Size, axis power and interpolation options shared by curve and identity.
bool ApplyShape(const Args& a, LookSource* pSrc, Failure* pFail) {
    if (a.Has("--size")) {
        const std::string v = a.Get("--size");
        const size_t x = v.find('x');
        const bool bAuto =
            pSrc->m_eKind == kLookRamp && x != std::string::npos && v.substr(x + 1) == "auto";
        if (x == std::string::npos || !WholeIn(v.substr(0, x), 1, kMaxLookSide, &pSrc->m_nWidth) ||
            (!bAuto && !WholeIn(v.substr(x + 1), 1, kMaxLookSide, &pSrc->m_nHeight))) {
            *pFail = {2, "--size takes WxH, 1 to " + std::to_string(kMaxLookSide) + " a side"};
            return false;
        }
        std::string msg;
        if (!LookWidthOk(pSrc->m_nWidth, LookKindBits(pSrc->m_eKind), &msg)) {
            *pFail = {2, "--size: " + msg};
            return false;
        }
    }
    if (a.Has("--axis-power") && (!ParseNumber(a.Get("--axis-power"), &pSrc->m_dAxisPower) ||
                                  !(pSrc->m_dAxisPower >= 0.05 && pSrc->m_dAxisPower <= 20))) {
        *pFail = {2, "--axis-power takes a number from 0.05 to 20"};
        return false;
    }
    return true;
}

bool CmdCurve(const Args& a, Failure* pFail) {
    const char* const kModes[] = {"--acv", "--cube", "--image"};
    const char* const kChannels[] = {"--red", "--green", "--blue", "--rgb", "--master"};
    int nModes = 0;
    for (const char* m : kModes) {
        nModes += a.Has(m) ? 1 : 0;
    }
    bool bPoints = false;
    for (const char* c : kChannels) {
        bPoints = bPoints || a.Has(c);
    }
    if (nModes + (bPoints ? 1 : 0) != 1 || a.m_vOutputs.empty() || !a.m_vRest.empty() ||
        (a.Has("--interp") && !bPoints)) {
        *pFail = {2,
                  "curve takes one of --acv, --cube, --image or channel points (with --interp), "
                  "and -o"};
        return false;
    }
    LookSource src;
    std::string msg;
    std::string comment;
    int nSamples = kDefaultSamples;
    if (a.Has("--samples") && !WholeIn(a.Get("--samples"), 2, 256, &nSamples)) {
        *pFail = {2, "--samples takes 2 to 256"};
        return false;
    }
    if (bPoints) {
        // The same statements a source would hold, read by the source parser.
        std::string text = "curve\n";
        if (a.Has("--interp")) {
            text += "interp " + a.Get("--interp") + "\n";
        }
        for (const char* c : kChannels) {
            if (a.Has(c)) {
                text += std::string(c + 2) + " " + a.Get(c) + "\n";
            }
        }
        if (!ParseLookSource(text, "points", &src, &msg)) {
            *pFail = {2, msg};
            return false;
        }
        comment = "curve from control points";
    } else if (a.Has("--acv")) {
        std::vector<uint8_t> bytes;
        if (!ReadFileBytes(a.Get("--acv"), &bytes, &msg) ||
            !ParseAcv(bytes.data(), bytes.size(), a.Get("--acv"), &src.m_curves, &msg)) {
            *pFail = {1, msg};
            return false;
        }
        src.m_eInterp = kInterpSpline;
        comment = "curve from " + a.Get("--acv");
    } else if (a.Has("--cube")) {
        std::string text;
        CubeCurves cube;
        if (!ReadText(a.Get("--cube"), &text, &msg) ||
            !ParseCube(text.data(), text.size(), a.Get("--cube"), &cube, &msg) ||
            !CurvesFromCube(cube, &src.m_curves, &msg)) {
            *pFail = {1, msg};
            return false;
        }
        src.m_eInterp = kInterpLinear;
        comment = "curve from " + a.Get("--cube");
    } else {
        LookBitmap bmp;
        if (!ReadLookPicture(a.Get("--image"), &bmp, &msg) ||
            !CurvesFromRow(bmp, 0, nSamples, &src.m_curves, &msg)) {
            *pFail = {1, msg};
            return false;
        }
        comment = "curve graded in " + a.Get("--image");
    }
    return ApplyShape(a, &src, pFail) && WriteLook(src, a.m_vOutputs, comment, pFail);
}

bool CmdRamp(const Args& a, Failure* pFail) {
    std::vector<double> rows;
    std::string msg;
    int nSamples = kDefaultSamples;
    if (!a.Has("--image") || !a.Has("--rows") || a.m_vOutputs.empty() || !a.m_vRest.empty()) {
        *pFail = {2, "ramp takes --image FILE --rows T,T,... and -o"};
        return false;
    }
    if (!ParseRows(a.Get("--rows"), &rows, &msg) ||
        (a.Has("--samples") && !WholeIn(a.Get("--samples"), 2, 256, &nSamples))) {
        *pFail = {2, msg.empty() ? "--samples takes 2 to 256" : msg};
        return false;
    }
    LookBitmap bmp;
    if (!ReadLookPicture(a.Get("--image"), &bmp, &msg)) {
        *pFail = {1, msg};
        return false;
    }
    if (!LookRampHeightOk(rows, bmp.m_nHeight, &msg)) {
        *pFail = {1, a.Get("--image") + ": " + msg + "; grade an image from identity ramp --rows " +
                         a.Get("--rows")};
        return false;
    }
    LookSource src = IdentityLook(kLookRamp, rows);
    src.m_nWidth = bmp.m_nWidth;
    src.m_nHeight = bmp.m_nHeight;
    for (LookRow& row : src.m_vRows) {
        int lo = 0, hi = 0;
        LookRowsReadAt(row.m_dT, bmp.m_nHeight, &lo, &hi);
        if (!CurvesFromRow(bmp, lo, nSamples, &row.m_curves, &msg)) {
            *pFail = {1, a.Get("--image") + ": " + msg};
            return false;
        }
    }
    return WriteLook(src, a.m_vOutputs, "ramp graded in " + a.Get("--image"), pFail);
}

bool CmdIdentity(const Args& a, Failure* pFail) {
    LookKind kind = kLookCurve;
    if (a.m_vRest.size() != 1 || !LookKindFromName(a.m_vRest[0], &kind) || a.m_vOutputs.empty()) {
        *pFail = {2, "identity takes a kind (curve, ramp, vignette, dots, gradient) and -o"};
        return false;
    }
    std::vector<double> rows = {0.5, 0.6, 0.7, 0.8, 0.9, 1.0};
    std::string msg;
    if (a.Has("--rows") && (kind != kLookRamp || !ParseRows(a.Get("--rows"), &rows, &msg))) {
        *pFail = {2, msg.empty() ? "--rows is for a ramp" : msg};
        return false;
    }
    LookSource src = IdentityLook(kind, rows);
    return ApplyShape(a, &src, pFail) &&
           WriteLook(src, a.m_vOutputs, std::string("neutral ") + LookKindName(kind), pFail);
}

bool CmdShow(const Args& a, Failure* pFail) {
    if (a.m_vRest.size() != 1 || a.m_vOutputs.size() != 1 || !EndsWith(a.m_vOutputs[0], ".png")) {
        *pFail = {2, "show takes one image or source and -o OUT.png"};
        return false;
    }
    const std::string& path = a.m_vRest[0];
    LookBitmap bmp;
    LookShow show = kShowMask;
    std::string msg;
    if (EndsWith(path, ".look")) {
        LookSource src;
        if (!LoadSource(path, &src, &msg) || !BuildLookImage(src, &bmp, &msg)) {
            *pFail = {1, msg};
            return false;
        }
        show = ShowFor(src.m_eKind);
    } else if (!ReadLookPicture(path, &bmp, &msg)) {
        *pFail = {1, msg};
        return false;
    } else {
        show = GuessLookShow(bmp);
    }
    if (a.Has("--as") && !LookShowFromName(a.Get("--as"), &show)) {
        *pFail = {2, "--as is curve, ramp, mask or dots"};
        return false;
    }
    std::vector<uint8_t> bytes;
    FileSet files;
    const size_t slash = path.rfind('/');
    if (!EncodePng(
            LookPreview(bmp, show, slash == std::string::npos ? path : path.substr(slash + 1)),
            &bytes, &msg)) {
        *pFail = {1, msg};
        return false;
    }
    files.Add(a.m_vOutputs[0], std::move(bytes));
    if (!files.Commit(&msg)) {
        *pFail = {1, msg};
        return false;
    }
    return true;
}

}  // namespace

std::string LooksUsage() {
    return "usage: posteffect-looks COMMAND ...\n"
           "\n"
           "  build [-o DIR] [--preview DIR] SOURCE...\n"
           "      each .look source (or folder of them) into DIR/NAME.bmp; --preview also\n"
           "      writes a picture of each as NAME.png\n"
           "  curve (--red|--green|--blue|--rgb|--master \"IN,OUT ...\")... [--interp I] -o "
           "OUT...\n"
           "  curve --acv FILE | --cube FILE | --image FILE [--samples N] -o OUT...\n"
           "      a curve image from control points (interp monotone, linear or spline),\n"
           "      a Photoshop curves file, a cube LUT or a graded neutral curve image\n"
           "  ramp --image FILE --rows T,T,... [--samples N] -o OUT...\n"
           "      a ramp from a graded neutral ramp image with those rows\n"
           "  identity curve|ramp|vignette|dots|gradient [--rows T,T,...] -o OUT...\n"
           "      a neutral image to grade in an image editor\n"
           "  show FILE [--as curve|ramp|mask|dots] -o OUT.png\n"
           "      a picture of a look-up image (.bmp, .png) or source (.look)\n"
           "\n"
           "  OUT ends in .bmp (the look-up image), .png (the same pixels as a PNG) or .look\n"
           "  (its source). curve and identity also take --size WxH and --axis-power P (the\n"
           "  image is read at input^P). Files are written whole or not at all.\n";
}

int RunLooksTool(int argc, char** argv, FILE* out, FILE* err) {
    if (argc < 2 || strcmp(argv[1], "-h") == 0 || strcmp(argv[1], "--help") == 0) {
        fputs(LooksUsage().c_str(), argc < 2 ? err : out);
        return argc < 2 ? 2 : 0;
    }
    const std::string cmd = argv[1];
    Args a;
    std::string msg;
    Failure fail = {0, ""};
    const std::vector<std::string> kValues = {
        "--preview", "--red",   "--green", "--blue", "--rgb", "--master",     "--interp", "--acv",
        "--cube",    "--image", "--size",  "--rows", "--as",  "--axis-power", "--samples"};
    try {
        if (!ParseArgs(argc, argv, kValues, &a, &msg)) {
            fail = {2, msg};
        } else if (cmd == "build") {
            CmdBuild(a, out, &fail);
        } else if (cmd == "curve") {
            CmdCurve(a, &fail);
        } else if (cmd == "ramp") {
            CmdRamp(a, &fail);
        } else if (cmd == "identity") {
            CmdIdentity(a, &fail);
        } else if (cmd == "show") {
            CmdShow(a, &fail);
        } else {
            fail = {2, "unknown command " + cmd};
        }
    } catch (const std::bad_alloc&) {
        fail = {1, "out of memory"};
    }
    if (fail.m_nCode != 0) {
        fprintf(err, "posteffect-looks: %s%s\n", fail.m_strMsg.c_str(),
                fail.m_nCode == 2 ? " (posteffect-looks --help lists the commands)" : "");
    }
    return fail.m_nCode;
}
