#include "KivSession/MaintenanceJSON.h"

#include "KivSession/ResourceJSON.h"

namespace kiv::session {

namespace {

Dictionary itemJSON(const KivResourceMaintenance::Item& item) {
  return {{"path", item.path},
          {"size", item.size},
          {"resourceID", item.resourceID.empty() ? Value() : Value(item.resourceID)}};
}

Array refusalsJSON(const std::vector<KivResourceMaintenance::Refusal>& refusals) {
  Array refused;
  for (const auto& [item, error] : refusals) {
    auto entry = itemJSON(item);
    entry.set("error", errorJSON(error));
    refused.append(entry);
  }
  return refused;
}

}  // namespace

Array itemsJSON(const std::vector<KivResourceMaintenance::Item>& items) {
  Array array;
  for (const auto& item : items)
    array.append(itemJSON(item));
  return array;
}

void addAudit(Dictionary& line, const KivResourceMaintenance::Audit& audit) {
  line.set("missing", itemsJSON(audit.missing));
  line.set("unreadable", itemsJSON(audit.unreadable));
  line.set("orphaned", itemsJSON(audit.orphaned));
  line.set("partial", itemsJSON(audit.partial));
  line.set("temporary", itemsJSON(audit.temporary));
  line.set("leased", itemsJSON(audit.leased));
}

void addCleanUp(Dictionary& line, const KivResourceMaintenance::CleanUp& cleanUp) {
  line.set("removed", itemsJSON(cleanUp.removed));
  line.set("refused", refusalsJSON(cleanUp.refused));
}

void addTrim(Dictionary& line, const KivResourceTrim& trim) {
  Array resources;
  for (const auto& [resourceID, updated] : trim.resources)
    resources.append(Dictionary{{"resourceID", resourceID}, {"updated", updated}});
  line.set("removed", itemsJSON(trim.removed));
  line.set("resources", resources);
  line.set("refused", refusalsJSON(trim.refused));
  line.set("listError", errorJSON(trim.listError));
  line.set("usedBefore", trim.usedBefore);
  line.set("usedAfter", trim.usedAfter);
  line.set("isBoundKept", trim.isBoundKept);
}

}  // namespace kiv::session
