#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"
#include "Tests/KivPlatform/KivRESTService/Load.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/LoopbackServerSockets.h"
#include "Tests/Support/NginxServer.h"
#include "Tests/Support/OldSecureServer.h"
#include "Tests/Support/RangeServer.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;
using Code = KivRESTServiceErrorCode;

kiv::TransferSettings trusting(const NginxServer& server) {
  auto settings = kiv::defaultTransferSettings();
  settings.certificateAuthoritiesPath = server.certificatePath();
  return settings;
}

TEST(KivRESTServiceNginx, LoadsFilesOfManySizesOverFewConnections) {
  NginxServer server;
  ASSERT_TRUE(server.isRunning());
  std::vector<std::string> files;
  for (std::size_t number = 0; number < 100; ++number) {
    files.emplace_back(number * number * number, static_cast<char>('a' + number % 26));
    server.addFile(std::to_string(number), files.back());
  }
  KivRESTService client;
  std::vector<Load> loads;
  for (std::size_t number = 0; number < files.size(); ++number) {
    loads.emplace_back(client, server.url("/" + std::to_string(number)));
  }
  for (std::size_t number = 0; number < files.size(); ++number) {
    ASSERT_TRUE(loads[number].waitForEnd());
    EXPECT_EQ(loads[number].status(), 200) << loads[number].message();
    EXPECT_TRUE(loads[number].body() == files[number]) << number;
  }
  const auto log = server.stopAndTakeLog();
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 100);
}

TEST(KivRESTServiceNginx, StatusesAndRedirectsOfARealServer) {
  NginxServer server(
      "location /moved { return 301 /file; }\n"
      "location /empty { return 204; }\n"
      "location /down { return 503; }\n");
  ASSERT_TRUE(server.isRunning());
  server.addFile("file", "contents");
  KivRESTService client;
  const Load moved(client, server.url("/moved"));
  const Load missing(client, server.url("/missing"));
  const Load empty(client, server.url("/empty"));
  const Load down(client, {server.url("/down"), server.url("/file")});
  ASSERT_TRUE(moved.waitForEnd() && missing.waitForEnd() && empty.waitForEnd() &&
              down.waitForEnd());
  EXPECT_EQ(moved.body(), "contents");
  EXPECT_EQ(missing.status(), 404);
  EXPECT_EQ(empty.status(), 204);
  EXPECT_FALSE(empty.hasBody());
  EXPECT_EQ(down.body(), "contents");
}

TEST(KivRESTServiceNginx, LoadsOverHTTPSFromAServerThatItTrusts) {
  NginxServer server;
  ASSERT_TRUE(server.isRunning());
  server.addFile("file", std::string(1'000'000, 'x'));
  KivRESTService client(trusting(server));
  for (int count = 0; count < 3; ++count) {
    const Load load(client, server.secureURL("/file"));
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.body().size(), 1'000'000u) << load.message();
  }
}

