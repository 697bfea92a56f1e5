#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Tests/Support/ForwardingFileManager.h"

namespace kiv::test {

/// The operations that a FaultyFileManager counts.
enum class FileOperation {
  close,
  createDirectory,
  createFile,
  exchange,
  link,
  list,
  lock,
  map,
  move,
  openFile,
  read,
  remove,
  synchronize,
  synchronizeBatch,
  synchronizeDirectory,
  touch,
  withdraw,
  write,
};

/// The name of the operation, for messages.
std::string nameOf(FileOperation operation);

/// Counts and records the operations that can fail, and injects errors.
///
/// Queries (the type and size of an item, the free space) are not counted.
///
/// Syncs are counted but do not wait for the disk: a sweep performs thousands of them, and
/// PowerCutFileManager tests their effect.
class FaultyFileManager : public ForwardingFileManager {
 public:
  enum class Repeat { once, fromThenOn };

  struct Fault {
    std::uint64_t at = 1;  ///< the number of the operation that fails, counted from 1
    int number = 0;        ///< the errno value
    Repeat repeat = Repeat::once;
    bool shortWrite = false;  ///< a failing write first writes half of its bytes
  };

  /// One operation and its arguments.
  struct Operation {
    FileOperation kind;
    std::string path;
    std::string newPath = {};  ///< of link, move, withdraw and exchange
  };

  /// Clears the count and the recorded operations, and sets the fault; nullopt for none.
  void setFault(std::optional<Fault> fault);
  /// Makes every operation of that kind fail with the error.
  void setFailingOperation(FileOperation kind, int number);
  /// Undoes setFailingOperation().
  void clearFailingOperation();
  /// Makes every move to the path fail; an empty path undoes it.
  void setFailingMove(std::string newPath);
  /// Sets the number of free bytes that is reported; nullopt restores the real value.
  void setAvailableSpace(std::optional<std::uint64_t> bytes);
  /// Reports the free space as unknown, as some file systems do.
  void refuseSpace(bool refuse);
  /// Makes fileIsReadableAtPath() fail with EIO for an existing file; an empty path undoes it.
  void setUnreadableFile(std::string path);
  /// Fails exchanges as a file system that does not support them does.
  void refuseExchanges(bool refuse);
  /// Syncs files in one batch, however few they are. By default there are no batch syncs.
  void allowBatchSyncs(bool allow);
  /// Called before each operation, on the thread that performs it.
  void setObserver(std::function<void(const Operation&)> observer);

  [[nodiscard]] std::uint64_t count() const;
  [[nodiscard]] std::vector<Operation> operations() const;

  Status fileIsReadableAtPath(std::string_view path) override;
  Result<FileSystemSpace> spaceAtPath(std::string_view path) override;
  Result<Data> contentsAtPath(std::string_view path) override;
  Result<std::unique_ptr<MappedFile>> mapFileAtPath(std::string_view path) override;
  Result<std::vector<std::string>> contentsOfDirectoryAtPath(std::string_view path) override;
  Result<std::vector<std::string>> filesOfDirectoryAtPath_mostEntries(
      std::string_view path, std::size_t mostEntries) override;
  Status createDirectoryAtPath(std::string_view path) override;
  Result<std::unique_ptr<WritableFile>> createFileAtPath(std::string_view path) override;
  Result<std::unique_ptr<WritableFile>> openFileAtPath_length(std::string_view path,
                                                              std::uint64_t length) override;
  Status touchFileAtPath(std::string_view path) override;
  Status synchronizeDirectoryAtPath(std::string_view path) override;
  std::unique_ptr<BatchSync> beginBatchSyncAtPath(std::string_view path) override;
  Status moveItemAtPath_toPath(std::string_view path, std::string_view newPath) override;
  Status exchangeItemAtPath_withItemAtPath(std::string_view path,
                                           std::string_view otherPath) override;
  Status linkFileAtPath_toPath(std::string_view path, std::string_view newPath) override;
  Status withdrawItemAtPath_toPath(std::string_view path, std::string_view newPath) override;
  Status removeItemAtPath(std::string_view path) override;
  Result<std::unique_ptr<FileLock>> lockFileAtPath(std::string_view path) override;

 private:
  class File;
  class Batch;

  /// Counts the operation and fails if a fault is set for it.
  Status begin(Operation operation);
  /// The error for the operation with this number, or 0. The mutex must be held.
  [[nodiscard]] int faultOf(const Operation& operation) const;
  [[nodiscard]] bool writesShort() const;

  mutable std::mutex mutex_;
  std::optional<Fault> fault_;
  std::optional<FileOperation> failingKind_;
  int failingNumber_ = 0;
  std::string failingMove_;
  bool refusesExchanges_ = false;
  bool allowsBatchSyncs_ = false;
  std::optional<std::uint64_t> availableSpace_;
  bool refusesSpace_ = false;
  std::string unreadableFile_;
  std::uint64_t count_ = 0;
  std::vector<Operation> operations_;
  std::function<void(const Operation&)> observer_;
};

}  // namespace kiv::test
