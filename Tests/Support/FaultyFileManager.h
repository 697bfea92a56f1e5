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
  withdraw,
  write,
};

/// Its name, for messages.
std::string nameOf(FileOperation operation);

/// Counts and records the operations that can fail, and makes some of them fail.
///
/// Questions (what lies at a path, how large it is, how full the disk) are not counted.
///
/// Syncs are counted like the others but do not wait for the disk: a sweep performs thousands, and
/// what they bring is the power cut's matter (PowerCutFileManager).
class FaultyFileManager : public ForwardingFileManager {
 public:
  enum class Repeat { once, fromThenOn };

  struct Fault {
    std::uint64_t at = 1;  ///< the number of the operation that fails, the first being 1
    int number = 0;        ///< the operating system's error
    Repeat repeat = Repeat::once;
    bool shortWrite = false;  ///< a write that fails has written half of its bytes
  };

  /// One operation and its arguments.
  struct Operation {
    FileOperation kind;
    std::string path;
    std::string newPath = {};  ///< of move, withdraw and exchange
  };

  /// Begins counting anew; nothing stands for no fault.
  void setFault(std::optional<Fault> fault);
  /// Makes all operations of that kind fail with the error.
  void setFailingOperation(FileOperation kind, int number);
  /// Ends that.
  void clearFailingOperation();
  /// Has nothing be moved to the path; empty for none.
  void setFailingMove(std::string newPath);
  /// Gives the disk that many free bytes; nothing brings the real ones back.
  void setAvailableSpace(std::optional<std::uint64_t> bytes);
  /// Has the disk keep no account of its space.
  void refuseSpace(bool refuse);
  /// Has the file at the path be there and yet not readable; empty for none.
  void setUnreadableFile(std::string path);
  /// Answers exchanges as a file system does that has no such step.
  void refuseExchanges(bool refuse);
  /// Syncs at once whatever is written as a batch, however little; as it is at first, nothing.
  void allowBatchSyncs(bool allow);
  /// Called before each operation, on the thread that asks for it.
  void setObserver(std::function<void(const Operation&)> observer);

  [[nodiscard]] std::uint64_t count() const;
  [[nodiscard]] std::vector<Operation> operations() const;

  Status fileIsReadableAtPath(std::string_view path) override;
  Result<FileSystemSpace> spaceAtPath(std::string_view path) override;
  Result<Data> contentsAtPath(std::string_view path) override;
  Result<std::unique_ptr<MappedFile>> mapFileAtPath(std::string_view path) override;
  Result<std::vector<std::string>> contentsOfDirectoryAtPath(std::string_view path) override;
  Status createDirectoryAtPath(std::string_view path) override;
  Result<std::unique_ptr<WritableFile>> createFileAtPath(std::string_view path) override;
  Result<std::unique_ptr<WritableFile>> openFileAtPath_length(std::string_view path,
                                                              std::uint64_t length) override;
  Status synchronizeDirectoryAtPath(std::string_view path) override;
  std::unique_ptr<BatchSync> beginBatchSyncAtPath(std::string_view path,
                                                  std::size_t files) override;
  Status moveItemAtPath_toPath(std::string_view path, std::string_view newPath) override;
  Status exchangeItemAtPath_withItemAtPath(std::string_view path,
                                           std::string_view otherPath) override;
  Status withdrawItemAtPath_toPath(std::string_view path, std::string_view newPath) override;
  Status removeItemAtPath(std::string_view path) override;
  Result<std::unique_ptr<FileLock>> lockFileAtPath(std::string_view path) override;

 private:
  class File;
  class Batch;

  /// Counts the operation. Fails if it is to fail.
  Status begin(Operation operation);
  /// The error that the operation of this number is to fail with, or zero. Under the mutex.
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
