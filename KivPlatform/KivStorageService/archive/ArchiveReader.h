#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivStorageService/archive/ArchiveDirectory.h"

namespace kiv::storage {

/// Decodes the entries of a zip archive. An archive in a file is read, not mapped: if another
/// process truncates the file, that is an error and not a SIGBUS.
class ArchiveReader {
 public:
  /// Receives the next piece of an entry's contents. An error stops reading.
  using Sink = std::function<Status(std::string_view piece)>;

  /// Opens the archive, which must outlive the reader.
  static Result<std::unique_ptr<ArchiveReader>> open(const Archive& archive);

  ArchiveReader(const ArchiveReader&) = delete;
  ArchiveReader& operator=(const ArchiveReader&) = delete;
  ~ArchiveReader();

  [[nodiscard]] std::uint64_t entryCount() const;
  /// The entry's name in UTF-8, converted from code page 437 if necessary.
  [[nodiscard]] std::string name(std::uint64_t index) const;
  /// The unconverted bytes of its name, except that a NUL reads as a space.
  [[nodiscard]] std::string rawName(std::uint64_t index) const;
  /// Decompresses the entry's contents and passes them to the sink in pieces. Fails with the sink's
  /// error, or if the data is corrupt or its checksum does not match.
  Status read(std::uint64_t index, const Sink& sink) const;

 private:
  struct Handle;
  ArchiveReader(const Archive& archive, std::unique_ptr<Handle> handle);

  const Archive& archive_;
  std::unique_ptr<Handle> handle_;
};

}  // namespace kiv::storage
