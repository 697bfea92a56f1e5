// Progress of running transfers and metrics of completed ones.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/policy/TransferSettings.h"
#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"

namespace {

using namespace kiv::test;
using Code = KivRESTServiceErrorCode;

class KivRESTServiceMetricsTest : public ClientFixture {
 protected:
  /// Drains the main queue until a progress report meets the condition.
  bool waitForReport(const std::function<bool(const KivRESTServiceProgress&)>& condition) {
    return waitUntil([&] { return !reports_.empty() && condition(reports_.back()); });
  }
  void collectReports() {
    client().setProgressHandler([this](const auto& report) { reports_.push_back(report); });
  }

  Gate gate_;
  std::vector<KivRESTServiceProgress> reports_;
};

TEST_F(KivRESTServiceMetricsTest, OfASuccessAtOnce) {
  server_.serve("/a", Response::ok("12345"));
  const Load load = loaded();
  const auto& metrics = load.task()->metrics();
  EXPECT_EQ(metrics.tries, 1);
  EXPECT_EQ(metrics.bytes, 5);
  EXPECT_EQ(metrics.resumedBytes, 0);
  EXPECT_EQ(metrics.server->absoluteString(), url());
  EXPECT_TRUE(metrics.failedTries.empty());
  EXPECT_FALSE(metrics.endedWithConnection);
  EXPECT_GT(metrics.timeToFirstByte.count(), 0);
  EXPECT_GE(metrics.totalTime, metrics.timeToFirstByte);
}

TEST_F(KivRESTServiceMetricsTest, EachFailedTryHasItsReason) {
  const RefusingServer refusing;
  server_.serve("/a",
                {Response::status(503), Response::ok("12345").closeAt(2), Response::status(404)});
  const Load load = loaded({url(), refusing.url("/a")});
  const auto& metrics = load.task()->metrics();
  EXPECT_EQ(metrics.tries, 6);
  ASSERT_EQ(metrics.failedTries.size(), 6U);
  std::vector<std::string> reasons;
  for (const auto& failed : metrics.failedTries) {
    const bool isMain = failed.server.absoluteString() == url();
    EXPECT_NE(failed.error.has_value(), failed.statusCode != 0);
    reasons.push_back((isMain ? "main " : "mirror ") +
                      std::to_string(failed.error ? -static_cast<int>(*failed.error)
                                                  : static_cast<int>(failed.statusCode)));
  }
  EXPECT_EQ(std::count(reasons.begin(), reasons.end(), "main 503"), 1);
  EXPECT_EQ(std::count(reasons.begin(), reasons.end(), "main -6"), 1) << "connection lost";
  EXPECT_EQ(std::count(reasons.begin(), reasons.end(), "main 404"), 1);
  EXPECT_EQ(std::count(reasons.begin(), reasons.end(), "mirror -4"), 3) << "cannot connect";
  EXPECT_EQ(metrics.server->absoluteString(), url());
  EXPECT_EQ(metrics.bytes, 0);
}

TEST_F(KivRESTServiceMetricsTest, WithoutAnyAnswerThereIsNoServer) {
  const RefusingServer refusing;
  const Load load = loaded(refusing.url("/a"));
  EXPECT_FALSE(load.task()->metrics().server);
}

TEST_F(KivRESTServiceMetricsTest, ABodyThatEndsWithTheConnectionIsNoted) {
  server_.serve("/a", Response::ok("12345").withoutLength().http10());
  server_.serve("/b", Response::ok("12345").http10());
  const Load without(client(), url());
  const Load with(client(), url("/b"));
  ASSERT_TRUE(without.waitForEnd() && with.waitForEnd());
  EXPECT_TRUE(without.task()->metrics().endedWithConnection);
  EXPECT_FALSE(with.task()->metrics().endedWithConnection);
}

/// HTTP/1.1 bodies with neither Content-Length nor chunked coding.
class BodiesWithoutLength : public KivRESTServiceMetricsTest {
 protected:
  static Response withoutLength() { return Response::ok("12345").withoutLength(); }

