#pragma once

#include <QImage>
#include <QWidget>

class QVideoSink;

/// Shows the frames of a player, scaled to a fixed size, with black bars.
///
/// An ordinary widget that paints. QVideoWidget is a native window, which does not scroll or clip
/// with its surroundings.
class VideoArea final : public QWidget {
  Q_OBJECT

 public:
  explicit VideoArea(QWidget* parent = nullptr);

  [[nodiscard]] QVideoSink* sink() const { return sink_; }
  /// Shows a line of text until the next frame.
  void showText(const QString& text);

  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  void takeFrame();

  QVideoSink* sink_;
  QImage frame_;
  QString text_;
};
