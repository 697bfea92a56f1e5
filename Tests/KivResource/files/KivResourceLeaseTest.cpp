// Leases: what a host shows stays while the cache changes under it.

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/KivResourceStandard.h"
#include "KivResource/KivResourceStorageModule.h"
#include "KivResource/KivResourceVideo.h"
#include "KivResource/KivResourceWeb.h"
#include "KivResource/files/KivResourceLease.h"
#include "KivResource/files/KivResourceLookup.h"
#include "KivResource/maintenance/KivResourceMaintenance.h"
#include "KivResource/maintenance/KivResourceTrim.h"
#include "Tests/KivResource/ReportingHostFixture.h"
#include "Tests/Support/FaultyFileManager.h"
#include "Tests/Support/ManagerFixture.h"
#include "Tests/Support/ZipBuilder.h"

namespace kiv::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using Code = KivResourceLeaseErrorCode;

std::string contentsOf(const std::string& path) {
  return fs::is_regular_file(path) ? readFile(path) : "nothing";
}

class KivResourceLeaseTest : public ManagerFixture {
 protected:
  ~KivResourceLeaseTest() override { KivResourceLookup::setRoots(std::nullopt); }

  /// Runs an update whose downloads get these bytes, in any order.
  void update(const Dictionary& item,
              const std::vector<std::pair<std::string, std::string>>& files) {
    beginUpdate({item});
    for (const auto& [urlEnd, bytes] : files)
      EXPECT_TRUE(client->succeed(urlEnd, bytes)) << urlEnd;
    takeEvents();
  }

  static std::string archive(const std::string& text) {
    return ZipBuilder().addFile("index.html", text).addFile("css/page.css", "of " + text).build();
  }

  /// A copy of the first resource.
  [[nodiscard]] std::shared_ptr<KivResource> first() const {
    return manager->allLoadedResources().at(0);
  }

  static Lease take(const std::shared_ptr<KivResource>& resource) {
    std::optional<Error> error;
    auto lease = Lease::take(*resource, &error);
    if (!lease) throw std::runtime_error(error ? error->localizedDescription() : "no error");
    return *std::move(lease);
  }

  /// The error with which a lease is refused.
  static std::pair<std::string, std::int64_t> refusal(const KivResource& resource) {
    std::optional<Error> error;
    EXPECT_FALSE(Lease::take(resource, &error));
    return error ? std::pair(error->domain, error->code) : std::pair(std::string(), std::int64_t());
  }

  static std::pair<std::string, std::int64_t> leaseError(Code code) {
    return {std::string(KivResourceLeaseErrorDomain), static_cast<std::int64_t>(code)};
  }

  static std::string imageOf(const Lease& lease) {
    return dynamic_cast<const KivResourceStandard&>(*lease.resource()).image().value_or("");
  }
  static std::string pageOf(const Lease& lease) {
    return dynamic_cast<const KivResourceWeb&>(*lease.resource()).html().value_or("");
  }

  /// The items of the private directory that are in no other directory than a process's own.
  [[nodiscard]] std::vector<std::string> leftovers() const {
    std::vector<std::string> names;
    for (const auto& process : fs::directory_iterator(KivStorageService::temporariesPath())) {
      if (!process.is_directory()) continue;
      for (const auto& item : fs::directory_iterator(process))
        names.push_back(item.path().filename());
    }
    return names;
  }
};

TEST_F(KivResourceLeaseTest, KeepsTheFileOfAReplacedVersion) {
  update(banner("a", 1, "x/a.png"), {{"/a.png", "one"}});
  auto lease = std::optional(take(first()));
  const std::string path = imageOf(*lease);
  EXPECT_NE(path, stored("a.png"));
  EXPECT_EQ(fs::path(path).filename(), "a.png");
  EXPECT_EQ(lease->resource()->resourceID(), "a");

  update(banner("a", 2, "x/b.png"), {{"/b.png", "two"}});
  EXPECT_FALSE(exists(stored("a.png")));
  EXPECT_EQ(contentsOf(path), "one");
  EXPECT_TRUE(lease->resource()->filesExist());

  lease.reset();
  EXPECT_FALSE(exists(path));
  EXPECT_THAT(leftovers(), IsEmpty());
}

