#include "Platform/Foundation/Data.h"

#include <utility>

namespace kiv {

Data::Data(std::string bytes) : bytes_(std::make_shared<const std::string>(std::move(bytes))) {}

std::string_view Data::view() const noexcept {
  return bytes_ ? std::string_view(*bytes_) : std::string_view();
}

}  // namespace kiv
