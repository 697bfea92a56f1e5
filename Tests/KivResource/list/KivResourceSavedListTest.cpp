// The saved list when it cannot be read or written, and when another process also writes it.

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/KivResourceFactory.h"
#include "KivResource/NSError+KivResource.h"
#include "KivResource/files/KivResourceFileListing.h"
#include "KivResource/list/KivResourceList.h"
#include "KivResource/list/KivResourceSavedList.h"
#include "KivResource/maintenance/KivResourceMaintenance.h"
#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/ManagerFixture.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Support/WorkingDirectory.h"

namespace kiv::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Maintenance = KivResourceMaintenance;

class KivResourceSavedListTest : public ManagerFixture {
 protected:
  /// Loads five banners with one file each; the saved list contains them.
  void loadFive() {
    load({banner("a", 1, "x/a.png"), banner("b", 1, "x/b.png"), banner("c", 1, "x/c.png"),
          banner("d", 1, "x/d.png"), banner("e", 1, "x/e.png")});
    ASSERT_THAT(listed(), ElementsAre("a", "b", "c", "d", "e"));
  }

  /// Restarts while the list cannot be read; afterwards it can.
  void restartWithAFailedRead(int number) {
    files.setFailingOperation(FileOperation::read, number);
    restart();
    files.clearFailingOperation();
    ASSERT_THAT(registry(), IsEmpty());
  }

  [[nodiscard]] Names listed() const {
    Names identifiers;
    for (const Value& entry : savedList())
      identifiers.push_back(entry.dictionary()["banner_id"].string());
    return identifiers;
  }

  [[nodiscard]] std::string setAside(int number) const {
    return root() + "/KivResource/resources_config.unreadable-" + std::to_string(number) + ".json";
  }

  /// Expects that a clean-up removes nothing and names the file that needs attention.
  void expectInDoubt(const std::string& path) {
    std::optional<Error> error;
    EXPECT_FALSE(Maintenance::cleanUpOrphans(*manager, Maintenance::Mode::remove, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, KivResourceMaintenanceErrorDomain);
    EXPECT_EQ(error->code, static_cast<int>(KivResourceMaintenanceErrorCode::listInDoubt));
    EXPECT_THAT(error->localizedDescription(), HasSubstr(path));
    EXPECT_EQ(Maintenance::audit(*manager)->listDoubt, error);
  }

  FaultyFileManager files;
};

// --- A list that cannot be read ------------------------------------------------------------------

TEST_F(KivResourceSavedListTest, AReadThatFailsOnceLosesNoEntry) {
  loadFive();
  for (const int number : {EMFILE, ENFILE, ENOMEM, EIO, EACCES}) {
    SCOPED_TRACE(number);
    restartWithAFailedRead(number);
    beginLoad({plain("new" + std::to_string(number), 1)});
    takeEvents();
    EXPECT_THAT(listed(), testing::IsSupersetOf({"a", "b", "c", "d", "e"}));
    EXPECT_EQ(listed().back(), "new" + std::to_string(number));
    EXPECT_EQ(registry(), listed());
    EXPECT_FALSE(exists(setAside(1)));
  }
}

TEST_F(KivResourceSavedListTest, AnUnreadableListIsSetAsideBeforeANewOneIsWritten) {
  loadFive();
  std::string torn = read(listPath());
  torn.resize(torn.size() / 2);
  int count = 0;
  for (const std::string& text : {torn, std::string(), std::string("{}"), std::string("no JSON")}) {
    SCOPED_TRACE(text);
    write(listPath(), text);
    restart();
    EXPECT_EQ(read(listPath()), text);
    load({plain("new", 1)});
    EXPECT_THAT(listed(), ElementsAre("new"));
    EXPECT_EQ(read(setAside(++count)), text);
  }
  EXPECT_EQ(read(setAside(1)), torn) << "a later one was put over it";
}

TEST_F(KivResourceSavedListTest, APassAfterAFailedReadFetchesNothingThatTheListHas) {
  loadFive();
  restartWithAFailedRead(EMFILE);
  beginUpdate({banner("a", 1, "x/a.png"), banner("c", 2, "x/c2.png")});
  EXPECT_TRUE(client->succeed("/c2.png", "c"));
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "loaded c", "finished"));
  EXPECT_THAT(listed(), ElementsAre("a", "c"));
  EXPECT_FALSE(exists(stored("c.png")));
  EXPECT_TRUE(exists(stored("b.png"))) << "what an update drops stays on the disk";
}

