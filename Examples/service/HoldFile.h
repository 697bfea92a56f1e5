#pragma once

#include <KivResource/KivResource.h>
#include <functional>
#include <memory>
#include <string>

/// The file with which an administrator, or a script of the network's, holds all downloads: as long
/// as it exists, no transfer starts.
///
/// To be used on one queue, that of the clients.
class HoldFile : public std::enable_shared_from_this<HoldFile> {
 public:
  /// `lookAgain` is to have the clients ask again. It is called on the queue, which is the current
  /// one, a minute after an answer that holds: in case nobody tells the service that the file has
  /// gone.
  HoldFile(std::string path, std::shared_ptr<kiv::Timers> timers, std::function<void()> lookAgain);

  /// True if a transfer may start now. The log is told of each change.
  bool allowsStart();

 private:
  void lookInAMinute();

  const std::string path_;
  const std::shared_ptr<kiv::Timers> timers_;
  const std::function<void()> lookAgain_;
  const std::weak_ptr<kiv::DispatchQueue> queue_ = kiv::DispatchQueue::current();
  bool isHeld_ = false;
  std::unique_ptr<kiv::Timers::Timer> timer_;
};
