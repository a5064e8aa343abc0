#include "lookimport.h"

#include <ctype.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace {

const int kMaxAcvCurves = 16;
const int kMaxAcvPoints = 64;
const char* const kChannelNames[3] = {"red", "green", "blue"};

bool Fail(std::string* pErr, const std::string& msg) {
    *pErr = msg;
    return false;
}

std::string Num(double v) {
    char buf[32];
    snprintf(buf, sizeof(buf), "%.4g", v);
    return buf;
}

// Big-endian words from a byte span, remembering whether one was missing.
class WordReader {
public:
    WordReader(const uint8_t* pData, size_t nSize) : m_pData(pData), m_nSize(nSize) {}
    bool Take(unsigned* pn) {
        if (m_nSize - m_nAt < 2) {
            return false;
        }
        *pn = unsigned(m_pData[m_nAt]) << 8 | m_pData[m_nAt + 1];
        m_nAt += 2;
        return true;
    }

private:
    const uint8_t* m_pData;
    size_t m_nSize;
    size_t m_nAt = 0;
};

}  // namespace

bool ParseAcv(const uint8_t* pData, size_t nSize, const std::string& name, CurveSet* pSet,
              std::string* pErr) {
    WordReader in(pData, nSize);
    unsigned nVersion = 0, nCurves = 0;
    if (!in.Take(&nVersion) || !in.Take(&nCurves)) {
        return Fail(pErr, name + ": truncated: no curve count");
    }
    if (nVersion != 1 && nVersion != 4) {
        return Fail(pErr, name + ": version " + std::to_string(nVersion) +
                              " of a curves file (1 or 4 expected)");
    }
    if (nCurves < 1 || nCurves > unsigned(kMaxAcvCurves)) {
        return Fail(pErr, name + ": " + std::to_string(nCurves) + " curves (1 to " +
                              std::to_string(kMaxAcvCurves) + " expected)");
    }
    CurveSet set;
    for (unsigned c = 0; c < nCurves; ++c) {
        const std::string which = name + ": curve " + std::to_string(c) + ": ";
        unsigned nPoints = 0;
        if (!in.Take(&nPoints)) {
            return Fail(pErr, which + "truncated: no point count");
        }
        if (nPoints < 2 || nPoints > unsigned(kMaxAcvPoints)) {
            return Fail(pErr, which + "has " + std::to_string(nPoints) + " points (2 to " +
                                  std::to_string(kMaxAcvPoints) + " expected)");
        }
        std::vector<CurvePoint> points;
        for (unsigned i = 0; i < nPoints; ++i) {
            unsigned nOut = 0, nIn = 0;
            if (!in.Take(&nOut) || !in.Take(&nIn)) {
                return Fail(pErr, which + "truncated at point " + std::to_string(i + 1) + " of " +
                                      std::to_string(nPoints));
            }
            points.push_back({double(nIn), double(nOut)});
        }
        ToneCurve curve;
        std::string msg;
        if (!curve.Set(points, kInterpSpline, &msg)) {
            return Fail(pErr, which + msg);
        }
        if (c == 0) {
            set.m_master = curve;
        } else if (c <= 3) {
            set.m_aChannels[c - 1] = curve;
        }
    }
    *pSet = set;
    return true;
}

double CubeCurves::Eval(int nChannel, double x) const {
    const std::vector<double>& t = m_avTable[nChannel];
    const double lo = m_adMin[nChannel], hi = m_adMax[nChannel];
    const double pos =
        std::min(1.0, std::max(0.0, (x / 255 - lo) / (hi - lo))) * double(t.size() - 1);
    const size_t i = std::min(size_t(pos), t.size() - 2);
    const double f = pos - double(i);
    const double v = t[i] + f * (t[i + 1] - t[i]);
    return std::min(1.0, std::max(0.0, v)) * 255;
}

namespace {

// One line split into blank-separated words.
std::vector<std::string> Words(const std::string& line) {
    std::vector<std::string> words;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && isspace((unsigned char)line[i])) {
            ++i;
        }
        size_t j = i;
        while (j < line.size() && !isspace((unsigned char)line[j])) {
            ++j;
        }
        if (j > i) {
            words.push_back(line.substr(i, j - i));
        }
        i = j;
    }
    return words;
}

}  // namespace

