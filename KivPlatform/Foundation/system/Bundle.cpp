// The packaged resources are searched for at run time: packages, relocated prefixes and build trees
// put them in different places, and a static library does not know where it is installed.

#include "KivPlatform/Foundation/system/Bundle.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/system/InstalledResources.h"
#include "KivPlatform/Foundation/system/OperatingSystem.h"

namespace kiv {

namespace {

struct Configured {
  Mutex mutex;
  std::optional<std::string> path KIV_GUARDED_BY(mutex);                        // the host's
  std::map<std::string, std::string, std::less<>> found KIV_GUARDED_BY(mutex);  // by directory
};

Configured& configured() {
  static auto& shared = *new Configured;
  return shared;
}

/// Set before main if the program links an installed static library.
std::atomic<const char*>& installedResources() {
  static std::atomic<const char*> shared = nullptr;
  return shared;
}

std::optional<std::string> namedInstalledResources() {
  const char* const name = installedResources();
  if (!name) return std::nullopt;
  const std::filesystem::path path(name);
  // A relative path is relative to the compiler's working directory, so it is useless now.
  if (!path.is_absolute()) return std::nullopt;
  return path.lexically_normal().string();
}

/// Follows links: a build puts one beside its programs.
bool hasDirectory(const std::string& candidate, std::string_view name) {
  std::error_code ignored;
  return std::filesystem::is_directory(path::appendingPathComponent(candidate, name), ignored);
}

/// The prefixes that a library or program in `directory` may be installed under: the parent of bin
/// and lib, and the grandparent of directories such as lib/x86_64-linux-gnu. Other directories give
/// none, since what lies next to them may belong to another program.
std::vector<std::string_view> prefixesOf(std::string_view directory) {
  const auto isLibraries = [](std::string_view path) {
    return path::lastPathComponent(path).starts_with("lib");
  };
  const auto name = path::lastPathComponent(directory);
  const auto parent = path::deletingLastPathComponent(directory);
  std::vector<std::string_view> prefixes;
  if (name == "bin" || name == "sbin" || isLibraries(directory)) prefixes.push_back(parent);
  if (isLibraries(parent)) prefixes.push_back(path::deletingLastPathComponent(parent));
  return prefixes;
}

/// Searches the directory of the library, its prefix, the prefix of the headers that the program
/// was built with, and the prefix that the library was configured for.
std::string findResourcePath(std::string_view directory) {
  std::vector<std::string> candidates;
  if (const auto library = system::directoryOfThisLibrary()) {
    candidates.push_back(*library);
    for (const auto prefix : prefixesOf(*library)) {
      candidates.push_back(path::appendingPathComponent(prefix, "share/KivResource"));
    }
  }
  if (const auto named = namedInstalledResources()) candidates.push_back(*named);
  candidates.emplace_back(KIVRESOURCE_CONFIGURED_RESOURCES);
  for (auto& candidate : candidates) {
    if (hasDirectory(candidate, directory)) return std::move(candidate);
  }
  return {};
}

}  // namespace

bool nameInstalledResources(const char* directory) noexcept {
  installedResources() = directory;
  return true;
}

Bundle Bundle::frameworkBundleWithDirectory(std::string_view name) {
  {
    const MutexLock lock(configured().mutex);
    if (configured().path) return Bundle(*configured().path);
    const auto known = configured().found.find(name);
    if (known != configured().found.end()) return Bundle(known->second);
  }
  std::string found = findResourcePath(name);
  const MutexLock lock(configured().mutex);
  return Bundle(configured().found.emplace(name, std::move(found)).first->second);
}

void Bundle::setFrameworkResourcesPath(std::optional<std::string> path) {
  std::error_code ignored;
  if (path) path = std::filesystem::absolute(*path, ignored).string();
  const MutexLock lock(configured().mutex);
  configured().path = std::move(path);
}

Bundle Bundle::bundleWithPath(std::string path) {
  return Bundle(std::move(path));
}

Bundle::Bundle(std::string resourcePath) : resourcePath_(std::move(resourcePath)) {}

std::optional<std::string> Bundle::pathForResource_ofType_inDirectory(
    std::string_view name, std::string_view type, std::string_view directory) const {
  if (resourcePath_.empty() || (name.empty() && type.empty())) return std::nullopt;
  std::string fileName(name);
  if (!type.empty()) fileName.append(1, '.').append(type);
  auto found = path::appendingPathComponent(path::appendingPathComponent(resourcePath_, directory),
                                            fileName);
  if (!FileManager::defaultManager().fileExistsAtPath(found)) return std::nullopt;
  return found;
}

}  // namespace kiv
