#include "looksource.h"

#include <math.h>
#include <stdio.h>

#include <algorithm>
#include <sstream>

namespace {

const char* const kKindNames[] = {"curve", "ramp", "vignette", "dots", "gradient"};
const char* const kShapeNames[] = {"circle", "square", "diamond"};
const char* const kChannelWords[] = {"red", "green", "blue", "master"};
const int kDefaultSize[][2] = {{256, 4}, {256, 0}, {320, 240}, {16, 16}, {64, 64}};
const int kDotSubsamples = 4;  // a side, per pixel
const int kMaxRampRows = 256;

// Curves as written, before the interpolation (which may come later in the
// file) is known: points and the line they were on (0: not given).
struct PendingSet {
    std::vector<CurvePoint> m_avPoints[4];
    int m_anLine[4] = {0, 0, 0, 0};
};

struct PendingRow {
    double m_dT;
    int m_nLine;
    PendingSet m_set;
};

std::vector<std::string> SplitWords(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    std::string w;
    while (in >> w) {
        words.push_back(w);
    }
    return words;
}

double Smoother(double x) {
    x = std::min(1.0, std::max(0.0, x));
    return x * x * x * (x * (6 * x - 15) + 10);
}

class Parser {
public:
    Parser(const std::string& name, LookSource* pSrc, std::string* pErr)
        : m_name(name), m_pSrc(pSrc), m_pErr(pErr) {}

    bool Statement(int nLine, const std::vector<std::string>& w);
    bool Finish(int nLastLine);

private:
    bool Fail(int nLine, const std::string& msg) {
        *m_pErr = m_name + ":" + std::to_string(nLine) + ": " + msg;
        return false;
    }
    // w[i] as a number within lo to hi.
    bool Number(int nLine, const std::vector<std::string>& w, size_t i, double lo, double hi,
                double* pd) {
        if (!ParseNumber(w[i], pd)) {
            return Fail(nLine, "'" + w[i] + "' is not a number");
        }
        if (*pd < lo || *pd > hi) {
            return Fail(nLine, w[0] + " " + w[i] + " is outside " + FormatNumber(lo) + " to " +
                                   FormatNumber(hi));
        }
        return true;
    }
    bool Args(int nLine, const std::vector<std::string>& w, size_t n) {
        if (w.size() != n + 1) {
            return Fail(nLine, w[0] + " takes " + std::to_string(n) + " value" +
                                   (n == 1 ? "" : "s") + ", not " + std::to_string(w.size() - 1));
        }
        return true;
    }
    bool Once(int nLine, const std::string& key) {
        for (const auto& seen : m_vSeen) {
            if (seen.first == key) {
                return Fail(nLine, key + " given twice (first on line " +
                                       std::to_string(seen.second) + ")");
            }
        }
        m_vSeen.emplace_back(key, nLine);
        return true;
    }
    bool Colour(int nLine, const std::vector<std::string>& w, size_t i, double* pad) {
        for (int c = 0; c < 3; ++c) {
            if (!Number(nLine, w, i + size_t(c), 0, 255, &pad[c])) {
                return false;
            }
        }
        return true;
    }
    bool Channels(int nLine, const std::vector<std::string>& w, PendingSet* pSet);
    bool BuildSet(const PendingSet& pending, CurveSet* pSet);

