#pragma once

#include <filesystem>
#include <string>

namespace kiv::test {

/// Changes the working directory of the process until the end of the scope.
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
