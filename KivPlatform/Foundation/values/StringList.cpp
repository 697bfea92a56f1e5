// Strings are stored as values, so that a list read from JSON shares their characters with the
// dictionaries it came from and copies none.

#include "KivPlatform/Foundation/values/StringList.h"

#include <algorithm>
#include <utility>

namespace kiv {

StringList::StringList(std::initializer_list<std::string_view> strings) {
  assign(strings);
}

bool StringList::contains(std::string_view string) const noexcept {
  return std::any_of(strings_.begin(), strings_.end(),
                     [&](const Value& value) { return value.stringView() == string; });
}

void StringList::push_back(const Value& string) {
  // The elements of values() are always strings.
  strings_.append(string.isString() ? string : Value(""));
  changeFlags_.set();
}

void StringList::assign(std::initializer_list<std::string_view> strings) {
  Array others;
  for (const std::string_view string : strings)
    others.append(string);
  strings_ = std::move(others);
  changeFlags_.set();
}

}  // namespace kiv
