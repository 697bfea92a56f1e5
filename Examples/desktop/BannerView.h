#pragma once

#include <QAbstractButton>

#include "CacheItem.h"

/// A banner at its original size. A click, Space or Return opens its market link in the browser.
class BannerView final : public QAbstractButton {
  Q_OBJECT

 public:
  explicit BannerView(QWidget* parent = nullptr);

  void present(const CacheItem& item);
  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  [[nodiscard]] bool hasPicture() const { return !picture_.isNull(); }

  QPixmap picture_;
  QUrl market_;
};
