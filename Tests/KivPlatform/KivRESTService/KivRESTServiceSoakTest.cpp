// Thousands of tasks with a server that fails at random.

#include <atomic>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"
#include "Tests/KivPlatform/KivRESTService/Load.h"
#include "Tests/Support/LoopbackServer.h"
#include "Tests/Support/RangeServer.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace kiv::test;

constexpr unsigned tasks = 10'000;

std::size_t openDescriptors() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& item : std::filesystem::directory_iterator("/proc/self/fd"))
    ++count;
  return count;
}

/// The file with that number: usually some kilobytes, sometimes more than the limit for bodies in
/// memory.
std::string bodyOf(unsigned number) {
  const std::size_t size = number % 50 == 0 ? 40'000 : number * 37 % 5'000;
  return patternedBytes(size, number + 1);
}

/// A response with a random fault or none.
Response responseTo(const Request& request, unsigned chance) {
  const auto number = static_cast<unsigned>(std::stoul(request.target.substr(3)));
  const auto proper = rangeResponse(request, bodyOf(number), "\"1\"");
  auto response = proper;
  switch (chance % 16) {
    case 0:
      return Response::nothing();
    case 1:
      return Response::nothing().resetAt(0);
    case 2:
      return response.closeAt(chance / 16 % 1000);
    case 3:
      return response.resetAt(chance / 16 % 1000);
    case 4:
      return Response::status(503);
    case 5:
      return Response::status(404);
    case 6:
      return Response::raw(
          "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nContent-Length: 6\r\n\r\n12345");
    case 7:
      return Response::raw("nonsense");
    case 8:
      return response.chunked(777);
    case 9:
      return response.thenCloseUnannounced();
    case 10:
      return Response::status(416);
    default:
      return proper;
  }
}

TEST(KivRESTServiceSoak, EveryTaskEndsOnceAndNothingIsLeftBehind) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  RecordProperty("seed", std::to_string(seed));
  const TemporaryDirectory directory;
  const std::size_t before = openDescriptors();
  unsigned succeeded = 0;
  {
    LoopbackServer server;
    std::atomic<unsigned> requests{0};
    server.serve("/f", [&](const Request& request) {
      return responseTo(request, static_cast<unsigned>(std::mt19937(seed + ++requests)()));
    });
    auto settings = kiv::defaultTransferSettings();
    settings.spoolDirectory = directory.path("spool");
    settings.largestBodyInMemory = 10'000;
    KivRESTService client(settings);
    std::size_t ended = 0;
    client.setEndHandler([&ended](const KivRESTServiceTask&) { ++ended; });
    std::vector<Load> loads;
    loads.reserve(tasks);
    for (unsigned number = 0; number < tasks; ++number)
      loads.emplace_back(client, server.url("/f?" + std::to_string(number)), number % 7);
    for (unsigned number = 0; number < tasks; ++number) {
      const Load& load = loads[number];
      // The time-out applies to the next completion of any task: all tasks together take longer
      // with a sanitizer on a busy machine.
      while (!load.hasEnded()) {
        const std::size_t former = ended;
        ASSERT_TRUE(waitUntil([&] { return ended > former; })) << number;
      }
      ASSERT_NE(load.hasBody(), load.errorCode() != 0 || load.status() != 200) << number;
      if (!load.hasBody()) continue;
      ASSERT_TRUE(load.body() == bodyOf(number)) << number;
      load.task()->setReturnedData(std::nullopt);
      ++succeeded;
    }
    for (const auto& load : loads)
      ASSERT_EQ(load.completions(), 1);
    EXPECT_TRUE(client.currentQueue().empty());
  }
  EXPECT_GT(succeeded, tasks / 2) << "of " << tasks;
  EXPECT_LT(succeeded, tasks);
  EXPECT_EQ(openDescriptors(), before);
  const std::filesystem::path spool = directory.path("spool");
  for (const auto& item : std::filesystem::directory_iterator(spool))
    EXPECT_NE(item.path().extension(), ".lock") << item.path();
}

}  // namespace
