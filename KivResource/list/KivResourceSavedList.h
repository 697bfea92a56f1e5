#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/Foundation/values/Value.h"
#include "KivResource/files/KivResourceFileListing.h"
#include "KivResource/list/KivResourceListLock.h"
#include "KivResource/list/KivResourceListMerge.h"

namespace kiv {

/// The saved list as one manager knows it: its contents when it was last read or written, and the
/// errors that keep it from being read or written. To be used on the manager's queue alone.
///
/// A list that exists and cannot be read is in doubt: the files that it names may be in use. Before
/// such a list is replaced it is read again, and if that fails it is set aside under another name.
class SavedList {
 public:
  /// Appends to the registry the resources of the list whose files are there, which the listing may
  /// tell. There are none if there is no list, or if it cannot be read and is in doubt from now on.
  void restore(ResourceList& registry, FileListing& listing);

  /// Why the list could not be read, as long as it is in doubt.
  [[nodiscard]] const std::optional<Error>& doubt() const noexcept { return doubt_; }
  /// Why the list could not be saved the last time; nothing after a success, or before any save.
  [[nodiscard]] const std::optional<Error>& lastSaveError() const noexcept {
    return lastSaveError_;
  }

  /// To be called for a resource that the host removes: it is not put back in place of an older
  /// version.
  void forget(const KivResource& resource);

  /// What merges have done to the registry since the last call.
  ListMerge takeMerge();

  /// The scope in which the list is changed and files that it does not name any more are removed.
  /// While it lives, no other process is in such a scope on this root. It begins with a merge, if
  /// the list was in doubt or another process has written it. It waits for another process, for
  /// some seconds at most; after that nothing can be saved in it. On a file system without locks it
  /// has none. A thread may have only one at a time.
  class Access {
   public:
    Access(SavedList& list, ResourceList& registry);
    Access(const Access&) = delete;
    Access& operator=(const Access&) = delete;

    /// Writes the dictionaries of the registry as the list.
    bool save();
    /// The same, unless the list on the disk is the same already.
    bool saveIfChanged();
    /// True if no entry of the list on the disk is unknown to the registry, so that files which
    /// the registry does not use may be removed.
    [[nodiscard]] bool isCurrent() const noexcept { return lock_ && !list_.doubt_; }

   private:
    bool save(bool evenIfSame);

    SavedList& list_;
    ResourceList& registry_;
    const ListLock::Taken lock_;  ///< An error if another process holds it.
  };

 private:
  /// The list on the disk; nothing if there is none, or if it cannot be read and is now in doubt.
  std::optional<Array> read();
  void readAtStart();
  void identify();
  void catchUp(ResourceList& registry);
  void note(ListMerge merge);
  void keepTaken(ResourceList& registry);
  [[nodiscard]] bool isToBeRead() const;
  [[nodiscard]] bool isSaved(const Array& dictionaries) const;
  Status write(const Array& dictionaries);
  void logUnwritable(const ResourceList& registry);
  Status replaceUnreadable(const Array& dictionaries);

  Array base_;                            ///< As last read or written.
  std::optional<FileIdentity> identity_;  ///< Of the file then; nothing if there was none.
  /// While it is mapped, the file system does not give the file's number to a newer list, so that
  /// comparing identities tells the two apart.
  std::unique_ptr<MappedFile> held_;
  /// Waits for longer than another process needs to save a very long list.
  ListLock lock_{std::chrono::seconds(5)};
  std::optional<Error> doubt_;
  std::optional<Error> lastSaveError_;
  ListMerge merge_;
  using ResourceSet = std::set<std::weak_ptr<KivResource>, std::owner_less<>>;
  ResourceSet unwritable_;  ///< Those that keep the list from being written, and are in the log.
  /// Resources that merges have brought and that are still in the registry: the newest with each
  /// identifier.
  std::map<std::string, std::shared_ptr<KivResource>> taken_;
};

}  // namespace kiv
