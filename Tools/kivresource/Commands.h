#pragma once

#include "Tools/kivresource/Options.h"

namespace tool {

// The commands. Each runs on the main thread, drains the main queue, which is the manager's queue,
// and returns the exit status of the program.

int runLoad(const Options& options);
int runUpdate(const Options& options);
int runRevalidate(const Options& options);
int runWatch(const Options& options);
int runList(const Options& options);
int runAudit(const Options& options);
int runClean(const Options& options);
int runTrim(const Options& options);
int runServe(const Options& options);
int runSession(const Options& options);
int runGallery(const Options& options);

}  // namespace tool
