#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "Tests/Support/RemovalGuard.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using kiv::FileManager;
using kiv::Status;
using kiv::test::TemporaryDirectory;
using namespace std::string_literals;
using namespace std::string_view_literals;
namespace fs = std::filesystem;

class FileManagerTest : public testing::Test {
 protected:
  std::string path(std::string_view name) const { return directory_.path(name); }
  std::string write(std::string_view name, std::string_view bytes = "contents") const {
    return directory_.write(name, bytes);
  }
  std::string read(std::string_view name) const {
    std::ifstream file(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  std::string makeDirectory(std::string_view name) const {
    fs::create_directories(path(name));
    return path(name);
  }
  std::string link(std::string_view name, const std::string& target) const {
    fs::create_symlink(target, path(name));
    return path(name);
  }
  std::string makePipe(std::string_view name) const {
    EXPECT_EQ(mkfifo(path(name).c_str(), 0600), 0);
    return path(name);
  }

  TemporaryDirectory directory_;
  FileManager& manager_ = FileManager::defaultManager();
};

/// Expects a system error with this errno value.
template <class Outcome>
void expectFailure(const Outcome& outcome, int number) {
  ASSERT_FALSE(outcome);
  EXPECT_EQ(outcome.error().domain, kiv::SystemErrorDomain);
  EXPECT_EQ(outcome.error().code, number) << outcome.error().localizedDescription();
}

// --- The manager in use --------------------------------------------------------------------------

TEST_F(FileManagerTest, AnotherManagerIsPutInUseAndTakenOut) {
  FileManager& system = manager_;
  EXPECT_EQ(FileManager::setDefaultManager(&system), nullptr);
  EXPECT_EQ(&FileManager::defaultManager(), &system);
  EXPECT_EQ(FileManager::setDefaultManager(nullptr), &system);
  EXPECT_EQ(&FileManager::defaultManager(), &system);
}

// --- Item types ----------------------------------------------------------------------------------

struct Kinds {
  bool file;
  bool item;
  bool directory;
};

class FileManagerKindTest : public FileManagerTest {
 protected:
  void expectKinds(const std::string& item, Kinds kinds) {
    EXPECT_EQ(manager_.fileExistsAtPath(item), kinds.file) << item;
    EXPECT_EQ(manager_.itemExistsAtPath(item), kinds.item) << item;
    EXPECT_EQ(manager_.directoryExistsAtPath(item), kinds.directory) << item;
  }
};

TEST_F(FileManagerKindTest, TellsFilesFromDirectoriesAndFromNothing) {
  const std::string file = write("file");
  expectKinds(file, {true, true, false});
  expectKinds(write("empty", ""), {true, true, false});
  expectKinds(directory_.path(), {false, true, true});
  expectKinds(directory_.path() + "/", {false, true, true});
  expectKinds("/", {false, true, true});
  expectKinds("//", {false, true, true});
  expectKinds(path("missing"), {false, false, false});
  expectKinds(path("missing/deeper"), {false, false, false});
  expectKinds(file + "/deeper", {false, false, false});
  expectKinds(file + "/", {false, false, false});
  expectKinds("", {false, false, false});
}

TEST_F(FileManagerKindTest, AFileMayBeReachedThroughALinkADirectoryMayNot) {
  expectKinds(link("toFile", write("file")), {true, true, false});
  expectKinds(link("toDirectory", makeDirectory("dir")), {false, true, false});
  expectKinds(path("toDirectory") + "/", {false, false, false});
  expectKinds(link("toNothing", path("missing")), {false, true, false});
  expectKinds(link("toItself", path("toItself")), {false, true, false});
}

TEST_F(FileManagerKindTest, PipesSocketsAndDevicesAreNoFiles) {
  expectKinds(makePipe("pipe"), {false, true, false});
  expectKinds("/dev/null", {false, true, false});
  expectKinds(link("toDevice", "/dev/zero"), {false, true, false});
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path("socket").copy(address.sun_path, sizeof address.sun_path - 1);
  const int socketNumber = ::socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(::bind(socketNumber, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  expectKinds(path("socket"), {false, true, false});
  EXPECT_FALSE(manager_.contentsAtPath(path("socket")));
  ::close(socketNumber);
}

TEST_F(FileManagerKindTest, NamesAreBytesUpToTheFileSystemsLimit) {
  expectKinds(write(std::string(255, 'n')), {true, true, false});
  expectKinds(path(std::string(256, 'n')), {false, false, false});
  expectKinds(write("\xd1\x84\xd0\xb0\xd0\xb9\xd0\xbb \n*.png"), {true, true, false});
}

// --- NUL in a path -------------------------------------------------------------------------------

TEST_F(FileManagerTest, APathWithANulNamesNothing) {
  const std::string file = write("a");
  const std::string other = write("other");
  const std::string withNul = file + "\0b"s;
  EXPECT_FALSE(manager_.fileExistsAtPath(withNul));
  EXPECT_FALSE(manager_.itemExistsAtPath(withNul));
  EXPECT_FALSE(manager_.directoryExistsAtPath(directory_.path() + "\0"s));
  expectFailure(manager_.contentsAtPath(withNul), EINVAL);
  expectFailure(manager_.contentsOfDirectoryAtPath(directory_.path() + "\0"s), EINVAL);
  expectFailure(manager_.createDirectoryAtPath(path("d\0e"sv)), EINVAL);
  expectFailure(manager_.createFileAtPath(path("f\0g"sv)), EINVAL);
  expectFailure(manager_.synchronizeDirectoryAtPath(directory_.path() + "\0"s), EINVAL);
  expectFailure(manager_.moveItemAtPath_toPath(withNul, path("m")), EINVAL);
  expectFailure(manager_.moveItemAtPath_toPath(other, path("m\0n"sv)), EINVAL);
  expectFailure(manager_.exchangeItemAtPath_withItemAtPath(withNul, other), EINVAL);
  expectFailure(manager_.exchangeItemAtPath_withItemAtPath(other, withNul), EINVAL);
  expectFailure(manager_.removeItemAtPath(withNul), EINVAL);
  expectFailure(manager_.lockFileAtPath(path("l\0m"sv)), EINVAL);
  auto left = *manager_.contentsOfDirectoryAtPath(directory_.path());
  std::sort(left.begin(), left.end());
  EXPECT_EQ(left, (std::vector<std::string>{"a", "other"}));
}

// --- Reading -------------------------------------------------------------------------------------

TEST_F(FileManagerTest, ReadsAWholeFile) {
  std::string bytes(300'000, '\0');
  for (std::size_t at = 0; at < bytes.size(); ++at)
    bytes[at] = static_cast<char>(at * 7);
  for (const std::size_t size : {0UL, 1UL, 4095UL, 4096UL, 4097UL, 300'000UL}) {
    const auto contents = manager_.contentsAtPath(write("file", bytes.substr(0, size)));
    ASSERT_TRUE(contents);
    EXPECT_EQ(contents->view(), std::string_view(bytes).substr(0, size));
  }
}

TEST_F(FileManagerTest, ReadsThroughALink) {
  const auto contents = manager_.contentsAtPath(link("link", write("file", "bytes")));
  ASSERT_TRUE(contents);
  EXPECT_EQ(contents->view(), "bytes");
}

#if defined(__linux__)
TEST_F(FileManagerTest, ReadsAFileThatIsLargerThanItSays) {
  const auto contents = manager_.contentsAtPath("/proc/self/limits");  // its size is reported as 0
  ASSERT_TRUE(contents);
  EXPECT_TRUE(contents->view().starts_with("Limit"));
}
#endif

TEST_F(FileManagerTest, ReadsNothingButRegularFilesAndNeverWaits) {
  const auto reading = [&](const std::string& item) { return manager_.contentsAtPath(item); };
  expectFailure(reading(path("missing")), ENOENT);
  expectFailure(reading(""), ENOENT);
  expectFailure(reading(write("file") + "/x"), ENOTDIR);
  expectFailure(reading(directory_.path()), EISDIR);
  expectFailure(reading(makePipe("pipe")), EINVAL);  // without a writer: must not block
  expectFailure(reading("/dev/zero"), EINVAL);
  expectFailure(reading(link("toItself", path("toItself"))), ELOOP);
}

TEST_F(FileManagerTest, AnErrorNamesOperationPathAndReason) {
  const auto contents = manager_.contentsAtPath(path("missing"));
  ASSERT_FALSE(contents);
  EXPECT_EQ(contents.error().localizedDescription(),
            "Could not open \"" + path("missing") + "\": No such file or directory.");
}

TEST_F(FileManagerTest, ListsADirectory) {
  EXPECT_TRUE((*manager_.contentsOfDirectoryAtPath(directory_.path())).empty());
  write("b");
  write(".hidden");
  makeDirectory("a");
  link("dangling", path("missing"));
  for (int file = 0; file < 1000; ++file)
    write("many/" + std::to_string(file), "");
  auto names = *manager_.contentsOfDirectoryAtPath(directory_.path());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{".hidden", "a", "b", "dangling", "many"}));
  EXPECT_EQ((*manager_.contentsOfDirectoryAtPath(path("many"))).size(), 1000U);
}

TEST_F(FileManagerTest, ListsNothingButDirectories) {
  const auto listing = [&](const std::string& item) {
    return manager_.contentsOfDirectoryAtPath(item);
  };
  expectFailure(listing(path("missing")), ENOENT);
  expectFailure(listing(write("file")), ENOTDIR);
  expectFailure(listing(makePipe("pipe")), ENOTDIR);
}

TEST_F(FileManagerTest, ListsTheRegularFilesOfADirectory) {
  write("directory/b");
  write("directory/.hidden");
  write("directory/a/within");
  makePipe("directory/pipe");
  link("directory/link", path("directory/b"));
  link("directory/dangling", path("missing"));
  auto names = *manager_.filesOfDirectoryAtPath_mostEntries(path("directory"), 100);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{".hidden", "b"}));
}

TEST_F(FileManagerTest, ListsNoMoreEntriesThanItIsToldTo) {
  for (int file = 0; file < 100; ++file)
    write("many/" + std::to_string(file), "");
  const auto listed = [&](std::size_t mostEntries) {
    return (*manager_.filesOfDirectoryAtPath_mostEntries(path("many"), mostEntries)).size();
  };
  EXPECT_EQ(listed(0), 0U);
  EXPECT_EQ(listed(1), 1U);
  EXPECT_EQ(listed(99), 99U);
  EXPECT_EQ(listed(100), 100U);
  EXPECT_EQ(listed(1000), 100U);
}

TEST_F(FileManagerTest, ListsTheFilesOfNothingButDirectories) {
  const auto listing = [&](const std::string& item) {
    return manager_.filesOfDirectoryAtPath_mostEntries(item, 100);
  };
  expectFailure(listing(path("missing")), ENOENT);
  expectFailure(listing(write("file")), ENOTDIR);
  expectFailure(listing(makePipe("pipe")), ENOTDIR);
  expectFailure(listing(directory_.path() + "\0"s), EINVAL);
}

// --- Creating and writing ------------------------------------------------------------------------

TEST_F(FileManagerTest, MakesADirectoryWithThoseAboveIt) {
  EXPECT_TRUE(manager_.createDirectoryAtPath(path("a/b/c")));
  EXPECT_TRUE(fs::is_directory(path("a/b/c")));
  EXPECT_TRUE(manager_.createDirectoryAtPath(path("a/b/c")));
  EXPECT_TRUE(manager_.createDirectoryAtPath(path("a/b/d/")));
  EXPECT_TRUE(fs::is_directory(path("a/b/d")));
}

TEST_F(FileManagerTest, MakesNoDirectoryWhereAFileStands) {
  const auto making = [&](const std::string& item) { return manager_.createDirectoryAtPath(item); };
  expectFailure(making(write("file")), ENOTDIR);
  expectFailure(making(path("file") + "/deeper"), ENOTDIR);
  expectFailure(making(path(std::string(256, 'n'))), ENAMETOOLONG);
  EXPECT_EQ(read("file"), "contents");
}

TEST_F(FileManagerTest, WritesSynchronizesAndClosesANewFile) {
  const auto file = manager_.createFileAtPath(path("new")).value_or(nullptr);
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->write("one "));
  EXPECT_TRUE(file->write(""));
  EXPECT_TRUE(file->write("two\0"sv));
  EXPECT_TRUE(file->synchronize());
  EXPECT_TRUE(file->close());
  EXPECT_EQ(read("new"), "one two\0"sv);
}

TEST_F(FileManagerTest, CreatesOnlyWhatDoesNotExist) {
  const auto creating = [&](const std::string& item) { return manager_.createFileAtPath(item); };
  expectFailure(creating(write("file", "old")), EEXIST);
  EXPECT_EQ(read("file"), "old");
  expectFailure(creating(makeDirectory("dir")), EEXIST);
  expectFailure(creating(link("dangling", path("target"))), EEXIST);  // the target is not created
  EXPECT_FALSE(fs::exists(path("target")));
  expectFailure(creating(path("missing/file")), ENOENT);
  expectFailure(creating(path(std::string(256, 'n'))), ENAMETOOLONG);
  EXPECT_TRUE(manager_.createFileAtPath(path(std::string(255, 'n'))));
}

TEST_F(FileManagerTest, AClosedFileTakesNothing) {
  const auto file = manager_.createFileAtPath(path("new")).value_or(nullptr);
  ASSERT_TRUE(file->close());
  expectFailure(file->write("x"), EBADF);
  expectFailure(file->synchronize(), EBADF);
  expectFailure(file->close(), EBADF);
}

TEST_F(FileManagerTest, AWriteThatIsCutShortFails) {
  const auto file = manager_.createFileAtPath(path("limited")).value_or(nullptr);
  ASSERT_TRUE(file);
  rlimit former{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &former), 0);
  const auto formerHandler = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit small{10'000, former.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const Status written = file->write(std::string(100'000, 'x'));
  setrlimit(RLIMIT_FSIZE, &former);
  std::signal(SIGXFSZ, formerHandler);
  EXPECT_FALSE(written);
  ASSERT_FALSE(written);
  EXPECT_EQ(written.error().code, EFBIG);
  EXPECT_EQ(fs::file_size(path("limited")), 10'000U);
}

