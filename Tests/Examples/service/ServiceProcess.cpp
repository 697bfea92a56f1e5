#include "Tests/Examples/service/ServiceProcess.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "Tests/Support/MainQueue.h"

namespace kiv::test {

ServiceProcess::ServiceProcess(const std::vector<std::string>& arguments) {
  std::array<int, 2> ends{-1, -1};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return;
  output_ = ends[0];
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

ServiceProcess::~ServiceProcess() {
  if (output_ >= 0) close(output_);
}

bool ServiceProcess::waitForLine(std::string_view part) {
  while (const auto line = readLine()) {
    log_ += *line + "\n";
    if (line->find(part) != std::string::npos) return true;
  }
  return false;
}

std::optional<int> ServiceProcess::waitForExit() {
  while (const auto line = readLine())
    log_ += *line + "\n";
  return hasEnded_ ? process_->waitForExit() : std::nullopt;
}

std::optional<std::string> ServiceProcess::readLine() {
  while (true) {
    if (const auto end = read_.find('\n'); end != std::string::npos) {
      std::string line = read_.substr(0, end);
      read_.erase(0, end + 1);
      return line;
    }
    pollfd awaited{output_, POLLIN, 0};
    const auto longest = std::chrono::duration_cast<std::chrono::milliseconds>(patience);
    const int ready = poll(&awaited, 1, static_cast<int>(longest.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return std::nullopt;
    std::array<char, 4096> piece{};
    const ssize_t length = read(output_, piece.data(), piece.size());
    hasEnded_ = length == 0;
    if (length <= 0) return std::nullopt;
    read_.append(piece.data(), static_cast<std::size_t>(length));
  }
}

}  // namespace kiv::test
