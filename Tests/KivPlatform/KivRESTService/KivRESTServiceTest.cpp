#include <algorithm>
#include <array>
#include <atomic>
#include <limits>
#include <thread>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"
#include "Tests/KivPlatform/KivRESTService/Load.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/LoopbackServerSockets.h"

namespace {

using namespace kiv::test;
using kiv::DispatchQueue;
using Code = KivRESTServiceErrorCode;

kiv::TransferSettings withParallelTransfers(std::size_t count) {
  auto settings = kiv::defaultTransferSettings();
  settings.parallelTransfers = count;
  return settings;
}

std::vector<std::string> paths(const std::vector<Request>& requests) {
  std::vector<std::string> paths;
  paths.reserve(requests.size());
  for (const auto& request : requests)
    paths.push_back(request.path);
  return paths;
}

TEST(KivRESTService, A200EndsTheTaskWithResponseAndBody) {
  LoopbackServer server;
  server.serve("/a.png", Response::ok("the bytes"));
  KivRESTService client;
  const Load load(client, server.url("/a.png"));
  EXPECT_FALSE(load.hasEnded());
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.status(), 200);
  EXPECT_EQ(load.errorCode(), 0);
  EXPECT_EQ(load.body(), "the bytes");
  EXPECT_EQ(load.completions(), 1);
  EXPECT_EQ(server.requests().size(), 1u);
}

TEST(KivRESTService, AnEmptyBodyIsDataOfZeroBytes) {
  LoopbackServer server;
  server.serve("/empty", Response::ok(""));
  KivRESTService client;
  const Load load(client, server.url("/empty"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.status(), 200);
  ASSERT_TRUE(load.hasBody());
  EXPECT_EQ(load.body(), "");
}

TEST(KivRESTService, ALargeBodyArrivesByteForByte) {
  std::string bytes(20 * 1024 * 1024 + 7, '\0');
  for (std::size_t at = 0; at < bytes.size(); ++at)
    bytes[at] = static_cast<char>(at * at >> 3);
  LoopbackServer server;
  server.serve("/plain", Response::ok(bytes));
  server.serve("/chunked", Response::ok(bytes).chunked(10'000));
  KivRESTService client;
  const Load plain(client, server.url("/plain"));
  const Load chunked(client, server.url("/chunked"));
  ASSERT_TRUE(plain.waitForEnd() && chunked.waitForEnd());
  EXPECT_TRUE(plain.body() == bytes);
  EXPECT_TRUE(chunked.body() == bytes);
}

TEST(KivRESTService, SendsAPlainGetRequest) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  auto settings = kiv::defaultTransferSettings();
  settings.userAgent = "Tester/2";
  KivRESTService client(settings);
  const Load load(client, server.url("/a?v=1&w=%20#part"));
  ASSERT_TRUE(load.waitForEnd());
  ASSERT_EQ(server.requests().size(), 1u);
  const auto request = server.requests().front();
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.target, "/a?v=1&w=%20");
  EXPECT_EQ(request.header("User-Agent"), "Tester/2");
  EXPECT_FALSE(request.header("Accept-Encoding"));
  EXPECT_FALSE(request.header("Authorization"));
  EXPECT_FALSE(request.header("Range"));
}

// --- Order and number ---------------------------------------------------------------------------

TEST(KivRESTService, TheLargestPriorityStartsFirstAndEqualsInOrderOfQueuing) {
  LoopbackServer server;
  const Gate gate;
  server.serve("/first", Response::ok("x").after(gate));
  KivRESTService client(withParallelTransfers(1));
  std::vector<Load> loads;
  loads.emplace_back(client, server.url("/first"));
  ASSERT_TRUE(server.waitForRequests(1));
  const auto largest = std::numeric_limits<std::uint64_t>::max();
  loads.emplace_back(client, server.url("/zero"), 0);
  loads.emplace_back(client, server.url("/five"), 5);
  loads.emplace_back(client, server.url("/largest"), largest);
  loads.emplace_back(client, server.url("/five-again"), 5);
  loads.emplace_back(client, server.url("/nine"), 9);
  gate.open();
  for (const auto& load : loads)
    ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(paths(server.requests()), (std::vector<std::string>{"/first", "/largest", "/nine",
                                                                "/five", "/five-again", "/zero"}));
}

TEST(KivRESTService, SixTransfersRunAtOneTimeByDefault) {
  LoopbackServer server;
  const Gate gate;
  server.serve("/a", Response::ok("x").after(gate));
  KivRESTService client;
  const auto loads = makeLoads(client, server.url("/a"), 20);
  ASSERT_TRUE(server.waitForRequests(6));
  gate.open();
  for (const auto& load : loads)
    ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(server.mostWaiting(), 6u);
  EXPECT_EQ(server.requests().size(), 20u);
}

TEST(KivRESTService, AnUrgentTaskThatComesLateIsAmongTheNext) {
  LoopbackServer server;
  const Gate first;
  const Gate next;
  std::vector<Response> answers(6, Response::ok("x").after(first));
  answers.push_back(Response::ok("x").after(next));
  server.serve("/a", answers);
  server.serve("/late", Response::ok("x").after(next));
  KivRESTService client;
  const auto loads = makeLoads(client, server.url("/a"), 20);
  ASSERT_TRUE(server.waitForRequests(6));
  const Load late(client, server.url("/late"), 100);
  first.open();
  ASSERT_TRUE(server.waitForRequests(12));
  const auto order = paths(server.requests());
  EXPECT_EQ(std::count(order.begin() + 6, order.begin() + 12, "/late"), 1);
  next.open();
  for (const auto& load : loads)
    ASSERT_TRUE(load.waitForEnd());
  ASSERT_TRUE(late.waitForEnd());
}

TEST(KivRESTService, ConnectionsAreKeptForTheNextTask) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  KivRESTService client;
  for (int count = 0; count < 5; ++count)
    ASSERT_TRUE(Load(client, server.url("/a")).waitForEnd());
  EXPECT_EQ(server.requests().size(), 5u);
  EXPECT_EQ(server.connectionCount(), 1u);
}

