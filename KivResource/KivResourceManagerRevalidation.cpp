// The manager's part of a revalidation: steps, and the lock of the list.

#include <utility>

#include "KivResource/KivResourceManager.h"
#include "KivResource/KivResourceManagerStep.h"
#include "KivResource/list/KivResourceSavedList.h"
#include "KivResource/revalidation/KivResourceFileOrigins.h"
#include "KivResource/revalidation/KivResourceRevalidation.h"

std::unique_ptr<kiv::Revalidations> KivResourceManager::makeRevalidations() {
  using Job = kiv::RevalidationManager::Job;
  kiv::RevalidationManager manager;
  manager.step = [weak = weak_from_this()](const Job& job) {
    const auto self = weak.lock();
    if (!self) return;
    const auto step = self->beginStep();
    job();
  };
  manager.withLock = [this](const Job& job) {
    const kiv::SavedList::Access access(*savedList_, *loadedResources_);
    noteMerge();
    job();
  };
  manager.registry = [this]() -> const kiv::ResourceList& { return *loadedResources_; };
  manager.origins = origins_.get();
  manager.queue = queueAssertion_;
  return std::make_unique<kiv::Revalidations>(std::move(manager));
}

void KivResourceManager::revalidate(KivResourceRevalidationHandler handler,
                                    const KivResourceRevalidation& what) {
  assertQueue();
  const auto step = beginStep();
  revalidations_->start(what, std::move(handler), loader_);
}
