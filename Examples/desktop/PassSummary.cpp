#include "PassSummary.h"

#include <KivResource/KivResource.h>
#include <QCoreApplication>

namespace {

QString tr(const char* text) {
  return QCoreApplication::translate("PassSummary", text);
}

QString text(std::string_view utf8) {
  return QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size()));
}

QString reasonOf(const std::optional<kiv::Error>& error) {
  return error ? text(error->localizedDescription()) : tr("No data came.");
}

QStringList triesOf(const KivRESTServiceMetrics& metrics) {
  QStringList tries;
  for (const KivRESTServiceFailedTry& failed : metrics.failedTries) {
    const QString answer =
        failed.error ? text(kiv::nameOf(*failed.error)) : tr("status %1").arg(failed.statusCode);
    tries.append(
        QString("%1: %2").arg(text(kiv::displayedURL(failed.server.absoluteString())), answer));
  }
  return tries;
}

/// Adds the count with its word, such as "2 new", unless it is 0.
void addCount(QStringList& counts, std::size_t count, const QString& word) {
  if (count != 0) counts.append(QString("%1 %2").arg(count).arg(word));
}

QString changesOf(const KivResourcePassReport& report) {
  using Outcome = KivResourcePassEntryOutcome;
  if (report.outcome == KivResourcePassOutcome::refused) return tr("another pass is running");
  QStringList counts;
  addCount(counts, report.count(Outcome::added), tr("new"));
  addCount(counts, report.count(Outcome::replaced), tr("replaced"));
  addCount(counts, report.dropped.size(), tr("dropped"));
  addCount(counts, report.count(Outcome::notEnded), tr("not loaded"));
  addCount(counts, report.count(Outcome::invalid), tr("invalid"));
  return counts.join(", ");
}

/// The failure of a resource, with the tries for its files.
PassFailure failureOf(const KivResourcePassEntry& entry) {
  PassFailure failure{text(entry.name), reasonOf(entry.error)};
  for (const KivResourcePassFile& file : entry.files) {
    if (file.outcome == KivResourcePassFileOutcome::failed)
      failure.tries.append(triesOf(file.metrics));
  }
  return failure;
}

}  // namespace

PassSummary PassSummary::of(const KivResourcePassReport& report) {
  PassSummary summary{changesOf(report), {}};
  if (report.outcome == KivResourcePassOutcome::refused) return summary;
  for (const KivResourcePassEntry& entry : report.entries) {
    if (entry.outcome == KivResourcePassEntryOutcome::failed)
      summary.failures.append(failureOf(entry));
  }
  if (report.saveError)
    summary.failures.append({tr("The list of resources"), reasonOf(report.saveError)});
  return summary;
}

PassSummary PassSummary::of(const KivResourceRevalidationReport& report) {
  using Outcome = KivResourceRevalidationFileOutcome;
  if (report.outcome == KivResourceRevalidationOutcome::refused)
    return {tr("another check is running"), {}};
  QStringList counts;
  addCount(counts, report.count(Outcome::unchanged), tr("unchanged"));
  addCount(counts, report.count(Outcome::replaced), tr("changed and fetched"));
  addCount(counts, report.count(Outcome::notEnded), tr("not checked"));
  PassSummary summary{counts.join(", "), {}};
  for (const KivResourceRevalidationFile& file : report.files) {
    if (file.outcome == Outcome::failed)
      summary.failures.append({text(file.link), reasonOf(file.error), triesOf(file.metrics)});
  }
  return summary;
}

PassSummary PassSummary::failed(const PassFailure& failure) {
  return {QString(), {failure}};
}
