// Whatever fails, neither the host's headers nor the credentials of a URL are in a message, in the
// log, or on the disk.

#include <chrono>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/Secrets.h"

namespace {

using namespace std::chrono_literals;
using namespace kiv::test;
using Code = KivRESTServiceErrorCode;

const std::string token = "t0ken-of-the-host";
const std::string headerName = "X-Pr1vate-Name";
const std::string password = "pa55word";
const std::string key = "k3y-in-the-query";
const std::vector<std::string> secrets{token, headerName, password, key};

struct FailureCase {
  const char* name;
  Response response;
  Code code{};  ///< 0 for a status.
  std::function<void(kiv::TransferSettings& settings)> set = [](kiv::TransferSettings&) {};
};

void PrintTo(const FailureCase& testCase, std::ostream* out) {
  *out << testCase.name;
}

class KivRESTServiceSecrets : public ClientFixture {
 protected:
  KivRESTServiceSecrets() {
    settings_.firstRetryDelay = settings_.longestRetryDelay = 0ms;
    spool();
  }

  /// The URL of the path, with credentials and a key.
  static std::string secretURL(const std::string& url) {
    const std::string rest = url.substr(url.find("//") + 2);
    return url.substr(0, url.find("//")) + "//user:" + password + "@" + rest + "?key=" + key;
  }
  void addSecrets() {
    client().setRequestHandler([](const KivRESTServiceRequest& request) {
      EXPECT_TRUE(request.send({{"Authorization", "Bearer " + token}, {headerName, token}}));
    });
  }
  void expectSecrecy(const Load& load) const {
    const auto& error = load.task()->responseError();
    if (error) expectNoSecret(secrets, error->description(), "the error");
    for (const std::string& line : log_.lines())
      expectNoSecret(secrets, line, "the log");
    expectNoSecretOnDisk(secrets, directory_.path());
    for (const auto& failed : load.task()->metrics().failedTries)
      expectNoSecret({token, headerName}, failed.server.absoluteString(), "the metrics");
  }
  /// Guards the tests: the secrets were in use.
  void expectThatTheyWereSent() const {
    ASSERT_FALSE(server_.requests().empty());
    const Request request = server_.requests().front();
    EXPECT_EQ(request.header("Authorization"), "Bearer " + token);
    EXPECT_EQ(request.header(headerName), token);
    EXPECT_EQ(request.target, "/a?key=" + key);
  }

