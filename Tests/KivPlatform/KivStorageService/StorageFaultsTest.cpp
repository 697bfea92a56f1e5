#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>

#include "Tests/KivPlatform/KivStorageService/StorageServiceFixture.h"
#include "Tests/KivPlatform/KivStorageService/WholeVersions.h"
#include "Tests/Support/FaultyFileManager.h"

namespace kiv::test {
namespace {

using Repeat = FaultyFileManager::Repeat;

/// One way to save, and the stored resources before and after it.
struct SaveCase {
  const char* title;
  const char* name;
  std::string oldBytes;  ///< saved before; empty if there is no old version
  std::string newBytes;
  Tree before;
  Tree after;
  bool refusesExchanges = false;
  bool syncsInBatches = false;
};

std::vector<SaveCase> saveCases() {
  return {
      {"NewFile", "a.png", "", "new", {}, {{"a.png", "new"}}},
      {"ReplacedFile", "a.png", "old", "new", {{"a.png", "old"}}, {{"a.png", "new"}}},
      {"NewArchive", "promo.zip", "", pageArchive("new"), {}, pageTree("new")},
      {"ReplacedArchive", "promo.zip", pageArchive("old"), pageArchive("new"), pageTree("old"),
       pageTree("new")},
      {"ReplacedArchiveWithoutExchange", "promo.zip", pageArchive("old"), pageArchive("new"),
       pageTree("old"), pageTree("new"), true},
      {"NewArchiveInABatch", "promo.zip", "", pageArchive("new"), {}, pageTree("new"), false, true},
      {"ReplacedArchiveInABatch", "promo.zip", pageArchive("old"), pageArchive("new"),
       pageTree("old"), pageTree("new"), false, true},
  };
}

constexpr auto titleOf = [](const auto& test) { return test.param.title; };

class StorageFaultsTest : public StorageServiceFixture,
                          public testing::WithParamInterface<SaveCase> {
 protected:
  StorageFaultsTest() {
    files_.refuseExchanges(GetParam().refusesExchanges);
    files_.allowBatchSyncs(GetParam().syncsInBatches);
  }

  /// Prepares an attempt: a new process on a root with the old version.
  void begin() {
    files_.setFault(std::nullopt);
    KivStorageService::setRootPath("");
    std::filesystem::remove_all(root());
    std::filesystem::create_directory(root());
    KivStorageService::setRootPath(root());
    if (!GetParam().oldBytes.empty()) {
      ASSERT_FALSE(save(GetParam().name, GetParam().oldBytes));
    }
    restart();
  }

  std::optional<Error> saveNew() { return save(GetParam().name, GetParam().newBytes); }

  /// Repeats the save, failing its first operation, then its second and so on, until the save
  /// performs fewer operations than that.
  void sweep(FaultyFileManager::Fault fault) {
    bool isReached = true;
    for (fault.at = 1; isReached; ++fault.at) {
      SCOPED_TRACE("operation " + std::to_string(fault.at));
      begin();
      files_.setFault(fault);
      const auto error = saveNew();
      isReached = files_.count() >= fault.at;
      checkAfter(fault, error);
      if (HasFailure()) return;
    }
    EXPECT_GT(fault.at, 7U) << "too few operations to be a save";
  }

  FaultyFileManager files_;

 private:
  void checkAfter(const FaultyFileManager::Fault& fault, const std::optional<Error>& error) {
    Tree found = treeOf(stored(""));
    // If all renames fail after the first of two, only a restart can restore the old version.
    const bool isInBetween =
        GetParam().refusesExchanges && fault.repeat == Repeat::fromThenOn && error && found.empty();
    if (isInBetween) found = GetParam().before;
    EXPECT_TRUE(found == GetParam().before || found == GetParam().after) << "neither old nor new";
    if (!error) {
      EXPECT_EQ(found, GetParam().after) << "success without the new version";
    } else if (error->domain == SystemErrorDomain) {
      EXPECT_EQ(error->code, fault.number) << error->localizedDescription();
    }
    files_.setFault(std::nullopt);
    restart();
    EXPECT_EQ(temporaries(), Tree{});
    EXPECT_EQ(treeOf(stored("")), found) << "the restart changed what is stored";
    EXPECT_FALSE(saveNew());
    EXPECT_EQ(treeOf(stored("")), GetParam().after);
  }
};

TEST_P(StorageFaultsTest, AnyOperationFailingOnceLeavesOldOrNew) {
  for (const int number : {ENOSPC, EIO, EACCES, EMFILE}) {
    SCOPED_TRACE(number);
    sweep({.number = number, .repeat = Repeat::once});
  }
}

TEST_P(StorageFaultsTest, EveryOperationFailingFromThereOnLeavesOldOrNew) {
  for (const int number : {ENOSPC, EIO, EACCES, EMFILE}) {
    SCOPED_TRACE(number);
    sweep({.number = number, .repeat = Repeat::fromThenOn});
  }
}

TEST_P(StorageFaultsTest, AShortWriteLeavesOldOrNew) {
  sweep({.number = ENOSPC, .repeat = Repeat::once, .shortWrite = true});
}

TEST_P(StorageFaultsTest, EveryFailureBeforeTheNameIsGivenIsReported) {
  begin();
  files_.setFault(std::nullopt);
  ASSERT_FALSE(saveNew());
  const auto operations = files_.operations();
  for (std::uint64_t at = 1; at <= operations.size(); ++at) {
    const auto& operation = operations[static_cast<std::size_t>(at - 1)];
    // Clean-up after the new version is in place may fail without an error.
    if (operation.kind == FileOperation::remove) continue;
    if (operation.kind == FileOperation::exchange && GetParam().refusesExchanges) continue;
    begin();
    files_.setFault(FaultyFileManager::Fault{.at = at, .number = EIO});
    const auto error = saveNew();
    EXPECT_TRUE(error) << nameOf(operation.kind) << " " << operation.path;
  }
}

TEST_P(StorageFaultsTest, AtEveryMomentTheOldOrTheNewIsThere) {
  begin();
  int moments = 0;
  int absences = 0;
  files_.setObserver([&](const FaultyFileManager::Operation&) {
    ++moments;
    const Tree found = treeOf(stored(""));
    if (found.empty() && !GetParam().before.empty()) {
      ++absences;
      return;
    }
    EXPECT_TRUE(found == GetParam().before || found == GetParam().after);
  });
  ASSERT_FALSE(saveNew());
  files_.setObserver(nullptr);
  EXPECT_GT(moments, 5);
  // Without an atomic exchange, nothing is stored between the two renames; a restart repairs that.
  EXPECT_EQ(absences, GetParam().refusesExchanges ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Saves, StorageFaultsTest, testing::ValuesIn(saveCases()), titleOf);

class ArchiveSyncTest : public StorageServiceFixture {
 protected:
  /// The number of these operations below the temporary directory while the archive was saved for
  /// the first time.
  [[nodiscard]] int count(FileOperation kind) const {
    int found = 0;
    for (const auto& operation : files_.operations()) {
      const bool isBelow = operation.path.find("/.KivStorageService/") != std::string::npos;
      if (operation.kind == kind && isBelow) ++found;
    }
    return found;
  }

  FaultyFileManager files_;
};

TEST_F(ArchiveSyncTest, InABatchAllIsSyncedOnceAndBeforeTheArchiveIsPutInPlace) {
  files_.allowBatchSyncs(true);
  EXPECT_FALSE(save("promo.zip", wholeArchive("1")));
  EXPECT_EQ(count(FileOperation::createFile), filesOfAWholeArchive);
  EXPECT_EQ(count(FileOperation::synchronize), 0);
  EXPECT_EQ(count(FileOperation::synchronizeDirectory), 0);
  EXPECT_EQ(count(FileOperation::synchronizeBatch), 1);
  std::vector<FileOperation> order;
  for (const auto& operation : files_.operations())
    order.push_back(operation.kind);
  const auto sync = std::find(order.begin(), order.end(), FileOperation::synchronizeBatch);
  EXPECT_EQ(std::find(sync, order.end(), FileOperation::write), order.end());
  EXPECT_NE(std::find(sync, order.end(), FileOperation::move), order.end());
}

TEST_F(ArchiveSyncTest, WithoutABatchEachFileAndEachDirectoryIsSyncedOnce) {
  EXPECT_FALSE(save("promo.zip", wholeArchive("1")));
  EXPECT_EQ(count(FileOperation::synchronize), filesOfAWholeArchive);
  EXPECT_EQ(count(FileOperation::synchronizeDirectory), 4);  // the archive's top and its 3 folders
  EXPECT_EQ(count(FileOperation::synchronizeBatch), 0);
}

class InterruptedSwapTest : public StorageServiceFixture {
 protected:
  /// Replaces an archive on a file system without atomic exchange and simulates a crash between the
  /// two renames: copies the root at that point. Returns the copy, which no process uses.
  std::string rootOfTheDead() {
    EXPECT_FALSE(save("promo.zip", pageArchive("old")));
    std::string copy = scratch_.path("dead");
    FaultyFileManager files;
    files.refuseExchanges(true);
    files.setObserver([&](const FaultyFileManager::Operation& operation) {
      if (operation.kind != FileOperation::move || operation.newPath != stored("promo")) return;
      std::filesystem::copy(root(), copy, std::filesystem::copy_options::recursive);
    });
    EXPECT_FALSE(save("promo.zip", pageArchive("new")));
    return copy;
  }
};

TEST_F(InterruptedSwapTest, TheOldVersionIsBackAfterTheNextStart) {
  const std::string dead = rootOfTheDead();
  EXPECT_EQ(treeOf(dead + "/KivResource/Resources"), Tree{});
  KivStorageService::setRootPath(dead);
  EXPECT_EQ(treeOf(dead + "/KivResource/Resources"), pageTree("old"));
  EXPECT_EQ(treeOf(dead + "/.KivStorageService"), Tree{});
}

TEST_F(InterruptedSwapTest, WhatWasStoredMeanwhileIsNotReplacedByTheOldVersion) {
  const std::string dead = rootOfTheDead();
  put(dead + "/KivResource/Resources/promo/index.html", "newer");
  KivStorageService::setRootPath(dead);
  EXPECT_EQ(treeOf(dead + "/KivResource/Resources"),
            (Tree{{"promo/", ""}, {"promo/index.html", "newer"}}));
  EXPECT_EQ(treeOf(dead + "/.KivStorageService"), Tree{});
}

TEST_F(InterruptedSwapTest, ANoteThatLeadsOutOfTheRootIsNotFollowed) {
  for (const std::string target : {"../escaped", "/tmp/escaped", "a/../../escaped", ""}) {
    put(root() + "/.KivStorageService/dead/3/index.html", "x");
    put(root() + "/.KivStorageService/dead/3.replaced", target);
    restart();
    EXPECT_EQ(temporaries(), Tree{});
    EXPECT_EQ(tree(), Tree{});
    EXPECT_FALSE(std::filesystem::exists(scratch_.path("escaped")));
  }
}

TEST_F(InterruptedSwapTest, WhenNeitherVersionCanMoveInTheOldOneIsBackAfterTheNextStart) {
  EXPECT_FALSE(save("promo.zip", pageArchive("old")));
  FaultyFileManager files;
  files.refuseExchanges(true);
  files.setObserver([&](const FaultyFileManager::Operation& operation) {
    // After the old version has been moved away, every rename fails.
    if (operation.path == stored("promo")) files.setFailingOperation(FileOperation::move, EIO);
  });
  // The move that triggers the observer still succeeds, because its fault is evaluated before.
  EXPECT_TRUE(save("promo.zip", pageArchive("new")));
  EXPECT_EQ(treeOf(stored("")), Tree{});
  files.setObserver(nullptr);
  files.setFailingOperation(FileOperation::remove, EIO);  // as after a kill: no clean-up
  KivStorageService::setRootPath("");
  files.clearFailingOperation();
  KivStorageService::setRootPath(root());
  EXPECT_EQ(treeOf(stored("")), pageTree("old"));
  EXPECT_EQ(temporaries(), Tree{});
}

}  // namespace
}  // namespace kiv::test
