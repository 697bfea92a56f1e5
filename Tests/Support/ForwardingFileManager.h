#pragma once

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

  bool fileExistsAtPath(std::string_view path) override { return base_.fileExistsAtPath(path); }
  bool itemExistsAtPath(std::string_view path) override { return base_.itemExistsAtPath(path); }
  bool directoryExistsAtPath(std::string_view path) override {
    return base_.directoryExistsAtPath(path);
  }
  bool linkExistsAtPath(std::string_view path) override { return base_.linkExistsAtPath(path); }
  Status fileIsReadableAtPath(std::string_view path) override {
    return base_.fileIsReadableAtPath(path);
  }
  Result<std::string> resolvedPathOfItemAtPath(std::string_view path) override {
    return base_.resolvedPathOfItemAtPath(path);
  }
  Result<std::uint64_t> sizeOfItemAtPath(std::string_view path) override {
    return base_.sizeOfItemAtPath(path);
  }
  Result<FileSystemSpace> spaceAtPath(std::string_view path) override {
    return base_.spaceAtPath(path);
  }
  Result<Data> contentsAtPath(std::string_view path) override { return base_.contentsAtPath(path); }
  Result<std::unique_ptr<MappedFile>> mapFileAtPath(std::string_view path) override {
    return base_.mapFileAtPath(path);
  }
  std::optional<std::uint64_t> lengthOfFileAtPath(std::string_view path) override {
    return base_.lengthOfFileAtPath(path);
  }
  Result<FileIdentity> identityOfFileAtPath(std::string_view path) override {
    return base_.identityOfFileAtPath(path);
  }
  Result<std::vector<std::string>> contentsOfDirectoryAtPath(std::string_view path) override {
    return base_.contentsOfDirectoryAtPath(path);
  }
  Result<std::vector<std::string>> filesOfDirectoryAtPath_mostEntries(
      std::string_view path, std::size_t mostEntries) override {
    return base_.filesOfDirectoryAtPath_mostEntries(path, mostEntries);
  }
  Status createDirectoryAtPath(std::string_view path) override {
    return base_.createDirectoryAtPath(path);
  }
  Result<std::unique_ptr<WritableFile>> createFileAtPath(std::string_view path) override {
    return base_.createFileAtPath(path);
  }
  Result<std::unique_ptr<WritableFile>> openFileAtPath_length(std::string_view path,
                                                              std::uint64_t length) override {
    return base_.openFileAtPath_length(path, length);
  }
  Status synchronizeDirectoryAtPath(std::string_view path) override {
    return base_.synchronizeDirectoryAtPath(path);
  }
  std::unique_ptr<BatchSync> beginBatchSyncAtPath(std::string_view path) override {
    return base_.beginBatchSyncAtPath(path);
  }
  Status moveItemAtPath_toPath(std::string_view path, std::string_view newPath) override {
    return base_.moveItemAtPath_toPath(path, newPath);
  }
  Status exchangeItemAtPath_withItemAtPath(std::string_view path,
                                           std::string_view otherPath) override {
    return base_.exchangeItemAtPath_withItemAtPath(path, otherPath);
  }
  Status withdrawItemAtPath_toPath(std::string_view path, std::string_view newPath) override {
    return base_.withdrawItemAtPath_toPath(path, newPath);
  }
  Status removeItemAtPath(std::string_view path) override { return base_.removeItemAtPath(path); }
  Result<std::unique_ptr<FileLock>> lockFileAtPath(std::string_view path) override {
    return base_.lockFileAtPath(path);
  }

 private:
  FileManager& base_;
  FileManager* former_ = nullptr;
};

}  // namespace kiv::test
