#include <limits>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

// For creating downloads.
#include "KivPlatform/KivRESTService/engine/Download.h"
#include "KivPlatform/KivRESTService/engine/WaitingDownloads.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace {

using kiv::Download;
using kiv::URL;
using kiv::WaitingDownloads;

class WaitingDownloadsTest : public testing::Test {
 protected:
  Download& add(std::uint64_t task, std::uint64_t priority,
                const std::string& url = "http://a.test/x", int timesYielded = 0) {
    const kiv::TransferJob job{task, priority, {*URL::fromString(url)}};
    all_.push_back(std::make_unique<Download>(job, settings_));
    all_.back()->metrics.timesYielded = timesYielded;
    waiting_.add(*all_.back());
    return *all_.back();
  }

  /// The tasks in the order in which they are taken, except those of busy servers.
  std::vector<std::uint64_t> takeAll(const std::set<std::string>& busy = {}) {
    const auto mayStart = [&](Download& download) {
      ++asked_;
      return !busy.contains(download.servers.front());
    };
    std::vector<std::uint64_t> tasks;
    while (const auto* const next = waiting_.takeNext(mayStart))
      tasks.push_back(next->tasks.front());
    return tasks;
  }

  using Tasks = std::vector<std::uint64_t>;
  kiv::TransferSettings settings_;
  std::vector<std::unique_ptr<Download>> all_;
  WaitingDownloads waiting_;
  int asked_ = 0;
};

TEST_F(WaitingDownloadsTest, LargestPriorityComesFirst) {
  add(1, 5);
  add(2, 9);
  add(3, 7);
  EXPECT_EQ(takeAll(), (Tasks{2, 3, 1}));
}

TEST_F(WaitingDownloadsTest, EqualPrioritiesComeInOrderOfQueuing) {
  for (const std::uint64_t task : {1U, 2U, 3U, 4U})
    add(task, 5);
  EXPECT_EQ(takeAll(), (Tasks{1, 2, 3, 4}));
}

TEST_F(WaitingDownloadsTest, PrioritiesCompareUnsigned) {
  add(1, 0);
  add(2, std::numeric_limits<std::uint64_t>::max());
  add(3, std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(takeAll(), (Tasks{2, 3, 1}));
}

TEST_F(WaitingDownloadsTest, ThoseThatHaveGivenWayComeBehindAllOthersWhateverTheirPriority) {
  add(1, 9, "http://a.test/1", 1);
  add(2, 9, "http://b.test/2", 2);
  add(3, 5, "http://a.test/3", 1);
  add(4, 0, "http://b.test/4");
  EXPECT_EQ(takeAll(), (Tasks{4, 1, 3, 2}));
}

TEST_F(WaitingDownloadsTest, TheFirstOfEachLineIsLookedAt) {
  add(1, 5, "http://a.test/1");
  add(2, 9, "http://a.test/2");
  add(3, 1, "http://b.test/3");
  std::set<std::uint64_t> seen;
  EXPECT_FALSE(waiting_.anyFirst([&](Download& download) {
    seen.insert(download.tasks.front());
    return false;
  }));
  EXPECT_EQ(seen, (std::set<std::uint64_t>{2, 3}));
  EXPECT_TRUE(waiting_.anyFirst([](Download& download) { return download.priority == 1; }));
  EXPECT_EQ(waiting_.size(), 3U);
}

TEST_F(WaitingDownloadsTest, ServersShareOneOrder) {
  add(1, 5, "http://a.test/1");
  add(2, 9, "http://b.test/2");
  add(3, 5, "http://b.test/3");
  add(4, 9, "http://a.test/4");
  EXPECT_EQ(takeAll(), (Tasks{2, 4, 1, 3}));
}

TEST_F(WaitingDownloadsTest, ABusyServerIsPassedOver) {
  add(1, 9, "http://a.test/1");
  add(2, 5, "http://b.test/2");
  add(3, 9, "http://a.test:81/3");
  EXPECT_EQ(takeAll({"http://a.test"}), (Tasks{3, 2}));
  EXPECT_EQ(waiting_.size(), 1U);
}

TEST_F(WaitingDownloadsTest, OfABusyServerOnlyOneIsLookedAt) {
  for (std::uint64_t task = 1; task <= 1000; ++task)
    add(task, task);
  EXPECT_TRUE(takeAll({"http://a.test"}).empty());
  EXPECT_EQ(asked_, 1);
}

TEST_F(WaitingDownloadsTest, OneIsTakenOutOfTheMiddle) {
  add(1, 5);
  auto& second = add(2, 5);
  add(3, 5);
  waiting_.remove(second);
  EXPECT_EQ(waiting_.size(), 2U);
  EXPECT_EQ(takeAll(), (Tasks{1, 3}));
  EXPECT_TRUE(waiting_.empty());
}

TEST_F(WaitingDownloadsTest, ClearForgetsThemAll) {
  add(1, 0);
  add(2, 0);
  EXPECT_EQ(waiting_.size(), 2U);
  waiting_.clear();
  EXPECT_TRUE(waiting_.empty());
  EXPECT_TRUE(takeAll().empty());
}

}  // namespace
