#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kiv::storage {

/// One file or directory that unpacking would make.
struct ArchiveNode {
  std::string name;
  /// The entry whose contents the file has; nothing for a directory.
  std::optional<std::uint64_t> entry;
  /// What the directory holds, by folded name.
  std::map<std::u32string, std::unique_ptr<ArchiveNode>> children;

  [[nodiscard]] bool isDirectory() const noexcept { return !entry.has_value(); }
  /// The child of exactly that name, or nullptr.
  [[nodiscard]] const ArchiveNode* child(std::string_view childName) const;
};

/// What an archive would look like unpacked, on any file system: no two entries for one path, also
/// where the file system takes two spellings for one, and no file where a directory stands.
class ArchiveTree {
 public:
  explicit ArchiveTree(std::uint64_t mostItems) : mostItems_(mostItems) {}

  /// Adds a file or directory under a path whose components are harmless, and the directories
  /// above it. An answer is an objection that goes on after "which".
  std::optional<std::string> addFile(std::string_view path, std::uint64_t entry);
  std::optional<std::string> addDirectory(std::string_view path);

  /// The directory whose contents the unpacked archive has at its top: where a single folder that
  /// holds the entry page is all that the archive has there, that folder.
  [[nodiscard]] const ArchiveNode& top(std::string_view entryPage) const;

 private:
  std::optional<std::string> add(std::string_view path, std::optional<std::uint64_t> entry);

  ArchiveNode root_;
  std::uint64_t items_ = 0;
  std::uint64_t mostItems_;
};

}  // namespace kiv::storage
