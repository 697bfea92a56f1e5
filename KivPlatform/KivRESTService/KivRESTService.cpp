// The public client. A task enters and leaves the ledger and the engine under one lock, so that a
// cancellation on another thread finds it in both or in neither.

#include "KivPlatform/KivRESTService/KivRESTService.h"

#include <optional>
#include <string_view>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/Foundation/system/ForkGuard.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/KivRESTService/curl/CurlLibrary.h"
#include "KivPlatform/KivRESTService/engine/RequestGate.h"
#include "KivPlatform/KivRESTService/engine/StartGate.h"
#include "KivPlatform/KivRESTService/engine/TaskLedger.h"
#include "KivPlatform/KivRESTService/engine/TransferEngine.h"
#include "KivPlatform/KivRESTService/http/TransferErrors.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace {

std::shared_ptr<kiv::DispatchQueue> queueOfCreation() {
  auto queue = kiv::DispatchQueue::current();
  return queue ? queue : kiv::DispatchQueue::main();
}

/// Fails if the task cannot be run.
kiv::Status checkTask(const KivRESTServiceTask& task) {
  constexpr auto code = KivRESTServiceErrorCode::unsupportedRequest;
  if (!task.request()) return kiv::transferError(code, {}, "the task has no request");
  if (task.request()->httpMethod == "GET") return {};
  return kiv::transferError(code, task.request()->url.absoluteString(),
                            "the method of the request is not GET");
}

kiv::TransferJob jobFor(std::uint64_t id, const KivRESTServiceTask& task) {
  kiv::TransferJob job{id, task.priority(), {task.request()->url}};
  const auto& mirrors = task.requestMirrorURLs();
  job.servers.insert(job.servers.end(), mirrors.begin(), mirrors.end());
  job.validators = task.validators();
  return job;
}

struct DefaultSettings {
  kiv::Mutex mutex;
  kiv::TransferSettings settings KIV_GUARDED_BY(mutex);

  static DefaultSettings& shared() {
    static auto& object = *new DefaultSettings;
    return object;
  }
};

}  // namespace

class KivRESTService::Implementation {
 public:
  explicit Implementation(kiv::TransferSettings settings)
      : pendingBytes_(std::make_shared<kiv::PendingBytes>()),
        ledger_(std::make_shared<kiv::TaskLedger>(queueOfCreation(), pendingBytes_)),
        gate_(std::make_shared<kiv::StartGate>(queueOfCreation(), ledger_)),
        requestGate_(std::make_shared<kiv::RequestGate>(queueOfCreation(), ledger_)),
        engine_(
            std::move(settings), pendingBytes_,
            [ledger = ledger_](kiv::TaskResults results) { ledger->end(std::move(results)); },
            [ledger = ledger_](kiv::ProgressReport report) { ledger->report(std::move(report)); },
            [ledger = ledger_] { ledger->failAll(KivRESTServiceErrorCode::outOfResources); },
            [ledger = ledger_] { return ledger->addDueJobs(); },
            [gate = gate_](std::vector<kiv::StartQuestion> questions) {
              gate->ask(std::move(questions));
            },
            [gate = requestGate_](const std::vector<kiv::RequestQuestion>& questions) {
              gate->ask(questions);
            }) {
    gate_->setAnswerHandler([this](std::vector<kiv::StartAnswer> answers) {
      engine_.answerStarts(std::move(answers));
    });
    requestGate_->setAnswerReceiver(
        [this](kiv::RequestAnswers answers) { engine_.answerRequests(std::move(answers)); });
  }

  ~Implementation() {
    gate_->setAnswerHandler(nullptr);
    requestGate_->setAnswerReceiver(nullptr);
    const auto tasks = ledger_->takeAll();
    engine_.stop();
    ledger_->releaseHandlers(tasks);
  }

  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  void queue(std::shared_ptr<KivRESTServiceTask> task) {
    const KivRESTServiceTask& queued = *task;
    kiv::Status status = checkTask(queued);
    if (status && engine_.isInherited()) {
      status = kiv::transferError(KivRESTServiceErrorCode::forkedProcess,
                                  queued.request()->url.absoluteString());
    }
    std::optional<std::uint64_t> id;
    {
      const kiv::MutexLock lock(ordersMutex_);
      id = ledger_->add(std::move(task));
      if (!id) return;
      if (status && !engine_.add(jobFor(*id, queued))) {
        status = kiv::transferError(KivRESTServiceErrorCode::outOfResources,
                                    queued.request()->url.absoluteString());
      }
    }
    if (!status) {
      auto outcome = kiv::TransferOutcome::failed(std::move(status).error());
      ledger_->endAtOnce({{*id, std::move(outcome), {}, 0}});
    }
  }

  kiv::TaskLedger& ledger() noexcept { return *ledger_; }
  kiv::TransferEngine& engine() noexcept { return engine_; }

  kiv::TaskLedger::Tasks tasks() const { return ledger_->tasks(); }

