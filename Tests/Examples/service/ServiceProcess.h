#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/LineReader.h"

namespace kiv::test {

/// A running kivresource-service, and its log. The destructor kills it if it still runs.
class ServiceProcess {
 public:
  explicit ServiceProcess(const std::vector<std::string>& arguments);

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
  std::unique_ptr<ChildProcess> process_;
  LineReader output_;
  std::string log_;
};

}  // namespace kiv::test
