#include "Tests/Support/FaultyFileManager.h"

#include <cerrno>
#include <utility>

namespace kiv::test {

class FaultyFileManager::File : public WritableFile {
 public:
  File(FaultyFileManager& manager, std::unique_ptr<WritableFile> file, std::string path)
      : manager_(manager), file_(std::move(file)), path_(std::move(path)) {}

  bool write(std::string_view bytes, std::optional<Error>* error) override {
    if (manager_.begin({"write", path_, {}}, error)) return file_->write(bytes, error);
    // The error is that of the fault, whatever becomes of the first half.
    const std::string_view half = bytes.substr(0, bytes.size() / 2);
    if (manager_.writesShort()) static_cast<void>(file_->write(half, nullptr));
    return false;
  }
  bool synchronize(std::optional<Error>* error) override {
    return manager_.begin({"synchronize", path_, {}}, error);
  }
  bool close(std::optional<Error>* error) override {
    return manager_.begin({"close", path_, {}}, error) && file_->close(error);
  }

 private:
  FaultyFileManager& manager_;
  std::unique_ptr<WritableFile> file_;
  std::string path_;
};

class FaultyFileManager::Batch : public BatchSync {
 public:
  Batch(FaultyFileManager& manager, std::string path) : manager_(manager), path_(std::move(path)) {}

  bool synchronize(std::optional<Error>* error) override {
    return manager_.begin({"synchronizeBatch", path_, {}}, error);
  }

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

void FaultyFileManager::setFailingOperation(std::string name, int number) {
  const std::lock_guard guard(mutex_);
  failingName_ = std::move(name);
  failingNumber_ = number;
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
  if (!failingName_.empty() && operation.name == failingName_) return failingNumber_;
  if (!failingMove_.empty() && operation.newPath == failingMove_) return EIO;
  if (refusesExchanges_ && operation.name == "exchange") return EINVAL;
  if (!fault_ || count_ < fault_->at) return 0;
  return count_ == fault_->at || fault_->repeat == Repeat::fromThenOn ? fault_->number : 0;
}

bool FaultyFileManager::begin(Operation operation, std::optional<Error>* error) {
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
  return number == 0 || fail(error, systemError(number, operation.name, operation.path));
}

bool FaultyFileManager::fileIsReadableAtPath(std::string_view path, std::optional<Error>* error) {
  {
    const std::lock_guard guard(mutex_);
    if (path == unreadableFile_) return fail(error, systemError(EIO, "read", path));
  }
  return ForwardingFileManager::fileIsReadableAtPath(path, error);
}

std::optional<FileSystemSpace> FaultyFileManager::spaceAtPath(std::string_view path,
                                                              std::optional<Error>* error) {
  auto space = ForwardingFileManager::spaceAtPath(path, error);
  const std::lock_guard guard(mutex_);
  if (refusesSpace_) return std::nullopt;
  if (space && availableSpace_) space->available = *availableSpace_;
  return space;
}

std::optional<Data> FaultyFileManager::contentsAtPath(std::string_view path,
                                                      std::optional<Error>* error) {
  if (!begin({"read", std::string(path), {}}, error)) return std::nullopt;
  return ForwardingFileManager::contentsAtPath(path, error);
}

std::unique_ptr<MappedFile> FaultyFileManager::mapFileAtPath(std::string_view path,
                                                             std::optional<Error>* error) {
  if (!begin({"map", std::string(path), {}}, error)) return nullptr;
  return ForwardingFileManager::mapFileAtPath(path, error);
}

std::optional<std::vector<std::string>> FaultyFileManager::contentsOfDirectoryAtPath(
    std::string_view path, std::optional<Error>* error) {
  if (!begin({"list", std::string(path), {}}, error)) return std::nullopt;
  return ForwardingFileManager::contentsOfDirectoryAtPath(path, error);
}

bool FaultyFileManager::createDirectoryAtPath(std::string_view path, std::optional<Error>* error) {
  return begin({"createDirectory", std::string(path), {}}, error) &&
         ForwardingFileManager::createDirectoryAtPath(path, error);
}

std::unique_ptr<WritableFile> FaultyFileManager::createFileAtPath(std::string_view path,
                                                                  std::optional<Error>* error) {
  if (!begin({"createFile", std::string(path), {}}, error)) return nullptr;
  auto file = ForwardingFileManager::createFileAtPath(path, error);
  if (!file) return nullptr;
  return std::make_unique<File>(*this, std::move(file), std::string(path));
}

std::unique_ptr<WritableFile> FaultyFileManager::openFileAtPath_length(
    std::string_view path, std::uint64_t length, std::optional<Error>* error) {
  if (!begin({"openFile", std::string(path), {}}, error)) return nullptr;
  auto file = ForwardingFileManager::openFileAtPath_length(path, length, error);
  if (!file) return nullptr;
  return std::make_unique<File>(*this, std::move(file), std::string(path));
}

bool FaultyFileManager::synchronizeDirectoryAtPath(std::string_view path,
                                                   std::optional<Error>* error) {
  return begin({"synchronizeDirectory", std::string(path), {}}, error);
}

std::unique_ptr<BatchSync> FaultyFileManager::beginBatchSyncAtPath(std::string_view path,
                                                                   std::size_t /*files*/) {
  const std::lock_guard guard(mutex_);
  return allowsBatchSyncs_ ? std::make_unique<Batch>(*this, std::string(path)) : nullptr;
}

bool FaultyFileManager::moveItemAtPath_toPath(std::string_view path, std::string_view newPath,
                                              std::optional<Error>* error) {
  return begin({"move", std::string(path), std::string(newPath)}, error) &&
         ForwardingFileManager::moveItemAtPath_toPath(path, newPath, error);
}

bool FaultyFileManager::withdrawItemAtPath_toPath(std::string_view path, std::string_view newPath,
                                                  std::optional<Error>* error) {
  return begin({"withdraw", std::string(path), std::string(newPath)}, error) &&
         ForwardingFileManager::withdrawItemAtPath_toPath(path, newPath, error);
}

bool FaultyFileManager::exchangeItemAtPath_withItemAtPath(std::string_view path,
                                                          std::string_view otherPath,
                                                          std::optional<Error>* error) {
  return begin({"exchange", std::string(path), std::string(otherPath)}, error) &&
         ForwardingFileManager::exchangeItemAtPath_withItemAtPath(path, otherPath, error);
}

bool FaultyFileManager::removeItemAtPath(std::string_view path, std::optional<Error>* error) {
  return begin({"remove", std::string(path), {}}, error) &&
         ForwardingFileManager::removeItemAtPath(path, error);
}

std::unique_ptr<FileLock> FaultyFileManager::lockFileAtPath(std::string_view path,
                                                            std::optional<Error>* error) {
  if (!begin({"lock", std::string(path), {}}, error)) return nullptr;
  return ForwardingFileManager::lockFileAtPath(path, error);
}

}  // namespace kiv::test
