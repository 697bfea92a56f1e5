#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KivPlatform/KivStorageService/ArchiveLimits.h"
#include "KivPlatform/KivStorageService/archive/ArchiveDirectory.h"

/// The rules for archive entries: which are valid, and which conflict with each other. A check
/// returns nothing for a valid entry. Otherwise it returns what is wrong, as the end of a clause
/// that begins with "which".
namespace kiv::storage {

/// The entry's path: its name without leading "./", which some archivers write, and without the
/// trailing "/" of a directory. Empty for "./" itself.
std::string_view pathOfEntryName(std::string_view name);

/// True for the "__MACOSX" entries that macOS adds to archives. They are checked but not unpacked.
bool isLeftOut(std::string_view name);

/// Checks the name (UTF-8). Rejects names that lead out of the target directory on this or another
/// operating system, that some file system does not allow, or that exceed the limits.
std::optional<std::string> validateEntryName(std::string_view name, const ArchiveLimits& limits);

/// Checks everything but the name. Rejects an encrypted entry, an unknown compression method, a
/// link or a device, a directory with contents, and a declared size that exceeds the limits.
std::optional<std::string> validateEntryKind(const ArchiveEntry& entry,
                                             const ArchiveLimits& limits);

/// A file or directory of the unpacked archive.
struct ArchiveNode {
  std::string name;
  /// The index of a file's entry; nothing for a directory.
  std::optional<std::uint64_t> entry;
  /// A directory's items by folded name.
  std::map<std::u32string, std::unique_ptr<ArchiveNode>> children;

  [[nodiscard]] bool isDirectory() const noexcept { return !entry.has_value(); }
  /// The child with exactly that name, or nullptr.
  [[nodiscard]] const ArchiveNode* child(std::string_view childName) const;
};

/// The unpacked archive as a tree without conflicts on any file system. No two entries have the
/// same path, even if the file system ignores case or normalizes names, and no path is both a file
/// and a directory.
class ArchiveTree {
 public:
  explicit ArchiveTree(std::uint64_t mostItems) : mostItems_(mostItems) {}

  /// Adds a file or directory with its parents, unless it conflicts with an earlier one. The path's
  /// components must be valid.
  std::optional<std::string> addFile(std::string_view path, std::uint64_t entry);
  std::optional<std::string> addDirectory(std::string_view path);

  /// The directory whose contents are unpacked: the archive's only top-level folder if it holds the
  /// entry page, otherwise the root.
  [[nodiscard]] const ArchiveNode& top(std::string_view entryPage) const;

 private:
  std::optional<std::string> add(std::string_view path, std::optional<std::uint64_t> entry);

  ArchiveNode root_;
  std::uint64_t items_ = 0;
  std::uint64_t mostItems_;
};

}  // namespace kiv::storage
