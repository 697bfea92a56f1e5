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
/// process truncates the file, that is an error and not a crash.
class ArchiveReader {
 public:
  /// Takes a piece of an entry's contents. An error ends the reading.
  using Sink = std::function<Status(std::string_view piece)>;

  /// A reader for the archive, which must outlive it.
  static Result<std::unique_ptr<ArchiveReader>> open(const Archive& archive);

  ArchiveReader(const ArchiveReader&) = delete;
  ArchiveReader& operator=(const ArchiveReader&) = delete;
  ~ArchiveReader();

  [[nodiscard]] std::uint64_t entryCount() const;
  /// The entry's name in UTF-8, converted from code page 437 if need be.
  [[nodiscard]] std::string name(std::uint64_t index) const;
  /// The bytes of its name as they stand in the archive, except that a NUL reads as a space.
  [[nodiscard]] std::string rawName(std::uint64_t index) const;
  /// Decodes the entry's contents to the sink, piece by piece. Fails with the sink's error, or if
  /// the contents cannot be decoded or have another checksum.
  Status read(std::uint64_t index, const Sink& sink) const;

 private:
  struct Handle;
  ArchiveReader(const Archive& archive, std::unique_ptr<Handle> handle);

  const Archive& archive_;
  std::unique_ptr<Handle> handle_;
};

}  // namespace kiv::storage
