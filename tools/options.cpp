#include "options.h"

#include <ctype.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>

namespace {

std::string Canonical(const std::string& s) {
    std::string out;
    for (char c : s) {
        if (c == ' ' || c == '_') {
            out += '_';
        } else if (c >= 'A' && c <= 'Z') {
            out += char(c - 'A' + 'a');
        } else {
            out += c;
        }
    }
    return out;
}

// A whole decimal integer, nothing around it.
bool ParseInt(const std::string& text, int* pn) {
    if (text.empty()) {
        return false;
    }
    errno = 0;
    char* end = nullptr;
    const long v = strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || end == text.c_str() || v < -2147483647L - 1 ||
        v > 2147483647L) {
        return false;
    }
    *pn = int(v);
    return true;
}

// Decimal digits only (no sign, no blanks) that fit an int.
bool ParseDigits(const std::string& text, int* pn) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos &&
           ParseInt(text, pn);
}

std::vector<std::string> Split(const std::string& s, char sep) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t pos = s.find(sep, start);
        parts.push_back(
            s.substr(start, pos == std::string::npos ? std::string::npos : pos - start));
        if (pos == std::string::npos) {
            return parts;
        }
        start = pos + 1;
    }
}

}  // namespace

const std::vector<EffectInfo>& EffectTable() {
    static const std::vector<EffectInfo> kTable = {
        {0, '0', "Bypass"},
        {1, '1', "Vintage"},
        {2, '2', "DoF"},
        {3, '3', "Distortion"},
        {4, '4', "Vignette"},
        {5, '5', "DOTS"},
        {6, '6', "Contrast"},
        {7, '7', "TS"},
        {8, '8', "Mirror"},
        {9, '9', "Bloom"},
        {10, 'B', "Whiteboard"},
        {11, 'C', "Stylized_Maple"},
        {12, 'D', "Stylized_Nash"},
        {13, 'E', "TwoToneMask_V"},
        {14, 'F', "TwoToneMask_H"},
        {15, 'G', "SplitToning_Mono"},
        {16, 'H', "SplitToning_Color"},
        {17, 'I', "Sketch"},
        {18, 'J', "Color Sketch"},
    };
    return kTable;
}

const EffectInfo* FindEffect(const std::string& name) {
    const std::vector<EffectInfo>& table = EffectTable();
    if (name.size() == 1) {
        for (const EffectInfo& e : table) {
            if (e.m_cCode == name[0]) {
                return &e;
            }
        }
    }
    int n = 0;
    if (ParseDigits(name, &n)) {
        return n >= 0 && n < int(table.size()) ? &table[size_t(n)] : nullptr;
    }
    const std::string key = Canonical(name);
    if (key == "none") {
        return &table[0];
    }
    for (const EffectInfo& e : table) {
        if (Canonical(e.m_szName) == key) {
            return &e;
        }
    }
    return nullptr;
}

std::string EffectSlug(const EffectInfo& effect) {
    return effect.m_nNumber == 0 ? "none" : Canonical(effect.m_szName);
}

bool ParseFourInts(const std::string& text, int an[4]) {
    const std::vector<std::string> parts = Split(text, ',');
    if (parts.size() != 4) {
        return false;
    }
    int v[4];
    for (int i = 0; i < 4; ++i) {
        if (!ParseInt(parts[size_t(i)], &v[i])) {
            return false;
        }
    }
    memcpy(an, v, sizeof(v));
    return true;
}

bool ParseSize(const std::string& text, int* pnWidth, int* pnHeight) {
    const size_t x = text.find('x');
    if (x == std::string::npos) {
        return false;
    }
    int w = 0, h = 0;
    if (!ParseDigits(text.substr(0, x), &w) || !ParseDigits(text.substr(x + 1), &h) || w <= 0 ||
        h <= 0) {
        return false;
    }
    *pnWidth = w;
    *pnHeight = h;
    return true;
}

