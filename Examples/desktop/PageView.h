#pragma once

#include <QWidget>

#include "CacheItem.h"

/// Shows one HTML page: in the window where the program was built with the platform's web view
/// (WebPageView.cpp), otherwise by a button that opens it in the browser (BrowserPageView.cpp).
class PageView : public QWidget {
  Q_OBJECT

 public:
  /// The one that the program was built with.
  static PageView* make(QWidget* parent);

  /// Shows the page, in place of the one before. One that is on show already is left alone, unless
  /// its version is another.
  virtual void present(const CacheItem& item) = 0;

 protected:
  using QWidget::QWidget;
};
