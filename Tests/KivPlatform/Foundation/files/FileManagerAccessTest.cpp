// The permissions of files and directories that the file manager creates.

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Support/Umask.h"

namespace {

namespace fs = std::filesystem;
using kiv::FileManager;
using kiv::test::modeOf;
using kiv::test::Umask;

class FileManagerAccessTest : public testing::Test {
 protected:
  [[nodiscard]] std::string path(const std::string& name) const { return directory_.path(name); }
  std::string file(const std::string& name, mode_t mode) const {
    std::ofstream(path(name)) << "contents";
    ::chmod(path(name).c_str(), mode);
    return path(name);
  }
  std::string directory(const std::string& name, mode_t mode) const {
    fs::create_directory(path(name));
    ::chmod(path(name).c_str(), mode);
    return path(name);
  }

  kiv::test::TemporaryDirectory directory_;
  FileManager& manager_ = FileManager::defaultManager();
};

TEST_F(FileManagerAccessTest, WhatIsSharedFollowsTheUmaskButOthersNeverWrite) {
  struct {
    mode_t mask;
    mode_t fileMode;
    mode_t directoryMode;
  } const cases[] = {{0000, 0664, 0775},
                     {0002, 0664, 0775},
                     {0022, 0644, 0755},
                     {0027, 0640, 0750},
                     {0077, 0600, 0700}};
  for (const auto& each : cases) {
    const Umask umask(each.mask);
    const std::string name = std::to_string(each.mask);
    EXPECT_TRUE(manager_.createFileAtPath(path("file" + name)));
    EXPECT_TRUE(manager_.createDirectoryAtPath(path("directory" + name + "/deep")));
    EXPECT_EQ(modeOf(path("file" + name)), each.fileMode);
    EXPECT_EQ(modeOf(path("directory" + name)), each.directoryMode);
    EXPECT_EQ(modeOf(path("directory" + name + "/deep")), each.directoryMode);
  }
}

TEST_F(FileManagerAccessTest, WhatIsPrivateIsItsOwnersAloneWhateverTheUmask) {
  for (const mode_t mask : {0000U, 0022U, 0077U, 0277U, 0777U}) {
    const std::string name = std::to_string(mask);
    {
      const Umask umask(mask);
      EXPECT_TRUE(manager_.createPrivateFileAtPath(path("file" + name)));
      EXPECT_TRUE(manager_.lockFileAtPath(path("lock" + name)));
      EXPECT_TRUE(manager_.createPrivateDirectoryAtPath(path("directory" + name)));
    }
    EXPECT_EQ(modeOf(path("file" + name)), 0600);
    EXPECT_EQ(modeOf(path("lock" + name)), 0600);
    EXPECT_EQ(modeOf(path("directory" + name)), 0700);
  }
}

TEST_F(FileManagerAccessTest, OnlyThePrivateDirectoryItselfIsPrivate) {
  const Umask umask(0022);
  EXPECT_TRUE(manager_.createPrivateDirectoryAtPath(path("above/private/")));
  EXPECT_EQ(modeOf(path("above")), 0755);
  EXPECT_EQ(modeOf(path("above/private")), 0700);
}

TEST_F(FileManagerAccessTest, APrivateFileIsMadeOnlyWhereNothingLies) {
  const auto created = manager_.createPrivateFileAtPath(file("file", 0644));
  ASSERT_FALSE(created);
  EXPECT_EQ(created.error().code, EEXIST);
  EXPECT_EQ(modeOf(path("file")), 0644);
}

TEST_F(FileManagerAccessTest, WhatIsTooOpenIsMadePrivate) {
  EXPECT_TRUE(manager_.createPrivateDirectoryAtPath(directory("directory", 0777)));
  EXPECT_EQ(modeOf(path("directory")), 0700);
  EXPECT_TRUE(manager_.lockFileAtPath(file("lock", 0666)));
  EXPECT_EQ(modeOf(path("lock")), 0600);
  manager_.makePrivateItemAtPath(file("file", 0664));
  EXPECT_EQ(modeOf(path("file")), 0600);
  manager_.makePrivateItemAtPath(file("readOnly", 0444));
  EXPECT_EQ(modeOf(path("readOnly")), 0400) << "what its owner may not do stays so";
}

TEST_F(FileManagerAccessTest, WhatALinkLeadsToIsNotMadePrivate) {
  fs::create_symlink(file("file", 0644), path("toFile"));
  fs::create_directory_symlink(directory("directory", 0755), path("toDirectory"));
  manager_.makePrivateItemAtPath(path("toFile"));
  EXPECT_TRUE(manager_.createPrivateDirectoryAtPath(path("toDirectory")));
  EXPECT_EQ(modeOf(path("file")), 0644);
  EXPECT_EQ(modeOf(path("directory")), 0755);
}

TEST_F(FileManagerAccessTest, ADirectoryForEverybodysTemporaryFilesStaysSo) {
  manager_.makePrivateItemAtPath(directory("temporary", 01777));
  EXPECT_EQ(modeOf(path("temporary")), 01777);
}

TEST_F(FileManagerAccessTest, ATouchChangesTheTimeOfAFileAndNothingElse) {
  const std::string touched = file("file", 0640);
  const auto old = fs::file_time_type::clock::now() - std::chrono::hours(48);
  fs::last_write_time(touched, old);
  const auto before = manager_.identityOfFileAtPath(touched);
  ASSERT_TRUE(before);
  const auto status = manager_.touchFileAtPath(touched);
  EXPECT_TRUE(status);
  EXPECT_GT(fs::last_write_time(touched), old + std::chrono::hours(47));
  const auto after = manager_.identityOfFileAtPath(touched);
  ASSERT_TRUE(after);
  EXPECT_EQ(after->number, before->number);
  EXPECT_EQ(after->length, before->length);
  EXPECT_EQ(after->modified % 1'000'000'000, before->modified % 1'000'000'000);
  EXPECT_EQ(modeOf(touched), 0640);
}

TEST_F(FileManagerAccessTest, OnlyAFileIsTouched) {
  const auto old = fs::file_time_type::clock::now() - std::chrono::hours(48);
  const std::string target = file("file", 0640);
  fs::last_write_time(target, old);
  fs::create_symlink(target, path("link"));
  fs::create_symlink(path("nowhere"), path("broken"));
  directory("directory", 0700);
  for (const char* const name : {"link", "broken", "directory", "missing", "file/"}) {
    const auto status = manager_.touchFileAtPath(path(name));
    EXPECT_FALSE(status) << name;
  }
  EXPECT_FALSE(manager_.touchFileAtPath(std::string("\0", 1)));
  EXPECT_EQ(fs::last_write_time(target), old);
  EXPECT_FALSE(fs::exists(path("nowhere")));
  EXPECT_FALSE(fs::exists(path("missing")));
}

TEST_F(FileManagerAccessTest, RightsAreCopiedFromOneFileToAnother) {
  EXPECT_TRUE(manager_.copyAccessToFileAtPath_fromFileAtPath(file("to", 0600), file("from", 0640)));
  EXPECT_EQ(modeOf(path("to")), 0640);
  EXPECT_FALSE(manager_.copyAccessToFileAtPath_fromFileAtPath(path("to"), path("missing")));
  fs::create_symlink(path("to"), path("link"));
  EXPECT_FALSE(manager_.copyAccessToFileAtPath_fromFileAtPath(path("link"), file("open", 0664)));
  EXPECT_EQ(modeOf(path("to")), 0640);
}

}  // namespace
