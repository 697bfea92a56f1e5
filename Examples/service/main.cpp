// A service that keeps a cache of resources fresh, on a machine that nobody looks at.
//
//   kivresource-service SETTINGS.json
//
// SIGUSR1: check now. SIGHUP: ask whether stored files have changed. SIGTERM, SIGINT: end. It exits
// with 0 after a signal, with 1 if it cannot start, and with 2 if the settings are wrong.

#include <KivResource/KivResource.h>
#include <csignal>
#include <memory>
#include <optional>
#include <pthread.h>
#include <string>

#include "Service.h"
#include "ServiceLog.h"
#include "ServiceSettings.h"

namespace {

int fail(int status, const std::string& reason) {
  writeLog(LogLevel::error, reason);
  return status;
}

/// Blocks the signals for this thread and all that it starts. Returns those to wait for.
sigset_t blockSignals() {
  sigset_t awaited;
  sigemptyset(&awaited);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1})
    sigaddset(&awaited, signal);
  sigset_t blocked = awaited;
  sigaddset(&blocked, SIGPIPE);  // a log that nobody reads does not end the service
  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  return awaited;
}

/// Passes signals on until one of them ends the service.
void serve(const sigset_t& awaited, kiv::DispatchQueue& queue,
           const std::shared_ptr<Service>& service) {
  const std::weak_ptr<Service> weak = service;  // the service is released on its queue alone
  const auto call = [&](void (Service::*operation)()) {
    queue.async([weak, operation] {
      if (const auto called = weak.lock()) (called.get()->*operation)();
    });
  };
  while (true) {
    int signal = 0;
    if (sigwait(&awaited, &signal) != 0) continue;
    if (signal == SIGUSR1) call(&Service::checkNow);
    if (signal == SIGHUP) call(&Service::revalidate);
    if (signal == SIGTERM || signal == SIGINT) return;
  }
}

int run(const ServiceSettings& settings, const sigset_t& awaited) {
  const auto queue = kiv::DispatchQueue::serial("service");
  if (!queue) return fail(1, "no thread can be created");
  std::shared_ptr<Service> service;
  std::optional<kiv::Error> error;
  const auto opened = queue->sync([&] {
    service = Service::open(settings, &error);
    if (service) service->start();
  });
  if (!opened) return fail(1, opened.error().localizedDescription());
  if (!service)
    return fail(1, error ? error->localizedDescription() : "the cache cannot be opened");
  serve(awaited, *queue, service);
  // Two jobs: what the first one ends is reported between them.
  bool isOver = static_cast<bool>(queue->sync([&] { service->stop(); }));
  isOver = static_cast<bool>(queue->sync([&] { service.reset(); })) && isOver;
  writeLog(LogLevel::info, "stopped");
  return isOver ? 0 : 1;
}

}  // namespace

int main(int count, char** arguments) {
  const sigset_t awaited = blockSignals();  // before any thread is there
  sendLogToStandardError();
  if (count != 2) return fail(2, "usage: kivresource-service SETTINGS.json");
  const std::string path = arguments[1];
  const auto text = kiv::FileManager::defaultManager().contentsAtPath(path);
  if (!text) return fail(2, text.error().localizedDescription());
  const auto settings = ServiceSettings::read(text->view());
  if (!settings) return fail(2, path + ": " + settings.error().localizedDescription());
  return run(*settings, awaited);
}
