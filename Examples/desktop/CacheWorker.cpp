#include "CacheWorker.h"

#include <QFile>
#include <QUrl>

#include "WebLink.h"

namespace {

constexpr std::int64_t largestConfiguration = std::int64_t{16} * 1024 * 1024;  // bytes

QString text(const kiv::Error& error) {
  return QString::fromStdString(error.localizedDescription());
}

}  // namespace

void CacheWorker::tell(std::function<void(CacheSession&)> job) const {
  kiv::DispatchQueue::main()->async([session = session_, job = std::move(job)] {
    if (session) job(*session);
  });
}

void CacheWorker::open(const std::shared_ptr<kiv::DispatchQueue>& queue) {
  manager_ = KivResourceManager::sharedInstance();
  manager_->addObserver(shared_from_this(), queue);
  manager_->loader()->restService()->setProgressHandler(
      [self = weak_from_this()](const KivRESTServiceProgress& progress) {
        if (const auto worker = self.lock()) worker->tellProgress(progress);
      });
  tellContents();
}

// The manager stays, for another session of the process.
void CacheWorker::close() {
  updater_.reset();
  passIsOpen_ = false;
  configurationClient_.reset();
  manager_->removeObserver(shared_from_this());
  manager_->loader()->restService()->setProgressHandler({});
  manager_->stopLoading();
  setPaused(false);
}

// --- Passes --------------------------------------------------------------------------------------

void CacheWorker::run(CacheSession::Pass pass, const QString& configuration) {
  pass_ = pass;
  passIsOpen_ = true;
  if (!webLink(configuration).isEmpty()) return fetchConfiguration(configuration);
  QFile file(configuration);
  if (!file.open(QIODevice::ReadOnly))
    return endPass(PassSummary::failed({configuration, file.errorString()}));
  useConfiguration(kiv::Data(file.readAll().toStdString()));
}

// Uses the framework's client, with its retries and limits, but a new one, so that the metrics of
// the manager's client are those of the files.
void CacheWorker::fetchConfiguration(const QString& address) {
  KivRESTServiceSettings settings = KivRESTService::defaultSettings();
  settings.largestBody = largestConfiguration;
  configurationClient_ = std::make_unique<KivRESTService>(settings);
  const auto task = std::make_shared<KivRESTServiceTask>();
  const auto url = kiv::URL::fromString(address.toStdString());
  if (url) task->setRequest(kiv::URLRequest(*url));
  task->setCompletionHandler([this, address](const KivRESTServiceTask& ended) {
    const auto& response = ended.response();
    if (response && response->statusCode() == 200)
      return useConfiguration(ended.returnedData().value_or(kiv::Data()));
    const QString reason =
        response
            ? CacheSession::tr("The server answered with status %1.").arg(response->statusCode())
            : text(*ended.responseError());
    endPass(PassSummary::failed({address, reason}));
  });
  configurationClient_->queue(task);
}

void CacheWorker::useConfiguration(const kiv::Data& config) {
  const auto value = kiv::JSON::read(config);
  if (!value) {
    return endPass(PassSummary::failed({CacheSession::tr("Configuration"), text(value.error())}));
  }
  const bool updates = pass_ == CacheSession::Pass::update;
  manager_->startPass(updates ? KivResourcePass::update(*value) : KivResourcePass::load(*value),
                      [self = weak_from_this()](const KivResourcePassReport& report) {
                        if (const auto worker = self.lock())
                          worker->endPass(PassSummary::of(report));
                      });
}

void CacheWorker::endPass(const PassSummary& summary) {
  if (!std::exchange(passIsOpen_, false)) return;
  tellContents();
  tell([summary](CacheSession& session) {
    session.isRunning_ = false;
    emit session.ended(summary);
  });
}

// A pass that the manager runs is reported as stopped; one whose configuration has not come yet
// ends here.
void CacheWorker::stop() {
  const bool isFetching = configurationClient_ && !configurationClient_->currentQueue().empty();
  if (isFetching) configurationClient_->cancelAllTasks();
  manager_->stopLoading();
  if (isFetching) endPass(PassSummary());
}

void CacheWorker::setPaused(bool isPaused) {
  const auto client = manager_->loader()->restService();
  if (isPaused) {
    client->pause();
  } else {
    client->resume();
  }
}

