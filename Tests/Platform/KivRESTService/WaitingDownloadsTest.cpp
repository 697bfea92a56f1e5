#include <limits>

#include <gtest/gtest.h>

#include "Platform/KivRESTService/WaitingJobs.h"

namespace {

using kiv::WaitingJobs;

std::vector<std::uint64_t> takeAll(WaitingJobs& jobs) {
  std::vector<std::uint64_t> ids;
  while (!jobs.empty())
    ids.push_back(jobs.takeNext().id);
  return ids;
}

TEST(WaitingJobs, LargestPriorityComesFirst) {
  WaitingJobs jobs;
  jobs.add({1, 5, {}});
  jobs.add({2, 9, {}});
  jobs.add({3, 7, {}});
  EXPECT_EQ(takeAll(jobs), (std::vector<std::uint64_t>{2, 3, 1}));
}

TEST(WaitingJobs, EqualPrioritiesComeInOrderOfQueuing) {
  WaitingJobs jobs;
  for (const std::uint64_t id : {1U, 2U, 3U, 4U})
    jobs.add({id, 5, {}});
  EXPECT_EQ(takeAll(jobs), (std::vector<std::uint64_t>{1, 2, 3, 4}));
}

TEST(WaitingJobs, PrioritiesCompareUnsigned) {
  WaitingJobs jobs;
  jobs.add({1, 0, {}});
  jobs.add({2, std::numeric_limits<std::uint64_t>::max(), {}});
  jobs.add({3, std::numeric_limits<std::int64_t>::max(), {}});
  EXPECT_EQ(takeAll(jobs), (std::vector<std::uint64_t>{2, 3, 1}));
}

TEST(WaitingJobs, AJobKeepsItsServers) {
  WaitingJobs jobs;
  jobs.add(
      {1, 0, {*kiv::URL::fromString("http://a.test/x"), *kiv::URL::fromString("http://b.test/x")}});
  const auto job = jobs.takeNext();
  ASSERT_EQ(job.servers.size(), 2u);
  EXPECT_EQ(job.servers[1].host(), "b.test");
}

TEST(WaitingJobs, ClearForgetsThemAll) {
  WaitingJobs jobs;
  jobs.add({1, 0, {}});
  jobs.add({2, 0, {}});
  EXPECT_EQ(jobs.size(), 2u);
  jobs.clear();
  EXPECT_TRUE(jobs.empty());
}

}  // namespace
