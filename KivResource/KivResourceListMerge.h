#pragma once

#include "KivPlatform/Foundation/values/Value.h"
#include "KivResource/KivResourceList.h"

namespace kiv {

/// What a merge did to the registry.
struct ListMerge {
  ResourceArray taken;     ///< Came into the registry from the saved list.
  ResourceArray replaced;  ///< Gave way to another version; their files may go where unused.
  ResourceArray lost;      ///< New in the registry, and left it because a file of theirs is gone.
};

/// Merges the registry with a list that it does not know. `saved` is that list as it is on the disk
/// now, `base` the list as this process last read or wrote it.
///
/// The entries with one identifier count together. Where only one side changed them since `base`,
/// they become what that side has made of them: added, replaced or removed. Where both did, the
/// side that has the greatest stamp wins, and this process where the stamps are equal. What comes
/// from the saved list comes as at a start, when its files are there. What is new in the registry
/// and has lost a file leaves it.
///
/// The order becomes that of the saved list, followed by what it does not have, in the order of the
/// registry. A resource that both have stays the same object.
ListMerge mergeIntoRegistry(const Array& base, const Array& saved, ResourceList& registry);

}  // namespace kiv
