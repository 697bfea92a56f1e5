#include <QProcess>
#include <QStringList>
#include <algorithm>
#include <iostream>

#include <gtest/gtest.h>

namespace {

constexpr int patience = 240'000;  // milliseconds

struct Measured {
  double gap = 0;   ///< The longest interval between two ticks, in milliseconds.
  double pass = 0;  ///< The duration of the pass, in milliseconds.
  int loaded = 0;
};

Measured measure(const QString& queue) {
  QProcess process;
  process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
  process.start(LONGEST_GAP, {queue});
  EXPECT_TRUE(process.waitForFinished(patience));
  const QStringList words = QString(process.readAllStandardOutput()).simplified().split(' ');
  if (words.size() != 3) {
    ADD_FAILURE() << "no measure: " << words.join(' ').toStdString();
    return {};
  }
  return {words[0].toDouble(), words[1].toDouble(), words[2].toInt()};
}

}  // namespace

// The only test that measures time. A limit in milliseconds would depend on the machine, so the
// window is compared with a blocked one that is measured on the same machine right afterwards.
TEST(TheWindow, AnswersAllThroughAPassOf200FilesAndALargeArchive) {
  const Measured own = measure("serial");
  const Measured blocked = measure("main");
  std::cout << "longest gap between two ticks of 10 ms: " << own.gap << " ms in a pass of "
            << own.pass << " ms; with the manager on the window's own queue " << blocked.gap
            << " ms in " << blocked.pass << " ms" << std::endl;
  EXPECT_EQ(own.loaded, 201);
  EXPECT_EQ(blocked.loaded, 201);
  EXPECT_LT(own.gap, blocked.gap / 3);
  EXPECT_LT(own.gap, own.pass / 4);
}