TEST_F(FileManagerTest, SynchronizesDirectories) {
  EXPECT_TRUE(manager_.synchronizeDirectoryAtPath(directory_.path()));
  expectFailure(manager_.synchronizeDirectoryAtPath(path("missing")), ENOENT);
  const std::string file = write("file");
  expectFailure(manager_.synchronizeDirectoryAtPath(file), ENOTDIR);
}

// --- Moving and exchanging -----------------------------------------------------------------------

TEST_F(FileManagerTest, MovesOntoAFileOrAnEmptyDirectory) {
  write("new", "new");
  write("old", "old");
  EXPECT_TRUE(manager_.moveItemAtPath_toPath(path("new"), path("old")));
  EXPECT_EQ(read("old"), "new");
  EXPECT_FALSE(fs::exists(path("new")));
  write("dir/file");
  makeDirectory("empty");
  EXPECT_TRUE(manager_.moveItemAtPath_toPath(path("dir"), path("empty")));
  EXPECT_EQ(read("empty/file"), "contents");
}

TEST_F(FileManagerTest, MovesALinkItself) {
  const std::string target = write("target");
  link("link", target);
  EXPECT_TRUE(manager_.moveItemAtPath_toPath(path("link"), path("moved")));
  EXPECT_EQ(fs::read_symlink(path("moved")), target);
  EXPECT_EQ(read("target"), "contents");
}

