// Command line of the posteffect tool and the camera's effect table.
#ifndef POSTEFFECT_TOOLS_OPTIONS_H
#define POSTEFFECT_TOOLS_OPTIONS_H

#include <string>
#include <vector>

// One entry of the camera's effect table: the number the plug-in uses, the
// one-character code of the "GPU-effect" parameter and the name the plug-in
// logs for it.
struct EffectInfo {
    int m_nNumber;
    char m_cCode;
    const char* m_szName;
};

// Effects 0 (none) to 18, in number order.
const std::vector<EffectInfo>& EffectTable();
// An effect by code character ("9", "B"), by number ("10"), or by name in
// any case, blanks and underscores alike ("Bloom", "color_sketch"); "none"
// is effect 0. Null when nothing matches.
const EffectInfo* FindEffect(const std::string& name);
// The name for file names: lower case, blanks as underscores; "none" for 0.
std::string EffectSlug(const EffectInfo& effect);

struct ToolOptions {
    std::string m_strInput;  // image file; empty for the bundled one
    bool m_bNv21 = false;    // the input is raw NV21 of this size
    int m_nNv21Width = 0;
    int m_nNv21Height = 0;
    int m_nPreviewWidth = 1280;
    int m_nPreviewHeight = 720;
    int m_nCaptureWidth = 0;  // 0: the image's own size, made even
    int m_nCaptureHeight = 0;
    std::vector<int> m_vEffects;  // numbers; empty: every effect 1 to 18
    bool m_bParam0 = false;
    std::string m_strParam0;  // "a,b,c,d" as given
    bool m_bParam1 = false;
    std::string m_strParam1;
    bool m_bParams = false;  // a raw camera parameter string
    std::string m_strParams;
    int m_nFrames = 5;
    bool m_bCrop = false;
    int m_anCrop[4] = {0, 0, 0, 0};
    std::string m_strOutDir = ".";
    std::string m_strPreviewOut;  // explicit output paths (one effect)
    std::string m_strCaptureOut;
    std::string m_strFormat = "png";  // default picture format: png or jpg
    bool m_bRaw = false;              // also write the raw NV21 results
    int m_nContact = -1;              // -1: when every effect runs; 0 no; 1 yes
    bool m_bNoCapture = false;
    std::string m_strLib;    // empty: the built library
    std::string m_strLog;    // POSTEFFECT_LOG for the library; empty: see --log
    std::string m_strLooks;  // a folder of look-up images to use; empty: the root's own
    // --sweep paramG[.W]=FROM:TO:STEP: word W (0 to 3) of group G (0 or 1)
    // takes every value FROM, FROM + STEP, ... up to TO, one run each.
    bool m_bSweep = false;
    int m_nSweepGroup = 0;
    int m_nSweepWord = 0;
    int m_nSweepFrom = 0;
    int m_nSweepTo = 0;
    int m_nSweepStep = 1;
    // Not from the command line: the host root the library uses when
    // POSTEFFECT_ROOT is not set (where --looks finds the images it does not
    // replace).
    std::string m_strDefaultRoot;
};

enum ParseStatus { kParseOk, kParseHelp, kParseError };

// Parses argv[1..]. kParseError comes with a message in *pErr.
ParseStatus ParseToolOptions(int argc, char** argv, ToolOptions* pOpts, std::string* pErr);
std::string ToolUsage();

// "a,b,c,d": four integers (each as strtol reads one) separated by commas.
bool ParseFourInts(const std::string& text, int an[4]);
// "WxH" with both positive.
bool ParseSize(const std::string& text, int* pnWidth, int* pnHeight);

// The camera parameter string for an effect: "GPU-effect=<code>" and the
// parameter groups given, or the raw string with the effect key put in front
// when it lacks one.
std::string CameraParameterString(const ToolOptions& opts, const EffectInfo& effect);

// One run of the plug-in: an effect with its parameter string, the label of
// its contact-sheet cell and table row, and the stem of its file names.
struct ToolRun {
    int m_nEffect;
    std::string m_strParams;
    std::string m_strLabel;
    std::string m_strSlug;
};
// The runs opts asks for, in order. Without --effect: every effect of the
// table, Vintage once per look, each with parameters that show it well
// (its circle, band or centre in the middle of the preview) unless
// --param0/--param1/--params give others. With --sweep: one run per value
// for each effect asked for (or every effect), labelled with the value.
std::vector<ToolRun> PlanRuns(const ToolOptions& opts);
// The effect named by a raw parameter string's "GPU-effect" key, or null.
const EffectInfo* EffectInParams(const std::string& params);

#endif
