#pragma once

#include <QHash>
#include <QList>
#include <QScrollArea>

#include "CacheItem.h"

class BannerView;
class PromotionView;
class QLabel;
class QVBoxLayout;

/// The banners and the promotions below each other. A view stays as long as its resource does, and
/// is only given the newer version: what plays goes on playing.
class Gallery final : public QScrollArea {
  Q_OBJECT

 public:
  explicit Gallery(QWidget* parent = nullptr);

  /// Shows these and no others.
  void present(const QList<CacheItem>& items);
  /// Adds the resource, or puts it in the place of the one with its id.
  void add(const CacheItem& item);
  [[nodiscard]] bool isEmpty() const { return banners_.isEmpty() && promotions_.isEmpty(); }

 private:
  void presentBanner(const CacheItem& item);
  void presentPromotion(const CacheItem& item);
  void showHeadings();

  QLabel* bannerHeading_;
  QLabel* promotionHeading_;
  QVBoxLayout* bannerColumn_;
  QVBoxLayout* promotionColumn_;
  QHash<QString, BannerView*> banners_;  ///< By the resource's id.
  QHash<QString, PromotionView*> promotions_;
};
