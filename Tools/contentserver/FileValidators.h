#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace kiv {

/// The validators of a file (RFC 9110, section 8.8).
struct FileValidators {
  std::string entityTag;     ///< Strong and quoted; from the size and the time in nanoseconds.
  std::string lastModified;  ///< The value of the header field.

  /// Both are empty if the status of the file cannot be read.
  static FileValidators of(const std::filesystem::path& file);

  /// True if a range request is to be honoured: it has no If-Range header, or one that matches this
  /// version.
  [[nodiscard]] bool permitRange(std::string_view ifRange) const {
    return ifRange.empty() || ifRange == entityTag || ifRange == lastModified;
  }

  /// True if the client has this version already (RFC 9110, section 13.1): If-None-Match names its
  /// tag or, without that header, If-Modified-Since is its date.
  [[nodiscard]] bool areKnown(std::string_view ifNoneMatch,
                              std::string_view ifModifiedSince) const {
    if (entityTag.empty()) return false;
    if (ifNoneMatch.empty()) return ifModifiedSince == lastModified;
    return ifNoneMatch == "*" || ifNoneMatch.find(entityTag) != std::string_view::npos;
  }
};

}  // namespace kiv
