// The built plug-in opened with dlopen, as a camera service opens it, with
// its two entry points. Links none of the library's code.
//
//     GETestPlugin lib;
//     ASSERT_TRUE(lib.Ok()) << dlerror();
//     IPostEffect* effect = lib.Create();
#ifndef POSTEFFECT_TESTS_GETESTPLUGIN_H
#define POSTEFFECT_TESTS_GETESTPLUGIN_H

#include <dlfcn.h>

#include "IPostEffect.h"

class GETestPlugin {
public:
    explicit GETestPlugin(const char* path = POSTEFFECT_LIBRARY)
        : m_pHandle(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
        if (m_pHandle != nullptr) {
            m_pfnCreate =
                reinterpret_cast<IPostEffect* (*)()>(dlsym(m_pHandle, "createPostEffect"));
            m_pfnDestroy =
                reinterpret_cast<void (*)(IPostEffect*)>(dlsym(m_pHandle, "destroyPostEffect"));
        }
    }
    ~GETestPlugin() {
        if (m_pHandle != nullptr) {
            dlclose(m_pHandle);
        }
    }
    bool Ok() const { return m_pfnCreate != nullptr && m_pfnDestroy != nullptr; }
    void* Handle() const { return m_pHandle; }
    IPostEffect* Create() const { return m_pfnCreate(); }
    void Destroy(IPostEffect* p) const { m_pfnDestroy(p); }

private:
    GETestPlugin(const GETestPlugin&) = delete;
    GETestPlugin& operator=(const GETestPlugin&) = delete;

    void* m_pHandle;
    IPostEffect* (*m_pfnCreate)() = nullptr;
    void (*m_pfnDestroy)(IPostEffect*) = nullptr;
};

#endif
