#include "MainWindow.h"

#include <QAction>
#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

#include "FailureList.h"
#include "Gallery.h"
#include "PagePane.h"
#include "PassStatus.h"
#include "UpkeepMenu.h"

MainWindow::MainWindow(CacheSession& session, const QStringList& configurations)
    : session_(session),
      gallery_(new Gallery),
      pages_(new PagePane),
      failures_(new FailureList),
      status_(new PassStatus),
      stack_(new QStackedWidget),
      splitter_(new QSplitter),
      configuration_(new QComboBox) {
  setWindowTitle(tr("Resource cache"));
  makeToolBar(configurations);
  stack_->addWidget(makeEmptyState());
  stack_->addWidget(makeContents());
  auto* const central = new QWidget;
  auto* const layout = new QVBoxLayout(central);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addWidget(stack_, 1);
  layout->addWidget(failures_);
  setCentralWidget(central);
  setStatusBar(status_);
  listenToSession();
  listenToUpkeep();
  updateActions();
  resize(1240, 780);
  configuration_->setFocus();  // it stays, whatever comes to be shown below
}

QWidget* MainWindow::makeEmptyState() {
  auto* const heading = new QLabel(tr("Nothing is cached yet"));
  QFont font = heading->font();
  font.setPointSizeF(font.pointSizeF() * 1.6);
  heading->setFont(font);
  heading->setAlignment(Qt::AlignCenter);
  auto* const text =
      new QLabel(tr("Load a configuration to fetch what it names.\n"
                    "It is then shown here, also without a server."));
  text->setAlignment(Qt::AlignCenter);
  text->setForegroundRole(QPalette::PlaceholderText);
  auto* const button = new QPushButton(load_->icon(), tr("Load"));
  button->setDefault(true);
  connect(button, &QPushButton::clicked, load_, &QAction::trigger);
  connect(load_, &QAction::enabledChanged, button, &QWidget::setEnabled);
  auto* const page = new QWidget;
  auto* const layout = new QVBoxLayout(page);
  layout->setSpacing(12);
  layout->addStretch();
  layout->addWidget(heading);
  layout->addWidget(text);
  layout->addWidget(button, 0, Qt::AlignCenter);
  layout->addStretch();
  return page;
}

QWidget* MainWindow::makeContents() {
  splitter_->addWidget(gallery_);
  splitter_->addWidget(pages_);
  splitter_->setStretchFactor(0, 0);
  splitter_->setStretchFactor(1, 1);
  splitter_->setSizes({800, 440});
  splitter_->setChildrenCollapsible(false);
  return splitter_;
}

void MainWindow::resizeEvent(QResizeEvent* event) {
  QMainWindow::resizeEvent(event);
  // In a narrow window the pages go below the banners.
  const auto orientation = width() < 1000 ? Qt::Vertical : Qt::Horizontal;
  if (splitter_->orientation() == orientation) return;
  splitter_->setOrientation(orientation);
  const bool isVertical = orientation == Qt::Vertical;
  splitter_->setStretchFactor(0, isVertical ? 1 : 0);
  splitter_->setSizes(isVertical ? QList{height() / 2, height() / 2} : QList{800, width() - 800});
}

QAction* MainWindow::makeAction(const QString& text, const QKeySequence& key,
                                QStyle::StandardPixmap icon, const QString& tip) {
  auto* const action = new QAction(style()->standardIcon(icon), text, this);
  action->setShortcut(key);
  action->setToolTip(QString("%1 (%2)").arg(tip, key.toString(QKeySequence::NativeText)));
  return action;
}

void MainWindow::makePassActions() {
  load_ = makeAction(tr("Load"), Qt::CTRL | Qt::Key_L, QStyle::SP_ArrowDown,
                     tr("Fetch what is new in the configuration"));
  update_ = makeAction(tr("Update"), Qt::CTRL | Qt::Key_U, QStyle::SP_BrowserReload,
                       tr("The same, and let go of what the configuration does not name"));
  pause_ = makeAction(tr("Pause"), Qt::CTRL | Qt::Key_P, QStyle::SP_MediaPause,
                      tr("Pause downloads, and continue them where they were"));
  pause_->setCheckable(true);
  stop_ = makeAction(tr("Stop"), Qt::Key_Escape, QStyle::SP_BrowserStop, tr("Stop the pass"));
  connect(load_, &QAction::triggered, this, [this] { start(CacheSession::Pass::load); });
  connect(update_, &QAction::triggered, this, [this] { start(CacheSession::Pass::update); });
  connect(stop_, &QAction::triggered, this, &MainWindow::stop);
  connect(pause_, &QAction::toggled, this, [this](bool isPaused) {
    session_.setPaused(isPaused);
    status_->setPaused(isPaused);
  });
}