const EffectInfo* EffectInParams(const std::string& params) {
    for (const std::string& pair : Split(params, ';')) {
        const size_t eq = pair.find('=');
        if (eq != std::string::npos && pair.substr(0, eq) == "GPU-effect") {
            const std::string value = pair.substr(eq + 1);
            for (const EffectInfo& e : EffectTable()) {
                if (!value.empty() && e.m_cCode == value[0]) {
                    return &e;
                }
            }
            return nullptr;
        }
    }
    return nullptr;
}

std::string CameraParameterString(const ToolOptions& opts, const EffectInfo& effect) {
    const std::string key = std::string("GPU-effect=") + effect.m_cCode;
    if (opts.m_bParams) {
        if (EffectInParams(opts.m_strParams)) {
            return opts.m_strParams;
        }
        return opts.m_strParams.empty() ? key : key + ";" + opts.m_strParams;
    }
    std::string s = key;
    if (opts.m_bParam0) {
        s += ";GE-param0=" + opts.m_strParam0;
    }
    if (opts.m_bParam1) {
        s += ";GE-param1=" + opts.m_strParam1;
    }
    return s;
}

namespace {

// "a,b,c,d".
std::string FourInts(const int an[4]) {
    return std::to_string(an[0]) + "," + std::to_string(an[1]) + "," + std::to_string(an[2]) + "," +
           std::to_string(an[3]);
}

// Parameters that show an effect at its best on a whole preview: the plug-in
// maps group 1's first word from a 1920-wide screen to the preview, the
// others come as they are (preview pixels).
void ShowcaseParams(int effect, const ToolOptions& opts, int g0[4], int g1[4]) {
    const int w = opts.m_nPreviewWidth, h = opts.m_nPreviewHeight;
    const int screenX = 1920 / 2;  // the preview's middle, in screen pixels
    for (int i = 0; i < 4; ++i) {
        g0[i] = g1[i] = 0;
    }
    switch (effect) {
        case 2:  // a sharp circle a third of the width across in the middle
            g0[0] = 80;
            g1[0] = screenX, g1[1] = h / 2, g1[2] = w / 2 + w / 6, g1[3] = h / 2;
            break;
        case 3:  // bent outwards about the middle
            g0[0] = 100;
            g1[0] = screenX, g1[1] = h / 2;
            break;
        case 4:  // a soft circle a third of the width across
            g0[0] = 40;
            g1[0] = screenX, g1[1] = h / 2, g1[2] = w / 2 + w / 3, g1[3] = h / 2;
            break;
        case 5:
            g0[0] = 50;
            break;
        case 7:  // a sharp band across the middle
            g0[0] = 80;
            g1[0] = screenX, g1[1] = h / 2, g1[2] = w / 2, g1[3] = h / 2 + h / 3;
            break;
        case 15:
            g0[0] = 50;
            break;
    }
}

}  // namespace

