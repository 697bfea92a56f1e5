#pragma once

#include <QObject>

/// Lets Qt's event loop drain the framework's main queue. Depends only on Qt Core and the
/// framework, so it can be copied into another program.
///
///     QApplication application(count, arguments);
///     const QtMainQueue mainQueue;
///     ...
///     return application.exec();
///
/// Create it on the application's thread after the application object, and destroy it before that.
/// Jobs that are waiting then run soon; jobs left at its destruction stay in the queue for the next
/// adapter.
///
/// Jobs never nest: while a job runs its own event loop, as QDialog::exec() does, no other job
/// runs. A job should open a dialog through a queued call instead.
class QtMainQueue final : public QObject {
 public:
  QtMainQueue();
  ~QtMainQueue() override;
};
