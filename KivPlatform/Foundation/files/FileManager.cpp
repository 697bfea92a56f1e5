// The file manager is replaceable so that tests can inject failures and lost writes. Operations
// that such tests do not care about work on the system's files by default, so a test double need
// not implement them.

#include "KivPlatform/Foundation/files/FileManager.h"

#include <atomic>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/files/RemovalGuard.h"
#include "KivPlatform/Foundation/files/SystemFileManager.h"

namespace kiv {

namespace {

std::atomic<FileManager*> replacement{nullptr};

/// A mapped file that is removed on destruction unless take() was called.
class TakenFile final : public DataFile {
 public:
  TakenFile(std::unique_ptr<MappedFile> file, std::string path, std::shared_ptr<void> keeper)
      : file_(std::move(file)), path_(std::move(path)), keeper_(std::move(keeper)) {}
  TakenFile(const TakenFile&) = delete;
  TakenFile& operator=(const TakenFile&) = delete;
  ~TakenFile() override {
    if (path_) FileManager::defaultManager().discardItemAtPath(*path_);
  }

  [[nodiscard]] std::string_view bytes() const noexcept override { return file_->bytes(); }
  Status copyBytes(std::uint64_t offset, char* to, std::size_t count) const override {
    return file_->copyBytes(offset, to, count);
  }
  std::optional<std::string> take() override {
    const MutexLock lock(mutex_);
    keeper_.reset();
    return std::exchange(path_, std::nullopt);
  }

 private:
  const std::unique_ptr<MappedFile> file_;
  Mutex mutex_;
  std::optional<std::string> path_ KIV_GUARDED_BY(mutex_);  // nothing once taken
  std::shared_ptr<void> keeper_ KIV_GUARDED_BY(mutex_);
};

}  // namespace

FileManager& FileManager::defaultManager() {
  FileManager* const manager = replacement.load(std::memory_order_acquire);
  return manager ? *manager : systemFileManager();
}

FileManager* FileManager::setDefaultManager(FileManager* manager) {
  return replacement.exchange(manager, std::memory_order_acq_rel);
}

void FileManager::setRemovalRoots(std::optional<std::vector<std::string>> roots) {
  removal::setRoots(std::move(roots));
}

void FileManager::restoreRemovalRoots() {
  removal::restoreOwnDirectories();
}

std::optional<std::vector<std::string>> FileManager::removalRoots() {
  return removal::roots();
}

Result<FileIdentity> FileManager::identityOfFileAtPath(std::string_view path) {
  return systemFileManager().identityOfFileAtPath(path);
}

/// Compares the resolved paths first, since a replaced file manager may have no identities, and
/// then the identities, since few file systems report the spelling that they have stored.
bool FileManager::itemAtPath_isItemAtPath(std::string_view path, std::string_view otherPath) {
  const auto resolved = resolvedPathOfItemAtPath(path);
  if (!resolved) return false;
  const auto otherResolved = resolvedPathOfItemAtPath(otherPath);
  if (!otherResolved) return false;
  if (*resolved == *otherResolved) return true;
  const auto identity = identityOfFileAtPath(*resolved);
  const auto otherIdentity = identityOfFileAtPath(*otherResolved);
  return identity && otherIdentity && identity->device == otherIdentity->device &&
         identity->number == otherIdentity->number;
}

std::vector<Status> FileManager::synchronizeFiles(const std::vector<WritableFile*>& files) {
  std::vector<Status> results;
  results.reserve(files.size());
  for (WritableFile* const file : files)
    results.push_back(file->synchronize());
  return results;
}

Result<std::vector<std::string>> FileManager::filesOfDirectoryAtPath_mostEntries(
    std::string_view path, std::size_t mostEntries) {
  return systemFileManager().filesOfDirectoryAtPath_mostEntries(path, mostEntries);
}

Status FileManager::createPrivateDirectoryAtPath(std::string_view path) {
  if (Status status = createDirectoryAtPath(path); !status) return status;
  makePrivateItemAtPath(path);
  return {};
}

Result<std::unique_ptr<WritableFile>> FileManager::createPrivateFileAtPath(std::string_view path) {
  auto file = createFileAtPath(path);
  if (file) makePrivateItemAtPath(path);
  return file;
}

void FileManager::makePrivateItemAtPath(std::string_view path) {
  systemFileManager().makePrivateItemAtPath(path);
}

Status FileManager::linkFileAtPath_toPath(std::string_view path, std::string_view newPath) {
  return systemFileManager().linkFileAtPath_toPath(path, newPath);
}

Status FileManager::touchFileAtPath(std::string_view path) {
  return systemFileManager().touchFileAtPath(path);
}

void FileManager::discardItemAtPath(std::string_view path) {
  static_cast<void>(removeItemAtPath(path));
}

Status FileManager::copyAccessToFileAtPath_fromFileAtPath(std::string_view path,
                                                          std::string_view otherPath) {
  return systemFileManager().copyAccessToFileAtPath_fromFileAtPath(path, otherPath);
}

Result<Data> fileDataAtPath(std::string path, std::shared_ptr<void> keeper) {
  auto file = FileManager::defaultManager().mapFileAtPath(path);
  if (!file) return file.error();
  return Data(std::make_shared<TakenFile>(*std::move(file), std::move(path), std::move(keeper)));
}

}  // namespace kiv
