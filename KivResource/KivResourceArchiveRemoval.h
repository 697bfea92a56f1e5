#pragma once

#include <optional>
#include <string>

#include "KivPlatform/Foundation/values/Error.h"

namespace kiv {

/// Removes the directory of an unpacked archive, or whatever lies at the path; of a link, the link.
///
/// A tree cannot be removed in one step, and what is left of one whose page is still there would be
/// taken for the whole archive. So the directory leaves its place in one step and is removed among
/// the storage service's temporaries: what a host that is killed in between leaves there, the next
/// start removes.
///
/// One that cannot be moved there, because it lies on another file system, say, loses its page
/// first: what a kill leaves is then a directory that no name leads to, and that the next archive
/// of the name replaces.
bool removeArchiveAtPath(const std::string& path, std::optional<Error>* error);

}  // namespace kiv
