// Behaviour that all resource classes with files share. The tests of each class cover the rest.

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivResource/KivResourceStandard.h"
#include "KivResource/KivResourceVideo.h"
#include "KivResource/KivResourceWeb.h"
#include "Tests/Support/HostileNames.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ResourceItems.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Support/WorkingDirectory.h"

namespace {

using namespace kiv::test;
using kiv::Array;
using kiv::Dictionary;
using kiv::Value;
using Strings = std::vector<std::string>;

struct Standard {
  using Resource = KivResourceStandard;
  static constexpr const char* key = "image_728x90";
  static constexpr const char* link = "banners/wide.png";
  /// The stored file that matches the link, and files that do not match it.
  static constexpr const char* file = "wide.png";
  static inline const Strings others{"small.png", "WIDE.PNG", "wide.png.part", "awide.png", "wide"};
  static inline const Strings ownKeys{"market_url", key};

  static Dictionary item(const TemporaryDirectory&) { return standardItem(); }
  static std::optional<std::string> path(const Resource& resource) { return resource.image(); }
};

/// A video whose film is stored, so that only the icon can be missing.
struct Video {
  using Resource = KivResourceVideo;
  static constexpr const char* key = "image";
  static constexpr const char* link = "media/icon.png";
  static constexpr const char* file = "icon.png";
  static inline const Strings others{"port.mp4", "ICON.PNG", "con.png", "icon.png.part",
                                     "new_icon"};
  static inline const Strings ownKeys{"title", "market_url", key, "video_file_landscape"};

  static Dictionary item(const TemporaryDirectory& directory) {
    return with(videoItem(), "video_file_landscape", directory.write("film.mp4"));
  }
  static std::optional<std::string> path(const Resource& resource) { return resource.icon(); }
};

struct Web {
  using Resource = KivResourceWeb;
  static constexpr const char* key = "html";
  static constexpr const char* link = "promo/page.zip";
  static constexpr const char* file = "page/index.html";
  static inline const Strings others{
      "banner.html", "other/index.html",    "Page/index.html",     "index.html",
      "page.html",   "page/sub/index.html", "Resources/index.html"};
  static inline const Strings ownKeys{key};

  static Dictionary item(const TemporaryDirectory&) { return webItem(); }
  static std::optional<std::string> path(const Resource& resource) { return resource.html(); }
};

template <typename Kind>
class KivResourceKindsTest : public testing::Test {
 protected:
  using Pointer = std::shared_ptr<typename Kind::Resource>;

  static Pointer make(const Dictionary& dictionary) {
    return Kind::Resource::initWithDictionary_engine(dictionary, "engine");
  }
  [[nodiscard]] Dictionary item() const { return Kind::item(directory_); }
  [[nodiscard]] Pointer linked() const { return make(item()); }
  [[nodiscard]] Pointer withLink(const std::string& link) const {
    return make(with(item(), Kind::key, link));
  }
  /// Writes the file that matches the link to a directory.
  [[nodiscard]] std::string write(const std::string& directory = "Resources") const {
    return directory_.write(directory + "/" + Kind::file);
  }
  static Pointer copyOf(const KivResource& resource) {
    return std::dynamic_pointer_cast<typename Kind::Resource>(resource.copyWithZone());
  }

  /// Checks everything that differs between the two states, linked and loaded.
  void expectLinked(const Pointer& resource, const std::string& link = Kind::link) const {
    ASSERT_TRUE(resource);
    EXPECT_EQ(Kind::path(*resource), std::nullopt);
    EXPECT_EQ((*resource->resourceDictionary())[Kind::key], link);
    EXPECT_EQ(resource->missingFilesLinks(), Strings{link});
    EXPECT_EQ(resource->useFilePaths(), paths({}));
    EXPECT_FALSE(resource->filesExist());
    if constexpr (hasFlag) {
      EXPECT_FALSE(resource->fileIsLoaded());
    }
  }
  void expectLoaded(const Pointer& resource, const std::string& path) const {
    ASSERT_TRUE(resource);
    EXPECT_EQ(Kind::path(*resource), path);
    EXPECT_EQ((*resource->resourceDictionary())[Kind::key], path);
    EXPECT_EQ(resource->missingFilesLinks(), Strings());
    EXPECT_THAT(resource->useFilePaths(), testing::UnorderedElementsAreArray(paths({path})));
    EXPECT_TRUE(resource->filesExist());
    if constexpr (hasFlag) {
      EXPECT_TRUE(resource->fileIsLoaded());
    }
  }
  /// The given paths and the other files that the resource uses.
  [[nodiscard]] Strings paths(Strings paths) const {
    if constexpr (!hasFlag) paths.push_back(directory_.path("film.mp4"));
    return paths;
  }

