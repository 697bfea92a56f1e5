#include "Gallery.h"

#include <QLabel>
#include <QSet>
#include <QVBoxLayout>

#include "BannerView.h"
#include "PromotionView.h"

namespace {

QLabel* makeHeading(const QString& text) {
  auto* const heading = new QLabel(text);
  QFont font = heading->font();
  font.setBold(true);
  heading->setFont(font);
  heading->setForegroundRole(QPalette::PlaceholderText);
  return heading;
}

/// Deletes the views whose resources are not wanted.
template <class View>
void removeOthers(QHash<QString, View*>& views, const QSet<QString>& wanted) {
  for (auto view = views.begin(); view != views.end();) {
    if (wanted.contains(view.key())) {
      ++view;
    } else {
      delete view.value();
      view = views.erase(view);
    }
  }
}

}  // namespace

Gallery::Gallery(QWidget* parent)
    : QScrollArea(parent),
      bannerHeading_(makeHeading(tr("Banners"))),
      promotionHeading_(makeHeading(tr("Videos"))),
      bannerColumn_(new QVBoxLayout),
      promotionColumn_(new QVBoxLayout) {
  bannerColumn_->setSpacing(8);
  promotionColumn_->setSpacing(24);
  auto* const content = new QWidget;
  auto* const column = new QVBoxLayout(content);
  column->setContentsMargins(20, 16, 20, 20);
  column->setSpacing(10);
  column->addWidget(bannerHeading_);
  column->addLayout(bannerColumn_);
  column->addSpacing(10);
  column->addWidget(promotionHeading_);
  column->addLayout(promotionColumn_);
  column->addStretch();
  setWidget(content);
  setWidgetResizable(true);
  setFrameShape(QFrame::NoFrame);
  setFocusPolicy(Qt::NoFocus);
  showHeadings();
}

void Gallery::present(const QList<CacheItem>& items) {
  QSet<QString> banners;
  QSet<QString> promotions;
  for (const CacheItem& item : items) {
    if (item.kind == CacheItem::Kind::banner) banners.insert(item.id);
    if (item.kind == CacheItem::Kind::promotion) promotions.insert(item.id);
  }
  removeOthers(banners_, banners);
  removeOthers(promotions_, promotions);
  for (const CacheItem& item : items)
    add(item);
  showHeadings();
}

void Gallery::add(const CacheItem& item) {
  if (item.kind == CacheItem::Kind::banner) presentBanner(item);
  if (item.kind == CacheItem::Kind::promotion) presentPromotion(item);
  showHeadings();
}

void Gallery::presentBanner(const CacheItem& item) {
  BannerView*& view = banners_[item.id];
  if (!view) {
    view = new BannerView;
    bannerColumn_->addWidget(view, 0, Qt::AlignLeft);
  }
  view->present(item);
}

void Gallery::presentPromotion(const CacheItem& item) {
  PromotionView*& view = promotions_[item.id];
  const bool isNew = !view;
  if (isNew) {
    view = new PromotionView;
    promotionColumn_->addWidget(view);
  }
  view->present(item);
  // Only the first video starts by itself; the user starts the others.
  if (isNew && promotions_.size() == 1) view->play();
}

void Gallery::showHeadings() {
  bannerHeading_->setVisible(!banners_.isEmpty());
  promotionHeading_->setVisible(!promotions_.isEmpty());
}
