#pragma once

#include <QImage>
#include <QWidget>

class QVideoSink;

/// Shows the frames of a player, in one size whatever theirs is, with black around them.
///
/// An ordinary widget that paints: unlike QVideoWidget, which is a window of its own within the
/// window, it scrolls with what is around it and is cut off where that is.
class VideoArea final : public QWidget {
  Q_OBJECT

 public:
  explicit VideoArea(QWidget* parent = nullptr);

  [[nodiscard]] QVideoSink* sink() const { return sink_; }
  /// Shows a line of text until the next frame comes.
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
