#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "Tests/Support/ForwardingFileManager.h"

namespace kiv::fuzz {

/// Keeps written files in memory. Aborts if a file is written outside the directory, twice, or into
/// a missing directory. All other operations are the system's.
class MemoryFiles final : public test::ForwardingFileManager {
 public:
  explicit MemoryFiles(std::string directory) : directory_(std::move(directory)) {}

  Status createDirectoryAtPath(std::string_view path) override;
  Result<std::unique_ptr<WritableFile>> createFileAtPath(std::string_view path) override;
  Status synchronizeDirectoryAtPath(std::string_view path) override;
  std::unique_ptr<BatchSync> beginBatchSyncAtPath(std::string_view path) override;
  Result<FileSystemSpace> spaceAtPath(std::string_view path) override;

  /// The sizes of the files, by path.
  [[nodiscard]] const std::map<std::string, std::uint64_t, std::less<>>& files() const noexcept {
    return files_;
  }

 private:
  class File;
  void requireHarmless(std::string_view path) const;

  std::string directory_;
  std::set<std::string, std::less<>> directories_;
  std::map<std::string, std::uint64_t, std::less<>> files_;
};

}  // namespace kiv::fuzz
