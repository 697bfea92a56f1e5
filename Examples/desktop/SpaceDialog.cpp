#include "SpaceDialog.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

namespace {

constexpr qint64 megabyte = 1'000'000;  // bytes

QString size(qint64 bytes) {
  return QLocale().formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}

QString textOf(const SpaceSummary& plan) {
  if (!plan.problem.isEmpty()) return plan.problem;
  if (plan.files == 0 && plan.resources == 0) {
    return plan.isBoundKept ? SpaceDialog::tr("The cache takes %1. Nothing has to be removed.")
                                  .arg(size(plan.usedBefore))
                            : SpaceDialog::tr("The cache takes %1. Nothing can be removed.")
                                  .arg(size(plan.usedBefore));
  }
  return SpaceDialog::tr(
             "The cache takes %1. %2 resources and %3 files would be removed, and it "
             "would take %4.")
      .arg(size(plan.usedBefore))
      .arg(plan.resources)
      .arg(plan.files)
      .arg(size(plan.usedAfter));
}

}  // namespace

SpaceDialog::SpaceDialog(CacheSession& session, QWidget* parent)
    : QDialog(parent),
      session_(session),
      megabytes_(new QSpinBox),
      resources_(new QCheckBox(tr("Also resources, those first that were not shown for long"))),
      text_(new QLabel),
      buttons_(new QDialogButtonBox(QDialogButtonBox::Cancel)) {
  setWindowTitle(tr("Free space"));
  megabytes_->setRange(0, 1'000'000);
  megabytes_->setValue(500);
  megabytes_->setSuffix(tr(" MB"));
  text_->setObjectName("plan");
  text_->setTextFormat(Qt::PlainText);
  text_->setWordWrap(true);
  text_->setMinimumWidth(420);
  auto* const remove = buttons_->addButton(tr("Remove"), QDialogButtonBox::AcceptRole);
  remove->setEnabled(false);
  auto* const form = new QFormLayout;
  form->addRow(tr("The cache may take at most"), megabytes_);
  form->addRow(resources_);
  auto* const layout = new QVBoxLayout(this);
  layout->addLayout(form);
  layout->addWidget(text_);
  layout->addStretch();
  layout->addWidget(buttons_);
  connect(megabytes_, &QSpinBox::valueChanged, this, &SpaceDialog::plan);
  connect(resources_, &QCheckBox::toggled, this, &SpaceDialog::plan);
  connect(&session_, &CacheSession::spacePlanned, this, &SpaceDialog::showPlan);
  connect(buttons_, &QDialogButtonBox::rejected, this, &QDialog::reject);
  connect(buttons_, &QDialogButtonBox::accepted, this, &QDialog::accept);
  connect(this, &QDialog::accepted, this, [this] { session_.freeSpace(bound()); });
  plan();
}

SpaceBound SpaceDialog::bound() const {
  return {megabytes_->value() * megabyte, resources_->isChecked()};
}

void SpaceDialog::plan() {
  session_.planSpace(bound());
}

void SpaceDialog::showPlan(const SpaceSummary& summary) {
  text_->setText(textOf(summary));
  const bool isUseful = summary.files != 0 || summary.resources != 0;
  for (auto* const button : buttons_->buttons()) {
    if (buttons_->buttonRole(button) == QDialogButtonBox::AcceptRole) button->setEnabled(isUseful);
  }
}