    std::string m_name;
    LookSource* m_pSrc;
    std::string* m_pErr;
    bool m_bKind = false;
    std::vector<std::pair<std::string, int>> m_vSeen;  // settings given, and where
    PendingSet m_curve;
    std::vector<PendingRow> m_vRows;
};

bool Parser::Channels(int nLine, const std::vector<std::string>& w, PendingSet* pSet) {
    std::vector<CurvePoint> points;
    std::string msg;
    std::string text;
    for (size_t i = 1; i < w.size(); ++i) {
        text += w[i] + " ";
    }
    if (!ParseCurvePoints(text, &points, &msg)) {
        return Fail(nLine, msg);
    }
    const bool bAll = w[0] == "rgb";
    for (int c = 0; c < 4; ++c) {
        if (bAll ? c < 3 : w[0] == kChannelWords[c]) {
            if (pSet->m_anLine[c] != 0) {
                return Fail(nLine, std::string(kChannelWords[c]) + " given twice (first on line " +
                                       std::to_string(pSet->m_anLine[c]) + ")");
            }
            pSet->m_avPoints[c] = points;
            pSet->m_anLine[c] = nLine;
        }
    }
    return true;
}

bool Parser::BuildSet(const PendingSet& pending, CurveSet* pSet) {
    for (int c = 0; c < 4; ++c) {
        if (pending.m_anLine[c] == 0) {
            continue;
        }
        std::string msg;
        ToneCurve& curve = c < 3 ? pSet->m_aChannels[c] : pSet->m_master;
        if (!curve.Set(pending.m_avPoints[c], m_pSrc->m_eInterp, &msg)) {
            return Fail(pending.m_anLine[c], std::string(kChannelWords[c]) + ": " + msg);
        }
    }
    return true;
}

bool Parser::Statement(int nLine, const std::vector<std::string>& w) {
    LookSource& s = *m_pSrc;
    const std::string& key = w[0];
    if (!m_bKind) {
        if (w.size() != 1 || !LookKindFromName(key, &s.m_eKind)) {
            return Fail(nLine,
                        "the first statement names the kind: curve, ramp, vignette, dots "
                        "or gradient");
        }
        m_bKind = true;
        return true;
    }
    const LookKind k = s.m_eKind;
    const bool bCurves = k == kLookCurve || k == kLookRamp;
    const bool bChannel =
        key == "red" || key == "green" || key == "blue" || key == "rgb" || key == "master";
    if (bChannel && bCurves) {
        if (k == kLookRamp && m_vRows.empty()) {
            return Fail(nLine, key + " before the first row");
        }
        return Channels(nLine, w, k == kLookRamp ? &m_vRows.back().m_set : &m_curve);
    }
    if (key == "row" && k == kLookRamp) {
        double t = 0;
        if (!Args(nLine, w, 1) || !Number(nLine, w, 1, 0, 1, &t)) {
            return false;
        }
        for (const PendingRow& r : m_vRows) {
            if (r.m_dT == t) {
                return Fail(nLine, "row " + w[1] + " given twice (first on line " +
                                       std::to_string(r.m_nLine) + ")");
            }
        }
        if (m_vRows.size() == size_t(kMaxRampRows)) {
            return Fail(nLine, "more than " + std::to_string(kMaxRampRows) + " rows");
        }
        m_vRows.push_back({t, nLine, PendingSet()});
        return true;
    }
    if (key == "size") {
        double v[2] = {0, 0};
        if (!Args(nLine, w, 2) || !Once(nLine, key) ||
            !Number(nLine, w, 1, 1, kMaxLookSide, &v[0]) ||
            (!(k == kLookRamp && w[2] == "auto") && !Number(nLine, w, 2, 1, kMaxLookSide, &v[1]))) {
            return false;
        }
        if (v[0] != floor(v[0]) || v[1] != floor(v[1])) {
            return Fail(nLine, "size takes whole numbers");
        }
        std::string msg;
        if (!LookWidthOk(int(v[0]), LookKindBits(k), &msg)) {
            return Fail(nLine, msg);
        }
        s.m_nWidth = int(v[0]);
        s.m_nHeight = int(v[1]);
        return true;
    }
    if (key != "stop" && !Once(nLine, key)) {
        return false;
    }
    if (key == "interp" && bCurves) {
        if (!Args(nLine, w, 1) || !CurveInterpFromName(w[1], &s.m_eInterp)) {
            return Fail(nLine, "interp is monotone, linear or spline");
        }
    } else if (key == "axis-power" && bCurves) {
        return Args(nLine, w, 1) && Number(nLine, w, 1, 0.05, 20, &s.m_dAxisPower);
    } else if (key == "aspect" && k == kLookVignette) {
        if (!Args(nLine, w, 1)) {
            return false;
        }
        const size_t colon = w[1].find(':');
        double a = 0, b = 1;
        if (colon == std::string::npos ? !ParseNumber(w[1], &a)
                                       : !ParseNumber(w[1].substr(0, colon), &a) ||
                                             !ParseNumber(w[1].substr(colon + 1), &b)) {
            return Fail(nLine, "aspect is a number or W:H, not '" + w[1] + "'");
        }
        if (!(a > 0 && b > 0 && a / b >= 0.05 && a / b <= 20)) {
            return Fail(nLine, "aspect " + w[1] + " is outside 0.05 to 20");
        }
        s.m_dAspect = a / b;
    } else if (key == "center" && k == kLookVignette) {
        return Args(nLine, w, 2) && Number(nLine, w, 1, 0, 1, &s.m_adCenter[0]) &&
               Number(nLine, w, 2, 0, 1, &s.m_adCenter[1]);
    } else if (key == "radius" && (k == kLookVignette || k == kLookDots)) {
        return Args(nLine, w, 1) && Number(nLine, w, 1, 0, k == kLookDots ? 1 : 2, &s.m_dRadius);
    } else if (key == "softness" && (k == kLookVignette || k == kLookDots)) {
        return Args(nLine, w, 1) &&
               Number(nLine, w, 1, k == kLookDots ? 0 : 0.01, 2, &s.m_dSoftness);
    } else if (key == "strength" && k == kLookVignette) {
        return Args(nLine, w, 1) && Number(nLine, w, 1, 0, 1, &s.m_dStrength);
    } else if (key == "roundness" && k == kLookVignette) {
        return Args(nLine, w, 1) && Number(nLine, w, 1, 0, 1, &s.m_dRoundness);
    } else if (key == "shape" && k == kLookDots) {
        for (int i = 0; i < 3 && w.size() == 2; ++i) {
            if (w[1] == kShapeNames[i]) {
                s.m_eShape = DotShape(i);
                return true;
            }
        }
        return Fail(nLine, "shape is circle, square or diamond");
    } else if ((key == "ink" || key == "paper") && k == kLookDots) {
        return Args(nLine, w, 3) && Colour(nLine, w, 1, key == "ink" ? s.m_adInk : s.m_adPaper);
    } else if (key == "angle" && k == kLookGradient) {
        return Args(nLine, w, 1) && Number(nLine, w, 1, -360, 360, &s.m_dAngle);
    } else if (key == "blend" && k == kLookGradient) {
        if (!Args(nLine, w, 1) || (w[1] != "smooth" && w[1] != "linear")) {
            return Fail(nLine, "blend is smooth or linear");
        }
        s.m_bSmooth = w[1] == "smooth";
    } else if (key == "stop" && k == kLookGradient) {
        GradientStop stop;
        if (!Args(nLine, w, 4) || !Number(nLine, w, 1, 0, 1, &stop.m_dAt) ||
            !Colour(nLine, w, 2, stop.m_adColour)) {
            return false;
        }
        if (!s.m_vStops.empty() && !(stop.m_dAt > s.m_vStops.back().m_dAt)) {
            return Fail(nLine, "stops go by increasing position");
        }
        s.m_vStops.push_back(stop);
    } else {
        return Fail(nLine, "'" + key + "' is not a setting of a " + LookKindName(k));
    }
    return true;
}

bool Parser::Finish(int nLastLine) {
    LookSource& s = *m_pSrc;
    if (!m_bKind) {
        return Fail(nLastLine, "empty source: the first statement names the kind");
    }
    if (s.m_eKind == kLookCurve && !BuildSet(m_curve, &s.m_curves)) {
        return false;
    }
    if (s.m_eKind == kLookRamp) {
        if (m_vRows.empty()) {
            return Fail(nLastLine, "a ramp needs at least one row");
        }
        std::sort(m_vRows.begin(), m_vRows.end(),
                  [](const PendingRow& a, const PendingRow& b) { return a.m_dT < b.m_dT; });
        for (const PendingRow& r : m_vRows) {
            LookRow row{r.m_dT, CurveSet()};
            if (!BuildSet(r.m_set, &row.m_curves)) {
                return false;
            }
            s.m_vRows.push_back(row);
        }
        std::vector<double> ts;
        for (const LookRow& r : s.m_vRows) {
            ts.push_back(r.m_dT);
        }
        std::string msg;
        if (s.m_nHeight != 0 && !LookRampHeightOk(ts, s.m_nHeight, &msg)) {
            return Fail(nLastLine, msg + "; write \"size W auto\" to have the height chosen");
        }
        if (s.m_nHeight == 0 && LookRampHeight(ts) == 0) {
            return Fail(nLastLine, "rows too close together to be read apart at any height up to " +
                                       std::to_string(kMaxLookSide));
        }
    }
    if (s.m_eKind == kLookGradient && s.m_vStops.size() < 2) {
        return Fail(nLastLine, "a gradient needs at least two stops");
    }
    const int w = s.m_nWidth ? s.m_nWidth : kDefaultSize[s.m_eKind][0];
    const int h = s.m_nHeight ? s.m_nHeight : kDefaultSize[s.m_eKind][1];
    if (long(w) * h > kMaxLookPixels) {
        return Fail(nLastLine, "more than " + std::to_string(kMaxLookPixels) + " pixels");
    }
    return true;
}

void BuildCurveRow(const CurveSet& set, double dPower, LookBitmap* pBmp, int y) {
    for (int x = 0; x < pBmp->m_nWidth; ++x) {
        const double s = (x + 0.5) / pBmp->m_nWidth;
        const double in = pow(s, 1 / dPower) * 255;
        for (int c = 0; c < 3; ++c) {
            pBmp->Pixel(x, y)[c] = LevelByte(set.Eval(c, in));
        }
    }
}

double VignetteGain(const LookSource& s, double u, double v, double aspect) {
    const double ax = aspect / 2, ay = 0.5;
    const double sx = ax + (1 - ax) * s.m_dRoundness;
    const double sy = ay + (1 - ay) * s.m_dRoundness;
    const double dx = (u - s.m_adCenter[0]) * aspect / sx;
    const double dy = (v - s.m_adCenter[1]) / sy;
    const double corner = sqrt((ax / sx) * (ax / sx) + (ay / sy) * (ay / sy));
    const double r = sqrt(dx * dx + dy * dy) / corner;
    return 1 - s.m_dStrength * Smoother((r - s.m_dRadius) / s.m_dSoftness);
}

// How much of a dot covers the point (px, py), the cell's centre at 0.
double DotCover(const LookSource& s, double px, double py) {
    px = fabs(px), py = fabs(py);
    const double d = s.m_eShape == kDotCircle   ? sqrt(px * px + py * py)
                     : s.m_eShape == kDotSquare ? std::max(px, py)
                                                : px + py;
    if (s.m_dSoftness <= 0) {
        return d <= s.m_dRadius ? 1 : 0;
    }
    return 1 - Smoother((d - s.m_dRadius) / s.m_dSoftness + 0.5);
}

void GradientColour(const LookSource& s, double u, double v, double out[3]) {
    const double a = s.m_dAngle * M_PI / 180;
    const double c = cos(a), sn = sin(a);
    const double p = ((u - 0.5) * c + (v - 0.5) * sn) / (0.5 * (fabs(c) + fabs(sn))) / 2 + 0.5;
    const std::vector<GradientStop>& st = s.m_vStops;
    size_t k = 0;
    while (k + 2 < st.size() && p > st[k + 1].m_dAt) {
        ++k;
    }
    double f = (p - st[k].m_dAt) / (st[k + 1].m_dAt - st[k].m_dAt);
    f = s.m_bSmooth ? Smoother(f) : std::min(1.0, std::max(0.0, f));
    for (int i = 0; i < 3; ++i) {
        out[i] = st[k].m_adColour[i] + f * (st[k + 1].m_adColour[i] - st[k].m_adColour[i]);
    }
}

}  // namespace

