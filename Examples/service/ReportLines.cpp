#include "ReportLines.h"

#include <array>
#include <string>

#include "ServiceLog.h"

namespace {

using Entry = KivResourcePassEntryOutcome;
using PassFile = KivResourcePassFileOutcome;
using Checked = KivResourceRevalidationFileOutcome;

template <class Outcome>
std::string textOf(Outcome outcome) {
  return std::string(kiv::nameOf(outcome));
}

/// The servers that were asked, each with its answer.
std::string triesText(const KivRESTServiceMetrics& metrics) {
  std::string text;
  for (const KivRESTServiceFailedTry& failed : metrics.failedTries) {
    text += (text.empty() ? "; tried " : ", ") + kiv::displayedURL(failed.server.absoluteString()) +
            " (";
    text += failed.error ? textOf(*failed.error) : "status " + std::to_string(failed.statusCode);
    text += ")";
  }
  return text;
}

std::string reasonText(const std::optional<kiv::Error>& error) {
  return error ? error->localizedDescription() : "no data came";
}

/// The outcomes that occurred, with their numbers: ", 2 added, 1 failed".
template <class Outcome, std::size_t size>
std::string countsText(const auto& report, const std::array<Outcome, size>& outcomes) {
  std::string text;
  for (const auto outcome : outcomes)
    if (const auto count = report.count(outcome); count > 0)
      text += ", " + std::to_string(count) + " " + textOf(outcome);
  return text;
}

std::string costText(const auto& report) {
  return ", " + std::to_string(report.bytes) + " bytes in " +
         std::to_string(report.duration.count() / 1000) + " ms";
}

void logFailures(const std::string& pass, const KivResourcePassEntry& entry) {
  bool isExplained = false;
  for (const KivResourcePassFile& file : entry.files) {
    if (file.outcome != PassFile::failed && file.outcome != PassFile::notFound) continue;
    isExplained = true;
    writeLog(LogLevel::warning, pass + ": " + file.link + " of " + entry.resourceID + " " +
                                    textOf(file.outcome) + ": " + reasonText(file.error) +
                                    triesText(file.metrics));
  }
  const bool isWrong = entry.outcome == Entry::invalid || entry.outcome == Entry::incomplete ||
                       entry.outcome == Entry::failed;
  if (!isWrong || isExplained) return;
  const auto reason = entry.reason.empty() ? reasonText(entry.error) : entry.reason;
  writeLog(LogLevel::warning, pass + ": item " + std::to_string(entry.item) + " " +
                                  textOf(entry.outcome) + ": " + reason);
}

void logPass(const KivResourcePassReport& report) {
  static constexpr std::array outcomes{Entry::added,    Entry::replaced, Entry::unchanged,
                                       Entry::removed,  Entry::failed,   Entry::incomplete,
                                       Entry::notEnded, Entry::invalid};
  const std::string pass = "pass " + std::to_string(report.passID);
  for (const KivResourcePassEntry& entry : report.entries)
    logFailures(pass, entry);
  if (report.saveError) {
    writeLog(LogLevel::error,
             pass + ": the list could not be saved: " + reasonText(report.saveError));
  }
  std::string dropped;
  if (!report.dropped.empty()) dropped = ", " + std::to_string(report.dropped.size()) + " dropped";
  writeLog(LogLevel::info, pass + " " + textOf(report.outcome) + ": " +
                               std::to_string(report.entries.size()) + " items" +
                               countsText(report, outcomes) + dropped + costText(report));
}

}  // namespace

void logCheck(const KivConfigurationCheck& check) {
  std::string line = "check " + textOf(check.outcome);
  if (check.server) line += " by " + kiv::displayedURL(check.server->absoluteString());
  if (check.statusCode != 0) line += ", status " + std::to_string(check.statusCode);
  if (check.nextCheck)
    line += ", next in " + std::to_string(check.nextCheck->count() / 1000) + " s";
  if (check.error) line += ": " + reasonText(check.error);
  writeLog(check.error ? LogLevel::warning : LogLevel::info, line);
  if (check.saveError) {
    writeLog(LogLevel::error,
             "the configuration could not be saved: " + reasonText(check.saveError));
  }
  if (check.report) logPass(*check.report);
}

void logRevalidation(const KivResourceRevalidationReport& report) {
  static constexpr std::array outcomes{Checked::unchanged, Checked::replaced, Checked::failed,
                                       Checked::unknown,   Checked::removed,  Checked::notEnded};
  for (const KivResourceRevalidationFile& file : report.files) {
    if (file.outcome == Checked::replaced) writeLog(LogLevel::info, "replaced: " + file.path);
    if (file.outcome != Checked::failed) continue;
    writeLog(LogLevel::warning, "revalidation: " + file.link +
                                    " failed: " + reasonText(file.error) + triesText(file.metrics));
  }
  writeLog(LogLevel::info, "revalidation " + textOf(report.outcome) + ": " +
                               std::to_string(report.files.size()) + " files" +
                               countsText(report, outcomes) + costText(report));
}

void logTrim(const KivResourceTrim& trim) {
  for (const auto& refusal : trim.refused) {
    writeLog(LogLevel::warning, "trim: " + refusal.item.path + " could not be removed: " +
                                    refusal.error.localizedDescription());
  }
  if (trim.listError) {
    writeLog(LogLevel::error, "trim: the list could not be saved: " + reasonText(trim.listError));
  }
  const std::string used = std::to_string(trim.usedAfter) + " bytes are used";
  if (!trim.removed.empty() || !trim.resources.empty()) {
    writeLog(LogLevel::info, "trim: " + std::to_string(trim.resources.size()) + " resources and " +
                                 std::to_string(trim.removed.size()) + " files removed, " + used);
  }
  if (!trim.isBoundKept) {
    writeLog(LogLevel::warning, "trim: above the limit, and nothing more may be removed: " + used);
  }
}