TEST_F(KivResourceSavedListTest, WhatCompletedMeanwhileIsMergedByItsStamp) {
  write(stored("same.png"), "s");
  load({banner("same", 2, "x/same.png"), banner("older", 1, "x/older-1.png"),
        banner("newer", 3, "x/newer-3.png"), plain("other", 1)});
  files.setFailingOperation(FileOperation::read, EIO);
  restart();
  // The reads at the start of the pass still fail; the read before the first save succeeds.
  int reads = 0;
  files.setObserver([&](const FaultyFileManager::Operation& operation) {
    if (operation.kind == FileOperation::read && ++reads == 2) files.clearFailingOperation();
  });
  beginLoad({banner("same", 2, "x/same.png"), banner("older", 2, "x/older-2.png"),
             banner("newer", 2, "x/newer-2.png")});
  const auto own = manager->loadedResourcesWithID_copy("same", false);
  ASSERT_EQ(own.size(), 1U) << "found by its name";
  files.setObserver({});
  EXPECT_TRUE(client->succeed("/newer-2.png", "n"));
  EXPECT_TRUE(client->succeed("/older-2.png", "o"));
  takeEvents();
  EXPECT_EQ(manager->savedListError(), std::nullopt);
  EXPECT_THAT(registry(), ElementsAre("same", "other", "newer", "older"));
  EXPECT_EQ(listed(), registry());
  EXPECT_EQ(manager->loadedResourcesWithID_copy("same", false), own) << "the object stays";
  EXPECT_EQ(manager->loadedResourcesWithID("newer")[0]->updated(), 3U);
  EXPECT_EQ(manager->loadedResourcesWithID("older")[0]->updated(), 2U);
  EXPECT_FALSE(exists(stored("older-1.png")));
  EXPECT_FALSE(exists(stored("newer-2.png")));
  EXPECT_TRUE(exists(stored("newer-3.png")));
}

TEST_F(KivResourceSavedListTest, ADoubtEndsWhereTheListTurnsOutToBeGone) {
  loadFive();
  restartWithAFailedRead(EIO);
  EXPECT_TRUE(manager->savedListError());
  std::filesystem::remove(listPath());
  load({plain("new", 1)});
  EXPECT_FALSE(manager->savedListError());
  EXPECT_THAT(listed(), ElementsAre("new"));
  EXPECT_FALSE(exists(setAside(1)));
}

TEST_F(KivResourceSavedListTest, AListThatCannotBeSetAsideIsNotReplaced) {
  loadFive();
  write(listPath(), "no JSON");
  restart();
  files.setFailingOperation(FileOperation::move, EACCES);
  load({plain("new", 1)});
  EXPECT_EQ(read(listPath()), "no JSON");
  EXPECT_FALSE(exists(setAside(1)));
  EXPECT_THAT(registry(), ElementsAre("new"));
  files.clearFailingOperation();
  load({plain("later", 1)});
  EXPECT_THAT(listed(), ElementsAre("new", "later"));
  EXPECT_EQ(read(setAside(1)), "no JSON");
}

TEST_F(KivResourceSavedListTest, AListIsPutBackWhereNoNewOneCouldBeWritten) {
  loadFive();
  const std::string list = read(listPath());
  files.setFailingOperation(FileOperation::read, EMFILE);
  restart();
  files.setObserver([&](const FaultyFileManager::Operation& operation) {
    if (operation.newPath == setAside(1))
      files.setFailingOperation(FileOperation::createFile, EMFILE);
  });
  load({plain("new", 1)});
  files.setObserver({});
  EXPECT_EQ(read(listPath()), list);
  EXPECT_FALSE(exists(setAside(1)));
  files.clearFailingOperation();
  load({plain("later", 1)});
  EXPECT_THAT(listed(), ElementsAre("a", "b", "c", "d", "e", "new", "later"));
}

