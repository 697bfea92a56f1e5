#include <QVBoxLayout>
#include <QWebEngineProfile>
#include <QWebEngineSettings>
#include <QWebEngineView>

#include "PageView.h"
#include "WebPage.h"

namespace {

class WebPageView final : public PageView {
 public:
  explicit WebPageView(QWidget* parent)
      : PageView(parent),
        // An unnamed profile stores nothing on disk: no cookies, no storage, no cache.
        profile_(new QWebEngineProfile(this)),
        page_(new WebPage(profile_)),
        view_(new QWebEngineView) {
    view_->setPage(page_);
    view_->setContextMenuPolicy(Qt::NoContextMenu);
    auto* const layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(view_);
  }

  // The page must be destroyed before its profile.
  ~WebPageView() override { delete page_; }

  void present(const CacheItem& item) override {
    if (item.version == version_) return;
    version_ = item.version;
    page_->show(item.page, item.pageFolder);
    lease_ = item.lease;
  }

 private:
  QWebEngineProfile* profile_;
  WebPage* page_;
  QWebEngineView* view_;
  QString version_;
  std::shared_ptr<const kiv::Lease> lease_;  ///< Of what is shown.
};

}  // namespace

PageView* PageView::make(QWidget* parent) {
  return new WebPageView(parent);
}
