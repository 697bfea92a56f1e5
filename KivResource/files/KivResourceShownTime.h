#pragma once

#include <cstdint>
#include <optional>
#include <string>

class KivResource;

namespace kiv {

/// Notes that the resource is shown now, as the modification time of its stored files: of each file
/// in the resources directory or in a lease, and of the page of an archive. Other files are left
/// alone. Failures are ignored.
///
/// These times survive a restart, need no file of their own, and are common to all processes on the
/// root. They are not synced. A revalidation recognises the file by the rest of its identity
/// (kiv::StoredVersion).
void noteShown(const KivResource& resource);

/// When something was shown of the stored item, a file or the directory of an archive, or when it
/// was stored if that was never noted: nanoseconds since 1970. Nothing if it is not there.
std::optional<std::int64_t> shownTimeOfItemAtPath(const std::string& item);

}  // namespace kiv
