#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/ResourceItems.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tools/kivresource/Gallery.h"

namespace {

using kiv::test::with;
using testing::HasSubstr;

TEST(GalleryTest, ShowsAVideoWithTitleRatingAndVotes) {
  const kiv::test::TemporaryDirectory directory;
  auto item = with(kiv::test::videoItem(), "title", "Night & Day");
  item.set("image", directory.write("icon.png"));
  item.set("video_file_landscape", directory.write("land.mp4"));
  const std::string page =
      tool::galleryPage({KivResourceVideo::initWithDictionary_engine(item, "eco_video")});
  EXPECT_THAT(page, HasSubstr("<video controls preload=\"metadata\" src=\"file://" +
                              directory.path("land.mp4") + "\">"));
  EXPECT_THAT(page, HasSubstr("src=\"file://" + directory.path("icon.png") + "\""));
  EXPECT_THAT(page, HasSubstr("href=\"https://market.test/app/2\">Night &amp; Day</a>"));
  EXPECT_THAT(page, HasSubstr("★★★★★</span> 4.7 <span class=\"votes\">120 votes</span>"));
}

TEST(GalleryTest, ShowsAPageInAFrameThatStaysInIt) {
  const kiv::test::TemporaryDirectory directory;
  const auto item = with(kiv::test::webItem(), "html", directory.write("page/index.html"));
  EXPECT_THAT(
      tool::galleryPage({KivResourceWeb::initWithDictionary_engine(item, "eco_fs")}),
      HasSubstr(
          "<iframe sandbox=\"allow-same-origin allow-scripts\" title=\"Spring\" src=\"file://" +
          directory.path("page/index.html") + "\">"));
}

TEST(GalleryTest, ShowsAResourceWithoutFilesAndEvenTheWildestRating) {
  auto wild = with(kiv::test::videoItem(), "rating", 1e308);
  EXPECT_THAT(
      tool::galleryPage({KivResource::initWithDictionary_engine(kiv::test::plainItem(), "<other>"),
                         KivResourceVideo::initWithDictionary_engine(wild, "eco_video")}),
      testing::AllOf(HasSubstr("2 resources"), HasSubstr("&lt;other&gt;")));
}

}  // namespace
