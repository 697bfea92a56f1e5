#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/KivRESTService/engine/TransferControls.h"

class KivRESTServiceTask;

namespace kiv {

class TaskLedger;

/// The host's start condition, which is asked on the client's queue. Thread-safe.
class StartGate : public std::enable_shared_from_this<StartGate> {
 public:
  using Condition = std::function<bool(const KivRESTServiceTask& task, const URL& url)>;
  using AnswerHandler = std::function<void(std::vector<StartAnswer> answers)>;

  /// `ledger` tells which tasks are still held.
  StartGate(std::shared_ptr<DispatchQueue> queue, std::shared_ptr<const TaskLedger> ledger);

  /// `handler` is called on the queue with the answers. An empty one removes it; when this returns,
  /// the former one is not running.
  void setAnswerHandler(AnswerHandler handler);
  struct State {
    bool hasCondition = false;
    std::uint64_t version = 0;  ///< Of the answers. Grows with each change.
  };

  /// Replaces the condition; an empty one allows everything.
  State setCondition(Condition condition);
  /// Called when the condition's answers may have changed.
  State noteChange();

  /// Adds a job to the queue that calls the condition and gives each question one answer. A
  /// condition that throws refuses the start; the queue logs the exception.
  void ask(std::vector<StartQuestion> questions);

 private:
  struct Current {
    std::shared_ptr<const Condition> condition;
    std::uint64_t version = 0;
  };

  void answer(const std::vector<StartQuestion>& questions);
  [[nodiscard]] Current current() const;
  void deliver(std::vector<StartAnswer> answers);

  const std::shared_ptr<DispatchQueue> queue_;
  const std::shared_ptr<const TaskLedger> ledger_;

  mutable Mutex mutex_;  // not held while the condition runs
  Current current_ KIV_GUARDED_BY(mutex_);
  AnswerHandler answered_ KIV_GUARDED_BY(mutex_);
};

}  // namespace kiv
