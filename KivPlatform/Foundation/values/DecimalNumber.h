#pragma once

#include <string_view>
#include <system_error>

namespace kiv {

/// Parses the JSON number at the start of the text into the nearest double, independently of the
/// locale. If the number is too large, returns result_out_of_range and leaves `number` unchanged.
/// If it is too small, does the same or yields a zero with its sign.
std::errc readDecimal(std::string_view text, double& number);

/// The same with the C library, for standard libraries without std::from_chars for double.
std::errc readDecimalByC(std::string_view text, double& number);

}  // namespace kiv
