#include "Window.h"

#include <utility>

#include "Report.h"

namespace {

constexpr int gap = 12;  // pixels
/// If a server is down, every file of a long configuration fails. Nobody reads all of these.
constexpr std::size_t mostFailures = 200;
constexpr std::size_t mostPaths = 8;

GtkWidget* newBox(GtkOrientation orientation) {
  return gtk_box_new(orientation, gap);
}

GtkWidget* newScroller(GtkWidget* child, int height) {
  GtkWidget* const scroller = gtk_scrolled_window_new();
  gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(scroller), child);
  // Otherwise pictures would shrink to the height of the window.
  gtk_scrollable_set_vscroll_policy(
      GTK_SCROLLABLE(gtk_scrolled_window_get_child(GTK_SCROLLED_WINDOW(scroller))),
      GTK_SCROLL_NATURAL);
  gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scroller), GTK_POLICY_NEVER,
                                 GTK_POLICY_AUTOMATIC);
  if (height > 0) {
    gtk_scrolled_window_set_propagate_natural_height(GTK_SCROLLED_WINDOW(scroller), TRUE);
    gtk_scrolled_window_set_max_content_height(GTK_SCROLLED_WINDOW(scroller), height);
  }
  return scroller;
}

/// By the program that the desktop has for it.
void openByDesktop(const std::string& uri) {
  GdkAppLaunchContext* const context =
      gdk_display_get_app_launch_context(gdk_display_get_default());
  g_app_info_launch_default_for_uri_async(uri.c_str(), G_APP_LAUNCH_CONTEXT(context), nullptr,
                                          nullptr, nullptr);
  g_object_unref(context);
}

std::string nameOf(const std::string& path) {
  char* const text = g_filename_display_basename(path.c_str());
  std::string name = kiv::escapingControlCharacters(text);
  g_free(text);
  return name;
}

std::string questionAbout(const Removal& removal) {
  std::string text = "Remove what no resource needs?";
  for (std::size_t i = 0; i < removal.paths.size() && i < mostPaths; ++i)
    text += "\n• " + nameOf(removal.paths[i]);
  if (removal.paths.size() > mostPaths) {
    text += "\nand " + std::to_string(removal.paths.size() - mostPaths) + " more";
  }
  return text;
}

}  // namespace

Window::Window(const CacheSetup& setup, const std::string& configuration,
               std::function<void()> closed, Opener open)
    : window_(GTK_WINDOW(gtk_window_new())),
      closed_(std::move(closed)),
      open_(open ? std::move(open) : openByDesktop),
      self_(static_cast<CacheListener*>(this), [](CacheListener*) {}),
      queue_(kiv::DispatchQueue::serial("resources")),
      cache_(std::make_shared<Cache>(setup, self_, queue_)) {
  gtk_window_set_title(window_, "Resources");
  gtk_window_set_default_size(window_, 900, 760);
  GtkWidget* const all = newBox(GTK_ORIENTATION_VERTICAL);
  gtk_widget_set_margin_top(all, gap);
  gtk_widget_set_margin_bottom(all, gap);
  gtk_widget_set_margin_start(all, gap);
  gtk_widget_set_margin_end(all, gap);
  gtk_window_set_child(window_, all);
  gtk_box_append(GTK_BOX(all), newCommands());
  status_ = GTK_LABEL(newLabel(""));
  gtk_widget_set_name(GTK_WIDGET(status_), "status");
  gtk_box_append(GTK_BOX(all), GTK_WIDGET(status_));
  gtk_box_append(GTK_BOX(all), newQuestion());
  gtk_box_append(GTK_BOX(all), newLists());
  gtk_editable_set_text(configuration_, configuration.c_str());
  g_signal_connect(window_, "close-request", G_CALLBACK(+[](GtkWindow*, gpointer self) -> gboolean {
                     static_cast<Window*>(self)->closed_();
                     return TRUE;  // the destructor destroys it
                   }),
                   this);
  begin("Opening the cache", [](Cache& cache) { cache.open(); });
  gtk_window_present(window_);
}

