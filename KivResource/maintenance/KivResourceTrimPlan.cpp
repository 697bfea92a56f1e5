#include "KivResource/maintenance/KivResourceTrimPlan.h"

#include <algorithm>

namespace kiv {

/// A user whose items are all shared frees nothing until the others are chosen as well. So it is
/// chosen for the time being, and put back at the end if none of its items was freed.
std::vector<std::size_t> chooseUsers(const ItemsOfUsers& users, std::vector<SharedItem>& items,
                                     std::uint64_t bytes) {
  std::vector<std::size_t> chosen;
  std::uint64_t freed = 0;
  for (std::size_t user = 0; user < users.size() && freed < bytes; ++user) {
    chosen.push_back(user);
    for (const std::size_t item : users[user]) {
      if (--items[item].users == 0) freed += items[item].size;
    }
  }
  std::erase_if(chosen, [&](std::size_t user) {
    const bool isUseful = std::any_of(users[user].begin(), users[user].end(), [&](auto item) {
      return items[item].users == 0 && items[item].size > 0;
    });
    if (isUseful) return false;
    for (const std::size_t item : users[user])
      ++items[item].users;
    return true;
  });
  return chosen;
}

}  // namespace kiv
