#include "Platform/Foundation/LibraryLocation.h"

#include "Platform/Foundation/Path.h"

#if __has_include(<dlfcn.h>)

#include <dlfcn.h>
#include <memory>
#include <stdlib.h>

std::optional<std::string> kiv::directoryOfThisLibrary() {
  Dl_info info{};
  const auto* const here = reinterpret_cast<const void*>(&directoryOfThisLibrary);
  if (dladdr(here, &info) == 0 || !info.dli_fname) return std::nullopt;
  const std::unique_ptr<char, decltype(&free)> resolved(realpath(info.dli_fname, nullptr), &free);
  if (!resolved) return std::nullopt;
  return std::string(path::deletingLastPathComponent(resolved.get()));
}

#else

std::optional<std::string> kiv::directoryOfThisLibrary() {
  return std::nullopt;
}

#endif
