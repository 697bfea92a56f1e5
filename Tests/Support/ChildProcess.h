#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace kiv::test {

/// A program that a test runs beside itself. Its standard input comes from the test; its output
/// goes to the test's own. Killed, where it still runs, when this goes.
class ChildProcess {
 public:
  /// Starts the program at that path, or found under that name. `variables` are added to its
  /// environment; `descriptors` are handed down under their own numbers.
  ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
               const std::vector<std::string>& variables = {},
               const std::vector<int>& descriptors = {});
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// False if the program could not be started.
  [[nodiscard]] bool hasStarted() const noexcept { return process_ > 0; }
  /// Ends the child's standard input.
  void closeInput();
  void sendSignal(int signal) const;
  /// Waits until the child has ended; its exit code, or nothing if a signal ended it.
  std::optional<int> waitForExit();

 private:
  pid_t process_ = -1;
  int input_ = -1;
};

}  // namespace kiv::test
