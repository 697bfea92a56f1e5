#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/KivStorageService/ArchiveLimits.h"

namespace kiv::storage {

/// Why an archive is refused, as an end of a sentence that begins with the archive's name: "is cut
/// short", "holds the entry \"a\", which is encrypted".
using ArchiveObjection = std::string;

/// The objection to one entry: `rule` goes on after "which".
ArchiveObjection entryObjection(std::string_view name, std::string_view rule);

/// What an archive says of one entry, as it stands in the archive.
struct ArchiveEntry {
  std::string rawName;  ///< Not yet known to be text.
  std::uint16_t flags = 0;
  std::uint16_t method = 0;
  std::uint64_t packedSize = 0;
  std::uint64_t size = 0;
  std::uint64_t headerOffset = 0;
  std::uint32_t attributes = 0;

  [[nodiscard]] bool isEncrypted() const noexcept;
  /// True where the archive promises that the name is UTF-8.
  [[nodiscard]] bool saysUTF8() const noexcept;
  /// The type bits of a Unix mode, or zero where the archive gives none.
  [[nodiscard]] std::uint32_t unixFileType() const noexcept;
  [[nodiscard]] bool isDirectory() const noexcept { return rawName.ends_with('/'); }
};

/// Reads an archive's list of entries byte by byte, and checks it against the archive's own layout:
/// one list, which ends where the end record says, each entry's header and data before it, none
/// overlapping another, each named alike in both places and only once.
///
/// The decoder reads the list again. This reading shows what the decoder does not: a NUL in a name,
/// which it turns into a space, and data that two entries share, which it takes. And it bounds what
/// the decoder reads into memory: of a second end record, which a comment can hold, the decoder
/// would read the list as well, however long that is.
class ArchiveDirectory {
 public:
  /// The longest list that is read, in bytes, with the extra fields and the comments of its
  /// entries. An entry of an ordinary archive takes 100 to 200. The list lies in memory, here and
  /// in the decoder.
  static constexpr std::uint64_t longestList = std::uint64_t{8} << 20;

  /// The list of the archive; nothing and an objection where it cannot be trusted.
  static std::optional<ArchiveDirectory> read(const Data& archive, const ArchiveLimits& limits,
                                              ArchiveObjection& objection);

  [[nodiscard]] const std::vector<ArchiveEntry>& entries() const noexcept { return entries_; }

 private:
  std::vector<ArchiveEntry> entries_;
};

}  // namespace kiv::storage
