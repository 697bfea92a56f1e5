#pragma once

#include <string>
#include <string_view>

namespace kiv::storage {

/// The form of a name in which two names are equal where some file system takes them for one:
/// letters in lower case, accented letters taken apart into letter and accent.
///
/// Covers the Latin, Greek and Cyrillic scripts, which is where the names of web pages differ in
/// this way in practice. Accents of one letter count in their written order. A name that is not
/// UTF-8 is folded byte by byte.
std::u32string foldedName(std::string_view name);

}  // namespace kiv::storage
