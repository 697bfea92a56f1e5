#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/NSError+KivResource.h"
#include "Tests/Support/ForgetfulFileManager.h"
#include "Tests/Support/HostileNames.h"
#include "Tests/Support/ManagerFixture.h"

namespace {

using kiv::test::ForgetfulFileManager;
using kiv::test::ManagerFixture;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class KivResourceManagerFilesTest : public ManagerFixture {};

// --- A host's own kind ---------------------------------------------------------------------------

/// A resource class of a host that overrides only filesExist().
class Leaflet : public KivResource {
 public:
  static std::shared_ptr<Leaflet> make(const kiv::Dictionary& dictionary) {
    return initialised(std::make_shared<Leaflet>(), dictionary, "leaflet");
  }
  [[nodiscard]] bool filesExist() const override { return !linkForKey("leaflet").isNull(); }
};

/// A class without a default constructor, which the framework cannot copy.
class OneOfAKind final : public Leaflet {
 public:
  explicit OneOfAKind(int) {}
  static std::shared_ptr<OneOfAKind> make(const kiv::Dictionary& dictionary) {
    return initialised(std::make_shared<OneOfAKind>(1), dictionary, "leaflet");
  }
};

kiv::Dictionary leaflet() {
  return {{"name", "n"},   {"type", "t"},  {"banner_id", "l"},
          {"priority", 1}, {"updated", 1}, {"leaflet", "there"}};
}

TEST_F(KivResourceManagerFilesTest, AHostsKindIsInTheAnswersToQueries) {
  manager->loadFilesForResource(Leaflet::make(leaflet()));
  ASSERT_EQ(manager->allLoadedResources().size(), 1U);
  const auto copy = manager->loadedResourcesWithID("l").at(0);
  EXPECT_TRUE(std::dynamic_pointer_cast<Leaflet>(copy));
  EXPECT_NE(copy, entry(0));
}

TEST_F(KivResourceManagerFilesTest, AHostsKindThatCannotBeCopiedIsHandedOutItself) {
  manager->loadFilesForResource(OneOfAKind::make(leaflet()));
  EXPECT_THAT(manager->allLoadedResources(), ElementsAre(entry(0)));
  EXPECT_THAT(manager->loadedResourcesWithType("t"), ElementsAre(entry(0)));
}

// --- Files found locally -------------------------------------------------------------------------

TEST_F(KivResourceManagerFilesTest, AFileStoredEarlierIsAttachedBeforeTheCallReturns) {
  write(stored("a.png"), "earlier");
  beginLoad({banner("a", 1, "other/server/a.png")});
  EXPECT_THAT(registry(), ElementsAre("a"));
  EXPECT_THAT(client->urls, IsEmpty());
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  EXPECT_EQ(read(stored("a.png")), "earlier");
}

TEST_F(KivResourceManagerFilesTest, APackagedFileGoesBeforeAStoredOne) {
  write(stored("a.png"), "stored");
  const auto inBundle = packaged() + "/InnerAdResources.bundle/a.png";
  write(inBundle, "packaged");
  load({banner("a", 1, "x/a.png")});
  EXPECT_THAT(entry(0)->useFilePaths(), ElementsAre(inBundle));
}

TEST_F(KivResourceManagerFilesTest, AResourceThatIsCompleteOnArrivalLeavesOlderVersionsBesideIt) {
  load({banner("a", 1, "a.png")});
  write(stored("b.png"), "b");
  beginLoad({banner("a", 2, stored("b.png"))});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  const auto both = manager->loadedResourcesWithID("a");
  ASSERT_EQ(both.size(), 2U);
  EXPECT_EQ(both[0]->updated(), 1U);
  EXPECT_EQ(both[1]->updated(), 2U);
  EXPECT_TRUE(exists(stored("a.png")));
  EXPECT_EQ(savedList().size(), 2U);
}

TEST_F(KivResourceManagerFilesTest, AFileFoundByNameReplacesOlderVersions) {
  load({banner("a", 1, "a.png")});
  write(stored("b.png"), "b");
  beginLoad({banner("a", 2, "x/b.png")});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  ASSERT_EQ(manager->loadedResourcesWithID("a").size(), 1U);
  EXPECT_FALSE(exists(stored("a.png")));
}

TEST_F(KivResourceManagerFilesTest, PlainResourcesPileUp) {
  load({plain("a", 1)});
  load({plain("a", 2)});
  EXPECT_THAT(registry(), ElementsAre("a", "a"));
}

TEST_F(KivResourceManagerFilesTest, OneStoredFileUnderBothLinksCompletesTheResourceTwice) {
  write(stored("same.bin"), "both");
  beginLoad({video("v", 1, "icons/same.bin", "videos/same.bin")});
  EXPECT_THAT(takeEvents(), ElementsAre("loaded v", "loaded v", "finished"));
  EXPECT_THAT(registry(), ElementsAre("v", "v"));
  EXPECT_EQ(entry(0), entry(1));
  EXPECT_TRUE(exists(stored("same.bin")));
  beginUpdate({video("v", 1, "icons/same.bin", "videos/same.bin")});
  takeEvents();
  EXPECT_THAT(registry(), ElementsAre("v", "v"));
  EXPECT_EQ(savedList().size(), 2U);
}

TEST_F(KivResourceManagerFilesTest, AResourceWithoutFilesAndWithoutMissingLinksGetsNothing) {
  write(stored("i.png"), "i");
  load({video("v", 1, "i.png", "v.mp4")});
  const auto loaded = entry(0);
  manager->removeResource(loaded);
  std::filesystem::remove(stored("v.mp4"));
  manager->loadFilesForResource(loaded);
  EXPECT_THAT(takeEvents(), IsEmpty());
  EXPECT_THAT(registry(), IsEmpty());
  EXPECT_THAT(client->urls, IsEmpty());
}

// --- Downloads -----------------------------------------------------------------------------------

TEST_F(KivResourceManagerFilesTest, ACompletedDownloadIsLoggedStoredSavedAndThenAnnounced) {
  beginLoad({banner("a", 1, "dir/a.png")});
  EXPECT_EQ(manager->loadingResourcesFilesCount(), 1);
  log.clear();
  client->succeed("/dir/a.png", "image");
  EXPECT_EQ(read(stored("a.png")), "image");
  EXPECT_EQ(savedList()[0].dictionary()["image_728x90"].string(), stored("a.png"));
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_THAT(log.lines()[0], testing::StartsWith("KivResourceManager ("));
  EXPECT_THAT(log.lines()[0],
              testing::EndsWith("): Loaded file with name \"a.png\" for resource with ID a."));
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
}

TEST_F(KivResourceManagerFilesTest, ADownloadErrorIsLoggedAndPassedOnUnchanged) {
  beginLoad({banner("a", 1, "a.png")});
  log.clear();
  client->fail("/a.png");
  EXPECT_THAT(takeEvents(), ElementsAre("failed a", "finished"));
  EXPECT_EQ(observer->failures[0].error, kiv::test::FakeRESTService::transferError());
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_THAT(log.lines()[0], testing::StartsWith("KivResourceManager ("));
  EXPECT_THAT(log.lines()[0],
              HasSubstr("): Error loading file with name \"a.png\" for resource with ID a. "
                        "Error: Error Domain=kiv.KivRESTService"));
  EXPECT_THAT(registry(), IsEmpty());
  EXPECT_FALSE(exists(stored("a.png")));
}

TEST_F(KivResourceManagerFilesTest, AStatusOtherThan200IsError102) {
  beginLoad({banner("a", 1, "a.png")});
  client->answer("/a.png", 404);
  EXPECT_THAT(takeEvents(), ElementsAre("failed a", "finished"));
  EXPECT_EQ(observer->failures[0].error->code, InvalidResponseStatusErrorCode);
}

TEST_F(KivResourceManagerFilesTest, ARequestThatCannotBeMadeIsError101BeforeTheNextLink) {
  beginLoad({video("v", 1, "not a url.png", "v.mp4")});
  EXPECT_THAT(takeEvents(), ElementsAre("failed v", "finished"));
  EXPECT_EQ(observer->failures[0].error->code, CreateURLRequestErrorCode);
  EXPECT_EQ(manager->loadingResourcesFilesCount(), 1);
  client->succeed("/v.mp4");
  EXPECT_THAT(takeEvents(), ElementsAre("finished"));
}

TEST_F(KivResourceManagerFilesTest, NeitherDataNorErrorIsAFailureWithoutError) {
  beginLoad({banner("a", 1, "a.png")});
  log.clear();
  client->end("/a.png", kiv::HTTPResponse(200), std::nullopt);
  EXPECT_THAT(takeEvents(), ElementsAre("failed a", "finished"));
  EXPECT_FALSE(observer->failures[0].error.has_value());
  EXPECT_THAT(log.lines()[0], testing::EndsWith("Error: (null)"));
}

TEST_F(KivResourceManagerFilesTest, DataAndErrorAtOnceIsAFailure) {
  beginLoad({banner("a", 1, "a.png")});
  client->end("/a.png", kiv::HTTPResponse(200), kiv::Data("half"),
              kiv::test::FakeRESTService::transferError());
  EXPECT_THAT(takeEvents(), ElementsAre("failed a", "finished"));
  EXPECT_FALSE(exists(stored("a.png")));
}

TEST_F(KivResourceManagerFilesTest, AnEmptyBodyIsStoredAsAnEmptyFile) {
  beginLoad({banner("a", 1, "a.png")});
  client->succeed("/a.png", "");
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  EXPECT_TRUE(exists(stored("a.png")));
}

TEST_F(KivResourceManagerFilesTest, ThePriorityReachesTheTask) {
  auto item = banner("a", 1, "a.png");
  item.set("priority", -1);
  beginLoad({item});
  EXPECT_EQ(client->tasks[0]->priority(), 18446744073709551615U);
}

TEST_F(KivResourceManagerFilesTest, OneOfTwoFilesFailingFailsOnceAndKeepsTheOtherStored) {
  beginLoad({video("v", 1, "i.png", "v.mp4")});
  client->answer("/i.png", 500);
  client->succeed("/v.mp4");
  EXPECT_THAT(takeEvents(), ElementsAre("failed v", "finished"));
  EXPECT_EQ(manager->loadingResourcesFilesCount(), 0);
  EXPECT_TRUE(exists(stored("v.mp4")));
  // The next pass fetches only what is still missing.
  client->urls.clear();
  beginLoad({video("v", 1, "i.png", "v.mp4")});
  EXPECT_THAT(client->urls, ElementsAre("http://main.test/files/i.png"));
  client->succeed("/i.png");
  EXPECT_THAT(takeEvents(), ElementsAre("loaded v", "finished"));
}

TEST_F(KivResourceManagerFilesTest, TwoFailingDownloadsGiveTwoFailuresOfTheSameResource) {
  beginLoad({video("v", 1, "i.png", "v.mp4")});
  client->fail("/v.mp4");
  client->fail("/i.png");
  EXPECT_THAT(takeEvents(), ElementsAre("failed v", "failed v", "finished"));
  EXPECT_EQ(observer->failures[0].resource, observer->failures[1].resource);
}

TEST_F(KivResourceManagerFilesTest, AFailedResourceEntersTheRegistryIfItStillBecomesComplete) {
  // Both links have the same last component, so both downloads write the same file.
  beginLoad({video("v", 1, "icons/f.bin", "videos/f.bin")});
  client->fail("/icons/f.bin");
  client->succeed("/videos/f.bin");
  EXPECT_THAT(takeEvents(), ElementsAre("failed v", "loaded v", "finished"));
  EXPECT_THAT(registry(), ElementsAre("v"));
}

TEST_F(KivResourceManagerFilesTest, TwoResourcesThatShareAFileEachDownloadIt) {
  beginLoad({banner("a", 1, "x/s.png"), banner("b", 1, "y/s.png")});
  EXPECT_THAT(client->urls,
              ElementsAre("http://main.test/files/x/s.png", "http://main.test/files/y/s.png"));
  client->succeed("/x/s.png", "first");
  client->succeed("/y/s.png", "second");
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "loaded b", "finished"));
  EXPECT_EQ(read(stored("s.png")), "second");
}

