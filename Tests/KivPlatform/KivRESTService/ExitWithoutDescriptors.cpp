// Fetches a file, closes its own descriptors and exits while the transfer thread is idle, so that
// the pipe that wakes the thread is missing. An alarm kills the process if it hangs. Run by
// KivRESTServiceExitTest.
//
//     ExitWithoutDescriptors few|closed|taken|running exit|destroy url
//
// few: no descriptors are available from the start. closed: closed after the download. taken:
// closed, and sockets opened with their numbers, to which the framework must not write. running:
// closed during a download.

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace {

constexpr int firstOther = 3;  // after the standard streams
constexpr int behindLast = 64;

/// Makes every further attempt to open a descriptor fail.
void useUpDescriptors() {
  const rlimit limit{firstOther, firstOther};
  setrlimit(RLIMIT_NOFILE, &limit);
}

void closeDescriptors() {
  for (int descriptor = firstOther; descriptor < behindLast; ++descriptor)
    close(descriptor);
}

void takeDescriptors() {
  int ends[2] = {0, 0};
  while (ends[1] < behindLast && socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0) {
  }
}

/// Runs at exit.
void expectNothingInSockets() {
  for (int descriptor = firstOther; descriptor < behindLast; ++descriptor) {
    char byte = 0;
    if (recv(descriptor, &byte, 1, MSG_DONTWAIT) > 0) std::_Exit(5);
  }
}

bool load(KivRESTService& client, std::string_view url, bool isWaitedFor) {
  auto task = std::make_shared<KivRESTServiceTask>();
  task->setRequest(kiv::URLRequest(kiv::URL::fromString(url).value()));
  task->setCompletionHandler([](KivRESTServiceTask&) {});
  client.queue(task);
  const auto hasEnded = [&] { return task->completionHandler() == nullptr; };
  while (isWaitedFor && !hasEnded())
    kiv::DispatchQueue::main()->drainFor(std::chrono::milliseconds(100));
  return hasEnded();
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) return 2;
  const std::string_view way = arguments[1];
  const std::string_view order = arguments[2];
  alarm(20);
  // Registered before all exit handlers of the client, so it runs after them.
  if (way == "taken") std::atexit(&expectNothingInSockets);
  kiv::TransferSettings settings;
  settings.idleTime = std::chrono::hours(1);
  settings.stallTimeout = std::chrono::hours(1);
  settings.firstRetryDelay = std::chrono::milliseconds(1);
  settings.longestRetryDelay = std::chrono::milliseconds(1);
  static auto& client = *new KivRESTService(settings);
  if (way == "few") useUpDescriptors();
  load(client, arguments[3], way != "running");
  if (way == "running") {
    // Wait until the test has seen the request.
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
  }
  if (way != "few") closeDescriptors();
  if (way == "taken") takeDescriptors();
  if (order == "destroy") {
    client.cancelAllTasks();
    delete &client;
  }
  std::exit(0);
}
