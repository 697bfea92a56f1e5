#include "Tests/Examples/gtk/Screen.h"

#include <cstring>
#include <filesystem>

#include <gtest/gtest.h>

// Last, since its macros have names that other headers use.
#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace kiv::test {

namespace {

Picture newPicture(int width, int height) {
  return {gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height),
          [](GdkPixbuf* unused) { g_object_unref(unused); }};
}

guchar* pixelAt(const Picture& picture, int x, int y) {
  return gdk_pixbuf_get_pixels(picture.get()) +
         std::ptrdiff_t{y} * gdk_pixbuf_get_rowstride(picture.get()) +
         std::ptrdiff_t{x} * gdk_pixbuf_get_n_channels(picture.get());
}

bool standsAt(int x, int y, const Picture& part, const Picture& whole) {
  const auto length = static_cast<std::size_t>(gdk_pixbuf_get_width(part.get())) * 3;
  for (int line = 0; line < gdk_pixbuf_get_height(part.get()); ++line) {
    if (std::memcmp(pixelAt(part, 0, line), pixelAt(whole, x, y + line), length) != 0) return false;
  }
  return true;
}

}  // namespace

Picture screenshot() {
  Display* const display = XOpenDisplay(nullptr);
  EXPECT_TRUE(display);
  XWindowAttributes root{};
  XGetWindowAttributes(display, DefaultRootWindow(display), &root);
  XImage* const image = XGetImage(display, root.root, 0, 0, static_cast<unsigned>(root.width),
                                  static_cast<unsigned>(root.height), AllPlanes, ZPixmap);
  const Picture picture = newPicture(root.width, root.height);
  for (int y = 0; y < root.height; ++y) {
    for (int x = 0; x < root.width; ++x) {
      const unsigned long color = XGetPixel(image, x, y);
      guchar* const pixel = pixelAt(picture, x, y);
      for (int channel = 0; channel < 3; ++channel)
        pixel[channel] = static_cast<guchar>(color >> (16 - 8 * channel) & 0xff);
    }
  }
  XDestroyImage(image);
  XCloseDisplay(display);
  return picture;
}

Picture pictureIn(const std::string& file) {
  const Picture read(gdk_pixbuf_new_from_file(file.c_str(), nullptr),
                     [](GdkPixbuf* unused) { g_object_unref(unused); });
  EXPECT_TRUE(read) << file;
  const Picture picture =
      newPicture(gdk_pixbuf_get_width(read.get()), gdk_pixbuf_get_height(read.get()));
  gdk_pixbuf_composite(read.get(), picture.get(), 0, 0, gdk_pixbuf_get_width(read.get()),
                       gdk_pixbuf_get_height(read.get()), 0, 0, 1, 1, GDK_INTERP_NEAREST, 255);
  return picture;
}

bool contains(const Picture& whole, const Picture& part) {
  const int width = gdk_pixbuf_get_width(whole.get()) - gdk_pixbuf_get_width(part.get());
  const int height = gdk_pixbuf_get_height(whole.get()) - gdk_pixbuf_get_height(part.get());
  for (int y = 0; y <= height; ++y) {
    for (int x = 0; x <= width; ++x) {
      if (standsAt(x, y, part, whole)) return true;
    }
  }
  return false;
}

void keep(const Picture& picture, const std::string& name) {
  std::filesystem::create_directories(PICTURES);
  const std::string file = std::string(PICTURES) + "/" + name + ".png";
  EXPECT_TRUE(gdk_pixbuf_save(picture.get(), file.c_str(), "png", nullptr, nullptr));
}

}  // namespace kiv::test
