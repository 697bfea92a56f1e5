#pragma once

#include <string_view>
#include <system_error>

namespace kiv {

/// Reads the decimal number, well formed as in JSON, that the text begins with: the nearest double,
/// whatever the locale. result_out_of_range where it is too large, and then `number` is as it was;
/// where it is too small, either this or a zero of its sign.
std::errc readDecimal(std::string_view text, double& number);

/// The same by the C library, for standard libraries whose std::from_chars reads no double.
std::errc readDecimalByC(std::string_view text, double& number);

}  // namespace kiv
