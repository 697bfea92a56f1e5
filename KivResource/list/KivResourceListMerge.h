#pragma once

#include "KivPlatform/Foundation/values/Value.h"
#include "KivResource/list/KivResourceList.h"

namespace kiv {

/// What a merge did to the registry.
struct ListMerge {
  ResourceArray taken;     ///< Added to the registry from the saved list.
  ResourceArray replaced;  ///< Replaced by another version; their files may be removed if unused.
  ResourceArray lost;      ///< New in the registry, and removed because a file of theirs is gone.
};

/// Merges the registry with a list that another process has saved. `saved` is that list as it is on
/// the disk now, `base` the list as this process last read or wrote it.
///
/// The entries with one identifier are merged together. If only one side changed them since `base`,
/// that side's change is taken: an addition, a replacement or a removal. If both sides did, the one
/// with the greatest stamp wins, and this process if the stamps are equal. An entry of the saved
/// list is taken only if its files are there, as at a start. A resource that is new in the registry
/// and has lost a file is removed.
///
/// The order becomes that of the saved list, followed by the resources that it does not have, in
/// the order of the registry. A resource that both have stays the same object.
ListMerge mergeIntoRegistry(const Array& base, const Array& saved, ResourceList& registry);

}  // namespace kiv
