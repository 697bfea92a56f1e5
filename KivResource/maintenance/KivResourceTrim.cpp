// What one round removes is chosen before anything is removed, so that a dry run does the same. If
// the use is still above the bound then, because an item could not be removed for example, another
// round makes up for it.

#include "KivResource/maintenance/KivResourceTrim.h"

#include <algorithm>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <system_error>
#include <tuple>
#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivResource/KivResourceManager.h"
#include "KivResource/KivResourceObject.h"
#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/files/KivResourceCachePlace.h"
#include "KivResource/files/KivResourceShownTime.h"
#include "KivResource/maintenance/KivResourceInventory.h"
#include "KivResource/maintenance/KivResourceStoredItems.h"

namespace {

using kiv::Error;
using kiv::FileManager;
using kiv::LeaseIndex;
using kiv::Result;
using kiv::Status;
using kiv::StoredItems;
using kiv::StoredResource;
using Maintenance = KivResourceMaintenance;
using Rule = KivResourceTrimOptions::Rule;

FileManager& files() {
  return FileManager::defaultManager();
}

/// Another process, or the user, has removed the item meanwhile.
bool saysNotThere(const Error& error) {
  return isSystemError(error, std::errc::no_such_file_or_directory);
}

std::int64_t shownTimeOf(const StoredResource& stored, const StoredItems& items) {
  std::int64_t earliest = std::numeric_limits<std::int64_t>::max();
  for (const std::size_t item : stored.items) {
    const auto time = kiv::shownTimeOfItemAtPath(items.paths()[item]);
    if (time) earliest = std::min(earliest, *time);
  }
  return earliest;
}

/// The oldest first.
void sortByAge(std::vector<std::string>& paths) {
  std::map<std::string, std::int64_t> times;
  for (const std::string& path : paths)
    times[path] = kiv::shownTimeOfItemAtPath(path).value_or(0);
  std::sort(paths.begin(), paths.end(), [&](const auto& path, const auto& other) {
    return std::tie(times.at(path), path) < std::tie(times.at(other), other);
  });
}

class Trim {
 public:
  Trim(KivResourceManager& manager, const KivResourceTrimOptions& options, Maintenance::Mode mode)
      : manager_(manager),
        options_(options),
        isDry_(mode == Maintenance::Mode::dryRun),
        known_(manager.loadedResources()->resources().begin(),
               manager.loadedResources()->resources().end()) {}

  Result<KivResourceTrim> run();

 private:
  using Candidates = std::vector<const StoredResource*>;

  /// A file or page directory of chosen resources.
  struct FreedItem {
    std::string filePath;  ///< Of the file, or of the page.
    Maintenance::Item item;
  };

  Status measure();
  Status performRound();
  void removeOrphans(std::vector<std::string> paths, const LeaseIndex& leased);
  void removeOrphan(Maintenance::Item item);
  void removeResources(const kiv::Array& savedList, const std::string& directory,
                       const LeaseIndex& leased);
  [[nodiscard]] Candidates candidates(const StoredItems& stored, const LeaseIndex& leased) const;
  [[nodiscard]] std::int64_t rankOf(const StoredResource& stored, const StoredItems& items) const;
  [[nodiscard]] Candidates inOrder(Candidates candidates, const StoredItems& items) const;
  void remove(const Candidates& chosen, const StoredItems& stored,
              const std::vector<kiv::SharedItem>& left);
  void noteRemoved(Maintenance::Item item);
  void noteRefused(Maintenance::Item item, const Error& error);

