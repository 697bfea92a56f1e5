// A check fetches the configuration, waits for the manager if that is busy, and runs a pass if one
// is needed. Answers to a check that was stopped are recognised by its number and ignored.

#include "KivResource/configuration/KivConfigurationUpdater.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/Foundation/queues/QueueAssertion.h"
#include "KivPlatform/Foundation/system/SystemLog.h"
#include "KivPlatform/Foundation/values/JSON.h"
#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivResource/KivResourceFactory.h"
#include "KivResource/configuration/KivConfigurationSchedule.h"
#include "KivResource/configuration/KivConfigurationStore.h"

namespace {

using Check = KivConfigurationCheck;
using Code = KivConfigurationErrorCode;
using Outcome = KivConfigurationOutcome;

constexpr std::chrono::seconds longestFetch = std::chrono::minutes(5);

kiv::Error checkError(Code code, std::string_view message) {
  return kiv::Error(KivConfigurationErrorDomain, static_cast<std::int64_t>(code), message);
}

KivRESTServiceSettings settingsOf(const KivResourceManager& manager) {
  const auto& loader = manager.loader();
  const auto client = loader ? loader->restService() : nullptr;
  return client ? client->settings() : KivRESTService::defaultSettings();
}

std::shared_ptr<KivRESTService> makeClient(const KivResourceManager& manager,
                                           std::int64_t largestConfiguration) {
  auto settings = settingsOf(manager);
  settings.largestBody = largestConfiguration;
  settings.spoolDirectory.clear();
  settings.threads = 1;
  const bool isPatient = settings.deadline <= std::chrono::seconds(0);
  settings.deadline = isPatient ? longestFetch : std::min(settings.deadline, longestFetch);
  return std::make_shared<KivRESTService>(std::move(settings));
}

/// The configuration, or why no pass can be started with it.
kiv::Result<kiv::Value> configurationFrom(const kiv::Data& text) {
  auto config = kiv::JSON::read(text);
  if (!config) return config;
  const kiv::Value& items = config->dictionary()["items"];
  if (!items.isArray()) {
    return checkError(Code::noItems, "The configuration has no array \"items\".");
  }
  const kiv::Array& all = items.array();
  const bool isUsable = all.empty() || std::any_of(all.begin(), all.end(), [](const auto& item) {
                          return !KivResourceFactory::validateItem(item);
                        });
  if (!isUsable) {
    return checkError(Code::noValidItem, "No item of the configuration makes a resource.");
  }
  return config;
}

std::vector<std::string> addressesOf(const kiv::URL& url, const std::vector<kiv::URL>& mirrors) {
  std::vector<std::string> addresses{url.absoluteString()};
  for (const kiv::URL& mirror : mirrors)
    addresses.push_back(mirror.absoluteString());
  return addresses;
}

/// True if the next pass with the same configuration may load what this one did not.
bool leftSomethingUndone(const KivResourcePassReport& report) {
  using Pass = KivResourcePassOutcome;
  using Entry = KivResourcePassEntryOutcome;
  const bool ranToItsEnd = report.outcome == Pass::done || report.outcome == Pass::nothingSelected;
  return !ranToItsEnd || report.saveError || report.isIncomplete ||
         report.count(Entry::failed) > 0 || report.count(Entry::notEnded) > 0;
}

/// The other handlers are called too.
void callLoggingExceptions(const KivConfigurationUpdater::CheckHandler& handler,
                           const Check& check) {
  try {
    handler(check);
  } catch (const std::exception& exception) {
    kiv::SystemLog::write(std::string("KivConfigurationUpdater: a handler has thrown: ") +
                          exception.what());
  } catch (...) {
    kiv::SystemLog::write("KivConfigurationUpdater: a handler has thrown.");
  }
}

}  // namespace