TEST_F(KivResourceSavedListTest, ADirectoryUnderTheListsNameIsNotSetAside) {
  std::filesystem::create_directories(listPath());
  restart();
  load({plain("new", 1)});
  EXPECT_TRUE(std::filesystem::is_directory(listPath()));
  EXPECT_FALSE(exists(setAside(1)));
}

TEST_F(KivResourceSavedListTest, TheFilesThatAnUnreadableListNamesAreNotCleanedUp) {
  loadFive();
  std::string flipped = read(listPath());
  flipped[0] ^= 1;
  write(listPath(), flipped);
  restart();
  expectInDoubt(listPath());
  load({plain("new", 1)});
  expectInDoubt(setAside(1));
  restart();
  expectInDoubt(setAside(1));
  for (const char* const name : {"a.png", "b.png", "c.png", "d.png", "e.png"})
    EXPECT_TRUE(exists(stored(name))) << name;
  std::filesystem::remove(setAside(1));
  EXPECT_EQ(Maintenance::cleanUpOrphans(*manager, Maintenance::Mode::remove)->removed.size(), 5U);
}

TEST_F(KivResourceSavedListTest, NothingIsCleanedUpWhileTheManagerDoesNotKnowTheList) {
  loadFive();
  restartWithAFailedRead(EIO);
  expectInDoubt(listPath());
  load({});
  EXPECT_FALSE(Maintenance::audit(*manager)->listDoubt);
  EXPECT_THAT(Maintenance::cleanUpOrphans(*manager, Maintenance::Mode::remove)->removed, IsEmpty());
  EXPECT_TRUE(exists(stored("a.png")));
}

// --- A list that cannot be written ---------------------------------------------------------------

TEST_F(KivResourceSavedListTest, TheErrorOfTheLastSaveCanBeAskedFor) {
  EXPECT_EQ(manager->lastSaveError(), std::nullopt);
  files.setFailingOperation(FileOperation::createFile, ENOSPC);
  load({plain("a", 1)});
  ASSERT_TRUE(manager->lastSaveError());
  EXPECT_EQ(manager->lastSaveError()->domain, SystemErrorDomain);
  EXPECT_EQ(manager->lastSaveError()->code, ENOSPC);
  manager->saveLoadedResorcesList();
  EXPECT_TRUE(manager->lastSaveError());
  files.clearFailingOperation();
  load({});
  EXPECT_EQ(manager->lastSaveError(), std::nullopt);
  EXPECT_THAT(listed(), ElementsAre("a"));
}

TEST_F(KivResourceSavedListTest, ThatAListWasNotReplacedIsTheErrorOfItsSave) {
  write(listPath(), "no JSON");
  restart();
  files.setFailingOperation(FileOperation::move, EACCES);
  load({plain("new", 1)});
  ASSERT_TRUE(manager->lastSaveError());
  EXPECT_EQ(manager->lastSaveError()->code, SavedListInDoubtKivResourceErrorCode);
  EXPECT_THAT(manager->lastSaveError()->localizedDescription(), HasSubstr(listPath()));
}

TEST_F(KivResourceSavedListTest, AResourceThatCannotBeWrittenIsNamedInTheLogOnce) {
  load({plain("a", 1), plain("b", 1), plain("c", 1)});
  const std::string before = read(listPath());
  const auto resource = [&](const char* identifier) {
    return manager->loadedResourcesWithID_copy(identifier, false)[0];
  };
  const auto linesNaming = [&](const std::string& identifier) {
    const auto lines = log.lines();
    return std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
      return line.starts_with(
                 "KivResourceManager (-[KivResourceManager saveLoadedResorcesList]): Resource with "
                 "ID " +
                 identifier + " and name \"Plain " + identifier + "\" ") &&
             line.find("not finite") != std::string::npos;
    });
  };
  resource("b")->resourceDictionary()->set("rating", std::nan(""));
  load({plain("d", 1)});
  manager->saveLoadedResorcesList();
  EXPECT_EQ(linesNaming("b"), 1);
  EXPECT_EQ(manager->lastSaveError()->code, static_cast<int>(JSONErrorCode::unwritable));
  EXPECT_EQ(read(listPath()), before);

  resource("a")->resourceDictionary()->set("rating", HUGE_VAL);
  manager->saveLoadedResorcesList();
  manager->saveLoadedResorcesList();
  EXPECT_EQ(linesNaming("a"), 1);
  EXPECT_EQ(linesNaming("b"), 1);

  resource("b")->resourceDictionary()->set("rating", 1.5);
  manager->saveLoadedResorcesList();
  resource("b")->resourceDictionary()->set("rating", std::nan(""));
  manager->saveLoadedResorcesList();
  EXPECT_EQ(linesNaming("a"), 1);
  EXPECT_EQ(linesNaming("b"), 2) << "a new fault";

  for (const char* const identifier : {"a", "b"})
    resource(identifier)->resourceDictionary()->set("rating", 1.5);
  load({});
  EXPECT_EQ(manager->lastSaveError(), std::nullopt);
  EXPECT_THAT(listed(), ElementsAre("a", "b", "c", "d"));
  resource("a")->resourceDictionary()->set("rating", std::nan(""));
  manager->saveLoadedResorcesList();
  EXPECT_EQ(linesNaming("a"), 2);
  EXPECT_EQ(linesNaming("c") + linesNaming("d"), 0);
}

