#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/Foundation/files/RemovalGuard.h"
#include "Tests/Support/ForwardingFileManager.h"
#include "Tests/Support/RemovalGuard.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Support/WorkingDirectory.h"

namespace kiv::test {
namespace {

namespace fs = std::filesystem;

/// Two directories. Most tests allow removals only in the first one.
class FileManagerRemovalGuardTest : public testing::Test {
 protected:
  FileManagerRemovalGuardTest() {
    fs::create_directory(root_);
    fs::create_directory(outside_);
  }

  static bool exists(const std::string& path) { return fs::exists(fs::symlink_status(path)); }

  static void expectRemoved(const std::string& path) {
    const Status status = FileManager::defaultManager().removeItemAtPath(path);
    EXPECT_TRUE(status) << (status ? "" : status.error().localizedDescription());
    EXPECT_FALSE(exists(path)) << path;
  }

  static void expectRefused(const std::string& path) {
    const Status status = FileManager::defaultManager().removeItemAtPath(path);
    ASSERT_FALSE(status) << path;
    EXPECT_EQ(status.error().domain, FileManagerErrorDomain);
    EXPECT_EQ(status.error().code, static_cast<int>(FileManagerErrorCode::removalRefused));
    EXPECT_THAT(status.error().localizedDescription(), testing::HasSubstr('"' + path + '"'));
    EXPECT_FALSE(FileManager::defaultManager().removeItemAtPath(path));
    EXPECT_TRUE(exists(path)) << path;
  }