TEST_F(FileManagerTest, AMoveThatFailsChangesNothing) {
  const auto moving = [&](const std::string& from, const std::string& to) {
    return manager_.moveItemAtPath_toPath(from, to);
  };
  write("file", "file");
  write("dir/inside");
  write("full/inside", "kept");
  expectFailure(moving(path("missing"), path("x")), ENOENT);
  expectFailure(moving(path("file"), path("missing/x")), ENOENT);
  expectFailure(moving(path("file"), path("dir")), EISDIR);
  expectFailure(moving(path("dir"), path("file")), ENOTDIR);
  expectFailure(moving(path("dir"), path("full")), ENOTEMPTY);
  expectFailure(moving(path("dir"), path("dir/inside/x")), ENOTDIR);
  expectFailure(moving(path("file"), path(std::string(256, 'n'))), ENAMETOOLONG);
  EXPECT_EQ(read("file"), "file");
  EXPECT_EQ(read("full/inside"), "kept");
  EXPECT_TRUE(fs::exists(path("dir/inside")));
}

TEST_F(FileManagerTest, ExchangesTwoItemsWhereTheFileSystemCan) {
  write("one/file", "one");
  write("other/file", "other");
  const Status exchanged = manager_.exchangeItemAtPath_withItemAtPath(path("one"), path("other"));
  EXPECT_EQ(read("one/file"), exchanged ? "other" : "one");
  EXPECT_EQ(read("other/file"), exchanged ? "one" : "other");
}

