#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "KivResource/KivResourceVideo.h"
#include "Tests/Support/HostileNames.h"
#include "Tests/Support/ResourceItems.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Support/WorkingDirectory.h"

namespace {

using namespace kiv::test;
using kiv::Array;
using kiv::Dictionary;
using kiv::Value;
using Strings = std::vector<std::string>;

constexpr const char* iconLink = "media/icon.png";
constexpr const char* videoLink = "media/land.mp4";

std::shared_ptr<KivResourceVideo> make(const Dictionary& dictionary) {
  return KivResourceVideo::initWithDictionary_engine(dictionary, "eco_video");
}

Dictionary itemWithFiles(const std::string& icon, const std::string& video) {
  return with(with(videoItem(), "image", icon), "video_file_landscape", video);
}

class KivResourceVideoTest : public testing::Test {
 protected:
  /// Checks the links of the missing files and the paths of the files in use.
  static void expectFiles(const KivResourceVideo& resource, const Strings& links,
                          const Strings& paths) {
    EXPECT_EQ(*resource.fileLinks(), links);
    EXPECT_EQ(resource.missingFilesLinks(), links);
    EXPECT_EQ(*resource.filePaths(), paths);
    EXPECT_EQ(resource.useFilePaths(), paths);
  }

  const TemporaryDirectory directory_;
};

// --- Construction --------------------------------------------------------------------------------

TEST_F(KivResourceVideoTest, TakesTheCommonFieldsAndItsOwn) {
  const auto resource = make(videoItem());
  ASSERT_TRUE(resource);
  EXPECT_EQ(resource->name(), "Spring");
  EXPECT_EQ(resource->engine(), "eco_video");
  EXPECT_EQ(resource->title(), "Promo");
  EXPECT_EQ(resource->marketLink(), "https://market.test/app/2");
  EXPECT_EQ(resource->votes(), 120U);
  EXPECT_EQ(resource->requiredVideoField(), "video_file_landscape");
}

TEST_F(KivResourceVideoTest, IsRejectedWithThePortraitVideoAlone) {
  EXPECT_FALSE(make(without(videoItem(), "video_file_landscape")));
}

TEST_F(KivResourceVideoTest, NeverKeepsThePortraitVideo) {
  const Dictionary item = videoItem();
  EXPECT_FALSE(make(item)->resourceDictionary()->contains("video_file_portrait"));
  EXPECT_EQ(item["video_file_portrait"], "media/port.mp4");
  const auto withoutPortrait = make(without(item, "video_file_portrait"));
  EXPECT_EQ(*withoutPortrait->resourceDictionary(), without(item, "video_file_portrait"));
}

TEST_F(KivResourceVideoTest, StartsWithBothFilesLinkedIconFirst) {
  const auto resource = make(videoItem());
  expectFiles(*resource, Strings{iconLink, videoLink}, Strings());
  EXPECT_EQ(resource->icon(), std::nullopt);
  EXPECT_EQ(resource->video(), std::nullopt);
  EXPECT_EQ(resource->missingFilesLinks(), (Strings{iconLink, videoLink}));
  EXPECT_EQ(resource->useFilePaths(), Strings());
  EXPECT_FALSE(resource->filesExist());
}

TEST_F(KivResourceVideoTest, StartsWithTheIconPresentWhereItNamesAFile) {
  const std::string icon = directory_.write("icon.png");
  const auto resource = make(with(videoItem(), "image", icon));
  EXPECT_EQ(resource->icon(), icon);
  expectFiles(*resource, Strings{videoLink}, Strings{icon});
  EXPECT_EQ(resource->video(), std::nullopt);
  EXPECT_FALSE(resource->filesExist());
}

TEST_F(KivResourceVideoTest, StartsWithTheVideoPresentWhereItNamesAFile) {
  const std::string video = directory_.write("land.mp4");
  const auto resource = make(with(videoItem(), "video_file_landscape", video));
  EXPECT_EQ(resource->video(), video);
  expectFiles(*resource, Strings{iconLink}, Strings{video});
  EXPECT_EQ(resource->icon(), std::nullopt);
  EXPECT_FALSE(resource->filesExist());
}

TEST_F(KivResourceVideoTest, StartsCompleteWhereBothNameFiles) {
  const std::string icon = directory_.write("icon.png");
  const std::string video = directory_.write("land.mp4");
  const auto resource = make(itemWithFiles(icon, video));
  EXPECT_EQ(*resource->fileLinks(), Strings());
  EXPECT_EQ(resource->missingFilesLinks(), Strings());
  EXPECT_EQ(resource->useFilePaths(), (Strings{icon, video}));
  EXPECT_TRUE(resource->filesExist());
}

TEST_F(KivResourceVideoTest, OneFileThatBothNameIsListedTwice) {
  const std::string file = directory_.write("both.mp4");
  const auto resource = make(itemWithFiles(file, file));
  EXPECT_EQ(*resource->filePaths(), (Strings{file, file}));
  EXPECT_TRUE(resource->filesExist());
}

TEST_F(KivResourceVideoTest, ADirectoryDoesNotCountAsStored) {
  const auto resource = make(itemWithFiles(directory_.path(), directory_.path()));
  expectFiles(*resource, Strings{directory_.path(), directory_.path()}, Strings());
}

TEST_F(KivResourceVideoTest, HostileLinksStartLinkedAndStayThere) {
  const std::string stored = directory_.write("icon.png");
  const WorkingDirectory inside(directory_.path());
  for (const std::string& link : hostileLinks("icon.png")) {
    const auto resource = make(itemWithFiles(link, link));
    ASSERT_TRUE(resource);
    for (const std::string& path : {std::string(), std::string("."), stored, link}) {
      resource->setPath(path);
    }
    EXPECT_EQ(*resource->fileLinks(), (Strings{link, link}));
    EXPECT_EQ(*resource->filePaths(), Strings());
    EXPECT_EQ(resource->icon(), std::nullopt);
    EXPECT_EQ((*resource->resourceDictionary())["image"], link);
    EXPECT_FALSE(resource->filesExist());
  }
}

// --- Votes and rating ----------------------------------------------------------------------------

TEST_F(KivResourceVideoTest, AbsentVotesAndRatingAreZero) {
  const auto resource = make(without(without(videoItem(), "votes"), "rating"));
  EXPECT_EQ(resource->votes(), 0U);
  EXPECT_EQ(resource->rating(), 0.0);
}

TEST_F(KivResourceVideoTest, TheRatingPassesThroughSinglePrecision) {
  const auto rating = [](const Value& value) {
    return make(with(videoItem(), "rating", value))->rating();
  };
  EXPECT_EQ(rating(4.7), 4.699999809265137);
  EXPECT_EQ(rating(3.9), 3.9000000953674316);
  EXPECT_EQ(rating(4.5), 4.5);
  EXPECT_EQ(rating(5), 5.0);
  EXPECT_EQ(rating(-1), -1.0);
  EXPECT_EQ(rating(true), 1.0);
}

TEST_F(KivResourceVideoTest, ARatingBeyondSinglePrecisionTakesItsLargestValue) {
  const double largest = static_cast<double>(std::numeric_limits<float>::max());
  EXPECT_EQ(make(with(videoItem(), "rating", 1e300))->rating(), largest);
  EXPECT_EQ(make(with(videoItem(), "rating", -1e300))->rating(), -largest);
}

TEST_F(KivResourceVideoTest, VotesReadAsUnsigned) {
  const auto votes = [](const Value& value) {
    return make(with(videoItem(), "votes", value))->votes();
  };
  constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
  EXPECT_EQ(votes(3.9), 3U);
  EXPECT_EQ(votes(-3.9), largest - 2);
  EXPECT_EQ(votes(true), 1U);
  EXPECT_EQ(votes(-1), largest);
  EXPECT_EQ(votes(largest), largest);
  EXPECT_EQ(votes(1e300), largest);
}

TEST_F(KivResourceVideoTest, VotesAndRatingThatAreNoNumbersAreZero) {
  for (const Value& value : {Value(), Value("12"), Value(Array{1}), Value(Dictionary{{"a", 1}})}) {
    const auto resource = make(with(with(videoItem(), "votes", value), "rating", value));
    ASSERT_TRUE(resource);
    EXPECT_EQ(resource->votes(), 0U);
    EXPECT_EQ(resource->rating(), 0.0);
  }
}

// --- Validation ----------------------------------------------------------------------------------

TEST_F(KivResourceVideoTest, AnEmptyTitlePasses) {
  const auto resource = make(with(videoItem(), "title", ""));
  ASSERT_TRUE(resource);
  EXPECT_EQ(resource->title(), "");
}

TEST_F(KivResourceVideoTest, AnEmptyMarketLinkAndAnEmptyVideoPass) {
  const auto resource = make(with(with(videoItem(), "market_url", ""), "video_file_landscape", ""));
  ASSERT_TRUE(resource);
  EXPECT_EQ(resource->marketLink(), "");
  EXPECT_EQ(resource->missingFilesLinks(), (Strings{iconLink, ""}));
}

TEST_F(KivResourceVideoTest, ThePortraitVideoIsNotTested) {
  EXPECT_TRUE(make(with(videoItem(), "video_file_portrait", 17)));
}

TEST_F(KivResourceVideoTest, TheCheckReadsTheFieldThatWasChosen) {
  const auto resource = make(videoItem());
  const Dictionary portraitAlone = without(videoItem(), "video_file_landscape");
  EXPECT_FALSE(resource->isValidResourceVideoDictionary(portraitAlone));
  resource->setRequiredVideoField("video_file_portrait");
  EXPECT_TRUE(resource->isValidResourceVideoDictionary(portraitAlone));
  resource->selectRequiredVideoField();
  EXPECT_EQ(resource->requiredVideoField(), "video_file_landscape");
}

// --- Stored files --------------------------------------------------------------------------------

TEST_F(KivResourceVideoTest, SetPathTakesEachFileFromLinkedToPresent) {
  const auto resource = make(videoItem());
  const std::string icon = directory_.write("icon.png");
  resource->setPath(icon);
  expectFiles(*resource, Strings{videoLink}, Strings{icon});
  EXPECT_EQ(resource->icon(), icon);
  EXPECT_EQ(resource->video(), std::nullopt);
  EXPECT_EQ((*resource->resourceDictionary())["image"], icon);
  EXPECT_EQ((*resource->resourceDictionary())["video_file_landscape"], videoLink);

  const std::string video = directory_.write("land.mp4");
  resource->setPath(video);
  expectFiles(*resource, Strings(), Strings{icon, video});
  EXPECT_EQ(resource->video(), video);
  EXPECT_EQ((*resource->resourceDictionary())["video_file_landscape"], video);
  EXPECT_TRUE(resource->filesExist());
}

TEST_F(KivResourceVideoTest, SetPathTwiceLeavesOnePath) {
  const auto resource = make(videoItem());
  const std::string icon = directory_.write("icon.png");
  resource->setPath(icon);
  resource->setPath(icon);
  EXPECT_EQ(*resource->filePaths(), Strings{icon});
}

TEST_F(KivResourceVideoTest, ASecondSetPathWithTheSamePathWritesNothing) {
  const auto resource = make(videoItem());
  const std::string icon = directory_.write("icon.png");
  resource->setPath(icon);
  const Dictionary shared = *resource->resourceDictionary();
  const auto links = resource->fileLinks();
  resource->setPath(icon);
  // Copy-on-write: a dictionary that was written to would no longer share its contents.
  EXPECT_EQ(resource->resourceDictionary()->begin(), shared.begin());
  EXPECT_EQ(resource->fileLinks(), links);
  EXPECT_EQ(*links, Strings{videoLink});
}

TEST_F(KivResourceVideoTest, ACompleteResourceMayBeReadWhileItGetsTheSamePathAgain) {
  const auto resource = make(itemWithFiles("cdn/one.mp4", "cdn/one.mp4"));
  const std::string file = directory_.write("one.mp4");
  resource->setPath(file);
  std::thread reader([&] {
    for (int round = 0; round < 100; ++round) {
      EXPECT_TRUE(resource->filesExist());
      EXPECT_EQ(resource->icon(), file);
      EXPECT_EQ(resource->video(), file);
      EXPECT_EQ(resource->useFilePaths(), Strings{file});
      EXPECT_EQ(resource->missingFilesLinks(), Strings());
      EXPECT_TRUE(resource->copyWithZone()->filesExist());
    }
  });
  for (int round = 0; round < 100; ++round)
    resource->setPath(file);
  reader.join();
}

TEST_F(KivResourceVideoTest, OneSetPathFillsBothPlacesWhereTheFileNamesAreEqual) {
  const auto resource = make(itemWithFiles("icons/one.mp4", "videos/one.mp4"));
  EXPECT_EQ(resource->missingFilesLinks(), (Strings{"icons/one.mp4", "videos/one.mp4"}));
  const std::string file = directory_.write("one.mp4");
  resource->setPath(file);
  EXPECT_EQ(resource->icon(), file);
  EXPECT_EQ(resource->video(), file);
  expectFiles(*resource, Strings(), Strings{file});
  EXPECT_EQ((*resource->resourceDictionary())["image"], file);
  EXPECT_EQ((*resource->resourceDictionary())["video_file_landscape"], file);
  EXPECT_TRUE(resource->filesExist());
}

TEST_F(KivResourceVideoTest, TheShorterNameDropsTheLongerLinkThatEndsWithIt) {
  const auto resource = make(itemWithFiles("cdn/promo.mp4", "cdn/new_promo.mp4"));
  const std::string icon = directory_.write("promo.mp4");
  resource->setPath(icon);
  EXPECT_EQ(*resource->fileLinks(), Strings());
  EXPECT_EQ(resource->icon(), icon);
  EXPECT_EQ(resource->video(), std::nullopt);
  EXPECT_FALSE(resource->filesExist());
  EXPECT_EQ(resource->missingFilesLinks(), Strings());

  const std::string video = directory_.write("new_promo.mp4");
  resource->setPath(video);
  EXPECT_EQ(resource->video(), video);
  EXPECT_EQ(*resource->filePaths(), (Strings{icon, video}));
  EXPECT_TRUE(resource->filesExist());
}

TEST_F(KivResourceVideoTest, TheLongerNameLeavesTheShorterLink) {
  const auto resource = make(itemWithFiles("cdn/promo.mp4", "cdn/new_promo.mp4"));
  resource->setPath(directory_.write("new_promo.mp4"));
  EXPECT_EQ(*resource->fileLinks(), Strings{"cdn/promo.mp4"});
}

TEST_F(KivResourceVideoTest, AFileThatIsPresentMovesToAnotherOfTheSameName) {
  const auto resource = make(videoItem());
  const std::string first = directory_.write("first/icon.png");
  const std::string second = directory_.write("second/icon.png");
  resource->setPath(first);
  resource->setPath(second);
  EXPECT_EQ(resource->icon(), second);
  EXPECT_EQ((*resource->resourceDictionary())["image"], second);
  EXPECT_EQ(*resource->filePaths(), (Strings{first, second}));
}

TEST_F(KivResourceVideoTest, WhenAFileIsDeletedOnlyFilesExistTurns) {
  const std::string icon = directory_.write("icon.png");
  const std::string video = directory_.write("land.mp4");
  for (const std::string& deleted : {icon, video}) {
    const auto resource =
        make(itemWithFiles(directory_.write("icon.png"), directory_.write("land.mp4")));
    ASSERT_TRUE(resource->filesExist());
    std::filesystem::remove(deleted);
    EXPECT_FALSE(resource->filesExist()) << deleted;
    EXPECT_EQ(resource->missingFilesLinks(), Strings());
    EXPECT_EQ(resource->useFilePaths(), (Strings{icon, video}));
  }
}

TEST_F(KivResourceVideoTest, ACopyOfACompleteResourceIsComplete) {
  const auto resource = make(videoItem());
  const std::string video = directory_.write("land.mp4");
  const std::string icon = directory_.write("icon.png");
  resource->setPath(video);
  resource->setPath(icon);
  const auto copy = std::dynamic_pointer_cast<KivResourceVideo>(resource->copyWithZone());
  ASSERT_TRUE(copy);
  EXPECT_TRUE(copy->filesExist());
  EXPECT_EQ(copy->useFilePaths(), (Strings{icon, video}));
  EXPECT_EQ(copy->title(), "Promo");
  EXPECT_EQ(copy->votes(), 120U);
  EXPECT_EQ(copy->rating(), 4.699999809265137);
  EXPECT_NE(copy->fileLinks(), resource->fileLinks());
  EXPECT_NE(copy->filePaths(), resource->filePaths());
}

TEST_F(KivResourceVideoTest, ACopyAfterAFileWasDeletedHasThePathAsItsLink) {
  const std::string icon = directory_.write("icon.png");
  const std::string video = directory_.write("land.mp4");
  const auto resource = make(itemWithFiles(icon, video));
  std::filesystem::remove(video);
  const auto copy = std::dynamic_pointer_cast<KivResourceVideo>(resource->copyWithZone());
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->missingFilesLinks(), Strings{video});
  EXPECT_EQ(copy->useFilePaths(), Strings{icon});
  EXPECT_EQ(copy->video(), std::nullopt);
}