const char* LookKindName(LookKind kind) {
    return kKindNames[kind];
}

bool LookKindFromName(const std::string& name, LookKind* pKind) {
    for (int i = 0; i < 5; ++i) {
        if (name == kKindNames[i]) {
            *pKind = LookKind(i);
            return true;
        }
    }
    return false;
}

int LookKindBits(LookKind kind) {
    return kind == kLookVignette ? 8 : kind == kLookDots ? 16 : 24;
}

bool ParseLookSource(const std::string& text, const std::string& name, LookSource* pSrc,
                     std::string* pErr) {
    LookSource src;
    Parser parser(name, &src, pErr);
    std::istringstream in(text);
    std::string line;
    int nLine = 0;
    while (std::getline(in, line)) {
        ++nLine;
        if (line.find('\0') != std::string::npos) {
            *pErr = name + ":" + std::to_string(nLine) + ": not a text file";
            return false;
        }
        const std::vector<std::string> w = SplitWords(line.substr(0, line.find('#')));
        if (!w.empty() && !parser.Statement(nLine, w)) {
            return false;
        }
    }
    if (!parser.Finish(nLine)) {
        return false;
    }
    *pSrc = src;
    return true;
}

void LookRowsReadAt(double t, int nHeight, int* pnLo, int* pnHi) {
    const double p = t * nHeight - 0.5;
    *pnLo = std::min(nHeight - 1, std::max(0, int(floor(p - 1e-3))));
    *pnHi = std::min(nHeight - 1, std::max(0, int(floor(p + 1e-3)) + 1));
}

