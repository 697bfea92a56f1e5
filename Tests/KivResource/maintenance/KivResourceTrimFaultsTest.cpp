// Trimming while the disk fails, changes meanwhile, the process is killed, or the power fails; and
// its cost.

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/JSON.h"
#include "KivResource/files/KivResourceLease.h"
#include "Tests/KivResource/maintenance/TrimFixture.h"
#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/PowerCutFileManager.h"
#include "Tests/Support/RemovalGuard.h"

namespace kiv::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// One path cannot be removed.
class StubbornFileManager final : public FaultyFileManager {
 public:
  std::string stuck;

  Status removeItemAtPath(std::string_view path) override {
    if (path == stuck) return systemError(EBUSY, "remove", path);
    return FaultyFileManager::removeItemAtPath(path);
  }
};

class KivResourceTrimFaultsTest : public TrimFixture {
 protected:
  KivResourceTrimFaultsTest() { FileManager::setDefaultManager(&files); }
  ~KivResourceTrimFaultsTest() override {
    files.setObserver({});
    files.clearFailingOperation();
    files.setFault(std::nullopt);
    FileManager::setDefaultManager(nullptr);
  }

  /// Two banners, a page and two orphans.
  void fill() {
    loadAll({banner("a", 1, "x/a.png"), page("p", 2, "x/promo.zip"), banner("b", 3, "x/b.png")});
    makeOrphan("orphan.png", 1);
    write(stored("unused/index.html"), bytes());
    write(stored("unused/page.css"), bytes());
  }
  void empty() {
    KivStorageService::setRootPath("");
    fs::remove_all(root());
    KivStorageService::setRootPath(root());
    restart();
  }

  /// The number of operations of a run that removes everything.
  std::uint64_t operationsOfTrim() {
    fill();
    files.setFault(std::nullopt);
    EXPECT_THAT(trimOnce(withRule(Rule::oldestStamp, 0), Mode::remove).resources, SizeIs(3));
    const auto count = files.count();
    empty();
    return count;
  }

  StubbornFileManager files;
};

TEST_F(KivResourceTrimFaultsTest, AnOrphanThatCannotBeRemovedIsReportedAndAnotherGoes) {
  makeOrphan("a.png", 1);
  makeOrphan("b.png", 2);
  files.stuck = stored("a.png");
  const auto result = trimOnce(withRule(Rule::orphansOnly, used() - 1), Mode::remove);
  EXPECT_THAT(removed(result), ElementsAre("b.png"));
  ASSERT_THAT(result.refused, SizeIs(1));
  EXPECT_EQ(result.refused[0].item.path, stored("a.png"));
  EXPECT_EQ(result.refused[0].error.code, EBUSY);
  EXPECT_TRUE(result.isBoundKept);
}

TEST_F(KivResourceTrimFaultsTest, AFileOfAResourceThatCannotBeRemovedIsReportedAndAnotherGoes) {
  loadThree();
  files.stuck = stored("a.png");
  const auto result = trimOnce(withRule(Rule::oldestStamp, used() - 1), Mode::remove);
  files.stuck.clear();
  EXPECT_EQ(resources(result), (Names{"a", "b"}));
  EXPECT_THAT(removed(result), ElementsAre("b.png"));
  ASSERT_THAT(result.refused, SizeIs(1));
  EXPECT_EQ(result.refused[0].item.path, stored("a.png"));
  EXPECT_EQ(result.refused[0].item.resourceID, "a");
  EXPECT_TRUE(result.isBoundKept);
  EXPECT_THAT(storedNames(), ElementsAre("a.png", "c.png"));
  expectSoundList();
  EXPECT_THAT(removed(trim(Rule::orphansOnly, 0)), ElementsAre("a.png")) << "it is an orphan now";
}

TEST_F(KivResourceTrimFaultsTest, TheGuardOfRemovalsHoldsHereToo) {
  fill();
  const RemovalGuard guard({root() + "/.KivStorageService"});
  const auto result = trimOnce(withRule(Rule::oldestStamp, 0), Mode::remove);
  EXPECT_THAT(result.removed, IsEmpty());
  EXPECT_THAT(result.refused, SizeIs(5));
  for (const auto& [item, error] : result.refused) {
    EXPECT_EQ(error.domain, FileManagerErrorDomain);
    EXPECT_TRUE(exists(item.path));
  }
  EXPECT_FALSE(result.isBoundKept);
  expectSoundList();
}