  const TemporaryDirectory scratch_;
  const std::string root_ = scratch_.path("root");
  const std::string outside_ = scratch_.path("outside");
};

TEST_F(FileManagerRemovalGuardTest, PermitsTheFrameworksOwnDirectoriesAtFirst) {
  ASSERT_TRUE(FileManager::removalRoots());
  removal::addPrivateDirectory(root_);
  EXPECT_THAT(*FileManager::removalRoots(), testing::Contains(root_));
  expectRemoved(scratch_.write("root/file"));
  expectRefused(scratch_.write("outside/file"));
}

TEST_F(FileManagerRemovalGuardTest, APrivateDirectoryIsPermittedAsLongAsItIsInUse) {
  {
    const removal::PrivateDirectory one(root_);
    {
      const removal::PrivateDirectory two(root_);
      EXPECT_EQ(std::ranges::count(*FileManager::removalRoots(), root_), 1);
    }
    expectRemoved(scratch_.write("root/file"));
  }
  expectRefused(scratch_.write("root/file"));
}

TEST_F(FileManagerRemovalGuardTest, AHostsRootsTakeTheirPlaceUntilTheyAreRestored) {
  removal::addPrivateDirectory(root_);
  {
    const RemovalGuard guard({outside_});
    EXPECT_EQ(FileManager::removalRoots(), std::vector{outside_});
    removal::addPrivateDirectory(root_);
    expectRefused(scratch_.write("root/file"));
    expectRemoved(scratch_.write("outside/file"));
  }
  expectRemoved(root_ + "/file");
  expectRefused(scratch_.write("outside/file"));
}

TEST_F(FileManagerRemovalGuardTest, AThreadCanBeConfinedToOtherDirectories) {
  removal::addPrivateDirectory(root_);
  {
    const removal::Confinement confinement({outside_});
    EXPECT_EQ(FileManager::removalRoots(), std::vector{outside_});
    expectRemoved(scratch_.write("outside/file"));
    expectRefused(scratch_.write("root/file"));
    {
      const removal::Confinement inner({root_});
      expectRemoved(root_ + "/file");
      expectRefused(scratch_.write("outside/other"));
    }
    std::thread([&] { expectRemoved(scratch_.write("root/of another thread")); }).join();
    expectRemoved(outside_ + "/other");
  }
  expectRefused(scratch_.write("outside/file"));
  expectRemoved(scratch_.write("root/file"));
}

TEST_F(FileManagerRemovalGuardTest, AHostsRootsHoldForAConfinedThreadToo) {
  const removal::Confinement confinement({root_});
  const RemovalGuard guard({outside_});
  expectRefused(scratch_.write("root/file"));
  expectRemoved(scratch_.write("outside/file"));
}

TEST_F(FileManagerRemovalGuardTest, NothingLiftsIt) {
  const std::string file = scratch_.write("outside/file");
  expectRefused(file);
  const UnguardedRemovals unguarded;
  EXPECT_FALSE(FileManager::removalRoots());
  expectRemoved(file);
}

TEST_F(FileManagerRemovalGuardTest, WhatLiesInARootOrBelowItIsRemoved) {
  const RemovalGuard guard({root_});
  expectRemoved(scratch_.write("root/file"));
  scratch_.write("root/a/b/c/file");
  expectRemoved(root_ + "/a/b/c/file");
  expectRemoved(root_ + "/a/b");
  expectRemoved(root_ + "/a/");
  EXPECT_TRUE(exists(root_));
}

TEST_F(FileManagerRemovalGuardTest, WhatLiesOutsideIsRefused) {
  scratch_.write("outside/dir/file");
  const RemovalGuard guard({root_});
  expectRefused(scratch_.write("outside/file"));
  expectRefused(outside_ + "/dir");
  expectRefused(outside_);
  EXPECT_TRUE(exists(outside_ + "/dir/file"));
}

TEST_F(FileManagerRemovalGuardTest, TheRootItselfDoesNotLieInIt) {
  const RemovalGuard guard({root_});
  expectRefused(root_);
  expectRefused(scratch_.path());
}

TEST_F(FileManagerRemovalGuardTest, ANeighbourWhoseNameBeginsLikeTheRootsIsOutside) {
  const RemovalGuard guard({root_});
  expectRefused(scratch_.write("root2/file"));
  expectRefused(scratch_.write("roo/file"));
}

TEST_F(FileManagerRemovalGuardTest, ADirectoryBehindALinkLiesWhereTheLinkLeads) {
  scratch_.write("outside/deep/file");
  scratch_.write("outside/file");
  fs::create_directory_symlink(outside_, root_ + "/link");
  fs::create_directory_symlink(root_ + "/link/deep", root_ + "/linkOfLink");
  const RemovalGuard guard({root_});
  expectRefused(root_ + "/link/file");
  expectRefused(root_ + "/link//file");
  expectRefused(root_ + "/link/deep/file");
  expectRefused(root_ + "/linkOfLink/file");
  expectRefused(root_ + "/link/deep");
}

TEST_F(FileManagerRemovalGuardTest, ALinkOutsideThatLeadsIntoARootPermitsWhatIsThere) {
  scratch_.write("root/dir/file");
  fs::create_directory_symlink(root_ + "/dir", outside_ + "/into");
  const RemovalGuard guard({root_});
  expectRefused(outside_ + "/into");
  expectRemoved(outside_ + "/into/file");
}

TEST_F(FileManagerRemovalGuardTest, ALinkInARootIsItselfRemovedAndNeverFollowed) {
  scratch_.write("outside/dir/file");
  scratch_.write("outside/file");
  fs::create_symlink(outside_ + "/file", root_ + "/toFile");
  fs::create_directory_symlink(outside_ + "/dir", root_ + "/toDirectory");
  fs::create_symlink(outside_ + "/missing", root_ + "/toNothing");
  const RemovalGuard guard({root_});
  expectRemoved(root_ + "/toFile");
  expectRemoved(root_ + "/toDirectory");
  expectRemoved(root_ + "/toNothing");
  EXPECT_TRUE(exists(outside_ + "/file"));
  EXPECT_TRUE(exists(outside_ + "/dir/file"));
}

TEST_F(FileManagerRemovalGuardTest, LinksInARemovedTreeLeadNobodyOut) {
  scratch_.write("outside/dir/file");
  scratch_.write("root/tree/inside");
  fs::create_directory_symlink(outside_, root_ + "/tree/toDirectory");
  fs::create_directory_symlink("..", root_ + "/tree/toParent");
  scratch_.write("root/beside");
  const RemovalGuard guard({root_});
  expectRemoved(root_ + "/tree");
  EXPECT_TRUE(exists(outside_ + "/dir/file"));
  EXPECT_TRUE(exists(root_ + "/beside"));
}

TEST_F(FileManagerRemovalGuardTest, DotsAndEmptyComponentsAreResolved) {
  scratch_.write("outside/file");
  scratch_.write("outside/dir/file");
  scratch_.write("root/dir/file");
  scratch_.write("root/file");
  const RemovalGuard guard({root_});
  expectRefused(root_ + "/../outside/file");
  expectRefused(root_ + "/dir/../../outside/file");
  expectRefused(root_ + "/./..//outside/file");
  expectRemoved(outside_ + "/../root/file");
  expectRemoved(outside_ + "/dir/..//../root/./dir//file");
}

TEST_F(FileManagerRemovalGuardTest, ARelativePathIsResolvedFromTheWorkingDirectory) {
  scratch_.write("outside/file");
  scratch_.write("root/file");
  const RemovalGuard guard({root_});
  const WorkingDirectory working(outside_);
  expectRefused("file");
  expectRemoved("../root/file");
}

TEST_F(FileManagerRemovalGuardTest, ARootMayBeNamedThroughALinkOrWithASeparatorAtItsEnd) {
  const std::string alias = scratch_.path("alias");
  fs::create_directory_symlink(root_, alias);
  const RemovalGuard guard({alias + "//"});
  expectRemoved(scratch_.write("root/file"));
  scratch_.write("root/file");
  expectRemoved(alias + "/file");
  expectRefused(scratch_.write("outside/file"));
  expectRefused(alias);
}

TEST_F(FileManagerRemovalGuardTest, ARootMayBeMadeAfterItWasNamed) {
  const RemovalGuard guard({scratch_.path("later")});
  expectRefused(scratch_.write("outside/file"));
  expectRemoved(scratch_.write("later/file"));
}

TEST_F(FileManagerRemovalGuardTest, EveryOneOfSeveralRootsPermits) {
  const RemovalGuard guard({root_, outside_});
  expectRemoved(scratch_.write("root/file"));
  expectRemoved(scratch_.write("outside/file"));
  expectRefused(scratch_.write("third/file"));
}

TEST_F(FileManagerRemovalGuardTest, NoRootsRefuseEverything) {
  const RemovalGuard guard({});
  expectRefused(scratch_.write("root/file"));
}

TEST_F(FileManagerRemovalGuardTest, WhatIsNoAbsolutePathOfADirectoryPermitsNothing) {
  const std::string file = scratch_.write("root/file");
  const WorkingDirectory working(root_);
  const RemovalGuard guard(
      {"", ".", "root", "../root", scratch_.path("missing"), file, root_ + std::string("\0/", 2)});
  expectRefused(file);
}

TEST_F(FileManagerRemovalGuardTest, TheFileSystemsRootPermitsEverything) {
  const RemovalGuard guard({"/"});
  expectRemoved(scratch_.write("outside/file"));
}

TEST_F(FileManagerRemovalGuardTest, HoldsUnderAnotherFileManagerToo) {
  const ForwardingFileManager files;
  const RemovalGuard guard({root_});
  expectRefused(scratch_.write("outside/file"));
  expectRemoved(scratch_.write("root/file"));
}

TEST_F(FileManagerRemovalGuardTest, WhatIsMissingIsTheSystemsErrorAsEver) {
  const RemovalGuard guard({root_});
  for (const std::string& path : {root_ + "/missing", outside_ + "/missing", root_ + "/a/b"}) {
    const Status status = FileManager::defaultManager().removeItemAtPath(path);
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().domain, SystemErrorDomain);
    EXPECT_EQ(status.error().code, ENOENT);
  }
}

// --- Withdrawing items for removal ---------------------------------------------------------------

class FileManagerWithdrawalTest : public FileManagerRemovalGuardTest {
 protected:
  static std::optional<Error> withdraw(const std::string& path, const std::string& newPath) {
    std::optional<Error> error;
    const bool isDone =
        FileManager::defaultManager().withdrawItemAtPath_toPath(path, newPath).reportTo(&error);
    EXPECT_EQ(exists(newPath), isDone) << newPath;
    return error;
  }
  static void expectWithdrawalRefused(const std::string& path, const std::string& newPath) {
    const auto error = withdraw(path, newPath);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, FileManagerErrorDomain);
    EXPECT_TRUE(exists(path)) << path;
  }
};

