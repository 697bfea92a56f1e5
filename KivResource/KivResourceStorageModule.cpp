#include "KivResource/KivResourceStorageModule.h"

#include "KivResource/KivResourceArchiveRemoval.h"
#include "Platform/Foundation/Bundle.h"
#include "Platform/Foundation/FileManager.h"
#include "Platform/Foundation/FileName.h"
#include "Platform/Foundation/JSON.h"
#include "Platform/Foundation/Path.h"
#include "Platform/KivStorageService/KivStorageService.h"

namespace {

constexpr std::string_view listDirectory = "KivResource";
constexpr std::string_view resourcesDirectory = "KivResource/Resources";
constexpr std::string_view spoolDirectory = ".KivRESTService";
constexpr std::string_view listFile = "resources_config.json";
constexpr std::string_view packagedBundle = "InnerAdResources.bundle";
constexpr std::int64_t dataIsNotArrayErrorCode = 110;

constexpr std::string_view archiveSuffix = KivResouceArchiveKey[0];
constexpr std::string_view entryPage = KivResouceArchiveKey[1];

std::optional<std::string> storedFile(std::string_view name, std::string_view directory) {
  if (!KivStorageService::fileExistsWithName_atRelativePath(name, directory)) return std::nullopt;
  return KivStorageService::filePathForFileName_atRelativePath(name, directory);
}

std::optional<std::string> pathToArchivePage(std::string_view stem) {
  if (!kiv::filename::isHarmless(stem)) return std::nullopt;
  if (auto packaged = KivResourceStorageModule::pathToInnerResourceArchiveWithName(stem)) {
    return packaged;
  }
  return storedFile(entryPage, kiv::path::appendingPathComponent(resourcesDirectory, stem));
}

}  // namespace

bool KivResourceStorageModule::saveData_withResourceFileName_error(
    const kiv::Data& data, std::string_view fileName, std::optional<kiv::Error>* error) {
  return KivStorageService::saveData_forFileName_atRelativePath_error(data, fileName,
                                                                      resourcesDirectory, error);
}

void KivResourceStorageModule::removeResourceFileWithPath_error(std::string_view path,
                                                                std::optional<kiv::Error>* error) {
  const std::string_view parent = kiv::path::deletingLastPathComponent(path);
  const bool isArchivePage =
      kiv::path::lastPathComponent(path) == entryPage &&
      kiv::path::lastPathComponent(parent) != kiv::path::lastPathComponent(resourcesDirectory);
  if (isArchivePage) {
    kiv::removeArchiveAtPath(std::string(parent), error);
  } else {
    kiv::FileManager::defaultManager().removeItemAtPath(path, error);
  }
}

std::string KivResourceStorageModule::resourcesDirectoryPath() {
  const std::string root = KivStorageService::rootPath();
  return root.empty() ? root : kiv::path::appendingPathComponent(root, resourcesDirectory);
}

std::string KivResourceStorageModule::spoolDirectoryPath() {
  const std::string root = KivStorageService::rootPath();
  return root.empty() ? root : kiv::path::appendingPathComponent(root, spoolDirectory);
}

bool KivResourceStorageModule::saveResourcesList_error(const kiv::Array& resourceDictionaries,
                                                       std::optional<kiv::Error>* error) {
  const auto bytes = dataForArray_error(resourceDictionaries, error);
  if (!bytes) return false;
  return KivStorageService::saveData_forFileName_atRelativePath_error(*bytes, listFile,
                                                                      listDirectory, error);
}

std::optional<kiv::Array> KivResourceStorageModule::loadResourcesListWithError(
    std::optional<kiv::Error>* error) {
  const auto bytes =
      KivStorageService::loadDataForFileName_atRelativePath_error(listFile, listDirectory, error);
  if (!bytes) return std::nullopt;
  return arrayOfDictionaryFromData_error(*bytes, error);
}

std::optional<std::string> KivResourceStorageModule::pathToResourceFileWithName(
    std::string_view fileName) {
  if (!kiv::filename::isHarmless(fileName)) return std::nullopt;
  if (fileName.ends_with(archiveSuffix)) {
    return pathToArchivePage(kiv::path::deletingPathExtension(fileName));
  }
  if (auto packaged = pathToInnerResourceFileWithName(fileName)) return packaged;
  return storedFile(fileName, resourcesDirectory);
}

std::optional<std::string> KivResourceStorageModule::pathToInnerResourceFileWithName(
    std::string_view fileName) {
  if (!kiv::filename::isHarmless(fileName)) return std::nullopt;
  const std::string_view extension = kiv::path::pathExtension(fileName);
  // A name that merely ends in "." has no extension to split off.
  const std::string_view stem =
      extension.empty() ? fileName : kiv::path::deletingPathExtension(fileName);
  return kiv::Bundle::frameworkBundle().pathForResource_ofType_inDirectory(stem, extension,
                                                                           packagedBundle);
}

std::optional<std::string> KivResourceStorageModule::pathToInnerResourceArchiveWithName(
    std::string_view stem) {
  if (!kiv::filename::isHarmless(stem)) return std::nullopt;
  return kiv::Bundle::frameworkBundle().pathForResource_ofType_inDirectory(
      kiv::path::deletingPathExtension(entryPage), kiv::path::pathExtension(entryPage),
      kiv::path::appendingPathComponent(packagedBundle, stem));
}

kiv::Array KivResourceStorageModule::arrayOfDictionaryFromData_error(
    const kiv::Data& data, std::optional<kiv::Error>* error) {
  const auto root = kiv::JSON::read(data, error);
  if (!root) return {};
  if (!root->isArray()) {
    kiv::fail(error, kiv::Error(KivResourceStorageModuleErrorDomain, dataIsNotArrayErrorCode,
                                "Data is not array."));
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
  return kiv::JSON::write(array, error);
}
