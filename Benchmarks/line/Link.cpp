// A line between two network namespaces, which delays packets and limits their rate:
//
//     kivresource-line-link
//
// Creates the namespaces, each with one end of the line: 10.77.0.1 is the client's end
// and 10.77.0.2 the server's. Prints two numbers of file descriptors, by which others enter the
// namespaces of the client and of the server (nsenter --net=/proc/PID/fd/NUMBER). Then reads lines
//
//     ROUND-TRIP-IN-MILLISECONDS MEGABITS-PER-SECOND
//
// from standard input, sets the line so, and answers "set". At the end of the input it ends, and
// the namespaces with it and with those who entered them. Needs root.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

#include "Benchmarks/line/Direction.h"
#include "Benchmarks/line/TunDevice.h"

namespace {

using kiv::bench::Clock;
using kiv::bench::Direction;

/// Enters a new network namespace, and returns a descriptor for it.
int enterNewNamespace() {
  if (::unshare(CLONE_NEWNET) != 0) kiv::bench::failWith("unshare");
  const int number = ::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
  if (number < 0) kiv::bench::failWith("/proc/self/ns/net");
  return number;
}

/// Keeps what TCP learned of one connection from the next, so that all programs meet the same line.
void forgetMetrics() {
  const int file = ::open("/proc/sys/net/ipv4/tcp_no_metrics_save", O_WRONLY | O_CLOEXEC);
  if (file < 0 || ::write(file, "1", 1) != 1) kiv::bench::failWith("tcp_no_metrics_save");
  ::close(file);
}

/// On a busy machine the line must not be slower than it says.
void takePrecedence() {
  sched_param parameter{};
  parameter.sched_priority = 1;
  if (::sched_setscheduler(0, SCHED_FIFO, &parameter) != 0) std::perror("sched_setscheduler");
}

/// Reads a command; false at the end of the input.
bool obey(Direction& there, Direction& back) {
  char text[64];
  const ssize_t length = ::read(STDIN_FILENO, text, sizeof text - 1);
  if (length <= 0) return false;
  text[length] = '\0';
  double roundTrip = 0;
  double megabits = 0;
  if (std::sscanf(text, "%lf %lf", &roundTrip, &megabits) != 2 || roundTrip < 0 || megabits <= 0)
    throw std::runtime_error("not a line: " + std::string(text));
  for (Direction* direction : {&there, &back})
    direction->set(roundTrip / 2, megabits);
  std::puts("set");
  std::fflush(stdout);
  return true;
}

timespec untilNext(const Direction& there, const Direction& back) {
  const auto wait = std::min(there.untilNext(), back.untilNext());
  const auto nanoseconds = std::chrono::nanoseconds(wait).count();
  return {nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
}

void run(int client, int server) {
  Direction there(client, server);
  Direction back(server, client);
  while (true) {
    pollfd ends[] = {{STDIN_FILENO, POLLIN, 0}, {client, POLLIN, 0}, {server, POLLIN, 0}};
    const timespec timeout = untilNext(there, back);
    if (::ppoll(ends, 3, &timeout, nullptr) < 0) kiv::bench::failWith("ppoll");
    if (ends[0].revents != 0 && !obey(there, back)) return;
    if (ends[1].revents != 0) there.receive();
    if (ends[2].revents != 0) back.receive();
    there.deliver();
    back.deliver();
  }
}

}  // namespace

int main() {
  try {
    const int clientNamespace = enterNewNamespace();
    forgetMetrics();
    const int client = kiv::bench::openTunDevice("10.77.0.1");
    const int serverNamespace = enterNewNamespace();
    forgetMetrics();
    const int server = kiv::bench::openTunDevice("10.77.0.2");
    std::printf("%d %d\n", clientNamespace, serverNamespace);
    std::fflush(stdout);
    takePrecedence();
    run(client, server);
    return 0;
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "kivresource-line-link: %s\n", exception.what());
    return 1;
  }
}
