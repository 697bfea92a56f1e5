#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "Tests/KivPlatform/KivStorageService/StorageServiceFixture.h"
#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/RemovalGuard.h"
#include "Tests/Support/WorkingDirectory.h"

namespace kiv::test {
namespace {

namespace fs = std::filesystem;
using Code = KivStorageServiceErrorCode;

class KivStorageServiceTest : public StorageServiceFixture {};

void expectOwnError(const std::optional<Error>& error, Code code) {
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, KivStorageServiceErrorDomain);
  EXPECT_EQ(error->code, static_cast<int>(code)) << error->localizedDescription();
}

TEST_F(KivStorageServiceTest, SavesAndLoadsAFileMakingTheDirectoriesAboveIt) {
  EXPECT_FALSE(save("a.png", "bytes"));
  EXPECT_EQ(tree(), (Tree{{"KivResource/", ""},
                          {"KivResource/Resources/", ""},
                          {"KivResource/Resources/a.png", "bytes"}}));
  const auto data = KivStorageService::loadDataForFileName_atRelativePath_error("a.png", resources);
  ASSERT_TRUE(data);
  EXPECT_EQ(data->view(), "bytes");
  EXPECT_TRUE(KivStorageService::fileExistsWithName_atRelativePath("a.png", resources));
}

TEST_F(KivStorageServiceTest, ReplacesAFile) {
  EXPECT_FALSE(save("a.png", "a long first version"));
  EXPECT_FALSE(save("a.png", "second"));
  EXPECT_EQ(contents("a.png"), "second");
}

TEST_F(KivStorageServiceTest, SavesAFileWithoutBytes) {
  EXPECT_FALSE(save("a.png", ""));
  EXPECT_EQ(contents("a.png"), "");
  EXPECT_TRUE(KivStorageService::fileExistsWithName_atRelativePath("a.png", resources));
}

TEST_F(KivStorageServiceTest, AFileThatHoldsTheBytesIsMovedAndNotCopied) {
  put(root() + "/spooled", "bytes");
  struct stat before {};
  ASSERT_EQ(::stat((root() + "/spooled").c_str(), &before), 0);
  const auto data = kiv::fileDataAtPath(root() + "/spooled");
  ASSERT_TRUE(data);
  FaultyFileManager files;
  EXPECT_TRUE(
      KivStorageService::saveData_forFileName_atRelativePath_error(*data, "a.png", resources));
  struct stat after {};
  ASSERT_EQ(::stat(stored("a.png").c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_FALSE(fs::exists(root() + "/spooled"));
  EXPECT_EQ(data->view(), "bytes");
  std::vector<FileOperation> kinds;
  for (const auto& operation : files.operations())
    kinds.push_back(operation.kind);
  EXPECT_EQ(std::count(kinds.begin(), kinds.end(), FileOperation::write), 0);
  const auto synced = std::find(kinds.begin(), kinds.end(), FileOperation::synchronize);
  ASSERT_NE(synced, kinds.end());
  EXPECT_NE(std::find(synced, kinds.end(), FileOperation::move), kinds.end())
      << "synced before it has its name";
}

TEST_F(KivStorageServiceTest, TheSameFileIsSavedAgainFromItsBytes) {
  put(root() + "/spooled", "bytes");
  const auto data = kiv::fileDataAtPath(root() + "/spooled");
  ASSERT_TRUE(data);
  for (const char* const name : {"a.png", "a.png", "b.png"}) {
    EXPECT_TRUE(
        KivStorageService::saveData_forFileName_atRelativePath_error(*data, name, resources));
    EXPECT_EQ(contents(name), "bytes");
  }
}

TEST_F(KivStorageServiceTest, AFileThatCannotBeMovedIsCopied) {
  put(root() + "/spooled", "bytes");
  const auto data = kiv::fileDataAtPath(root() + "/spooled");
  ASSERT_TRUE(data);
  FaultyFileManager files;
  files.setFault(FaultyFileManager::Fault{3, EXDEV});
  EXPECT_TRUE(
      KivStorageService::saveData_forFileName_atRelativePath_error(*data, "a.png", resources));
  EXPECT_EQ(contents("a.png"), "bytes");
}

TEST_F(KivStorageServiceTest, AnArchiveInAFileIsUnpackedAndTheFileGoes) {
  const test::UnguardedRemovals unguarded;
  put(root() + "/spooled", pageArchive("page"));
  {
    const auto data = kiv::fileDataAtPath(root() + "/spooled");
    ASSERT_TRUE(data);
    EXPECT_TRUE(KivStorageService::saveData_forFileName_atRelativePath_error(*data, "promo.zip",
                                                                             resources));
  }
  EXPECT_EQ(treeOf(root() + "/" + std::string(resources)), pageTree("page"));
  EXPECT_FALSE(fs::exists(root() + "/spooled"));
}

/// The number of syncs of the resources directory itself.
std::size_t syncsOfResources(const FaultyFileManager& files) {
  const auto operations = files.operations();
  return static_cast<std::size_t>(
      std::count_if(operations.begin(), operations.end(), [](const auto& operation) {
        return operation.kind == FileOperation::synchronizeDirectory &&
               operation.path.ends_with("/Resources");
      }));
}

TEST_F(KivStorageServiceTest, ABatchWaitsOnceForTheNamesOfAllItsFiles) {
  EXPECT_FALSE(save("first.png", "x"));  // creates the directories
  FaultyFileManager files;
  {
    KivStorageService::Batch outer;
    KivStorageService::Batch inner;
    for (const char* const name : {"a.png", "b.png", "c.png"}) {
      EXPECT_FALSE(save(name, "bytes"));
      EXPECT_EQ(contents(name), "bytes") << "complete at once";
    }
    EXPECT_TRUE(inner.end());
    EXPECT_EQ(syncsOfResources(files), 0U);
    EXPECT_TRUE(outer.end());
    EXPECT_EQ(syncsOfResources(files), 1U);
  }
  EXPECT_EQ(syncsOfResources(files), 1U);
  EXPECT_FALSE(save("d.png", "bytes"));
  EXPECT_EQ(syncsOfResources(files), 2U) << "outside of a batch each waits by itself";
}

TEST_F(KivStorageServiceTest, TheEndOfABatchTellsThatTheDiskFailed) {
  EXPECT_FALSE(save("first.png", "x"));
  FaultyFileManager files;
  KivStorageService::Batch batch;
  EXPECT_FALSE(save("a.png", "bytes"));
  files.setFailingOperation(FileOperation::synchronizeDirectory, EIO);
  std::optional<Error> error;
  EXPECT_FALSE(batch.end(&error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, EIO);
  EXPECT_EQ(contents("a.png"), "bytes");
}

TEST_F(KivStorageServiceTest, AfterABatchDirectoriesThatWereRemovedAreMadeAgain) {
  {
    KivStorageService::Batch batch;
    EXPECT_FALSE(save("a.png", "bytes"));
    EXPECT_FALSE(save("b.png", "bytes"));
  }
  std::filesystem::remove_all(root());
  KivStorageService::Batch batch;
  EXPECT_FALSE(save("c.png", "bytes"));
  EXPECT_EQ(contents("c.png"), "bytes");
}

TEST_F(KivStorageServiceTest, AFileWhoseDirectoryGoesDuringABatchFailsAndNoMore) {
  KivStorageService::Batch batch;
  EXPECT_FALSE(save("a.png", "bytes"));
  std::filesystem::remove_all(root());
  EXPECT_TRUE(save("b.png", "bytes"));
  (void)batch.end();
  EXPECT_FALSE(save("b.png", "bytes"));
  EXPECT_EQ(contents("b.png"), "bytes");
}

TEST_F(KivStorageServiceTest, ABatchWithoutFilesWaitsForNothing) {
  FaultyFileManager files;
  EXPECT_TRUE(KivStorageService::Batch().end());
  EXPECT_TRUE(files.operations().empty());
}

TEST_F(KivStorageServiceTest, SavesInTheRootItself) {
  EXPECT_TRUE(KivStorageService::saveData_forFileName_atRelativePath_error(Data("x"), "a", ""));
  EXPECT_EQ(tree(), (Tree{{"a", "x"}}));
  EXPECT_EQ(KivStorageService::filePathForFileName_atRelativePath("a", ""), root() + "/a");
}

TEST_F(KivStorageServiceTest, LoadingWhatIsMissingYieldsTheSystemsError) {
  std::optional<Error> error;
  EXPECT_FALSE(
      KivStorageService::loadDataForFileName_atRelativePath_error("a.png", resources, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, SystemErrorDomain);
  EXPECT_EQ(error->code, ENOENT);
  EXPECT_FALSE(KivStorageService::loadDataForFileName_atRelativePath_error("a.png", resources));
}

TEST_F(KivStorageServiceTest, LoadingADirectoryYieldsAnError) {
  fs::create_directories(stored("a.png"));
  std::optional<Error> error;
  EXPECT_FALSE(
      KivStorageService::loadDataForFileName_atRelativePath_error("a.png", resources, &error));
  EXPECT_TRUE(error);
}

TEST_F(KivStorageServiceTest, OnlyARegularFileCountsAsStored) {
  fs::create_directories(stored("directory"));
  ASSERT_EQ(mkfifo(stored("pipe").c_str(), 0600), 0);
  EXPECT_FALSE(KivStorageService::fileExistsWithName_atRelativePath("directory", resources));
  EXPECT_FALSE(KivStorageService::fileExistsWithName_atRelativePath("pipe", resources));
  EXPECT_FALSE(KivStorageService::fileExistsWithName_atRelativePath("missing", resources));
}

TEST_F(KivStorageServiceTest, TellsThePathOfAFileWhetherOrNotItIsThere) {
  EXPECT_EQ(KivStorageService::filePathForFileName_atRelativePath("a.png", resources),
            root() + "/KivResource/Resources/a.png");
}

TEST_F(KivStorageServiceTest, ReadingMakesNothing) {
  KivStorageService::fileExistsWithName_atRelativePath("a.png", resources);
  KivStorageService::loadDataForFileName_atRelativePath_error("a.png", resources);
  KivStorageService::filePathForFileName_atRelativePath("a.png", resources);
  EXPECT_EQ(treeOf(root()), Tree{});
}

TEST_F(KivStorageServiceTest, AFileHasOrdinaryPermissions) {
  const mode_t mask = umask(027);
  EXPECT_FALSE(save("a.png", "x"));
  EXPECT_FALSE(save("promo.zip", pageArchive("one")));
  umask(mask);
  struct stat status {};
  ASSERT_EQ(stat(stored("a.png").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, mode_t{0640});
  ASSERT_EQ(stat(stored("promo").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, mode_t{0750});
  ASSERT_EQ(stat(stored("promo/index.html").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, mode_t{0640});
}

struct NameCase {
  const char* title;
  std::string name;
};

constexpr auto titleOf = [](const auto& test) { return test.param.title; };

class UnusableName : public StorageServiceFixture, public testing::WithParamInterface<NameCase> {};

TEST_P(UnusableName, IsNeitherSavedNorFoundNorLoaded) {
  const std::string& name = GetParam().name;
  put(stored("index.html"), "kept");
  put(root() + "/KivResource/index.html", "kept");
  const Tree before = treeOf(scratch_.path());
  expectOwnError(save(name, "bytes"), Code::unusableName);
  expectOwnError(save(name, pageArchive("one")), Code::unusableName);
  EXPECT_FALSE(
      KivStorageService::saveData_forFileName_atRelativePath_error(Data("x"), name, resources));
  EXPECT_EQ(treeOf(scratch_.path()), before);
  if (!name.ends_with(".zip")) {
    EXPECT_FALSE(KivStorageService::fileExistsWithName_atRelativePath(name, resources));
    std::optional<Error> error;
    EXPECT_FALSE(
        KivStorageService::loadDataForFileName_atRelativePath_error(name, resources, &error));
    expectOwnError(error, Code::unusableName);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Names, UnusableName,
    testing::Values(NameCase{"Empty", ""}, NameCase{"Dot", "."}, NameCase{"DotDot", ".."},
                    NameCase{"Separator", "a/b"}, NameCase{"Up", "../a"},
                    NameCase{"Absolute", "/etc/passwd"}, NameCase{"Backslash", "a\\b"},
                    NameCase{"NUL", std::string("a\0b", 3)},
                    NameCase{"NULAtTheEnd", std::string("a\0", 2)},
                    NameCase{"TooLong", std::string(256, 'a')},
                    NameCase{"TooLongArchive", std::string(252, 'a') + ".zip"},
                    NameCase{"ArchiveWithoutStem", ".zip"}, NameCase{"ArchiveOfDot", "..zip"},
                    NameCase{"ArchiveOfDotDot", "...zip"}),
    titleOf);

TEST_F(KivStorageServiceTest, TheErrorOfAnUnusableNameNamesIt) {
  const auto error = save("...zip", "x");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->localizedDescription(),
            "The archive name \"...zip\" cannot be used: it would be unpacked in \"..\", which "
            "names a directory.");
}

class UnusableDirectory : public StorageServiceFixture,
                          public testing::WithParamInterface<NameCase> {};

TEST_P(UnusableDirectory, IsNeitherWrittenNorReadIn) {
  const std::string& directory = GetParam().name;
  put(stored("a"), "kept");
  const Tree before = treeOf(scratch_.path());
  std::optional<Error> error;
  EXPECT_FALSE(KivStorageService::saveData_forFileName_atRelativePath_error(Data("x"), "a",
                                                                            directory, &error));
  expectOwnError(error, Code::unusableName);
  EXPECT_FALSE(KivStorageService::fileExistsWithName_atRelativePath("a", directory));
  EXPECT_FALSE(KivStorageService::loadDataForFileName_atRelativePath_error("a", directory));
  EXPECT_EQ(treeOf(scratch_.path()), before);
}

INSTANTIATE_TEST_SUITE_P(
    Directories, UnusableDirectory,
    testing::Values(NameCase{"DotDot", ".."}, NameCase{"Up", "KivResource/../.."},
                    NameCase{"Absolute", "/KivResource/Resources"},
                    NameCase{"Dot", "KivResource/./Resources"},
                    NameCase{"EmptyStemAtTheEnd", "KivResource/Resources/"},
                    NameCase{"EmptyPart", "KivResource//Resources"},
                    NameCase{"NUL", std::string("KivResource\0/Resources", 22)},
                    NameCase{"Private", ".KivStorageService"},
                    NameCase{"InPrivate", ".KivStorageService/a"}),
    titleOf);

TEST_F(KivStorageServiceTest, TheServicesOwnDirectoryIsNoFileName) {
  for (const std::string name : {".KivStorageService", ".KivStorageService.zip"}) {
    std::optional<Error> error;
    EXPECT_FALSE(KivStorageService::saveData_forFileName_atRelativePath_error(
        Data(pageArchive("one")), name, "", &error));
    expectOwnError(error, Code::unusableName);
  }
  EXPECT_EQ(treeOf(root()), Tree{});
}

TEST_F(KivStorageServiceTest, StoresNamesOf255Bytes) {
  const std::string name(255, 'n');
  EXPECT_FALSE(save(name, "bytes"));
  EXPECT_EQ(contents(name), "bytes");
  EXPECT_FALSE(save(name, "replaced"));
  EXPECT_EQ(contents(name), "replaced");
  const std::string stem(251, 's');
  EXPECT_FALSE(save(stem + ".zip", pageArchive("one")));
  EXPECT_FALSE(save(stem + ".zip", pageArchive("two")));
  EXPECT_EQ(contents(stem + "/index.html"), "two");
}

TEST_F(KivStorageServiceTest, ADirectoryInTheWayOfAFileIsAnErrorAndStays) {
  put(stored("a.png/inside"), "kept");
  const Tree before = treeOf(root());
  const auto error = save("a.png", "x");
  expectOwnError(error, Code::nameIsTaken);
  EXPECT_EQ(error->localizedDescription(),
            "The name \"a.png\" is taken by something that is not a file.");
  EXPECT_EQ(treeOf(root()), before);
}

TEST_F(KivStorageServiceTest, APipeInTheWayOfAFileIsAnErrorAndStays) {
  fs::create_directories(stored(""));
  ASSERT_EQ(mkfifo(stored("a.png").c_str(), 0600), 0);
  expectOwnError(save("a.png", "x"), Code::nameIsTaken);
  EXPECT_TRUE(fs::is_fifo(stored("a.png")));
}

TEST_F(KivStorageServiceTest, AFileInTheWayOfAnArchivesDirectoryIsAnErrorAndStays) {
  put(stored("promo"), "kept");
  const Tree before = treeOf(root());
  expectOwnError(save("promo.zip", pageArchive("one")), Code::nameIsTaken);
  EXPECT_EQ(treeOf(root()), before);
}

TEST_F(KivStorageServiceTest, ALinkUnderTheNameOfAFileIsReplacedNotFollowed) {
  put(scratch_.path("outside"), "kept");
  fs::create_directories(stored(""));
  fs::create_symlink(scratch_.path("outside"), stored("a.png"));
  fs::create_symlink(scratch_.path("nowhere"), stored("b.png"));
  EXPECT_FALSE(save("a.png", "new"));
  EXPECT_FALSE(save("b.png", "new"));
  EXPECT_EQ(contents("a.png"), "new");
  EXPECT_EQ(contents("b.png"), "new");
  EXPECT_EQ(treeOf(scratch_.path()).at("outside"), "kept");
  EXPECT_FALSE(fs::exists(scratch_.path("nowhere")));
}

TEST_F(KivStorageServiceTest, ALinkUnderTheNameOfAnArchivesDirectoryIsReplacedNotFollowed) {
  put(scratch_.path("outside/index.html"), "kept");
  fs::create_directories(stored(""));
  fs::create_directory_symlink(scratch_.path("outside"), stored("promo"));
  EXPECT_FALSE(save("promo.zip", pageArchive("one")));
  EXPECT_EQ(treeOf(stored("")), pageTree("one"));
  EXPECT_EQ(treeOf(scratch_.path("outside")), (Tree{{"index.html", "kept"}}));
  restart();
  EXPECT_EQ(temporaries(), Tree{});
}

TEST_F(KivStorageServiceTest, AMissingRootIsMade) {
  KivStorageService::setRootPath(scratch_.path("deep/er/root/"));
  EXPECT_EQ(KivStorageService::rootPath(), scratch_.path("deep/er/root"));
  EXPECT_FALSE(save("a.png", "x"));
  EXPECT_TRUE(KivStorageService::fileExistsWithName_atRelativePath("a.png", resources));
}

TEST_F(KivStorageServiceTest, ARootThatWasDeletedWhileInUseIsMadeAnew) {
  EXPECT_FALSE(save("a.png", "x"));
  fs::remove_all(root());
  EXPECT_FALSE(KivStorageService::fileExistsWithName_atRelativePath("a.png", resources));
  EXPECT_FALSE(save("a.png", "y"));
  EXPECT_FALSE(save("promo.zip", pageArchive("one")));
  EXPECT_EQ(contents("a.png"), "y");
  restart();
  EXPECT_EQ(temporaries(), Tree{});
}

TEST_F(KivStorageServiceTest, ATemporaryDirectoryThatWasDeletedWhileInUseIsMadeAnew) {
  EXPECT_FALSE(save("a.png", "x"));
  fs::remove_all(root() + "/.KivStorageService");
  EXPECT_FALSE(save("a.png", "y"));
  EXPECT_EQ(contents("a.png"), "y");
}

TEST_F(KivStorageServiceTest, ARootThatIsAFileFailsWithTheSystemsError) {
  put(scratch_.path("file"), "kept");
  KivStorageService::setRootPath(scratch_.path("file"));
  const auto error = save("a.png", "x");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, SystemErrorDomain);
  EXPECT_EQ(treeOf(scratch_.path()).at("file"), "kept");
}

TEST_F(KivStorageServiceTest, ARootThatCannotBeWrittenFailsWithTheSystemsError) {
  FaultyFileManager files;
  files.setFault(FaultyFileManager::Fault{
      .at = 1, .number = EACCES, .repeat = FaultyFileManager::Repeat::fromThenOn});
  const auto error = save("a.png", "x");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, SystemErrorDomain);
  EXPECT_EQ(error->code, EACCES);
  EXPECT_EQ(treeOf(root()), Tree{});
}

TEST_F(KivStorageServiceTest, WithoutARootEverythingFails) {
  KivStorageService::setRootPath("");
  EXPECT_EQ(KivStorageService::rootPath(), "");
  expectOwnError(save("a.png", "x"), Code::noRoot);
  EXPECT_FALSE(KivStorageService::fileExistsWithName_atRelativePath("a.png", resources));
  std::optional<Error> error;
  EXPECT_FALSE(
      KivStorageService::loadDataForFileName_atRelativePath_error("a.png", resources, &error));
  expectOwnError(error, Code::noRoot);
}

TEST_F(KivStorageServiceTest, ARelativeRootIsTakenFromTheDirectoryThatIsCurrentWhenItIsNamed) {
  const fs::path scratch = fs::canonical(scratch_.path());
  {
    const test::WorkingDirectory working(scratch.string());
    KivStorageService::setRootPath("some/./cache/");
  }
  EXPECT_EQ(KivStorageService::rootPath(), scratch / "some/./cache");
  EXPECT_FALSE(save("a.png", "x"));
  EXPECT_TRUE(fs::exists(scratch / "some/cache" / resources / "a.png"));
}

TEST_F(KivStorageServiceTest, TheDefaultRootIsTheProgramsDirectoryAmongTheUsersData) {
  setenv("XDG_DATA_HOME", scratch_.path("data").c_str(), 1);
  KivStorageService::setRootPath(std::nullopt);
  const fs::path root = KivStorageService::rootPath();
  unsetenv("XDG_DATA_HOME");
  EXPECT_TRUE(root.is_absolute());
#if !defined(__APPLE__)
  EXPECT_EQ(root.parent_path(), scratch_.path("data"));
#endif
  EXPECT_EQ(root.filename(), "KivResourceTests");
  EXPECT_FALSE(fs::exists(scratch_.path("data")));
}

TEST_F(KivStorageServiceTest, TheRootMayLieInTheUsersCacheDirectory) {
  setenv("XDG_CACHE_HOME", scratch_.path("cache").c_str(), 1);
  EXPECT_TRUE(KivStorageService::setRootPathInUserCache("app"));
  const fs::path named = KivStorageService::rootPath();
  EXPECT_TRUE(KivStorageService::setRootPathInUserCache());
  const fs::path program = KivStorageService::rootPath();
  for (const std::string name : {"", ".", "..", "a/b", "/a"}) {
    EXPECT_FALSE(KivStorageService::setRootPathInUserCache(name)) << name;
    EXPECT_EQ(KivStorageService::rootPath(), program);
  }
  unsetenv("XDG_CACHE_HOME");
  EXPECT_EQ(named.filename(), "app");
  EXPECT_EQ(program.filename(), "KivResourceTests");
  EXPECT_EQ(named.parent_path(), program.parent_path());
#if !defined(__APPLE__)
  EXPECT_EQ(named.parent_path(), scratch_.path("cache"));
#endif
}

TEST_F(KivStorageServiceTest, NothingOfASaveStaysAmongTheTemporaries) {
  EXPECT_FALSE(save("a.png", "x"));
  EXPECT_FALSE(save("promo.zip", pageArchive("one")));
  EXPECT_FALSE(save("promo.zip", pageArchive("two")));
  EXPECT_TRUE(save("promo.zip", "no archive"));
  const Tree left = temporaries();
  ASSERT_EQ(left.size(), 2U) << "the process's directory and its lock";
  EXPECT_TRUE(left.begin()->first.ends_with(".lock") || left.begin()->first.ends_with("/"));
  KivStorageService::setRootPath("");
  EXPECT_EQ(temporaries(), Tree{});
}

TEST_F(KivStorageServiceTest, WhatDeadProcessesLeftIsSweptAtTheStart) {
  EXPECT_FALSE(save("a.png", "x"));
  KivStorageService::setRootPath("");
  put(root() + "/.KivStorageService/dead/7", "half");
  put(root() + "/.KivStorageService/dead/8/index.html", "half");
  put(root() + "/.KivStorageService/dead.lock", "");
  put(root() + "/.KivStorageService/unlocked/1", "half");
  put(root() + "/.KivStorageService/lonely.lock", "");
  KivStorageService::setRootPath(root());
  EXPECT_EQ(temporaries(), Tree{});
  EXPECT_EQ(contents("a.png"), "x");
}

TEST_F(KivStorageServiceTest, TheSweepFollowsNoLink) {
  put(scratch_.path("outside/kept"), "kept");
  fs::create_directories(root() + "/.KivStorageService");
  fs::create_directory_symlink(scratch_.path("outside"), root() + "/.KivStorageService/link");
  restart();
  EXPECT_EQ(temporaries(), Tree{});
  EXPECT_EQ(treeOf(scratch_.path("outside")), (Tree{{"kept", "kept"}}));
  fs::remove(root() + "/.KivStorageService");
  fs::create_directory_symlink(scratch_.path("outside"), root() + "/.KivStorageService");
  restart();
  EXPECT_EQ(treeOf(scratch_.path("outside")), (Tree{{"kept", "kept"}}));
}

TEST_F(KivStorageServiceTest, DataReachesTheDiskBeforeItsNameAndTheNameBeforeTheReturn) {
  FaultyFileManager files;
  EXPECT_FALSE(save("a.png", "first"));
  files.setFault(std::nullopt);
  EXPECT_FALSE(save("a.png", "second"));
  std::vector<FileOperation> kinds;
  for (const auto& operation : files.operations())
    kinds.push_back(operation.kind);
  using enum FileOperation;
  EXPECT_EQ(kinds,
            (std::vector{createFile, write, synchronize, close, move, synchronizeDirectory}));
  EXPECT_EQ(files.operations().back().path, root() + "/KivResource/Resources");
}

TEST_F(KivStorageServiceTest, NewDirectoriesReachTheDiskBeforeAFileIsNamedInThem) {
  FaultyFileManager files;
  EXPECT_FALSE(save("a.png", "x"));
  std::vector<std::string> synced;
  for (const auto& operation : files.operations()) {
    if (operation.kind == FileOperation::move) break;
    if (operation.kind == FileOperation::synchronizeDirectory) synced.push_back(operation.path);
  }
  EXPECT_EQ(synced, (std::vector<std::string>{root() + "/KivResource", root()}));
}

TEST_F(KivStorageServiceTest, AFailedSyncIsNotRepeatedAndDiscardsTheFile) {
  EXPECT_FALSE(save("a.png", "old"));
  FaultyFileManager files;
  files.setFailingOperation(FileOperation::synchronize, EIO);
  const auto error = save("a.png", "new");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, EIO);
  int synced = 0;
  for (const auto& operation : files.operations())
    synced += operation.kind == FileOperation::synchronize;
  EXPECT_EQ(synced, 1);
  EXPECT_EQ(contents("a.png"), "old");
  files.clearFailingOperation();
  restart();
  EXPECT_EQ(temporaries(), Tree{});
}

}  // namespace
}  // namespace kiv::test
