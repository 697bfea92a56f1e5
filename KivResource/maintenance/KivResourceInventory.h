#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/Foundation/values/Value.h"

class KivResource;
class KivResourceManager;

namespace kiv {

/// The directory entries that the files in use depend on: the files, and every component on the way
/// to them, links included.
///
/// All places are added before the first question.
class UsedPaths {
 public:
  void add(std::string_view path);
  /// True if the place, or something below it, is in use.
  [[nodiscard]] bool hold(const std::string& place);

 private:
  bool isNew(std::string_view path) { return seen_.emplace(path).second; }
  bool holdInOtherSpelling(const std::string& place);
  void foldPlaces();
  const std::string& resolved(std::string_view path);

  std::set<std::string, std::less<>> seen_;
  std::set<std::string> places_;
  std::multimap<std::string, std::string_view> spellings_;  ///< By their folded form.
  std::map<std::string, std::string, std::less<>> resolved_;
};

/// The files that the registry and the saved list name.
struct ListedFiles {
  UsedPaths used;
  std::map<std::string, std::string> resourceIDs;  ///< by path
  std::optional<Error> listError;                  ///< where the saved list cannot be read
  Array saved;                                     ///< The saved list.

  void addLoaded(const KivResource& resource);
  void addSaved(const KivResource& resource);

 private:
  void need(const std::string& path, const KivResource& resource);
};

/// Compares the registry with the saved list on the disk.
ListedFiles listedFiles(const KivResourceManager& manager);

/// The strings of an entry that may be paths of files that it uses. For an entry of a kind that
/// this process has not registered: a host that has may find its files by any string of the entry.
std::vector<std::string> pathsInEntry(const Value& entry);
/// True if the entry is of such a kind.
bool isOfUnknownKind(const Value& entry);

/// Why nothing may be removed now: downloads are in flight, or a list that cannot be read may name
/// the files. Nothing if there is no reason.
std::optional<Error> refusalWhileLoading(const KivResourceManager& manager);
std::optional<Error> unreadableListError(const KivResourceManager& manager,
                                         const ListedFiles& listed);

/// The entries of a directory, sorted; none if it does not exist.
Result<std::vector<std::string>> sortedNames(const std::string& directory);

/// The resolved resources directory; nothing if it does not exist. A link below the root is an
/// error, since it could make any directory the resources directory.
Result<std::optional<std::string>> findResources();

/// What is in the resources directory and not in use, each sorted by path.
struct Orphans {
  std::vector<std::string> orphaned;
  std::vector<std::string> partial;  ///< Directories without a page, which no pass would find.
};
Result<Orphans> findOrphans(UsedPaths& used);

/// What is in the private directory, of this process or another.
struct PrivateItems {
  std::vector<std::string> temporary;  ///< Incomplete items.
  std::vector<std::string> leased;     ///< The second paths of items that hosts keep.
};
Result<PrivateItems> findPrivateItems();

}  // namespace kiv
