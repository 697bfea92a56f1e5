// Objects rarely have more than one flag. The first is stored inline, and further ones in a linked
// list.

#include "KivPlatform/Foundation/values/ChangeFlag.h"

namespace kiv {

void ChangeFlags::add(const std::shared_ptr<ChangeFlag>& flag) {
  const auto known = flag_.lock();
  if (!known) {
    flag_ = flag;
  } else if (known != flag) {
    if (!others_) others_ = std::make_unique<ChangeFlags>();
    others_->add(flag);
  }
}

void ChangeFlags::add(const ChangeFlags& others) {
  for (const ChangeFlags* other = &others; other; other = other->others_.get()) {
    if (const auto flag = other->flag_.lock()) add(flag);
  }
}

void ChangeFlags::set() const noexcept {
  for (const ChangeFlags* flags = this; flags; flags = flags->others_.get()) {
    if (const auto flag = flags->flag_.lock()) flag->set();
  }
}

}  // namespace kiv
