#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tool {

/// A fault that the content server injects for one path.
struct Fault {
  std::string path;           ///< As in a request, with a leading "/".
  std::optional<int> status;  ///< The status of the response; nullopt to cut off the body.

  /// Parses "PATH=STATUS" or "PATH=break"; nullopt if the rule is neither. A path without a leading
  /// "/" gets one.
  static std::optional<Fault> of(std::string_view rule);
};

}  // namespace tool
