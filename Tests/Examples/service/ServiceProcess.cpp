#include "Tests/Examples/service/ServiceProcess.h"

#include <array>
#include <fcntl.h>
#include <unistd.h>

namespace kiv::test {

ServiceProcess::ServiceProcess(const std::vector<std::string>& arguments) {
  std::array<int, 2> ends{-1, -1};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return;
  output_ = LineReader(ends[0]);
  // The shell is replaced by the service, whose standard error is the pipe.
  std::vector<std::string> words{
      "-c",
      "exec \"$@\" 2>/dev/fd/" + std::to_string(ends[1]) + " " + std::to_string(ends[1]) + ">&-",
      "sh", KIVRESOURCE_SERVICE};
  words.insert(words.end(), arguments.begin(), arguments.end());
  process_ = std::make_unique<ChildProcess>("/bin/bash", words, std::vector<std::string>(),
                                            std::vector{ends[1]});
  close(ends[1]);
}

bool ServiceProcess::waitForLine(std::string_view part) {
  while (const auto line = output_.readLine()) {
    log_ += *line + "\n";
    if (line->find(part) != std::string::npos) return true;
  }
  return false;
}

std::optional<int> ServiceProcess::waitForExit() {
  while (const auto line = output_.readLine())
    log_ += *line + "\n";
  return output_.hasEnded() ? process_->waitForExit() : std::nullopt;
}

}  // namespace kiv::test
