#include "Tools/kivresource/Session.h"

#include <unistd.h>
#include <utility>
#include <variant>

#include "Tools/kivresource/Commands.h"
#include "Tools/kivresource/ExitStatus.h"
#include "Tools/kivresource/Host.h"
#include "Tools/kivresource/InterruptWatch.h"
#include "Tools/kivresource/LineReader.h"
#include "Tools/kivresource/ResourceJSON.h"

namespace tool {

Session::Session(std::shared_ptr<KivResourceManager> manager) : manager_(std::move(manager)) {}

int Session::run() {
  const auto queue = kiv::DispatchQueue::main();
  while (!isOver()) {
    queue->drainFor(untilDeadline());
    endWaitingWhenDue();
  }
  if (signal_) manager_->stopLoading();
  while (queue->drain() > 0) {
  }
  tellOfSaving();
  if (signal_) return exitStatus::signalled + *signal_;
  return hasToldOfSaving_ ? exitStatus::failure : exitStatus::success;
}

bool Session::isOver() const {
  if (signal_) return true;
  return hasEnded_ && lines_.empty() && !isScheduled_ && waiting_ == Waiting::no &&
         manager_->loadingResourcesFilesCount() <= 0;
}

std::chrono::milliseconds Session::untilDeadline() const {
  if (waiting_ == Waiting::no) return std::chrono::hours(1);
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now());
  return std::max(left, std::chrono::milliseconds(0));
}

void Session::endWaitingWhenDue() {
  if (waiting_ == Waiting::no || Clock::now() < deadline_) return;
  if (waiting_ == Waiting::forFinish) printJSONLine(kiv::Dictionary{{"error", "timeout"}});
  endWaiting();
}

// --- Input ---------------------------------------------------------------------------------------

void Session::takeLine(std::string line) {
  lines_.push_back(std::move(line));
  scheduleNextCall();
}

void Session::takeEnd() {
  hasEnded_ = true;
}

void Session::interrupt(int signal) {
  signal_ = signal;
}

// --- Calls ---------------------------------------------------------------------------------------

/// The next call is a separate job, so it runs after the callbacks that the previous call has
/// posted.
void Session::scheduleNextCall() {
  if (lines_.empty() || waiting_ != Waiting::no || std::exchange(isScheduled_, true)) return;
  kiv::DispatchQueue::main()->async([self = shared_from_this()] { self->makeNextCall(); });
}

void Session::makeNextCall() {
  isScheduled_ = false;
  if (signal_) return;
  const SessionCall call = readSessionCall(std::move(lines_.front()));
  lines_.pop_front();
  std::visit([this](const auto& what) { make(what); }, call.what);
  scheduleNextCall();
}

void Session::make(const SessionCall::Order& order) {
  order(*manager_);
}

void Session::make(const SessionCall::Query& query) {
  printJSONLine(
      kiv::Dictionary{{"result", query.name}, {"resources", resourcesJSON(query.ask(*manager_))}});
}

void Session::make(const SessionCall::Invalid& invalid) {
  printJSONLine(kiv::Dictionary{{"error", invalid.objection}});
}

/// Prints only one line for several successive failures.
void Session::tellOfSaving() {
  const auto complaint = complaintOfSaving(*manager_);
  if (complaint && !hasToldOfSaving_) printJSONLine(kiv::Dictionary{{"error", *complaint}});
  hasToldOfSaving_ = complaint.has_value();
}

// --- Waiting -------------------------------------------------------------------------------------

void Session::make(const SessionCall::WaitForFinish& wait) {
  if (unusedFinishes_ > 0) {
    --unusedFinishes_;
  } else {
    waitUntil(Waiting::forFinish, wait.timeout);
  }
}

void Session::make(const SessionCall::Sleep& sleep) {
  waitUntil(Waiting::forTime, sleep.time);
}

void Session::waitUntil(Waiting what, std::chrono::milliseconds time) {
  waiting_ = what;
  deadline_ = Clock::now() + time;
}

void Session::endWaiting() {
  waiting_ = Waiting::no;
  scheduleNextCall();
}

void Session::resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>& manager) {
  EventLines::resourceManagerDidFinishLoading(manager);
  tellOfSaving();
  if (waiting_ == Waiting::forFinish) {
    endWaiting();
  } else {
    ++unusedFinishes_;
  }
}

// --- The command ---------------------------------------------------------------------------------

int runSession(const Options& options) {
  if (!configureFramework(options)) return exitStatus::usage;
  const auto manager = KivResourceManager::sharedInstance();
  const auto session = std::make_shared<Session>(manager);
  manager->addObserver(session);
  const InterruptWatch watch([session](int signal) { session->interrupt(signal); });
  const auto queue = kiv::DispatchQueue::main();
  const LineReader reader(
      STDIN_FILENO,
      [=](std::string line) {
        queue->async([session, line = std::move(line)] { session->takeLine(line); });
      },
      [=] { queue->async([session] { session->takeEnd(); }); });
  return session->run();
}

}  // namespace tool
