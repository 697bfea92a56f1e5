#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivPlatform/AppConfiguration/KivAppConfiguration.h"
#include "KivResource/KivResourceObject.h"
#include "KivResource/KivResourceRESTModule.h"
#include "KivResource/NSError+KivResource.h"
#include "Tests/Support/FakeRESTService.h"

namespace {

using kiv::test::FakeRESTService;
using testing::ElementsAre;
using testing::IsEmpty;

struct Outcome {
  std::optional<kiv::Data> data;
  std::optional<kiv::Error> error;
};

class KivResourceRESTModuleTest : public testing::Test {
 protected:
  KivResourceRESTModuleTest() {
    module.setRestService(client);
    configuration->setMainACSDomain("http://main.test/files");
    configuration->setReserveACSDomain("https://reserve.test");
  }
  ~KivResourceRESTModuleTest() override {
    configuration->setMainACSDomain(std::nullopt);
    configuration->setReserveACSDomain(std::nullopt);
  }

  void start(const std::string& link, std::uint64_t priority = 0) {
    const auto resource = KivResource::initWithDictionary_engine(
        {{"name", "n"}, {"type", "t"}, {"banner_id", "b"}, {"priority", priority}, {"updated", 1}},
        "engine");
    module.loadDataForResource_usingFileLink_completionHandler(
        resource, link, [this](std::optional<kiv::Data> data, std::optional<kiv::Error> error) {
          outcomes.push_back({std::move(data), std::move(error)});
        });
  }

  [[nodiscard]] std::string mainURL(const std::string& link) const {
    const auto url = module.mainURLForFileWithLink(link);
    return url ? url->absoluteString() : "none";
  }

