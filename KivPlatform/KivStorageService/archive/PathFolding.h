#pragma once

#include <string>
#include <string_view>

namespace kiv::storage {

/// The form of a name in which two names are equal where some file system takes them for one:
/// all of Unicode without letter case, and taken apart as by its canonical decomposition (NFD). A
/// name that is not UTF-8 is folded byte by byte.
std::u32string foldedName(std::string_view name);

}  // namespace kiv::storage
