#include "VideoArea.h"

#include <QPainter>
#include <QVideoFrame>
#include <QVideoSink>

namespace {

/// Until a frame has told its own.
constexpr QSize usualSize{640, 360};

}  // namespace

VideoArea::VideoArea(QWidget* parent) : QWidget(parent), sink_(new QVideoSink(this)) {
  QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
  policy.setHeightForWidth(true);
  setSizePolicy(policy);
  connect(sink_, &QVideoSink::videoFrameChanged, this, &VideoArea::takeFrame);
}

// A video out of sight is not worth the work of converting its frames.
void VideoArea::takeFrame() {
  const QVideoFrame frame = sink_->videoFrame();
  if (!frame.isValid() || visibleRegion().isEmpty()) return;
  const QSize before = frame_.size();
  frame_ = frame.toImage();
  text_.clear();
  if (frame_.size() != before) updateGeometry();
  update();
}

void VideoArea::showText(const QString& text) {
  frame_ = {};
  text_ = text;
  update();
}

QSize VideoArea::sizeHint() const { return frame_.isNull() ? usualSize : frame_.size(); }

int VideoArea::heightForWidth(int width) const {
  const QSize shape = sizeHint();
  return width * shape.height() / std::max(1, shape.width());
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