  const LogCapture log_;
};

class KivRESTServiceSecretsOfFailures : public KivRESTServiceSecrets,
                                        public testing::WithParamInterface<FailureCase> {};

TEST_P(KivRESTServiceSecretsOfFailures, AreNowhere) {
  const FailureCase& failure = GetParam();
  failure.set(settings_);
  server_.serve("/a", failure.response);
  addSecrets();
  const Load load = loaded(secretURL(url()));
  EXPECT_EQ(load.errorCode(), codeOf(failure.code)) << load.message();
  EXPECT_FALSE(load.hasBody());
  expectThatTheyWereSent();
  expectSecrecy(load);
}

Response largeBody() {
  return Response::ok(std::string(100'000, 'b')).header("ETag", "\"1\"");
}

std::vector<FailureCase> failureCases() {
  const std::string nowhere = "127.0.0.1:1/b?key=" + key;
  return {
      {"Status", Response::status(404)},
      {"Unauthorized", Response::status(401).header("WWW-Authenticate", "Basic realm=\"r\"")},
      {"RetryableStatus", Response::status(503)},
      {"NoResponse", Response::nothing(), Code::connectionLost},
      {"CutBody", largeBody().closeAt(50'000), Code::connectionLost},
      {"NoHTTP", Response::raw("no http at all\r\n\r\n"), Code::malformedResponse},
      {"LargeHeader", Response::raw("HTTP/1.1 200 OK\r\nX: " + std::string(400'000, 'x') + "\r\n"),
       Code::malformedResponse},
      {"OpenEnd", Response::ok("x").withoutLength().thenClose(), Code::malformedResponse},
      {"BodyTooLarge", largeBody(), Code::bodyTooLarge,
       [](kiv::TransferSettings& settings) { settings.largestBody = 10; }},
      {"EndlessRedirects", Response::redirect(302, "/a?key=" + key), Code::tooManyRedirects},
      {"RefusedRedirect", Response::redirect(302, "ftp://user:" + password + "@" + nowhere),
       Code::refusedRedirect},
      {"MalformedRedirect", Response::redirect(302, "http://user:" + password + "@:x/" + key),
       Code::malformedResponse},
      {"RedirectToAServerThatRefuses",
       Response::redirect(302, "http://user:" + password + "@" + nowhere), Code::cannotConnect},
      {"RedirectToOneWithoutTLS",
       Response::redirect(302, "https://user:" + password + "@" + nowhere), Code::cannotConnect},
      {"Stall", largeBody().stallAt(50'000), Code::timedOut,
       [](kiv::TransferSettings& settings) {
         settings.stallTimeout = 1s;
         settings.triesPerServer = settings.triesInAll = 1;
       }},
      {"Deadline", largeBody().stallAt(50'000), Code::deadlineExceeded,
       [](kiv::TransferSettings& settings) { settings.deadline = 1s; }},
  };
}

INSTANTIATE_TEST_SUITE_P(All, KivRESTServiceSecretsOfFailures, testing::ValuesIn(failureCases()),
                         [](const auto& testCase) { return testCase.param.name; });

TEST_F(KivRESTServiceSecrets, AreNotInTheRecordOfAKeptPart) {
  server_.serve("/a", largeBody().closeAt(50'000));
  settings_.triesPerServer = settings_.triesInAll = 1;
  addSecrets();
  const Load load = loaded(secretURL(url()));
  ASSERT_EQ(load.errorCode(), codeOf(Code::connectionLost));
  expectThatTheyWereSent();
  ASSERT_FALSE(std::filesystem::is_empty(settings_.spoolDirectory)) << "a part is kept";
  expectSecrecy(load);
}

TEST_F(KivRESTServiceSecrets, AreNotInTheFileOfABody) {
  server_.serve("/a", largeBody());
  addSecrets();
  const Load load = loaded(secretURL(url()));
  ASSERT_TRUE(load.hasBody()) << load.message();
  expectThatTheyWereSent();
  expectSecrecy(load);
}

TEST_F(KivRESTServiceSecrets, OfAServerThatCannotBeReachedAreNowhere) {
  settings_.triesPerServer = 1;
  settings_.connectTimeout = 500ms;  // the server does not answer a TLS handshake
  addSecrets();
  const RefusingServer refusing;
  for (const std::string& url :
       {refusing.url("/a"), std::string("http://no-such-host.invalid/a"),
        "https" + server_.url("/a").substr(4), std::string("ftp://ads.test/a")}) {
    const Load load = loaded(secretURL(url));
    EXPECT_NE(load.errorCode(), 0);
    expectSecrecy(load);
  }
}

TEST_F(KivRESTServiceSecrets, OfAProxyThatRefusesAreNowhere) {
  settings_.proxy = "http://user:" + password + "@" + server_.url().substr(7);
  addSecrets();
  const Load load = loaded(secretURL("https://ads.test/a"));
  EXPECT_NE(load.errorCode(), 0);
  EXPECT_FALSE(server_.requests().empty());
  expectSecrecy(load);
}

TEST_F(KivRESTServiceSecrets, OfARequestThatTheHostRefusesAreNowhere) {
  client().setRequestHandler([](const KivRESTServiceRequest& request) {
    const auto status = request.send({{headerName, token}, {token, token + "\r\n"}});
    ASSERT_FALSE(status);
    expectNoSecret(secrets, status.error().description(), "the status");
  });
  const Load invalid = loaded(secretURL(url()));
  expectErrors({invalid}, Code::refusedRequest);
  expectSecrecy(invalid);
  client().setRequestHandler([](const KivRESTServiceRequest& request) { request.refuse(); });
  const Load refused = loaded(secretURL(url()));
  expectErrors({refused}, Code::refusedRequest);
  expectSecrecy(refused);
}

TEST_F(KivRESTServiceSecrets, OfARequestThatIsCancelledAreNowhere) {
  server_.serve("/a", largeBody().stallAt(50'000));
  addSecrets();
  const Load load(client(), secretURL(url()));
  ASSERT_TRUE(waitUntil([&] { return !server_.requests().empty(); }));
  client().cancelAllTasks();
  endClient();
  expectThatTheyWereSent();
  expectSecrecy(load);
}

}  // namespace
