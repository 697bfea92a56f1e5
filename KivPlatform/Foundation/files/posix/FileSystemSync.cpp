// One sync of a whole file system (Linux's syncfs) instead of an fsync of each file.
//
// It is used only if its success means that everything is on the disk:
// - The kernel reports write errors (5.8 and newer). It reports those that occurred since the
//   descriptor was opened, even if another program has already seen them. So the descriptor is
//   opened before the first file is written.
// - The file system has one journal or tree for all files, and its syncfs is as strict as its
//   fsync. FUSE does not pass the call on, an overlay hides errors of the lower layer, and network
//   file systems differ. On such file systems each file is synced separately.

#include "KivPlatform/Foundation/files/posix/FileSystemSync.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <string>
#include <utility>

#include "KivPlatform/Foundation/files/posix/PosixFile.h"

#if defined(__linux__)
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/utsname.h>
#include <sys/vfs.h>
#include <unistd.h>
#endif

namespace kiv::batchsync {

namespace {

/// Parses the number at the start of the text and removes it from the text.
std::optional<std::uint64_t> takeNumber(std::string_view& text) {
  std::uint64_t number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (result.ec != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
  return number;
}

}  // namespace

bool reportsWriteErrors(std::string_view kernelRelease) {
  const auto major = takeNumber(kernelRelease);
  if (!major || !kernelRelease.starts_with('.')) return false;
  kernelRelease.remove_prefix(1);
  const auto minor = takeNumber(kernelRelease);
  return minor && (*major > 5 || (*major == 5 && *minor >= 8));
}

std::optional<std::uint64_t> unwrittenBytes(std::string_view memoryInformation) {
  constexpr std::string_view label = "\nDirty:";
  const std::size_t at = memoryInformation.find(label);
  if (at == memoryInformation.npos) return std::nullopt;
  memoryInformation.remove_prefix(at + label.size());
  const std::size_t digits = memoryInformation.find_first_not_of(' ');
  if (digits == memoryInformation.npos) return std::nullopt;
  memoryInformation.remove_prefix(digits);
  const auto number = takeNumber(memoryInformation);
  if (!number || *number > UINT64_MAX / 1024 || !memoryInformation.starts_with(" kB")) {
    return std::nullopt;
  }
  return *number * 1024;
}

}  // namespace kiv::batchsync

#if defined(__linux__)

namespace kiv {

namespace {

using posix::Descriptor;

bool kernelReportsWriteErrors() {
  static const bool reports = [] {
    struct utsname system {};
    return ::uname(&system) == 0 && batchsync::reportsWriteErrors(system.release);
  }();
  return reports;
}

bool isReliable(const Descriptor& directory) {
  struct statfs status {};
  if (::fstatfs(directory.number(), &status) != 0) return false;
  constexpr std::array<unsigned long, 3> reliable{EXT4_SUPER_MAGIC, XFS_SUPER_MAGIC,
                                                  BTRFS_SUPER_MAGIC};
  const auto type = static_cast<unsigned long>(status.f_type) & 0xffffffffUL;
  return std::find(reliable.begin(), reliable.end(), type) != reliable.end();
}

/// UINT64_MAX if unknown: a batch sync then never pays.
std::uint64_t unwrittenBytes() {
  const Descriptor file(::open("/proc/meminfo", O_RDONLY | O_CLOEXEC));
  std::array<char, 4096> text{};  // the line is near the start
  const ssize_t length = file.isOpen() ? ::read(file.number(), text.data(), text.size()) : -1;
  if (length <= 0) return UINT64_MAX;
  return batchsync::unwrittenBytes({text.data(), static_cast<std::size_t>(length)})
      .value_or(UINT64_MAX);
}

class FileSystemSync final : public BatchSync {
 public:
  FileSystemSync(Descriptor directory, std::string path)
      : directory_(std::move(directory)), path_(std::move(path)) {}

  [[nodiscard]] bool pays(std::size_t files) const override {
    return batchsync::pays(files, 0) && batchsync::pays(files, unwrittenBytes());
  }

  Status synchronize() override {
    if (::syncfs(directory_.number()) == 0) return {};
    return systemError(errno, "synchronize", path_);
  }

 private:
  Descriptor directory_;
  std::string path_;
};

}  // namespace

std::unique_ptr<BatchSync> beginFileSystemSync(std::string_view path) {
  if (!kernelReportsWriteErrors()) return nullptr;
  std::string name(path);
  if (name.find('\0') != name.npos) return nullptr;
  Descriptor directory(::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory.isOpen() || !isReliable(directory)) return nullptr;
  return std::make_unique<FileSystemSync>(std::move(directory), std::move(name));
}

}  // namespace kiv

#else

namespace kiv {

std::unique_ptr<BatchSync> beginFileSystemSync(std::string_view) {
  return nullptr;
}

}  // namespace kiv

#endif
