#pragma once

#include <string>

#include "Examples/demo/Report.h"

namespace demo {

/// Where a run of the demo finds and keeps things.
struct Setting {
  std::string content;  ///< The folder of the sample content.
  std::string root;     ///< The storage root, which one chapter hands on to the next.
};

/// The story, a process for each chapter: what one process loaded, the next one finds on disk.
/// Every chapter prints what it shows into the report.

/// An empty cache loads a configuration.
void firstLoad(const Setting& setting, Report& report);
/// A new process has everything at once, and needs no server for it.
void restart(const Setting& setting, Report& report);
/// A second configuration: one resource newer, one dropped, the rest as before; and a server that
/// fails.
void update(const Setting& setting, Report& report);

}  // namespace demo
