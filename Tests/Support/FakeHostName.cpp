#include "Tests/Support/FakeHostName.h"

#include <atomic>
#include <condition_variable>
#include <dlfcn.h>
#include <map>
#include <mutex>
#include <netdb.h>
#include <optional>

namespace kiv::test {

namespace {

using Answer = FakeHostName::Answer;

struct Entry {
  Answer answer;
  std::size_t lookUps = 0;
  std::size_t waiting = 0;
};

/// The host names that are currently faked. Never destroyed: a lookup may still run after the last
/// test.
class Names {
 public:
  static Names& shared() {
    static auto& names = *new Names;
    return names;
  }

  void add(const std::string& name, Answer answer) {
    const std::lock_guard lock(mutex_);
    entries_.emplace(name, Entry{answer});
  }

  void remove(const std::string& name) {
    std::unique_lock lock(mutex_);
    Entry& entry = entries_.at(name);
    entry.answer = Answer::noSuchName;
    changed_.notify_all();
    changed_.wait(lock, [&] { return entry.waiting == 0; });
    entries_.erase(name);
  }

  void change(const std::string& name, Answer answer) {
    const std::lock_guard lock(mutex_);
    entries_.at(name).answer = answer;
    changed_.notify_all();
  }

  std::size_t lookUps(const std::string& name) {
    const std::lock_guard lock(mutex_);
    return entries_.at(name).lookUps;
  }

  /// Returns nullopt for a name that is not faked. Blocks while the answer is `silence`.
  std::optional<Answer> lookUp(const char* name) {
    std::unique_lock lock(mutex_);
    const auto found = name ? entries_.find(name) : entries_.end();
    if (found == entries_.end()) return std::nullopt;
    Entry& entry = found->second;
    ++entry.lookUps;
    ++entry.waiting;
    changed_.wait(lock, [&] { return entry.answer != Answer::silence; });
    --entry.waiting;
    changed_.notify_all();
    return entry.answer;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::string, Entry, std::less<>> entries_;
};

std::string newName() {
  static std::atomic<int> count = 0;
  return "name" + std::to_string(++count) + ".test";
}

}  // namespace

FakeHostName::FakeHostName(Answer answer) : name_(newName()) {
  Names::shared().add(name_, answer);
}

FakeHostName::~FakeHostName() {
  Names::shared().remove(name_);
}

void FakeHostName::setAnswer(Answer answer) {
  Names::shared().change(name_, answer);
}

std::string FakeHostName::in(std::string url) const {
  const std::string address = "127.0.0.1";
  return url.replace(url.find(address), address.size(), name_);
}

std::size_t FakeHostName::lookUps() const {
  return Names::shared().lookUps(name_);
}

using Resolver = decltype(&getaddrinfo);

/// Resolves the two addresses and joins the results into one list.
static int resolveBoth(Resolver resolve, const char* service, const addrinfo* hints,
                       addrinfo** result) {
  addrinfo* second = nullptr;
  if (const int error = resolve("203.0.113.7", service, hints, &second)) return error;
  if (const int error = resolve("127.0.0.1", service, hints, result)) {
    freeaddrinfo(second);
    return error;
  }
  addrinfo* last = *result;
  while (last->ai_next)
    last = last->ai_next;
  last->ai_next = second;
  return 0;
}

}  // namespace kiv::test

// A function that the program defines replaces that of the C library, also in the shared libraries
// the program is linked with.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name,
                                                                  const char* service,
                                                                  const addrinfo* hints,
                                                                  addrinfo** result) {
  using kiv::test::FakeHostName;
  static const auto systems =
      reinterpret_cast<kiv::test::Resolver>(dlsym(RTLD_NEXT, "getaddrinfo"));
  const auto answer = kiv::test::Names::shared().lookUp(name);
  if (!answer) return systems(name, service, hints, result);
  switch (*answer) {
    case FakeHostName::Answer::loopback:
      return systems("127.0.0.1", service, hints, result);
    case FakeHostName::Answer::twoAddresses:
      return kiv::test::resolveBoth(systems, service, hints, result);
    case FakeHostName::Answer::serverFails:
      return EAI_AGAIN;
    default:
      return EAI_NONAME;
  }
}
