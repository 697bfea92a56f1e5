// A host whose manager runs on its own serial queue performs pass after pass. In each pass one
// allocation on a thread of the framework fails: the first one in the first pass, a later one in
// each further pass, until a pass completes with fewer allocations. The process must survive, each
// pass must report finish exactly once, and the following pass must load everything. Run by
// KivResourceManagerMemoryTest.
//
//     FailingPasses ROOT SERVER STRIDE [followed]
//
// STRIDE is added to the index of the failing allocation after each pass. With "followed", each
// pass must also be reported exactly once, after its finish, and be reported as done.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "KivResource/KivResource.h"
#include "Tests/Support/FailingMemory.h"
#include "Tests/Support/ResourceItems.h"

namespace {

using kiv::test::allocationsLeft;

constexpr std::chrono::seconds patience{30};
constexpr int banners = 3;

/// The callbacks that an observer received during one pass.
struct Heard {
  int loaded = 0;
  int failed = 0;
  int finished = 0;
  int reported = 0;
};

/// Its callbacks arrive on the main queue, which only the main thread drains.
class Observer final : public KivResourceManagerObserver {
 public:
  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                       const std::shared_ptr<KivResource>&) override {
    ++heard.loaded;
  }
  void resourceManager_didFailToLoadResource_withError(const std::shared_ptr<KivResourceManager>&,
                                                       const std::shared_ptr<KivResource>&,
                                                       const std::optional<kiv::Error>&) override {
    ++heard.failed;
  }
  void resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>&) override {
    ++heard.finished;
  }

  Heard heard;
};

kiv::Value configurationOf(int version) {
  kiv::Array items;
  for (int number = 0; number < banners; ++number) {
    const auto name = std::to_string(number);
    items.append(kiv::test::bannerOf(name, static_cast<std::uint64_t>(version),
                                     name + "-" + std::to_string(version) + ".png"));
  }
  return kiv::Dictionary{{"items", items}};
}

class Host {
 public:
  explicit Host(bool follows) : follows_(follows), queue_(kiv::DispatchQueue::serial("host")) {
    runAndWait([this] {
      manager_ = KivResourceManager::sharedInstance();
      manager_->addObserver(observer_, kiv::DispatchQueue::main());
    });
  }

  /// Runs a pass in which the allocation with index `failing` fails; none if it is negative.
  Heard pass(int version, long failing) {
    observer_->heard = {};
    const auto configuration = configurationOf(version);
    reports_ = 0;
    runAndWait([&] {
      if (follows_) {
        manager_->startPass(KivResourcePass::update(configuration),
                            [this](const KivResourcePassReport& report) {
                              if (report.outcome == KivResourcePassOutcome::done) ++reports_;
                            });
      } else {
        manager_->updateResourcesForConfig(configuration);
      }
      allocationsLeft = failing;
    });
    waitFor([this] { return observer_->heard.finished > 0 && (!follows_ || reports_ > 0); });
    runAndWait([] {});  // what came twice has come now
    observer_->heard.reported = reports_;
    return observer_->heard;
  }

 private:
  void runAndWait(const std::function<void()>& job) {
    std::atomic<bool> hasRun = false;
    queue_->async([&] {
      job();
      hasRun = true;
    });
    waitFor([&] { return hasRun.load(); });
  }

  static void waitFor(const std::function<bool()>& predicate) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!predicate() && std::chrono::steady_clock::now() < deadline)
      kiv::DispatchQueue::main()->drainFor(std::chrono::milliseconds(1));
  }

  const bool follows_;
  std::atomic<int> reports_ = 0;
  std::shared_ptr<kiv::DispatchQueue> queue_;
  std::shared_ptr<Observer> observer_ = std::make_shared<Observer>();
  std::shared_ptr<KivResourceManager> manager_;
};

/// True if every pass met the requirements above.
bool failEachInTurn(long stride, bool follows) {
  Host host(follows);
  const int reports = follows ? 1 : 0;
  int version = 0;
  int failed = 0;
  for (long count = 0; count < 1'000'000; count += stride) {
    const Heard heard = host.pass(++version, count);
    const bool isOver = allocationsLeft >= 0;
    allocationsLeft = -1;
    const Heard next = host.pass(++version, -1);
    const bool isRight = heard.finished == 1 && heard.loaded + heard.failed >= banners &&
                         next.finished == 1 && next.loaded == banners && next.failed == 0 &&
                         heard.reported == reports && next.reported == reports;
    if (!isRight) {
      std::fprintf(stderr,
                   "Allocation %ld: %d loaded, %d failed, %d finished, %d reported; then %d, %d, "
                   "%d, %d.\n",
                   count, heard.loaded, heard.failed, heard.finished, heard.reported, next.loaded,
                   next.failed, next.finished, next.reported);
      return false;
    }
    if (heard.failed > 0) ++failed;
    if (isOver) {
      std::fprintf(stderr, "%ld allocations, %d passes with failures\n", count, failed);
      return count > 50 && failed > 0;
    }
  }
  return false;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4 && count != 5) return 2;
  kiv::SystemLog::setHandler([](std::string_view) {});
  KivStorageService::setRootPath(arguments[1]);
  KivAppConfiguration::sharedInstance()->setMainACSDomain(arguments[2]);
  return failEachInTurn(std::atol(arguments[3]), count == 5) ? 0 : 1;
}
