#pragma once

#include <string_view>
#include <system_error>

namespace kiv {

/// Parses the JSON number at the start of the text into the nearest double, whatever the locale.
/// result_out_of_range, and `number` unchanged, if it is too large; if it is too small, either that
/// or a zero with its sign.
std::errc readDecimal(std::string_view text, double& number);

/// The same with the C library, for standard libraries without std::from_chars for double.
std::errc readDecimalByC(std::string_view text, double& number);

}  // namespace kiv
