#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

/// Parses an HTTP-date (RFC 9110, 5.6.7) into seconds since 1970; nothing if it is not one.
KIV_EXPORT std::optional<std::int64_t> secondsFromHTTPDate(std::string_view text);

/// The current time in seconds since 1970.
KIV_EXPORT std::int64_t secondsNow() noexcept;

/// Parses a Retry-After header: a number of seconds, or a date, which is compared with the
/// response's Date if there is one. Nothing if it is neither. The result is between zero and a
/// year.
KIV_EXPORT std::optional<std::chrono::seconds> waitFromRetryAfter(std::string_view text,
                                                                  std::optional<std::int64_t> date);

}  // namespace kiv
