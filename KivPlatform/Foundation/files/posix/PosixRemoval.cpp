// The removal guard compares directories by identity (device and inode), from the parent directory
// of the item upwards. Paths are not compared: a link, a bind mount or a rename would make the same
// directory look like a different one.

#include "KivPlatform/Foundation/files/posix/PosixRemoval.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/files/posix/PosixFile.h"

namespace kiv::posix {

namespace {

/// How a parent directory is opened: removing an entry requires no read permission on the
/// directory.
#if defined(O_PATH)
constexpr int searchOnly = O_PATH;
#elif defined(O_SEARCH)
constexpr int searchOnly = O_SEARCH;
#else
constexpr int searchOnly = O_RDONLY;
#endif

/// Identifies a file independently of its path.
struct Identity {
  dev_t device;
  ino_t number;

  explicit Identity(const struct stat& status) : device(status.st_dev), number(status.st_ino) {}
  friend bool operator==(const Identity&, const Identity&) = default;
};

std::vector<Identity> identitiesOf(const std::vector<std::string>& roots) {
  std::vector<Identity> identities;
  for (const std::string& root : roots) {
    struct stat status {};
    const bool isPath = root.starts_with('/') && root.find('\0') == root.npos;
    if (!isPath || ::stat(root.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) continue;
    identities.emplace_back(status);
  }
  return identities;
}

/// True if the open directory is one of the roots or below one. Walks up by "..", which requires no
/// read permission on the ancestors.
bool liesUnder(const Descriptor& directory, const std::vector<std::string>& roots) {
  const std::vector<Identity> identities = identitiesOf(roots);
  struct stat status {};
  std::string way = ".";
  std::optional<Identity> below;
  while (::fstatat(directory.number(), way.c_str(), &status, 0) == 0) {
    const Identity here(status);
    if (std::find(identities.begin(), identities.end(), here) != identities.end()) return true;
    if (below == here) return false;  // the root directory is its own parent
    below = here;
    way += "/..";
  }
  return false;
}

int removeAt(const Descriptor& directory, const std::string& name);

int emptyDirectoryAt(const Descriptor& parent, const std::string& name) {
  const Descriptor directory(
      ::openat(parent.number(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!directory.isOpen()) return errno;
  Descriptor listing(::openat(directory.number(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!listing.isOpen()) return errno;
  const auto names = namesInDirectory(std::move(listing));
  if (!names) return errno;
  for (const std::string& item : *names) {
    const int number = removeAt(directory, item);
    if (number != 0 && number != ENOENT) return number;  // another process may have removed it
  }
  return 0;
}

/// Removes the item with that name. Zero, or errno.
int removeAt(const Descriptor& directory, const std::string& name) {
  struct stat status {};
  if (::fstatat(directory.number(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  const bool isDirectory = S_ISDIR(status.st_mode);
  if (isDirectory) {
    const int number = emptyDirectoryAt(directory, name);
    if (number != 0) return number;
  }
  const int flags = isDirectory ? AT_REMOVEDIR : 0;
  return ::unlinkat(directory.number(), name.c_str(), flags) == 0 ? 0 : errno;
}

Descriptor openDirectory(const std::string& path) {
  return Descriptor(::open(path.c_str(), searchOnly | O_DIRECTORY | O_CLOEXEC));
}

Error refusal(std::string_view path) {
  return Error(FileManagerErrorDomain, static_cast<int>(FileManagerErrorCode::removalRefused),
               "Could not remove \"" + std::string(path) +
                   "\": it lies outside the directories in which things may be removed.");
}

}  // namespace

std::optional<ItemPlace> placeOfItem(std::string_view path) {
  path = path.substr(0, path.find_last_not_of('/') + 1);
  const std::string_view name = path::lastPathComponent(path);
  if (name.empty() || name == "." || name == "..") return std::nullopt;
  const std::string_view directory = path::deletingLastPathComponent(path);
  return ItemPlace{std::string(directory.empty() ? "." : directory), std::string(name)};
}

Status withdrawItem(const ItemPlace& place, const ItemPlace& newPlace,
                    const std::optional<std::vector<std::string>>& roots, std::string_view path) {
  const Descriptor from = openDirectory(place.directory);
  const Descriptor to = from.isOpen() ? openDirectory(newPlace.directory) : Descriptor(-1);
  if (!to.isOpen()) return systemError(errno, "withdraw", path);
  if (roots && !(liesUnder(from, *roots) && liesUnder(to, *roots))) return refusal(path);
  if (::renameat(from.number(), place.name.c_str(), to.number(), newPlace.name.c_str()) != 0) {
    return systemError(errno, "withdraw", path);
  }
  return {};
}

Status removeItem(const ItemPlace& place, const std::optional<std::vector<std::string>>& roots,
                  std::string_view path) {
  const Descriptor directory = openDirectory(place.directory);
  if (!directory.isOpen()) return systemError(errno, "remove", path);
  if (roots && !liesUnder(directory, *roots)) return refusal(path);
  if (const int number = removeAt(directory, place.name)) {
    return systemError(number, "remove", path);
  }
  return {};
}

}  // namespace kiv::posix