TEST_F(KivResourceVideoTest, WorkedExample) {
  const auto resource = make(videoItem());
  EXPECT_EQ(*resource->fileLinks(), (Strings{iconLink, videoLink}));
  EXPECT_EQ(resource->votes(), 120U);
  EXPECT_EQ(resource->rating(), 4.699999809265137);

  const std::string video = directory_.write("land.mp4");
  resource->setPath(video);
  expectFiles(*resource, Strings{iconLink}, Strings{video});
  EXPECT_EQ((*resource->resourceDictionary())["video_file_landscape"], video);
  EXPECT_FALSE(resource->filesExist());

  const std::string icon = directory_.write("icon.png");
  resource->setPath(icon);
  expectFiles(*resource, Strings(), Strings{video, icon});
  EXPECT_TRUE(resource->filesExist());

  const auto restored = make(*resource->resourceDictionary());
  EXPECT_EQ(*restored->fileLinks(), Strings());
  EXPECT_EQ(*restored->filePaths(), (Strings{icon, video}));
}

// --- The lists -----------------------------------------------------------------------------------

TEST_F(KivResourceVideoTest, RemovingALinkReplacesTheListAndKeepsTheOrder) {
  const auto resource = make(videoItem());
  const auto links = std::make_shared<kiv::StringList>();
  links->assign({"a/1", "b/x1", "c/2", "1/d", "e/1"});
  resource->setFileLinks(links);
  resource->removeLinkForFileName("1");
  EXPECT_EQ(*resource->fileLinks(), (Strings{"c/2", "1/d"}));
  EXPECT_EQ(links->size(), 5U);
}

