#include "KivResource/KivResourceArchiveRemoval.h"

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivResource/KivResourceConstants.h"

namespace kiv {

bool removeArchiveAtPath(const std::string& path, std::optional<Error>* error) {
  FileManager& files = FileManager::defaultManager();
  if (files.directoryExistsAtPath(path)) {  // behind a link the page would be another's
    if (const auto withdrawn = KivStorageService::withdrawDirectoryAtPath(path)) {
      return files.removeItemAtPath(*withdrawn, error);
    }
    const std::string page = path::appendingPathComponent(path, KivResouceArchiveKey[1]);
    if (files.itemExistsAtPath(page) && !files.removeItemAtPath(page, error)) return false;
  }
  return files.removeItemAtPath(path, error);
}

}  // namespace kiv
