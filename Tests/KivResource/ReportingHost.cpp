// A host that performs the steps on its command line in order. It writes each callback of its
// observer as a line to a pipe before it continues, so a test that kills it can read which
// callbacks it had received. Run by the tests that kill a host or run several.
//
//     ReportingHost DESCRIPTOR ROOT SERVER [load:FILE | update:FILE | clean | lease | wait]...
//
// FILE contains a configuration; "clean" removes orphans; "lease" takes a lease of each resource
// and keeps it; "wait" waits to be killed. The lines are: "leased PATH" for each file of a lease,
// "restored ID VERSION" for each resource of the saved list, "step NUMBER" before each step,
// "loaded ID VERSION", "failed ID", and "finished" after each pass.

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivResource/KivResource.h"
#include "KivResource/maintenance/KivResourceMaintenance.h"

namespace {

int pipeEnd = -1;

/// A line is shorter than PIPE_BUF, so the write is atomic. The reader closes its end only after it
/// has killed this process.
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
    if (step == "lease") {
      takeLeases();
      return performNextStep();
    }
    if (step == "wait") return;
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

  void takeLeases() {
    for (const auto& resource : manager_->allLoadedResources()) {
      auto lease = kiv::Lease::take(*resource);
      if (!lease) std::_Exit(8);
      for (const std::string& path : lease->resource()->useFilePaths())
        report("leased " + path);
      leases_.push_back(*std::move(lease));
    }
  }

  const std::vector<std::string> steps_;
  std::vector<kiv::Lease> leases_;
  std::size_t next_ = 0;
  const std::shared_ptr<KivResourceManager> manager_ = KivResourceManager::sharedInstance();
};

}  // namespace

int main(int count, char** arguments) {
  if (count < 4) return 2;
  pipeEnd = std::atoi(arguments[1]);
  kiv::SystemLog::setHandler([](std::string_view) {});  // would print thousands of lines
  KivStorageService::setRootPath(arguments[2]);
  KivAppConfiguration::sharedInstance()->setMainACSDomain(arguments[3]);
  const auto host =
      std::make_shared<Host>(std::vector<std::string>(arguments + 4, arguments + count));
  kiv::DispatchQueue::main()->async([host] { host->start(); });
  kiv::DispatchQueue::main()->run();
  KivStorageService::setRootPath("");  // releases the root as on a regular exit
  return 0;
}
