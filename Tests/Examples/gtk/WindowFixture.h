#pragma once

#include <functional>
#include <gtk/gtk.h>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Examples/glib/GLibMainQueue.h"
#include "Examples/gtk/Window.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tools/contentserver/ContentServer.h"

namespace kiv::test {

/// The path of an item of the sample content.
std::string content(const std::string& path);

/// Runs GLib's main loop until the predicate is true; false after a minute.
bool waitUntil(const std::function<bool()>& predicate);

/// The widgets of that name in the tree, in their order.
std::vector<GtkWidget*> widgetsNamed(GtkWidget* root, const std::string& name);
/// The texts of all visible labels in the tree, one a line.
std::string textsIn(GtkWidget* root);

/// A window with its own storage root and a server of the sample content. It is driven by the
/// buttons.
class WindowFixture : public testing::Test {
 protected:
  WindowFixture();

  /// Opens the window and waits for the contents of its cache. `server`: instead of the sample
  /// content's.
  void open(const std::string& server = {});
  void open(CacheSetup setup);
  /// Closes it, as the end of the program does.
  void close() { window_.reset(); }

  /// The only widget of that name, or nullptr.
  [[nodiscard]] GtkWidget* named(const std::string& name) const;
  [[nodiscard]] std::string texts() const { return textsIn(window_->widget()); }
  [[nodiscard]] std::string status() const;
  [[nodiscard]] std::size_t count(const std::string& name) const;
  /// As a user does, who can press only visible and sensitive buttons.
  static void click(GtkWidget* button);
  void click(const std::string& name) const { click(named(name)); }
  void choose(const std::string& configuration) const;
  [[nodiscard]] bool isIdle() const;
  /// Chooses the configuration, presses the button and waits for the end.
  bool run(const std::string& button, const std::string& configuration);
  /// Presses the button and waits until the window is idle again.
  bool run(const std::string& button);

  /// Writes a configuration, and returns its path. `items` is the text of its array.
  [[nodiscard]] std::string configuration(const std::string& items) const;
  static std::string banner(const std::string& link, int updated = 1);
  static std::string page(const std::string& link, int updated = 1);

  TemporaryDirectory directory_;
  ContentServer server_{content("server")};
  std::vector<std::string> opened_;  ///< What would have been opened by the desktop.
  bool isClosed_ = false;
  GLibMainQueue mainQueue_;
  std::optional<Window> window_;
};

}  // namespace kiv::test
