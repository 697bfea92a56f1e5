#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <memory>
#include <optional>

#include "CacheItem.h"

namespace kiv {
class DispatchQueue;
}

/// Progress of a pass.
struct PassProgress {
  qint64 filesDone = 0;
  qint64 files = 0;
  qint64 bytes = 0;
  std::optional<qint64> bytesExpected;  ///< Nothing while a length is unknown.
  double bytesPerSecond = 0;
};

/// A failure of one resource, or of the configuration.
struct PassFailure {
  QString what;
  QString reason;  ///< In words.
};

/// The window's interface to the cache. It uses the manager on a separate queue and emits signals
/// with plain values on the window's thread, so that the window neither waits for the manager nor
/// touches a resource that the manager works on.
///
/// Create it on the application's thread, which drains the main queue (QtMainQueue). One session at
/// a time, since there is one manager. The destructor stops a running pass and waits for the
/// manager's current job, which may store a file or unpack an archive.
class CacheSession final : public QObject {
  Q_OBJECT

 public:
  enum class Pass {
    load,    ///< What is new in the configuration is added.
    update,  ///< And what it does not name goes.
  };

  /// `queue` is the manager's, from kiv::DispatchQueue::serial(). Storage root and servers must be
  /// set before. The cached items are announced asynchronously.
  explicit CacheSession(std::shared_ptr<kiv::DispatchQueue> queue);
  ~CacheSession() override;

  /// Starts a pass with the configuration, a local file or an http(s) URL. Does nothing while a
  /// pass is running.
  void start(Pass pass, const QString& configuration);
  /// Stops the running pass. Complete resources stay.
  void stop();
  [[nodiscard]] bool isRunning() const { return isRunning_; }

 signals:
  /// All loaded items: emitted at the start and after each pass.
  void contentsChanged(const QList<CacheItem>& items);
  /// A resource was completed during a pass. It replaces the item with the same id.
  void itemLoaded(const CacheItem& item);
  void started();
  void progressed(const PassProgress& progress);
  void failed(const PassFailure& failure);
  void ended();

 private:
  friend class CacheWorker;

  std::shared_ptr<kiv::DispatchQueue> queue_;
  std::shared_ptr<class CacheWorker> worker_;  ///< Used in jobs of the queue alone.
  bool isRunning_ = false;
};
