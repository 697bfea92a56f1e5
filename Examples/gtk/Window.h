#pragma once

#include <gtk/gtk.h>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "Cache.h"
#include "CacheListener.h"
#include "Widgets.h"

/// The window. It is made, used and destroyed on the thread of GTK's main loop, which drains the
/// main queue (GLibMainQueue).
class Window final : private CacheListener {
 public:
  /// `configuration` stands in the field at first. `closed` is called when the user closes the
  /// window, which is to be destroyed then.
  Window(const CacheSetup& setup, const std::string& configuration, std::function<void()> closed,
         Opener open = {});
  /// Stops what runs. Waits for the current job of the manager's queue, which may store a file or
  /// unpack an archive.
  ~Window() override;
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;

  [[nodiscard]] GtkWidget* widget() const { return GTK_WIDGET(window_); }

 private:
  void itemLoaded(const ShownItem& item) override;
  void itemsLeft(const std::set<std::string>& ids) override;
  void progressed(const std::string& text) override;
  void removalPlanned(const Removal& removal) override;
  void ended(const Outcome& outcome) override;

  GtkWidget* newCommands();
  GtkWidget* newQuestion();
  GtkWidget* newLists();
  void begin(const std::string& text, std::function<void(Cache&)> job);
  void start(bool dropsRest);
  void togglePause();
  void answer(bool removes);
  void setBusy(bool isBusy);
  void showSections();
  void show(const std::string& status);
  /// Runs the job on the manager's queue.
  void post(std::function<void(Cache&)> job);

  GtkWindow* const window_;
  GtkEditable* configuration_ = nullptr;
  std::set<GtkWidget*> commands_;  ///< Those for which the cache must be idle.
  GtkButton* pause_ = nullptr;
  GtkLabel* status_ = nullptr;
  GtkWidget* question_ = nullptr;
  GtkLabel* questionText_ = nullptr;
  GtkWidget* failures_ = nullptr;
  GtkBox* failureRows_ = nullptr;
  std::map<ShownItem::Kind, GtkBox*> sections_;
  std::map<std::string, GtkWidget*> rows_;  ///< By identifier.
  Removal removal_;                         ///< What the question is about.
  bool isPaused_ = false;

  const std::function<void()> closed_;
  const Opener open_;
  const std::shared_ptr<CacheListener> self_;  ///< For a weak pointer; it owns nothing.
  const std::shared_ptr<kiv::DispatchQueue> queue_;
  std::shared_ptr<Cache> cache_;  ///< Used in jobs of the queue alone.
};
