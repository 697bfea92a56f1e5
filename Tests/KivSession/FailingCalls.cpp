// A host opens session after session and makes the same calls with each. In each session one
// allocation fails, on the host's thread or on one of the library's: the first one in the first
// session, a later one in each further session, until a session needs fewer. No call may hang, and
// every call is answered once unless a line says that lines were lost. Run by kivsessionMemoryTest.
//
//     FailingCalls ROOT RESOURCES FIRST STRIDE
//
// FIRST is the index of the first failing allocation, to which STRIDE is added after each session.
// The host itself allocates nothing with operator new, and runs on a second thread, since those of
// the main thread do not fail.

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "KivSession/kivsession.h"
#include "Tests/Support/FailingMemory.h"

namespace {

using kiv::test::allocationsLeft;

constexpr int patience = 20'000;  // milliseconds

constexpr std::array calls{
    R"({"call":"reportPasses","enabled":true,"tag":"F"})",
    R"({"call":"loadResourcesForConfig","config":{"items":[{"engine":"eco_standard","name":"n","type":"t",)"
    R"("banner_id":"b","priority":1,"updated":1,"market_url":"m","image_728x90":"packaged.png"}]},"tag":"0"})",
    R"({"call":"waitForFinish","timeout_ms":50,"tag":"1"})",
    R"({"call":"allLoadedResources","tag":"2"})",
    R"({"call":"loadedResourcesWithID","id":"b","tag":"3"})",
    R"({"call":"audit","tag":"4"})",
    R"({"call":"cleanUpOrphans","dryRun":true,"tag":"5"})",
    R"({"call":"space","tag":"6"})",
    R"({"call":"state","tag":"7"})",
    R"({"call":"setSettings","settings":{"threads":2},"tag":"8"})",
    R"({"call":"settings","tag":"9"})",
    R"({"call":"reportProgress","enabled":true,"tag":"A"})",
    R"({"call":"setDomains","main":"http://127.0.0.1:1","tag":"B"})",
    R"({"call":"sleep","ms":1,"tag":"C"})",
    R"({"call":"nonsense","tag":"D"})",
    R"({"call":"pause","tag":"G"})",
    R"({"call":"setBandwidth","bytesPerSecond":1000,"tag":"H"})",
    R"({"call":"resume","tag":"I"})",
    R"({"call":"takeLease","id":"b","tag":"J"})",
    R"({"call":"endLease","lease":1,"tag":"K"})",
    R"({"call":"revalidate","tag":"L"})",
    R"({"call":"follow","url":"http://127.0.0.1:1/c.json","interval_s":0,"tag":"M"})",
    R"({"call":"checkNow","tag":"N"})",
    R"({"call":"stopFollowing","tag":"O"})",
    R"({"call":"stopLoading","tag":"E"})",
};
constexpr const char* tags = "0123456789ABCDEFGHIJKLMNO";
constexpr char afterwards = 'Z';
constexpr const char* callAfterwards = R"({"call":"setDomains","tag":"Z"})";

/// What one session has answered.
struct Outcome {
  std::array<int, 128> sent{};
  std::array<int, 128> answers{};
  bool wereLinesLost = false;
  bool hasEnded = false;
};

/// The tag at the end of the line, which has one character; 0 if there is none.
char tagOf(const char* line) {
  const std::size_t length = std::strlen(line);
  constexpr std::size_t end = std::char_traits<char>::length(R"("tag":"X"})");
  if (length < end || std::strncmp(line + length - end, R"("tag":")", 7) != 0) return 0;
  return line[length - 3];
}

bool isOpen(kivsession*& session, const char* settings) {
  char* message = nullptr;
  int result = kivsession_open(settings, &session, &message);
  // Nothing fails twice.
  if (result == KIVSESSION_SYSTEM && !session) {
    kivsession_free(message);
    result = kivsession_open(settings, &session, &message);
  }
  if (result != KIVSESSION_OK) std::fprintf(stderr, "Opening: %d, %s\n", result, message);
  kivsession_free(message);
  return result == KIVSESSION_OK;
}

bool send(kivsession* session, const char* call, Outcome& outcome) {
  const int result = kivsession_send(session, call);
  if (result == KIVSESSION_OK) ++outcome.sent[static_cast<unsigned char>(tagOf(call))];
  return result == KIVSESSION_OK || result == KIVSESSION_SYSTEM;
}

/// Receives lines up to the answer with that tag. If lines were lost, it may never come.
bool receiveUpTo(char tag, kivsession* session, Outcome& outcome) {
  while (outcome.answers[static_cast<unsigned char>(tag)] == 0 && !outcome.hasEnded) {
    char* line = nullptr;
    const int result = kivsession_receive(session, patience, &line);
    if (result == KIVSESSION_SYSTEM) continue;
    if (result != KIVSESSION_OK) {
      std::fprintf(stderr, "Waiting for %c: %d.\n", tag, result);
      return false;
    }
    if (const char found = tagOf(line)) ++outcome.answers[static_cast<unsigned char>(found)];
    const bool isLoss = std::strstr(line, "lines were lost");
    outcome.hasEnded = std::strstr(line, "the session has ended");
    kivsession_free(line);
    outcome.wereLinesLost = outcome.wereLinesLost || isLoss || outcome.hasEnded;
    if (isLoss) return true;
  }
  return true;
}

bool isRight(const Outcome& outcome) {
  bool isRight = true;
  for (const char* tag = tags; *tag != '\0'; ++tag) {
    const auto index = static_cast<unsigned char>(*tag);
    const bool isAnswered = outcome.answers[index] == outcome.sent[index] ||
                            (outcome.wereLinesLost && outcome.answers[index] == 0);
    if (!isAnswered) {
      std::fprintf(stderr, "The call %c was made %d times and answered %d times.\n", *tag,
                   outcome.sent[index], outcome.answers[index]);
    }
    isRight = isRight && isAnswered;
  }
  return isRight;
}

/// A session in which the allocation with that index fails; none if it is negative.
bool callsAreAnswered(const char* settings, long failing, bool& wereLinesLost) {
  allocationsLeft = failing;
  kivsession* session = nullptr;
  if (!isOpen(session, settings)) return false;
  Outcome outcome;
  for (const char* const call : calls) {
    if (!send(session, call, outcome)) return false;
  }
  // Another call, which fails no more, shows that nothing comes any later.
  bool isWell = true;
  if (outcome.sent['E'] == 1) isWell = receiveUpTo('E', session, outcome);
  const auto& isOver = outcome.answers[static_cast<unsigned char>(afterwards)];
  while (isWell && !outcome.hasEnded && isOver == 0) {
    // Its answer may be among the lost lines, which are told of when all others were received.
    const int before = outcome.sent[static_cast<unsigned char>(afterwards)];
    isWell = send(session, callAfterwards, outcome);
    if (outcome.sent[static_cast<unsigned char>(afterwards)] == before) continue;  // not added
    isWell = isWell && receiveUpTo(afterwards, session, outcome);
  }
  wereLinesLost = outcome.wereLinesLost;
  int result = kivsession_close(session);
  if (result == KIVSESSION_SYSTEM) result = kivsession_close(session);
  if (result != KIVSESSION_OK) std::fprintf(stderr, "Closing: %d.\n", result);
  return isWell && result == KIVSESSION_OK && isRight(outcome);
}

bool failEachInTurn(const char* settings, long first, long stride) {
  int losses = 0;
  for (long count = first; count < 1'000'000; count += stride) {
    bool wereLinesLost = false;
    const bool isWell = callsAreAnswered(settings, count, wereLinesLost);
    const bool isOver = allocationsLeft >= 0;
    bool isNextWell = true;
    bool isNextLossy = false;
    if (isWell) isNextWell = callsAreAnswered(settings, -1, isNextLossy);
    if (!isWell || !isNextWell || isNextLossy) {
      std::fprintf(stderr, "Allocation %ld: %s\n", count,
                   isWell ? "the next session" : "this session");
      return false;
    }
    losses += wereLinesLost ? 1 : 0;
    if (isOver) {
      std::fprintf(stderr, "%ld allocations, %d sessions that lost lines\n", count, losses);
      return count > 100;
    }
  }
  return false;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 5) return 2;
  kivsession_set_log([](void*, const char*) {}, nullptr);
  std::array<char, 10'000> settings{};
  std::snprintf(settings.data(), settings.size(), R"({"root":"%s","resources":"%s"})", arguments[1],
                arguments[2]);
  bool isWell = false;
  std::thread host([&] {
    isWell = failEachInTurn(settings.data(), std::atol(arguments[3]), std::atol(arguments[4]));
  });
  host.join();
  return isWell ? 0 : 1;
}
