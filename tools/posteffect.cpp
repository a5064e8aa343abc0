// posteffect: stands in for the camera service. Loads libposteffect.so, feeds
// it preview frames and a capture made from a picture, and writes what the
// effects made of them. See ToolUsage() (posteffect --help).
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "app.h"
#include "options.h"

namespace {

// A path next to an installed tool (PREFIX/bin/posteffect): PREFIX/rel when
// it exists, else empty.
std::string Installed(const char* rel) {
    char exe[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", exe, sizeof(exe) - 1);
    if (n <= 0) {
        return std::string();
    }
    std::string path(exe, size_t(n));
    path = path.substr(0, path.rfind('/')) + "/../" + rel;
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? path : std::string();
}

}  // namespace

int main(int argc, char** argv) {
    ToolOptions opts;
    std::string err;
    switch (ParseToolOptions(argc, argv, &opts, &err)) {
        case kParseHelp:
            fputs(ToolUsage().c_str(), stdout);
            return 0;
        case kParseError:
            fprintf(stderr, "posteffect: %s\n(posteffect --help lists the options)\n", err.c_str());
            return 2;
        case kParseOk:
            break;
    }
    // Installed, the tool uses the library and look-up images installed with
    // it; in the build tree, the built ones.
    std::string lib = Installed("lib/libposteffect.so");
    const std::string looks = Installed("share/posteffect/media/GPU");
    const char* root = getenv("POSTEFFECT_ROOT");
    if (opts.m_strLooks.empty() && !looks.empty() && !(root && root[0])) {
        opts.m_strLooks = looks;
    }
    opts.m_strDefaultRoot = POSTEFFECT_HOST_ROOT;
    return RunTool(opts, POSTEFFECT_DEFAULT_IMAGE, lib.empty() ? POSTEFFECT_LIBRARY : lib, stdout,
                   stderr);
}
