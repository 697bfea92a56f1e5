// Items are compared by device and number, so that it does not matter through which path or in
// which spelling a resource reaches them.

#include "KivResource/maintenance/KivResourceStoredItems.h"

#include <algorithm>
#include <tuple>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/text/Unicode.h"
#include "KivResource/KivResourceConstants.h"
#include "KivResource/KivResourceFactory.h"
#include "KivResource/KivResourceObject.h"
#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/maintenance/KivResourceInventory.h"

namespace kiv {

namespace {

using path::appendingPathComponent;
using path::deletingLastPathComponent;
using path::lastPathComponent;

FileManager& files() {
  return FileManager::defaultManager();
}

std::optional<ItemNumber> numberOf(const std::string& item) {
  const auto identity = files().identityOfFileAtPath(item);
  return identity ? std::optional(ItemNumber(identity->device, identity->number)) : std::nullopt;
}

/// A directory cannot be linked, but its page is.
std::optional<ItemNumber> numberOfContents(const std::string& item) {
  if (!files().directoryExistsAtPath(item)) return numberOf(item);
  return numberOf(appendingPathComponent(item, KivResouceArchiveKey[1]));
}

/// True if the item that is removed with the path is this one, and not a link to it.
bool isRemovedWithPath(std::string_view path, const std::string& item) {
  const std::string removed = KivResourceStorageModule::itemRemovedWithPath(path);
  const auto directory = files().resolvedPathOfItemAtPath(deletingLastPathComponent(removed));
  if (!directory) return false;
  const std::string place = appendingPathComponent(*directory, lastPathComponent(removed));
  if (place == item) return true;
  return unicode::foldedName(place) == unicode::foldedName(item) &&
         !files().linkExistsAtPath(place) && numberOf(place) == numberOf(item);
}

/// Two entries with the same key are the same version of a resource.
using VersionKey = std::tuple<std::string, std::uint64_t, std::vector<std::string>>;

VersionKey keyOf(const KivResource& resource) {
  return {resource.resourceID(), resource.updated(), resource.useFilePaths()};
}

}  // namespace

// --- Leases --------------------------------------------------------------------------------------

Result<LeaseIndex> LeaseIndex::find() {
  const auto found = findPrivateItems();
  if (!found) return found.error();
  LeaseIndex leased;
  for (const std::string& item : found->leased) {
    leased.names_.insert(unicode::foldedName(lastPathComponent(item)));
    if (const auto number = numberOfContents(item)) leased.numbers_.insert(*number);
  }
  return leased;
}

bool LeaseIndex::mayHold(const std::string& item) const {
  if (names_.contains(unicode::foldedName(lastPathComponent(item)))) return true;
  const auto number = numbers_.empty() ? std::nullopt : numberOfContents(item);
  return number && numbers_.contains(*number);
}

// --- Items ---------------------------------------------------------------------------------------

std::optional<std::string> StoredItems::itemOfFile(std::string_view path) const {
  const auto resolved = files().resolvedPathOfItemAtPath(path);
  if (!resolved || !resolved->starts_with(directory_ + "/")) return std::nullopt;
  return resolved->substr(0, resolved->find('/', directory_.size() + 1));
}

std::optional<std::size_t> StoredItems::indexOf(const std::string& item) {
  const auto number = numberOf(item);
  if (!number) return std::nullopt;
  const auto [found, isNew] = indexes_.emplace(*number, items_.size());
  if (isNew) {
    items_.push_back({files().sizeOfItemAtPath(item).value_or(0), 0});
    paths_.push_back(item);
  }
  return found->second;
}

void StoredItems::add(std::shared_ptr<KivResource> resource) {
  StoredResource stored{std::move(resource), {}, {}, true};
  for (const std::string& path : stored.resource->useFilePaths()) {
    const auto item = itemOfFile(path);
    const auto index = item ? indexOf(*item) : std::nullopt;
    if (!index) continue;
    stored.isPlain = stored.isPlain && isRemovedWithPath(path, *item);
    stored.paths.emplace_back(path, *index);
    if (std::find(stored.items.begin(), stored.items.end(), *index) != stored.items.end()) continue;
    stored.items.push_back(*index);
    ++items_[*index].users;
  }
  resources_.push_back(std::move(stored));
}

void StoredItems::addUser(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    const auto item = itemOfFile(path);
    const auto index = item ? indexOf(*item) : std::nullopt;
    if (index) ++items_[*index].users;
  }
}

void StoredItems::addOthers(const Array& savedList) {
  std::set<VersionKey> known;
  for (const StoredResource& stored : resources_)
    known.insert(keyOf(*stored.resource));
  for (const Value& entry : savedList) {
    if (isOfUnknownKind(entry)) addUser(pathsInEntry(entry));
    const auto resource = KivResourceFactory::createResourceFromDictionary(entry.dictionary());
    if (!resource || known.contains(keyOf(*resource))) continue;
    if (resource->filesExist()) addUser(resource->useFilePaths());
  }
}

}  // namespace kiv