/// Not a nested class, which would be exported with the updater.
class kiv::ConfigurationChecks : public KivResourceManagerObserver,
                                 public std::enable_shared_from_this<kiv::ConfigurationChecks> {
 public:
  using CheckHandler = KivConfigurationUpdater::CheckHandler;

  ConfigurationChecks(std::shared_ptr<KivResourceManager> manager, kiv::URL url,
                      KivConfigurationUpdaterOptions options);

  void setCheckHandler(CheckHandler handler);
  void start();
  void stop();
  void checkNow(CheckHandler handler);
  [[nodiscard]] const std::shared_ptr<KivRESTService>& restService() const noexcept {
    return options_.restService;
  }

  /// A pass of the host's has ended.
  void resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>& manager) override;

 private:
  enum class Stage { idle, fetching, waiting, passing };
  /// The pass of the running check.
  struct PlannedPass {
    kiv::KnownConfiguration configuration;
    kiv::Value config;
    bool isToBeSaved = false;
  };

  void assertQueue(const char* call = __builtin_FUNCTION()) const {
    assertion_.check("KivConfigurationUpdater", call);
  }
  template <class Step>
  void take(std::uint64_t number, const Step& step);
  void begin();
  void recall();
  void fetch();
  void evaluate(const KivRESTServiceTask& ended);
  void takeText(const kiv::Data& text, const KivRESTServiceTask& ended);
  void takeSame(const std::optional<KivRESTServiceValidators>& validators);
  void fail(kiv::Error error);
  void passWithKnown();
  void passWhenFree();
  void startPass();
  void save();
  void takeReport(const KivResourcePassReport& report);
  void end();
  void tell(const Check& check, std::vector<CheckHandler> handlers);
  void setTimer(std::optional<kiv::Timers::Time> wait);
  void cancelTimer();
  void timerFired(std::uint64_t number);

  const kiv::QueueAssertion assertion_{"the updater"};
  const std::shared_ptr<KivResourceManager> manager_;
  const kiv::URL url_;
  KivConfigurationUpdaterOptions options_;
  const kiv::ConfigurationStore store_;
  kiv::ConfigurationSchedule schedule_;
  CheckHandler handler_;

  bool isStarted_ = false;
  std::unique_ptr<kiv::Timers::Timer> timer_;
  std::uint64_t timerNumber_ = 0;
  std::uint64_t stops_ = 0;
  std::optional<kiv::KnownConfiguration> known_;  ///< The last good configuration.
  bool isRecalled_ = false;                       ///< From the disk, or that was tried.
  bool hasPassed_ = false;                        ///< A pass was begun since the start.
  bool isDone_ = false;                           ///< Nothing of `known_` is left to load.

  std::uint64_t number_ = 0;  ///< Of the running check. A stopped one keeps no number.
  Stage stage_ = Stage::idle;
  Check check_;  ///< Of the running check, as far as it is known.
  std::optional<PlannedPass> planned_;
  std::vector<CheckHandler> waitingHandlers_;  ///< Of checkNow().
};

kiv::ConfigurationChecks::ConfigurationChecks(std::shared_ptr<KivResourceManager> manager,
                                              kiv::URL url, KivConfigurationUpdaterOptions options)
    : manager_(std::move(manager)),
      url_(std::move(url)),
      options_(std::move(options)),
      store_(addressesOf(url_, options_.mirrors), options_.largestConfiguration, manager_->place()),
      schedule_(options_.interval, options_.jitter, std::random_device()()) {
  if (!options_.timers) options_.timers = kiv::Timers::system();
  if (!options_.restService)
    options_.restService = makeClient(*manager_, options_.largestConfiguration);
}

void kiv::ConfigurationChecks::setCheckHandler(CheckHandler handler) {
  assertQueue();
  handler_ = std::move(handler);
}

void kiv::ConfigurationChecks::start() {
  assertQueue();
  if (std::exchange(isStarted_, true)) return;
  hasPassed_ = false;
  isDone_ = false;
  if (stage_ == Stage::idle) begin();
}

void kiv::ConfigurationChecks::stop() {
  assertQueue();
  const auto self = shared_from_this();
  ++number_;
  ++stops_;
  isStarted_ = false;
  stage_ = Stage::idle;
  cancelTimer();
  planned_.reset();
  options_.restService->cancelAllTasks();
  manager_->removeObserver(self);
  // Last: what a handler owns may use the updater in its destructor.
  const auto dropped = std::exchange(waitingHandlers_, {});
}

void kiv::ConfigurationChecks::checkNow(CheckHandler handler) {
  assertQueue();
  if (handler) waitingHandlers_.push_back(std::move(handler));
  if (stage_ == Stage::idle) begin();
}

/// Makes a step of the check of that number, unless it was stopped.
template <class Step>
void kiv::ConfigurationChecks::take(std::uint64_t number, const Step& step) {
  if (number != number_) return;
  try {
    step();
  } catch (const std::exception& exception) {  // out of memory
    if (number != number_) return;
    ++number_;  // what else comes back is late
    planned_.reset();
    check_.outcome = Outcome::failed;
    check_.error = checkError(Code::outOfMemory, exception.what());
    end();
  }
}

