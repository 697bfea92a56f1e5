// Runs the tests of the window in a QApplication. CTest runs each test in a separate process, since
// each needs its own manager.

#include <QApplication>
#include <QStandardPaths>

#include <gtest/gtest.h>

int main(int count, char** arguments) {
  testing::InitGoogleTest(&count, arguments);
  if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();  // needs no display
  QStandardPaths::setTestModeEnabled(true);
  const QApplication application(count, arguments);
  return RUN_ALL_TESTS();
}
