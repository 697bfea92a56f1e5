// One sync of a whole file system in place of one for each file: Linux's syncfs.
//
// It is used only if its success means that everything is on the disk:
// - The kernel reports write errors (5.8 and newer). It compares the file system's state with that
//   at the moment when the descriptor was opened, so that is done before the first file is written,
//   and an error in between, also one that another program was told of, is not missed.
// - The file system is one that keeps its journal or tree for all files together and whose syncfs
// is
//   as strict as its fsync. FUSE does not pass the call on to the program behind it, an overlay
//   does not pass on errors of the layer below, and what a network does is for each of them to say:
//   for all others the files are synced one by one.

#include "KivPlatform/Foundation/files/posix/FileSystemSync.h"

#if defined(__linux__)

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <linux/magic.h>
#include <string>
#include <sys/utsname.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utility>

#include "KivPlatform/Foundation/files/posix/BatchSyncRule.h"
#include "KivPlatform/Foundation/files/posix/PosixDescriptor.h"

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

/// Where it is not known, so much that it never pays.
std::uint64_t unwrittenBytes() {
  const Descriptor file(::open("/proc/meminfo", O_RDONLY | O_CLOEXEC));
  std::array<char, 4096> text{};  // the line stands far ahead of that
  const ssize_t length = file.isOpen() ? ::read(file.number(), text.data(), text.size()) : -1;
  if (length <= 0) return UINT64_MAX;
  return batchsync::unwrittenBytes({text.data(), static_cast<std::size_t>(length)})
      .value_or(UINT64_MAX);
}

class FileSystemSync final : public BatchSync {
 public:
  FileSystemSync(Descriptor directory, std::string path)
      : directory_(std::move(directory)), path_(std::move(path)) {}

  bool synchronize(std::optional<Error>* error) override {
    return ::syncfs(directory_.number()) == 0 ||
           fail(error, systemError(errno, "synchronize", path_));
  }

 private:
  Descriptor directory_;
  std::string path_;
};

}  // namespace

std::unique_ptr<BatchSync> beginFileSystemSync(std::string_view path, std::size_t files) {
  if (!kernelReportsWriteErrors() || !batchsync::pays(files, 0)) return nullptr;
  std::string name(path);
  if (name.find('\0') != name.npos) return nullptr;
  Descriptor directory(::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory.isOpen() || !isReliable(directory)) return nullptr;
  if (!batchsync::pays(files, unwrittenBytes())) return nullptr;
  return std::make_unique<FileSystemSync>(std::move(directory), std::move(name));
}

}  // namespace kiv

#else

namespace kiv {

std::unique_ptr<BatchSync> beginFileSystemSync(std::string_view, std::size_t) {
  return nullptr;
}

}  // namespace kiv

#endif
