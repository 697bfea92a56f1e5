#pragma once

#include <KivResource/KivResource.h>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

/// A disk with the troubles that a test chooses. It is the file manager of the process as long as
/// it lives, passes what does not fail to the one that it has replaced, and counts it. The files
/// are real ones: a test gives each cache a temporary folder.
///
/// It does not wait for the disk, so a test is fast; what a power failure would leave, it cannot
/// tell.
class FakeDisk final : public kiv::FileManager {
 public:
  enum class Operation {
    read,
    createDirectory,
    createFile,
    write,
    move,
    link,
    touch,
    remove,
    lock
  };

  FakeDisk();
  ~FakeDisk() override;
  FakeDisk(const FakeDisk&) = delete;
  FakeDisk& operator=(const FakeDisk&) = delete;

  /// From now on the operation fails on items whose path ends so; a move, by its new path.
  void fail(Operation operation, std::errc reason, std::string pathEnd = {}) {
    failures_[operation] = {reason, std::move(pathEnd)};
  }
  /// Nothing more can be written, but files can be removed and renamed.
  void fill();
  /// Nothing can be changed.
  void makeReadOnly();
  /// Everything works again.
  void heal() { failures_.clear(); }

  /// How often the operation has succeeded.
  [[nodiscard]] int count(Operation operation) const;
  /// The entry of every operation that may fail: counts it, or tells why it fails.
  kiv::Status enter(Operation operation, std::string_view path);

  kiv::Result<kiv::Data> contentsAtPath(std::string_view path) override;
  kiv::Result<std::unique_ptr<kiv::MappedFile>> mapFileAtPath(std::string_view path) override;
  kiv::Result<kiv::FileSystemSpace> spaceAtPath(std::string_view path) override;
  kiv::Status createDirectoryAtPath(std::string_view path) override;
  kiv::Result<std::unique_ptr<kiv::WritableFile>> createFileAtPath(std::string_view path) override;
  kiv::Result<std::unique_ptr<kiv::WritableFile>> openFileAtPath_length(
      std::string_view path, std::uint64_t length) override;
  kiv::Status touchFileAtPath(std::string_view path) override;
  kiv::Status moveItemAtPath_toPath(std::string_view path, std::string_view newPath) override;
  kiv::Status linkFileAtPath_toPath(std::string_view path, std::string_view newPath) override;
  kiv::Status exchangeItemAtPath_withItemAtPath(std::string_view path,
                                                std::string_view otherPath) override;
  kiv::Status withdrawItemAtPath_toPath(std::string_view path, std::string_view newPath) override;
  kiv::Status removeItemAtPath(std::string_view path) override;
  kiv::Result<std::unique_ptr<kiv::FileLock>> lockFileAtPath(std::string_view path) override;

  kiv::Status synchronizeDirectoryAtPath(std::string_view) override { return {}; }
  std::unique_ptr<kiv::BatchSync> beginBatchSyncAtPath(std::string_view) override {
    return nullptr;
  }

  // What only asks is passed on.
  bool fileExistsAtPath(std::string_view path) override { return base_.fileExistsAtPath(path); }
  bool itemExistsAtPath(std::string_view path) override { return base_.itemExistsAtPath(path); }
  bool directoryExistsAtPath(std::string_view path) override {
    return base_.directoryExistsAtPath(path);
  }
  bool linkExistsAtPath(std::string_view path) override { return base_.linkExistsAtPath(path); }
  kiv::Status fileIsReadableAtPath(std::string_view path) override {
    return base_.fileIsReadableAtPath(path);
  }
  kiv::Result<std::string> resolvedPathOfItemAtPath(std::string_view path) override {
    return base_.resolvedPathOfItemAtPath(path);
  }
  kiv::Result<std::uint64_t> sizeOfItemAtPath(std::string_view path) override {
    return base_.sizeOfItemAtPath(path);
  }
  std::optional<std::uint64_t> lengthOfFileAtPath(std::string_view path) override {
    return base_.lengthOfFileAtPath(path);
  }
  kiv::Result<std::vector<std::string>> contentsOfDirectoryAtPath(std::string_view path) override {
    return base_.contentsOfDirectoryAtPath(path);
  }

 private:
  kiv::FileManager& base_ = kiv::FileManager::defaultManager();
  kiv::FileManager* const former_ = kiv::FileManager::setDefaultManager(this);
  struct Failure {
    std::errc reason;
    std::string pathEnd;
  };

  std::map<Operation, Failure> failures_;
  std::map<Operation, int> counts_;
};
