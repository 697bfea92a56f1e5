#include <gtest/gtest.h>

#include "Tools/kivresource/ProgressBar.h"
#include "Tools/kivresource/Text.h"

namespace {

using tool::progressLine;

KivRESTServiceProgress half() {
  KivRESTServiceProgress progress;
  progress.tasksWaiting = 1;
  progress.tasksRunning = 2;
  progress.tasksEnded = 1;
  progress.bytesReceived = 5'000'000;
  progress.bytesExpected = 10'000'000;
  progress.bytesPerSecond = 1'000'000;
  return progress;
}

TEST(ProgressBarTest, ShowsFilesBytesSpeedAndTimeLeft) {
  EXPECT_EQ(progressLine(half(), 200),
            "[###############---------------]  1/4 files  5.0 MB of 10.0 MB  1.0 MB/s  0:05 left");
}

TEST(ProgressBarTest, TellsNoTimeLeftWhereALengthIsUnknown) {
  auto progress = half();
  progress.bytesExpected = std::nullopt;
  EXPECT_EQ(progressLine(progress, 200),
            "[#######-----------------------]  1/4 files  5.0 MB  1.0 MB/s");
}

TEST(ProgressBarTest, TellsNoSpeedWhereThereIsNone) {
  auto progress = half();
  progress.bytesPerSecond = 0;
  EXPECT_EQ(progressLine(progress, 200),
            "[###############---------------]  1/4 files  5.0 MB of 10.0 MB");
}

TEST(ProgressBarTest, IsNeverWiderThanTheTerminal) {
  for (std::size_t width = 0; width < 120; ++width)
    EXPECT_LE(progressLine(half(), width).size(), width);
}

TEST(ProgressBarTest, StandsMoreBytesThanExpectedAndNoFilesAtAll) {
  auto progress = half();
  progress.bytesReceived = 11'000'000;
  EXPECT_EQ(progressLine(progress, 200).substr(0, 32), "[##############################]");
  EXPECT_EQ(progressLine({}, 60), "[##############################]  0/0 files  0 B");
}

TEST(TextTest, BytesForAPerson) {
  EXPECT_EQ(tool::byteText(0), "0 B");
  EXPECT_EQ(tool::byteText(999), "999 B");
  EXPECT_EQ(tool::byteText(1000), "1.0 kB");
  EXPECT_EQ(tool::byteText(999'949), "999.9 kB");
  EXPECT_EQ(tool::byteText(999'950), "1.0 MB");
  EXPECT_EQ(tool::byteText(18'446'744'073'709'551'615U), "18.4 EB");
}

TEST(TextTest, DurationsForAPerson) {
  EXPECT_EQ(tool::durationText(7), "0:07");
  EXPECT_EQ(tool::durationText(3599), "59:59");
  EXPECT_EQ(tool::durationText(3723), "1:02:03");
}

}  // namespace