// --- A list that other processes write -----------------------------------------------------------

/// Two managers on one root stand for two processes.
class KivResourceSharedListTest : public KivResourceSavedListTest {
 protected:
  /// Runs the operation with the second manager, client and observer.
  template <class Operation>
  void asTheOther(const Operation& operation) {
    std::swap(manager, otherManager_);
    std::swap(client, otherClient_);
    std::swap(observer, otherObserver_);
    if (!manager) restart();
    operation();
    std::swap(manager, otherManager_);
    std::swap(client, otherClient_);
    std::swap(observer, otherObserver_);
  }

  ~KivResourceSharedListTest() override {
    if (otherManager_) otherManager_->loader()->canselLoading();
  }

 private:
  std::shared_ptr<KivResourceManager> otherManager_;
  std::shared_ptr<FakeRESTService> otherClient_;
  std::shared_ptr<RecordingObserver> otherObserver_;
};

TEST_F(KivResourceSharedListTest, EachSaveKeepsWhatTheOtherSaved) {
  load({plain("a", 1)});
  asTheOther([&] { load({plain("b", 1)}); });
  load({plain("c", 1)});
  EXPECT_THAT(listed(), ElementsAre("a", "b", "c"));
  asTheOther([&] { load({plain("d", 1)}); });
  EXPECT_THAT(listed(), ElementsAre("a", "b", "c", "d"));
  EXPECT_THAT(registry(), ElementsAre("a", "b", "c"));
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(KivResourceSharedListTest, WhatTheOtherDroppedLeavesUnlessItWasChangedHere) {
  load({plain("a", 1), plain("b", 1), plain("c", 1)});
  asTheOther([&] {
    beginUpdate({plain("c", 1)});
    takeEvents();
  });
  EXPECT_THAT(listed(), ElementsAre("c"));
  entry(1)->resourceDictionary()->set("note", "mine");
  load({plain("d", 1)});
  EXPECT_THAT(listed(), ElementsAre("c", "b", "d"));
  EXPECT_EQ(registry(), listed());
}

TEST_F(KivResourceSharedListTest, TheGreatestStampWinsAndKeepsItsFiles) {
  load({banner("a", 1, "x/a1.png"), banner("b", 1, "x/b1.png")});
  asTheOther([&] { load({banner("a", 3, "x/a3.png"), banner("b", 2, "x/b2.png")}); });
  load({banner("a", 2, "x/a2.png"), banner("b", 3, "x/b3.png")});
  EXPECT_EQ(manager->loadedResourcesWithID("a")[0]->updated(), 3U);
  EXPECT_EQ(manager->loadedResourcesWithID("b")[0]->updated(), 3U);
  EXPECT_THAT(listed(), UnorderedElementsAre("a", "b"));
  for (const char* const name : {"a3.png", "b3.png"})
    EXPECT_TRUE(exists(stored(name))) << name;
  for (const char* const name : {"a1.png", "a2.png", "b1.png", "b2.png"})
    EXPECT_FALSE(exists(stored(name))) << name;
}

TEST_F(KivResourceSharedListTest, AnOlderVersionThatCompletesLaterDoesNotReplaceTheOthers) {
  beginLoad({banner("a", 1, "x/a1.png"), banner("b", 1, "x/b1.png")});
  asTheOther([&] { load({banner("a", 2, "x/a2.png")}); });
  EXPECT_TRUE(client->succeed("/b1.png", "b"));
  takeEvents();
  EXPECT_THAT(listed(), ElementsAre("a", "b"));
  EXPECT_TRUE(client->succeed("/a1.png", "a"));
  takeEvents();
  EXPECT_EQ(manager->loadedResourcesWithID("a")[0]->updated(), 2U);
  EXPECT_THAT(listed(), UnorderedElementsAre("a", "b"));
  EXPECT_TRUE(exists(stored("a2.png")));
  EXPECT_FALSE(exists(stored("a1.png")));
}

TEST_F(KivResourceSharedListTest, AFileThatAnEntryOfTheOtherUsesIsNotRemoved) {
  load({banner("a", 1, "x/shared.png")});
  asTheOther([&] { load({banner("b", 1, "x/shared.png")}); });
  load({banner("a", 2, "x/a2.png")});
  EXPECT_TRUE(exists(stored("shared.png")));
  EXPECT_THAT(listed(), ElementsAre("b", "a"));
}

TEST_F(KivResourceSharedListTest, ANewResourceWhoseFileTheOtherRemovedIsFailedAndNotListed) {
  load({banner("a", 1, "x/shared.png")});
  asTheOther([&] {});
  kiv::DispatchQueue::main()->drain();
  // Another manager removes the file after it was found by its name and before the save, which
  // begins by taking the lock.
  bool isRemoved = false;
  files.setObserver([&](const FaultyFileManager::Operation& operation) {
    if (operation.kind != FileOperation::lock || std::exchange(isRemoved, true)) return;
    asTheOther([&] { load({banner("a", 2, "x/a2.png")}); });
  });
  beginLoad({banner("b", 1, "x/shared.png")});
  files.setObserver({});
  EXPECT_TRUE(isRemoved);
  EXPECT_THAT(takeEvents(), ElementsAre("failed b", "finished"));
  EXPECT_THAT(registry(), ElementsAre("a"));
  EXPECT_THAT(listed(), ElementsAre("a"));
  EXPECT_FALSE(exists(stored("shared.png")));
}

TEST_F(KivResourceSharedListTest, SoItIsIfTheRemovalDidNotChangeTheList) {
  load({banner("a", 1, "x/shared.png")});
  asTheOther([&] {});
  load({banner("a", 2, "x/a2.png")});
  ASSERT_FALSE(exists(stored("shared.png")));
  beginLoad({banner("b", 1, "x/shared.png")});
  // The other replaces its older version, as this manager has done, and removes the new file of the
  // old one's name.
  bool isRemoved = false;
  files.setObserver([&](const FaultyFileManager::Operation& operation) {
    if (operation.kind != FileOperation::lock || std::exchange(isRemoved, true)) return;
    asTheOther([&] { load({banner("a", 2, "x/a2.png")}); });
  });
  client->succeed("/x/shared.png");
  files.setObserver({});
  EXPECT_TRUE(isRemoved);
  EXPECT_THAT(takeEvents(), ElementsAre("failed b", "finished"));
  EXPECT_THAT(listed(), ElementsAre("a"));
  EXPECT_FALSE(exists(stored("shared.png")));
}

TEST_F(KivResourceSharedListTest, AFileIsStoredAfterTheWaitForTheOtherThatRemovesIt) {
  load({banner("a", 1, "x/icon.png")});
  beginLoad({banner("a", 2, "x/a2.png"), video("c", 1, "x/icon.png", "x/c.mp4")});
  asTheOther([&] { load({banner("d", 1, "x/c.mp4")}); });
  // The icon is to be removed with the older "a", which is settled before "c" can be complete. When
  // that takes the lock, the other removes the video's file and keeps the icon.
  bool isRemoved = false;
  files.setObserver([&](const FaultyFileManager::Operation& operation) {
    if (operation.path != listPath() + ".lock" || std::exchange(isRemoved, true)) return;
    asTheOther([&] { load({banner("d", 2, "x/d2.png"), banner("e", 1, "x/icon.png")}); });
  });
  DispatchQueue::main()->async([&] {
    EXPECT_TRUE(client->succeed("/a2.png"));
    EXPECT_TRUE(client->succeed("/c.mp4"));
  });
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "loaded c", "finished"));
  files.setObserver({});
  EXPECT_TRUE(isRemoved);
  EXPECT_THAT(listed(), UnorderedElementsAre("a", "c", "d", "e"));
  EXPECT_TRUE(exists(stored("c.mp4")));
}

