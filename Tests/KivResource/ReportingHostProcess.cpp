#include "Tests/KivResource/ReportingHostProcess.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

#include "Tests/Support/ChildProcess.h"

namespace kiv::test {

ReportingHostProcess::ReportingHostProcess(const std::string& root, const std::string& server,
                                           const std::vector<std::string>& steps,
                                           const std::vector<std::string>& wrapper) {
  int ends[2];
  // Close-on-exec, so that no other child keeps the pipe open after this one has died.
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  output_ = ends[0];
  std::vector<std::string> words = wrapper;
  words.insert(words.end(), {REPORTING_HOST, std::to_string(ends[1]), root, server});
  words.insert(words.end(), steps.begin(), steps.end());
  process_ = std::make_unique<ChildProcess>(
      words.front(), std::vector<std::string>(words.begin() + 1, words.end()),
      std::vector<std::string>(), std::vector{ends[1]});
  ::close(ends[1]);
}

ReportingHostProcess::~ReportingHostProcess() {
  if (output_ >= 0) ::close(output_);
}

bool ReportingHostProcess::hasStarted() const {
  return process_ && process_->hasStarted();
}

std::optional<std::string> ReportingHostProcess::readLine() {
  while (true) {
    const std::size_t end = buffer_.find('\n');
    if (end != std::string::npos) {
      std::string line = buffer_.substr(0, end);
      buffer_.erase(0, end + 1);
      return line;
    }
    char bytes[512];
    const ssize_t count = ::read(output_, bytes, sizeof bytes);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return std::nullopt;
    buffer_.append(bytes, static_cast<std::size_t>(count));
  }
}

void ReportingHostProcess::kill() const {
  process_->sendSignal(SIGKILL);
}

std::optional<int> ReportingHostProcess::waitForExit() {
  return process_->waitForExit();
}

}  // namespace kiv::test
