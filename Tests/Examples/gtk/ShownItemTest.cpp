#include <gdk-pixbuf/gdk-pixbuf.h>

#include <gtest/gtest.h>

#include "Examples/gtk/ShownItem.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

class PictureTest : public testing::Test {
 protected:
  [[nodiscard]] std::string picture(int width, int height, const char* format) const {
    const std::string path = directory_.path(format);
    GdkPixbuf* const pixels = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height);
    gdk_pixbuf_fill(pixels, 0x336699ff);
    EXPECT_TRUE(gdk_pixbuf_save(pixels, path.c_str(), format, nullptr, nullptr));
    g_object_unref(pixels);
    return path;
  }

  kiv::test::TemporaryDirectory directory_;
};

}  // namespace

TEST_F(PictureTest, IsDecodedWhateverItsNameSays) {
  for (const char* const format : {"png", "jpeg"}) {
    const auto texture = pictureAt(picture(4096, 2, format));
    ASSERT_TRUE(texture) << format;
    EXPECT_EQ(gdk_texture_get_width(texture.get()), 4096);
    EXPECT_EQ(gdk_texture_get_height(texture.get()), 2);
  }
}

TEST_F(PictureTest, IsNotDecodedIfItIsTooLarge) {
  EXPECT_FALSE(pictureAt(picture(4097, 1, "png")));
  EXPECT_FALSE(pictureAt(picture(1, 4097, "png")));
}

TEST_F(PictureTest, IsNotDecodedInAnotherFormat) {
  EXPECT_FALSE(pictureAt(picture(8, 8, "bmp")));
}

TEST_F(PictureTest, MayBeMissingOrDamaged) {
  EXPECT_FALSE(pictureAt(directory_.path("none")));
  EXPECT_FALSE(pictureAt(directory_.path()));
  EXPECT_FALSE(pictureAt(""));
  EXPECT_FALSE(pictureAt(directory_.write("text", "no picture")));
  EXPECT_FALSE(
      pictureAt(directory_.write("cut", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16))));
}

TEST(WebLinkTest, IsHTTPWithAHost) {
  EXPECT_EQ(webLink("https://shop.example/a?b#c"), "https://shop.example/a?b#c");
  EXPECT_EQ(webLink("HTTP://shop.example"), "HTTP://shop.example");
  for (const char* const other : {"", "file:///etc/passwd", "javascript:alert(1)", "shop.example",
                                  "https://", "http:a", "mailto:a@b.example", "https://a b"})
    EXPECT_EQ(webLink(other), "") << other;
}
