// A backslash is rejected on POSIX systems too. The names that are not portable are those that
// Windows reserves: it ignores dots and spaces at the end of a name, and takes some names for
// devices, whatever the directory and the extension.

#include "KivPlatform/Foundation/files/FileName.h"

#include <algorithm>
#include <array>

#include "KivPlatform/Foundation/text/ASCII.h"

namespace kiv::filename {

namespace {

using namespace std::string_view_literals;

bool isControlCharacter(char character) {
  return static_cast<unsigned char>(character) < 0x20;
}

/// COM or LPT with a digit, which may be 0 or a superscript of Latin-1.
bool isNumberedDevice(std::string_view stem) {
  constexpr std::array superscripts{"\u00b9"sv, "\u00b2"sv, "\u00b3"sv};
  if (!stem.starts_with("com") && !stem.starts_with("lpt")) return false;
  stem.remove_prefix(3);
  if (stem.size() == 1) return ascii::isDigit(stem.front());
  return std::find(superscripts.begin(), superscripts.end(), stem) != superscripts.end();
}

bool isDevice(std::string_view name) {
  constexpr std::array devices{"con"sv, "prn"sv, "aux"sv, "nul"sv, "conin$"sv, "conout$"sv};
  std::string stem = ascii::lowercased(name.substr(0, name.find('.')));
  while (stem.ends_with(' '))
    stem.pop_back();
  return isNumberedDevice(stem) || std::find(devices.begin(), devices.end(), stem) != devices.end();
}

}  // namespace

std::optional<std::string> validate(std::string_view name) {
  if (name.empty()) return "is empty";
  if (name == "."sv || name == ".."sv) return "names a directory";
  if (name.find('\0') != name.npos) return "contains a NUL character";
  if (name.find_first_of("/\\"sv) != name.npos) return "contains a path separator";
  if (name.size() > longestName) {
    return "is longer than " + std::to_string(longestName) + " bytes";
  }
  return validatePortability(name);
}

std::optional<std::string> validatePortability(std::string_view name) {
  if (std::any_of(name.begin(), name.end(), isControlCharacter)) {
    return "contains a control character";
  }
  if (name.find_first_of("<>:\"|?*"sv) != name.npos) {
    return "contains one of the characters < > : \" | ? *";
  }
  if (name.ends_with('.') || name.ends_with(' ')) return "ends with a dot or a space";
  if (isDevice(name)) return "is the name of a device on Windows";
  return std::nullopt;
}

bool isValid(std::string_view name) {
  return !validate(name).has_value();
}

}  // namespace kiv::filename
