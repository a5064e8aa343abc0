#include "app.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <vector>

#include "contact.h"
#include "harness.h"
#include "imageio.h"
#include "looksroot.h"
#include "yuv.h"

namespace {

const int kThumbHeight = 240;
const int kSheetColumns = 3;

std::string Join(const std::string& dir, const std::string& name) {
    if (dir.empty() || dir == ".") {
        return name;
    }
    return dir.back() == '/' ? dir + name : dir + "/" + name;
}

bool HasExtension(const std::string& path, const char* ext) {
    const size_t n = strlen(ext);
    return path.size() >= n && path.compare(path.size() - n, n, ext) == 0;
}

std::string BaseName(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string Ms(double ms) {
    if (ms < 0) {
        return "-";
    }
    char buf[32];
    snprintf(buf, sizeof(buf), "%.2f ms", ms);
    return buf;
}

std::string SizeText(int nWidth, int nHeight) {
    return std::to_string(nWidth) + "x" + std::to_string(nHeight);
}

// A contact-sheet cell: thumbnails of a preview frame and of a capture, when
// there is one.
ContactCell Cell(const std::string& label, const NV21Frame& preview, const NV21Frame* pCapture) {
    ContactCell cell;
    cell.m_strLabel = label;
    for (const NV21Frame* pFrame : {&preview, pCapture}) {
        if (pFrame) {
            RGBImage rgb;
            Nv21ToRgb(*pFrame, &rgb);
            cell.m_vPictures.push_back(Thumbnail(rgb, kThumbHeight));
        }
    }
    return cell;
}

// Writes a frame as a picture (by extension) or, for .nv21 / .yuv, as raw
// NV21 bytes.
bool WriteFrame(const std::string& path, const NV21Frame& frame, std::string* pErr) {
    if (HasExtension(path, ".nv21") || HasExtension(path, ".yuv")) {
        return WriteFileBytes(path, frame.m_vData.data(), frame.m_vData.size(), pErr);
    }
    RGBImage rgb;
    Nv21ToRgb(frame, &rgb);
    return WriteImage(path, rgb, pErr);
}

// Writes one of an effect's results (szKind "preview" or "capture"): the
// picture, or explicitPath when given, and with --raw the raw frame. Names
// each file written on out, a failure on err.
bool WriteResult(const ToolOptions& opts, const std::string& slug, const char* szKind,
                 const NV21Frame& frame, const std::string& explicitPath, FILE* out, FILE* err) {
    const std::string stem = Join(opts.m_strOutDir, "posteffect-" + slug + "-" + szKind);
    std::vector<std::string> paths = {explicitPath.empty() ? stem + "." + opts.m_strFormat
                                                           : explicitPath};
    if (opts.m_bRaw) {
        paths.push_back(stem + "-" + SizeText(frame.m_nWidth, frame.m_nHeight) + ".nv21");
    }
    for (const std::string& path : paths) {
        std::string msg;
        if (!WriteFrame(path, frame, &msg)) {
            fprintf(err, "posteffect: %s\n", msg.c_str());
            return false;
        }
        fprintf(out, "  wrote %s\n", path.c_str());
    }
    return true;
}

struct Scene {
    RGBImage rgb;       // the picture as read
    NV21Frame preview;  // scaled and cropped to the preview size
    NV21Frame capture;  // the still, at the capture size
};

bool LoadScene(const ToolOptions& opts, const std::string& path, Scene* pScene, FILE* err) {
    std::string msg;
    NV21Frame raw;
    if (opts.m_bNv21) {
        std::vector<uint8_t> bytes;
        if (!ReadFileBytes(path, &bytes, &msg)) {
            fprintf(err, "posteffect: %s\n", msg.c_str());
            return false;
        }
        const size_t nWant = NV21Frame::Bytes(opts.m_nNv21Width, opts.m_nNv21Height);
        if (bytes.size() != nWant) {
            fprintf(err, "posteffect: %s has %zu bytes; NV21 of %dx%d has %zu\n", path.c_str(),
                    bytes.size(), opts.m_nNv21Width, opts.m_nNv21Height, nWant);
            return false;
        }
        raw.m_nWidth = opts.m_nNv21Width;
        raw.m_nHeight = opts.m_nNv21Height;
        raw.m_vData = std::move(bytes);
        Nv21ToRgb(raw, &pScene->rgb);
    } else if (!ReadImage(path, &pScene->rgb, &msg)) {
        fprintf(err, "posteffect: %s\n", msg.c_str());
        return false;
    }
    RGBImage scaled;
    ScaleCover(pScene->rgb, opts.m_nPreviewWidth, opts.m_nPreviewHeight, &scaled);
    RgbToNv21(scaled, &pScene->preview);
    if (opts.m_nCaptureWidth > 0) {
        ScaleCover(pScene->rgb, opts.m_nCaptureWidth, opts.m_nCaptureHeight, &scaled);
        RgbToNv21(scaled, &pScene->capture);
    } else if (opts.m_bNv21) {
        pScene->capture = std::move(raw);
    } else {
        const int w = pScene->rgb.m_nWidth & ~1;
        const int h = pScene->rgb.m_nHeight & ~1;
        if (w < 32 || h < 2) {
            fprintf(err, "posteffect: %s is %dx%d; a capture needs at least 32x2 pixels\n",
                    path.c_str(), pScene->rgb.m_nWidth, pScene->rgb.m_nHeight);
            return false;
        }
        if (w == pScene->rgb.m_nWidth && h == pScene->rgb.m_nHeight) {
            RgbToNv21(pScene->rgb, &pScene->capture);
        } else {
            Crop(pScene->rgb, 0, 0, w, h, &scaled);
            RgbToNv21(scaled, &pScene->capture);
        }
    }
    return true;
}

}  // namespace

int RunTool(const ToolOptions& opts, const std::string& defaultImage, const std::string& defaultLib,
            FILE* out, FILE* err) {
    const std::string input = opts.m_strInput.empty() ? defaultImage : opts.m_strInput;
    Scene scene;
    if (!LoadScene(opts, input, &scene, err)) {
        return 1;
    }
    const bool bAll = opts.m_vEffects.empty();
    // The library reads its log masks from the environment. Running every
    // effect of the table asks for effects that may not exist, each of which
    // would log an error; the table says which were skipped and why.
    if (!opts.m_strLog.empty()) {
        setenv("POSTEFFECT_LOG", opts.m_strLog.c_str(), 1);
    } else if (bAll && !getenv("POSTEFFECT_LOG")) {
        setenv("POSTEFFECT_LOG", "*=0x00", 1);
    }
    // The plug-in resolves its device paths when it opens a file, so the
    // root only has to be in place before the first effect comes up.
    LooksRoot looks;
    std::string msg;
    if (!opts.m_strLooks.empty()) {
        const char* root = getenv("POSTEFFECT_ROOT");
        if (!looks.Make(opts.m_strLooks, root && root[0] ? root : opts.m_strDefaultRoot, &msg)) {
            fprintf(err, "posteffect: %s\n", msg.c_str());
            return 1;
        }
    }
    PostEffectLibrary lib;
    const std::string libPath = opts.m_strLib.empty() ? defaultLib : opts.m_strLib;
    if (!lib.Open(libPath, &msg)) {
        fprintf(err, "posteffect: %s\n", msg.c_str());
        return 1;
    }
    if (!opts.m_strOutDir.empty() && mkdir(opts.m_strOutDir.c_str(), 0777) != 0 &&
        errno != EEXIST) {
        fprintf(err, "posteffect: cannot make %s: %s\n", opts.m_strOutDir.c_str(), strerror(errno));
        return 1;
    }

    const std::vector<ToolRun> plan = PlanRuns(opts);
    const bool bContact = opts.m_nContact == 1 || (opts.m_nContact < 0 && (bAll || opts.m_bSweep));
    const bool bFiles = !bAll && !opts.m_bSweep;

    fprintf(out, "posteffect: %s (%dx%d), preview %dx%d x %d frames, capture %s\n",
            BaseName(input).c_str(), scene.rgb.m_nWidth, scene.rgb.m_nHeight, opts.m_nPreviewWidth,
            opts.m_nPreviewHeight, opts.m_nFrames,
            opts.m_bNoCapture ? "none"
                              : SizeText(scene.capture.m_nWidth, scene.capture.m_nHeight).c_str());
    fprintf(out, "%-32s %13s %13s %13s\n", "effect", "first frame", "per frame", "capture");

    std::vector<ContactCell> cells;
    if (bContact) {
        cells.push_back(
            Cell("Original", scene.preview, opts.m_bNoCapture ? nullptr : &scene.capture));
    }

    // The pass-through of effect 0 first, for the baseline of the table.
    std::vector<ToolRun> runs = plan;
    bool bZero = false;
    for (const ToolRun& r : plan) {
        bZero = bZero || r.m_nEffect == 0;
    }
    if (!bZero) {
        const EffectInfo& none = EffectTable()[0];
        runs.insert(runs.begin(), {0, CameraParameterString(opts, none), "none (0)", "none"});
    }
    int nRan = 0;
    int nFailed = 0;
    for (size_t i = 0; i < runs.size(); ++i) {
        const ToolRun& run = runs[i];
        const bool bAsked = bZero || i > 0;
        RunConfig config;
        config.m_strParams = run.m_strParams;
        config.m_pPreview = &scene.preview;
        config.m_pCapture = opts.m_bNoCapture ? nullptr : &scene.capture;
        config.m_nFrames = opts.m_nFrames;
        config.m_bCrop = opts.m_bCrop;
        memcpy(config.m_anCrop, opts.m_anCrop, sizeof(config.m_anCrop));
        RunResult result;
        if (!RunEffect(lib, config, &result, &msg)) {
            fprintf(err, "posteffect: %s: %s\n", run.m_strLabel.c_str(), msg.c_str());
            return 1;
        }
        if (!result.m_bRan) {
            fprintf(out, "%-32s skipped: %s\n", run.m_strLabel.c_str(), result.m_strNote.c_str());
            nFailed += bAsked && !bAll ? 1 : 0;
            fflush(out);
            continue;
        }
        fprintf(out, "%-32s %13s %13s %13s%s%s\n", run.m_strLabel.c_str(),
                Ms(result.m_dFirstPreviewMs).c_str(), Ms(result.m_dPreviewMeanMs).c_str(),
                Ms(result.m_dCaptureMs).c_str(),
                result.m_strNote.empty() ? "" : "  note: ", result.m_strNote.c_str());
        fflush(out);
        if (!bAsked) {
            continue;
        }
        ++nRan;
        if (!result.m_strNote.empty()) {
            ++nFailed;
        }
        const bool bCapture = !opts.m_bNoCapture && !result.m_capture.m_vData.empty();
        if (bFiles && !(WriteResult(opts, run.m_strSlug, "preview", result.m_preview,
                                    opts.m_strPreviewOut, out, err) &&
                        (!bCapture || WriteResult(opts, run.m_strSlug, "capture", result.m_capture,
                                                  opts.m_strCaptureOut, out, err)))) {
            return 1;
        }
        if (bContact) {
            // The cell's label carries its row of the timing table.
            std::string label = run.m_strLabel + "  " + Ms(result.m_dPreviewMeanMs) + "/frame";
            if (bCapture) {
                label += ", " + Ms(result.m_dCaptureMs) + "/capture";
            }
            cells.push_back(Cell(label, result.m_preview, bCapture ? &result.m_capture : nullptr));
        }
    }
    if (bContact) {
        RGBImage sheet;
        const std::string title =
            "posteffect - " + BaseName(input) + " - preview " +
            SizeText(opts.m_nPreviewWidth, opts.m_nPreviewHeight) +
            (opts.m_bNoCapture
                 ? std::string()
                 : ", capture " + SizeText(scene.capture.m_nWidth, scene.capture.m_nHeight));
        MakeContactSheet(title, cells, std::min(kSheetColumns, int(cells.size())), &sheet);
        const std::string path = Join(opts.m_strOutDir, "posteffect-contact.png");
        if (!WriteImage(path, sheet, &msg)) {
            fprintf(err, "posteffect: %s\n", msg.c_str());
            return 1;
        }
        fprintf(out, "wrote %s (%d cell%s)\n", path.c_str(), nRan, nRan == 1 ? "" : "s");
    }
    if (bAll) {
        if (nRan == 0) {
            fprintf(err, "posteffect: no effect came up\n");
            return 1;
        }
        return 0;
    }
    return nFailed == 0 ? 0 : 1;
}
