// Look sources: the text that describes one look-up image, and the image
// built from it. The grammar is in tools/looks/README.md; in short, one
// statement a line ("keyword arguments"), "#" starts a comment, and the first
// statement names the kind of image:
//
//   curve     24-bit RGB; every row the same red, green and blue curves
//   ramp      24-bit RGB; rows of curves keyed by the t they are read at
//   vignette  8-bit grey; light falling off towards the corners
//   dots      16-bit RGB 5-6-5; one dot, the image being one mosaic cell
//   gradient  24-bit RGB; colour stops along a direction
#ifndef POSTEFFECT_TOOLS_LOOKS_LOOKSOURCE_H
#define POSTEFFECT_TOOLS_LOOKS_LOOKSOURCE_H

#include <string>
#include <vector>

#include "lookbmp.h"
#include "lookcurve.h"

enum LookKind { kLookCurve, kLookRamp, kLookVignette, kLookDots, kLookGradient };
enum DotShape { kDotCircle, kDotSquare, kDotDiamond };

const char* LookKindName(LookKind kind);
bool LookKindFromName(const std::string& name, LookKind* pKind);

struct LookRow {
    double m_dT;
    CurveSet m_curves;
};

struct GradientStop {
    double m_dAt;
    double m_adColour[3];
};

struct LookSource {
    LookKind m_eKind = kLookCurve;
    int m_nWidth = 0;   // 0: the kind's default
    int m_nHeight = 0;  // 0: the kind's default; a ramp's: the least that reads each row pure
    // curve and ramp
    CurveInterp m_eInterp = kInterpMonotone;
    double m_dAxisPower = 1;  // column s holds the output for input s^(1 / power)
    CurveSet m_curves;
    std::vector<LookRow> m_vRows;  // by increasing t
    // vignette (fractions of the distance from the centre to a corner)
    double m_dAspect = 0;  // the picture's width / height; 0: the image's
    double m_adCenter[2] = {0.5, 0.5};
    double m_dRadius = 0.4;  // vignette and dots (dots: fraction of the cell)
    double m_dSoftness = 0.6;
    double m_dStrength = 0.5;
    double m_dRoundness = 0.5;  // 0: follows the frame, 1: a circle
    // dots
    DotShape m_eShape = kDotCircle;
    double m_adInk[3] = {255, 255, 255};
    double m_adPaper[3] = {0, 0, 0};
    // gradient
    double m_dAngle = 90;  // degrees; 0 runs left to right, 90 bottom to top
    bool m_bSmooth = true;
    std::vector<GradientStop> m_vStops;
};

// The depth the kind is stored with (24, 16 or 8).
int LookKindBits(LookKind kind);

// Parses a source; name is used in messages ("name:line: why").
bool ParseLookSource(const std::string& text, const std::string& name, LookSource* pSrc,
                     std::string* pErr);
// The image of a source.
bool BuildLookImage(const LookSource& src, LookBitmap* pBmp, std::string* pErr);
// A source as text that parses back to the same look; comment (may be
// empty) goes on top as "#" lines.
std::string FormatLookSource(const LookSource& src, const std::string& comment);
// The neutral look of a kind: straight curves (a ramp's rows at the t given),
// a flat white mask, a white dot cell, a white gradient.
LookSource IdentityLook(LookKind kind, const std::vector<double>& rows);

// The image rows a GPU blends when it samples at t with linear filtering
// and clamped edges (row centres at (i + 0.5) / height), allowing for a
// little rounding in t: *pnLo to *pnHi.
void LookRowsReadAt(double t, int nHeight, int* pnLo, int* pnHi);
// Rows are sorted by t. Whether every row t of a ramp is read pure at this height: each image row
// blended at it belongs to t's band. False with the row that is not.
bool LookRampHeightOk(const std::vector<double>& rows, int nHeight, std::string* pErr);
// The least height at which each row is read pure; 0 when none up to
// kMaxLookSide is.
int LookRampHeight(const std::vector<double>& rows);

#endif
