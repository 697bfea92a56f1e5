// Starts downloads with a client that nobody destroys, and ends the process when its standard input
// ends, in the middle of them. Run by KivRESTServiceExitTest.
//
//     ExitDuringDownload return|exit|queue|drain authorities url[,mirror]...

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "Platform/Foundation/DispatchQueue.h"
#include "Platform/KivRESTService/KivRESTService.h"

namespace {

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
    // The main thread waits while the process is ended under it.
    const auto queue = kiv::DispatchQueue::serial("leaving");
    queue->async([] { std::exit(0); });
    kiv::DispatchQueue::main()->run();
  }
  if (way == "drain") kiv::DispatchQueue::main()->drain();
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 4) return 2;
  KivRESTServiceSettings settings;
  settings.certificateAuthoritiesPath = arguments[2];
  static auto& client = *new KivRESTService(settings);
  for (int at = 3; at < count; ++at)
    queueDownload(client, arguments[at]);
  waitForEndOfInput();
  return leave(arguments[1]);
}
