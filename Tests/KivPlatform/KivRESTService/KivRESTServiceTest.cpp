#include <algorithm>
#include <array>
#include <atomic>
#include <limits>
#include <thread>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"

namespace {

using namespace kiv::test;
using kiv::DispatchQueue;
using Code = KivRESTServiceErrorCode;

using KivRESTServiceTest = ClientFixture;

std::vector<std::string> paths(const std::vector<Request>& requests) {
  std::vector<std::string> paths;
  paths.reserve(requests.size());
  for (const auto& request : requests)
    paths.push_back(request.path);
  return paths;
}

TEST_F(KivRESTServiceTest, A200EndsTheTaskWithResponseAndBody) {
  server_.serve("/a.png", Response::ok("the bytes"));
  const Load load(client(), url("/a.png"));
  EXPECT_FALSE(load.hasEnded());
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.status(), 200);
  EXPECT_EQ(load.errorCode(), 0);
  EXPECT_EQ(load.body(), "the bytes");
  EXPECT_EQ(load.completions(), 1);
  EXPECT_EQ(server_.requests().size(), 1u);
}

TEST_F(KivRESTServiceTest, AnEmptyBodyIsDataOfZeroBytes) {
  server_.serve("/empty", Response::ok(""));
  const Load load = loaded(url("/empty"));
  EXPECT_EQ(load.status(), 200);
  ASSERT_TRUE(load.hasBody());
  EXPECT_EQ(load.body(), "");
}

