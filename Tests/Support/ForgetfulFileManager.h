#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "Tests/Support/ForwardingFileManager.h"

namespace kiv::test {

/// Reports that files with one name do not exist.
class ForgetfulFileManager final : public ForwardingFileManager {
 public:
  explicit ForgetfulFileManager(std::string name) : name_(std::move(name)) {}
  bool fileExistsAtPath(std::string_view path) override {
    return !path.ends_with(name_) && ForwardingFileManager::fileExistsAtPath(path);
  }

 private:
  std::string name_;
};

}  // namespace kiv::test
