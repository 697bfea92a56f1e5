#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "Tests/Support/LineReader.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace kiv::test {

/// Runs the built tool, with pipes to the test. Its home and working directory is a temporary
/// directory, and its environment names no server. The destructor kills it if it still runs.
class ToolProcess {
 public:
  /// `launcher` is a command to which the path of the tool and its arguments are appended.
  explicit ToolProcess(const std::vector<std::string>& arguments,
                       const std::vector<std::string>& variables = {},
                       const std::vector<std::string>& launcher = {});
  ~ToolProcess();
  ToolProcess(const ToolProcess&) = delete;
  ToolProcess& operator=(const ToolProcess&) = delete;

  /// Writes the text to the tool's standard input. Returns when it was written, whether or not the
  /// tool has read it, or when the tool has ended.
  void write(std::string_view text) const;
  void writeLine(std::string_view line) const { write(std::string(line) + "\n"); }
  void closeInput();
  void sendSignal(int signal) const;

  /// The next line of standard output without its newline; nullopt at the end of the output or
  /// after the test time-out.
  std::optional<std::string> readLine() { return output_.readLine(); }
  /// All remaining lines.
  std::vector<std::string> readLines();
  /// Waits for the tool to exit. Returns the exit status, or the negative number of the signal that
  /// terminated it.
  int waitForExit();
  /// The output to standard error so far.
  [[nodiscard]] std::string errors() const;

  [[nodiscard]] const TemporaryDirectory& home() const noexcept { return home_; }

 private:
  TemporaryDirectory home_;
  pid_t process_ = -1;
  int input_ = -1;
  LineReader output_;
};

/// The result of a complete run of the tool.
struct ToolRun {
  std::vector<std::string> lines;
  std::string errors;
  int status = 0;
};

/// Runs the tool with that standard input and waits for it to exit.
ToolRun runTool(const std::vector<std::string>& arguments, std::string_view input = {},
                const std::vector<std::string>& variables = {},
                const std::vector<std::string>& launcher = {});

/// A launcher that runs the tool with the redirections of a shell, for example "<&- >&-".
std::vector<std::string> withRedirections(const std::string& redirections);

}  // namespace kiv::test
