// A host that ends without closing its session, while a pass waits for a server that does not
// answer. The exit code is 7 if it ends as it means to. Run by kivsessionExitTest.
//
//     ExitWithOpenSession ROOT SERVER return|thread|receiving|closing|log|opening|abandoned

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <thread>
#include <unistd.h>

#include "KivSession/kivsession.h"

namespace {

constexpr int asMeant = 7;

/// Closes and opens sessions until the process has ended.
void openAndClose(const char* settings, kivsession* session) {
  while (true) {
    if (session) kivsession_close(session);
    kivsession_open(settings, &session, nullptr);
  }
}

void receiveAll(kivsession* session) {
  char* line = nullptr;
  while (kivsession_receive(session, -1, &line) == KIVSESSION_OK)
    kivsession_free(line);
}

void exitInLog(void* context, const char*) {
  auto& isFirst = *static_cast<std::atomic<bool>*>(context);
  if (isFirst.exchange(false)) std::exit(asMeant);
}

/// The pass has begun: the server has the request, or will have it.
bool beginPass(kivsession* session) {
  constexpr const char* load =
      R"({"call":"loadResourcesForConfig","config":{"items":[{"engine":"eco_standard","name":"n","type":"t",)"
      R"("banner_id":"b","priority":1,"updated":1,"market_url":"m","image_728x90":"silent.png"}]},"tag":1})";
  char* line = nullptr;
  if (kivsession_send(session, load) != KIVSESSION_OK) return false;
  if (kivsession_receive(session, 60'000, &line) != KIVSESSION_OK) return false;
  const bool isBegun = std::strstr(line, R"("tag":1})");
  kivsession_free(line);
  return isBegun;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) return 2;
  alarm(120);
  static std::array<char, 5000> settings{};
  std::snprintf(settings.data(), settings.size(), R"({"root":"%s","main":"%s"})", arguments[1],
                arguments[2]);
  kivsession* session = nullptr;
  if (kivsession_open(settings.data(), &session, nullptr) != KIVSESSION_OK) return 3;
  if (!beginPass(session)) return 4;
  const std::string_view way = arguments[3];
  if (way == "return") return asMeant;
  if (way == "thread") std::thread([] { std::exit(asMeant); }).join();
  if (way == "receiving") {
    std::thread(receiveAll, session).detach();
    std::thread(receiveAll, session).detach();
    return asMeant;
  }
  if (way == "closing") {
    std::thread(kivsession_close, session).detach();
    return asMeant;
  }
  if (way == "opening") {
    std::thread(openAndClose, settings.data(), session).detach();
    return asMeant;
  }
  if (way == "log") {
    static std::atomic<bool> isFirst = true;
    kivsession_set_log(exitInLog, &isFirst);
    // Its file fails to load, which is logged.
    kivsession_send(session,
                    R"({"call":"loadResourcesForConfig","config":{"items":[5,{"engine":"x"}]}})");
    kivsession_send(session, R"({"call":"stopLoading"})");
    while (true)
      pause();
  }
  if (way == "abandoned") _exit(asMeant);
  return 2;
}