// --- The text ------------------------------------------------------------------------------------

void kiv::ConfigurationChecks::begin() {
  cancelTimer();
  stage_ = Stage::fetching;
  check_ = {};
  take(++number_, [this] {
    recall();
    fetch();
  });
}

/// Later checks use what earlier ones have fetched.
void kiv::ConfigurationChecks::recall() {
  if (std::exchange(isRecalled_, true)) return;
  auto saved = store_.load();
  if (!saved) return;
  const auto config = configurationFrom(saved->text);
  if (config) {
    known_ = std::move(saved);
  } else {
    kiv::SystemLog::write("KivConfigurationUpdater: the saved configuration is not used: " +
                          config.error().description());
  }
}

void kiv::ConfigurationChecks::fetch() {
  const auto task = std::make_shared<KivRESTServiceTask>();
  task->setRequest(kiv::URLRequest(url_));
  task->setRequestMirrorURLs(options_.mirrors);
  task->setValidators(known_ ? known_->validators : KivRESTServiceValidators());
  task->setCompletionHandler(
      [weak = weak_from_this(), number = number_](KivRESTServiceTask& ended) {
        const auto self = weak.lock();
        if (self) self->take(number, [&] { self->evaluate(ended); });
      });
  options_.restService->queue(task);
}

void kiv::ConfigurationChecks::evaluate(const KivRESTServiceTask& ended) {
  constexpr std::int64_t ok = 200;
  constexpr std::int64_t notModified = 304;
  check_.statusCode = ended.response() ? ended.response()->statusCode() : 0;
  check_.server = ended.metrics().server;
  if (ended.responseError()) return fail(*ended.responseError());
  if (check_.statusCode == notModified && known_) return takeSame(ended.returnedValidators());
  if (check_.statusCode == ok && ended.returnedData()) {
    return takeText(*ended.returnedData(), ended);
  }
  fail(checkError(Code::invalidStatus, "The server of the configuration answered with status " +
                                           std::to_string(check_.statusCode) + "."));
}

void kiv::ConfigurationChecks::takeText(const kiv::Data& text, const KivRESTServiceTask& ended) {
  if (text.size() > static_cast<std::size_t>(std::max<std::int64_t>(
                        options_.largestConfiguration, 0))) {  // a client of the host's took it
    return fail(kiv::Error(KivRESTServiceErrorDomain,
                           static_cast<std::int64_t>(KivRESTServiceErrorCode::bodyTooLarge),
                           "The configuration is larger than the limit."));
  }
  if (known_ && known_->text == text) return takeSame(ended.returnedValidators());
  auto config = configurationFrom(text);
  if (!config) return fail(config.error());
  check_.outcome = Outcome::updated;
  planned_ = PlannedPass{{text, ended.returnedValidators().value_or(KivRESTServiceValidators())},
                         *std::move(config),
                         true};
  passWhenFree();
}

void kiv::ConfigurationChecks::takeSame(const std::optional<KivRESTServiceValidators>& validators) {
  if (validators && *validators != known_->validators) {
    known_->validators = *validators;
    check_.saveError = store_.save(*known_);
  }
  check_.outcome = isDone_ ? Outcome::unchanged : Outcome::repeated;
  if (isDone_) return end();
  passWithKnown();
}

void kiv::ConfigurationChecks::fail(kiv::Error error) {
  check_.outcome = Outcome::failed;
  check_.error = std::move(error);
  const bool usesSaved = options_.usesSavedConfiguration && isStarted_ && !hasPassed_ && known_;
  if (!usesSaved) return end();
  passWithKnown();
}

// --- The pass ------------------------------------------------------------------------------------

void kiv::ConfigurationChecks::passWithKnown() {
  auto config = configurationFrom(known_->text);
  if (!config) return end();  // it was read before
  planned_ = PlannedPass{*known_, *std::move(config)};
  passWhenFree();
}

/// A pass that is begun while another one runs would be refused, and would end in the middle of
/// what the other one is to remove. If no callback tells of its end, a timer looks again.
void kiv::ConfigurationChecks::passWhenFree() {
  if (manager_->loadingResourcesFilesCount() == 0) return startPass();
  const bool isNew = std::exchange(stage_, Stage::waiting) != Stage::waiting;
  if (isStarted_) setTimer(schedule_.next(false));
  if (!isNew) return;
  manager_->addObserver(shared_from_this(), assertion_.queue());
  Check postponed = check_;
  postponed.outcome = Outcome::postponed;
  tell(postponed, {});
}