namespace {

// The row whose t is nearest to image row y's centre (rows sorted; a tie
// goes to the lower).
size_t NearestRow(const std::vector<double>& rows, int y, int nHeight) {
    const double t = (y + 0.5) / nHeight;
    const size_t k = size_t(std::lower_bound(rows.begin(), rows.end(), t) - rows.begin());
    if (k == rows.size()) {
        return k - 1;
    }
    return k > 0 && fabs(rows[k - 1] - t) <= fabs(rows[k] - t) ? k - 1 : k;
}

}  // namespace

bool LookRampHeightOk(const std::vector<double>& rows, int nHeight, std::string* pErr) {
    for (size_t k = 0; k < rows.size(); ++k) {
        int lo = 0, hi = 0;
        LookRowsReadAt(rows[k], nHeight, &lo, &hi);
        for (int y = lo; y <= hi; ++y) {
            if (NearestRow(rows, y, nHeight) != k) {
                *pErr = "row " + FormatNumber(rows[k]) + " is not read pure at height " +
                        std::to_string(nHeight) + " (image row " + std::to_string(y) +
                        " belongs to another)";
                return false;
            }
        }
    }
    return true;
}

int LookRampHeight(const std::vector<double>& rows) {
    std::string msg;
    for (int h = 1; h <= kMaxLookSide; ++h) {
        if (LookRampHeightOk(rows, h, &msg)) {
            return h;
        }
    }
    return 0;
}

