// Conditional requests: a task that knows a version asks for the file only if it has changed.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"

namespace {

using namespace kiv::test;

const std::string date = "Sun, 06 Nov 1994 08:49:37 GMT";

class KivRESTServiceCondition : public ClientFixture {
 protected:
  /// Runs a task with these validators to its end.
  [[nodiscard]] std::shared_ptr<KivRESTServiceTask> ask(
      const std::optional<KivRESTServiceValidators>& validators,
      std::vector<std::string> urls = {}) {
    if (urls.empty()) urls = {url()};
    const auto task = Load::makeTask(urls);
    bool hasEnded = false;
    task->setValidators(validators);
    task->setCompletionHandler([&](auto&) { hasEnded = true; });
    client().queue(task);
    EXPECT_TRUE(waitUntil([&] { return hasEnded; }));
    return task;
  }

  [[nodiscard]] KivRESTServiceValidators known(const std::string& tag,
                                               const std::string& changed = {}) const {
    return {url(), tag, changed};
  }

  /// The value of a header of the last request to the server.
  [[nodiscard]] std::optional<std::string> sent(std::string_view header) const {
    const auto requests = server_.requests();
    return requests.empty() ? std::nullopt : requests.back().header(header);
  }
};

std::int64_t statusOf(const KivRESTServiceTask& task) {
  return task.response() ? task.response()->statusCode() : 0;
}

std::string bodyOf(const KivRESTServiceTask& task) {
  return task.returnedData() ? std::string(task.returnedData()->view()) : std::string();
}

TEST_F(KivRESTServiceCondition, WithoutValidatorsNothingIsAskedAndReturned) {
  server_.serve("/a", Response::ok("body").header("ETag", "\"1\""));
  const auto task = ask(std::nullopt);
  EXPECT_EQ(bodyOf(*task), "body");
  EXPECT_FALSE(task->returnedValidators());
  EXPECT_FALSE(sent("If-None-Match"));
  EXPECT_FALSE(sent("If-Modified-Since"));
}

TEST_F(KivRESTServiceCondition, OnlyTheTaskThatWantsThemGetsTheValidatorsOfASharedResponse) {
  const Gate gate;
  server_.serve("/a", Response::ok("body").header("ETag", "\"1\"").after(gate));
  const auto plain = Load::makeTask({url()});
  const auto wanting = Load::makeTask({url()});
  wanting->setReturnsValidators(true);
  int ended = 0;
  for (const auto& task : {plain, wanting}) {
    task->setCompletionHandler([&](auto&) { ++ended; });
    client().queue(task);
  }
  ASSERT_TRUE(server_.waitForRequests(1));
  gate.open();
  ASSERT_TRUE(waitUntil([&] { return ended == 2; }));
  EXPECT_EQ(server_.requests().size(), 1U);
  EXPECT_FALSE(plain->returnedValidators());
  EXPECT_EQ(wanting->returnedValidators(), known("\"1\""));
}

TEST_F(KivRESTServiceCondition, EmptyValidatorsAskNothingButThoseOfTheResponseAreReturned) {
  server_.serve("/a", Response::ok("body").header("ETag", "W/\"1\"").header("Last-Modified", date));
  const auto task = ask(KivRESTServiceValidators());
  EXPECT_EQ(bodyOf(*task), "body");
  EXPECT_EQ(task->returnedValidators(), known("W/\"1\"", date));
  EXPECT_FALSE(sent("If-None-Match"));
  EXPECT_FALSE(sent("If-Modified-Since"));
}

TEST_F(KivRESTServiceCondition, A304EndsTheTaskWithoutABodyAndWithoutTheMirror) {
  server_.serve("/a", Response::status(304).header("ETag", "\"2\""));
  mirror_.serve("/a", Response::ok("body"));
  const auto task = ask(known("\"1\"", date), urls());
  EXPECT_EQ(statusOf(*task), 304);
  EXPECT_FALSE(task->responseError());
  EXPECT_FALSE(task->returnedData());
  EXPECT_EQ(task->returnedValidators(), known("\"2\""));
  EXPECT_EQ(sent("If-None-Match"), "\"1\"");
  EXPECT_FALSE(sent("If-Modified-Since"));  // a server would ignore it (RFC 9110, 13.1.3)
  EXPECT_TRUE(mirror_.requests().empty());
  EXPECT_EQ(task->metrics().server->absoluteString(), url());
  EXPECT_TRUE(task->metrics().failedTries.empty());
}

TEST_F(KivRESTServiceCondition, A304WithoutValidatorsReturnsTheKnownOnes) {
  server_.serve("/a", Response::status(304));
  EXPECT_EQ(ask(known("\"1\""))->returnedValidators(), known("\"1\""));
}

TEST_F(KivRESTServiceCondition, ADateIsAskedForWithoutATag) {
  server_.serve("/a", Response::status(304));
  EXPECT_EQ(statusOf(*ask(known("", date))), 304);
  EXPECT_EQ(sent("If-Modified-Since"), date);
}

TEST_F(KivRESTServiceCondition, AChangedFileComesWhole) {
  server_.serve("/a", Response::ok("new").header("ETag", "\"2\""));
  const auto task = ask(known("\"1\""));
  EXPECT_EQ(statusOf(*task), 200);
  EXPECT_EQ(bodyOf(*task), "new");
  EXPECT_EQ(task->returnedValidators(), known("\"2\""));
}

TEST_F(KivRESTServiceCondition, TheMirrorIsAskedForTheWholeFile) {
  server_.serve("/a", Response::status(404));
  mirror_.serve("/a", Response::ok("body").header("ETag", "\"1\""));
  const auto task = ask(known("\"1\""), urls());
  EXPECT_EQ(bodyOf(*task), "body");
  EXPECT_EQ(mirror_.requests().front().header("If-None-Match"), std::nullopt);
  EXPECT_EQ(task->returnedValidators()->url, mirror_.url("/a"));
}

TEST_F(KivRESTServiceCondition, TheMirrorIsAskedAboutItsOwnValidators) {
  server_.serve("/a", Response::status(404));
  mirror_.serve("/a", Response::status(304));
  const auto task = ask(KivRESTServiceValidators{mirror_.url("/a"), "\"1\"", ""}, urls());
  EXPECT_EQ(statusOf(*task), 304);
  EXPECT_EQ(server_.requests().front().header("If-None-Match"), std::nullopt);
}

TEST_F(KivRESTServiceCondition, AnUnaskedFor304IsAFailureAsBefore) {
  server_.serve("/a", Response::status(304));
  mirror_.serve("/a", Response::ok("body"));
  EXPECT_EQ(bodyOf(*ask(KivRESTServiceValidators(), urls())), "body");
  EXPECT_EQ(bodyOf(*ask(std::nullopt, urls())), "body");
  EXPECT_EQ(statusOf(*ask(KivRESTServiceValidators())), 304);
}

TEST_F(KivRESTServiceCondition, OnlyTheEndOfARedirectIsAskedAboutItsValidators) {
  server_.serve("/a", Response::redirect(302, url("/b")));
  server_.serve("/b", Response::status(304));
  const auto task = ask(KivRESTServiceValidators{url("/b"), "\"1\"", ""});
  EXPECT_EQ(statusOf(*task), 304);
  EXPECT_FALSE(server_.requests("/a").front().header("If-None-Match"));
  EXPECT_EQ(server_.requests("/b").front().header("If-None-Match"), "\"1\"");
}

TEST_F(KivRESTServiceCondition, TheValidatorsOfARedirectAreThoseOfItsEnd) {
  server_.serve("/a", Response::redirect(302, url("/b")).header("ETag", "\"a\""));
  server_.serve("/b", Response::ok("body").header("ETag", "\"b\""));
  EXPECT_EQ(ask(KivRESTServiceValidators())->returnedValidators(),
            (KivRESTServiceValidators{url("/b"), "\"b\"", ""}));
}

TEST_F(KivRESTServiceCondition, WhatIsNoValidatorIsNeitherSentNorReturned) {
  server_.serve("/a", Response::ok("body").header("ETag", "1").header("Last-Modified", "today"));
  EXPECT_EQ(ask(known("\"1\"\r\nX-Injected: 1"))->returnedValidators(), known(""));
  EXPECT_FALSE(sent("X-Injected"));
  EXPECT_FALSE(sent("If-None-Match"));
  EXPECT_EQ(bodyOf(*ask(known("", date + "\r\nX-Injected: 1"))), "body");
  EXPECT_FALSE(sent("X-Injected"));
  EXPECT_FALSE(sent("If-Modified-Since"));
}

TEST_F(KivRESTServiceCondition, AVeryLongTagIsNotReturned) {
  const std::string longest = "\"" + std::string(1022, 'x') + "\"";
  server_.serve("/a", {Response::ok("body").header("ETag", longest),
                       Response::ok("body").header("ETag", "\"" + std::string(1023, 'x') + "\"")});
  EXPECT_EQ(ask(KivRESTServiceValidators())->returnedValidators(), known(longest));
  EXPECT_EQ(ask(KivRESTServiceValidators())->returnedValidators(), known(""));
}

TEST_F(KivRESTServiceCondition, AFailureThatMayPassIsRetriedWithTheCondition) {
  server_.serve("/a", {Response::status(503), Response::nothing(), Response::status(304)});
  EXPECT_EQ(statusOf(*ask(known("\"1\""))), 304);
  ASSERT_EQ(server_.requests().size(), 3U);
  for (const auto& request : server_.requests())
    EXPECT_EQ(request.header("If-None-Match"), "\"1\"");
}

TEST_F(KivRESTServiceCondition, ALaterTaskWithoutConditionSendsNone) {
  server_.serve("/a", {Response::status(304), Response::ok("body")});
  EXPECT_EQ(statusOf(*ask(known("\"1\""))), 304);
  EXPECT_EQ(bodyOf(*ask(std::nullopt)), "body");
  EXPECT_FALSE(sent("If-None-Match"));
  EXPECT_EQ(server_.connectionCount(), 1U);
}

TEST_F(KivRESTServiceCondition, TasksShareATransferOnlyWithTheSameValidators) {
  const Gate gate;
  server_.serve("/a", [gate](const Request& request) {
    const bool isKnown = request.header("If-None-Match").has_value();
    return (isKnown ? Response::status(304) : Response::ok("body")).after(gate);
  });
  std::vector<std::shared_ptr<KivRESTServiceTask>> tasks;
  std::size_t ended = 0;
  const std::vector<std::optional<KivRESTServiceValidators>> validators{
      std::nullopt, known("\"1\""), known("\"1\""), std::nullopt, known("\"2\"")};
  for (const auto& each : validators) {
    tasks.push_back(Load::makeTask({url()}));
    tasks.back()->setValidators(each);
    tasks.back()->setCompletionHandler([&](auto&) { ++ended; });
    client().queue(tasks.back());
  }
  ASSERT_TRUE(server_.waitForRequests(3));
  gate.open();
  ASSERT_TRUE(waitUntil([&] { return ended == tasks.size(); }));
  EXPECT_EQ(server_.requests().size(), 3U);
  for (std::size_t index = 0; index < tasks.size(); ++index)
    EXPECT_EQ(statusOf(*tasks[index]), validators[index] ? 304 : 200) << index;
}

TEST_F(KivRESTServiceCondition, AKeptPartStaysForOtherTasksIfTheFileHasNotChanged) {
  spool();
  settings_.triesPerServer = 1;
  settings_.triesInAll = 1;
  const std::string body(10'000, 'x');
  server_.serve("/a", [body](const Request& request) {
    if (request.header("If-None-Match")) return Response::status(304);
    if (!request.header("Range")) {
      return Response::ok(body).header("ETag", "\"1\"").header("Date", date).closeAt(5000);
    }
    return Response::status(206, body.substr(5000))
        .header("ETag", "\"1\"")
        .header("Content-Range", "bytes 5000-9999/10000");
  });
  EXPECT_TRUE(ask(std::nullopt)->responseError());
  EXPECT_EQ(statusOf(*ask(known("\"1\""))), 304);
  EXPECT_FALSE(sent("Range"));
  EXPECT_EQ(bodyOf(*ask(std::nullopt)), body);
  EXPECT_EQ(sent("Range"), "bytes=5000-");
}

}  // namespace
