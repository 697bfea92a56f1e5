#include "UpkeepMenu.h"

#include <QAction>
#include <utility>

#include "CacheSession.h"
#include "SpaceDialog.h"

UpkeepMenu::UpkeepMenu(CacheSession& session, std::function<QString()> configuration,
                       QWidget* parent)
    : QMenu(tr("Cache"), parent), session_(session), configuration_(std::move(configuration)) {
  setToolTipsVisible(true);
  auto* const follow = add(tr("Keep up to date"), Qt::CTRL | Qt::Key_K,
                           tr("Update now and every hour from the address of the configuration"));
  follow->setCheckable(true);
  connect(follow, &QAction::toggled, this, &UpkeepMenu::follow);
  connect(&session_, &CacheSession::checked, follow,
          [this, follow] { follow->setChecked(session_.isFollowing()); });

  auto* const check = add(tr("Check stored files"), Qt::CTRL | Qt::Key_R,
                          tr("Fetch files that have changed under their names"));
  connect(check, &QAction::triggered, &session_, &CacheSession::revalidate);
  connect(&session_, &CacheSession::revalidating, check, [check] { check->setEnabled(false); });
  connect(&session_, &CacheSession::revalidated, check, [check] { check->setEnabled(true); });

  auto* const space =
      add(tr("Free space…"), Qt::CTRL | Qt::Key_T, tr("Bound the space that the cache takes"));
  connect(space, &QAction::triggered, this, &UpkeepMenu::freeSpace);
}

QAction* UpkeepMenu::add(const QString& text, const QKeySequence& key, const QString& tip) {
  QAction* const action = addAction(text);
  action->setShortcut(key);
  action->setToolTip(tip);
  parentWidget()->addAction(action);  // so that its key works while the menu is closed
  return action;
}

void UpkeepMenu::follow(bool follows) {
  if (follows == session_.isFollowing()) return;
  if (follows) {
    session_.follow(configuration_());
  } else {
    session_.stopFollowing();
  }
}

void UpkeepMenu::freeSpace() {
  auto* const dialog = new SpaceDialog(session_, parentWidget());
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->open();
}
