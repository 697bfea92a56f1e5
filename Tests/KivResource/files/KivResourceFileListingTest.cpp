// A listing only saves questions to the disk: every test compares its answers with those of the
// disk, in the order of a host's start, where the saved list is restored and then queried.

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/files/KivResourceFileListing.h"
#include "KivResource/files/KivResourceLookup.h"
#include "Tests/Support/ForwardingFileManager.h"
#include "Tests/Support/ManagerFixture.h"

namespace kiv::test {

namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// Records the questions. Of a directory it tells the time of its last modification, which a test
/// can set, as that of its last change, which it cannot.
class Disk final : public ForwardingFileManager {
 public:
  bool fileExistsAtPath(std::string_view path) override {
    asked.emplace_back(path);
    return ForwardingFileManager::fileExistsAtPath(path);
  }
  Result<FileIdentity> identityOfFileAtPath(std::string_view path) override {
    auto identity = ForwardingFileManager::identityOfFileAtPath(path);
    if (!path.ends_with("/Resources/.")) return identity;
    if (identityError) return systemError(*identityError, "look at", path);
    if (identity) identity->changed = identity->modified;
    return identity;
  }
  Result<std::vector<std::string>> filesOfDirectoryAtPath_mostEntries(
      std::string_view path, std::size_t mostEntries) override {
    listed.push_back(mostEntries);
    if (listingError) return systemError(*listingError, "list", path);
    auto names = ForwardingFileManager::filesOfDirectoryAtPath_mostEntries(path, mostEntries);
    if (afterListing) afterListing();
    return names;
  }
  [[nodiscard]] std::vector<std::string> takeAsked() { return std::exchange(asked, {}); }
  [[nodiscard]] std::vector<std::size_t> takeListed() { return std::exchange(listed, {}); }

  std::vector<std::string> asked;   ///< Paths of files.
  std::vector<std::size_t> listed;  ///< The most entries of each listing.
  std::optional<int> identityError;
  std::optional<int> listingError;
  std::function<void()> afterListing;
};

class KivResourceFileListingTest : public ManagerFixture {
 protected:
  static constexpr std::size_t many = 20;

  ~KivResourceFileListingTest() override { KivResourceLookup::setRoots(std::nullopt); }

  static std::string nameOf(std::size_t number) { return std::to_string(number) + ".png"; }
  [[nodiscard]] std::string file(std::size_t number) const { return stored(nameOf(number)); }

  void setAgeOfDirectory(std::chrono::seconds age) const {
    fs::last_write_time(stored(""), fs::file_time_type::clock::now() - age);
  }
  /// Saves a list of that many banners, with their files, as if some time ago.
  void saveList(std::size_t count) const {
    Array list;
    for (std::size_t number = 0; number < count; ++number) {
      write(file(number), "image");
      list.append(banner(std::to_string(number), 1, file(number)));
    }
    write(listPath(), (*JSON::write(list)).view());
    setAgeOfDirectory(std::chrono::seconds(10));
  }
  /// A restart that asks the disk alone. Returns the identifiers in the registry.
  std::vector<std::string> registryWithoutListing() {
    disk.listingError = EIO;
    restart();
    disk.listingError.reset();
    return registry();
  }

  /// Of all copies that a query returns.
  [[nodiscard]] std::vector<std::string> missingLinks() const {
    std::vector<std::string> links;
    for (const auto& copy : manager->allLoadedResources()) {
      for (std::string& link : copy->missingFilesLinks())
        links.push_back(std::move(link));
    }
    return links;
  }
  [[nodiscard]] std::size_t numberOfBanners() const {
    return manager->loadedResourcesWithType("banner").size();
  }

