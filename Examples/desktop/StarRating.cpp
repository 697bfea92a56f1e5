#include "StarRating.h"

#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr int stars = 5;

/// Star `index`, of the given width and height.
QPainterPath starPath(int index, double size) {
  const QPointF centre((index + 0.5) * size, size / 2);
  QPolygonF corners;
  for (int corner = 0; corner < 10; ++corner) {
    const double radius = size * (corner % 2 == 0 ? 0.47 : 0.19);
    const double angle = std::numbers::pi * (corner / 5.0 - 0.5);
    corners << centre + QPointF(radius * std::cos(angle), radius * std::sin(angle));
  }
  QPainterPath path;
  path.addPolygon(corners);
  path.closeSubpath();
  return path;
}

}  // namespace

StarRating::StarRating(QWidget* parent) : QWidget(parent) {
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void StarRating::setRating(double rating) {
  rating_ = std::clamp(rating, 0.0, double{stars});
  setAccessibleName(tr("%1 of %2 stars").arg(rating_, 0, 'f', 1).arg(stars));
  setToolTip(accessibleName());
  update();
}

QSize StarRating::sizeHint() const {
  const int size = fontMetrics().height();
  return {stars * size, size};
}

void StarRating::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  QPainterPath path;
  for (int index = 0; index < stars; ++index)
    path.addPath(starPath(index, height()));
  QColor empty = palette().color(QPalette::WindowText);
  empty.setAlphaF(0.2F);
  painter.fillPath(path, empty);
  painter.setClipRect(QRectF(0, 0, rating_ * height(), height()));
  painter.fillPath(path, QColor(0xe8, 0xa3, 0x17));  // amber, seen on light and on dark
}
