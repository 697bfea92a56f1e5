#pragma once

#include <optional>
#include <string>

#include "KivPlatform/Foundation/values/Result.h"

namespace kiv {

/// Removes the directory of an unpacked archive, or whatever lies at the path; of a link, the link.
///
/// A tree cannot be removed in one step, and a partly removed one that still has its page would be
/// taken for a whole archive. So the directory is first moved, in one step, to the storage
/// service's temporaries and removed there. If the host is killed in between, the next start
/// removes the rest.
///
/// If it cannot be moved, for example because it is on another file system, its page is removed
/// first. A kill then leaves a directory that no name leads to, and that the next archive of the
/// same name replaces.
Status removeArchiveAtPath(const std::string& path);

}  // namespace kiv
