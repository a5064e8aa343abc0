// posteffect: stands in for the camera service. Loads libposteffect.so, feeds
// it preview frames and a capture made from a picture, and writes what the
// effects made of them. See ToolUsage() (posteffect --help).
#include <stdio.h>

#include <string>

#include "app.h"
#include "options.h"

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
    return RunTool(opts, POSTEFFECT_DEFAULT_IMAGE, POSTEFFECT_LIBRARY, stdout, stderr);
}
