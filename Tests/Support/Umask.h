#pragma once

#include <filesystem>
#include <sys/stat.h>

namespace kiv::test {

/// The process's umask until the end of the scope. It is that of every thread.
class Umask {
 public:
  explicit Umask(mode_t mask) : former_(::umask(mask)) {}
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;
  ~Umask() { ::umask(former_); }

 private:
  mode_t former_;
};

/// The mode of the item itself: 0644, say; 01000000 where there is none.
inline mode_t modeOf(const std::filesystem::path& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 01000000;
}

}  // namespace kiv::test