TEST_F(KivResourceVideoTest, RemovingALinkIsCaseSensitive) {
  const auto resource = make(videoItem());
  resource->removeLinkForFileName("ICON.PNG");
  EXPECT_EQ(*resource->fileLinks(), (Strings{iconLink, videoLink}));
}

TEST_F(KivResourceVideoTest, AddingAPathTwiceKeepsOne) {
  const auto resource = make(videoItem());
  for (const char* path : {"/a", "/b", "/a", "/A"})
    resource->addPath(path);
  EXPECT_EQ(*resource->filePaths(), (Strings{"/a", "/b", "/A"}));
}

TEST_F(KivResourceVideoTest, TheAnswersAreSnapshots) {
  const auto resource = make(videoItem());
  Strings links = resource->missingFilesLinks();
  links.clear();
  EXPECT_EQ(resource->missingFilesLinks().size(), 2U);
  resource->fileLinks()->push_back("more");
  resource->filePaths()->push_back("/more");
  EXPECT_EQ(resource->missingFilesLinks().back(), "more");
  EXPECT_EQ(resource->useFilePaths(), Strings{"/more"});
}

TEST_F(KivResourceVideoTest, SettersKeepTheGivenListsThemselves) {
  const auto resource = make(videoItem());
  const auto paths = std::make_shared<kiv::StringList>();
  resource->setFilePaths(paths);
  resource->addPath("/a");
  EXPECT_EQ(resource->filePaths(), paths);
  EXPECT_EQ(*paths, Strings{"/a"});
}

