#include "KivSession/Session.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "KivSession/PassReportJSON.h"
#include "KivSession/ResourceJSON.h"

namespace kiv::session {

Session::Session(std::shared_ptr<KivResourceManager> manager, Output output)
    : SessionEvents(std::move(output)),
      manager_(std::move(manager)),
      requests_(std::make_shared<SessionRequests>([this](std::uint64_t number, const URL& url) {
        orReportLoss([&] { writeLine(requestLine(number, url)); });
      })),
      following_(
          manager_,
          [this](const auto& check, const auto& tag) {
            orReportLoss([&] { writeLine(checkLine(check, tag)); });
          },
          [this](const auto& client) { requests_->equip(client); }) {
  requests_->equip(manager_->loader()->restService());
}

void Session::run() {
  const auto queue = DispatchQueue::main();
  while (!isOver()) {
    queue->drainFor(untilDeadline());
    endWaitingWhenDue();
    scheduleNextCall();
    endWhatIsHeldBack();
  }
  if (isStopped_) {
    following_.stop();
    manager_->stopLoading();
  }
  while (queue->drain() > 0) {
  }
  following_.stop();
  orReportLoss([this] { tellOfSaving(); });
}

bool Session::isOver() const {
  if (isStopped_) return true;
  return hasEnded_ && lines_.empty() && !isScheduled_ && waiting_ == Waiting::no &&
         manager_->loadingResourcesFilesCount() <= 0 && revalidations_ == 0 &&
         !following_.isChecking();
}

std::chrono::milliseconds Session::untilDeadline() const {
  if (waiting_ == Waiting::no) {
    // If there was no memory to schedule the next call, that is tried again.
    const bool isCallDue = !lines_.empty() && !isScheduled_;
    return isCallDue ? std::chrono::milliseconds(100) : std::chrono::hours(1);
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now());
  return std::max(left, std::chrono::milliseconds(0));
}

void Session::endWaitingWhenDue() {
  if (waiting_ == Waiting::no || Clock::now() < deadline_) return;
  orReportLoss([this] {
    if (waiting_ == Waiting::forFinish) {
      answer({{"error", "timeout"}});
    } else {
      answerDone();
    }
  });
  endWaiting();
}

/// After the last call nobody can answer a request, or let the downloads go on.
void Session::endWhatIsHeldBack() {
  if (!hasEnded_ || !lines_.empty() || isScheduled_ || waiting_ == Waiting::forTime) return;
  requests_->endAnswers();
  const bool areHeldBack =
      !requests_->allowsTransfers() || manager_->loader()->restService()->isPaused();
  if (areHeldBack && waiting_ == Waiting::no && !isOver()) stop();
}

// --- Input ---------------------------------------------------------------------------------------

void Session::takeLine(std::string line) {
  orReportLoss([&] { lines_.push_back(std::move(line)); });
  scheduleNextCall();
}

void Session::takeEnd() {
  hasEnded_ = true;
}

void Session::stop() {
  isStopped_ = true;
}

// --- Calls ---------------------------------------------------------------------------------------

/// The next call is a separate job, so it runs after the callbacks that the previous call has
/// posted.
void Session::scheduleNextCall() {
  if (lines_.empty() || waiting_ != Waiting::no || isScheduled_) return;
  try {
    DispatchQueue::main()->async([self = shared_from_this()] { self->makeNextCall(); });
    isScheduled_ = true;
  } catch (const std::bad_alloc&) {  // run() tries it again
  }
}

void Session::makeNextCall() {
  isScheduled_ = false;
  if (isStopped_) return;
  const auto line = std::exchange(lines_.front(), {});
  lines_.pop_front();
  orReportLoss([&] {
    call_ = readSessionCall(line);
    const auto call = std::exchange(call_.what, {});  // a configuration may be large
    std::visit([this](const auto& what) { make(what); }, call);
  });
  scheduleNextCall();
}

void Session::make(const SessionCall::Invalid& invalid) {
  answer({{"error", invalid.problem}});
}

void Session::make(const SessionCall::Operation& operation) {
  auto members = operation.run(*manager_);
  if (operation.endsRequests) requests_->askAgain();
  if (!members) return answer({{"error", members.error().localizedDescription()}});
  if (!operation.hasResult) return answerDone();
  Dictionary line{{"result", call_.name}};
  for (const auto& entry : *members)
    line.set(entry.key(), entry.value);
  // The callbacks of what has happened may still wait in the queue. They are put out first, so that
  // a host never hears of a resource later than of a state without downloads.
  DispatchQueue::main()->async([self = shared_from_this(), line = std::move(line)] {
    self->orReportLoss([&] { self->answer(line); });
  });
}

void Session::make(const SessionCall::State&) {
  make(SessionCall::Operation{[this](KivResourceManager& manager) {
    return Dictionary{{"downloads", manager.loadingResourcesFilesCount()},
                      {"saveError", errorJSON(manager.lastSaveError())},
                      {"savedListError", errorJSON(manager.savedListError())},
                      {"isPaused", manager.loader()->restService()->isPaused()},
                      {"allowsTransfers", requests_->allowsTransfers()},
                      {"follows", following_.url()}};
  }});
}

void Session::make(const SessionCall::StartPass& call) {
  const KivResourcePass& pass = call.pass;
  if (reportsPasses_) {
    manager_->startPass(pass, [self = shared_from_this(), tag = call_.tag](const auto& report) {
      self->orReportLoss([&] { self->writeLine(passReportLine(report, tag)); });
    });
  } else if (pass.dropsRest) {
    manager_->updateResourcesForConfig(pass.config);
  } else if (pass.type) {
    manager_->loadResourcesWithType_forConfig(pass.type, pass.config);
  } else {
    manager_->loadResourceWithID_forConfig(pass.resourceID, pass.config);  // all without one
  }
  answerDone();
}

void Session::make(const SessionCall::Revalidate& call) {
  manager_->revalidate(
      [self = shared_from_this(), tag = call_.tag](const auto& report) {
        --self->revalidations_;
        self->orReportLoss([&] { self->writeLine(revalidationReportLine(report, tag)); });
      },
      call.what);
  ++revalidations_;
  answerDone();
}

/// The first check may end at once, and its event comes after the answer.
void Session::make(const SessionCall::Follow& call) {
  following_.set(call.what, call_.tag);
  requests_->askAgain();
  answerDone();
  following_.begin();
}

void Session::make(const SessionCall::CheckNow&) {
  if (following_.url().isNull()) return answer({{"error", "no configuration is followed"}});
  answerDone();
  following_.checkNow();
}

void Session::make(const SessionCall::StopFollowing&) {
  following_.stop();
  requests_->askAgain();
  answerDone();
}

void Session::make(const SessionCall::SetSettings& call) {
  if (Status status = applySettings(*manager_, call.settings); !status) {
    return answer({{"error", status.error().localizedDescription()}});
  }
  setProgressHandler();
  requests_->askAgain();
  requests_->equip(manager_->loader()->restService());
  answerDone();
  following_.beginAnew();
  requests_->askAgain();
}

void Session::make(const SessionCall::ReportProgress& report) {
  reportsProgress_ = report.enabled;
  setProgressHandler();
  answerDone();
}

void Session::make(const SessionCall::ReportPasses& report) {
  reportsPasses_ = report.enabled;
  answerDone();
}

void Session::make(const SessionCall::AnswerRequests& call) {
  requests_->setAnswering(call.enabled);
  answerDone();
}

void Session::make(const SessionCall::AnswerRequest& call) {
  const Status status =
      call.headers ? requests_->send(call.number, *call.headers) : requests_->refuse(call.number);
  status ? answerDone() : answer({{"error", status.error().localizedDescription()}});
}

void Session::make(const SessionCall::AllowTransfers& call) {
  requests_->allowTransfers(call.enabled);
  answerDone();
}

void Session::make(const SessionCall::TakeLease& call) {
  make(SessionCall::Operation{
      [&](auto& manager) { return leases_.take(manager, call.resourceID); }});
}

void Session::make(const SessionCall::EndLease& call) {
  const Status status = leases_.end(call.number);
  status ? answerDone() : answer({{"error", status.error().localizedDescription()}});
}

/// The client is replaced with its settings.
void Session::setProgressHandler() {
  const auto client = manager_->loader()->restService();
  if (!reportsProgress_) return client->setProgressHandler({});
  client->setProgressHandler([weak = weak_from_this()](const KivRESTServiceProgress& progress) {
    const auto self = weak.lock();
    if (self) self->orReportLoss([&] { self->writeLine(progressLine(progress)); });
  });
}

/// Every call with a tag is answered by one line with that tag.
void Session::answer(Dictionary line) const {
  if (!call_.tag.isNull()) line.set("tag", call_.tag);
  writeLine(line);
}

/// The answer to a call without a result of its own.
void Session::answerDone() const {
  if (!call_.tag.isNull()) answer({{"result", call_.name}});
}

/// Only one line for several successive failures.
void Session::tellOfSaving() {
  const auto complaint = complaintOfSaving(*manager_);
  if (complaint && !hasToldOfSaving_) writeLine({{"error", *complaint}});
  hasToldOfSaving_ = complaint.has_value();
}

// --- Waiting -------------------------------------------------------------------------------------

void Session::make(const SessionCall::WaitForFinish& wait) {
  if (unusedFinishes_ == 0) return waitUntil(Waiting::forFinish, wait.timeout);
  --unusedFinishes_;
  answerDone();
}

void Session::make(const SessionCall::Sleep& sleep) {
  waitUntil(Waiting::forTime, sleep.time);
}

void Session::waitUntil(Waiting what, std::chrono::milliseconds time) {
  waiting_ = what;
  deadline_ = Clock::now() + time;
}

void Session::endWaiting() {
  waiting_ = Waiting::no;
  scheduleNextCall();
}

void Session::resourceManagerDidFinishLoading(const std::shared_ptr<KivResourceManager>& manager) {
  SessionEvents::resourceManagerDidFinishLoading(manager);
  orReportLoss([this] { tellOfSaving(); });
  if (waiting_ != Waiting::forFinish) {
    ++unusedFinishes_;
    return;
  }
  orReportLoss([this] { answerDone(); });
  endWaiting();
}

// --- The manager ---------------------------------------------------------------------------------

Status applySettings(KivResourceManager& manager, const Dictionary& settings) {
  auto changed =
      KivRESTServiceSettings::fromDictionary(settings, manager.loader()->restService()->settings());
  if (!changed) return std::move(changed).error();
  if (manager.loadingResourcesFilesCount() > 0) {
    return Error(KivResourceMaintenanceErrorDomain,
                 static_cast<int>(KivResourceMaintenanceErrorCode::downloadsInFlight),
                 "settings cannot change while files are loading");
  }
  auto client = std::make_shared<KivRESTService>(*std::move(changed));
  if (manager.loader()->restService()->isPaused()) client->pause();
  auto loader = std::make_shared<KivResourceRESTModule>();
  loader->setRestService(std::move(client));
  manager.setLoader(std::move(loader));
  return {};
}

std::optional<std::string> complaintOfSaving(const KivResourceManager& manager) {
  const auto error = manager.lastSaveError();
  if (!error) return std::nullopt;
  return "the list could not be saved: " + error->localizedDescription();
}

}  // namespace kiv::session
