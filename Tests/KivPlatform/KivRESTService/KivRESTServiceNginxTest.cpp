#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"
#include "Tests/Support/NginxServer.h"
#include "Tests/Support/OldSecureServer.h"
#include "Tests/Support/RangeServer.h"

namespace {

using namespace kiv::test;
using Code = KivRESTServiceErrorCode;

class KivRESTServiceNginx : public ClientFixture {
 protected:
  void trust(const NginxServer& server) {
    settings_.certificateAuthoritiesPath = server.certificatePath();
  }

  /// Loads the URL and expects that its certificate is rejected for that reason.
  void expectRefused(const std::string& url, const std::string& why) {
    expectRefused(url, url, why);
  }
  /// The same if the URL redirects to another one, which the message names.
  void expectRefused(const std::string& url, const std::string& named, const std::string& why) {
    const Load load = loaded(url);
    EXPECT_EQ(load.errorCode(), codeOf(Code::secureConnectionFailed)) << load.message();
    EXPECT_EQ(load.message(), "Could not load \"" + named + "\": " + why);
    EXPECT_FALSE(load.hasBody());
  }
};

/// The URL with a host that also reaches this machine but is not in the certificate.
std::string underAnotherName(std::string url) {
  return url.replace(url.find("127.0.0.1"), 9, "0.0.0.0");
}

TEST_F(KivRESTServiceNginx, LoadsFilesOfManySizesOverFewConnections) {
  NginxServer server;
  std::vector<std::string> files;
  for (std::size_t number = 0; number < 100; ++number) {
    files.emplace_back(number * number * number, static_cast<char>('a' + number % 26));
    server.addFile(std::to_string(number), files.back());
  }
  std::vector<Load> loads;
  for (std::size_t number = 0; number < files.size(); ++number) {
    loads.emplace_back(client(), server.url("/" + std::to_string(number)));
  }
  for (std::size_t number = 0; number < files.size(); ++number) {
    ASSERT_TRUE(loads[number].waitForEnd());
    EXPECT_EQ(loads[number].status(), 200) << loads[number].message();
    EXPECT_TRUE(loads[number].body() == files[number]) << number;
  }
  const auto log = server.stopAndTakeLog();
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 100);
}

TEST_F(KivRESTServiceNginx, StatusesAndRedirectsOfARealServer) {
  NginxServer server(
      "location /moved { return 301 /file; }\n"
      "location /empty { return 204; }\n"
      "location /down { return 503; }\n");
  server.addFile("file", "contents");
  const Load moved(client(), server.url("/moved"));
  const Load missing(client(), server.url("/missing"));
  const Load empty(client(), server.url("/empty"));
  const Load down(client(), {server.url("/down"), server.url("/file")});
  ASSERT_TRUE(moved.waitForEnd() && missing.waitForEnd() && empty.waitForEnd() &&
              down.waitForEnd());
  EXPECT_EQ(moved.body(), "contents");
  EXPECT_EQ(missing.status(), 404);
  EXPECT_EQ(empty.status(), 204);
  EXPECT_FALSE(empty.hasBody());
  EXPECT_EQ(down.body(), "contents");
}

TEST_F(KivRESTServiceNginx, LoadsOverHTTPSFromAServerThatItTrusts) {
  NginxServer server;
  server.addFile("file", std::string(1'000'000, 'x'));
  trust(server);
  for (int count = 0; count < 3; ++count) {
    const Load load = loaded(server.secureURL("/file"));
    EXPECT_EQ(load.body().size(), 1'000'000u) << load.message();
  }
}

TEST_F(KivRESTServiceNginx, ACertificateThatNobodyVouchesForIsRefused) {
  NginxServer server;
  server.addFile("file", "contents");
  expectRefused(server.secureURL("/file"),
                "the certificate of \"127.0.0.1\" is signed by itself, and not trusted here.");
  EXPECT_EQ(server.stopAndTakeLog(), "");
}

TEST_F(KivRESTServiceNginx, ACertificateThatHasExpiredIsRefused) {
  NginxServer server({}, SelfSignedCertificate::Validity::expired);
  server.addFile("file", "contents");
  trust(server);
  expectRefused(server.secureURL("/file"), "the certificate of \"127.0.0.1\" has expired.");
  EXPECT_EQ(server.stopAndTakeLog(), "");
}

/// Reading the system's authorities costs more than the handshake, so each thread does it once. The
/// file is removed here, so that a connection which reads it again fails.
TEST_F(KivRESTServiceNginx, FurtherConnectionsDoNotReadTheAuthoritiesAgain) {
  NginxServer server("keepalive_timeout 0;");
  server.addFile("file", "contents");
  const std::string authorities = directory_.path("authorities.pem");
  std::filesystem::copy_file(server.certificatePath(), authorities);
  settings_.certificateAuthoritiesPath = authorities;
  settings_.threads = 1;
  ASSERT_EQ(loaded(server.secureURL("/file")).body(), "contents");
  std::filesystem::remove(authorities);
  const Load load = loaded(server.secureURL("/file"));
  EXPECT_EQ(load.body(), "contents") << load.message();
}

