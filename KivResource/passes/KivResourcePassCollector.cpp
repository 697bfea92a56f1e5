#include "KivResource/passes/KivResourcePassCollector.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "KivPlatform/Foundation/Contain.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivResource/KivResourceFactory.h"

namespace kiv {

namespace {

using EntryOutcome = KivResourcePassEntryOutcome;
using FileOutcome = KivResourcePassFileOutcome;

KivResourcePassEntry entryOfItem(std::size_t place, const Value& item,
                                 const KivResource* resource) {
  KivResourcePassEntry entry;
  const Dictionary& dictionary = item.dictionary();
  entry.item = place;
  entry.resourceID = dictionary["banner_id"].string();
  entry.name = dictionary["name"].string();
  entry.type = dictionary["type"].string();
  entry.engine = dictionary["engine"].string();
  entry.isEngineKnown = KivResourceFactory::requiredKeysOfEngine(entry.engine).has_value();
  if (resource) {
    entry.outcome = EntryOutcome::incomplete;
    entry.updated = resource->updated();
  } else {
    entry.reason = "it " + KivResourceFactory::validateItem(item).value_or("makes no resource");
  }
  return entry;
}

bool isLoaded(const KivResourcePassEntry& entry) {
  return entry.outcome == EntryOutcome::added || entry.outcome == EntryOutcome::replaced ||
         entry.outcome == EntryOutcome::unchanged;
}

std::optional<std::uint64_t> newestVersion(const ResourceArray& resources) {
  std::optional<std::uint64_t> newest;
  for (const auto& resource : resources)
    newest = std::max(newest, std::optional(resource->updated()));
  return newest;
}

/// An entry whose resource has left the registry.
void concludeRemoved(KivResourcePassEntry& entry, const ResourceList& registry) {
  entry.outcome = EntryOutcome::removed;
  entry.otherVersion = newestVersion(registry.resourcesWithID(entry.resourceID));
  entry.reason = entry.otherVersion
                     ? "version " + std::to_string(*entry.otherVersion) + " is loaded instead"
                     : "it was loaded, and then removed from the registry";
}

/// An entry that is neither loaded nor failed.
void concludeIncomplete(KivResourcePassEntry& entry) {
  for (const KivResourcePassFile& file : entry.files) {
    if (file.outcome == FileOutcome::notEnded) {
      entry.outcome = EntryOutcome::notEnded;
      return;
    }
    if (file.outcome != FileOutcome::notFound) continue;
    const std::string name(path::lastPathComponent(file.link));
    entry.reason = "\"" + name + "\" was stored, but is not found under that name";
  }
  if (entry.reason.empty()) entry.reason = "it is not complete, but names no other file";
}

}  // namespace

// --- PassFile ------------------------------------------------------------------------------------

template <class Note>
void PassFile::tell(const Note& note) const noexcept {
  KivResourcePassFile* const file = collector_ ? collector_->file(entry_, place_) : nullptr;
  if (file && !contain([&] { note(*file); })) collector_->noteLackOfMemory();
}

void PassFile::noteTask(const KivRESTServiceTask& task) const noexcept {
  tell([&](KivResourcePassFile& file) {
    file.statusCode = task.response() ? task.response()->statusCode() : 0;
    file.metrics = task.metrics();
  });
}

void PassFile::noteEnd(KivResourcePassFileOutcome outcome,
                       const std::optional<Error>& error) const noexcept {
  tell([&](KivResourcePassFile& file) {
    file.outcome = outcome;
    file.error = error;
  });
}

// --- PassCollector -------------------------------------------------------------------------------

PassCollector::PassCollector(std::uint64_t passID, KivResourcePassReportHandler handler)
    : handler_(std::move(handler)) {
  report_.passID = passID;
}

void PassCollector::noteItems(const Value& config, const ResourceArray& resources) {
  report_.entries.reserve(resources.size());
  for (const Value& item : config.dictionary()["items"].array()) {
    const std::size_t place = report_.entries.size();
    report_.entries.push_back(entryOfItem(place, item, resources[place].get()));
  }
  resources_ = resources;
}

void PassCollector::noteRefusal(const Error& error) {
  report_.outcome = KivResourcePassOutcome::refused;
  for (KivResourcePassEntry& entry : report_.entries) {
    if (entry.outcome == EntryOutcome::invalid) continue;
    entry.outcome = EntryOutcome::failed;
    entry.error = error;
  }
}

void PassCollector::noteSelection(const KivResourcePass& pass, const ResourceArray& selected) {
  if (selected.empty()) report_.outcome = KivResourcePassOutcome::nothingSelected;
  const std::unordered_set<std::shared_ptr<KivResource>> chosen(selected.begin(), selected.end());
  for (std::size_t place = 0; place < resources_.size(); ++place) {
    if (!resources_[place]) continue;
    if (chosen.contains(resources_[place])) {
      places_.emplace(resources_[place].get(), place);
      continue;
    }
    KivResourcePassEntry& entry = report_.entries[place];
    const bool hasOtherID = pass.resourceID && resources_[place]->resourceID() != *pass.resourceID;
    entry.outcome = EntryOutcome::leftOut;
    entry.reason = hasOtherID ? "the pass selects another identifier, \"" + *pass.resourceID + "\""
                              : "the pass selects another type, \"" + pass.type.value_or("") + "\"";
  }
}

KivResourcePassEntry* PassCollector::entryOf(const KivResource& resource) {
  const auto found = isOpen_ ? places_.find(&resource) : places_.end();
  return found == places_.end() ? nullptr : &report_.entries[found->second];
}

void PassCollector::noteUnchanged(const KivResource& resource,
                                  const std::shared_ptr<KivResource>& loaded) {
  KivResourcePassEntry* const entry = entryOf(resource);
  if (!entry) return;
  entry->outcome = EntryOutcome::unchanged;
  entry->otherVersion = loaded->updated();
  // Of the two, the registry has this one. It is found by its own address if it is lost.
  const std::size_t place = entry->item;
  places_.erase(&resource);
  resources_[place] = loaded;
  places_.emplace(loaded.get(), place);
}

KivResourcePassFile& PassCollector::addFile(KivResourcePassEntry& entry, const std::string& link) {
  KivResourcePassFile file;
  file.link = link;
  return entry.files.emplace_back(std::move(file));
}

void PassCollector::noteLocalFile(const KivResource& resource, const std::string& link) {
  if (auto* const entry = entryOf(resource)) addFile(*entry, link).outcome = FileOutcome::local;
}

PassFile PassCollector::noteDownload(const KivResource& resource, const std::string& link) {
  KivResourcePassEntry* const entry = entryOf(resource);
  if (!entry) return {};
  addFile(*entry, link);
  return {shared_from_this(), entry->item, entry->files.size() - 1};
}

void PassCollector::noteReplaced(const KivResource& resource, const ResourceArray& others) {
  // A resource may be completed more than once; later there is nothing left to replace.
  if (others.empty()) return;
  if (auto* const entry = entryOf(resource)) entry->otherVersion = newestVersion(others);
}

void PassCollector::noteLoaded(const KivResource& resource) {
  KivResourcePassEntry* const entry = entryOf(resource);
  if (!entry || entry->outcome == EntryOutcome::unchanged) return;
  entry->outcome = entry->otherVersion ? EntryOutcome::replaced : EntryOutcome::added;
  entry->error.reset();
}

void PassCollector::noteFailed(const KivResource& resource, const std::optional<Error>& error) {
  KivResourcePassEntry* const entry = entryOf(resource);
  if (!entry || entry->outcome != EntryOutcome::incomplete) return;
  entry->outcome = EntryOutcome::failed;
  entry->error = error;
}

void PassCollector::noteLost(const KivResource& resource, const Error& error) {
  KivResourcePassEntry* const entry = entryOf(resource);
  if (!entry) return;
  entry->outcome = EntryOutcome::failed;
  entry->otherVersion.reset();
  entry->error = error;
}

void PassCollector::noteDropped(const ResourceArray& resources, const ResourceList& registry) {
  const std::unordered_set<std::shared_ptr<KivResource>> listed(registry.begin(), registry.end());
  for (const auto& resource : resources) {
    if (!resource || !listed.contains(resource)) continue;
    report_.dropped.push_back(
        {resource->resourceID(), resource->name(), resource->type(), resource->updated()});
  }
}

KivResourcePassFile* PassCollector::file(std::size_t entry, std::size_t place) noexcept {
  return isOpen_ ? &report_.entries[entry].files[place] : nullptr;
}

void PassCollector::close() noexcept {
  isOpen_ = false;
  report_.duration = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now() - start_);
  for (const KivResourcePassEntry& entry : report_.entries) {
    for (const KivResourcePassFile& file : entry.files)
      report_.bytes += file.metrics.bytes;
  }
}

void PassCollector::concludeEntries(const ResourceList* registry) {
  std::unordered_set<const KivResource*> listed;
  if (registry) {
    for (const auto& resource : *registry)
      listed.insert(resource.get());
  }
  for (std::size_t place = 0; place < report_.entries.size(); ++place) {
    KivResourcePassEntry& entry = report_.entries[place];
    if (entry.outcome == EntryOutcome::incomplete) {
      concludeIncomplete(entry);
    } else if (registry && isLoaded(entry) && !listed.contains(resources_[place].get())) {
      concludeRemoved(entry, *registry);
    }
  }
}

void PassCollector::end(const ResourceList& registry, const std::optional<Error>& saveError) {
  close();
  report_.saveError = saveError;
  concludeEntries(&registry);
}

void PassCollector::end() {
  close();
  concludeEntries(nullptr);
}

void PassCollector::report() {
  // The resources are released on the manager's queue, and whatever the handler has even if it
  // throws.
  resources_.clear();
  places_.clear();
  const auto handler = std::exchange(handler_, nullptr);
  if (handler) handler(report_);
}

}  // namespace kiv
