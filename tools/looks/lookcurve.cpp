#include "lookcurve.h"

#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <sstream>

bool CurveInterpFromName(const std::string& name, CurveInterp* pInterp) {
    for (CurveInterp i : {kInterpMonotone, kInterpLinear, kInterpSpline}) {
        if (name == CurveInterpName(i)) {
            *pInterp = i;
            return true;
        }
    }
    return false;
}

const char* CurveInterpName(CurveInterp interp) {
    switch (interp) {
        case kInterpLinear:
            return "linear";
        case kInterpSpline:
            return "spline";
        case kInterpMonotone:
            break;
    }
    return "monotone";
}

ToneCurve::ToneCurve()
    : m_vPoints{{0, 0}, {255, 255}}, m_vSlopes{1, 1}, m_eInterp(kInterpMonotone) {}

bool ToneCurve::Set(const std::vector<CurvePoint>& points, CurveInterp interp, std::string* pErr) {
    if (points.size() < 2 || points.size() > size_t(kMaxCurvePoints)) {
        *pErr = "a curve needs 2 to " + std::to_string(kMaxCurvePoints) + " points, not " +
                std::to_string(points.size());
        return false;
    }
    for (size_t i = 0; i < points.size(); ++i) {
        const CurvePoint& p = points[i];
        if (!(p.m_dIn >= 0 && p.m_dIn <= 255 && p.m_dOut >= 0 && p.m_dOut <= 255)) {
            *pErr = "point " + std::to_string(i + 1) + " is outside 0 to 255";
            return false;
        }
        if (i > 0 && !(p.m_dIn > points[i - 1].m_dIn)) {
            *pErr = "point " + std::to_string(i + 1) + " does not lie right of the one before";
            return false;
        }
    }
    const size_t n = points.size();
    std::vector<double> d(n - 1);
    for (size_t k = 0; k + 1 < n; ++k) {
        d[k] = (points[k + 1].m_dOut - points[k].m_dOut) / (points[k + 1].m_dIn - points[k].m_dIn);
    }
    std::vector<double> m(n, 0.0);
    if (interp == kInterpMonotone) {
        // Fritsch and Carlson: tangents that keep each segment within its end
        // points, flat where the data turns.
        m[0] = d[0];
        m[n - 1] = d[n - 2];
        for (size_t k = 1; k + 1 < n; ++k) {
            m[k] = d[k - 1] * d[k] > 0 ? (d[k - 1] + d[k]) / 2 : 0;
        }
        for (size_t k = 0; k + 1 < n; ++k) {
            if (d[k] == 0) {
                m[k] = m[k + 1] = 0;
                continue;
            }
            const double a = m[k] / d[k];
            const double b = m[k + 1] / d[k];
            const double s = a * a + b * b;
            if (s > 9) {
                const double tau = 3 / sqrt(s);
                m[k] = tau * a * d[k];
                m[k + 1] = tau * b * d[k];
            }
        }
    } else if (interp == kInterpSpline && n > 2) {
        // Natural spline: second derivatives from the tridiagonal system,
        // zero at both ends.
        std::vector<double> c(n, 0.0), r(n, 0.0);
        for (size_t k = 1; k + 1 < n; ++k) {
            const double h0 = points[k].m_dIn - points[k - 1].m_dIn;
            const double h1 = points[k + 1].m_dIn - points[k].m_dIn;
            const double diag = 2 * (h0 + h1) - h0 * c[k - 1];
            c[k] = h1 / diag;
            r[k] = (6 * (d[k] - d[k - 1]) - h0 * r[k - 1]) / diag;
        }
        for (size_t k = n - 2; k >= 1; --k) {
            m[k] = r[k] - c[k] * m[k + 1];
        }
    }
    m_vPoints = points;
    m_vSlopes = m;
    m_eInterp = interp;
    return true;
}

double ToneCurve::Eval(double x) const {
    const std::vector<CurvePoint>& p = m_vPoints;
    if (!(x > p.front().m_dIn)) {
        return p.front().m_dOut;
    }
    if (x >= p.back().m_dIn) {
        return p.back().m_dOut;
    }
    const size_t k =
        size_t(std::upper_bound(p.begin(), p.end(), x,
                                [](double v, const CurvePoint& q) { return v < q.m_dIn; }) -
               p.begin()) -
        1;
    const double h = p[k + 1].m_dIn - p[k].m_dIn;
    const double t = (x - p[k].m_dIn) / h;
    const double y0 = p[k].m_dOut;
    const double y1 = p[k + 1].m_dOut;
    double y = y0 + t * (y1 - y0);
    if (m_eInterp == kInterpMonotone) {
        const double t2 = t * t, t3 = t2 * t;
        y = (2 * t3 - 3 * t2 + 1) * y0 + (t3 - 2 * t2 + t) * h * m_vSlopes[k] +
            (-2 * t3 + 3 * t2) * y1 + (t3 - t2) * h * m_vSlopes[k + 1];
    } else if (m_eInterp == kInterpSpline) {
        const double u = 1 - t;
        y += h * h / 6 * ((u * u * u - u) * m_vSlopes[k] + (t * t * t - t) * m_vSlopes[k + 1]);
    }
    return std::min(255.0, std::max(0.0, y));
}

bool ToneCurve::IsStraight() const {
    return m_vPoints.size() == 2 && m_vPoints[0].m_dIn == 0 && m_vPoints[0].m_dOut == 0 &&
           m_vPoints[1].m_dIn == 255 && m_vPoints[1].m_dOut == 255;
}

bool ParseNumber(const std::string& text, double* pd) {
    if (text.empty() || isspace((unsigned char)text[0])) {
        return false;
    }
    errno = 0;
    char* end = nullptr;
    const double v = strtod(text.c_str(), &end);
    if (errno != 0 || end == text.c_str() || *end != '\0' || !std::isfinite(v)) {
        return false;
    }
    *pd = v;
    return true;
}

bool ParseCurvePoints(const std::string& text, std::vector<CurvePoint>* pPoints,
                      std::string* pErr) {
    std::istringstream in(text);
    std::string pair;
    std::vector<CurvePoint> points;
    while (in >> pair) {
        const size_t comma = pair.find(',');
        CurvePoint p;
        if (comma == std::string::npos || !ParseNumber(pair.substr(0, comma), &p.m_dIn) ||
            !ParseNumber(pair.substr(comma + 1), &p.m_dOut)) {
            *pErr = "'" + pair + "' is not a point in,out";
            return false;
        }
        if (points.size() == size_t(kMaxCurvePoints)) {
            *pErr = "more than " + std::to_string(kMaxCurvePoints) + " points";
            return false;
        }
        points.push_back(p);
    }
    *pPoints = points;
    return true;
}

std::string FormatNumber(double v) {
    char buf[64];
    for (int nDigits = 1; nDigits <= 17; ++nDigits) {
        snprintf(buf, sizeof(buf), "%.*g", nDigits, v == 0 ? 0.0 : v);
        if (strtod(buf, nullptr) == v) {
            break;
        }
    }
    return buf;
}

std::string FormatCurvePoints(const std::vector<CurvePoint>& points) {
    std::string s;
    for (const CurvePoint& p : points) {
        s += (s.empty() ? "" : " ") + FormatNumber(p.m_dIn) + "," + FormatNumber(p.m_dOut);
    }
    return s;
}

unsigned char LevelByte(double dLevel) {
    return (unsigned char)lround(std::min(255.0, std::max(0.0, dLevel)));
}
