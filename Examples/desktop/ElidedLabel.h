#pragma once

#include <QFrame>

/// One line of plain text, elided if it does not fit; the tool tip then has the whole text. Never
/// interpreted as markup, since the text comes from a server.
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
