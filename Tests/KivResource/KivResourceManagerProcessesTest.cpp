// Several host processes that use the same root at the same time.

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <random>
#include <thread>

#include "Tests/KivResource/ReportingHostFixture.h"

namespace kiv::test {
namespace {

class KivResourceManagerProcessesTest : public ReportingHostFixture {
 protected:
  /// Runs both hosts at the same time, so that their steps overlap.
  void runTogether(const std::vector<std::string>& one, const std::vector<std::string>& other) {
    std::thread thread([&] { runHost(other); });
    runHost(one);
    thread.join();
    lookAtRoot();
    expectSoundRoot();
  }

  /// Runs the pass in a single host; expects that it completes without fetching anything.
  void expectAPassThatFetchesNothing(const Pass& pass) {
    const std::size_t requests = server.requests().size();
    leaveRoot();
    runHost({stepFor(pass)});
    EXPECT_EQ(server.requests().size(), requests);
    lookAtRoot();
    expectSoundRoot();
    EXPECT_EQ(loadedVersions(), pass.versions);
  }

  static Versions all(std::uint64_t version) {
    return {{"ad-0", version},   {"ad-1", version},  {"film-0", version}, {"page-0", version},
            {"page-1", version}, {"large", version}, {"html-0", version}, {"html-1", version}};
  }
};

TEST_F(KivResourceManagerProcessesTest, WithOneConfigurationBothLoadAllAndReplaceAll) {
  for (int round = 0; round < 5; ++round) {
    leaveRoot();
    std::filesystem::remove_all(root());
    const Pass first{true, all(1)};
    const Pass second{true, all(2)};
    runHost({stepFor(first)});
    runTogether({stepFor(first), stepFor(second)}, {stepFor(second)});
    EXPECT_EQ(listedVersions(), second.versions);
    EXPECT_EQ(loadedVersions(), second.versions);
    EXPECT_FALSE(exists(stored("ad-0-1.png")));
  }
}

TEST_F(KivResourceManagerProcessesTest, WithOtherResourcesTheListHoldsThoseOfBoth) {
  const Pass one{false, {{"ad-0", 1}, {"film-0", 1}, {"page-0", 1}}};
  const Pass other{false, {{"ad-1", 1}, {"film-1", 1}, {"large-1", 1}}};
  runTogether({stepFor(one)}, {stepFor(other)});
  Pass both = one;
  both.versions.insert(other.versions.begin(), other.versions.end());
  EXPECT_EQ(loadedVersions(), both.versions);
  EXPECT_EQ(listedVersions(), both.versions);
  expectAPassThatFetchesNothing(both);
}

TEST_F(KivResourceManagerProcessesTest, WithOtherVersionsTheNewestIsListedAndWhole) {
  for (int round = 0; round < 5; ++round) {
    leaveRoot();
    std::filesystem::remove_all(root());
    const Pass old{true, all(1)};
    const Pass fresh{true, all(2)};
    runHost({stepFor(old)});
    runTogether({stepFor(old), stepFor(old), stepFor(old)}, {stepFor(fresh)});
    EXPECT_EQ(listedVersions(), fresh.versions);
    EXPECT_EQ(loadedVersions(), fresh.versions);
  }
}

/// Five hosts load random versions of a few resources, which share a few files.
class KivResourceManagerFiveProcessesTest : public KivResourceManagerProcessesTest {
 protected:
  KivResourceManagerFiveProcessesTest() {
    for (const char* const name : {"0.png", "1.png", "2.png", "3.png", "0.mp4", "1.mp4", "2.mp4"})
      serve(name);
  }

  /// The same item for every host that loads this version.
  static Dictionary sharing(int resource, int version) {
    const std::string identifier = "id-" + std::to_string(resource);
    const int mixed = resource * 7 + version * 5;
    const std::string image = std::to_string(mixed % 4) + ".png";
    if (resource % 2 == 0) return banner(identifier, std::uint64_t(version), image);
    return video(identifier, std::uint64_t(version), image, std::to_string(mixed % 3) + ".mp4");
  }

  std::string randomStep() {
    Array items;
    for (int resource = 0; resource < 6; ++resource) {
      if (random_() % 2 == 0) items.append(sharing(resource, 1 + int(random_() % 40)));
    }
    return stepForItems("load:", items);
  }

  /// Runs a host with random passes and records the newest versions it reports as loaded.
  void runRandomHost(const std::vector<std::string>& steps) {
    ReportingHostProcess host(root(), server.url(), steps);
    ASSERT_TRUE(host.hasStarted());
    while (const auto line = host.readLine()) {
      if (!line->starts_with("loaded ")) continue;
      const std::size_t space = line->rfind(' ');
      const std::lock_guard guard(mutex_);
      std::uint64_t& newest = newest_[line->substr(7, space - 7)];
      newest = std::max(newest, std::uint64_t(std::stoul(line->substr(space + 1))));
    }
    EXPECT_EQ(host.waitForExit(), 0);
  }

  std::mt19937 random_;
  std::mutex mutex_;
  Versions newest_;
};

TEST_F(KivResourceManagerFiveProcessesTest, TheListHoldsTheNewestOfEachResourceWithItsFiles) {
  const char* const given = std::getenv("KIVRESOURCE_TEST_SEED");
  const auto seed = given ? unsigned(std::stoul(given)) : std::random_device()();
  std::cout << "KIVRESOURCE_TEST_SEED=" << seed << "\n";
  random_.seed(seed);
  for (int round = 0; round < 20 && !HasFailure(); ++round) {
    SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(round));
    leaveRoot();
    std::filesystem::remove_all(root());
    newest_.clear();
    std::vector<std::thread> hosts;
    for (int host = 0; host < 5; ++host) {
      std::vector<std::string> steps;
      for (int step = 0; step < 5; ++step)
        steps.push_back(randomStep());
      hosts.emplace_back([this, steps] { runRandomHost(steps); });
    }
    for (std::thread& host : hosts)
      host.join();
    lookAtRoot();
    expectSoundRoot();
    EXPECT_EQ(listedVersions(), newest_);
    EXPECT_EQ(loadedVersions(), newest_) << "an entry names a file that is gone";
  }
}

}  // namespace
}  // namespace kiv::test
