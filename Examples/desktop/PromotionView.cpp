#include "PromotionView.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QMediaPlayer>
#include <QPushButton>
#include <QStyle>
#include <QTimer>

#include "ElidedLabel.h"
#include "StarRating.h"
#include "ToolTip.h"
#include "VideoArea.h"
#include "WebLink.h"

namespace {

constexpr int iconSide = 56;
constexpr int furtherTries = 5;
constexpr int pauseBetweenTries = 700;  // milliseconds

QFont titleFont(QFont font) {
  font.setBold(true);
  font.setPointSizeF(font.pointSizeF() * 1.4);
  return font;
}

}  // namespace

PromotionView::PromotionView(QWidget* parent)
    : QFrame(parent),
      icon_(new QLabel),
      title_(new ElidedLabel),
      rating_(new StarRating),
      votes_(new QLabel),
      playButton_(new QPushButton),
      marketButton_(new QPushButton(tr("&Visit"))),
      video_(new VideoArea),
      player_(new QMediaPlayer(this)) {
  auto* const texts = new QVBoxLayout;
  texts->setSpacing(12);
  texts->addLayout(makeHeader());
  texts->addStretch();
  texts->addLayout(makeButtons());
  auto* const layout = new QHBoxLayout(this);
  layout->setContentsMargins(3, 0, 3, 0);
  layout->setSpacing(16);
  layout->addWidget(video_, 0, Qt::AlignTop);
  layout->addLayout(texts, 1);
  player_->setVideoSink(video_->sink());
  player_->setLoops(QMediaPlayer::Infinite);
  connect(player_, &QMediaPlayer::playbackStateChanged, this, &PromotionView::showPlaying);
  connect(player_, &QMediaPlayer::errorOccurred, this, &PromotionView::tryAgain);
  connect(playButton_, &QPushButton::clicked, this, [this] {
    player_->playbackState() == QMediaPlayer::PlayingState ? player_->pause() : play();
  });
  connect(marketButton_, &QPushButton::clicked, this, [this] { openInBrowser(market_); });
  showPlaying();
}

QLayout* PromotionView::makeHeader() {
  title_->setFont(titleFont(font()));
  icon_->setFixedSize(iconSide, iconSide);
  auto* const ratingLine = new QHBoxLayout;
  ratingLine->setSpacing(8);
  ratingLine->addWidget(rating_);
  ratingLine->addWidget(votes_);
  ratingLine->addStretch();
  auto* const texts = new QVBoxLayout;
  texts->setSpacing(4);
  texts->addStretch();
  texts->addWidget(title_);
  texts->addLayout(ratingLine);
  texts->addStretch();
  auto* const header = new QHBoxLayout;
  header->setSpacing(12);
  header->addWidget(icon_);
  header->addLayout(texts, 1);
  return header;
}

QLayout* PromotionView::makeButtons() {
  auto* const buttons = new QHBoxLayout;
  buttons->setSpacing(8);
  buttons->addWidget(playButton_);
  buttons->addWidget(marketButton_);
  buttons->addStretch();
  return buttons;
}

void PromotionView::present(const CacheItem& item) {
  title_->setText(item.title);
  const QLocale locale;
  const QString votes =
      item.votes == 1 ? tr("1 vote") : tr("%1 votes").arg(locale.toString(item.votes));
  votes_->setText(QString("%1 · %2").arg(locale.toString(item.rating, 'f', 1), votes));
  rating_->setRating(item.rating);
  market_ = item.market;
  marketButton_->setVisible(!market_.isEmpty());
  marketButton_->setToolTip(plainToolTip(market_.toDisplayString()));
  showIcon(item.picture);
  if (version_ == item.version) return;
  version_ = item.version;
  const bool wasPlaying = player_->playbackState() == QMediaPlayer::PlayingState;
  triesLeft_ = furtherTries;
  player_->setSource(QUrl::fromLocalFile(item.video));
  lease_ = item.lease;  // the former one is needed until here
  if (wasPlaying) player_->play();
}

void PromotionView::showIcon(const QImage& picture) {
  if (picture.isNull()) return icon_->clear();
  const qreal density = devicePixelRatioF();
  QPixmap icon = QPixmap::fromImage(picture.scaled(QSize(iconSide, iconSide) * density,
                                                   Qt::KeepAspectRatio, Qt::SmoothTransformation));
  icon.setDevicePixelRatio(density);
  icon_->setPixmap(icon);
}

void PromotionView::play() {
  player_->play();
}

void PromotionView::showPlaying() {
  const bool plays = player_->playbackState() == QMediaPlayer::PlayingState;
  playButton_->setText(plays ? tr("&Pause") : tr("&Play"));
  playButton_->setIcon(style()->standardIcon(plays ? QStyle::SP_MediaPause : QStyle::SP_MediaPlay));
}

// On a busy computer the media backend may fail if the window takes no frame for a second. So an
// error is shown only if it persists.
void PromotionView::tryAgain() {
  if (triesLeft_ == 0) {
    video_->showText(tr("This video cannot be played: %1").arg(player_->errorString()));
    return;
  }
  --triesLeft_;
  QTimer::singleShot(pauseBetweenTries, this, [this, source = player_->source()] {
    if (player_->source() != source) return;
    player_->setSource({});  // the same one alone would be no change
    player_->setSource(source);
    player_->play();
  });
}
