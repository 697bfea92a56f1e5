#include "Upkeep.h"

#include <KivResource/KivResource.h>
#include <QCoreApplication>
#include <algorithm>

namespace {

QString problemOf(const KivResourceTrim& trim) {
  if (trim.listError) return QString::fromStdString(trim.listError->localizedDescription());
  if (trim.refused.empty()) return {};
  return QString::fromStdString(trim.refused.front().error.localizedDescription());
}

SpaceSummary trim(KivResourceManager& manager, const SpaceBound& bound,
                  KivResourceMaintenance::Mode mode) {
  using Rule = KivResourceTrimOptions::Rule;
  KivResourceTrimOptions options;
  options.bytes = static_cast<std::uint64_t>(std::max<qint64>(bound.bytes, 0));
  options.rule = bound.includesResources ? Rule::leastRecentlyShown : Rule::orphansOnly;
  std::optional<kiv::Error> error;
  const auto trimmed = KivResourceMaintenance::trim(manager, options, mode, &error);
  SpaceSummary summary;
  if (!trimmed) {
    summary.problem = QString::fromStdString(error ? error->localizedDescription() : std::string());
    return summary;
  }
  summary.usedBefore = static_cast<qint64>(trimmed->usedBefore);
  summary.usedAfter = static_cast<qint64>(trimmed->usedAfter);
  summary.files = static_cast<qsizetype>(trimmed->removed.size());
  summary.resources = static_cast<qsizetype>(trimmed->resources.size());
  summary.isBoundKept = trimmed->isBoundKept;
  summary.problem = problemOf(*trimmed);
  return summary;
}

}  // namespace

SpaceSummary planSpace(KivResourceManager& manager, const SpaceBound& bound) {
  return trim(manager, bound, KivResourceMaintenance::Mode::dryRun);
}

SpaceSummary freeSpace(KivResourceManager& manager, const SpaceBound& bound) {
  return trim(manager, bound, KivResourceMaintenance::Mode::remove);
}
