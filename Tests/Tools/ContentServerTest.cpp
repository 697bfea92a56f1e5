#include <chrono>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>
#include <httplib.h>

#include "Tests/Support/TemporaryDirectory.h"
#include "Tools/contentserver/ContentServer.h"

namespace {

namespace fs = std::filesystem;

class ContentServerTest : public testing::Test {
 protected:
  void SetUp() override {
    folder_.write("content/banners/wide.png", wide_);
    folder_.write("secret.txt", "not for you");
    server_ = std::make_unique<kiv::ContentServer>(folder_.path("content"));
    ASSERT_TRUE(server_->start());
  }

  [[nodiscard]] httplib::Client client() const { return httplib::Client(server_->url()); }
  [[nodiscard]] int status(const std::string& path) const {
    const auto result = client().Get(path);
    return result ? result->status : -1;
  }

  const std::string wide_ = std::string(200'000, 'w') + "end";
  const kiv::test::TemporaryDirectory folder_;
  std::unique_ptr<kiv::ContentServer> server_;
};

TEST_F(ContentServerTest, ServesTheFileWithItsType) {
  const auto result = client().Get("/banners/wide.png");
  ASSERT_TRUE(result);
  EXPECT_EQ(result->status, 200);
  EXPECT_EQ(result->body, wide_);
  EXPECT_EQ(result->get_header_value("Content-Type"), "image/png");
  EXPECT_EQ(result->get_header_value("Content-Length"), std::to_string(wide_.size()));
}

TEST_F(ContentServerTest, ServesAnEmptyFileAsNoBytes) {
  folder_.write("content/empty.html", "");
  const auto result = client().Get("/empty.html");
  ASSERT_TRUE(result);
  EXPECT_EQ(result->status, 200);
  EXPECT_EQ(result->body, "");
}

TEST_F(ContentServerTest, FilesHaveValidatorsThatChangeWithThem) {
  const auto first = client().Get("/banners/wide.png");
  const auto same = client().Get("/banners/wide.png");
  ASSERT_TRUE(first && same);
  const std::string tag = first->get_header_value("ETag");
  EXPECT_TRUE(std::regex_match(tag, std::regex("\"[0-9a-f]+-[0-9a-f]+\""))) << tag;
  EXPECT_EQ(same->get_header_value("ETag"), tag);
  fs::last_write_time(folder_.path("content/banners/wide.png"),
                      fs::file_time_type::clock::now() - std::chrono::hours(1));
  const auto touched = client().Get("/banners/wide.png");
  ASSERT_TRUE(touched);
  EXPECT_NE(touched->get_header_value("ETag"), tag);
  EXPECT_NE(touched->get_header_value("Last-Modified"), first->get_header_value("Last-Modified"));
}

TEST_F(ContentServerTest, TheDateIsThatOfTheFileAsHTTPWritesIt) {
  const timespec time{784111777, 0};
  const timespec times[2] = {time, time};
  ASSERT_EQ(::utimensat(AT_FDCWD, folder_.path("content/banners/wide.png").c_str(), times, 0), 0);
  const auto result = client().Head("/banners/wide.png");
  ASSERT_TRUE(result);
  EXPECT_EQ(result->get_header_value("Last-Modified"), "Sun, 06 Nov 1994 08:49:37 GMT");
}

TEST_F(ContentServerTest, ARangeGoesWithTheVersionThatItBelongsTo) {
  const auto head = client().Head("/banners/wide.png");
  ASSERT_TRUE(head);
  const auto get = [&](const std::string& ifRange) {
    return client().Get("/banners/wide.png",
                        {httplib::make_range_header({{200'000, -1}}), {"If-Range", ifRange}});
  };
  for (const char* name : {"ETag", "Last-Modified"}) {
    const auto rest = get(head->get_header_value(name));
    ASSERT_TRUE(rest) << name;
    EXPECT_EQ(rest->status, 206) << name;
    EXPECT_EQ(rest->body, "end") << name;
  }
  for (const std::string& other :
       {std::string("\"other\""), "W/" + head->get_header_value("ETag")}) {
    const auto whole = get(other);
    ASSERT_TRUE(whole) << other;
    EXPECT_EQ(whole->status, 200) << other;
    EXPECT_EQ(whole->body, wide_) << other;
  }
}

TEST_F(ContentServerTest, AConditionalRequestForTheSameVersionGetsNoBody) {
  const auto head = client().Head("/banners/wide.png");
  ASSERT_TRUE(head);
  const std::string tag = head->get_header_value("ETag");
  const std::string date = head->get_header_value("Last-Modified");
  const std::string older = "Sun, 06 Nov 1994 08:49:37 GMT";
  const auto statusWith = [&](const httplib::Headers& headers) {
    const auto result = client().Get("/banners/wide.png", headers);
    if (!result) return -1;
    EXPECT_EQ(result->body, result->status == 304 ? "" : wide_);
    EXPECT_EQ(result->get_header_value("ETag"), tag);
    return result->status;
  };
  EXPECT_EQ(statusWith({{"If-None-Match", tag}}), 304);
  EXPECT_EQ(statusWith({{"If-None-Match", "\"other\", W/" + tag}}), 304);
  EXPECT_EQ(statusWith({{"If-None-Match", "*"}}), 304);
  EXPECT_EQ(statusWith({{"If-Modified-Since", date}}), 304);
  EXPECT_EQ(statusWith({{"If-None-Match", "\"other\""}}), 200);
  EXPECT_EQ(statusWith({{"If-Modified-Since", older}}), 200);
  EXPECT_EQ(statusWith({{"If-None-Match", "\"other\""}, {"If-Modified-Since", date}}), 200);
  server_->failWithStatus("/banners/wide.png", 503);
  const auto failing = client().Get("/banners/wide.png", {{"If-None-Match", tag}});
  ASSERT_TRUE(failing);
  EXPECT_EQ(failing->status, 503);
}

TEST_F(ContentServerTest, AnswersHeadWithoutABody) {
  const auto result = client().Head("/banners/wide.png");
  ASSERT_TRUE(result);
  EXPECT_EQ(result->status, 200);
  EXPECT_EQ(result->body, "");
}

TEST_F(ContentServerTest, ServesAByteRange) {
  const auto result =
      client().Get("/banners/wide.png", {httplib::make_range_header({{200'000, -1}})});
  ASSERT_TRUE(result);
  EXPECT_EQ(result->status, 206);
  EXPECT_EQ(result->body, "end");
}

TEST_F(ContentServerTest, AnswersNotFoundForWhatIsNoFile) {
  EXPECT_EQ(status("/banners/none.png"), 404);
  EXPECT_EQ(status("/banners"), 404);
  EXPECT_EQ(status("/"), 404);
}

TEST_F(ContentServerTest, AnswersAnotherMethodWithAnError) {
  const auto result = client().Post("/banners/wide.png", "text", "text/plain");
  ASSERT_TRUE(result);
  EXPECT_EQ(result->status, 405);
}

TEST_F(ContentServerTest, NothingOutsideTheDirectoryIsServed) {
  fs::create_symlink(folder_.path("secret.txt"), folder_.path("content/link.txt"));
  fs::create_directory_symlink(folder_.path(), folder_.path("content/folder"));
  folder_.write("content-of-others/secret.txt", "not for you");
  const std::vector<std::string> paths{"/../secret.txt",
                                       "/%2e%2e/secret.txt",
                                       "/..%2fsecret.txt",
                                       "/banners/../../secret.txt",
                                       "/../content-of-others/secret.txt",
                                       "//" + folder_.path("secret.txt"),
                                       "/%2f" + folder_.path("secret.txt"),
                                       "/link.txt",
                                       "/folder/secret.txt",
                                       "/banners/wide.png%00.txt"};
  for (const auto& path : paths)
    EXPECT_EQ(status(path), 404) << path;
  EXPECT_EQ(status("/banners/../banners/wide.png"), 200);
}

TEST_F(ContentServerTest, FailsWithAStatusUntilHealed) {
  server_->failWithStatus("/banners/wide.png", 503);
  EXPECT_EQ(status("/banners/wide.png"), 503);
  server_->heal("/banners/wide.png");
  EXPECT_EQ(status("/banners/wide.png"), 200);
}

TEST_F(ContentServerTest, BreaksOffInTheMiddle) {
  server_->breakOff("/banners/wide.png");
  std::size_t received = 0;
  const auto result = client().Get("/banners/wide.png", [&](const char*, std::size_t length) {
    received += length;
    return true;
  });
  EXPECT_FALSE(result);
  EXPECT_EQ(received, wide_.size() / 2);
}

TEST_F(ContentServerTest, BreaksOffAnEmptyFileToo) {
  folder_.write("content/empty.html", "");
  server_->breakOff("/empty.html");
  EXPECT_FALSE(client().Get("/empty.html"));
}

TEST_F(ContentServerTest, CountsRequestsByPath) {
  EXPECT_EQ(server_->requestCount(), 0U);
  (void)status("/banners/wide.png");
  (void)status("/banners/wide.png");
  (void)status("/none");
  EXPECT_EQ(server_->requestCount("/banners/wide.png"), 2U);
  EXPECT_EQ(server_->requestCount("/none"), 1U);
  EXPECT_EQ(server_->requestCount("/never"), 0U);
  EXPECT_EQ(server_->requestCount(), 3U);
}

TEST_F(ContentServerTest, RefusesConnectionsWhenStoppedAndStartsAgain) {
  server_->stop();
  EXPECT_EQ(status("/banners/wide.png"), -1);
  server_->stop();
  ASSERT_TRUE(server_->start());
  EXPECT_EQ(status("/banners/wide.png"), 200);
}

TEST_F(ContentServerTest, StopsAtOnceAfterTheStart) {
  for (int round = 0; round < 50; ++round) {
    ASSERT_TRUE(server_->start());
    server_->stop();
  }
}

TEST_F(ContentServerTest, DoesNotStartForAMissingDirectory) {
  kiv::ContentServer server(folder_.path("none"));
  std::error_code error;
  EXPECT_FALSE(server.start(0, &error));
  EXPECT_EQ(error, std::errc::not_a_directory);
  EXPECT_EQ(server.url(), "");
  kiv::ContentServer file(folder_.path("secret.txt"));
  EXPECT_FALSE(file.start());
}

TEST_F(ContentServerTest, DoesNotStartOnATakenPort) {
  const std::string url = server_->url();
  kiv::ContentServer second(folder_.path("content"));
  std::error_code error;
  EXPECT_FALSE(second.start(std::stoi(url.substr(url.rfind(':') + 1)), &error));
  EXPECT_EQ(error, std::errc::address_in_use);
}

}  // namespace
