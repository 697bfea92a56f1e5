#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/Support/ForwardingFileManager.h"

namespace kiv::test {

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

  /// One operation as it was asked for: "write", "synchronize", "move" ... and its path.
  struct Operation {
    std::string name;
    std::string path;
    std::string newPath;  ///< of "move", "withdraw" and "exchange"
  };

  /// Begins counting anew; nothing stands for no fault.
  void setFault(std::optional<Fault> fault);
  /// Makes the operations of that name fail with the error, whatever their number; empty for none.
  void setFailingOperation(std::string name, int number);
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

  bool fileIsReadableAtPath(std::string_view path, std::optional<Error>* error) override;
  std::optional<FileSystemSpace> spaceAtPath(std::string_view path,
                                             std::optional<Error>* error) override;
  std::optional<Data> contentsAtPath(std::string_view path, std::optional<Error>* error) override;
  std::unique_ptr<MappedFile> mapFileAtPath(std::string_view path,
                                            std::optional<Error>* error) override;
  std::optional<std::vector<std::string>> contentsOfDirectoryAtPath(
      std::string_view path, std::optional<Error>* error) override;
  bool createDirectoryAtPath(std::string_view path, std::optional<Error>* error) override;
  std::unique_ptr<WritableFile> createFileAtPath(std::string_view path,
                                                 std::optional<Error>* error) override;
  std::unique_ptr<WritableFile> openFileAtPath_length(std::string_view path, std::uint64_t length,
                                                      std::optional<Error>* error) override;
  bool synchronizeDirectoryAtPath(std::string_view path, std::optional<Error>* error) override;
  std::unique_ptr<BatchSync> beginBatchSyncAtPath(std::string_view path,
                                                  std::size_t files) override;
  bool moveItemAtPath_toPath(std::string_view path, std::string_view newPath,
                             std::optional<Error>* error) override;
  bool exchangeItemAtPath_withItemAtPath(std::string_view path, std::string_view otherPath,
                                         std::optional<Error>* error) override;
  bool withdrawItemAtPath_toPath(std::string_view path, std::string_view newPath,
                                 std::optional<Error>* error) override;
  bool removeItemAtPath(std::string_view path, std::optional<Error>* error) override;
  std::unique_ptr<FileLock> lockFileAtPath(std::string_view path,
                                           std::optional<Error>* error) override;

 private:
  class File;
  class Batch;

  /// Counts the operation; false, with the error stored, where it is to fail.
  bool begin(Operation operation, std::optional<Error>* error);
  /// The error that the operation of this number is to fail with, or zero. Under the mutex.
  [[nodiscard]] int faultOf(const Operation& operation) const;
  [[nodiscard]] bool writesShort() const;

  mutable std::mutex mutex_;
  std::optional<Fault> fault_;
  std::string failingName_;
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
