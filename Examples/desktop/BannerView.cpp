#include "BannerView.h"

#include <QKeyEvent>
#include <QPainter>

#include "ToolTip.h"
#include "WebLink.h"

namespace {

/// Room around the picture in which the focus shows.
constexpr int margin = 3;
constexpr QSize sizeWithoutPicture{728, 90};

}  // namespace

BannerView::BannerView(QWidget* parent) : QAbstractButton(parent) {
  setFocusPolicy(Qt::StrongFocus);
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  connect(this, &QAbstractButton::clicked, this, [this] { openInBrowser(market_); });
}

void BannerView::present(const CacheItem& item) {
  // The view has its own copy of the pixels, so the file may be deleted at any time.
  picture_ = QPixmap::fromImage(item.picture);
  market_ = item.market;
  setText(item.title);
  setAccessibleName(item.title);
  setAccessibleDescription(market_.toDisplayString());
  setToolTip(
      plainToolTip(market_.isEmpty() ? item.title : item.title + '\n' + market_.toDisplayString()));
  setCursor(market_.isEmpty() ? Qt::ArrowCursor : Qt::PointingHandCursor);
  updateGeometry();
  update();
}

QSize BannerView::sizeHint() const {
  const QSize size = hasPicture() ? picture_.size() : sizeWithoutPicture;
  return size + QSize(2 * margin, 2 * margin);
}

void BannerView::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  const QRect inside = rect().adjusted(margin, margin, -margin, -margin);
  if (hasPicture()) {
    painter.drawPixmap(inside.topLeft(), picture_);
  } else {
    painter.fillRect(inside, palette().alternateBase());
    painter.drawText(inside, Qt::AlignCenter, tr("%1 (no picture)").arg(text()));
  }
  if (isDown()) painter.fillRect(inside, QColor(0, 0, 0, 40));
  if (hasFocus() || underMouse()) {
    painter.setPen(QPen(palette().highlight(), hasFocus() ? 2 : 1));
    painter.drawRect(rect().adjusted(1, 1, -2, -2));
  }
}

void BannerView::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) return click();
  QAbstractButton::keyPressEvent(event);
}
