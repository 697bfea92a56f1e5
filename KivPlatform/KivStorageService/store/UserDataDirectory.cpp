// Where a user's application data lies, on POSIX systems.

#include "KivPlatform/KivStorageService/store/UserDataDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <pwd.h>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "KivPlatform/Foundation/files/FileName.h"
#include "KivPlatform/Foundation/files/Path.h"

namespace kiv::storage {

namespace {

std::string absolutePathInEnvironment(const char* variable) {
  const char* const value = std::getenv(variable);
  return value && *value == '/' ? value : "";
}

std::string homeDirectory() {
  if (std::string home = absolutePathInEnvironment("HOME"); !home.empty()) return home;
  std::vector<char> buffer(16 * 1024);
  passwd record{};
  passwd* found = nullptr;
  getpwuid_r(getuid(), &record, buffer.data(), buffer.size(), &found);
  return found && found->pw_dir && *found->pw_dir == '/' ? found->pw_dir : "";
}

}  // namespace

std::string userDataDirectory() {
#if defined(__APPLE__)
  constexpr std::string_view underHome = "Library/Application Support";
#else
  if (std::string data = absolutePathInEnvironment("XDG_DATA_HOME"); !data.empty()) return data;
  constexpr std::string_view underHome = ".local/share";
#endif
  const std::string home = homeDirectory();
  return home.empty() ? home : path::appendingPathComponent(home, underHome);
}

std::string programName() {
#if defined(__linux__)
  const std::string_view name = program_invocation_short_name;
#else
  const std::string_view name = getprogname();
#endif
  return filename::isHarmless(name) ? std::string(name) : "KivResource";
}

}  // namespace kiv::storage
