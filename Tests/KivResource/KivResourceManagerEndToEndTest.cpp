// The manager with its real client, its real storage and a server on the loopback interface.

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <future>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/KivResourceWeb.h"
#include "KivResource/NSError+KivResource.h"
#include "Tests/KivResource/RealClientFixture.h"
#include "Tests/Support/NginxServer.h"
#include "Tests/Support/RangeServer.h"
#include "Tests/Support/ZipBuilder.h"

namespace {

using namespace kiv::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class KivResourceManagerEndToEndTest : public RealClientFixture {
 protected:
  KivResourceManagerEndToEndTest() {
    KivAppConfiguration::sharedInstance()->setReserveACSDomain(mirror.url("/reserve"));
  }

  LoopbackServer mirror;
};

std::string archive(const std::string& page) {
  return ZipBuilder()
      .addFile("index.html", page)
      .addFile("css/style.css", "style of " + page)
      .build();
}

TEST_F(KivResourceManagerEndToEndTest, EveryKindIsFetchedStoredAndSurvivesARestartOffline) {
  server.serve("/a.png", Response::ok("banner"));
  server.serve("/i.png", Response::ok("icon"));
  server.serve("/v.mp4", Response::ok("video").chunked());
  server.serve("/promo.zip", Response::ok(archive("page")));
  server.serve("/single.html", Response::ok("single"));
  update({banner("a", 1, "a.png"), video("v", 1, "i.png", "v.mp4"), page("p", 1, "promo.zip"),
          page("s", 1, "single.html")});
  EXPECT_THAT(observer->events, testing::SizeIs(5));
  EXPECT_EQ(observer->events.back(), "finished");
  EXPECT_THAT(registry(), UnorderedElementsAre("a", "v", "p", "s"));
  EXPECT_EQ(read(stored("v.mp4")), "video");
  EXPECT_EQ(read(stored("promo/css/style.css")), "style of page");

  KivAppConfiguration::sharedInstance()->setMainACSDomain(std::nullopt);
  restart();
  EXPECT_THAT(registry(), UnorderedElementsAre("a", "v", "p", "s"));
  const auto pages = manager->loadedResourcesWithID("p");
  const auto web = std::dynamic_pointer_cast<KivResourceWeb>(pages.at(0));
  EXPECT_EQ(web->html(), stored("promo/index.html"));
  EXPECT_TRUE(web->filesExist());
}

TEST_F(KivResourceManagerEndToEndTest, ALargeFileThatBreaksOffIsGoneOnWithByTheNextPass) {
  const std::string body = patternedBytes(3'000'000);
  auto cut = std::make_shared<std::atomic<bool>>(true);
  server.serve("/v.mp4", [&body, cut](const Request& request) {
    auto response = rangeResponse(request, body, "\"1\"");
    return *cut ? response.stallAt(2'000'000) : response;
  });
  server.serve("/i.png", Response::ok("icon"));
  beginUpdate({video("v", 1, "i.png", "v.mp4")});
  const std::string spool = KivResourceStorageModule::spoolDirectoryPath();
  const auto spooled = [&] {
    std::uintmax_t size = 0;
    std::error_code ignored;
    for (const auto& item : std::filesystem::directory_iterator(spool, ignored))
      size = std::max(size, item.file_size(ignored));
    return size;
  };
  ASSERT_TRUE(waitUntil([&] { return spooled() == 2'000'000; }));
  manager->stopLoading();
  ASSERT_TRUE(server.waitForNoConnection());
  *cut = false;

  restart();
  update({video("v", 1, "i.png", "v.mp4")});
  EXPECT_THAT(registry(), ElementsAre("v"));
  EXPECT_TRUE(read(stored("v.mp4")) == body);
  EXPECT_EQ(server.requests("/v.mp4").back().header("Range"), "bytes=2000000-");
  EXPECT_TRUE(std::filesystem::is_empty(spool));
}

TEST_F(KivResourceManagerEndToEndTest, ResourcesThatShareALargeFileShareItsTransfer) {
  const std::string body = patternedBytes(2'000'000);
  server.serve("/shared.png", Response::ok(body));
  update(
      {banner("a", 1, "shared.png"), banner("b", 1, "shared.png"), banner("c", 1, "shared.png")});
  EXPECT_THAT(registry(), ElementsAre("a", "b", "c"));
  EXPECT_TRUE(read(stored("shared.png")) == body);
  EXPECT_EQ(server.requests("/shared.png").size(), 1U);
}

TEST_F(KivResourceManagerEndToEndTest, AnUpdateReplacesDropsAndKeeps) {
  for (const char* path : {"/a1.png", "/a2.png", "/b.png", "/c.png"}) {
    server.serve(path, Response::ok(path));
  }
  update({banner("a", 1, "a1.png"), banner("b", 1, "b.png"), banner("c", 1, "c.png")});
  update({banner("a", 2, "a2.png"), banner("b", 1, "b.png")});
  EXPECT_THAT(registry(), UnorderedElementsAre("a", "b"));
  EXPECT_FALSE(exists(stored("a1.png")));
  EXPECT_EQ(read(stored("a2.png")), "/a2.png");
  EXPECT_TRUE(exists(stored("c.png")));
  EXPECT_EQ(server.requests("/b.png").size(), 1U);
}

TEST_F(KivResourceManagerEndToEndTest, AReplacedArchiveIsSwappedNotMerged) {
  server.serve("/promo.zip",
               std::vector{Response::ok(archive("first")),
                           Response::ok(ZipBuilder().addFile("index.html", "second").build())});
  update({page("p", 1, "promo.zip")});
  ASSERT_TRUE(exists(stored("promo/css/style.css")));
  // A pass would find the stored page by its name, so the archive is saved again directly.
  std::filesystem::remove(stored("promo/index.html"));
  update({page("p", 2, "promo.zip")});
  EXPECT_EQ(read(stored("promo/index.html")), "second");
  EXPECT_FALSE(exists(stored("promo/css")));
}

TEST_F(KivResourceManagerEndToEndTest, AFileThatFailsOnTheMainServerComesFromTheMirror) {
  server.serve("/a.png", Response::status(500, "oops"));
  mirror.serve("/reserve/a.png", Response::ok("from the mirror"));
  update({banner("a", 1, "a.png")});
  EXPECT_THAT(observer->events, ElementsAre("loaded a", "finished"));
  EXPECT_EQ(read(stored("a.png")), "from the mirror");
}

TEST_F(KivResourceManagerEndToEndTest, AFileThatFailsEverywhereFailsWithTheMainServersStatus) {
  server.serve("/a.png", Response::status(403));
  update({banner("a", 1, "a.png")});
  EXPECT_THAT(observer->events, ElementsAre("failed a", "finished"));
  ASSERT_TRUE(observer->failures[0].error.has_value());
  EXPECT_EQ(observer->failures[0].error->code, InvalidResponseStatusErrorCode);
  EXPECT_EQ(observer->failures[0].error->localizedDescription(),
            "Error load file \"a.png\" with invalid response status code 403.");
}

TEST_F(KivResourceManagerEndToEndTest, AnArchiveThatIsNoneFailsAndLeavesNoTrace) {
  server.serve("/promo.zip", Response::ok("not a zip"));
  update({page("p", 1, "promo.zip")});
  EXPECT_THAT(observer->events, ElementsAre("failed p", "finished"));
  EXPECT_EQ(observer->failures[0].error->domain, KivStorageServiceErrorDomain);
  EXPECT_FALSE(exists(stored("promo")));
}

TEST_F(KivResourceManagerEndToEndTest, ADomainWithoutSchemeFailsWithATransferError) {
  KivAppConfiguration::sharedInstance()->setMainACSDomain("main.test");
  KivAppConfiguration::sharedInstance()->setReserveACSDomain(std::nullopt);
  update({banner("a", 1, "a.png")});
  EXPECT_THAT(observer->events, ElementsAre("failed a", "finished"));
  EXPECT_EQ(observer->failures[0].error->domain, KivRESTServiceErrorDomain);
}

TEST_F(KivResourceManagerEndToEndTest, StoppingInTheMiddleSendsOneFinishAndNothingAfterIt) {
  const Gate gate;
  server.serve("/a.png", Response::ok("a"));
  server.serve("/b.png", Response::ok("body").gateAt(2, gate));
  beginLoad({banner("a", 1, "a.png"), banner("b", 1, "b.png")});
  ASSERT_TRUE(waitUntil([&] { return observer->count("loaded a") == 1; }));
  ASSERT_TRUE(server.waitForRequests("/b.png", 1));
  manager->stopLoading();
  gate.open();
  EXPECT_TRUE(server.waitForNoConnection());
  ASSERT_TRUE(waitForFinishes());
  EXPECT_THAT(takeEvents(), ElementsAre("loaded a", "finished"));
  EXPECT_THAT(manager->loader()->restService()->currentQueue(), IsEmpty());
  EXPECT_FALSE(exists(stored("b.png")));
}

TEST_F(KivResourceManagerEndToEndTest, ABusyManagerRefusesAndTheRunningPassFinishes) {
  const Gate gate;
  server.serve("/a.png", Response::ok("a").after(gate));
  beginLoad({banner("a", 1, "a.png")});
  beginLoad({plain("x", 1)});
  ASSERT_TRUE(waitForFinishes());
  EXPECT_THAT(observer->events, ElementsAre("failed x", "finished"));
  gate.open();
  ASSERT_TRUE(waitForFinishes(2));
  EXPECT_THAT(observer->events, ElementsAre("failed x", "finished", "loaded a", "finished"));
}

TEST_F(KivResourceManagerEndToEndTest, ManyResourcesAreEachAnnouncedOnceAndAllSaved) {
  kiv::Array items;
  for (int number = 0; number < 200; ++number) {
    const std::string name = "f" + std::to_string(number) + ".png";
    server.serve("/" + name, Response::ok(name));
    items.append(banner(name, 1, name));
  }
  manager->loadResourcesForConfig(kiv::Dictionary{{"items", items}});
  ASSERT_TRUE(waitForFinishes());
  EXPECT_EQ(observer->loaded.size(), 200U);
  EXPECT_EQ(observer->events.size(), 201U);
  EXPECT_EQ(savedList().size(), 200U);
}

TEST_F(KivResourceManagerEndToEndTest, AManagerOnASerialQueueCallsObserversOnTheMainOne) {
  server.serve("/a.png", Response::ok("a"));
  const auto queue = kiv::DispatchQueue::serial("manager");
  const auto heard = std::make_shared<RecordingObserver>();
  std::shared_ptr<KivResourceManager> own;
  queue->async([&] {
    own = KivResourceManager::newInstance();
    own->addObserver(heard, kiv::DispatchQueue::main());
    own->loadResourcesForConfig(config({banner("a", 1, "a.png")}));
  });
  EXPECT_TRUE(waitUntil([&] { return heard->count("finished") == 1; }));
  EXPECT_THAT(heard->events, ElementsAre("loaded a", "finished"));
  EXPECT_THAT(heard->loaded.at(0)->useFilePaths(), ElementsAre(stored("a.png")));
  std::promise<void> released;
  queue->async([&] {
    own = nullptr;
    released.set_value();
  });
  released.get_future().wait();
}

TEST_F(KivResourceManagerEndToEndTest, AnObserverThatGoesDuringAPassIsNotCalled) {
  const Gate gate;
  server.serve("/a.png", Response::ok("a").after(gate));
  const auto other = std::make_shared<RecordingObserver>();
  manager->addObserver(other);
  beginLoad({banner("a", 1, "a.png")});
  observer = nullptr;
  gate.open();
  EXPECT_TRUE(waitUntil([&] { return other->count("finished") == 1; }));
  observer = other;
}

TEST_F(KivResourceManagerEndToEndTest, AgainstNginxEveryKindIsLoadedAndAMissingFileFails) {
  NginxServer nginx;
  const std::string large(3'000'000, 'v');
  nginx.addFile("a.png", "banner");
  nginx.addFile("i.png", "icon");
  nginx.addFile("v.mp4", large);
  nginx.addFile("promo.zip", archive("page"));
  KivAppConfiguration::sharedInstance()->setMainACSDomain(nginx.url());
  KivAppConfiguration::sharedInstance()->setReserveACSDomain(std::nullopt);
  update({banner("a", 1, "a.png"), video("v", 1, "i.png", "v.mp4"), page("p", 1, "promo.zip"),
          banner("m", 1, "missing.png")});
  EXPECT_THAT(registry(), UnorderedElementsAre("a", "v", "p"));
  EXPECT_TRUE(read(stored("v.mp4")) == large);
  EXPECT_EQ(read(stored("promo/index.html")), "page");
  ASSERT_EQ(observer->failures.size(), 1U);
  EXPECT_EQ(observer->failures[0].error->localizedDescription(),
            "Error load file \"missing.png\" with invalid response status code 404.");
  EXPECT_EQ(observer->count("finished"), 1U);
}

// --- A host that exits during a pass -------------------------------------------------------------

class LeavingHostTest : public KivResourceManagerEndToEndTest,
                        public testing::WithParamInterface<const char*> {};

TEST_P(LeavingHostTest, EndsCleanlyAndKeepsWhatWasAnnounced) {
  server.serve("/whole.png", Response::ok("whole"));
  server.serve("/stalls.png", Response::ok(std::string(100'000, 'x')).stallAt(50'000));
  ChildProcess host(LEAVING_HOST, {GetParam(), root(), server.url()});
  ASSERT_TRUE(host.hasStarted());
  ASSERT_TRUE(server.waitForRequests("/stalls.png", 1));
  host.closeInput();
  EXPECT_EQ(host.waitForExit(), 0);
  EXPECT_TRUE(server.waitForNoConnection());
  restart();
  EXPECT_THAT(registry(), ElementsAre("whole"));
  EXPECT_FALSE(exists(stored("stalls.png")));
}

INSTANTIATE_TEST_SUITE_P(Ways, LeavingHostTest, testing::Values("return", "exit", "serial"),
                         [](const auto& way) { return std::string(way.param); });

}  // namespace
