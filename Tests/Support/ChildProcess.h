#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace kiv::test {

/// A child process of a test. Its standard input is a pipe from the test; its output goes to the
/// output of the test. The destructor kills it if it still runs.
class ChildProcess {
 public:
  /// Starts the program with that path or, by PATH, that name. `variables` are added to its
  /// environment; it inherits `descriptors` with the same numbers.
  ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
               const std::vector<std::string>& variables = {},
               const std::vector<int>& descriptors = {});
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// False if the program could not be started.
  [[nodiscard]] bool hasStarted() const noexcept { return process_ > 0; }
  /// Closes the child's standard input.
  void closeInput();
  void sendSignal(int signal) const;
  /// Waits for the child to exit. Returns its exit code, or nullopt if a signal terminated it.
  std::optional<int> waitForExit();

 private:
  pid_t process_ = -1;
  int input_ = -1;
};

}  // namespace kiv::test
