#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Data.h"
#include "KivPlatform/Foundation/values/Error.h"
#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/KivRESTServiceTask.h"
#include "KivPlatform/KivRESTService/KivRESTServiceValidators.h"

class KivAppConfiguration;
class KivRESTService;
class KivResource;

/// Part of the interface only: the download module never calls its delegate.
class KIV_EXPORT KivResourceRESTModuleDelegate {
 public:
  virtual ~KivResourceRESTModuleDelegate() = default;
};

/// Downloads single resource files from the main server, with the reserve server as mirror.
///
/// Owned by the manager. Its operations run on the caller's thread; completions are called on the
/// queue of its client, which is the one on which the module was created. The servers' domains are
/// read for each download.
class KIV_EXPORT KivResourceRESTModule {
 public:
  /// The outcome of a download: the bytes, or an error, or both if a transfer broke off after some
  /// bytes.
  using CompletionHandler =
      std::function<void(std::optional<kiv::Data>, std::optional<kiv::Error>)>;

  /// Receives the client's task of a download that has ended, for its status and metrics. It must
  /// not throw.
  using TaskHandler = std::function<void(const KivRESTServiceTask& task)>;

  /// Creates a module with its own client.
  KivResourceRESTModule();
  /// Creates a module with that client, or none.
  explicit KivResourceRESTModule(std::shared_ptr<KivRESTService> restService);
  virtual ~KivResourceRESTModule();
  KivResourceRESTModule(const KivResourceRESTModule&) = delete;
  KivResourceRESTModule& operator=(const KivResourceRESTModule&) = delete;

  /// Starts to download the file of the link, with the resource's priority, or 0 if the resource is
  /// nullptr. `completion` is called exactly once, or never if the download is cancelled. If no
  /// request can be made for the link, or there is no client, it is called with error 101 before
  /// this returns. Otherwise it is called asynchronously on the client's queue: with the bytes of a
  /// response with status 200, with error 102 for any other status, or with the client's error. It
  /// may be empty.
  virtual void loadDataForResource_usingFileLink_completionHandler(
      const std::shared_ptr<KivResource>& resource, const std::string& fileLink,
      CompletionHandler completion);
  /// The same; `taskHandler` is called right before `completion`, unless there is no task: if no
  /// request can be made, if the download is cancelled, or if an override does not call this class.
  /// It may be empty.
  void loadDataForResource_usingFileLink_taskHandler_completionHandler(
      const std::shared_ptr<KivResource>& resource, const std::string& fileLink,
      TaskHandler taskHandler, CompletionHandler completion);
  /// The same with a condition, KivRESTServiceTask::setValidators(): the client asks for the file
  /// only if it has changed. If it has not, `taskHandler` sees the status 304, and `completion`
  /// gets error 102. An override that does not call this class asks for the file unconditionally.
  void loadDataForResource_usingFileLink_validators_taskHandler_completionHandler(
      const std::shared_ptr<KivResource>& resource, const std::string& fileLink,
      std::optional<KivRESTServiceValidators> validators, TaskHandler taskHandler,
      CompletionHandler completion);

  /// Cancels all downloads. No completion is called after this, not even that of a download that
  /// has just ended.
  virtual void canselLoading();

  /// A GET request for the URL, or nothing if there is none.
  [[nodiscard]] std::optional<kiv::URLRequest> createGetRequestWithURL(
      const std::optional<kiv::URL>& url) const;
  /// The file's URL on the main server: the domain and the link, joined by one "/", not escaped.
  /// Nothing if there is no domain, or the result is no valid URL.
  [[nodiscard]] std::optional<kiv::URL> mainURLForFileWithLink(std::string_view fileLink) const;
  /// The file's URL on the reserve server, or an empty array.
  [[nodiscard]] std::vector<kiv::URL> mirrorURLsForFileWithLink(std::string_view fileLink) const;

  /// Error 101, of a download for which no request can be made.
  static kiv::Error createRequestError();

  [[nodiscard]] std::shared_ptr<KivResourceRESTModuleDelegate> delegate() const;
  /// Held weakly.
  void setDelegate(const std::shared_ptr<KivResourceRESTModuleDelegate>& delegate);

  /// The servers: by default those of the process (KivAppConfiguration::sharedInstance). The
  /// manager of another cache sets that cache's when it gets a module with the default.
  [[nodiscard]] const std::shared_ptr<KivAppConfiguration>& appConfiguration() const noexcept;
  /// nullptr restores the default.
  void setAppConfiguration(std::shared_ptr<KivAppConfiguration> configuration);

  [[nodiscard]] const std::shared_ptr<KivRESTService>& restService() const noexcept;
  void setRestService(std::shared_ptr<KivRESTService> restService);

 private:
  TaskHandler taskHandler_;  ///< This and the next of the download that is being started.
  std::optional<KivRESTServiceValidators> validators_;
  std::weak_ptr<KivResourceRESTModuleDelegate> delegate_;
  std::shared_ptr<KivAppConfiguration> appConfiguration_;
  std::shared_ptr<KivRESTService> restService_;
};
