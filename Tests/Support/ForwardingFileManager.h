#pragma once

#include <string>

#include "KivPlatform/Foundation/files/FileManager.h"

namespace kiv::test {

/// Replaces the file manager in use for the lifetime of this object and forwards every operation to
/// the one it replaced. A test double derives from it and overrides what it changes.
class ForwardingFileManager : public FileManager {
 public:
  ForwardingFileManager() : base_(FileManager::defaultManager()) {
    former_ = FileManager::setDefaultManager(this);
  }
  ForwardingFileManager(const ForwardingFileManager&) = delete;
  ForwardingFileManager& operator=(const ForwardingFileManager&) = delete;
  ~ForwardingFileManager() override { FileManager::setDefaultManager(former_); }

  bool fileExistsAtPath(std::string_view path) override {
    return base_.fileExistsAtPath(onDisk(path));
  }
  bool itemExistsAtPath(std::string_view path) override {
    return base_.itemExistsAtPath(onDisk(path));
  }
  bool directoryExistsAtPath(std::string_view path) override {
    return base_.directoryExistsAtPath(onDisk(path));
  }
  bool linkExistsAtPath(std::string_view path) override {
    return base_.linkExistsAtPath(onDisk(path));
  }
  Status fileIsReadableAtPath(std::string_view path) override {
    return base_.fileIsReadableAtPath(onDisk(path));
  }
  Result<std::string> resolvedPathOfItemAtPath(std::string_view path) override {
    return base_.resolvedPathOfItemAtPath(onDisk(path));
  }
  Result<std::uint64_t> sizeOfItemAtPath(std::string_view path) override {
    return base_.sizeOfItemAtPath(onDisk(path));
  }
  Result<FileSystemSpace> spaceAtPath(std::string_view path) override {
    return base_.spaceAtPath(onDisk(path));
  }
  Result<Data> contentsAtPath(std::string_view path) override {
    return base_.contentsAtPath(onDisk(path));
  }
  Result<std::unique_ptr<MappedFile>> mapFileAtPath(std::string_view path) override {
    return base_.mapFileAtPath(onDisk(path));
  }
  std::optional<std::uint64_t> lengthOfFileAtPath(std::string_view path) override {
    return base_.lengthOfFileAtPath(onDisk(path));
  }
  Result<FileIdentity> identityOfFileAtPath(std::string_view path) override {
    return base_.identityOfFileAtPath(onDisk(path));
  }
  Status linkFileAtPath_toPath(std::string_view path, std::string_view newPath) override {
    return base_.linkFileAtPath_toPath(onDisk(path), onDisk(newPath));
  }
  Result<std::vector<std::string>> contentsOfDirectoryAtPath(std::string_view path) override {
    return base_.contentsOfDirectoryAtPath(onDisk(path));
  }
  Result<std::vector<std::string>> filesOfDirectoryAtPath_mostEntries(
      std::string_view path, std::size_t mostEntries) override {
    return base_.filesOfDirectoryAtPath_mostEntries(onDisk(path), mostEntries);
  }
  Status createDirectoryAtPath(std::string_view path) override {
    return base_.createDirectoryAtPath(onDisk(path));
  }
  Result<std::unique_ptr<WritableFile>> createFileAtPath(std::string_view path) override {
    return base_.createFileAtPath(onDisk(path));
  }
  Result<std::unique_ptr<WritableFile>> openFileAtPath_length(std::string_view path,
                                                              std::uint64_t length) override {
    return base_.openFileAtPath_length(onDisk(path), length);
  }
  Status touchFileAtPath(std::string_view path) override {
    return base_.touchFileAtPath(onDisk(path));
  }
  Status synchronizeDirectoryAtPath(std::string_view path) override {
    return base_.synchronizeDirectoryAtPath(onDisk(path));
  }
  std::unique_ptr<BatchSync> beginBatchSyncAtPath(std::string_view path) override {
    return base_.beginBatchSyncAtPath(onDisk(path));
  }
  Status moveItemAtPath_toPath(std::string_view path, std::string_view newPath) override {
    return base_.moveItemAtPath_toPath(onDisk(path), onDisk(newPath));
  }
  Status exchangeItemAtPath_withItemAtPath(std::string_view path,
                                           std::string_view otherPath) override {
    return base_.exchangeItemAtPath_withItemAtPath(onDisk(path), onDisk(otherPath));
  }
  Status withdrawItemAtPath_toPath(std::string_view path, std::string_view newPath) override {
    return base_.withdrawItemAtPath_toPath(onDisk(path), onDisk(newPath));
  }
  Status removeItemAtPath(std::string_view path) override {
    return base_.removeItemAtPath(onDisk(path));
  }
  Result<std::unique_ptr<FileLock>> lockFileAtPath(std::string_view path) override {
    return base_.lockFileAtPath(onDisk(path));
  }

 protected:
  /// The path that the replaced file manager gets instead.
  virtual std::string onDisk(std::string_view path) { return std::string(path); }

 private:
  FileManager& base_;
  FileManager* former_ = nullptr;
};

}  // namespace kiv::test
