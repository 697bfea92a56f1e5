// Redirects from public to private addresses: no request is sent to the private network.

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"
#include "Tests/KivPlatform/KivRESTService/Load.h"
#include "Tests/Support/EnvironmentProxy.h"
#include "Tests/Support/FakeAddress.h"
#include "Tests/Support/FakeHostName.h"
#include "Tests/Support/LoopbackServer.h"

namespace {

using namespace kiv::test;
using Code = KivRESTServiceErrorCode;

/// A server with a public address that redirects "/a", and one with a private address that serves
/// "/secret".
class KivRESTServiceRedirectTest : public testing::Test {
 protected:
  KivRESTServiceRedirectTest() {
    settings_.threads = 1;  // all transfers share connections
    inside_.serve("/secret", Response::ok("of the private network"));
    mirror_.serve("/a", Response::ok("of the mirror"));
  }

  [[nodiscard]] std::string outsideURL() const { return address_.in(outside_.url("/a")); }
  void redirectTo(const std::string& location) {
    outside_.serve("/a", Response::redirect(302, location));
  }
  [[nodiscard]] Load load(const std::vector<std::string>& urls) {
    Load load(client(), urls);
    EXPECT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.completions(), 1);
    return load;
  }
  KivRESTService& client() {
    if (!client_) client_ = std::make_unique<KivRESTService>(settings_);
    return *client_;
  }
  void expectRefusal(const Load& refused) const {
    EXPECT_EQ(refused.errorCode(), codeOf(Code::redirectToPrivateAddress)) << refused.message();
    EXPECT_FALSE(refused.hasBody());
    EXPECT_EQ(inside_.connectionCount(), 0U);
  }

  const FakeAddress address_{"203.0.113.7"};
  kiv::TransferSettings settings_ = kiv::defaultTransferSettings();
  LoopbackServer outside_;
  LoopbackServer inside_;
  LoopbackServer mirror_;
  std::unique_ptr<KivRESTService> client_;
};

TEST_F(KivRESTServiceRedirectTest, ToTheLoopbackInterfaceIsRefused) {
  redirectTo(inside_.url("/secret?key=1"));
  const Load refused = load({outsideURL()});
  expectRefusal(refused);
  EXPECT_EQ(outside_.requests().size(), 1U) << "the server is not asked again";
  EXPECT_NE(refused.message().find("\"" + inside_.url("/secret") + "\""), std::string::npos)
      << refused.message();
  EXPECT_NE(refused.message().find("followsRedirectsToPrivateAddresses"), std::string::npos)
      << refused.message();
}

TEST_F(KivRESTServiceRedirectTest, ToANameThatResolvesToALoopbackAddressIsRefused) {
  const FakeHostName name(FakeHostName::Answer::loopback);
  redirectTo(name.in(inside_.url("/secret")));
  expectRefusal(load({outsideURL()}));
  EXPECT_GE(name.lookUps(), 1U);
}

TEST_F(KivRESTServiceRedirectTest, ToOtherSpellingsOfAPrivateAddressIsRefused) {
  const std::string rest = ":" + std::to_string(inside_.port()) + "/secret";
  for (const std::string host :
       {"localhost", "LOCALHOST", "127.1", "2130706433", "0x7f.1", "0177.0.0.1", "%31%32%37.1",
        "0.0.0.0", "127.0.0.2", "127.0.0.1.", "[::ffff:127.0.0.1]", "[::ffff:7f00:1]"}) {
    redirectTo("http://" + host + rest);
    const Load refused = load({outsideURL()});
    EXPECT_EQ(refused.errorCode(), codeOf(Code::redirectToPrivateAddress))
        << host << ": " << refused.message();
    EXPECT_EQ(inside_.connectionCount(), 0U) << host;
  }
}

