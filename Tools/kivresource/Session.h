#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "KivResource/KivResource.h"
#include "Tools/kivresource/EventLines.h"
#include "Tools/kivresource/SessionCall.h"

namespace tool {

/// Reads calls as lines, makes them in order on the main queue, which is the manager's queue, and
/// prints their results.
///
/// A call is made only after the callbacks posted by the previous call have been printed, so the
/// output is in the order of the calls. Used on the main queue.
class Session : public EventLines, public std::enable_shared_from_this<Session> {
 public:
  explicit Session(std::shared_ptr<KivResourceManager> manager);

  /// Drains the main queue until the input has ended, all calls are made and no download is
  /// pending, or until the session is interrupted. Returns the exit status.
  int run();

  void takeLine(std::string line);
  void takeEnd();
  /// Stops the pass and ends the session.
  void interrupt(int signal);

  void resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>& manager) override;

 private:
  using Clock = std::chrono::steady_clock;
  enum class Waiting { no, forFinish, forTime };

  [[nodiscard]] bool isOver() const;
  [[nodiscard]] std::chrono::milliseconds untilDeadline() const;
  void endWaitingWhenDue();

  void scheduleNextCall();
  void makeNextCall();
  void make(const SessionCall::Order& order);
  void make(const SessionCall::Query& query);
  void make(const SessionCall::WaitForFinish& wait);
  void make(const SessionCall::Sleep& sleep);
  void make(const SessionCall::Invalid& invalid);
  void waitUntil(Waiting what, std::chrono::milliseconds time);
  void endWaiting();
  void tellOfSaving();

  const std::shared_ptr<KivResourceManager> manager_;
  std::deque<std::string> lines_;
  bool hasEnded_ = false;
  bool isScheduled_ = false;
  bool hasToldOfSaving_ = false;      ///< The failure to save the list was reported and persists.
  std::uint64_t unusedFinishes_ = 0;  ///< Printed, but not yet consumed by a wait.
  Waiting waiting_ = Waiting::no;
  Clock::time_point deadline_;
  std::optional<int> signal_;
};

}  // namespace tool
