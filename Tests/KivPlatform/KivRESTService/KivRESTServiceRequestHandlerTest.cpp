// The host's handler sees each request before it is sent. What it adds goes into that request, and
// into no other.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"
#include "Tests/Support/LogCapture.h"

namespace {

using namespace std::chrono_literals;
using namespace kiv::test;
using Code = KivRESTServiceErrorCode;
using Headers = KivRESTServiceRequest::Headers;
using Texts = std::vector<std::string>;

class KivRESTServiceRequestHandler : public ClientFixture {
 protected:
  KivRESTServiceRequestHandler() {
    settings_.firstRetryDelay = settings_.longestRetryDelay = 0ms;
    server_.serve("/a", Response::ok("x"));
    server_.serve("/b", Response::ok("x"));
    mirror_.serve("/a", Response::ok("x"));
    mirror_.serve("/b", Response::ok("x"));
  }

  /// Sets a handler that notes the URL and then does that.
  void handle(std::function<void(const KivRESTServiceRequest&)> then) {
    client().setRequestHandler(
        [this, then = std::move(then)](const KivRESTServiceRequest& request) {
          asked_.push_back(request.url().absoluteString());
          then(request);
        });
  }
  /// Sets one that adds "Token: " and the number of the question.
  void addTokens() {
    handle([this](const KivRESTServiceRequest& request) { sendToken(request); });
  }
  void sendToken(const KivRESTServiceRequest& request) const {
    EXPECT_TRUE(request.send({{"Token", std::to_string(asked_.size())}}));
  }
  /// Sets one that keeps the requests.
  void keep() {
    handle([this](const KivRESTServiceRequest& request) { kept_.push_back(request); });
  }
  [[nodiscard]] bool waitUntilAsked(std::size_t times) const {
    return waitUntil([this, times] { return asked_.size() >= times; });
  }

  /// To be called before pauseAndQueue().
  void noteWaiting() {
    client().setProgressHandler(
        [this](const KivRESTServiceProgress& progress) { waiting_ = progress.tasksWaiting; });
  }
  /// Pauses the client while one task waits, and queues another one. By the report with both, the
  /// transfer thread has paused.
  Load pauseAndQueue(const std::string& other) {
    client().pause();
    Load load(client(), other);
    EXPECT_TRUE(waitUntil([this] { return waiting_ == 2; }));
    return load;
  }

  /// The value of that header in each request, and "-" where it is missing.
  static Texts valuesOf(std::string_view name, const std::vector<Request>& requests) {
    Texts values;
    for (const Request& request : requests)
      values.push_back(request.header(name).value_or("-"));
    return values;
  }
  [[nodiscard]] Texts tokens(const std::string& path = "/a") const {
    return valuesOf("Token", server_.requests(path));
  }

