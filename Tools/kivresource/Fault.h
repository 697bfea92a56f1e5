#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tool {

/// What goes wrong with one path of the content server.
struct Fault {
  std::string path;           ///< As in a request, with a "/" first.
  std::optional<int> status;  ///< To be answered with; nothing to break off in the middle.

  /// Reads "PATH=STATUS" or "PATH=break"; nothing if the rule is neither. A "/" is put before a
  /// path that has none.
  static std::optional<Fault> of(std::string_view rule);
};

}  // namespace tool