  static constexpr bool hasFlag = requires(const typename Kind::Resource& resource) {
    resource.fileIsLoaded();
  };

  const TemporaryDirectory directory_;
};

struct KindNames {
  template <typename Kind>
  static std::string GetName(int) {
    if constexpr (std::is_same_v<Kind, Standard>) return "Standard";
    return std::is_same_v<Kind, Video> ? "Video" : "Web";
  }
};

using Kinds = testing::Types<Standard, Video, Web>;
TYPED_TEST_SUITE(KivResourceKindsTest, Kinds, KindNames);

// --- Construction --------------------------------------------------------------------------------

TYPED_TEST(KivResourceKindsTest, TakesTheCommonFieldsAndTheEngine) {
  const auto resource = this->linked();
  ASSERT_TRUE(resource);
  EXPECT_EQ(resource->name(), "Spring");
  EXPECT_EQ(resource->engine(), "engine");
}

TYPED_TEST(KivResourceKindsTest, YieldsNothingWhereTheCommonKeysAreNotValid) {
  for (const char* key : {"name", "type", "banner_id", "priority", "updated"})
    EXPECT_FALSE(this->make(without(this->item(), key))) << key;
  EXPECT_FALSE(this->make(with(this->item(), "updated", "1")));
}

TYPED_TEST(KivResourceKindsTest, YieldsNothingWhereItsOwnKeysAreNotStrings) {
  for (const auto& key : TypeParam::ownKeys) {
    EXPECT_FALSE(this->make(without(this->item(), key))) << key;
    for (const Value& value :
         {Value(), Value(1), Value(true), Value(Array{"x"}), Value(Dictionary())}) {
      EXPECT_FALSE(this->make(with(this->item(), key, value))) << key;
    }
  }
}

TYPED_TEST(KivResourceKindsTest, EmptyStringsPass) {
  for (const auto& key : TypeParam::ownKeys)
    EXPECT_TRUE(this->make(with(this->item(), key, ""))) << key;
}

TYPED_TEST(KivResourceKindsTest, AnEmptyStringIsAnEmptyMissingLink) {
  this->expectLinked(this->withLink(""), "");
}

TYPED_TEST(KivResourceKindsTest, StartsLinkedWhereItHasALink) {
  this->expectLinked(this->linked());
}

TYPED_TEST(KivResourceKindsTest, StartsLoadedWhereItHasThePathOfAFile) {
  const std::string path = this->write();
  this->expectLoaded(this->withLink(path), path);
}

TYPED_TEST(KivResourceKindsTest, AFileRelativeToTheWorkingDirectoryCountsAsStored) {
  this->directory_.write(TypeParam::link);
  const WorkingDirectory inside(this->directory_.path());
  this->expectLoaded(this->linked(), TypeParam::link);
}

TYPED_TEST(KivResourceKindsTest, ADirectoryDoesNotCountAsStored) {
  this->expectLinked(this->withLink(this->directory_.path()), this->directory_.path());
}

TYPED_TEST(KivResourceKindsTest, HostileLinksStartLinkedAndStayThere) {
  Strings stored{this->write()};
  for (const auto& other : TypeParam::others)
    stored.push_back(this->directory_.write(other));
  const WorkingDirectory inside(this->directory_.path());
  Strings links = hostileLinks(TypeParam::others.front());
  links.insert(links.end(), {std::string("page\0.zip", 9), "\xff\xfe"});
  for (const auto& path : stored) {
    links.push_back(path + "/");
    links.push_back(std::filesystem::path(path).filename().string() + "/");
  }
  for (const auto& link : links) {
    SCOPED_TRACE("link: " + link.substr(0, 100));
    const auto resource = this->withLink(link);
    this->expectLinked(resource, link);
    for (const std::string& path : {std::string(), std::string("."), std::string("/"), link})
      resource->setPath(path);
    for (const auto& path : stored)
      resource->setPath(path);
    this->expectLinked(resource, link);
  }
}

TYPED_TEST(KivResourceKindsTest, NothingIsLogged) {
  const LogCapture log;
  EXPECT_FALSE(this->make(without(this->item(), TypeParam::key)));
  this->linked()->setPath(this->directory_.path(std::string("missing/") + TypeParam::file));
  this->linked()->setPath(this->directory_.write(TypeParam::others.front()));
  EXPECT_TRUE(log.lines().empty());
}

// --- Stored files --------------------------------------------------------------------------------

TYPED_TEST(KivResourceKindsTest, SetPathWithTheFileLoadsTheResource) {
  const auto resource = this->linked();
  const std::string path = this->write();
  resource->setPath(path);
  this->expectLoaded(resource, path);
}

TYPED_TEST(KivResourceKindsTest, SetPathWithoutAFileChangesNothing) {
  const auto resource = this->linked();
  resource->setPath(this->directory_.path(TypeParam::file));
  this->expectLinked(resource);
}

TYPED_TEST(KivResourceKindsTest, SetPathOfADirectoryChangesNothing) {
  const auto resource = this->linked();
  std::filesystem::create_directories(this->directory_.path(TypeParam::file));
  resource->setPath(this->directory_.path(TypeParam::file));
  this->expectLinked(resource);
}

TYPED_TEST(KivResourceKindsTest, SetPathWithAnExistingFileOfAnotherNameChangesNothing) {
  const auto resource = this->linked();
  for (const auto& name : TypeParam::others) {
    resource->setPath(this->directory_.write("Resources/" + name));
    this->expectLinked(resource);
  }
  const std::string path = this->write();
  resource->setPath(path);
  this->expectLoaded(resource, path);
}

TYPED_TEST(KivResourceKindsTest, ASecondSetPathWithTheSamePathWritesNothing) {
  const auto resource = this->linked();
  const std::string path = this->write();
  resource->setPath(path);
  const Dictionary shared = *resource->resourceDictionary();
  resource->setPath(path);
  this->expectLoaded(resource, path);
  // Copy-on-write: a dictionary that was written to would no longer share its contents.
  EXPECT_EQ(resource->resourceDictionary()->begin(), shared.begin());
}

TYPED_TEST(KivResourceKindsTest, ALoadedResourceMayBeReadWhileItGetsTheSamePathAgain) {
  const auto resource = this->linked();
  const std::string path = this->write();
  resource->setPath(path);
  std::thread reader([&] {
    for (int round = 0; round < 100; ++round) {
      this->expectLoaded(resource, path);
      EXPECT_TRUE(resource->copyWithZone()->filesExist());
    }
  });
  for (int round = 0; round < 100; ++round)
    resource->setPath(path);
  reader.join();
}

TYPED_TEST(KivResourceKindsTest, WhenTheFileIsDeletedOnlyFilesExistTurns) {
  const std::string path = this->write();
  const auto resource = this->withLink(path);
  std::filesystem::remove(path);
  EXPECT_FALSE(resource->filesExist());
  EXPECT_EQ(TypeParam::path(*resource), path);
  EXPECT_EQ(resource->missingFilesLinks(), Strings());
  EXPECT_EQ(resource->useFilePaths(), this->paths({path}));
  if constexpr (TestFixture::hasFlag) {
    EXPECT_TRUE(resource->fileIsLoaded());
  }
}

TYPED_TEST(KivResourceKindsTest, ADeletedFileThatComesBackExistsAgain) {
  const std::string path = this->write();
  const auto resource = this->withLink(path);
  std::filesystem::remove(path);
  this->expectLoaded(resource, this->write());
}

TYPED_TEST(KivResourceKindsTest, ARestoredResourceWhoseFileExistsIsLoadedFromTheStart) {
  const auto resource = this->linked();
  const std::string path = this->write();
  resource->setPath(path);
  this->expectLoaded(this->make(*resource->resourceDictionary()), path);
}

TYPED_TEST(KivResourceKindsTest, ACopyOfALoadedResourceIsLoaded) {
  const auto resource = this->linked();
  const std::string path = this->write();
  resource->setPath(path);
  this->expectLoaded(this->copyOf(*resource), path);
}

TYPED_TEST(KivResourceKindsTest, ACopyAfterTheFileWasDeletedHasThePathAsItsLink) {
  const auto resource = this->linked();
  const std::string path = this->write();
  resource->setPath(path);
  std::filesystem::remove(path);
  this->expectLinked(this->copyOf(*resource), path);
}

TYPED_TEST(KivResourceKindsTest, WithoutADictionaryThereIsNoLinkAndNothingMatches) {
  const auto resource = this->linked();
  resource->setResourceDictionary(nullptr);
  resource->setPath(this->write());
  EXPECT_EQ(TypeParam::path(*resource), std::nullopt);
  EXPECT_FALSE(resource->resourceDictionary());
  EXPECT_FALSE(resource->copyWithZone());
  EXPECT_EQ(resource->useFilePaths(), this->paths({}));
  if constexpr (TestFixture::hasFlag) {
    EXPECT_EQ(resource->missingFilesLinks(), Strings());
    EXPECT_FALSE(resource->fileIsLoaded());
  }
}

// --- Files of others -----------------------------------------------------------------------------

/// A host's kind. It may look for files that its base does not know.
template <typename Base>
class Derived : public Base {
 public:
  static std::shared_ptr<Derived> make(const Dictionary& dictionary) {
    return Base::initialised(std::make_shared<Derived>(), dictionary, "engine");
  }
};

TYPED_TEST(KivResourceKindsTest, LooksForItsOwnFilesOnlyButADerivedKindMayLookForOthers) {
  EXPECT_TRUE(this->linked()->looksForOwnFilesOnly());
  const auto derived = Derived<typename TypeParam::Resource>::make(this->item());
  ASSERT_TRUE(derived);
  EXPECT_FALSE(derived->looksForOwnFilesOnly());
}

// --- The flag, which videos do not have ----------------------------------------------------------

template <typename Kind>
class KivResourceFlagTest : public KivResourceKindsTest<Kind> {};

using KindsWithAFlag = testing::Types<Standard, Web>;
TYPED_TEST_SUITE(KivResourceFlagTest, KindsWithAFlag, KindNames);

TYPED_TEST(KivResourceFlagTest, ALoadedResourceMovesToAnotherFileOfTheSameName) {
  const std::string first = this->write("first");
  const std::string second = this->write("second");
  const auto loadedLater = this->linked();
  loadedLater->setPath(first);
  for (const auto& resource : {this->withLink(first), loadedLater}) {
    resource->setPath(second);
    this->expectLoaded(resource, second);
  }
}

TYPED_TEST(KivResourceFlagTest, TheListsFollowTheFlagAndFilesExistTheDisk) {
  const std::string path = this->write();
  const auto resource = this->withLink(path);
  resource->setFileIsLoaded(false);
  EXPECT_EQ(resource->missingFilesLinks(), Strings{path});
  EXPECT_EQ(resource->useFilePaths(), Strings());
  EXPECT_TRUE(resource->filesExist());
}

TYPED_TEST(KivResourceFlagTest, AFlagThatWasSetWithoutAFileListsNoPath) {
  const auto resource = this->linked();
  resource->setFileIsLoaded(true);
  EXPECT_EQ(resource->useFilePaths(), Strings());
  EXPECT_EQ(resource->missingFilesLinks(), Strings());
  EXPECT_FALSE(resource->filesExist());
}

TYPED_TEST(KivResourceFlagTest, ALinkThatTheHostReplacedByANumberIsNone) {
  const auto resource = this->linked();
  resource->resourceDictionary()->set(TypeParam::key, 5);
  EXPECT_EQ(resource->missingFilesLinks(), Strings());
  resource->setPath(this->write());
  EXPECT_FALSE(resource->fileIsLoaded());
}

}  // namespace
