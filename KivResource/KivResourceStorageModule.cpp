// Names come from servers: only harmless ones become paths. The same name may be a packaged file, a
// stored file or an archive; placeOf() alone decides which, so that saving and finding agree.

#include "KivResource/KivResourceStorageModule.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/FileName.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/files/RemovalGuard.h"
#include "KivPlatform/Foundation/system/Bundle.h"
#include "KivPlatform/Foundation/values/JSON.h"
#include "KivResource/files/KivResourceArchiveRemoval.h"
#include "KivResource/files/KivResourceCachePlace.h"

namespace {

constexpr std::string_view listDirectory = "KivResource";
constexpr std::string_view resourcesDirectory = "KivResource/Resources";
constexpr std::string_view spoolDirectory = ".KivRESTService";
constexpr std::string_view listFile = "resources_config.json";
constexpr int mostListsSetAside = 99;
constexpr std::string_view packagedBundle = "InnerAdResources.bundle";
constexpr std::int64_t dataIsNotArrayErrorCode = 110;

constexpr std::string_view archiveSuffix = KivResouceArchiveKey[0];
constexpr std::string_view entryPage = KivResouceArchiveKey[1];

kiv::Bundle packagedResources() {
  const kiv::CachePlace* const cache = kiv::CacheInUse::place();
  if (cache && cache->packagedResourcesPath)
    return kiv::Bundle::bundleWithPath(*cache->packagedResourcesPath);
  return kiv::Bundle::frameworkBundleWithDirectory(packagedBundle);
}

/// The place of a file with a given name.
struct Place {
  std::optional<std::string> packaged;  // which is there
  std::string name;                     // otherwise, that of the stored file
  std::string directory;
};

/// Nothing if the name is not allowed.
std::optional<Place> placeOf(std::string_view fileName) {
  using Module = KivResourceStorageModule;
  if (!kiv::filename::isValid(fileName)) return std::nullopt;
  if (!fileName.ends_with(archiveSuffix)) {
    return Place{Module::pathToInnerResourceFileWithName(fileName), std::string(fileName),
                 std::string(resourcesDirectory)};
  }
  const std::string_view stem = kiv::path::deletingPathExtension(fileName);
  if (!kiv::filename::isValid(stem)) return std::nullopt;
  return Place{Module::pathToInnerResourceArchiveWithName(stem), std::string(entryPage),
               kiv::path::appendingPathComponent(resourcesDirectory, stem)};
}

/// True for the page of an unpacked archive, by the names of the file and its directory alone.
bool isArchivePage(std::string_view path) {
  const std::string_view parent = kiv::path::deletingLastPathComponent(path);
  return kiv::path::lastPathComponent(path) == entryPage &&
         kiv::path::lastPathComponent(parent) != kiv::path::lastPathComponent(resourcesDirectory);
}

bool isDirectoryAt(std::string_view resolvedPath, const std::string& path) {
  if (path.empty()) return false;
  return kiv::FileManager::defaultManager().resolvedPathOfItemAtPath(path) == resolvedPath;
}

/// Where removals of resources may happen: the second one takes a directory before it is removed.
std::vector<std::string> ownDirectories() {
  return {KivResourceStorageModule::resourcesDirectoryPath(), KivStorageService::temporariesPath()};
}

std::string nameOfListSetAside(int number) {
  return "resources_config.unreadable-" + std::to_string(number) + ".json";
}

std::string pathOfListSetAside(int number) {
  return KivStorageService::filePathForFileName_atRelativePath(nameOfListSetAside(number),
                                                               listDirectory);
}

}  // namespace

bool KivResourceStorageModule::saveData_withResourceFileName_error(
    const kiv::Data& data, std::string_view fileName, std::optional<kiv::Error>* error) {
  return KivStorageService::saveData_forFileName_atRelativePath_error(data, fileName,
                                                                      resourcesDirectory, error);
}

std::optional<KivStorageService::StagedFile>
KivResourceStorageModule::stageData_withResourceFileName_inBatch_error(
    const kiv::Data& data, std::string_view fileName, KivStorageService::Batch& batch,
    std::optional<kiv::Error>* error) {
  return batch.stage(data, fileName, resourcesDirectory, error);
}

