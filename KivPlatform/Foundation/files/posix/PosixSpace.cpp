#include "KivPlatform/Foundation/files/posix/PosixSpace.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <utility>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/files/posix/PosixDescriptor.h"

namespace kiv::posix {

namespace {

constexpr std::uint64_t bytesOfBlock = 512;  // whatever the file system's own blocks are

std::uint64_t ownSize(const struct stat& status) {
  return static_cast<std::uint64_t>(status.st_blocks) * bytesOfBlock;
}

}  // namespace

std::optional<std::uint64_t> sizeOnDisk(const std::string& path, const struct stat& status) {
  if (!S_ISDIR(status.st_mode)) return ownSize(status);
  Descriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!directory.isOpen()) return std::nullopt;
  const auto names = namesInDirectory(std::move(directory));
  if (!names) return std::nullopt;
  std::uint64_t size = ownSize(status);
  for (const std::string& name : *names) {
    const std::string item = path::appendingPathComponent(path, name);
    struct stat itemStatus {};
    if (::lstat(item.c_str(), &itemStatus) != 0) {
      if (errno == ENOENT) continue;  // removed since the directory was listed
      return std::nullopt;
    }
    const auto itemSize = sizeOnDisk(item, itemStatus);
    if (!itemSize) return std::nullopt;
    size += *itemSize;
  }
  return size;
}

std::optional<FileSystemSpace> spaceOfFileSystem(std::string_view path) {
  struct statvfs status {};
  while (::statvfs(std::string(path).c_str(), &status) != 0) {
    const std::string_view above = path::deletingLastPathComponent(path);
    if (errno != ENOENT || above.size() >= path.size() || above.empty()) return std::nullopt;
    path = above;
  }
  if (status.f_blocks == 0) {  // a file system that keeps no account
    errno = ENOTSUP;
    return std::nullopt;
  }
  const std::uint64_t block = status.f_frsize;
  return FileSystemSpace{(status.f_blocks - status.f_bfree) * block, status.f_bavail * block};
}

}  // namespace kiv::posix
