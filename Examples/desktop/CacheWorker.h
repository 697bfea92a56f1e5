#pragma once

#include <KivResource/KivResource.h>
#include <QPointer>
#include <QString>
#include <functional>
#include <memory>

#include "CacheSession.h"

/// The part of a session that is used on the manager's queue only. It passes plain values to the
/// session through the main queue.
class CacheWorker final : public KivResourceManagerObserver,
                          public std::enable_shared_from_this<CacheWorker> {
 public:
  explicit CacheWorker(const QPointer<CacheSession>& session) : session_(session) {}

  /// Creates the manager and announces its resources.
  void open(const std::shared_ptr<kiv::DispatchQueue>& queue);
  void run(CacheSession::Pass pass, const QString& configuration);
  void stop();
  /// Stops the pass; the session hears nothing more.
  void close();

  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>& manager,
                                       const std::shared_ptr<KivResource>& resource) override;
  void resourceManager_didFailToLoadResource_withError(
      const std::shared_ptr<KivResourceManager>& manager,
      const std::shared_ptr<KivResource>& resource,
      const std::optional<kiv::Error>& error) override;
  void resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>& manager) override;

 private:
  /// Runs the function with the session on the session's thread, if it still exists.
  void tell(std::function<void(CacheSession&)> job) const;
  void tellProgress(const KivRESTServiceProgress& progress) const;
  void tellFailure(const QString& what, const QString& reason) const;
  void fetchConfiguration(const QString& address);
  void useConfiguration(const kiv::Data& text);
  void end();

  QPointer<CacheSession> session_;  ///< Looked into on the main queue alone.
  std::shared_ptr<KivResourceManager> manager_;
  std::unique_ptr<KivRESTService> configurationClient_;
  CacheSession::Pass pass_ = CacheSession::Pass::load;
  bool passIsOpen_ = false;
};
