#include "Tools/kivresource/Fault.h"

#include <charconv>
#include <system_error>

namespace tool {

std::optional<Fault> Fault::of(std::string_view rule) {
  const auto sign = rule.rfind('=');
  if (sign == std::string_view::npos || sign == 0) return std::nullopt;
  Fault fault{std::string(rule.substr(0, sign)), std::nullopt};
  if (!fault.path.starts_with('/')) fault.path.insert(0, 1, '/');
  const std::string_view effect = rule.substr(sign + 1);
  if (effect == "break") return fault;

  int status = 0;
  const auto [end, error] = std::from_chars(effect.data(), effect.data() + effect.size(), status);
  if (error != std::errc() || end != effect.data() + effect.size()) return std::nullopt;
  if (status < 200 || status > 599) return std::nullopt;
  fault.status = status;
  return fault;
}

}  // namespace tool
