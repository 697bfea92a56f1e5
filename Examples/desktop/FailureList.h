#pragma once

#include <QFrame>

#include "CacheSession.h"

class QTreeWidget;

/// What failed in the last pass, a line for each. Not there as long as nothing has.
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
