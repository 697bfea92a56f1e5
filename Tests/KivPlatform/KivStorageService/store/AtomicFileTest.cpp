#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/store/AtomicFile.h"
#include "KivPlatform/KivStorageService/store/StorageRoot.h"
#include "Tests/KivPlatform/KivStorageService/StorageServiceFixture.h"
#include "Tests/Support/FaultyFileManager.h"

namespace kiv::storage {
namespace {

class AtomicFileTest : public testing::Test {
 protected:
  test::TemporaryDirectory scratch_;
  StorageRoot root_{scratch_.path()};

  [[nodiscard]] std::size_t files() const {
    std::size_t count = 0;
    for (const auto& [path, bytes] : test::treeOf(scratch_.path())) {
      count += !path.ends_with('/') && !path.ends_with(".lock");
    }
    return count;
  }

  /// Creates files at the paths of the next temporary files and returns these paths.
  std::vector<std::string> takeNextPlaces() {
    const std::string last = (*root_.makeTemporary()).path();
    const std::string directory(path::deletingLastPathComponent(last));
    const int number = std::stoi(std::string(path::lastPathComponent(last)));
    std::vector<std::string> taken;
    for (int next = number + 1; next <= number + 3; ++next) {
      taken.push_back(path::appendingPathComponent(directory, std::to_string(next)));
      test::put(taken.back(), "somebody's");
    }
    return taken;
  }
};

TEST_F(AtomicFileTest, AppearsWhenItIsCommitted) {
  auto created = AtomicFile::create(root_, kiv::storage::Access::shared);
  ASSERT_TRUE(created);
  auto file = std::move(created).toOptional();
  EXPECT_TRUE(file->write("one "));
  EXPECT_TRUE(file->write("two"));
  EXPECT_FALSE(test::treeOf(scratch_.path()).contains("a"));
  EXPECT_TRUE(file->commit(scratch_.path("a")));
  file.reset();
  EXPECT_EQ(test::treeOf(scratch_.path()).at("a"), "one two");
  EXPECT_EQ(files(), 1U);
}

TEST_F(AtomicFileTest, IsDiscardedWhenItIsNotCommitted) {
  {
    auto file = AtomicFile::create(root_, kiv::storage::Access::shared);
    ASSERT_TRUE(file && file->write("bytes"));
    EXPECT_EQ(files(), 1U);
  }
  EXPECT_EQ(files(), 0U);
}

TEST_F(AtomicFileTest, LeavesAloneWhatLiesWhereItsTemporaryWouldLie) {
  const auto taken = takeNextPlaces();
  auto file = AtomicFile::create(root_, kiv::storage::Access::shared);
  ASSERT_TRUE(file && file->write("bytes"));
  ASSERT_TRUE(file->commit(scratch_.path("a")));
  EXPECT_EQ(test::treeOf(scratch_.path()).at("a"), "bytes");
  for (const std::string& path : taken)
    EXPECT_EQ(FileManager::defaultManager().contentsAtPath(path), Data("somebody's"));
}

TEST_F(AtomicFileTest, TemporariesOfOtherSortsComeWhereNothingLies) {
  const auto taken = takeNextPlaces();
  const auto temporary = root_.makeTemporary();
  ASSERT_TRUE(temporary);
  EXPECT_FALSE(std::filesystem::exists(temporary->path()));
  EXPECT_EQ(std::count(taken.begin(), taken.end(), temporary->path()), 0);
}

TEST_F(AtomicFileTest, TriesAnotherPlaceOnlyWhereOneIsTakenAndNotForEver) {
  const auto triesWhen = [this](int number) {
    test::FaultyFileManager files;
    files.setFailingOperation(test::FileOperation::createFile, number);
    const auto file = AtomicFile::create(root_, kiv::storage::Access::shared);
    EXPECT_TRUE(!file && file.error().code == number);
    const auto operations = files.operations();
    return std::count_if(operations.begin(), operations.end(), [](const auto& operation) {
      return operation.kind == test::FileOperation::createFile;
    });
  };
  EXPECT_EQ(triesWhen(ENOSPC), 1);
  EXPECT_EQ(triesWhen(EEXIST), 100);
}

TEST_F(AtomicFileTest, IsDiscardedWhenItCannotBeNamed) {
  {
    auto file = AtomicFile::create(root_, kiv::storage::Access::shared);
    ASSERT_TRUE(file && file->write("bytes"));
    EXPECT_FALSE(file->commit(scratch_.path("missing/a")));
  }
  EXPECT_EQ(files(), 0U);
}

}  // namespace
}  // namespace kiv::storage
