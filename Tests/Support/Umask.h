#pragma once

#include <filesystem>
#include <sys/stat.h>

namespace kiv::test {

/// Sets the umask until the end of the scope. The umask is shared by all threads of the process.
class Umask {
 public:
  explicit Umask(mode_t mask) : former_(::umask(mask)) {}
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;
  ~Umask() { ::umask(former_); }

 private:
  mode_t former_;
};

/// The permission bits of the item, not following links, for example 0644; 01000000 if it does not
/// exist.
inline mode_t modeOf(const std::filesystem::path& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 01000000;
}

}  // namespace kiv::test
