#pragma once

#include <memory>
#include <string>
#include <thread>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivSession/LineQueue.h"
#include "KivSession/OpenSettings.h"
#include "KivSession/Session.h"

namespace kiv::session {

/// A session with a thread of its own, which serves the main queue. So a process can have one at a
/// time, and no other use of that queue. May be used from any thread.
class OpenSession : public std::enable_shared_from_this<OpenSession> {
 public:
  /// Nullptr if the system has no thread or descriptor left.
  static std::shared_ptr<OpenSession> open(OpenSettings settings);
  /// It must be closed.
  ~OpenSession() = default;
  OpenSession(const OpenSession&) = delete;
  OpenSession& operator=(const OpenSession&) = delete;

  void send(std::string call);
  [[nodiscard]] LineQueue& lines() noexcept { return *lines_; }
  /// Stops the session and waits until its thread has ended. Not to be called on that thread.
  void close();
  [[nodiscard]] bool isOnItsThread() const noexcept;

 private:
  OpenSession(OpenSettings settings, std::unique_ptr<LineQueue> lines);
  void start();
  void serve() noexcept;
  void runSession();
  void writeLine(const Dictionary& line) noexcept;

  const OpenSettings settings_;
  const std::unique_ptr<LineQueue> lines_;
  std::shared_ptr<Session> session_;  ///< Used on the thread.
  bool isClosed_ = false;             ///< Used on the thread.
  std::thread thread_;
  std::thread::id threadID_;
  Mutex closing_;  ///< Held by the first that closes, until the thread has ended.
};

}  // namespace kiv::session
