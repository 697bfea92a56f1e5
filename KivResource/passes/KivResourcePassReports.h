#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "KivPlatform/Foundation/Contain.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivResource/list/KivResourceList.h"
#include "KivResource/passes/KivResourcePassCollector.h"

namespace kiv {

class QueueAssertion;

/// The reports of a manager's passes: of the running one, if somebody follows it, and of those that
/// have ended in the running step. To be used on the manager's queue.
class PassReports {
 public:
  /// Reports are handed over on the queue of the assertion.
  explicit PassReports(std::shared_ptr<const QueueAssertion> queue);
  PassReports(const PassReports&) = delete;
  PassReports& operator=(const PassReports&) = delete;
  /// Ends the running pass as abandoned.
  ~PassReports();

  std::uint64_t nextPassID() noexcept { return ++lastPassID_; }

  /// A pass begins, followed or not (nullptr). A former one that has not ended is abandoned.
  void begin(std::shared_ptr<PassCollector> collector);
  /// A pass has ended that never ran.
  void addEnded(std::shared_ptr<PassCollector> collector);
  /// The pass is not reported, since its start failed.
  void forget(const std::shared_ptr<PassCollector>& collector) noexcept;

  /// Calls `note` with the collector of the running pass, if somebody follows it.
  template <class Note>
  void tell(const Note& note) noexcept {
    if (running_ && !contain([&] { note(*running_); })) running_->noteLackOfMemory();
  }

  /// The end of a step, after its callbacks have been sent. Hands over the reports of the passes
  /// that have ended; the running one has if the manager is not busy any more.
  void endStep(bool isBusy, const ResourceList& registry,
               const std::optional<Error>& saveError) noexcept;

 private:
  void handOver(const std::shared_ptr<PassCollector>& collector) const noexcept;

  const std::shared_ptr<const QueueAssertion> queue_;
  std::uint64_t lastPassID_ = 0;
  std::shared_ptr<PassCollector> running_;
  std::vector<std::shared_ptr<PassCollector>> ended_;
};

}  // namespace kiv