void MainWindow::makeToolBar(const QStringList& configurations) {
  makePassActions();
  auto* const open = makeAction(tr("Open…"), QKeySequence::Open, QStyle::SP_DialogOpenButton,
                                tr("Choose another configuration"));
  connect(open, &QAction::triggered, this, &MainWindow::chooseConfiguration);
  auto* const upkeep = new QToolButton;
  upkeep->setMenu(new UpkeepMenu(
      session_, [this] { return configuration_->currentData().toString(); }, this));
  upkeep->setText(upkeep->menu()->title());
  upkeep->setPopupMode(QToolButton::InstantPopup);

  configuration_->setSizeAdjustPolicy(QComboBox::AdjustToContents);
  configuration_->setMinimumContentsLength(14);
  configuration_->setAccessibleName(tr("Configuration"));
  for (const QString& configuration : configurations)
    configuration_->addItem(QFileInfo(configuration).fileName(), configuration);

  QToolBar* const bar = addToolBar(tr("Cache"));
  bar->setMovable(false);
  bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
  bar->layout()->setContentsMargins(12, 6, 12, 6);
  bar->layout()->setSpacing(6);
  auto* const label = new QLabel(tr("Configuration "));
  label->setBuddy(configuration_);
  bar->addWidget(label);
  bar->addWidget(configuration_);
  bar->addAction(open);
  bar->addSeparator();
  bar->addActions({load_, update_, pause_, stop_});
  bar->addSeparator();
  bar->addWidget(upkeep);
}

void MainWindow::listenToSession() {
  connect(&session_, &CacheSession::contentsChanged, this, &MainWindow::showItems);
  connect(&session_, &CacheSession::itemLoaded, this, &MainWindow::showItem);
  connect(&session_, &CacheSession::started, this, [this] {
    failures_->clear();
    status_->showStart();
    updateActions();
  });
  connect(&session_, &CacheSession::progressed, status_, &PassStatus::showProgress);
  connect(&session_, &CacheSession::failed, failures_, &FailureList::add);
  connect(&session_, &CacheSession::ended, this, &MainWindow::showSummary);
}

void MainWindow::listenToUpkeep() {
  connect(&session_, &CacheSession::checked, this, [this](const PassSummary& summary) {
    if (!session_.isRunning()) showSummary(summary);
  });
  connect(&session_, &CacheSession::revalidating, this, [this] {
    status_->showText(tr("Checking the stored files"));
    updateActions();
  });
  connect(&session_, &CacheSession::revalidated, this, [this](const PassSummary& summary) {
    failures_->present(summary.failures);
    status_->showText(summary.changes.isEmpty() ? tr("No stored files to check")
                                                : tr("Stored files: %1").arg(summary.changes));
    updateActions();
  });
  connect(&session_, &CacheSession::spaceFreed, this, [this](const SpaceSummary& summary) {
    status_->showText(
        summary.problem.isEmpty()
            ? tr("%1 resources and %2 files removed").arg(summary.resources).arg(summary.files)
            : summary.problem);
  });
}

void MainWindow::showSummary(const PassSummary& summary) {
  failures_->present(summary.failures);
  status_->showEnd(resources_, summary);
  updateActions();
}

void MainWindow::start(CacheSession::Pass pass) {
  if (configuration_->count() == 0) chooseConfiguration();
  if (configuration_->count() != 0) session_.start(pass, configuration_->currentData().toString());
}

void MainWindow::stop() {
  status_->showStopping();
  session_.stop();
}

void MainWindow::chooseConfiguration() {
  const QString file = QFileDialog::getOpenFileName(this, tr("Choose a configuration"), QString(),
                                                    tr("Configurations (*.json);;All files (*)"));
  if (file.isEmpty()) return;
  configuration_->addItem(QFileInfo(file).fileName(), file);
  configuration_->setCurrentIndex(configuration_->count() - 1);
}

void MainWindow::showItems(const QList<CacheItem>& items) {
  QList<CacheItem> pages;
  for (const CacheItem& item : items) {
    if (item.kind == CacheItem::Kind::page) pages.append(item);
  }
  gallery_->present(items);
  pages_->present(pages);
  resources_ = items.size();
  if (!session_.isRunning()) status_->showStored(resources_);
  updateViews();
}

void MainWindow::showItem(const CacheItem& item) {
  gallery_->add(item);
  if (item.kind == CacheItem::Kind::page) pages_->add(item);
  updateViews();
}

void MainWindow::updateViews() {
  gallery_->setVisible(!gallery_->isEmpty());
  pages_->setVisible(!pages_->isEmpty());
  stack_->setCurrentIndex(gallery_->isEmpty() && pages_->isEmpty() ? 0 : 1);
}

void MainWindow::updateActions() {
  const bool runs = session_.isRunning();
  load_->setEnabled(!runs);
  update_->setEnabled(!runs);
  stop_->setEnabled(runs || session_.isRevalidating());
}
