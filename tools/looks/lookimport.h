// Curves from other programs' files: Photoshop curves (.acv) and cube LUTs
// (.cube, one-dimensional, or three-dimensional when each output channel
// depends on its own input alone).
//
// Every reader refuses what it cannot take with one message (file name,
// line where there is one, and why) and never reads past its input.
#ifndef POSTEFFECT_TOOLS_LOOKS_LOOKIMPORT_H
#define POSTEFFECT_TOOLS_LOOKS_LOOKIMPORT_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "lookcurve.h"

// A Photoshop curves file: big-endian 16-bit words: version (1 or 4), curve
// count, then per curve a point count and (output, input) pairs of levels.
// Curve 0 is the composite curve, applied after each channel's; curves 1 to
// 3 are red, green and blue (missing ones are straight, further ones are
// checked and ignored). The curves join their points with a natural spline,
// as Photoshop draws them.
bool ParseAcv(const uint8_t* pData, size_t nSize, const std::string& name, CurveSet* pSet,
              std::string* pErr);

// Largest tables read.
const int kMaxCube1D = 65536;
const int kMaxCube3D = 256;
// A 3-D table whose outputs stray further than this (in levels) from what
// their own input alone gives is not a set of curves.
const double kCubeSeparableLevels = 1.0;

// A cube LUT reduced to one table per channel. m_vTable[c][i] is the output
// value for input m_adMin[c] + i (m_adMax[c] - m_adMin[c]) / (size - 1).
struct CubeCurves {
    std::vector<double> m_avTable[3];
    double m_adMin[3] = {0, 0, 0};
    double m_adMax[3] = {1, 1, 1};
    bool m_b3D = false;
    double m_dWorstLevels = 0;  // 3-D: the largest deviation from separable
    // Output level (0 to 255) for input level x (0 to 255): the table read
    // with straight lines between entries, inputs outside the domain held at
    // its ends, outputs clipped to 0 to 1.
    double Eval(int nChannel, double x) const;
};

// Keywords: TITLE, LUT_1D_SIZE, LUT_3D_SIZE, DOMAIN_MIN, DOMAIN_MAX,
// LUT_1D_INPUT_RANGE, LUT_3D_INPUT_RANGE; "#" comments; then the table, three
// numbers a line (red fastest in 3-D). Outputs must lie in the domain.
bool ParseCube(const char* pText, size_t nSize, const std::string& name, CubeCurves* pCube,
               std::string* pErr);

#endif
