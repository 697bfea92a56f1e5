#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/values/Value.h"

namespace kiv::bench {

/// A cache of many resources of mixed kinds: configuration, stored files, and the saved list,
/// written by the framework.
///
/// Of eight resources four are banners, two are videos and two are pages, one of them from an
/// archive. Of ten, two successive ones share their files. A tenth of the resources has a newer
/// version, whose files are stored too.
class Workload {
 public:
  /// Creates the files and the list in a subdirectory named after the size. Existing files are
  /// overwritten, and nothing is removed.
  Workload(const std::string& directory, std::size_t size);

  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] const std::string& listPath() const noexcept { return listPath_; }

  /// The configuration of all resources as they are loaded.
  [[nodiscard]] const Value& config() const noexcept { return config_; }
  /// That of every second resource.
  [[nodiscard]] const Value& configOfHalf() const noexcept { return configOfHalf_; }
  /// That with a newer version of a tenth of the resources.
  [[nodiscard]] const Value& configWithNewerTenth() const noexcept { return configWithNewerTenth_; }

  [[nodiscard]] std::size_t half() const noexcept { return (size_ + 1) / 2; }
  [[nodiscard]] std::size_t tenth() const noexcept { return (size_ + 9) / 10; }

  /// Every identifier once, in a random order that is the same in all runs.
  [[nodiscard]] const std::vector<std::string>& identifiers() const noexcept {
    return identifiers_;
  }
  [[nodiscard]] static const std::vector<std::string>& types();

  /// Makes this the framework's storage root, with the saved list of all resources.
  void putWholeList() const { putList(wholeList_); }
  /// The same with the saved list of the first 90 % of the resources.
  void putListWithoutTenth() const { putList(listWithoutTenth_); }

 private:
  void storeFiles(std::size_t number, unsigned version) const;
  void makeConfigs();
  void makeLists();
  void putList(const std::string& text) const;

  std::size_t size_;
  std::string root_;
  std::string listPath_;
  Value config_;
  Value configOfHalf_;
  Value configWithNewerTenth_;
  std::string wholeList_;
  std::string listWithoutTenth_;
  std::vector<std::string> identifiers_;
};

}  // namespace kiv::bench
