// The permissions of the files that a pass creates, and the secrecy of credentials in server URLs.
// Uses the real client, the real storage and a server on the loopback interface.

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/KivResourceStorageModule.h"
#include "Tests/KivResource/RealClientFixture.h"
#include "Tests/Support/RangeServer.h"
#include "Tests/Support/Umask.h"
#include "Tests/Support/ZipBuilder.h"

namespace {

namespace fs = std::filesystem;
using namespace kiv::test;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class KivResourceManagerAccessTest : public RealClientFixture {
 protected:
  /// Loads a small file, a file that passes through the spool, and an archive whose entries have
  /// all permission bits set.
  void loadOneOfEach() {
    server.serve("/a.png", Response::ok("banner"));
    server.serve("/large.png", Response::ok(patternedBytes(2'000'000)));
    server.serve("/promo.zip", Response::ok(ZipBuilder()
                                                .add({.name = "index.html", .mode = 0104777})
                                                .add({.name = "css/", .mode = 0042777})
                                                .add({.name = "css/a.css", .mode = 0100777})
                                                .build()));
    update({banner("a", 1, "a.png"), banner("large", 1, "large.png"), page("p", 1, "promo.zip")});
    ASSERT_EQ(registry().size(), 3U);
  }

  /// Interrupts a large download, so that a part of it stays in the spool.
  void breakALargeFileOff() {
    const std::string body = patternedBytes(3'000'000);
    server.serve("/v.mp4", [body](const Request& request) {
      return rangeResponse(request, body, "\"1\"").stallAt(2'000'000);
    });
    beginUpdate({page("v", 1, "v.mp4")});
    ASSERT_TRUE(waitUntil([&] {
      std::error_code none;
      const auto parts = filesIn(spool(), ".part");
      return parts.size() == 1 && fs::file_size(parts.front(), none) == 2'000'000;
    }));
  }

  static std::vector<fs::path> filesIn(const std::string& directory, const std::string& extension) {
    std::vector<fs::path> paths;
    std::error_code none;
    for (const auto& item : fs::directory_iterator(directory, none))
      if (item.path().extension() == extension) paths.push_back(item.path());
    return paths;
  }

  /// The mode of every item under the root, by its relative path.
  [[nodiscard]] std::map<std::string, mode_t> modes() const {
    std::map<std::string, mode_t> modes;
    for (const auto& item : fs::recursive_directory_iterator(root()))
      modes[fs::relative(item.path(), root()).string()] = modeOf(item.path());
    return modes;
  }

  static std::string spool() { return KivResourceStorageModule::spoolDirectoryPath(); }
  [[nodiscard]] std::string temporaries() const { return root() + "/.KivStorageService"; }
};

class KivResourceManagerUmaskTest : public KivResourceManagerAccessTest,
                                    public testing::WithParamInterface<mode_t> {};

TEST_P(KivResourceManagerUmaskTest, WhatIsPrivateIsItsOwnersAndOthersWriteNowhere) {
  const Umask umask(GetParam());
  loadOneOfEach();
  breakALargeFileOff();
  const mode_t file = 0664 & ~GetParam();
  const mode_t directory = 0775 & ~GetParam();
  EXPECT_EQ(modeOf(root()), directory);
  for (const auto& [path, mode] : modes()) {
    const bool isDirectory = fs::is_directory(root() + "/" + path);
    const bool isPrivate = path.starts_with(".Kiv") || path.starts_with("KivResource/resources_");
    const mode_t expected =
        isDirectory ? (isPrivate ? 0700 : directory) : (isPrivate ? 0600 : file);
    EXPECT_EQ(mode, expected) << path;
  }
  manager->stopLoading();
}

INSTANTIATE_TEST_SUITE_P(Of, KivResourceManagerUmaskTest,
                         testing::Values(0000, 0002, 0022, 0027, 0077),
                         [](const auto& test) { return std::to_string(test.param); });

TEST_F(KivResourceManagerAccessTest, WhatAnOlderVersionLeftOpenIsMadePrivateAtTheNextStart) {
  loadOneOfEach();
  KivStorageService::setRootPath("");
  fs::create_directories(temporaries());
  fs::create_directories(root() + "/.KivRESTService");
  write(listPath() + ".lock", "");
  const std::string aside = root() + "/KivResource/resources_config.unreadable-3.json";
  write(aside, "{");
  for (const auto& path : {temporaries(), root() + "/.KivRESTService"})
    ::chmod(path.c_str(), 0777);
  for (const auto& path : {listPath(), listPath() + ".lock", aside})
    ::chmod(path.c_str(), 0666);

  KivStorageService::setRootPath(root());
  useServer(server.url());
  EXPECT_EQ(registry().size(), 3U);
  EXPECT_EQ(modeOf(temporaries()), 0700);
  EXPECT_EQ(modeOf(listPath()), 0600);
  EXPECT_EQ(modeOf(aside), 0600);
  server.serve("/b.png", Response::ok("banner"));
  update({banner("b", 1, "b.png")});
  EXPECT_EQ(modeOf(spool()), 0700);
  EXPECT_EQ(modeOf(listPath() + ".lock"), 0600);
}

TEST_F(KivResourceManagerAccessTest, AListIsPrivateWhenItIsSetAside) {
  loadOneOfEach();
  write(listPath(), "no JSON");
  useServer(server.url());
  ::chmod(listPath().c_str(), 0666);
  server.serve("/b.png", Response::ok("banner"));
  update({banner("b", 1, "b.png")});
  const auto lists = KivResourceStorageModule::setAsideResourcesLists();
  ASSERT_EQ(lists.size(), 1U);
  EXPECT_EQ(modeOf(lists.front()), 0600);
  EXPECT_EQ(modeOf(listPath()), 0600);
}

// --- Credentials in URLs ---

/// The server's URL with a user name and a password.
std::string urlWithSecrets(const LoopbackServer& server) {
  std::string url = server.url();
  return url.insert(url.find("://") + 3, "someuser:somepassword@");
}

void expectNoSecret(const std::string& text) {
  EXPECT_THAT(text, Not(HasSubstr("someuser")));
  EXPECT_THAT(text, Not(HasSubstr("somepassword")));
}

TEST_F(KivResourceManagerAccessTest, TheRecordOfAPartHoldsNoURL) {
  useServer(urlWithSecrets(server));
  breakALargeFileOff();
  manager->stopLoading();
  ASSERT_TRUE(server.waitForNoConnection());
  const auto records = filesIn(spool(), ".json");
  ASSERT_EQ(records.size(), 1U);
  const std::string record = read(records.front());
  expectNoSecret(record);
  EXPECT_THAT(record, Not(HasSubstr("http:")));
  EXPECT_THAT(record, HasSubstr("entityTag")) << "a record all the same";
}

TEST_F(KivResourceManagerAccessTest, AFileWithSecretsInItsURLIsResumed) {
  const std::string body = patternedBytes(3'000'000);
  useServer(urlWithSecrets(server));
  breakALargeFileOff();
  manager->stopLoading();
  ASSERT_TRUE(server.waitForNoConnection());
  server.serve("/v.mp4",
               [body](const Request& request) { return rangeResponse(request, body, "\"1\""); });
  useServer(urlWithSecrets(server));
  update({page("v", 1, "v.mp4")});
  EXPECT_EQ(server.requests("/v.mp4").back().header("Range"), "bytes=2000000-");
  EXPECT_TRUE(read(stored("v.mp4")) == body);
}

TEST_F(KivResourceManagerAccessTest, NoLineOfTheLogAndNoErrorHoldsUserAndPassword) {
  useServer(urlWithSecrets(server));
  server.serve("/gone.png", Response::status(404));
  server.serve("/moved.png", Response::status(302).header("Location", "ftp://u:somepassword@a/"));
  server.serve("/mad.png", Response::ok("x").header("Content-Length", "5"));
  server.serve("/plain.png", Response::ok("banner"));
  update({banner("a", 1, "gone.png"), banner("b", 1, "moved.png"), banner("c", 1, "mad.png"),
          banner("d", 1, "plain.png")});
  EXPECT_THAT(log.lines(), Not(IsEmpty()));
  for (const std::string& line : log.lines())
    expectNoSecret(line);
  ASSERT_EQ(observer->failures.size(), 3U);
  for (const auto& failure : observer->failures)
    expectNoSecret(failure.error.value().description());
}

}  // namespace