TEST_F(KivResourceTrimFaultsTest, WithoutANewListNoFileOfAResourceIsRemoved) {
  fill();
  files.setFailingMove(listPath());
  const auto before = registry();
  const std::string list = read(listPath());
  const auto result = trimOnce(withRule(Rule::oldestStamp, 0), Mode::remove);
  EXPECT_THAT(removed(result), ElementsAre("orphan.png", "unused"));
  EXPECT_TRUE(result.listError);
  EXPECT_THAT(result.resources, IsEmpty());
  EXPECT_THAT(result.refused, IsEmpty());
  EXPECT_EQ(result.usedAfter, used());
  EXPECT_FALSE(result.isBoundKept);
  EXPECT_EQ(registry(), before);
  EXPECT_EQ(read(listPath()), list);
  EXPECT_THAT(storedNames(), ElementsAre("a.png", "b.png", "promo"));

  // A pass afterwards finds the cache as if there had been no attempt.
  files.setFailingMove("");
  loadAll({banner("c", 1, "x/c.png")});
  EXPECT_THAT(storedNames(), ElementsAre("a.png", "b.png", "c.png", "promo"));
  expectSoundList();
  EXPECT_EQ(registry(), (Names{"a", "p", "b", "c"}));
  EXPECT_THAT(resources(trim(Rule::oldestStamp, 0)), SizeIs(4));
}

TEST_F(KivResourceTrimFaultsTest, AResourceThatIsRegisteredTwiceIsPutBackTwice) {
  loadThree();
  manager->loadedResources()->append(entry(0));
  files.setFailingMove(listPath());
  EXPECT_TRUE(trimOnce(withRule(Rule::oldestStamp, 0), Mode::remove).listError);
  EXPECT_EQ(registry(), (Names{"a", "b", "c", "a"}));
}

TEST_F(KivResourceTrimFaultsTest, WhileAnotherProcessHoldsTheListNothingLoadedIsRemoved) {
  loadThree();
  files.setFailingOperation(FileOperation::lock, EAGAIN);
  const auto result = trimOnce(withRule(Rule::oldestStamp, 0), Mode::remove);
  ASSERT_TRUE(result.listError);
  EXPECT_EQ(result.listError->code, EAGAIN);
  EXPECT_EQ(registry(), (Names{"a", "b", "c"}));
  EXPECT_THAT(storedNames(), SizeIs(3));
}

TEST_F(KivResourceTrimFaultsTest, FilesThatVanishMeanwhileAreNoFailures) {
  loadThree();
  makeOrphan("orphan.png", 1);
  makeOrphan("other.png", 2);
  files.setObserver([&](const FaultyFileManager::Operation& operation) {
    if (operation.kind != FileOperation::remove) return;
    if (operation.path == stored("orphan.png") || operation.path == stored("b.png")) {
      fs::remove(operation.path);
    }
  });
  const auto result = trimOnce(withRule(Rule::oldestStamp, 0), Mode::remove);
  files.setObserver({});
  EXPECT_THAT(removed(result), ElementsAre("other.png", "a.png", "c.png"));
  EXPECT_THAT(result.refused, IsEmpty());
  EXPECT_EQ(result.usedAfter, used());
  EXPECT_THAT(storedNames(), IsEmpty());
}

TEST_F(KivResourceTrimFaultsTest, ALeaseThatIsACopyIsKnownByItsName) {
  loadAll({banner("a", 1, "x/a.png"), page("p", 2, "x/promo.zip"), banner("b", 3, "x/b.png")});
  files.setFailingOperation(FileOperation::link, EPERM);
  const auto file = Lease::take(*entry(0));
  const auto directory = Lease::take(*entry(1));
  files.clearFailingOperation();
  ASSERT_TRUE(file && directory);
  ASSERT_FALSE(fs::equivalent(file->resource()->useFilePaths().at(0), stored("a.png")));
  EXPECT_EQ(resources(trim(Rule::oldestStamp, 0)), Names{"b"});
}