TEST(KivRESTService, AConnectionThatTheServerHasClosedMeanwhileIsReplaced) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x").thenCloseUnannounced());
  KivRESTService client;
  for (std::size_t count = 1; count <= 5; ++count) {
    const Load load(client, server.url("/a"));
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.status(), 200) << load.message();
    EXPECT_EQ(server.requests().size(), count);
  }
}

TEST(KivRESTService, AfterAnErrorStatusTheConnectionServesAgain) {
  LoopbackServer server;
  server.serve("/gone", Response::status(404, "no such file"));
  server.serve("/a", Response::ok("x"));
  KivRESTService client;
  ASSERT_TRUE(Load(client, server.url("/gone")).waitForEnd());
  ASSERT_TRUE(Load(client, server.url("/a")).waitForEnd());
  EXPECT_EQ(server.connectionCount(), 1u);
}

TEST(KivRESTService, AClientThatHasBeenIdleServesAgain) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  auto settings = kiv::defaultTransferSettings();
  settings.idleTime = std::chrono::seconds(0);
  KivRESTService client(settings);
  for (int count = 0; count < 20; ++count) {
    const Load load(client, server.url("/a"));
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.status(), 200);
  }
  EXPECT_TRUE(server.waitForNoConnection());
}

// --- Mirrors ------------------------------------------------------------------------------------

struct MirrorCase {
  const char* name;
  /// What each server does: a status, or "refused".
  std::vector<std::string> servers;
  std::vector<std::size_t> requests;
  std::int64_t status;
  const char* body;
};

void PrintTo(const MirrorCase& testCase, std::ostream* out) {
  *out << testCase.name;
}

class KivRESTServiceMirrors : public testing::TestWithParam<MirrorCase> {};

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
  KivRESTService client;
  const Load load(client, urls);
  ASSERT_TRUE(load.waitForEnd());
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

TEST(KivRESTService, TheErrorOfATaskIsThatOfItsOwnServer) {
  const RefusingServer refusing;
  KivRESTService client;
  const Load load(client, {"http://no-such-host.invalid/a", refusing.url("/a")});
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.errorCode(), codeOf(Code::cannotResolveHost));
  EXPECT_EQ(load.message(),
            "Could not load \"http://no-such-host.invalid/a\": the host was not found.");
}

// --- What cannot be run -------------------------------------------------------------------------

class KivRESTServiceUnsupportedURLs : public testing::TestWithParam<const char*> {};

TEST_P(KivRESTServiceUnsupportedURLs, EndWithAnErrorThatSaysSo) {
  KivRESTService client;
  const Load load(client, std::string(GetParam()));
  EXPECT_FALSE(load.hasEnded());
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.errorCode(), codeOf(Code::unsupportedURL));
  EXPECT_EQ(load.task()->responseError()->domain, KivRESTServiceErrorDomain);
  EXPECT_NE(load.message().find("the URL"), std::string::npos) << load.message();
  EXPECT_FALSE(load.hasBody());
}

