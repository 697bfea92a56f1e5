// A later question gets the answer of an earlier listing only if the directory is the same as
// before: no entry of it can have been added, removed, renamed or replaced by something of another
// kind without a new time stamp.

#include "KivResource/files/KivResourceFileListing.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivResource/KivResourceStorageModule.h"

namespace kiv {

namespace {

/// Asking about one file takes as long as reading and sorting about four entries, on tmpfs and
/// ext4.
constexpr std::size_t entriesReadPerQuestion = 4;
/// Below that the listing's own operations take longer than the questions.
constexpr std::size_t fewResources = 16;
/// The coarsest resolution of time stamps among common file systems.
constexpr auto stampResolution = std::chrono::seconds(2);

/// Not an argument: a resource looks for its files in operations that hosts override, such as
/// setUp(), which have none for it.
thread_local const FileListing* inUse = nullptr;

FileManager& files() {
  return FileManager::defaultManager();
}

/// Fails if the process may list the directory but not look up its entries: then no file is there
/// for it. That is what "/." is for.
std::optional<FileIdentity> identityOfDirectory(const std::string& directory) {
  return files().identityOfFileAtPath(directory + "/.").toOptional();
}

/// A change within the resolution of the last one may leave the stamps as they are.
bool showsLaterChanges(const FileIdentity& identity, std::chrono::system_clock::time_point now) {
  const std::chrono::nanoseconds latest(std::max(identity.modified, identity.changed));
  return now.time_since_epoch() - latest > stampResolution;
}

}  // namespace

FileListing::FileListing(std::string_view path)
    : directory_(path::deletingLastPathComponent(path)),
      names_({std::string(path::lastPathComponent(path))}) {}

FileListing::Use::Use(const FileListing& listing) : former_(std::exchange(inUse, &listing)) {}

FileListing::Use::~Use() {
  inUse = former_;
}

bool FileListing::isFileAtPath(std::string_view path) {
  return inUse && inUse->hasFileAtPath(path);
}

const FileListing& FileListing::ifUnchanged(std::size_t resources) {
  static const auto& empty = *new FileListing;
  if (resources < fewResources) return empty;
  if (!isCurrent()) {
    names_ = {};
    identity_.reset();
  }
  return *this;
}

const FileListing& FileListing::refreshed(std::size_t resources) {
  const FileListing& listing = ifUnchanged(resources);
  if (&listing == this && !identity_) list(resources * entriesReadPerQuestion);
  return listing;
}

bool FileListing::isCurrent() const {
  return identity_ && directory_ == KivResourceStorageModule::resourcesDirectoryPath() &&
         identity_ == identityOfDirectory(directory_);
}

void FileListing::list(std::size_t mostEntries) {
  directory_ = KivResourceStorageModule::resourcesDirectoryPath();
  const auto now = std::chrono::system_clock::now();
  const auto identity = identityOfDirectory(directory_);
  if (!directory_.starts_with('/') || !identity) return;
  auto names = files().filesOfDirectoryAtPath_mostEntries(directory_, mostEntries);
  if (!names) return;
  names_ = *std::move(names);
  std::sort(names_.begin(), names_.end());
  if (showsLaterChanges(*identity, now)) identity_ = identity;
}

bool FileListing::hasFileAtPath(std::string_view path) const {
  if (names_.empty() || !path.starts_with(directory_)) return false;
  const std::string_view name = path.substr(directory_.size());
  return name.starts_with('/') &&
         std::binary_search(names_.begin(), names_.end(), name.substr(1), std::less<>());
}

}  // namespace kiv
