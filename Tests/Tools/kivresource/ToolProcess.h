#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "Tests/Support/TemporaryDirectory.h"

namespace kiv::test {

/// The built tool, run by a test that talks to it as another program would. It runs in a scratch
/// directory of its own, which is its home and its current directory, in an environment that names
/// no server. Killed, where it still runs, when this goes.
class ToolProcess {
 public:
  /// `launcher` is the beginning of a command that the tool and its arguments complete.
  explicit ToolProcess(const std::vector<std::string>& arguments,
                       const std::vector<std::string>& variables = {},
                       const std::vector<std::string>& launcher = {});
  ~ToolProcess();
  ToolProcess(const ToolProcess&) = delete;
  ToolProcess& operator=(const ToolProcess&) = delete;

  /// Writes the text to the tool's standard input; returns when the tool has it, or is
  /// about to, or has ended.
  void write(std::string_view text) const;
  void writeLine(std::string_view line) const { write(std::string(line) + "\n"); }
  void closeInput();
  void sendSignal(int signal) const;

  /// The next line of standard output without its end; nothing at the end, or if the patience of
  /// a test ends.
  std::optional<std::string> readLine();
  /// The lines that are left.
  std::vector<std::string> readLines();
  /// Waits for the end; the exit status, or minus the number of the signal that ended the tool.
  int waitForExit();
  /// What has been written to standard error so far.
  [[nodiscard]] std::string errors() const;

  [[nodiscard]] const TemporaryDirectory& home() const noexcept { return home_; }

 private:
  TemporaryDirectory home_;
  pid_t process_ = -1;
  int input_ = -1;
  int output_ = -1;
  std::string read_;
};

/// What the tool did from start to end.
struct ToolRun {
  std::vector<std::string> lines;
  std::string errors;
  int status = 0;
};

/// Runs the tool with that input to its end.
ToolRun runTool(const std::vector<std::string>& arguments, std::string_view input = {},
                const std::vector<std::string>& variables = {},
                const std::vector<std::string>& launcher = {});

/// Starts a shell's redirections, as "<&- >&-", around the tool.
std::vector<std::string> withRedirections(const std::string& redirections);

}  // namespace kiv::test
