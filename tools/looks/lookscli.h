// The posteffect-looks command line: build look sources into look-up images,
// make curves from points, Photoshop curves, cube LUTs or graded images,
// neutral images to grade, and pictures of any look-up image.
#ifndef POSTEFFECT_TOOLS_LOOKS_LOOKSCLI_H
#define POSTEFFECT_TOOLS_LOOKS_LOOKSCLI_H

#include <stdio.h>

#include <string>

// Runs one command (argv[1] is the subcommand). Reports go to out, one
// error line to err. Returns the exit code: 0 done, 1 failed (nothing
// written), 2 bad command line.
int RunLooksTool(int argc, char** argv, FILE* out, FILE* err);
std::string LooksUsage();

#endif
