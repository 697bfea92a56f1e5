#pragma once

#include <QWidget>

#include "CacheItem.h"

/// Shows one HTML page: in the window if the program was built with Qt WebEngine (WebPageView.cpp),
/// otherwise through a button that opens it in the browser (BrowserPageView.cpp).
class PageView : public QWidget {
  Q_OBJECT

 public:
  /// The implementation that the program was built with.
  static PageView* make(QWidget* parent);

  /// Shows the page instead of the former one. Does nothing if this version of it is shown already.
  virtual void present(const CacheItem& item) = 0;

 protected:
  using QWidget::QWidget;
};
