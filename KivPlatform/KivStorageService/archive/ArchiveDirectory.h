#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivStorageService/ArchiveLimits.h"

namespace kiv::storage {

/// An archive that is being unpacked, and its limits.
struct Archive {
  const Data& data;
  std::string_view name;  ///< For error messages.
  const ArchiveLimits& limits;

  /// The error for a rejected archive. `problem` completes a sentence whose subject is the
  /// archive: "is cut short".
  [[nodiscard]] Error refusal(std::string_view problem) const;
  /// The same for an archive that is rejected because of one entry. `rule` completes a clause that
  /// begins with "which": "is encrypted".
  [[nodiscard]] Error refusal(std::string_view entryName, std::string_view rule) const;
};

/// One entry of the central directory, not yet checked.
struct ArchiveEntry {
  std::string rawName;  ///< Bytes of unknown encoding.
  std::uint16_t flags = 0;
  std::uint16_t method = 0;
  std::uint64_t packedSize = 0;
  std::uint64_t size = 0;
  std::uint64_t headerOffset = 0;
  std::uint32_t attributes = 0;

  [[nodiscard]] bool isEncrypted() const noexcept;
  /// True if the entry is stored or deflated.
  [[nodiscard]] bool hasKnownMethod() const noexcept;
  /// True if the entry's flags declare a UTF-8 name.
  [[nodiscard]] bool saysUTF8() const noexcept;
  /// The file type bits of the Unix mode, or zero if there are none.
  [[nodiscard]] std::uint32_t unixFileType() const noexcept;
  [[nodiscard]] bool isDirectory() const noexcept { return rawName.ends_with('/'); }
};

/// Parses the central directory and checks it against the layout of the archive: there is exactly
/// one, and it ends where the end record begins. The local headers and the data precede it and do
/// not overlap. Each entry's name is unique, and the same in its local header.
///
/// libzip parses it again, but accepts entries that share data and NULs in names, which it turns
/// into spaces. This check also bounds the memory that libzip uses: libzip would read the central
/// directory of a second end record hidden in a comment, regardless of its size.
class ArchiveDirectory {
 public:
  /// The limit on the bytes of the central directory, which is held in memory here and in libzip.
  /// An entry of a typical archive takes 100 to 200 bytes.
  static constexpr std::uint64_t longestList = std::uint64_t{8} << 20;

  /// Fails if a check fails or the archive cannot be read.
  static Result<ArchiveDirectory> read(const Archive& archive);

  [[nodiscard]] const std::vector<ArchiveEntry>& entries() const noexcept { return entries_; }

 private:
  std::vector<ArchiveEntry> entries_;
};

}  // namespace kiv::storage
