#include "WebPage.h"

#include <QApplication>
#include <QFileInfo>
#include <QWebEngineNewWindowRequest>
#include <QWebEngineSettings>
#include <QWebEngineView>

#include "WebLink.h"

void PageGuard::setPage(const QString& path) {
  const QFileInfo info(path);
  page_ = info.canonicalFilePath();
  folder_ = info.fileName() == "index.html" ? info.canonicalPath() + '/' : QString();
}

bool PageGuard::allows(const QUrl& url) const {
  if (url.scheme() == "data" || url.scheme() == "blob") return true;  // the page's own bytes
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
  // Without this a page would show neither its pictures nor its styles. Which files it reaches is
  // the guard's matter.
  rules.setAttribute(QWebEngineSettings::LocalContentCanAccessFileUrls, true);
  rules.setAttribute(QWebEngineSettings::LocalContentCanAccessRemoteUrls, false);
  rules.setAttribute(QWebEngineSettings::JavascriptCanOpenWindows, false);
  rules.setAttribute(QWebEngineSettings::JavascriptCanAccessClipboard, false);
  rules.setAttribute(QWebEngineSettings::PluginsEnabled, false);
  rules.setAttribute(QWebEngineSettings::PlaybackRequiresUserGesture, true);
  connect(this, &QWebEnginePage::newWindowRequested, this,
          [this](const QWebEngineNewWindowRequest& request) { follow(request.requestedUrl()); });
  // The view gives what a person does to a widget of its own making, whichever that is at the time.
  qApp->installEventFilter(this);
}

void WebPage::show(const QString& path) {
  guard_.setPage(path);
  url_ = QUrl::fromLocalFile(path);
  personActed_ = false;
  load(url_);
}

bool WebPage::eventFilter(QObject* object, QEvent* event) {
  if (event->type() == QEvent::MouseButtonPress || event->type() == QEvent::KeyPress) {
    const auto* const view = QWebEngineView::forPage(this);
    const auto* const widget = qobject_cast<QWidget*>(object);
    if (view && widget && view->isAncestorOf(widget)) personActed_ = true;
  }
  return false;
}

bool WebPage::acceptNavigationRequest(const QUrl& url, NavigationType type, bool isMainFrame) {
  if (!isMainFrame) return guard_.allows(url);
  const bool isOwn = url.matches(url_, QUrl::RemoveFragment);
  if (isOwn || (url_.isEmpty() && url == QUrl("about:blank"))) return true;
  if (type == NavigationTypeLinkClicked) follow(url);
  return false;
}

void WebPage::follow(const QUrl& link) {
  if (std::exchange(personActed_, false)) openInBrowser(link);
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
