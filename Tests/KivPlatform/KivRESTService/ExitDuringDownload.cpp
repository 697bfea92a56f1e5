// Starts downloads with a client that is never destroyed, and exits during them when its standard
// input ends. Checks in the last exit handler that the transfer thread has ended: libraries that
// were loaded first are destroyed at that point. Run by KivRESTServiceExitTest.
//
//     ExitDuringDownload return|exit|queue|drain authorities spool url[,mirror]...

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"
#include "Tests/KivPlatform/KivRESTService/TransferThreads.h"

namespace {

/// Runs at exit. A joined thread may stay in /proc for a moment.
void expectNoTransferThread() {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (kiv::test::transferThreads() > 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      std::fputs("The transfer thread still runs while the process is taken down.\n", stderr);
      std::_Exit(4);
    }
    std::this_thread::yield();
  }
}

void queueDownload(KivRESTService& client, std::string_view urls) {
  auto task = std::make_shared<KivRESTServiceTask>();
  const auto comma = urls.find(',');
  task->setRequest(kiv::URLRequest(kiv::URL::fromString(urls.substr(0, comma)).value()));
  if (comma != urls.npos) {
    task->setRequestMirrorURLs({kiv::URL::fromString(urls.substr(comma + 1)).value()});
  }
  task->setCompletionHandler([](KivRESTServiceTask&) {
    std::fputs("A download ended that should have gone on.\n", stderr);
    std::_Exit(3);
  });
  client.queue(std::move(task));
}

void waitForEndOfInput() {
  while (std::getchar() != EOF) {
  }
}

int leave(std::string_view way) {
  if (way == "exit") std::exit(0);
  if (way == "queue") {
    // Another thread calls exit() while the main thread waits.
    const auto queue = kiv::DispatchQueue::serial("leaving");
    queue->async([] { std::exit(0); });
    kiv::DispatchQueue::main()->run();
  }
  if (way == "drain") kiv::DispatchQueue::main()->drain();
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 5) return 2;
  // Registered before all exit handlers of the client, so it runs after them.
  std::atexit(&expectNoTransferThread);
  kiv::TransferSettings settings;
  settings.certificateAuthoritiesPath = arguments[2];
  settings.spoolDirectory = arguments[3];
  settings.largestBodyInMemory = 1000;
  static auto& client = *new KivRESTService(settings);
  for (int at = 4; at < count; ++at)
    queueDownload(client, arguments[at]);
  waitForEndOfInput();
  if (kiv::test::transferThreads() == 0) return 5;
  return leave(arguments[1]);
}
