// The rules are the same on every operating system. A backslash is rejected on POSIX systems too.

#include "KivPlatform/Foundation/files/FileName.h"

namespace kiv::filename {

std::optional<std::string> objection(std::string_view name) {
  using namespace std::string_view_literals;
  if (name.empty()) return "is empty";
  if (name == "."sv || name == ".."sv) return "names a directory";
  if (name.find('\0') != name.npos) return "contains a NUL character";
  if (name.find_first_of("/\\"sv) != name.npos) return "contains a path separator";
  if (name.size() > longestName) {
    return "is longer than " + std::to_string(longestName) + " bytes";
  }
  return std::nullopt;
}

bool isHarmless(std::string_view name) {
  return !objection(name).has_value();
}

}  // namespace kiv::filename
