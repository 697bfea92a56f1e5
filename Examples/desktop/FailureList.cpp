#include "FailureList.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QStyle>
#include <QToolButton>
#include <QTreeWidget>
#include <algorithm>

#include "ToolTip.h"

namespace {

constexpr int rowsInSight = 6;
/// If a server is down, every file of a long configuration fails. Nobody reads all of these.
constexpr qsizetype mostRows = 200;

}  // namespace

FailureList::FailureList(QWidget* parent) : QFrame(parent), list_(new QTreeWidget) {
  list_->setHeaderHidden(true);
  list_->setColumnCount(2);
  list_->setUniformRowHeights(true);
  list_->setFrameShape(QFrame::NoFrame);
  list_->setSelectionMode(QAbstractItemView::NoSelection);
  list_->setAccessibleName(tr("What failed"));
  list_->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
  list_->header()->setMaximumSectionSize(320);
  auto* const close = new QToolButton;
  close->setIcon(style()->standardIcon(QStyle::SP_TitleBarCloseButton));
  close->setAutoRaise(true);
  close->setToolTip(tr("Close this list"));
  close->setAccessibleName(close->toolTip());
  connect(close, &QToolButton::clicked, this, &QWidget::hide);
  connect(list_, &QTreeWidget::itemExpanded, this, &FailureList::fitHeight);
  connect(list_, &QTreeWidget::itemCollapsed, this, &FailureList::fitHeight);
  auto* const layout = new QHBoxLayout(this);
  layout->setContentsMargins(12, 4, 4, 4);
  layout->addWidget(list_, 1);
  layout->addWidget(close, 0, Qt::AlignTop);
  setFrameShape(QFrame::StyledPanel);
  setAutoFillBackground(true);
  setBackgroundRole(QPalette::Base);
  hide();
}

void FailureList::clear() {
  failures_.clear();
  list_->clear();
  hide();
}

void FailureList::add(const PassFailure& failure) {
  failures_.append(failure);
  if (failures_.size() > mostRows) return;
  auto* const row = new QTreeWidgetItem(list_, {failure.what.simplified(), failure.reason});
  row->setIcon(0, style()->standardIcon(QStyle::SP_MessageBoxWarning));
  row->setToolTip(1, plainToolTip(failure.reason));
  for (const QString& attempt : failure.tries) {
    auto* const line = new QTreeWidgetItem(row, {QString(), attempt});
    line->setToolTip(1, plainToolTip(attempt));
  }
  fitHeight();
  list_->scrollToItem(row);
  show();
}

void FailureList::present(const QList<PassFailure>& failures) {
  clear();
  for (const PassFailure& failure : failures)
    add(failure);
}

void FailureList::fitHeight() {
  int rows = 0;
  for (auto* row = list_->topLevelItem(0); row; row = list_->itemBelow(row))
    ++rows;
  list_->setFixedHeight(std::min(rows, rowsInSight) * list_->sizeHintForRow(0) + 2);
}
