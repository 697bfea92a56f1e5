#pragma once

#include <QHash>
#include <QList>
#include <QScrollArea>

#include "CacheItem.h"

class BannerView;
class PromotionView;
class QLabel;
class QVBoxLayout;

/// The banners and promotions, one below the other. A view is kept as long as its resource is
/// loaded, and only updated for a newer version, so that a video keeps playing.
class Gallery final : public QScrollArea {
  Q_OBJECT

 public:
  explicit Gallery(QWidget* parent = nullptr);

  /// Shows exactly these items.
  void present(const QList<CacheItem>& items);
  /// Adds the item, or replaces the one with its id.
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