void KivResourceStorageModule::removeResourceFileWithPath_error(std::string_view path,
                                                                std::optional<kiv::Error>* error) {
  if (isArchivePage(path)) {
    removeItemAtPath_error(itemRemovedWithPath(path), error);
  } else {
    const kiv::removal::Confinement confinement(ownDirectories());
    kiv::FileManager::defaultManager().removeItemAtPath(path).reportTo(error);
  }
}

bool KivResourceStorageModule::removeItemAtPath_error(const std::string& path,
                                                      std::optional<kiv::Error>* error) {
  const kiv::removal::Confinement confinement(ownDirectories());
  return kiv::removeArchiveAtPath(path).reportTo(error);
}

std::string KivResourceStorageModule::itemRemovedWithPath(std::string_view path) {
  return std::string(isArchivePage(path) ? kiv::path::deletingLastPathComponent(path) : path);
}

std::string KivResourceStorageModule::resourcesDirectoryPath() {
  const std::string root = KivStorageService::rootPath();
  return root.empty() ? root : kiv::path::appendingPathComponent(root, resourcesDirectory);
}

std::string KivResourceStorageModule::spoolDirectoryPath() {
  const std::string root = KivStorageService::rootPath();
  return root.empty() ? root : kiv::path::appendingPathComponent(root, spoolDirectory);
}

std::string KivResourceStorageModule::packagedResourcesPath() {
  const kiv::Bundle bundle = packagedResources();
  const std::string& directory = bundle.resourcePath();
  return directory.empty() ? directory
                           : kiv::path::appendingPathComponent(directory, packagedBundle);
}

std::optional<std::string> KivResourceStorageModule::directoryOfPageAtPath(std::string_view path) {
  const auto page = kiv::FileManager::defaultManager().resolvedPathOfItemAtPath(path);
  if (!page || kiv::path::lastPathComponent(*page) != entryPage) return std::nullopt;
  const std::string_view directory = kiv::path::deletingLastPathComponent(*page);
  const std::string_view parent = kiv::path::deletingLastPathComponent(directory);
  const bool isArchive =
      isDirectoryAt(parent, resourcesDirectoryPath()) ||
      isDirectoryAt(parent, packagedResourcesPath()) ||
      (KivStorageService::isLeasedPath(directory) && !KivStorageService::isLeasedPath(parent));
  return isArchive ? std::optional<std::string>(directory) : std::nullopt;
}

std::optional<std::string> KivResourceStorageModule::pathOfItemSavedWithName(
    std::string_view fileName) {
  const std::string_view name =
      fileName.ends_with(archiveSuffix) ? kiv::path::deletingPathExtension(fileName) : fileName;
  if (!kiv::filename::isValid(name)) return std::nullopt;
  return kiv::path::appendingPathComponent(resourcesDirectoryPath(), name);
}

std::string KivResourceStorageModule::resourcesListPath() {
  if (KivStorageService::rootPath().empty()) return {};
  return KivStorageService::filePathForFileName_atRelativePath(listFile, listDirectory);
}

bool KivResourceStorageModule::saveResourcesList_error(const kiv::Array& resourceDictionaries,
                                                       std::optional<kiv::Error>* error) {
  const auto bytes = dataForArray_error(resourceDictionaries, error);
  if (!bytes) return false;
  return KivStorageService::savePrivateData_forFileName_atRelativePath_error(*bytes, listFile,
                                                                             listDirectory, error);
}

std::optional<kiv::Array> KivResourceStorageModule::loadResourcesListWithError(
    std::optional<kiv::Error>* error) {
  const auto bytes =
      KivStorageService::loadDataForFileName_atRelativePath_error(listFile, listDirectory, error);
  if (!bytes) return std::nullopt;
  return arrayOfDictionaryFromData_error(*bytes, error);
}

