// A disk that records what is written to it, as a FUSE file system of two files:
//
//     kivresource-recorded-disk IMAGE LOG DIRECTORY
//
// DIRECTORY/disk has the contents of IMAGE, for a loop device. Each write to it and each flush (an
// fsync of the loop device) is a record of LOG. So is each write to DIRECTORY/events, to which a
// program reports: before its write returns the record is in the log, after those of everything
// that the disk was told before. Ends when DIRECTORY is unmounted.

#define FUSE_USE_VERSION 31

#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <fuse3/fuse.h>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "Tests/PowerCuts/WriteLog.h"

namespace {

using kiv::powercuts::Record;
using kiv::powercuts::WriteLog;

constexpr std::string_view diskPath = "/disk";
constexpr std::string_view eventsPath = "/events";

int image = -1;
std::optional<WriteLog> writeLog;

/// Zero, or the negative error number that FUSE expects.
int record(Record::Kind kind, off_t offset, std::string_view bytes) {
  try {
    writeLog->append(kind, static_cast<std::uint64_t>(offset), bytes);
    return 0;
  } catch (const std::exception&) {
    return -EIO;
  }
}

int getAttributes(const char* path, struct stat* status, fuse_file_info* /*file*/) {
  *status = {};
  if (path == std::string_view("/")) {
    status->st_mode = S_IFDIR | 0700;
    status->st_nlink = 2;
    return 0;
  }
  if (path != diskPath && path != eventsPath) return -ENOENT;
  struct stat imageStatus {};
  if (::fstat(image, &imageStatus) != 0) return -errno;
  status->st_mode = S_IFREG | 0600;
  status->st_nlink = 1;
  status->st_size = path == diskPath ? imageStatus.st_size : 0;
  return 0;
}

int open(const char* path, fuse_file_info* file) {
  // Each write of an event is to come here at once and as it is.
  file->direct_io = path == eventsPath;
  return 0;
}

int read(const char* path, char* to, size_t size, off_t offset, fuse_file_info* /*file*/) {
  if (path != diskPath) return 0;
  const ssize_t count = ::pread(image, to, size, offset);
  return count < 0 ? -errno : static_cast<int>(count);
}

int write(const char* path, const char* bytes, size_t size, off_t offset, fuse_file_info*) {
  const bool isDisk = path == diskPath;
  if (isDisk && ::pwrite(image, bytes, size, offset) != static_cast<ssize_t>(size)) return -EIO;
  const auto kind = isDisk ? Record::Kind::write : Record::Kind::event;
  const int error = record(kind, isDisk ? offset : 0, {bytes, size});
  return error != 0 ? error : static_cast<int>(size);
}

int synchronize(const char* path, int /*isDataOnly*/, fuse_file_info* /*file*/) {
  return path == diskPath ? record(Record::Kind::flush, 0, {}) : 0;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) {
    std::fputs("usage: kivresource-recorded-disk IMAGE LOG DIRECTORY\n", stderr);
    return 2;
  }
  image = ::open(arguments[1], O_RDWR | O_CLOEXEC);
  if (image < 0) {
    std::perror(arguments[1]);
    return 1;
  }
  try {
    writeLog.emplace(arguments[2]);
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "%s: %s\n", arguments[2], exception.what());
    return 1;
  }
  fuse_operations operations{};
  operations.getattr = getAttributes;
  operations.open = open;
  operations.read = read;
  operations.write = write;
  operations.fsync = synchronize;
  // In the foreground, and on one thread, so that the log has an order.
  std::string foreground = "-f";
  std::string oneThread = "-s";
  std::array<char*, 5> options{arguments[0], foreground.data(), oneThread.data(), arguments[3],
                               nullptr};
  return fuse_main(4, options.data(), &operations, nullptr);
}