  Disk disk;
};

// --- Questions -----------------------------------------------------------------------------------

TEST_F(KivResourceFileListingTest, RestoringManyListsTheDirectoryAndAsksForNoFile) {
  saveList(many);
  restart();
  EXPECT_THAT(registry(), SizeIs(many));
  EXPECT_THAT(disk.takeListed(), ElementsAre(4 * many));
  EXPECT_THAT(disk.takeAsked(), IsEmpty());
}

TEST_F(KivResourceFileListingTest, RestoringAFewAsksForEachFile) {
  saveList(15);
  restart();
  EXPECT_THAT(disk.takeListed(), IsEmpty());
  EXPECT_THAT(disk.takeAsked(), SizeIs(15));
  saveList(16);
  restart();
  EXPECT_THAT(disk.takeListed(), ElementsAre(64));
  EXPECT_THAT(disk.takeAsked(), IsEmpty());
}

TEST_F(KivResourceFileListingTest, QueriesAskNothingThatRestoringHasAsked) {
  saveList(many);
  restart();
  static_cast<void>(disk.takeListed());
  EXPECT_EQ(numberOfBanners(), many);
  EXPECT_THAT(missingLinks(), IsEmpty());
  EXPECT_THAT(disk.takeListed(), IsEmpty());
  EXPECT_THAT(disk.takeAsked(), IsEmpty());
}

TEST_F(KivResourceFileListingTest, AQueryForAFewAsksForEachFile) {
  saveList(many);
  restart();
  static_cast<void>(disk.takeListed());
  EXPECT_EQ(manager->loadedResourcesWithID("3").size(), 1U);
  EXPECT_THAT(disk.takeAsked(), ElementsAre(file(3)));
  EXPECT_THAT(disk.takeListed(), IsEmpty());
}

TEST_F(KivResourceFileListingTest, ADirectoryThatHasJustChangedIsNotTrustedLater) {
  saveList(many);
  setAgeOfDirectory(std::chrono::seconds(1));
  restart();
  EXPECT_THAT(disk.takeListed(), SizeIs(1));
  EXPECT_THAT(disk.takeAsked(), IsEmpty());
  EXPECT_EQ(numberOfBanners(), many);
  EXPECT_THAT(disk.takeListed(), IsEmpty());
  EXPECT_THAT(disk.takeAsked(), SizeIs(many));
}

TEST_F(KivResourceFileListingTest, AQueryOfEverythingListsAChangedDirectoryAgain) {
  saveList(many);
  restart();
  write(stored("new.png"), "image");
  setAgeOfDirectory(std::chrono::seconds(5));
  EXPECT_THAT(missingLinks(), IsEmpty());
  EXPECT_THAT(disk.takeListed(), SizeIs(2));
  EXPECT_EQ(numberOfBanners(), many);
  EXPECT_THAT(disk.takeAsked(), IsEmpty());
}

TEST_F(KivResourceFileListingTest, ADirectoryWithoutFilesIsListedOnce) {
  Array list;
  for (std::size_t number = 0; number < many; ++number) {
    const std::string path = stored(std::to_string(number) + "/index.html");
    write(path, "page");
    list.append(page(std::to_string(number), 1, path));
  }
  write(listPath(), (*JSON::write(list)).view());
  setAgeOfDirectory(std::chrono::seconds(10));
  restart();
  EXPECT_THAT(missingLinks(), IsEmpty());
  EXPECT_THAT(registry(), SizeIs(many));
  EXPECT_THAT(disk.takeListed(), SizeIs(1));
}

TEST_F(KivResourceFileListingTest, OfAHugeDirectoryOnlyAPartIsRead) {
  saveList(many);
  for (std::size_t number = 1000; number < 1200; ++number)
    write(file(number), "left over");
  setAgeOfDirectory(std::chrono::seconds(5));
  restart();
  EXPECT_THAT(registry(), SizeIs(many));
  EXPECT_THAT(disk.takeListed(), ElementsAre(4 * many));
  EXPECT_THAT(missingLinks(), IsEmpty());
  EXPECT_THAT(disk.takeListed(), IsEmpty());
}

// --- Answers -------------------------------------------------------------------------------------

TEST_F(KivResourceFileListingTest, WhateverLiesAtThePathTheAnswersAreThoseOfTheDisk) {
  saveList(many);
  for (std::size_t number = 0; number < 8; ++number)
    fs::remove(file(number));
  fs::create_directory(file(1));
  fs::create_symlink(file(10), file(2));
  fs::create_symlink(file(0), file(3));
  fs::create_symlink(root(), file(4));
  ASSERT_EQ(::mkfifo(file(5).c_str(), 0600), 0);
  write(stored("6.PNG"), "another case");
  write(file(7) + "/index.html", "a folder");
  restart();
  const auto restored = registry();
  EXPECT_EQ(restored.front(), "2");
  EXPECT_THAT(restored, SizeIs(many - 7));
  EXPECT_THAT(disk.takeListed(), SizeIs(1));
  EXPECT_EQ(restored, registryWithoutListing());
}

TEST_F(KivResourceFileListingTest, FilesElsewhereAreAskedFor) {
  Array list;
  for (std::size_t number = 0; number < many; ++number) {
    const std::string folder = std::to_string(number);
    write(stored(folder + "/index.html"), "page");
    list.append(page(folder, 1, stored(folder + "/index.html")));
  }
  for (const std::string& path : {root() + "/KivResource/outside.png", stored("../Resources/a.png"),
                                  stored("/a.png"), root() + "/KivResource/Resources.png"}) {
    write(path, "image");
    list.append(banner(path, 1, path));
  }
  for (const std::string& path : {stored(""), stored("."), stored(std::string("a.png\0", 6)),
                                  root() + "/KivResource/Resources", std::string("a.png")}) {
    list.append(banner(path, 1, path));
  }
  write(listPath(), (*JSON::write(list)).view());
  restart();
  EXPECT_THAT(registry(), SizeIs(many + 4));
  EXPECT_THAT(disk.takeListed(), SizeIs(1));
  const auto restored = registry();
  EXPECT_EQ(restored, registryWithoutListing());
}

TEST_F(KivResourceFileListingTest, AFailedListingChangesNothing) {
  saveList(many);
  fs::remove(file(4));
  for (const int error : {EACCES, EIO, EMFILE, ENOENT}) {
    disk.listingError = error;
    restart();
    EXPECT_THAT(registry(), SizeIs(many - 1)) << error;
    EXPECT_THAT(disk.takeAsked(), SizeIs(many)) << error;
    EXPECT_THAT(missingLinks(), IsEmpty()) << error;
    static_cast<void>(disk.takeAsked());
  }
}

TEST_F(KivResourceFileListingTest, ADirectoryInWhichNothingCanBeLookedUpIsNotListed) {
  saveList(many);
  disk.identityError = EACCES;
  restart();
  EXPECT_THAT(disk.takeListed(), IsEmpty());
  EXPECT_THAT(disk.takeAsked(), SizeIs(many));
}

TEST_F(KivResourceFileListingTest, WithoutTheDirectoryNothingIsRestored) {
  saveList(many);
  fs::remove_all(stored(""));
  restart();
  EXPECT_THAT(registry(), IsEmpty());
}

// --- Changes between the listing and the answer --------------------------------------------------

TEST_F(KivResourceFileListingTest, AFileRemovedAfterRestoringIsMissingInTheFirstQuery) {
  saveList(many);
  restart();
  fs::remove(file(3));
  EXPECT_THAT(missingLinks(), ElementsAre(file(3)));
  EXPECT_EQ(registry().size(), many);
}

TEST_F(KivResourceFileListingTest, AFileReplacedAfterRestoringIsMissingInTheFirstQuery) {
  const std::vector<std::function<void(const std::string&)>> replacements = {
      [](const std::string& path) { fs::create_directory(path); },
      [](const std::string& path) { fs::create_symlink(path + ".none", path); },
      [](const std::string& path) { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); },
  };
  for (const auto& replace : replacements) {
    saveList(many);
    restart();
    fs::remove(file(3));
    replace(file(3));
    EXPECT_FALSE(manager->loadedResourcesWithID("3").front()->filesExist());
    EXPECT_THAT(missingLinks(), ElementsAre(file(3)));
    fs::remove(file(3));
  }
}

