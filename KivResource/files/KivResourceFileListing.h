#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/files/FileManager.h"

namespace kiv {

/// Files of the resources directory that are known to be there, so that the disk need not be asked
/// about each. To be used on one thread at a time.
///
/// Only regular files are known. About anything else (a missing entry, a link, another directory)
/// the disk is asked, so a listing need not be complete.
class FileListing {
 public:
  /// An empty listing.
  FileListing() = default;
  /// A listing of one regular file, which was stored just now.
  explicit FileListing(std::string_view path);

  /// The listing to use for so many resources: this one, if the directory has not changed since it
  /// was listed. Otherwise, and for a few resources, an empty one: asking the disk takes less time.
  [[nodiscard]] const FileListing& ifUnchanged(std::size_t resources);
  /// The same after a directory that has changed, or was not listed yet, is listed. No more entries
  /// of it are read than take the time of a question for each resource.
  [[nodiscard]] const FileListing& refreshed(std::size_t resources);

  /// As long as one lives, isFileAtPath() on this thread answers from the listing.
  class Use {
   public:
    explicit Use(const FileListing& listing);
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    ~Use();

   private:
    const FileListing* const former_;
  };

  /// True if the listing in use has a regular file at the path.
  [[nodiscard]] static bool isFileAtPath(std::string_view path);

 private:
  [[nodiscard]] bool isCurrent() const;
  void list(std::size_t mostEntries);
  [[nodiscard]] bool hasFileAtPath(std::string_view path) const;

  std::string directory_;
  std::vector<std::string> names_;  ///< Sorted.
  /// Of the directory before it was listed; nothing if a later change might not show in it.
  std::optional<FileIdentity> identity_;
};

}  // namespace kiv
