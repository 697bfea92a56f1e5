#include "KivSession/OpenSession.h"

#include <csignal>
#include <exception>
#include <new>
#include <system_error>
#include <utility>

#include "KivResource/KivResource.h"
#include "KivSession/ResourceJSON.h"

namespace kiv::session {

namespace {

/// Blocks all signals, so that a thread that starts meanwhile never runs the host's handlers.
class BlockedSignals {
 public:
  BlockedSignals() noexcept {
    sigset_t all;
    sigfillset(&all);
    isBlocked_ = pthread_sigmask(SIG_SETMASK, &all, &former_) == 0;
  }
  ~BlockedSignals() {
    if (isBlocked_) pthread_sigmask(SIG_SETMASK, &former_, nullptr);
  }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t former_{};
  bool isBlocked_ = false;
};

/// The framework has one of each in a process.
void configureFramework(const OpenSettings& settings) {
  KivStorageService::setRootPath(settings.root);
  Bundle::setFrameworkResourcesPath(settings.resources);
  KivResourceLookup::setRoots(settings.lookupRoots);
  const auto configuration = KivAppConfiguration::sharedInstance();
  configuration->setMainACSDomain(settings.mainURL);
  configuration->setReserveACSDomain(settings.reserveURL);
}

}  // namespace

std::shared_ptr<OpenSession> OpenSession::open(OpenSettings settings) {
  auto lines = LineQueue::create();
  if (!lines) return nullptr;
  std::shared_ptr<OpenSession> session(new OpenSession(std::move(settings), std::move(lines)));
  try {
    session->start();
  } catch (const std::system_error&) {
    return nullptr;
  }
  return session;
}

OpenSession::OpenSession(OpenSettings settings, std::unique_ptr<LineQueue> lines)
    : settings_(std::move(settings)), lines_(std::move(lines)) {}

void OpenSession::start() {
  const BlockedSignals blocked;
  thread_ = std::thread([self = shared_from_this()] { self->serve(); });
  threadID_ = thread_.get_id();
}

void OpenSession::send(std::string call) {
  DispatchQueue::main()->async([weak = weak_from_this(), call = std::move(call)]() mutable {
    const auto self = weak.lock();
    if (self && self->session_) self->session_->takeLine(std::move(call));
  });
}

void OpenSession::close() {
  const MutexLock lock(closing_);
  if (!thread_.joinable()) return;
  DispatchQueue::main()->async([this] {
    isClosed_ = true;
    if (session_) session_->stop();
  });
  thread_.join();
  lines_->close();
}

bool OpenSession::isOnItsThread() const noexcept {
  return std::this_thread::get_id() == threadID_;
}

void OpenSession::serve() noexcept {
  try {
    runSession();
  } catch (const std::exception&) {  // no memory
    session_.reset();
    lines_->push(R"({"error":"memory ran out, and the session has ended"})");
    while (!isClosed_)
      DispatchQueue::main()->drainFor(std::chrono::hours(1));
  }
}

void OpenSession::runSession() {
  configureFramework(settings_);
  const auto queue = DispatchQueue::main();
  auto manager = KivResourceManager::newInstance();
  if (!settings_.transfers.empty()) {
    if (Status status = applySettings(*manager, settings_.transfers); !status) {
      lines_->push(compactJSON(Dictionary{{"error", status.error().localizedDescription()}}));
    }
  }
  session_ =
      std::make_shared<Session>(manager, [this](const Dictionary& line) { writeLine(line); });
  manager->addObserver(session_, queue);
  session_->run();
  session_.reset();
  manager.reset();
  while (queue->drain() > 0) {
  }
}

void OpenSession::writeLine(const Dictionary& line) noexcept {
  try {
    const auto& event = line["event"];
    const bool isProgress = event.isString() && event.stringView() == "progress";
    isProgress ? lines_->pushProgress(compactJSON(line)) : lines_->push(compactJSON(line));
  } catch (const std::bad_alloc&) {
    lines_->pushLoss();
  }
}

}  // namespace kiv::session