std::vector<ToolRun> PlanRuns(const ToolOptions& opts) {
    static const char* const kLooks[4] = {"cross", "cold", "warm", "sepia"};
    std::vector<int> effects = opts.m_vEffects;
    const bool bAll = effects.empty();
    if (bAll) {
        for (int n = 1; n < int(EffectTable().size()); ++n) {
            effects.push_back(n);
        }
    }
    std::vector<ToolRun> runs;
    for (int n : effects) {
        const EffectInfo& e = EffectTable()[size_t(n)];
        const std::string name = n == 0 ? std::string("none") : std::string(e.m_szName);
        const std::string number = " (" + std::to_string(n) + ")";
        int g0[4], g1[4];
        ShowcaseParams(n, opts, g0, g1);
        const bool bGiven = opts.m_bParams || opts.m_bParam0 || opts.m_bParam1;
        auto params = [&](const int* p0, const int* p1) {
            if (opts.m_bParams) {
                return CameraParameterString(opts, e);
            }
            ToolOptions o = opts;
            o.m_bParam0 = o.m_bParam1 = true;
            o.m_strParam0 = opts.m_bParam0 ? opts.m_strParam0 : FourInts(p0);
            o.m_strParam1 = opts.m_bParam1 ? opts.m_strParam1 : FourInts(p1);
            return CameraParameterString(o, e);
        };
        if (opts.m_bSweep) {
            if (opts.m_bParam0) {
                ParseFourInts(opts.m_strParam0, g0);
            }
            if (opts.m_bParam1) {
                ParseFourInts(opts.m_strParam1, g1);
            }
            for (int v = opts.m_nSweepFrom; v <= opts.m_nSweepTo; v += opts.m_nSweepStep) {
                (opts.m_nSweepGroup == 0 ? g0 : g1)[opts.m_nSweepWord] = v;
                ToolOptions o = opts;
                o.m_bParam0 = o.m_bParam1 = true;
                o.m_bParams = false;
                o.m_strParam0 = FourInts(g0);
                o.m_strParam1 = FourInts(g1);
                const std::string what =
                    "param" + std::to_string(opts.m_nSweepGroup) +
                    (opts.m_nSweepWord ? "." + std::to_string(opts.m_nSweepWord) : std::string()) +
                    "=" + std::to_string(v);
                runs.push_back({n, CameraParameterString(o, e), name + " " + what + number,
                                EffectSlug(e) + "-" + what});
                if (opts.m_nSweepStep <= 0) {
                    break;
                }
            }
        } else if (n == 1 && bAll && !bGiven) {
            for (int look = 0; look < 4; ++look) {
                g0[0] = look;
                runs.push_back({n, params(g0, g1), name + " " + kLooks[look] + number,
                                EffectSlug(e) + "-" + kLooks[look]});
            }
        } else {
            runs.push_back({n, params(g0, g1), name + number, EffectSlug(e)});
        }
    }
    return runs;
}

std::string ToolUsage() {
    return "usage: posteffect [options] [IMAGE]\n"
           "\n"
           "Runs camera effects of libposteffect.so on a picture the way the camera\n"
           "service does: preview frames, then a still capture. IMAGE is a PNG or JPEG\n"
           "(default: the bundled photograph), or raw NV21 with --nv21.\n"
           "\n"
           "  --effect E         effect by code (9, B), number (10) or name (Bloom,\n"
           "                     \"Color Sketch\"); repeat or separate with commas.\n"
           "                     Default: every effect of the table that comes up\n"
           "  --param0 a,b,c,d   parameter group 0 (\"GE-param0\")\n"
           "  --param1 a,b,c,d   parameter group 1 (\"GE-param1\")\n"
           "  --params STRING    raw camera parameters \"key=value;...\" (instead of\n"
           "                     --param0/--param1; \"GPU-effect\" is added if missing)\n"
           "  --sweep paramG[.W]=FROM:TO:STEP\n"
           "                     one run per value of word W (0-3, default 0) of group G,\n"
           "                     a contact-sheet cell each, labelled with the value\n"
           "  --nv21 WxH         IMAGE is raw NV21 of this size\n"
           "  --preview WxH      preview size (default 1280x720; width a multiple of 4)\n"
           "  --capture WxH      capture size (default: the image's own, made even)\n"
           "  --no-capture       preview only\n"
           "  --frames N         preview frames per effect (default 5)\n"
           "  --crop x,y,w,h     setCrop after the first preview frame\n"
           "  --out DIR          folder for the outputs (default: current folder)\n"
           "  --format png|jpg   picture format of the outputs (default png)\n"
           "  --preview-out FILE the processed preview frame (.png/.jpg; one effect)\n"
           "  --capture-out FILE the processed capture (.png/.jpg; one effect)\n"
           "  --raw              also write the results as raw NV21 (.nv21)\n"
           "  --contact          write posteffect-contact.png (default when no --effect)\n"
           "  --no-contact       do not write it\n"
           "  --lib PATH         the plug-in library (default: the one built with this tool)\n"
           "  --looks DIR        look-up images (.bmp by their names) to use in place of\n"
           "                     the built ones; the others stay as they are\n"
           "  --log MASKS        the library's log masks (POSTEFFECT_LOG, e.g. '*=0x16');\n"
           "                     by default errors, or nothing when every effect runs\n"
           "                     (effects that do not exist would each log one)\n"
           "  -h, --help         this text\n"
           "\n"
           "Per effect it writes posteffect-NAME-preview.png and posteffect-NAME-capture.png\n"
           "when effects are chosen with --effect, and prints the time per preview frame\n"
           "(the first, which brings the effect up, and the mean of the others) and of\n"
           "the capture, beside the pass-through time of effect 0.\n";
}

