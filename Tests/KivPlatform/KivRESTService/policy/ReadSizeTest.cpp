#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/policy/ReadSize.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace kiv {
namespace {

constexpr std::int64_t kibibyte = 1024;

ReadSize after(int bodies, std::int64_t bytes) {
  ReadSize size{kiv::TransferSettings()};
  for (int body = 0; body < bodies; ++body)
    size.noteBody(bytes);
  return size;
}

TEST(ReadSizeTest, TakesAFileForLargeBeforeAnyHasCome) {
  EXPECT_EQ(ReadSize(kiv::TransferSettings()).bytes(), 512 * kibibyte);
}

TEST(ReadSizeTest, GoesDownWithSmallFilesAndUpWithLargeOnes) {
  ReadSize size = after(20, 5000);
  EXPECT_EQ(size.bytes(), 64 * kibibyte);
  for (int body = 0; body < 20; ++body)
    size.noteBody(std::int64_t{1} << 30);
  EXPECT_GE(size.bytes(), 511 * kibibyte);
}

TEST(ReadSizeTest, OneFileOfAnotherSizeDoesNotDecide) {
  ReadSize size = after(20, 5000);
  size.noteBody(std::int64_t{1} << 30);
  EXPECT_LT(size.bytes(), 200 * kibibyte);
}

TEST(ReadSizeTest, HoldsTheHeadersTooOfAFileThatIsAsUsual) {
  EXPECT_GT(after(20, 100 * kibibyte).bytes(), 100 * kibibyte);
  EXPECT_LT(after(20, 100 * kibibyte).bytes(), 120 * kibibyte);
}

TEST(ReadSizeTest, StaysWithinItsBoundsForBodiesOfAnySize) {
  EXPECT_EQ(after(1000, 0).bytes(), 64 * kibibyte);
  EXPECT_LE(after(1000, std::numeric_limits<std::int64_t>::max()).bytes(), 512 * kibibyte);
}

TEST(ReadSizeTest, WithALimitOfTheSpeedItIsAHundredthOfThat) {
  kiv::TransferSettings settings;
  settings.bandwidth = 1'000'000;
  EXPECT_EQ(ReadSize(settings).bytes(), 10'000);
  settings.bandwidth = 1;
  EXPECT_EQ(ReadSize(settings).bytes(), 1024);
  settings.bandwidth = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(ReadSize(settings).bytes(), 512 * kibibyte);
}

}  // namespace
}  // namespace kiv
