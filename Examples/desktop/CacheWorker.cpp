#include "CacheWorker.h"

#include <QFile>
#include <QUrl>

#include "WebLink.h"

namespace {

constexpr std::int64_t largestConfiguration = std::int64_t{16} * 1024 * 1024;  // bytes

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
  end();
}

void CacheWorker::close() {
  stop();
  manager_->removeObserver(shared_from_this());
  manager_->loader()->restService()->setProgressHandler({});
}

void CacheWorker::run(CacheSession::Pass pass, const QString& configuration) {
  pass_ = pass;
  passIsOpen_ = true;
  if (!webLink(configuration).isEmpty()) return fetchConfiguration(configuration);
  QFile file(configuration);
  if (file.open(QIODevice::ReadOnly)) {
    useConfiguration(kiv::Data(file.readAll().toStdString()));
  } else {
    tellFailure(configuration, file.errorString());
    end();
  }
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
    if (response && response->statusCode() == 200) {
      return useConfiguration(ended.returnedData().value_or(kiv::Data()));
    }
    tellFailure(
        address,
        response
            ? CacheSession::tr("The server answered with status %1.").arg(response->statusCode())
            : QString::fromStdString(ended.responseError()->localizedDescription()));
    end();
  });
  configurationClient_->queue(task);
}

void CacheWorker::useConfiguration(const kiv::Data& text) {
  const auto config = kiv::JSON::read(text);
  if (!config) {
    tellFailure(CacheSession::tr("Configuration"),
                QString::fromStdString(config.error().localizedDescription()));
    return end();
  }
  if (pass_ == CacheSession::Pass::update) {
    manager_->updateResourcesForConfig(*config);
  } else {
    manager_->loadResourcesForConfig(*config);
  }
}

void CacheWorker::stop() {
  if (!passIsOpen_) return;
  if (configurationClient_) configurationClient_->cancelAllTasks();
  manager_->stopLoading();  // sends the finish
}

void CacheWorker::resourceManager_didLoadResource(const std::shared_ptr<KivResourceManager>&,
                                                  const std::shared_ptr<KivResource>& resource) {
  tell([item = CacheItem::of(*resource)](CacheSession& session) { emit session.itemLoaded(item); });
}

void CacheWorker::resourceManager_didFailToLoadResource_withError(
    const std::shared_ptr<KivResourceManager>&, const std::shared_ptr<KivResource>& resource,
    const std::optional<kiv::Error>& error) {
  tellFailure(QString::fromStdString(resource->name()),
              error ? QString::fromStdString(error->localizedDescription())
                    : CacheSession::tr("No data came."));
}

// A pass may send more than one finish; after the last no download is left.
void CacheWorker::resourceManagerDidFinishLoading(
    const std::shared_ptr<KivResourceManager>& manager) {
  if (passIsOpen_ && manager->loadingResourcesFilesCount() == 0) end();
}

/// Announces the loaded resources, and the end of the pass if one is running.
void CacheWorker::end() {
  QList<CacheItem> items;
  for (const auto& resource : manager_->allLoadedResources())
    items.append(CacheItem::of(*resource));
  tell([items, passEnds = std::exchange(passIsOpen_, false)](CacheSession& session) {
    emit session.contentsChanged(items);
    if (!passEnds) return;
    session.isRunning_ = false;
    emit session.ended();
  });
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

void CacheWorker::tellFailure(const QString& what, const QString& reason) const {
  tell([what, reason](CacheSession& session) { emit session.failed({what, reason}); });
}
