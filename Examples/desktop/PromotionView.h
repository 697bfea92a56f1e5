#pragma once

#include <QFrame>
#include <QUrl>
#include <memory>

#include "CacheItem.h"

class ElidedLabel;
class QLabel;
class QLayout;
class QMediaPlayer;
class QPushButton;
class StarRating;
class VideoArea;

/// A video promotion: the video, with icon, title, rating and votes beside it. play() starts the
/// video, muted and looped; a button pauses it, another one opens the market link.
class PromotionView final : public QFrame {
  Q_OBJECT

 public:
  explicit PromotionView(QWidget* parent = nullptr);

  void present(const CacheItem& item);
  void play();
  [[nodiscard]] const QMediaPlayer& player() const { return *player_; }

 private:
  QLayout* makeHeader();
  QLayout* makeButtons();
  void showIcon(const QImage& picture);
  void tryAgain();
  void showPlaying();

  QLabel* icon_;
  ElidedLabel* title_;
  StarRating* rating_;
  QLabel* votes_;
  QPushButton* playButton_;
  QPushButton* marketButton_;
  VideoArea* video_;
  QMediaPlayer* player_;
  QUrl market_;
  QString version_;
  std::shared_ptr<const kiv::Lease> lease_;  ///< Of the video that plays.
  int triesLeft_ = 0;
};