Window::~Window() {
  gtk_window_destroy(window_);
  const kiv::Status closed = queue_->sync([this] {
    cache_->close();
    cache_.reset();
  });
  if (!closed) kiv::SystemLog::write(closed.error().localizedDescription());
}

GtkWidget* Window::newCommands() {
  GtkWidget* const rows = newBox(GTK_ORIENTATION_VERTICAL);
  GtkWidget* const first = newBox(GTK_ORIENTATION_HORIZONTAL);
  GtkWidget* const second = newBox(GTK_ORIENTATION_HORIZONTAL);
  gtk_box_append(GTK_BOX(rows), first);
  gtk_box_append(GTK_BOX(rows), second);
  GtkWidget* const entry = gtk_entry_new();
  gtk_entry_set_placeholder_text(GTK_ENTRY(entry), "A configuration: a file or an http(s) address");
  gtk_widget_set_name(entry, "configuration");
  gtk_widget_set_hexpand(entry, TRUE);
  configuration_ = GTK_EDITABLE(entry);
  gtk_box_append(GTK_BOX(first), entry);
  const auto add = [this](GtkWidget* row, GtkWidget* button, bool needsIdleCache) {
    gtk_box_append(GTK_BOX(row), button);
    if (needsIdleCache) commands_.insert(button);
    return button;
  };
  add(first, newButton("load", "Load", [this] { start(false); }), true);
  GtkWidget* const update =
      add(first, newButton("update", "Update", [this] { start(true); }), true);
  gtk_widget_add_css_class(update, "suggested-action");
  add(second, newButton("stop", "Stop", [this] { post([](Cache& cache) { cache.stop(); }); }),
      false);
  pause_ = GTK_BUTTON(add(second, newButton("pause", "Pause", [this] { togglePause(); }), false));
  add(second,
      newButton("check", "Check for changes",
                [this] { begin("Asking the servers", [](Cache& cache) { cache.revalidate(); }); }),
      true);
  add(second,
      newButton("free", "Free space",
                [this] { begin("Looking", [](Cache& cache) { cache.planRemoval(); }); }),
      true);
  return rows;
}

GtkWidget* Window::newQuestion() {
  question_ = newBox(GTK_ORIENTATION_HORIZONTAL);
  gtk_widget_set_name(question_, "question");
  GtkWidget* const text = newLabel("");
  gtk_widget_set_name(text, "question-text");
  gtk_widget_set_hexpand(text, TRUE);
  questionText_ = GTK_LABEL(text);
  GtkWidget* const remove = newButton("remove", "Remove", [this] { answer(true); });
  gtk_widget_add_css_class(remove, "destructive-action");
  for (GtkWidget* const child :
       {text, newButton("keep", "Keep", [this] { answer(false); }), remove}) {
    if (child != text) gtk_widget_set_valign(child, GTK_ALIGN_START);
    gtk_box_append(GTK_BOX(question_), child);
  }
  gtk_widget_hide(question_);
  return question_;
}

GtkWidget* Window::newLists() {
  GtkWidget* const lists = newBox(GTK_ORIENTATION_VERTICAL);
  failureRows_ = GTK_BOX(newBox(GTK_ORIENTATION_VERTICAL));
  failures_ = newScroller(GTK_WIDGET(failureRows_), 160);
  gtk_box_append(GTK_BOX(lists), failures_);
  GtkWidget* const gallery = newBox(GTK_ORIENTATION_VERTICAL);
  for (const auto& [kind, title] : {std::pair(ShownItem::Kind::banner, "Banners"),
                                    std::pair(ShownItem::Kind::promotion, "Promotions"),
                                    std::pair(ShownItem::Kind::page, "Pages")}) {
    GtkWidget* const section = newBox(GTK_ORIENTATION_VERTICAL);
    gtk_box_append(GTK_BOX(section), newLabel(title, "title-3"));
    gtk_box_append(GTK_BOX(gallery), section);
    sections_[kind] = GTK_BOX(section);
  }
  showSections();
  GtkWidget* const scroller = newScroller(gallery, 0);
  gtk_widget_set_vexpand(scroller, TRUE);
  gtk_box_append(GTK_BOX(lists), scroller);
  return lists;
}

