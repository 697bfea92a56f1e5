#pragma once

#include <QObject>

/// Has Qt's event loop drain the framework's main queue. Needs nothing but Qt Core and the
/// framework, so that it can be copied into another program as it stands.
///
///     QApplication application(count, arguments);
///     const QtMainQueue mainQueue;
///     ...
///     return application.exec();
///
/// Make one on the thread of the application, after the application, and let it go before the
/// application goes. Jobs that wait when it is made run soon; those that wait when it goes stay in
/// the queue, and the next adapter runs them.
///
/// Jobs never nest: as long as one runs an event loop of its own, as QDialog::exec() does, no other
/// job runs. Such a job opens the dialog through a queued call of Qt's instead.
class QtMainQueue final : public QObject {
 public:
  QtMainQueue();
  ~QtMainQueue() override;
};
