#pragma once

#include <cstdint>

namespace kiv {

/// How much one archive may hold. What goes beyond any of these is refused as a whole, and nothing
/// of it stays on the disk. Checked against what the archive says of itself before anything is
/// written, and again, because that may be a lie, against what comes out while it is written.
struct ArchiveLimits {
  /// Entries that the archive lists, files and directories alike.
  std::uint64_t entries = 10'000;
  /// Files and directories that unpacking would make, with the directories that the archive does
  /// not list but its files lie in.
  std::uint64_t items = 20'000;
  /// Components of one entry's path: "a/b/c.png" has three.
  std::uint64_t levels = 32;
  /// Bytes of one component's name, and of one entry's whole path.
  std::uint64_t nameBytes = 255;
  std::uint64_t pathBytes = 2048;
  /// Unpacked bytes of one file, and of all files together.
  std::uint64_t fileBytes = std::uint64_t{512} << 20;
  std::uint64_t totalBytes = std::uint64_t{1} << 30;
  /// Unpacked bytes for each packed one, of one file and of the whole archive, once more than
  /// `ratioFreeBytes` were unpacked: a short file of blanks may pack as well as it likes.
  std::uint64_t ratio = 200;
  std::uint64_t ratioFreeBytes = std::uint64_t{10} << 20;
};

}  // namespace kiv
