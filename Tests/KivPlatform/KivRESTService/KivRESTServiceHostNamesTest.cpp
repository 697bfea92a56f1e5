// Host names that cannot be resolved: the mirror is asked, and nothing that comes after suffers.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"
#include "Tests/KivPlatform/KivRESTService/Load.h"
#include "Tests/Support/FakeHostName.h"
#include "Tests/Support/LoopbackServer.h"

namespace {

using namespace kiv::test;
using Answer = FakeHostName::Answer;
using Code = KivRESTServiceErrorCode;

struct NameCase {
  const char* name;
  Answer answer;
  Code error;
};

class KivRESTServiceHostNames : public testing::TestWithParam<NameCase> {
 protected:
  KivRESTServiceHostNames() {
    server_.serve("/a", Response::ok("of the main server"));
    mirror_.serve("/a", Response::ok("of the mirror"));
    // Only if the name server is silent does the time-out come.
    if (GetParam().answer == Answer::silence) {
      settings_.connectTimeout = std::chrono::milliseconds(200);
    }
  }

  /// URLs of that many files, each on the server with the faked name.
  [[nodiscard]] std::string named() const { return name_.in(server_.url("/a")); }
  [[nodiscard]] std::vector<Load> makeMirroredLoads(KivRESTService& client,
                                                    std::size_t count) const {
    std::vector<Load> loads;
    while (loads.size() < count) {
      const std::string query = "?" + std::to_string(loads.size());
      loads.emplace_back(client, std::vector{named() + query, mirror_.url("/a") + query});
    }
    return loads;
  }

  kiv::TransferSettings settings_ = kiv::defaultTransferSettings();
  LoopbackServer server_;
  LoopbackServer mirror_;
  FakeHostName name_{GetParam().answer};
};

TEST_P(KivRESTServiceHostNames, OneFileComesFromTheMirror) {
  KivRESTService client(settings_);
  const auto loads = makeMirroredLoads(client, 1);
  ASSERT_TRUE(loads.front().waitForEnd());
  EXPECT_EQ(loads.front().body(), "of the mirror") << loads.front().message();
  EXPECT_EQ(mirror_.requests().size(), 1U);
  EXPECT_EQ(loads.front().task()->metrics().tries, 2);
  const auto& failed = loads.front().task()->metrics().failedTries;
  ASSERT_EQ(failed.size(), 1U);
  EXPECT_EQ(failed.front().error, GetParam().error);
  EXPECT_GE(name_.lookUps(), 1U) << "the name is looked up here, and nowhere else";
}

TEST_P(KivRESTServiceHostNames, ManyFilesComeFromTheMirror) {
  KivRESTService client(settings_);
  const auto loads = makeMirroredLoads(client, 20);
  for (const auto& load : loads) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.body(), "of the mirror") << load.message();
    EXPECT_EQ(load.completions(), 1);
  }
  EXPECT_EQ(mirror_.requests().size(), 20U);
}

TEST_P(KivRESTServiceHostNames, WithoutAMirrorTheNameIsTheError) {
  KivRESTService client(settings_);
  const auto loads = makeLoads(client, named(), 8);
  for (const auto& load : loads) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.errorCode(), codeOf(GetParam().error)) << load.message();
    EXPECT_EQ(load.completions(), 1);
  }
  EXPECT_TRUE(server_.requests().empty());
}

TEST_P(KivRESTServiceHostNames, WhenTheNameIsBackEverythingComes) {
  KivRESTService client(settings_);
  const auto offline = makeLoads(client, named(), 6);
  for (const auto& load : offline)
    ASSERT_TRUE(load.waitForEnd());
  name_.setAnswer(Answer::loopback);
  const auto online = makeLoads(client, named(), 6);
  for (const auto& load : online) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.body(), "of the main server") << load.message();
  }
}

TEST_P(KivRESTServiceHostNames, RedirectsThereFailNoOtherFile) {
  for (const std::string path : {"/x", "/y", "/z"})
    server_.serve(path, Response::redirect(302, named()));
  KivRESTService client(settings_);
  for (const std::string path : {"/x", "/y", "/z"}) {
    const Load load(client, server_.url(path));
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.errorCode(), codeOf(GetParam().error)) << load.message();
  }
  const auto loads = makeLoads(client, server_.url("/a"), 6);
  for (const auto& load : loads) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.body(), "of the main server") << load.message();
  }
}

TEST_P(KivRESTServiceHostNames, RedirectsThereAtTheSameTimeFailNoOtherFile) {
  for (const std::string path : {"/x", "/y", "/z"})
    server_.serve(path, Response::redirect(302, named()));
  KivRESTService client(settings_);
  std::vector<Load> redirected;
  for (const std::string path : {"/x", "/y", "/z"})
    redirected.emplace_back(client, server_.url(path));
  const auto loads = makeLoads(client, server_.url("/a"), 6);
  for (const auto& load : loads) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.body(), "of the main server") << load.message();
  }
  for (const auto& load : redirected)
    ASSERT_TRUE(load.waitForEnd());
}

INSTANTIATE_TEST_SUITE_P(
    All, KivRESTServiceHostNames,
    testing::Values(NameCase{"NoSuchName", Answer::noSuchName, Code::cannotResolveHost},
                    NameCase{"NameServerFails", Answer::serverFails, Code::cannotResolveHost},
                    NameCase{"NameServerIsSilent", Answer::silence, Code::timedOut}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

}  // namespace
