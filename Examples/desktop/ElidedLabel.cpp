#include "ElidedLabel.h"

#include <QHelpEvent>
#include <QPainter>
#include <QToolTip>

#include "ToolTip.h"

ElidedLabel::ElidedLabel(QWidget* parent) : QFrame(parent) {
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void ElidedLabel::setText(const QString& text) {
  text_ = text.simplified();
  setAccessibleName(text_);
  updateGeometry();
  update();
}

bool ElidedLabel::isElided() const {
  return fontMetrics().horizontalAdvance(text_) > width();
}

QSize ElidedLabel::sizeHint() const {
  return {fontMetrics().horizontalAdvance(text_) + 1, fontMetrics().height()};
}

QSize ElidedLabel::minimumSizeHint() const {
  return {fontMetrics().averageCharWidth() * 6, fontMetrics().height()};
}

void ElidedLabel::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setPen(palette().color(foregroundRole()));
  painter.drawText(rect(), Qt::AlignVCenter | Qt::TextSingleLine,
                   fontMetrics().elidedText(text_, Qt::ElideRight, width()));
}

bool ElidedLabel::event(QEvent* event) {
  if (event->type() != QEvent::ToolTip) return QFrame::event(event);
  const auto* help = static_cast<QHelpEvent*>(event);
  QToolTip::showText(help->globalPos(), isElided() ? plainToolTip(text_) : QString(), this);
  return true;
}