void kiv::ConfigurationChecks::resourceManagerDidFinishLoading(
    const std::shared_ptr<KivResourceManager>&) {
  const auto self = shared_from_this();
  if (stage_ == Stage::waiting) take(number_, [this] { passWhenFree(); });
}

void kiv::ConfigurationChecks::startPass() {
  cancelTimer();
  manager_->removeObserver(shared_from_this());
  stage_ = Stage::passing;
  hasPassed_ = true;
  isDone_ = false;
  manager_->startPass(
      KivResourcePass::update(std::move(planned_->config)),
      [weak = weak_from_this(), number = number_](const KivResourcePassReport& report) {
        const auto self = weak.lock();
        if (self) self->take(number, [&] { self->takeReport(report); });
      });
  if (planned_ && planned_->isToBeSaved) save();
  planned_.reset();
}

/// After the start of the pass: the downloads do not wait for the disk.
void kiv::ConfigurationChecks::save() {
  known_ = std::move(planned_->configuration);
  try {
    check_.saveError = store_.save(*known_);
  } catch (const std::exception& exception) {  // the pass runs already, and is reported
    check_.saveError = checkError(Code::outOfMemory, exception.what());
  }
}

void kiv::ConfigurationChecks::takeReport(const KivResourcePassReport& report) {
  isDone_ = !leftSomethingUndone(report);
  check_.report = report;
  end();
}

// --- The end -------------------------------------------------------------------------------------

void kiv::ConfigurationChecks::end() {
  stage_ = Stage::idle;
  if (isStarted_) {
    check_.nextCheck = schedule_.next(check_.outcome == Outcome::failed);
    setTimer(check_.nextCheck);
  }
  const Check ended = std::exchange(check_, {});
  tell(ended, std::exchange(waitingHandlers_, {}));
}

/// A handler may begin a check, stop the updater or destroy it.
void kiv::ConfigurationChecks::tell(const Check& check, std::vector<CheckHandler> handlers) {
  const auto self = shared_from_this();
  const std::uint64_t stops = stops_;
  handlers.push_back(handler_);
  for (const CheckHandler& handler : handlers) {
    if (handler && stops == stops_) callLoggingExceptions(handler, check);
  }
}

void kiv::ConfigurationChecks::setTimer(std::optional<kiv::Timers::Time> wait) {
  cancelTimer();
  if (!wait) return;
  try {
    timer_ = options_.timers->set(options_.timers->now() + *wait, assertion_.queue(),
                                  [weak = weak_from_this(), number = timerNumber_] {
                                    if (const auto self = weak.lock()) self->timerFired(number);
                                  });
  } catch (const std::exception&) {  // out of memory
  }
  if (!timer_) {
    kiv::SystemLog::write(
        "KivConfigurationUpdater: no timer can be set; checkNow() begins the next check.");
  }
}

void kiv::ConfigurationChecks::cancelTimer() {
  ++timerNumber_;
  timer_.reset();
}

/// The job of a timer that was cancelled may have been on the queue already.
void kiv::ConfigurationChecks::timerFired(std::uint64_t number) {
  if (number != timerNumber_) return;
  if (stage_ == Stage::idle) return begin();
  if (stage_ == Stage::waiting) take(number_, [this] { passWhenFree(); });
}

// --- The public class ----------------------------------------------------------------------------

KivConfigurationUpdater::KivConfigurationUpdater(std::shared_ptr<KivResourceManager> manager,
                                                 kiv::URL url,
                                                 KivConfigurationUpdaterOptions options)
    : checks_(std::make_shared<kiv::ConfigurationChecks>(std::move(manager), std::move(url),
                                                         std::move(options))) {}

KivConfigurationUpdater::~KivConfigurationUpdater() {
  checks_->stop();
}

void KivConfigurationUpdater::setCheckHandler(CheckHandler handler) {
  checks_->setCheckHandler(std::move(handler));
}

void KivConfigurationUpdater::start() {
  checks_->start();
}

void KivConfigurationUpdater::stop() {
  checks_->stop();
}

void KivConfigurationUpdater::checkNow(CheckHandler handler) {
  checks_->checkNow(std::move(handler));
}

const std::shared_ptr<KivRESTService>& KivConfigurationUpdater::restService() const noexcept {
  return checks_->restService();
}
