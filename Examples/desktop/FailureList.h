#pragma once

#include <QFrame>

#include "CacheSession.h"

class QTreeWidget;

/// The failures of the last pass, one per line. Hidden if there are none.
class FailureList final : public QFrame {
  Q_OBJECT

 public:
  explicit FailureList(QWidget* parent = nullptr);

  void clear();
  void add(const PassFailure& failure);
  [[nodiscard]] const QList<PassFailure>& failures() const { return failures_; }

 private:
  QTreeWidget* list_;
  QList<PassFailure> failures_;
};