TEST_P(KivRESTServiceUnsupportedURLs, StillTryTheMirrors) {
  LoopbackServer mirror;
  mirror.serve("/a", Response::ok("of the mirror"));
  KivRESTService client;
  const Load load(client, {GetParam(), mirror.url("/a")});
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), "of the mirror");
}

INSTANTIATE_TEST_SUITE_P(All, KivRESTServiceUnsupportedURLs,
                         testing::Values("ads.test/a.png", "127.0.0.1/a.png", "//127.0.0.1/a.png",
                                         "/a.png", "http:/a.png", "http:a.png",
                                         "file:///etc/hostname", "ftp://127.0.0.1/a.png",
                                         "gopher://127.0.0.1/a", "data:,x"));

TEST(KivRESTService, ATaskWithoutRequestEndsWithAnError) {
  KivRESTService client;
  auto task = std::make_shared<KivRESTServiceTask>();
  int completions = 0;
  task->setCompletionHandler([&](KivRESTServiceTask&) { ++completions; });
  client.queue(task);
  EXPECT_EQ(completions, 0);
  EXPECT_EQ(client.currentQueue().size(), 1u);
  ASSERT_TRUE(waitUntil([&] { return completions == 1; }));
  ASSERT_TRUE(task->responseError());
  EXPECT_EQ(task->responseError()->code, codeOf(Code::unsupportedRequest));
  EXPECT_FALSE(task->response());
}

TEST(KivRESTService, ARequestOfAnotherMethodIsNotSent) {
  LoopbackServer server;
  KivRESTService client;
  auto task = Load::makeTask({server.url("/a")});
  auto request = *task->request();
  request.httpMethod = "POST";
  task->setRequest(request);
  client.queue(task);
  ASSERT_TRUE(waitUntil([&] { return task->responseError().has_value(); }));
  EXPECT_EQ(task->responseError()->code, codeOf(Code::unsupportedRequest));
  EXPECT_TRUE(server.requests().empty());
}

TEST(KivRESTService, NoTaskIsNoTask) {
  KivRESTService client;
  client.queue(nullptr);
  EXPECT_TRUE(client.currentQueue().empty());
}

// --- The tasks held -----------------------------------------------------------------------------

TEST(KivRESTService, ATaskIsHeldUntilItsCompletion) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  KivRESTService client;
  auto task = Load::makeTask({server.url("/a")});
  std::size_t heldInCompletion = 1;
  bool hasEnded = false;
  task->setCompletionHandler([&](KivRESTServiceTask& ended) {
    EXPECT_EQ(&ended, task.get());
    EXPECT_TRUE(ended.returnedData());
    heldInCompletion = client.currentQueue().size();
    hasEnded = true;
  });
  client.queue(task);
  ASSERT_TRUE(server.waitForRequests(1));
  // Whatever the transfer thread has done meanwhile: nothing has run on the client's queue yet.
  EXPECT_EQ(client.currentQueue(), std::vector{task});
  ASSERT_TRUE(waitUntil([&] { return hasEnded; }));
  EXPECT_EQ(heldInCompletion, 0u);
}

TEST(KivRESTService, TheTasksHeldComeInOrderOfQueuing) {
  LoopbackServer server;
  const Gate gate;
  server.serve("/a", Response::ok("x").after(gate));
  KivRESTService client;
  std::vector<std::shared_ptr<KivRESTServiceTask>> tasks;
  for (const std::uint64_t priority : {3U, 9U, 1U, 5U, 5U, 7U, 0U, 8U}) {
    tasks.push_back(Load::makeTask({server.url("/a")}, priority));
    client.queue(tasks.back());
  }
  EXPECT_EQ(client.currentQueue(), tasks);
  gate.open();
  EXPECT_TRUE(waitUntil([&] { return client.currentQueue().empty(); }));
}

TEST(KivRESTService, ATaskThatIsHeldIsNotQueuedTwice) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  KivRESTService client;
  const Load load(client, server.url("/a"));
  client.queue(load.task());
  EXPECT_EQ(client.currentQueue().size(), 1u);
  ASSERT_TRUE(load.waitForEnd());
  const Load another(client, server.url("/b"));
  ASSERT_TRUE(another.waitForEnd());
  EXPECT_EQ(load.completions(), 1);
  EXPECT_EQ(server.requests("/a").size(), 1u);
}