TEST_F(KivResourceFileListingTest, ADirectoryReplacedAfterRestoringIsSeenByTheFirstQuery) {
  saveList(many);
  restart();
  fs::rename(stored(""), root() + "/KivResource/Former");
  EXPECT_THAT(missingLinks(), SizeIs(many));
  fs::rename(root() + "/KivResource/Former", stored(""));
  EXPECT_THAT(missingLinks(), IsEmpty());
  fs::rename(stored(""), root() + "/KivResource/Former");
  write(file(3), "image");
  EXPECT_THAT(missingLinks(), SizeIs(many - 1));
}

TEST_F(KivResourceFileListingTest, AFileThatVanishesWhileTheListIsRestoredWasThere) {
  saveList(many);
  disk.afterListing = [&] { fs::remove(file(3)); };
  restart();
  disk.afterListing = nullptr;
  EXPECT_THAT(registry(), SizeIs(many));
  EXPECT_FALSE(entry(3)->filesExist());
  EXPECT_THAT(missingLinks(), ElementsAre(file(3)));
}

TEST_F(KivResourceFileListingTest, AFileThatAppearsWhileTheListIsRestoredIsFound) {
  saveList(many);
  fs::remove(file(3));
  disk.afterListing = [&] { write(file(3), "image"); };
  restart();
  EXPECT_THAT(registry(), SizeIs(many));
}