  Load load(const Response& response, bool isTaken) {
    server_.serve("/a", response);
    settings_.takesBodiesWithoutLength = isTaken;
    endClient();
    return loaded();
  }
};

TEST_F(BodiesWithoutLength, AreTakenAndNotedWhereTheHostWantsIt) {
  for (auto response : {withoutLength().thenClose(), withoutLength().thenCloseUnannounced()}) {
    const Load taken = load(response, true);
    EXPECT_EQ(taken.body(), "12345") << taken.message();
    EXPECT_TRUE(taken.task()->metrics().endedWithConnection);
  }
  const Load empty = load(Response::ok("").withoutLength().thenClose(), true);
  EXPECT_TRUE(empty.hasBody());
  EXPECT_TRUE(empty.task()->metrics().endedWithConnection);
}

TEST_F(BodiesWithoutLength, AreNotNotedWhereTheyHaveOneAfterAll) {
  EXPECT_FALSE(load(Response::ok("12345"), true).task()->metrics().endedWithConnection);
  EXPECT_FALSE(load(Response::ok("12345").chunked(), true).task()->metrics().endedWithConnection);
}

TEST_F(BodiesWithoutLength, AreRefusedByDefaultWithTheNameOfTheSetting) {
  EXPECT_FALSE(kiv::TransferSettings().takesBodiesWithoutLength);
  const Load refused = load(withoutLength().thenClose(), false);
  EXPECT_EQ(refused.errorCode(), codeOf(Code::malformedResponse));
  EXPECT_FALSE(refused.hasBody());
  EXPECT_FALSE(refused.task()->metrics().endedWithConnection);
  EXPECT_NE(refused.message().find("takesBodiesWithoutLength"), std::string::npos)
      << refused.message();
}

TEST_F(BodiesWithoutLength, AreNotWholeWhereTheConnectionBreaks) {
  const Load reset = load(withoutLength().resetAt(3), true);
  EXPECT_EQ(reset.errorCode(), codeOf(Code::connectionLost)) << reset.message();
  EXPECT_FALSE(reset.hasBody());
}

TEST_F(BodiesWithoutLength, AreBoundedAsOthersAre) {
  settings_.largestBody = 100'000;
  const Load endless = load(Response::ok(std::string(9999, 'x')).withoutLength().endless(), true);
  EXPECT_EQ(endless.errorCode(), codeOf(Code::bodyTooLarge)) << endless.message();
}

TEST_F(KivRESTServiceMetricsTest, TheEndHandlerComesBeforeEachCompletion) {
  server_.serve("/a", Response::ok("12345"));
  server_.serve("/b", Response::status(404));
  std::vector<std::string> calls;
  client().setEndHandler([&](const KivRESTServiceTask& task) {
    calls.push_back("end " + std::to_string(task.response()->statusCode()) + " " +
                    std::to_string(task.metrics().bytes));
  });
  for (const char* const path : {"/a", "/b"}) {
    queue(server_.url(path), [&](auto&) { calls.push_back("completion"); });
    ASSERT_TRUE(waitUntil([&] { return !calls.empty() && calls.back() == "completion"; }));
    calls.push_back("next");
  }
  EXPECT_EQ(calls, (std::vector<std::string>{"end 200 5", "completion", "next", "end 404 0",
                                             "completion", "next"}));
}

TEST_F(KivRESTServiceMetricsTest, ProgressShowsWhatIsHereAndWhatIsExpected) {
  server_.serve("/a", Response::ok(std::string(1000, 'x')).gateAt(400, gate_));
  collectReports();
  const Load load(client(), url());
  ASSERT_TRUE(waitForReport([](const auto& report) { return report.bytesReceived == 400; }));
  const auto& report = reports_.back();
  EXPECT_EQ(report.bytesExpected, 1000);
  EXPECT_EQ(report.tasksRunning, 1U);
  EXPECT_EQ(report.tasksWaiting, 0U);
  EXPECT_EQ(report.tasksEnded, 0U);
  ASSERT_EQ(report.running.size(), 1U);
  EXPECT_EQ(report.running[0].bytesReceived, 400);
  EXPECT_EQ(report.running[0].bytesExpected, 1000);
  EXPECT_EQ(report.running[0].server->absoluteString(), url());
  EXPECT_EQ(report.running[0].tries, 1);
  EXPECT_EQ(load.task()->progress().bytesReceived, 400);
  gate_.open();
  ASSERT_TRUE(waitForReport([](const auto& last) { return last.tasksEnded == 1; }));
  EXPECT_EQ(reports_.back().bytesReceived, 1000);
  EXPECT_EQ(reports_.back().bytesExpected, 1000);
  EXPECT_EQ(reports_.back().tasksRunning, 0U);
}

TEST_F(KivRESTServiceMetricsTest, TheSpeedShowsWhileBytesCome) {
  server_.serve("/a", Response::ok(std::string(4000, 'x')).drip(10, std::chrono::milliseconds(1)));
  collectReports();
  const Load load(client(), url());
  ASSERT_TRUE(waitForReport([](const auto& report) {
    return report.bytesPerSecond > 0 && report.running.size() == 1 &&
           report.running[0].bytesPerSecond > 0;
  }));
}

TEST_F(KivRESTServiceMetricsTest, WhatIsExpectedIsNeverGuessed) {
  server_.serve("/a", Response::ok(std::string(1000, 'x')).chunked(100).gateAt(400, gate_));
  server_.serve("/b", Response::ok("12345").gateAt(2, gate_));
  collectReports();
  const Load unknown(client(), url());
  const Load known(client(), url("/b"));
  ASSERT_TRUE(waitForReport([](const auto& report) { return report.bytesReceived == 402; }));
  EXPECT_FALSE(reports_.back().bytesExpected);
  EXPECT_FALSE(unknown.task()->progress().bytesExpected);
  EXPECT_EQ(known.task()->progress().bytesExpected, 5);
}

TEST_F(KivRESTServiceMetricsTest, TasksThatWaitAreCounted) {
  server_.serve("/a", Response::ok("x").after(gate_));
  server_.serve("/b", Response::ok("x"));
  settings_.parallelTransfers = 1;
  collectReports();
  const Load running(client(), url());
  const Load same(client(), url());
  const Load waiting(client(), url("/b"));
  ASSERT_TRUE(waitForReport(
      [](const auto& report) { return report.tasksRunning == 2 && report.tasksWaiting == 1; }));
  EXPECT_FALSE(reports_.back().bytesExpected);
}

TEST_F(KivRESTServiceMetricsTest, ANewBatchCountsFromNothing) {
  server_.serve("/a", Response::ok("12345"));
  server_.serve("/b", Response::ok("123").gateAt(1, gate_));
  collectReports();
  const Load first(client(), url());
  ASSERT_TRUE(waitForReport([](const auto& report) { return report.tasksEnded == 1; }));
  const Load second(client(), url("/b"));
  ASSERT_TRUE(waitForReport([](const auto& report) { return report.bytesReceived == 1; }));
  EXPECT_EQ(reports_.back().tasksEnded, 0U);
}

TEST_F(KivRESTServiceMetricsTest, CancelledTasksAreNotReportedAnyMore) {
  server_.serve("/a", Response::ok(std::string(1000, 'x')).stallAt(400));
  collectReports();
  const Load load(client(), url());
  ASSERT_TRUE(waitForReport([](const auto& report) { return report.bytesReceived == 400; }));
  client().cancelAllTasks();
  const auto count = reports_.size();
  ASSERT_TRUE(server_.waitForNoConnection());
  server_.serve("/b", Response::ok("x"));
  client().setProgressHandler(nullptr);
  const Load other = loaded(url("/b"));
  EXPECT_EQ(reports_.size(), count);
}

TEST_F(KivRESTServiceMetricsTest, AHandlerMayRemoveItself) {
  server_.serve("/a", Response::ok("12345").after(gate_));
  int calls = 0;
  client().setProgressHandler([&](const auto&) {
    ++calls;
    client().setProgressHandler(nullptr);
  });
  const Load load(client(), url());
  ASSERT_TRUE(waitUntil([&] { return calls == 1; }));
  gate_.open();
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(calls, 1);
}

}  // namespace
