#include "Platform/KivStorageService/PathFolding.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "Platform/KivStorageService/UTF8.h"

namespace kiv::storage {

namespace {

/// One character with its folded form, which ends at the first zero.
struct Folding {
  char32_t character;
  std::array<char32_t, 3> folded;
};

/// In the order of the characters.
constexpr Folding foldings[] = {
#include "Platform/KivStorageService/PathFoldingTable.inc"
};

const Folding* findFolding(char32_t character) {
  const auto* const found = std::lower_bound(
      std::begin(foldings), std::end(foldings), character,
      [](const Folding& folding, char32_t wanted) { return folding.character < wanted; });
  return found != std::end(foldings) && found->character == character ? found : nullptr;
}

std::u32string bytesOf(std::string_view name) {
  std::u32string points;
  for (const char byte : name)
    points += static_cast<unsigned char>(byte);
  return points;
}

}  // namespace

std::u32string foldedName(std::string_view name) {
  const auto text = utf8::decode(name);
  std::u32string folded;
  for (const char32_t character : text ? *text : bytesOf(name)) {
    if (const Folding* folding = text ? findFolding(character) : nullptr) {
      for (const char32_t part : folding->folded) {
        if (part != 0) folded += part;
      }
    } else {
      const bool isCapital = character >= U'A' && character <= U'Z';
      folded += isCapital ? character + (U'a' - U'A') : character;
    }
  }
  return folded;
}

}  // namespace kiv::storage
