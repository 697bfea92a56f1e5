#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/values/Error.h"

class KivResource;

namespace kiv {

class ResourceList;

/// The files of replaced versions that are still to be removed. They stay until a list that does
/// not name them is saved. A pending file must not be found meanwhile: the manager asks here before
/// each question to the disk, and removes the pending files first if they could change the answer.
///
/// Files are compared by their resolved paths, not by the spelling, since a root may be reached
/// through a link in one run and directly in the next, and a file system may ignore case. To be
/// used on the manager's queue.
class PendingRemovals {
 public:
  using FailureHandler = std::function<void(const std::string& path, const Error& error)>;

  /// Adds the file at the path, which `user` has used until now.
  void add(std::string path, std::shared_ptr<const KivResource> user);
  [[nodiscard]] bool empty() const noexcept { return files_.empty(); }

  /// True if a pending removal may remove the item at the path.
  [[nodiscard]] bool affect(std::string_view path) const;
  /// True if a pending removal may remove the file or directory that is about to be saved at the
  /// path, or something that is in its way.
  [[nodiscard]] bool affectSaving(std::string_view path) const;
  /// True if a pending removal may change the results of the resource's file operations.
  [[nodiscard]] bool affect(const KivResource& resource) const;

  /// Removes the files that no other resource of the registry uses now, in the order in which they
  /// were added. Afterwards nothing is pending. Failures are passed to the handler, if there is
  /// one.
  void removeUnused(const ResourceList& registry, const FailureHandler& onFailure = {});
  /// Keeps the files that were added for this resource, which is in use again.
  void keepFilesOf(const KivResource& user);
  /// Forgets what is pending; the files stay on disk.
  void clear();

 private:
  /// True if the resolved path, or a directory above it, may be removed.
  [[nodiscard]] bool mayTakeAway(std::string_view place) const;

  struct File {
    std::string path;
    std::shared_ptr<const KivResource> user;
  };

  std::vector<File> files_;
  std::set<std::string, std::less<>> paths_;
  /// Every resolved path of the items that will be removed, folded: where case matters, affect()
  /// may be true once too often.
  std::set<std::string, std::less<>> places_;
};

}  // namespace kiv
