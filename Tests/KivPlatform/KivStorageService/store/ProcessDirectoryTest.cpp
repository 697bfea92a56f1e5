#include <cerrno>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/store/ProcessDirectory.h"
#include "Tests/KivPlatform/KivStorageService/StorageServiceFixture.h"
#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/RemovalGuard.h"

namespace kiv::storage {
namespace {

class ProcessDirectoryTest : public testing::Test {
 protected:
  ProcessDirectory::Salvage salvage() {
    return [this](const std::string& path) { salvaged_.push_back(path); };
  }
  std::shared_ptr<ProcessDirectory> create() {
    return ProcessDirectory::create(parent_, salvage()).value_or(nullptr);
  }
  void sweep() { ProcessDirectory::sweep(parent_, salvage()); }

  test::TemporaryDirectory scratch_;
  std::string parent_ = scratch_.path("private");
  std::vector<std::string> salvaged_;
};

TEST_F(ProcessDirectoryTest, GoesWithItsLockWhenItsHolderLetsGo) {
  auto directory = create();
  ASSERT_TRUE(directory);
  EXPECT_TRUE(directory->stands());
  test::put(directory->nextPath(), "x");
  EXPECT_EQ(test::treeOf(parent_).size(), 3U);
  directory.reset();
  EXPECT_EQ(salvaged_.size(), 1U);
  EXPECT_EQ(test::treeOf(parent_), test::Tree{});
}

TEST_F(ProcessDirectoryTest, NeverGivesAPathTwice) {
  const auto directory = create();
  const std::string first = directory->nextPath();
  const std::string second = directory->nextPath();
  EXPECT_NE(first, second);
  EXPECT_EQ(path::deletingLastPathComponent(first), path::deletingLastPathComponent(second));
}

TEST_F(ProcessDirectoryTest, TheSweepLeavesOneThatIsHeld) {
  const auto directory = create();
  test::put(directory->nextPath(), "x");
  const test::Tree before = test::treeOf(parent_);
  sweep();
  EXPECT_EQ(test::treeOf(parent_), before);
  EXPECT_TRUE(salvaged_.empty());
}

TEST_F(ProcessDirectoryTest, TheSweepSalvagesBeforeItRemoves) {
  test::put(parent_ + "/dead/1", "x");
  ProcessDirectory::sweep(parent_, [&](const std::string& path) {
    EXPECT_EQ(test::treeOf(path), (test::Tree{{"1", "x"}}));
    salvaged_.push_back(path);
  });
  EXPECT_EQ(salvaged_, std::vector<std::string>{parent_ + "/dead"});
  EXPECT_EQ(test::treeOf(parent_), test::Tree{});
}

TEST_F(ProcessDirectoryTest, TheSweepKeepsTheLockOfWhatItCannotRemove) {
  test::put(parent_ + "/dead/1", "x");
  test::put(parent_ + "/dead.lock", "");
  const test::Tree before = test::treeOf(parent_);
  {
    test::FaultyFileManager files;
    files.setFailingOperation(test::FileOperation::remove, EACCES);
    sweep();
  }
  EXPECT_EQ(test::treeOf(parent_), before);
  sweep();
  EXPECT_EQ(test::treeOf(parent_), test::Tree{});
}

TEST_F(ProcessDirectoryTest, ANameWhoseLockSomebodyHoldsIsGivenUpForAnother) {
  test::FaultyFileManager files;
  files.setFault(test::FaultyFileManager::Fault{.at = 2, .number = EAGAIN});
  EXPECT_TRUE(create());
}

TEST_F(ProcessDirectoryTest, NoticesThatSomebodyRemovedIt) {
  const test::UnguardedRemovals unguarded;
  const auto one = create();
  ASSERT_TRUE(FileManager::defaultManager().removeItemAtPath(parent_));
  EXPECT_FALSE(one->stands());
}

}  // namespace
}  // namespace kiv::storage
