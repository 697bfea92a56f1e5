#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

// Values of single header fields. A server may send them in any form.

namespace kiv {

/// True if the text is an entity tag (RFC 9110, 8.8.3), weak or strong. Anything else must not be
/// sent back to a server, since it could contain a line end and so inject headers.
bool isEntityTag(std::string_view text) noexcept;
/// True if it is a strong entity tag. Different bodies may share a weak one.
bool isStrongEntityTag(std::string_view text) noexcept;

/// True if the text has only characters that an HTTP-date may have (RFC 9110, 5.6.7).
bool hasCharactersOfDate(std::string_view text) noexcept;

/// Parses an HTTP-date (RFC 9110, 5.6.7) into seconds since 1970; nothing if it is not one.
std::optional<std::int64_t> secondsFromHTTPDate(std::string_view text);

/// The current time in seconds since 1970.
std::int64_t secondsNow() noexcept;

/// Parses a Retry-After header: a number of seconds, or a date, which is compared with the
/// response's Date (`date`, in seconds since 1970) or else with the current time. Nothing if it is
/// neither. The result is between zero and a year.
std::optional<std::chrono::seconds> waitFromRetryAfter(std::string_view text,
                                                       std::optional<std::int64_t> date);

}  // namespace kiv