TEST_F(KivResourceSharedListTest, AFileThatTheOtherRemovesDuringTheStartIsLookedForAgain) {
  SavedList list;
  ResourceList starting;
  FileListing listing;
  load({banner("a", 1, "x/shared.png"), banner("d", 1, "x/d.png")});
  std::shared_ptr<KivResource> found;
  files.setObserver([&](const FaultyFileManager::Operation& operation) {
    if (operation.kind != FileOperation::remove || found) return;
    ASSERT_EQ(operation.path, stored("shared.png"));
    list.restore(starting, listing);
    found = KivResourceFactory::createResourceFromDictionary(banner("b", 1, operation.path));
    starting.append(found);
  });
  load({banner("a", 2, "x/a2.png")});
  files.setObserver({});
  ASSERT_TRUE(found);
  EXPECT_THAT(found->missingFilesLinks(), IsEmpty());
  EXPECT_FALSE(found->filesExist());

  SavedList::Access access(list, starting);
  EXPECT_THAT(list.takeMerge().lost, ElementsAre(found));
  EXPECT_TRUE(access.save());
  EXPECT_THAT(listed(), UnorderedElementsAre("a", "d"));
}

TEST_F(KivResourceSharedListTest, AStartTakesNoLockUnlessAnotherMayHoldIt) {
  load({plain("a", 1)});
  const std::string lock = listPath() + ".lock";
  std::filesystem::remove(lock);
  restart();
  EXPECT_THAT(registry(), ElementsAre("a"));
  EXPECT_FALSE(exists(lock));
}

