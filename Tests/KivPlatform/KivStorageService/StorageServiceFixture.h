#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Support/ZipBuilder.h"

namespace kiv::test {

/// Maps the relative path of every item below a directory to its contents. Directories end in "/"
/// and have no contents; links have "-> target".
using Tree = std::map<std::string, std::string>;

/// A test with its own storage root.
class StorageServiceFixture : public testing::Test {
 protected:
  static constexpr std::string_view resources = "KivResource/Resources";

  StorageServiceFixture();
  ~StorageServiceFixture() override;

  [[nodiscard]] const std::string& root() const noexcept { return root_; }
  [[nodiscard]] std::string stored(std::string_view name) const;

  /// Saves a file to the resources directory. Returns the error, or nullopt on success.
  static std::optional<Error> save(std::string_view name, std::string_view bytes);
  /// The contents of a stored file, read without the service.
  [[nodiscard]] std::optional<std::string> contents(std::string_view name) const;
  /// Everything under the root except the service's own directory.
  [[nodiscard]] Tree tree() const;
  /// The contents of the service's own directory: temporary and left-over files.
  [[nodiscard]] Tree temporaries() const;
  /// Releases the root as on exit, and starts again on it.
  void restart();

  TemporaryDirectory scratch_;

 private:
  std::string root_;
};

Tree treeOf(const std::string& directory);

/// Writes a file without the service and creates its parent directories.
void put(const std::string& path, std::string_view bytes);

/// A valid archive with that page and one other file.
std::string pageArchive(std::string_view page);
/// The contents of the resources directory when that archive is stored as "promo.zip".
Tree pageTree(std::string_view page);

}  // namespace kiv::test