TEST_F(KivResourceLeaseTest, TakesNoSpaceWhereTheFileSystemHasHardLinks) {
  update(banner("a", 1, "x/a.png"), {{"/a.png", "one"}});
  const Lease lease = take(first());
  EXPECT_TRUE(fs::equivalent(imageOf(lease), stored("a.png")));
}

TEST_F(KivResourceLeaseTest, LeavesTheResourceAndTheListAsTheyAre) {
  update(banner("a", 1, "x/a.png"), {{"/a.png", "one"}});
  const std::string list = read(listPath());
  const auto resource = entry(0);
  const Dictionary before = *resource->resourceDictionary();
  const Lease lease = take(resource);
  EXPECT_EQ(*resource->resourceDictionary(), before);
  EXPECT_THAT(resource->useFilePaths(), ElementsAre(stored("a.png")));
  EXPECT_EQ(read(listPath()), list);
}

TEST_F(KivResourceLeaseTest, KeepsTheWholeDirectoryOfAPage) {
  update(page("p", 1, "x/one.zip"), {{"/one.zip", archive("one")}});
  const Lease lease = take(first());
  const std::string path = pageOf(lease);

  update(page("p", 2, "x/two.zip"), {{"/two.zip", archive("two")}});
  EXPECT_FALSE(exists(stored("one")));
  EXPECT_EQ(contentsOf(path), "one");
  const auto directory = KivResourceStorageModule::directoryOfPageAtPath(path);
  ASSERT_EQ(directory, fs::canonical(fs::path(path).parent_path()).string());
  EXPECT_EQ(contentsOf(*directory + "/css/page.css"), "of one");
}

TEST_F(KivResourceLeaseTest, APageOfOneFileHasNoDirectory) {
  update(page("p", 1, "x/one.html"), {{"/one.html", "one"}});
  const Lease lease = take(first());
  EXPECT_EQ(KivResourceStorageModule::directoryOfPageAtPath(pageOf(lease)), std::nullopt);
  EXPECT_EQ(contentsOf(pageOf(lease)), "one");
}

TEST_F(KivResourceLeaseTest, KeepsAPageWhoseArchiveIsUnpackedAgain) {
  update(page("p", 1, "x/one.zip"), {{"/one.zip", archive("old")}});
  const Lease lease = take(first());
  ASSERT_TRUE(KivResourceStorageModule::saveData_withResourceFileName_error(Data(archive("new")),
                                                                            "one.zip"));
  EXPECT_EQ(contentsOf(stored("one/index.html")), "new");
  EXPECT_EQ(contentsOf(pageOf(lease)), "old");
}

TEST_F(KivResourceLeaseTest, KeepsEachFileOfAVideo) {
  update(video("v", 1, "x/icon.png", "x/one.mp4"), {{"/icon.png", "icon"}, {"/one.mp4", "one"}});
  const Lease lease = take(first());
  update(video("v", 2, "x/icon.png", "x/two.mp4"), {{"/two.mp4", "two"}});
  EXPECT_FALSE(exists(stored("one.mp4")));
  const auto& leased = dynamic_cast<const KivResourceVideo&>(*lease.resource());
  EXPECT_EQ(contentsOf(leased.icon().value_or("")), "icon");
  EXPECT_EQ(contentsOf(leased.video().value_or("")), "one");
  EXPECT_THAT(lease.resource()->useFilePaths(), SizeIs(2));
}

TEST_F(KivResourceLeaseTest, OneFileForTwoPurposesIsLeasedOnce) {
  update(video("v", 1, "x/both.mp4", "y/both.mp4"), {{"/x/both.mp4", "both"}});
  const Lease lease = take(first());
  EXPECT_THAT(leftovers(), SizeIs(1));
  EXPECT_TRUE(lease.resource()->filesExist());
}

