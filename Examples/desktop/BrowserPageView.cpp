#include <QDesktopServices>
#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "PageView.h"

namespace {

/// The desktop chooses a program by the file's extension, and the name comes from a server.
bool isPageByName(const QString& path) {
  static const QStringList endings{"html", "htm", "xhtml"};
  return endings.contains(QFileInfo(path).suffix().toLower());
}

class BrowserPageView final : public PageView {
 public:
  explicit BrowserPageView(QWidget* parent)
      : PageView(parent), title_(new QLabel), button_(new QPushButton(tr("Open in the &browser"))) {
    title_->setTextFormat(Qt::PlainText);
    title_->setWordWrap(true);
    title_->setAlignment(Qt::AlignCenter);
    auto* const layout = new QVBoxLayout(this);
    layout->addStretch();
    layout->addWidget(title_);
    layout->addWidget(button_, 0, Qt::AlignCenter);
    layout->addStretch();
    connect(button_, &QPushButton::clicked, this,
            [this] { QDesktopServices::openUrl(QUrl::fromLocalFile(page_)); });
  }

  void present(const CacheItem& item) override {
    title_->setText(item.title);
    if (item.version == version_) return;
    version_ = item.version;
    page_ = item.page;
    lease_ = item.lease;
    button_->setEnabled(isPageByName(page_));
  }

 private:
  QLabel* title_;
  QPushButton* button_;
  QString page_;
  QString version_;
  std::shared_ptr<const kiv::Lease> lease_;  ///< Of the page, which a browser may show.
};

}  // namespace

PageView* PageView::make(QWidget* parent) {
  return new BrowserPageView(parent);
}
