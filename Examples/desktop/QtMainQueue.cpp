#include "QtMainQueue.h"

#include <KivResource/KivResource.h>
#include <QCoreApplication>
#include <QMetaObject>
#include <QThread>

QtMainQueue::QtMainQueue() {
  Q_ASSERT(QCoreApplication::instance() &&
           QThread::currentThread() == QCoreApplication::instance()->thread());
  // Called on whatever thread adds a job. A queued call is the one thing of Qt's that any thread
  // may ask for; the loop makes it on the thread of this object.
  kiv::DispatchQueue::main()->setWakeUpHandler([this] {
    QMetaObject::invokeMethod(
        this, [] { kiv::DispatchQueue::main()->drain(); }, Qt::QueuedConnection);
  });
}

QtMainQueue::~QtMainQueue() {
  // When this returns no thread is in the handler any more. A call that is still queued then goes
  // with the object.
  kiv::DispatchQueue::main()->setWakeUpHandler({});
}