namespace {

// A size option's value: WxH with the width a multiple of nWidthStep, the
// height even, the width from nMinWidth, the height from nMinHeight, both up
// to nMax.
bool ParseSizeIn(const std::string& v, int nWidthStep, int nMinWidth, int nMinHeight, int nMax,
                 int* pnWidth, int* pnHeight) {
    return ParseSize(v, pnWidth, pnHeight) && *pnWidth % nWidthStep == 0 && !(*pnHeight & 1) &&
           *pnWidth >= nMinWidth && *pnHeight >= nMinHeight && *pnWidth <= nMax &&
           *pnHeight <= nMax;
}

// "paramG[.W]=FROM:TO:STEP".
bool ParseSweep(const std::string& v, ToolOptions* o) {
    const size_t eq = v.find('=');
    if (eq == std::string::npos || v.compare(0, 5, "param") != 0) {
        return false;
    }
    const std::string key = v.substr(5, eq - 5);
    const std::vector<std::string> range = Split(v.substr(eq + 1), ':');
    if ((key.size() != 1 && !(key.size() == 3 && key[1] == '.')) || range.size() != 3 ||
        (key[0] != '0' && key[0] != '1') || (key.size() == 3 && (key[2] < '0' || key[2] > '3'))) {
        return false;
    }
    int from, to, step;
    if (!ParseInt(range[0], &from) || !ParseInt(range[1], &to) || !ParseInt(range[2], &step) ||
        from > to || step <= 0 || ((long long)to - from) / step >= 64) {
        return false;
    }
    o->m_bSweep = true;
    o->m_nSweepGroup = key[0] - '0';
    o->m_nSweepWord = key.size() == 3 ? key[2] - '0' : 0;
    o->m_nSweepFrom = from;
    o->m_nSweepTo = to;
    o->m_nSweepStep = step;
    return true;
}

bool TakesValue(const std::string& arg) {
    static const char* const kValueOptions[] = {
        "--effect",      "--nv21",   "--preview", "--capture", "--param0", "--param1",
        "--params",      "--frames", "--crop",    "--out",     "--format", "--preview-out",
        "--capture-out", "--lib",    "--log",     "--looks",   "--sweep"};
    for (const char* sz : kValueOptions) {
        if (arg == sz) {
            return true;
        }
    }
    return false;
}

}  // namespace