TEST(KivRESTServiceNginx, ACertificateThatNobodyVouchesForIsRefused) {
  NginxServer server;
  ASSERT_TRUE(server.isRunning());
  server.addFile("file", "contents");
  KivRESTService client;
  const Load load(client, server.secureURL("/file"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.errorCode(), codeOf(Code::secureConnectionFailed)) << load.message();
  EXPECT_EQ(load.message(), "Could not load \"" + server.secureURL("/file") +
                                "\": the certificate of \"127.0.0.1\" is signed by itself, and not "
                                "trusted here.");
  EXPECT_FALSE(load.hasBody());
  EXPECT_EQ(server.stopAndTakeLog(), "");
}

TEST(KivRESTServiceNginx, ACertificateThatHasExpiredIsRefused) {
  NginxServer server({}, SelfSignedCertificate::Validity::expired);
  ASSERT_TRUE(server.isRunning());
  server.addFile("file", "contents");
  KivRESTService client(trusting(server));
  const Load load(client, server.secureURL("/file"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.errorCode(), codeOf(Code::secureConnectionFailed)) << load.message();
  EXPECT_EQ(load.message(), "Could not load \"" + server.secureURL("/file") +
                                "\": the certificate of \"127.0.0.1\" has expired.");
  EXPECT_EQ(server.stopAndTakeLog(), "");
}

TEST(KivRESTServiceNginx, HTTP2IsSpokenWhereTheHostWantsIt) {
  NginxServer server;
  ASSERT_TRUE(server.isRunning());
  server.addFile("file", std::string(100'000, 'x'));
  auto settings = trusting(server);
  settings.http2 = true;
  {
    KivRESTService client(settings);
    const Load load(client, server.secureURL("/file"));
    const Load plain(client, server.url("/file"));
    const Load missing(client, server.secureURL("/missing"));
    ASSERT_TRUE(load.waitForEnd() && plain.waitForEnd() && missing.waitForEnd());
    EXPECT_EQ(load.body().size(), 100'000U) << load.message();
    EXPECT_EQ(plain.body().size(), 100'000U) << plain.message();
    EXPECT_EQ(missing.status(), 404) << missing.message();
  }
  const auto log = server.stopAndTakeLog();
  EXPECT_NE(log.find("GET /file 200 HTTP/2.0"), std::string::npos) << log;
  EXPECT_NE(log.find("GET /file 200 HTTP/1.1"), std::string::npos) << log;
}

TEST(KivRESTServiceNginx, RequestsThatShareAnHTTP2ConnectionAllSucceed) {
  NginxServer server("location /moved { rewrite ^/moved/(.*)$ /$1 redirect; }");
  ASSERT_TRUE(server.isRunning());
  std::vector<std::string> files;
  for (std::size_t number = 0; number < 60; ++number) {
    files.emplace_back(number * number * 100, static_cast<char>('a' + number % 26));
    server.addFile(std::to_string(number), files.back());
  }
  auto settings = trusting(server);
  settings.http2 = true;
  settings.threads = 1;
  settings.parallelTransfers = settings.parallelTransfersPerHost = 20;
  KivRESTService client(settings);
  std::vector<Load> loads;
  for (std::size_t number = 0; number < files.size(); ++number) {
    const std::string path = (number % 2 == 0 ? "/moved/" : "/") + std::to_string(number);
    loads.emplace_back(client, server.secureURL(path));
  }
  for (std::size_t number = 0; number < files.size(); ++number) {
    ASSERT_TRUE(loads[number].waitForEnd());
    EXPECT_EQ(loads[number].status(), 200) << loads[number].message();
    EXPECT_TRUE(loads[number].body() == files[number]) << number;
    EXPECT_EQ(loads[number].task()->metrics().tries, 1);
  }
  EXPECT_NE(server.stopAndTakeLog().find(" 200 HTTP/2.0"), std::string::npos);
}

TEST(KivRESTServiceNginx, HTTP2IsNotSpokenUnasked) {
  NginxServer server;
  ASSERT_TRUE(server.isRunning());
  server.addFile("file", "contents");
  {
    KivRESTService client(trusting(server));
    const Load load(client, server.secureURL("/file"));
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.body(), "contents");
  }
  EXPECT_EQ(server.stopAndTakeLog().find("HTTP/2"), std::string::npos);
}

TEST(KivRESTServiceNginx, ARealServerGivesTheRestOfAFile) {
  NginxServer server("location /slow { alias root/file; limit_rate 1; limit_rate_after 600k; }");
  ASSERT_TRUE(server.isRunning());
  const std::string body = patternedBytes(1'000'000);
  server.addFile("file", body);
  const TemporaryDirectory directory;
  auto settings = kiv::defaultTransferSettings();
  settings.spoolDirectory = directory.path("spool");
  settings.largestBodyInMemory = 1000;
  settings.stallTimeout = std::chrono::seconds(1);
  settings.stallSpeed = 100'000;
  settings.triesInAll = 1;
  const std::string url = server.url("/slow");
  {
    KivRESTService client(settings);
    const Load load(client, url);
    ASSERT_TRUE(load.waitForEnd());
    ASSERT_EQ(load.errorCode(), codeOf(Code::timedOut));
  }
  settings.triesInAll = 10;
  KivRESTService client(settings);
  const Load load(client, url);
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_TRUE(load.body() == body) << load.message();
  EXPECT_GE(load.task()->metrics().resumedBytes, 600'000);
}

TEST(KivRESTServiceNginx, ACertificateOfAnotherHostIsRefused) {
  NginxServer server;
  ASSERT_TRUE(server.isRunning());
  server.addFile("file", "contents");
  KivRESTService client(trusting(server));
  // Leads to this machine too, under a name for which the certificate does not speak.
  auto url = server.secureURL("/file");
  url.replace(url.find("127.0.0.1"), 9, "0.0.0.0");
  const Load load(client, url);
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.errorCode(), codeOf(Code::secureConnectionFailed)) << load.message();
  EXPECT_EQ(load.message(),
            "Could not load \"" + url + "\": the server's certificate is not for \"0.0.0.0\".");
}

TEST(KivRESTServiceNginx, TheCertificateOfTheHostToWhichARedirectLeadsIsNamed) {
  NginxServer server;
  ASSERT_TRUE(server.isRunning());
  LoopbackServer plain;
  auto target = server.secureURL("/file");
  target.replace(target.find("127.0.0.1"), 9, "0.0.0.0");
  plain.serve("/a", Response::redirect(302, target));
  KivRESTService client(trusting(server));
  const Load load(client, plain.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.message(),
            "Could not load \"" + target + "\": the server's certificate is not for \"0.0.0.0\".");
}

TEST(KivRESTServiceNginx, TheCertificateOfAProxyIsNotTakenForTheServers) {
  NginxServer proxy;
  ASSERT_TRUE(proxy.isRunning());
  auto settings = kiv::defaultTransferSettings();
  settings.proxy = proxy.secureURL();
  KivRESTService client(settings);
  const Load load(client, "http://ads.invalid/a");
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.message(),
            "Could not load \"http://ads.invalid/a\": the certificate of the proxy is signed by "
            "itself, and not trusted here.");
}

/// A handle that has met a bad certificate serves the next transfer, which fails for another
/// reason.
TEST(KivRESTServiceNginx, TheNextErrorSaysNothingOfTheCertificate) {
  NginxServer server;
  ASSERT_TRUE(server.isRunning());
  const RefusingServer refusing;
  KivRESTService client;
  const Load first(client, server.secureURL("/file"));
  ASSERT_TRUE(first.waitForEnd());
  const Load second(client, refusing.url("/a"));
  ASSERT_TRUE(second.waitForEnd());
  EXPECT_EQ(second.message(),
            "Could not load \"" + refusing.url("/a") + "\": the server could not be reached.");
}

/// What comes over https must tell its length: whether TLS ended in order is not known here.
class BodiesWithoutLengthOverHTTPS : public testing::TestWithParam<bool> {
 protected:
  static void expectRefused(const std::string& url, kiv::TransferSettings settings) {
    settings.takesBodiesWithoutLength = GetParam();
    KivRESTService client(settings);
    const Load load(client, url);
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_EQ(load.errorCode(), codeOf(Code::malformedResponse)) << load.message();
    EXPECT_FALSE(load.hasBody());
    EXPECT_NE(load.message().find("over https"), std::string::npos) << load.message();
  }
};

TEST_P(BodiesWithoutLengthOverHTTPS, AreRefusedOverHTTP10) {
  const OldSecureServer server;
  server.addFile("file", std::string(1000, 'x'));
  auto settings = kiv::defaultTransferSettings();
  settings.certificateAuthoritiesPath = server.certificatePath();
  expectRefused(server.url("/file"), settings);
}

TEST_P(BodiesWithoutLengthOverHTTPS, AreRefusedOverHTTP11) {
  LoopbackServer old;
  old.serve("/file", Response::ok("12345").withoutLength().http10());
  NginxServer server("location / { proxy_pass " + old.url() +
                     "; chunked_transfer_encoding off; keepalive_timeout 0; }");
  ASSERT_TRUE(server.isRunning());
  expectRefused(server.secureURL("/file"), trusting(server));
}

INSTANTIATE_TEST_SUITE_P(WhateverTheSetting, BodiesWithoutLengthOverHTTPS, testing::Bool());

TEST(KivRESTServiceNginx, ARedirectFromHTTPToHTTPSIsFollowed) {
  NginxServer server;
  ASSERT_TRUE(server.isRunning());
  server.addFile("file", "contents");
  LoopbackServer plain;
  plain.serve("/a", Response::redirect(302, server.secureURL("/file")));
  KivRESTService client(trusting(server));
  const Load load(client, plain.url("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.body(), "contents") << load.message();
}

TEST(KivRESTServiceNginx, ARedirectFromHTTPSToHTTPIsRefused) {
  LoopbackServer plain;
  plain.serve("/file", Response::ok("contents"));
  NginxServer server("location /a { return 302 " + plain.url("/file") + "; }");
  ASSERT_TRUE(server.isRunning());
  KivRESTService client(trusting(server));
  const Load load(client, server.secureURL("/a"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.errorCode(), codeOf(Code::refusedRedirect)) << load.message();
  EXPECT_TRUE(plain.requests().empty());
}

TEST(KivRESTServiceNginx, ARedirectOverHTTPSBackToHTTPIsRefusedInAChainToo) {
  LoopbackServer plain;
  plain.serve("/file", Response::ok("contents"));
  NginxServer server("location /a { return 302 " + plain.url("/file") + "; }");
  ASSERT_TRUE(server.isRunning());
  plain.serve("/start", Response::redirect(302, server.secureURL("/a")));
  KivRESTService client(trusting(server));
  const Load load(client, plain.url("/start"));
  ASSERT_TRUE(load.waitForEnd());
  EXPECT_EQ(load.errorCode(), codeOf(Code::refusedRedirect)) << load.message();
  EXPECT_TRUE(plain.requests("/file").empty());
}

}  // namespace
