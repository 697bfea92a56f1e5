#include "KivResource/files/KivResourceArchiveRemoval.h"

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivResource/KivResourceConstants.h"

namespace kiv {

Status removeArchiveAtPath(const std::string& path) {
  FileManager& files = FileManager::defaultManager();
  if (files.directoryExistsAtPath(path)) {  // behind a link the page would be another's
    if (const auto withdrawn = KivStorageService::withdrawDirectoryAtPath(path)) {
      return files.removeItemAtPath(*withdrawn);
    }
    const std::string page = path::appendingPathComponent(path, KivResouceArchiveKey[1]);
    if (files.itemExistsAtPath(page)) {
      if (Status status = files.removeItemAtPath(page); !status) return status;
    }
  }
  return files.removeItemAtPath(path);
}

}  // namespace kiv