std::optional<std::string> KivResourceStorageModule::setResourcesListAsideWithError(
    std::optional<kiv::Error>* error) {
  auto& files = kiv::FileManager::defaultManager();
  const std::string path = resourcesListPath();
  const bool isFile = files.fileExistsAtPath(path) || files.linkExistsAtPath(path);
  int number = isFile ? 1 : mostListsSetAside + 1;
  while (number <= mostListsSetAside && files.itemExistsAtPath(pathOfListSetAside(number)))
    ++number;
  if (number > mostListsSetAside) {
    const auto reason = isFile ? std::errc::file_exists : std::errc::invalid_argument;
    if (error) *error = kiv::systemError(static_cast<int>(reason), "set aside", path);
    return std::nullopt;
  }
  files.makePrivateItemAtPath(path);
  std::string newPath = pathOfListSetAside(number);
  // Synced before another list can get the name.
  const std::string_view directory = kiv::path::deletingLastPathComponent(path);
  if (!files.moveItemAtPath_toPath(path, newPath).reportTo(error)) return std::nullopt;
  if (files.synchronizeDirectoryAtPath(directory).reportTo(error)) return newPath;
  // It is kept under either name.
  static_cast<void>(files.moveItemAtPath_toPath(newPath, path));
  return std::nullopt;
}

/// One listing of the directory is cheaper than a look for each possible name at every start.
std::vector<std::string> KivResourceStorageModule::setAsideResourcesLists() {
  const std::string list = resourcesListPath();
  if (list.empty()) return {};
  const auto names = kiv::FileManager::defaultManager().contentsOfDirectoryAtPath(
      kiv::path::deletingLastPathComponent(list));
  if (!names) return {};
  std::vector<std::string> paths;
  for (int number = 1; number <= mostListsSetAside; ++number) {
    const bool isThere =
        std::find(names->begin(), names->end(), nameOfListSetAside(number)) != names->end();
    if (isThere) paths.push_back(pathOfListSetAside(number));
  }
  return paths;
}

void KivResourceStorageModule::makeResourcesListsPrivate() {
  const std::string list = resourcesListPath();
  if (list.empty()) return;
  auto& files = kiv::FileManager::defaultManager();
  files.makePrivateItemAtPath(list);
  for (const std::string& path : setAsideResourcesLists())
    files.makePrivateItemAtPath(path);
}

std::optional<std::string> KivResourceStorageModule::pathToResourceFileWithName(
    std::string_view fileName) {
  auto place = placeOf(fileName);
  if (!place) return std::nullopt;
  if (place->packaged) return std::move(place->packaged);
  if (!KivStorageService::fileExistsWithName_atRelativePath(place->name, place->directory)) {
    return std::nullopt;
  }
  return KivStorageService::filePathForFileName_atRelativePath(place->name, place->directory);
}

std::optional<std::string> KivResourceStorageModule::pathToInnerResourceFileWithName(
    std::string_view fileName) {
  if (!kiv::filename::isValid(fileName)) return std::nullopt;
  const std::string_view extension = kiv::path::pathExtension(fileName);
  // A name that merely ends in "." has no extension to split off.
  const std::string_view stem =
      extension.empty() ? fileName : kiv::path::deletingPathExtension(fileName);
  return packagedResources().pathForResource_ofType_inDirectory(stem, extension, packagedBundle);
}

std::optional<std::string> KivResourceStorageModule::pathToInnerResourceArchiveWithName(
    std::string_view stem) {
  if (!kiv::filename::isValid(stem)) return std::nullopt;
  return packagedResources().pathForResource_ofType_inDirectory(
      kiv::path::deletingPathExtension(entryPage), kiv::path::pathExtension(entryPage),
      kiv::path::appendingPathComponent(packagedBundle, stem));
}

kiv::Array KivResourceStorageModule::arrayOfDictionaryFromData_error(
    const kiv::Data& data, std::optional<kiv::Error>* error) {
  const auto root = kiv::JSON::read(data).reportTo(error);
  if (!root) return {};
  if (!root->isArray()) {
    if (error) {
      *error = kiv::Error(KivResourceStorageModuleErrorDomain, dataIsNotArrayErrorCode,
                          "Data is not array.");
    }
    return {};
  }
  kiv::Array dictionaries;
  for (const kiv::Value& element : root->array()) {
    if (element.isDictionary()) dictionaries.append(element);
  }
  return dictionaries;
}

std::optional<kiv::Data> KivResourceStorageModule::dataForArray_error(
    const kiv::Array& array, std::optional<kiv::Error>* error) {
  return kiv::JSON::write(array).reportTo(error);
}