TEST_F(KivResourceVideoTest, ListsThatAreNoneCountAsEmpty) {
  const auto resource = make(videoItem());
  resource->setFileLinks(nullptr);
  resource->setFilePaths(nullptr);
  EXPECT_EQ(resource->missingFilesLinks(), Strings());
  EXPECT_EQ(resource->useFilePaths(), Strings());
  EXPECT_TRUE(resource->valueForProperty("fileLinks").value().isNull());
  resource->removeLinkForFileName("icon.png");
  const std::string icon = directory_.write("icon.png");
  resource->setPath(icon);
  EXPECT_EQ(resource->useFilePaths(), Strings{icon});
}

TEST_F(KivResourceVideoTest, WithoutADictionaryNothingMatches) {
  const auto resource = make(videoItem());
  resource->setResourceDictionary(nullptr);
  resource->setPath(directory_.write("icon.png"));
  EXPECT_EQ(resource->icon(), std::nullopt);
  EXPECT_EQ(resource->useFilePaths(), Strings());
  EXPECT_FALSE(resource->copyWithZone());
}

// --- Subclasses that select another file ---------------------------------------------------------

/// A subclass that selects the portrait video.
class PortraitVideo : public KivResourceVideo {
 public:
  static std::shared_ptr<PortraitVideo> initWithDictionary_engine(const Dictionary& dictionary,
                                                                  const std::string& engine) {
    return initialised(std::shared_ptr<PortraitVideo>(new PortraitVideo), dictionary, engine);
  }
  void selectRequiredVideoField() override { setRequiredVideoField("video_file_portrait"); }

