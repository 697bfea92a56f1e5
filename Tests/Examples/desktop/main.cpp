// Runs the tests of the window within an application of Qt's. CTest runs each in a process of its
// own, as each needs a manager of its own.

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
