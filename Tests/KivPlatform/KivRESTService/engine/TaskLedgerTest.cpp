// How often progress is shown. Over the network this could only be seen by waiting.

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
// For reporting progress at given moments.
#include "KivPlatform/KivRESTService/engine/PendingBytes.h"
#include "KivPlatform/KivRESTService/engine/TaskLedger.h"
#include "Tests/Support/MainQueue.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds interval{100};

class TaskLedgerTest : public testing::Test {
 protected:
  TaskLedgerTest() {
    ledger_->setProgressObserver([this](const KivRESTServiceProgress& progress) {
      shown_.push_back(progress.bytesReceived);
    });
  }

  void report(std::int64_t bytesReceived) {
    kiv::ProgressReport report;
    report.client.bytesReceived = bytesReceived;
    ledger_->report(std::move(report));
  }

  void drain() { queue_->drain(); }

  const std::shared_ptr<kiv::DispatchQueue> queue_ = kiv::DispatchQueue::main();
  const std::shared_ptr<kiv::TaskLedger> ledger_ =
      std::make_shared<kiv::TaskLedger>(queue_, std::make_shared<kiv::PendingBytes>());
  std::vector<std::int64_t> shown_;
};

TEST_F(TaskLedgerTest, TheFirstReportIsShownAtOnce) {
  report(1);
  drain();
  EXPECT_EQ(shown_, std::vector<std::int64_t>{1});
}

TEST_F(TaskLedgerTest, ABusyQueueShowsTheLatestReportOnly) {
  report(1);
  report(2);
  report(3);
  drain();
  EXPECT_EQ(shown_, std::vector<std::int64_t>{3});
}

/// However long the queue was busy before it showed the first. Repeated if this thread was not
/// running for the interval, after which the second report is rightly shown.
TEST_F(TaskLedgerTest, AReportIsDueOneIntervalAfterTheLastWasShown) {
  std::optional<Clock::time_point> due;
  Clock::time_point before;
  for (int round = 0; round < 100 && !due; ++round) {
    report(1);
    before = Clock::now();
    drain();
    shown_.clear();
    report(2);
    due = ledger_->addDueJobs();
  }
  drain();
  ASSERT_TRUE(due);
  EXPECT_TRUE(shown_.empty());
  EXPECT_GE(*due, before + interval);
  EXPECT_LE(*due, Clock::now() + interval);
}

/// A lower bound of the time only, so a slow machine does not matter.
TEST_F(TaskLedgerTest, AReportThatWaitsIsShownWhenItIsDue) {
  report(1);
  const auto before = Clock::now();
  drain();
  report(2);
  report(3);
  EXPECT_TRUE(kiv::test::waitUntil([this] {
    static_cast<void>(ledger_->addDueJobs());
    return shown_.size() > 1;
  }));
  EXPECT_EQ(shown_, (std::vector<std::int64_t>{1, 3}));
  EXPECT_GE(Clock::now(), before + interval);
}

TEST_F(TaskLedgerTest, NothingIsShownOnceAllTasksAreTaken) {
  report(1);
  static_cast<void>(ledger_->takeAll());
  drain();
  EXPECT_TRUE(shown_.empty());
}

}  // namespace
