// The commands load and update, which run one pass and show its progress.

#include <chrono>
#include <memory>
#include <unistd.h>
#include <utility>

#include "KivResource/KivResource.h"
#include "KivSession/ConfigurationFile.h"
#include "KivSession/PassReportJSON.h"
#include "KivSession/Session.h"
#include "KivSession/SessionEvents.h"
#include "Tools/kivresource/Commands.h"
#include "Tools/kivresource/ConfigurationCheck.h"
#include "Tools/kivresource/ExitStatus.h"
#include "Tools/kivresource/HeadersFile.h"
#include "Tools/kivresource/Host.h"
#include "Tools/kivresource/InterruptWatch.h"
#include "Tools/kivresource/PassOutcome.h"
#include "Tools/kivresource/PassView.h"
#include "Tools/kivresource/Text.h"

namespace tool {

namespace {

/// Drains the main queue until the pass has ended and all its callbacks have run. Returns the
/// signal that stopped the pass, or 0.
int runPass(KivResourceManager& manager, const KivResourcePass& pass,
            const KivResourcePassReportHandler& handler) {
  int stoppedBy = 0;
  const InterruptWatch watch([&](int signal) {
    stoppedBy = signal;
    manager.stopLoading();
  });
  const auto queue = kiv::DispatchQueue::main();
  manager.startPass(pass, handler);
  while (manager.loadingResourcesFilesCount() > 0)
    queue->drainFor(std::chrono::hours(1));
  while (queue->drain() > 0) {
  }
  return stoppedBy;
}

void printReport(const KivResourcePassReport& report) {
  printJSONLine(kiv::session::passReportLine(report, nullptr));
}

void showWhatIsMissing(PassView& view, const Options& options, const ConfigurationCheck& check,
                       const PassOutcome& outcome) {
  for (const auto& [place, text] : check.unacceptable)
    view.showFailure("item " + std::to_string(place), text);
  for (const auto& resourceID : outcome.unheardOf(check.resourceIDs)) {
    view.showFailure(kiv::escapingControlCharacters(resourceID), "its files are not complete");
  }
  if (outcome.failed() > 0 && !options.mainURL) {
    complain("no main server is named: see --main");
  }
}

std::string summary(std::size_t loaded, std::size_t failed) {
  return counted(loaded, "resource") + " loaded" +
         (failed > 0 ? ", " + std::to_string(failed) + " failed" : "");
}

/// Shows the result of the pass and returns the exit status.
int close(const KivResourceManager& manager, const ConfigurationCheck& check,
          const PassOutcome& outcome, int stoppedBy, PassView* view, const Options& options) {
  const std::size_t failed =
      outcome.failed() + outcome.unheardOf(check.resourceIDs).size() + check.unacceptable.size();
  if (view && stoppedBy == 0) {
    showWhatIsMissing(*view, options, check, outcome);
    view->showEnd(summary(outcome.loaded(), failed));
  } else if (view) {
    view->showEnd("stopped; " + counted(outcome.loaded(), "resource") + " loaded");
  }
  const auto complaint = kiv::session::complaintOfSaving(manager);
  if (complaint) complain(*complaint);
  if (stoppedBy != 0) return exitStatus::signalled + stoppedBy;
  return failed == 0 && !complaint ? exitStatus::success : exitStatus::failure;
}

/// "-" is standard input.
kiv::Result<kiv::Value> readConfiguration(const std::string& path) {
  if (path == "-") return kiv::session::readConfiguration(STDIN_FILENO, "standard input");
  return kiv::session::readConfigurationFile(path);
}

int passWithConfig(const Options& options, KivResourcePass pass) {
  auto config = readConfiguration(options.config);
  if (!config) {
    complain(config.error().localizedDescription());
    return exitStatus::usage;
  }
  const auto headers = HeadersFile::read(options);
  if (!headers || !configureFramework(options)) return exitStatus::usage;
  const auto check = ConfigurationCheck::of(*config, options.id, options.type);
  for (const auto& [place, text] : check.odd)
    complain("item " + std::to_string(place) + ": " + text);
  if (!options.json) keepLogFromTerminal();

  const auto manager = KivResourceManager::sharedInstance();
  const auto view = options.json ? nullptr : std::make_shared<PassView>(options.verbose);
  const auto outcome = std::make_shared<PassOutcome>(view);
  const auto lines =
      options.json ? std::make_shared<kiv::session::SessionEvents>(printJSONLine) : nullptr;
  manager->addObserver(outcome);
  manager->addObserver(lines);
  if (view) {
    manager->loader()->restService()->setProgressHandler(
        [view](const auto& progress) { view->showProgress(progress); });
    manager->loader()->restService()->setEndHandler(
        [view](const auto& task) { view->noteEnd(task); });
  }
  headers->addTo(*manager->loader()->restService());
  pass.config = *std::move(config);
  const int stoppedBy = runPass(*manager, pass, [&](const KivResourcePassReport& report) {
    if (options.json && options.verbose) printReport(report);
  });
  return close(*manager, check, *outcome, stoppedBy, view.get(), options);
}

}  // namespace

int runLoad(const Options& options) {
  KivResourcePass pass;
  pass.resourceID = options.id;
  pass.type = options.type;
  return passWithConfig(options, std::move(pass));
}

int runUpdate(const Options& options) {
  return passWithConfig(options, KivResourcePass::update({}));
}

}  // namespace tool