TEST_F(FileManagerTest, AnExchangeWithNothingFails) {
  write("one", "one");
  EXPECT_FALSE(manager_.exchangeItemAtPath_withItemAtPath(path("one"), path("missing")));
  EXPECT_EQ(read("one"), "one");
  EXPECT_FALSE(fs::exists(path("missing")));
}

// --- Removing ------------------------------------------------------------------------------------

class FileManagerRemovalTest : public FileManagerTest {
 protected:
  auto removing(const std::string& item) { return manager_.removeItemAtPath(item); }

  const kiv::test::UnguardedRemovals unguarded_;
};

TEST_F(FileManagerRemovalTest, RemovesAFileAndNothingBesideIt) {
  write("kept");
  EXPECT_TRUE(manager_.removeItemAtPath(write("file")));
  EXPECT_FALSE(fs::exists(path("file")));
  EXPECT_TRUE(fs::exists(path("kept")));
}

TEST_F(FileManagerRemovalTest, RemovesADirectoryWithEverythingInIt) {
  write("dir/file");
  write("dir/.hidden");
  write("dir/a/b/c/file");
  makeDirectory("dir/empty");
  makePipe("dir/pipe");
  EXPECT_TRUE(manager_.removeItemAtPath(path("dir")));
  EXPECT_FALSE(fs::exists(path("dir")));
  write("again/file");
  EXPECT_TRUE(manager_.removeItemAtPath(path("again/")));
  EXPECT_FALSE(fs::exists(path("again")));
}

