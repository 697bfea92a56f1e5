#include "Tests/Examples/gtk/WindowFixture.h"

namespace kiv::test {

namespace {

void collect(GtkWidget* root, const std::function<void(GtkWidget*)>& visit) {
  visit(root);
  for (GtkWidget* child = gtk_widget_get_first_child(root); child;
       child = gtk_widget_get_next_sibling(child))
    collect(child, visit);
}

}  // namespace

std::string content(const std::string& path) {
  return std::string(KIVRESOURCE_CONTENT) + "/" + path;
}

bool waitUntil(const std::function<bool()>& predicate) {
  constexpr unsigned patience = 60;   // seconds
  constexpr unsigned lookAgain = 20;  // milliseconds, for what wakes no loop
  bool isLate = false;
  const auto alarm = g_timeout_add_seconds(
      patience,
      [](gpointer late) -> gboolean {
        *static_cast<bool*>(late) = true;
        return G_SOURCE_CONTINUE;
      },
      &isLate);
  // After drawing, which has a low priority itself.
  const auto tick = g_timeout_add_full(
      G_PRIORITY_LOW, lookAgain, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr,
      nullptr);
  while (!predicate() && !isLate)
    g_main_context_iteration(nullptr, TRUE);
  g_source_remove(alarm);
  g_source_remove(tick);
  return !isLate;
}

std::vector<GtkWidget*> widgetsNamed(GtkWidget* root, const std::string& name) {
  std::vector<GtkWidget*> found;
  collect(root, [&](GtkWidget* widget) {
    if (gtk_widget_get_name(widget) == name) found.push_back(widget);
  });
  return found;
}

std::string textsIn(GtkWidget* root) {
  std::string texts;
  collect(root, [&](GtkWidget* widget) {
    if (GTK_IS_LABEL(widget) && gtk_widget_get_mapped(widget))
      texts += std::string(gtk_label_get_text(GTK_LABEL(widget))) + "\n";
  });
  return texts;
}

WindowFixture::WindowFixture() {
  EXPECT_TRUE(server_.start());
}

void WindowFixture::open(const std::string& server) {
  open(CacheSetup{
      directory_.path("root"), server.empty() ? server_.url() : server, {}, std::chrono::hours(1)});
}

void WindowFixture::open(CacheSetup setup) {
  window_.emplace(
      setup, "", [this] { isClosed_ = true; },
      [this](const std::string& uri) { opened_.push_back(uri); });
  ASSERT_TRUE(waitUntil([this] { return isIdle() && gtk_widget_get_mapped(window_->widget()); }));
}

GtkWidget* WindowFixture::named(const std::string& name) const {
  const auto found = widgetsNamed(window_->widget(), name);
  EXPECT_EQ(found.size(), 1U) << name;
  return found.empty() ? nullptr : found.front();
}

std::string WindowFixture::status() const {
  return gtk_label_get_text(GTK_LABEL(named("status")));
}

std::size_t WindowFixture::count(const std::string& name) const {
  return widgetsNamed(window_->widget(), name).size();
}

void WindowFixture::click(GtkWidget* button) {
  ASSERT_TRUE(button && gtk_widget_get_visible(button) && gtk_widget_is_sensitive(button));
  g_signal_emit_by_name(button, "clicked");
}

void WindowFixture::choose(const std::string& configuration) const {
  gtk_editable_set_text(GTK_EDITABLE(named("configuration")), configuration.c_str());
}

bool WindowFixture::isIdle() const {
  return gtk_widget_get_sensitive(named("update"));
}

bool WindowFixture::run(const std::string& button, const std::string& configuration) {
  choose(configuration);
  return run(button);
}

bool WindowFixture::run(const std::string& button) {
  click(button);
  return waitUntil([this] { return isIdle(); });
}

std::string WindowFixture::configuration(const std::string& items) const {
  return directory_.write("configuration.json", R"({"items": [)" + items + "]}");
}

std::string WindowFixture::banner(const std::string& link, int updated) {
  return R"({"engine": "eco_standard", "name": "A <b>banner</b>", "type": "t", "banner_id": "1",
      "priority": 1, "market_url": "file:///etc/passwd", "updated": )" +
         std::to_string(updated) + R"(, "image_728x90": ")" + link + R"("})";
}

std::string WindowFixture::page(const std::string& link, int updated) {
  return R"({"engine": "eco_fs", "name": "A page", "type": "t", "banner_id": "2",
      "priority": 1, "updated": )" +
         std::to_string(updated) + R"(, "html": ")" + link + R"("})";
}

}  // namespace kiv::test
