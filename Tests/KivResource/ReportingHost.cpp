// A host that performs the steps on its command line, one after the other, and writes what its
// observer hears to a pipe, a line at a time and before it goes on: whoever kills it knows from the
// pipe what it had heard. Run by the tests that kill it and by those that run two of them.
//
//     ReportingHost DESCRIPTOR ROOT SERVER [load:FILE | update:FILE | clean]...
//
// FILE holds a configuration; "clean" removes orphans. The lines: "restored ID VERSION" for each
// resource that the saved list brings, "step NUMBER" before each step, "loaded ID VERSION", "failed
// ID", "finished" after each pass.

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivResource/KivResource.h"
#include "KivResource/KivResourceMaintenance.h"

namespace {

int pipeEnd = -1;

/// A line is shorter than what a pipe takes in one piece. Who reads no more has killed us.
void report(std::string line) {
  line += '\n';
  if (::write(pipeEnd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
    std::_Exit(5);
  }
}

std::string named(const KivResource& resource) {
  return resource.resourceID() + " " + std::to_string(resource.updated());
}

class Host final : public KivResourceManagerObserver, public std::enable_shared_from_this<Host> {
 public:
  explicit Host(std::vector<std::string> steps) : steps_(std::move(steps)) {}

  void start() {
    for (const auto& resource : manager_->allLoadedResources())
      report("restored " + named(*resource));
    manager_->addObserver(shared_from_this());
    performNextStep();
  }

  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                       const std::shared_ptr<KivResource>& resource) override {
    report("loaded " + named(*resource));
  }
  void resourceManager_didFailToLoadResource_withError(const std::shared_ptr<KivResourceManager>&,
                                                       const std::shared_ptr<KivResource>& resource,
                                                       const std::optional<kiv::Error>&) override {
    report("failed " + resource->resourceID());
  }
  void resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>&) override {
    report("finished");
    performNextStep();
  }

 private:
  void performNextStep() {
    if (next_ == steps_.size()) return kiv::DispatchQueue::main()->stop();
    const std::string step = steps_[next_];
    report("step " + std::to_string(next_++));
    if (step == "clean") {
      using Maintenance = KivResourceMaintenance;
      if (!Maintenance::cleanUpOrphans(*manager_, Maintenance::Mode::remove)) std::_Exit(6);
      return performNextStep();
    }
    const std::size_t colon = step.find(':');
    const auto bytes = kiv::FileManager::defaultManager().contentsAtPath(step.substr(colon + 1));
    const auto config = bytes ? kiv::JSON::read(*bytes) : std::nullopt;
    if (!config) std::_Exit(7);
    if (step.starts_with("update:")) {
      manager_->updateResourcesForConfig(*config);
    } else {
      manager_->loadResourcesForConfig(*config);
    }
  }

  const std::vector<std::string> steps_;
  std::size_t next_ = 0;
  const std::shared_ptr<KivResourceManager> manager_ = KivResourceManager::sharedInstance();
};

}  // namespace

int main(int count, char** arguments) {
  if (count < 4) return 2;
  pipeEnd = std::atoi(arguments[1]);
  kiv::SystemLog::setHandler([](std::string_view) {});  // thousands of lines, over all rounds
  KivStorageService::setRootPath(arguments[2]);
  KivAppConfiguration::sharedInstance()->setMainACSDomain(arguments[3]);
  const auto host =
      std::make_shared<Host>(std::vector<std::string>(arguments + 4, arguments + count));
  kiv::DispatchQueue::main()->async([host] { host->start(); });
  kiv::DispatchQueue::main()->run();
  KivStorageService::setRootPath("");  // leaves the root as a host does that ends in order
  return 0;
}
