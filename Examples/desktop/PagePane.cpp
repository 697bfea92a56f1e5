#include "PagePane.h"

#include <QSignalBlocker>
#include <QTabBar>
#include <QVBoxLayout>
#include <algorithm>

#include "PageView.h"
#include "ToolTip.h"

PagePane::PagePane(QWidget* parent)
    : QWidget(parent), tabs_(new QTabBar), view_(PageView::make(this)) {
  setMinimumSize(240, 160);
  tabs_->setExpanding(false);
  tabs_->setElideMode(Qt::ElideRight);
  tabs_->setDocumentMode(true);
  auto* const layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addWidget(tabs_);
  layout->addWidget(view_, 1);
  connect(tabs_, &QTabBar::currentChanged, this, &PagePane::showCurrent);
}

void PagePane::present(const QList<CacheItem>& pages) {
  const int current = tabs_->currentIndex();
  const QString currentId = current < 0 ? QString() : pages_[current].id;
  pages_ = pages;
  fill(currentId);
}

void PagePane::add(const CacheItem& page) {
  QList<CacheItem> pages = pages_;
  const auto former = std::find_if(pages.begin(), pages.end(),
                                   [&](const CacheItem& item) { return item.id == page.id; });
  if (former == pages.end()) {
    pages.append(page);
  } else {
    *former = page;
  }
  present(pages);
}

void PagePane::fill(const QString& currentId) {
  const QSignalBlocker blocker(tabs_);
  while (tabs_->count() > pages_.size())
    tabs_->removeTab(tabs_->count() - 1);
  while (tabs_->count() < pages_.size())
    tabs_->addTab({});
  for (int index = 0; index < tabs_->count(); ++index) {
    // A tab would treat "&" as a mnemonic.
    tabs_->setTabText(index, QString(pages_[index].title).replace('&', "&&"));
    tabs_->setTabToolTip(index, plainToolTip(pages_[index].title));
    if (pages_[index].id == currentId) tabs_->setCurrentIndex(index);
  }
  showCurrent();
}

void PagePane::showCurrent() {
  if (const int index = tabs_->currentIndex(); index >= 0) view_->present(pages_[index]);
}
