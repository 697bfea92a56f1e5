#pragma once

#include <cstdint>

namespace kiv {

/// Limits on the contents of one archive. An archive that exceeds any of them is rejected as a
/// whole (KivStorageServiceErrorCode::invalidArchive), and nothing of it is left on the disk. The
/// sizes that the archive declares are checked before anything is written. Since they may be false,
/// the actual sizes are checked again during unpacking.
struct ArchiveLimits {
  /// Entries in the central directory, files and directories alike.
  std::uint64_t entries = 10'000;
  /// Files and directories that unpacking would create, including parent directories that have no
  /// entry in the archive.
  std::uint64_t items = 20'000;
  /// Path components of one entry: "a/b/c.png" has three.
  std::uint64_t levels = 32;
  /// Bytes in one path component, and in the whole path of one entry.
  std::uint64_t nameBytes = 255;
  std::uint64_t pathBytes = 2048;
  /// Unpacked bytes of one file, and of all files together.
  std::uint64_t fileBytes = std::uint64_t{512} << 20;
  std::uint64_t totalBytes = std::uint64_t{1} << 30;
  /// Compression ratio (unpacked bytes per packed byte) of one file and of the whole archive. It is
  /// not checked for the first `ratioFreeBytes` unpacked bytes: a short file of blanks may compress
  /// to almost nothing.
  std::uint64_t ratio = 200;
  std::uint64_t ratioFreeBytes = std::uint64_t{10} << 20;
};

}  // namespace kiv
