// Tone curves for look-up images: control points joined by a monotone cubic
// (the default: it never overshoots the points), straight lines, or a
// natural cubic spline; and a set of them, one per colour channel plus a
// master curve applied after each channel's.
//
// Levels are 0 to 255 on both axes. Before the first point and after the
// last a curve holds the end point's value.
#ifndef POSTEFFECT_TOOLS_LOOKS_LOOKCURVE_H
#define POSTEFFECT_TOOLS_LOOKS_LOOKCURVE_H

#include <string>
#include <vector>

enum CurveInterp { kInterpMonotone, kInterpLinear, kInterpSpline };

// "monotone", "linear", "spline" and back; false for another word.
bool CurveInterpFromName(const std::string& name, CurveInterp* pInterp);
const char* CurveInterpName(CurveInterp interp);

struct CurvePoint {
    double m_dIn;
    double m_dOut;
};

const int kMaxCurvePoints = 1024;

class ToneCurve {
public:
    ToneCurve();  // the straight curve 0,0 255,255
    // From 2 to kMaxCurvePoints points with inputs strictly increasing, all
    // values finite and within 0 to 255. False with a message otherwise.
    bool Set(const std::vector<CurvePoint>& points, CurveInterp interp, std::string* pErr);
    // The output level for input level x. A spline is clipped to 0 to 255.
    double Eval(double x) const;
    const std::vector<CurvePoint>& Points() const { return m_vPoints; }
    CurveInterp Interp() const { return m_eInterp; }
    // The two points 0,0 and 255,255, whatever the interpolation.
    bool IsStraight() const;

private:
    std::vector<CurvePoint> m_vPoints;
    std::vector<double> m_vSlopes;  // monotone: tangents; spline: second derivatives
    CurveInterp m_eInterp;
};

enum { kRed, kGreen, kBlue };

// Red, green and blue curves and a master curve: a channel's output is
// master(channel(x)).
struct CurveSet {
    ToneCurve m_aChannels[3];
    ToneCurve m_master;
    double Eval(int nChannel, double x) const {
        return m_master.Eval(m_aChannels[nChannel].Eval(x));
    }
};

// Points from text "in,out in,out ..." (blank separated pairs). False with a
// message naming the bad pair.
bool ParseCurvePoints(const std::string& text, std::vector<CurvePoint>* pPoints, std::string* pErr);
// The points as that text; it reads back to the same points.
std::string FormatCurvePoints(const std::vector<CurvePoint>& points);

// The shortest decimal text that reads back as exactly v.
std::string FormatNumber(double v);
// A whole decimal number (strtod syntax, finite), nothing around it.
bool ParseNumber(const std::string& text, double* pd);

// A level in 0 to 255 rounded to a byte.
unsigned char LevelByte(double dLevel);

#endif