TEST_F(FileManagerRemovalTest, RemovesALinkNeverWhatItLeadsTo) {
  write("dir/file");
  link("toFile", path("dir/file"));
  link("toDirectory", path("dir"));
  link("toNothing", path("missing"));
  for (const char* const name : {"toFile", "toDirectory", "toNothing"}) {
    EXPECT_TRUE(manager_.removeItemAtPath(path(name)));
    EXPECT_FALSE(fs::is_symlink(fs::symlink_status(path(name)))) << name;
  }
  EXPECT_EQ(read("dir/file"), "contents");
}

TEST_F(FileManagerRemovalTest, ASeparatorBehindALinkDoesNotHaveItFollowed) {
  write("dir/file");
  link("link", path("dir"));
  expectFailure(removing(path("link/")), ENOTDIR);
  expectFailure(removing(path("link//")), ENOTDIR);
  EXPECT_EQ(read("dir/file"), "contents");
  EXPECT_TRUE(fs::is_symlink(path("link")));
}

TEST_F(FileManagerRemovalTest, LinksInATreeLeadNobodyOut) {
  const TemporaryDirectory outside;
  outside.write("dir/file");
  outside.write("file");
  write("tree/inside");
  link("tree/toDirectory", outside.path("dir"));
  link("tree/toFile", outside.path("file"));
  link("tree/toParent", "..");
  link("tree/toItself", path("tree"));
  link("tree/dangling", outside.path("missing"));
  write("beside");
  EXPECT_TRUE(manager_.removeItemAtPath(path("tree")));
  EXPECT_FALSE(fs::exists(path("tree")));
  EXPECT_TRUE(fs::exists(outside.path("dir/file")));
  EXPECT_TRUE(fs::exists(outside.path("file")));
  EXPECT_TRUE(fs::exists(path("beside")));
}

