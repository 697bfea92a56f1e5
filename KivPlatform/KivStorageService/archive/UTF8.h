#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kiv::storage::utf8 {

/// The code points of UTF-8 text; nothing where it is not well-formed (an overlong form, a
/// surrogate, a number beyond U+10FFFF, a sequence cut short).
std::optional<std::u32string> decode(std::string_view text);

bool isValid(std::string_view text);

}  // namespace kiv::storage::utf8