// --- Storing -------------------------------------------------------------------------------------

TEST_F(KivResourceManagerFilesTest, AFailureToStoreIsReportedAfterTheSuccessLine) {
  std::filesystem::create_directories(stored("a.png"));
  beginLoad({banner("a", 1, "x/a.png")});
  log.clear();
  client->succeed("/a.png");
  EXPECT_THAT(takeEvents(), ElementsAre("failed a", "finished"));
  ASSERT_TRUE(observer->failures[0].error.has_value());
  EXPECT_EQ(observer->failures[0].error->domain, KivStorageServiceErrorDomain);
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_THAT(log.lines()[0], HasSubstr("Loaded file with name \"a.png\""));
}

class HostileFileLinkTest : public KivResourceManagerFilesTest,
                            public testing::WithParamInterface<std::string> {};

TEST_P(HostileFileLinkTest, FailsWithAnErrorAndChangesNothingOnDisk) {
  load({banner("safe", 1, "safe.png"), page("zipped", 1, "keep.html")});
  const auto contents = [&] {
    std::vector<std::string> names;
    for (const auto& item : std::filesystem::recursive_directory_iterator(root())) {
      if (item.path().string().find(".KivStorageService") == std::string::npos) {
        names.push_back(item.path().string());
      }
    }
    std::sort(names.begin(), names.end());
    return names;
  };
  const auto before = contents();
  beginLoad({page("evil", 1, GetParam())});
  if (!client->tasks.empty()) {
    const auto task = client->tasks[0];
    client->tasks.clear();
    kiv::test::FakeRESTService::endTask(*task, kiv::HTTPResponse(200), kiv::Data("body"), {});
  }
  EXPECT_THAT(takeEvents(), testing::Contains("failed evil").Times(1));
  ASSERT_EQ(observer->failures.size(), 1U);
  EXPECT_TRUE(observer->failures[0].error.has_value());
  EXPECT_EQ(contents(), before);
  EXPECT_THAT(manager->loadedResourcesWithID("evil"), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Names, HostileFileLinkTest,
                         testing::ValuesIn(kiv::test::hostileLinks("file.html")));

TEST_F(KivResourceManagerFilesTest, ANameOf255BytesIsStored) {
  const std::string name = std::string(251, 'n') + ".png";
  load({banner("a", 1, "x/" + name)});
  EXPECT_THAT(registry(), ElementsAre("a"));
  EXPECT_TRUE(exists(stored(name)));
}

TEST_F(KivResourceManagerFilesTest, StoredButNotFoundAgainByNameGivesNoCallback) {
  const ForgetfulFileManager files("/lost.png");
  beginLoad({banner("a", 1, "x/lost.png")});
  client->succeed("/lost.png");
  EXPECT_TRUE(exists(stored("lost.png")));
  EXPECT_THAT(takeEvents(), ElementsAre("finished"));
  EXPECT_THAT(registry(), IsEmpty());
  EXPECT_EQ(manager->loadingResourcesFilesCount(), 0);
}

// --- Replacing older versions --------------------------------------------------------------------

TEST_F(KivResourceManagerFilesTest, OnlyTheFilesThatTheNewVersionDoesNotUseAreDeleted) {
  load({video("v", 1, "a.png", "b.png")});
  beginLoad({video("v", 2, "x/a.png", "c.mp4")});
  EXPECT_TRUE(exists(stored("b.png")));
  client->succeed("/c.mp4");
  EXPECT_THAT(takeEvents(), ElementsAre("loaded v", "finished"));
  ASSERT_EQ(manager->loadedResources()->size(), 1U);
  EXPECT_EQ(entry(0)->updated(), 2U);
  EXPECT_TRUE(exists(stored("a.png")));
  EXPECT_FALSE(exists(stored("b.png")));
}

TEST_F(KivResourceManagerFilesTest, AFileSharedWithAnotherIdentifierStays) {
  load({banner("a", 1, "s.png"), banner("b", 1, "s.png")});
  beginLoad({banner("a", 2, "new.png")});
  client->succeed("/new.png");
  EXPECT_TRUE(exists(stored("s.png")));
}

TEST_F(KivResourceManagerFilesTest, AFileSharedOnlyAmongOlderVersionsIsDeleted) {
  write(stored("s.png"), "s");
  load({banner("a", 1, stored("s.png"))});
  load({banner("a", 2, stored("s.png"))});
  ASSERT_EQ(manager->loadedResources()->size(), 2U);
  beginLoad({banner("a", 3, "new.png")});
  client->succeed("/new.png");
  EXPECT_EQ(manager->loadedResources()->size(), 1U);
  EXPECT_FALSE(exists(stored("s.png")));
}

TEST_F(KivResourceManagerFilesTest, AReplacedFileIsGoneForWhateverNamesItsPathLaterInThePass) {
  load({banner("a", 1, "a.png")});
  write(stored("new.png"), "new");
  beginLoad({banner("a", 2, "x/new.png"), banner("late", 1, stored("a.png"))});
  EXPECT_FALSE(exists(stored("a.png")));
  EXPECT_THAT(registry(), ElementsAre("a"));
}

TEST_F(KivResourceManagerFilesTest, AReplacedFileIsFetchedAnewForWhateverNeedsItLaterInThePass) {
  load({banner("a", 1, "a.png")});
  write(stored("new.png"), "new");
  beginLoad({banner("a", 2, "x/new.png"), banner("late", 1, "y/a.png")});
  EXPECT_THAT(client->urls, ElementsAre("http://main.test/files/y/a.png"));
  client->succeed("/y/a.png", "anew");
  EXPECT_EQ(read(stored("a.png")), "anew");
  EXPECT_THAT(registry(), ElementsAre("a", "late"));
}

TEST_F(KivResourceManagerFilesTest, AFailureToDeleteAnOldFileIsIgnored) {
  load({banner("a", 1, "a.png")});
  std::filesystem::remove(stored("a.png"));
  beginLoad({banner("a", 2, "new.png")});
  client->succeed("/new.png");
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  EXPECT_EQ(manager->loadedResources()->size(), 1U);
}

TEST_F(KivResourceManagerFilesTest, RemovingOldVersionsLeavesNoOtherObjectWithTheIdentifier) {
  load({plain("a", 1), plain("b", 1), plain("a", 2), plain("a", 3)});
  const auto kept = entry(2);
  manager->loadedResources()->append(entry(0));
  manager->removeOldResourcesForResource(kept);
  ASSERT_EQ(manager->loadedResources()->size(), 2U);
  EXPECT_EQ(entry(0)->resourceID(), "b");
  EXPECT_EQ(entry(1), kept);
}

TEST_F(KivResourceManagerFilesTest, RemovingTheFilesOfAResourceLeavesTheRegistryAlone) {
  load({banner("a", 1, "a.png")});
  manager->removeFilesForResource(entry(0));
  EXPECT_FALSE(exists(stored("a.png")));
  EXPECT_THAT(registry(), ElementsAre("a"));
}

TEST_F(KivResourceManagerFilesTest, RemoveResourceTakesOutEveryOccurrenceOfThatObjectAndNoMore) {
  load({banner("a", 1, "a.png"), plain("b", 1)});
  std::filesystem::remove(listPath());
  const auto object = entry(0)->resourceID() == "a" ? entry(0) : entry(1);
  manager->loadedResources()->append(object);
  manager->removeResource(object->copyWithZone());
  EXPECT_EQ(manager->loadedResources()->size(), 3U);
  manager->removeResource(object);
  EXPECT_THAT(registry(), ElementsAre("b"));
  EXPECT_TRUE(exists(stored("a.png")));
  EXPECT_FALSE(exists(listPath()));
  EXPECT_THAT(takeEvents(), IsEmpty());
}

}  // namespace
