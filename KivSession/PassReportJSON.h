#pragma once

#include "KivResource/KivResource.h"

namespace kiv::session {

/// The report of a pass as a line. `tag` is that of the call that started it, or null.
Dictionary passReportLine(const KivResourcePassReport& report, const Value& tag);

/// What came of a check for a new configuration as a line. `tag` is that of the call `follow`, or
/// null.
Dictionary checkLine(const KivConfigurationCheck& check, const Value& tag);

/// The same as passReportLine() for the report of a revalidation.
Dictionary revalidationReportLine(const KivResourceRevalidationReport& report, const Value& tag);

}  // namespace kiv::session
