#include <cerrno>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/maintenance/KivResourceMaintenance.h"
#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/ManagerFixture.h"
#include "Tests/Support/RemovalGuard.h"
#include "Tests/Support/ZipBuilder.h"

namespace kiv::test {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

class KivResourceArchiveRemovalTest : public ManagerFixture {
 protected:
  KivResourceArchiveRemovalTest() {
    write(stored("promo/a.css"), "a");
    write(stored("promo/index.html"), "page");
  }

  [[nodiscard]] Names removals() const {
    Names paths;
    for (const auto& operation : files_.operations()) {
      if (operation.kind == FileOperation::remove) paths.push_back(operation.path);
    }
    return paths;
  }

  /// Expects that the directory is moved to the temporary directory in one rename and removed
  /// there.
  void expectTheWholeGoesAtOnce() const {
    Names moves;
    for (const auto& operation : files_.operations()) {
      if (operation.kind == FileOperation::withdraw && operation.path == stored("promo")) {
        moves.push_back(operation.newPath);
      }
    }
    ASSERT_THAT(moves, ElementsAre(StartsWith(KivStorageService::temporariesPath() + "/")));
    EXPECT_THAT(removals(), ElementsAre(moves.front()));
    EXPECT_FALSE(exists(moves.front()));
    EXPECT_FALSE(exists(stored("promo")));
  }

  void expectThePageGoesFirst() const {
    EXPECT_THAT(removals(), ElementsAre(stored("promo/index.html"), stored("promo")));
    EXPECT_FALSE(exists(stored("promo")));
  }

  void expectTheWholeArchive() const {
    EXPECT_EQ(read(stored("promo/index.html")), "page");
    EXPECT_EQ(read(stored("promo/a.css")), "a");
  }

  FaultyFileManager files_;
};

// Regression test: if the archive is removed file by file, a kill during the removal leaves the
// other files for good.
TEST_F(KivResourceArchiveRemovalTest, AReplacedArchiveGoesAtOnce) {
  std::optional<Error> error;
  KivResourceStorageModule::removeResourceFileWithPath_error(stored("promo/index.html"), &error);
  EXPECT_FALSE(error);
  expectTheWholeGoesAtOnce();
}

TEST_F(KivResourceArchiveRemovalTest, AnOrphanedArchiveGoesAtOnce) {
  EXPECT_TRUE(
      KivResourceMaintenance::cleanUpOrphans(*manager, KivResourceMaintenance::Mode::remove));
  expectTheWholeGoesAtOnce();
}

TEST_F(KivResourceArchiveRemovalTest, UnderAGuardOfTheRootItDoesToo) {
  const RemovalGuard guard({root()});
  KivResourceStorageModule::removeResourceFileWithPath_error(stored("promo/index.html"));
  expectTheWholeGoesAtOnce();
}

TEST_F(KivResourceArchiveRemovalTest, WhatCannotBeRemovedThereIsAnErrorAndGoesLater) {
  files_.setFailingOperation(FileOperation::remove, EIO);
  std::optional<Error> error;
  KivResourceStorageModule::removeResourceFileWithPath_error(stored("promo/index.html"), &error);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, EIO);
  EXPECT_FALSE(exists(stored("promo")));
  const std::string left = removals().back();
  EXPECT_TRUE(exists(left));
  files_.clearFailingOperation();
  KivStorageService::setRootPath("");
  KivStorageService::setRootPath(root());
  EXPECT_FALSE(exists(left));
}

TEST_F(KivResourceArchiveRemovalTest, WhatAKilledHostLeftThereGoesAtTheNextStart) {
  KivStorageService::setRootPath("");
  const pid_t host = fork();
  if (host == 0) {
    KivStorageService::setRootPath(root());
    FileManager::setRemovalRoots({{root()}});
    _exit(KivStorageService::withdrawDirectoryAtPath(stored("promo")) ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(host, &status, 0), host);
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(exists(stored("promo")));
  const std::string temporaries = root() + "/.KivStorageService";
  EXPECT_FALSE(std::filesystem::is_empty(temporaries));
  KivStorageService::setRootPath(root());
  EXPECT_TRUE(std::filesystem::is_empty(temporaries));
}

// Regression test: in any other order, a kill during the removal leaves a page that is found by its
// name and considered complete.
TEST_F(KivResourceArchiveRemovalTest, WhereItCannotGoAtOnceThePageGoesFirst) {
  files_.setFailingOperation(FileOperation::withdraw, EXDEV);
  KivResourceStorageModule::removeResourceFileWithPath_error(stored("promo/index.html"));
  expectThePageGoesFirst();
}

TEST_F(KivResourceArchiveRemovalTest, SoItDoesWhereTheGuardNamesTheResourcesAlone) {
  const RemovalGuard guard({stored("")});
  KivResourceStorageModule::removeResourceFileWithPath_error(stored("promo/index.html"));
  expectThePageGoesFirst();
}

TEST_F(KivResourceArchiveRemovalTest, AnArchiveOutsideTheGuardStaysWhereItIs) {
  const RemovalGuard guard({KivStorageService::temporariesPath()});
  std::optional<Error> error;
  KivResourceStorageModule::removeResourceFileWithPath_error(stored("promo/index.html"), &error);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, FileManagerErrorDomain);
  expectTheWholeArchive();
}

TEST_F(KivResourceArchiveRemovalTest, ADirectoryThatHoldsTheRootIsNotMovedIntoIt) {
  const UnguardedRemovals unguarded;
  write(root() + "/index.html", "page");
  KivResourceStorageModule::removeResourceFileWithPath_error(root() + "/index.html");
  EXPECT_FALSE(exists(root()));
}

TEST_F(KivResourceArchiveRemovalTest, AnArchiveWhosePageStaysKeepsItsOtherFiles) {
  const RemovalGuard guard({stored("")});
  files_.setFailingOperation(FileOperation::remove, EIO);
  std::optional<Error> error;
  KivResourceStorageModule::removeResourceFileWithPath_error(stored("promo/index.html"), &error);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, EIO);
  EXPECT_THAT(removals(), ElementsAre(stored("promo/index.html")));
  expectTheWholeArchive();
}

TEST_F(KivResourceArchiveRemovalTest, OfALinkToAnArchiveOnlyTheLinkGoes) {
  std::filesystem::create_directory_symlink(stored("promo"), stored("link"));
  KivResourceStorageModule::removeResourceFileWithPath_error(stored("link/index.html"));
  EXPECT_FALSE(exists(stored("link")));
  expectTheWholeArchive();
}

TEST_F(KivResourceArchiveRemovalTest, WhatIsLeftOfAnArchiveIsFoundByNoNameAndReplaced) {
  std::filesystem::remove(stored("promo/index.html"));
  EXPECT_EQ(KivResourceStorageModule::pathToResourceFileWithName("promo.zip"), std::nullopt);
  beginLoad({page("p", 1, "promo.zip")});
  EXPECT_TRUE(client->succeed("promo.zip", ZipBuilder().addFile("index.html", "new").build()));
  EXPECT_THAT(takeEvents(), ElementsAre("loaded p", "finished"));
  EXPECT_EQ(read(stored("promo/index.html")), "new");
  EXPECT_FALSE(exists(stored("promo/a.css")));
}

TEST_F(KivResourceArchiveRemovalTest, WhatIsLeftOfAnArchiveCanBeRemovedByItsPagesPath) {
  std::filesystem::remove(stored("promo/index.html"));
  KivResourceStorageModule::removeResourceFileWithPath_error(stored("promo/index.html"));
  EXPECT_FALSE(exists(stored("promo")));
}

}  // namespace
}  // namespace kiv::test
