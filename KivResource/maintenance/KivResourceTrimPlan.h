#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kiv {

/// An item that resources use.
struct SharedItem {
  std::uint64_t size = 0;
  std::size_t users = 0;  ///< Also those that cannot be removed.
};

/// The items of each resource that may be removed, as indexes; each item once.
using ItemsOfUsers = std::vector<std::vector<std::size_t>>;

/// Chooses users to be removed, in their order, until items of that many bytes have no users left
/// or there are no more users. Users without whose removal as much would be freed are left out.
/// Reduces the users of the items accordingly. Takes linear time.
std::vector<std::size_t> chooseUsers(const ItemsOfUsers& users, std::vector<SharedItem>& items,
                                     std::uint64_t bytes);

}  // namespace kiv
