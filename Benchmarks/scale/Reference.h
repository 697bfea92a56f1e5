#pragma once

#include <cstddef>
#include <string>

namespace kiv::bench {

/// The reference for restoring: reads the saved list, parses all values with simdjson and looks up
/// each file once. Returns the number of files.
std::size_t readParseAndAskForFiles(const std::string& listPath);

}  // namespace kiv::bench
