// Runs a command and measures it:
//
//     kivresource-measure COMMAND [ARGUMENT]...
//
// prints the command's wall time in milliseconds, its peak resident memory in KiB (on macOS in
// bytes) and its processor time in milliseconds, system time included, and exits with the command's
// status. The command's output goes to standard error.

#include <chrono>
#include <cstdio>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int couldNotRun = 127;

[[noreturn]] void run(char** command) {
  ::dup2(STDERR_FILENO, STDOUT_FILENO);
  ::execvp(command[0], command);
  std::perror(command[0]);
  ::_exit(couldNotRun);
}

double milliseconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2) {
    std::fputs("usage: kivresource-measure COMMAND [ARGUMENT]...\n", stderr);
    return 2;
  }
  const auto begin = std::chrono::steady_clock::now();
  const pid_t child = ::fork();
  if (child == 0) run(arguments + 1);
  int status = 0;
  rusage usage{};
  if (child < 0 || ::wait4(child, &status, 0, &usage) != child) {
    std::perror("kivresource-measure");
    return couldNotRun;
  }
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
  std::printf("%.1f %ld %.1f\n", took.count(), usage.ru_maxrss,
              milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime));
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
