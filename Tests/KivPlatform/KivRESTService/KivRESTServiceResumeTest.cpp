// The received part of a large body is not fetched again and is never combined with another
// version.

#include <cerrno>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tests/KivPlatform/KivRESTService/ClientFixture.h"
#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/NginxServer.h"
#include "Tests/Support/RangeServer.h"

namespace {

using namespace kiv::test;
using Code = KivRESTServiceErrorCode;
using Ranges = std::vector<std::string>;

class KivRESTServiceResume : public ClientFixture {
 protected:
  KivRESTServiceResume() { spool(); }

  /// Serves the file with that entity tag. The nth response is cut off after cuts[n] bytes of its
  /// body.
  void serve(std::vector<std::size_t> cuts, const std::string& tag = "\"a\"") {
    auto count = std::make_shared<std::atomic<std::size_t>>(0);
    server_.serve("/a", [this, cuts, tag, count](const Request& request) {
      auto response = rangeResponse(request, body_, tag);
      const std::size_t number = (*count)++;
      if (number < cuts.size()) response.closeAt(cuts[number]);
      return response;
    });
  }

  /// The Range headers of all requests; "" if there was none.
  [[nodiscard]] Ranges ranges() const {
    Ranges ranges;
    for (const auto& request : server_.requests("/a"))
      ranges.push_back(request.header("Range").value_or(""));
    return ranges;
  }

  /// The file name extensions in the spool directory, sorted.
  [[nodiscard]] std::vector<std::string> spooled() const {
    std::vector<std::string> names;
    if (!std::filesystem::exists(settings_.spoolDirectory)) return names;
    for (const auto& item : std::filesystem::directory_iterator(settings_.spoolDirectory))
      names.push_back(item.path().extension().string());
    std::sort(names.begin(), names.end());
    return names;
  }

  /// Makes a download fail that leaves a part of that many bytes.
  void leavePart(std::size_t size, const std::string& tag = "\"a\"") {
    server_.serve("/a", Response::ok(body_).header("ETag", tag).closeAt(size));
    const auto settings = settings_;
    settings_.triesPerServer = settings_.triesInAll = 1;
    ASSERT_EQ(loaded().errorCode(), codeOf(Code::connectionLost));
    endClient();
    settings_ = settings;
    ASSERT_EQ(spooled(), (std::vector<std::string>{".json", ".part"}));
    former_ = server_.requests("/a").size();
  }

  /// The Range headers of the requests since leavePart().
  [[nodiscard]] Ranges laterRanges() const {
    const auto all = ranges();
    return {all.begin() + static_cast<std::ptrdiff_t>(former_), all.end()};
  }

  void expectWhole(const Load& load, const std::string& body) {
    EXPECT_EQ(load.status(), 200) << load.message();
    EXPECT_EQ(load.errorCode(), 0);
    EXPECT_TRUE(load.body() == body) << load.body().size() << " bytes";
  }

