// Two hosts, each a process of its own, on one root at the same time.

#include <algorithm>
#include <thread>

#include "Tests/KivResource/ReportingHostFixture.h"

namespace kiv::test {
namespace {

class KivResourceManagerProcessesTest : public ReportingHostFixture {
 protected:
  /// Runs both at once; each meets the other in the middle of its work.
  void runTogether(const std::vector<std::string>& one, const std::vector<std::string>& other) {
    std::thread thread([&] { runHost(other); });
    runHost(one);
    thread.join();
    lookAtRoot();
    expectSoundRoot();
  }

  /// The pass, performed by one host alone, completes, and fetches nothing.
  void expectAPassThatFetchesNothing(const Pass& pass) {
    const std::size_t requests = server.requests().size();
    leaveRoot();
    runHost({stepFor(pass)});
    EXPECT_EQ(server.requests().size(), requests);
    lookAtRoot();
    expectSoundRoot();
    EXPECT_EQ(loadedVersions(), pass.versions);
  }

  static bool includes(const Versions& whole, const Versions& part) {
    return std::includes(whole.begin(), whole.end(), part.begin(), part.end());
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

TEST_F(KivResourceManagerProcessesTest, WithOtherResourcesEachKeepsItsFilesAndTheLastOneItsList) {
  const Pass one{false, {{"ad-0", 1}, {"film-0", 1}, {"page-0", 1}}};
  const Pass other{false, {{"ad-1", 1}, {"film-1", 1}, {"large-1", 1}}};
  runTogether({stepFor(one)}, {stepFor(other)});
  Pass both = one;
  both.versions.insert(other.versions.begin(), other.versions.end());
  // Whoever saved last may have begun when the other had saved already, and has those too then.
  const Versions loaded = loadedVersions();
  EXPECT_TRUE(includes(loaded, one.versions) || includes(loaded, other.versions)) << loaded.size();
  EXPECT_TRUE(includes(both.versions, loaded));
  EXPECT_EQ(loaded, listedVersions());
  expectAPassThatFetchesNothing(both);
}

TEST_F(KivResourceManagerProcessesTest, WithOtherVersionsTheListMayNameWhatTheOtherRemoved) {
  for (int round = 0; round < 5; ++round) {
    leaveRoot();
    std::filesystem::remove_all(root());
    const Pass old{true, all(1)};
    const Pass fresh{true, all(2)};
    runHost({stepFor(old)});
    runTogether({stepFor(old), stepFor(old), stepFor(old)}, {stepFor(fresh)});
    // Whoever saved last, what is loaded is whole, and the rest is fetched again.
    for (const auto& [identifier, version] : loadedVersions())
      EXPECT_TRUE(version == 1 || version == 2) << identifier << " " << version;
    leaveRoot();
    runHost({stepFor(fresh)});
    lookAtRoot();
    expectSoundRoot();
    EXPECT_EQ(loadedVersions(), fresh.versions);
  }
}

}  // namespace
}  // namespace kiv::test
