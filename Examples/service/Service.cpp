#include "Service.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "BearerToken.h"
#include "HoldFile.h"
#include "ReportLines.h"
#include "ResourceIndex.h"
#include "ServiceLog.h"

namespace {

/// A file of the directory that is locked as long as a service uses it.
kiv::Result<std::unique_ptr<kiv::FileLock>> lockDirectory(const std::string& directory) {
  auto& files = kiv::FileManager::defaultManager();
  if (auto status = files.createDirectoryAtPath(directory); !status) return status;
  auto lock = files.lockFileAtPath(directory + "/lock");
  if (lock || !kiv::isSystemError(lock.error(), std::errc::resource_unavailable_try_again))
    return lock;
  return kiv::Error(kiv::SystemErrorDomain, lock.error().code,
                    "another service uses the directory " + directory);
}

/// A client for the configuration, with the settings of the cache: the updater's own would have the
/// defaults, without the proxy and the certificates of the administrator's.
std::shared_ptr<KivRESTService> configurationClient(KivRESTServiceSettings settings) {
  settings.spoolDirectory.clear();
  constexpr std::chrono::seconds most = std::chrono::minutes(5);
  if (settings.deadline.count() == 0 || settings.deadline > most) settings.deadline = most;
  return std::make_shared<KivRESTService>(std::move(settings));
}

}  // namespace

std::shared_ptr<Service> Service::open(const ServiceSettings& settings,
                                       std::optional<kiv::Error>* error,
                                       const std::shared_ptr<kiv::Timers>& timers) {
  auto lock = lockDirectory(settings.directory).reportTo(error);
  if (!lock) return nullptr;
  KivResourceCacheOptions options;
  options.rootPath = settings.directory + "/cache";
  options.mainACSDomain = settings.mainServer;
  options.reserveACSDomain = settings.reserveServer;
  options.settings = settings.transfers;
  options.packagedResourcesPath = "";
  const auto cache = KivResourceCache::open(options, error);
  if (!cache) return nullptr;
  std::shared_ptr<Service> service(new Service(settings, *std::move(lock), cache, timers));
  service->prepare();
  return service;
}

Service::Service(ServiceSettings settings, std::unique_ptr<kiv::FileLock> lock,
                 std::shared_ptr<KivResourceCache> cache, std::shared_ptr<kiv::Timers> timers)
    : settings_(std::move(settings)),
      lock_(std::move(lock)),
      cache_(std::move(cache)),
      timers_(std::move(timers)),
      queue_(kiv::DispatchQueue::current()) {}

Service::~Service() = default;

void Service::prepare() {
  const auto manager = cache_->manager();
  if (const auto error = manager->savedListError())
    writeLog(LogLevel::error, "the list cannot be read: " + error->localizedDescription());
  manager->addObserver(shared_from_this());
  index_ = std::make_unique<ResourceIndex>(cache_);
  makeUpdater();

  const auto token = std::make_shared<BearerToken>(settings_.tokenFile, settings_.origins());
  const auto hold =
      std::make_shared<HoldFile>(settings_.directory + "/hold", timers_, [self = weak_from_this()] {
        if (const auto service = self.lock()) service->lookAtHold();
      });
  for (const auto& client : {manager->loader()->restService(), updater_->restService()}) {
    client->setRequestHandler(
        [token](const KivRESTServiceRequest& request) { token->answer(request); });
    client->setStartCondition(
        [hold](const KivRESTServiceTask&, const kiv::URL&) { return hold->allowsStart(); });
  }
}

void Service::makeUpdater() {
  KivConfigurationUpdaterOptions options;
  options.mirrors = settings_.mirrors;
  options.interval = settings_.interval;
  options.timers = timers_;
  options.restService = configurationClient(settings_.transfers);
  updater_ = std::make_unique<KivConfigurationUpdater>(cache_->manager(), settings_.configuration,
                                                       std::move(options));
  updater_->setCheckHandler([this](const KivConfigurationCheck& check) {
    logCheck(check);
    if (check.report) tidy();
  });
}

void Service::start() {
  writeLog(LogLevel::info, "started in " + settings_.directory + " with " +
                               std::to_string(cache_->manager()->allLoadedResources().size()) +
                               " resources");
  index_->publish();  // what is loaded may be less than a former process has published
  updater_->start();
}

void Service::checkNow() {
  lookAtHold();
  updater_->checkNow();
}

void Service::lookAtHold() {
  cache_->manager()->loader()->restService()->startConditionChanged();
  updater_->restService()->startConditionChanged();
}

void Service::revalidate() {
  cache_->manager()->revalidate(
      [self = weak_from_this()](const KivResourceRevalidationReport& report) {
        logRevalidation(report);
        if (const auto service = self.lock()) service->tidy();
      });
}

void Service::stop() {
  updater_->stop();
  cache_->manager()->stopLoading();
  publishing_.reset();
  index_->publish();
}

// A pass may take hours, and removes the files of a version when it has the next one: the index is
// not to name them that long. Many resources at one time are one publication.
void Service::resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                              const std::shared_ptr<KivResource>&) {
  if (publishing_) return;
  publishing_ =
      timers_->set(timers_->now() + std::chrono::seconds(1), queue_, [self = weak_from_this()] {
        const auto service = self.lock();
        if (!service || !service->publishing_) return;
        service->publishing_.reset();
        service->index_->publish();
      });
}

/// What is to be done when files have come: keeps the limit, and tells other programs.
void Service::tidy() {
  const auto manager = cache_->manager();
  // While a pass runs nothing may be removed. Its end comes here again.
  if (settings_.limit && manager->loadingResourcesFilesCount() == 0) {
    KivResourceTrimOptions options;
    options.bytes = *settings_.limit;
    options.rule = settings_.trimRule;
    std::optional<kiv::Error> error;
    const auto trim = KivResourceMaintenance::trim(*manager, options,
                                                   KivResourceMaintenance::Mode::remove, &error);
    if (trim) logTrim(*trim);
    if (error) writeLog(LogLevel::warning, "not trimmed: " + error->localizedDescription());
  }
  index_->publish();
}
