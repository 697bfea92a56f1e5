#include "WebPage.h"

#include <QApplication>
#include <QFileInfo>
#include <QWebEngineNewWindowRequest>
#include <QWebEngineSettings>
#include <QWebEngineView>

#include "WebLink.h"

namespace {

QUrl emptyPage() {
  return QUrl("about:blank");
}

}  // namespace

void PageGuard::setPage(const QString& path, const QString& folder) {
  page_ = QFileInfo(path).canonicalFilePath();
  folder_ = QFileInfo(folder).canonicalFilePath();
  if (!folder_.isEmpty()) folder_ += '/';
}

bool PageGuard::allows(const QUrl& url) const {
  if (url == emptyPage() || url.scheme() == "data" || url.scheme() == "blob")
    return true;  // no file
  if (!url.isLocalFile()) return false;
  const QString path = QFileInfo(url.toLocalFile()).canonicalFilePath();
  if (path.isEmpty()) return false;
  return path == page_ || (!folder_.isEmpty() && path.startsWith(folder_));
}

void PageGuard::interceptRequest(QWebEngineUrlRequestInfo& request) {
  request.block(!allows(request.requestUrl()));
}

WebPage::WebPage(QWebEngineProfile* profile) : QWebEnginePage(profile) {
  setUrlRequestInterceptor(&guard_);
  QWebEngineSettings& rules = *settings();
  // Needed for the page's own pictures and styles. The guard restricts which files it can load.
  rules.setAttribute(QWebEngineSettings::LocalContentCanAccessFileUrls, true);
  rules.setAttribute(QWebEngineSettings::LocalContentCanAccessRemoteUrls, false);
  rules.setAttribute(QWebEngineSettings::JavascriptCanOpenWindows, false);
  rules.setAttribute(QWebEngineSettings::JavascriptCanAccessClipboard, false);
  rules.setAttribute(QWebEngineSettings::PluginsEnabled, false);
  rules.setAttribute(QWebEngineSettings::PlaybackRequiresUserGesture, true);
  connect(this, &QWebEnginePage::newWindowRequested, this,
          [this](const QWebEngineNewWindowRequest& request) { follow(request.requestedUrl()); });
  // The view passes input events to an internal widget, which may change.
  qApp->installEventFilter(this);
  // Loading the first page turns the view into an OpenGL widget. Qt recreates a visible window when
  // that happens: it flickers and loses the focus. So an empty page is loaded before the window is
  // shown, and other pages wait for it.
  connect(this, &QWebEnginePage::loadFinished, this, [this] {
    if (!std::exchange(hasBegun_, true) && !url_.isEmpty()) load(url_);
  });
  load(emptyPage());
}

void WebPage::show(const QString& path, const QString& folder) {
  guard_.setPage(path, folder);
  url_ = QUrl::fromLocalFile(path);
  userActed_ = false;
  if (hasBegun_) load(url_);
}

bool WebPage::eventFilter(QObject* object, QEvent* event) {
  if (event->type() == QEvent::MouseButtonPress || event->type() == QEvent::KeyPress) {
    const auto* const view = QWebEngineView::forPage(this);
    const auto* const widget = qobject_cast<QWidget*>(object);
    if (view && widget && view->isAncestorOf(widget)) userActed_ = true;
  }
  return false;
}

bool WebPage::acceptNavigationRequest(const QUrl& url, NavigationType type, bool isMainFrame) {
  if (!isMainFrame) return guard_.allows(url);
  const bool isOwn = url.matches(url_, QUrl::RemoveFragment);
  if (isOwn || (!hasBegun_ && url == emptyPage())) return true;
  if (type == NavigationTypeLinkClicked) follow(url);
  return false;
}

void WebPage::follow(const QUrl& link) {
  if (std::exchange(userActed_, false)) openInBrowser(link);
}

QStringList WebPage::chooseFiles(FileSelectionMode, const QStringList&, const QStringList&) {
  return {};
}

void WebPage::javaScriptAlert(const QUrl&, const QString&) {}

bool WebPage::javaScriptConfirm(const QUrl&, const QString&) {
  return false;
}

bool WebPage::javaScriptPrompt(const QUrl&, const QString&, const QString&, QString*) {
  return false;
}

void WebPage::javaScriptConsoleMessage(JavaScriptConsoleMessageLevel, const QString&, int,
                                       const QString&) {}