bool ParseCube(const char* pText, size_t nSize, const std::string& name, CubeCurves* pCube,
               std::string* pErr) {
    CubeCurves cube;
    long nSizeGiven = 0;  // entries a side
    long nEntries = 0;    // entries the table needs
    long nRead = 0;
    double worst = 0;
    std::string worstAt;
    size_t nAt = 0;
    int nLine = 0;
    while (nAt < nSize) {
        const char* pEnd = static_cast<const char*>(memchr(pText + nAt, '\n', nSize - nAt));
        const size_t nLen = pEnd ? size_t(pEnd - (pText + nAt)) : nSize - nAt;
        std::string line(pText + nAt, nLen);
        nAt += nLen + 1;
        ++nLine;
        const std::string where = name + ":" + std::to_string(nLine) + ": ";
        if (line.find('\0') != std::string::npos) {
            return Fail(pErr, where + "not a text file");
        }
        std::vector<std::string> w = Words(line);
        if (!w.empty() && w[0] == "TITLE") {
            if (nRead > 0) {
                return Fail(pErr, where + "TITLE after the table");
            }
            continue;
        }
        const size_t hash = line.find('#');
        if (hash != std::string::npos) {
            w = Words(line.substr(0, hash));
        }
        if (w.empty()) {
            continue;
        }
        if (isalpha((unsigned char)w[0][0]) || w[0][0] == '_') {
            const std::string& key = w[0];
            if (nRead > 0) {
                return Fail(pErr, where + key + " after the table");
            }
            if (key == "LUT_1D_SIZE" || key == "LUT_3D_SIZE") {
                const bool b3D = key == "LUT_3D_SIZE";
                const long nMax = b3D ? kMaxCube3D : kMaxCube1D;
                double v = 0;
                if (w.size() != 2 || !ParseNumber(w[1], &v) || v != floor(v)) {
                    return Fail(pErr, where + key + " needs one whole number");
                }
                if (nSizeGiven != 0) {
                    return Fail(pErr, where + "a second table size");
                }
                if (v < 2 || v > double(nMax)) {
                    return Fail(pErr, where + key + " " + w[1] + " is outside 2 to " +
                                          std::to_string(nMax));
                }
                nSizeGiven = long(v);
                nEntries = b3D ? nSizeGiven * nSizeGiven * nSizeGiven : nSizeGiven;
                cube.m_b3D = b3D;
                for (int c = 0; c < 3; ++c) {
                    cube.m_avTable[c].assign(size_t(nSizeGiven), 0.0);
                }
            } else if (key == "DOMAIN_MIN" || key == "DOMAIN_MAX" || key == "LUT_1D_INPUT_RANGE" ||
                       key == "LUT_3D_INPUT_RANGE") {
                const bool bRange = key.find("RANGE") != std::string::npos;
                double v[3];
                if (w.size() != (bRange ? 3u : 4u)) {
                    return Fail(pErr,
                                where + key + " needs " + (bRange ? "two" : "three") + " numbers");
                }
                for (size_t i = 1; i < w.size(); ++i) {
                    if (!ParseNumber(w[i], &v[i - 1])) {
                        return Fail(pErr, where + "'" + w[i] + "' is not a number");
                    }
                }
                for (int c = 0; c < 3; ++c) {
                    if (bRange) {
                        cube.m_adMin[c] = v[0];
                        cube.m_adMax[c] = v[1];
                    } else {
                        (key == "DOMAIN_MIN" ? cube.m_adMin : cube.m_adMax)[c] = v[c];
                    }
                }
            } else {
                return Fail(pErr, where + "unknown keyword " + key);
            }
            continue;
        }
        if (nSizeGiven == 0) {
            return Fail(pErr, where + "table line before LUT_1D_SIZE or LUT_3D_SIZE");
        }
        if (nRead == 0) {
            for (int c = 0; c < 3; ++c) {
                if (!(cube.m_adMin[c] < cube.m_adMax[c])) {
                    return Fail(pErr, where + "the " + kChannelNames[c] + " domain " +
                                          Num(cube.m_adMin[c]) + " to " + Num(cube.m_adMax[c]) +
                                          " is empty");
                }
            }
        }
        if (nRead == nEntries) {
            return Fail(pErr, where + "more table lines than the size gives (" +
                                  std::to_string(nEntries) + ")");
        }
        if (w.size() != 3) {
            return Fail(
                pErr, where + "a table line needs three numbers, not " + std::to_string(w.size()));
        }
        double v[3];
        for (int c = 0; c < 3; ++c) {
            if (!ParseNumber(w[size_t(c)], &v[c])) {
                return Fail(pErr, where + "'" + w[size_t(c)] + "' is not a number");
            }
            const double lo = cube.m_adMin[c], hi = cube.m_adMax[c];
            const double slack = (hi - lo) * 1e-3;
            if (v[c] < lo - slack || v[c] > hi + slack) {
                return Fail(pErr, where + w[size_t(c)] + " is outside the " + kChannelNames[c] +
                                      " domain " + Num(lo) + " to " + Num(hi));
            }
            v[c] = std::min(hi, std::max(lo, v[c]));
        }
        if (!cube.m_b3D) {
            for (int c = 0; c < 3; ++c) {
                cube.m_avTable[c][size_t(nRead)] = v[c];
            }
        } else {
            // Each output against its own channel's axis (the line where the
            // other two inputs are 0), which comes earlier in red-fastest
            // order.
            const long n = nSizeGiven;
            const long idx[3] = {nRead % n, nRead / n % n, nRead / (n * n)};
            for (int c = 0; c < 3; ++c) {
                const bool bAxis = idx[(c + 1) % 3] == 0 && idx[(c + 2) % 3] == 0;
                double& axis = cube.m_avTable[c][size_t(idx[c])];
                if (bAxis) {
                    axis = v[c];
                }
                const double dev = fabs(v[c] - axis) * 255;
                if (dev > worst) {
                    worst = dev;
                    worstAt =
                        std::string(kChannelNames[c]) + " output at line " + std::to_string(nLine);
                }
            }
        }
        ++nRead;
    }
    if (nSizeGiven == 0) {
        return Fail(pErr, name + ": no LUT_1D_SIZE or LUT_3D_SIZE");
    }
    if (nRead != nEntries) {
        return Fail(pErr, name + ": the table has " + std::to_string(nRead) +
                              " lines; its size needs " + std::to_string(nEntries));
    }
    if (cube.m_b3D && worst > kCubeSeparableLevels) {
        char buf[64];
        snprintf(buf, sizeof(buf), "%.1f", worst);
        return Fail(pErr, name + ": this 3-D LUT mixes channels (worst deviation " + buf +
                              " levels, " + worstAt +
                              "); only tables where each output follows its own input alone, "
                              "within 1 level, make curves");
    }
    cube.m_dWorstLevels = worst;
    *pCube = cube;
    return true;
}
