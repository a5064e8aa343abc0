// The effects' table-driven pixel suite and the capture-seam check that
// every effect shares (tests/README.md says how an effect adds its rows).
//
// A pixel row names an effect, its parameter groups, an input picture and
// the colour every output pixel should have, worked out from the effect's
// formula. RunEffectRow runs it as preview frames of kTexW x kTexH and of a
// picture 16 narrower than its buffer (each after a frame of another
// picture) and as a capture of kCapW x kCapH in tiles of kTexW x kTexH (2.5 x
// 2.5 tiles), and compares both planes with the formula:
//
//     RGB BloomOf(const At& a) { return Bloom(Source(a)); }
//     const EffectRow kRows[] = {
//         {{"bloom", 9, {0, 0, 0, 0}, {0, 0, 0, 0}}, PatternImage, BloomOf, 1.0},
//     };
//     TEST(EffectPlain, Rows) { for (const EffectRow& r : kRows) RunEffectRow(r); }
//
// A seam row names an effect and a smooth input for which its output is
// smooth too; RunSeamRow captures it twice (planes poisoned with 0x00 and
// 0xFF) and expects every byte written, nothing written past the planes or
// into the camera's, and no step between neighbours across a tile border
// (where the spans the converter was asked for start and end, and halfway
// between neighbouring ones) larger than the largest step elsewhere, plus
// one.
#ifndef POSTEFFECT_TESTS_GETESTEFFECTSUITE_H
#define POSTEFFECT_TESTS_GETESTEFFECTSUITE_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "GETestEngine.h"
#include "GETestFrames.h"
#include "GETestRoot.h"
#include "effects/GEEffects.h"
#include "effects/GEShaderBypass.h"

