#pragma once

#include <QWebEnginePage>
#include <QWebEngineUrlRequestInterceptor>

/// Lets a page load only what belongs to it: the files of its folder if it came as an archive,
/// otherwise its own file; no other files, and nothing from the network.
class PageGuard final : public QWebEngineUrlRequestInterceptor {
  Q_OBJECT

 public:
  using QWebEngineUrlRequestInterceptor::QWebEngineUrlRequestInterceptor;

  /// Sets the page, an absolute path, and the folder of its files, if it has one.
  void setPage(const QString& path, const QString& folder);
  [[nodiscard]] bool allows(const QUrl& url) const;
  void interceptRequest(QWebEngineUrlRequestInfo& request) override;

 private:
  QString page_;
  QString folder_;  ///< Ends in "/"; empty if the page is a single file.
};

/// A page from the cache. It is untrusted: it comes from a server, possibly over http, and runs as
/// a local file. Beside the restrictions of PageGuard:
///
/// - it cannot navigate the view: a link opens in the browser, one for each key press or click of
/// the user, since scripts can follow links too;
/// - it cannot open windows or dialogs, download files, or get permissions.
class WebPage final : public QWebEnginePage {
  Q_OBJECT

 public:
  /// The profile must outlive the page.
  explicit WebPage(QWebEngineProfile* profile);

  /// Loads the page at the path. It may read the files in the folder, if one is given.
  void show(const QString& path, const QString& folder);

 protected:
  bool eventFilter(QObject* object, QEvent* event) override;
  bool acceptNavigationRequest(const QUrl& url, NavigationType type, bool isMainFrame) override;
  QStringList chooseFiles(FileSelectionMode mode, const QStringList& oldFiles,
                          const QStringList& mimeTypes) override;
  void javaScriptAlert(const QUrl& origin, const QString& text) override;
  bool javaScriptConfirm(const QUrl& origin, const QString& text) override;
  bool javaScriptPrompt(const QUrl& origin, const QString& text, const QString& preset,
                        QString* result) override;
  void javaScriptConsoleMessage(JavaScriptConsoleMessageLevel level, const QString& message,
                                int line, const QString& source) override;

 private:
  void follow(const QUrl& link);

  PageGuard guard_;
  QUrl url_;
  bool hasBegun_ = false;  ///< The empty page, with which all begins, is there.
  bool userActed_ = false;
};
