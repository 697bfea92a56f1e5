#pragma once

#include <QWidget>

/// Five stars, filled up to a rating of 0 to 5.
class StarRating final : public QWidget {
  Q_OBJECT

 public:
  explicit StarRating(QWidget* parent = nullptr);

  void setRating(double rating);
  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  double rating_ = 0;
};
