#include <cerrno>
#include <filesystem>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/store/ProcessDirectory.h"
#include "KivPlatform/KivStorageService/store/StoredPath.h"
#include "Tests/KivPlatform/KivStorageService/StorageServiceFixture.h"
#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/RemovalGuard.h"

namespace kiv::storage {
namespace {

class ProcessDirectoryTest : public testing::Test {
 protected:
  std::shared_ptr<ProcessDirectory> create() {
    return ProcessDirectory::create(root_).value_or(nullptr);
  }
  void sweep() { ProcessDirectory::sweep(root_); }

  test::TemporaryDirectory scratch_;
  std::string root_ = scratch_.path("root");
  std::string parent_ = root_ + "/" + std::string(privateDirectory);
};

TEST_F(ProcessDirectoryTest, GoesWithItsLockWhenItsHolderLetsGo) {
  auto directory = create();
  ASSERT_TRUE(directory);
  EXPECT_TRUE(directory->exists());
  test::put(directory->nextPath(), "x");
  EXPECT_EQ(test::treeOf(parent_).size(), 3U);
  directory.reset();
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
}

class ProcessDirectorySwapTest : public ProcessDirectoryTest {
 protected:
  /// Creates the state that a process leaves if it dies after it has moved the directory
  /// "place/promo" away.
  void leaveInterruptedSwap() {
    std::filesystem::create_directories(root_ + "/place");
    test::put(parent_ + "/dead/1/index.html", "old");
    test::put(ProcessDirectory::swapNotePath(parent_ + "/dead/1"), "place/promo");
  }
};

TEST_F(ProcessDirectorySwapTest, TheSweepMovesTheDirectoryBackBeforeItRemoves) {
  leaveInterruptedSwap();
  sweep();
  EXPECT_EQ(test::treeOf(root_ + "/place"),
            (test::Tree{{"promo/", ""}, {"promo/index.html", "old"}}));
  EXPECT_EQ(test::treeOf(parent_), test::Tree{});
}

TEST_F(ProcessDirectorySwapTest, WhatHasTakenThePlaceMeanwhileStays) {
  leaveInterruptedSwap();
  test::put(root_ + "/place/promo/index.html", "new");
  sweep();
  EXPECT_EQ(test::treeOf(root_ + "/place").at("promo/index.html"), "new");
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
  EXPECT_FALSE(one->exists());
}

}  // namespace
}  // namespace kiv::storage