 protected:
  [[nodiscard]] std::shared_ptr<KivResource> emptyInstance() const override {
    return std::shared_ptr<KivResource>(new PortraitVideo);
  }
};

TEST_F(KivResourceVideoTest, WithAnotherChoiceTheLandscapeVideoGoes) {
  const auto resource = PortraitVideo::initWithDictionary_engine(videoItem(), "portrait");
  ASSERT_TRUE(resource);
  EXPECT_FALSE(resource->resourceDictionary()->contains("video_file_landscape"));
  EXPECT_EQ(resource->missingFilesLinks(), (Strings{iconLink, "media/port.mp4"}));
  const std::string video = directory_.write("port.mp4");
  resource->setPath(video);
  EXPECT_EQ(resource->video(), video);
  EXPECT_EQ((*resource->resourceDictionary())["video_file_portrait"], video);
  EXPECT_TRUE(std::dynamic_pointer_cast<PortraitVideo>(resource->copyWithZone()));
}

TEST_F(KivResourceVideoTest, WithAnotherChoiceTheLandscapeVideoIsNotRequired) {
  EXPECT_TRUE(PortraitVideo::initWithDictionary_engine(without(videoItem(), "video_file_landscape"),
                                                       "portrait"));
  EXPECT_FALSE(PortraitVideo::initWithDictionary_engine(without(videoItem(), "video_file_portrait"),
                                                        "portrait"));
}

