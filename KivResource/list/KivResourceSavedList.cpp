// Several processes may use one storage root. The lock beside the list orders their changes; the
// file's identity tells whether another process has saved since.

#include "KivResource/list/KivResourceSavedList.h"

#include <algorithm>
#include <string>
#include <system_error>
#include <utility>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/system/SystemLog.h"
#include "KivPlatform/Foundation/values/JSON.h"
#include "KivResource/KivResourceFactory.h"
#include "KivResource/KivResourceObject.h"
#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/NSError+KivResource.h"

namespace kiv {

namespace {

constexpr std::string_view logPrefix =
    "KivResourceManager (-[KivResourceManager saveLoadedResorcesList]): ";

FileManager& files() {
  return FileManager::defaultManager();
}

void append(ResourceArray& all, ResourceArray& more) {
  all.insert(all.end(), more.begin(), more.end());
}

Error notSetAsideError(const Error& doubt, const std::optional<Error>& refusal) {
  std::string message = "The saved list \"" + KivResourceStorageModule::resourcesListPath() +
                        "\" cannot be read (" + doubt.localizedDescription() +
                        "), and is not replaced, because it cannot be renamed";
  if (refusal) message += " (" + refusal->localizedDescription() + ")";
  return {KivResourceErrorDomain, SavedListInDoubtKivResourceErrorCode, message + "."};
}

void logUnwritable(const KivResource& resource, const Error& error) {
  std::string line(logPrefix);
  line.append("Resource with ID ").append(resource.resourceID());
  line.append(" and name \"").append(resource.name());
  line.append("\" keeps the list from being saved. Error: ").append(error.description());
  SystemLog::write(line);
}

}  // namespace

// --- Reading -------------------------------------------------------------------------------------

void SavedList::restore(ResourceList& registry, FileListing& listing) {
  KivResourceStorageModule::makeResourcesListsPrivate();  // lists of older versions are not
  readAtStart();
  const FileListing::Use use(listing.refreshed(base_.size()));
  for (const Value& entry : base_) {
    auto resource = KivResourceFactory::createResourceFromDictionary(entry.dictionary());
    // Its creation has just looked for the files: if no link is left, all of them exist.
    const bool filesExist = resource && resource->missingFilesLinks().empty();
    if (filesExist) registry.append(std::move(resource));
  }
}

/// The process that holds the lock may be about to remove files that its list does not name any
/// more, and that are there until then. So a list that is read meanwhile counts as changed: the
/// next save looks for the files again.
void SavedList::readAtStart() {
  const std::string path = ListLock::path();
  const bool isShared = files().itemExistsAtPath(path);
  const auto lock = isShared ? files().lockFileAtPath(path) : nullptr;
  base_ = read().value_or(Array());
  if (ListLock::isHeldByAnother(lock)) identity_.reset();
}

/// To be called before the contents are read, so that a list that is replaced meanwhile is
/// recognised as changed.
void SavedList::identify() {
  const std::string path = KivResourceStorageModule::resourcesListPath();
  held_ = files().itemExistsAtPath(path) ? files().mapFileAtPath(path).value_or(nullptr) : nullptr;
  identity_ = files().identityOfFileAtPath(path).toOptional();
}

std::optional<Array> SavedList::read() {
  identify();
  std::optional<Error> error;
  auto list = KivResourceStorageModule::loadResourcesListWithError(&error);
  if (error && isSystemError(*error, std::errc::no_such_file_or_directory)) error.reset();
  if (error) list.reset();
  doubt_ = std::move(error);
  return list;
}

/// A missing list was not saved by another process, so nothing counts as removed from it.
void SavedList::catchUp(ResourceList& registry) {
  if (isToBeRead()) {
    auto saved = read();
    if (doubt_ && doubt_->domain == SystemErrorDomain) saved = read();  // it may have passed
    if (doubt_) return;
    if (saved) note(mergeIntoRegistry(base_, *saved, registry));
    base_ = saved.value_or(Array());
  }
  keepTaken(registry);
}

bool SavedList::isToBeRead() const {
  const std::string path = KivResourceStorageModule::resourcesListPath();
  const bool isSame = identity_ == files().identityOfFileAtPath(path).toOptional();
  const bool mayHavePassed = doubt_ && doubt_->domain == SystemErrorDomain;
  return !isSame || mayHavePassed;
}

void SavedList::note(ListMerge merge) {
  for (const auto& resource : merge.taken) {
    auto& newest = taken_[resource->resourceID()];
    if (!newest || resource->isNewerThan(*newest)) newest = resource;
  }
  append(merge_.taken, merge.taken);
  append(merge_.replaced, merge.replaced);
  append(merge_.lost, merge.lost);
}

/// A pass compares stamps when it starts. If a merge has brought a resource since then, and an
/// older version that completed later has replaced it, the newer one is put back.
void SavedList::keepTaken(ResourceList& registry) {
  ListMerge merge;
  std::erase_if(taken_, [&](const auto& entry) {
    const std::shared_ptr<KivResource>& resource = entry.second;
    const auto own = registry.resourcesWithID(entry.first);
    if (std::find(own.begin(), own.end(), resource) != own.end()) return false;
    const bool isReplaced = !own.empty() && std::all_of(own.begin(), own.end(), [&](auto& other) {
      return resource->isNewerThan(*other);
    });
    if (!isReplaced || !resource->filesExist()) return true;
    registry.removeAll(own);
    registry.append(resource);
    merge.replaced.insert(merge.replaced.end(), own.begin(), own.end());
    merge.taken.push_back(resource);
    return false;
  });
  append(merge_.taken, merge.taken);
  append(merge_.replaced, merge.replaced);
}

void SavedList::forget(const KivResource& resource) {
  const auto found = taken_.find(resource.resourceID());
  if (found != taken_.end() && found->second.get() == &resource) taken_.erase(found);
}

ListMerge SavedList::takeMerge() {
  return std::exchange(merge_, {});
}

// --- Writing -------------------------------------------------------------------------------------

SavedList::Access::Access(SavedList& list, ResourceList& registry)
    : list_(list), registry_(registry), lock_(list.lock_.take()) {
  if (lock_) list_.catchUp(registry_);
}

bool SavedList::Access::save() {
  return save(true);
}

bool SavedList::Access::saveIfChanged() {
  return save(false);
}

bool SavedList::Access::save(bool evenIfSame) {
  if (!lock_) {
    list_.lastSaveError_ = lock_.error();
    return false;
  }
  Array dictionaries;
  dictionaries.reserve(registry_.size());
  for (const auto& resource : registry_) {
    const auto dictionary = resource->resourceDictionary();
    dictionaries.append(dictionary ? *dictionary : Dictionary());
  }
  if (!evenIfSame && list_.isSaved(dictionaries)) return true;
  Status status = list_.write(dictionaries);
  if (!status && status.error().domain == JSONErrorDomain) {
    list_.logUnwritable(registry_);
  } else {
    list_.unwritable_.clear();
  }
  list_.lastSaveError_.reset();
  return std::move(status).reportTo(&list_.lastSaveError_);
}

/// False after a failed save, which may have put the new list in place without a sync.
bool SavedList::isSaved(const Array& dictionaries) const {
  return identity_ && !doubt_ && !lastSaveError_ && !isToBeRead() && dictionaries == base_;
}

Status SavedList::write(const Array& dictionaries) {
  if (doubt_) return replaceUnreadable(dictionaries);
  std::optional<Error> error;
  KivResourceStorageModule::saveResourcesList_error(dictionaries, &error);
  // A save can fail although the new list is in place.
  if (isToBeRead()) {
    identify();
    base_ = dictionaries;
  }
  return error ? Status(*std::move(error)) : Status();
}

/// Logs each resource once, however often saving fails, until the list can be written again.
void SavedList::logUnwritable(const ResourceList& registry) {
  ResourceSet unwritable;
  for (const auto& resource : registry) {
    const auto dictionary = resource->resourceDictionary();
    std::optional<Error> error;
    if (!dictionary || KivResourceStorageModule::dataForArray_error({*dictionary}, &error))
      continue;
    const bool isNew = unwritable.insert(resource).second && !unwritable_.contains(resource);
    if (isNew && error) kiv::logUnwritable(*resource, *error);
  }
  unwritable_ = std::move(unwritable);
}

/// The old list is set aside only when the new one has a JSON form: otherwise there would be no
/// list.
Status SavedList::replaceUnreadable(const Array& dictionaries) {
  std::optional<Error> refusal;
  if (!KivResourceStorageModule::dataForArray_error(dictionaries, &refusal)) return *refusal;
  const auto aside = KivResourceStorageModule::setResourcesListAsideWithError(&refusal);
  if (!aside) return notSetAsideError(*doubt_, refusal);
  const std::string path = KivResourceStorageModule::resourcesListPath();
  const Error doubt = *std::exchange(doubt_, std::nullopt);
  identify();  // nothing lies there now
  if (Status status = write(dictionaries); !status) {
    if (!files().itemExistsAtPath(path) && files().moveItemAtPath_toPath(*aside, path)) {
      doubt_ = doubt;
    }
    return status;
  }
  SystemLog::write(std::string(logPrefix) +
                   "The saved list could not be read and was renamed to \"" + *aside +
                   "\". Error: " + doubt.description());
  return {};
}

}  // namespace kiv
