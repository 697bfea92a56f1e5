#pragma once

#include <QWebEnginePage>
#include <QWebEngineUrlRequestInterceptor>

/// Lets a page reach what belongs to it, and nothing else: the files of its own folder where it
/// came as an archive, otherwise its own file. Neither other files nor the network.
class PageGuard final : public QWebEngineUrlRequestInterceptor {
  Q_OBJECT

 public:
  using QWebEngineUrlRequestInterceptor::QWebEngineUrlRequestInterceptor;

  /// The page that may be reached from now on, an absolute path, and the folder of its files;
  /// without one, the page alone.
  void setPage(const QString& path, const QString& folder);
  [[nodiscard]] bool allows(const QUrl& url) const;
  void interceptRequest(QWebEngineUrlRequestInfo& request) override;

 private:
  QString page_;
  QString folder_;  ///< Ends in "/"; empty if the page is a single file.
};

/// A page from the cache, which is hostile content: it comes from a server, over http as it may be,
/// and yet as a local file. So, beside what PageGuard keeps from it,
///
/// - it never leads the view elsewhere: a link opens in the browser, and only one for each time
///   that a person has pressed a key or a button of the mouse, since a script can follow links too;
/// - it opens no windows and no dialogs, downloads nothing, and gets no permission.
class WebPage final : public QWebEnginePage {
  Q_OBJECT

 public:
  /// The profile outlives the page.
  explicit WebPage(QWebEngineProfile* profile);

  /// Shows the page at the path; one that is on show is loaded again. It may read what lies in the
  /// folder; without one, nothing but itself.
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
  bool isBegun_ = false;  ///< The empty page, with which all begins, is there.
  bool personActed_ = false;
};
