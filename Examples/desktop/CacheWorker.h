#pragma once

#include <KivResource/KivResource.h>
#include <QHash>
#include <QPointer>
#include <QString>
#include <functional>
#include <memory>

#include "CacheSession.h"

/// The part of a session that is used on the manager's queue only. It passes plain values to the
/// session through the main queue. The operations are those of CacheSession.
class CacheWorker final : public KivResourceManagerObserver,
                          public std::enable_shared_from_this<CacheWorker> {
 public:
  explicit CacheWorker(const QPointer<CacheSession>& session) : session_(session) {}

  /// Creates the manager and announces its resources.
  void open(const std::shared_ptr<kiv::DispatchQueue>& queue);
  void run(CacheSession::Pass pass, const QString& configuration);
  void stop();
  void setPaused(bool isPaused);
  void follow(const QString& address);
  void stopFollowing();
  void revalidate();
  void planSpace(const SpaceBound& bound);
  void freeSpace(const SpaceBound& bound);
  /// Stops everything; the session hears nothing more.
  void close();

  void resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>& manager,
                                       const std::shared_ptr<KivResource>& resource) override;
  void resourceManager_didFailToLoadResource_withError(
      const std::shared_ptr<KivResourceManager>& manager,
      const std::shared_ptr<KivResource>& resource,
      const std::optional<kiv::Error>& error) override;

 private:
  /// Runs the function with the session on the session's thread, if it still exists.
  void tell(std::function<void(CacheSession&)> job) const;
  void tellContents() const;
  void tellRevalidation(const KivResourceRevalidationReport& report);
  [[nodiscard]] CacheItem itemOf(const KivResource& resource) const;
  void tellProgress(const KivRESTServiceProgress& progress) const;
  void fetchConfiguration(const QString& address);
  void useConfiguration(const kiv::Data& text);
  void endPass(const PassSummary& summary);

  QPointer<CacheSession> session_;  ///< Looked into on the main queue alone.
  std::shared_ptr<KivResourceManager> manager_;
  std::unique_ptr<KivRESTService> configurationClient_;
  std::unique_ptr<KivConfigurationUpdater> updater_;
  /// By the identifiers of resources: how often a check of the stored files has replaced one of
  /// theirs, which changes neither its path nor the resource.
  QHash<QString, int> timesChanged_;
  CacheSession::Pass pass_ = CacheSession::Pass::load;
  bool passIsOpen_ = false;
};