namespace getest {

const int kTexW = 64, kTexH = 32;   // the preview frame, and the capture's tile
const int kCapW = 160, kCapH = 80;  // the capture
const unsigned kBypass = 0;         // the pass-through effect, outside the table

// An effect as the plug-in brings it up: the table number (kBypass for the
// pass-through effect), the two parameter groups sent after it is chosen
// (Mirror takes landscape from group 0's first word, as the plug-in sets
// it), and the look-up images it reads, written into a fresh root.
struct EffectSetup {
    const char* name;
    unsigned effect;
    int group0[4];
    int group1[4];
    void (*lookups)(const GETestRoot& root);
};

// Where an expected colour is worked out: the input picture, the output
// pixel, the texture the effect rendered it in (the frame's buffer in
// preview, one tile of a capture), the row's effect and parameters, and
// whether it is a capture (Init got the texture's size, not the frame's).
struct At {
    const SPImage& in;
    int x, y;
    int texW, texH;
    const EffectSetup* setup = nullptr;
    bool capture = false;
};
typedef RGB (*Formula)(const At& a);

inline RGB SourceAt(const SPImage& in, int x, int y) {
    return YuvToRgb(in.Y(x, y), in.V(x, y), in.U(x, y));
}
inline RGB Source(const At& a) {
    return SourceAt(a.in, a.x, a.y);
}

// The look-up images the look effects read, with the contents their pixel
// rows work from (test_effects_looks.cpp).
void LookLookUps(const GETestRoot& root);

// The capture runs in tiles of capTexW x capTexH (an effect whose tiles
// carry margins needs room for them); capTexW 0 leaves it out, for a
// formula that holds in preview only.
struct EffectRow {
    EffectSetup setup;
    SPImage (*input)(int w, int h);
    Formula expect;
    double tol;  // in bytes, against the value rounded to a byte
    int capTexW = kTexW, capTexH = kTexH;
};

struct SeamRow {
    EffectSetup setup;
    SPImage (*input)(int w, int h);
    int texW = kTexW, texH = kTexH;  // the capture's tile texture
};

inline GEShader* NewEffect(unsigned effect) {
    return effect == kBypass ? new GEShaderBypass() : GEEffectLookUp(effect)->pfnCreate();
}
// The effect's log tag: its class name, but for Split toning Mono.
inline const char* EffectTag(unsigned effect) {
    if (effect == 15) {
        return "GEShaderSplitToning";  // Split toning Mono logs under the family's name
    }
    return effect == kBypass ? "GEShaderBypass" : GEEffectLookUp(effect)->szName;
}

inline bool ChooseEffect(ManagerRig& rig, const EffectSetup& s, bool capture) {
    if (s.effect == GE_EFFECT_MIRROR && s.group0[0] != 0) {
        rig.man.m_bLandscaped = true;
    }
    const bool ok = s.effect == kBypass ? rig.man.Inject(new GEShaderBypass(), capture, true)
                                        : rig.man.ChooseEffect(s.effect, capture ? 1 : 0);
    if (ok) {
        rig.man.SetParam(0, s.group0[0], s.group0[1], s.group0[2], s.group0[3]);
        rig.man.SetParam(1, s.group1[0], s.group1[1], s.group1[2], s.group1[3]);
    }
    return ok;
}

// A capture of `in` by the rig's effect into planes poisoned with `poison`:
// the guard bytes behind them and the camera's own planes stay as they were.
inline std::vector<unsigned char> CaptureOf(ManagerRig& rig, const SPImage& in,
                                            unsigned char poison = kPoison) {
    const size_t n = in.data.size();
    std::vector<unsigned char> out(n + kGuard, poison);
    SPImage camera = in;
    EXPECT_TRUE(rig.man.ProcFrame(camera.YPlane(), camera.UVPlane(), out.data(), in.w, in.h));
    ManagerRig::ExpectGuards(out, n, poison);
    EXPECT_TRUE(in.data == camera.data) << "the camera's planes were written";
    out.resize(n);
    return out;
}

// A fresh root with the effect's look-up images, when it reads any.
inline std::unique_ptr<GETestRoot> LookUps(const EffectSetup& s) {
    std::unique_ptr<GETestRoot> root(s.lookups ? new GETestRoot() : nullptr);
    if (root) {
        s.lookups(*root);
    }
    return root;
}

inline void RunEffectRow(const EffectRow& r) {
    SCOPED_TRACE(r.setup.name);
    const std::unique_ptr<GETestRoot> root = LookUps(r.setup);
    auto compare = [&r](const SPImage& in, const std::vector<unsigned char>& out, int tw, int th,
                        const char* what, bool capture) {
        return CompareToColours(
            in.w, in.h, out.data(), out.data() + (size_t)in.w * in.h,
            [&](int x, int y) {
                return r.expect({in, x, y, tw, th, &r.setup, capture});
            },
            r.tol, what);
    };
    // The frame, then one narrower than its buffer's 32-aligned rows (the
    // texture keeps the rows' width).
    for (int w : {kTexW, kTexW - 16}) {
        const SPImage in = r.input(w, kTexH);
        ManagerRig rig(w, kTexH);
        ASSERT_TRUE(rig.Init(w, kTexH));
        ASSERT_TRUE(ChooseEffect(rig, r.setup, false));
        rig.Preview(SPImage::Pattern(w, kTexH, 7));
        EXPECT_EQ(0, compare(in, rig.Preview(in), kTexW, kTexH, w == kTexW ? "preview" : "narrow",
                             false));
    }
    if (r.capTexW == 0) {
        return;
    }
    const SPImage in = r.input(kCapW, kCapH);
    ManagerRig rig(r.capTexW, r.capTexH);
    TileServer server(&in, [&rig] { rig.Clean(); });
    ASSERT_TRUE(rig.Init((unsigned)r.capTexW, (unsigned)r.capTexH, &server));
    ASSERT_TRUE(ChooseEffect(rig, r.setup, true));
    EXPECT_EQ(0, compare(in, CaptureOf(rig, in), r.capTexW, r.capTexH, "capture", true));
    for (const TileServer::Call& call : server.calls) {
        EXPECT_TRUE(call.dw == r.capTexW && call.dh == r.capTexH)
            << "tiles go into the whole texture";
    }
}

// The largest step between neighbouring samples across the tile borders
// and elsewhere: `cols` x `rows` samples `pitch` bytes apart in rows of
// `stride` bytes, sample c standing for pixels (c - 1) x `scale` + 1 to
// c x `scale` (a chroma sample for the pixel pair it covers).
struct Steps {
    int border = 0, inside = 0;
    void Add(const unsigned char* p, int cols, int rows, int pitch, int stride, int scale,
             const std::set<int>& bx, const std::set<int>& by) {
        auto across = [scale](const std::set<int>& b, int c) {
            const auto it = b.upper_bound((c - 1) * scale);
            return it != b.end() && *it <= c * scale;
        };
        for (int r = 0; r < rows; ++r) {
            for (int c = 0; c < cols; ++c) {
                const int v = p[(size_t)r * stride + (size_t)c * pitch];
                if (c > 0) {
                    int& m = across(bx, c) ? border : inside;
                    m = std::max(m, abs(v - p[(size_t)r * stride + (size_t)(c - 1) * pitch]));
                }
                if (r > 0) {
                    int& m = across(by, r) ? border : inside;
                    m = std::max(m, abs(v - p[(size_t)(r - 1) * stride + (size_t)c * pitch]));
                }
            }
        }
    }
};

inline void RunSeamRow(const SeamRow& r) {
    SCOPED_TRACE(r.setup.name);
    const std::unique_ptr<GETestRoot> root = LookUps(r.setup);
    const SPImage in = r.input(kCapW, kCapH);
    std::vector<unsigned char> out[2];
    std::set<std::pair<int, int>> sx, sy;  // the spans the converter was asked for
    for (int k = 0; k < 2; ++k) {
        ManagerRig rig(r.texW, r.texH);
        TileServer server(&in, [&rig] { rig.Clean(); });
        ASSERT_TRUE(rig.Init((unsigned)r.texW, (unsigned)r.texH, &server));
        ASSERT_TRUE(ChooseEffect(rig, r.setup, true));
        out[k] = CaptureOf(rig, in, k == 0 ? 0x00 : 0xFF);
        for (const Rect& t : server.rects) {
            sx.insert({t.x, t.x + t.w}), sy.insert({t.y, t.y + t.h});
        }
    }
    ASSERT_TRUE(out[0] == out[1]) << "bytes left unwritten";
    // A tile's output may give way to the next one's where a span starts or
    // ends, or halfway between the end of one and the start of the next
    // (margins and overlaps are shared).
    auto borders = [](const std::set<std::pair<int, int>>& spans, int n) {
        std::set<int> b;
        for (auto it = spans.begin(); it != spans.end(); ++it) {
            b.insert({it->first, it->second});
            if (std::next(it) != spans.end()) {
                b.insert((it->second + std::next(it)->first) / 2);
            }
        }
        b.erase(0), b.erase(n);
        return b;
    };
    const std::set<int> bx = borders(sx, kCapW), by = borders(sy, kCapH);
    if (bx.empty() && by.empty()) {
        return;  // the picture read whole (Fisheye): one tile at this size
    }
    ASSERT_FALSE(bx.empty() || by.empty());
    Steps s;
    const unsigned char* uv = out[0].data() + kCapW * kCapH;
    s.Add(out[0].data(), kCapW, kCapH, 1, kCapW, 1, bx, by);
    s.Add(uv, kCapW / 2, kCapH / 2, 2, kCapW, 2, bx, by);
    s.Add(uv + 1, kCapW / 2, kCapH / 2, 2, kCapW, 2, bx, by);
    EXPECT_LE(s.border, s.inside + 1) << "a step at a tile border";
}

}  // namespace getest

#endif