TEST_F(KivRESTServiceRedirectTest, AtTheEndOfAChainIsRefused) {
  const FakeAddress another("198.51.100.7");
  outside_.serve("/a", Response::redirect(302, "/b"));
  outside_.serve("/b", Response::redirect(302, another.in(mirror_.url("/c"))));
  mirror_.serve("/c", Response::redirect(302, inside_.url("/secret")));
  expectRefusal(load({outsideURL()}));
  EXPECT_EQ(mirror_.requests().size(), 1U);
}

TEST_F(KivRESTServiceRedirectTest, OnAnOpenConnectionIsRefused) {
  const FakeHostName name(FakeHostName::Answer::loopback);
  const std::string secret = name.in(inside_.url("/secret"));
  ASSERT_EQ(load({secret}).body(), "of the private network");
  redirectTo(secret);
  const Load refused = load({outsideURL()});
  EXPECT_EQ(refused.errorCode(), codeOf(Code::redirectToPrivateAddress)) << refused.message();
  EXPECT_EQ(inside_.requests().size(), 1U) << "that of the host itself";
  EXPECT_EQ(inside_.connectionCount(), 1U);
}

TEST_F(KivRESTServiceRedirectTest, AfterARefusalTheMirrorIsAsked) {
  redirectTo(inside_.url("/secret"));
  const Load mirrored = load({outsideURL(), mirror_.url("/a")});
  EXPECT_EQ(mirrored.body(), "of the mirror") << mirrored.message();
  EXPECT_EQ(outside_.requests().size(), 1U);
  EXPECT_EQ(inside_.connectionCount(), 0U);
  const auto& failed = mirrored.task()->metrics().failedTries;
  ASSERT_EQ(failed.size(), 1U);
  EXPECT_EQ(failed.front().error, Code::redirectToPrivateAddress);
}

TEST_F(KivRESTServiceRedirectTest, ARefusalSpoilsNothingThatFollows) {
  redirectTo(inside_.url("/secret"));
  expectRefusal(load({outsideURL()}));
  EXPECT_EQ(load({inside_.url("/secret")}).body(), "of the private network");
  outside_.serve("/a", Response::redirect(302, "/b"));
  outside_.serve("/b", Response::ok("of the public server"));
  EXPECT_EQ(load({outsideURL()}).body(), "of the public server");
  redirectTo(inside_.url("/secret"));
  EXPECT_EQ(load({outsideURL()}).errorCode(), codeOf(Code::redirectToPrivateAddress));
}

TEST_F(KivRESTServiceRedirectTest, ToAnotherPublicAddressIsFollowed) {
  const FakeAddress another("198.51.100.7");
  redirectTo(another.in(mirror_.url("/a")));
  EXPECT_EQ(load({outsideURL()}).body(), "of the mirror");
}

TEST_F(KivRESTServiceRedirectTest, OfAHostWithAddressesOfBothSortsThePublicOneIsUsed) {
  const FakeHostName name(FakeHostName::Answer::twoAddresses);
  redirectTo(name.in(mirror_.url("/a")));
  const Load followed = load({outsideURL()});
  EXPECT_EQ(followed.body(), "of the mirror") << followed.message();
  EXPECT_EQ(mirror_.connectionCount(), 1U);
}

TEST_F(KivRESTServiceRedirectTest, ThatFailsAtThePublicAddressIsNoRefusal) {
  std::string gone;
  {
    const LoopbackServer closed;
    gone = closed.url("/a");
  }
  const FakeHostName name(FakeHostName::Answer::twoAddresses);
  redirectTo(name.in(gone));
  const Load failed = load({outsideURL()});
  EXPECT_EQ(failed.errorCode(), codeOf(Code::cannotConnect)) << failed.message();
}

TEST_F(KivRESTServiceRedirectTest, FromAServerInAPrivateNetworkIsFollowed) {
  mirror_.serve("/b", Response::redirect(302, inside_.url("/secret")));
  EXPECT_EQ(load({mirror_.url("/b")}).body(), "of the private network");
}

