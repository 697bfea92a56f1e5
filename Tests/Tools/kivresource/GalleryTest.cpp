#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/CacheFixture.h"
#include "Tests/Support/ResourceItems.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tools/kivresource/Gallery.h"

namespace {

using kiv::test::with;
using testing::HasSubstr;
using testing::Not;

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

TEST(GalleryTest, LetsNothingButLocalFilesInAndNoScripts) {
  const std::string page = tool::galleryPage({});
  EXPECT_THAT(page, HasSubstr("<meta http-equiv=\"Content-Security-Policy\" "
                              "content=\"default-src 'none'; "));
  EXPECT_THAT(page, Not(HasSubstr("script-src")));
  EXPECT_LT(page.find("Content-Security-Policy"), page.find("<style>"));
}

class GalleryOfPagesTest : public kiv::test::CacheFixture {
 protected:
  [[nodiscard]] static std::string gallery(const std::string& path) {
    const auto item = with(kiv::test::webItem(), "html", path);
    return tool::galleryPage({KivResourceWeb::initWithDictionary_engine(item, "eco_fs")});
  }
};

TEST_F(GalleryOfPagesTest, ShowsAPageOfAnArchiveWithTheFilesOfItsDirectory) {
  write(stored("a page/index.html"), "<p title=\"x\">a &amp; b</p>");
  EXPECT_THAT(gallery(stored("a page/index.html")),
              HasSubstr("<iframe sandbox=\"allow-same-origin\" title=\"Spring\" "
                        "srcdoc=\"&lt;base href=&quot;file://" +
                        stored("a%20page/") +
                        "&quot;&gt;&lt;p title=&quot;x&quot;&gt;a &amp;amp; b&lt;/p&gt;\">"));
}

TEST_F(GalleryOfPagesTest, ShowsAPageOfOneFileWithoutAnyOther) {
  const std::string elsewhere = root() + "/../elsewhere/index.html";
  for (const std::string& path : {stored("page.html"), stored("index.html"), elsewhere}) {
    write(path, "<img src='a.png'>");
    EXPECT_THAT(gallery(path), HasSubstr("<iframe sandbox=\"\" title=\"Spring\" "
                                         "srcdoc=\"&lt;img src=&#39;a.png&#39;&gt;\">"));
  }
}

TEST_F(GalleryOfPagesTest, SaysSoWhereAPageCannotBeShown) {
  write(stored("large.html"), std::string(std::size_t{4} * 1024 * 1024 + 4096, ' '));
  EXPECT_THAT(gallery(stored("large.html")), HasSubstr("<p>The page is too large to show.</p>"));
  EXPECT_THAT(gallery(stored("none.html")), HasSubstr("<p>The page cannot be read.</p>"));
}

TEST(GalleryTest, ShowsAResourceWithoutFilesAndEvenTheWildestRating) {
  auto wild = with(kiv::test::videoItem(), "rating", 1e308);
  EXPECT_THAT(
      tool::galleryPage({KivResource::initWithDictionary_engine(kiv::test::plainItem(), "<other>"),
                         KivResourceVideo::initWithDictionary_engine(wild, "eco_video")}),
      testing::AllOf(HasSubstr("2 resources"), HasSubstr("&lt;other&gt;")));
}

}  // namespace
