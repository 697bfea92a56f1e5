#include "QtMainQueue.h"

#include <KivResource/KivResource.h>
#include <QCoreApplication>
#include <QMetaObject>
#include <QThread>

QtMainQueue::QtMainQueue() {
  Q_ASSERT(QCoreApplication::instance() &&
           QThread::currentThread() == QCoreApplication::instance()->thread());
  // Called on the thread that adds a job. A queued call may be made on any thread; it runs on the
  // thread of this object.
  kiv::DispatchQueue::main()->setWakeUpHandler([this] {
    QMetaObject::invokeMethod(
        this, [] { kiv::DispatchQueue::main()->drain(); }, Qt::QueuedConnection);
  });
}

QtMainQueue::~QtMainQueue() {
  // When this returns, the handler is not running on any thread. A queued call that is still
  // pending is dropped with the object.
  kiv::DispatchQueue::main()->setWakeUpHandler({});
}
