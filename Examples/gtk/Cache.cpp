#include "Cache.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <system_error>
#include <utility>

#include "Report.h"

namespace {

constexpr std::uintmax_t largestConfiguration = std::uintmax_t{16} * 1024 * 1024;  // bytes

std::string wordsOf(const std::optional<kiv::Error>& error) {
  return error ? kiv::escapingControlCharacters(error->localizedDescription()) : "unknown error";
}

/// The text of a regular file: a pipe could block the queue for ever.
std::optional<std::string> textOfFile(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return std::nullopt;
  if (std::filesystem::file_size(path, error) > largestConfiguration) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

/// What no resource needs. Resources that the window shows are leased, so nothing else could go.
std::optional<KivResourceTrim> trim(KivResourceManager& manager, KivResourceMaintenance::Mode mode,
                                    std::optional<kiv::Error>& error) {
  KivResourceTrimOptions options;
  options.bytes = 0;
  options.rule = KivResourceTrimOptions::Rule::orphansOnly;
  return KivResourceMaintenance::trim(manager, options, mode, &error);
}

Removal removalOf(const KivResourceTrim& trim) {
  Removal removal;
  for (const auto& item : trim.removed) {
    removal.paths.push_back(item.path);
    removal.bytes += item.size.value_or(0);
  }
  return removal;
}

}  // namespace

Cache::Cache(CacheSetup setup, std::weak_ptr<CacheListener> listener,
             std::shared_ptr<kiv::DispatchQueue> queue)
    : setup_(std::move(setup)), listener_(std::move(listener)), queue_(std::move(queue)) {}

void Cache::open() {
  KivResourceCacheOptions options;
  options.rootPath = setup_.root;
  options.mainACSDomain = setup_.server;
  if (!setup_.mirror.empty()) options.reserveACSDomain = setup_.mirror;
  std::optional<kiv::Error> error;
  cache_ = KivResourceCache::open(options, &error);
  if (!cache_) return end({"The cache cannot be opened: " + wordsOf(error)});
  manager_ = cache_->manager();
  manager_->addObserver(shared_from_this(), queue_);
  manager_->loader()->restService()->setProgressHandler(
      [self = weak_from_this()](const KivRESTServiceProgress& progress) {
        if (const auto cache = self.lock()) cache->tellProgress(progress);
      });
  const auto loaded = manager_->allLoadedResources();
  for (const auto& resource : loaded)
    tellItem(*resource);
  end({std::to_string(loaded.size()) + " in the cache"});
}

void Cache::close() {
  updater_.reset();
  if (!manager_) return;
  manager_->removeObserver(shared_from_this());
  manager_->loader()->restService()->setProgressHandler({});
  manager_->stopLoading();
  manager_.reset();
  cache_.reset();
}

void Cache::startFile(const std::string& path, bool dropsRest) {
  if (!manager_) return;
  updater_.reset();  // its next check would drop what this file brings
  const auto text = textOfFile(path);
  if (!text) return end({"This file cannot be read: " + path});
  const auto config = kiv::JSON::read(*text);
  if (!config) return end({"No configuration: " + wordsOf(config.error())});
  isBusy_ = true;
  manager_->startPass(dropsRest ? KivResourcePass::update(*config) : KivResourcePass::load(*config),
                      [self = weak_from_this()](const KivResourcePassReport& report) {
                        if (const auto cache = self.lock()) cache->end(outcomeOf(report));
                      });
}

void Cache::checkURL(const std::string& address) {
  if (!manager_) return;
  const auto url = kiv::URL::fromString(address);
  if (!url) return end({"This is no address: " + address});
  isBusy_ = true;
  if (updater_ && address == address_) return updater_->checkNow();
  KivConfigurationUpdaterOptions options;
  options.interval = setup_.interval;
  address_ = address;
  updater_ = std::make_unique<KivConfigurationUpdater>(manager_, *url, options);
  updater_->setCheckHandler([self = weak_from_this()](const KivConfigurationCheck& check) {
    if (const auto cache = self.lock()) cache->noteCheck(check);
  });
  updater_->start();
}

void Cache::noteCheck(const KivConfigurationCheck& check) {
  if (check.outcome == KivConfigurationOutcome::postponed) return;  // it comes again
  const bool isStopped = check.report && check.report->outcome == KivResourcePassOutcome::stopped;
  const Outcome outcome = outcomeOf(check);
  if (isStopped) updater_.reset();  // `check` may be gone now
  end(outcome);
}

// A running pass or revalidation ends with a report. The fetch of a configuration has none.
void Cache::stop() {
  if (!manager_) return;
  if (isRevalidating_ || manager_->loadingResourcesFilesCount() > 0) return manager_->stopLoading();
  const bool hadUpdater = std::exchange(updater_, nullptr) != nullptr;
  if (isBusy_ || hadUpdater) end({"Stopped"});
}

void Cache::setPaused(bool isPaused) {
  if (!manager_) return;
  const auto client = manager_->loader()->restService();
  isPaused ? client->pause() : client->resume();
}

void Cache::revalidate() {
  if (!manager_) return;
  isBusy_ = isRevalidating_ = true;
  manager_->revalidate([self = weak_from_this()](const KivResourceRevalidationReport& report) {
    if (const auto cache = self.lock()) cache->noteRevalidation(report);
  });
}

// The leases keep the former contents, so what has changed is announced again.
void Cache::noteRevalidation(const KivResourceRevalidationReport& report) {
  isRevalidating_ = false;
  std::set<std::string> changed;
  for (const auto& file : report.files) {
    if (file.outcome == KivResourceRevalidationFileOutcome::replaced)
      changed.insert(file.resourceIDs.begin(), file.resourceIDs.end());
  }
  for (const std::string& id : changed) {
    for (const auto& resource : manager_->loadedResourcesWithID(id))
      tellItem(*resource);
  }
  end(outcomeOf(report));
}

void Cache::planRemoval() {
  if (!manager_) return;
  std::optional<kiv::Error> error;
  const auto plan = trim(*manager_, KivResourceMaintenance::Mode::dryRun, error);
  if (!plan) return end({"Nothing can be removed: " + wordsOf(error)});
  if (plan->removed.empty()) {
    return end({"Nothing to remove, the cache uses " + textOfSize(plan->usedBefore)});
  }
  tell([removal = removalOf(*plan)](CacheListener& listener) { listener.removalPlanned(removal); });
}

void Cache::remove(const Removal& planned) {
  if (!manager_) return;
  std::optional<kiv::Error> error;
  const auto plan = trim(*manager_, KivResourceMaintenance::Mode::dryRun, error);
  if (plan && removalOf(*plan).paths != planned.paths) return planRemoval();
  const auto done = trim(*manager_, KivResourceMaintenance::Mode::remove, error);
  if (!done) return end({"Nothing was removed: " + wordsOf(error)});
  Outcome outcome{"Removed: " + textOfSize(removalOf(*done).bytes) + ", the cache now uses " +
                  textOfSize(done->usedAfter)};
  for (const auto& refusal : done->refused)
    outcome.failures.push_back({refusal.item.path, wordsOf(refusal.error), {}});
  end(outcome);
}

void Cache::resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                            const std::shared_ptr<KivResource>& resource) {
  const auto told = told_.find(resource->resourceID());
  if (told == told_.end() || told->second != resource->updated()) tellItem(*resource);
}

void Cache::tell(std::function<void(CacheListener&)> job) const {
  kiv::DispatchQueue::main()->async([listener = listener_, job = std::move(job)] {
    if (const auto window = listener.lock()) job(*window);
  });
}

void Cache::tellItem(const KivResource& resource) {
  const auto item = ShownItem::of(resource, queue_);
  if (!item) return;
  told_[item->id] = resource.updated();
  tell([shown = *item](CacheListener& listener) { listener.itemLoaded(shown); });
}

// The client may report its last state after the end of a pass.
void Cache::tellProgress(const KivRESTServiceProgress& progress) const {
  if (!isRevalidating_ && manager_->loadingResourcesFilesCount() == 0) return;
  tell([text = textOf(progress)](CacheListener& listener) { listener.progressed(text); });
}

void Cache::end(const Outcome& outcome) {
  isBusy_ = false;
  std::set<std::string> ids;
  if (manager_) {
    for (const auto& resource : manager_->allLoadedResources())
      ids.insert(resource->resourceID());
  }
  std::erase_if(told_, [&ids](const auto& told) { return ids.count(told.first) == 0; });
  tell([ids, outcome](CacheListener& listener) {
    listener.itemsLeft(ids);
    listener.ended(outcome);
  });
}
