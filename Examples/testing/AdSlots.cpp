#include "AdSlots.h"

#include <algorithm>
#include <utility>

namespace {

/// The file that stands for the resource in a slot; empty if there is none, or no slot shows its
/// kind.
std::string fileOf(const KivResource& resource) {
  if (const auto* banner = dynamic_cast<const KivResourceStandard*>(&resource)) {
    return banner->image().value_or("");
  }
  if (const auto* page = dynamic_cast<const KivResourceWeb*>(&resource)) {
    return page->html().value_or("");
  }
  return "";
}

std::string reasonOf(const KivRESTServiceFailedTry& failed) {
  return failed.error ? std::string(kiv::nameOf(*failed.error)) : std::to_string(failed.statusCode);
}

/// "a.png: REASON (https://main.test: 404, https://mirror.test: timedOut)". A pass and a
/// revalidation have files of different types with the same members.
template <class File>
std::string problemWith(const File& file) {
  std::string line = file.link + ": " + (file.error ? file.error->localizedDescription() : "empty");
  std::string tries;
  for (const auto& failed : file.metrics.failedTries)
    tries += (tries.empty() ? "" : ", ") + failed.server.origin() + ": " + reasonOf(failed);
  return tries.empty() ? line : line + " (" + tries + ")";
}

}  // namespace

AdSlots::AdSlots(std::shared_ptr<KivResourceManager> manager, std::vector<std::string> slots,
                 Painter paint)
    : manager_(std::move(manager)), slots_(std::move(slots)), paint_(std::move(paint)) {}

std::shared_ptr<AdSlots> AdSlots::open(std::shared_ptr<KivResourceManager> manager,
                                       std::vector<std::string> slots, Painter paint) {
  std::shared_ptr<AdSlots> object(
      new AdSlots(std::move(manager), std::move(slots), std::move(paint)));
  object->manager_->addObserver(object);
  object->showAll();
  return object;
}

// --- What the application does ------------------------------------------------------------------

void AdSlots::load(const kiv::Value& config) {
  status_ = "loading";
  manager_->startPass(KivResourcePass::update(config),
                      [weak = weak_from_this()](const auto& report) {
                        if (const auto self = weak.lock()) self->take(report);
                      });
}

void AdSlots::stop() {
  manager_->stopLoading();
}

void AdSlots::refresh() {
  manager_->revalidate([weak = weak_from_this()](const auto& report) {
    if (const auto self = weak.lock()) self->take(report);
  });
}

void AdSlots::setInCall(bool isInCall) {
  const auto& client = manager_->loader()->restService();
  isInCall ? client->pause() : client->resume();
}

bool AdSlots::bound(std::uint64_t bytes) {
  KivResourceTrimOptions options;
  options.bytes = bytes;
  options.rule = KivResourceTrimOptions::Rule::leastRecentlyShown;
  std::optional<kiv::Error> error;
  const auto trim = KivResourceMaintenance::trim(*manager_, options,
                                                 KivResourceMaintenance::Mode::remove, &error);
  status_ = error ? error->localizedDescription() : "";
  return trim && trim->isBoundKept;
}

void AdSlots::noteSeen(const std::string& slot) const {
  const auto shown = shown_.find(slot);
  if (shown != shown_.end()) KivResourceMaintenance::noteShown(*shown->second.resource);
}

std::string AdSlots::shownIn(const std::string& slot) const {
  const auto shown = shown_.find(slot);
  return shown == shown_.end() ? "" : shown->second.resource->resourceID();
}

// --- What the manager tells ---------------------------------------------------------------------

void AdSlots::resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                              const std::shared_ptr<KivResource>& resource) {
  const std::string slot = resource->type();
  if (std::find(slots_.begin(), slots_.end(), slot) != slots_.end()) show(slot);
}

void AdSlots::take(const KivResourcePassReport& report) {
  // The report of a refused pass does not end the status of the pass that runs.
  if (report.outcome == KivResourcePassOutcome::refused) return note("busy: not loaded");
  status_ = kiv::nameOf(report.outcome);
  for (const auto& entry : report.entries) {
    for (const auto& file : entry.files) {
      if (file.outcome == KivResourcePassFileOutcome::failed) note(problemWith(file));
    }
  }
  if (report.saveError) note("not saved: " + report.saveError->localizedDescription());
  showAll();  // the pass may have dropped what was shown
}

void AdSlots::take(const KivResourceRevalidationReport& report) {
  status_ = kiv::nameOf(report.outcome);
  for (const auto& file : report.files) {
    using Outcome = KivResourceRevalidationFileOutcome;
    if (file.outcome == Outcome::failed) note(problemWith(file));
    if (file.outcome != Outcome::replaced) continue;
    for (const auto& slot : slots_) {
      const auto& IDs = file.resourceIDs;
      if (std::find(IDs.begin(), IDs.end(), shownIn(slot)) == IDs.end()) continue;
      shown_.erase(slot);  // its lease has the former contents
      show(slot);
    }
  }
}

// --- What the slots show ------------------------------------------------------------------------

void AdSlots::showAll() {
  for (const auto& slot : slots_)
    show(slot);
}

void AdSlots::show(const std::string& slot) {
  std::shared_ptr<KivResource> best;
  for (const auto& resource : manager_->loadedResourcesWithType(slot)) {
    if (fileOf(*resource).empty()) continue;  // somebody has removed it
    if (!best || resource->priority() > best->priority()) best = resource;
  }
  if (!best) return clear(slot);
  const auto shown = shown_.find(slot);
  if (shown != shown_.end()) {
    const KivResource& current = *shown->second.resource;
    const bool isSame =
        current.resourceID() == best->resourceID() && current.updated() == best->updated();
    if (isSame) return;
  }
  draw(slot, best);
}

void AdSlots::draw(const std::string& slot, const std::shared_ptr<KivResource>& resource) {
  std::optional<kiv::Error> error;
  auto lease = kiv::Lease::take(*resource, &error);
  if (error) note(slot + ": " + error->localizedDescription());
  // Another process has just removed its files: the slot keeps what it shows.
  if (error && error->domain == KivResourceLeaseErrorDomain) return;
  // A disk that is full or read-only takes no lease, but what is stored there can be shown.
  Shown shown{lease ? lease->resource() : resource, std::move(lease)};
  paint_(slot, fileOf(*shown.resource));
  shown_.insert_or_assign(slot, std::move(shown));  // only now may the former file go
}

void AdSlots::clear(const std::string& slot) {
  if (shown_.contains(slot)) paint_(slot, "");
  shown_.erase(slot);
}

void AdSlots::note(const std::string& line) {
  status_ += (status_.empty() ? "" : "\n") + line;
}
