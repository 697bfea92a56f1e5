#include "FailureList.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QStyle>
#include <QToolButton>
#include <QTreeWidget>
#include <algorithm>

namespace {

constexpr int rowsInSight = 4;
/// If a server is down, every file of a long configuration fails. Nobody reads all of these.
constexpr qsizetype mostRows = 200;

}  // namespace

FailureList::FailureList(QWidget* parent) : QFrame(parent), list_(new QTreeWidget) {
  list_->setHeaderHidden(true);
  list_->setColumnCount(2);
  list_->setRootIsDecorated(false);
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
  row->setToolTip(1, failure.reason.toHtmlEscaped());
  const int rows = std::min(list_->topLevelItemCount(), rowsInSight);
  list_->setFixedHeight(rows * list_->sizeHintForRow(0) + 2);
  list_->scrollToItem(row);
  show();
}
