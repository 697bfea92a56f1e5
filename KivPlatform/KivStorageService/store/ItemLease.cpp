// Stored files are replaced, never modified. So a hard link keeps the contents of a file, costs no
// space while the file exists, and is made in one step.
//
// A directory cannot be linked, so its files are linked one by one. Another process may replace or
// remove it meanwhile, but that always begins by moving the directory away or, where that is not
// possible, by removing its page. So if the directory is unchanged afterwards, the links are
// complete.

#include "KivPlatform/KivStorageService/store/ItemLease.h"

#include <algorithm>
#include <array>
#include <system_error>
#include <utility>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/system/ForkGuard.h"
#include "KivPlatform/KivStorageService/store/StorageRoot.h"

namespace kiv::storage {

namespace {

using path::appendingPathComponent;
using path::lastPathComponent;

constexpr std::string_view directorySuffix = ".lease";
/// The error of an attempt during which the directory changed.
constexpr auto changed = std::errc::resource_unavailable_try_again;

FileManager& files() {
  return FileManager::defaultManager();
}

/// True if a copy may succeed where a hard link failed.
bool isRefusedLink(const Error& error) {
  constexpr std::array refusals{std::errc::operation_not_permitted, std::errc::permission_denied,
                                std::errc::cross_device_link,       std::errc::too_many_links,
                                std::errc::function_not_supported,  std::errc::not_supported,
                                std::errc::operation_not_supported};
  return std::any_of(refusals.begin(), refusals.end(),
                     [&](std::errc code) { return isSystemError(error, code); });
}

Status copyFile(StorageRoot& root, const std::string& path, const std::string& newPath) {
  const auto source = files().mapFileAtPath(path);
  if (!source) return source.error();
  const std::size_t size = (*source)->bytes().size();
  if (Status status = root.checkRoom(size, lastPathComponent(path)); !status) return status;
  const auto copy = files().createFileAtPath(newPath);
  if (!copy) return copy.error();
  std::string piece;
  for (std::size_t offset = 0; offset < size; offset += piece.size()) {
    constexpr std::size_t pieceSize = 256 * 1024;
    piece.resize(std::min(pieceSize, size - offset));
    Status status = (*source)->copyBytes(offset, piece.data(), piece.size());
    if (status) status = (*copy)->write(piece);
    if (!status) return status;
  }
  return (*copy)->close();
}

Status linkFile(StorageRoot& root, const std::string& path, const std::string& newPath) {
  Status status = files().linkFileAtPath_toPath(path, newPath);
  if (status || !isRefusedLink(status.error())) return status;
  return copyFile(root, path, newPath);
}

Status linkItem(StorageRoot& root, const std::string& path, const std::string& newPath) {
  if (files().linkExistsAtPath(path)) return {};
  if (!files().directoryExistsAtPath(path)) return linkFile(root, path, newPath);
  const auto names = files().contentsOfDirectoryAtPath(path);
  if (!names) return names.error();
  if (Status status = files().createDirectoryAtPath(newPath); !status) return status;
  for (const std::string& name : *names) {
    Status status =
        linkItem(root, appendingPathComponent(path, name), appendingPathComponent(newPath, name));
    if (!status) return status;
  }
  return {};
}

/// The identity of a directory includes the time of its last change, so this notices entries that
/// were removed in place. Linking a file changes that time of the file, but not of its directory.
Status linkUnchangedItem(StorageRoot& root, const std::string& path, const std::string& newPath) {
  if (!files().directoryExistsAtPath(path)) return linkItem(root, path, newPath);
  const auto before = files().identityOfFileAtPath(path);
  if (!before) return before.error();
  if (Status status = linkItem(root, path, newPath); !status) return status;
  const auto after = files().identityOfFileAtPath(path);
  if (!after) return after.error();
  return *before == *after ? Status() : systemError(static_cast<int>(changed), "lease", path);
}

}  // namespace

Result<std::unique_ptr<ItemLease>> ItemLease::take(StorageRoot& root, const std::string& path) {
  constexpr int mostAttempts = 4;
  for (int attempt = 1;; ++attempt) {
    auto lease = attemptToTake(root, path);
    if (lease || !isSystemError(lease.error(), changed) || attempt == mostAttempts) return lease;
  }
}

Result<std::unique_ptr<ItemLease>> ItemLease::attemptToTake(StorageRoot& root,
                                                            const std::string& path) {
  const auto resolved = files().resolvedPathOfItemAtPath(path);
  if (!resolved) return resolved.error();
  auto made = root.makeTemporary(directorySuffix);
  if (!made) return made.error();
  auto directory = std::make_unique<Temporary>(*std::move(made));
  if (Status status = files().createPrivateDirectoryAtPath(directory->path()); !status) {
    return status;
  }
  std::string newPath = appendingPathComponent(directory->path(), lastPathComponent(path));
  if (Status status = linkUnchangedItem(root, *resolved, newPath); !status) return status;
  return std::unique_ptr<ItemLease>(new ItemLease(std::move(directory), std::move(newPath)));
}

bool ItemLease::isDirectoryName(std::string_view name) noexcept {
  return name.ends_with(directorySuffix);
}

bool ItemLease::isLeasedPath(std::string_view path, std::string_view privateDirectory) noexcept {
  if (privateDirectory.empty() || !path.starts_with(privateDirectory)) return false;
  path.remove_prefix(privateDirectory.size());
  // "/PROCESS/NUMBER.lease/NAME..."
  const std::size_t process = path.find('/', 1);
  if (!path.starts_with('/') || process == path.npos) return false;
  path.remove_prefix(process + 1);
  const std::size_t name = path.find('/');
  return name != path.npos && isDirectoryName(path.substr(0, name));
}

ItemLease::ItemLease(std::unique_ptr<Temporary> directory, std::string path)
    : directory_(std::move(directory)), path_(std::move(path)), forkDepth_(forkDepth()) {}

ItemLease::~ItemLease() {
  if (forkDepth() != forkDepth_) static_cast<void>(directory_.release());
}

}  // namespace kiv::storage
