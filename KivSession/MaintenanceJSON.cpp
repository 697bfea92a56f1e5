#include "KivSession/MaintenanceJSON.h"

#include "KivSession/ResourceJSON.h"

namespace kiv::session {

namespace {

Dictionary itemJSON(const KivResourceMaintenance::Item& item) {
  return {{"path", item.path},
          {"size", item.size},
          {"resourceID", item.resourceID.empty() ? Value() : Value(item.resourceID)}};
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
  Array refused;
  for (const auto& [item, error] : cleanUp.refused) {
    auto entry = itemJSON(item);
    entry.set("error", errorJSON(error));
    refused.append(entry);
  }
  line.set("removed", itemsJSON(cleanUp.removed));
  line.set("refused", refused);
}

}  // namespace kiv::session
