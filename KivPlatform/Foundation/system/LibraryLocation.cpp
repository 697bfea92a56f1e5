#include "KivPlatform/Foundation/system/LibraryLocation.h"

#include "KivPlatform/Foundation/files/Path.h"

#if defined(__linux__)

#include <charconv>
#include <cstdint>
#include <fstream>
#include <string_view>

namespace {

/// Whether a line of /proc/self/maps, "start-end permissions ...", is about that address.
bool isMappingOf(std::uintptr_t address, std::string_view line) {
  std::uintptr_t start = 0;
  std::uintptr_t end = 0;
  const char* const last = line.data() + line.size();
  const auto first = std::from_chars(line.data(), last, start, 16);
  if (first.ec != std::errc() || first.ptr == last || *first.ptr != '-') return false;
  if (std::from_chars(first.ptr + 1, last, end, 16).ec != std::errc()) return false;
  return start <= address && address < end;
}

}  // namespace

// Not dladdr: in a program without shared libraries it answers argv[0], which the caller chooses.
std::optional<std::string> kiv::directoryOfThisLibrary() {
  const auto here = reinterpret_cast<std::uintptr_t>(&directoryOfThisLibrary);
  std::ifstream mappings("/proc/self/maps");
  for (std::string line; std::getline(mappings, line);) {
    if (!isMappingOf(here, line)) continue;
    // The path is the last field, and the first that has a slash. Where the file was replaced
    // since, something follows its name, but nothing that of its directory.
    const auto path = line.find('/');
    if (path == std::string::npos) return std::nullopt;
    return std::string(path::deletingLastPathComponent(std::string_view(line).substr(path)));
  }
  return std::nullopt;
}

#elif __has_include(<dlfcn.h>)

#include <dlfcn.h>
#include <memory>
#include <stdlib.h>

std::optional<std::string> kiv::directoryOfThisLibrary() {
  Dl_info info{};
  const auto* const here = reinterpret_cast<const void*>(&directoryOfThisLibrary);
  if (dladdr(here, &info) == 0 || !info.dli_fname) return std::nullopt;
  // A relative name would be resolved against the directory that happens to be current.
  if (*info.dli_fname != '/') return std::nullopt;
  const std::unique_ptr<char, decltype(&free)> resolved(realpath(info.dli_fname, nullptr), &free);
  if (!resolved) return std::nullopt;
  return std::string(path::deletingLastPathComponent(resolved.get()));
}

#else

std::optional<std::string> kiv::directoryOfThisLibrary() {
  return std::nullopt;
}

#endif