  void setStartCondition(kiv::StartGate::Condition condition) {
    // A forked child must not wait for a lock that a thread of the parent held.
    if (!engine_.isInherited()) apply(gate_->setCondition(std::move(condition)));
  }

  void noteStartConditionChange() {
    if (!engine_.isInherited()) apply(gate_->noteChange());
  }

  void setRequestHandler(kiv::RequestGate::Handler handler) {
    if (engine_.isInherited()) return;
    const auto state = requestGate_->setHandler(std::move(handler));
    engine_.setRequestHandler(state.hasHandler, state.version);
  }

  void cancelAll() {
    // Releasing a handler may destroy the client, so no member is used after that.
    const auto ledger = ledger_;
    kiv::TaskLedger::HeldTasks tasks;
    {
      const kiv::MutexLock lock(ordersMutex_);
      tasks = ledger->takeAll();
      engine_.cancelAll();
    }
    ledger->releaseHandlers(tasks);
  }

 private:
  void apply(kiv::StartGate::State state) {
    engine_.setStartCondition(state.hasCondition, state.version);
  }

  kiv::Mutex ordersMutex_;  // for the ledger and the engine together
  const kiv::ForkGuard forkGuard_{ordersMutex_, kiv::ForkGuard::Rank::orders};
  const std::shared_ptr<kiv::PendingBytes> pendingBytes_;
  const std::shared_ptr<kiv::TaskLedger> ledger_;
  const std::shared_ptr<kiv::StartGate> gate_;
  const std::shared_ptr<kiv::RequestGate> requestGate_;
  kiv::TransferEngine engine_;
};

KivRESTService::KivRESTService() : KivRESTService(kiv::defaultTransferSettings()) {}

KivRESTService::KivRESTService(KivRESTServiceSettings settings)
    : KivRESTService(kiv::TransferSettings(std::move(settings))) {}

KivRESTService::KivRESTService(const kiv::TransferSettings& settings)
    : implementation_(std::make_unique<Implementation>(settings)) {}

KivRESTService::~KivRESTService() {
  if (!implementation_->engine().isInherited()) return;
  // Connections, files and threads belong to the parent, which still uses them.
  implementation_->cancelAll();
  static_cast<void>(implementation_.release());
}

void KivRESTService::queue(std::shared_ptr<KivRESTServiceTask> task) {
  if (task) implementation_->queue(std::move(task));
}

std::vector<std::shared_ptr<KivRESTServiceTask>> KivRESTService::currentQueue() const {
  return implementation_->tasks();
}

void KivRESTService::cancelAllTasks() {
  implementation_->cancelAll();
}

void KivRESTService::pause() {
  implementation_->engine().setPaused(true);
}

void KivRESTService::resume() {
  implementation_->engine().setPaused(false);
}

bool KivRESTService::isPaused() const {
  return implementation_->engine().isPaused();
}

void KivRESTService::setBandwidth(std::int64_t bytesPerSecond) {
  implementation_->engine().setBandwidth(bytesPerSecond);
}

void KivRESTService::setStartCondition(StartCondition condition) {
  implementation_->setStartCondition(std::move(condition));
}

void KivRESTService::startConditionChanged() {
  implementation_->noteStartConditionChange();
}

void KivRESTService::setRequestHandler(RequestHandler handler) {
  implementation_->setRequestHandler(std::move(handler));
}

void KivRESTService::setProgressHandler(
    std::function<void(const KivRESTServiceProgress& progress)> handler) {
  const bool isWanted = static_cast<bool>(handler);
  implementation_->ledger().setProgressObserver(std::move(handler));
  implementation_->engine().reportProgress(isWanted);
}

void KivRESTService::setEndHandler(std::function<void(const KivRESTServiceTask& task)> handler) {
  implementation_->ledger().setEndObserver(std::move(handler));
}

bool KivRESTService::initializeLibraries() noexcept {
  return kiv::prepareCurlLibrary();
}

KivRESTServiceSettings KivRESTService::settings() const {
  return implementation_->engine().settings();
}

void KivRESTService::setSpoolDirectory(std::string path) {
  implementation_->engine().setSpoolDirectory(std::move(path));
}

KivRESTServiceSettings KivRESTService::defaultSettings() {
  return kiv::defaultTransferSettings();
}

void KivRESTService::setDefaultSettings(KivRESTServiceSettings settings) {
  DefaultSettings& defaults = DefaultSettings::shared();
  const kiv::MutexLock lock(defaults.mutex);
  static_cast<KivRESTServiceSettings&>(defaults.settings) = std::move(settings);
}

kiv::TransferSettings kiv::defaultTransferSettings() {
  DefaultSettings& defaults = DefaultSettings::shared();
  const MutexLock lock(defaults.mutex);
  return defaults.settings;
}

void kiv::setDefaultTransferSettings(TransferSettings settings) {
  DefaultSettings& defaults = DefaultSettings::shared();
  const MutexLock lock(defaults.mutex);
  defaults.settings = std::move(settings);
}
