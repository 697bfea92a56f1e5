#pragma once

#include <QFrame>

#include "PassSummary.h"

class QTreeWidget;

/// The failures of the last pass, one per line, with the tries below. Hidden if there are none.
class FailureList final : public QFrame {
  Q_OBJECT

 public:
  explicit FailureList(QWidget* parent = nullptr);

  void clear();
  void add(const PassFailure& failure);
  /// Shows these instead. A line with tries can be expanded.
  void present(const QList<PassFailure>& failures);
  [[nodiscard]] const QList<PassFailure>& failures() const { return failures_; }

 private:
  void fitHeight();

  QTreeWidget* list_;
  QList<PassFailure> failures_;
};
