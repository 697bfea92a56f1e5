#pragma once

#include "CacheListener.h"

struct KivConfigurationCheck;
struct KivResourcePassReport;
struct KivResourceRevalidationReport;
struct KivRESTServiceProgress;

/// Reports of the framework in the words of the window, such as "3 new, 1 replaced, 2 unchanged, 1
/// failed". Servers are shown without user, password and query.
Outcome outcomeOf(const KivResourcePassReport& report);
Outcome outcomeOf(const KivResourceRevalidationReport& report);
Outcome outcomeOf(const KivConfigurationCheck& check);

/// Such as "2 of 6 files, 1.2 MB of 3.0 MB".
std::string textOf(const KivRESTServiceProgress& progress);

/// Such as "1.2 MB".
std::string textOfSize(std::uint64_t bytes);
