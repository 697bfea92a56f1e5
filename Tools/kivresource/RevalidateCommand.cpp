// The command revalidate: one line for each file that was replaced or could not be.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "KivResource/KivResource.h"
#include "KivSession/PassReportJSON.h"
#include "Tools/kivresource/Commands.h"
#include "Tools/kivresource/ExitStatus.h"
#include "Tools/kivresource/HeadersFile.h"
#include "Tools/kivresource/Host.h"
#include "Tools/kivresource/InterruptWatch.h"
#include "Tools/kivresource/PassView.h"
#include "Tools/kivresource/Text.h"

namespace tool {

namespace {

using FileOutcome = KivResourceRevalidationFileOutcome;

std::string summary(const KivResourceRevalidationReport& report) {
  std::string text = counted(report.files.size(), "file");
  const auto add = [&](FileOutcome outcome, std::string_view what) {
    const std::size_t count = report.count(outcome);
    if (count > 0) text.append(", ").append(std::to_string(count)).append(" ").append(what);
  };
  add(FileOutcome::unchanged, "unchanged");
  add(FileOutcome::replaced, "replaced");
  add(FileOutcome::failed, "failed");
  add(FileOutcome::removed, "removed meanwhile");
  add(FileOutcome::unknown, "not asked for");
  add(FileOutcome::notEnded, "not ended");
  return text;
}

void show(PassView& view, const KivResourceRevalidationReport& report) {
  for (const auto& file : report.files) {
    const std::string name = kiv::escapingControlCharacters(file.path);
    if (file.outcome == FileOutcome::replaced) view.showReplaced(name);
    if (file.outcome != FileOutcome::failed) continue;
    view.showFailure(name, file.error ? file.error->localizedDescription() : "no contents came");
  }
  const bool isStopped = report.outcome == KivResourceRevalidationOutcome::stopped;
  view.showEnd((isStopped ? "stopped; " : "") + summary(report));
}

}  // namespace

int runRevalidate(const Options& options) {
  const auto headers = HeadersFile::read(options);
  if (!headers || !configureFramework(options)) return exitStatus::usage;
  if (!options.json) keepLogFromTerminal();
  const auto manager = KivResourceManager::sharedInstance();
  headers->addTo(*manager->loader()->restService());
  PassView view;
  int stoppedBy = 0;
  const InterruptWatch watch([&](int signal) {
    stoppedBy = signal;
    manager->stopLoading();
  });
  const auto queue = kiv::DispatchQueue::main();
  std::optional<KivResourceRevalidationReport> report;
  manager->revalidate([&](const auto& made) { report = made; }, {options.id, options.type});
  if (!options.json) {
    manager->loader()->restService()->setProgressHandler(
        [&](const auto& progress) { view.showProgress(progress); });
  }
  while (!report)
    queue->drainFor(std::chrono::hours(1));
  manager->loader()->restService()->setProgressHandler({});
  while (queue->drain() > 0) {
  }
  if (options.json) {
    printJSONLine(kiv::session::revalidationReportLine(*report, nullptr));
  } else {
    show(view, *report);
  }
  if (stoppedBy != 0) return exitStatus::signalled + stoppedBy;
  const bool hasFailed = report->count(FileOutcome::failed) > 0;
  if (hasFailed && !options.mainURL) complain("no main server is named: see --main");
  return hasFailed ? exitStatus::failure : exitStatus::success;
}

}  // namespace tool
