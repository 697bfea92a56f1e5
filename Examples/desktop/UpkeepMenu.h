#pragma once

#include <QMenu>
#include <functional>

class CacheSession;

/// The menu for the care of the cache: keep it up to date, check the stored files, free space. What
/// comes of it the window hears from the session.
class UpkeepMenu final : public QMenu {
  Q_OBJECT

 public:
  /// The session must outlive the menu. `configuration` returns the one that is chosen.
  UpkeepMenu(CacheSession& session, std::function<QString()> configuration, QWidget* parent);

 private:
  QAction* add(const QString& text, const QKeySequence& key, const QString& tip);
  void follow(bool follows);
  void freeSpace();

  CacheSession& session_;
  const std::function<QString()> configuration_;
};