TEST_F(KivResourceLeaseTest, FilesThatTheFrameworkNeverRemovesKeepTheirPaths) {
  write(packaged() + "/InnerAdResources.bundle/a.png", "packaged");
  beginUpdate({banner("a", 1, "x/a.png"), banner("b", 1, packaged() + "/own.png")});
  takeEvents();
  const Lease lease = take(first());
  EXPECT_THAT(imageOf(lease), StartsWith(packaged()));
  EXPECT_THAT(leftovers(), IsEmpty());
}

TEST_F(KivResourceLeaseTest, AResourceWithoutFilesHasAnEmptyLease) {
  update(plain("n", 1), {});
  EXPECT_EQ(take(first()).resource()->resourceID(), "n");
}

TEST_F(KivResourceLeaseTest, LeasesOfOneResourceAreIndependent) {
  update(banner("a", 1, "x/a.png"), {{"/a.png", "one"}});
  auto one = std::optional(take(first()));
  const Lease other = take(first());
  // Also a lease of what another lease keeps.
  const Lease further = take(one->resource());
  one.reset();
  EXPECT_EQ(contentsOf(imageOf(other)), "one");
  EXPECT_EQ(contentsOf(imageOf(further)), "one");
}

TEST_F(KivResourceLeaseTest, AnAssignmentEndsTheFormerLease) {
  update(banner("a", 1, "x/a.png"), {{"/a.png", "one"}});
  Lease lease = take(first());
  const std::string former = imageOf(lease);
  lease = take(first());
  EXPECT_FALSE(exists(former));
  const Lease moved = std::move(lease);
  EXPECT_EQ(contentsOf(imageOf(moved)), "one");
}

TEST_F(KivResourceLeaseTest, StaysWhileTheHostHasAnotherRoot) {
  update(banner("a", 1, "x/a.png"), {{"/a.png", "one"}});
  auto lease = std::optional(take(first()));
  const std::string path = imageOf(*lease);
  KivStorageService::setRootPath(root() + "-other");
  EXPECT_EQ(contentsOf(path), "one");
  KivStorageService::setRootPath(root());
  EXPECT_EQ(contentsOf(path), "one");
  lease.reset();
  EXPECT_FALSE(exists(path));
}

TEST_F(KivResourceLeaseTest, IsAcceptedWhereOtherLocalFilesAreNot) {
  KivResourceLookup::setRoots(std::vector<std::string>());
  update(banner("a", 1, "x/a.png"), {{"/a.png", "one"}});
  const Lease lease = take(first());
  EXPECT_TRUE(lease.resource()->filesExist());
  const std::string own = fs::path(imageOf(lease)).parent_path().parent_path();
  write(own + "/secret", "");
  EXPECT_FALSE(KivResourceLookup::fileExistsAtPath(own + "/secret"));
  EXPECT_FALSE(KivResourceLookup::fileExistsAtPath(imageOf(lease) + "/../../secret"));
  fs::remove(own + "/secret");
}

// --- Refusals ------------------------------------------------------------------------------------

/// A kind that cannot be copied.
class Unique : public KivResource {
 public:
  explicit Unique(int) {}
  static std::shared_ptr<KivResource> make() {
    return initialised(std::make_shared<Unique>(1), plainOf("u", 1), "unique");
  }
};

TEST_F(KivResourceLeaseTest, RefusesWhatIsNotThere) {
  const auto unloaded = KivResourceStandard::initWithDictionary_engine(standardItem(), "e");
  EXPECT_EQ(refusal(*unloaded), leaseError(Code::filesMissing));
  EXPECT_EQ(refusal(*Unique::make()), leaseError(Code::notCopyable));

  update(banner("a", 1, "x/a.png"), {{"/a.png", "one"}});
  const auto copy = first();
  update(banner("a", 2, "x/b.png"), {{"/b.png", "two"}});
  EXPECT_EQ(refusal(*copy), leaseError(Code::filesMissing));
  EXPECT_THAT(leftovers(), IsEmpty());
}

