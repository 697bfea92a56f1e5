#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/KivRESTService/http/ResponseCheck.h"
#include "KivPlatform/KivRESTService/partial/URLDigest.h"

namespace kiv {

/// The metadata of a partial body, which is needed to resume it.
struct PartialRecord {
  URLDigest url;                       ///< The URL of the request.
  URLDigest finalURL;                  ///< The URL after redirects.
  BodyVersion version;                 ///< Without a validator the part cannot be resumed.
  std::optional<std::int64_t> length;  ///< Bytes of the whole body, if known.
  std::int64_t date = 0;  ///< When an attempt last began to add to it, in seconds since 1970.
  /// The last range request failed, so the next request is for the whole file.
  bool restFailed = false;

  /// The contents of the record's file. They include the boot ID, because the part is not synced
  /// and may have holes after a system crash.
  [[nodiscard]] std::string text() const;
  /// Nothing if the text is not a valid record, has no validator, or has a different boot ID.
  static std::optional<PartialRecord> fromText(std::string_view text);
};

}  // namespace kiv
