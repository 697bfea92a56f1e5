#include "KivResource/files/KivResourceShownTime.h"

#include <string_view>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivResource/KivResourceConstants.h"
#include "KivResource/KivResourceObject.h"
#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/files/KivResourceCachePlace.h"

namespace kiv {

namespace {

FileManager& files() {
  return FileManager::defaultManager();
}

/// In the cache in use. A link in the resources directory may lead to a file of the user, so the
/// path is resolved.
bool isStored(std::string_view resolvedPath) {
  if (KivStorageService::isLeasedPath(resolvedPath)) return true;
  const std::string resources = KivResourceStorageModule::resourcesDirectoryPath();
  const auto directory = files().resolvedPathOfItemAtPath(resources);
  return !resources.empty() && directory && resolvedPath.starts_with(*directory + "/");
}

}  // namespace

void noteShown(const KivResource& resource) {
  for (const std::string& path : resource.useFilePaths()) {
    const auto resolved = files().resolvedPathOfItemAtPath(path);
    if (resolved && CacheInUse::isTrueForAny([&] { return isStored(*resolved); })) {
      static_cast<void>(files().touchFileAtPath(*resolved));
    }
  }
}

std::optional<std::int64_t> shownTimeOfItemAtPath(const std::string& item) {
  const std::string page = path::appendingPathComponent(item, KivResouceArchiveKey[1]);
  const auto identity = files().identityOfFileAtPath(files().fileExistsAtPath(page) ? page : item);
  return identity ? std::optional(identity->modified) : std::nullopt;
}

}  // namespace kiv