bool BuildLookImage(const LookSource& s, LookBitmap* pBmp, std::string* pErr) {
    const int w = s.m_nWidth ? s.m_nWidth : kDefaultSize[s.m_eKind][0];
    int h = s.m_nHeight ? s.m_nHeight : kDefaultSize[s.m_eKind][1];
    std::vector<double> ts;
    for (const LookRow& r : s.m_vRows) {
        ts.push_back(r.m_dT);
    }
    if (s.m_eKind == kLookRamp && h == 0) {
        h = LookRampHeight(ts);
    }
    if (!LookWidthOk(w, LookKindBits(s.m_eKind), pErr)) {
        return false;
    }
    if (h < 1 || h > kMaxLookSide || long(w) * h > kMaxLookPixels ||
        (s.m_eKind == kLookRamp && (ts.empty() || !LookRampHeightOk(ts, h, pErr))) ||
        (s.m_eKind == kLookGradient && s.m_vStops.size() < 2)) {
        *pErr = "cannot build a " + std::string(LookKindName(s.m_eKind)) + " of " +
                std::to_string(w) + "x" + std::to_string(h) + " from this source";
        return false;
    }
    LookBitmap bmp;
    bmp.Resize(w, h, LookKindBits(s.m_eKind));
    const double aspect = s.m_dAspect > 0 ? s.m_dAspect : double(w) / h;
    for (int y = 0; y < h; ++y) {
        if (s.m_eKind == kLookCurve) {
            BuildCurveRow(s.m_curves, s.m_dAxisPower, &bmp, y);
            continue;
        }
        if (s.m_eKind == kLookRamp) {
            BuildCurveRow(s.m_vRows[NearestRow(ts, y, h)].m_curves, s.m_dAxisPower, &bmp, y);
            continue;
        }
        for (int x = 0; x < w; ++x) {
            const double u = (x + 0.5) / w, v = (y + 0.5) / h;
            uint8_t* p = bmp.Pixel(x, y);
            double colour[3];
            if (s.m_eKind == kLookVignette) {
                p[0] = p[1] = p[2] = LevelByte(255 * VignetteGain(s, u, v, aspect));
                continue;
            }
            if (s.m_eKind == kLookGradient) {
                GradientColour(s, u, v, colour);
            } else {
                double cover = 0;
                for (int j = 0; j < kDotSubsamples; ++j) {
                    for (int i = 0; i < kDotSubsamples; ++i) {
                        const double su = (x + (i + 0.5) / kDotSubsamples) / w - 0.5;
                        const double sv = (y + (j + 0.5) / kDotSubsamples) / h - 0.5;
                        cover += DotCover(s, su, sv);
                    }
                }
                cover /= kDotSubsamples * kDotSubsamples;
                for (int c = 0; c < 3; ++c) {
                    colour[c] = s.m_adPaper[c] + cover * (s.m_adInk[c] - s.m_adPaper[c]);
                }
            }
            // The effects read a 24-bit file's bytes in file order, so a
            // gradient's red goes first: a viewer shows it as blue.
            const bool bFileOrder = s.m_eKind == kLookGradient;
            for (int c = 0; c < 3; ++c) {
                p[c] = LevelByte(colour[bFileOrder ? 2 - c : c]);
            }
        }
    }
    *pBmp = std::move(bmp);
    return true;
}