// --- A configuration that is looked at again and again -------------------------------------------

void CacheWorker::follow(const QString& address) {
  const auto url = kiv::URL::fromString(address.toStdString());
  if (!url || webLink(address).isEmpty()) {
    return tell([address](CacheSession& session) {
      session.isFollowing_ = false;
      emit session.checked(
          PassSummary::failed({address, CacheSession::tr("This is no http or https address.")}));
    });
  }
  updater_ = std::make_unique<KivConfigurationUpdater>(manager_, *url);
  updater_->setCheckHandler([this, address](const KivConfigurationCheck& check) {
    if (check.outcome == KivConfigurationOutcome::postponed) return;
    PassSummary summary = check.report ? PassSummary::of(*check.report) : PassSummary();
    if (check.error) summary.failures.append({address, text(*check.error)});
    if (check.report) tellContents();
    tell([summary](CacheSession& session) { emit session.checked(summary); });
  });
  updater_->start();
}

void CacheWorker::stopFollowing() {
  if (!updater_) return;
  updater_.reset();
  if (!passIsOpen_ && manager_->loadingResourcesFilesCount() != 0) manager_->stopLoading();
}

// --- Care of what is stored ----------------------------------------------------------------------

void CacheWorker::revalidate() {
  manager_->revalidate([self = weak_from_this()](const KivResourceRevalidationReport& report) {
    if (const auto worker = self.lock()) worker->tellRevalidation(report);
  });
}

void CacheWorker::tellRevalidation(const KivResourceRevalidationReport& report) {
  for (const KivResourceRevalidationFile& file : report.files) {
    if (file.outcome != KivResourceRevalidationFileOutcome::replaced) continue;
    for (const std::string& resourceID : file.resourceIDs)
      ++timesChanged_[QString::fromStdString(resourceID)];
  }
  tellContents();
  tell([summary = PassSummary::of(report)](CacheSession& session) {
    session.isRevalidating_ = false;
    emit session.revalidated(summary);
  });
}

void CacheWorker::planSpace(const SpaceBound& bound) {
  tell([summary = ::planSpace(*manager_, bound)](CacheSession& session) {
    emit session.spacePlanned(summary);
  });
}

void CacheWorker::freeSpace(const SpaceBound& bound) {
  const SpaceSummary summary = ::freeSpace(*manager_, bound);
  tellContents();
  tell([summary](CacheSession& session) { emit session.spaceFreed(summary); });
}

// --- What the session hears ----------------------------------------------------------------------

void CacheWorker::resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                                  const std::shared_ptr<KivResource>& resource) {
  tell([item = itemOf(*resource)](CacheSession& session) { emit session.itemLoaded(item); });
}

void CacheWorker::resourceManager_didFailToLoadResource_withError(
    const std::shared_ptr<KivResourceManager>&, const std::shared_ptr<KivResource>& resource,
    const std::optional<kiv::Error>& error) {
  const PassFailure failure{QString::fromStdString(resource->name()),
                            error ? text(*error) : CacheSession::tr("No data came.")};
  tell([failure](CacheSession& session) { emit session.failed(failure); });
}

CacheItem CacheWorker::itemOf(const KivResource& resource) const {
  return CacheItem::of(resource,
                       timesChanged_.value(QString::fromStdString(resource.resourceID())));
}

void CacheWorker::tellContents() const {
  QList<CacheItem> items;
  for (const auto& resource : manager_->allLoadedResources())
    items.append(itemOf(*resource));
  tell([items](CacheSession& session) { emit session.contentsChanged(items); });
}

void CacheWorker::tellProgress(const KivRESTServiceProgress& progress) const {
  const auto files = progress.tasksWaiting + progress.tasksRunning + progress.tasksEnded;
  PassProgress told;
  told.filesDone = static_cast<qint64>(progress.tasksEnded);
  told.files = static_cast<qint64>(files);
  told.bytes = progress.bytesReceived;
  if (progress.bytesExpected) told.bytesExpected = *progress.bytesExpected;
  told.bytesPerSecond = progress.bytesPerSecond;
  // The client may report its last state after the end of the pass.
  tell([told](CacheSession& session) {
    if (session.isRunning()) emit session.progressed(told);
  });
}
