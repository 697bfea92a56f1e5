#pragma once

#include <QDialog>

#include "CacheSession.h"

class QCheckBox;
class QDialogButtonBox;
class QLabel;
class QSpinBox;

/// Asks how much space the cache may take, says what would be removed, and removes it.
class SpaceDialog final : public QDialog {
  Q_OBJECT

 public:
  /// The session must outlive the dialog.
  explicit SpaceDialog(CacheSession& session, QWidget* parent = nullptr);

 private:
  [[nodiscard]] SpaceBound bound() const;
  void plan();
  void showPlan(const SpaceSummary& summary);

  CacheSession& session_;
  QSpinBox* megabytes_;
  QCheckBox* resources_;
  QLabel* text_;
  QDialogButtonBox* buttons_;
};
