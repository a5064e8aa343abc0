// The posteffect tool's run: input, one plug-in run per effect, outputs and
// the timing table.
#ifndef POSTEFFECT_TOOLS_APP_H
#define POSTEFFECT_TOOLS_APP_H

#include <stdio.h>

#include <string>

#include "options.h"

// Runs what opts asks for. szDefaultImage is read when no input is named,
// szDefaultLib loaded when no --lib is given. The table and the names of the
// files written go to out, problems to err. Returns the process exit code:
// 0 when every effect asked for ran (or, with no --effect, at least one),
// 1 otherwise.
int RunTool(const ToolOptions& opts, const std::string& defaultImage, const std::string& defaultLib,
            FILE* out, FILE* err);

#endif