  Texts asked_;
  std::vector<KivRESTServiceRequest> kept_;
  std::size_t waiting_ = 0;
};

// --- What is sent --------------------------------------------------------------------------------

TEST_F(KivRESTServiceRequestHandler, ItsHeadersAreSentBesideTheClients) {
  handle([](const KivRESTServiceRequest& request) {
    EXPECT_TRUE(request.send({{"Authorization", "Bearer a b"}, {"X-Empty", ""}}));
  });
  expectBodies({loaded()}, "x");
  const Request request = server_.requests("/a").at(0);
  EXPECT_EQ(request.header("Authorization"), "Bearer a b");
  EXPECT_EQ(request.header("X-Empty:"), "") << "the server of the tests expects a space there";
  EXPECT_EQ(request.header("User-Agent"), settings_.userAgent);
  EXPECT_EQ(request.header("Accept"), "*/*");
}

TEST_F(KivRESTServiceRequestHandler, ItsHeadersReplaceTheClientsOfTheSameName) {
  handle([](const KivRESTServiceRequest& request) {
    EXPECT_TRUE(request.send({{"accept", "image/png"}, {"User-Agent", "Host/2"}}));
  });
  expectBodies({loaded()}, "x");
  const auto headers = server_.requests("/a").at(0).headers;
  EXPECT_EQ(headers.size(), 3U) << "Host, accept, User-Agent";
  EXPECT_EQ(server_.requests("/a").at(0).header("Accept"), "image/png");
  EXPECT_EQ(server_.requests("/a").at(0).header("User-Agent"), "Host/2");
}

TEST_F(KivRESTServiceRequestHandler, OneThatAddsNothingChangesNoRequest) {
  expectBodies({loaded()}, "x");
  handle([](const KivRESTServiceRequest& request) { EXPECT_TRUE(request.send()); });
  expectBodies({loaded()}, "x");
  client().setRequestHandler(nullptr);
  expectBodies({loaded()}, "x");
  const auto requests = server_.requests("/a");
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_EQ(requests[1].headers, requests[0].headers);
  EXPECT_EQ(requests[2].headers, requests[0].headers);
  EXPECT_EQ(asked_.size(), 1U);
}

TEST_F(KivRESTServiceRequestHandler, AReusedHandleDoesNotRepeatTheHeadersOfAnEarlierTask) {
  settings_.threads = settings_.parallelTransfers = 1;
  handle([&](const KivRESTServiceRequest& request) {
    EXPECT_TRUE(request.send(asked_.size() == 1 ? Headers{{"Token", "1"}} : Headers()));
  });
  expectBodies({loaded(), loaded()}, "x");
  EXPECT_EQ(tokens(), (Texts{"1", "-"}));
  EXPECT_EQ(server_.connectionCount(), 1U);
}

TEST_F(KivRESTServiceRequestHandler, TheRestOfAKeptPartIsAskedForWithThem) {
  spool();
  const std::string body(100'000, 'b');
  server_.serve("/a", std::vector{Response::ok(body).header("ETag", "\"1\"").closeAt(50'000),
                                  Response::raw("HTTP/1.1 206 Partial Content\r\nETag: \"1\"\r\n"
                                                "Content-Range: bytes 50000-99999/100000\r\n"
                                                "Content-Length: 50000\r\n\r\n" +
                                                body.substr(50'000))});
  addTokens();
  expectBodies({loaded()}, body);
  EXPECT_EQ(tokens(), (Texts{"1", "2"}));
  EXPECT_EQ(server_.requests("/a").at(1).header("If-Range"), "\"1\"");
  EXPECT_EQ(server_.requests("/a").at(1).header("Range"), "bytes=50000-");
}

TEST_F(KivRESTServiceRequestHandler, TheyReplaceTheCredentialsOfTheURL) {
  const std::string withUser = "http://user:password@" + url("/a").substr(sizeof "http://" - 1);
  expectBodies({loaded(withUser)}, "x");
  handle([](const KivRESTServiceRequest& request) {
    EXPECT_TRUE(request.send({{"Authorization", "Bearer 1"}}));
  });
  expectBodies({loaded(withUser)}, "x");
  const auto values = valuesOf("Authorization", server_.requests("/a"));
  ASSERT_EQ(values.size(), 2U);
  EXPECT_TRUE(values[0].starts_with("Basic ")) << values[0];
  EXPECT_EQ(values[1], "Bearer 1");
}

TEST_F(KivRESTServiceRequestHandler, AProxyThatConnectsToTheServerGetsNone) {
  settings_.proxy = mirror_.url();
  addTokens();
  const Load load = loaded("https://ads.test/a");
  EXPECT_FALSE(load.hasBody());
  const auto requests = mirror_.requests();
  ASSERT_FALSE(requests.empty());
  EXPECT_EQ(requests[0].method, "CONNECT");
  EXPECT_EQ(valuesOf("Token", requests), Texts(requests.size(), "-"));
}

// --- Which requests ------------------------------------------------------------------------------

TEST_F(KivRESTServiceRequestHandler, IsCalledOnTheClientsQueue) {
  handle([](const KivRESTServiceRequest& request) {
    EXPECT_EQ(kiv::DispatchQueue::current(), kiv::DispatchQueue::main());
    EXPECT_TRUE(request.send());
  });
  expectBodies({loaded()}, "x");
}

TEST_F(KivRESTServiceRequestHandler, IsCalledOnceForEachOfManyTasks) {
  addTokens();
  expectBodies(makeLoads(client(), url(), 500), "x");
  EXPECT_EQ(asked_.size(), 500U);
}

TEST_F(KivRESTServiceRequestHandler, IsCalledOnceForTasksThatShareATransfer) {
  keep();
  const std::vector<Load> loads{Load(client(), url()), Load(client(), url())};
  ASSERT_TRUE(waitUntilAsked(1));
  const Load third(client(), url());
  EXPECT_TRUE(kept_.at(0).send());
  expectBodies(loads, "x");
  expectBodies({third}, "x");
  EXPECT_EQ(asked_.size(), 1U);
  EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(KivRESTServiceRequestHandler, ARetryGetsANewToken) {
  server_.serve("/a", std::vector{Response::status(503), Response::ok("x")});
  std::vector<int> tries;
  handle([&](const KivRESTServiceRequest& request) {
    tries.push_back(request.tries());
    sendToken(request);
  });
  const Load load = loaded();
  EXPECT_EQ(load.body(), "x");
  EXPECT_EQ(tokens(), (Texts{"1", "2"}));
  EXPECT_EQ(tries, (std::vector{1, 2}));
  EXPECT_EQ(load.task()->metrics().tries, 2);
}

TEST_F(KivRESTServiceRequestHandler, AStatus401IsAFailureAsEver) {
  server_.serve("/a", Response::status(401));
  addTokens();
  const Load load = loaded();
  EXPECT_EQ(load.status(), 401);
  EXPECT_EQ(tokens(), Texts{"1"});
}

TEST_F(KivRESTServiceRequestHandler, AMirrorIsAskedForSeparately) {
  server_.serve("/a", Response::status(404));
  handle([&](const KivRESTServiceRequest& request) {
    const bool isOurs = request.url().absoluteString().starts_with(server_.url());
    EXPECT_TRUE(request.send(isOurs ? Headers{{"Token", "secret"}} : Headers()));
  });
  expectBodies({loaded(urls())}, "x");
  EXPECT_EQ(asked_, urls());
  EXPECT_EQ(tokens(), Texts{"secret"});
  EXPECT_EQ(valuesOf("Token", mirror_.requests()), Texts{"-"});
}

TEST_F(KivRESTServiceRequestHandler, IsNotCalledForAURLThatCannotBeRequested) {
  addTokens();
  expectErrors({loaded("ftp://ads.test/a")}, Code::unsupportedURL);
  EXPECT_TRUE(asked_.empty());
}

TEST_F(KivRESTServiceRequestHandler, IsCalledAfterTheStartCondition) {
  bool mayStart = false;
  client().setStartCondition([&](const KivRESTServiceTask&, const kiv::URL& where) {
    asked_.push_back("start " + where.absoluteString());
    return mayStart;
  });
  addTokens();
  const Load load(client(), url());
  ASSERT_TRUE(waitUntilAsked(1));
  mayStart = true;
  client().startConditionChanged();
  expectBodies({load}, "x");
  EXPECT_EQ(asked_, (Texts{"start " + url(), "start " + url(), url()}));
}

TEST_F(KivRESTServiceRequestHandler, ALostRequestIsRepeatedWithTheSameHeaders) {
  settings_.threads = 1;
  server_.serve("/a", std::vector{Response::ok("x"), Response::nothing(), Response::ok("x")});
  addTokens();
  expectBodies({loaded(), loaded()}, "x");
  EXPECT_EQ(tokens(), (Texts{"1", "2", "2"}));
  EXPECT_EQ(asked_.size(), 2U);
}

// --- Redirects -----------------------------------------------------------------------------------

TEST_F(KivRESTServiceRequestHandler, ARedirectToAnotherOriginGetsOnlyWhatIsAddedForIt) {
  server_.serve("/a", Response::redirect(302, mirror_.url("/b")));
  std::vector<int> redirects;
  handle([&](const KivRESTServiceRequest& request) {
    redirects.push_back(request.redirects());
    const Headers secret{{"Authorization", "s"}, {"Cookie", "s"}, {"Token", "s"}};
    EXPECT_TRUE(request.send(redirects.size() == 1 ? secret : Headers{{"Other", "o"}}));
  });
  const Load load = loaded();
  EXPECT_EQ(load.body(), "x") << load.message();
  EXPECT_EQ(asked_, (Texts{url("/a"), mirror_.url("/b")}));
  EXPECT_EQ(redirects, (std::vector{0, 1}));
  EXPECT_EQ(tokens(), Texts{"s"});
  const Request redirected = mirror_.requests("/b").at(0);
  EXPECT_EQ(redirected.header("Other"), "o");
  for (const char* const name : {"Authorization", "Cookie", "Token"})
    EXPECT_FALSE(redirected.header(name)) << name;
  EXPECT_EQ(load.task()->metrics().tries, 1);
}

TEST_F(KivRESTServiceRequestHandler, ARedirectThatGetsNoneIsSentWithout) {
  server_.serve("/a", Response::redirect(301, mirror_.url("/b")));
  handle([&](const KivRESTServiceRequest& request) {
    EXPECT_TRUE(request.send(asked_.size() == 1 ? Headers{{"Token", "s"}} : Headers()));
  });
  expectBodies({loaded()}, "x");
  EXPECT_EQ(valuesOf("Token", mirror_.requests()), Texts{"-"});
}

TEST_F(KivRESTServiceRequestHandler, IsCalledForEachRedirectOfAChain) {
  server_.serve("/a", Response::redirect(307, "/c"));
  server_.serve("/c", Response::redirect(302, mirror_.url("/c")));
  mirror_.serve("/c", Response::redirect(302, url("/b")));
  addTokens();
  expectBodies({loaded()}, "x");
  EXPECT_EQ(asked_, (Texts{url("/a"), url("/c"), mirror_.url("/c"), url("/b")}));
  EXPECT_EQ(tokens("/c"), Texts{"2"});
  EXPECT_EQ(valuesOf("Token", mirror_.requests()), Texts{"3"});
  EXPECT_EQ(tokens("/b"), Texts{"4"});
}

TEST_F(KivRESTServiceRequestHandler, AHandlerThatIsRemovedLeavesNoHeadersToARedirect) {
  const Gate gate;
  server_.serve("/a", Response::redirect(302, mirror_.url("/b")).after(gate));
  addTokens();
  const Load load(client(), url());
  ASSERT_TRUE(waitUntil([&] { return !server_.requests("/a").empty(); }));
  client().setRequestHandler(nullptr);
  gate.open();
  expectBodies({load}, "x");
  EXPECT_EQ(tokens(), Texts{"1"});
  EXPECT_EQ(valuesOf("Token", mirror_.requests()), Texts{"-"});
  EXPECT_EQ(asked_.size(), 1U);
}

TEST_F(KivRESTServiceRequestHandler, ARedirectThatIsRefusedFailsTheAttempt) {
  server_.serve("/a", Response::redirect(302, mirror_.url("/b?secret")));
  handle([&](const KivRESTServiceRequest& request) {
    if (asked_.size() == 2) return request.refuse();
    sendToken(request);
  });
  const Load load = loaded();
  expectErrors({load}, Code::refusedRequest);
  EXPECT_EQ(load.message(), "Could not load \"" + mirror_.url("/b") +
                                "\": the host did not let the request be sent.");
  EXPECT_TRUE(mirror_.requests().empty());
  EXPECT_EQ(load.task()->metrics().tries, 1);
  EXPECT_EQ(load.task()->metrics().failedTries.size(), 1U);
}

TEST_F(KivRESTServiceRequestHandler, ARedirectMayBeAnsweredLater) {
  server_.serve("/a", Response::redirect(302, mirror_.url("/b")));
  settings_.parallelTransfers = 1;
  handle([&](const KivRESTServiceRequest& request) {
    if (request.redirects() > 0) return kept_.push_back(request);
    sendToken(request);
  });
  const Load load(client(), url());
  ASSERT_TRUE(waitUntilAsked(2));
  expectBodies({loaded(mirror_.url("/a"))}, "x");
  EXPECT_FALSE(load.hasEnded());
  EXPECT_TRUE(kept_.at(0).send({{"Token", "late"}}));
  expectBodies({load}, "x");
  EXPECT_EQ(valuesOf("Token", mirror_.requests("/b")), Texts{"late"});
  EXPECT_EQ(server_.requests("/a").size(), 1U);
}

// --- Answers that come later ---------------------------------------------------------------------

TEST_F(KivRESTServiceRequestHandler, MayAnswerLaterFromAnotherThread) {
  keep();
  const Load load(client(), url());
  ASSERT_TRUE(waitUntilAsked(1));
  std::thread([this] { EXPECT_TRUE(kept_.at(0).send({{"Token", "late"}})); }).join();
  expectBodies({load}, "x");
  EXPECT_EQ(tokens(), Texts{"late"});
}

TEST_F(KivRESTServiceRequestHandler, ARequestThatWaitsTakesNoneOfTheParallelTransfers) {
  settings_.parallelTransfers = 1;
  handle([this](const KivRESTServiceRequest& request) {
    if (request.url().absoluteString() == url("/a")) return kept_.push_back(request);
    sendToken(request);
  });
  const Load waits(client(), url("/a"), 9);
  expectBodies(makeLoads(client(), mirror_.url("/b"), 20), "x");
  EXPECT_FALSE(waits.hasEnded());
  EXPECT_TRUE(kept_.at(0).send());
  expectBodies({waits}, "x");
}

TEST_F(KivRESTServiceRequestHandler, RequestsThatWaitTakeThePlacesOfTheirServer) {
  settings_.parallelTransfersPerHost = settings_.mostTransfersPerHost = 2;
  handle([this](const KivRESTServiceRequest& request) {
    if (request.url().absoluteString().starts_with(server_.url())) return kept_.push_back(request);
    sendToken(request);
  });
  const auto loads = makeLoads(client(), url(), 10);
  expectBodies(makeLoads(client(), mirror_.url("/a"), 20), "x");
  EXPECT_EQ(kept_.size(), 2U);
  for (std::size_t next = 0; next < loads.size(); ++next) {
    ASSERT_TRUE(waitUntil([&] { return kept_.size() > next; }));
    EXPECT_TRUE(kept_[next].send());
  }
  expectBodies(loads, "x");
}

TEST_F(KivRESTServiceRequestHandler, AnAnswerAfterACancelHasNoEffect) {
  keep();
  const Load cancelled(client(), url());
  ASSERT_TRUE(waitUntilAsked(1));
  client().cancelAllTasks();
  EXPECT_TRUE(kept_.at(0).send({{"Token", "old"}}));
  const Load load(client(), url());
  ASSERT_TRUE(waitUntilAsked(2));
  EXPECT_TRUE(kept_.at(0).send({{"Token", "old"}}));
  EXPECT_TRUE(kept_.at(1).send({{"Token", "new"}}));
  expectBodies({load}, "x");
  EXPECT_EQ(tokens(), Texts{"new"});
  EXPECT_EQ(cancelled.completions(), 0);
}

TEST_F(KivRESTServiceRequestHandler, AnAnswerAfterTheEndOfTheClientHasNoEffect) {
  server_.serve("/a", Response::redirect(302, mirror_.url("/b")));
  handle([&](const KivRESTServiceRequest& request) {
    if (request.url().absoluteString() != url("/a")) return kept_.push_back(request);
    sendToken(request);
  });
  const Load first(client(), url("/b"));
  const Load redirected(client(), url("/a"));
  ASSERT_TRUE(waitUntil([&] { return kept_.size() == 2; }));
  endClient();
  EXPECT_TRUE(kept_.at(0).send());
  kept_.clear();
  EXPECT_EQ(first.completions() + redirected.completions(), 0);
  EXPECT_TRUE(server_.requests("/b").empty());
  EXPECT_TRUE(mirror_.requests().empty());
}

/// The job that asks is left on the queue, and the client is gone when it runs.
TEST_F(KivRESTServiceRequestHandler, ARequestAfterTheEndOfTheClientIsNotAskedAbout) {
  addTokens();
  {
    const Load load(client(), url());
    endClient();
  }
  expectBodies({loaded(url("/b"))}, "x");
  EXPECT_TRUE(asked_.empty());
}

TEST_F(KivRESTServiceRequestHandler, APauseEndsTheWaitAndItIsAskedAgain) {
  noteWaiting();
  keep();
  const Load load(client(), url());
  ASSERT_TRUE(waitUntilAsked(1));
  const Load other = pauseAndQueue(url("/b"));
  EXPECT_TRUE(kept_.at(0).send({{"Token", "old"}}));
  addTokens();
  client().resume();
  expectBodies({load, other}, "x");
  EXPECT_NE(tokens(), Texts{"old"});
  EXPECT_EQ(tokens().size(), 1U);
  EXPECT_EQ(asked_.size(), 3U);
  EXPECT_EQ(load.task()->metrics().tries, 1);
}

TEST_F(KivRESTServiceRequestHandler, ARedirectThatIsPausedBeginsAgain) {
  server_.serve("/a", Response::redirect(302, mirror_.url("/b")));
  noteWaiting();
  handle([&](const KivRESTServiceRequest& request) {
    if (asked_.size() == 2) return kept_.push_back(request);
    sendToken(request);
  });
  const Load load(client(), url());
  ASSERT_TRUE(waitUntilAsked(2));
  const Load other = pauseAndQueue(url("/b"));
  EXPECT_TRUE(kept_.at(0).send({{"Token", "old"}}));
  client().resume();
  expectBodies({load, other}, "x");
  EXPECT_EQ(server_.requests("/a").size(), 2U);
  const auto redirected = valuesOf("Token", mirror_.requests());
  ASSERT_EQ(redirected.size(), 1U);
  EXPECT_NE(redirected[0], "old");
  EXPECT_EQ(load.task()->metrics().tries, 1);
}

TEST_F(KivRESTServiceRequestHandler, ALowerBandwidthEndsTheWait) {
  keep();
  const Load load(client(), url());
  ASSERT_TRUE(waitUntilAsked(1));
  client().setBandwidth(1'000'000);
  ASSERT_TRUE(waitUntilAsked(2));
  EXPECT_TRUE(kept_.at(0).send({{"Token", "old"}}));
  EXPECT_TRUE(kept_.at(1).send({{"Token", "new"}}));
  expectBodies({load}, "x");
  EXPECT_EQ(tokens(), Texts{"new"});
}

TEST_F(KivRESTServiceRequestHandler, AnotherOneIsAskedAboutThoseThatWait) {
  server_.serve("/a", Response::redirect(302, mirror_.url("/b")));
  handle([&](const KivRESTServiceRequest& request) {
    if (request.url().absoluteString() != url("/a")) return kept_.push_back(request);
    sendToken(request);
  });
  const Load redirected(client(), url("/a"));
  const Load first(client(), url("/b"));
  ASSERT_TRUE(waitUntil([&] { return kept_.size() == 2; }));
  handle([](const KivRESTServiceRequest& request) {
    EXPECT_TRUE(request.send({{"Token", "of the second"}}));
  });
  for (const KivRESTServiceRequest& request : kept_)
    EXPECT_TRUE(request.send({{"Token", "of the first"}}));
  expectBodies({redirected, first}, "x");
  EXPECT_EQ(tokens("/b"), Texts{"of the second"});
  EXPECT_EQ(valuesOf("Token", mirror_.requests()), Texts{"of the second"});
  EXPECT_EQ(server_.requests("/a").size(), 1U);
}

TEST_F(KivRESTServiceRequestHandler, WithoutOneThoseThatWaitAreSentAsTheyAre) {
  keep();
  const Load load(client(), url());
  ASSERT_TRUE(waitUntilAsked(1));
  client().setRequestHandler(nullptr);
  expectBodies({load}, "x");
  EXPECT_EQ(tokens(), Texts{"-"});
}

TEST_F(KivRESTServiceRequestHandler, TheDeadlineEndsTheWait) {
  settings_.deadline = 1s;
  server_.serve("/a", Response::redirect(302, mirror_.url("/b")));
  handle([&](const KivRESTServiceRequest& request) {
    if (request.url().absoluteString() != url("/a")) return kept_.push_back(request);
    sendToken(request);
  });
  const std::vector<Load> loads{Load(client(), url("/a")), Load(client(), url("/b"))};
  expectErrors(loads, Code::deadlineExceeded);
  for (const KivRESTServiceRequest& request : kept_)
    EXPECT_TRUE(request.send({{"Token", "late"}}));
  addTokens();
  expectBodies({loaded(url("/b"))}, "x");
  EXPECT_EQ(server_.requests("/b").size(), 1U);
  EXPECT_TRUE(mirror_.requests().empty());
}

// --- Refusals ------------------------------------------------------------------------------------

TEST_F(KivRESTServiceRequestHandler, ARefusalFailsTheAttemptAndTheMirrorIsTried) {
  handle([&](const KivRESTServiceRequest& request) {
    if (asked_.size() == 1) return request.refuse();
    sendToken(request);
  });
  const Load load = loaded(urls());
  EXPECT_EQ(load.body(), "x");
  EXPECT_EQ(asked_, urls());
  EXPECT_TRUE(server_.requests().empty());
  ASSERT_EQ(load.task()->metrics().failedTries.size(), 1U);
  EXPECT_EQ(load.task()->metrics().failedTries[0].error, Code::refusedRequest);
  EXPECT_EQ(load.task()->metrics().tries, 2);
}

TEST_F(KivRESTServiceRequestHandler, ARefusalIsNotRetried) {
  handle([](const KivRESTServiceRequest& request) { request.refuse(); });
  const Load load = loaded(url("/a?key=secret"));
  expectErrors({load}, Code::refusedRequest);
  EXPECT_EQ(load.message(),
            "Could not load \"" + url("/a") + "\": the host did not let the request be sent.");
  EXPECT_EQ(asked_.size(), 1U);
  EXPECT_TRUE(server_.requests().empty());
}

TEST_F(KivRESTServiceRequestHandler, ARequestThatIsDroppedIsRefused) {
  handle([](const KivRESTServiceRequest&) {});
  expectErrors({loaded()}, Code::refusedRequest);
  keep();
  const Load load(client(), url());
  ASSERT_TRUE(waitUntil([this] { return kept_.size() == 1; }));
  kept_.clear();
  expectErrors({load}, Code::refusedRequest);
  EXPECT_TRUE(server_.requests().empty());
}

TEST_F(KivRESTServiceRequestHandler, OneThatThrowsHasRefused) {
  const LogCapture log;
  handle([&](const KivRESTServiceRequest& request) {
    if (request.url().absoluteString() == url("/a")) throw std::runtime_error("no token");
    sendToken(request);
  });
  const Load load(client(), url());
  const Load other(client(), url("/b"));
  expectErrors({load}, Code::refusedRequest);
  expectBodies({other}, "x");
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_NE(log.lines()[0].find("no token"), std::string::npos) << log.lines()[0];
}

TEST_F(KivRESTServiceRequestHandler, AHeaderThatMayNotBeAddedFailsTheAttempt) {
  handle([](const KivRESTServiceRequest& request) {
    EXPECT_FALSE(request.send({{"Authorization", "secret\r\nHost: other.test"}}));
  });
  const Load load = loaded();
  expectErrors({load}, Code::refusedRequest);
  EXPECT_EQ(load.message(), "Could not load \"" + url("/a") +
                                "\": header 1 of the host has a control character in its value.");
  EXPECT_TRUE(server_.requests().empty());
}

// --- What the handler does -----------------------------------------------------------------------

TEST_F(KivRESTServiceRequestHandler, ItMayCancelAllTasks) {
  handle([&](const KivRESTServiceRequest& request) {
    client().cancelAllTasks();
    sendToken(request);
  });
  const auto loads = makeLoads(client(), url(), 5);
  ASSERT_TRUE(waitUntilAsked(1));
  client().setRequestHandler(nullptr);
  expectBodies({loaded(url("/b"))}, "x");
  for (const Load& load : loads)
    EXPECT_EQ(load.completions(), 0);
  EXPECT_TRUE(server_.requests("/a").empty());
}

TEST_F(KivRESTServiceRequestHandler, ItMayDestroyTheClient) {
  handle([&](const KivRESTServiceRequest& request) {
    endClient();
    sendToken(request);
  });
  const auto loads = makeLoads(client(), url(), 5);
  ASSERT_TRUE(waitUntilAsked(1));
  expectBodies({loaded(url("/b"))}, "x");
  EXPECT_EQ(asked_.size(), 1U);
  EXPECT_TRUE(server_.requests("/a").empty());
}

/// As a host does that has no token yet: it loads one with the same client, from the same server.
TEST_F(KivRESTServiceRequestHandler, ItMayLoadATokenWithATaskOfAHigherPriority) {
  server_.serve("/token", Response::ok("fresh"));
  settings_.parallelTransfersPerHost = settings_.mostTransfersPerHost = 2;
  std::optional<Load> tokenLoad;
  handle([&](const KivRESTServiceRequest& request) {
    if (request.url().absoluteString() == url("/token")) return sendToken(request);
    kept_.push_back(request);
    if (!tokenLoad) tokenLoad.emplace(client(), url("/token"), 1);
  });
  const auto loads = makeLoads(client(), url(), 6);
  ASSERT_TRUE(waitUntil([&] { return tokenLoad && tokenLoad->hasEnded(); }));
  EXPECT_TRUE(server_.requests("/a").empty());
  ASSERT_TRUE(waitUntil([&] {
    for (const KivRESTServiceRequest& request : std::exchange(kept_, {}))
      EXPECT_TRUE(request.send({{"Token", tokenLoad->body()}}));
    return std::all_of(loads.begin(), loads.end(),
                       [](const Load& load) { return load.hasEnded(); });
  }));
  expectBodies(loads, "x");
  EXPECT_EQ(tokens(), Texts(6, "fresh"));
  EXPECT_LE(server_.mostWaiting(), 2U);
}

TEST_F(KivRESTServiceRequestHandler, ItMayReplaceItself) {
  handle([&](const KivRESTServiceRequest& request) {
    client().setRequestHandler(nullptr);
    sendToken(request);
  });
  expectBodies({loaded()}, "x");
  EXPECT_EQ(tokens(), Texts{"-"}) << "what a former handler answers does not count";
}

/// Answers from several threads, in another order than the questions, for files, redirects and
/// retries: each request has its own path as its token.
TEST_F(KivRESTServiceRequestHandler, EachRequestGetsItsOwnHeaders) {
  constexpr std::size_t count = 60;
  for (std::size_t index = 0; index < count; ++index) {
    const std::string path = "/file" + std::to_string(index);
    const std::string target = "/target" + std::to_string(index);
    server_.serve(path,
                  std::vector{Response::status(503), Response::redirect(302, mirror_.url(target))});
    mirror_.serve(target, Response::ok("x"));
  }
  handle([this](const KivRESTServiceRequest& request) { kept_.push_back(request); });
  std::vector<Load> loads;
  for (std::size_t index = 0; index < count; ++index)
    loads.emplace_back(client(), url("/file" + std::to_string(index)));
  std::vector<std::thread> threads;
  EXPECT_TRUE(waitUntil([&] {
    auto requests = std::exchange(kept_, {});
    std::reverse(requests.begin(), requests.end());
    if (!requests.empty()) {
      threads.emplace_back([requests = std::move(requests)] {
        for (const KivRESTServiceRequest& request : requests)
          EXPECT_TRUE(request.send({{"Token", request.url().absoluteString()}}));
      });
    }
    return std::all_of(loads.begin(), loads.end(),
                       [](const Load& load) { return load.hasEnded(); });
  }));
  for (std::thread& thread : threads)
    thread.join();
  expectBodies(loads, "x");
  EXPECT_EQ(asked_.size(), 3 * count);
  for (const LoopbackServer* const server : {&server_, &mirror_}) {
    for (const Request& request : server->requests())
      EXPECT_EQ(request.header("Token"), server->url(request.target));
  }
}

}  // namespace
