#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/posix/PosixAccess.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Result.h"

/// Operations on open files and directories.
namespace kiv::posix {

/// Owns a file descriptor; the destructor closes it.
class Descriptor {
 public:
  explicit Descriptor(int number) noexcept : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  [[nodiscard]] int number() const noexcept { return number_; }
  [[nodiscard]] bool isOpen() const noexcept { return number_ >= 0; }
  int release() noexcept { return std::exchange(number_, -1); }

 private:
  int number_;
};

/// A path as a C string for system calls. A path that contains a NUL is not valid, because the
/// calls would see only the part before it.
class SystemPath {
 public:
  explicit SystemPath(std::string_view path) : path_(path) {}
  [[nodiscard]] bool isValid() const { return path_.find('\0') == std::string::npos; }
  [[nodiscard]] const char* c_str() const noexcept { return path_.c_str(); }

 private:
  std::string path_;
};

/// Opens the file. On failure the descriptor is not open, and errno is set.
Descriptor open(std::string_view path, int flags, mode_t mode = sharedFileMode);

/// Opens a regular file for reading and fills in `status`. Fails if the file is not regular.
Result<Descriptor> openRegularFile(std::string_view path, struct stat& status);

/// Waits until the file's contents, or the directory's entries, are on the disk. Returns zero, or
/// -1 with errno set.
int synchronize(int descriptor);

std::unique_ptr<WritableFile> writableFile(Descriptor file, std::string_view path);
Result<std::unique_ptr<MappedFile>> mapFile(std::string_view path);
Result<Data> readFile(std::string_view path);

/// The names in the open directory, without "." and ".."; nothing, with errno set, on failure.
std::optional<std::vector<std::string>> namesInDirectory(Descriptor directory);
/// The names of the regular files among its first `mostEntries` entries, by the type that the
/// directory records. Fails in the same way.
std::optional<std::vector<std::string>> regularFilesInDirectory(Descriptor directory,
                                                                std::size_t mostEntries);

}  // namespace kiv::posix
