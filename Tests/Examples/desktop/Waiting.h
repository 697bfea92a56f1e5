#pragma once

#include <QTest>

namespace kiv::test {

/// Runs the event loop until the predicate holds; false if the patience of a test ends before.
template <class Predicate>
bool waitUntil(Predicate predicate) {
  constexpr int patience = 60'000;  // milliseconds
  return QTest::qWaitFor(predicate, patience);
}

/// Runs what is waiting in the event loop now.
inline void runWaitingEvents() {
  QCoreApplication::processEvents();
}

}  // namespace kiv::test
