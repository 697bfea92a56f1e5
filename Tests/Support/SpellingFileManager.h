#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/text/Unicode.h"
#include "Tests/Support/ForwardingFileManager.h"

namespace kiv::test {

/// The disk as a file system shows it that ignores case and Unicode normalization, and keeps the
/// spelling under which a file was created.
class SpellingFileManager final : public ForwardingFileManager {
 public:
  /// Some systems resolve a path to the spelling on the disk, others keep the one that was asked.
  enum class Resolves { toStoredSpelling, toAskedSpelling };

  explicit SpellingFileManager(Resolves resolves) : resolves_(resolves) {}

  Result<std::string> resolvedPathOfItemAtPath(std::string_view path) override {
    auto resolved = ForwardingFileManager::resolvedPathOfItemAtPath(path);
    if (resolved && resolves_ == Resolves::toAskedSpelling) return std::string(path);
    return resolved;
  }

 protected:
  std::string onDisk(std::string_view path) override {
    if (exists(path) || path.size() <= 1) return std::string(path);
    const std::string directory = onDisk(path::deletingLastPathComponent(path));
    const std::string_view name = path::lastPathComponent(path);
    std::error_code failure;
    for (const auto& entry : std::filesystem::directory_iterator(directory, failure)) {
      const std::string stored = entry.path().filename().string();
      if (unicode::folded(stored) == unicode::folded(name)) return entry.path().string();
    }
    return path::appendingPathComponent(directory, name);
  }

 private:
  static bool exists(std::string_view path) {
    std::error_code failure;
    return std::filesystem::exists(std::filesystem::symlink_status(path, failure));
  }

  const Resolves resolves_;
};

}  // namespace kiv::test
