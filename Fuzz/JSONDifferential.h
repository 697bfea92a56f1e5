#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kiv::fuzz {

/// Reads the text with our reader and with simdjson's other one, which validates the whole text
/// before it hands out anything, and tells how the two differ; nothing if they agree.
///
/// They are to agree on what is JSON and on every value of it but for what ours does on purpose:
/// integers beyond 64 bits become doubles, a byte order mark is passed over, the last of equal keys
/// counts, and a bare value or nesting beyond the limit is refused. What ours has read is also
/// written and read again, which must change nothing.
std::optional<std::string> disagreementOnJSON(std::string_view text);

}  // namespace kiv::fuzz
