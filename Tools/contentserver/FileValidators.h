#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace kiv {

/// What tells one version of a file from another (RFC 9110, section 8.8).
struct FileValidators {
  std::string entityTag;     ///< A strong one, with its quotes; of size and time to the nanosecond.
  std::string lastModified;  ///< As the header field has it.

  /// Both empty if the file cannot be looked at.
  static FileValidators of(const std::filesystem::path& file);

  /// True if a request for a range gets it: it has no If-Range, or one for this version.
  [[nodiscard]] bool permitRange(std::string_view ifRange) const {
    return ifRange.empty() || ifRange == entityTag || ifRange == lastModified;
  }
};

}  // namespace kiv
