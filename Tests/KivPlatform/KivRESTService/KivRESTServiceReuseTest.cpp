// Connections that serve several requests: a fault of the server in one response must not make
// later requests fail.

#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"

namespace {

using namespace kiv::test;
using Code = KivRESTServiceErrorCode;

/// Answers the first request of each connection with one response and all later ones with the
/// other.
class PerConnection {
 public:
  PerConnection(Response first, Response later)
      : first_(std::move(first)), later_(std::move(later)) {}

  Response operator()(const Request& request) const {
    const std::lock_guard lock(seen_->mutex);
    return seen_->requests[request.connection]++ == 0 ? first_ : later_;
  }

 private:
  struct Seen {
    std::mutex mutex;
    std::map<std::size_t, int> requests;
  };
  Response first_;
  Response later_;
  std::shared_ptr<Seen> seen_ = std::make_shared<Seen>();
};

struct ReuseCase {
  const char* name;
  Response later;  ///< What a client reads if the previous response had excess bytes.
};

void PrintTo(const ReuseCase& testCase, std::ostream* out) {
  *out << testCase.name;
}

const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody";

std::vector<ReuseCase> malformedLater() {
  return {
      {"EmptyLine", Response::raw("\r\n" + answer)},
      {"EmptyLines", Response::raw("\r\n\r\n" + answer)},
      {"LineFeed", Response::raw("\n" + answer)},
      {"Text", Response::raw("</html>\r\n" + answer)},
      {"LongText", Response::raw(std::string(100'000, 'x') + answer)},
      {"NULs", Response::raw(std::string(4, '\0') + answer)},
      {"AChunkEnd", Response::raw("0\r\n\r\n" + answer)},
      {"AMalformedHead", Response::raw("HTTP/1.1 200 OK\r\nContent-Length: x\r\n\r\n" + answer)},
      {"AnotherProtocol", Response::raw("ICY 200 OK\r\n\r\n" + answer)},
      {"PartOfAHead", Response::raw("HTTP/1.1 2")},
      {"Nothing", Response::nothing()},
      {"AReset", Response::nothing().resetAt(0)},
  };
}

class KivRESTServiceReuse : public ClientFixture, public testing::WithParamInterface<ReuseCase> {
 protected:
  KivRESTServiceReuse() { settings_.threads = 1; }
};

TEST_P(KivRESTServiceReuse, AResponseMalformedOnAUsedConnectionIsAskedForOnAFreshOne) {
  server_.serve("/a", PerConnection(Response::ok("body"), GetParam().later));
  for (int count = 0; count < 4; ++count) {
    const Load load = loaded();
    EXPECT_EQ(load.body(), "body") << load.message();
    EXPECT_EQ(load.completions(), 1);
    EXPECT_EQ(load.task()->metrics().tries, 1);
    EXPECT_TRUE(load.task()->metrics().failedTries.empty());
  }
}

TEST_P(KivRESTServiceReuse, ItIsSoWhereTransfersRunTogether) {
  server_.serve("/a", PerConnection(Response::ok("body"), GetParam().later));
  const auto loads = makeLoads(client(), url(), 24);
  for (const auto& load : loads) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.body(), "body") << load.message();
    EXPECT_EQ(load.task()->metrics().tries, 1);
  }
}

INSTANTIATE_TEST_SUITE_P(All, KivRESTServiceReuse, testing::ValuesIn(malformedLater()),
                         [](const auto& testCase) { return std::string(testCase.param.name); });

class KivRESTServiceReuseTest : public ClientFixture {
 protected:
  KivRESTServiceReuseTest() { settings_.threads = 1; }
};

TEST_F(KivRESTServiceReuseTest, BytesAfterABodyFailNoOtherFile) {
  for (const std::string surplus : {"\r\n", "\n", "surplus", "0\r\n\r\n"}) {
    server_.serve("/a", Response::ok("body").thenAlso(surplus));
    KivRESTService client;
    const auto loads = makeLoads(client, url(), 60);
    expectBodies(loads, "body");
  }
}

TEST_F(KivRESTServiceReuseTest, OneAloneIsAskedForTwiceAtMost) {
  server_.serve("/good", Response::ok("body"));
  server_.serve("/bad", Response::raw("\r\n" + answer));
  const Load good = loaded(url("/good"));
  const Load bad = loaded(url("/bad"));
  EXPECT_EQ(bad.errorCode(), codeOf(Code::malformedResponse)) << bad.message();
  const auto requests = server_.requests("/bad");
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests.front().connection, server_.requests("/good").front().connection);
  EXPECT_NE(requests.back().connection, requests.front().connection);
  EXPECT_EQ(bad.task()->metrics().tries, 1);
}

TEST_F(KivRESTServiceReuseTest, OnAFreshConnectionItIsAskedForOnce) {
  server_.serve("/bad", Response::raw("\r\n" + answer));
  const Load bad = loaded(url("/bad"));
  EXPECT_EQ(bad.errorCode(), codeOf(Code::malformedResponse)) << bad.message();
  EXPECT_EQ(server_.requests("/bad").size(), 1U);
}

TEST_F(KivRESTServiceReuseTest, TheConnectionsThatFollowAreUsedAgain) {
  server_.serve("/a", {Response::ok("body"), Response::raw("\r\n" + answer), Response::ok("body")});
  for (int count = 0; count < 5; ++count) {
    const Load load = loaded();
    EXPECT_EQ(load.body(), "body") << load.message();
  }
  EXPECT_EQ(server_.requests("/a").size(), 6U);
  EXPECT_EQ(server_.connectionCount(), 2U);
}

TEST_F(KivRESTServiceReuseTest, ARedirectOnAUsedConnectionIsAskedForAfreshToo) {
  server_.serve("/x", Response::redirect(302, "/a"));
  server_.serve("/a", {Response::raw("\r\n" + answer), Response::ok("body")});
  const Load load = loaded(url("/x"));
  EXPECT_EQ(load.body(), "body") << load.message();
  EXPECT_EQ(server_.requests("/x").size(), 1U);
  EXPECT_EQ(server_.requests("/a").size(), 2U);
}

TEST_F(KivRESTServiceReuseTest, ABodyThatBreaksOffIsAnOrdinaryTry) {
  server_.serve("/a",
                {Response::ok("body"), Response::ok("body").closeAt(2), Response::ok("body")});
  for (const int tries : {1, 2}) {
    const Load load = loaded();
    EXPECT_EQ(load.body(), "body") << load.message();
    EXPECT_EQ(load.task()->metrics().tries, tries);
  }
}

}  // namespace