TEST(KivRESTService, TheHandlerThatIsSetWhenTheTaskEndsIsCalled) {
  LoopbackServer server;
  const Gate gate;
  server.serve("/a", Response::ok("x").after(gate));
  KivRESTService client;
  auto task = Load::makeTask({server.url("/a")});
  int early = 0;
  int late = 0;
  task->setCompletionHandler([&](KivRESTServiceTask&) { ++early; });
  client.queue(task);
  task->setCompletionHandler([&](KivRESTServiceTask&) { ++late; });
  gate.open();
  ASSERT_TRUE(waitUntil([&] { return late > 0; }));
  EXPECT_EQ(early, 0);
  EXPECT_EQ(late, 1);
}

TEST(KivRESTService, ATaskWithoutHandlerEndsSilently) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  KivRESTService client;
  const Load load(client, server.url("/a"));
  load.task()->setCompletionHandler(nullptr);
  ASSERT_TRUE(waitUntil([&] { return client.currentQueue().empty(); }));
  EXPECT_EQ(load.completions(), 0);
  EXPECT_EQ(load.body(), "x");
}

TEST(KivRESTService, AHandlerThatHoldsItsTaskIsLetGoOfWithIt) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  KivRESTService client;
  auto task = Load::makeTask({server.url("/a")});
  const std::weak_ptr<KivRESTServiceTask> watched = task;
  task->setCompletionHandler([task](KivRESTServiceTask&) {});
  client.queue(std::move(task));
  EXPECT_TRUE(waitUntil([&] { return watched.expired(); }));
}

TEST(KivRESTService, ACompletionMayQueueTheNextTask) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  KivRESTService client;
  int left = 10;
  std::function<void(KivRESTServiceTask&)> next = [&](KivRESTServiceTask&) {
    if (--left == 0) return;
    auto task = Load::makeTask({server.url("/a")});
    task->setCompletionHandler(next);
    client.queue(task);
  };
  auto task = Load::makeTask({server.url("/a")});
  task->setCompletionHandler(next);
  client.queue(task);
  EXPECT_TRUE(waitUntil([&] { return left == 0; }));
}

TEST(KivRESTService, ATaskThatHasEndedMayBeQueuedAgain) {
  LoopbackServer server;
  server.serve("/a", std::vector{Response::status(404), Response::ok("x")});
  KivRESTService client;
  const Load load(client, server.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.status(), 404);
  client.queue(load.task());
  ASSERT_TRUE(waitUntil([&] { return client.currentQueue().empty(); }));
  EXPECT_EQ(load.body(), "x");
  EXPECT_EQ(load.errorCode(), 0);
}

// --- Queues -------------------------------------------------------------------------------------

TEST(KivRESTService, OnTheMainThreadCompletionsComeOnTheMainQueue) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  KivRESTService client;
  auto task = Load::makeTask({server.url("/a")});
  std::shared_ptr<DispatchQueue> queue;
  std::thread::id thread;
  task->setCompletionHandler([&](KivRESTServiceTask&) {
    queue = DispatchQueue::current();
    thread = std::this_thread::get_id();
  });
  client.queue(task);
  ASSERT_TRUE(waitUntil([&] { return queue != nullptr; }));
  EXPECT_EQ(queue, DispatchQueue::main());
  EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST(KivRESTService, CompletionsComeOnTheSerialQueueOfTheClientsCreation) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  const auto queue = DispatchQueue::serial("client");
  std::unique_ptr<KivRESTService> client;
  runOn(*queue, [&] { client = std::make_unique<KivRESTService>(); });

  std::atomic<int> completions = 0;
  std::atomic<int> onQueue = 0;
  int running = 0;  // the queue's own: a data race here is a completion on another thread
  for (int count = 0; count < 50; ++count) {
    auto task = Load::makeTask({server.url("/a")});
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

TEST(KivRESTService, OnAThreadWithoutQueueCompletionsComeOnTheMainQueue) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  std::unique_ptr<KivRESTService> client;
  std::thread([&] { client = std::make_unique<KivRESTService>(); }).join();
  const Load load(*client, server.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), "x");
}