namespace {

void FormatSet(const CurveSet& set, const std::string& indent, std::string* pOut) {
    for (int c = 0; c < 4; ++c) {
        const ToneCurve& curve = c < 3 ? set.m_aChannels[c] : set.m_master;
        if (c < 3 || !curve.IsStraight()) {
            *pOut += indent + kChannelWords[c] + " " + FormatCurvePoints(curve.Points()) + "\n";
        }
    }
}

std::string Colour(const double* pad) {
    return FormatNumber(pad[0]) + " " + FormatNumber(pad[1]) + " " + FormatNumber(pad[2]);
}

}  // namespace

std::string FormatLookSource(const LookSource& s, const std::string& comment) {
    std::string out;
    std::istringstream lines(comment);
    std::string line;
    while (std::getline(lines, line)) {
        out += "# " + line + "\n";
    }
    out += std::string(LookKindName(s.m_eKind)) + "\n";
    const int w = s.m_nWidth ? s.m_nWidth : kDefaultSize[s.m_eKind][0];
    const int h = s.m_nHeight ? s.m_nHeight : kDefaultSize[s.m_eKind][1];
    out += "size " + std::to_string(w) + " " + (h ? std::to_string(h) : "auto") + "\n";
    switch (s.m_eKind) {
        case kLookCurve:
        case kLookRamp:
            out += std::string("interp ") + CurveInterpName(s.m_eInterp) + "\n";
            if (s.m_dAxisPower != 1) {
                out += "axis-power " + FormatNumber(s.m_dAxisPower) + "\n";
            }
            if (s.m_eKind == kLookCurve) {
                FormatSet(s.m_curves, "", &out);
            }
            for (const LookRow& r : s.m_vRows) {
                out += "row " + FormatNumber(r.m_dT) + "\n";
                FormatSet(r.m_curves, "    ", &out);
            }
            break;
        case kLookVignette:
            if (s.m_dAspect > 0) {
                out += "aspect " + FormatNumber(s.m_dAspect) + "\n";
            }
            out += "center " + FormatNumber(s.m_adCenter[0]) + " " + FormatNumber(s.m_adCenter[1]) +
                   "\nradius " + FormatNumber(s.m_dRadius) + "\nsoftness " +
                   FormatNumber(s.m_dSoftness) + "\nstrength " + FormatNumber(s.m_dStrength) +
                   "\nroundness " + FormatNumber(s.m_dRoundness) + "\n";
            break;
        case kLookDots:
            out += std::string("shape ") + kShapeNames[s.m_eShape] + "\nradius " +
                   FormatNumber(s.m_dRadius) + "\nsoftness " + FormatNumber(s.m_dSoftness) +
                   "\nink " + Colour(s.m_adInk) + "\npaper " + Colour(s.m_adPaper) + "\n";
            break;
        case kLookGradient:
            out += "angle " + FormatNumber(s.m_dAngle) + "\nblend " +
                   (s.m_bSmooth ? "smooth" : "linear") + "\n";
            for (const GradientStop& st : s.m_vStops) {
                out += "stop " + FormatNumber(st.m_dAt) + " " + Colour(st.m_adColour) + "\n";
            }
            break;
    }
    return out;
}

LookSource IdentityLook(LookKind kind, const std::vector<double>& rows) {
    LookSource s;
    s.m_eKind = kind;
    for (double t : kind == kLookRamp ? rows : std::vector<double>()) {
        s.m_vRows.push_back({t, CurveSet()});
    }
    s.m_dStrength = 0;
    for (int c = 0; c < 3; ++c) {
        s.m_adPaper[c] = 255;
    }
    s.m_vStops = {{0, {255, 255, 255}}, {1, {255, 255, 255}}};
    return s;
}
