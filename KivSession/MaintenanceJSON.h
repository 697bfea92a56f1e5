#pragma once

#include "KivResource/KivResource.h"

namespace kiv::session {

Array itemsJSON(const std::vector<KivResourceMaintenance::Item>& items);
/// Adds the lists of the audit, each under its name.
void addAudit(Dictionary& line, const KivResourceMaintenance::Audit& audit);
/// Adds "removed" and "refused".
void addCleanUp(Dictionary& line, const KivResourceMaintenance::CleanUp& cleanUp);
/// Adds the members of the trim, each under its name.
void addTrim(Dictionary& line, const KivResourceTrim& trim);

}  // namespace kiv::session
