// Host names that cannot be resolved: the client uses the mirror, and later requests are not
// affected.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"
#include "Tests/Support/FakeHostName.h"

namespace {

using namespace kiv::test;
using Answer = FakeHostName::Answer;
using Code = KivRESTServiceErrorCode;

struct NameCase {
  const char* name;
  Answer answer;
  Code error;
};

class KivRESTServiceHostNames : public ClientFixture, public testing::WithParamInterface<NameCase> {
 protected:
  KivRESTServiceHostNames() {
    server_.serve("/a", Response::ok("of the main server"));
    mirror_.serve("/a", Response::ok("of the mirror"));
    // Only a silent name server leads to a time-out.
    if (GetParam().answer == Answer::silence) {
      settings_.connectTimeout = std::chrono::milliseconds(200);
    }
  }

  /// The URL of a file on the server with the faked name.
  [[nodiscard]] std::string named() const { return name_.in(server_.url("/a")); }

  FakeHostName name_{GetParam().answer};
};

TEST_P(KivRESTServiceHostNames, OneFileComesFromTheMirror) {
  const auto loads = makeLoads(client(), {named(), mirror_.url("/a")}, 1);
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
  const auto loads = makeLoads(client(), {named(), mirror_.url("/a")}, 20);
  expectBodies(loads, "of the mirror");
  EXPECT_EQ(mirror_.requests().size(), 20U);
}

TEST_P(KivRESTServiceHostNames, WithoutAMirrorTheNameIsTheError) {
  const auto loads = makeLoads(client(), named(), 8);
  expectErrors(loads, GetParam().error);
  EXPECT_TRUE(server_.requests().empty());
}

TEST_P(KivRESTServiceHostNames, WhenTheNameIsBackEverythingComes) {
  const auto offline = makeLoads(client(), named(), 6);
  ASSERT_TRUE(waitForEnd(offline));
  name_.setAnswer(Answer::loopback);
  const auto online = makeLoads(client(), named(), 6);
  expectBodies(online, "of the main server");
}

TEST_P(KivRESTServiceHostNames, RedirectsThereFailNoOtherFile) {
  for (const std::string path : {"/x", "/y", "/z"})
    server_.serve(path, Response::redirect(302, named()));
  for (const std::string path : {"/x", "/y", "/z"}) {
    const Load load = loaded(server_.url(path));
    EXPECT_EQ(load.errorCode(), codeOf(GetParam().error)) << load.message();
  }
  const auto loads = makeLoads(client(), url(), 6);
  expectBodies(loads, "of the main server");
}

TEST_P(KivRESTServiceHostNames, RedirectsThereAtTheSameTimeFailNoOtherFile) {
  for (const std::string path : {"/x", "/y", "/z"})
    server_.serve(path, Response::redirect(302, named()));
  std::vector<Load> redirected;
  for (const std::string path : {"/x", "/y", "/z"})
    redirected.emplace_back(client(), server_.url(path));
  const auto loads = makeLoads(client(), url(), 6);
  expectBodies(loads, "of the main server");
  ASSERT_TRUE(waitForEnd(redirected));
}

INSTANTIATE_TEST_SUITE_P(
    All, KivRESTServiceHostNames,
    testing::Values(NameCase{"NoSuchName", Answer::noSuchName, Code::cannotResolveHost},
                    NameCase{"NameServerFails", Answer::serverFails, Code::cannotResolveHost},
                    NameCase{"NameServerIsSilent", Answer::silence, Code::timedOut}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

}  // namespace
