#include "Tests/Support/ChildProcess.h"

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Tests/Support/PointerList.h"

namespace kiv::test {

namespace {

std::vector<std::string> environmentWith(const std::vector<std::string>& variables) {
  std::vector<std::string> all;
  for (char** variable = environ; *variable; ++variable)
    all.emplace_back(*variable);
  all.insert(all.end(), variables.begin(), variables.end());
  return all;
}

}  // namespace

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                           const std::vector<std::string>& variables,
                           const std::vector<int>& descriptors) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  input_ = ends[1];

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[0], STDIN_FILENO);
  // Duplicating a descriptor to its own number clears close-on-exec in the child.
  for (const int descriptor : descriptors) {
    posix_spawn_file_actions_adddup2(&actions, descriptor, descriptor);
  }

  std::vector<std::string> words{program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  auto environment = environmentWith(variables);
  const int failure = posix_spawnp(&process_, program.c_str(), &actions, nullptr,
                                   pointers(words).data(), pointers(environment).data());
  if (failure != 0) process_ = -1;
  posix_spawn_file_actions_destroy(&actions);
  close(ends[0]);
}

ChildProcess::~ChildProcess() {
  closeInput();
  if (!hasStarted()) return;
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

void ChildProcess::closeInput() {
  if (input_ >= 0) close(input_);
  input_ = -1;
}

void ChildProcess::sendSignal(int signal) const {
  if (hasStarted()) kill(process_, signal);
}

std::optional<int> ChildProcess::waitForExit() {
  int status = 0;
  if (!hasStarted() || waitpid(process_, &status, 0) != process_) return std::nullopt;
  process_ = -1;
  return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}

}  // namespace kiv::test
