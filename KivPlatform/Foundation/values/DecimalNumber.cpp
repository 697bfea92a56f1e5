// std::from_chars for double is missing in some standard libraries. strtod is the substitute, but
// its decimal point depends on the locale, which the host application may have set.

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

/// Sets this thread's locale to "C", whose decimal point is ".", and restores it on destruction.
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
  // Passes only the characters of a JSON number: strtod accepts more ("inf", hexadecimal), and
  // needs a terminating NUL.
  const std::string digits(text.substr(0, text.find_first_not_of("+-.0123456789Ee")));
  const PointAsDecimal point;
  const double read = std::strtod(digits.c_str(), nullptr);
  if (std::isinf(read)) return std::errc::result_out_of_range;
  number = read;
  return {};
}

}  // namespace kiv
