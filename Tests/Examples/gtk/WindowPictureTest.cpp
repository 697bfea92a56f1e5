#include <gtest/gtest.h>

#include "Tests/Examples/gtk/Screen.h"
#include "Tests/Examples/gtk/WindowFixture.h"

using kiv::test::contains;
using kiv::test::content;
using kiv::test::pictureIn;
using kiv::test::screenshot;
using kiv::test::waitUntil;

class WindowPictureTest : public kiv::test::WindowFixture {
 protected:
  /// Waits until the window has been drawn again.
  bool waitForDrawing() {
    GtkNative* const native = gtk_widget_get_native(window_->widget());
    GdkFrameClock* const clock = gdk_surface_get_frame_clock(gtk_native_get_surface(native));
    int frames = 0;
    const auto counter = g_signal_connect(
        clock, "after-paint",
        G_CALLBACK(+[](GdkFrameClock*, gpointer count) { ++*static_cast<int*>(count); }), &frames);
    gtk_widget_queue_draw(window_->widget());
    const bool isDrawn = waitUntil([&] { return frames >= 1; });
    g_signal_handler_disconnect(clock, counter);
    return isDrawn;
  }
};

TEST_F(WindowPictureTest, DrawsTheBannersPixelByPixel) {
  const auto first = pictureIn(content("server/banners/spring/v1/northlight-spring-1.png"));
  const auto second = pictureIn(content("server/banners/spring/v2/northlight-spring-2.png"));
  open();
  ASSERT_TRUE(run("load", content("first.json")));
  EXPECT_TRUE(waitUntil([&] { return contains(screenshot(), first); }));
  EXPECT_FALSE(contains(screenshot(), second));
  kiv::test::keep(screenshot(), "gtk-first");
  ASSERT_TRUE(run("update", content("second.json")));
  EXPECT_TRUE(waitUntil([&] { return contains(screenshot(), second); }));
  EXPECT_FALSE(contains(screenshot(), first));
  click("free");
  ASSERT_TRUE(waitUntil([&] { return gtk_widget_get_mapped(named("question")); }));
  EXPECT_TRUE(waitForDrawing());
  kiv::test::keep(screenshot(), "gtk-second");
}
