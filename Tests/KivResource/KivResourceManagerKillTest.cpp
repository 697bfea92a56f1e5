// Kills a running host at random points, repeatedly on the same root.
//
// KIVRESOURCE_KILL_ROUNDS sets the number of rounds (default 24). KIVRESOURCE_TEST_SEED repeats the
// random choices of an earlier run; the point within a step still depends on the scheduler.

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <optional>
#include <random>
#include <stop_token>
#include <thread>

#include "Tests/KivResource/ReportingHostFixture.h"

namespace kiv::test {
namespace {

unsigned long fromEnvironment(const char* name, unsigned long otherwise) {
  const char* const given = std::getenv(name);
  return given ? std::strtoul(given, nullptr, 10) : otherwise;
}

/// Counts events and lets a thread wait for the n-th one.
class Moments {
 public:
  void note() {
    const std::lock_guard guard(mutex_);
    ++count_;
    changed_.notify_all();
  }
  /// False if the wait was stopped first.
  bool waitFor(std::size_t number, const std::stop_token& stop) {
    std::unique_lock guard(mutex_);
    return changed_.wait(guard, stop, [&] { return count_ >= number; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable_any changed_;
  std::size_t count_ = 0;
};

/// The versions of each resource that may be loaded; nullopt if the resource may be absent. Starts
/// from a known state and follows the passes that the host begins and the events it reports.
class Allowed {
 public:
  using Version = std::optional<std::uint64_t>;

  explicit Allowed(const Versions& loaded) {
    for (const auto& [identifier, version] : loaded)
      allowed_[identifier] = {version};
  }

  void begin(const Pass& pass) {
    pass_ = pass;
    for (const auto& [identifier, version] : pass.versions) {
      auto& versions =
          allowed_.try_emplace(identifier, std::set<Version>{std::nullopt}).first->second;
      if (*versions.begin() < Version(version)) versions.insert(version);
    }
    forEachDropped([](auto& versions) { versions.insert(std::nullopt); });
  }
  void hear(const std::string& identifier, std::uint64_t version) {
    allowed_[identifier] = {version};
  }
  void finish() {
    forEachDropped([](auto& versions) { versions = {std::nullopt}; });
    pass_ = {};
  }

  void expect(const Versions& loaded) const {
    for (const auto& [identifier, versions] : allowed_) {
      const auto found = loaded.find(identifier);
      const Version version = found == loaded.end() ? Version() : found->second;
      EXPECT_TRUE(versions.contains(version))
          << identifier << (version ? " has version " + std::to_string(*version) : " is lost");
    }
    for (const auto& [identifier, version] : loaded)
      EXPECT_TRUE(allowed_.contains(identifier)) << identifier;
  }

 private:
  template <class Change>
  void forEachDropped(const Change& change) {
    if (!pass_.isUpdate) return;
    for (auto& [identifier, versions] : allowed_) {
      if (!pass_.versions.contains(identifier)) change(versions);
    }
  }

  Pass pass_;
  std::map<std::string, std::set<Version>> allowed_;
};

class KivResourceManagerKillTest : public ReportingHostFixture {
 protected:
  void performRound() {
    std::vector<Pass> passes;
    std::vector<std::string> steps;
    for (std::size_t count = 1 + chance_() % 3; passes.size() < count;) {
      passes.push_back(randomPass());
      steps.push_back(stepFor(passes.back()));
      if (chance_() % 3 == 0) steps.emplace_back("clean");
    }
    Allowed allowed(loaded_);
    const Pass last = runAndKill(passes, steps, allowed);
    lookAtRoot();
    expectSoundRoot();
    allowed.expect(loadedVersions());
    if (HasFailure()) return;
    loaded_ = loadedVersions();
    expectTheNextRunCompletes(last);
  }

  [[nodiscard]] int kills() const noexcept { return kills_; }
  std::mt19937 chance_;

 private:
  Pass randomPass() {
    static const std::vector<std::string> identifiers{"ad-0",    "ad-1",    "ad-2",   "film-0",
                                                      "film-1",  "page-0",  "page-1", "page-2",
                                                      "large-0", "large-1", "html-0", "html-1"};
    Pass pass{chance_() % 2 == 0, {}};
    for (const std::string& identifier : identifiers) {
      if (chance_() % 4 == 0) continue;
      pass.versions[identifier] = latest_[identifier] += chance_() % 2;
    }
    return pass;
  }

  /// Returns the last pass that the host began, or the first one if it began none.
  Pass runAndKill(const std::vector<Pass>& passes, const std::vector<std::string>& steps,
                  Allowed& allowed) {
    Moments& moments = moments_.emplace();
    setRequestHandler([&moments] { moments.note(); });
    ReportingHostProcess host(root(), server.url(), steps);
    EXPECT_TRUE(host.hasStarted());
    const std::size_t moment = chance_() % (1 + 16 * passes.size());
    const std::uint64_t delay = chance_() % (1ULL << chance_() % 24);
    Pass last = passes.front();
    {
      const std::jthread killer([&](const std::stop_token& stop) {
        if (!moments.waitFor(moment, stop)) return;
        spin(delay);
        host.kill();
      });
      last = listen(host, passes, steps, allowed);
    }
    setRequestHandler([] {});
    const auto code = host.waitForExit();
    if (!code) ++kills_;
    EXPECT_EQ(code.value_or(0), 0);
    EXPECT_TRUE(server.waitForNoConnection());
    return last;
  }

  /// Busy-waits, so that the kill can hit any step between two events.
  static void spin(std::uint64_t rounds) {
    std::atomic<std::uint64_t> sum = 0;
    while (rounds-- > 0)
      sum.fetch_add(1, std::memory_order_relaxed);
  }

  Pass listen(ReportingHostProcess& host, const std::vector<Pass>& passes,
              const std::vector<std::string>& steps, Allowed& allowed) {
    Pass last = passes.front();
    std::size_t begun = 0;
    while (const auto line = host.readLine()) {
      moments_->note();
      const std::string_view text = *line;
      const std::string first = line->substr(0, line->find(' '));
      const std::string second = line->substr(std::min(line->size(), first.size() + 1));
      if (first == "step" && steps[std::stoul(second)] != "clean") {
        last = passes[begun++];
        allowed.begin(last);
      } else if (first == "loaded") {
        const std::size_t space = second.find(' ');
        allowed.hear(second.substr(0, space), std::stoull(second.substr(space + 1)));
      } else if (first == "finished") {
        allowed.finish();
      } else {
        EXPECT_FALSE(text.starts_with("failed")) << text;
      }
    }
    return last;
  }

  /// Runs the pass to completion. Expects that all of it is loaded and that no file was fetched
  /// that was already stored.
  void expectTheNextRunCompletes(const Pass& pass) {
    const auto stored = storedOf(pass.versions);
    const std::size_t requests = server.requests().size();
    leaveRoot();
    runHost({stepFor(pass)});
    const auto all = server.requests();
    for (std::size_t number = requests; number < all.size(); ++number)
      EXPECT_FALSE(stored.contains(all[number].path.substr(1))) << all[number].path;
    Versions expected = pass.versions;
    for (const auto& [identifier, version] : loaded_) {
      if (expected.contains(identifier) || !pass.isUpdate) {
        expected[identifier] = std::max(expected[identifier], version);
      }
    }
    lookAtRoot();
    expectSoundRoot();
    loaded_ = loadedVersions();
    EXPECT_EQ(loaded_, expected);
    leaveRoot();
  }

  Versions latest_;
  Versions loaded_;
  int kills_ = 0;
  std::optional<Moments> moments_;
};

TEST_F(KivResourceManagerKillTest, KilledAtAnyMomentNothingThatWasHeardOfIsLost) {
  const auto seed =
      static_cast<std::uint32_t>(fromEnvironment("KIVRESOURCE_TEST_SEED", std::random_device()()));
  const auto rounds = fromEnvironment("KIVRESOURCE_KILL_ROUNDS", 24);
  SCOPED_TRACE("KIVRESOURCE_TEST_SEED=" + std::to_string(seed));
  chance_.seed(seed);
  for (unsigned long round = 0; round < rounds && !HasFailure(); ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    performRound();
  }
  std::cout << kills() << " kills in " << rounds << " rounds, seed " << seed << std::endl;
  EXPECT_GT(kills(), static_cast<int>(rounds / 4)) << "the host was too fast to be killed";
}

}  // namespace
}  // namespace kiv::test