TEST_F(FileManagerRemovalTest, RemovesNothingUnderTheNameOfADotOrTwo) {
  write("dir/sub/file");
  for (const char* const name : {"dir/.", "dir/sub/..", "dir/sub/../", "dir/./", "."}) {
    expectFailure(removing(path(name)), EINVAL);
  }
  EXPECT_EQ(read("dir/sub/file"), "contents");
  EXPECT_TRUE(manager_.removeItemAtPath(path("dir/sub/../sub/file")));
}

TEST_F(FileManagerRemovalTest, FailsWhereNothingLies) {
  expectFailure(removing(path("missing")), ENOENT);
  expectFailure(removing(path("missing/deeper")), ENOENT);
  expectFailure(removing(""), ENOENT);
  const std::string file = write("file");
  expectFailure(removing(file + "/deeper"), ENOTDIR);
  expectFailure(removing(file + "/"), ENOTDIR);
  expectFailure(removing(path(std::string(256, 'n'))), ENAMETOOLONG);
  EXPECT_EQ(read("file"), "contents");
}

// --- Locking -------------------------------------------------------------------------------------

class FileManagerLockTest : public FileManagerTest {
 protected:
  void expectTaken() { expectFailure(manager_.lockFileAtPath(lock_), EWOULDBLOCK); }
  const std::string lock_ = path("lock");
};

TEST_F(FileManagerLockTest, ASecondLockOfThisProcessIsRefusedUntilTheFirstGoes) {
  auto first = manager_.lockFileAtPath(lock_).value_or(nullptr);
  ASSERT_TRUE(first);
  expectTaken();
  first.reset();
  EXPECT_TRUE(manager_.lockFileAtPath(lock_));
}

TEST_F(FileManagerLockTest, LocksOfTwoFilesDoNotMeet) {
  const auto first = manager_.lockFileAtPath(lock_).value_or(nullptr);
  EXPECT_TRUE(first);
  EXPECT_TRUE(manager_.lockFileAtPath(path("other")));
}

TEST_F(FileManagerLockTest, LeavesTheFileAsItIs) {
  write("lock", "text");
  EXPECT_TRUE(manager_.lockFileAtPath(lock_));
  EXPECT_EQ(read("lock"), "text");
}

TEST_F(FileManagerLockTest, FailsWhereNoFileCanBe) {
  expectFailure(manager_.lockFileAtPath(path("missing/lock")), ENOENT);
  expectFailure(manager_.lockFileAtPath(directory_.path()), EISDIR);
}

