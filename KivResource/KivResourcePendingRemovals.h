#pragma once

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

class KivResource;

namespace kiv {

class ResourceList;

/// The files of replaced versions that are still to be removed. They stay until a list is saved
/// that does not name them, and meanwhile nobody may see them: before a question to the disk whose
/// answer they could change, they are removed.
///
/// Files are told apart by what the system makes of their paths, not by the spelling, since a root
/// may be reached through a link in one run and directly in the next. Used on the manager's queue.
class PendingRemovals {
 public:
  /// Adds the file at the path, which `user` has used so far.
  void add(std::string path, std::shared_ptr<const KivResource> user);
  [[nodiscard]] bool empty() const noexcept { return files_.empty(); }

  /// True if a removal may take away what lies at the path.
  [[nodiscard]] bool affect(std::string_view path) const;
  /// True if a removal may take away what is about to be saved at the path, a file or a
  /// directory, or what stands in its way.
  [[nodiscard]] bool affectSaving(std::string_view path) const;
  /// True if a removal may change what the resource answers about its files.
  [[nodiscard]] bool affect(const KivResource& resource) const;

  /// Removes the files that no other resource of the registry uses now, in the order of adding, and
  /// forgets all. Failures are ignored.
  void removeUnused(const ResourceList& registry);
  /// Keeps the files that only this resource has used so far: it is in use again.
  void keepFilesOf(const KivResource& user);
  /// Keeps the files: what was to be removed stays on the disk.
  void clear();

 private:
  /// True if the place, without links on the way, or a directory above it will be removed.
  [[nodiscard]] bool takeAway(std::string_view place) const;

  struct File {
    std::string path;
    std::shared_ptr<const KivResource> user;
  };

  std::vector<File> files_;
  std::set<std::string, std::less<>> paths_;
  /// Where the items lie that will be removed, by every resolved path that leads there.
  std::set<std::string, std::less<>> places_;
};

}  // namespace kiv
