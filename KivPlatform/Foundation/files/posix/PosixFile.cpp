// Operations on open descriptors.
//
// Calls that a signal may interrupt (EINTR) are repeated. Files are opened for reading with
// O_NONBLOCK, and fstat then checks their type: opening a FIFO must not hang.

#include "KivPlatform/Foundation/files/posix/PosixFile.h"

#include <cerrno>
#include <dirent.h>
#include <exception>
#include <fcntl.h>
#include <limits>
#include <sys/mman.h>

namespace kiv::posix {

namespace {

class PosixWritableFile final : public WritableFile {
 public:
  PosixWritableFile(Descriptor descriptor, std::string_view path)
      : descriptor_(std::move(descriptor)), path_(path) {}

  Status write(std::string_view bytes) override {
    while (!bytes.empty()) {
      const ssize_t written = ::write(descriptor_.number(), bytes.data(), bytes.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) return systemError(errno, "write", path_);
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return {};
  }

  Status synchronize() override {
    if (posix::synchronize(descriptor_.number()) == 0) return {};
    return systemError(errno, "synchronize", path_);
  }

  Status close() override {
    if (::close(descriptor_.release()) == 0) return {};
    return systemError(errno, "close", path_);
  }

 private:
  Descriptor descriptor_;
  std::string path_;
};

class PosixMappedFile final : public MappedFile {
 public:
  PosixMappedFile(Descriptor descriptor, std::string_view bytes, std::string_view path)
      : descriptor_(std::move(descriptor)), bytes_(bytes), path_(path) {}
  PosixMappedFile(const PosixMappedFile&) = delete;
  PosixMappedFile& operator=(const PosixMappedFile&) = delete;
  ~PosixMappedFile() override {
    if (!bytes_.empty()) ::munmap(const_cast<char*>(bytes_.data()), bytes_.size());
  }
  [[nodiscard]] std::string_view bytes() const noexcept override { return bytes_; }

  Status copyBytes(std::uint64_t offset, char* to, std::size_t count) const override {
    if (offset > bytes_.size() || count > bytes_.size() - offset) {
      return systemError(EINVAL, "read", path_);
    }
    for (auto place = static_cast<off_t>(offset); count > 0;) {
      const ssize_t copied = ::pread(descriptor_.number(), to, count, place);
      if (copied < 0 && errno == EINTR) continue;
      // End of file before the end of the mapping: another process has truncated the file.
      if (copied <= 0) return systemError(copied < 0 ? errno : EIO, "read", path_);
      to += copied;
      place += copied;
      count -= static_cast<std::size_t>(copied);
    }
    return {};
  }

 private:
  const Descriptor descriptor_;
  const std::string_view bytes_;
  const std::string path_;
};

/// The rest of the file; nothing, with errno set, on failure.
std::optional<std::string> readToEnd(const Descriptor& file, std::size_t expectedSize) {
  try {
    // One extra byte, so that the read that detects the end of file needs no larger buffer.
    std::string bytes(expectedSize + 1, '\0');
    std::size_t length = 0;
    while (true) {
      const ssize_t count = ::read(file.number(), bytes.data() + length, bytes.size() - length);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return std::nullopt;
      if (count == 0) break;
      length += static_cast<std::size_t>(count);
      if (length == bytes.size()) bytes.resize(2 * length);
    }
    bytes.resize(length);
    return bytes;
  } catch (const std::exception&) {  // the file is larger than memory or than a string can be
    errno = ENOMEM;
    return std::nullopt;
  }
}

/// The names of the wanted entries among the first ones.
template <class Wanted>
std::optional<std::vector<std::string>> namesOfEntries(Descriptor directory,
                                                       std::size_t mostEntries,
                                                       const Wanted& isWanted) {
  DIR* const stream = ::fdopendir(directory.number());
  if (!stream) return std::nullopt;
  directory.release();  // the stream owns it now
  std::vector<std::string> names;
  int number = 0;
  while (mostEntries > 0) {
    errno = 0;  // distinguishes the end from an error
    const dirent* const entry = ::readdir(stream);
    number = errno;
    if (!entry) break;
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    --mostEntries;
    if (isWanted(*entry)) names.emplace_back(name);
  }
  ::closedir(stream);
  errno = number;
  if (number != 0) return std::nullopt;
  return names;
}

}  // namespace

Descriptor open(std::string_view path, int flags, mode_t mode) {
  const SystemPath systemPath(path);
  if (!systemPath.isValid()) {
    errno = EINVAL;
    return Descriptor(-1);
  }
  int number = -1;
  do {
    number = ::open(systemPath.c_str(), flags | O_CLOEXEC, mode);
  } while (number < 0 && errno == EINTR);
  return Descriptor(number);
}

Result<Descriptor> openRegularFile(std::string_view path, struct stat& status) {
  Descriptor file = open(path, O_RDONLY | O_NONBLOCK);
  if (!file.isOpen() || ::fstat(file.number(), &status) != 0) {
    return systemError(errno, "open", path);
  }
  if (S_ISREG(status.st_mode)) return file;
  return systemError(S_ISDIR(status.st_mode) ? EISDIR : EINVAL, "read", path);
}

/// On macOS fsync does not flush the drive's cache, but F_FULLFSYNC does.
int synchronize(int descriptor) {
#if defined(__APPLE__)
  if (::fcntl(descriptor, F_FULLFSYNC) == 0) return 0;
#endif
  return ::fsync(descriptor);
}

std::unique_ptr<WritableFile> writableFile(Descriptor file, std::string_view path) {
  return std::make_unique<PosixWritableFile>(std::move(file), path);
}

Result<std::unique_ptr<MappedFile>> mapFile(std::string_view path) {
  struct stat status {};
  auto file = openRegularFile(path, status);
  if (!file) return file.error();
  const auto size = static_cast<std::size_t>(status.st_size);
  if (size == 0) {
    return std::make_unique<PosixMappedFile>(std::move(*file), std::string_view(), path);
  }
  void* const start = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, file->number(), 0);
  if (start == MAP_FAILED) return systemError(errno, "map", path);
  const std::string_view bytes(static_cast<char*>(start), size);
  return std::make_unique<PosixMappedFile>(std::move(*file), bytes, path);
}

Result<Data> readFile(std::string_view path) {
  struct stat status {};
  const auto file = openRegularFile(path, status);
  if (!file) return file.error();
  auto bytes = readToEnd(*file, static_cast<std::size_t>(status.st_size));
  if (!bytes) return systemError(errno, "read", path);
  return Data(std::move(*bytes));
}

std::optional<std::vector<std::string>> namesInDirectory(Descriptor directory) {
  constexpr auto all = std::numeric_limits<std::size_t>::max();
  return namesOfEntries(std::move(directory), all, [](const dirent&) { return true; });
}

std::optional<std::vector<std::string>> regularFilesInDirectory(Descriptor directory,
                                                                std::size_t mostEntries) {
  return namesOfEntries(std::move(directory), mostEntries,
                        [](const dirent& entry) { return entry.d_type == DT_REG; });
}

}  // namespace kiv::posix
