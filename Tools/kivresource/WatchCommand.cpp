// The command watch: an updater, and the lines that tell of its checks and passes.

#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KivResource/KivResource.h"
#include "KivSession/PassReportJSON.h"
#include "KivSession/ResourceJSON.h"
#include "KivSession/Session.h"
#include "KivSession/SessionEvents.h"
#include "Tools/kivresource/Commands.h"
#include "Tools/kivresource/ExitStatus.h"
#include "Tools/kivresource/HeadersFile.h"
#include "Tools/kivresource/Host.h"
#include "Tools/kivresource/InterruptWatch.h"
#include "Tools/kivresource/PassOutcome.h"
#include "Tools/kivresource/PassView.h"
#include "Tools/kivresource/Text.h"

namespace tool {

namespace {

using Entry = KivResourcePassEntryOutcome;

/// What a pass did, counted.
struct Counts {
  explicit Counts(const KivResourcePassReport& report)
      : loaded(report.count(Entry::added) + report.count(Entry::replaced) +
               report.count(Entry::unchanged) + report.count(Entry::removed)),
        failed(report.entries.size() - loaded),
        dropped(report.dropped.size()) {}

  std::size_t loaded;
  std::size_t failed;
  std::size_t dropped;
};

std::string summary(const KivResourcePassReport& report) {
  const Counts counts(report);
  std::string text = counted(counts.loaded, "resource") + " loaded";
  if (counts.failed > 0) text += ", " + std::to_string(counts.failed) + " failed";
  if (counts.dropped > 0) text += ", " + std::to_string(counts.dropped) + " dropped";
  return text;
}

/// Shows checks and passes for a person. Each check has a view of its own, so that nothing piles
/// up while the tool runs for months.
class WatchView {
 public:
  WatchView(KivResourceManager& manager, std::string url)
      : manager_(manager), url_(std::move(url)) {
    renew();
  }

  void show(const KivConfigurationCheck& check) {
    if (check.outcome == KivConfigurationOutcome::postponed) return;
    if (check.error) view_->showFailure(url_, check.error->localizedDescription());
    if (check.report) showWhatIsMissing(*check.report);
    view_->showEnd(lineOf(check));
    renew();
  }

 private:
  void renew() {
    view_ = std::make_shared<PassView>();
    outcome_ = std::make_shared<PassOutcome>(view_);
    manager_.addObserver(outcome_);
    const auto client = manager_.loader()->restService();
    client->setProgressHandler(
        [view = view_](const auto& progress) { view->showProgress(progress); });
    client->setEndHandler([view = view_](const auto& task) { view->noteEnd(task); });
  }

  /// What observers are not told.
  void showWhatIsMissing(const KivResourcePassReport& report) {
    for (const auto& entry : report.entries) {
      if (entry.outcome == Entry::invalid) {
        view_->showFailure("item " + std::to_string(entry.item + 1), entry.reason);
      } else if (entry.outcome == Entry::incomplete) {
        view_->showFailure(kiv::escapingControlCharacters(entry.resourceID), entry.reason);
      }
    }
  }

  static std::string lineOf(const KivConfigurationCheck& check) {
    std::string line(kiv::nameOf(check.outcome));
    if (!check.report) return line;
    const bool isSaved = check.outcome == KivConfigurationOutcome::failed;
    return line + (isSaved ? "; with the saved configuration: " : ": ") + summary(*check.report);
  }

  KivResourceManager& manager_;
  const std::string url_;
  std::shared_ptr<PassView> view_;
  std::shared_ptr<PassOutcome> outcome_;
};

kiv::Dictionary lineOf(const KivConfigurationCheck& check) {
  kiv::Dictionary line{{"event", "didCheckConfiguration"},
                       {"outcome", kiv::nameOf(check.outcome)},
                       {"status", check.statusCode},
                       {"error", kiv::session::errorJSON(check.error)}};
  if (check.nextCheck) line.set("nextCheck_ms", check.nextCheck->count());
  return line;
}

/// Only these can be fetched: a mistake is told at once, and not with each check.
std::optional<kiv::URL> readURL(const std::string& text) {
  auto url = kiv::URL::fromString(text);
  const bool isWeb = url && (url->scheme() == "http" || url->scheme() == "https");
  if (isWeb && !url->host().empty()) return url;
  complain("\"" + text + "\" is no http or https URL");
  return std::nullopt;
}

std::optional<KivConfigurationUpdaterOptions> readUpdaterOptions(const Options& options) {
  KivConfigurationUpdaterOptions read;
  read.interval = std::chrono::seconds(options.interval);
  for (const auto& text : options.mirrors) {
    auto url = readURL(text);
    if (!url) return std::nullopt;
    read.mirrors.push_back(*std::move(url));
  }
  return read;
}

void complainOfSaving(const KivConfigurationCheck& check, const KivResourceManager& manager) {
  if (check.saveError) {
    complain("the configuration could not be saved: " + check.saveError->localizedDescription());
  }
  if (const auto complaint = kiv::session::complaintOfSaving(manager)) complain(*complaint);
}

}  // namespace

int runWatch(const Options& options) {
  const auto url = readURL(options.url);
  auto updaterOptions = readUpdaterOptions(options);
  if (!url || !updaterOptions) return exitStatus::usage;
  const auto headers = HeadersFile::read(options);
  if (!headers || !configureFramework(options)) return exitStatus::usage;
  if (!options.json) keepLogFromTerminal();

  const auto manager = KivResourceManager::sharedInstance();
  const auto lines =
      options.json ? std::make_shared<kiv::session::SessionEvents>(printJSONLine) : nullptr;
  manager->addObserver(lines);
  std::optional<WatchView> view;
  if (!options.json) view.emplace(*manager, kiv::displayedURL(options.url));
  const auto queue = kiv::DispatchQueue::main();
  KivConfigurationUpdater updater(manager, *url, *std::move(updaterOptions));
  headers->addTo(*manager->loader()->restService());
  headers->addTo(*updater.restService());
  updater.setCheckHandler([&](const KivConfigurationCheck& check) {
    if (view) view->show(check);
    if (!view && check.report) {
      printJSONLine(kiv::session::passReportLine(*check.report, nullptr));
    }
    if (!view) printJSONLine(lineOf(check));
    complainOfSaving(check, *manager);
    if (!std::cout) queue->stop();  // nobody can read more
  });

  int stoppedBy = 0;
  const InterruptWatch watch([&](int signal) {
    stoppedBy = signal;
    updater.stop();
    manager->stopLoading();
    queue->stop();
  });
  updater.start();
  queue->run();
  while (queue->drain() > 0) {
  }
  return stoppedBy != 0 ? exitStatus::signalled + stoppedBy : exitStatus::failure;
}

}  // namespace tool