TEST_F(KivRESTServiceTest, ALargeBodyArrivesByteForByte) {
  std::string bytes(20 * 1024 * 1024 + 7, '\0');
  for (std::size_t at = 0; at < bytes.size(); ++at)
    bytes[at] = static_cast<char>(at * at >> 3);
  server_.serve("/plain", Response::ok(bytes));
  server_.serve("/chunked", Response::ok(bytes).chunked(10'000));
  const Load plain(client(), url("/plain"));
  const Load chunked(client(), url("/chunked"));
  ASSERT_TRUE(plain.waitForEnd() && chunked.waitForEnd());
  EXPECT_TRUE(plain.body() == bytes);
  EXPECT_TRUE(chunked.body() == bytes);
}

TEST_F(KivRESTServiceTest, SendsAPlainGetRequest) {
  server_.serve("/a", Response::ok("x"));
  settings_.userAgent = "Tester/2";
  const Load load = loaded(url("/a?v=1&w=%20#part"));
  ASSERT_EQ(server_.requests().size(), 1u);
  const auto request = server_.requests().front();
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.target, "/a?v=1&w=%20");
  EXPECT_EQ(request.header("User-Agent"), "Tester/2");
  EXPECT_FALSE(request.header("Accept-Encoding"));
  EXPECT_FALSE(request.header("Authorization"));
  EXPECT_FALSE(request.header("Range"));
}

// --- Order and number ---------------------------------------------------------------------------

TEST_F(KivRESTServiceTest, TheLargestPriorityStartsFirstAndEqualsInOrderOfQueuing) {
  const Gate gate;
  server_.serve("/first", Response::ok("x").after(gate));
  settings_.parallelTransfers = 1;
  std::vector<Load> loads;
  loads.emplace_back(client(), url("/first"));
  ASSERT_TRUE(server_.waitForRequests(1));
  const auto largest = std::numeric_limits<std::uint64_t>::max();
  loads.emplace_back(client(), url("/zero"), 0);
  loads.emplace_back(client(), url("/five"), 5);
  loads.emplace_back(client(), url("/largest"), largest);
  loads.emplace_back(client(), url("/five-again"), 5);
  loads.emplace_back(client(), url("/nine"), 9);
  gate.open();
  ASSERT_TRUE(waitForEnd(loads));
  EXPECT_EQ(paths(server_.requests()), (std::vector<std::string>{"/first", "/largest", "/nine",
                                                                 "/five", "/five-again", "/zero"}));
}

TEST_F(KivRESTServiceTest, SixTransfersRunAtOneTimeByDefault) {
  const Gate gate;
  server_.serve("/a", Response::ok("x").after(gate));
  const auto loads = makeLoads(client(), url(), 20);
  ASSERT_TRUE(server_.waitForRequests(6));
  gate.open();
  ASSERT_TRUE(waitForEnd(loads));
  EXPECT_EQ(server_.mostWaiting(), 6u);
  EXPECT_EQ(server_.requests().size(), 20u);
}

/// Six, then twelve have ended when the held requests come. Any round trip is long here.
TEST_F(KivRESTServiceTest, MoreTransfersRunWhereRoundTripsAreLong) {
  const Gate gate;
  server_.serve("/quick", Response::ok("x"));
  server_.serve("/held", Response::ok("x").after(gate));
  settings_.leastRoundTrip = std::chrono::milliseconds(0);
  settings_.roundTripsOfLatency = 1e9;
  const auto quick = makeLoads(client(), url("/quick"), 18);
  const auto held = makeLoads(client(), url("/held"), 40);
  ASSERT_TRUE(waitForEnd(quick));
  ASSERT_TRUE(server_.waitForRequests("/held", 24));
  gate.open();
  ASSERT_TRUE(waitForEnd(held));
  EXPECT_EQ(server_.mostWaiting(), 24U);
}

TEST_F(KivRESTServiceTest, AnUrgentTaskThatComesLateIsAmongTheNext) {
  const Gate first;
  const Gate next;
  std::vector<Response> answers(6, Response::ok("x").after(first));
  answers.push_back(Response::ok("x").after(next));
  server_.serve("/a", answers);
  server_.serve("/late", Response::ok("x").after(next));
  const auto loads = makeLoads(client(), url(), 20);
  ASSERT_TRUE(server_.waitForRequests(6));
  const Load late(client(), url("/late"), 100);
  first.open();
  ASSERT_TRUE(server_.waitForRequests(12));
  const auto order = paths(server_.requests());
  EXPECT_EQ(std::count(order.begin() + 6, order.begin() + 12, "/late"), 1);
  next.open();
  ASSERT_TRUE(waitForEnd(loads));
  ASSERT_TRUE(late.waitForEnd());
}

TEST_F(KivRESTServiceTest, ConnectionsAreKeptForTheNextTask) {
  server_.serve("/a", Response::ok("x"));
  for (int count = 0; count < 5; ++count)
    ASSERT_TRUE(loaded().hasEnded());
  EXPECT_EQ(server_.requests().size(), 5u);
  EXPECT_EQ(server_.connectionCount(), 1u);
}

TEST_F(KivRESTServiceTest, AConnectionThatTheServerHasClosedMeanwhileIsReplaced) {
  server_.serve("/a", Response::ok("x").thenCloseUnannounced());
  for (std::size_t count = 1; count <= 5; ++count) {
    const Load load = loaded();
    EXPECT_EQ(load.status(), 200) << load.message();
    EXPECT_EQ(server_.requests().size(), count);
  }
}

TEST_F(KivRESTServiceTest, AfterAnErrorStatusTheConnectionServesAgain) {
  server_.serve("/gone", Response::status(404, "no such file"));
  server_.serve("/a", Response::ok("x"));
  ASSERT_TRUE(loaded(url("/gone")).hasEnded());
  ASSERT_TRUE(loaded().hasEnded());
  EXPECT_EQ(server_.connectionCount(), 1u);
}

TEST_F(KivRESTServiceTest, AClientThatHasBeenIdleServesAgain) {
  server_.serve("/a", Response::ok("x"));
  settings_.idleTime = std::chrono::seconds(0);
  for (int count = 0; count < 20; ++count) {
    EXPECT_EQ(loaded().status(), 200);
  }
  EXPECT_TRUE(server_.waitForNoConnection());
}

// --- Mirrors ------------------------------------------------------------------------------------

struct MirrorCase {
  const char* name;
  /// The behaviour of each server: a status, or "refused".
  std::vector<std::string> servers;
  std::vector<std::size_t> requests;
  std::int64_t status;
  const char* body;
};

void PrintTo(const MirrorCase& testCase, std::ostream* out) {
  *out << testCase.name;
}

class KivRESTServiceMirrors : public ClientFixture,
                              public testing::WithParamInterface<MirrorCase> {};

TEST_P(KivRESTServiceMirrors, EndWith) {
  const auto& testCase = GetParam();
  const RefusingServer refusing;
  std::vector<std::unique_ptr<LoopbackServer>> servers;
  std::vector<std::string> urls;
  for (const auto& does : testCase.servers) {
    servers.push_back(std::make_unique<LoopbackServer>());
    if (does == "refused") {
      urls.push_back(refusing.url("/a"));
    } else {
      const auto number = std::to_string(servers.size());
      servers.back()->serve("/a", Response::status(std::stoi(does), "body " + number));
      urls.push_back(servers.back()->url("/a"));
    }
  }
  const Load load = loaded(urls);
  EXPECT_EQ(load.completions(), 1);
  EXPECT_EQ(load.status(), testCase.status);
  EXPECT_EQ(load.errorCode(), testCase.status == 0 ? codeOf(Code::cannotConnect) : 0);
  EXPECT_EQ(load.hasBody(), testCase.status == 200);
  EXPECT_EQ(load.body(), testCase.body);
  for (std::size_t at = 0; at < servers.size(); ++at) {
    EXPECT_EQ(servers[at]->requests().size(), testCase.requests[at]) << "server " << at;
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, KivRESTServiceMirrors,
    testing::Values(
        MirrorCase{"MainAnswers200", {"200", "200"}, {1, 0}, 200, "body 1"},
        MirrorCase{"MirrorAfterError", {"refused", "200"}, {0, 1}, 200, "body 2"},
        MirrorCase{"MirrorAfter404", {"404", "200"}, {1, 1}, 200, "body 2"},
        MirrorCase{"MirrorAfter500", {"500", "200"}, {1, 1}, 200, "body 2"},
        MirrorCase{"MirrorAfter201", {"201", "200"}, {1, 1}, 200, "body 2"},
        MirrorCase{"MirrorAfter204", {"204", "200"}, {1, 1}, 200, "body 2"},
        MirrorCase{"MirrorAfter206", {"206", "200"}, {1, 1}, 200, "body 2"},
        MirrorCase{"MirrorAfter304", {"304", "200"}, {1, 1}, 200, "body 2"},
        MirrorCase{"MirrorAfter302WithoutLocation", {"302", "200"}, {1, 1}, 200, "body 2"},
        MirrorCase{"SecondMirror", {"404", "refused", "200"}, {1, 0, 1}, 200, "body 3"},
        MirrorCase{
            "ServersAfterASuccessAreNotAsked", {"404", "200", "200"}, {1, 1, 0}, 200, "body 2"},
        MirrorCase{"MainResponseFirst", {"404", "500"}, {1, 3}, 404, ""},
        MirrorCase{"MainResponseBeforeMirrorError", {"404", "refused"}, {1, 0}, 404, ""},
        MirrorCase{"MirrorResponseBeforeMainError", {"refused", "503"}, {0, 3}, 503, ""},
        MirrorCase{"EarlierMirrorResponse", {"refused", "403", "500"}, {0, 1, 3}, 403, ""},
        MirrorCase{"MainErrorWhereNobodyAnswers", {"refused", "refused"}, {0, 0}, 0, ""},
        MirrorCase{"StatusWithoutMirror", {"206"}, {1}, 206, ""},
        MirrorCase{"ErrorWithoutMirror", {"refused"}, {0}, 0, ""}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

TEST_F(KivRESTServiceTest, TheErrorOfATaskIsThatOfItsOwnServer) {
  const RefusingServer refusing;
  const Load load = loaded({"http://no-such-host.invalid/a", refusing.url("/a")});
  EXPECT_EQ(load.errorCode(), codeOf(Code::cannotResolveHost));
  EXPECT_EQ(load.message(),
            "Could not load \"http://no-such-host.invalid/a\": the host was not found.");
}

// --- Invalid tasks -------------------------------------------------------------------------------

class KivRESTServiceUnsupportedURLs : public ClientFixture,
                                      public testing::WithParamInterface<const char*> {};

TEST_P(KivRESTServiceUnsupportedURLs, EndWithAnErrorThatSaysSo) {
  const Load load(client(), std::string(GetParam()));
  EXPECT_FALSE(load.hasEnded());
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.errorCode(), codeOf(Code::unsupportedURL));
  EXPECT_EQ(load.task()->responseError()->domain, KivRESTServiceErrorDomain);
  EXPECT_NE(load.message().find("the URL"), std::string::npos) << load.message();
  EXPECT_FALSE(load.hasBody());
}

TEST_P(KivRESTServiceUnsupportedURLs, StillTryTheMirrors) {
  mirror_.serve("/a", Response::ok("of the mirror"));
  EXPECT_EQ(loaded({GetParam(), mirror_.url("/a")}).body(), "of the mirror");
}

INSTANTIATE_TEST_SUITE_P(All, KivRESTServiceUnsupportedURLs,
                         testing::Values("ads.test/a.png", "127.0.0.1/a.png", "//127.0.0.1/a.png",
                                         "/a.png", "http:/a.png", "http:a.png",
                                         "file:///etc/hostname", "ftp://127.0.0.1/a.png",
                                         "gopher://127.0.0.1/a", "data:,x"));

TEST_F(KivRESTServiceTest, ATaskWithoutRequestEndsWithAnError) {
  auto task = std::make_shared<KivRESTServiceTask>();
  int completions = 0;
  task->setCompletionHandler([&](KivRESTServiceTask&) { ++completions; });
  client().queue(task);
  EXPECT_EQ(completions, 0);
  EXPECT_EQ(client().currentQueue().size(), 1u);
  ASSERT_TRUE(waitUntil([&] { return completions == 1; }));
  ASSERT_TRUE(task->responseError());
  EXPECT_EQ(task->responseError()->code, codeOf(Code::unsupportedRequest));
  EXPECT_FALSE(task->response());
}

TEST_F(KivRESTServiceTest, ARequestOfAnotherMethodIsNotSent) {
  auto task = Load::makeTask({url()});
  auto request = *task->request();
  request.httpMethod = "POST";
  task->setRequest(request);
  client().queue(task);
  ASSERT_TRUE(waitUntil([&] { return task->responseError().has_value(); }));
  EXPECT_EQ(task->responseError()->code, codeOf(Code::unsupportedRequest));
  EXPECT_TRUE(server_.requests().empty());
}

TEST_F(KivRESTServiceTest, NoTaskIsNoTask) {
  client().queue(nullptr);
  EXPECT_TRUE(client().currentQueue().empty());
}

// --- Pending tasks -------------------------------------------------------------------------------

TEST_F(KivRESTServiceTest, ATaskIsHeldUntilItsCompletion) {
  server_.serve("/a", Response::ok("x"));
  auto task = Load::makeTask({url()});
  std::size_t heldInCompletion = 1;
  bool hasEnded = false;
  task->setCompletionHandler([&](KivRESTServiceTask& ended) {
    EXPECT_EQ(&ended, task.get());
    EXPECT_TRUE(ended.returnedData());
    heldInCompletion = client().currentQueue().size();
    hasEnded = true;
  });
  client().queue(task);
  ASSERT_TRUE(server_.waitForRequests(1));
  // Whatever the transfer thread has done by now, no job of the client's queue has run yet.
  EXPECT_EQ(client().currentQueue(), std::vector{task});
  ASSERT_TRUE(waitUntil([&] { return hasEnded; }));
  EXPECT_EQ(heldInCompletion, 0u);
}

TEST_F(KivRESTServiceTest, TheTasksHeldComeInOrderOfQueuing) {
  const Gate gate;
  server_.serve("/a", Response::ok("x").after(gate));
  std::vector<std::shared_ptr<KivRESTServiceTask>> tasks;
  for (const std::uint64_t priority : {3U, 9U, 1U, 5U, 5U, 7U, 0U, 8U}) {
    tasks.push_back(Load::makeTask({url()}, priority));
    client().queue(tasks.back());
  }
  EXPECT_EQ(client().currentQueue(), tasks);
  gate.open();
  EXPECT_TRUE(waitUntil([&] { return client().currentQueue().empty(); }));
}

TEST_F(KivRESTServiceTest, ATaskThatIsHeldIsNotQueuedTwice) {
  server_.serve("/a", Response::ok("x"));
  const Load load(client(), url());
  client().queue(load.task());
  EXPECT_EQ(client().currentQueue().size(), 1u);
  ASSERT_TRUE(load.waitForEnd());
  const Load another = loaded(url("/b"));
  EXPECT_EQ(load.completions(), 1);
  EXPECT_EQ(server_.requests("/a").size(), 1u);
}

TEST_F(KivRESTServiceTest, TheHandlerThatIsSetWhenTheTaskEndsIsCalled) {
  const Gate gate;
  server_.serve("/a", Response::ok("x").after(gate));
  auto task = Load::makeTask({url()});
  int early = 0;
  int late = 0;
  task->setCompletionHandler([&](KivRESTServiceTask&) { ++early; });
  client().queue(task);
  task->setCompletionHandler([&](KivRESTServiceTask&) { ++late; });
  gate.open();
  ASSERT_TRUE(waitUntil([&] { return late > 0; }));
  EXPECT_EQ(early, 0);
  EXPECT_EQ(late, 1);
}

TEST_F(KivRESTServiceTest, ATaskWithoutHandlerEndsSilently) {
  server_.serve("/a", Response::ok("x"));
  const Load load(client(), url());
  load.task()->setCompletionHandler(nullptr);
  ASSERT_TRUE(waitUntil([&] { return client().currentQueue().empty(); }));
  EXPECT_EQ(load.completions(), 0);
  EXPECT_EQ(load.body(), "x");
}

TEST_F(KivRESTServiceTest, AHandlerThatHoldsItsTaskIsLetGoOfWithIt) {
  server_.serve("/a", Response::ok("x"));
  auto task = Load::makeTask({url()});
  const std::weak_ptr<KivRESTServiceTask> watched = task;
  task->setCompletionHandler([task](KivRESTServiceTask&) {});
  client().queue(std::move(task));
  EXPECT_TRUE(waitUntil([&] { return watched.expired(); }));
}

TEST_F(KivRESTServiceTest, ACompletionMayQueueTheNextTask) {
  server_.serve("/a", Response::ok("x"));
  int left = 10;
  std::function<void(KivRESTServiceTask&)> next = [&](KivRESTServiceTask&) {
    if (--left == 0) return;
    queue(url(), next);
  };
  queue(url(), next);
  EXPECT_TRUE(waitUntil([&] { return left == 0; }));
}

TEST_F(KivRESTServiceTest, ATaskThatHasEndedMayBeQueuedAgain) {
  server_.serve("/a", std::vector{Response::status(404), Response::ok("x")});
  const Load load = loaded();
  EXPECT_EQ(load.status(), 404);
  client().queue(load.task());
  ASSERT_TRUE(waitUntil([&] { return client().currentQueue().empty(); }));
  EXPECT_EQ(load.body(), "x");
  EXPECT_EQ(load.errorCode(), 0);
}

// --- Queues -------------------------------------------------------------------------------------

TEST_F(KivRESTServiceTest, OnTheMainThreadCompletionsComeOnTheMainQueue) {
  server_.serve("/a", Response::ok("x"));
  auto task = Load::makeTask({url()});
  std::shared_ptr<DispatchQueue> queue;
  std::thread::id thread;
  task->setCompletionHandler([&](KivRESTServiceTask&) {
    queue = DispatchQueue::current();
    thread = std::this_thread::get_id();
  });
  client().queue(task);
  ASSERT_TRUE(waitUntil([&] { return queue != nullptr; }));
  EXPECT_EQ(queue, DispatchQueue::main());
  EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(KivRESTServiceTest, CompletionsComeOnTheSerialQueueOfTheClientsCreation) {
  server_.serve("/a", Response::ok("x"));
  const auto queue = DispatchQueue::serial("client");
  std::unique_ptr<KivRESTService> client;
  runOn(*queue, [&] { client = std::make_unique<KivRESTService>(); });

  std::atomic<int> completions = 0;
  std::atomic<int> onQueue = 0;
  int running = 0;  // confined to the queue: a completion on another thread is a data race
  for (int count = 0; count < 50; ++count) {
    auto task = Load::makeTask({url()});
    task->setCompletionHandler([&](KivRESTServiceTask&) {
      EXPECT_EQ(++running, 1);
      if (DispatchQueue::current() == queue) ++onQueue;
      --running;
      ++completions;
    });
    client->queue(task);
  }
  EXPECT_TRUE(waitUntil([&] { return completions == 50; }));
  EXPECT_EQ(onQueue, 50);
}

TEST_F(KivRESTServiceTest, OnAThreadWithoutQueueCompletionsComeOnTheMainQueue) {
  server_.serve("/a", Response::ok("x"));
  std::unique_ptr<KivRESTService> client;
  std::thread([&] { client = std::make_unique<KivRESTService>(); }).join();
  const Load load(*client, url());
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), "x");
}

TEST_F(KivRESTServiceTest, TasksMayBeQueuedFromManyThreads) {
  server_.serve("/a", Response::ok("x"));
  int completions = 0;
  KivRESTService& shared = client();
  std::array<std::thread, 4> threads;
  for (auto& thread : threads) {
    thread = std::thread([&] {
      for (int count = 0; count < 25; ++count) {
        auto task = Load::makeTask({url()});
        task->setCompletionHandler([&](KivRESTServiceTask&) { ++completions; });
        shared.queue(task);
        (void)shared.currentQueue();
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_TRUE(waitUntil([&] { return completions == 100; }));
  EXPECT_TRUE(client().currentQueue().empty());
}

// --- Redirects ----------------------------------------------------------------------------------

class KivRESTServiceRedirects : public ClientFixture, public testing::WithParamInterface<int> {};

TEST_P(KivRESTServiceRedirects, AreFollowed) {
  LoopbackServer other;
  server_.serve("/old/a", Response::redirect(GetParam(), "../new/a?x=1"));
  server_.serve("/new/a", Response::redirect(GetParam(), other.url("/b")));
  other.serve("/b", Response::ok("found"));
  EXPECT_EQ(loaded(url("/old/a")).body(), "found");
  ASSERT_EQ(server_.requests("/new/a").size(), 1u);
  EXPECT_EQ(server_.requests("/new/a").front().target, "/new/a?x=1");
  EXPECT_EQ(other.requests("/b").front().method, "GET");
}

INSTANTIATE_TEST_SUITE_P(All, KivRESTServiceRedirects, testing::Values(301, 302, 303, 307, 308));

class KivRESTServiceOtherStatuses : public ClientFixture,
                                    public testing::WithParamInterface<int> {};

TEST_P(KivRESTServiceOtherStatuses, AreNotRedirects) {
  server_.serve("/a", Response::redirect(GetParam(), "/b"));
  EXPECT_EQ(loaded().status(), GetParam());
  EXPECT_EQ(server_.requests().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(All, KivRESTServiceOtherStatuses,
                         testing::Values(201, 300, 304, 305, 306, 404));

/// "/1" redirects to "/2" and so on; the last one is the file.
void serveChain(LoopbackServer& server, int redirects) {
  for (int at = 1; at <= redirects; ++at) {
    server.serve("/" + std::to_string(at), Response::redirect(302, "/" + std::to_string(at + 1)));
  }
  server.serve("/" + std::to_string(redirects + 1), Response::ok("the end"));
}

TEST_F(KivRESTServiceTest, TenRedirectsAreFollowed) {
  serveChain(server_, 10);
  EXPECT_EQ(loaded(url("/1")).body(), "the end");
  EXPECT_EQ(server_.requests().size(), 11u);
  EXPECT_EQ(server_.connectionCount(), 1u);
}

TEST_F(KivRESTServiceTest, ElevenRedirectsAreTooMany) {
  serveChain(server_, 11);
  const Load load = loaded(url("/1"));
  EXPECT_EQ(load.errorCode(), codeOf(Code::tooManyRedirects));
  EXPECT_EQ(load.status(), 0);
  EXPECT_EQ(server_.requests().size(), 11u);
}

TEST_F(KivRESTServiceTest, ARedirectToItselfEnds) {
  server_.serve("/a", Response::redirect(301, "/a"));
  EXPECT_EQ(loaded().errorCode(), codeOf(Code::tooManyRedirects));
}

TEST_F(KivRESTServiceTest, EachServerHasItsOwnCountOfRedirects) {
  server_.serve("/a", Response::redirect(301, "/a"));
  serveChain(mirror_, 10);
  EXPECT_EQ(loaded({url(), mirror_.url("/1")}).body(), "the end");
}

TEST_F(KivRESTServiceTest, ARedirectToAnotherSchemeIsRefusedAlsoAtTheEndOfAChain) {
  for (const char* const location :
       {"file:///etc/hostname", "ftp://127.0.0.1/a", "gopher://127.0.0.1/a", "mailto:a@b.test"}) {
    server_.serve("/a", Response::redirect(302, "/b"));
    server_.serve("/b", Response::redirect(302, location));
    const Load load = loaded();
    EXPECT_EQ(load.errorCode(), codeOf(Code::refusedRedirect)) << location;
    EXPECT_FALSE(load.hasBody());
  }
}

TEST_F(KivRESTServiceTest, AfterARefusedRedirectTheMirrorIsTried) {
  server_.serve("/a", Response::redirect(302, "file:///etc/hostname"));
  mirror_.serve("/a", Response::ok("of the mirror"));
  EXPECT_EQ(loaded(urls()).body(), "of the mirror");
}

TEST_F(KivRESTServiceTest, AnEmptyLocationIsNoRedirect) {
  server_.serve("/a", Response::redirect(302, ""));
  EXPECT_EQ(loaded().status(), 302);
  EXPECT_EQ(server_.requests().size(), 1u);
}

}  // namespace