TEST_F(FileManagerLockTest, AnotherProcessIsRefused) {
  const auto lock = manager_.lockFileAtPath(lock_).value_or(nullptr);
  ASSERT_TRUE(lock);
  const pid_t child = fork();
  if (child == 0) _exit(manager_.lockFileAtPath(lock_) ? 1 : 0);
  ASSERT_GT(child, 0);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(FileManagerLockTest, ALockEndsWithItsProcessEvenWhenThatIsKilled) {
  int pipeEnds[2];
  ASSERT_EQ(pipe(pipeEnds), 0);
  const pid_t child = fork();
  if (child == 0) {
    const auto lock = manager_.lockFileAtPath(lock_).value_or(nullptr);
    if (::write(pipeEnds[1], lock ? "y" : "n", 1) == 1) {
      while (true)
        pause();
    }
    _exit(1);
  }
  ASSERT_GT(child, 0);
  char locked = 0;
  EXPECT_EQ(::read(pipeEnds[0], &locked, 1), 1);
  EXPECT_EQ(locked, 'y');
  expectTaken();
  EXPECT_EQ(kill(child, SIGKILL), 0);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
  EXPECT_TRUE(manager_.lockFileAtPath(lock_));
  ::close(pipeEnds[0]);
  ::close(pipeEnds[1]);
}

// --- Mapped files and files to append to ---------------------------------------------------------

TEST_F(FileManagerTest, AMappedFileKeepsItsBytesWhenItsNameGoes) {
  write("a", "bytes");
  const auto file = FileManager::defaultManager().mapFileAtPath(path("a")).value_or(nullptr);
  ASSERT_TRUE(file);
  fs::remove(path("a"));
  EXPECT_EQ(file->bytes(), "bytes");
}

TEST_F(FileManagerTest, OnlyRegularFilesAreMapped) {
  expectFailure(manager_.mapFileAtPath(path("missing")), ENOENT);
  expectFailure(manager_.mapFileAtPath(directory_.path()), EISDIR);
}

TEST_F(FileManagerTest, TheLengthOfAFileIsThatOfItsBytes) {
  FileManager& files = FileManager::defaultManager();
  EXPECT_EQ(files.lengthOfFileAtPath(write("a", "12345")), 5U);
  EXPECT_EQ(files.lengthOfFileAtPath(write("empty", "")), 0U);
  EXPECT_EQ(files.lengthOfFileAtPath(path("missing")), std::nullopt);
  EXPECT_EQ(files.lengthOfFileAtPath(directory_.path()), std::nullopt);
  fs::create_symlink("a", path("link"));
  EXPECT_EQ(files.lengthOfFileAtPath(path("link")), std::nullopt);
}

TEST_F(FileManagerTest, AFileIsGoneOnWithAtItsEnd) {
  write("a", "12345");
  const auto file =
      FileManager::defaultManager().openFileAtPath_length(path("a"), 5).value_or(nullptr);
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->write("678") && file->close());
  EXPECT_EQ(read("a"), "12345678");
}

TEST_F(FileManagerTest, WhatIsTooLongIsCutOffFirst) {
  write("a", "12345");
  const auto file =
      FileManager::defaultManager().openFileAtPath_length(path("a"), 2).value_or(nullptr);
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->write("x") && file->close());
  EXPECT_EQ(read("a"), "12x");
}

TEST_F(FileManagerTest, OnlyARegularFileIsGoneOnWith) {
  FileManager& files = FileManager::defaultManager();
  expectFailure(files.openFileAtPath_length(path("missing"), 0), ENOENT);
  EXPECT_FALSE(files.openFileAtPath_length(directory_.path(), 0));
  write("a", "12345");
  fs::create_symlink("a", path("link"));
  EXPECT_FALSE(files.openFileAtPath_length(path("link"), 0));
  EXPECT_EQ(read("a"), "12345");
  ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
  EXPECT_FALSE(files.openFileAtPath_length(path("pipe"), 0));
}

}  // namespace
