#include "Tests/Tools/kivresource/ToolProcess.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Tests/Support/PointerList.h"
#include "Tests/Support/ReadFile.h"

namespace kiv::test {

namespace {

/// The environment of the test without the variables that affect the tool.
std::vector<std::string> environmentWith(const std::string& home,
                                         const std::vector<std::string>& variables) {
  std::vector<std::string> all{"HOME=" + home, "TERM=xterm"};
  for (char** variable = environ; *variable; ++variable) {
    const std::string_view text = *variable;
    const bool isOurs = text.starts_with("HOME=") || text.starts_with("TERM=") ||
                        text.starts_with("XDG_") || text.starts_with("KIVRESOURCE_") ||
                        text.starts_with("NO_COLOR=");
    if (!isOurs) all.emplace_back(text);
  }
  all.insert(all.end(), variables.begin(), variables.end());
  return all;
}

}  // namespace

ToolProcess::ToolProcess(const std::vector<std::string>& arguments,
                         const std::vector<std::string>& variables,
                         const std::vector<std::string>& launcher) {
  std::array<int, 2> in{-1, -1};
  std::array<int, 2> out{-1, -1};
  // A socket instead of a pipe: with MSG_NOSIGNAL, writing to a tool that has ended raises no
  // SIGPIPE.
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, in.data()) != 0) return;
  if (pipe2(out.data(), O_CLOEXEC) != 0) return;
  input_ = in[1];
  output_ = LineReader(out[0]);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, home_.path("errors").c_str(),
                                   O_WRONLY | O_CREAT | O_APPEND, 0600);
  posix_spawn_file_actions_addchdir_np(&actions, home_.path().c_str());

  std::vector<std::string> words = launcher;
  words.emplace_back(KIVRESOURCE_TOOL);
  words.insert(words.end(), arguments.begin(), arguments.end());
  auto environment = environmentWith(home_.path(), variables);
  if (posix_spawnp(&process_, words.front().c_str(), &actions, nullptr, pointers(words).data(),
                   pointers(environment).data()) != 0) {
    process_ = -1;
  }
  posix_spawn_file_actions_destroy(&actions);
  close(in[0]);
  close(out[1]);
}

ToolProcess::~ToolProcess() {
  closeInput();
  if (process_ <= 0) return;
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

void ToolProcess::write(std::string_view text) const {
  while (!text.empty()) {
    const ssize_t length = send(input_, text.data(), text.size(), MSG_NOSIGNAL);
    if (length < 0 && errno != EINTR) return;
    if (length > 0) text.remove_prefix(static_cast<std::size_t>(length));
  }
}

void ToolProcess::closeInput() {
  if (input_ >= 0) close(input_);
  input_ = -1;
}

void ToolProcess::sendSignal(int signal) const {
  if (process_ > 0) kill(process_, signal);
}

std::vector<std::string> ToolProcess::readLines() {
  std::vector<std::string> lines;
  while (auto line = readLine())
    lines.push_back(std::move(*line));
  return lines;
}

int ToolProcess::waitForExit() {
  int status = 0;
  if (process_ <= 0 || waitpid(process_, &status, 0) != process_) return -1;
  process_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string ToolProcess::errors() const {
  return readFile(home_.path("errors"));
}

ToolRun runTool(const std::vector<std::string>& arguments, std::string_view input,
                const std::vector<std::string>& variables,
                const std::vector<std::string>& launcher) {
  ToolProcess tool(arguments, variables, launcher);
  tool.write(input);
  tool.closeInput();
  ToolRun run;
  run.lines = tool.readLines();
  run.status = tool.waitForExit();
  run.errors = tool.errors();
  return run;
}

std::vector<std::string> withRedirections(const std::string& redirections) {
  return {"sh", "-c", "exec \"$@\" " + redirections, "sh"};
}

}  // namespace kiv::test
