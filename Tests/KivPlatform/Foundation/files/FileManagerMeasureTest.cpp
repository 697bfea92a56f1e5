#include <cerrno>
#include <filesystem>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Support/WorkingDirectory.h"

namespace kiv::test {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

/// Readability, resolved paths, sizes and free space.
class FileManagerMeasureTest : public testing::Test {
 protected:
  static std::uint64_t blocks(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return static_cast<std::uint64_t>(status.st_blocks) * 512;
  }

  void expectUnreadable(const std::string& path, int number) {
    const Status status = manager_.fileIsReadableAtPath(path);
    ASSERT_FALSE(status) << path;
    EXPECT_EQ(status.error().code, number) << status.error().localizedDescription();
    EXPECT_FALSE(manager_.fileIsReadableAtPath(path));
  }

  const TemporaryDirectory scratch_;
  FileManager& manager_ = FileManager::defaultManager();
};

TEST_F(FileManagerMeasureTest, AFileIsReadableAlsoAnEmptyOneAndBehindALink) {
  EXPECT_TRUE(manager_.fileIsReadableAtPath(scratch_.write("file")));
  EXPECT_TRUE(manager_.fileIsReadableAtPath(scratch_.write("empty", "")));
  fs::create_symlink(scratch_.path("file"), scratch_.path("link"));
  EXPECT_TRUE(manager_.fileIsReadableAtPath(scratch_.path("link")));
}

TEST_F(FileManagerMeasureTest, NothingButARegularFileIsReadable) {
  const std::string pipe = scratch_.path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  expectUnreadable(pipe, EINVAL);  // the pipe has no writer: opening it must not block
  expectUnreadable(scratch_.path(), EISDIR);
  expectUnreadable(scratch_.path("missing"), ENOENT);
  expectUnreadable(scratch_.write("file") + "\0"s, EINVAL);
}

TEST_F(FileManagerMeasureTest, APathIsResolvedThroughLinksDotsAndEmptyComponents) {
  const std::string file = scratch_.write("dir/file");
  fs::create_directory_symlink(scratch_.path("dir"), scratch_.path("link"));
  EXPECT_EQ(manager_.resolvedPathOfItemAtPath(scratch_.path("link//.././dir/file")), file);
  EXPECT_EQ(manager_.resolvedPathOfItemAtPath(scratch_.path("link")), scratch_.path("dir"));
  const WorkingDirectory working(scratch_.path("dir"));
  EXPECT_EQ(manager_.resolvedPathOfItemAtPath("file"), file);
  EXPECT_EQ(manager_.resolvedPathOfItemAtPath("/"), "/");
}

TEST_F(FileManagerMeasureTest, WhatLeadsNowhereHasNoResolvedPath) {
  fs::create_symlink(scratch_.path("missing"), scratch_.path("dangling"));
  for (const std::string& path :
       {scratch_.path("missing"), scratch_.path("dangling"), ""s, scratch_.write("f") + "\0"s}) {
    EXPECT_FALSE(manager_.resolvedPathOfItemAtPath(path));
  }
}

TEST_F(FileManagerMeasureTest, ASizeIsWhatTheFileTakesOnTheDisk) {
  const std::string large = scratch_.write("large", std::string(300'000, 'x'));
  const std::string sparse = scratch_.write("sparse", "");
  fs::resize_file(sparse, 10'000'000);
  EXPECT_EQ(manager_.sizeOfItemAtPath(large), blocks(large));
  EXPECT_GE(*manager_.sizeOfItemAtPath(large), 300'000U);
  EXPECT_LT(*manager_.sizeOfItemAtPath(sparse), 10'000'000U);
}

TEST_F(FileManagerMeasureTest, ADirectorysSizeIsThatOfEverythingInItButOfNothingBehindLinks) {
  const std::string one = scratch_.write("dir/one", std::string(100'000, 'x'));
  const std::string two = scratch_.write("dir/a/b/two", std::string(200'000, 'x'));
  const std::string outside = scratch_.write("outside/file", std::string(400'000, 'x'));
  fs::create_directory_symlink(scratch_.path("outside"), scratch_.path("dir/link"));
  const std::uint64_t expected = blocks(one) + blocks(two) + blocks(scratch_.path("dir")) +
                                 blocks(scratch_.path("dir/a")) + blocks(scratch_.path("dir/a/b")) +
                                 blocks(scratch_.path("dir/link"));
  EXPECT_EQ(manager_.sizeOfItemAtPath(scratch_.path("dir")), expected);
  EXPECT_EQ(manager_.sizeOfItemAtPath(scratch_.path("dir/link")),
            blocks(scratch_.path("dir/link")));
  EXPECT_LT(expected, 700'000U);
}

TEST_F(FileManagerMeasureTest, WhatIsMissingHasNoSize) {
  const auto size = manager_.sizeOfItemAtPath(scratch_.path("missing"));
  ASSERT_FALSE(size);
  EXPECT_EQ(size.error().code, ENOENT);
}

TEST_F(FileManagerMeasureTest, TheSpaceIsThatOfTheFileSystem) {
  struct statvfs status {};
  scratch_.write("file", std::string(100'000, 'x'));
  ASSERT_EQ(statvfs(scratch_.path().c_str(), &status), 0);
  const auto space = manager_.spaceAtPath(scratch_.path());
  ASSERT_TRUE(space);
  // Other programs write to this disk too, so the free space is only known approximately.
  const std::uint64_t total = status.f_blocks * status.f_frsize;
  EXPECT_GT(space->available, 0U);
  EXPECT_GT(space->used, 0U);
  EXPECT_LE(space->used + space->available, total);
}

TEST_F(FileManagerMeasureTest, APathThatIsMissingHasTheSpaceOfWhatStandsAboveIt) {
  EXPECT_TRUE(manager_.spaceAtPath(scratch_.path("a/b/c")));
  EXPECT_TRUE(manager_.spaceAtPath(scratch_.path("a//b/")));
}

TEST_F(FileManagerMeasureTest, WhatIsNoPathHasNoSpace) {
  for (const std::string& path : {""s, "missing"s, scratch_.write("f") + "/x", "/\0"s}) {
    EXPECT_FALSE(manager_.spaceAtPath(path)) << path;
  }
}

}  // namespace
}  // namespace kiv::test
