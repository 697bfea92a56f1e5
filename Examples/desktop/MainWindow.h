#pragma once

#include <QMainWindow>
#include <QStyle>

#include "CacheSession.h"

class FailureList;
class Gallery;
class PagePane;
class PassStatus;
class QComboBox;
class QLabel;
class QSplitter;
class QStackedWidget;

/// The window: the contents of the cache, buttons to start, pause and stop a pass, its progress,
/// and a menu for the care of the cache.
class MainWindow final : public QMainWindow {
  Q_OBJECT

 public:
  /// The session must outlive the window. `configurations` are files or URLs to choose from.
  MainWindow(CacheSession& session, const QStringList& configurations);

 protected:
  void resizeEvent(QResizeEvent* event) override;

 private:
  QWidget* makeEmptyState();
  QWidget* makeContents();
  void makeToolBar(const QStringList& configurations);
  void makePassActions();
  QAction* makeAction(const QString& text, const QKeySequence& key, QStyle::StandardPixmap icon,
                      const QString& tip);
  void listenToSession();
  void listenToUpkeep();

  void start(CacheSession::Pass pass);
  void stop();
  void chooseConfiguration();
  void showItems(const QList<CacheItem>& items);
  void showItem(const CacheItem& item);
  void updateViews();
  void showSummary(const PassSummary& summary);
  void updateActions();

  CacheSession& session_;
  Gallery* gallery_;
  PagePane* pages_;
  FailureList* failures_;
  PassStatus* status_;
  QStackedWidget* stack_;
  QSplitter* splitter_;
  QComboBox* configuration_;
  QAction* load_ = nullptr;
  QAction* update_ = nullptr;
  QAction* stop_ = nullptr;
  QAction* pause_ = nullptr;
  qsizetype resources_ = 0;
};
