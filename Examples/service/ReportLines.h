#pragma once

#include <KivResource/KivResource.h>

// What the log says of checks, passes, revalidations and trims: a line for each failure, and one in
// all.

/// The check and, if it ran one, its pass.
void logCheck(const KivConfigurationCheck& check);
void logRevalidation(const KivResourceRevalidationReport& report);
/// Nothing, if nothing was removed and the bound is kept.
void logTrim(const KivResourceTrim& trim);
