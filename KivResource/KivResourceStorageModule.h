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
#include "KivResource/KivResourceConstants.h"

/// The layout of the cache on disk: where resource files and the saved list are, and how a file
/// name becomes a local path. The framework reads and writes them only through this class.
///
/// Never instantiated, without state; all operations are class operations and run on the caller's
/// thread. The caller serialises calls that write or delete the same file, such as the list.
/// Nothing here logs.
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

  /// Stores the bytes under the name, the last path component of the link that they came from. An
  /// archive, a name that ends in ".zip", is unpacked. Fails without a change on disk where the
  /// name may not be used for a file or the archive may not be unpacked.
  static bool saveData_withResourceFileName_error(const kiv::Data& data, std::string_view fileName,
                                                  std::optional<kiv::Error>* error = nullptr);

  /// Removes the file at the absolute path; for the page of an unpacked archive, its whole
  /// directory. Failure is reported only through `error`. Only the names of the file and its
  /// directory are looked at here. The file manager resolves the path, and refuses to remove what
  /// lies outside the resources directory (kiv::FileManager::setRemovalRoots).
  static void removeResourceFileWithPath_error(std::string_view path,
                                               std::optional<kiv::Error>* error = nullptr);
  /// Removes what lies at the absolute path: a file, the directory of an unpacked archive in one
  /// step, or of a link the link. The same paths are refused.
  static bool removeItemAtPath_error(const std::string& path,
                                     std::optional<kiv::Error>* error = nullptr);
  /// The path of what removeResourceFileWithPath_error() removes: the page's directory, or the file
  /// itself.
  static std::string itemRemovedWithPath(std::string_view path);

  /// The absolute path of the directory in which downloaded files and unpacked archives lie;
  /// empty if there is no storage root.
  static std::string resourcesDirectoryPath();
  /// The absolute path of the directory for bodies on their way, beside those; empty if there is
  /// no storage root.
  static std::string spoolDirectoryPath();
  /// The absolute path of the directory of packaged files; empty if none was found.
  static std::string packagedResourcesPath();

  /// The directory that belongs to the page at the path, if the page came as an archive: a
  /// directory directly below that of downloaded or of packaged resources, with every link
  /// resolved. Nothing for a page that is a single file. A host that shows pages lets each of them
  /// read its directory, or only its file, and nothing else.
  static std::optional<std::string> directoryOfPageAtPath(std::string_view path);

  /// Where saving under the name puts the file, or the directory of an archive; nothing for a name
  /// that may not be used.
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
  /// The absolute paths of the lists that were set aside. They are for a person to put back or to
  /// remove.
  static std::vector<std::string> setAsideResourcesLists();

  /// Makes the saved list, and those that were set aside, readable and writable by their owner
  /// alone, if this process runs as that user.
  static void makeResourcesListsPrivate();

  /// The absolute path of the file that is there under the name, packaged before downloaded, or
  /// nothing. For an archive's name the path of its unpacked "index.html". A name that may not be
  /// used for a file is found nowhere.
  static std::optional<std::string> pathToResourceFileWithName(std::string_view fileName);

  /// The same for a name under which a file has just been saved: the disk is not asked again
  /// whether it is there, except for the page of an archive, which may have none.
  static std::optional<std::string> pathToSavedResourceFileWithName(std::string_view fileName);

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
