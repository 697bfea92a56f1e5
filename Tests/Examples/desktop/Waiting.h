#pragma once

#include <QTest>

namespace kiv::test {

/// Runs the event loop until the predicate is true; false after the test time-out.
template <class Predicate>
bool waitUntil(Predicate predicate) {
  constexpr int patience = 60'000;  // milliseconds
  return QTest::qWaitFor(predicate, patience);
}

/// Processes all pending events.
inline void runWaitingEvents() {
  QCoreApplication::processEvents();
}

}  // namespace kiv::test
