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

/// Relative path to contents, of every file below a directory; directories end in "/" and have
/// none, links read "-> target".
using Tree = std::map<std::string, std::string>;

/// A test on a storage root of its own.
class StorageServiceFixture : public testing::Test {
 protected:
  static constexpr std::string_view resources = "KivResource/Resources";

  StorageServiceFixture();
  ~StorageServiceFixture() override;

  [[nodiscard]] const std::string& root() const noexcept { return root_; }
  [[nodiscard]] std::string stored(std::string_view name) const;

  /// Saves among the resources; the error, or nothing on success.
  static std::optional<Error> save(std::string_view name, std::string_view bytes);
  /// What a stored file of the resources holds, read past the service.
  [[nodiscard]] std::optional<std::string> contents(std::string_view name) const;
  /// Everything under the root but the service's own directory.
  [[nodiscard]] Tree tree() const;
  /// The same of the service's own directory: what is not complete, or was left over.
  [[nodiscard]] Tree temporaries() const;
  /// Leaves the root as a process does that ends, and starts anew on it.
  void restart();

  TemporaryDirectory scratch_;

 private:
  std::string root_;
};

Tree treeOf(const std::string& directory);

/// Writes a file past the service, with the directories above it.
void put(const std::string& path, std::string_view bytes);

/// A correct archive with that page and one file beside it.
std::string pageArchive(std::string_view page);
/// What lies under the resources directory when that archive is stored as "promo.zip".
Tree pageTree(std::string_view page);

}  // namespace kiv::test
