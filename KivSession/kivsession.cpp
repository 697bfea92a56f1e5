// The C interface. Nothing throws across it, and a session is recognised by its number, so that one
// that was closed is never looked into.

#include "KivSession/kivsession.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <pthread.h>
#include <string>
#include <unistd.h>

#include "KivPlatform/Foundation/Mutex.h"
#include "KivResource/KivResource.h"
#include "KivSession/LineQueue.h"
#include "KivSession/OpenSession.h"
#include "KivSession/OpenSettings.h"

namespace {

using kiv::session::LineQueue;
using kiv::session::OpenSession;
using kiv::session::OpenSettings;

/// The open session of the process.
class Registry {
 public:
  static Registry& shared() {
    // Never destroyed: threads may use it while the process exits.
    static auto& registry = *new Registry;
    return registry;
  }

  /// False if the process exits, or this is a forked child. Otherwise the caller calls
  /// endOpeningCall(): what kivsession_open() uses is not cleaned up before.
  bool beginOpeningCall();
  void endOpeningCall() noexcept;
  /// BUSY if there is one, or one is being opened or closed. Otherwise the caller calls
  /// finishOpening().
  int beginOpening();
  /// With nullptr if there is none after all.
  kivsession* finishOpening(std::shared_ptr<OpenSession> session);

  std::shared_ptr<OpenSession> find(const kivsession* session);
  /// As find(), but no other find() succeeds after this.
  std::shared_ptr<OpenSession> beginClosing(const kivsession* session);
  void finishClosing(const std::shared_ptr<OpenSession>& session);
  void closeAtExit();

 private:
  /// A forked child has the sessions' memory, and perhaps a lock that nobody releases.
  [[nodiscard]] bool isForkedChild() const noexcept {
    const pid_t owner = owner_;
    return owner != 0 && owner != ::getpid();
  }

  enum class State { none, opening, open, closing };

  std::atomic<pid_t> owner_ = 0;  ///< The process that opened the first session.
  kiv::Mutex mutex_;
  State state_ KIV_GUARDED_BY(mutex_) = State::none;
  std::shared_ptr<OpenSession> session_ KIV_GUARDED_BY(mutex_);
  bool isExiting_ KIV_GUARDED_BY(mutex_) = false;
  int openingCalls_ KIV_GUARDED_BY(mutex_) = 0;  ///< That exit() waits for.
  std::condition_variable callEnded_;
  std::uintptr_t number_ KIV_GUARDED_BY(mutex_) = 0;  ///< Of the session that was opened last.
};

void closeAtExit() {
  try {
    Registry::shared().closeAtExit();
  } catch (const std::exception&) {  // no memory to stop it
  }
}

/// The exit handlers of the libraries that the framework uses are registered first, so that ours
/// runs before them.
void prepareForExit() {
  static const bool isPrepared = [] {
    KivRESTService::initializeLibraries();
    return std::atexit(&closeAtExit) == 0;
  }();
  static_cast<void>(isPrepared);
}

bool Registry::beginOpeningCall() {
  if (isForkedChild()) return false;
  const kiv::MutexLock lock(mutex_);
  if (isExiting_) return false;
  ++openingCalls_;
  return true;
}

void Registry::endOpeningCall() noexcept {
  const kiv::MutexLock lock(mutex_);
  --openingCalls_;
  callEnded_.notify_all();
}

int Registry::beginOpening() {
  const kiv::MutexLock lock(mutex_);
  if (state_ != State::none) return KIVSESSION_BUSY;
  state_ = State::opening;
  owner_ = ::getpid();
  return KIVSESSION_OK;
}

kivsession* Registry::finishOpening(std::shared_ptr<OpenSession> session) {
  const kiv::MutexLock lock(mutex_);
  state_ = session ? State::open : State::none;
  if (!session) return nullptr;
  session_ = std::move(session);
  // NOLINTNEXTLINE(performance-no-int-to-ptr): a number, which nobody dereferences
  return reinterpret_cast<kivsession*>(++number_);
}

std::shared_ptr<OpenSession> Registry::find(const kivsession* session) {
  if (isForkedChild()) return nullptr;
  const kiv::MutexLock lock(mutex_);
  const bool isOpen = state_ == State::open && reinterpret_cast<std::uintptr_t>(session) == number_;
  return isOpen ? session_ : nullptr;
}

std::shared_ptr<OpenSession> Registry::beginClosing(const kivsession* session) {
  if (isForkedChild()) return nullptr;
  const kiv::MutexLock lock(mutex_);
  if (!session_ || reinterpret_cast<std::uintptr_t>(session) != number_) return nullptr;
  state_ = State::closing;
  return session_;
}

void Registry::finishClosing(const std::shared_ptr<OpenSession>& session) {
  const kiv::MutexLock lock(mutex_);
  if (session_ != session) return;
  session_ = nullptr;
  state_ = State::none;
}

void Registry::closeAtExit() {
  if (isForkedChild()) return;
  std::shared_ptr<OpenSession> session;
  {
    constexpr std::chrono::seconds longestOpening{30};
    kiv::MutexLock lock(mutex_);
    isExiting_ = true;
    const auto deadline = std::chrono::steady_clock::now() + longestOpening;
    while (openingCalls_ > 0 && lock.waitUntil(callEnded_, deadline) != std::cv_status::timeout) {
    }
    state_ = State::closing;
    session = session_;
  }
  if (session && !session->isOnItsThread()) session->close();
}

/// A string that kivsession_free() frees, or NULL.
char* copyOf(const std::string& text) {
  auto* const copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (copy) std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

/// Keeps pthread_cancel() from unwinding the thread through this library.
class NoCancellation {
 public:
  NoCancellation() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &former_); }
  ~NoCancellation() { pthread_setcancelstate(former_, nullptr); }
  NoCancellation(const NoCancellation&) = delete;
  NoCancellation& operator=(const NoCancellation&) = delete;

