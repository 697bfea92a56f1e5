#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/KivRESTService/engine/TransferControls.h"

namespace kiv {

class TaskLedger;

/// The host's request handler, which is called on the client's queue. Thread-safe.
class RequestGate : public std::enable_shared_from_this<RequestGate> {
 public:
  using Handler = std::function<void(KivRESTServiceRequest request)>;
  using AnswerReceiver = std::function<void(RequestAnswers answers)>;

  /// `ledger` tells which tasks are still held.
  RequestGate(std::shared_ptr<DispatchQueue> queue, std::shared_ptr<const TaskLedger> ledger);

  /// `receiver` is called with the answers, on any thread, and must not throw. An empty one removes
  /// it; when this returns, the former one is not running.
  void setAnswerReceiver(AnswerReceiver receiver);
  struct State {
    bool hasHandler = false;
    std::uint64_t version = 0;  ///< Grows with each change.
  };

  /// Replaces the handler. Without one, requests are sent unchanged.
  State setHandler(Handler handler);

  /// Adds a job to the queue that calls the handler for each question whose task is still held. The
  /// queue logs an exception of the handler.
  void ask(const std::vector<RequestQuestion>& questions);

 private:
  class OpenQuestion;

  [[nodiscard]] std::shared_ptr<const Handler> handler() const;
  void call(const std::shared_ptr<OpenQuestion>& question) const;
  void deliver(RequestAnswers answers) noexcept;

  const std::shared_ptr<DispatchQueue> queue_;
  const std::shared_ptr<const TaskLedger> ledger_;

  mutable Mutex mutex_;  // not held while the handler runs
  std::shared_ptr<const Handler> handler_ KIV_GUARDED_BY(mutex_);
  std::uint64_t version_ KIV_GUARDED_BY(mutex_) = 0;
  AnswerReceiver receiver_ KIV_GUARDED_BY(mutex_);
};

}  // namespace kiv
