#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivStorageService/ArchiveLimits.h"

namespace kiv::storage {

/// An archive that is being unpacked, and what it may hold.
struct Archive {
  const Data& data;
  std::string_view name;  ///< For the messages.
  const ArchiveLimits& limits;

  /// The error of an archive that is rejected. `objection` ends a sentence that begins with the
  /// archive: "is cut short".
  [[nodiscard]] Error refusal(std::string_view objection) const;
  /// The same because of one entry. `rule` follows "which": "is encrypted".
  [[nodiscard]] Error refusal(std::string_view entryName, std::string_view rule) const;
};

/// One entry of the archive's central directory, as it stands there.
struct ArchiveEntry {
  std::string rawName;  ///< Not yet known to be text.
  std::uint16_t flags = 0;
  std::uint16_t method = 0;
  std::uint64_t packedSize = 0;
  std::uint64_t size = 0;
  std::uint64_t headerOffset = 0;
  std::uint32_t attributes = 0;

  [[nodiscard]] bool isEncrypted() const noexcept;
  /// True if the entry is flagged as having a UTF-8 name.
  [[nodiscard]] bool saysUTF8() const noexcept;
  /// The type bits of a Unix mode, or zero if there are none.
  [[nodiscard]] std::uint32_t unixFileType() const noexcept;
  [[nodiscard]] bool isDirectory() const noexcept { return rawName.ends_with('/'); }
};

/// Reads the central directory and checks it against the layout of the archive: there is one, which
/// ends where the end record says; the local headers and the data lie before it without overlap;
/// each entry has the same, unique name in both places.
///
/// libzip reads it again, but accepts NULs in names, which it turns into spaces, and entries that
/// share data. This check also bounds the memory that libzip uses: it would read the directory of a
/// second end record hidden in a comment, however long that is.
class ArchiveDirectory {
 public:
  /// The limit on the bytes of the central directory, which is held in memory here and in libzip.
  /// An entry of an ordinary archive takes 100 to 200.
  static constexpr std::uint64_t longestList = std::uint64_t{8} << 20;

  /// Fails if the entries cannot be trusted.
  static Result<ArchiveDirectory> read(const Archive& archive);

  [[nodiscard]] const std::vector<ArchiveEntry>& entries() const noexcept { return entries_; }

 private:
  std::vector<ArchiveEntry> entries_;
};

}  // namespace kiv::storage
