#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

/// The moment of a date as HTTP headers write it, in seconds since 1970; nothing where it is none.
KIV_EXPORT std::optional<std::int64_t> secondsFromHTTPDate(std::string_view text);

/// The same for now.
KIV_EXPORT std::int64_t secondsNow() noexcept;

/// How long a "Retry-After" header asks to wait: it holds a number of seconds, or a date, which is
/// compared with the response's own "Date" where that is there. Nothing where it says neither;
/// never less than zero, nor more than a year.
KIV_EXPORT std::optional<std::chrono::seconds> waitFromRetryAfter(std::string_view text,
                                                                  std::optional<std::int64_t> date);

}  // namespace kiv
