#include "Examples/demo/Pass.h"

#include <algorithm>
#include <chrono>

namespace demo {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto patience = std::chrono::seconds(60);

}  // namespace

std::shared_ptr<Pass> Pass::run(Report& report, std::size_t total,
                                const std::function<void(KivResourceManager&)>& call) {
  const auto manager = KivResourceManager::sharedInstance();
  auto pass = std::make_shared<Pass>(report, total);
  manager->addObserver(pass);
  call(*manager);
  const auto deadline = Clock::now() + patience;
  while (pass->finishes_ == 0 && Clock::now() < deadline) {
    kiv::DispatchQueue::main()->drainFor(std::chrono::milliseconds(200));
  }
  manager->removeObserver(pass);
  report.check(pass->finishes_ == 1, "the pass has finished");
  return pass;
}

bool Pass::loaded(const std::string& resourceID) const {
  return std::find(loaded_.begin(), loaded_.end(), resourceID) != loaded_.end();
}

void Pass::resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                           const std::shared_ptr<KivResource>& resource) {
  loaded_.push_back(resource->resourceID());
  step(resource->name() + " is loaded");
}

void Pass::resourceManager_didFailToLoadResource_withError(
    const std::shared_ptr<KivResourceManager>&, const std::shared_ptr<KivResource>& resource,
    const std::optional<kiv::Error>& error) {
  failures_.push_back({resource->resourceID(), error});
  step(resource->name() + " failed");
}

void Pass::resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>&) {
  ++finishes_;
}

void Pass::step(const std::string& text) {
  report_.progress(loaded_.size() + failures_.size(), total_, text);
}

}  // namespace demo
