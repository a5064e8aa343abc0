#include "effects/GELookUp.h"

#include <math.h>
#include <stdio.h>

#include <new>

#include "gl/GLTexture.h"

const char g_szLookUpOverrideDir[] = "/sdcard/quandor/";
const char g_szLookUpSystemDir[] = "/system/media/GPU/";
const char g_szMaskWide[] = "mask_vignette_wide.bmp";
const char g_szMaskLegacy[] = "mask_vignette_legacy.bmp";

namespace {

// "<dir><name>" in `path`; false when it does not fit.
bool JoinPath(char* path, size_t size, const char* dir, const char* name) {
    const int n = snprintf(path, size, "%s%s", dir, name);
    return n > 0 && (size_t)n < size;
}

// Whether a file can be opened for reading: an override image is usually
// absent, and that is no error worth a line.
bool Readable(const char* path) {
    FILE* f = fopen(path, "rb");
    if (f == nullptr) {
        return false;
    }
    fclose(f);
    return true;
}

}  // namespace

GLTexture* GELoadLookUp(GELogTag& log, const char* name, unsigned format, unsigned type,
                        bool bOverride, const char* szNewFail, const char* szLoadFail,
                        GLenum wrap) {
    GLTexture* tex = new (std::nothrow) GLTexture();
    if (tex == nullptr) {
        GE_LOGE(log, szNewFail != nullptr ? szNewFail : szLoadFail, "Init");
        return nullptr;
    }
    char path[256];
    bool loaded = false;
    if (bOverride && JoinPath(path, sizeof(path), g_szLookUpOverrideDir, name) && Readable(path)) {
        loaded = tex->LoadBMP(path, format, type, 0) != 0;
    }
    if (!loaded && JoinPath(path, sizeof(path), g_szLookUpSystemDir, name)) {
        loaded = tex->LoadBMP(path, format, type, 0) != 0;
    }
    if (!loaded) {
        GE_LOGE(log, szLoadFail, "Init");
        delete tex;
        return nullptr;
    }
    tex->Bind();
    tex->SetParameteri(GL_TEXTURE_WRAP_S, (int)wrap);
    tex->SetParameteri(GL_TEXTURE_WRAP_T, (int)wrap);
    return tex;
}

const char* GEVignetteMaskName(float ratio, float tolerance) {
    const bool wide =
        fabsf(ratio - 1.7777778f) < tolerance || fabsf(ratio - 1.6666666f) < tolerance;
    return wide ? g_szMaskWide : g_szMaskLegacy;
}

GLTexture* GENewLeakTexture(GELogTag& log) {
    GLTexture* tex = new (std::nothrow) GLTexture();
    if (tex == nullptr) {
        GE_LOGE(log, "[%s] can't new empty tex", "Init");
        return nullptr;
    }
    if (!tex->Init(GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 16, 16, 0)) {
        GE_LOGE(log, "[%s] can't init empty leak texture", "Init");
        delete tex;
        return nullptr;
    }
    unsigned char white[16 * 16 * 2];
    for (unsigned char& b : white) {
        b = 0xFF;
    }
    if (!tex->UpdateNormalTexture(white, 16, 16)) {
        GE_LOGE(log, "[%s] can't UpdateNormalTexture for empty texture", "Init");
        delete tex;
        return nullptr;
    }
    tex->Bind();
    tex->SetParameteri(GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    tex->SetParameteri(GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    tex->SetParameteri(GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    tex->SetParameteri(GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    return tex;
}
