#include "looksroot.h"

#include <dirent.h>
#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace {

const char kImages[] = "system/media/GPU";
const char kOverrides[] = "sdcard/quandor";

// The names of the entries of a folder (none when it cannot be read).
std::vector<std::string> Entries(const std::string& dir) {
    std::vector<std::string> names;
    DIR* d = opendir(dir.c_str());
    if (!d) {
        return names;
    }
    while (dirent* e = readdir(d)) {
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) {
            names.push_back(e->d_name);
        }
    }
    closedir(d);
    std::sort(names.begin(), names.end());
    return names;
}

bool IsBmp(const std::string& name) {
    return name.size() > 4 && strcasecmp(name.c_str() + name.size() - 4, ".bmp") == 0;
}

}  // namespace

LooksRoot::~LooksRoot() {
    Remove();
}

bool LooksRoot::Folder(const std::string& rel) {
    if (mkdir((m_strRoot + "/" + rel).c_str(), 0755) != 0) {
        return false;
    }
    m_vMade.push_back(rel);
    return true;
}

bool LooksRoot::Link(const std::string& target, const std::string& rel) {
    if (symlink(target.c_str(), (m_strRoot + "/" + rel).c_str()) != 0) {
        return false;
    }
    m_vMade.push_back(rel);
    return true;
}

bool LooksRoot::Make(const std::string& looksDir, const std::string& baseRoot, std::string* pErr) {
    Remove();
    char abs[PATH_MAX];
    struct stat st;
    if (!realpath(looksDir.c_str(), abs) || stat(abs, &st) != 0 || !S_ISDIR(st.st_mode)) {
        *pErr = "--looks " + looksDir + ": not a folder";
        return false;
    }
    std::vector<std::string> mine;
    for (const std::string& name : Entries(abs)) {
        if (IsBmp(name)) {
            mine.push_back(name);
        }
    }
    if (mine.empty()) {
        *pErr = "--looks " + looksDir + ": no .bmp files in it";
        return false;
    }
    const char* tmp = getenv("TMPDIR");
    std::string tmpl = std::string(tmp && tmp[0] ? tmp : "/tmp") + "/posteffect-looks-XXXXXX";
    if (!mkdtemp(&tmpl[0])) {
        *pErr = "cannot make a folder for --looks: " + std::string(strerror(errno));
        return false;
    }
    m_strRoot = tmpl;
    auto isMine = [&mine](const std::string& name) {
        return std::find(mine.begin(), mine.end(), name) != mine.end();
    };
    bool ok = Folder("system") && Folder("system/media") && Folder(kImages) && Folder("sdcard") &&
              Folder(kOverrides);
    for (const char* sub : {kImages, kOverrides}) {
        for (const std::string& name : Entries(baseRoot + "/" + sub)) {
            if (ok && !isMine(name)) {
                ok = Link(baseRoot + "/" + sub + "/" + name, std::string(sub) + "/" + name);
            }
        }
    }
    for (const std::string& name : mine) {
        ok = ok && Link(std::string(abs) + "/" + name, std::string(kImages) + "/" + name);
    }
    const std::string data = baseRoot + "/data";
    ok = ok && (stat(data.c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? Link(data, "data")
                                                                    : Folder("data"));
    if (!ok) {
        *pErr = "cannot make the --looks root in " + m_strRoot + ": " + strerror(errno);
        Remove();
        return false;
    }
    const char* old = getenv("POSTEFFECT_ROOT");
    m_bHadEnv = old != nullptr;
    m_strOldEnv = old ? old : "";
    m_bEnvSet = true;
    setenv("POSTEFFECT_ROOT", m_strRoot.c_str(), 1);
    return true;
}

void LooksRoot::Remove() {
    if (m_bEnvSet) {
        if (m_bHadEnv) {
            setenv("POSTEFFECT_ROOT", m_strOldEnv.c_str(), 1);
        } else {
            unsetenv("POSTEFFECT_ROOT");
        }
        m_bEnvSet = false;
    }
    for (auto it = m_vMade.rbegin(); it != m_vMade.rend(); ++it) {
        const std::string path = m_strRoot + "/" + *it;
        if (unlink(path.c_str()) != 0) {
            rmdir(path.c_str());
        }
    }
    m_vMade.clear();
    if (!m_strRoot.empty()) {
        rmdir(m_strRoot.c_str());
        m_strRoot.clear();
    }
}
