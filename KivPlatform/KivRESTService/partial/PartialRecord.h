#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/KivRESTService/http/ResponseCheck.h"
#include "KivPlatform/KivRESTService/partial/URLDigest.h"

namespace kiv {

/// What is known of a body of which a part is kept.
struct PartialRecord {
  URLDigest url;                       ///< That was asked for.
  URLDigest finalURL;                  ///< That gave the body, after redirects.
  BodyVersion version;                 ///< Without a validator the part is of no use later.
  std::optional<std::int64_t> length;  ///< Of the whole body.
  std::int64_t date = 0;               ///< When a try last began to add to it, in s since 1970.
  /// The last request for the rest brought none of it: the next one is to be for the whole.
  bool restFailed = false;

  /// The text of the file that keeps the record. It names this run of the computer: since the part
  /// is not synced, what another run left may have holes.
  [[nodiscard]] std::string text() const;
  /// Nothing where the text is no record, or that of another run of the computer.
  static std::optional<PartialRecord> fromText(std::string_view text);
};

}  // namespace kiv
