#include "Report.h"

#include <KivResource/KivResource.h>
#include <chrono>
#include <initializer_list>
#include <utility>

namespace {

/// The counts that are not 0.
template <class Report, class Value>
std::string countsOf(const Report& report,
                     std::initializer_list<std::pair<Value, const char*>> words) {
  std::string text;
  for (const auto& [value, word] : words) {
    const std::size_t count = report.count(value);
    if (count == 0) continue;
    if (!text.empty()) text += ", ";
    text += std::to_string(count) + " " + word;
  }
  return text.empty() ? "nothing to do" : text;
}

std::string textOf(const std::optional<kiv::Error>& error) {
  return error ? kiv::escapingControlCharacters(error->localizedDescription()) : std::string();
}

std::string shown(const std::string& link) {
  return kiv::escapingControlCharacters(kiv::displayedURL(link));
}

std::string textOf(const KivRESTServiceFailedTry& failed) {
  const std::string server = shown(failed.server.absoluteString()) + ": ";
  if (!failed.error) return server + "status " + std::to_string(failed.statusCode);
  return server + "error " + std::string(kiv::nameOf(*failed.error));
}

/// Of a file of a pass or of a revalidation.
template <class File>
Failure failureOf(const File& file) {
  Failure failure{shown(file.link), textOf(file.error), {}};
  for (const auto& failed : file.metrics.failedTries)
    failure.tries.push_back(textOf(failed));
  return failure;
}

void addFailures(const KivResourcePassEntry& entry, std::vector<Failure>& failures) {
  using Entry = KivResourcePassEntryOutcome;
  if (entry.outcome == Entry::invalid || entry.outcome == Entry::incomplete) {
    failures.push_back({kiv::escapingControlCharacters(entry.name),
                        kiv::escapingControlCharacters(entry.reason),
                        {}});
  }
  if (entry.outcome != Entry::failed) return;
  const std::size_t before = failures.size();
  for (const auto& file : entry.files) {
    if (file.outcome == KivResourcePassFileOutcome::failed) failures.push_back(failureOf(file));
  }
  if (failures.size() == before) {
    failures.push_back({kiv::escapingControlCharacters(entry.name), textOf(entry.error), {}});
  }
}

const char* beginningOf(KivResourcePassOutcome outcome) {
  switch (outcome) {
    case KivResourcePassOutcome::done:
      return "";
    case KivResourcePassOutcome::nothingSelected:
      return "No resource in the configuration: ";
    case KivResourcePassOutcome::refused:
      return "Refused, another pass runs: ";
    case KivResourcePassOutcome::stopped:
      return "Stopped: ";
    case KivResourcePassOutcome::abandoned:
      return "Abandoned: ";
  }
  return "";
}

}  // namespace

Outcome outcomeOf(const KivResourcePassReport& report) {
  using Entry = KivResourcePassEntryOutcome;
  Outcome outcome{beginningOf(report.outcome) +
                  countsOf<KivResourcePassReport, Entry>(report, {{Entry::added, "new"},
                                                                  {Entry::replaced, "replaced"},
                                                                  {Entry::unchanged, "unchanged"},
                                                                  {Entry::removed, "removed again"},
                                                                  {Entry::failed, "failed"},
                                                                  {Entry::incomplete, "incomplete"},
                                                                  {Entry::notEnded, "not loaded"},
                                                                  {Entry::invalid, "invalid"}})};
  if (!report.dropped.empty()) {
    outcome.summary += ", " + std::to_string(report.dropped.size()) + " dropped";
  }
  if (report.saveError) outcome.summary += ". Not saved: " + textOf(report.saveError);
  for (const auto& entry : report.entries)
    addFailures(entry, outcome.failures);
  return outcome;
}

Outcome outcomeOf(const KivResourceRevalidationReport& report) {
  using File = KivResourceRevalidationFileOutcome;
  const bool isDone = report.outcome == KivResourceRevalidationOutcome::done;
  Outcome outcome{
      (isDone ? "Checked: " : "Check ended early: ") +
      countsOf<KivResourceRevalidationReport, File>(report, {{File::replaced, "changed"},
                                                             {File::unchanged, "unchanged"},
                                                             {File::failed, "failed"},
                                                             {File::unknown, "not asked about"},
                                                             {File::removed, "gone"},
                                                             {File::notEnded, "not answered"}})};
  for (const auto& file : report.files) {
    if (file.outcome == File::failed) outcome.failures.push_back(failureOf(file));
  }
  return outcome;
}

Outcome outcomeOf(const KivConfigurationCheck& check) {
  Outcome outcome = check.report ? outcomeOf(*check.report) : Outcome();
  if (check.outcome == KivConfigurationOutcome::unchanged) {
    outcome.summary = "The configuration has not changed";
  }
  if (check.outcome == KivConfigurationOutcome::failed) {
    outcome.summary = check.report ? "No new configuration. With the saved one: " + outcome.summary
                                   : "No new configuration";
    outcome.failures.insert(outcome.failures.begin(), {"Configuration", textOf(check.error), {}});
  }
  if (check.nextCheck) {
    const auto minutes = std::chrono::ceil<std::chrono::minutes>(*check.nextCheck).count();
    outcome.summary += ". Next check in " + std::to_string(minutes) + " min";
  }
  return outcome;
}

std::string textOf(const KivRESTServiceProgress& progress) {
  const auto files = progress.tasksWaiting + progress.tasksRunning + progress.tasksEnded;
  std::string text = std::to_string(progress.tasksEnded) + " of " + std::to_string(files) +
                     " files, " + textOfSize(static_cast<std::uint64_t>(progress.bytesReceived));
  if (progress.bytesExpected) {
    text += " of " + textOfSize(static_cast<std::uint64_t>(*progress.bytesExpected));
  }
  return text;
}

std::string textOfSize(std::uint64_t bytes) {
  char* const text = g_format_size(bytes);
  std::string size = text;
  g_free(text);
  return size;
}
