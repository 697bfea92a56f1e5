#pragma once

#include <QFrame>

/// One line of text, which ends in an ellipsis where there is no room for it. The tool tip then has
/// all of it. The text is never taken for markup: it comes from a server.
class ElidedLabel final : public QFrame {
  Q_OBJECT

 public:
  explicit ElidedLabel(QWidget* parent = nullptr);

  void setText(const QString& text);
  [[nodiscard]] QString text() const { return text_; }
  [[nodiscard]] bool isElided() const;
  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  bool event(QEvent* event) override;

 private:
  QString text_;
};