TEST_F(KivRESTServiceRedirectTest, FromANameThatResolvesToAPrivateAddressIsFollowed) {
  const FakeHostName name(FakeHostName::Answer::loopback);
  mirror_.serve("/b", Response::redirect(302, inside_.url("/secret")));
  EXPECT_EQ(load({name.in(mirror_.url("/b"))}).body(), "of the private network");
}

TEST_F(KivRESTServiceRedirectTest, TheServerOfATryCountsNotThatOfTheOneBefore) {
  mirror_.serve("/b", Response::redirect(302, inside_.url("/secret")));
  redirectTo(inside_.url("/secret"));
  const Load mirrored = load({outsideURL(), mirror_.url("/b")});
  EXPECT_EQ(mirrored.body(), "of the private network") << "the mirror is in the network itself";
  EXPECT_EQ(inside_.requests().size(), 1U);
}

TEST_F(KivRESTServiceRedirectTest, TheSettingAllowsThem) {
  settings_.followsRedirectsToPrivateAddresses = true;
  redirectTo(inside_.url("/secret"));
  EXPECT_EQ(load({outsideURL()}).body(), "of the private network");
}

// --- Through a proxy -----------------------------------------------------------------------------

/// The proxy has a private address, as is common.
class KivRESTServiceProxiedRedirectTest : public KivRESTServiceRedirectTest {
 protected:
  void serveThroughProxy(const std::string& location) {
    proxy_.serve("http://ads.invalid/a", Response::redirect(302, location));
  }
  [[nodiscard]] Load loadThroughProxy() { return load({"http://ads.invalid/a"}); }

  LoopbackServer proxy_;
};

TEST_F(KivRESTServiceProxiedRedirectTest, ToAPublicNameIsFollowed) {
  settings_.proxy = proxy_.url();
  serveThroughProxy("http://other.invalid/b");
  proxy_.serve("http://other.invalid/b", Response::ok("of the other server"));
  EXPECT_EQ(loadThroughProxy().body(), "of the other server");
}

TEST_F(KivRESTServiceProxiedRedirectTest, ToAPrivateHostIsRefusedByItsName) {
  settings_.proxy = proxy_.url();
  for (const std::string location :
       {"http://127.0.0.1/b", "http://localhost/b", "http://10.1/b", "http://[::1]/b",
        "http://%31%32%37.1/b", "http://0x7f000001/b"}) {
    serveThroughProxy(location);
    const Load refused = loadThroughProxy();
    EXPECT_EQ(refused.errorCode(), codeOf(Code::redirectToPrivateAddress))
        << location << ": " << refused.message();
  }
  EXPECT_EQ(proxy_.requests().size(), proxy_.requests("http://ads.invalid/a").size());
}

TEST_F(KivRESTServiceProxiedRedirectTest, TheEnvironmentsProxyIsOneToo) {
  const EnvironmentProxy inUse(proxy_.url());
  serveThroughProxy("http://other.invalid/b");
  proxy_.serve("http://other.invalid/b", Response::ok("of the other server"));
  EXPECT_EQ(loadThroughProxy().body(), "of the other server");
  serveThroughProxy(inside_.url("/secret"));
  EXPECT_EQ(loadThroughProxy().errorCode(), codeOf(Code::redirectToPrivateAddress));
  EXPECT_EQ(inside_.connectionCount(), 0U);
}

TEST_F(KivRESTServiceProxiedRedirectTest, AnExceptionFromTheProxyLeadsNobodyInside) {
  const FakeHostName name(FakeHostName::Answer::loopback);
  const EnvironmentProxy inUse(proxy_.url());
  setenv("no_proxy", ".test", 1);
  const std::string location = name.in(inside_.url("/secret"));
  serveThroughProxy(location);
  proxy_.serve(location, Response::status(403));
  EXPECT_EQ(loadThroughProxy().status(), 403) << "the proxy has been asked";
  EXPECT_EQ(inside_.connectionCount(), 0U);
}

}  // namespace
