#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kiv::test {

class ChildProcess;

/// A running ReportingHost (see there), and what it reports. Killed, where it still runs, when this
/// goes.
class ReportingHostProcess {
 public:
  /// `wrapper` is the beginning of a command line that runs the rest of it, if any.
  ReportingHostProcess(const std::string& root, const std::string& server,
                       const std::vector<std::string>& steps,
                       const std::vector<std::string>& wrapper = {});
  ~ReportingHostProcess();
  ReportingHostProcess(const ReportingHostProcess&) = delete;
  ReportingHostProcess& operator=(const ReportingHostProcess&) = delete;

  [[nodiscard]] bool hasStarted() const;
  /// Its next line, without the end; nothing when it has ended and everything was read.
  std::optional<std::string> readLine();
  /// May be called on any thread until waitForExit().
  void kill() const;
  /// After its last line: its exit code, or nothing if it was killed.
  std::optional<int> waitForExit();

 private:
  std::unique_ptr<ChildProcess> process_;
  int output_ = -1;
  std::string buffer_;
};

}  // namespace kiv::test
