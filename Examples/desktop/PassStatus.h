#pragma once

#include <QStatusBar>

#include "PassSummary.h"

class ElidedLabel;
class QLabel;
class QProgressBar;

/// The status bar: the progress of the running pass, and the result of the last one.
class PassStatus final : public QStatusBar {
  Q_OBJECT

 public:
  explicit PassStatus(QWidget* parent = nullptr);

  void showStored(qsizetype resources);
  void showStart();
  void showProgress(const PassProgress& progress);
  void showStopping();
  /// Says so until it is called with false.
  void setPaused(bool isPaused);
  /// `resources` is the number in the cache. The last failure is described.
  void showEnd(qsizetype resources, const PassSummary& summary);
  /// What came of an operation on the stored files, in words.
  void showText(const QString& text);

 private:
  ElidedLabel* text_;
  QProgressBar* bar_;
  QLabel* paused_;
};