TEST_F(KivResourceTrimFaultsTest, AFailureToNoteIsNoneForTheLease) {
  loadThree();
  files.setFailingOperation(FileOperation::touch, EROFS);
  Maintenance::noteShown(*entry(0));
  EXPECT_TRUE(Lease::take(*entry(0)));
}

/// Each operation fails in turn, alone or with all that follow.
TEST_F(KivResourceTrimFaultsTest, WhateverFailsTheListNamesNoMissingFile) {
  const std::uint64_t count = operationsOfTrim();
  ASSERT_GT(count, 10);
  for (const auto repeat :
       {FaultyFileManager::Repeat::once, FaultyFileManager::Repeat::fromThenOn}) {
    for (std::uint64_t at = 1; at <= count; ++at) {
      SCOPED_TRACE(at);
      fill();
      files.setFault(FaultyFileManager::Fault{at, EIO, repeat});
      std::optional<Error> error;
      const auto result =
          Maintenance::trim(*manager, withRule(Rule::oldestStamp, 0), Mode::remove, &error);
      files.setFault(std::nullopt);
      ASSERT_NE(result.has_value(), error.has_value());
      for (const auto& resource : *manager->loadedResources())
        EXPECT_TRUE(resource->filesExist()) << resource->resourceID();
      if (result) {
        for (const auto& item : result->removed)
          EXPECT_FALSE(exists(item.path)) << item.path;
        if (result->listError) {
          EXPECT_THAT(result->resources, IsEmpty());
          EXPECT_EQ(registry(), (Names{"a", "p", "b"}));
        }
      }
      expectSoundList();
      empty();
      if (HasFailure()) return;
    }
  }
}

/// A child process ends at each operation in turn.
TEST_F(KivResourceTrimFaultsTest, KilledAtAnyOperationTheListNamesNoMissingFile) {
  const std::uint64_t count = operationsOfTrim();
  for (std::uint64_t at = 1; at <= count; ++at) {
    SCOPED_TRACE(at);
    fill();
    files.setFault(std::nullopt);
    const pid_t child = fork();
    if (child == 0) {
      files.setObserver([&](const FaultyFileManager::Operation&) {
        if (files.count() + 1 >= at) _exit(0);
      });
      static_cast<void>(Maintenance::trim(*manager, withRule(Rule::oldestStamp, 0), Mode::remove));
      _exit(1);
    }
    int status = 1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "the child was not killed";
    KivStorageService::setRootPath("");
    KivStorageService::setRootPath(root());
    expectSoundList();
    EXPECT_TRUE(Maintenance::trim(*manager, withRule(Rule::oldestStamp, 0), Mode::remove));
    EXPECT_THAT(storedNames(), IsEmpty());
    empty();
    if (HasFailure()) return;
  }
}

// --- Power cuts ----------------------------------------------------------------------------------

class KivResourceTrimPowerCutTest : public TrimFixture {
 protected:
  using Loss = PowerCutFileManager::Loss;

  ~KivResourceTrimPowerCutTest() override { FileManager::setDefaultManager(nullptr); }

  void fill() {
    std::filesystem::remove_all(root());
    startOnRoot();
    loadAll({banner("a", 1, "x/a.png"), page("p", 2, "x/promo.zip"), banner("b", 3, "x/b.png")});
    makeOrphan("orphan.png", 1);
  }
  void startOnRoot() {
    KivStorageService::setRootPath("");
    FileManager::setDefaultManager(nullptr);
    KivStorageService::setRootPath(root());
    restart();
  }

