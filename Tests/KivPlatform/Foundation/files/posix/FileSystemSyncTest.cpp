#include <gtest/gtest.h>

#include "KivPlatform/Foundation/files/posix/FileSystemSync.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace kiv::test {
namespace {

// What it brings shows only after a power cut; which way is taken depends on the file system and on
// what other programs are writing. So these tests ask for what holds in every case.

/// So many that they pay for whatever the machine has not written yet.
constexpr std::size_t manyFiles = SIZE_MAX;

TEST(FileSystemSyncTest, ASyncOfManyFilesSucceedsWhereThereIsOne) {
  const TemporaryDirectory scratch;
  const auto batch = beginFileSystemSync(scratch.path(), manyFiles);
  const bool isAvailable = batch != nullptr;
  RecordProperty("isAvailable", isAvailable);
  scratch.write("a");
  std::optional<Error> error;
  EXPECT_TRUE(!batch || batch->synchronize(&error));
  EXPECT_FALSE(error);
  EXPECT_EQ(beginFileSystemSync(scratch.path(), manyFiles) != nullptr, isAvailable);
}

TEST(FileSystemSyncTest, AFewFilesAreSyncedOneByOne) {
  const TemporaryDirectory scratch;
  EXPECT_EQ(beginFileSystemSync(scratch.path(), 1), nullptr);
}

TEST(FileSystemSyncTest, NothingButADirectoryIsSynced) {
  const TemporaryDirectory scratch;
  EXPECT_EQ(beginFileSystemSync(scratch.path("missing"), manyFiles), nullptr);
  EXPECT_EQ(beginFileSystemSync(scratch.write("file"), manyFiles), nullptr);
  EXPECT_EQ(beginFileSystemSync(scratch.path() + std::string("\0x", 2), manyFiles), nullptr);
}

TEST(FileSystemSyncTest, AFileSystemThatHasNoDiskIsSyncedFileByFile) {
  EXPECT_EQ(beginFileSystemSync("/proc", manyFiles), nullptr);
}

}  // namespace
}  // namespace kiv::test
