#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "KivResource/maintenance/KivResourceTrim.h"

namespace tool {

/// The options of one run of the tool.
struct Options {
  using Command = int (*)(const Options&);
  /// Runs the command and returns the exit status of the program.
  Command command = nullptr;

  // General options.
  std::optional<std::string> root;
  std::optional<std::string> mainURL;
  std::optional<std::string> reserveURL;
  std::optional<std::string> resources;
  bool json = false;

  // Options of some commands.
  std::string config;  ///< A path, or "-" for standard input.
  std::optional<std::string> id;
  std::optional<std::string> type;
  bool verbose = false;
  std::optional<std::string> headers;  ///< The path of a file.
  bool dryRun = false;
  std::uint64_t bytes = 0;  ///< The bound of trim.
  /// Which loaded resources trim may remove.
  KivResourceTrimOptions::Rule rule = KivResourceTrimOptions::Rule::orphansOnly;
  std::string directory;
  int port = 0;
  std::vector<std::string> faults;
  bool quiet = false;
  std::string page;
  std::string url;  ///< Of the configuration.
  std::vector<std::string> mirrors;
  int interval = 3600;  ///< Seconds.
};

}  // namespace tool
