#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "KivPlatform/AppConfiguration/KivAppConfiguration.h"
#include "KivPlatform/Foundation/system/Bundle.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "Tests/Support/ReadFile.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace kiv::test {

/// A test with its own storage root and packaged bundle, both empty.
class CacheFixture : public testing::Test {
 protected:
  CacheFixture() {
    KivStorageService::setRootPath(root());
    kiv::Bundle::setFrameworkResourcesPath(packaged());
  }

  ~CacheFixture() override {
    KivStorageService::setRootPath(std::nullopt);
    kiv::Bundle::setFrameworkResourcesPath(std::nullopt);
    KivAppConfiguration::sharedInstance()->setMainACSDomain(std::nullopt);
    KivAppConfiguration::sharedInstance()->setReserveACSDomain(std::nullopt);
  }

  [[nodiscard]] std::string root() const { return directory_.path() + "/root"; }
  [[nodiscard]] std::string packaged() const { return directory_.path() + "/packaged"; }
  [[nodiscard]] std::string listPath() const {
    return root() + "/KivResource/resources_config.json";
  }
  /// The path of a downloaded file, or of a page of an unpacked archive.
  [[nodiscard]] std::string stored(std::string_view name) const {
    return root() + "/KivResource/Resources/" + std::string(name);
  }

  static void write(const std::string& path, std::string_view bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
  }
  static std::string read(const std::string& path) { return readFile(path); }
  static bool exists(const std::string& path) {
    return std::filesystem::exists(std::filesystem::symlink_status(path));
  }

 private:
  TemporaryDirectory directory_;
};

}  // namespace kiv::test
