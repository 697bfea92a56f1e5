// Runs a host under strace, which makes each system call of a pass fail in turn or kills the host
// at it. Afterwards the root must be consistent, no loaded resource may be lost, nor, after a kill,
// any announced one, and the next run must complete the pass. A separate program because it takes
// minutes: script/sweep runs it.

#include <algorithm>
#include <fstream>
#include <iostream>
#include <ostream>
#include <tuple>

#include "Tests/KivResource/ReportingHostFixture.h"

namespace kiv::test {
namespace {

/// The system calls that access the disk, and the faults to inject.
constexpr const char* calls[] = {"openat",    "read",       "write",     "pwrite64", "fsync",
                                 "syncfs",    "rename",     "renameat2", "unlink",   "unlinkat",
                                 "mkdir",     "mkdirat",    "rmdir",     "link",     "flock",
                                 "ftruncate", "getdents64", "close"};
constexpr const char* fates[] = {"error=ENOSPC", "error=EIO", "signal=SIGKILL"};

class SystemCallSweep : public ReportingHostFixture,
                        public testing::WithParamInterface<std::tuple<const char*, const char*>> {
 protected:
  /// Runs the pass on a copy of the prepared root, with the fault at call `number`.
  void performWith(int number) {
    leaveRoot();
    std::filesystem::remove_all(root());
    std::filesystem::copy(prepared(), root(), std::filesystem::copy_options::recursive);
    heard_.clear();
    const auto& [call, fate] = GetParam();
    const std::string injection =
        std::string("inject=") + call + ":" + fate + ":when=" + std::to_string(number);
    // If a fault blocks a thread forever, only `timeout` ends the host.
    ReportingHostProcess host(root(), server.url(), {stepFor(after_)},
                              {"strace", "-f", "-qq", "-o", trace(), "-e", injection, "-e",
                               std::string("trace=") + call, "timeout", "-s", "KILL", "20"});
    ASSERT_TRUE(host.hasStarted());
    while (const auto line = host.readLine()) {
      if (!line->starts_with("loaded ")) continue;
      const std::size_t space = line->rfind(' ');
      heard_[line->substr(7, space - 7)] = std::stoull(line->substr(space + 1));
    }
    host.waitForExit();
    EXPECT_TRUE(server.waitForNoConnection());
  }

  void checkRoot() {
    lookAtRoot();
    expectSoundRoot();
    const Versions loaded = loadedVersions();
    for (const auto& [identifier, version] : before_.versions) {
      const auto next = after_.versions.find(identifier);
      if (next == after_.versions.end()) continue;  // the pass drops it
      const auto found = loaded.find(identifier);
      ASSERT_TRUE(found != loaded.end()) << identifier << " is lost";
      EXPECT_TRUE(found->second == version || found->second == next->second) << identifier;
    }
    // Only after a kill: if the list cannot be saved, resources are announced nevertheless.
    for (const auto& [identifier, version] : kills() ? heard_ : Versions())
      EXPECT_TRUE(loaded.contains(identifier) && loaded.at(identifier) == version) << identifier;
    const auto stored = storedOf(after_.versions);
    const std::size_t requests = server.requests().size();
    leaveRoot();
    runHost({stepFor(after_)});
    const auto all = server.requests();
    for (std::size_t at = requests; at < all.size(); ++at)
      EXPECT_FALSE(stored.contains(all[at].path.substr(1))) << all[at].path;
    lookAtRoot();
    expectSoundRoot();
    EXPECT_EQ(loadedVersions(), after_.versions);
  }

  static bool kills() { return std::string(std::get<1>(GetParam())).starts_with("signal"); }

  /// True if a thread reached the call, so that the fault was injected.
  [[nodiscard]] bool wasReached() const {
    const std::string text = read(trace());
    return text.find(kills() ? "killed by SIGKILL" : "(INJECTED)") != std::string::npos;
  }

  void prepare() {
    runHost({stepFor(before_)});
    std::filesystem::copy(root(), prepared(), std::filesystem::copy_options::recursive);
  }

 private:
  [[nodiscard]] std::string prepared() const { return scratch_.path("prepared"); }
  [[nodiscard]] std::string trace() const { return scratch_.path("trace"); }

  const Pass before_{true,
                     {{"ad-0", 1}, {"ad-1", 1}, {"film-0", 1}, {"page-0", 1}, {"large-0", 1}}};
  const Pass after_{true,
                    {{"ad-0", 2}, {"film-0", 2}, {"page-0", 2}, {"large-0", 2}, {"html-0", 1}}};
  Versions heard_;
  TemporaryDirectory scratch_;
};

TEST_P(SystemCallSweep, LosesNothing) {
  prepare();
  int number = 0;
  bool isReached = true;
  while (isReached && !HasFailure()) {
    SCOPED_TRACE("call " + std::to_string(++number));
    performWith(number);
    isReached = wasReached();
    checkRoot();
  }
  std::cout << number - 1 << " calls" << std::endl;
}

INSTANTIATE_TEST_SUITE_P(Calls, SystemCallSweep,
                         testing::Combine(testing::ValuesIn(calls), testing::ValuesIn(fates)),
                         [](const auto& test) {
                           std::string name =
                               std::string(std::get<0>(test.param)) + "_" + std::get<1>(test.param);
                           std::replace(name.begin(), name.end(), '=', '_');
                           return name;
                         });

}  // namespace
}  // namespace kiv::test
