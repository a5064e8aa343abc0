// A host root that serves the plug-in look-up images from a folder of the
// user's (posteffect --looks DIR).
//
// The plug-in opens "/system/media/GPU/NAME" (some effects first
// "/sdcard/quandor/NAME"); the host platform resolves those paths below
// $POSTEFFECT_ROOT each time a file is opened. Make builds a temporary root
// of links: its system/media/GPU/ holds the base root's images with the
// folder's .bmp files in their place, its sdcard/quandor/ the base root's
// override files except those the folder replaces, and data/ is the base
// root's. It then points POSTEFFECT_ROOT at it; the destructor puts the
// variable back and removes the links and folders it made.
#ifndef POSTEFFECT_TOOLS_LOOKSROOT_H
#define POSTEFFECT_TOOLS_LOOKSROOT_H

#include <string>
#include <vector>

class LooksRoot {
public:
    LooksRoot() = default;
    ~LooksRoot();
    // baseRoot: the root the plug-in would use otherwise. False with a
    // message when the folder holds no .bmp file or the root cannot be made.
    bool Make(const std::string& looksDir, const std::string& baseRoot, std::string* pErr);
    const std::string& Path() const { return m_strRoot; }

private:
    LooksRoot(const LooksRoot&) = delete;
    LooksRoot& operator=(const LooksRoot&) = delete;
    bool Folder(const std::string& rel);
    bool Link(const std::string& target, const std::string& rel);
    void Remove();

    std::string m_strRoot;
    std::vector<std::string> m_vMade;  // paths below the root, in the order made
    bool m_bEnvSet = false;
    bool m_bHadEnv = false;
    std::string m_strOldEnv;
};

#endif
