// posteffect-looks: the authoring tool for the plug-in's look-up images. See
// LooksUsage() (posteffect-looks --help) and README.md.
#include <stdio.h>

#include "lookscli.h"

int main(int argc, char** argv) {
    return RunLooksTool(argc, argv, stdout, stderr);
}
