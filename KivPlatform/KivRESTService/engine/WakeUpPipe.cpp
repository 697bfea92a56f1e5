// The inode is compared before each use, since the descriptor may belong to another file by now. If
// the pipe is lost, the thread polls.

#include "KivPlatform/KivRESTService/engine/WakeUpPipe.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kiv {

WakeUpPipe::WakeUpPipe() noexcept {
  int ends[2];
  if (::pipe(ends) != 0) return;
  readEnd_.take(ends[0]);
  writeEnd_.take(ends[1]);
}

WakeUpPipe::~WakeUpPipe() {
  readEnd_.close();
  writeEnd_.close();
}

std::optional<int> WakeUpPipe::descriptor() const noexcept {
  if (!readEnd_.isOpen() || !writeEnd_.isOpen()) return std::nullopt;
  return readEnd_.number;
}

void WakeUpPipe::wakeUp() const noexcept {
  constexpr char byte = 0;
  // Writing to a pipe without a reader would raise SIGPIPE.
  if (!descriptor()) return;
  // Ignored: a full pipe wakes the thread up too.
  [[maybe_unused]] const auto written = ::write(writeEnd_.number, &byte, 1);
}

void WakeUpPipe::clear() const noexcept {
  char bytes[64];
  while (readEnd_.isOpen() && ::read(readEnd_.number, bytes, sizeof bytes) == sizeof bytes) {
  }
}

void WakeUpPipe::End::take(int descriptor) noexcept {
  number = descriptor;
  ::fcntl(number, F_SETFD, FD_CLOEXEC);
  ::fcntl(number, F_SETFL, O_NONBLOCK);
  struct stat status {};
  ::fstat(number, &status);
  device = static_cast<std::uint64_t>(status.st_dev);
  file = static_cast<std::uint64_t>(status.st_ino);
}

bool WakeUpPipe::End::isOpen() const noexcept {
  struct stat status {};
  return number >= 0 && ::fstat(number, &status) == 0 && S_ISFIFO(status.st_mode) &&
         static_cast<std::uint64_t>(status.st_dev) == device &&
         static_cast<std::uint64_t>(status.st_ino) == file;
}

void WakeUpPipe::End::close() noexcept {
  if (isOpen()) ::close(number);
  number = -1;
}

}  // namespace kiv
