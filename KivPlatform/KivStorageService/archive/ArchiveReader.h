#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/values/Data.h"

namespace kiv::storage {

/// Decodes the entries of a zip archive. An archive in a file is read, not mapped: if another
/// process truncates the file, that is an error and not a crash.
class ArchiveReader {
 public:
  /// Takes a piece of an entry's contents; false ends the reading.
  using Sink = std::function<bool(std::string_view piece)>;

  enum class Outcome {
    complete,  ///< All bytes came and their checksum is right.
    stopped,   ///< The sink wanted no more.
    broken     ///< The bytes cannot be decoded, or are not what the checksum says.
  };

  /// A reader for the archive; nullptr and a reason if it cannot be read.
  static std::unique_ptr<ArchiveReader> open(const Data& archive, std::string& reason);

  ArchiveReader(const ArchiveReader&) = delete;
  ArchiveReader& operator=(const ArchiveReader&) = delete;
  ~ArchiveReader();

  [[nodiscard]] std::uint64_t entryCount() const;
  /// The entry's name in UTF-8, converted from code page 437 if need be.
  [[nodiscard]] std::string name(std::uint64_t index) const;
  /// The bytes of its name as they stand in the archive, except that a NUL reads as a space.
  [[nodiscard]] std::string rawName(std::uint64_t index) const;
  /// Decodes the entry's contents to the sink, piece by piece.
  Outcome read(std::uint64_t index, const Sink& sink, std::string& reason) const;

 private:
  struct Handle;
  explicit ArchiveReader(std::unique_ptr<Handle> handle);

  std::unique_ptr<Handle> handle_;
};

}  // namespace kiv::storage