TEST_F(KivResourceFileListingTest, FilesThatAPassStoresAreSeen) {
  saveList(many);
  restart();
  load({banner("new", 1, "x/new.png")});
  EXPECT_EQ(registry().size(), many + 1);
  EXPECT_THAT(missingLinks(), IsEmpty());
}

// --- Other directories and threads ---------------------------------------------------------------

TEST_F(KivResourceFileListingTest, AnotherStorageRootMakesTheListingWorthless) {
  saveList(many);
  KivResourceLookup::setRoots(Names());
  restart();
  EXPECT_THAT(missingLinks(), IsEmpty());
  KivStorageService::setRootPath(root() + "/../another");
  EXPECT_THAT(missingLinks(), SizeIs(many));  // the bound has moved
}

TEST_F(KivResourceFileListingTest, TheBoundHolds) {
  saveList(many);
  const std::string outside = root() + "/outside.png";
  write(outside, "the user's own");
  fs::remove(file(3));
  fs::create_symlink(outside, file(3));
  KivResourceLookup::setRoots(Names());
  restart();
  EXPECT_THAT(registry(), SizeIs(many - 1));
  EXPECT_THAT(disk.takeAsked(), ElementsAre(fs::canonical(outside)));
}

TEST_F(KivResourceFileListingTest, AListingIsUsedByOneThreadAndForOneCall) {
  saveList(many);
  FileListing listing;
  const auto isKnown = [&] { return FileListing::isFileAtPath(file(3)); };
  EXPECT_FALSE(isKnown());
  {
    const FileListing::Use use(listing.refreshed(many));
    EXPECT_TRUE(isKnown());
    std::thread([&] { EXPECT_FALSE(isKnown()); }).join();
    FileListing other;
    {
      const FileListing::Use inner(other);
      EXPECT_FALSE(isKnown());
    }
    EXPECT_TRUE(isKnown());
  }
  EXPECT_FALSE(isKnown());
}

TEST_F(KivResourceFileListingTest, AListingOfOneFileKnowsNoOther) {
  const FileListing listing(file(3));
  const FileListing::Use use(listing);
  EXPECT_TRUE(FileListing::isFileAtPath(file(3)));
  EXPECT_FALSE(FileListing::isFileAtPath(file(4)));
  const FileListing empty;
  const FileListing::Use inner(empty);
  for (const std::string& path : {file(3), std::string("/"), std::string()})
    EXPECT_FALSE(FileListing::isFileAtPath(path)) << path;
}

TEST_F(KivResourceFileListingTest, AnAnswerNeedsTheWholeName) {
  saveList(many);
  FileListing listing;
  const FileListing::Use use(listing.refreshed(many));
  EXPECT_TRUE(FileListing::isFileAtPath(file(3)));
  for (const std::string& path :
       {stored(""), stored("3.pn"), stored("3.png/"), stored("3.PNG"), stored("./3.png"),
        stored("/3.png"), stored("none.png"), std::string("3.png"), std::string(),
        root() + "/KivResource/Resources", root() + "/KivResource/Resources3.png"}) {
    EXPECT_FALSE(FileListing::isFileAtPath(path)) << path;
  }
}

}  // namespace

}  // namespace kiv::test
