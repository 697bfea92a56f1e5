// Exits while timers are set. Run by TimersTest.
//
//     ExitWithTimers return|exit|job|fork

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

#include "KivPlatform/Foundation/queues/DispatchQueue.h"
#include "KivPlatform/Foundation/queues/Timers.h"

namespace {

using kiv::DispatchQueue;
using kiv::Timers;

std::unique_ptr<Timers::Timer> setIn(Timers& timers, Timers::Time time, Timers::Job job) {
  return timers.set(timers.now() + time, DispatchQueue::main(), std::move(job));
}

/// Runs the main queue until a timer that is set now has fired.
bool firesHere() {
  bool hasRun = false;
  const auto timer = setIn(*Timers::system(), Timers::Time(1), [&] { hasRun = true; });
  for (int wait = 0; timer && !hasRun && wait < 100; ++wait)
    DispatchQueue::main()->drainFor(std::chrono::seconds(1));
  return hasRun;
}

/// The child can neither set a timer of its parent's nor is it blocked by one.
int runChild(const std::shared_ptr<Timers>& ofParent, std::unique_ptr<Timers::Timer> timer) {
  timer.reset();
  if (setIn(*ofParent, Timers::Time(1), [] {})) return 3;
  return firesHere() ? 0 : 4;
}

int runFork(std::unique_ptr<Timers::Timer> timer) {
  const auto timers = Timers::system();
  const pid_t child = fork();
  if (child == 0) std::exit(runChild(timers, std::move(timer)));
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) return 5;
  if (WEXITSTATUS(status) != 0) return WEXITSTATUS(status);
  return firesHere() ? 0 : 6;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  const std::string_view way = arguments[1];
  auto timer = setIn(*Timers::system(), std::chrono::hours(1), [] {});
  if (!timer) return 2;
  if (way == "fork") return runFork(std::move(timer));
  if (way == "job") {
    const auto last = setIn(*Timers::system(), Timers::Time(1), [] { std::exit(0); });
    DispatchQueue::main()->run();
  }
  if (way == "exit") std::exit(0);
  return 0;
}