 private:
  int former_ = PTHREAD_CANCEL_ENABLE;
};

/// Runs the function, which returns one of the results.
template <class Function>
int guarded(const Function& function) noexcept {
  const NoCancellation noCancellation;
  try {
    return function();
  } catch (const std::exception&) {  // no memory
    return KIVSESSION_SYSTEM;
  }
}

int fail(int result, const std::string& reason, char** message) {
  if (message) *message = copyOf(reason);
  return result;
}

int openWhileRunning(const char* text, kivsession** session, char** message) {
  if (!text) return fail(KIVSESSION_INVALID, "there are no settings", message);
  auto settings = OpenSettings::read(text);
  if (!settings) {
    return fail(KIVSESSION_INVALID, settings.error().localizedDescription(), message);
  }
  auto& registry = Registry::shared();
  if (const int result = registry.beginOpening(); result != KIVSESSION_OK) {
    return fail(result, "the process has an open session already", message);
  }
  std::shared_ptr<OpenSession> opened;
  const int result = guarded([&] {
    prepareForExit();
    opened = OpenSession::open(*std::move(settings));
    return opened ? KIVSESSION_OK : KIVSESSION_SYSTEM;
  });
  *session = registry.finishOpening(opened);
  if (result == KIVSESSION_OK) return result;
  return fail(result, "the system has no memory, thread or descriptor left", message);
}

int open(const char* text, kivsession** session, char** message) {
  auto& registry = Registry::shared();
  if (!registry.beginOpeningCall()) {
    return fail(KIVSESSION_BUSY, "the process ends, or was forked with a session", message);
  }
  const int result = guarded([&] { return openWhileRunning(text, session, message); });
  registry.endOpeningCall();
  return result;
}

int resultOf(LineQueue::Outcome outcome) {
  switch (outcome) {
    case LineQueue::Outcome::line:
      return KIVSESSION_OK;
    case LineQueue::Outcome::timeout:
      return KIVSESSION_TIMEOUT;
    case LineQueue::Outcome::closed:
      return KIVSESSION_CLOSED;
    case LineQueue::Outcome::noMemory:
      return KIVSESSION_SYSTEM;
  }
  return KIVSESSION_SYSTEM;
}

/// While the log function runs, which may throw if the host is in C++.
class InLogFunction {
 public:
  InLogFunction() noexcept { ++depth; }
  ~InLogFunction() { --depth; }
  InLogFunction(const InLogFunction&) = delete;
  InLogFunction& operator=(const InLogFunction&) = delete;

  static inline thread_local int depth = 0;
};

void callLogFunction(kivsession_log* function, void* context, std::string_view line) {
  const std::string text(line);
  const InLogFunction running;
  function(context, text.c_str());
}

}  // namespace

extern "C" {

int kivsession_open(const char* settings, kivsession** session, char** message) {
  if (message) *message = nullptr;
  if (!session) return KIVSESSION_INVALID;
  *session = nullptr;
  return guarded([&] { return open(settings, session, message); });
}

int kivsession_send(kivsession* session, const char* call) {
  return guarded([&] {
    const auto opened = Registry::shared().find(session);
    if (!opened) return KIVSESSION_CLOSED;
    if (!call) return KIVSESSION_INVALID;
    opened->send(call);
    return KIVSESSION_OK;
  });
}

int kivsession_receive(kivsession* session, int timeout_ms, char** line) {
  if (line) *line = nullptr;
  return guarded([&] {
    const auto opened = Registry::shared().find(session);
    if (!opened) return KIVSESSION_CLOSED;
    if (!line) return KIVSESSION_INVALID;
    std::optional<std::chrono::milliseconds> timeout;
    if (timeout_ms >= 0) timeout = std::chrono::milliseconds(timeout_ms);
    LineQueue::Text text;
    const auto outcome = opened->lines().pop(timeout, text);
    *line = text.release();
    return resultOf(outcome);
  });
}

int kivsession_descriptor(kivsession* session, int* descriptor) {
  if (descriptor) *descriptor = -1;
  return guarded([&] {
    const auto opened = Registry::shared().find(session);
    if (!opened) return KIVSESSION_CLOSED;
    if (!descriptor) return KIVSESSION_INVALID;
    *descriptor = opened->lines().descriptor();
    return KIVSESSION_OK;
  });
}

int kivsession_close(kivsession* session) {
  if (InLogFunction::depth > 0) return KIVSESSION_INVALID;
  return guarded([&] {
    auto& registry = Registry::shared();
    const auto opened = registry.beginClosing(session);
    if (!opened) return KIVSESSION_CLOSED;
    opened->close();
    registry.finishClosing(opened);
    return KIVSESSION_OK;
  });
}

int kivsession_set_log(kivsession_log* function, void* context) {
  return guarded([&] {
    kiv::SystemLog::Handler handler;
    if (function) {
      handler = [=](std::string_view line) { callLogFunction(function, context, line); };
    }
    kiv::SystemLog::setHandler(std::move(handler));
    return KIVSESSION_OK;
  });
}

void kivsession_free(char* text) {
  std::free(text);
}

const char* kivsession_version(void) {
  return KIVSESSION_LIBRARY_VERSION;
}

}  // extern "C"
