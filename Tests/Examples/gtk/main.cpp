// Runs the tests of the GTK window. CTest runs each test in a separate process.

#include <gtk/gtk.h>

#include <gtest/gtest.h>

int main(int count, char** arguments) {
  testing::InitGoogleTest(&count, arguments);
  if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();  // needs no display
  // A warning of GTK's about a wrong use of it fails the test.
  g_log_set_always_fatal(GLogLevelFlags(G_LOG_LEVEL_CRITICAL | G_LOG_FATAL_MASK));
  gtk_init();
  return RUN_ALL_TESTS();
}
