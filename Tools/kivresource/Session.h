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

/// Makes the calls that come as lines, one after the other on the manager's queue, the main one,
/// and prints what comes of them.
///
/// A call is made when everything that the one before it sent has been printed: so what a reader
/// sees has the order of the calls. Used on the main queue.
class Session : public EventLines, public std::enable_shared_from_this<Session> {
 public:
  explicit Session(std::shared_ptr<KivResourceManager> manager);

  /// Runs the main queue until the input has ended, its calls are made and no download is in
  /// flight, or until the session is interrupted. Answers the exit status.
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
  bool hasToldOfSaving_ = false;      ///< That the list could not be saved, and still cannot.
  std::uint64_t unusedFinishes_ = 0;  ///< Printed, and not yet waited for.
  Waiting waiting_ = Waiting::no;
  Clock::time_point deadline_;
  std::optional<int> signal_;
};

}  // namespace tool
