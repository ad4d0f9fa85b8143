#pragma once
#include "Options.h"

namespace mailhost {

// Each writes its answer to standard output and gives the exit status: 0 for success, 1 for a fault that was
// found and told.  What keeps a command from its work is thrown as Failure.

int runCheck(const Options& options);
int runInfo(const Options& options);
int runList(const Options& options);
int runShow(const Options& options);

}  // namespace mailhost
