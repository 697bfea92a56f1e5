#pragma once

#include <filesystem>
#include <string>

namespace kiv::test {

/// Makes a directory the process's working directory until the end of the scope.
class WorkingDirectory {
 public:
  explicit WorkingDirectory(const std::string& path) : former_(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;
  ~WorkingDirectory() { std::filesystem::current_path(former_); }

 private:
  std::filesystem::path former_;
};

}  // namespace kiv::test
