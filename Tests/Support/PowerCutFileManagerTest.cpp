#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "Tests/Support/PowerCutFileManager.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace kiv::test {
namespace {

/// Tests of the test double: if it kept data that was not synced, the tests that use it would prove
/// nothing.
class PowerCutFileManagerTest : public testing::Test {
 protected:
  void write(const std::string& name, std::string_view bytes, bool synced) {
    const auto file = files_.createFileAtPath(scratch_.path(name)).value_or(nullptr);
    ASSERT_TRUE(file && file->write(bytes));
    if (synced) {
      ASSERT_TRUE(file->synchronize());
    }
    ASSERT_TRUE(file->close());
  }
  std::optional<std::string> read(const std::string& name) {
    if (!std::filesystem::exists(scratch_.path(name))) return std::nullopt;
    std::ifstream stream(scratch_.path(name));
    return std::string(std::istreambuf_iterator<char>(stream), {});
  }

  TemporaryDirectory scratch_;
  PowerCutFileManager files_{scratch_.path()};
};

TEST_F(PowerCutFileManagerTest, ANameThatWasNotSyncedIsLost) {
  write("a", "bytes", true);
  files_.restart(PowerCutFileManager::Loss::everythingUnsynced);
  EXPECT_EQ(read("a"), std::nullopt);
}

TEST_F(PowerCutFileManagerTest, BytesThatWereNotSyncedAreLostUnderASyncedName) {
  write("a", "bytes", false);
  ASSERT_TRUE(files_.synchronizeDirectoryAtPath(scratch_.path()));
  files_.restart(PowerCutFileManager::Loss::everythingUnsynced);
  EXPECT_EQ(read("a"), "");
}

TEST_F(PowerCutFileManagerTest, WhatWasSyncedStays) {
  write("a", "bytes", true);
  ASSERT_TRUE(files_.synchronizeDirectoryAtPath(scratch_.path()));
  files_.restart(PowerCutFileManager::Loss::everythingUnsynced);
  EXPECT_EQ(read("a"), "bytes");
}

TEST_F(PowerCutFileManagerTest, WhatABatchHasSyncedStaysAndWhatItHasNotIsLost) {
  ASSERT_TRUE(files_.createDirectoryAtPath(scratch_.path("d")));
  ASSERT_TRUE(files_.synchronizeDirectoryAtPath(scratch_.path()));
  EXPECT_EQ(files_.beginBatchSyncAtPath(scratch_.path("d")), nullptr);
  files_.allowsBatchSyncs = true;
  const auto batch = files_.beginBatchSyncAtPath(scratch_.path("d"));
  ASSERT_TRUE(batch);
  write("d/a", "bytes", false);
  ASSERT_TRUE(batch->synchronize());
  write("d/b", "bytes", false);
  files_.restart(PowerCutFileManager::Loss::everythingUnsynced);
  EXPECT_EQ(read("d/a"), "bytes");
  EXPECT_EQ(read("d/b"), std::nullopt);
}

TEST_F(PowerCutFileManagerTest, ARenameThatWasNotSyncedIsUndone) {
  write("a", "old", true);
  write("b", "new", true);
  ASSERT_TRUE(files_.synchronizeDirectoryAtPath(scratch_.path()));
  ASSERT_TRUE(files_.moveItemAtPath_toPath(scratch_.path("b"), scratch_.path("a")));
  EXPECT_EQ(read("a"), "new");
  files_.restart(PowerCutFileManager::Loss::everythingUnsynced);
  EXPECT_EQ(read("a"), "old");
  EXPECT_EQ(read("b"), "new");
}

TEST_F(PowerCutFileManagerTest, NothingWorksAfterTheCut) {
  files_.cutAfter(1);
  EXPECT_TRUE(files_.createDirectoryAtPath(scratch_.path("a")));
  EXPECT_FALSE(files_.wasCut());
  EXPECT_FALSE(files_.createDirectoryAtPath(scratch_.path("b")));
  EXPECT_TRUE(files_.wasCut());
  EXPECT_FALSE(std::filesystem::exists(scratch_.path("b")));
}

}  // namespace
}  // namespace kiv::test
