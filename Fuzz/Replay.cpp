// Runs a fuzz target once for each file given on the command line, or in a directory given there,
// so that a corpus is an ordinary test with any compiler.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

namespace {

namespace fs = std::filesystem;

void replayFile(const fs::path& path) {
  std::fprintf(stderr, "%s\n", path.c_str());
  std::ifstream file(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

std::size_t replay(const fs::path& path) {
  if (!fs::is_directory(path)) {
    replayFile(path);
    return 1;
  }
  std::size_t files = 0;
  for (const auto& entry : fs::recursive_directory_iterator(path)) {
    if (!entry.is_regular_file()) continue;
    replayFile(entry.path());
    ++files;
  }
  return files;
}

}  // namespace

int main(int count, char** arguments) {
  std::size_t files = 0;
  for (int index = 1; index < count; ++index)
    files += replay(arguments[index]);
  std::fprintf(stderr, "%zu inputs replayed\n", files);
  return files == 0 ? EXIT_FAILURE : EXIT_SUCCESS;  // an empty corpus tests nothing
}