TEST_F(FileManagerWithdrawalTest, MovesADirectoryWithEverythingInIt) {
  const UnguardedRemovals unguarded;
  scratch_.write("outside/dir/file");
  EXPECT_FALSE(withdraw(outside_ + "/dir/", root_ + "/1"));
  EXPECT_TRUE(exists(root_ + "/1/file"));
  EXPECT_FALSE(exists(outside_ + "/dir"));
}

TEST_F(FileManagerWithdrawalTest, BothDirectoriesLieUnderTheGuard) {
  scratch_.write("root/dir/file");
  scratch_.write("outside/dir/file");
  const RemovalGuard guard({root_});
  expectWithdrawalRefused(outside_ + "/dir", root_ + "/1");
  expectWithdrawalRefused(root_ + "/dir", outside_ + "/1");
  expectWithdrawalRefused(root_, root_ + "/1");
  EXPECT_FALSE(withdraw(root_ + "/dir", root_ + "/1"));
}

TEST_F(FileManagerWithdrawalTest, LinksOnTheWayCountAsWhereTheyLead) {
  scratch_.write("root/dir/file");
  scratch_.write("outside/dir/file");
  fs::create_directory_symlink(outside_, root_ + "/link");
  const RemovalGuard guard({root_});
  expectWithdrawalRefused(root_ + "/link/dir", root_ + "/1");
  expectWithdrawalRefused(root_ + "/dir", root_ + "/link/1");
  EXPECT_FALSE(withdraw(root_ + "/link", root_ + "/1"));
  EXPECT_TRUE(fs::is_symlink(root_ + "/1"));
  EXPECT_TRUE(exists(outside_ + "/dir/file"));
}

TEST_F(FileManagerWithdrawalTest, WhatIsNoItemIsAnError) {
  const UnguardedRemovals unguarded;
  scratch_.write("root/dir/file");
  for (const std::string path : {"/none", "/dir/.", "/dir/..", "/dir/file/"})
    EXPECT_TRUE(withdraw(root_ + path, root_ + "/1")) << path;
  EXPECT_TRUE(withdraw(root_ + "/dir", root_ + "/dir/1"));
  EXPECT_TRUE(withdraw(root_ + "/dir", root_ + "/none/1"));
  EXPECT_TRUE(exists(root_ + "/dir/file"));
}

}  // namespace
}  // namespace kiv::test
