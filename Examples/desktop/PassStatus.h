#pragma once

#include <QStatusBar>

#include "CacheSession.h"

class ElidedLabel;
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
  /// `failures` is the number of failures in the pass; the last one is described.
  void showEnd(qsizetype resources, const QList<PassFailure>& failures);

 private:
  ElidedLabel* text_;
  QProgressBar* bar_;
};
