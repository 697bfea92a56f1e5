// The host may keep a request for as long as it likes, so a request must not keep the client or the
// gate alive. In a forked child it must not lock a mutex that a thread of the parent may have held.

#include "KivPlatform/KivRESTService/engine/RequestGate.h"

#include <exception>
#include <utility>

#include "KivPlatform/Foundation/system/ForkGuard.h"
#include "KivPlatform/KivRESTService/engine/TaskLedger.h"

namespace kiv {

/// A question with its answer and its postponement, allocated in advance: the destructor of a
/// request answers too, and must not allocate.
class RequestGate::OpenQuestion {
 public:
  OpenQuestion(std::weak_ptr<RequestGate> gate, const RequestQuestion& asked)
      : question(asked),
        gate_(std::move(gate)),
        answer_(1, {asked.task, asked.number, false, {}, {}}),
        postponement_(1, {asked.task, asked.number, true, {}, {}}) {}

  /// To be called once.
  void answer(std::optional<KivRESTServiceRequest::Headers> headers, std::string refusal) {
    answer_.front().headers = std::move(headers);
    answer_.front().refusal = std::move(refusal);
    deliver(std::move(answer_));
  }
  /// To be called once. May run at the same time as answer().
  void postpone() { deliver(std::move(postponement_)); }

  const RequestQuestion question;

 private:
  void deliver(RequestAnswers answers) {
    if (depth_ != forkDepth()) return;
    if (const auto gate = gate_.lock()) gate->deliver(std::move(answers));
  }

  const std::weak_ptr<RequestGate> gate_;
  const std::uint64_t depth_ = forkDepth();
  RequestAnswers answer_;
  RequestAnswers postponement_;
};

RequestGate::RequestGate(std::shared_ptr<DispatchQueue> queue,
                         std::shared_ptr<const TaskLedger> ledger)
    : queue_(std::move(queue)), ledger_(std::move(ledger)) {}

void RequestGate::setAnswerReceiver(AnswerReceiver receiver) {
  const MutexLock lock(mutex_);
  receiver_ = std::move(receiver);
}

RequestGate::State RequestGate::setHandler(Handler handler) {
  auto shared = handler ? std::make_shared<const Handler>(std::move(handler)) : nullptr;
  const MutexLock lock(mutex_);
  // The former handler is destroyed after the lock is released.
  handler_.swap(shared);
  return {handler_ != nullptr, ++version_};
}

void RequestGate::ask(const std::vector<RequestQuestion>& questions) {
  std::vector<std::shared_ptr<OpenQuestion>> open;
  open.reserve(questions.size());
  for (const RequestQuestion& question : questions)
    open.push_back(std::make_shared<OpenQuestion>(weak_from_this(), question));
  queue_->async([self = shared_from_this(), open = std::move(open), depth = forkDepth()] {
    // A forked child inherits the jobs of the main queue, but not the transfers.
    if (depth != forkDepth()) return;
    std::exception_ptr thrown;
    for (const auto& question : open) {
      try {
        self->call(question);
      } catch (...) {
        thrown = std::current_exception();
      }
      question->postpone();
    }
    if (thrown) std::rethrow_exception(thrown);
  });
}

/// The handler may cancel the tasks or destroy the client; the remaining questions are then
/// skipped.
void RequestGate::call(const std::shared_ptr<OpenQuestion>& question) const {
  const RequestQuestion& asked = question->question;
  if (!ledger_->task(asked.task)) return;
  const auto called = handler();
  if (!called) return question->answer(KivRESTServiceRequest::Headers(), {});
  (*called)(KivRESTServiceRequest(asked.url, asked.tries, asked.redirects,
                                  [question](auto headers, const std::string& refusal) {
                                    question->answer(std::move(headers), refusal);
                                  }));
}

std::shared_ptr<const RequestGate::Handler> RequestGate::handler() const {
  const MutexLock lock(mutex_);
  return handler_;
}

void RequestGate::deliver(RequestAnswers answers) noexcept {
  const MutexLock lock(mutex_);
  if (receiver_) receiver_(std::move(answers));
}

}  // namespace kiv