TEST_F(KivRESTServiceNginx, ACertificateIsRefusedThoughTheClientTrustsAnotherServer) {
  NginxServer server("keepalive_timeout 0;");
  NginxServer other;
  server.addFile("file", "contents");
  other.addFile("file", "contents");
  trust(server);
  settings_.threads = 1;
  for (int count = 0; count < 2; ++count) {
    EXPECT_EQ(loaded(server.secureURL("/file")).body(), "contents");
    expectRefused(other.secureURL("/file"),
                  "the certificate of \"127.0.0.1\" is signed by itself, and not trusted here.");
  }
  EXPECT_EQ(other.stopAndTakeLog(), "");
}

TEST_F(KivRESTServiceNginx, HTTP2IsSpokenOverHTTPSOnly) {
  NginxServer server;
  server.addFile("file", std::string(100'000, 'x'));
  trust(server);
  {
    const Load load(client(), server.secureURL("/file"));
    const Load plain(client(), server.url("/file"));
    const Load missing(client(), server.secureURL("/missing"));
    ASSERT_TRUE(load.waitForEnd() && plain.waitForEnd() && missing.waitForEnd());
    EXPECT_EQ(load.body().size(), 100'000U) << load.message();
    EXPECT_EQ(plain.body().size(), 100'000U) << plain.message();
    EXPECT_EQ(missing.status(), 404) << missing.message();
  }
  endClient();
  const auto log = server.stopAndTakeLog();
  EXPECT_NE(log.find("GET /file 200 HTTP/2.0"), std::string::npos) << log;
  EXPECT_NE(log.find("GET /file 200 HTTP/1.1"), std::string::npos) << log;
}

TEST_F(KivRESTServiceNginx, RequestsThatShareAnHTTP2ConnectionAllSucceed) {
  NginxServer server("location /moved { rewrite ^/moved/(.*)$ /$1 redirect; }");
  std::vector<std::string> files;
  for (std::size_t number = 0; number < 60; ++number) {
    files.emplace_back(number * number * 100, static_cast<char>('a' + number % 26));
    server.addFile(std::to_string(number), files.back());
  }
  trust(server);
  settings_.threads = 1;
  settings_.parallelTransfers = settings_.parallelTransfersPerHost = 20;
  std::vector<Load> loads;
  for (std::size_t number = 0; number < files.size(); ++number) {
    const std::string path = (number % 2 == 0 ? "/moved/" : "/") + std::to_string(number);
    loads.emplace_back(client(), server.secureURL(path));
  }
  for (std::size_t number = 0; number < files.size(); ++number) {
    ASSERT_TRUE(loads[number].waitForEnd());
    EXPECT_EQ(loads[number].status(), 200) << loads[number].message();
    EXPECT_TRUE(loads[number].body() == files[number]) << number;
    EXPECT_EQ(loads[number].task()->metrics().tries, 1);
  }
  EXPECT_NE(server.stopAndTakeLog().find(" 200 HTTP/2.0"), std::string::npos);
}

/// More files than transfers, so that handles are reused while others use their connection.
TEST_F(KivRESTServiceNginx, ManyFilesOverHTTP2AllArrive) {
  NginxServer server;
  server.addFile("file", patternedBytes(50'000));
  trust(server);
  std::vector<Load> loads;
  for (std::size_t number = 0; number < 200; ++number)
    loads.emplace_back(client(), server.secureURL("/file?" + std::to_string(number)));
  for (const Load& load : loads) {
    ASSERT_TRUE(load.waitForEnd());
    EXPECT_TRUE(load.body() == patternedBytes(50'000)) << load.message();
    EXPECT_EQ(load.task()->metrics().tries, 1);
  }
  endClient();
  const auto log = server.stopAndTakeLog();
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 200);
  EXPECT_EQ(log.find("HTTP/1.1"), std::string::npos);
}

/// nginx announces it by GOAWAY, while requests are under way.
TEST_F(KivRESTServiceNginx, NoFileIsLostWhereHTTP2ConnectionsEndAfterSomeRequests) {
  NginxServer server("keepalive_requests 20;");
  server.addFile("file", patternedBytes(50'000));
  trust(server);
  const auto loads = makeLoads(client(), server.secureURL("/file"), 200);
  expectBodies(loads, patternedBytes(50'000));
  for (const Load& load : loads)
    EXPECT_EQ(load.task()->metrics().tries, 1);
}

TEST_F(KivRESTServiceNginx, HTTP2IsNotSpokenWhereTheHostDoesNotWantIt) {
  NginxServer server;
  server.addFile("file", "contents");
  trust(server);
  settings_.http2 = false;
  EXPECT_EQ(loaded(server.secureURL("/file")).body(), "contents");
  endClient();
  EXPECT_EQ(server.stopAndTakeLog().find("HTTP/2"), std::string::npos);
}

TEST_F(KivRESTServiceNginx, ARealServerGivesTheRestOfAFile) {
  NginxServer server("location /slow { alias root/file; limit_rate 1; limit_rate_after 600k; }");
  const std::string body = patternedBytes(1'000'000);
  server.addFile("file", body);
  spool();
  settings_.stallTimeout = std::chrono::seconds(1);
  settings_.stallSpeed = 100'000;
  settings_.triesInAll = 1;
  ASSERT_EQ(loaded(server.url("/slow")).errorCode(), codeOf(Code::timedOut));
  endClient();
  settings_.triesInAll = 10;
  const Load load = loaded(server.url("/slow"));
  EXPECT_TRUE(load.body() == body) << load.message();
  EXPECT_GE(load.task()->metrics().resumedBytes, 600'000);
}

TEST_F(KivRESTServiceNginx, ACertificateOfAnotherHostIsRefused) {
  NginxServer server;
  server.addFile("file", "contents");
  trust(server);
  expectRefused(underAnotherName(server.secureURL("/file")),
                "the server's certificate is not for \"0.0.0.0\".");
}

TEST_F(KivRESTServiceNginx, TheCertificateOfTheHostToWhichARedirectLeadsIsNamed) {
  NginxServer server;
  const auto target = underAnotherName(server.secureURL("/file"));
  server_.serve("/a", Response::redirect(302, target));
  trust(server);
  expectRefused(url(), target, "the server's certificate is not for \"0.0.0.0\".");
}

TEST_F(KivRESTServiceNginx, TheCertificateOfAProxyIsNotTakenForTheServers) {
  NginxServer proxy;
  settings_.proxy = proxy.secureURL();
  expectRefused("http://ads.invalid/a",
                "the certificate of the proxy is signed by itself, and not trusted here.");
}

/// A handle whose transfer failed because of a certificate is reused for a transfer that fails for
/// another reason.
TEST_F(KivRESTServiceNginx, TheNextErrorSaysNothingOfTheCertificate) {
  NginxServer server;
  const RefusingServer refusing;
  const Load first = loaded(server.secureURL("/file"));
  const Load second = loaded(refusing.url("/a"));
  EXPECT_EQ(second.message(),
            "Could not load \"" + refusing.url("/a") + "\": the server could not be reached.");
}

/// Bodies over https must declare their length: it is unknown here whether TLS was closed properly,
/// so a truncated body would look complete.
class BodiesWithoutLengthOverHTTPS : public KivRESTServiceNginx,
                                     public testing::WithParamInterface<bool> {
 protected:
  void expectRefused(const std::string& url) {
    settings_.takesBodiesWithoutLength = GetParam();
    const Load load = loaded(url);
    EXPECT_EQ(load.errorCode(), codeOf(Code::malformedResponse)) << load.message();
    EXPECT_FALSE(load.hasBody());
    EXPECT_NE(load.message().find("over https"), std::string::npos) << load.message();
  }
};

TEST_P(BodiesWithoutLengthOverHTTPS, AreRefusedOverHTTP10) {
  const OldSecureServer server;
  server.addFile("file", std::string(1000, 'x'));
  settings_.certificateAuthoritiesPath = server.certificatePath();
  expectRefused(server.url("/file"));
}

TEST_P(BodiesWithoutLengthOverHTTPS, AreRefusedOverHTTP11) {
  LoopbackServer old;
  old.serve("/file", Response::ok("12345").withoutLength().http10());
  NginxServer server("location / { proxy_pass " + old.url() +
                     "; chunked_transfer_encoding off; keepalive_timeout 0; }");
  trust(server);
  expectRefused(server.secureURL("/file"));
}

INSTANTIATE_TEST_SUITE_P(WhateverTheSetting, BodiesWithoutLengthOverHTTPS, testing::Bool());

TEST_F(KivRESTServiceNginx, ARedirectFromHTTPToHTTPSIsFollowed) {
  NginxServer server;
  server.addFile("file", "contents");
  server_.serve("/a", Response::redirect(302, server.secureURL("/file")));
  trust(server);
  const Load load = loaded(server_.url("/a"));
  EXPECT_EQ(load.body(), "contents") << load.message();
}

TEST_F(KivRESTServiceNginx, ARedirectFromHTTPSToHTTPIsRefused) {
  server_.serve("/file", Response::ok("contents"));
  NginxServer server("location /a { return 302 " + server_.url("/file") + "; }");
  trust(server);
  const Load load = loaded(server.secureURL("/a"));
  EXPECT_EQ(load.errorCode(), codeOf(Code::refusedRedirect)) << load.message();
  EXPECT_TRUE(server_.requests().empty());
}

TEST_F(KivRESTServiceNginx, ARedirectOverHTTPSBackToHTTPIsRefusedInAChainToo) {
  server_.serve("/file", Response::ok("contents"));
  NginxServer server("location /a { return 302 " + server_.url("/file") + "; }");
  server_.serve("/start", Response::redirect(302, server.secureURL("/a")));
  trust(server);
  const Load load = loaded(server_.url("/start"));
  EXPECT_EQ(load.errorCode(), codeOf(Code::refusedRedirect)) << load.message();
  EXPECT_TRUE(server_.requests("/file").empty());
}

}  // namespace