  KivResourceManager& manager_;
  const KivResourceTrimOptions& options_;
  const bool isDry_;
  /// The registry at the start. What merges with other processes add is left to the next trim.
  const std::set<std::shared_ptr<KivResource>> known_;
  std::uint64_t excess_ = 0;            ///< Bytes that are still to be freed.
  bool hasProgress_ = false;            ///< The round has changed what the next one finds.
  std::set<std::string> refusedPaths_;  ///< Not tried again.
  KivResourceTrim result_;
};

Status Trim::measure() {
  std::optional<Error> error;
  const auto space = Maintenance::space(&error);
  if (!space)
    return error.value_or(kiv::systemError(static_cast<int>(std::errc::io_error), "measure",
                                           KivStorageService::rootPath()));
  result_.usedAfter = space->cacheUsed;
  excess_ = space->cacheUsed - std::min(space->cacheUsed, options_.bytes);
  return {};
}

Result<KivResourceTrim> Trim::run() {
  if (auto refusal = kiv::refusalWhileLoading(manager_)) return *std::move(refusal);
  if (Status status = measure(); !status) return status.error();
  result_.usedBefore = result_.usedAfter;
  constexpr int mostRounds = 4;
  for (int round = 1; round <= mostRounds; ++round) {
    hasProgress_ = false;
    const Status status = performRound();
    if (!status && round == 1) return status.error();
    if (isDry_ || !status || !hasProgress_ || !measure()) break;
    if (excess_ == 0 || result_.listError) break;
  }
  result_.isBoundKept = result_.usedAfter <= options_.bytes;
  return std::move(result_);
}

Status Trim::performRound() {
  kiv::ListedFiles listed = kiv::listedFiles(manager_);
  if (auto doubt = kiv::unreadableListError(manager_, listed)) return *std::move(doubt);
  const auto directory = kiv::findResources();
  if (!directory) return directory.error();
  if (excess_ == 0 || !*directory) return {};
  auto orphans = kiv::findOrphans(listed.used);
  if (!orphans) return orphans.error();
  const auto leased = LeaseIndex::find();
  if (!leased) return leased.error();
  removeOrphans(std::move(orphans->partial), *leased);
  removeOrphans(std::move(orphans->orphaned), *leased);
  if (excess_ > 0 && options_.rule != Rule::orphansOnly) {
    removeResources(listed.saved, **directory, *leased);
  }
  return {};
}

void Trim::noteRemoved(Maintenance::Item item) {
  const std::uint64_t size = item.size.value_or(0);
  excess_ -= std::min(excess_, size);
  result_.usedAfter -= std::min(result_.usedAfter, size);
  result_.removed.push_back(std::move(item));
  hasProgress_ = true;
}

void Trim::noteRefused(Maintenance::Item item, const Error& error) {
  hasProgress_ = true;  // another item may make up for it
  if (saysNotThere(error)) return;
  refusedPaths_.insert(item.path);
  result_.refused.push_back({std::move(item), error});
}

// --- Orphans -------------------------------------------------------------------------------------

/// What is leased keeps its bytes under the paths of the lease.
void Trim::removeOrphans(std::vector<std::string> paths, const LeaseIndex& leased) {
  sortByAge(paths);
  for (std::string& path : paths) {
    if (excess_ == 0) return;
    if (refusedPaths_.contains(path) || leased.mayHold(path)) continue;
    const auto size = files().sizeOfItemAtPath(path).value_or(0);
    if (size > 0) removeOrphan({std::move(path), size, {}});
  }
}

void Trim::removeOrphan(Maintenance::Item item) {
  std::optional<Error> error;
  if (isDry_ || KivResourceStorageModule::removeItemAtPath_error(item.path, &error)) {
    noteRemoved(std::move(item));
  } else if (error) {
    noteRefused(std::move(item), *error);
  }
}

// --- Loaded resources ----------------------------------------------------------------------------

void Trim::removeResources(const kiv::Array& savedList, const std::string& directory,
                           const LeaseIndex& leased) {
  StoredItems stored(directory);
  std::set<std::shared_ptr<KivResource>> added;  // the registry may hold an object twice
  for (const auto& resource : *manager_.loadedResources()) {
    if (added.insert(resource).second) stored.add(resource);
  }
  stored.addOthers(savedList);
  const auto ordered = inOrder(candidates(stored, leased), stored);
  kiv::ItemsOfUsers users;
  for (const StoredResource* const candidate : ordered)
    users.push_back(candidate->items);
  auto left = stored.items();
  std::vector<const StoredResource*> chosen;
  for (const std::size_t user : kiv::chooseUsers(users, left, excess_))
    chosen.push_back(ordered[user]);
  if (!chosen.empty()) remove(chosen, stored, left);
}

Trim::Candidates Trim::candidates(const StoredItems& stored, const LeaseIndex& leased) const {
  std::vector<bool> isLeased;
  for (const std::string& path : stored.paths())
    isLeased.push_back(leased.mayHold(path));
  Candidates candidates;
  for (const StoredResource& resource : stored.resources()) {
    const bool mayGo = resource.isPlain && !resource.items.empty() &&
                       known_.contains(resource.resource) &&
                       std::none_of(resource.items.begin(), resource.items.end(),
                                    [&](std::size_t item) { return isLeased[item]; });
    if (mayGo && (!options_.mayRemove || options_.mayRemove(*resource.resource))) {
      candidates.push_back(&resource);
    }
  }
  return candidates;
}

std::int64_t Trim::rankOf(const StoredResource& stored, const StoredItems& items) const {
  if (options_.rule == Rule::leastRecentlyShown) return shownTimeOf(stored, items);
  return options_.rank ? options_.rank(*stored.resource) : 0;
}

/// Of equal ones the first in the registry comes first: the candidates are elements of one vector.
/// A stamp may be greater than a rank can be.
Trim::Candidates Trim::inOrder(Candidates candidates, const StoredItems& items) const {
  if (options_.rule == Rule::oldestStamp) {
    std::sort(candidates.begin(), candidates.end(), [](const auto* one, const auto* other) {
      if (other->resource->isNewerThan(*one->resource)) return true;
      return one < other && !one->resource->isNewerThan(*other->resource);
    });
    return candidates;
  }
  std::map<const StoredResource*, std::int64_t> ranks;
  for (const StoredResource* const candidate : candidates)
    ranks[candidate] = rankOf(*candidate, items);
  std::sort(candidates.begin(), candidates.end(), [&](const auto* one, const auto* other) {
    return std::pair(ranks.at(one), one) < std::pair(ranks.at(other), other);
  });
  return candidates;
}

/// `left` are the items with the users that remain.
void Trim::remove(const Candidates& chosen, const StoredItems& stored,
                  const std::vector<kiv::SharedItem>& left) {
  kiv::ResourceArray resources;
  std::vector<std::string> paths;
  std::vector<FreedItem> freed;
  std::set<std::size_t> known;
  for (const StoredResource* const resource : chosen) {
    resources.push_back(resource->resource);
    for (const auto& [path, item] : resource->paths) {
      if (left[item].users > 0) continue;
      paths.push_back(path);
      if (!known.insert(item).second) continue;
      freed.push_back(
          {path, {stored.paths()[item], left[item].size, resource->resource->resourceID()}});
    }
  }
  std::map<std::string, Error> failures;
  if (!isDry_) {
    result_.listError = manager_.removeResources_withFiles_onFailure(
        resources, paths,
        [&](const std::string& path, const Error& error) { failures.emplace(path, error); });
    if (result_.listError) return;
  }
  for (const auto& resource : resources)
    result_.resources.push_back({resource->resourceID(), resource->updated()});
  for (FreedItem& item : freed) {
    const auto failure = failures.find(item.filePath);
    if (failure != failures.end()) {
      noteRefused(std::move(item.item), failure->second);
    } else if (isDry_ || !files().itemExistsAtPath(item.item.path)) {
      noteRemoved(std::move(item.item));
    }
  }
}

}  // namespace

std::optional<KivResourceTrim> KivResourceMaintenance::trim(KivResourceManager& manager,
                                                            const KivResourceTrimOptions& options,
                                                            Mode mode,
                                                            std::optional<Error>* error) {
  const kiv::CacheInUse cache(manager.place().get());
  return Trim(manager, options, mode).run().reportTo(error);
}
