#pragma once

#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <string>
#include <string_view>
#include <system_error>

#include <gtest/gtest.h>

namespace kiv::test {

/// A temporary directory for one test. The destructor removes it with its contents, unless the test
/// failed: then it is kept and its path is printed.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::random_device random;
    const auto parent = std::filesystem::canonical(std::filesystem::temp_directory_path());
    do {
      const std::string number = std::to_string(random()) + std::to_string(random());
      path_ = (parent / ("KivResource-" + number)).string();
    } while (!std::filesystem::create_directory(path_));
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() {
    if (testing::Test::HasFailure()) {
      std::cerr << "The failed test's scratch directory is kept: " << path_ << std::endl;
      return;
    }
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  /// The path of an item in the directory; the item need not exist.
  [[nodiscard]] std::string path(std::string_view relativePath) const {
    return path_ + "/" + std::string(relativePath);
  }

  /// Writes a file, creates missing parent directories, and returns its path.
  std::string write(std::string_view relativePath, std::string_view bytes = "contents") const {
    std::string file = path(relativePath);
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    std::ofstream stream(file, std::ios::binary);
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    return file;
  }

 private:
  std::string path_;
};

}  // namespace kiv::test
