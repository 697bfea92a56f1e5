#pragma once

#include <string>
#include <string_view>

namespace kiv::unicode {

/// True if the text is well-formed UTF-8: no overlong form, no surrogate, no number beyond
/// U+10FFFF, no sequence cut short.
bool isUTF8(std::string_view text);

/// The form of a name in which two names are equal where some file system takes them for one:
/// all of Unicode without letter case, and taken apart as by its canonical decomposition (NFD). A
/// name that is not UTF-8 is folded byte by byte.
std::u32string folded(std::string_view name);

}  // namespace kiv::unicode
