#include "KivPlatform/Foundation/values/DecimalNumber.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <locale.h>
#include <string>
#include <version>

#if defined(__APPLE__)
#include <xlocale.h>
#endif

namespace kiv {

namespace {

/// While it lives, this thread's decimal point is a point.
class PointAsDecimal {
 public:
  PointAsDecimal() noexcept : before_(uselocale(plain())) {}
  ~PointAsDecimal() { uselocale(before_); }
  PointAsDecimal(const PointAsDecimal&) = delete;
  PointAsDecimal& operator=(const PointAsDecimal&) = delete;

 private:
  static locale_t plain() noexcept {
    static const locale_t shared = newlocale(LC_ALL_MASK, "C", nullptr);
    return shared;
  }

  locale_t before_;
};

}  // namespace

std::errc readDecimal(std::string_view text, double& number) {
#if defined(__cpp_lib_to_chars)
  return std::from_chars(text.data(), text.data() + text.size(), number).ec;
#else
  return readDecimalByC(text, number);
#endif
}

std::errc readDecimalByC(std::string_view text, double& number) {
  // Not the whole text: strtod reads more than JSON allows, and needs an end.
  const std::string digits(text.substr(0, text.find_first_not_of("+-.0123456789Ee")));
  const PointAsDecimal point;
  const double read = std::strtod(digits.c_str(), nullptr);
  if (std::isinf(read)) return std::errc::result_out_of_range;
  number = read;
  return {};
}

}  // namespace kiv
