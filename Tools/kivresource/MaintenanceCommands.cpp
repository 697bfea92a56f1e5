// The commands audit, which reports differences between the saved list and the disk, clean, which
// removes unused files, and trim, which removes files down to a size.

#include <array>
#include <iostream>
#include <string_view>
#include <utility>

#include "KivResource/KivResource.h"
#include "KivSession/MaintenanceJSON.h"
#include "Tools/kivresource/Commands.h"
#include "Tools/kivresource/ExitStatus.h"
#include "Tools/kivresource/Host.h"
#include "Tools/kivresource/Terminal.h"
#include "Tools/kivresource/Text.h"

namespace tool {

namespace {

using Item = KivResourceMaintenance::Item;
using Items = std::vector<Item>;
using Parts = std::array<std::pair<std::string_view, const Items*>, 6>;

Parts partsOf(const KivResourceMaintenance::Audit& audit) {
  return {{{"missing", &audit.missing},
           {"unreadable", &audit.unreadable},
           {"orphaned", &audit.orphaned},
           {"partial", &audit.partial},
           {"temporary", &audit.temporary},
           {"leased", &audit.leased}}};
}

void show(const Item& item) {
  std::cout << "    " << kiv::escapingControlCharacters(item.path);
  if (item.size) std::cout << "  " << byteText(*item.size);
  if (!item.resourceID.empty())
    std::cout << "  of " << kiv::escapingControlCharacters(item.resourceID);
  std::cout << '\n';
}

void showPart(std::string_view name, const Items& items, const Terminal& terminal) {
  if (items.empty()) return;
  std::cout << terminal.styled(Terminal::Style::bold, name) << '\n';
  for (const auto& item : items)
    show(item);
}

void showSpace() {
  const auto space = KivResourceMaintenance::space();
  if (!space) return;
  std::cout << byteText(space->cacheUsed) << " used by the cache, "
            << byteText(space->fileSystemAvailable) << " free\n";
}

void showAudit(const KivResourceMaintenance::Audit& audit) {
  const Terminal terminal;
  bool isClean = true;
  for (const auto& [name, items] : partsOf(audit)) {
    showPart(name, *items, terminal);
    isClean = isClean && items->empty();
  }
  if (isClean) std::cout << "nothing is missing, orphaned or temporary\n";
  showSpace();
}

void printAudit(const KivResourceMaintenance::Audit& audit) {
  kiv::Dictionary line;
  kiv::session::addAudit(line, audit);
  printJSONLine(line);
}

int complainOf(const std::optional<kiv::Error>& error) {
  complain(error ? error->localizedDescription() : "the storage root cannot be read");
  return exitStatus::failure;
}

void showRefusals(const std::vector<KivResourceMaintenance::Refusal>& refusals) {
  const Terminal terminal;
  for (const auto& [item, error] : refusals) {
    std::cout << terminal.styled(Terminal::Style::red, "refused") << "  "
              << kiv::escapingControlCharacters(item.path) << ": "
              << kiv::escapingControlCharacters(error.description()) << '\n';
  }
}

void showCleanUp(const KivResourceMaintenance::CleanUp& cleanUp, bool dryRun) {
  const Terminal terminal;
  showPart(dryRun ? "to be removed" : "removed", cleanUp.removed, terminal);
  showRefusals(cleanUp.refused);
  if (cleanUp.removed.empty() && cleanUp.refused.empty()) std::cout << "nothing to remove\n";
}

void printCleanUp(const KivResourceMaintenance::CleanUp& cleanUp) {
  kiv::Dictionary line;
  kiv::session::addCleanUp(line, cleanUp);
  printJSONLine(line);
}

void showTrim(const KivResourceTrim& trim, const Options& options) {
  const Terminal terminal;
  showPart(options.dryRun ? "to be removed" : "removed", trim.removed, terminal);
  showRefusals(trim.refused);
  std::cout << byteText(trim.usedBefore) << " used before, " << byteText(trim.usedAfter)
            << (options.dryRun ? " would be used after" : " used after");
  if (!trim.isBoundKept) std::cout << ", which is more than " << byteText(options.bytes);
  std::cout << '\n';
}

void printTrim(const KivResourceTrim& trim) {
  kiv::Dictionary line;
  kiv::session::addTrim(line, trim);
  printJSONLine(line);
}

}  // namespace

int runAudit(const Options& options) {
  if (!configureFramework(options)) return exitStatus::usage;
  keepLogFromTerminal();
  std::optional<kiv::Error> error;
  const auto audit = KivResourceMaintenance::audit(*KivResourceManager::sharedInstance(), &error);
  if (!audit) return complainOf(error);
  options.json ? printAudit(*audit) : showAudit(*audit);
  const bool isWhole = audit->missing.empty() && audit->unreadable.empty();
  return isWhole ? exitStatus::success : exitStatus::failure;
}

int runClean(const Options& options) {
  if (!configureFramework(options)) return exitStatus::usage;
  keepLogFromTerminal();
  using Mode = KivResourceMaintenance::Mode;
  std::optional<kiv::Error> error;
  const auto cleanUp = KivResourceMaintenance::cleanUpOrphans(
      *KivResourceManager::sharedInstance(), options.dryRun ? Mode::dryRun : Mode::remove, &error);
  if (!cleanUp) return complainOf(error);
  options.json ? printCleanUp(*cleanUp) : showCleanUp(*cleanUp, options.dryRun);
  return cleanUp->refused.empty() ? exitStatus::success : exitStatus::failure;
}

int runTrim(const Options& options) {
  if (!configureFramework(options)) return exitStatus::usage;
  keepLogFromTerminal();
  using Mode = KivResourceMaintenance::Mode;
  KivResourceTrimOptions trimOptions;
  trimOptions.bytes = options.bytes;
  trimOptions.rule = options.rule;
  std::optional<kiv::Error> error;
  const auto trim =
      KivResourceMaintenance::trim(*KivResourceManager::sharedInstance(), trimOptions,
                                   options.dryRun ? Mode::dryRun : Mode::remove, &error);
  if (!trim) return complainOf(error);
  options.json ? printTrim(*trim) : showTrim(*trim, options);
  if (trim->listError) complain(trim->listError->localizedDescription());
  const bool isWhole = trim->isBoundKept && trim->refused.empty() && !trim->listError;
  return isWhole ? exitStatus::success : exitStatus::failure;
}

}  // namespace tool