  const std::string body_ = patternedBytes(100'000);
  std::size_t former_ = 0;
};

TEST_F(KivRESTServiceResume, ABodyThatBreaksIsGoneOnWith) {
  serve({60'000});
  const Load load = loaded();
  expectWhole(load, body_);
  EXPECT_EQ(ranges(), (Ranges{"", "bytes=60000-"}));
  EXPECT_EQ(server_.requests("/a").back().header("If-Range"), "\"a\"");
  EXPECT_EQ(load.task()->metrics().resumedBytes, 60'000);
  EXPECT_EQ(load.task()->metrics().bytes, 100'000);
}

TEST_F(KivRESTServiceResume, WhatComesAfterItAsksForTheWhole) {
  serve({60'000});
  server_.serve("/b", Response::ok("b"));
  ASSERT_TRUE(loaded().hasEnded());
  const Load next = loaded(url("/b"));
  expectWhole(next, "b");
  const auto requests = server_.requests("/b");
  ASSERT_EQ(requests.size(), 1U);
  EXPECT_FALSE(requests.front().header("Range"));
  EXPECT_FALSE(requests.front().header("If-Range"));
}

TEST_F(KivRESTServiceResume, EachTryAddsToWhatIsThere) {
  serve({10'000, 10'000, 10'000, 10'000, 10'000});
  expectWhole(loaded(), body_);
  EXPECT_EQ(ranges(), (Ranges{"", "bytes=10000-", "bytes=20000-", "bytes=30000-", "bytes=40000-",
                              "bytes=50000-"}));
}

TEST_F(KivRESTServiceResume, TenTriesAreTheEnd) {
  serve(std::vector<std::size_t>(50, 5'000));
  const Load load = loaded();
  EXPECT_EQ(load.errorCode(), codeOf(Code::connectionLost));
  EXPECT_FALSE(load.hasBody());
  EXPECT_EQ(ranges().size(), 10U);
}

TEST_F(KivRESTServiceResume, TriesWithoutProgressAreSpent) {
  serve({10'000, 0, 0, 0, 0});
  EXPECT_EQ(loaded().errorCode(), codeOf(Code::connectionLost));
  EXPECT_EQ(ranges(), (Ranges{"", "bytes=10000-", "", ""}));
}

TEST_F(KivRESTServiceResume, AnotherVersionStartsOver) {
  leavePart(60'000);
  const std::string other = patternedBytes(90'000, 77);
  server_.serve("/a",
                [&](const Request& request) { return rangeResponse(request, other, "\"b\""); });
  const Load load = loaded();
  expectWhole(load, other);
  EXPECT_EQ(laterRanges(), (Ranges{"bytes=60000-"}));
  EXPECT_EQ(load.task()->metrics().resumedBytes, 0);
}

/// Faulty responses to range requests, after which the client requests the whole body.
class DeniedRanges : public KivRESTServiceResume, public testing::WithParamInterface<const char*> {
 protected:
  static Response denial(const std::string& other) {
    const std::string sort = GetParam();
    auto rest = Response::status(206, other.substr(sort == "OtherPlace" ? 50'000 : 60'000));
    const auto ranged = [&](const char* range) { return rest.header("Content-Range", range); };
    if (sort == "NotSatisfiable") return Response::status(416);
    if (sort == "OtherTag") return ranged("bytes 60000-99999/100000").header("ETag", "\"b\"");
    if (sort == "OtherPlace") return ranged("bytes 50000-99999/100000");
    if (sort == "OtherLength") return ranged("bytes 60000-99999/100001");
    if (sort == "UnknownLength") return ranged("bytes 60000-99999/*");
    return sort == "NoPlace" ? rest : ranged("nonsense");
  }
};

TEST_P(DeniedRanges, StartOver) {
  leavePart(60'000);
  const std::string other = patternedBytes(100'000, 77);
  server_.serve("/a", [&](const Request& request) {
    return request.header("Range") ? denial(other) : rangeResponse(request, other, "\"b\"");
  });
  settings_.triesPerServer = 1;
  const Load load = loaded();
  expectWhole(load, other);
  EXPECT_EQ(laterRanges(), (Ranges{"bytes=60000-", ""}));
  EXPECT_EQ(load.task()->metrics().failedTries.size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(All, DeniedRanges,
                         testing::Values("NotSatisfiable", "OtherTag", "OtherPlace", "OtherLength",
                                         "UnknownLength", "NoPlace", "Nonsense"),
                         [](const auto& sort) { return std::string(sort.param); });

TEST_F(KivRESTServiceResume, AServerThatNeverGivesTheRestOfAFileIsNotAskedForEver) {
  leavePart(60'000);
  server_.serve("/a", Response::status(416));
  EXPECT_EQ(loaded().status(), 416);
  EXPECT_EQ(laterRanges(), (Ranges{"bytes=60000-", ""}));
}

TEST_F(KivRESTServiceResume, OfABodyThatIsTooLargeNothingIsKept) {
  server_.serve("/a", Response::ok(body_).header("ETag", "\"a\"").chunked());
  settings_.largestBody = 50'000;
  EXPECT_EQ(loaded().errorCode(), codeOf(Code::bodyTooLarge));
  EXPECT_EQ(ranges().size(), 1U);
  EXPECT_TRUE(spooled().empty());
}

TEST_F(KivRESTServiceResume, WithoutAVersionTheBodyStartsOver) {
  server_.serve("/a", {Response::ok(body_).closeAt(60'000), Response::ok(body_)});
  expectWhole(loaded(), body_);
  EXPECT_EQ(ranges(), (Ranges{"", ""}));
}

TEST_F(KivRESTServiceResume, ADateTellsTheVersionToo) {
  const std::string date = "Wed, 01 Jan 2025 00:00:00 GMT";
  server_.serve("/a", [&](const Request& request) {
    return rangeResponse(request, body_, date).header("Last-Modified", date).closeAt(60'000);
  });
  settings_.triesInAll = 2;
  const Load load = loaded();
  EXPECT_EQ(ranges(), (Ranges{"", "bytes=60000-"}));
  EXPECT_EQ(server_.requests("/a").back().header("If-Range"), date);
  expectWhole(load, body_);
}

/// Faulty responses to range requests, from servers that answer plain requests correctly.
struct BrokenRange {
  const char* name;
  Response response;
};

void PrintTo(const BrokenRange& range, std::ostream* out) {
  *out << range.name;
}

/// The correct response for the range from byte 60,000; the cases below add faults.
Response rest() {
  return Response::status(206, patternedBytes(100'000).substr(60'000))
      .header("Content-Range", "bytes 60000-99999/100000")
      .header("ETag", "\"a\"");
}

std::vector<BrokenRange> brokenRanges() {
  static const RefusingServer dead;
  const std::string head = "HTTP/1.1 206 Partial\r\nContent-Range: bytes 60000-99999/100000\r\n";
  return {
      {"BadRequest", Response::status(400)},
      {"Forbidden", Response::status(403)},
      {"NotFound", Response::status(404)},
      {"ServerError", Response::status(500)},
      {"Unavailable", Response::status(503).header("Retry-After", "0")},
      {"AnotherStatus", Response::status(299)},
      {"ClosedWithoutAByte", Response::nothing()},
      {"ResetWithoutAByte", Response::nothing().resetAt(0)},
      {"Silent", Response::nothing().stallAt(0)},
      {"ClosedInHeaders", Response::raw(head)},
      {"SilentInHeaders", Response::raw(head + "X").stallAt(head.size())},
      {"ClosedAfterHeaders", rest().closeAt(0)},
      {"ResetAfterHeaders", rest().resetAt(0)},
      {"SilentAfterHeaders", rest().stallAt(0)},
      {"Garbage", Response::raw("here you are")},
      {"TwoLengths", rest().header("Content-Length", "39999")},
      {"NoChunks", Response::raw(head + "Transfer-Encoding: chunked\r\n\r\nxyz\r\n")},
      {"GarbageAfterAChunk",
       Response::raw(head + "Transfer-Encoding: chunked\r\n\r\n3\r\nxxx\r\nxyz\r\n")},
      {"MoreThanTheRest", Response::status(206, std::string(50'000, 'x'))
                              .chunked()
                              .header("Content-Range", "bytes 60000-99999/100000")},
      {"ContentCoding", rest().header("Content-Encoding", "gzip")},
      {"OtherTransferCoding", rest().withoutLength().header("Transfer-Encoding", "gzip")},
      {"RedirectToNothing", Response::redirect(302, "/b")},
      {"RedirectToADeadServer", Response::redirect(302, dead.url("/a"))},
      {"RedirectToAnotherScheme", Response::redirect(302, "ftp://127.0.0.1/a")},
  };
}

class BrokenRanges : public KivRESTServiceResume, public testing::WithParamInterface<BrokenRange> {
 protected:
  void breakRanges() {
    settings_.stallTimeout = std::chrono::seconds(1);
    leavePart(60'000);
    server_.serve("/a", [this](const Request& request) {
      return request.header("Range") ? GetParam().response : rangeResponse(request, body_, "\"a\"");
    });
  }
};

TEST_P(BrokenRanges, AreFollowedByARequestForTheWhole) {
  breakRanges();
  settings_.triesPerServer = 1;
  const Load load = loaded();
  expectWhole(load, body_);
  EXPECT_EQ(laterRanges(), (Ranges{"bytes=60000-", ""}));
  EXPECT_EQ(load.task()->metrics().failedTries.size(), 1U);
  EXPECT_EQ(load.completions(), 1);
}

TEST_P(BrokenRanges, AreFollowedByItInTheNextPassWhereNoTryIsLeft) {
  breakRanges();
  settings_.triesInAll = 1;
  EXPECT_FALSE(loaded().hasBody());
  endClient();
  expectWhole(loaded(), body_);
  EXPECT_EQ(laterRanges(), (Ranges{"bytes=60000-", ""}));
}

INSTANTIATE_TEST_SUITE_P(All, BrokenRanges, testing::ValuesIn(brokenRanges()),
                         [](const auto& range) { return std::string(range.param.name); });

TEST_F(KivRESTServiceResume, ARestThatComesInPartIsGoneOnWith) {
  leavePart(60'000);
  serve({1});
  expectWhole(loaded(), body_);
  EXPECT_EQ(laterRanges(), (Ranges{"bytes=60000-", "bytes=60001-"}));
}

TEST_F(KivRESTServiceResume, APartOutlivesAServerThatIsDown) {
  leavePart(60'000);
  server_.serve("/a", Response::status(503));
  EXPECT_EQ(loaded().status(), 503);
  endClient();
  EXPECT_EQ(spooled(), (std::vector<std::string>{".json", ".part"}));
  former_ = server_.requests("/a").size();
  serve({});
  const Load load = loaded();
  expectWhole(load, body_);
  EXPECT_EQ(laterRanges(), (Ranges{"bytes=60000-"}));
  EXPECT_EQ(load.task()->metrics().resumedBytes, 60'000);
}

/// The server cannot be reached because the proxy cannot be reached.
class OutOfReach : public KivRESTServiceResume {
 protected:
  void expectThatThePartStays(const std::string& proxy, Code expected) {
    leavePart(60'000);
    settings_.proxy = proxy;
    EXPECT_EQ(loaded().errorCode(), codeOf(expected));
    endClient();
    settings_.proxy.reset();
    serve({});
    expectWhole(loaded(), body_);
    EXPECT_EQ(laterRanges(), (Ranges{"bytes=60000-"}));
  }
};

TEST_F(OutOfReach, ARefusedConnectionLeavesThePart) {
  const RefusingServer proxy;
  expectThatThePartStays(proxy.url(), Code::cannotConnect);
}

TEST_F(OutOfReach, ANameThatIsNotFoundLeavesThePart) {
  expectThatThePartStays("http://no-such-host.invalid:1", Code::cannotResolveHost);
}

TEST_F(OutOfReach, AHandshakeThatFailsLeavesThePart) {
  const NginxServer proxy;
  expectThatThePartStays(proxy.secureURL(), Code::secureConnectionFailed);
}

TEST_F(KivRESTServiceResume, OfAPartThatIsWholeTheLastByteIsAskedFor) {
  leavePart(60'000);
  // Complete the part, as if the process was killed before it stored the file.
  for (const auto& item : std::filesystem::directory_iterator(settings_.spoolDirectory)) {
    if (item.path().extension() != ".part") continue;
    std::ofstream(item.path(), std::ios::app | std::ios::binary) << body_.substr(60'000);
  }
  serve({});
  expectWhole(loaded(), body_);
  EXPECT_EQ(laterRanges(), (Ranges{"bytes=99999-"}));
}

TEST_F(KivRESTServiceResume, ABodyFromElsewhereIsNotGoneOnWith) {
  server_.serve("/b", [&](const Request& request) {
    return rangeResponse(request, body_, "\"a\"").closeAt(60'000);
  });
  const std::string other = patternedBytes(100'000, 77);
  server_.serve("/c",
                [&](const Request& request) { return rangeResponse(request, other, "\"a\""); });
  auto count = std::make_shared<std::atomic<int>>(0);
  server_.serve("/a", [count](const Request&) {
    return Response::redirect(302, (*count)++ == 0 ? "/b" : "/c");
  });
  const Load load = loaded();
  expectWhole(load, other);
}

TEST_F(KivRESTServiceResume, AMirrorIsAskedForTheWhole) {
  server_.serve("/a", [&](const Request& request) {
    return rangeResponse(request, body_, "\"a\"").closeAt(60'000);
  });
  const std::string other = patternedBytes(100'000, 77);
  mirror_.serve("/a",
                [&](const Request& request) { return rangeResponse(request, other, "\"a\""); });
  {
    const Load load = loaded(urls());
    ASSERT_EQ(mirror_.requests("/a").size(), 1U);
    EXPECT_FALSE(mirror_.requests("/a").front().header("Range"));
    expectWhole(load, other);
    EXPECT_EQ(load.task()->metrics().server->absoluteString(), mirror_.url("/a"));
  }
  client().cancelAllTasks();
}

TEST_F(KivRESTServiceResume, ACancelledBodyIsGoneOnWithLater) {
  const Gate gate;
  server_.serve("/a", Response::ok(body_).header("ETag", "\"a\"").gateAt(60'000, gate));
  {
    client().setProgressHandler([](const KivRESTServiceProgress&) {});
    const Load load(client(), url());
    ASSERT_TRUE(waitUntil([&] { return load.task()->progress().bytesReceived == 60'000; }));
    client().cancelAllTasks();
    EXPECT_FALSE(load.hasEnded());
    endClient();
  }
  gate.open();
  EXPECT_EQ(spooled(), (std::vector<std::string>{".json", ".part"}));
  former_ = 1;
  serve({});
  expectWhole(loaded(), body_);
  EXPECT_EQ(laterRanges(), (Ranges{"bytes=60000-"}));
}

TEST_F(KivRESTServiceResume, NothingStaysOfAFileThatCame) {
  serve({60'000});
  {
    const Load load = loaded();
    EXPECT_EQ(spooled(), (std::vector<std::string>{".json", ".lock", ".part"}));
    expectWhole(load, body_);
  }
  EXPECT_TRUE(spooled().empty());
}

TEST_F(KivRESTServiceResume, SmallBodiesNeverTouchTheDisk) {
  server_.serve("/a", Response::ok(std::string(1000, 'x')).header("ETag", "\"a\""));
  EXPECT_EQ(loaded().body().size(), 1000U);
  EXPECT_FALSE(std::filesystem::exists(settings_.spoolDirectory));
}

TEST_F(KivRESTServiceResume, ABodyOfUnknownLengthMovesToTheDiskWhenItIsLarge) {
  server_.serve("/a", Response::ok(body_).chunked());
  const Load load = loaded();
  expectWhole(load, body_);
  EXPECT_TRUE(load.task()->returnedData()->takeFile());
}

TEST_F(KivRESTServiceResume, WithoutASpoolDirectoryLargeBodiesStayInMemory) {
  server_.serve("/a", {Response::ok(body_).header("ETag", "\"a\"").closeAt(60'000),
                       Response::ok(body_).header("ETag", "\"a\"")});
  settings_.spoolDirectory.clear();
  const Load load = loaded();
  expectWhole(load, body_);
  EXPECT_EQ(ranges(), (Ranges{"", ""}));
  EXPECT_FALSE(load.task()->returnedData()->takeFile());
}

TEST_F(KivRESTServiceResume, TwoClientsDoNotShareAPart) {
  const Gate gate;
  server_.serve("/a", Response::ok(body_).header("ETag", "\"a\"").gateAt(60'000, gate));
  KivRESTService one(settings_);
  KivRESTService other(settings_);
  const Load first(one, url());
  const Load second(other, url());
  ASSERT_TRUE(server_.waitForRequests("/a", 2));
  gate.open();
  ASSERT_TRUE(first.waitForEnd() && second.waitForEnd());
  expectWhole(first, body_);
  expectWhole(second, body_);
}

/// The disk is full at one of the operations.
class FullDisk : public KivRESTServiceResume, public testing::WithParamInterface<FileOperation> {};

TEST_P(FullDisk, EndsTheTaskAndIsNotTriedAgain) {
  serve({});
  FaultyFileManager files;
  KivRESTService client(settings_);
  files.setFailingOperation(GetParam(), ENOSPC);
  const Load load(client, url());
  ASSERT_TRUE(load.waitForEnd());
  files.clearFailingOperation();
  EXPECT_EQ(load.errorCode(), codeOf(Code::outOfResources));
  EXPECT_NE(load.message().find("No space left on device"), std::string::npos) << load.message();
  EXPECT_EQ(ranges().size(), 1U);
  EXPECT_TRUE(spooled().empty()) << "what takes up the disk goes";
}

TEST_F(KivRESTServiceResume, ARestForWhichTheDiskHasNoRoomIsNotAskedForAgain) {
  leavePart(60'000);
  serve({});
  FaultyFileManager files;
  KivRESTService client(settings_);
  files.setFailingOperation(FileOperation::write, ENOSPC);
  const Load load(client, url());
  ASSERT_TRUE(load.waitForEnd());
  files.clearFailingOperation();
  EXPECT_EQ(load.errorCode(), codeOf(Code::outOfResources));
  EXPECT_EQ(laterRanges(), (Ranges{"bytes=60000-"}));
  EXPECT_TRUE(spooled().empty());
}

INSTANTIATE_TEST_SUITE_P(All, FullDisk,
                         testing::Values(FileOperation::createDirectory, FileOperation::lock,
                                         FileOperation::createFile, FileOperation::write,
                                         FileOperation::close, FileOperation::map),
                         [](const auto& operation) { return nameOf(operation.param); });

}  // namespace
