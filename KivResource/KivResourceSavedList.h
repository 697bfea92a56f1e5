#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/Foundation/values/Value.h"
#include "KivResource/KivResourceListMerge.h"

namespace kiv {

/// The saved list as one manager knows it: what it last read or wrote of it, and what keeps it from
/// being read or written. On the manager's queue alone.
///
/// A list that is there and cannot be read is in doubt: what it names is not known to be unused. It
/// is read again before it is replaced, and a list that still cannot be read is set aside first.
class SavedList {
 public:
  /// Appends to the registry the resources of the list whose files are there. A list that is not
  /// there has none, and neither has one that is in doubt from now on.
  void restore(ResourceList& registry);

  /// Why the list could not be read, as long as it is in doubt.
  [[nodiscard]] const std::optional<Error>& doubt() const noexcept { return doubt_; }
  /// Why the list could not be saved the last time; nothing if it was, or was never to be.
  [[nodiscard]] const std::optional<Error>& lastSaveError() const noexcept {
    return lastSaveError_;
  }

  /// What merges have done to the registry since the last call.
  ListMerge takeMerge();

  /// The scope in which the list is changed, and files are removed that it does not name any more:
  /// as long as it lives, no other process is in such a scope on this root. Its beginning brings
  /// the registry up to a list on the disk that is in doubt, or that another process has written.
  /// It waits for another process, for some seconds at most; after that nothing can be saved in it.
  /// Where the file system has no locks, it goes without. Not two at a time on one thread.
  class Access {
   public:
    Access(SavedList& list, ResourceList& registry);
    Access(const Access&) = delete;
    Access& operator=(const Access&) = delete;

    /// Writes the dictionaries of the registry as the list.
    bool save();
    /// True if no entry of the list on the disk is unknown to the registry, so that files which
    /// the registry does not use may be removed.
    [[nodiscard]] bool isCurrent() const noexcept { return !refusal_ && !list_.doubt_; }

   private:
    SavedList& list_;
    ResourceList& registry_;
    std::optional<Error> refusal_;  ///< Where another process keeps the lock.
    const std::unique_ptr<FileLock> lock_;
  };

 private:
  /// The list on the disk; nothing if there is none, or if it is in doubt then.
  std::optional<Array> read();
  void identify();
  void catchUp(ResourceList& registry);
  void note(ListMerge merge);
  void keepTaken(ResourceList& registry);
  std::unique_ptr<FileLock> lock(std::optional<Error>& refusal);
  [[nodiscard]] bool isToBeRead() const;
  bool write(const Array& dictionaries, std::optional<Error>* error);
  void logUnwritable(const ResourceList& registry);
  bool replaceUnreadable(const Array& dictionaries, std::optional<Error>* error);

  Array base_;                            ///< As last read or written.
  std::optional<FileIdentity> identity_;  ///< Of the file then; nothing if there was none.
  /// Keeps that file's number from being given to a newer list while somebody compares identities.
  std::unique_ptr<MappedFile> held_;
  bool isPatient_ = true;  ///< Another process did not keep the lock for too long the last time.
  std::optional<Error> doubt_;
  std::optional<Error> lastSaveError_;
  ListMerge merge_;
  using ResourceSet = std::set<std::weak_ptr<KivResource>, std::owner_less<>>;
  ResourceSet unwritable_;  ///< Those that keep the list from being written, and are in the log.
  /// What came by merges and is in the registry still, the newest with each identifier.
  std::map<std::string, std::shared_ptr<KivResource>> taken_;
};

}  // namespace kiv
