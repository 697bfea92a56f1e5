// Tasks for the same file share a transfer.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"

namespace {

using namespace kiv::test;

std::vector<Load> sameLoads(KivRESTService& client, const std::string& url, std::size_t count) {
  std::vector<Load> loads;
  while (loads.size() < count)
    loads.emplace_back(client, url);
  return loads;
}

class KivRESTServiceSharing : public ClientFixture {
 protected:
  Gate gate_;
};

TEST_F(KivRESTServiceSharing, OneTransferServesAllTasksForTheURL) {
  server_.serve("/a", Response::ok("body").after(gate_));
  const auto loads = sameLoads(client(), url(), 5);
  ASSERT_TRUE(server_.waitForRequests(1));
  const Load late(client(), url());
  EXPECT_EQ(client().currentQueue().size(), 6U);
  gate_.open();
  ASSERT_TRUE(late.waitForEnd());
  for (const auto& load : loads) {
    EXPECT_EQ(load.completions(), 1);
    EXPECT_EQ(load.body(), "body");
  }
  EXPECT_EQ(late.body(), "body");
  EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(KivRESTServiceSharing, TasksAreCompletedInOrderOfQueuing) {
  server_.serve("/a", Response::ok("body").after(gate_));
  std::vector<int> order;
  std::vector<std::shared_ptr<KivRESTServiceTask>> tasks;
  for (int number = 0; number < 4; ++number) {
    tasks.push_back(Load::makeTask({url()}, static_cast<std::uint64_t>(number)));
    tasks.back()->setCompletionHandler([&order, number](auto&) { order.push_back(number); });
    client().queue(tasks.back());
  }
  gate_.open();
  ASSERT_TRUE(waitUntil([&] { return order.size() == 4; }));
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3}));
}

TEST_F(KivRESTServiceSharing, AFailureIsEveryonesFailure) {
  server_.serve("/a", Response::status(404).after(gate_));
  const auto loads = sameLoads(client(), url(), 3);
  gate_.open();
  for (const auto& load : loads) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.status(), 404);
  }
  EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(KivRESTServiceSharing, CancellingDetachesThemAll) {
  server_.serve("/a", Response::ok("body").stallAt(2));
  const auto loads = sameLoads(client(), url(), 3);
  ASSERT_TRUE(server_.waitForRequests(1));
  client().cancelAllTasks();
  ASSERT_TRUE(server_.waitForNoConnection());
  server_.serve("/b", Response::ok("other"));
  const Load other = loaded(url("/b"));
  for (const auto& load : loads)
    EXPECT_EQ(load.completions(), 0);
}

TEST_F(KivRESTServiceSharing, ATaskAfterACancelFetchesAnew) {
  server_.serve("/a", Response::ok("old").after(gate_));
  const Load cancelled(client(), url());
  ASSERT_TRUE(server_.waitForRequests(1));
  client().cancelAllTasks();
  server_.serve("/a", Response::ok("new"));
  EXPECT_EQ(loaded().body(), "new");
  EXPECT_FALSE(cancelled.hasEnded());
}

TEST_F(KivRESTServiceSharing, OtherMirrorsAreAnotherFile) {
  server_.serve("/a", Response::status(404).after(gate_));
  mirror_.serve("/a", Response::ok("of the mirror"));
  const Load alone(client(), url());
  const Load mirrored(client(), urls());
  gate_.open();
  ASSERT_TRUE(alone.waitForEnd() && mirrored.waitForEnd());
  EXPECT_EQ(alone.status(), 404);
  EXPECT_EQ(mirrored.body(), "of the mirror");
}

TEST_F(KivRESTServiceSharing, AnUrgentTaskBringsTheDownloadForward) {
  server_.serve("/a", Response::ok("a").after(gate_));
  server_.serve("/b", Response::ok("b"));
  server_.serve("/c", Response::ok("c"));
  settings_.parallelTransfers = 1;
  const Load first(client(), url());
  ASSERT_TRUE(server_.waitForRequests(1));
  const Load second(client(), url("/b"), 1);
  const Load third(client(), url("/c"), 0);
  const Load urgent(client(), url("/c"), 9);
  gate_.open();
  ASSERT_TRUE(second.waitForEnd() && third.waitForEnd() && urgent.waitForEnd());
  const auto requests = server_.requests();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_EQ(requests[1].path, "/c");
}

}  // namespace