TEST_F(KivResourceLeaseTest, LinksInADirectoryAreLeftOut) {
  update(page("p", 1, "x/one.zip"), {{"/one.zip", archive("one")}});
  fs::create_symlink("/etc/passwd", stored("one/link"));
  fs::create_directory_symlink("/etc", stored("one/etc"));
  const std::string directory = fs::path(pageOf(take(first()))).parent_path();
  const Lease lease = take(first());
  const fs::path leased = fs::path(pageOf(lease)).parent_path();
  EXPECT_TRUE(fs::exists(leased / "css/page.css"));
  EXPECT_FALSE(exists(leased / "link"));
  EXPECT_FALSE(exists(leased / "etc"));
}

class KivResourceLeaseFaultsTest : public KivResourceLeaseTest {
 protected:
  KivResourceLeaseFaultsTest() { FileManager::setDefaultManager(&files); }
  ~KivResourceLeaseFaultsTest() override {
    files.setObserver({});
    files.clearFailingOperation();
    FileManager::setDefaultManager(nullptr);
  }

  FaultyFileManager files;
};

TEST_F(KivResourceLeaseFaultsTest, CopiesWhereTheFileSystemRefusesLinks) {
  const std::string large(700'001, 'l');
  update(page("p", 1, "x/one.zip"),
         {{"/one.zip", ZipBuilder().addFile("index.html", large).addFile("e", "").build()}});
  for (const int refused : {EPERM, EACCES, EXDEV, EMLINK, ENOSYS, ENOTSUP}) {
    files.setFailingOperation(FileOperation::link, refused);
    const Lease lease = take(first());
    EXPECT_EQ(contentsOf(pageOf(lease)), large);
    EXPECT_FALSE(fs::equivalent(pageOf(lease), stored("one/index.html")));
    EXPECT_EQ(contentsOf(fs::path(pageOf(lease)).parent_path() / "e"), "");
  }
}

TEST_F(KivResourceLeaseFaultsTest, EveryFailureIsReportedAndLeavesNothing) {
  update(page("p", 1, "x/one.zip"), {{"/one.zip", archive("one")}});
  files.setFault(std::nullopt);
  static_cast<void>(take(first()));
  const auto count = files.count();
  ASSERT_GT(count, 6);
  std::uint64_t refusals = 0;
  for (std::uint64_t at = 1; at <= count; ++at) {
    files.setFault(FaultyFileManager::Fault{at, ENOSPC});
    std::optional<Error> error;
    const auto lease = Lease::take(*first(), &error);
    EXPECT_NE(lease.has_value(), error.has_value()) << at;
    if (lease) {
      EXPECT_EQ(contentsOf(pageOf(*lease)), "one");
    } else {
      ++refusals;
      EXPECT_EQ(std::pair(error->domain, error->code),
                std::pair(std::string(SystemErrorDomain), std::int64_t(ENOSPC)))
          << at;
    }
  }
  files.setFault(std::nullopt);
  EXPECT_GE(refusals, 5);
  restart();
  KivStorageService::setRootPath("");
  KivStorageService::setRootPath(root());
  EXPECT_THAT(leftovers(), IsEmpty());
}

TEST_F(KivResourceLeaseFaultsTest, ADiskWithoutRoomForACopyIsReported) {
  update(banner("a", 1, "x/a.png"), {{"/a.png", std::string(50'000, 'a')}});
  files.setFailingOperation(FileOperation::link, EPERM);
  files.setAvailableSpace(10'000);
  const auto [domain, code] = refusal(*first());
  EXPECT_EQ(domain, KivStorageServiceErrorDomain);
  EXPECT_EQ(code, static_cast<std::int64_t>(KivStorageServiceErrorCode::noSpace));
  EXPECT_THAT(leftovers(), IsEmpty());
}

/// Another process unpacks the archive again while its files are linked.
TEST_F(KivResourceLeaseFaultsTest, APageThatIsReplacedMeanwhileIsNotMixed) {
  const auto ofEqualFiles = [](const std::string& text) {
    ZipBuilder zip;
    for (const char* const name : {"index.html", "a", "b", "c", "d"})
      zip.addFile(name, text);
    return zip.build();
  };
  update(page("p", 1, "x/one.zip"), {{"/one.zip", ofEqualFiles("old")}});
  int links = 0;
  files.setObserver([&](const FaultyFileManager::Operation& operation) {
    if (operation.kind != FileOperation::link || ++links != 3) return;
    EXPECT_TRUE(KivResourceStorageModule::saveData_withResourceFileName_error(
        Data(ofEqualFiles("new")), "one.zip"));
  });
  const Lease lease = take(first());
  EXPECT_EQ(links, 10);
  for (const auto& file : fs::directory_iterator(fs::path(pageOf(lease)).parent_path()))
    EXPECT_EQ(contentsOf(file.path()), "new") << file.path();
}

TEST_F(KivResourceLeaseFaultsTest, APageThatIsReplacedAgainAndAgainIsRefused) {
  update(page("p", 1, "x/one.zip"), {{"/one.zip", archive("one")}});
  int links = 0;
  files.setObserver([&](const FaultyFileManager::Operation& operation) {
    if (operation.kind != FileOperation::link) return;
    ++links;
    KivResourceStorageModule::saveData_withResourceFileName_error(Data(archive("new")), "one.zip");
  });
  EXPECT_EQ(refusal(*first()), std::pair(std::string(SystemErrorDomain), std::int64_t(EAGAIN)));
  EXPECT_EQ(links, 8);
}

TEST_F(KivResourceLeaseFaultsTest, APageThatIsRemovedMeanwhileIsRefused) {
  for (const bool isMovedAwayFirst : {true, false}) {
    update(page("p", 1, "x/one.zip"), {{"/one.zip", archive("one")}});
    const auto resource = first();
    bool isDone = false;
    files.setObserver([&](const FaultyFileManager::Operation& operation) {
      if (operation.kind != FileOperation::link || std::exchange(isDone, true)) return;
      if (!isMovedAwayFirst) files.setFailingOperation(FileOperation::withdraw, EXDEV);
      KivResourceStorageModule::removeResourceFileWithPath_error(stored("one/index.html"));
      files.clearFailingOperation();
    });
    EXPECT_EQ(refusal(*resource), std::pair(std::string(SystemErrorDomain), std::int64_t(ENOENT)));
    files.setObserver({});
    EXPECT_THAT(leftovers(), IsEmpty());
    update(plain("n", 1), {});
  }
}

// --- The audit, threads and processes ------------------------------------------------------------

TEST_F(KivResourceLeaseTest, TheAuditListsLeasesAndACleanUpLeavesThem) {
  update(page("p", 1, "x/one.zip"), {{"/one.zip", archive("one")}});
  const Lease lease = take(first());
  update(plain("n", 1), {});
  using Maintenance = KivResourceMaintenance;
  ASSERT_TRUE(Maintenance::cleanUpOrphans(*manager, Maintenance::Mode::remove));
  EXPECT_EQ(contentsOf(pageOf(lease)), "one");
  const auto audit = Maintenance::audit(*manager);
  ASSERT_TRUE(audit);
  EXPECT_THAT(audit->temporary, IsEmpty());
  ASSERT_THAT(audit->leased, SizeIs(1));
  EXPECT_EQ(audit->leased[0].path, fs::path(pageOf(lease)).parent_path());
  EXPECT_GT(audit->leased[0].size.value_or(0), 0);
}

TEST_F(KivResourceLeaseTest, ManyThreadsLeaseWhileTheVersionsChange) {
  update(page("p", 1, "x/page.zip"), {{"/page.zip", archive("1")}});
  const auto resource = first();
  std::atomic<bool> isOver = false;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([&, copy = resource->copyWithZone()] {
      bool isLast = false;
      while (!isLast) {
        isLast = isOver;
        const auto lease = Lease::take(*copy);
        EXPECT_TRUE(lease || !isLast);
        if (!lease) continue;
        const fs::path path = pageOf(*lease);
        EXPECT_EQ(contentsOf(path.parent_path() / "css/page.css"), "of " + contentsOf(path));
      }
    });
  }
  for (int version = 2; version < 60; ++version) {
    EXPECT_TRUE(KivResourceStorageModule::saveData_withResourceFileName_error(
        Data(archive(std::to_string(version))), "page.zip"));
  }
  isOver = true;
  for (auto& thread : threads)
    thread.join();
  EXPECT_THAT(leftovers(), IsEmpty());
}

TEST_F(KivResourceLeaseTest, AForkedChildLeavesTheLeaseToItsParent) {
  update(banner("a", 1, "x/a.png"), {{"/a.png", "one"}});
  auto lease = std::optional(take(first()));
  const pid_t child = fork();
  if (child == 0) {
    lease.reset();
    _exit(0);
  }
  int status = 1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(contentsOf(imageOf(*lease)), "one");
}

class KivResourceLeaseProcessesTest : public ReportingHostFixture {
 protected:
  /// Reads the host's lines until it has taken its leases; returns their paths.
  static std::vector<std::string> leasedPaths(ReportingHostProcess& host,
                                              const std::string& lastStep) {
    std::vector<std::string> paths;
    while (const auto line = host.readLine()) {
      constexpr std::string_view leased = "leased ";
      if (line->starts_with(leased)) paths.push_back(line->substr(leased.size()));
      if (*line == lastStep) return paths;
    }
    ADD_FAILURE() << "the host has ended";
    return paths;
  }
};

TEST_F(KivResourceLeaseProcessesTest, OthersLeaveALeaseAloneUntilItsProcessDies) {
  const Pass old{true, {{"ad-0", 1}, {"page-0", 1}, {"film-0", 1}}};
  const Pass newer{true, {{"ad-0", 2}, {"page-0", 2}, {"film-0", 2}}};
  ReportingHostProcess shows(root(), server.url(), {stepFor(old), "lease", "wait"});
  ASSERT_TRUE(shows.hasStarted());
  const auto paths = leasedPaths(shows, "step 2");
  EXPECT_THAT(paths, SizeIs(4));

  // Another process replaces everything, and its start sweeps.
  runHost({stepFor(newer), "clean"});
  EXPECT_FALSE(exists(stored("ad-0-1.png")));
  EXPECT_FALSE(exists(stored("page-0-1")));
  for (const std::string& path : paths)
    EXPECT_TRUE(fs::is_regular_file(path)) << path;

  shows.kill();
  while (shows.readLine()) {
  }
  EXPECT_EQ(shows.waitForExit(), std::nullopt);
  for (const std::string& path : paths)
    EXPECT_TRUE(exists(path)) << path;
  lookAtRoot();
  for (const std::string& path : paths)
    EXPECT_FALSE(exists(path)) << path;
  expectSoundRoot();
  EXPECT_EQ(loadedVersions(), newer.versions);
}

TEST_F(KivResourceLeaseProcessesTest, ATrimLeavesWhatAnotherProcessHasLeased) {
  const Pass pass{true, {{"ad-0", 1}, {"page-0", 1}, {"film-0", 1}}};
  ReportingHostProcess shows(root(), server.url(), {stepFor(pass), "lease", "wait"});
  ASSERT_TRUE(shows.hasStarted());
  EXPECT_THAT(leasedPaths(shows, "step 2"), SizeIs(4));
  Pass more = pass;
  more.versions["ad-1"] = 1;
  runHost({stepFor(more)});
  lookAtRoot();
  KivResourceTrimOptions options;
  options.rule = KivResourceTrimOptions::Rule::oldestStamp;
  const auto trim = [&] {
    return KivResourceMaintenance::trim(*manager, options, KivResourceMaintenance::Mode::remove);
  };
  const auto first = trim();
  ASSERT_TRUE(first);
  EXPECT_FALSE(first->isBoundKept);
  EXPECT_EQ(loadedVersions(), pass.versions);
  for (const auto& resource : *manager->loadedResources())
    EXPECT_TRUE(resource->filesExist()) << resource->resourceID();

  shows.kill();
  while (shows.readLine()) {
  }
  EXPECT_EQ(shows.waitForExit(), std::nullopt);
  lookAtRoot();
  ASSERT_TRUE(trim());
  EXPECT_THAT(loadedVersions(), IsEmpty());
  EXPECT_TRUE(fs::is_empty(stored("")));
}

}  // namespace
}  // namespace kiv::test
