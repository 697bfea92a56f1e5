#include "Tests/Support/FaultyFileManager.h"

#include <cerrno>
#include <utility>

namespace kiv::test {

std::string nameOf(FileOperation operation) {
  switch (operation) {
    case FileOperation::close:
      return "close";
    case FileOperation::createDirectory:
      return "createDirectory";
    case FileOperation::createFile:
      return "createFile";
    case FileOperation::exchange:
      return "exchange";
    case FileOperation::link:
      return "link";
    case FileOperation::list:
      return "list";
    case FileOperation::lock:
      return "lock";
    case FileOperation::map:
      return "map";
    case FileOperation::move:
      return "move";
    case FileOperation::openFile:
      return "openFile";
    case FileOperation::read:
      return "read";
    case FileOperation::remove:
      return "remove";
    case FileOperation::synchronize:
      return "synchronize";
    case FileOperation::synchronizeBatch:
      return "synchronizeBatch";
    case FileOperation::synchronizeDirectory:
      return "synchronizeDirectory";
    case FileOperation::touch:
      return "touch";
    case FileOperation::withdraw:
      return "withdraw";
    case FileOperation::write:
      return "write";
  }
  return "?";
}

class FaultyFileManager::File : public WritableFile {
 public:
  File(FaultyFileManager& manager, std::unique_ptr<WritableFile> file, std::string path)
      : manager_(manager), file_(std::move(file)), path_(std::move(path)) {}

  Status write(std::string_view bytes) override {
    Status status = manager_.begin({FileOperation::write, path_});
    if (status) return file_->write(bytes);
    // The call reports the injected error even if writing the first half fails.
    const std::string_view half = bytes.substr(0, bytes.size() / 2);
    if (manager_.writesShort()) static_cast<void>(file_->write(half));
    return status;
  }
  Status synchronize() override { return manager_.begin({FileOperation::synchronize, path_}); }
  Status close() override {
    if (Status status = manager_.begin({FileOperation::close, path_}); !status) return status;
    return file_->close();
  }

 private:
  FaultyFileManager& manager_;
  std::unique_ptr<WritableFile> file_;
  std::string path_;
};

class FaultyFileManager::Batch : public BatchSync {
 public:
  Batch(FaultyFileManager& manager, std::string path) : manager_(manager), path_(std::move(path)) {}

  [[nodiscard]] bool pays(std::size_t /*files*/) const override { return true; }

  Status synchronize() override { return manager_.begin({FileOperation::synchronizeBatch, path_}); }

