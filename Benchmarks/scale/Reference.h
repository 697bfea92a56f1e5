#pragma once

#include <cstddef>
#include <string>

namespace kiv::bench {

/// What restoring is held against: reads the saved list, parses every value of it with simdjson and
/// asks the file system once for each file that it names. Answers how many files there are.
std::size_t readParseAndAskForFiles(const std::string& listPath);

}  // namespace kiv::bench
