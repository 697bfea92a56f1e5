#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "KivResource/KivResource.h"
#include "KivSession/SessionCall.h"
#include "KivSession/SessionEvents.h"
#include "KivSession/SessionFollowing.h"
#include "KivSession/SessionLeases.h"
#include "KivSession/SessionRequests.h"

namespace kiv::session {

/// Reads calls as lines, makes them in order on the main queue, which is the manager's queue, and
/// puts out their results and the manager's callbacks.
///
/// A call is made only after the callbacks posted by the previous call have been put out, so the
/// output is in the order of the calls. Used on the main queue, or on the thread that serves it.
class Session : public SessionEvents, public std::enable_shared_from_this<Session> {
 public:
  /// Register it as an observer of the manager before the first line.
  Session(std::shared_ptr<KivResourceManager> manager, Output output);

  /// Drains the main queue until the input has ended, all calls are made, no download is pending
  /// and no check is running, or until the session is stopped. Then the pass is stopped, nothing is
  /// followed, and no callback is left. At the end of the input, downloads that are held back end
  /// the session too.
  void run();

  void takeLine(std::string line);
  /// The input has ended.
  void takeEnd();
  /// Stops the pass and ends the session; waiting calls are not made.
  void stop();

  /// Whether the list could not be saved last.
  [[nodiscard]] bool listIsUnsaved() const noexcept { return hasToldOfSaving_; }

  void resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>& manager) override;

 private:
  using Clock = std::chrono::steady_clock;
  enum class Waiting { no, forFinish, forTime };

  [[nodiscard]] bool isOver() const;
  [[nodiscard]] std::chrono::milliseconds untilDeadline() const;
  void endWaitingWhenDue();
  void endWhatIsHeldBack();

  void scheduleNextCall();
  void makeNextCall();
  void make(const SessionCall::Invalid& invalid);
  void make(const SessionCall::Operation& operation);
  void make(const SessionCall::State& state);
  void make(const SessionCall::StartPass& call);
  void make(const SessionCall::Revalidate& call);
  void make(const SessionCall::Follow& call);
  void make(const SessionCall::CheckNow& call);
  void make(const SessionCall::StopFollowing& call);
  void make(const SessionCall::SetSettings& call);
  void make(const SessionCall::ReportProgress& report);
  void make(const SessionCall::ReportPasses& report);
  void make(const SessionCall::AnswerRequests& call);
  void make(const SessionCall::AnswerRequest& call);
  void make(const SessionCall::AllowTransfers& call);
  void make(const SessionCall::TakeLease& call);
  void make(const SessionCall::EndLease& call);
  void make(const SessionCall::WaitForFinish& wait);
  void make(const SessionCall::Sleep& sleep);
  void setProgressHandler();
  void waitUntil(Waiting what, std::chrono::milliseconds time);
  void endWaiting();

  void answer(Dictionary line) const;
  void answerDone() const;
  void tellOfSaving();

  const std::shared_ptr<KivResourceManager> manager_;
  std::deque<std::string> lines_;
  SessionLeases leases_;
  const std::shared_ptr<SessionRequests> requests_;
  SessionFollowing following_;
  SessionCall call_;  ///< The one that is being made.
  bool hasEnded_ = false;
  bool isStopped_ = false;
  bool isScheduled_ = false;
  bool hasToldOfSaving_ = false;  ///< The failure to save the list was reported and persists.
  bool reportsProgress_ = false;
  bool reportsPasses_ = false;
  std::size_t revalidations_ = 0;     ///< That have not ended.
  std::uint64_t unusedFinishes_ = 0;  ///< Put out, but not yet consumed by a wait.
  Waiting waiting_ = Waiting::no;
  Clock::time_point deadline_;
};

/// Gives the manager a client with the settings that are named; the others stay. Fails while
/// downloads are in flight, and for a value that is not valid.
[[nodiscard]] Status applySettings(KivResourceManager& manager, const Dictionary& settings);

/// The error message if the list of loaded resources could not be saved; otherwise nullopt.
std::optional<std::string> complaintOfSaving(const KivResourceManager& manager);

}  // namespace kiv::session