TEST(KivRESTService, TasksMayBeQueuedFromManyThreads) {
  LoopbackServer server;
  server.serve("/a", Response::ok("x"));
  KivRESTService client;
  int completions = 0;
  std::array<std::thread, 4> threads;
  for (auto& thread : threads) {
    thread = std::thread([&] {
      for (int count = 0; count < 25; ++count) {
        auto task = Load::makeTask({server.url("/a")});
        task->setCompletionHandler([&](KivRESTServiceTask&) { ++completions; });
        client.queue(task);
        (void)client.currentQueue();
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_TRUE(waitUntil([&] { return completions == 100; }));
  EXPECT_TRUE(client.currentQueue().empty());
}

// --- Redirects ----------------------------------------------------------------------------------

class KivRESTServiceRedirects : public testing::TestWithParam<int> {};

TEST_P(KivRESTServiceRedirects, AreFollowed) {
  LoopbackServer server;
  LoopbackServer other;
  server.serve("/old/a", Response::redirect(GetParam(), "../new/a?x=1"));
  server.serve("/new/a", Response::redirect(GetParam(), other.url("/b")));
  other.serve("/b", Response::ok("found"));
  KivRESTService client;
  const Load load(client, server.url("/old/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), "found");
  ASSERT_EQ(server.requests("/new/a").size(), 1u);
  EXPECT_EQ(server.requests("/new/a").front().target, "/new/a?x=1");
  EXPECT_EQ(other.requests("/b").front().method, "GET");
}

INSTANTIATE_TEST_SUITE_P(All, KivRESTServiceRedirects, testing::Values(301, 302, 303, 307, 308));

class KivRESTServiceOtherStatuses : public testing::TestWithParam<int> {};

TEST_P(KivRESTServiceOtherStatuses, AreNotRedirects) {
  LoopbackServer server;
  server.serve("/a", Response::redirect(GetParam(), "/b"));
  KivRESTService client;
  const Load load(client, server.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.status(), GetParam());
  EXPECT_EQ(server.requests().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(All, KivRESTServiceOtherStatuses,
                         testing::Values(201, 300, 304, 305, 306, 404));

/// "/1" leads to "/2" and so on, and the last is the file.
void serveChain(LoopbackServer& server, int redirects) {
  for (int at = 1; at <= redirects; ++at) {
    server.serve("/" + std::to_string(at), Response::redirect(302, "/" + std::to_string(at + 1)));
  }
  server.serve("/" + std::to_string(redirects + 1), Response::ok("the end"));
}

TEST(KivRESTService, TenRedirectsAreFollowed) {
  LoopbackServer server;
  serveChain(server, 10);
  KivRESTService client;
  const Load load(client, server.url("/1"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), "the end");
  EXPECT_EQ(server.requests().size(), 11u);
  EXPECT_EQ(server.connectionCount(), 1u);
}

TEST(KivRESTService, ElevenRedirectsAreTooMany) {
  LoopbackServer server;
  serveChain(server, 11);
  KivRESTService client;
  const Load load(client, server.url("/1"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.errorCode(), codeOf(Code::tooManyRedirects));
  EXPECT_EQ(load.status(), 0);
  EXPECT_EQ(server.requests().size(), 11u);
}

TEST(KivRESTService, ARedirectToItselfEnds) {
  LoopbackServer server;
  server.serve("/a", Response::redirect(301, "/a"));
  KivRESTService client;
  const Load load(client, server.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.errorCode(), codeOf(Code::tooManyRedirects));
}

TEST(KivRESTService, EachServerHasItsOwnCountOfRedirects) {
  LoopbackServer server;
  LoopbackServer mirror;
  server.serve("/a", Response::redirect(301, "/a"));
  serveChain(mirror, 10);
  KivRESTService client;
  const Load load(client, {server.url("/a"), mirror.url("/1")});
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), "the end");
}

TEST(KivRESTService, ARedirectToAnotherSchemeIsRefusedAlsoAtTheEndOfAChain) {
  for (const char* const location :
       {"file:///etc/hostname", "ftp://127.0.0.1/a", "gopher://127.0.0.1/a", "mailto:a@b.test"}) {
    LoopbackServer server;
    server.serve("/a", Response::redirect(302, "/b"));
    server.serve("/b", Response::redirect(302, location));
    KivRESTService client;
    const Load load(client, server.url("/a"));
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.errorCode(), codeOf(Code::refusedRedirect)) << location;
    EXPECT_FALSE(load.hasBody());
  }
}

TEST(KivRESTService, AfterARefusedRedirectTheMirrorIsTried) {
  LoopbackServer server;
  LoopbackServer mirror;
  server.serve("/a", Response::redirect(302, "file:///etc/hostname"));
  mirror.serve("/a", Response::ok("of the mirror"));
  KivRESTService client;
  const Load load(client, {server.url("/a"), mirror.url("/a")});
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), "of the mirror");
}

TEST(KivRESTService, AnEmptyLocationIsNoRedirect) {
  LoopbackServer server;
  server.serve("/a", Response::redirect(302, ""));
  KivRESTService client;
  const Load load(client, server.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.status(), 302);
  EXPECT_EQ(server.requests().size(), 1u);
}

}  // namespace
