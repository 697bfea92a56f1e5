#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/KivRESTService/http/ResponseCheck.h"
#include "KivPlatform/KivRESTService/partial/URLDigest.h"

namespace kiv {

/// The metadata of a partial body.
struct PartialRecord {
  URLDigest url;                       ///< Of the request.
  URLDigest finalURL;                  ///< After redirects.
  BodyVersion version;                 ///< Without a validator the part cannot be resumed.
  std::optional<std::int64_t> length;  ///< Of the whole body.
  std::int64_t date = 0;  ///< When an attempt last began to add to it, in seconds since 1970.
  /// The last range request failed: the next one is for the whole file.
  bool restFailed = false;

  /// The text of the record's file. It holds the boot ID: the part is not synced, so after a crash
  /// of the system it may have holes.
  [[nodiscard]] std::string text() const;
  /// Nothing if the text is no record, or has another boot ID.
  static std::optional<PartialRecord> fromText(std::string_view text);
};

}  // namespace kiv
