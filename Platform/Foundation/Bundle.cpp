#include "Platform/Foundation/Bundle.h"

#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

#include "Platform/Foundation/FileManager.h"
#include "Platform/Foundation/LibraryLocation.h"
#include "Platform/Foundation/Path.h"

namespace kiv {

namespace {

struct Configured {
  std::mutex mutex;
  std::optional<std::string> path;
};

Configured& configured() {
  static auto& shared = *new Configured;
  return shared;
}

bool holdsPackagedBundle(const std::string& directory) {
  return FileManager::defaultManager().directoryExistsAtPath(
      path::appendingPathComponent(directory, "InnerAdResources.bundle"));
}

/// Where the library's resources may lie, the most telling place first: beside the library itself,
/// in the prefix that it is installed under, in the prefix that it was built for, in its source
/// tree.
std::string findResourcePath() {
  std::vector<std::string> candidates;
  if (const auto library = directoryOfThisLibrary()) {
    candidates.push_back(*library);
    // The prefix is one level up from bin and lib, two from lib/x86_64-linux-gnu and its like.
    std::string_view prefix = *library;
    for (int level = 0; level < 2; ++level) {
      prefix = path::deletingLastPathComponent(prefix);
      candidates.push_back(path::appendingPathComponent(prefix, "share/KivResource"));
    }
  }
  candidates.emplace_back(KIVRESOURCE_INSTALLED_RESOURCES);
  candidates.emplace_back(KIVRESOURCE_SOURCE_RESOURCES);
  for (auto& candidate : candidates) {
    if (holdsPackagedBundle(candidate)) return std::move(candidate);
  }
  return {};
}

}  // namespace

Bundle Bundle::frameworkBundle() {
  {
    const std::lock_guard lock(configured().mutex);
    if (configured().path) return Bundle(*configured().path);
  }
  static const auto& found = *new std::string(findResourcePath());
  return Bundle(found);
}

void Bundle::setFrameworkResourcesPath(std::optional<std::string> path) {
  std::error_code ignored;
  if (path) path = std::filesystem::absolute(*path, ignored).string();
  const std::lock_guard lock(configured().mutex);
  configured().path = std::move(path);
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
