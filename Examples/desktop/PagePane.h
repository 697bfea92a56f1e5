#pragma once

#include <QList>
#include <QWidget>

#include "CacheItem.h"

class PageView;
class QTabBar;

/// The HTML pages, one at a time, with a tab for each. However many pages there are, there is one
/// view of them.
class PagePane final : public QWidget {
  Q_OBJECT

 public:
  explicit PagePane(QWidget* parent = nullptr);

  /// Shows these pages, and goes on with the one that is on show where it is among them.
  void present(const QList<CacheItem>& pages);
  /// Adds the page, or puts it in the place of the one with its id.
  void add(const CacheItem& page);
  [[nodiscard]] bool isEmpty() const { return pages_.isEmpty(); }

 private:
  void fill(const QString& currentId);
  void showCurrent();

  QTabBar* tabs_;
  PageView* view_;
  QList<CacheItem> pages_;
};
