#include "Fuzz/MemoryFiles.h"

#include <cerrno>

#include "Fuzz/Require.h"
#include "KivPlatform/Foundation/files/FileName.h"
#include "KivPlatform/Foundation/files/Path.h"

namespace kiv::fuzz {

class MemoryFiles::File final : public WritableFile {
 public:
  explicit File(std::uint64_t& size) : size_(size) {}
  Status write(std::string_view bytes) override {
    size_ += bytes.size();
    return {};
  }
  Status synchronize() override { return {}; }
  Status close() override { return {}; }

 private:
  std::uint64_t& size_;
};

/// True if the path is the directory, or below it with harmless names only.
void MemoryFiles::requireHarmless(std::string_view path) const {
  require(path.starts_with(directory_), "everything is written below the directory");
  std::string_view rest = path.substr(directory_.size());
  while (!rest.empty()) {
    require(rest.starts_with('/'), "names are joined by one separator");
    rest.remove_prefix(1);
    const std::string_view name = rest.substr(0, rest.find('/'));
    require(filename::isValid(name), "every name is harmless");
    rest.remove_prefix(name.size());
  }
}

Status MemoryFiles::createDirectoryAtPath(std::string_view path) {
  requireHarmless(path);
  require(path == directory_ || directories_.contains(path::deletingLastPathComponent(path)),
          "a directory is made in one that was made before");
  require(directories_.emplace(path).second && !files_.contains(path),
          "a directory is made where nothing lies");
  return {};
}

Result<std::unique_ptr<WritableFile>> MemoryFiles::createFileAtPath(std::string_view path) {
  requireHarmless(path);
  require(directories_.contains(path::deletingLastPathComponent(path)),
          "a file is made in a directory that was made before");
  const auto [file, isNew] = files_.emplace(path, 0);
  require(isNew && !directories_.contains(path), "a file is made where nothing lies");
  return std::make_unique<File>(file->second);
}

Status MemoryFiles::synchronizeDirectoryAtPath(std::string_view path) {
  require(directories_.contains(path), "a directory is synced that was made before");
  return {};
}

std::unique_ptr<BatchSync> MemoryFiles::beginBatchSyncAtPath(std::string_view) {
  return nullptr;
}

Result<FileSystemSpace> MemoryFiles::spaceAtPath(std::string_view path) {
  return systemError(ENOTSUP, "measure the space at", path);
}

}  // namespace kiv::fuzz