 private:
  FaultyFileManager& manager_;
  std::string path_;
};

void FaultyFileManager::setFault(std::optional<Fault> fault) {
  const std::lock_guard guard(mutex_);
  fault_ = fault;
  count_ = 0;
  operations_.clear();
}

void FaultyFileManager::setFailingOperation(FileOperation kind, int number) {
  const std::lock_guard guard(mutex_);
  failingKind_ = kind;
  failingNumber_ = number;
}

void FaultyFileManager::clearFailingOperation() {
  const std::lock_guard guard(mutex_);
  failingKind_.reset();
}

void FaultyFileManager::refuseExchanges(bool refuse) {
  const std::lock_guard guard(mutex_);
  refusesExchanges_ = refuse;
}

void FaultyFileManager::allowBatchSyncs(bool allow) {
  const std::lock_guard guard(mutex_);
  allowsBatchSyncs_ = allow;
}

void FaultyFileManager::setAvailableSpace(std::optional<std::uint64_t> bytes) {
  const std::lock_guard guard(mutex_);
  availableSpace_ = bytes;
}

void FaultyFileManager::refuseSpace(bool refuse) {
  const std::lock_guard guard(mutex_);
  refusesSpace_ = refuse;
}

void FaultyFileManager::setUnreadableFile(std::string path) {
  const std::lock_guard guard(mutex_);
  unreadableFile_ = std::move(path);
}

void FaultyFileManager::setFailingMove(std::string newPath) {
  const std::lock_guard guard(mutex_);
  failingMove_ = std::move(newPath);
}

void FaultyFileManager::setObserver(std::function<void(const Operation&)> observer) {
  const std::lock_guard guard(mutex_);
  observer_ = std::move(observer);
}

std::uint64_t FaultyFileManager::count() const {
  const std::lock_guard guard(mutex_);
  return count_;
}

std::vector<FaultyFileManager::Operation> FaultyFileManager::operations() const {
  const std::lock_guard guard(mutex_);
  return operations_;
}

bool FaultyFileManager::writesShort() const {
  const std::lock_guard guard(mutex_);
  return fault_ && fault_->shortWrite;
}

int FaultyFileManager::faultOf(const Operation& operation) const {
  if (operation.kind == failingKind_) return failingNumber_;
  if (!failingMove_.empty() && operation.newPath == failingMove_) return EIO;
  if (refusesExchanges_ && operation.kind == FileOperation::exchange) return EINVAL;
  if (!fault_ || count_ < fault_->at) return 0;
  return count_ == fault_->at || fault_->repeat == Repeat::fromThenOn ? fault_->number : 0;
}

Status FaultyFileManager::begin(Operation operation) {
  std::function<void(const Operation&)> observer;
  int number = 0;
  {
    const std::lock_guard guard(mutex_);
    ++count_;
    operations_.push_back(operation);
    number = faultOf(operation);
    observer = observer_;
  }
  if (observer) observer(operation);
  if (number == 0) return {};
  return systemError(number, nameOf(operation.kind), operation.path);
}

Status FaultyFileManager::fileIsReadableAtPath(std::string_view path) {
  {
    const std::lock_guard guard(mutex_);
    if (path == unreadableFile_) return systemError(EIO, "read", path);
  }
  return ForwardingFileManager::fileIsReadableAtPath(path);
}

Result<FileSystemSpace> FaultyFileManager::spaceAtPath(std::string_view path) {
  auto space = ForwardingFileManager::spaceAtPath(path);
  const std::lock_guard guard(mutex_);
  if (refusesSpace_) return systemError(ENOTSUP, "measure the space at", path);
  if (space && availableSpace_) space->available = *availableSpace_;
  return space;
}

Result<Data> FaultyFileManager::contentsAtPath(std::string_view path) {
  Status status = begin({FileOperation::read, std::string(path)});
  if (!status) return status;
  return ForwardingFileManager::contentsAtPath(path);
}

Result<std::unique_ptr<MappedFile>> FaultyFileManager::mapFileAtPath(std::string_view path) {
  Status status = begin({FileOperation::map, std::string(path)});
  if (!status) return status;
  return ForwardingFileManager::mapFileAtPath(path);
}

Result<std::vector<std::string>> FaultyFileManager::contentsOfDirectoryAtPath(
    std::string_view path) {
  Status status = begin({FileOperation::list, std::string(path)});
  if (!status) return status;
  return ForwardingFileManager::contentsOfDirectoryAtPath(path);
}

Result<std::vector<std::string>> FaultyFileManager::filesOfDirectoryAtPath_mostEntries(
    std::string_view path, std::size_t mostEntries) {
  Status status = begin({FileOperation::list, std::string(path)});
  if (!status) return status;
  return ForwardingFileManager::filesOfDirectoryAtPath_mostEntries(path, mostEntries);
}

Status FaultyFileManager::createDirectoryAtPath(std::string_view path) {
  Status status = begin({FileOperation::createDirectory, std::string(path)});
  if (!status) return status;
  return ForwardingFileManager::createDirectoryAtPath(path);
}

Result<std::unique_ptr<WritableFile>> FaultyFileManager::createFileAtPath(std::string_view path) {
  Status status = begin({FileOperation::createFile, std::string(path)});
  if (!status) return status;
  auto file = ForwardingFileManager::createFileAtPath(path);
  if (!file) return file;
  return std::make_unique<File>(*this, *std::move(file), std::string(path));
}

Result<std::unique_ptr<WritableFile>> FaultyFileManager::openFileAtPath_length(
    std::string_view path, std::uint64_t length) {
  Status status = begin({FileOperation::openFile, std::string(path)});
  if (!status) return status;
  auto file = ForwardingFileManager::openFileAtPath_length(path, length);
  if (!file) return file;
  return std::make_unique<File>(*this, *std::move(file), std::string(path));
}

Status FaultyFileManager::synchronizeDirectoryAtPath(std::string_view path) {
  return begin({FileOperation::synchronizeDirectory, std::string(path)});
}

Status FaultyFileManager::touchFileAtPath(std::string_view path) {
  Status status = begin({FileOperation::touch, std::string(path)});
  if (!status) return status;
  return ForwardingFileManager::touchFileAtPath(path);
}

std::unique_ptr<BatchSync> FaultyFileManager::beginBatchSyncAtPath(std::string_view path) {
  const std::lock_guard guard(mutex_);
  return allowsBatchSyncs_ ? std::make_unique<Batch>(*this, std::string(path)) : nullptr;
}

Status FaultyFileManager::moveItemAtPath_toPath(std::string_view path, std::string_view newPath) {
  Status status = begin({FileOperation::move, std::string(path), std::string(newPath)});
  if (!status) return status;
  return ForwardingFileManager::moveItemAtPath_toPath(path, newPath);
}

Status FaultyFileManager::linkFileAtPath_toPath(std::string_view path, std::string_view newPath) {
  Status status = begin({FileOperation::link, std::string(path), std::string(newPath)});
  if (!status) return status;
  return ForwardingFileManager::linkFileAtPath_toPath(path, newPath);
}

Status FaultyFileManager::withdrawItemAtPath_toPath(std::string_view path,
                                                    std::string_view newPath) {
  Status status = begin({FileOperation::withdraw, std::string(path), std::string(newPath)});
  if (!status) return status;
  return ForwardingFileManager::withdrawItemAtPath_toPath(path, newPath);
}

Status FaultyFileManager::exchangeItemAtPath_withItemAtPath(std::string_view path,
                                                            std::string_view otherPath) {
  Status status = begin({FileOperation::exchange, std::string(path), std::string(otherPath)});
  if (!status) return status;
  return ForwardingFileManager::exchangeItemAtPath_withItemAtPath(path, otherPath);
}

Status FaultyFileManager::removeItemAtPath(std::string_view path) {
  Status status = begin({FileOperation::remove, std::string(path)});
  if (!status) return status;
  return ForwardingFileManager::removeItemAtPath(path);
}

Result<std::unique_ptr<FileLock>> FaultyFileManager::lockFileAtPath(std::string_view path) {
  Status status = begin({FileOperation::lock, std::string(path)});
  if (!status) return status;
  return ForwardingFileManager::lockFileAtPath(path);
}

}  // namespace kiv::test
