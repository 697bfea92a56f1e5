// Starts a download, pauses its client when so many bytes have come, and waits until its standard
// input ends or it is killed. The client is never destroyed. Run by KivRESTServicePauseTest.
//
//     PausedDownload spool url bytes

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

int main(int count, char** arguments) {
  if (count != 4) return 2;
  kiv::TransferSettings settings;
  settings.spoolDirectory = arguments[1];
  settings.largestBodyInMemory = 1000;
  const std::int64_t bytes = std::stoll(arguments[3]);
  const auto queue = kiv::DispatchQueue::serial("client");
  queue->async([&settings, arguments, bytes] {
    auto& client = *new KivRESTService(settings);
    client.setProgressHandler([&client, bytes](const KivRESTServiceProgress& progress) {
      if (progress.bytesReceived == bytes) client.pause();
    });
    auto task = std::make_shared<KivRESTServiceTask>();
    task->setRequest(kiv::URLRequest(kiv::URL::fromString(arguments[2]).value()));
    task->setCompletionHandler([](KivRESTServiceTask&) {
      std::fputs("A download ended that should have been paused.\n", stderr);
      std::_Exit(3);
    });
    client.queue(std::move(task));
  });
  while (std::getchar() != EOF) {
  }
  return 0;
}
