// The version is read before the condition is called. If the host announces a change in between,
// the answer is out of date, and the scheduler asks again.

#include "KivPlatform/KivRESTService/engine/StartGate.h"

#include <exception>
#include <utility>

#include "KivPlatform/Foundation/system/ForkGuard.h"
#include "KivPlatform/KivRESTService/engine/TaskLedger.h"

namespace kiv {

StartGate::StartGate(std::shared_ptr<DispatchQueue> queue, std::shared_ptr<const TaskLedger> ledger)
    : queue_(std::move(queue)), ledger_(std::move(ledger)) {}

void StartGate::setAnswerHandler(AnswerHandler handler) {
  const MutexLock lock(mutex_);
  answered_ = std::move(handler);
}

StartGate::State StartGate::setCondition(Condition condition) {
  auto shared = condition ? std::make_shared<const Condition>(std::move(condition)) : nullptr;
  const MutexLock lock(mutex_);
  // The former condition is destroyed after the lock is released.
  current_.condition.swap(shared);
  return {current_.condition != nullptr, ++current_.version};
}

StartGate::State StartGate::noteChange() {
  const MutexLock lock(mutex_);
  return {current_.condition != nullptr, ++current_.version};
}

void StartGate::ask(std::vector<StartQuestion> questions) {
  queue_->async([self = shared_from_this(), questions = std::move(questions), depth = forkDepth()] {
    // A forked child inherits the jobs of the main queue, but not the transfers.
    if (depth == forkDepth()) self->answer(questions);
  });
}

/// The condition may cancel the tasks or destroy the client; it is then not asked about the rest.
void StartGate::answer(const std::vector<StartQuestion>& questions) {
  std::vector<StartAnswer> answers;
  answers.reserve(questions.size());
  std::exception_ptr thrown;
  for (const StartQuestion& question : questions) {
    const Current asked = current();
    StartAnswer answer{question.task, asked.version, true};
    const auto task = ledger_->task(question.task);
    try {
      if (task && asked.condition) answer.mayStart = (*asked.condition)(*task, question.url);
    } catch (...) {
      answer.mayStart = false;
      thrown = std::current_exception();
    }
    answers.push_back(answer);
  }
  deliver(std::move(answers));
  if (thrown) std::rethrow_exception(thrown);
}

StartGate::Current StartGate::current() const {
  const MutexLock lock(mutex_);
  return current_;
}

void StartGate::deliver(std::vector<StartAnswer> answers) {
  const MutexLock lock(mutex_);
  if (answered_) answered_(std::move(answers));
}

}  // namespace kiv