  /// Cuts the power during a trim that removes everything, after each operation in turn.
  void cutEverywhere(Loss loss, std::uint32_t seed) {
    bool wasCut = true;
    std::uint64_t at = 0;
    for (; wasCut && !HasFailure(); ++at) {
      SCOPED_TRACE("cut after " + std::to_string(at) + ", seed " + std::to_string(seed));
      fill();
      PowerCutFileManager files(root());
      FileManager::setDefaultManager(&files);
      files.cutAfter(at);
      static_cast<void>(Maintenance::trim(*manager, withRule(Rule::oldestStamp, 0), Mode::remove));
      wasCut = files.wasCut();
      files.cutAfter(0);  // nothing is tidied up after the power cut
      KivStorageService::setRootPath("");
      files.restart(loss, seed);
      startOnRoot();
      expectSoundList();
      static_cast<void>(trimOnce(withRule(Rule::oldestStamp, 0), Mode::remove));
      // An empty directory, which may take no space, can be left.
      for (const auto& item : fs::recursive_directory_iterator(stored("")))
        EXPECT_TRUE(item.is_directory()) << item.path();
    }
    EXPECT_GT(at, 10U) << "too few operations to be a trim";
  }
};

TEST_F(KivResourceTrimPowerCutTest, TheListNamesNoMissingFileWithoutWhatWasNotSynced) {
  cutEverywhere(Loss::everythingUnsynced, 0);
}

TEST_F(KivResourceTrimPowerCutTest, TheListNamesNoMissingFileWhateverElseSurvives) {
  for (std::uint32_t seed = 0; seed < 3; ++seed)
    cutEverywhere(Loss::anyPart, seed);
}

// --- The cost ------------------------------------------------------------------------------------

/// Counts the operations that take the time of a trim.
class CountingFileManager final : public ForwardingFileManager {
 public:
  std::uint64_t count = 0;

  Result<std::string> resolvedPathOfItemAtPath(std::string_view path) override {
    ++count;
    return ForwardingFileManager::resolvedPathOfItemAtPath(path);
  }
  Result<std::uint64_t> sizeOfItemAtPath(std::string_view path) override {
    ++count;
    return ForwardingFileManager::sizeOfItemAtPath(path);
  }
  Result<FileIdentity> identityOfFileAtPath(std::string_view path) override {
    ++count;
    return ForwardingFileManager::identityOfFileAtPath(path);
  }
  bool fileExistsAtPath(std::string_view path) override {
    ++count;
    return ForwardingFileManager::fileExistsAtPath(path);
  }
  bool itemExistsAtPath(std::string_view path) override {
    ++count;
    return ForwardingFileManager::itemExistsAtPath(path);
  }
  bool linkExistsAtPath(std::string_view path) override {
    ++count;
    return ForwardingFileManager::linkExistsAtPath(path);
  }
  bool directoryExistsAtPath(std::string_view path) override {
    ++count;
    return ForwardingFileManager::directoryExistsAtPath(path);
  }
  Status removeItemAtPath(std::string_view path) override {
    ++count;
    return ForwardingFileManager::removeItemAtPath(path);
  }
};

class KivResourceTrimCostTest : public TrimFixture {
 protected:
  /// Operations of a trim that removes all of that many resources, of which each ten share a file,
  /// and as many orphans.
  std::uint64_t operationsFor(int number) {
    Array list;
    for (int i = 0; i < number; ++i) {
      const std::string name = std::to_string(i);
      const std::string icon = stored("icon" + std::to_string(i / 10));
      write(stored("orphan" + name), "o");
      write(stored("file" + name), "f");
      if (i % 10 == 0) write(icon, "i");
      list.append(video(name, 1, icon, stored("file" + name)));
    }
    const auto text = JSON::write(list);
    write(listPath(), text ? text->view() : "");
    restart();
    EXPECT_EQ(registry().size(), number);
    CountingFileManager files;
    const auto result = trimOnce(withRule(Rule::leastRecentlyShown, 0), Mode::remove);
    EXPECT_THAT(result.removed, SizeIs(2 * number + number / 10));
    EXPECT_THAT(registry(), IsEmpty());
    return files.count;
  }
};

TEST_F(KivResourceTrimCostTest, ManyResourcesTakeTimeInProportion) {
  const auto few = operationsFor(1000);
  const auto many = operationsFor(10'000);
  RecordProperty("operations for each resource", static_cast<int>(many / 10'000));
  EXPECT_LE(many, few * 10 + few / 2);
  EXPECT_LE(many, 10'000 * 100);
}

}  // namespace
}  // namespace kiv::test
