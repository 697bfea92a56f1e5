#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/values/Value.h"

namespace kiv::bench {

/// A cache of many resources of mixed kinds: their configuration, their stored files, and the saved
/// list that the framework itself wrote of them.
///
/// Of eight resources four are banners, two are videos and two are pages, one of them an archive's.
/// Of ten, two in succession share their files. A tenth of the resources has a newer version, whose
/// files are stored too.
class Workload {
 public:
  /// Makes the files and the list in a folder of the directory that is named after the size. What
  /// stands there already is written over. Nothing is ever removed.
  Workload(const std::string& directory, std::size_t size);

  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] const std::string& listPath() const noexcept { return listPath_; }

  /// The configuration that names every resource as it is loaded.
  [[nodiscard]] const Value& config() const noexcept { return config_; }
  /// The one that names every second resource alone.
  [[nodiscard]] const Value& configOfHalf() const noexcept { return configOfHalf_; }
  /// The one with a tenth of the resources in a newer version.
  [[nodiscard]] const Value& configWithNewerTenth() const noexcept { return configWithNewerTenth_; }

  [[nodiscard]] std::size_t half() const noexcept { return (size_ + 1) / 2; }
  [[nodiscard]] std::size_t tenth() const noexcept { return (size_ + 9) / 10; }

  /// Every identifier once, in an order that is random and always the same.
  [[nodiscard]] const std::vector<std::string>& identifiers() const noexcept {
    return identifiers_;
  }
  [[nodiscard]] static const std::vector<std::string>& types();

  /// Makes this the framework's storage, with the saved list of all resources.
  void putWholeList() const { putList(wholeList_); }
  /// The same with the saved list of the first nine tenths of the resources.
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