TEST_F(KivResourceSharedListTest, AnUnchangedListIsNotReadAgain) {
  load({plain("a", 1)});
  files.setFault(std::nullopt);
  load({plain("b", 1)});
  manager->saveLoadedResorcesList();
  for (const auto& operation : files.operations())
    EXPECT_NE(operation.kind, FileOperation::read) << operation.path;
}

TEST_F(KivResourceSharedListTest, WithoutLocksListsAreStillMerged) {
  load({plain("a", 1)});  // the storage service holds its own lock after this
  files.setFailingOperation(FileOperation::lock, ENOLCK);
  asTheOther([&] { load({plain("b", 1)}); });
  load({plain("c", 1)});
  EXPECT_THAT(listed(), ElementsAre("a", "b", "c"));
}

TEST_F(KivResourceSharedListTest, NothingIsSavedWhileAnotherKeepsTheLock) {
  load({plain("a", 1)});
  auto lock = FileManager::defaultManager().lockFileAtPath(listPath() + ".lock").value_or(nullptr);
  ASSERT_TRUE(lock);
  load({plain("b", 1)});
  EXPECT_THAT(listed(), ElementsAre("a"));
  ASSERT_TRUE(manager->lastSaveError());
  EXPECT_EQ(manager->lastSaveError()->code, EAGAIN);
  lock.reset();
  load({});
  EXPECT_THAT(listed(), ElementsAre("a", "b"));
  EXPECT_EQ(manager->lastSaveError(), std::nullopt);
}

TEST_F(KivResourceSavedListTest, WithoutARootNothingIsWrittenToTheWorkingDirectory) {
  const TemporaryDirectory scratch;
  const WorkingDirectory directory(scratch.path());
  KivStorageService::setRootPath("");
  restart();
  beginLoad({plain("a", 1)});
  EXPECT_EQ(takeEvents(), (Events{"loaded a", "finished"}));
  EXPECT_TRUE(manager->lastSaveError());
  EXPECT_TRUE(std::filesystem::is_empty(scratch.path()));
}

}  // namespace
}  // namespace kiv::test
