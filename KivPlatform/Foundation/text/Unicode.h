#pragma once

#include <string>
#include <string_view>

namespace kiv::unicode {

/// True if the text is valid UTF-8: no overlong forms, surrogates, code points above U+10FFFF or
/// truncated sequences.
bool isUTF8(std::string_view text);

/// The case-folded canonical decomposition (NFD) of a name. Two names with equal results may be the
/// same file on a file system that ignores case or normalisation. A name that is not UTF-8 is
/// folded byte by byte.
std::u32string folded(std::string_view name);
/// The same in UTF-8.
std::string foldedName(std::string_view name);

}  // namespace kiv::unicode
