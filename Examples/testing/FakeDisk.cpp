#include "FakeDisk.h"

#include <utility>

namespace {

using Operation = FakeDisk::Operation;

/// A file on the disk, whose writes may fail.
class FakeFile final : public kiv::WritableFile {
 public:
  FakeFile(FakeDisk& disk, std::unique_ptr<kiv::WritableFile> file, std::string_view path)
      : disk_(disk), file_(std::move(file)), path_(path) {}

  kiv::Status write(std::string_view bytes) override {
    if (kiv::Status status = disk_.enter(Operation::write, path_); !status) return status;
    return file_->write(bytes);
  }
  kiv::Status synchronize() override { return {}; }
  kiv::Status close() override { return file_->close(); }

 private:
  FakeDisk& disk_;
  const std::unique_ptr<kiv::WritableFile> file_;
  const std::string path_;
};

kiv::Result<std::unique_ptr<kiv::WritableFile>> onDisk(
    FakeDisk& disk, kiv::Result<std::unique_ptr<kiv::WritableFile>> file, std::string_view path) {
  if (!file) return file;
  return std::unique_ptr<kiv::WritableFile>(
      std::make_unique<FakeFile>(disk, *std::move(file), path));
}

}  // namespace

FakeDisk::FakeDisk() = default;

FakeDisk::~FakeDisk() {
  kiv::FileManager::setDefaultManager(former_);
}

void FakeDisk::fill() {
  for (const auto operation : {Operation::createDirectory, Operation::write})
    fail(operation, std::errc::no_space_on_device);
}

void FakeDisk::makeReadOnly() {
  for (const auto operation :
       {Operation::createDirectory, Operation::createFile, Operation::write, Operation::move,
        Operation::link, Operation::touch, Operation::remove, Operation::lock}) {
    fail(operation, std::errc::read_only_file_system);
  }
}

int FakeDisk::count(Operation operation) const {
  const auto counted = counts_.find(operation);
  return counted == counts_.end() ? 0 : counted->second;
}

kiv::Status FakeDisk::enter(Operation operation, std::string_view path) {
  const auto failure = failures_.find(operation);
  if (failure != failures_.end() && path.ends_with(failure->second.pathEnd)) {
    return kiv::systemError(static_cast<int>(failure->second.reason), "fake disk", path);
  }
  ++counts_[operation];
  return {};
}

kiv::Result<kiv::Data> FakeDisk::contentsAtPath(std::string_view path) {
  if (kiv::Status status = enter(Operation::read, path); !status) return status;
  return base_.contentsAtPath(path);
}

kiv::Result<std::unique_ptr<kiv::MappedFile>> FakeDisk::mapFileAtPath(std::string_view path) {
  if (kiv::Status status = enter(Operation::read, path); !status) return status;
  return base_.mapFileAtPath(path);
}

kiv::Result<kiv::FileSystemSpace> FakeDisk::spaceAtPath(std::string_view path) {
  auto space = base_.spaceAtPath(path);
  const bool isFull = failures_.contains(Operation::write);
  if (space && isFull) space->available = 0;
  return space;
}

kiv::Status FakeDisk::createDirectoryAtPath(std::string_view path) {
  if (base_.directoryExistsAtPath(path)) return {};  // nothing to create
  if (kiv::Status status = enter(Operation::createDirectory, path); !status) return status;
  return base_.createDirectoryAtPath(path);
}

kiv::Result<std::unique_ptr<kiv::WritableFile>> FakeDisk::createFileAtPath(std::string_view path) {
  if (kiv::Status status = enter(Operation::createFile, path); !status) return status;
  return onDisk(*this, base_.createFileAtPath(path), path);
}

kiv::Result<std::unique_ptr<kiv::WritableFile>> FakeDisk::openFileAtPath_length(
    std::string_view path, std::uint64_t length) {
  if (kiv::Status status = enter(Operation::createFile, path); !status) return status;
  return onDisk(*this, base_.openFileAtPath_length(path, length), path);
}

kiv::Status FakeDisk::touchFileAtPath(std::string_view path) {
  if (kiv::Status status = enter(Operation::touch, path); !status) return status;
  return base_.touchFileAtPath(path);
}

kiv::Status FakeDisk::moveItemAtPath_toPath(std::string_view path, std::string_view newPath) {
  if (kiv::Status status = enter(Operation::move, newPath); !status) return status;
  return base_.moveItemAtPath_toPath(path, newPath);
}

kiv::Status FakeDisk::linkFileAtPath_toPath(std::string_view path, std::string_view newPath) {
  if (kiv::Status status = enter(Operation::link, newPath); !status) return status;
  return base_.linkFileAtPath_toPath(path, newPath);
}

kiv::Status FakeDisk::exchangeItemAtPath_withItemAtPath(std::string_view path,
                                                        std::string_view otherPath) {
  if (kiv::Status status = enter(Operation::move, path); !status) return status;
  return base_.exchangeItemAtPath_withItemAtPath(path, otherPath);
}

kiv::Status FakeDisk::withdrawItemAtPath_toPath(std::string_view path, std::string_view newPath) {
  if (kiv::Status status = enter(Operation::move, path); !status) return status;
  return base_.withdrawItemAtPath_toPath(path, newPath);
}

kiv::Status FakeDisk::removeItemAtPath(std::string_view path) {
  if (kiv::Status status = enter(Operation::remove, path); !status) return status;
  return base_.removeItemAtPath(path);
}

kiv::Result<std::unique_ptr<kiv::FileLock>> FakeDisk::lockFileAtPath(std::string_view path) {
  if (kiv::Status status = enter(Operation::lock, path); !status) return status;
  return base_.lockFileAtPath(path);
}