  std::shared_ptr<KivAppConfiguration> configuration = KivAppConfiguration::sharedInstance();
  std::shared_ptr<FakeRESTService> client = std::make_shared<FakeRESTService>();
  KivResourceRESTModule module;
  std::vector<Outcome> outcomes;
};

TEST_F(KivResourceRESTModuleTest, PassesTheTaskOnBeforeItsCompletion) {
  std::vector<std::string> order;
  const auto begin = [&](const std::string& link) {
    module.loadDataForResource_usingFileLink_taskHandler_completionHandler(
        nullptr, link,
        [&](const KivRESTServiceTask& task) {
          order.push_back("status " + std::to_string(task.response()->statusCode()));
        },
        [&](const std::optional<kiv::Data>&, const std::optional<kiv::Error>&) {
          order.emplace_back("completed");
        });
  };
  begin("a.png");
  start("plain.png");
  client->answer("/plain.png", 200);
  EXPECT_THAT(order, IsEmpty()) << "the handler is of one download only";
  client->answer("/a.png", 404);
  EXPECT_THAT(order, ElementsAre("status 404", "completed"));
  order.clear();
  begin("no url");
  EXPECT_THAT(order, ElementsAre("completed")) << "there is no task";
  start("b.png");
  client->answer("/b.png", 200);
  EXPECT_THAT(order, ElementsAre("completed"));
}

TEST_F(KivResourceRESTModuleTest, AnOverrideThatDoesNotCallTheModulePassesNoTaskOn) {
  struct Own final : KivResourceRESTModule {
    void loadDataForResource_usingFileLink_completionHandler(
        const std::shared_ptr<KivResource>&, const std::string& link,
        CompletionHandler completion) override {
      if (link == "own") return completion(kiv::Data("own"), std::nullopt);
      KivResourceRESTModule::loadDataForResource_usingFileLink_completionHandler(
          nullptr, link, std::move(completion));
    }
  };
  Own own;
  own.setRestService(client);
  int tasks = 0;
  int completions = 0;
  const auto completion = [&](const auto&, const auto&) { ++completions; };
  own.loadDataForResource_usingFileLink_taskHandler_completionHandler(
      nullptr, "own", [&](const KivRESTServiceTask&) { ++tasks; }, completion);
  EXPECT_EQ(completions, 1);
  own.loadDataForResource_usingFileLink_completionHandler(nullptr, "b.png", completion);
  client->answer("/b.png", 200);
  EXPECT_EQ(completions, 2);
  EXPECT_EQ(tasks, 0) << "it is not kept for a later download";
}

TEST_F(KivResourceRESTModuleTest, ExportsItsConstants) {
  EXPECT_EQ(KivResourceRESTModuleErrorDomain, "kiv.KivResource.KivResourceRESTModule");
  EXPECT_EQ(CreateURLRequestErrorCode, 101);
  EXPECT_EQ(InvalidResponseStatusErrorCode, 102);
}

TEST_F(KivResourceRESTModuleTest, AFreshModuleHasAClientAndNoDelegate) {
  const KivResourceRESTModule fresh;
  EXPECT_NE(fresh.restService(), nullptr);
  EXPECT_EQ(fresh.delegate(), nullptr);
}

TEST_F(KivResourceRESTModuleTest, TheDelegateIsHeldWeakly) {
  auto delegate = std::make_shared<KivResourceRESTModuleDelegate>();
  module.setDelegate(delegate);
  EXPECT_EQ(module.delegate(), delegate);
  delegate = nullptr;
  EXPECT_EQ(module.delegate(), nullptr);
}

// --- URLs ----------------------------------------------------------------------------------------

TEST_F(KivResourceRESTModuleTest, JoinsDomainAndLinkByExactlyOneSeparator) {
  for (const char* domain : {"http://h/d", "http://h/d/"}) {
    configuration->setMainACSDomain(domain);
    EXPECT_EQ(mainURL("a/b.png"), "http://h/d/a/b.png");
    EXPECT_EQ(mainURL("/a/b.png"), "http://h/d/a/b.png");
  }
}

TEST_F(KivResourceRESTModuleTest, ALinkCannotChangeTheHost) {
  configuration->setMainACSDomain("http://host.test");
  for (const char* link : {"@evil.test/a", ":80@evil.test/a", ".evil.test/a", "//evil.test/a"}) {
    const auto url = module.mainURLForFileWithLink(link);
    ASSERT_TRUE(url.has_value()) << link;
    EXPECT_EQ(url->host(), "host.test") << link;
  }
}

TEST_F(KivResourceRESTModuleTest, AJoinedStringThatIsNoURLGivesNone) {
  for (const char* link : {"a b.png", "a%zz.png", "\u043f.png", "a\\b.png", "a\n.png"}) {
    EXPECT_EQ(mainURL(link), "none") << link;
    EXPECT_THAT(module.mirrorURLsForFileWithLink(link), IsEmpty()) << link;
  }
  EXPECT_EQ(mainURL("a%20b.png"), "http://main.test/files/a%20b.png");
}

TEST_F(KivResourceRESTModuleTest, AMissingMainDomainGivesNoURL) {
  configuration->setMainACSDomain(std::nullopt);
  EXPECT_EQ(mainURL("a.png"), "none");
}

TEST_F(KivResourceRESTModuleTest, ADomainWithoutSchemeIsTakenAsItStands) {
  configuration->setMainACSDomain("main.test");
  EXPECT_EQ(mainURL("a.png"), "main.test/a.png");
  EXPECT_EQ(module.mainURLForFileWithLink("a.png")->scheme(), "");
}

TEST_F(KivResourceRESTModuleTest, AnEmptyDomainNeverLetsALinkNameItsServer) {
  configuration->setMainACSDomain("");
  EXPECT_EQ(module.mainURLForFileWithLink("http://evil.test/a")->host(), "");
}

TEST_F(KivResourceRESTModuleTest, TheReserveServerIsTheOnlyMirror) {
  const auto mirrors = module.mirrorURLsForFileWithLink("a/b.png");
  ASSERT_EQ(mirrors.size(), 1U);
  EXPECT_EQ(mirrors[0].absoluteString(), "https://reserve.test/a/b.png");
}

TEST_F(KivResourceRESTModuleTest, WithoutReserveDomainThereIsNoMirrorAndTheTaskIsStillQueued) {
  configuration->setReserveACSDomain(std::nullopt);
  EXPECT_THAT(module.mirrorURLsForFileWithLink("a.png"), IsEmpty());
  start("a.png");
  ASSERT_EQ(client->tasks.size(), 1U);
  EXPECT_THAT(client->tasks[0]->requestMirrorURLs(), IsEmpty());
}

TEST_F(KivResourceRESTModuleTest, TheDomainsAreReadAnewForEveryDownload) {
  start("a.png");
  configuration->setMainACSDomain("http://second.test");
  configuration->setReserveACSDomain("http://third.test");
  start("a.png");
  EXPECT_THAT(client->urls,
              ElementsAre("http://main.test/files/a.png", "http://second.test/a.png"));
  EXPECT_EQ(client->tasks[1]->requestMirrorURLs()[0].absoluteString(), "http://third.test/a.png");
}

TEST_F(KivResourceRESTModuleTest, ARequestIsAGetForTheURLAndNoURLMakesNone) {
  const auto request = module.createGetRequestWithURL(kiv::URL::fromString("http://h/a"));
  ASSERT_TRUE(request.has_value());
  EXPECT_EQ(request->httpMethod, "GET");
  EXPECT_EQ(request->url.absoluteString(), "http://h/a");
  EXPECT_FALSE(module.createGetRequestWithURL(std::nullopt).has_value());
}

// --- Starting ------------------------------------------------------------------------------------

TEST_F(KivResourceRESTModuleTest, WithoutARequestTheHandlerIsCalledBeforeTheReturn) {
  configuration->setMainACSDomain(std::nullopt);
  start("a.png");
  ASSERT_EQ(outcomes.size(), 1U);
  EXPECT_FALSE(outcomes[0].data.has_value());
  ASSERT_TRUE(outcomes[0].error.has_value());
  EXPECT_EQ(outcomes[0].error->domain, KivResourceRESTModuleErrorDomain);
  EXPECT_EQ(outcomes[0].error->code, 101);
  EXPECT_EQ(outcomes[0].error->localizedDescription(), "Create request error.");
  EXPECT_EQ(outcomes[0].error->userInfo.size(), 1U);
  EXPECT_THAT(client->urls, IsEmpty());
}

TEST_F(KivResourceRESTModuleTest, ThePriorityReachesTheTaskUnchanged) {
  constexpr auto largest = std::numeric_limits<std::uint64_t>::max();
  start("a.png", 0);
  start("b.png", largest);
  EXPECT_EQ(client->tasks[0]->priority(), 0U);
  EXPECT_EQ(client->tasks[1]->priority(), largest);
}

// --- Outcomes ------------------------------------------------------------------------------------

TEST_F(KivResourceRESTModuleTest, AStatusOf200HandsTheDataOn) {
  start("a.png");
  client->succeed("a.png", "bytes");
  ASSERT_EQ(outcomes.size(), 1U);
  EXPECT_EQ(outcomes[0].data, kiv::Data("bytes"));
  EXPECT_FALSE(outcomes[0].error.has_value());
}

TEST_F(KivResourceRESTModuleTest, AnEmptyOrAbsentBodyOf200IsHandedOnAsItIs) {
  start("a.png");
  client->succeed("a.png", "");
  start("b.png");
  client->end("b.png", kiv::HTTPResponse(200), std::nullopt);
  ASSERT_EQ(outcomes.size(), 2U);
  EXPECT_EQ(outcomes[0].data, kiv::Data());
  EXPECT_FALSE(outcomes[1].data.has_value());
  EXPECT_FALSE(outcomes[0].error.has_value() || outcomes[1].error.has_value());
}

TEST_F(KivResourceRESTModuleTest, EveryOtherStatusIsError102AndDropsTheData) {
  for (const std::int64_t status : {201, 204, 206, 304, 404, 500}) {
    outcomes.clear();
    start("a.png");
    client->end("a.png", kiv::HTTPResponse(status), kiv::Data("page"));
    ASSERT_EQ(outcomes.size(), 1U);
    EXPECT_FALSE(outcomes[0].data.has_value());
    ASSERT_TRUE(outcomes[0].error.has_value());
    EXPECT_EQ(outcomes[0].error->code, 102) << status;
    EXPECT_EQ(outcomes[0].error->domain, KivResourceRESTModuleErrorDomain);
  }
}

TEST_F(KivResourceRESTModuleTest, TheMessageNamesOnlyTheFileAndTheStatus) {
  start("a/b/c.zip");
  client->answer("c.zip", 404);
  EXPECT_EQ(outcomes[0].error->localizedDescription(),
            "Error load file \"c.zip\" with invalid response status code 404.");
  EXPECT_EQ(outcomes[0].error->userInfo.size(), 1U);
}

TEST_F(KivResourceRESTModuleTest, NeitherResponseNorErrorIsError102WithStatus0) {
  start("a.png");
  client->end("a.png", std::nullopt, std::nullopt);
  EXPECT_EQ(outcomes[0].error->localizedDescription(),
            "Error load file \"a.png\" with invalid response status code 0.");
}

TEST_F(KivResourceRESTModuleTest, ATransferErrorGoesOnUnchangedWhateverTheStatusAndTheData) {
  start("a.png");
  client->end("a.png", kiv::HTTPResponse(500), kiv::Data("half"), FakeRESTService::transferError());
  EXPECT_EQ(outcomes[0].error, FakeRESTService::transferError());
  EXPECT_EQ(outcomes[0].data, kiv::Data("half"));
}

// --- Cancelling ----------------------------------------------------------------------------------

TEST_F(KivResourceRESTModuleTest, CancellingWithoutTasksOnlyCancels) {
  module.canselLoading();
  EXPECT_EQ(client->cancellations, 1);
}

TEST_F(KivResourceRESTModuleTest, NoHandlerIsCalledAfterCancellingNotEvenByATaskThatSucceeds) {
  start("a.png");
  start("b.png");
  const auto tasks = client->tasks;
  module.canselLoading();
  EXPECT_EQ(client->cancellations, 1);
  for (const auto& task : tasks) {
    EXPECT_FALSE(task->completionHandler());
    FakeRESTService::endTask(*task, kiv::HTTPResponse(200), kiv::Data("late"), {});
  }
  EXPECT_THAT(outcomes, IsEmpty());
}

}  // namespace
