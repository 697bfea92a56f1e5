#pragma once

#include <QStatusBar>

#include "CacheSession.h"

class ElidedLabel;
class QProgressBar;

/// The status bar: how far the pass that runs has come, and what came of the last one.
class PassStatus final : public QStatusBar {
  Q_OBJECT

 public:
  explicit PassStatus(QWidget* parent = nullptr);

  void showStored(qsizetype resources);
  void showStart();
  void showProgress(const PassProgress& progress);
  void showStopping();
  /// `failures` as heard in the pass, the last one in words.
  void showEnd(qsizetype resources, const QList<PassFailure>& failures);

 private:
  ElidedLabel* text_;
  QProgressBar* bar_;
};
