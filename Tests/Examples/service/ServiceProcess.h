#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/Support/ChildProcess.h"

namespace kiv::test {

/// A running kivresource-service, and its log. The destructor kills it if it still runs.
class ServiceProcess {
 public:
  explicit ServiceProcess(const std::vector<std::string>& arguments);
  ~ServiceProcess();
  ServiceProcess(const ServiceProcess&) = delete;
  ServiceProcess& operator=(const ServiceProcess&) = delete;

  /// Waits for the next line that contains the text; false at the end of the log, and after the
  /// test time-out.
  [[nodiscard]] bool waitForLine(std::string_view part);
  void sendSignal(int signal) const { process_->sendSignal(signal); }
  /// Waits for the end of the log and of the process. Returns its exit code, or nothing if a signal
  /// has killed it, or if it does not end.
  std::optional<int> waitForExit();
  /// All lines that were waited for, and those before them.
  [[nodiscard]] const std::string& log() const noexcept { return log_; }

 private:
  std::optional<std::string> readLine();

  std::unique_ptr<ChildProcess> process_;
  int output_ = -1;
  bool hasEnded_ = false;  ///< The log.
  std::string read_;
  std::string log_;
};

}  // namespace kiv::test