void Window::post(std::function<void(Cache&)> job) {
  queue_->async([cache = cache_, job = std::move(job)] { job(*cache); });
}

void Window::begin(const std::string& text, std::function<void(Cache&)> job) {
  setBusy(true);
  removeChildren(failureRows_);
  gtk_widget_hide(failures_);
  show(text);
  post(std::move(job));
}

void Window::start(bool dropsRest) {
  const std::string configuration = gtk_editable_get_text(configuration_);
  if (webLink(configuration).empty()) {
    return begin("Starting", [=](Cache& cache) { cache.startFile(configuration, dropsRest); });
  }
  if (!dropsRest) return show("An address is checked by Update");
  begin("Fetching the configuration", [=](Cache& cache) { cache.checkURL(configuration); });
}

void Window::togglePause() {
  isPaused_ = !isPaused_;
  gtk_button_set_label(pause_, isPaused_ ? "Resume" : "Pause");
  post([isPaused = isPaused_](Cache& cache) { cache.setPaused(isPaused); });
}

void Window::answer(bool removes) {
  gtk_widget_hide(question_);
  if (removes) {
    return begin("Removing", [removal = removal_](Cache& cache) { cache.remove(removal); });
  }
  setBusy(false);
  show("Nothing was removed");
}

void Window::setBusy(bool isBusy) {
  for (GtkWidget* const command : commands_)
    gtk_widget_set_sensitive(command, !isBusy);
}

void Window::show(const std::string& status) {
  gtk_label_set_text(status_, status.c_str());
}

/// Those with a row below their title.
void Window::showSections() {
  for (const auto& section : sections_) {
    GtkWidget* const box = GTK_WIDGET(section.second);
    gtk_widget_set_visible(box, gtk_widget_get_first_child(box) != gtk_widget_get_last_child(box));
  }
}

void Window::itemLoaded(const ShownItem& item) {
  GtkWidget* const row = newItemRow(item, open_);
  GtkWidget*& shown = rows_[item.id];
  if (shown) {
    GtkBox* const section = GTK_BOX(gtk_widget_get_parent(shown));
    if (section == sections_[item.kind]) gtk_box_insert_child_after(section, row, shown);
    gtk_box_remove(section, shown);
  }
  if (!gtk_widget_get_parent(row)) gtk_box_append(sections_[item.kind], row);
  shown = row;
  showSections();
}

void Window::itemsLeft(const std::set<std::string>& ids) {
  std::erase_if(rows_, [&ids](const auto& row) {
    if (ids.count(row.first) > 0) return false;
    gtk_box_remove(GTK_BOX(gtk_widget_get_parent(row.second)), row.second);
    return true;
  });
  showSections();
}

void Window::progressed(const std::string& text) {
  show(isPaused_ ? "Paused: " + text : text);
}

void Window::removalPlanned(const Removal& removal) {
  removal_ = removal;
  show(textOfSize(removal.bytes) + " could be freed");
  gtk_label_set_text(questionText_, questionAbout(removal).c_str());
  gtk_widget_show(question_);
}

void Window::ended(const Outcome& outcome) {
  setBusy(gtk_widget_get_visible(question_) != FALSE);
  show(outcome.summary);
  removeChildren(failureRows_);
  for (std::size_t i = 0; i < outcome.failures.size() && i < mostFailures; ++i)
    gtk_box_append(failureRows_, newFailureRow(outcome.failures[i]));
  gtk_widget_set_visible(failures_, !outcome.failures.empty());
}