// --- Properties ----------------------------------------------------------------------------------

TEST_F(KivResourceVideoTest, EveryPropertyIsReachableByItsName) {
  const std::string icon = directory_.write("icon.png");
  const auto resource = make(with(videoItem(), "image", icon));
  const auto value = [&](const char* name) { return resource->valueForProperty(name).value(); };
  EXPECT_EQ(value("title"), "Promo");
  EXPECT_EQ(value("marketLink"), "https://market.test/app/2");
  EXPECT_EQ(value("icon"), icon);
  EXPECT_TRUE(value("video").isNull());
  EXPECT_EQ(value("votes"), 120);
  EXPECT_EQ(value("rating"), 4.699999809265137);
  EXPECT_EQ(value("fileLinks"), (Array{videoLink}));
  EXPECT_EQ(value("filePaths"), (Array{icon}));
  EXPECT_EQ(value("requiredVideoField"), "video_file_landscape");
  EXPECT_EQ(value("resourceID"), "b-1");
  EXPECT_FALSE(resource->valueForProperty("fileIsLoaded").has_value());
}

TEST_F(KivResourceVideoTest, EveryPropertyCanBeSet) {
  const auto resource = make(videoItem());
  resource->setTitle("t");
  resource->setMarketLink("m");
  resource->setIcon("i");
  resource->setVideo("v");
  resource->setVotes(std::numeric_limits<std::uint64_t>::max());
  resource->setRating(4.7);
  resource->setRequiredVideoField("f");
  EXPECT_EQ(resource->title(), "t");
  EXPECT_EQ(resource->marketLink(), "m");
  EXPECT_EQ(resource->icon(), "i");
  EXPECT_EQ(resource->video(), "v");
  EXPECT_EQ(resource->votes(), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(resource->rating(), 4.7);
  EXPECT_EQ(resource->requiredVideoField(), "f");
  resource->setIcon(std::nullopt);
  resource->setVideo(std::nullopt);
  EXPECT_EQ(resource->icon(), std::nullopt);
  EXPECT_EQ(resource->video(), std::nullopt);
}

}  // namespace
