// File names come from servers. A name or path that could leave the root or touch the service's
// private directory is rejected here, before any file operation.

#include "KivPlatform/KivStorageService/store/StoredPath.h"

#include "KivPlatform/Foundation/files/FileName.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/ArchiveNames.h"
#include "KivPlatform/KivStorageService/store/StorageErrors.h"

namespace kiv::storage {

namespace {

Error unusable(std::string_view sort, std::string_view name, std::string_view problem) {
  std::string message(sort);
  message.append(" ").append(quoted(name)).append(" cannot be used: it ").append(problem);
  return storageError(KivStorageServiceErrorCode::unusableName, message + ".");
}

bool isReserved(std::string_view fileName, std::string_view relativePath) {
  return relativePath.empty() && fileName == privateDirectory;
}

}  // namespace

std::string storedPath(std::string_view root, std::string_view relativePath,
                       std::string_view fileName) {
  const std::string directory =
      relativePath.empty() ? std::string(root) : path::appendingPathComponent(root, relativePath);
  return path::appendingPathComponent(directory, fileName);
}

bool isArchiveName(std::string_view fileName) {
  return fileName.ends_with(archiveSuffix);
}

std::string_view archiveStem(std::string_view fileName) {
  return fileName.substr(0, fileName.size() - archiveSuffix.size());
}

std::optional<std::string> validateRelativePath(std::string_view relativePath) {
  if (relativePath.empty()) return std::nullopt;
  if (relativePath.substr(0, relativePath.find('/')) == privateDirectory) {
    return "is the storage service's own";
  }
  while (true) {
    const std::size_t separator = relativePath.find('/');
    const std::string_view component = relativePath.substr(0, separator);
    if (auto problem = filename::validate(component)) {
      return "has the part " + quoted(component) + ", which " + *problem;
    }
    if (separator == relativePath.npos) return std::nullopt;
    relativePath.remove_prefix(separator + 1);
  }
}

Status checkPlace(std::string_view fileName, std::string_view relativePath) {
  if (const auto problem = filename::validate(fileName)) {
    return unusable("The file name", fileName, *problem);
  }
  if (const auto problem = validateRelativePath(relativePath)) {
    return unusable("The directory", relativePath, *problem);
  }
  if (isReserved(fileName, relativePath)) {
    return unusable("The file name", fileName, "is the storage service's own");
  }
  return {};
}

Status checkSaving(std::string_view fileName, std::string_view relativePath) {
  if (Status status = checkPlace(fileName, relativePath); !status) return status;
  if (!isArchiveName(fileName)) return {};
  const std::string_view stem = archiveStem(fileName);
  if (const auto problem = filename::validate(stem)) {
    return unusable("The archive name", fileName,
                    "would be unpacked in " + quoted(stem) + ", which " + *problem);
  }
  if (isReserved(stem, relativePath)) {
    return unusable("The archive name", fileName, "would be unpacked in the service's own place");
  }
  return {};
}

}  // namespace kiv::storage
