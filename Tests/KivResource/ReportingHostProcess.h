#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kiv::test {

class ChildProcess;

/// A running ReportingHost (see ReportingHost.cpp) and its reports. The destructor kills it if it
/// still runs.
class ReportingHostProcess {
 public:
  /// `wrapper`, if not empty, is a command that runs the command line appended to it.
  ReportingHostProcess(const std::string& root, const std::string& server,
                       const std::vector<std::string>& steps,
                       const std::vector<std::string>& wrapper = {});
  ~ReportingHostProcess();
  ReportingHostProcess(const ReportingHostProcess&) = delete;
  ReportingHostProcess& operator=(const ReportingHostProcess&) = delete;

  [[nodiscard]] bool hasStarted() const;
  /// The next line without its newline; nullopt when the process has ended and all lines were read.
  std::optional<std::string> readLine();
  /// May be called on any thread until waitForExit().
  void kill() const;
  /// Call it after the last line. Returns the exit code, or nullopt if the process was killed.
  std::optional<int> waitForExit();

 private:
  std::unique_ptr<ChildProcess> process_;
  int output_ = -1;
  std::string buffer_;
};

}  // namespace kiv::test