ParseStatus ParseToolOptions(int argc, char** argv, ToolOptions* pOpts, std::string* pErr) {
    ToolOptions o;
    bool bHaveInput = false;
    auto fail = [pErr](const std::string& msg) {
        *pErr = msg;
        return kParseError;
    };
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        std::string v;
        if (TakesValue(arg)) {
            if (i + 1 >= argc) {
                return fail(arg + " needs a value");
            }
            v = argv[++i];
        }
        int an[4];
        if (arg == "-h" || arg == "--help") {
            return kParseHelp;
        } else if (arg == "--raw") {
            o.m_bRaw = true;
        } else if (arg == "--contact" || arg == "--no-contact") {
            o.m_nContact = arg == "--contact" ? 1 : 0;
        } else if (arg == "--no-capture") {
            o.m_bNoCapture = true;
        } else if (arg == "--effect") {
            for (const std::string& name : Split(v, ',')) {
                const EffectInfo* e = FindEffect(name);
                if (!e) {
                    return fail("unknown effect \"" + name + "\"");
                }
                o.m_vEffects.push_back(e->m_nNumber);
            }
        } else if (arg == "--nv21") {
            if (!ParseSizeIn(v, 2, 2, 2, 1 << 30, &o.m_nNv21Width, &o.m_nNv21Height)) {
                return fail("--nv21 needs an even size WxH");
            }
            o.m_bNv21 = true;
        } else if (arg == "--preview") {
            if (!ParseSizeIn(v, 4, 32, 32, 8192, &o.m_nPreviewWidth, &o.m_nPreviewHeight)) {
                return fail(
                    "--preview needs WxH with the width a multiple of 4, the height even, both "
                    "32 to 8192");
            }
        } else if (arg == "--capture") {
            if (!ParseSizeIn(v, 2, 32, 2, 16384, &o.m_nCaptureWidth, &o.m_nCaptureHeight)) {
                return fail("--capture needs an even WxH, at least 32x2, at most 16384x16384");
            }
        } else if (arg == "--param0" || arg == "--param1") {
            if (!ParseFourInts(v, an)) {
                return fail(arg + " needs four integers a,b,c,d");
            }
            (arg == "--param0" ? o.m_bParam0 : o.m_bParam1) = true;
            (arg == "--param0" ? o.m_strParam0 : o.m_strParam1) = v;
        } else if (arg == "--params") {
            o.m_bParams = true;
            o.m_strParams = v;
        } else if (arg == "--frames") {
            if (!ParseDigits(v, &o.m_nFrames) || o.m_nFrames < 1 || o.m_nFrames > 10000) {
                return fail("--frames needs a number from 1 to 10000");
            }
        } else if (arg == "--crop") {
            if (!ParseFourInts(v, o.m_anCrop)) {
                return fail("--crop needs four integers x,y,w,h");
            }
            o.m_bCrop = true;
        } else if (arg == "--format") {
            if (v != "png" && v != "jpg" && v != "jpeg") {
                return fail("--format is png or jpg");
            }
            o.m_strFormat = v == "png" ? "png" : "jpg";
        } else if (arg == "--out") {
            o.m_strOutDir = v;
        } else if (arg == "--preview-out") {
            o.m_strPreviewOut = v;
        } else if (arg == "--capture-out") {
            o.m_strCaptureOut = v;
        } else if (arg == "--lib") {
            o.m_strLib = v;
        } else if (arg == "--log") {
            o.m_strLog = v;
        } else if (arg == "--looks") {
            o.m_strLooks = v;
        } else if (arg == "--sweep") {
            if (!ParseSweep(v, &o)) {
                return fail(
                    "--sweep needs paramG[.W]=FROM:TO:STEP with G 0 or 1, W 0 to 3, FROM <= TO, "
                    "STEP > 0 and at most 64 values");
            }
        } else if (!arg.empty() && arg[0] == '-') {
            return fail("unknown option " + arg);
        } else if (bHaveInput) {
            return fail("more than one input file: " + o.m_strInput + ", " + arg);
        } else {
            o.m_strInput = arg;
            bHaveInput = true;
        }
    }
    if (o.m_bNv21 && o.m_strInput.empty()) {
        return fail("--nv21 needs an input file");
    }
    if (o.m_bParams && (o.m_bParam0 || o.m_bParam1)) {
        return fail("--params replaces --param0 and --param1: give one or the other");
    }
    if (o.m_bParams) {
        const bool bKey = o.m_strParams.find("GPU-effect=") != std::string::npos;
        const EffectInfo* e = EffectInParams(o.m_strParams);
        if (bKey && !o.m_vEffects.empty()) {
            return fail("give the effect with --effect or inside --params, not both");
        }
        if (bKey && !e) {
            return fail("--params has a \"GPU-effect\" code that is not in the effect table");
        }
        if (e) {
            o.m_vEffects.assign(1, e->m_nNumber);
        }
    }
    if ((!o.m_strPreviewOut.empty() || !o.m_strCaptureOut.empty()) &&
        (o.m_vEffects.size() != 1 || o.m_bSweep)) {
        return fail("--preview-out and --capture-out need exactly one effect and no sweep");
    }
    if (o.m_bSweep && o.m_bParams) {
        return fail("--sweep takes its other words from --param0 / --param1, not --params");
    }
    *pOpts = o;
    return kParseOk;
}
