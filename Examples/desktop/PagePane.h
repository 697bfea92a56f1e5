#pragma once

#include <QList>
#include <QWidget>

#include "CacheItem.h"

class PageView;
class QTabBar;

/// The HTML pages, with a tab for each. All pages share one view.
class PagePane final : public QWidget {
  Q_OBJECT

 public:
  explicit PagePane(QWidget* parent = nullptr);

  /// Shows these pages. The current one stays current if it is among them.
  void present(const QList<CacheItem>& pages);
  /// Adds the page, or replaces the one with its id.
  void add(const CacheItem& page);
  [[nodiscard]] bool isEmpty() const { return pages_.isEmpty(); }

 private:
  void fill(const QString& currentId);
  void showCurrent();

  QTabBar* tabs_;
  PageView* view_;
  QList<CacheItem> pages_;
};
