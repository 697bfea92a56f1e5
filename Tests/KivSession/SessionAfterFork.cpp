// Forks repeatedly while threads use a session. In each child every function returns at once, and
// the parent's session keeps working. The exit code is the number of failures. Run by
// kivsessionForkTest.
//
//     SessionAfterFork ROOT

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "KivSession/kivsession.h"

namespace {

constexpr int forks = 30;
constexpr unsigned longestChild = 60;  // seconds

void use(kivsession* session, const std::atomic<bool>& isOver) {
  while (!isOver) {
    kivsession_send(session, R"({"call":"state","tag":1})");
    char* line = nullptr;
    kivsession_receive(session, 0, &line);
    kivsession_free(line);
    kivsession_set_log([](void*, const char*) {}, nullptr);
  }
}

/// True if the session, and any that the child wants to open, is closed to the child.
bool isClosed(kivsession* session, const char* settings) {
  char* text = nullptr;
  int descriptor = 0;
  kivsession* own = nullptr;
  bool isWell = kivsession_send(session, "{}") == KIVSESSION_CLOSED &&
                kivsession_receive(session, -1, &text) == KIVSESSION_CLOSED && !text &&
                kivsession_descriptor(session, &descriptor) == KIVSESSION_CLOSED &&
                descriptor == -1 && kivsession_close(session) == KIVSESSION_CLOSED &&
                kivsession_open(settings, &own, &text) == KIVSESSION_BUSY && !own && text;
  kivsession_free(text);
  isWell = isWell && kivsession_set_log(nullptr, nullptr) == KIVSESSION_OK;
  return isWell && kivsession_version();
}

[[noreturn]] void beChild(kivsession* session, const char* settings, int round) {
  alarm(longestChild);
  bool isWell = isClosed(session, settings);
  if (round % 3 == 0) {
    const pid_t grandchild = fork();
    if (grandchild == 0) {
      alarm(longestChild);  // an alarm is not inherited
      std::exit(isClosed(session, settings) ? 0 : 1);
    }
    int status = 1;
    isWell = isWell && waitpid(grandchild, &status, 0) == grandchild && status == 0;
  }
  // With the library's exit handler, and without.
  if (round % 2 == 0) std::exit(isWell ? 0 : 1);
  _exit(isWell ? 0 : 1);
}

bool answers(kivsession* session) {
  char* line = nullptr;
  while (kivsession_receive(session, 0, &line) == KIVSESSION_OK)
    kivsession_free(line);
  if (kivsession_send(session, "{") != KIVSESSION_OK) return false;
  const bool isAnswered = kivsession_receive(session, 60'000, &line) == KIVSESSION_OK;
  kivsession_free(line);
  return isAnswered;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 100;
  alarm(10 * longestChild);
  std::array<char, 5000> settings{};
  std::snprintf(settings.data(), settings.size(), R"({"root":"%s"})", arguments[1]);
  kivsession* session = nullptr;
  if (kivsession_open(settings.data(), &session, nullptr) != KIVSESSION_OK) return 101;
  std::atomic<bool> isOver = false;
  std::vector<std::thread> users;
  for (int user = 0; user < 3; ++user)
    users.emplace_back(use, session, std::cref(isOver));
  int failures = 0;
  for (int round = 0; round < forks; ++round) {
    const pid_t child = fork();
    if (child == 0) beChild(session, settings.data(), round);
    int status = 1;
    if (waitpid(child, &status, 0) != child || status != 0) {
      std::fprintf(stderr, "Child %d ended with the status %d.\n", round, status);
      ++failures;
    }
  }
  isOver = true;
  for (auto& user : users)
    user.join();
  if (!answers(session)) ++failures;
  if (kivsession_close(session) != KIVSESSION_OK) ++failures;
  if (kivsession_open(settings.data(), &session, nullptr) != KIVSESSION_OK) ++failures;
  if (!answers(session) || kivsession_close(session) != KIVSESSION_OK) ++failures;
  return failures;
}
