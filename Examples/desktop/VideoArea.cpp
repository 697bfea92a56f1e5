#include "VideoArea.h"

#include <QPainter>
#include <QVideoFrame>
#include <QVideoSink>

VideoArea::VideoArea(QWidget* parent) : QWidget(parent), sink_(new QVideoSink(this)) {
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  connect(sink_, &QVideoSink::videoFrameChanged, this, &VideoArea::takeFrame);
}

// Frames of an invisible video are not converted.
void VideoArea::takeFrame() {
  const QVideoFrame frame = sink_->videoFrame();
  if (!frame.isValid() || visibleRegion().isEmpty()) return;
  frame_ = frame.toImage();
  text_.clear();
  update();
}

void VideoArea::showText(const QString& text) {
  frame_ = {};
  text_ = text;
  update();
}

QSize VideoArea::sizeHint() const {
  return {432, 243};
}

void VideoArea::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.fillRect(rect(), Qt::black);
  if (!frame_.isNull()) {
    QRect place(QPoint(), frame_.size().scaled(size(), Qt::KeepAspectRatio));
    place.moveCenter(rect().center());
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(place, frame_);
  } else {
    painter.setPen(Qt::white);
    painter.drawText(rect().adjusted(12, 12, -12, -12), Qt::AlignCenter | Qt::TextWordWrap, text_);
  }
}
