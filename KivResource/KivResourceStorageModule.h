#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/system/InstalledResources.h"  // IWYU pragma: keep
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/Foundation/values/Value.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivResource/KivResourceConstants.h"

/// The layout of the cache on disk: where resource files and the saved list are, and how a file
/// name becomes a local path. The framework reads and writes them only through this class.
///
/// Stateless; all operations are static and run on the caller's thread. The caller must serialise
/// calls that write or delete the same file, such as the list. Nothing is logged.
///
/// Under the root of KivStorageService:
///
///     KivResource/resources_config.json         the saved list
///     KivResource/resources_config.unreadable-NUMBER.json
///                                               one that could not be read and was set aside
///     KivResource/Resources/NAME                a downloaded file, named after its link
///     KivResource/Resources/STEM/index.html     the page of an archive downloaded as STEM.zip
///
/// A file packaged with the framework, in its InnerAdResources.bundle, takes precedence over a
/// downloaded one.
class KIV_EXPORT KivResourceStorageModule {
 public:
  KivResourceStorageModule() = delete;

  /// Stores the bytes under the name, the last path component of their link. A name that ends in
  /// ".zip" is an archive, which is unpacked. Fails without a change on disk if the name is not
  /// allowed or the archive is not acceptable.
  static bool saveData_withResourceFileName_error(const kiv::Data& data, std::string_view fileName,
                                                  std::optional<kiv::Error>* error = nullptr);

  /// Begins such a save as part of the batch: what is staged gets its name when it is committed.
  static std::optional<KivStorageService::StagedFile> stageData_withResourceFileName_inBatch_error(
      const kiv::Data& data, std::string_view fileName, KivStorageService::Batch& batch,
      std::optional<kiv::Error>* error = nullptr);

  /// Removes the file at the absolute path; for the page of an unpacked archive, its whole
  /// directory. Failure is reported only through `error`. The page of an archive is recognised by
  /// name only. The file manager resolves the path and refuses to remove items outside the
  /// resources directory (kiv::FileManager::setRemovalRoots).
  static void removeResourceFileWithPath_error(std::string_view path,
                                               std::optional<kiv::Error>* error = nullptr);
  /// Removes the item at the absolute path: a file, a link, or, atomically, the directory of an
  /// unpacked archive. The same paths are refused.
  static bool removeItemAtPath_error(const std::string& path,
                                     std::optional<kiv::Error>* error = nullptr);
  /// The path of the item that removeResourceFileWithPath_error() removes: the page's directory, or
  /// the file.
  static std::string itemRemovedWithPath(std::string_view path);

  /// The absolute path of the directory of downloaded files and unpacked archives; empty if there
  /// is no storage root.
  static std::string resourcesDirectoryPath();
  /// The absolute path of the client's spool directory, next to the former; empty if there is no
  /// storage root.
  static std::string spoolDirectoryPath();
  /// The absolute path of the directory of packaged files; empty if none was found.
  static std::string packagedResourcesPath();

  /// The directory of the page at the path, if the page came as an archive: a direct subdirectory
  /// of the downloaded or packaged resources, or a leased one, with all links resolved. Nothing for
  /// a page that is a single file. A host that shows pages should allow each of them to read its
  /// directory, or its file, and nothing else.
  static std::optional<std::string> directoryOfPageAtPath(std::string_view path);

  /// The path at which saving under the name stores the file, or the directory of an archive;
  /// nothing if the name is not allowed.
  static std::optional<std::string> pathOfItemSavedWithName(std::string_view fileName);

  /// The absolute path of the saved list; empty if there is no storage root.
  static std::string resourcesListPath();

  /// Replaces the saved list by this array of resource dictionaries. Only the owner may read or
  /// write the file. On failure the previous list stays.
  static bool saveResourcesList_error(const kiv::Array& resourceDictionaries,
                                      std::optional<kiv::Error>* error = nullptr);

  /// The dictionaries of the saved list, or nothing if no list was saved or it is unreadable. A
  /// list that is no JSON array gives an empty array and an error.
  static std::optional<kiv::Array> loadResourcesListWithError(
      std::optional<kiv::Error>* error = nullptr);

  /// Renames the saved list, so that another one can be written and this one is kept, to the first
  /// free name of resources_config.unreadable-NUMBER.json, from 1 to 99. Yields the new path; on
  /// failure nothing and an error, and the list keeps its name.
  static std::optional<std::string> setResourcesListAsideWithError(
      std::optional<kiv::Error>* error = nullptr);
  /// The absolute paths of the lists that were set aside. A user may restore or remove them.
  static std::vector<std::string> setAsideResourcesLists();

  /// Makes the saved list, and those that were set aside, readable and writable by their owner
  /// alone, if this process runs as that user.
  static void makeResourcesListsPrivate();

  /// The absolute path of the packaged or downloaded file with that name, in this order, or
  /// nothing. For the name of an archive, the path of its unpacked "index.html". Nothing for a name
  /// that is not allowed.
  static std::optional<std::string> pathToResourceFileWithName(std::string_view fileName);

  /// The absolute path of the packaged file of that name, or nothing.
  static std::optional<std::string> pathToInnerResourceFileWithName(std::string_view fileName);

  /// The absolute path of the "index.html" of the packaged archive, named without its ".zip", or
  /// nothing.
  static std::optional<std::string> pathToInnerResourceArchiveWithName(std::string_view stem);

  /// The dictionaries among the elements of a JSON array; other elements are dropped. Never
  /// nothing: text that is no JSON gives the reader's error, text that is no array error 110 "Data
  /// is not array.", both with an empty array.
  static kiv::Array arrayOfDictionaryFromData_error(const kiv::Data& data,
                                                    std::optional<kiv::Error>* error = nullptr);

  /// The indented JSON text of the array, or nothing and the writer's error.
  static std::optional<kiv::Data> dataForArray_error(const kiv::Array& array,
                                                     std::optional<kiv::Error>* error = nullptr);
};
