#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kiv::fuzz {

/// Parses the text with our reader and with simdjson's DOM API, and describes how the two differ;
/// nothing if they agree.
///
/// They must agree on what is valid and on all values, except for intended differences of ours:
/// integers beyond 64 bits become doubles, a byte order mark is skipped, the last of equal keys
/// counts, and a scalar document or too deep nesting is refused. Our result is also written and
/// read again, which must not change it.
std::optional<std::string> disagreementOnJSON(std::string_view text);

}  // namespace kiv::fuzz
