#pragma once

#include <QString>
#include <QtGlobal>

class KivResourceManager;

/// What is to be removed so that the cache takes less space.
struct SpaceBound {
  qint64 bytes = 0;
  /// Also loaded resources, those first that were not shown for the longest time. Without it only
  /// files that no resource uses.
  bool includesResources = false;
};

/// What freeing space has removed or, if it is a plan, would remove.
struct SpaceSummary {
  qint64 usedBefore = 0;  ///< Bytes.
  qint64 usedAfter = 0;
  qsizetype files = 0;  ///< Those that no resource uses, and those of the removed resources.
  qsizetype resources = 0;
  bool isBoundKept = false;
  QString problem;  ///< In words, if something could not be removed.
};

/// Both are called on the manager's queue, and take time.
SpaceSummary planSpace(KivResourceManager& manager, const SpaceBound& bound);
SpaceSummary freeSpace(KivResourceManager& manager, const SpaceBound& bound);
